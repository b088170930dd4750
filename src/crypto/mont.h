// The fast exponentiation behind MP_ModExp for odd moduli and behind the CRT of the
// private-key operation: 64-bit limbs, Montgomery multiplication with loops of fixed
// length per modulus size, and fixed exponent windows read from the table in constant
// time. The numbers it produces are exactly those of the textbook algorithm.
#pragma once

#include <cstddef>

#include "crypto/mp.h"

namespace hylorn {

// The Montgomery kernels: portable C++ on 64-bit limbs; MULX/ADCX/ADOX assembly (and
// AVX2 table reads) on x86-64 processors with BMI2, ADX and AVX2; and on those with
// AVX-512 IFMA as well, the two exponentiations of a private-key operation with 512-bit
// primes run together on the vector units. All give the same numbers; the best
// available is chosen once from CPUID, and tests may force any.
enum class MontPath { portable, mulx_adx, avx512_ifma };

// Whether this CPU (and this build) can run the path.
bool mont_path_available(MontPath path);
// Makes later exponentiations use path; false (and no change) when it is not available.
bool select_mont_path(MontPath path);
// Returns to the path CPUID suggests.
void select_mont_path_automatically();
MontPath current_mont_path();

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

// mont_mod_exp for a public modulus: the constants that depend on d alone are kept
// between calls in a small per-thread cache keyed by all of d, so that a key used again
// skips their set-up. Never for a secret modulus (a prime of a private key).
void mont_mod_exp_public(MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* c, u32 cDigits,
                         const MP_DIGIT* d, u32 dDigits);

// The numbers of a private key the CRT takes, all of `digits` digits, p > q.
struct CrtKey {
  const MP_DIGIT* p;
  const MP_DIGIT* q;
  const MP_DIGIT* dP;    // d mod (p - 1)
  const MP_DIGIT* dQ;    // d mod (q - 1)
  const MP_DIGIT* qInv;  // q^-1 mod p
  u32 digits;
};

// m (nDigits) = ((c^dP mod p - c^dQ mod q) qInv mod p) q + c^dQ mod q, kept to nDigits
// digits, all in the engine's limbs, for c below n = p q. Returns false, writing
// nothing, for keys the engine does not take (p or q even, q not above 1, p not above
// q, qInv not below p, an exponent 0, more limbs in nDigits than twice p's): the caller
// then takes the general steps, which give the same result. For the keys it takes, no
// branch and no memory address depends on c or on the key's secret numbers.
bool mont_crt_exp(MP_DIGIT* m, const MP_DIGIT* c, u32 nDigits, const CrtKey& key);

// r = a b / R mod d, R = 2^(64 L) for the L 64-bit limbs d needs, with the kernel of the
// current path: the square kernel when a and b are the same array. d is odd and above 1,
// a is below R and b below d (a below d for a square).
void mont_product(MP_DIGIT* r, const MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* d,
                  u32 dDigits);

// r = a b / 2^520 mod d on the AVX-512 IFMA kernel, for d odd below 2^512 (16 digits)
// and a, b below 2d (17 digits): r (17 digits) is below 2d, not reduced further. False,
// writing nothing, when this CPU or build has no such kernel.
bool mont_ifma_product(MP_DIGIT* r, const MP_DIGIT* a, const MP_DIGIT* b, const MP_DIGIT* d);

// The private-key path neither branches on nor indexes memory with a secret number. The
// few values it computes from secrets that are public all the same (a key's shape, the
// refusal of an input) pass through declassify, a call that does nothing but lets a
// checker that tracks secret data through the program treat them as public from then on.
// Kept out of line so that the call stays visible.
void declassify(void* value, std::size_t size);

// 1 when a < b, else 0, without branches on either.
u32 mp_less_ct(const MP_DIGIT* a, const MP_DIGIT* b, u32 digits);
// 1 when a is zero, else 0, without branches on it.
u32 mp_zero_ct(const MP_DIGIT* a, u32 digits);
// The number of significant digits of a, in a time that depends on digits alone.
u32 mp_digits_ct(const MP_DIGIT* a, u32 digits);

}  // namespace hylorn
