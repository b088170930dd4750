#include "crypto/mont.h"

#include <cstring>
#include <initializer_list>

#include "frame/wipe.h"

namespace hylorn {

namespace {

using limb = u64;
using wide = unsigned __int128;

constexpr int kLimbBits = 64;
constexpr int kMaxLimbs = (MP_MAX_DIGITS + 1) / 2;
constexpr u32 kMaxWindow = 6;

// Bits of a 64-bit value that are set in every position when flag is 1, none when 0.
inline limb mask_of(limb flag) { return 0 - flag; }

void to_limbs(limb* r, int n, const MP_DIGIT* a, u32 digits) {
  for (int i = 0; i < n; ++i) {
    u32 lo = 2 * static_cast<u32>(i), hi = lo + 1;
    limb v = lo < digits ? a[lo] : 0;
    if (hi < digits) v |= static_cast<limb>(a[hi]) << 32;
    r[i] = v;
  }
}

void from_limbs(MP_DIGIT* a, u32 digits, const limb* r, int n) {
  for (u32 i = 0; i < digits; ++i) {
    int j = static_cast<int>(i / 2);
    a[i] = j < n ? static_cast<MP_DIGIT>(r[j] >> (32 * (i & 1))) : 0;
  }
}

constexpr int kMaxDividendLimbs = 2 * kMaxLimbs + 1;

// Long division on 64-bit limbs (Knuth's algorithm D): u (m limbs) by v (n limbs, its top
// limb not 0, m >= n) into q (m - n + 1 limbs, unless null) and r (n limbs). The divisor
// is shifted until its top bit is set; each quotient limb is estimated from the top two
// limbs of the running remainder, refined with the divisor's second limb, and corrected
// by one add-back when still one too large.
void divide_limbs(limb* q, limb* r, const limb* u, int m, const limb* v, int n) {
  limb vn[kMaxLimbs], un[kMaxDividendLimbs + 1];
  int s = __builtin_clzll(v[n - 1]);
  auto shifted = [s](limb hi, limb lo) { return s == 0 ? hi : (hi << s) | (lo >> (kLimbBits - s)); };
  for (int i = n - 1; i > 0; --i) vn[i] = shifted(v[i], v[i - 1]);
  vn[0] = v[0] << s;
  un[m] = s == 0 ? 0 : u[m - 1] >> (kLimbBits - s);
  for (int i = m - 1; i > 0; --i) un[i] = shifted(u[i], u[i - 1]);
  un[0] = u[0] << s;

  for (int j = m - n; j >= 0; --j) {
    wide top = (static_cast<wide>(un[j + n]) << kLimbBits) | un[j + n - 1];
    wide qhat = top / vn[n - 1], rhat = top % vn[n - 1];
    while ((qhat >> kLimbBits) != 0 ||
           (n > 1 && qhat * vn[n - 2] > ((rhat << kLimbBits) | un[j + n - 2]))) {
      --qhat;
      rhat += vn[n - 1];
      if ((rhat >> kLimbBits) != 0) break;
    }
    limb carry = 0, borrow = 0;
    for (int i = 0; i < n; ++i) {
      wide p = qhat * vn[i] + carry;
      carry = static_cast<limb>(p >> kLimbBits);
      wide d = static_cast<wide>(un[i + j]) - static_cast<limb>(p) - borrow;
      un[i + j] = static_cast<limb>(d);
      borrow = static_cast<limb>(d >> kLimbBits) & 1;
    }
    wide d = static_cast<wide>(un[j + n]) - carry - borrow;
    un[j + n] = static_cast<limb>(d);
    if ((d >> kLimbBits) != 0) {  // one too many: add the divisor back
      --qhat;
      limb c = 0;
      for (int i = 0; i < n; ++i) {
        wide sum = static_cast<wide>(un[i + j]) + vn[i] + c;
        un[i + j] = static_cast<limb>(sum);
        c = static_cast<limb>(sum >> kLimbBits);
      }
      un[j + n] += c;
    }
    if (q != nullptr) q[j] = static_cast<limb>(qhat);
  }
  for (int i = 0; i < n; ++i) r[i] = s == 0 ? un[i] : (un[i] >> s) | (un[i + 1] << (kLimbBits - s));
  secure_wipe(vn, sizeof vn);
  secure_wipe(un, sizeof un);
}

// -n^-1 mod 2^64 for odd n, by Newton's iteration (each step doubles the correct bits).
limb neg_inverse(limb n) {
  limb x = n;  // correct to 3 bits: n * n = 1 mod 8 for odd n
  for (int i = 0; i < 5; ++i) x *= 2 - n * x;
  return 0 - x;
}

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define HYLORN_MONT8_ADX 1

#include <cpuid.h>

// MULX with the ADCX/ADOX pair of carry chains (BMI2 and ADX), asked of the processor once.
bool has_mulx_adx() {
  static const bool yes = [] {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) == 0) return false;
    return (ebx & (1u << 8)) != 0 && (ebx & (1u << 19)) != 0;
  }();
  return yes;
}

// Operands of the 512-bit kernel at fixed offsets from one pointer.
struct Frame8 {
  limb a[8];    // 0
  limb b[8];    // 64
  limb n[8];    // 128
  limb n0;      // 192
  limb out[9];  // 200: room for t - n
  limb sq[16];  // 272: the full square of a, before its reduction
};
static_assert(sizeof(Frame8) == 400, "the kernels address the frame by fixed offsets");

// One limb of a row: lo(x * rdx) joins the CF chain at LO, hi joins the OF chain at HI.
#define HYLORN_MULADD(off, LO, HI)            \
  "mulxq " #off "(%%rdi), %%rax, %%rcx\n\t" \
  "adcxq %%rax, " LO "\n\t"                 \
  "adoxq %%rcx, " HI "\n\t"
// Both chains end in T8; what leaves it collects in rsi.
#define HYLORN_CARRY_OUT(T8)  \
  "movl $0, %%eax\n\t"        \
  "adcxq %%rax, " T8 "\n\t"   \
  "adoxq %%rax, %%rsi\n\t"    \
  "adcxq %%rax, %%rsi\n\t"
// One row of the interleaved method: T += a * b[i]; m = T0 * n0; T = (T + m n) / 2^64.
// T0..T8 name the accumulator limbs of this row; the next row takes them shifted by one,
// with the freed T0 as its top limb.
#define HYLORN_ROW(boff, T0, T1, T2, T3, T4, T5, T6, T7, T8)                            \
  "movq " #boff "(%%rdi), %%rdx\n\t"                                                    \
  "xorl %%esi, %%esi\n\t"                                                               \
  HYLORN_MULADD(0, T0, T1) HYLORN_MULADD(8, T1, T2) HYLORN_MULADD(16, T2, T3)           \
  HYLORN_MULADD(24, T3, T4) HYLORN_MULADD(32, T4, T5) HYLORN_MULADD(40, T5, T6)         \
  HYLORN_MULADD(48, T6, T7) HYLORN_MULADD(56, T7, T8) HYLORN_CARRY_OUT(T8)              \
  "movq 192(%%rdi), %%rdx\n\t"                                                          \
  "mulxq " T0 ", %%rdx, %%rcx\n\t"                                                      \
  "xorl %%eax, %%eax\n\t"                                                               \
  HYLORN_MULADD(128, T0, T1) HYLORN_MULADD(136, T1, T2) HYLORN_MULADD(144, T2, T3)      \
  HYLORN_MULADD(152, T3, T4) HYLORN_MULADD(160, T4, T5) HYLORN_MULADD(168, T5, T6)      \
  HYLORN_MULADD(176, T6, T7) HYLORN_MULADD(184, T7, T8) HYLORN_CARRY_OUT(T8)            \
  "movq %%rsi, " T0 "\n\t"

// The result t (rbx, r8..r14 and the top bit in TOP) is below 2n: t - n goes to out, and
// a takes it when no borrow remains, t otherwise (by conditional moves, not branches).
#define HYLORN_SUB_LIMB(R, noff, toff, op) "movq " R ", %%rax\n\t " op " " #noff "(%%rdi), %%rax\n\t movq %%rax, " #toff "(%%rdi)\n\t"
#define HYLORN_TAKE_LIMB(R, toff, aoff) "cmovncq " #toff "(%%rdi), " R "\n\t movq " R ", " #aoff "(%%rdi)\n\t"
#define HYLORN_FINAL_SUBTRACT(TOP) \
  HYLORN_SUB_LIMB("%%rbx", 128, 200, "subq") \
  HYLORN_SUB_LIMB("%%r8", 136, 208, "sbbq") \
  HYLORN_SUB_LIMB("%%r9", 144, 216, "sbbq") \
  HYLORN_SUB_LIMB("%%r10", 152, 224, "sbbq") \
  HYLORN_SUB_LIMB("%%r11", 160, 232, "sbbq") \
  HYLORN_SUB_LIMB("%%r12", 168, 240, "sbbq") \
  HYLORN_SUB_LIMB("%%r13", 176, 248, "sbbq") \
  HYLORN_SUB_LIMB("%%r14", 184, 256, "sbbq") \
  "sbbq $0, " TOP "\n\t" \
  HYLORN_TAKE_LIMB("%%rbx", 200, 0) \
  HYLORN_TAKE_LIMB("%%r8", 208, 8) \
  HYLORN_TAKE_LIMB("%%r9", 216, 16) \
  HYLORN_TAKE_LIMB("%%r10", 224, 24) \
  HYLORN_TAKE_LIMB("%%r11", 232, 32) \
  HYLORN_TAKE_LIMB("%%r12", 240, 40) \
  HYLORN_TAKE_LIMB("%%r13", 248, 48) \
  HYLORN_TAKE_LIMB("%%r14", 256, 56)

// a = a b / R mod n, for a, b below n < 2^512.
__attribute__((always_inline)) inline void mont_mul_512_adx(Frame8* f) {
  asm volatile(
      "xorl %%r8d, %%r8d\n\t"
      "movq %%r8, %%r9\n\t movq %%r8, %%r10\n\t movq %%r8, %%r11\n\t movq %%r8, %%r12\n\t"
      "movq %%r8, %%r13\n\t movq %%r8, %%r14\n\t movq %%r8, %%r15\n\t movq %%r8, %%rbx\n\t"
      HYLORN_ROW(64, "%%r8", "%%r9", "%%r10", "%%r11", "%%r12", "%%r13", "%%r14", "%%r15", "%%rbx")
      HYLORN_ROW(72, "%%r9", "%%r10", "%%r11", "%%r12", "%%r13", "%%r14", "%%r15", "%%rbx", "%%r8")
      HYLORN_ROW(80, "%%r10", "%%r11", "%%r12", "%%r13", "%%r14", "%%r15", "%%rbx", "%%r8", "%%r9")
      HYLORN_ROW(88, "%%r11", "%%r12", "%%r13", "%%r14", "%%r15", "%%rbx", "%%r8", "%%r9", "%%r10")
      HYLORN_ROW(96, "%%r12", "%%r13", "%%r14", "%%r15", "%%rbx", "%%r8", "%%r9", "%%r10", "%%r11")
      HYLORN_ROW(104, "%%r13", "%%r14", "%%r15", "%%rbx", "%%r8", "%%r9", "%%r10", "%%r11", "%%r12")
      HYLORN_ROW(112, "%%r14", "%%r15", "%%rbx", "%%r8", "%%r9", "%%r10", "%%r11", "%%r12", "%%r13")
      HYLORN_ROW(120, "%%r15", "%%rbx", "%%r8", "%%r9", "%%r10", "%%r11", "%%r12", "%%r13", "%%r14")
      HYLORN_FINAL_SUBTRACT("%%r15")
      :
      : "D"(f)
      : "rax", "rbx", "rcx", "rdx", "rsi", "r8", "r9", "r10", "r11", "r12", "r13", "r14", "r15",
        "cc", "memory");
}


// The 512-bit square: the cross products a_i a_j (i < j) row by row into a register
// window that slides up two limbs a row, written out as they become final; then twice
// them plus the squares a_i^2; then the Montgomery reduction of the 16 limbs, eight
// rounds of t += m n 2^(64 i) over a window of nine registers, the carry beyond the
// window kept in rsi.
#define HYLORN_SQ_STORE(p, q, RP, RQ) \
  "movq " RP ", 272+8*" #p "(%%rdi)\n\t movq " RQ ", 272+8*" #q "(%%rdi)\n\t"
#define HYLORN_SQ_ROW_START(aoff, TOP) \
  "movq " #aoff "(%%rdi), %%rdx\n\t xorl %%eax, %%eax\n\t movq %%rax, " TOP "\n\t"
#define HYLORN_SQ_STEP(aoff, LO, HI) \
  "mulxq " #aoff "(%%rdi), %%rax, %%rcx\n\t adcxq %%rax, " LO "\n\t adoxq %%rcx, " HI "\n\t"
#define HYLORN_SQ_ROW_END(TOP) "movl $0, %%eax\n\t adcxq %%rax, " TOP "\n\t"
#define HYLORN_SQ_DIAGONAL(aoff, lo, hi)                                                      \
  "movq " #aoff "(%%rdi), %%rdx\n\t mulxq %%rdx, %%rax, %%rcx\n\t"                          \
  "movq " #lo "(%%rdi), %%r8\n\t adcxq %%r8, %%r8\n\t adoxq %%rax, %%r8\n\t movq %%r8, " #lo \
  "(%%rdi)\n\t"                                                                             \
  "movq " #hi "(%%rdi), %%r9\n\t adcxq %%r9, %%r9\n\t adoxq %%rcx, %%r9\n\t movq %%r9, " #hi \
  "(%%rdi)\n\t"
#define HYLORN_REDC_STEP(noff, LO, HI) \
  "mulxq " #noff "(%%rdi), %%rax, %%rcx\n\t adcxq %%rax, " LO "\n\t adoxq %%rcx, " HI "\n\t"
#define HYLORN_REDC_ROUND(xoff, W0, W1, W2, W3, W4, W5, W6, W7, W8)                         \
  "movq " #xoff "(%%rdi), " W8 "\n\t"                                                       \
  "movq " W0 ", %%rdx\n\t imulq 192(%%rdi), %%rdx\n\t xorl %%eax, %%eax\n\t"                \
  HYLORN_REDC_STEP(128, W0, W1) HYLORN_REDC_STEP(136, W1, W2) HYLORN_REDC_STEP(144, W2, W3) \
  HYLORN_REDC_STEP(152, W3, W4) HYLORN_REDC_STEP(160, W4, W5) HYLORN_REDC_STEP(168, W5, W6) \
  HYLORN_REDC_STEP(176, W6, W7) HYLORN_REDC_STEP(184, W7, W8)                               \
  "adcxq %%rsi, " W8 "\n\t movl $0, %%esi\n\t movl $0, %%eax\n\t"                           \
  "adoxq %%rax, %%rsi\n\t adcxq %%rax, %%rsi\n\t"

// a = a^2 / R mod n, for a below n < 2^512.
__attribute__((always_inline)) inline void mont_sqr_512_adx(Frame8* f) {
  asm volatile(
      // a0 * a1..a7 into positions 1..8 (one carry chain)
      "movq (%%rdi), %%rdx\n\t"
      "mulxq 8(%%rdi), %%r8, %%r9\n\t"
      "mulxq 16(%%rdi), %%rax, %%r10\n\t addq %%rax, %%r9\n\t"
      "mulxq 24(%%rdi), %%rax, %%r11\n\t adcq %%rax, %%r10\n\t"
      "mulxq 32(%%rdi), %%rax, %%r12\n\t adcq %%rax, %%r11\n\t"
      "mulxq 40(%%rdi), %%rax, %%r13\n\t adcq %%rax, %%r12\n\t"
      "mulxq 48(%%rdi), %%rax, %%r14\n\t adcq %%rax, %%r13\n\t"
      "mulxq 56(%%rdi), %%rax, %%r15\n\t adcq %%rax, %%r14\n\t"
      "adcq $0, %%r15\n\t"
      HYLORN_SQ_STORE(1, 2, "%%r8", "%%r9")
      // a1 * a2..a7 into positions 3..9
      HYLORN_SQ_ROW_START(8, "%%rbx")
      HYLORN_SQ_STEP(16, "%%r10", "%%r11")
      HYLORN_SQ_STEP(24, "%%r11", "%%r12")
      HYLORN_SQ_STEP(32, "%%r12", "%%r13")
      HYLORN_SQ_STEP(40, "%%r13", "%%r14")
      HYLORN_SQ_STEP(48, "%%r14", "%%r15")
      HYLORN_SQ_STEP(56, "%%r15", "%%rbx")
      HYLORN_SQ_ROW_END("%%rbx")
      HYLORN_SQ_STORE(3, 4, "%%r10", "%%r11")
      // a2 * a3..a7 into positions 5..10
      HYLORN_SQ_ROW_START(16, "%%r8")
      HYLORN_SQ_STEP(24, "%%r12", "%%r13")
      HYLORN_SQ_STEP(32, "%%r13", "%%r14")
      HYLORN_SQ_STEP(40, "%%r14", "%%r15")
      HYLORN_SQ_STEP(48, "%%r15", "%%rbx")
      HYLORN_SQ_STEP(56, "%%rbx", "%%r8")
      HYLORN_SQ_ROW_END("%%r8")
      HYLORN_SQ_STORE(5, 6, "%%r12", "%%r13")
      // a3 * a4..a7 into positions 7..11
      HYLORN_SQ_ROW_START(24, "%%r9")
      HYLORN_SQ_STEP(32, "%%r14", "%%r15")
      HYLORN_SQ_STEP(40, "%%r15", "%%rbx")
      HYLORN_SQ_STEP(48, "%%rbx", "%%r8")
      HYLORN_SQ_STEP(56, "%%r8", "%%r9")
      HYLORN_SQ_ROW_END("%%r9")
      HYLORN_SQ_STORE(7, 8, "%%r14", "%%r15")
      // a4 * a5..a7 into positions 9..12
      HYLORN_SQ_ROW_START(32, "%%r10")
      HYLORN_SQ_STEP(40, "%%rbx", "%%r8")
      HYLORN_SQ_STEP(48, "%%r8", "%%r9")
      HYLORN_SQ_STEP(56, "%%r9", "%%r10")
      HYLORN_SQ_ROW_END("%%r10")
      HYLORN_SQ_STORE(9, 10, "%%rbx", "%%r8")
      // a5 * a6..a7 into positions 11..13
      HYLORN_SQ_ROW_START(40, "%%r11")
      HYLORN_SQ_STEP(48, "%%r9", "%%r10")
      HYLORN_SQ_STEP(56, "%%r10", "%%r11")
      HYLORN_SQ_ROW_END("%%r11")
      HYLORN_SQ_STORE(11, 12, "%%r9", "%%r10")
      // a6 * a7..a7 into positions 13..14
      HYLORN_SQ_ROW_START(48, "%%r12")
      HYLORN_SQ_STEP(56, "%%r11", "%%r12")
      HYLORN_SQ_ROW_END("%%r12")
      HYLORN_SQ_STORE(13, 14, "%%r11", "%%r12")
      // twice the cross products plus the squares a_i^2 at positions 2i, 2i+1
      "movq $0, 272(%%rdi)\n\t movq $0, 392(%%rdi)\n\t xorl %%eax, %%eax\n\t"
      HYLORN_SQ_DIAGONAL(0, 272, 280)
      HYLORN_SQ_DIAGONAL(8, 288, 296)
      HYLORN_SQ_DIAGONAL(16, 304, 312)
      HYLORN_SQ_DIAGONAL(24, 320, 328)
      HYLORN_SQ_DIAGONAL(32, 336, 344)
      HYLORN_SQ_DIAGONAL(40, 352, 360)
      HYLORN_SQ_DIAGONAL(48, 368, 376)
      HYLORN_SQ_DIAGONAL(56, 384, 392)
      // Montgomery reduction of the 16 limbs, a window of 9 registers sliding up
      "movq 272(%%rdi), %%r8\n\t"
      "movq 280(%%rdi), %%r9\n\t"
      "movq 288(%%rdi), %%r10\n\t"
      "movq 296(%%rdi), %%r11\n\t"
      "movq 304(%%rdi), %%r12\n\t"
      "movq 312(%%rdi), %%r13\n\t"
      "movq 320(%%rdi), %%r14\n\t"
      "movq 328(%%rdi), %%r15\n\t"
      "xorl %%esi, %%esi\n\t"
      HYLORN_REDC_ROUND(336, "%%r8", "%%r9", "%%r10", "%%r11", "%%r12", "%%r13", "%%r14", "%%r15", "%%rbx")
      HYLORN_REDC_ROUND(344, "%%r9", "%%r10", "%%r11", "%%r12", "%%r13", "%%r14", "%%r15", "%%rbx", "%%r8")
      HYLORN_REDC_ROUND(352, "%%r10", "%%r11", "%%r12", "%%r13", "%%r14", "%%r15", "%%rbx", "%%r8", "%%r9")
      HYLORN_REDC_ROUND(360, "%%r11", "%%r12", "%%r13", "%%r14", "%%r15", "%%rbx", "%%r8", "%%r9", "%%r10")
      HYLORN_REDC_ROUND(368, "%%r12", "%%r13", "%%r14", "%%r15", "%%rbx", "%%r8", "%%r9", "%%r10", "%%r11")
      HYLORN_REDC_ROUND(376, "%%r13", "%%r14", "%%r15", "%%rbx", "%%r8", "%%r9", "%%r10", "%%r11", "%%r12")
      HYLORN_REDC_ROUND(384, "%%r14", "%%r15", "%%rbx", "%%r8", "%%r9", "%%r10", "%%r11", "%%r12", "%%r13")
      HYLORN_REDC_ROUND(392, "%%r15", "%%rbx", "%%r8", "%%r9", "%%r10", "%%r11", "%%r12", "%%r13", "%%r14")
      HYLORN_FINAL_SUBTRACT("%%rsi")
      :
      : "D"(f)
      : "rax", "rbx", "rcx", "rdx", "rsi", "r8", "r9", "r10", "r11", "r12", "r13", "r14", "r15",
        "cc", "memory");
}

#undef HYLORN_FINAL_SUBTRACT
#undef HYLORN_TAKE_LIMB
#undef HYLORN_SUB_LIMB
#undef HYLORN_REDC_ROUND
#undef HYLORN_REDC_STEP
#undef HYLORN_SQ_DIAGONAL
#undef HYLORN_SQ_ROW_END
#undef HYLORN_SQ_STEP
#undef HYLORN_SQ_ROW_START
#undef HYLORN_SQ_STORE

// The 1024-bit row: the accumulator t (18 limbs) stays in memory. Pass 1 adds a * bi
// (lo in the CF chain, the previous hi in the OF chain); pass 2 adds m n and stores each
// limb one place down, which drops the cleared low limb.
#define HYLORN_P1(j, HI, HIPREV)           \
  "mulxq " #j "*8(%[a]), %%rax, " HI "\n\t" \
  "adcxq " #j "*8(%[t]), %%rax\n\t"         \
  "adoxq " HIPREV ", %%rax\n\t"             \
  "movq %%rax, " #j "*8(%[t])\n\t"
#define HYLORN_P2(j, jm1, HI, HIPREV)      \
  "mulxq " #j "*8(%[n]), %%rax, " HI "\n\t" \
  "adcxq " #j "*8(%[t]), %%rax\n\t"         \
  "adoxq " HIPREV ", %%rax\n\t"             \
  "movq %%rax, " #jm1 "*8(%[t])\n\t"

void mont_row_1024_adx(limb* t, const limb* a, limb bi, const limb* n, limb n0) {
  asm volatile(
      "xorl %%r8d, %%r8d\n\t"
      HYLORN_P1(0, "%%rcx", "%%r8")
      HYLORN_P1(1, "%%rbx", "%%rcx")
      HYLORN_P1(2, "%%rcx", "%%rbx")
      HYLORN_P1(3, "%%rbx", "%%rcx")
      HYLORN_P1(4, "%%rcx", "%%rbx")
      HYLORN_P1(5, "%%rbx", "%%rcx")
      HYLORN_P1(6, "%%rcx", "%%rbx")
      HYLORN_P1(7, "%%rbx", "%%rcx")
      HYLORN_P1(8, "%%rcx", "%%rbx")
      HYLORN_P1(9, "%%rbx", "%%rcx")
      HYLORN_P1(10, "%%rcx", "%%rbx")
      HYLORN_P1(11, "%%rbx", "%%rcx")
      HYLORN_P1(12, "%%rcx", "%%rbx")
      HYLORN_P1(13, "%%rbx", "%%rcx")
      HYLORN_P1(14, "%%rcx", "%%rbx")
      HYLORN_P1(15, "%%rbx", "%%rcx")
      "movq 16*8(%[t]), %%rax\n\t adcxq %%r8, %%rax\n\t adoxq %%rbx, %%rax\n\t movq %%rax, 16*8(%[t])\n\t"
      "movq 17*8(%[t]), %%rax\n\t adcxq %%r8, %%rax\n\t adoxq %%r8, %%rax\n\t movq %%rax, 17*8(%[t])\n\t"
      "movq (%[t]), %%rdx\n\t"
      "imulq %[n0], %%rdx\n\t"
      "xorl %%eax, %%eax\n\t"
      "mulxq (%[n]), %%rax, %%rcx\n\t"
      "adcxq (%[t]), %%rax\n\t"
      HYLORN_P2(1, 0, "%%rbx", "%%rcx")
      HYLORN_P2(2, 1, "%%rcx", "%%rbx")
      HYLORN_P2(3, 2, "%%rbx", "%%rcx")
      HYLORN_P2(4, 3, "%%rcx", "%%rbx")
      HYLORN_P2(5, 4, "%%rbx", "%%rcx")
      HYLORN_P2(6, 5, "%%rcx", "%%rbx")
      HYLORN_P2(7, 6, "%%rbx", "%%rcx")
      HYLORN_P2(8, 7, "%%rcx", "%%rbx")
      HYLORN_P2(9, 8, "%%rbx", "%%rcx")
      HYLORN_P2(10, 9, "%%rcx", "%%rbx")
      HYLORN_P2(11, 10, "%%rbx", "%%rcx")
      HYLORN_P2(12, 11, "%%rcx", "%%rbx")
      HYLORN_P2(13, 12, "%%rbx", "%%rcx")
      HYLORN_P2(14, 13, "%%rcx", "%%rbx")
      HYLORN_P2(15, 14, "%%rbx", "%%rcx")
      "movq 16*8(%[t]), %%rax\n\t adcxq %%r8, %%rax\n\t adoxq %%rbx, %%rax\n\t movq %%rax, 15*8(%[t])\n\t"
      "movq 17*8(%[t]), %%rax\n\t adcxq %%r8, %%rax\n\t adoxq %%r8, %%rax\n\t movq %%rax, 16*8(%[t])\n\t"
      "movq %%r8, 17*8(%[t])\n\t"
      : "+d"(bi)
      : [a] "r"(a), [n] "r"(n), [t] "r"(t), [n0] "r"(n0)
      : "rax", "rbx", "rcx", "r8", "cc", "memory");
}

#undef HYLORN_P2
#undef HYLORN_P1
#undef HYLORN_ROW
#undef HYLORN_CARRY_OUT
#undef HYLORN_MULADD
#endif

// The operations on numbers below one odd modulus of N limbs, R = 2^(64 N).
template <int N>
struct Field {
  limb n[N];
  limb n0;  // -n^-1 mod 2^64
  mutable limb scratch[N + 2];
#ifdef HYLORN_MONT8_ADX
  bool adx = false;
  mutable Frame8 frame;  // the 512-bit kernel's operands
#endif

  void init(const MP_DIGIT* d, u32 dDigits) {
    to_limbs(n, N, d, dDigits);
    n0 = neg_inverse(n[0]);
#ifdef HYLORN_MONT8_ADX
    adx = has_mulx_adx();
    if constexpr (N == 8) {
      for (int j = 0; j < N; ++j) frame.n[j] = n[j];
      frame.n0 = n0;
    }
#endif
  }

#ifdef HYLORN_MONT8_ADX
  // The kernels work in place on frame.a; an accumulator kept there is never copied.
  limb* accumulator(limb* fallback) const {
    if constexpr (N == 8) {
      if (adx) return frame.a;
    }
    return fallback;
  }
  void load_frame(const limb* a, const limb* b) const {
    if (b != nullptr)
      for (int j = 0; j < N; ++j) frame.b[j] = b[j];
    if (a != frame.a)
      for (int j = 0; j < N; ++j) frame.a[j] = a[j];
  }
  void unload_frame(limb* r) const {
    if (r != frame.a)
      for (int j = 0; j < N; ++j) r[j] = frame.a[j];
  }
#else
  limb* accumulator(limb* fallback) const { return fallback; }
#endif

  // r = t - n when t (N limbs plus the carry limb top) is at least n, else t.
  void reduce_once(limb* r, const limb* t, limb top) const {
    limb diff[N];
    limb borrow = 0;
    for (int j = 0; j < N; ++j) {
      wide d = static_cast<wide>(t[j]) - n[j] - borrow;
      diff[j] = static_cast<limb>(d);
      borrow = static_cast<limb>(d >> kLimbBits) & 1;
    }
    limb keep_diff = mask_of((top | (borrow ^ 1)) & 1);
    for (int j = 0; j < N; ++j) r[j] = (diff[j] & keep_diff) | (t[j] & ~keep_diff);
  }

  // r = a * b / R mod n, for a * b < R * n. r may alias a or b.
  void mul(limb* r, const limb* a, const limb* b) const {
#ifdef HYLORN_MONT8_ADX
    if constexpr (N == 8) {
      if (adx) {
        load_frame(a, b);
        mont_mul_512_adx(&frame);
        unload_frame(r);
        return;
      }
    }
#endif
    // Row by row: t += a b[i], then t += m n with m chosen to clear the low limb, which
    // is dropped. t stays below 2n between rows.
    limb* t = scratch;
    for (int j = 0; j < N + 2; ++j) t[j] = 0;
#ifdef HYLORN_MONT8_ADX
    if constexpr (N == 16) {
      if (adx) {
        for (int i = 0; i < N; ++i) mont_row_1024_adx(t, a, b[i], n, n0);
        reduce_once(r, t, t[N]);
        return;
      }
    }
#endif
    for (int i = 0; i < N; ++i) {
      limb carry = 0;
      limb bi = b[i];
      for (int j = 0; j < N; ++j) {
        wide p = static_cast<wide>(a[j]) * bi + t[j] + carry;
        t[j] = static_cast<limb>(p);
        carry = static_cast<limb>(p >> kLimbBits);
      }
      wide s = static_cast<wide>(t[N]) + carry;
      t[N] = static_cast<limb>(s);
      t[N + 1] = static_cast<limb>(s >> kLimbBits);

      limb m = t[0] * n0;
      wide p = static_cast<wide>(m) * n[0] + t[0];
      carry = static_cast<limb>(p >> kLimbBits);
      for (int j = 1; j < N; ++j) {
        p = static_cast<wide>(m) * n[j] + t[j] + carry;
        t[j - 1] = static_cast<limb>(p);
        carry = static_cast<limb>(p >> kLimbBits);
      }
      s = static_cast<wide>(t[N]) + carry;
      t[N - 1] = static_cast<limb>(s);
      t[N] = t[N + 1] + static_cast<limb>(s >> kLimbBits);
    }
    reduce_once(r, t, t[N]);
  }

  void sqr(limb* r, const limb* a) const {
#ifdef HYLORN_MONT8_ADX
    if constexpr (N == 8) {
      if (adx) {
        load_frame(a, nullptr);
        mont_sqr_512_adx(&frame);
        unload_frame(r);
        return;
      }
    }
#endif
    mul(r, a, a);
  }

  // r = 2 a mod n for a < n.
  void dbl(limb* r, const limb* a) const {
    limb t[N];
    limb carry = 0;
    for (int j = 0; j < N; ++j) {
      t[j] = (a[j] << 1) | carry;
      carry = a[j] >> (kLimbBits - 1);
    }
    reduce_once(r, t, carry);
    secure_wipe(t, sizeof t);
  }
};

// Reads w bits of the exponent starting at bit pos (bits past its end read as 0).
u32 exponent_window(const MP_DIGIT* c, u32 cDigits, u32 pos, u32 w) {
  u32 i = pos / MP_DIGIT_BITS;
  if (i >= cDigits) return 0;
  u64 x = c[i];
  if (i + 1 < cDigits) x |= static_cast<u64>(c[i + 1]) << MP_DIGIT_BITS;
  return static_cast<u32>(x >> (pos % MP_DIGIT_BITS)) & ((1u << w) - 1);
}

bool exponent_bit(const MP_DIGIT* c, u32 pos) {
  return ((c[pos / MP_DIGIT_BITS] >> (pos % MP_DIGIT_BITS)) & 1) != 0;
}

// The window width with the fewest multiplications for an exponent of this many bits:
// 2^w - 2 to fill the table, one per window after the first.
u32 window_width(u32 bits) {
  u32 best = 1, best_cost = bits;
  for (u32 w = 2; w <= kMaxWindow; ++w) {
    u32 cost = (1u << w) - 2 + (bits + w - 1) / w - 1;
    if (cost < best_cost) best = w, best_cost = cost;
  }
  return best;
}

template <int N>
class Exponentiation {
 public:
  Exponentiation(const MP_DIGIT* d, u32 dDigits) {
    f_.init(d, dDigits);
    make_r_and_rr(mp_bits(d, dDigits));
  }
  ~Exponentiation() {
    secure_wipe(&f_, sizeof f_);
    secure_wipe(one_, sizeof one_);
    secure_wipe(rr_, sizeof rr_);
    secure_wipe(table_, table_entries_ * sizeof table_[0]);
  }
  Exponentiation(const Exponentiation&) = delete;
  Exponentiation& operator=(const Exponentiation&) = delete;

  // t = b^c in Montgomery form, b (N limbs) below R.
  void run(limb* t, const limb* b, const MP_DIGIT* c, u32 cDigits) {
    limb bm[N];
    f_.mul(bm, b, rr_);  // b R mod n: b < R and rr < n keep the product below R n
    u32 bits = mp_bits(c, cDigits);
    limb* acc = f_.accumulator(t);
    if (is_two(b))
      power_of_two(acc, c, bits);
    else if (bits <= 64)
      square_and_multiply(acc, bm, c, bits);
    else
      fixed_window(acc, bm, c, cDigits, bits);
    for (int j = 0; j < N; ++j) t[j] = acc[j];
    secure_wipe(bm, sizeof bm);
  }

  // Leaves Montgomery form: t / R mod n.
  void finish(limb* r, const limb* t) const {
    limb unit[N] = {1};
    f_.mul(r, t, unit);
  }

 private:
  // one = R mod n by doubling the top bit of n up to 2^(64 N); R^2 mod n by division.
  void make_r_and_rr(u32 nbits) {
    limb x[N] = {};
    x[(nbits - 1) / kLimbBits] = static_cast<limb>(1) << ((nbits - 1) % kLimbBits);
    for (u32 i = nbits - 1; i < static_cast<u32>(kLimbBits * N); ++i) f_.dbl(x, x);
    for (int i = 0; i < N; ++i) one_[i] = x[i];
    secure_wipe(x, sizeof x);
    r_squared();
  }

  // rr = 2^(128 N) mod n.
  void r_squared() {
    limb u[2 * N + 1] = {};
    u[2 * N] = 1;
    divide_limbs(nullptr, rr_, u, 2 * N + 1, f_.n, N);
  }

  static bool is_two(const limb* b) {
    limb rest = 0;
    for (int i = 1; i < N; ++i) rest |= b[i];
    return b[0] == 2 && rest == 0;
  }

  // 2^c: a squaring per bit and a doubling kept or dropped by mask, so the run does not
  // depend on the bits of c.
  void power_of_two(limb* t, const MP_DIGIT* c, u32 bits) const {
    limb doubled[N];
    f_.dbl(t, one_);
    for (u32 pos = bits - 1; pos-- > 0;) {
      f_.sqr(t, t);
      f_.dbl(doubled, t);
      limb keep = mask_of(exponent_bit(c, pos) ? 1 : 0);
      for (int j = 0; j < N; ++j) t[j] = (doubled[j] & keep) | (t[j] & ~keep);
    }
    secure_wipe(doubled, sizeof doubled);
  }

  void square_and_multiply(limb* t, const limb* bm, const MP_DIGIT* c, u32 bits) const {
    for (int j = 0; j < N; ++j) t[j] = bm[j];
    for (u32 pos = bits - 1; pos-- > 0;) {
      f_.sqr(t, t);
      if (exponent_bit(c, pos)) f_.mul(t, t, bm);
    }
  }

  // Copies table entry k into r, touching every entry alike. The entries are gathered
  // two limbs at a time into a local array that stays in registers (r may alias
  // anything; left to itself the compiler vectorises across entries and shuffles).
  void lookup(limb* r, u32 k, u32 entries) const {
    using Pair = limb __attribute__((vector_size(16)));
    constexpr int kPairs = (N + 1) / 2;
    Pair acc[kPairs] = {};
    for (u32 e = 0; e < entries; ++e) {
      limb m = mask_of((static_cast<limb>(e ^ k) - 1) >> (kLimbBits - 1));
      Pair take = {m, m};
      for (int j = 0; j < kPairs; ++j) {
        Pair v;
        std::memcpy(&v, &table_[e][2 * j], sizeof v);
        acc[j] |= v & take;
      }
    }
    std::memcpy(r, acc, N * sizeof(limb));
  }

  void fixed_window(limb* t, const limb* bm, const MP_DIGIT* c, u32 cDigits, u32 bits) {
    u32 w = window_width(bits);
    u32 entries = 1u << w;
    table_entries_ = entries;
    for (u32 e = 0; e < entries; ++e) table_[e][N] = 0;
    for (int j = 0; j < N; ++j) table_[0][j] = one_[j], table_[1][j] = bm[j];
    for (u32 e = 2; e < entries; ++e) {
      if (e % 2 == 0)
        f_.sqr(table_[e], table_[e / 2]);
      else
        f_.mul(table_[e], table_[e - 1], bm);
    }
    limb factor[N];
    u32 windows = (bits + w - 1) / w;
    lookup(t, exponent_window(c, cDigits, (windows - 1) * w, w), entries);
    for (u32 k = windows - 1; k-- > 0;) {
      for (u32 s = 0; s < w; ++s) f_.sqr(t, t);
      lookup(factor, exponent_window(c, cDigits, k * w, w), entries);
      f_.mul(t, t, factor);
    }
    secure_wipe(factor, sizeof factor);
  }

  Field<N> f_;
  limb one_[N];  // R mod n, the Montgomery form of 1
  limb rr_[N];   // R^2 mod n
  limb table_[1u << kMaxWindow][N + 1];  // one spare limb: entries are read in pairs
  u32 table_entries_ = 0;                 // how many were filled, and must be wiped
};

template <int N>
void exp_with_limbs(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 cDigits,
                    const MP_DIGIT* d, u32 dDigits) {
  limb base[N], t[N];
  MP_DIGIT reduced[MP_MAX_DIGITS] = {};
  if (MP_Digits(b, dDigits) > 2 * N) {  // too wide for N limbs: reduce it first
    MP_Mod(reduced, b, dDigits, d, dDigits);
    to_limbs(base, N, reduced, dDigits);
  } else {
    to_limbs(base, N, b, dDigits);
  }
  {
    Exponentiation<N> e(d, dDigits);
    e.run(t, base, c, cDigits);
    e.finish(t, t);
  }
  from_limbs(a, dDigits, t, N);
  secure_wipe(base, sizeof base);
  secure_wipe(t, sizeof t);
  secure_wipe(reduced, sizeof reduced);
}

// Calls exp_with_limbs<limbs> for limbs in N..kMaxLimbs (direct calls, no table).
template <int N>
void exp_for_limbs(int limbs, MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 cDigits,
                   const MP_DIGIT* d, u32 dDigits) {
  if (limbs == N)
    exp_with_limbs<N>(a, b, c, cDigits, d, dDigits);
  else if constexpr (N < kMaxLimbs)
    exp_for_limbs<N + 1>(limbs, a, b, c, cDigits, d, dDigits);
}

}  // namespace

void mp_divide(MP_DIGIT* quotient, MP_DIGIT* remainder, const MP_DIGIT* c, u32 cDigits,
               const MP_DIGIT* d, u32 dDigits) {
  limb u[kMaxDividendLimbs] = {}, v[kMaxDividendLimbs] = {}, q[kMaxDividendLimbs] = {};
  limb r[kMaxDividendLimbs] = {};
  int m = static_cast<int>((cDigits + 1) / 2);
  int n = static_cast<int>((MP_Digits(d, dDigits) + 1) / 2);
  to_limbs(u, m, c, cDigits);
  to_limbs(v, n, d, dDigits);
  if (m < n)
    for (int i = 0; i < m; ++i) r[i] = u[i];  // c has fewer limbs than d: c < d
  else
    divide_limbs(q, r, u, m, v, n);
  from_limbs(quotient, cDigits, q, kMaxDividendLimbs);
  from_limbs(remainder, dDigits, r, n);
  for (limb* t : {u, v, q, r}) secure_wipe(t, kMaxDividendLimbs * sizeof(limb));
}

void mont_mod_exp(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 cDigits,
                  const MP_DIGIT* d, u32 dDigits) {
  u32 dSig = MP_Digits(d, dDigits);
  if (dSig == 1 && d[0] == 1) {  // everything is 0 modulo 1 (the exponent is not 0)
    MP_AssignZero(a, dDigits);
    return;
  }
  exp_for_limbs<1>(static_cast<int>((dSig + 1) / 2), a, b, c, cDigits, d, dDigits);
}

}  // namespace hylorn
