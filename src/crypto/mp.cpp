#include "crypto/mp.h"

#include <initializer_list>

#include "crypto/mont.h"
#include "frame/wipe.h"

namespace hylorn {

namespace {

constexpr u32 kWideDigits = 2 * MP_MAX_DIGITS;

MP_DIGIT low_digit(u64 x) { return static_cast<MP_DIGIT>(x); }
MP_DIGIT high_digit(u64 x) { return static_cast<MP_DIGIT>(x >> MP_DIGIT_BITS); }

}  // namespace

void MP_Decode(MP_DIGIT* a, u32 digits, const u8* b, u32 len) {
  u32 i = 0;
  u32 j = len;  // bytes still to read, taken from the end of b
  for (; i < digits && j >= 4; ++i, j -= 4)
    a[i] = (static_cast<MP_DIGIT>(b[j - 4]) << 24) | (static_cast<MP_DIGIT>(b[j - 3]) << 16) |
           (static_cast<MP_DIGIT>(b[j - 2]) << 8) | b[j - 1];
  if (i < digits && j > 0) {
    MP_DIGIT t = 0;
    for (u32 shift = 0; j > 0; --j, shift += 8) t |= static_cast<MP_DIGIT>(b[j - 1]) << shift;
    a[i++] = t;
  }
  for (; i < digits; ++i) a[i] = 0;
}

void MP_Encode(u8* a, u32 len, const MP_DIGIT* b, u32 digits) {
  u32 j = len;  // bytes still to write, filled from the end of a
  u32 i = 0;
  for (; i < digits && j >= 4; ++i, j -= 4) {
    MP_DIGIT t = b[i];
    a[j - 4] = static_cast<u8>(t >> 24);
    a[j - 3] = static_cast<u8>(t >> 16);
    a[j - 2] = static_cast<u8>(t >> 8);
    a[j - 1] = static_cast<u8>(t);
  }
  if (i < digits)
    for (u32 shift = 0; j > 0; --j, shift += 8) a[j - 1] = static_cast<u8>(b[i] >> shift);
  for (; j > 0; --j) a[j - 1] = 0;
}

void MP_Assign(MP_DIGIT* a, const MP_DIGIT* b, u32 digits) {
  for (u32 i = 0; i < digits; ++i) a[i] = b[i];
}

void MP_AssignZero(MP_DIGIT* a, u32 digits) {
  for (u32 i = 0; i < digits; ++i) a[i] = 0;
}

void MP_Assign2Exp(MP_DIGIT* a, u32 bit, u32 digits) {
  MP_AssignZero(a, digits);
  if (bit >= MP_DIGIT_BITS * digits) return;
  a[bit / MP_DIGIT_BITS] = static_cast<MP_DIGIT>(1) << (bit % MP_DIGIT_BITS);
}

MP_DIGIT MP_Add(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 digits) {
  u64 carry = 0;
  for (u32 i = 0; i < digits; ++i) {
    u64 sum = static_cast<u64>(b[i]) + c[i] + carry;
    a[i] = low_digit(sum);
    carry = sum >> MP_DIGIT_BITS;
  }
  return static_cast<MP_DIGIT>(carry);
}

MP_DIGIT MP_Sub(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 digits) {
  u64 borrow = 0;
  for (u32 i = 0; i < digits; ++i) {
    u64 diff = static_cast<u64>(b[i]) - c[i] - borrow;
    a[i] = low_digit(diff);
    borrow = (diff >> MP_DIGIT_BITS) & 1;
  }
  return static_cast<MP_DIGIT>(borrow);
}

void MP_Mult(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 digits) {
  MP_DIGIT t[kWideDigits];
  MP_AssignZero(t, 2 * digits);
  u32 bDigits = MP_Digits(b, digits);
  u32 cDigits = MP_Digits(c, digits);
  for (u32 i = 0; i < bDigits; ++i)
    t[i + cDigits] += MP_AddDigitMult(&t[i], &t[i], b[i], c, cDigits);
  MP_Assign(a, t, 2 * digits);
  secure_wipe(t, sizeof t);
}

MP_DIGIT MP_LShift(MP_DIGIT* a, const MP_DIGIT* b, u32 shift, u32 digits) {
  if (shift >= MP_DIGIT_BITS) return 0;
  if (shift == 0) {
    MP_Assign(a, b, digits);
    return 0;
  }
  MP_DIGIT carry = 0;
  for (u32 i = 0; i < digits; ++i) {
    MP_DIGIT bi = b[i];
    a[i] = (bi << shift) | carry;
    carry = bi >> (MP_DIGIT_BITS - shift);
  }
  return carry;
}

MP_DIGIT MP_RShift(MP_DIGIT* a, const MP_DIGIT* b, u32 shift, u32 digits) {
  if (shift >= MP_DIGIT_BITS) return 0;
  if (shift == 0) {
    MP_Assign(a, b, digits);
    return 0;
  }
  MP_DIGIT carry = 0;
  for (u32 i = digits; i > 0; --i) {
    MP_DIGIT bi = b[i - 1];
    a[i - 1] = (bi >> shift) | carry;
    carry = bi << (MP_DIGIT_BITS - shift);
  }
  return carry;
}

// The division itself runs on 64-bit limbs in the engine; only its results count.
void MP_Div(MP_DIGIT* quotient, MP_DIGIT* remainder, const MP_DIGIT* c, u32 cDigits,
            const MP_DIGIT* d, u32 dDigits) {
  if (MP_Zero(d, dDigits)) return;
  mp_divide(quotient, remainder, c, cDigits, d, dDigits);
}

void MP_Mod(MP_DIGIT* a, const MP_DIGIT* b, u32 bDigits, const MP_DIGIT* c, u32 cDigits) {
  MP_DIGIT q[kWideDigits];
  MP_Div(q, a, b, bDigits, c, cDigits);
  secure_wipe(q, sizeof q);
}

void MP_ModMult(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, const MP_DIGIT* d,
                u32 digits) {
  MP_DIGIT t[kWideDigits];
  MP_Mult(t, b, c, digits);
  MP_Mod(a, t, 2 * digits, d, digits);
  secure_wipe(t, sizeof t);
}

// Left to right over 2-bit windows of the exponent, with b, b^2, b^3 precomputed.
void mp_mod_exp_generic(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 cDigits,
                        const MP_DIGIT* d, u32 dDigits) {
  MP_DIGIT power[3][MP_MAX_DIGITS] = {};
  MP_DIGIT t[MP_MAX_DIGITS] = {};
  MP_Assign(power[0], b, dDigits);
  MP_ModMult(power[1], power[0], b, d, dDigits);
  MP_ModMult(power[2], power[1], b, d, dDigits);
  t[0] = 1;

  u32 top = MP_Digits(c, cDigits);
  for (u32 i = top; i-- > 0;) {
    MP_DIGIT ci = c[i];
    u32 bits = MP_DIGIT_BITS;
    if (i + 1 == top) {
      for (; (ci >> (MP_DIGIT_BITS - 2)) == 0; ci <<= 2) bits -= 2;
    }
    for (u32 j = 0; j < bits; j += 2, ci <<= 2) {
      MP_ModMult(t, t, t, d, dDigits);
      MP_ModMult(t, t, t, d, dDigits);
      MP_DIGIT s = ci >> (MP_DIGIT_BITS - 2);
      if (s != 0) MP_ModMult(t, t, power[s - 1], d, dDigits);
    }
  }

  MP_Assign(a, t, dDigits);
  secure_wipe(power, sizeof power);
  secure_wipe(t, sizeof t);
}

using ExpFn = void (*)(MP_DIGIT*, const MP_DIGIT*, const MP_DIGIT*, u32, const MP_DIGIT*, u32);

// The Montgomery engine (one of its entries) takes odd moduli and non-zero exponents;
// the windows above take the rest.
static void mod_exp_with(ExpFn engine, MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c,
                         u32 cDigits, const MP_DIGIT* d, u32 dDigits) {
  if (dDigits > 0 && (d[0] & 1) != 0 && !MP_Zero(c, cDigits))
    engine(a, b, c, cDigits, d, dDigits);
  else
    mp_mod_exp_generic(a, b, c, cDigits, d, dDigits);
}

void MP_ModExp(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 cDigits,
               const MP_DIGIT* d, u32 dDigits) {
  mod_exp_with(mont_mod_exp, a, b, c, cDigits, d, dDigits);
}

void mp_mod_exp_public(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 cDigits,
                       const MP_DIGIT* d, u32 dDigits) {
  mod_exp_with(mont_mod_exp_public, a, b, c, cDigits, d, dDigits);
}

// Extended Euclid with non-negative coefficients; the sign of the last one is tracked
// apart and applied at the end.
void MP_ModInv(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 digits) {
  MP_DIGIT q[MP_MAX_DIGITS] = {}, rem[MP_MAX_DIGITS] = {}, next[MP_MAX_DIGITS] = {};
  MP_DIGIT s[MP_MAX_DIGITS] = {}, s1[MP_MAX_DIGITS] = {};
  MP_DIGIT r[MP_MAX_DIGITS] = {}, r1[MP_MAX_DIGITS] = {};
  MP_DIGIT w[kWideDigits] = {};
  s[0] = 1;
  MP_Assign(r, b, digits);
  MP_Assign(r1, c, digits);
  bool negative = false;

  while (!MP_Zero(r1, digits)) {
    MP_Div(q, rem, r, digits, r1, digits);
    MP_Mult(w, q, s1, digits);
    MP_Add(next, s, w, digits);
    MP_Assign(s, s1, digits);
    MP_Assign(s1, next, digits);
    MP_Assign(r, r1, digits);
    MP_Assign(r1, rem, digits);
    negative = !negative;
  }

  if (negative)
    MP_Sub(a, c, s, digits);
  else
    MP_Assign(a, s, digits);
  for (MP_DIGIT* v : {q, rem, next, s, s1, r, r1}) secure_wipe(v, MP_MAX_DIGITS * sizeof(MP_DIGIT));
  secure_wipe(w, sizeof w);
}

void MP_Gcd(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 digits) {
  MP_DIGIT g[MP_MAX_DIGITS] = {}, t[MP_MAX_DIGITS] = {}, rem[MP_MAX_DIGITS] = {};
  MP_Assign(g, b, digits);
  MP_Assign(t, c, digits);
  while (!MP_Zero(t, digits)) {
    MP_Mod(rem, g, digits, t, digits);
    MP_Assign(g, t, digits);
    MP_Assign(t, rem, digits);
  }
  MP_Assign(a, g, digits);
  secure_wipe(g, sizeof g);
  secure_wipe(t, sizeof t);
  secure_wipe(rem, sizeof rem);
}

int MP_Cmp(const MP_DIGIT* a, const MP_DIGIT* b, u32 digits) {
  for (u32 i = digits; i > 0; --i) {
    if (a[i - 1] > b[i - 1]) return 1;
    if (a[i - 1] < b[i - 1]) return -1;
  }
  return 0;
}

int MP_Zero(const MP_DIGIT* a, u32 digits) {
  for (u32 i = 0; i < digits; ++i)
    if (a[i] != 0) return 0;
  return 1;
}

u32 MP_Digits(const MP_DIGIT* a, u32 digits) {
  for (u32 i = digits; i > 0; --i)
    if (a[i - 1] != 0) return i;
  return 0;
}

u32 MP_DigitBits(MP_DIGIT a) {
  u32 bits = 0;
  for (; a != 0; a >>= 1) ++bits;
  return bits;
}

u32 mp_bits(const MP_DIGIT* a, u32 digits) {
  u32 top = MP_Digits(a, digits);
  return top == 0 ? 0 : (top - 1) * MP_DIGIT_BITS + MP_DigitBits(a[top - 1]);
}

MP_DIGIT MP_AddDigitMult(MP_DIGIT* a, const MP_DIGIT* b, MP_DIGIT c, const MP_DIGIT* d,
                         u32 digits) {
  u64 carry = 0;
  for (u32 i = 0; i < digits; ++i) {
    u64 t = static_cast<u64>(c) * d[i] + b[i] + carry;  // at most 2^64 - 1
    a[i] = low_digit(t);
    carry = high_digit(t);
  }
  return static_cast<MP_DIGIT>(carry);
}

MP_DIGIT MP_SubDigitMult(MP_DIGIT* a, const MP_DIGIT* b, MP_DIGIT c, const MP_DIGIT* d,
                         u32 digits) {
  MP_DIGIT borrow = 0;
  for (u32 i = 0; i < digits; ++i) {
    u64 t = static_cast<u64>(c) * d[i] + borrow;
    MP_DIGIT lo = low_digit(t), bi = b[i];
    borrow = high_digit(t) + (lo > bi ? 1 : 0);
    a[i] = bi - lo;
  }
  return borrow;
}

void MP_DigitMult(MP_DIGIT a[2], MP_DIGIT b, MP_DIGIT c) {
  u64 t = static_cast<u64>(b) * c;
  a[0] = low_digit(t);
  a[1] = high_digit(t);
}

void MP_DigitDiv(MP_DIGIT* a, const MP_DIGIT b[2], MP_DIGIT c) {
  u64 dividend = (static_cast<u64>(b[1]) << MP_DIGIT_BITS) | b[0];
  *a = low_digit(dividend / c);
}

}  // namespace hylorn
