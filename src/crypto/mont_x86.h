// The Montgomery kernels for x86-64 processors with BMI2, ADX and AVX2: MULX leaves the flags
// alone, so each row of products feeds two independent carry chains, ADCX on CF for the
// low halves and ADOX on OF for the high halves. One kernel per operation and size
// (512 and 1024 bits), each a single block of assembly working on a frame of operands at
// fixed offsets from rdi, so that the exponentiation loops never copy a running value.
// Included by the engine only.
#pragma once

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define HYLORN_MONT_ADX 1

#include <cpuid.h>
// GCC 12 warns about the deliberately undefined lanes inside its own AVX-512 intrinsics.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#include <immintrin.h>
#pragma GCC diagnostic pop

#include "frame/types.h"

namespace hylorn::mont_x86 {

using limb = u64;

// MULX with the ADCX/ADOX pair of carry chains (BMI2 and ADX), and AVX2 with the
// operating system saving its registers, for the table reads: asked of the processor once.
// Out of line (mont_cpu.cpp), so that a test under an emulator that hides ADX from
// CPUID while running it can still reach these kernels.
bool has_mulx_adx();

// r = row k of a table of `rows` rows, `stride` limbs apart, each row read alike: the
// window factor of an exponentiation, whose index is secret. N is a multiple of 4.
template <int N>
__attribute__((target("avx2"))) void gather_avx2(limb* r, const limb* table, int stride,
                                                  unsigned k, unsigned rows) {
  __m256i acc[N / 4];
  for (int j = 0; j < N / 4; ++j) acc[j] = _mm256_setzero_si256();
  const __m256i want = _mm256_set1_epi64x(static_cast<long long>(k));
  const __m256i one = _mm256_set1_epi64x(1);
  __m256i row = _mm256_setzero_si256();
  for (unsigned e = 0; e < rows; ++e, table += stride) {
    __m256i take = _mm256_cmpeq_epi64(row, want);
    for (int j = 0; j < N / 4; ++j) {
      __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(table + 4 * j));
      acc[j] = _mm256_or_si256(acc[j], _mm256_and_si256(v, take));
    }
    row = _mm256_add_epi64(row, one);
  }
  for (int j = 0; j < N / 4; ++j) _mm256_storeu_si256(reinterpret_cast<__m256i*>(r + 4 * j), acc[j]);
}

// Operands of the 512-bit kernels at fixed offsets from one pointer. The kernels read a
// (and b), and leave the result in a.
struct Frame8 {
  limb a[8];    // 0
  limb b[8];    // 64
  limb n[8];    // 128
  limb n0;      // 192: -n^-1 mod 2^64
  limb out[9];  // 200: room for t - n
  limb sq[16];  // 272: the full square of a, before its reduction
};
static_assert(sizeof(Frame8) == 400, "the kernels address the frame by fixed offsets");

// The same for 1024 bits.
struct Frame16 {
  limb a[16];    // 0
  limb b[16];    // 128
  limb n[16];    // 256
  limb n0;       // 384
  limb m[8];     // 392: the reduction factors of the current group of eight rows
  limb t[17];    // 456: the product's running sum
  limb out[16];  // 592: t - n
  limb sq[32];   // 720: the full square of a
  limb carry;    // 976: carries into sq[24] held back until the reduction gets there
};
static_assert(sizeof(Frame16) == 984, "the kernels address the frame by fixed offsets");

// ---- Pieces shared by all kernels -------------------------------------------------------

// One limb of a row: lo(x * rdx) joins the CF chain at LO, hi joins the OF chain at HI.
#define HYLORN_MULADD(off, LO, HI)            \
  "mulxq " #off "(%%rdi), %%rax, %%rcx\n\t" \
  "adcxq %%rax, " LO "\n\t"                 \
  "adoxq %%rcx, " HI "\n\t"
// Eight limbs of a row from src: x[0..7] * rdx added to W0..W8.
#define HYLORN_MULADD8(src, W0, W1, W2, W3, W4, W5, W6, W7, W8)                          \
  HYLORN_MULADD(src, W0, W1) HYLORN_MULADD(src + 8, W1, W2) HYLORN_MULADD(src + 16, W2, W3) \
  HYLORN_MULADD(src + 24, W3, W4) HYLORN_MULADD(src + 32, W4, W5)                           \
  HYLORN_MULADD(src + 40, W5, W6) HYLORN_MULADD(src + 48, W6, W7)                           \
  HYLORN_MULADD(src + 56, W7, W8)
// Both chains end in T8; what leaves it collects in rsi.
#define HYLORN_CARRY_OUT(T8)  \
  "movl $0, %%eax\n\t"        \
  "adcxq %%rax, " T8 "\n\t"   \
  "adoxq %%rax, %%rsi\n\t"    \
  "adcxq %%rax, %%rsi\n\t"
// The same, when rsi still holds the carry into T8 from the row before: it joins the CF
// chain there, and rsi then takes what leaves T8.
#define HYLORN_FOLD_CARRY(T8)                    \
  "adcxq %%rsi, " T8 "\n\t"                      \
  "movl $0, %%esi\n\t movl $0, %%eax\n\t"        \
  "adoxq %%rax, %%rsi\n\t adcxq %%rax, %%rsi\n\t"

// The window registers of the 1024-bit rows, each row's list turned by one: the low limb
// a row finishes frees its register, which becomes the top of the next row.
#define HYLORN_ROT0 "%%rbx", "%%r8", "%%r9", "%%r10", "%%r11", "%%r12", "%%r13", "%%r14", "%%r15"
#define HYLORN_ROT1 "%%r8", "%%r9", "%%r10", "%%r11", "%%r12", "%%r13", "%%r14", "%%r15", "%%rbx"
#define HYLORN_ROT2 "%%r9", "%%r10", "%%r11", "%%r12", "%%r13", "%%r14", "%%r15", "%%rbx", "%%r8"
#define HYLORN_ROT3 "%%r10", "%%r11", "%%r12", "%%r13", "%%r14", "%%r15", "%%rbx", "%%r8", "%%r9"
#define HYLORN_ROT4 "%%r11", "%%r12", "%%r13", "%%r14", "%%r15", "%%rbx", "%%r8", "%%r9", "%%r10"
#define HYLORN_ROT5 "%%r12", "%%r13", "%%r14", "%%r15", "%%rbx", "%%r8", "%%r9", "%%r10", "%%r11"
#define HYLORN_ROT6 "%%r13", "%%r14", "%%r15", "%%rbx", "%%r8", "%%r9", "%%r10", "%%r11", "%%r12"
#define HYLORN_ROT7 "%%r14", "%%r15", "%%rbx", "%%r8", "%%r9", "%%r10", "%%r11", "%%r12", "%%r13"
#define HYLORN_ROT8 "%%r15", "%%rbx", "%%r8", "%%r9", "%%r10", "%%r11", "%%r12", "%%r13", "%%r14"
// Expands the register list before the row macro sees it.
#define HYLORN_WITH(row, ...) row(__VA_ARGS__)

// Eight registers to or from eight limbs at off.
#define HYLORN_LOAD8(off, W0, W1, W2, W3, W4, W5, W6, W7, ...)                             \
  "movq " #off "(%%rdi), " W0 "\n\t movq " #off "+8(%%rdi), " W1 "\n\t"                    \
  "movq " #off "+16(%%rdi), " W2 "\n\t movq " #off "+24(%%rdi), " W3 "\n\t"                \
  "movq " #off "+32(%%rdi), " W4 "\n\t movq " #off "+40(%%rdi), " W5 "\n\t"                \
  "movq " #off "+48(%%rdi), " W6 "\n\t movq " #off "+56(%%rdi), " W7 "\n\t"
#define HYLORN_STORE8(off, W0, W1, W2, W3, W4, W5, W6, W7, ...)                            \
  "movq " W0 ", " #off "(%%rdi)\n\t movq " W1 ", " #off "+8(%%rdi)\n\t"                    \
  "movq " W2 ", " #off "+16(%%rdi)\n\t movq " W3 ", " #off "+24(%%rdi)\n\t"                \
  "movq " W4 ", " #off "+32(%%rdi)\n\t movq " W5 ", " #off "+40(%%rdi)\n\t"                \
  "movq " W6 ", " #off "+48(%%rdi)\n\t movq " W7 ", " #off "+56(%%rdi)\n\t"

// The cross products x_i x_j (i < j) of the eight limbs at src into positions 1..14 of
// the array at dst (positions 0 and 15 are left alone), row by row into a register
// window that slides up two limbs a row, written out as they become final.
#define HYLORN_SQ_STORE(dst, p, q, RP, RQ) \
  "movq " RP ", " #dst "+8*" #p "(%%rdi)\n\t movq " RQ ", " #dst "+8*" #q "(%%rdi)\n\t"
#define HYLORN_SQ_ROW_START(src, i, TOP) \
  "movq " #src "+8*" #i "(%%rdi), %%rdx\n\t xorl %%eax, %%eax\n\t movq %%rax, " TOP "\n\t"
#define HYLORN_SQ_STEP(src, j, LO, HI) \
  "mulxq " #src "+8*" #j "(%%rdi), %%rax, %%rcx\n\t adcxq %%rax, " LO "\n\t adoxq %%rcx, " HI "\n\t"
#define HYLORN_SQ_ROW_END(TOP) "movl $0, %%eax\n\t adcxq %%rax, " TOP "\n\t"
#define HYLORN_CROSS8(src, dst)                                         \
  /* x0 * x1..x7 into positions 1..8 (one carry chain) */              \
  "movq " #src "(%%rdi), %%rdx\n\t"                                    \
  "mulxq " #src "+8(%%rdi), %%r8, %%r9\n\t"                            \
  "mulxq " #src "+16(%%rdi), %%rax, %%r10\n\t addq %%rax, %%r9\n\t"    \
  "mulxq " #src "+24(%%rdi), %%rax, %%r11\n\t adcq %%rax, %%r10\n\t"   \
  "mulxq " #src "+32(%%rdi), %%rax, %%r12\n\t adcq %%rax, %%r11\n\t"   \
  "mulxq " #src "+40(%%rdi), %%rax, %%r13\n\t adcq %%rax, %%r12\n\t"   \
  "mulxq " #src "+48(%%rdi), %%rax, %%r14\n\t adcq %%rax, %%r13\n\t"   \
  "mulxq " #src "+56(%%rdi), %%rax, %%r15\n\t adcq %%rax, %%r14\n\t"   \
  "adcq $0, %%r15\n\t"                                                 \
  HYLORN_SQ_STORE(dst, 1, 2, "%%r8", "%%r9")                           \
  /* x1 * x2..x7 into positions 3..9 */                                \
  HYLORN_SQ_ROW_START(src, 1, "%%rbx")                                 \
  HYLORN_SQ_STEP(src, 2, "%%r10", "%%r11")                             \
  HYLORN_SQ_STEP(src, 3, "%%r11", "%%r12")                             \
  HYLORN_SQ_STEP(src, 4, "%%r12", "%%r13")                             \
  HYLORN_SQ_STEP(src, 5, "%%r13", "%%r14")                             \
  HYLORN_SQ_STEP(src, 6, "%%r14", "%%r15")                             \
  HYLORN_SQ_STEP(src, 7, "%%r15", "%%rbx")                             \
  HYLORN_SQ_ROW_END("%%rbx")                                           \
  HYLORN_SQ_STORE(dst, 3, 4, "%%r10", "%%r11")                         \
  /* x2 * x3..x7 into positions 5..10 */                               \
  HYLORN_SQ_ROW_START(src, 2, "%%r8")                                  \
  HYLORN_SQ_STEP(src, 3, "%%r12", "%%r13")                             \
  HYLORN_SQ_STEP(src, 4, "%%r13", "%%r14")                             \
  HYLORN_SQ_STEP(src, 5, "%%r14", "%%r15")                             \
  HYLORN_SQ_STEP(src, 6, "%%r15", "%%rbx")                             \
  HYLORN_SQ_STEP(src, 7, "%%rbx", "%%r8")                              \
  HYLORN_SQ_ROW_END("%%r8")                                            \
  HYLORN_SQ_STORE(dst, 5, 6, "%%r12", "%%r13")                         \
  /* x3 * x4..x7 into positions 7..11 */                               \
  HYLORN_SQ_ROW_START(src, 3, "%%r9")                                  \
  HYLORN_SQ_STEP(src, 4, "%%r14", "%%r15")                             \
  HYLORN_SQ_STEP(src, 5, "%%r15", "%%rbx")                             \
  HYLORN_SQ_STEP(src, 6, "%%rbx", "%%r8")                              \
  HYLORN_SQ_STEP(src, 7, "%%r8", "%%r9")                               \
  HYLORN_SQ_ROW_END("%%r9")                                            \
  HYLORN_SQ_STORE(dst, 7, 8, "%%r14", "%%r15")                         \
  /* x4 * x5..x7 into positions 9..12 */                               \
  HYLORN_SQ_ROW_START(src, 4, "%%r10")                                 \
  HYLORN_SQ_STEP(src, 5, "%%rbx", "%%r8")                              \
  HYLORN_SQ_STEP(src, 6, "%%r8", "%%r9")                               \
  HYLORN_SQ_STEP(src, 7, "%%r9", "%%r10")                              \
  HYLORN_SQ_ROW_END("%%r10")                                           \
  HYLORN_SQ_STORE(dst, 9, 10, "%%rbx", "%%r8")                         \
  /* x5 * x6..x7 into positions 11..13 */                              \
  HYLORN_SQ_ROW_START(src, 5, "%%r11")                                 \
  HYLORN_SQ_STEP(src, 6, "%%r9", "%%r10")                              \
  HYLORN_SQ_STEP(src, 7, "%%r10", "%%r11")                             \
  HYLORN_SQ_ROW_END("%%r11")                                           \
  HYLORN_SQ_STORE(dst, 11, 12, "%%r9", "%%r10")                        \
  /* x6 * x7 into positions 13..14 */                                  \
  HYLORN_SQ_ROW_START(src, 6, "%%r12")                                 \
  HYLORN_SQ_STEP(src, 7, "%%r11", "%%r12")                             \
  HYLORN_SQ_ROW_END("%%r12")                                           \
  HYLORN_SQ_STORE(dst, 13, 14, "%%r11", "%%r12")

// Twice the cross products plus the square of limb i, at positions 2i and 2i+1 of the
// array at dst; the doubling rides the CF chain, the squares the OF chain.
#define HYLORN_SQ_DIAGONAL(src, dst, i)                                                    \
  "movq " #src "+8*" #i "(%%rdi), %%rdx\n\t mulxq %%rdx, %%rax, %%rcx\n\t"                 \
  "movq " #dst "+16*" #i "(%%rdi), %%r8\n\t adcxq %%r8, %%r8\n\t adoxq %%rax, %%r8\n\t"    \
  "movq %%r8, " #dst "+16*" #i "(%%rdi)\n\t"                                               \
  "movq " #dst "+16*" #i "+8(%%rdi), %%r9\n\t adcxq %%r9, %%r9\n\t adoxq %%rcx, %%r9\n\t"  \
  "movq %%r9, " #dst "+16*" #i "+8(%%rdi)\n\t"

// ---- 512 bits -------------------------------------------------------------------------

// One row of the interleaved method: T += a * b[i]; m = T0 * n0; T = (T + m n) / 2^64.
// T0..T8 name the accumulator limbs of this row; the next row takes them shifted by one,
// with the freed T0 as its top limb.
#define HYLORN_ROW(boff, T0, T1, T2, T3, T4, T5, T6, T7, T8)         \
  "movq " #boff "(%%rdi), %%rdx\n\t"                                 \
  "xorl %%esi, %%esi\n\t"                                            \
  HYLORN_MULADD8(0, T0, T1, T2, T3, T4, T5, T6, T7, T8)              \
  HYLORN_CARRY_OUT(T8)                                               \
  "movq " T0 ", %%rdx\n\t imulq 192(%%rdi), %%rdx\n\t"               \
  "xorl %%eax, %%eax\n\t"                                            \
  HYLORN_MULADD8(128, T0, T1, T2, T3, T4, T5, T6, T7, T8)            \
  HYLORN_CARRY_OUT(T8)                                               \
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

// a = a b / R mod n, for a below R and b below n < 2^512.
__attribute__((always_inline)) inline void mul(Frame8* f) {
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

// One round of the reduction of the 16-limb square: t += m n 2^(64 i) over a window of
// nine registers, the top one loaded from xoff, the carry beyond the window kept in rsi.
#define HYLORN_REDC_ROUND(xoff, W0, W1, W2, W3, W4, W5, W6, W7, W8)  \
  "movq " #xoff "(%%rdi), " W8 "\n\t"                                \
  "movq " W0 ", %%rdx\n\t imulq 192(%%rdi), %%rdx\n\t xorl %%eax, %%eax\n\t" \
  HYLORN_MULADD8(128, W0, W1, W2, W3, W4, W5, W6, W7, W8)            \
  HYLORN_FOLD_CARRY(W8)

// a = a^2 / R mod n, for a below n < 2^512: the cross products, then twice them plus the
// squares, then the Montgomery reduction of the 16 limbs in eight rounds.
__attribute__((always_inline)) inline void sqr(Frame8* f) {
  asm volatile(
      HYLORN_CROSS8(0, 272)
      "movq $0, 272(%%rdi)\n\t movq $0, 392(%%rdi)\n\t xorl %%eax, %%eax\n\t"
      HYLORN_SQ_DIAGONAL(0, 272, 0) HYLORN_SQ_DIAGONAL(0, 272, 1)
      HYLORN_SQ_DIAGONAL(0, 272, 2) HYLORN_SQ_DIAGONAL(0, 272, 3)
      HYLORN_SQ_DIAGONAL(0, 272, 4) HYLORN_SQ_DIAGONAL(0, 272, 5)
      HYLORN_SQ_DIAGONAL(0, 272, 6) HYLORN_SQ_DIAGONAL(0, 272, 7)
      HYLORN_WITH(HYLORN_LOAD8, 272, HYLORN_ROT1)
      "xorl %%esi, %%esi\n\t"
      HYLORN_WITH(HYLORN_REDC_ROUND, 336, HYLORN_ROT1)
      HYLORN_WITH(HYLORN_REDC_ROUND, 344, HYLORN_ROT2)
      HYLORN_WITH(HYLORN_REDC_ROUND, 352, HYLORN_ROT3)
      HYLORN_WITH(HYLORN_REDC_ROUND, 360, HYLORN_ROT4)
      HYLORN_WITH(HYLORN_REDC_ROUND, 368, HYLORN_ROT5)
      HYLORN_WITH(HYLORN_REDC_ROUND, 376, HYLORN_ROT6)
      HYLORN_WITH(HYLORN_REDC_ROUND, 384, HYLORN_ROT7)
      HYLORN_WITH(HYLORN_REDC_ROUND, 392, HYLORN_ROT8)
      // the result is in rbx, r8..r14, its top bit in rsi
      HYLORN_FINAL_SUBTRACT("%%rsi")
      :
      : "D"(f)
      : "rax", "rbx", "rcx", "rdx", "rsi", "r8", "r9", "r10", "r11", "r12", "r13", "r14", "r15",
        "cc", "memory");
}

// ---- 1024 bits ------------------------------------------------------------------------
//
// A row of 16 limbs needs 17 accumulator registers, more than there are. So the rows go
// in groups of eight, and each group in two halves: the first half adds the low eight
// limbs of each row's operands into a nine-register window that slides up one limb a
// row, finding each row's reduction factor m on the way; the second half adds the high
// eight limbs, sliding on, and writes out the limbs that become final. Between groups
// the running sum goes through memory once.

// First half of row k: t[8 + k] joins the window as its top; W += a[0..7] b_k at W0; then
// m_k = W0 n0, kept for the second half, and W += n[0..7] m_k clears W0.
#define HYLORN_MUL16_LOW(k, boff, W0, W1, W2, W3, W4, W5, W6, W7, W8) \
  "movq 456+64+8*" #k "(%%rdi), " W8 "\n\t"                           \
  "movq " #boff "+8*" #k "(%%rdi), %%rdx\n\t xorl %%eax, %%eax\n\t"   \
  HYLORN_MULADD8(0, W0, W1, W2, W3, W4, W5, W6, W7, W8)               \
  HYLORN_FOLD_CARRY(W8)                                               \
  "movq " W0 ", %%rdx\n\t imulq 384(%%rdi), %%rdx\n\t"                \
  "movq %%rdx, 392+8*" #k "(%%rdi)\n\t xorl %%eax, %%eax\n\t"         \
  HYLORN_MULADD8(256, W0, W1, W2, W3, W4, W5, W6, W7, W8)             \
  HYLORN_CARRY_OUT(W8)
// Second half of row k: the top comes from TOP (t[16] for the first row, else 0); W +=
// a[8..15] b_k + n[8..15] m_k; W0 is final and goes to t[k].
#define HYLORN_MUL16_HIGH(k, boff, TOP, W0, W1, W2, W3, W4, W5, W6, W7, W8) \
  "movq " TOP ", " W8 "\n\t"                                                \
  "movq " #boff "+8*" #k "(%%rdi), %%rdx\n\t xorl %%eax, %%eax\n\t"         \
  HYLORN_MULADD8(64, W0, W1, W2, W3, W4, W5, W6, W7, W8)                    \
  HYLORN_FOLD_CARRY(W8)                                                     \
  "movq 392+8*" #k "(%%rdi), %%rdx\n\t xorl %%eax, %%eax\n\t"               \
  HYLORN_MULADD8(320, W0, W1, W2, W3, W4, W5, W6, W7, W8)                   \
  HYLORN_CARRY_OUT(W8)                                                      \
  "movq " W0 ", 456+8*" #k "(%%rdi)\n\t"
// One group: rows boff/8 .. boff/8 + 7 of b; t = (t + a b[..] + m n) / 2^512. The
// result's low half is in t[0..7], its high half in ROT7's first eight registers and its
// top limb in rsi.
#define HYLORN_MUL16_GROUP(boff)                                           \
  HYLORN_WITH(HYLORN_LOAD8, 456, HYLORN_ROT0)                              \
  "xorl %%esi, %%esi\n\t"                                                  \
  HYLORN_WITH(HYLORN_MUL16_LOW, 0, boff, HYLORN_ROT0)                      \
  HYLORN_WITH(HYLORN_MUL16_LOW, 1, boff, HYLORN_ROT1)                      \
  HYLORN_WITH(HYLORN_MUL16_LOW, 2, boff, HYLORN_ROT2)                      \
  HYLORN_WITH(HYLORN_MUL16_LOW, 3, boff, HYLORN_ROT3)                      \
  HYLORN_WITH(HYLORN_MUL16_LOW, 4, boff, HYLORN_ROT4)                      \
  HYLORN_WITH(HYLORN_MUL16_LOW, 5, boff, HYLORN_ROT5)                      \
  HYLORN_WITH(HYLORN_MUL16_LOW, 6, boff, HYLORN_ROT6)                      \
  HYLORN_WITH(HYLORN_MUL16_LOW, 7, boff, HYLORN_ROT7)                      \
  HYLORN_WITH(HYLORN_MUL16_HIGH, 0, boff, "456+128(%%rdi)", HYLORN_ROT8)   \
  HYLORN_WITH(HYLORN_MUL16_HIGH, 1, boff, "$0", HYLORN_ROT0)               \
  HYLORN_WITH(HYLORN_MUL16_HIGH, 2, boff, "$0", HYLORN_ROT1)               \
  HYLORN_WITH(HYLORN_MUL16_HIGH, 3, boff, "$0", HYLORN_ROT2)               \
  HYLORN_WITH(HYLORN_MUL16_HIGH, 4, boff, "$0", HYLORN_ROT3)               \
  HYLORN_WITH(HYLORN_MUL16_HIGH, 5, boff, "$0", HYLORN_ROT4)               \
  HYLORN_WITH(HYLORN_MUL16_HIGH, 6, boff, "$0", HYLORN_ROT5)               \
  HYLORN_WITH(HYLORN_MUL16_HIGH, 7, boff, "$0", HYLORN_ROT6)

// The result is below 2n: its low half at low, its high half in ROT7's first eight
// registers, its top bit in rsi. t - n goes to out, and a takes it when no borrow
// remains, the result otherwise, by conditional moves.
#define HYLORN_SUB16_MEM(low, j, op)                                                   \
  "movq " #low "+8*" #j "(%%rdi), %%rax\n\t " op " 256+8*" #j "(%%rdi), %%rax\n\t"     \
  "movq %%rax, 592+8*" #j "(%%rdi)\n\t"
#define HYLORN_SUB16_REG(R, j) \
  "movq " R ", %%rax\n\t sbbq 320+8*" #j "(%%rdi), %%rax\n\t movq %%rax, 656+8*" #j "(%%rdi)\n\t"
#define HYLORN_TAKE16_MEM(low, j) \
  "movq " #low "+8*" #j "(%%rdi), %%rax\n\t cmovncq 592+8*" #j "(%%rdi), %%rax\n\t movq %%rax, 8*" #j "(%%rdi)\n\t"
#define HYLORN_TAKE16_REG(R, j) \
  "cmovncq 656+8*" #j "(%%rdi), " R "\n\t movq " R ", 64+8*" #j "(%%rdi)\n\t"
#define HYLORN_FINAL_SUBTRACT16(low, W0, W1, W2, W3, W4, W5, W6, W7, ...)              \
  HYLORN_SUB16_MEM(low, 0, "subq") HYLORN_SUB16_MEM(low, 1, "sbbq")                    \
  HYLORN_SUB16_MEM(low, 2, "sbbq") HYLORN_SUB16_MEM(low, 3, "sbbq")                    \
  HYLORN_SUB16_MEM(low, 4, "sbbq") HYLORN_SUB16_MEM(low, 5, "sbbq")                    \
  HYLORN_SUB16_MEM(low, 6, "sbbq") HYLORN_SUB16_MEM(low, 7, "sbbq")                    \
  HYLORN_SUB16_REG(W0, 0) HYLORN_SUB16_REG(W1, 1) HYLORN_SUB16_REG(W2, 2)              \
  HYLORN_SUB16_REG(W3, 3) HYLORN_SUB16_REG(W4, 4) HYLORN_SUB16_REG(W5, 5)              \
  HYLORN_SUB16_REG(W6, 6) HYLORN_SUB16_REG(W7, 7)                                      \
  "sbbq $0, %%rsi\n\t"                                                                 \
  HYLORN_TAKE16_MEM(low, 0) HYLORN_TAKE16_MEM(low, 1) HYLORN_TAKE16_MEM(low, 2)        \
  HYLORN_TAKE16_MEM(low, 3) HYLORN_TAKE16_MEM(low, 4) HYLORN_TAKE16_MEM(low, 5)        \
  HYLORN_TAKE16_MEM(low, 6) HYLORN_TAKE16_MEM(low, 7)                                  \
  HYLORN_TAKE16_REG(W0, 0) HYLORN_TAKE16_REG(W1, 1) HYLORN_TAKE16_REG(W2, 2)           \
  HYLORN_TAKE16_REG(W3, 3) HYLORN_TAKE16_REG(W4, 4) HYLORN_TAKE16_REG(W5, 5)           \
  HYLORN_TAKE16_REG(W6, 6) HYLORN_TAKE16_REG(W7, 7)

// a = a b / R mod n, for a below R and b below n < 2^1024.
__attribute__((always_inline)) inline void mul(Frame16* f) {
  asm volatile(
      "xorl %%eax, %%eax\n\t"
      HYLORN_STORE8(456, "%%rax", "%%rax", "%%rax", "%%rax", "%%rax", "%%rax", "%%rax", "%%rax", )
      HYLORN_STORE8(456+64, "%%rax", "%%rax", "%%rax", "%%rax", "%%rax", "%%rax", "%%rax", "%%rax", )
      "movq %%rax, 456+128(%%rdi)\n\t"
      HYLORN_MUL16_GROUP(128)
      HYLORN_WITH(HYLORN_STORE8, 456+64, HYLORN_ROT7)
      "movq %%rsi, 456+128(%%rdi)\n\t"
      HYLORN_MUL16_GROUP(192)
      HYLORN_WITH(HYLORN_FINAL_SUBTRACT16, 456, HYLORN_ROT7)
      :
      : "D"(f)
      : "rax", "rbx", "rcx", "rdx", "rsi", "r8", "r9", "r10", "r11", "r12", "r13", "r14", "r15",
        "cc", "memory");
}

// The reduction of the 32-limb square sq, in the same groups as the product: in the
// first half of row k, the top comes from sq and m_k = W0 n0 clears W0 with n[0..7]; in
// the second half n[8..15] m_k is added and W0, final, goes back to sq.
#define HYLORN_REDC16_LOW(k, base, W0, W1, W2, W3, W4, W5, W6, W7, W8)   \
  "movq " #base "+64+8*" #k "(%%rdi), " W8 "\n\t"                        \
  "movq " W0 ", %%rdx\n\t imulq 384(%%rdi), %%rdx\n\t"                   \
  "movq %%rdx, 392+8*" #k "(%%rdi)\n\t xorl %%eax, %%eax\n\t"            \
  HYLORN_MULADD8(256, W0, W1, W2, W3, W4, W5, W6, W7, W8)                \
  HYLORN_FOLD_CARRY(W8)
#define HYLORN_REDC16_HIGH(k, base, W0, W1, W2, W3, W4, W5, W6, W7, W8)  \
  "movq " #base "+128+8*" #k "(%%rdi), " W8 "\n\t"                       \
  "movq 392+8*" #k "(%%rdi), %%rdx\n\t xorl %%eax, %%eax\n\t"            \
  HYLORN_MULADD8(320, W0, W1, W2, W3, W4, W5, W6, W7, W8)                \
  HYLORN_FOLD_CARRY(W8)                                                  \
  "movq " W0 ", " #base "+64+8*" #k "(%%rdi)\n\t"
// Eight rounds from position base/8 - 90 of sq; HELD adds the carry held back (or not)
// between the halves.
#define HYLORN_REDC16_GROUP(base, HELD)                           \
  HYLORN_WITH(HYLORN_LOAD8, base, HYLORN_ROT0)                    \
  "xorl %%esi, %%esi\n\t"                                         \
  HYLORN_WITH(HYLORN_REDC16_LOW, 0, base, HYLORN_ROT0)            \
  HYLORN_WITH(HYLORN_REDC16_LOW, 1, base, HYLORN_ROT1)            \
  HYLORN_WITH(HYLORN_REDC16_LOW, 2, base, HYLORN_ROT2)            \
  HYLORN_WITH(HYLORN_REDC16_LOW, 3, base, HYLORN_ROT3)            \
  HYLORN_WITH(HYLORN_REDC16_LOW, 4, base, HYLORN_ROT4)            \
  HYLORN_WITH(HYLORN_REDC16_LOW, 5, base, HYLORN_ROT5)            \
  HYLORN_WITH(HYLORN_REDC16_LOW, 6, base, HYLORN_ROT6)            \
  HYLORN_WITH(HYLORN_REDC16_LOW, 7, base, HYLORN_ROT7)            \
  HELD                                                            \
  HYLORN_WITH(HYLORN_REDC16_HIGH, 0, base, HYLORN_ROT8)           \
  HYLORN_WITH(HYLORN_REDC16_HIGH, 1, base, HYLORN_ROT0)           \
  HYLORN_WITH(HYLORN_REDC16_HIGH, 2, base, HYLORN_ROT1)           \
  HYLORN_WITH(HYLORN_REDC16_HIGH, 3, base, HYLORN_ROT2)           \
  HYLORN_WITH(HYLORN_REDC16_HIGH, 4, base, HYLORN_ROT3)           \
  HYLORN_WITH(HYLORN_REDC16_HIGH, 5, base, HYLORN_ROT4)           \
  HYLORN_WITH(HYLORN_REDC16_HIGH, 6, base, HYLORN_ROT5)           \
  HYLORN_WITH(HYLORN_REDC16_HIGH, 7, base, HYLORN_ROT6)

// Row i of the product of the low and high halves of a: sq[8 + i .. 16 + i] += a_i
// a[8..15], the top from sq[16 + i]; W0, final, goes back to sq[8 + i].
#define HYLORN_SQ16_HALVES_ROW(i, W0, W1, W2, W3, W4, W5, W6, W7, W8)   \
  "movq 720+128+8*" #i "(%%rdi), " W8 "\n\t"                            \
  "movq 8*" #i "(%%rdi), %%rdx\n\t xorl %%eax, %%eax\n\t"               \
  HYLORN_MULADD8(64, W0, W1, W2, W3, W4, W5, W6, W7, W8)                \
  HYLORN_FOLD_CARRY(W8)                                                 \
  "movq " W0 ", 720+64+8*" #i "(%%rdi)\n\t"
// a = a^2 / R mod n, for a below n < 2^1024. With a = lo + hi 2^512, the cross products
// of lo and of hi go to sq[1..14] and sq[17..30], and lo hi is added at sq[8..23]; its
// carry into position 24 is held back. Then twice all that plus the squares a_i^2, and
// the reduction of the 32 limbs, which adds the held carry, doubled, where it reaches
// position 24.
__attribute__((always_inline)) inline void sqr(Frame16* f) {
  asm volatile(
      HYLORN_CROSS8(0, 720)
      HYLORN_CROSS8(64, 848)
      "xorl %%eax, %%eax\n\t"
      "movq %%rax, 720(%%rdi)\n\t movq %%rax, 720+120(%%rdi)\n\t"
      "movq %%rax, 720+128(%%rdi)\n\t movq %%rax, 720+248(%%rdi)\n\t"
      HYLORN_WITH(HYLORN_LOAD8, 720+64, HYLORN_ROT0)
      "xorl %%esi, %%esi\n\t"
      HYLORN_WITH(HYLORN_SQ16_HALVES_ROW, 0, HYLORN_ROT0)
      HYLORN_WITH(HYLORN_SQ16_HALVES_ROW, 1, HYLORN_ROT1)
      HYLORN_WITH(HYLORN_SQ16_HALVES_ROW, 2, HYLORN_ROT2)
      HYLORN_WITH(HYLORN_SQ16_HALVES_ROW, 3, HYLORN_ROT3)
      HYLORN_WITH(HYLORN_SQ16_HALVES_ROW, 4, HYLORN_ROT4)
      HYLORN_WITH(HYLORN_SQ16_HALVES_ROW, 5, HYLORN_ROT5)
      HYLORN_WITH(HYLORN_SQ16_HALVES_ROW, 6, HYLORN_ROT6)
      HYLORN_WITH(HYLORN_SQ16_HALVES_ROW, 7, HYLORN_ROT7)
      HYLORN_WITH(HYLORN_STORE8, 720+128, HYLORN_ROT8)
      "movq %%rsi, 976(%%rdi)\n\t"
      "xorl %%eax, %%eax\n\t"
      HYLORN_SQ_DIAGONAL(0, 720, 0) HYLORN_SQ_DIAGONAL(0, 720, 1)
      HYLORN_SQ_DIAGONAL(0, 720, 2) HYLORN_SQ_DIAGONAL(0, 720, 3)
      HYLORN_SQ_DIAGONAL(0, 720, 4) HYLORN_SQ_DIAGONAL(0, 720, 5)
      HYLORN_SQ_DIAGONAL(0, 720, 6) HYLORN_SQ_DIAGONAL(0, 720, 7)
      HYLORN_SQ_DIAGONAL(0, 720, 8) HYLORN_SQ_DIAGONAL(0, 720, 9)
      HYLORN_SQ_DIAGONAL(0, 720, 10) HYLORN_SQ_DIAGONAL(0, 720, 11)
      HYLORN_SQ_DIAGONAL(0, 720, 12) HYLORN_SQ_DIAGONAL(0, 720, 13)
      HYLORN_SQ_DIAGONAL(0, 720, 14) HYLORN_SQ_DIAGONAL(0, 720, 15)
      HYLORN_REDC16_GROUP(720, )
      HYLORN_WITH(HYLORN_STORE8, 720+128, HYLORN_ROT7)
      "movq 976(%%rdi), %%rax\n\t leaq (%%rsi,%%rax,2), %%rax\n\t movq %%rax, 976(%%rdi)\n\t"
      HYLORN_REDC16_GROUP(720+64, "addq 976(%%rdi), %%rsi\n\t")
      HYLORN_WITH(HYLORN_FINAL_SUBTRACT16, 720+128, HYLORN_ROT7)
      :
      : "D"(f)
      : "rax", "rbx", "rcx", "rdx", "rsi", "r8", "r9", "r10", "r11", "r12", "r13", "r14", "r15",
        "cc", "memory");
}

#undef HYLORN_SQ16_HALVES_ROW
#undef HYLORN_REDC16_GROUP
#undef HYLORN_REDC16_HIGH
#undef HYLORN_REDC16_LOW
#undef HYLORN_FINAL_SUBTRACT16
#undef HYLORN_TAKE16_REG
#undef HYLORN_TAKE16_MEM
#undef HYLORN_SUB16_REG
#undef HYLORN_SUB16_MEM
#undef HYLORN_MUL16_GROUP
#undef HYLORN_MUL16_HIGH
#undef HYLORN_MUL16_LOW
#undef HYLORN_REDC_ROUND
#undef HYLORN_FINAL_SUBTRACT
#undef HYLORN_TAKE_LIMB
#undef HYLORN_SUB_LIMB
#undef HYLORN_ROW
#undef HYLORN_SQ_DIAGONAL
#undef HYLORN_CROSS8
#undef HYLORN_SQ_ROW_END
#undef HYLORN_SQ_STEP
#undef HYLORN_SQ_ROW_START
#undef HYLORN_SQ_STORE
#undef HYLORN_STORE8
#undef HYLORN_LOAD8
#undef HYLORN_WITH
#undef HYLORN_ROT8
#undef HYLORN_ROT7
#undef HYLORN_ROT6
#undef HYLORN_ROT5
#undef HYLORN_ROT4
#undef HYLORN_ROT3
#undef HYLORN_ROT2
#undef HYLORN_ROT1
#undef HYLORN_ROT0
#undef HYLORN_FOLD_CARRY
#undef HYLORN_CARRY_OUT
#undef HYLORN_MULADD8
#undef HYLORN_MULADD

}  // namespace hylorn::mont_x86

#endif
