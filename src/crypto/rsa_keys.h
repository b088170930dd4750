// The two fixed-size RSA key records every key operation takes. They cross the library
// boundary as raw bytes, so they are packed: numbers are big-endian, right-aligned in
// their fields with leading zero bytes; bits is a little-endian 16-bit word.
#pragma once

#include "frame/types.h"

namespace hylorn {

inline constexpr u32 MAX_RSA_MODULUS_BITS = 1024;
inline constexpr u32 MAX_RSA_MODULUS_LEN = 128;  // bytes of modulus and exponents
inline constexpr u32 MAX_RSA_PRIME_LEN = 64;     // bytes of primes and CRT values

#pragma pack(push, 1)
struct RSA_PUBLIC_KEY {
  u16 bits;                          // modulus length in bits
  u8 modulus[MAX_RSA_MODULUS_LEN];   // n
  u8 exponent[MAX_RSA_MODULUS_LEN];  // e
};

struct RSA_PRIVATE_KEY {
  u16 bits;
  u8 modulus[MAX_RSA_MODULUS_LEN];            // n
  u8 publicExponent[MAX_RSA_MODULUS_LEN];     // e
  u8 exponent[MAX_RSA_MODULUS_LEN];           // d
  u8 prime[2][MAX_RSA_PRIME_LEN];             // p (the larger), q
  u8 primeExponent[2][MAX_RSA_PRIME_LEN];     // d mod (p-1), d mod (q-1)
  u8 coefficient[MAX_RSA_PRIME_LEN];          // q^-1 mod p
};
#pragma pack(pop)

static_assert(sizeof(RSA_PUBLIC_KEY) == 258, "RSA_PUBLIC_KEY is a 258-byte layout");
static_assert(sizeof(RSA_PRIVATE_KEY) == 706, "RSA_PRIVATE_KEY is a 706-byte layout");

}  // namespace hylorn
