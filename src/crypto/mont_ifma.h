// Both halves of an RSA private-key operation at once with AVX-512 IFMA: the numbers
// mod p and mod q (each below 2^512) are held as ten 52-bit limbs, lanes 0..7 of a zmm
// register and lanes 0..1 of a ymm register, and every product of the two
// exponentiations is computed as a pair, one instruction stream interleaving both so
// that each hides the other's latencies. The products are the almost-Montgomery kind:
// with R = 2^520 > 4 n, inputs below 2n give outputs below 2n, so no final subtraction
// is needed until the very end. Included by the engine only.
#pragma once

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define HYLORN_MONT_IFMA 1

#include <cpuid.h>
// GCC 12 warns about the deliberately undefined lanes inside its own AVX-512 intrinsics.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#include <immintrin.h>
#pragma GCC diagnostic pop

#include "frame/types.h"

#define HYLORN_IFMA __attribute__((target("avx512f,avx512dq,avx512vl,avx512ifma")))
#define HYLORN_IFMA_INLINE HYLORN_IFMA __attribute__((always_inline)) inline

namespace hylorn::mont_ifma {

using limb = u64;

inline constexpr int kLimbs = 10;  // of 52 bits: 520 bits
inline constexpr limb kMask = (static_cast<limb>(1) << 52) - 1;
inline constexpr int kWindow = 5;
inline constexpr int kEntries = 1 << kWindow;

// AVX-512 F, DQ, VL and IFMA, with the operating system saving the opmask and all of the
// zmm registers.
inline bool has_avx512_ifma() {
  static const bool yes = [] {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0 || (ecx & (1u << 27)) == 0) return false;
    unsigned xcr0_lo = 0, xcr0_hi = 0;
    asm("xgetbv" : "=a"(xcr0_lo), "=d"(xcr0_hi) : "c"(0));
    if ((xcr0_lo & 0xE6) != 0xE6) return false;
    if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) == 0) return false;
    const unsigned want = (1u << 16) | (1u << 17) | (1u << 21) | (1u << 31);
    return (ebx & want) == want;
  }();
  return yes;
}

// A number of ten 52-bit limbs in memory; lanes 10..15 stay 0.
struct alignas(64) Num {
  limb v[16];
};

// x of `words` 64-bit limbs (at most 9, below 2^520) as 52-bit limbs, and back.
inline void to_num(Num* r, const limb* x, int words = 8) {
  for (int j = 0; j < 16; ++j) r->v[j] = 0;
  for (int j = 0; j < kLimbs; ++j) {
    int bit = 52 * j, w = bit / 64, s = bit % 64;
    limb v = x[w] >> s;
    if (s > 12 && w + 1 < words) v |= x[w + 1] << (64 - s);
    r->v[j] = v & kMask;
  }
}
inline void from_num(limb* x, const Num& r, int words = 8) {
  for (int k = 0; k < words; ++k) {
    int bit = 64 * k, j = bit / 52, s = bit % 52;
    limb v = r.v[j] >> s;
    v |= r.v[j + 1] << (52 - s);
    if (s > 40) v |= r.v[j + 2] << (104 - s);
    x[k] = v;
  }
}

// One modulus: n in limbs, n shifted down one lane, -n^-1 mod 2^52 in every lane.
struct Modulus {
  __m512i n_lo, nd_lo, k0;
  __m256i n_hi, nd_hi;
};

struct Vec {
  __m512i lo;  // limbs 0..7
  __m256i hi;  // limbs 8, 9 (lanes 2, 3 are 0)
};

HYLORN_IFMA_INLINE Vec load(const Num& a) {
  return Vec{_mm512_load_si512(a.v), _mm256_load_si256(reinterpret_cast<const __m256i*>(a.v + 8))};
}
HYLORN_IFMA_INLINE void store(Num* r, const Vec& a) {
  _mm512_store_si512(r->v, a.lo);
  _mm256_store_si256(reinterpret_cast<__m256i*>(r->v + 8), a.hi);
}

HYLORN_IFMA_INLINE Modulus modulus_of(const Num& n, limb n0) {
  Vec v = load(n);
  limb x = n0;  // -n^-1 mod 2^64 by Newton's iteration, then its low 52 bits
  for (int i = 0; i < 5; ++i) x *= 2 - n0 * x;
  __m512i hi = _mm512_castsi256_si512(v.hi);
  return Modulus{v.lo, _mm512_alignr_epi64(hi, v.lo, 1), _mm512_set1_epi64((0 - x) & kMask),
                 v.hi, _mm256_alignr_epi64(_mm256_setzero_si256(), v.hi, 1)};
}

// Limb i of b in every lane.
HYLORN_IFMA_INLINE __m512i limb_of(const Vec& b, int i) {
  return i < 8 ? _mm512_permutexvar_epi64(_mm512_set1_epi64(i), b.lo)
               : _mm512_permutexvar_epi64(_mm512_set1_epi64(i - 8), _mm512_castsi256_si512(b.hi));
}

// One product a b / R mod n, word by word over the limbs b_i of b: with x the running
// sum (lo(a b_i) already in), m = x_0 k0 mod 2^52 clears limb 0, and the next sum is
//   x / 2^52 = shift(x) + carry(x_0) + hi(a b_i) + lo(a b_i+1) + lo(n' m) + hi(n m),
// n' being n shifted down one lane. Only m and the last two terms wait on the previous
// step; the rest is ready in advance.
struct Product {
  Vec a, b, x;
  const Modulus* n;

  HYLORN_IFMA_INLINE void start(const Vec& aa, const Vec& bb, const Modulus* mod) {
    a = aa;
    b = bb;
    n = mod;
    __m512i b0 = limb_of(b, 0);
    x = Vec{_mm512_madd52lo_epu64(_mm512_setzero_si512(), a.lo, b0),
            _mm256_madd52lo_epu64(_mm256_setzero_si256(), a.hi, _mm512_castsi512_si256(b0))};
  }

  HYLORN_IFMA_INLINE void step(int i) {
    const __m512i zero = _mm512_setzero_si512();
    const __m256i zero_y = _mm256_setzero_si256();
    const __m512i mask = _mm512_set1_epi64(kMask);
    __m128i m1 = _mm_madd52lo_epu64(_mm_setzero_si128(), _mm512_castsi512_si128(x.lo),
                                    _mm512_castsi512_si128(n->k0));
    __m512i m = _mm512_broadcastq_epi64(m1);
    __m256i m_y = _mm512_castsi512_si256(m);

    __m512i bi = limb_of(b, i);
    __m512i s_lo = _mm512_madd52hi_epu64(
        _mm512_alignr_epi64(_mm512_castsi256_si512(x.hi), x.lo, 1), a.lo, bi);
    __m256i s_hi = _mm256_madd52hi_epu64(_mm256_alignr_epi64(zero_y, x.hi, 1), a.hi,
                                         _mm512_castsi512_si256(bi));
    if (i + 1 < kLimbs) {
      __m512i bn = limb_of(b, i + 1);
      s_lo = _mm512_madd52lo_epu64(s_lo, a.lo, bn);
      s_hi = _mm256_madd52lo_epu64(s_hi, a.hi, _mm512_castsi512_si256(bn));
    }
    // x_0 + lo(n_0 m) is 0 mod 2^52: it carries x_0 / 2^52, and one more unless x_0 is
    // already 0 mod 2^52.
    __m512i carry = _mm512_srli_epi64(x.lo, 52);
    carry = _mm512_mask_add_epi64(carry, _mm512_test_epi64_mask(x.lo, mask), carry,
                                  _mm512_set1_epi64(1));
    s_lo = _mm512_mask_add_epi64(s_lo, 1, s_lo, carry);

    __m512i h_lo = _mm512_madd52hi_epu64(zero, n->n_lo, m);
    __m256i h_hi = _mm256_madd52hi_epu64(zero_y, n->n_hi, m_y);
    s_lo = _mm512_madd52lo_epu64(s_lo, n->nd_lo, m);
    s_hi = _mm256_madd52lo_epu64(s_hi, n->nd_hi, m_y);
    x = Vec{_mm512_add_epi64(s_lo, h_lo), _mm256_add_epi64(s_hi, h_hi)};
  }

  // Lanes hold up to about 2^57: one pass moves each lane's excess up a lane, leaving
  // carries of at most 1, and those ripple through runs of full lanes by adding the
  // lane masks as integers.
  HYLORN_IFMA_INLINE Vec normalized() const {
    const __m512i mask = _mm512_set1_epi64(kMask);
    const __m256i mask_y = _mm512_castsi512_si256(mask);
    __m512i c_lo = _mm512_srli_epi64(x.lo, 52);
    __m256i c_hi = _mm256_srli_epi64(x.hi, 52);
    __m512i lo = _mm512_and_si512(x.lo, mask);
    __m256i hi = _mm256_and_si256(x.hi, mask_y);
    lo = _mm512_add_epi64(lo, _mm512_alignr_epi64(c_lo, _mm512_setzero_si512(), 7));
    hi = _mm256_add_epi64(hi, _mm256_alignr_epi64(c_hi, _mm512_extracti64x4_epi64(c_lo, 1), 3));
    __mmask16 over = _mm512_kunpackb(_mm256_cmpgt_epu64_mask(hi, mask_y),
                                     _mm512_cmpgt_epu64_mask(lo, mask));
    __mmask16 full = _mm512_kunpackb(_mm256_cmpeq_epu64_mask(hi, mask_y),
                                     _mm512_cmpeq_epu64_mask(lo, mask));
    __mmask16 add = _kxor_mask16(_kadd_mask16(_kshiftli_mask16(over, 1), full), full);
    lo = _mm512_mask_sub_epi64(lo, static_cast<__mmask8>(add), lo, mask);  // + 1 mod 2^52
    hi = _mm256_mask_sub_epi64(hi, static_cast<__mmask8>(_kshiftri_mask16(add, 8)), hi, mask_y);
    return Vec{_mm512_and_si512(lo, mask), _mm256_and_si256(hi, mask_y)};
  }
};

// r1 = a1 b1 / R mod n1 and r2 = a2 b2 / R mod n2, interleaved; r may alias a or b.
HYLORN_IFMA __attribute__((noinline)) inline void product2(Vec* r1, const Vec* a1,
                                                          const Vec* b1, const Modulus* n1,
                                                          Vec* r2, const Vec* a2,
                                                          const Vec* b2, const Modulus* n2) {
  Product p1, p2;
  p1.start(*a1, *b1, n1);
  p2.start(*a2, *b2, n2);
  p1.step(0), p2.step(0);
  p1.step(1), p2.step(1);
  p1.step(2), p2.step(2);
  p1.step(3), p2.step(3);
  p1.step(4), p2.step(4);
  p1.step(5), p2.step(5);
  p1.step(6), p2.step(6);
  p1.step(7), p2.step(7);
  p1.step(8), p2.step(8);
  p1.step(9), p2.step(9);
  *r1 = p1.normalized();
  *r2 = p2.normalized();
}

// Row k of a table of kEntries rows, every row read alike.
HYLORN_IFMA_INLINE Vec gather(const Num* table, unsigned k) {
  __m512i lo = _mm512_setzero_si512();
  __m256i hi = _mm256_setzero_si256();
  const __m512i want = _mm512_set1_epi64(k);
  __m512i row = _mm512_setzero_si512();
  for (int e = 0; e < kEntries; ++e) {
    __mmask8 take = _mm512_cmpeq_epi64_mask(row, want);
    Vec v = load(table[e]);
    lo = _mm512_mask_mov_epi64(lo, take, v.lo);
    hi = _mm256_mask_mov_epi64(hi, take, v.hi);
    row = _mm512_add_epi64(row, _mm512_set1_epi64(1));
  }
  return Vec{lo, hi};
}

// r = a b / R mod n for n (8 limbs) odd, a and b (9 limbs) below 2n: the pair kernel
// with the same product twice, for tests. r (9 limbs) is below 2n.
HYLORN_IFMA inline void product(limb* r, const limb* a, const limb* b, const limb* n) {
  Num t;
  to_num(&t, n);
  Modulus mod = modulus_of(t, n[0]);
  to_num(&t, a, 9);
  Vec va = load(t), vr, vr2;
  to_num(&t, b, 9);
  Vec vb = load(t);
  product2(&vr, &va, &vb, &mod, &vr2, &va, &vb, &mod);
  store(&t, vr);
  from_num(r, t, 9);
}

// One half of the CRT: the modulus (8 limbs, odd, below 2^512), the base below it, and
// 2^1040 mod n, which takes a number x into the form x R.
struct Half {
  const limb* n;
  const limb* base;
  const limb* rr;
};

// The working state of exp2, all of it key-derived: the caller wipes it.
struct Work {
  Num table[2][kEntries];
  Num t[2];
  Modulus mod[2];
  Vec rr[2], x[2], y[2], one;
};

// Both halves (h[0], h[1]): out[s] = base^exponent mod n. The exponents have `digits`
// digits and at most `bits` bits; window(s, pos) reads five bits of exponent s at pos.
// Fixed windows of five bits go in lockstep, the shorter exponent reading zero windows
// above its top, which multiply by R, the form of 1.
template <class Window>
HYLORN_IFMA void exp2(limb* out0, limb* out1, const Half* h, u32 bits, Window window,
                      Work* w) {
  Modulus* mod = w->mod;
  Vec *x = w->x, *y = w->y, *rr = w->rr;
  for (int s = 0; s < 2; ++s) {
    to_num(&w->t[s], h[s].n);
    mod[s] = modulus_of(w->t[s], h[s].n[0]);
    to_num(&w->t[s], h[s].rr);
    rr[s] = load(w->t[s]);
    to_num(&w->t[s], h[s].base);
    y[s] = load(w->t[s]);
  }
  w->one = Vec{_mm512_maskz_set1_epi64(1, 1), _mm256_setzero_si256()};
  // table[0] = R, table[1] = base R, then the rest by products
  product2(&x[0], &rr[0], &w->one, &mod[0], &x[1], &rr[1], &w->one, &mod[1]);
  store(&w->table[0][0], x[0]), store(&w->table[1][0], x[1]);
  product2(&y[0], &y[0], &rr[0], &mod[0], &y[1], &y[1], &rr[1], &mod[1]);
  store(&w->table[0][1], y[0]), store(&w->table[1][1], y[1]);
  for (int e = 2; e < kEntries; ++e) {
    int from = e % 2 == 0 ? e / 2 : e - 1;
    x[0] = load(w->table[0][from]), x[1] = load(w->table[1][from]);
    const Vec* b0 = e % 2 == 0 ? &x[0] : &y[0];
    const Vec* b1 = e % 2 == 0 ? &x[1] : &y[1];
    product2(&x[0], &x[0], b0, &mod[0], &x[1], &x[1], b1, &mod[1]);
    store(&w->table[0][e], x[0]), store(&w->table[1][e], x[1]);
  }
  u32 windows = (bits + kWindow - 1) / kWindow;
  u32 top = (windows - 1) * kWindow;
  x[0] = gather(w->table[0], window(0, top));
  x[1] = gather(w->table[1], window(1, top));
  for (u32 k = windows - 1; k-- > 0;) {
    for (int s = 0; s < kWindow; ++s)
      product2(&x[0], &x[0], &x[0], &mod[0], &x[1], &x[1], &x[1], &mod[1]);
    y[0] = gather(w->table[0], window(0, k * kWindow));
    y[1] = gather(w->table[1], window(1, k * kWindow));
    product2(&x[0], &x[0], &y[0], &mod[0], &x[1], &x[1], &y[1], &mod[1]);
  }
  // x / R is at most n: below n, or n itself for a base that is 0 mod n
  product2(&x[0], &x[0], &w->one, &mod[0], &x[1], &x[1], &w->one, &mod[1]);
  store(&w->t[0], x[0]), store(&w->t[1], x[1]);
  from_num(out0, w->t[0]);
  from_num(out1, w->t[1]);
}

}  // namespace hylorn::mont_ifma

#undef HYLORN_IFMA_INLINE
#undef HYLORN_IFMA

#endif
