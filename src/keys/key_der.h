// The PKCS #1 DER forms of the two RSA key records (RFC 8017, appendix A.1).
//
// Encoders write the whole SEQUENCE into der, which must hold it (the callers size their
// buffers for 1024-bit keys), and its length into *derLen. Decoders take exactly one
// whole SEQUENCE and copy each INTEGER right-aligned into its field; a value longer than
// its field is refused rather than copied over its neighbours. A failed decoder leaves
// the record all zero.
//
// None of these functions has an error-list entry of its own; the DER coders below them
// add theirs.
#pragma once

#include "crypto/rsa_keys.h"
#include "frame/types.h"

namespace hylorn {

// bits of a decoded public key is a size class, not the exact modulus length: moduli of
// up to 64 bytes read as 512, of 65 to 128 bytes as 1024.
inline constexpr u32 RSA_SMALL_MODULUS_LEN = 64;

// RSAPublicKey ::= SEQUENCE { modulus INTEGER, publicExponent INTEGER }
u32 c2d_RSA_PUBLIC_KEY(const RSA_PUBLIC_KEY* key, u8* der, u32* derLen);
u32 d2c_RSA_PUBLIC_KEY(const u8* der, u32 derLen, RSA_PUBLIC_KEY* key);

// RSAPrivateKey ::= SEQUENCE { version, modulus, publicExponent, privateExponent,
//                              prime1, prime2, exponent1, exponent2, coefficient }
// The encoder writes version 0. The decoder skips the version without reading it and sets
// bits to 1024 whatever the modulus.
u32 c2d_RSA_PRIVATE_KEY(const RSA_PRIVATE_KEY* key, u8* der, u32* derLen);
u32 d2c_RSA_PRIVATE_KEY(const u8* der, u32 derLen, RSA_PRIVATE_KEY* key);

}  // namespace hylorn
