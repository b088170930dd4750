// RSA key generation: a random start in a fixed interval, a walk over odd numbers,
// trial division by 3, 5, 7, 11 and one Fermat test to base 2.
#pragma once

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
// 1024 bits, e = 65537, module random state. The first argument (a key slot number) is
// ignored. 1 on success; 0 leaves the caller's records untouched.
int Rsa_Gen_Key_Pair(int slot, RSA_PUBLIC_KEY* pub, RSA_PRIVATE_KEY* priv);

}  // namespace hylorn
