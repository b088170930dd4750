#include "crypto/mont_x86.h"

#ifdef HYLORN_MONT_ADX

namespace hylorn::mont_x86 {

bool has_mulx_adx() {
  static const bool yes = [] {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0 || (ecx & (1u << 27)) == 0) return false;
    unsigned xcr0_lo = 0, xcr0_hi = 0;
    asm("xgetbv" : "=a"(xcr0_lo), "=d"(xcr0_hi) : "c"(0));
    if ((xcr0_lo & 6) != 6) return false;  // SSE and AVX state
    if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) == 0) return false;
    return (ebx & (1u << 5)) != 0 && (ebx & (1u << 8)) != 0 && (ebx & (1u << 19)) != 0;
  }();
  return yes;
}

}  // namespace hylorn::mont_x86

#endif
