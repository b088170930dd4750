#include "support/fail_malloc.h"

#include <cstddef>

extern "C" void* __real_malloc(std::size_t size);

namespace {

int g_countdown = 0;  // > 0: the call that brings it to 0 fails
bool g_fired = false;

}  // namespace

extern "C" void* __wrap_malloc(std::size_t size) {
  if (g_countdown > 0 && --g_countdown == 0) {
    g_fired = true;
    return nullptr;
  }
  return __real_malloc(size);
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
