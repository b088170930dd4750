// RSA key generation: a random start in a fixed interval, a walk over odd numbers,
// trial division by 3, 5, 7, 11 and one Fermat test to base 2.
#pragma once

#include "crypto/mp.h"
#include "crypto/random.h"
#include "crypto/rsa_keys.h"
#include "frame/types.h"

namespace hylorn {

struct RSA_PROTO_KEY {
  u32 bits;        // 508 to 1024; only the low 16 bits reach the key records
  u32 useFermat4;  // non-zero: e = 65537, zero: e = 3
};

// Re-seeds rs from the calendar second, then generates. 0, 1031, 1025 or 1032.
u32 RSA_Generate_Keys(RSA_PUBLIC_KEY* pub, RSA_PRIVATE_KEY* priv, const RSA_PROTO_KEY* proto,
                      RANDOM_STATE* rs);
// The same generation on a generator seeded from the given byte, as Random_Seed_From_Time
// would seed it: the same byte always gives the same key pair.
u32 rsa_generate_keys_from_seed_byte(RSA_PUBLIC_KEY* pub, RSA_PRIVATE_KEY* priv,
                                     const RSA_PROTO_KEY* proto, u8 seed);

// The steps of the prime search, over numbers of `digits` 32-bit digits.
// 0 with a probable prime in a, 1025 when the walk passes upper - step, or 1032.
u32 Generate_Prime(MP_DIGIT* a, const MP_DIGIT* lower, const MP_DIGIT* upper,
                   const MP_DIGIT* step, u32 digits, RANDOM_STATE* rs);
int Probable_Prime(const MP_DIGIT* a, u32 digits);  // no small factor and a Fermat pass
int Small_Factor(const MP_DIGIT* a, u32 digits);    // 3, 5, 7 or 11 divides a (and is not a)
int Fermat_Test(const MP_DIGIT* a, u32 digits);     // 2^a mod a == 2
int RSA_Filter(const MP_DIGIT* a, u32 aDigits, const MP_DIGIT* e, u32 eDigits);  // gcd(a - 1, e) == 1
int Relatively_Prime(const MP_DIGIT* a, u32 aDigits, const MP_DIGIT* b, u32 bDigits);

// 1024 bits, e = 65537, module random state. The first argument (a key slot number) is
// ignored. 1 on success; 0 leaves the caller's records untouched.
int Rsa_Gen_Key_Pair(int slot, RSA_PUBLIC_KEY* pub, RSA_PRIVATE_KEY* priv);

}  // namespace hylorn
