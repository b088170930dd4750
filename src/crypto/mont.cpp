#include "crypto/mont.h"

#include <atomic>
#include <cstring>
#include <initializer_list>

#include "crypto/mont_ifma.h"
#include "crypto/mont_x86.h"
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

// r = t - n when t (N limbs plus the carry limb top) is at least n, else t.
template <int N>
void reduce_once(limb* r, const limb* t, limb top, const limb* n) {
  limb diff[N];
  limb borrow = 0;
  for (int j = 0; j < N; ++j) {
    wide d = static_cast<wide>(t[j]) - n[j] - borrow;
    diff[j] = static_cast<limb>(d);
    borrow = static_cast<limb>(d >> kLimbBits) & 1;
  }
  limb keep_diff = mask_of((top | (borrow ^ 1)) & 1);
  for (int j = 0; j < N; ++j) r[j] = (diff[j] & keep_diff) | (t[j] & ~keep_diff);
  secure_wipe(diff, sizeof diff);
}

// r = 2 a mod n for a < n.
template <int N>
void double_mod(limb* r, const limb* a, const limb* n) {
  limb t[N];
  limb carry = 0;
  for (int j = 0; j < N; ++j) {
    t[j] = (a[j] << 1) | carry;
    carry = a[j] >> (kLimbBits - 1);
  }
  reduce_once<N>(r, t, carry, n);
  secure_wipe(t, sizeof t);
}

// r = a + b mod n for a, b below n.
template <int N>
void add_mod(limb* r, const limb* a, const limb* b, const limb* n) {
  limb t[N];
  limb carry = 0;
  for (int j = 0; j < N; ++j) {
    wide s = static_cast<wide>(a[j]) + b[j] + carry;
    t[j] = static_cast<limb>(s);
    carry = static_cast<limb>(s >> kLimbBits);
  }
  reduce_once<N>(r, t, carry, n);
  secure_wipe(t, sizeof t);
}

// r = a - b mod n for a, b below n: n is added back, or 0, by mask.
template <int N>
void sub_mod(limb* r, const limb* a, const limb* b, const limb* n) {
  limb borrow = 0;
  for (int j = 0; j < N; ++j) {
    wide d = static_cast<wide>(a[j]) - b[j] - borrow;
    r[j] = static_cast<limb>(d);
    borrow = static_cast<limb>(d >> kLimbBits) & 1;
  }
  limb add = mask_of(borrow), carry = 0;
  for (int j = 0; j < N; ++j) {
    wide s = static_cast<wide>(r[j]) + (n[j] & add) + carry;
    r[j] = static_cast<limb>(s);
    carry = static_cast<limb>(s >> kLimbBits);
  }
}

#ifdef HYLORN_MONT_ADX
// The sizes with assembly kernels, and their frames.
template <int N>
struct KernelFrame {
  using type = char;  // none
  static constexpr bool present = false;
};
template <>
struct KernelFrame<8> {
  using type = mont_x86::Frame8;
  static constexpr bool present = true;
};
template <>
struct KernelFrame<16> {
  using type = mont_x86::Frame16;
  static constexpr bool present = true;
};
#endif

// The operations on numbers below one odd modulus of N limbs, R = 2^(64 N).
template <int N>
struct Field {
  limb n[N];
  limb n0;  // -n^-1 mod 2^64
  mutable limb scratch[N + 2];
#ifdef HYLORN_MONT_ADX
  static constexpr bool kKernels = KernelFrame<N>::present;
  bool adx = false;
  mutable typename KernelFrame<N>::type frame;  // the kernels' operands
#else
  static constexpr bool kKernels = false;
#endif

  void init(const MP_DIGIT* d, u32 dDigits) {
    to_limbs(n, N, d, dDigits);
    n0 = neg_inverse(n[0]);
    set_up_kernels();
  }
  void init(const limb* modulus, limb inverse) {
    for (int j = 0; j < N; ++j) n[j] = modulus[j];
    n0 = inverse;
    set_up_kernels();
  }

  void set_up_kernels() {
#ifdef HYLORN_MONT_ADX
    if constexpr (kKernels) {
      adx = current_mont_path() != MontPath::portable;
      for (int j = 0; j < N; ++j) frame.n[j] = n[j];
      frame.n0 = n0;
    }
#endif
  }

  // The kernels work in place on frame.a and take their second operand from frame.b:
  // an accumulator or an operand kept there is never copied.
  limb* accumulator(limb* fallback) const { return in_frame(0, fallback); }
  limb* operand(limb* fallback) const { return in_frame(1, fallback); }

  // r = a * b / R mod n, for a below R and b below n. r may alias a or b.
  void mul(limb* r, const limb* a, const limb* b) const {
#ifdef HYLORN_MONT_ADX
    if constexpr (kKernels) {
      if (adx) {
        copy_in(frame.b, b);
        copy_in(frame.a, a);
        mont_x86::mul(&frame);
        copy_in(r, frame.a);
        return;
      }
    }
#endif
    mul_portable(r, a, b);
  }

  // r = a^2 / R mod n, for a below n. r may alias a.
  void sqr(limb* r, const limb* a) const {
#ifdef HYLORN_MONT_ADX
    if constexpr (kKernels) {
      if (adx) {
        copy_in(frame.a, a);
        mont_x86::sqr(&frame);
        copy_in(r, frame.a);
        return;
      }
    }
#endif
    mul_portable(r, a, a);
  }

  // Row by row: t += a b[i], then t += m n with m chosen to clear the low limb, which
  // is dropped. t stays below 2n between rows.
  void mul_portable(limb* r, const limb* a, const limb* b) const {
    limb* t = scratch;
    for (int j = 0; j < N + 2; ++j) t[j] = 0;
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
    reduce_once<N>(r, t, t[N], n);
  }

  void dbl(limb* r, const limb* a) const { double_mod<N>(r, a, n); }

 private:
  limb* in_frame(int slot, limb* fallback) const {
#ifdef HYLORN_MONT_ADX
    if constexpr (kKernels) {
      if (adx) return slot == 0 ? frame.a : frame.b;
    }
#endif
    (void)slot;
    return fallback;
  }

  // Copies N limbs unless they are already in place.
  static void copy_in(limb* to, const limb* from) {
    if (to != from)
      for (int j = 0; j < N; ++j) to[j] = from[j];
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

// What depends on the modulus alone.
struct ModulusConstants {
  int limbs;            // N; 0 in an unused cache entry
  limb n[kMaxLimbs];
  limb n0;              // -n^-1 mod 2^64
  limb one[kMaxLimbs];  // R mod n, the Montgomery form of 1
  limb rr[kMaxLimbs];   // R^2 mod n
};

// one = R mod n by doublings from 2^(32 (s - 1)) for the s significant digits of n, a
// power of two below n; then N more doublings make 2^N R mod n, the Montgomery form of
// 2^N, which six Montgomery squarings take to that of 2^(64 N) = R: rr. Only the digit
// count steers the work, so a secret modulus (a prime of a private key) is safe here.
template <int N>
void set_up_constants(ModulusConstants* k, const MP_DIGIT* d, u32 dDigits, u32 significant) {
  k->limbs = N;
  to_limbs(k->n, N, d, dDigits);
  k->n0 = neg_inverse(k->n[0]);
  u32 from = MP_DIGIT_BITS * (significant - 1);
  limb x[N] = {};
  x[from / kLimbBits] = static_cast<limb>(1) << (from % kLimbBits);
  for (u32 i = from; i < static_cast<u32>(kLimbBits * N); ++i) double_mod<N>(x, x, k->n);
  for (int i = 0; i < N; ++i) k->one[i] = x[i];
  for (int i = 0; i < N; ++i) double_mod<N>(x, x, k->n);
  Field<N> f;
  f.init(k->n, k->n0);
  for (int i = 0; i < 6; ++i) f.sqr(x, x);  // N 2^6 = 64 N
  for (int i = 0; i < N; ++i) k->rr[i] = x[i];
  secure_wipe(x, sizeof x);
  secure_wipe(&f, sizeof f);
}

// The constants of the public moduli used last, so that checking signature after
// signature under one key sets them up once. Only public moduli come here: nothing
// derived from a private key is ever kept. Per thread, so that concurrent callers never
// see each other's entries half-written.
struct PublicModulusCache {
  static constexpr int kEntries = 4;
  ModulusConstants entries[kEntries];
  int next;
};
thread_local PublicModulusCache public_moduli;

// The cached constants of d, set up first when d is not among them.
template <int N>
const ModulusConstants& public_constants(const MP_DIGIT* d, u32 dDigits) {
  limb n[N];
  to_limbs(n, N, d, dDigits);
  PublicModulusCache& cache = public_moduli;
  for (const ModulusConstants& e : cache.entries) {
    if (e.limbs != N) continue;
    limb diff = 0;
    for (int j = 0; j < N; ++j) diff |= e.n[j] ^ n[j];
    if (diff == 0) return e;
  }
  ModulusConstants& e = cache.entries[cache.next];
  cache.next = (cache.next + 1) % PublicModulusCache::kEntries;
  set_up_constants<N>(&e, d, dDigits, MP_Digits(d, dDigits));
  return e;
}

template <int N>
class Exponentiation {
 public:
  explicit Exponentiation(const ModulusConstants& k) : one_(k.one), rr_(k.rr) {
    f_.init(k.n, k.n0);
  }
  ~Exponentiation() {
    secure_wipe(&f_, sizeof f_);
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

  // x = w R mod n, the Montgomery form of w mod n, for a w of 2N limbs:
  // w_lo R + w_hi R^2, two products with R^2 and R^3.
  void reduce_wide(limb* x, const limb* w) const {
    limb rrr[N];
    f_.mul(rrr, rr_, rr_);
    f_.mul(rrr, w + N, rrr);
    f_.mul(x, w, rr_);
    add_mod<N>(x, x, rrr, f_.n);
    secure_wipe(rrr, sizeof rrr);
  }

  // t = x^c in Montgomery form, from x in that form, for a secret exponent c (not 0):
  // windows over all cDigits digits, whatever the length of c.
  void run_secret(limb* t, const limb* x, const MP_DIGIT* c, u32 cDigits) {
    limb xm[N];
    for (int j = 0; j < N; ++j) xm[j] = x[j];
    limb* acc = f_.accumulator(t);
    fixed_window(acc, xm, c, cDigits, MP_DIGIT_BITS * cDigits);
    for (int j = 0; j < N; ++j) t[j] = acc[j];
    secure_wipe(xm, sizeof xm);
  }

  // r = (a - y) g mod n for a, y, g below n.
  void difference_times(limb* r, const limb* a, const limb* y, const limb* g) const {
    limb d[N];
    sub_mod<N>(d, a, y, f_.n);
    f_.mul(d, d, rr_);
    f_.mul(r, d, g);
    secure_wipe(d, sizeof d);
  }

 private:
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
#ifdef HYLORN_MONT_ADX
    if constexpr (N % 4 == 0) {
      if (f_.adx) {
        mont_x86::gather_avx2<N>(r, &table_[0][0], kRow, k, entries);
        return;
      }
    }
#endif
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
    if constexpr (kRow > N)
      for (u32 e = 0; e < entries; ++e) table_[e][N] = 0;  // the spare limb
    for (int j = 0; j < N; ++j) table_[0][j] = one_[j], table_[1][j] = bm[j];
    for (u32 e = 2; e < entries; ++e) {
      if (e % 2 == 0)
        f_.sqr(table_[e], table_[e / 2]);
      else
        f_.mul(table_[e], table_[e - 1], bm);
    }
    limb spare[N];
    limb* factor = f_.operand(spare);
    u32 windows = (bits + w - 1) / w;
    lookup(t, exponent_window(c, cDigits, (windows - 1) * w, w), entries);
    for (u32 k = windows - 1; k-- > 0;) {
      for (u32 s = 0; s < w; ++s) f_.sqr(t, t);
      lookup(factor, exponent_window(c, cDigits, k * w, w), entries);
      f_.mul(t, t, factor);
    }
    secure_wipe(spare, sizeof spare);
  }

  Field<N> f_;
  const limb* one_;  // R mod n, the Montgomery form of 1
  const limb* rr_;   // R^2 mod n
  // Entries are read in pairs of limbs, so an odd N takes a spare limb; rows of whole
  // cache lines keep the reads from straddling two.
  static constexpr int kRow = N + N % 2;
  alignas(64) limb table_[1u << kMaxWindow][kRow];
  u32 table_entries_ = 0;                 // how many were filled, and must be wiped
};

template <int N>
void exp_with_limbs(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 cDigits,
                    const MP_DIGIT* d, u32 dDigits, const ModulusConstants& k) {
  limb base[N], t[N];
  MP_DIGIT reduced[MP_MAX_DIGITS] = {};
  if (MP_Digits(b, dDigits) > 2 * N) {  // too wide for N limbs: reduce it first
    MP_Mod(reduced, b, dDigits, d, dDigits);
    to_limbs(base, N, reduced, dDigits);
  } else {
    to_limbs(base, N, b, dDigits);
  }
  {
    Exponentiation<N> e(k);
    e.run(t, base, c, cDigits);
    e.finish(t, t);
  }
  from_limbs(a, dDigits, t, N);
  secure_wipe(base, sizeof base);
  secure_wipe(t, sizeof t);
  secure_wipe(reduced, sizeof reduced);
}

// r (2N limbs) = a b + c for a, b, c of N limbs.
template <int N>
void multiply_add(limb* r, const limb* a, const limb* b, const limb* c) {
  for (int j = 0; j < N; ++j) r[j] = c[j], r[N + j] = 0;
  for (int i = 0; i < N; ++i) {
    limb carry = 0;
    for (int j = 0; j < N; ++j) {
      wide p = static_cast<wide>(a[i]) * b[j] + r[i + j] + carry;
      r[i + j] = static_cast<limb>(p);
      carry = static_cast<limb>(p >> kLimbBits);
    }
    r[i + N] = carry;
  }
}

// The two exponentiations of the CRT, m[s] = (c mod n_s)^e_s mod n_s for the moduli
// of k[0] (p) and k[1] (q), one after the other; c has 2N limbs.
template <int N>
void crt_powers(limb (*m)[N], const limb* c, const ModulusConstants* k, const MP_DIGIT* const* e,
                u32 digits) {
  for (int s = 0; s < 2; ++s) {
    Exponentiation<N> ex(k[s]);
    ex.reduce_wide(m[s], c);
    ex.run_secret(m[s], m[s], e[s], digits);
    ex.finish(m[s], m[s]);
  }
}

#ifdef HYLORN_MONT_IFMA
// The same for 512-bit primes with both exponentiations at once on the IFMA kernel: the
// bases c mod n_s come from the 512-bit kernels, and 2^1040 mod n_s, which the IFMA
// kernel's R = 2^520 asks for, from R^2 = 2^1024 mod n_s by 16 doublings.
void crt_powers_ifma(limb (*m)[8], const limb* c, const ModulusConstants* k,
                     const MP_DIGIT* const* e, u32 digits) {
  struct State {
    limb base[2][8], rr[2][8];
    mont_ifma::Work work;
  } v;
  for (int s = 0; s < 2; ++s) {
    Exponentiation<8> ex(k[s]);
    ex.reduce_wide(v.base[s], c);
    ex.finish(v.base[s], v.base[s]);
    for (int j = 0; j < 8; ++j) v.rr[s][j] = k[s].rr[j];
    for (int i = 0; i < 16; ++i) double_mod<8>(v.rr[s], v.rr[s], k[s].n);
  }
  const mont_ifma::Half h[2] = {{k[0].n, v.base[0], v.rr[0]}, {k[1].n, v.base[1], v.rr[1]}};
  mont_ifma::exp2(
      m[0], m[1], h, MP_DIGIT_BITS * digits,
      [&](int s, u32 pos) { return exponent_window(e[s], digits, pos, mont_ifma::kWindow); },
      &v.work);
  for (int s = 0; s < 2; ++s) reduce_once<8>(m[s], m[s], 0, k[s].n);  // n itself becomes 0
  secure_wipe(&v, sizeof v);
}
#endif

// The private-key operation through the CRT, on N limbs throughout (q, the smaller
// prime, at p's size), given the significant digits of p and q:
//   mQ = (c mod q)^dQ mod q,  h = ((c mod p)^dP - mQ) qInv mod p,  m = h q + mQ.
template <int N>
void crt_with_limbs(MP_DIGIT* m, const MP_DIGIT* c, u32 nDigits, const CrtKey& key,
                    const u32* significant) {
  struct Limbs {
    limb c[2 * N], q[N], qInv[N], powers[2][N], h[N], m[2 * N];
    ModulusConstants k[2];
  } v;
  to_limbs(v.c, 2 * N, c, nDigits);
  to_limbs(v.q, N, key.q, key.digits);
  to_limbs(v.qInv, N, key.qInv, key.digits);
  set_up_constants<N>(&v.k[0], key.p, key.digits, significant[0]);
  set_up_constants<N>(&v.k[1], key.q, key.digits, significant[1]);
  const MP_DIGIT* exponents[2] = {key.dP, key.dQ};
  bool done = false;
#ifdef HYLORN_MONT_IFMA
  if constexpr (N == 8) {
    if (current_mont_path() == MontPath::avx512_ifma) {
      crt_powers_ifma(v.powers, v.c, v.k, exponents, key.digits);
      done = true;
    }
  }
#endif
  if (!done) crt_powers<N>(v.powers, v.c, v.k, exponents, key.digits);
  {
    Exponentiation<N> e(v.k[0]);
    e.difference_times(v.h, v.powers[0], v.powers[1], v.qInv);
  }
  multiply_add<N>(v.m, v.h, v.q, v.powers[1]);
  from_limbs(m, nDigits, v.m, 2 * N);
  secure_wipe(&v, sizeof v);
}

// Calls fn.operator()<limbs>() for limbs in N..kMaxLimbs (direct calls, no table).
template <int N, class Fn>
void with_limbs(int limbs, Fn&& fn) {
  if (limbs == N)
    fn.template operator()<N>();
  else if constexpr (N < kMaxLimbs)
    with_limbs<N + 1>(limbs, fn);
}

int limbs_of(const MP_DIGIT* d, u32 dDigits) {
  return static_cast<int>((MP_Digits(d, dDigits) + 1) / 2);
}

// -1: not chosen yet; otherwise a MontPath.
std::atomic<int> chosen_path{-1};

}  // namespace

bool mont_path_available(MontPath path) {
  switch (path) {
    case MontPath::portable: return true;
#ifdef HYLORN_MONT_ADX
    case MontPath::mulx_adx: return mont_x86::has_mulx_adx();
#endif
#if defined(HYLORN_MONT_ADX) && defined(HYLORN_MONT_IFMA)
    case MontPath::avx512_ifma: return mont_x86::has_mulx_adx() && mont_ifma::has_avx512_ifma();
#endif
    default: return false;
  }
}

bool select_mont_path(MontPath path) {
  if (!mont_path_available(path)) return false;
  chosen_path.store(static_cast<int>(path), std::memory_order_relaxed);
  return true;
}

void select_mont_path_automatically() {
  MontPath best = MontPath::portable;
  for (MontPath p : {MontPath::mulx_adx, MontPath::avx512_ifma})
    if (mont_path_available(p)) best = p;
  chosen_path.store(static_cast<int>(best), std::memory_order_relaxed);
}

MontPath current_mont_path() {
  int path = chosen_path.load(std::memory_order_relaxed);
  if (path < 0) {
    select_mont_path_automatically();
    path = chosen_path.load(std::memory_order_relaxed);
  }
  return static_cast<MontPath>(path);
}

u32 mp_less_ct(const MP_DIGIT* a, const MP_DIGIT* b, u32 digits) {
  u64 borrow = 0;
  for (u32 i = 0; i < digits; ++i) borrow = ((static_cast<u64>(a[i]) - b[i] - borrow) >> 32) & 1;
  return static_cast<u32>(borrow);
}

u32 mp_zero_ct(const MP_DIGIT* a, u32 digits) {
  MP_DIGIT any = 0;
  for (u32 i = 0; i < digits; ++i) any |= a[i];
  return ((any | (0 - any)) >> 31) ^ 1;
}

u32 mp_digits_ct(const MP_DIGIT* a, u32 digits) {
  u32 count = 0;
  for (u32 i = 0; i < digits; ++i) {
    u32 here = 0 - ((a[i] | (0 - a[i])) >> 31);  // all ones when digit i is not 0
    count = ((i + 1) & here) | (count & ~here);
  }
  return count;
}

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
  with_limbs<1>(limbs_of(d, dDigits), [&]<int N>() {
    ModulusConstants k;
    set_up_constants<N>(&k, d, dDigits, dSig);
    exp_with_limbs<N>(a, b, c, cDigits, d, dDigits, k);
    secure_wipe(&k, sizeof k);
  });
}

void mont_mod_exp_public(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 cDigits,
                         const MP_DIGIT* d, u32 dDigits) {
  if (MP_Digits(d, dDigits) == 1 && d[0] == 1) {
    MP_AssignZero(a, dDigits);
    return;
  }
  with_limbs<1>(limbs_of(d, dDigits), [&]<int N>() {
    exp_with_limbs<N>(a, b, c, cDigits, d, dDigits, public_constants<N>(d, dDigits));
  });
}

bool mont_crt_exp(MP_DIGIT* m, const MP_DIGIT* c, u32 nDigits, const CrtKey& key) {
  u32 digits = key.digits;
  if (digits == 0 || digits > MP_MAX_DIGITS) return false;
  // Whether the engine takes the key is public: it depends on the key alone, never on c,
  // and a key is well formed or not for every number it is applied to.
  MP_DIGIT one[MP_MAX_DIGITS] = {1};
  u32 fits = key.p[0] & key.q[0] & 1;
  fits &= mp_less_ct(key.q, key.p, digits) & mp_less_ct(one, key.q, digits);
  fits &= mp_less_ct(key.qInv, key.p, digits);
  fits &= (mp_zero_ct(key.dP, digits) | mp_zero_ct(key.dQ, digits)) ^ 1;
  // The digit counts of the primes are the key's shape, as public as n's length.
  u32 significant[2] = {mp_digits_ct(key.p, digits), mp_digits_ct(key.q, digits)};
  declassify(&fits, sizeof fits);
  declassify(significant, sizeof significant);
  int limbs = static_cast<int>((significant[0] + 1) / 2);
  if (fits == 0 || (nDigits + 1) / 2 > 2 * static_cast<u32>(limbs)) return false;
  with_limbs<1>(limbs, [&]<int N>() { crt_with_limbs<N>(m, c, nDigits, key, significant); });
  return true;
}

bool mont_ifma_product(MP_DIGIT* r, const MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* d) {
#ifdef HYLORN_MONT_IFMA
  if (!mont_ifma::has_avx512_ifma()) return false;
  limb x[9], y[9], n[8], z[9];
  to_limbs(x, 9, a, 17);
  to_limbs(y, 9, b, 17);
  to_limbs(n, 8, d, 16);
  mont_ifma::product(z, x, y, n);
  from_limbs(r, 17, z, 9);
  return true;
#else
  (void)r, (void)a, (void)b, (void)d;
  return false;
#endif
}

void mont_product(MP_DIGIT* r, const MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* d,
                  u32 dDigits) {
  with_limbs<1>(limbs_of(d, dDigits), [&]<int N>() {
    Field<N> f;
    f.init(d, dDigits);
    limb x[N], y[N];
    to_limbs(x, N, a, dDigits);
    to_limbs(y, N, b, dDigits);
    if (a == b)
      f.sqr(x, x);
    else
      f.mul(x, x, y);
    from_limbs(r, dDigits, x, N);
    secure_wipe(x, sizeof x);
    secure_wipe(y, sizeof y);
  });
}

}  // namespace hylorn
