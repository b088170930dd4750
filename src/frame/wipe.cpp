#include "frame/wipe.h"

#include <string.h>

namespace hylorn {

void secure_wipe(void* p, std::size_t n) noexcept {
  if (p != nullptr && n != 0) explicit_bzero(p, n);
}

}  // namespace hylorn
