// Fixed-capacity arithmetic on non-negative integers, sized for RSA moduli of at most
// 1024 bits. A number is an array of 32-bit digits, least significant first; its digit
// count always travels beside it. Nothing is allocated: every working array lives on the
// stack and is wiped before the operation returns when it may have held key material.
//
// Results may alias inputs unless a comment says otherwise. Counts are bounded by
// MP_MAX_DIGITS (2 * MP_MAX_DIGITS for the dividend of MP_Div and MP_Mod).
#pragma once

#include "frame/types.h"

namespace hylorn {

using MP_DIGIT = u32;
using MP_HALF_DIGIT = u16;

inline constexpr u32 MP_DIGIT_BITS = 32;
inline constexpr u32 MP_HALF_DIGIT_BITS = 16;
inline constexpr MP_DIGIT MP_MAX_DIGIT = 0xFFFFFFFFu;
// 1024 bits of modulus plus one digit of room for carries and the division's shift.
inline constexpr u32 MP_MAX_DIGITS = 33;

// a = the big-endian byte string b; bytes beyond 4 * digits (the most significant ones)
// are ignored, digits beyond the string are zero.
void MP_Decode(MP_DIGIT* a, u32 digits, const u8* b, u32 len);
// Writes b big-endian into exactly len bytes, zero-filled on the left; digits that do
// not fit are dropped silently.
void MP_Encode(u8* a, u32 len, const MP_DIGIT* b, u32 digits);

void MP_Assign(MP_DIGIT* a, const MP_DIGIT* b, u32 digits);
void MP_AssignZero(MP_DIGIT* a, u32 digits);
// a = 2^bit; a stays 0 when bit >= 32 * digits.
void MP_Assign2Exp(MP_DIGIT* a, u32 bit, u32 digits);

// a = b + c; returns the carry out of the top digit.
MP_DIGIT MP_Add(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 digits);
// a = b - c; returns the borrow.
MP_DIGIT MP_Sub(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 digits);
// a (2 * digits) = b * c.
void MP_Mult(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 digits);
// a = b << shift for shift < 32, returning the bits shifted out; a larger shift returns
// 0 and leaves a untouched. MP_RShift likewise to the right.
MP_DIGIT MP_LShift(MP_DIGIT* a, const MP_DIGIT* b, u32 shift, u32 digits);
MP_DIGIT MP_RShift(MP_DIGIT* a, const MP_DIGIT* b, u32 shift, u32 digits);

// quotient (cDigits) = c div d, remainder (dDigits) = c mod d. A zero d writes nothing.
// quotient and remainder must not overlap each other.
void MP_Div(MP_DIGIT* quotient, MP_DIGIT* remainder, const MP_DIGIT* c, u32 cDigits,
            const MP_DIGIT* d, u32 dDigits);
// a (cDigits) = b mod c.
void MP_Mod(MP_DIGIT* a, const MP_DIGIT* b, u32 bDigits, const MP_DIGIT* c, u32 cDigits);
// a = b * c mod d, all of digits digits.
void MP_ModMult(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, const MP_DIGIT* d,
                u32 digits);
// a (dDigits) = b^c mod d, where b has dDigits digits and need not be below d. A zero
// exponent gives 1 whatever d is.
void MP_ModExp(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 cDigits,
               const MP_DIGIT* d, u32 dDigits);
// MP_ModExp for a public modulus d: constants derived from d alone may be kept between
// calls. Never for a secret modulus such as a prime of a private key.
void mp_mod_exp_public(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 cDigits,
                       const MP_DIGIT* d, u32 dDigits);
// a = b^-1 mod c for coprime b and c.
void MP_ModInv(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 digits);
// a = gcd(b, c).
void MP_Gcd(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 digits);

// 1 if a > b, 0 if equal (also for 0 digits), -1 if a < b.
int MP_Cmp(const MP_DIGIT* a, const MP_DIGIT* b, u32 digits);
// 1 if a is zero (also for 0 digits), else 0.
int MP_Zero(const MP_DIGIT* a, u32 digits);
// Number of significant digits, 0 for zero.
u32 MP_Digits(const MP_DIGIT* a, u32 digits);
// Number of significant bits of one digit, 0 to 32.
u32 MP_DigitBits(MP_DIGIT a);
// Number of significant bits of a number.
u32 mp_bits(const MP_DIGIT* a, u32 digits);

// a = b + c * d for one digit c; returns the carry digit.
MP_DIGIT MP_AddDigitMult(MP_DIGIT* a, const MP_DIGIT* b, MP_DIGIT c, const MP_DIGIT* d,
                         u32 digits);
// a = b - c * d for one digit c; returns the borrow digit.
MP_DIGIT MP_SubDigitMult(MP_DIGIT* a, const MP_DIGIT* b, MP_DIGIT c, const MP_DIGIT* d,
                         u32 digits);
// a[0..1] = b * c, low digit first.
void MP_DigitMult(MP_DIGIT a[2], MP_DIGIT b, MP_DIGIT c);
// *a = b[1]:b[0] div c for a divisor with its top bit set and b[1] < c.
void MP_DigitDiv(MP_DIGIT* a, const MP_DIGIT b[2], MP_DIGIT c);

// The textbook exponentiation with 2-bit windows, whatever the modulus; MP_ModExp takes
// the Montgomery engine instead when the modulus is odd. Kept reachable for tests.
void mp_mod_exp_generic(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 cDigits,
                        const MP_DIGIT* d, u32 dDigits);

}  // namespace hylorn
