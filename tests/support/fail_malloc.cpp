#include "support/fail_malloc.h"

#include <cstddef>

extern "C" void* __real_malloc(std::size_t size);
extern "C" void* __real_calloc(std::size_t count, std::size_t size);

namespace {

int g_countdown = 0;  // > 0: the call that brings it to 0 fails
bool g_fired = false;

bool fail_this_one() {
  if (g_countdown <= 0 || --g_countdown != 0) return false;
  g_fired = true;
  return true;
}

}  // namespace

extern "C" void* __wrap_malloc(std::size_t size) {
  return fail_this_one() ? nullptr : __real_malloc(size);
}

// g++ turns malloc followed by a zeroing memset into calloc, so calloc counts as well.
extern "C" void* __wrap_calloc(std::size_t count, std::size_t size) {
  return fail_this_one() ? nullptr : __real_calloc(count, size);
}

namespace hylorn_test {

FailNthMalloc::FailNthMalloc(int n) {
  g_fired = false;
  g_countdown = n;
}
FailNthMalloc::~FailNthMalloc() {
  g_countdown = 0;
}
bool FailNthMalloc::fired() const {
  return g_fired;
}

}  // namespace hylorn_test
