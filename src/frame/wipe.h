// Wiping of key material that the optimiser may not remove.
#pragma once

#include <cstddef>

namespace hylorn {

// Overwrites n bytes at p with zeros; never elided, even right before p dies.
void secure_wipe(void* p, std::size_t n) noexcept;

// Wipes a whole object or array in place.
template <class T>
void secure_wipe_object(T& object) noexcept {
  secure_wipe(&object, sizeof(object));
}

}  // namespace hylorn
