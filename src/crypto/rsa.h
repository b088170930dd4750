// RSA with PKCS #1 v1.5 blocks over the fixed key records. Nothing here touches the
// error list: results are the status codes below, and the wrappers reduce them to
// 1 (success) or 0 (failure).
#pragma once

#include "crypto/random.h"
#include "crypto/rsa_keys.h"
#include "frame/types.h"

namespace hylorn {

inline constexpr u32 RSA_ERR_DATA = 1025;         // input not below n, or malformed block
inline constexpr u32 RSA_ERR_LEN = 1030;          // input too long, or wrong result length
inline constexpr u32 RSA_ERR_MODULUS_LEN = 1031;  // key size outside 508..1024 bits

// out = in^e mod n; *outLen = modulus length in bytes.
u32 RSA_Public_Block(u8* out, u32* outLen, const u8* in, u32 inLen, const RSA_PUBLIC_KEY* key);
// out = in^d mod n through the CRT (the private exponent field is not used).
u32 RSA_Private_Block(u8* out, u32* outLen, const u8* in, u32 inLen,
                      const RSA_PRIVATE_KEY* key);

u32 RSA_Public_Encrypt(u8* out, u32* outLen, const u8* in, u32 inLen, const RSA_PUBLIC_KEY* key,
                       RANDOM_STATE* rs);  // block type 2
u32 RSA_Public_Decrypt(u8* out, u32* outLen, const u8* in, u32 inLen,
                       const RSA_PUBLIC_KEY* key);  // checks type 1
u32 RSA_Private_Encrypt(u8* out, u32* outLen, const u8* in, u32 inLen,
                        const RSA_PRIVATE_KEY* key);  // block type 1
u32 RSA_Private_Decrypt(u8* out, u32* outLen, const u8* in, u32 inLen,
                        const RSA_PRIVATE_KEY* key);  // checks type 2

// Wrappers used by the exported key services: the first argument (a key slot number)
// is ignored; 1 for success, 0 for any failure. Rsa_Pub_Enc draws its padding from the
// module random state without re-seeding it.
int Rsa_Pub_Enc(int slot, u8* out, u32* outLen, const u8* in, u32 inLen,
                const RSA_PUBLIC_KEY* key);
int Rsa_Pub_Dec(int slot, u8* out, u32* outLen, const u8* in, u32 inLen,
                const RSA_PUBLIC_KEY* key);
int Rsa_Pri_Enc(int slot, u8* out, u32* outLen, const u8* in, u32 inLen,
                const RSA_PRIVATE_KEY* key);
int Rsa_Pri_Dec(int slot, u8* out, u32* outLen, const u8* in, u32 inLen,
                const RSA_PRIVATE_KEY* key);

}  // namespace hylorn
