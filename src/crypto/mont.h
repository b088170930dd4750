// The fast exponentiation behind MP_ModExp for odd moduli: 64-bit limbs, Montgomery
// multiplication with loops of fixed length per modulus size, and fixed exponent windows
// read from the table in constant time. The numbers it produces are exactly those of
// the textbook algorithm.
#pragma once

#include "crypto/mp.h"

namespace hylorn {

// quotient (cDigits) = c div d, remainder (dDigits) = c mod d, on 64-bit limbs; d is not
// zero, quotient and remainder do not overlap.
void mp_divide(MP_DIGIT* quotient, MP_DIGIT* remainder, const MP_DIGIT* c, u32 cDigits,
               const MP_DIGIT* d, u32 dDigits);

// a (dDigits) = b^c mod d for an odd d and a non-zero c; b has dDigits digits and need
// not be below d. Exponents of at most 64 bits are taken to be public (3, 65537, the
// Fermat test's) and use a square-and-multiply that skips zero bits; longer exponents
// run a fixed window whatever their bits, and base 2 runs squarings with masked
// doublings.
void mont_mod_exp(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 cDigits,
                  const MP_DIGIT* d, u32 dDigits);

}  // namespace hylorn
