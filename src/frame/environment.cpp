// Version and environment calls. The library needs no set-up: the environment hook
// succeeds without doing anything, so both bracketing calls always report success.
#include "frame/types.h"
#include "hylorn.h"

namespace hylorn {
namespace {

constexpr u32 kVersionMajor = 1;
constexpr u32 kVersionMinor = 10;

// Returns 1 for success, as the bracketing calls expect of it.
int environment_hook() { return 1; }

u32 run_environment_hook() { return environment_hook() == 1 ? 0 : 1; }

}  // namespace
}  // namespace hylorn

extern "C" HYLORN_API unsigned int Crypt_Get_Soft_Version(unsigned int* major,
                                                          unsigned int* minor) {
  *major = hylorn::kVersionMajor;
  *minor = hylorn::kVersionMinor;
  return 0;
}

extern "C" HYLORN_API unsigned int Crypt_InitEnvironment(void) {
  return hylorn::run_environment_hook();
}

// The same entry as Crypt_InitEnvironment: callers bracket their use with the pair.
extern "C" HYLORN_API unsigned int Crypt_ClearEnvironment(void) {
  return hylorn::run_environment_hook();
}
