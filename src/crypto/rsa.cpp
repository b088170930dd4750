#include "crypto/rsa.h"

#include <cstring>

#include "crypto/mont.h"
#include "crypto/mp.h"
#include "frame/guard.h"
#include "frame/wipe.h"

namespace hylorn {

namespace {

constexpr u32 kPaddingOverhead = 11;  // 00, block type, at least 8 padding bytes, 00
constexpr u8 kBlockSign = 0x01;       // private-key operation: padding of FF bytes
constexpr u8 kBlockEncrypt = 0x02;    // public-key operation: random non-zero padding

u32 modulus_len(u16 bits) { return (static_cast<u32>(bits) + 7) / 8; }

bool too_long_to_pad(u32 inLen, u32 modulusLen) {
  return static_cast<u64>(inLen) + kPaddingOverhead > modulusLen;
}

// 00 || type || padding || 00 || data, with modulusLen - inLen - 3 padding bytes. The
// random padding bytes are drawn one at a time, drawing again while a byte is zero.
u32 build_block(u8* block, u32 modulusLen, u8 type, const u8* in, u32 inLen,
                RANDOM_STATE* rs) {
  u32 separator = modulusLen - inLen - 1;
  block[0] = 0x00;
  block[1] = type;
  for (u32 i = 2; i < separator; ++i) {
    if (type == kBlockSign) {
      block[i] = 0xFF;
      continue;
    }
    do {
      // A generator that still wants seeding writes nothing: no byte would ever come.
      if (Random_Generate_Bytes(&block[i], 1, rs) != 0) return RANDOM_ERR_NEED_RANDOM;
    } while (block[i] == 0);
  }
  block[separator] = 0x00;
  if (inLen > 0) std::memcpy(&block[separator + 1], in, inLen);
  return 0;
}

// Finds the data of a recovered block of the given type. Returns 0 with *dataAt set, or
// the refusal; *outLen is stored before the final length check.
u32 open_block(const u8* block, u32 modulusLen, u8 type, u32* dataAt, u32* outLen) {
  if (modulusLen < 2 || block[0] != 0x00 || block[1] != type) return RSA_ERR_DATA;
  u32 i = 2;
  if (type == kBlockSign) {
    while (i + 1 < modulusLen && block[i] == 0xFF) ++i;
    if (block[i] != 0x00) return RSA_ERR_DATA;
  } else {
    while (i + 1 < modulusLen && block[i] != 0x00) ++i;
    if (i + 1 >= modulusLen) return RSA_ERR_DATA;
  }
  *dataAt = i + 1;
  *outLen = modulusLen - *dataAt;
  if (*outLen + kPaddingOverhead > modulusLen) return RSA_ERR_DATA;
  return 0;
}

u32 apply_block(u8* out, u32* outLen, const u8* in, u32 inLen, const RSA_PUBLIC_KEY* key) {
  return RSA_Public_Block(out, outLen, in, inLen, key);
}
u32 apply_block(u8* out, u32* outLen, const u8* in, u32 inLen, const RSA_PRIVATE_KEY* key) {
  return RSA_Private_Block(out, outLen, in, inLen, key);
}

template <class Key>
u32 pad_and_apply(u8* out, u32* outLen, const u8* in, u32 inLen, u8 type, const Key* key,
                  RANDOM_STATE* rs) {
  u32 modulusLen = modulus_len(key->bits);
  if (too_long_to_pad(inLen, modulusLen) || modulusLen > MAX_RSA_MODULUS_LEN) return RSA_ERR_LEN;
  u8 block[MAX_RSA_MODULUS_LEN];
  auto wipe = on_exit([&] { secure_wipe(block, sizeof block); });
  u32 status = build_block(block, modulusLen, type, in, inLen, rs);
  if (status != 0) return status;
  return apply_block(out, outLen, block, modulusLen, key);
}

template <class Key>
u32 apply_and_unpad(u8* out, u32* outLen, const u8* in, u32 inLen, u8 type, const Key* key) {
  u32 modulusLen = modulus_len(key->bits);
  if (inLen > modulusLen || modulusLen > MAX_RSA_MODULUS_LEN) return RSA_ERR_LEN;
  u8 block[MAX_RSA_MODULUS_LEN] = {};
  auto wipe = on_exit([&] { secure_wipe(block, sizeof block); });
  u32 blockLen = 0;
  u32 status = apply_block(block, &blockLen, in, inLen, key);
  if (status != 0) return status;
  if (blockLen != modulusLen) return RSA_ERR_LEN;
  u32 dataAt = 0;
  status = open_block(block, modulusLen, type, &dataAt, outLen);
  if (status != 0) return status;
  if (*outLen > 0) std::memcpy(out, &block[dataAt], *outLen);
  return 0;
}

}  // namespace

// m = c^e mod n.
u32 RSA_Public_Block(u8* out, u32* outLen, const u8* in, u32 inLen, const RSA_PUBLIC_KEY* key) {
  MP_DIGIT c[MP_MAX_DIGITS], e[MP_MAX_DIGITS], m[MP_MAX_DIGITS] = {}, n[MP_MAX_DIGITS];
  MP_Decode(c, MP_MAX_DIGITS, in, inLen);
  MP_Decode(n, MP_MAX_DIGITS, key->modulus, MAX_RSA_MODULUS_LEN);
  MP_Decode(e, MP_MAX_DIGITS, key->exponent, MAX_RSA_MODULUS_LEN);
  u32 nDigits = MP_Digits(n, MP_MAX_DIGITS);
  u32 eDigits = MP_Digits(e, MP_MAX_DIGITS);

  u32 status = RSA_ERR_DATA;
  if (modulus_len(key->bits) > MAX_RSA_MODULUS_LEN) {
    status = RSA_ERR_LEN;  // no record holds such a key: refuse rather than overrun out
  } else if (MP_Cmp(c, n, nDigits) < 0) {
    mp_mod_exp_public(m, c, e, eDigits, n, nDigits);
    *outLen = modulus_len(key->bits);
    MP_Encode(out, *outLen, m, nDigits);
    status = 0;
  }
  secure_wipe(c, sizeof c);
  secure_wipe(m, sizeof m);
  return status;
}

// m = c^d mod n through the CRT, with p > q:
//   mP = (c mod p)^dP mod p, mQ = (c mod q)^dQ mod q,
//   m = ((mP - mQ) qInv mod p) q + mQ.
u32 RSA_Private_Block(u8* out, u32* outLen, const u8* in, u32 inLen,
                      const RSA_PRIVATE_KEY* key) {
  struct Numbers {
    MP_DIGIT c[MP_MAX_DIGITS], n[MP_MAX_DIGITS], p[MP_MAX_DIGITS], q[MP_MAX_DIGITS];
    MP_DIGIT dP[MP_MAX_DIGITS], dQ[MP_MAX_DIGITS], qInv[MP_MAX_DIGITS];
    MP_DIGIT cP[MP_MAX_DIGITS], cQ[MP_MAX_DIGITS], mP[MP_MAX_DIGITS], mQ[MP_MAX_DIGITS];
    MP_DIGIT t[2 * MP_MAX_DIGITS];
  } v = {};
  auto wipe = on_exit([&] { secure_wipe_object(v); });
  MP_Decode(v.c, MP_MAX_DIGITS, in, inLen);
  MP_Decode(v.n, MP_MAX_DIGITS, key->modulus, MAX_RSA_MODULUS_LEN);
  MP_Decode(v.p, MP_MAX_DIGITS, key->prime[0], MAX_RSA_PRIME_LEN);
  MP_Decode(v.q, MP_MAX_DIGITS, key->prime[1], MAX_RSA_PRIME_LEN);
  MP_Decode(v.dP, MP_MAX_DIGITS, key->primeExponent[0], MAX_RSA_PRIME_LEN);
  MP_Decode(v.dQ, MP_MAX_DIGITS, key->primeExponent[1], MAX_RSA_PRIME_LEN);
  MP_Decode(v.qInv, MP_MAX_DIGITS, key->coefficient, MAX_RSA_PRIME_LEN);
  u32 nDigits = MP_Digits(v.n, MP_MAX_DIGITS);
  // The length of p is the key's shape, and the refusal of c is no secret: both may be
  // branched on. Nothing else below branches on c or the key unless the key is malformed.
  u32 pDigits = mp_digits_ct(v.p, MP_MAX_DIGITS);
  u32 below = mp_less_ct(v.c, v.n, MP_MAX_DIGITS);
  declassify(&pDigits, sizeof pDigits);
  declassify(&below, sizeof below);
  if (modulus_len(key->bits) > MAX_RSA_MODULUS_LEN) return RSA_ERR_LEN;
  if (below == 0) return RSA_ERR_DATA;

  *outLen = modulus_len(key->bits);
  // q is taken over p's digits: it has no more of them, since p > q.
  if (mont_crt_exp(v.t, v.c, nDigits, CrtKey{v.p, v.q, v.dP, v.dQ, v.qInv, pDigits})) {
    MP_Encode(out, *outLen, v.t, nDigits);
    return 0;
  }
  u32 cDigits = MP_Digits(v.c, MP_MAX_DIGITS);
  MP_Mod(v.cP, v.c, cDigits, v.p, pDigits);
  MP_Mod(v.cQ, v.c, cDigits, v.q, pDigits);
  MP_ModExp(v.mP, v.cP, v.dP, pDigits, v.p, pDigits);
  MP_ModExp(v.mQ, v.cQ, v.dQ, pDigits, v.q, pDigits);

  if (MP_Cmp(v.mP, v.mQ, pDigits) >= 0) {
    MP_Sub(v.t, v.mP, v.mQ, pDigits);
  } else {
    MP_Sub(v.t, v.mQ, v.mP, pDigits);
    MP_Sub(v.t, v.p, v.t, pDigits);
  }
  MP_ModMult(v.t, v.t, v.qInv, v.p, pDigits);
  MP_Mult(v.t, v.t, v.q, pDigits);
  MP_Add(v.t, v.t, v.mQ, nDigits);
  MP_Encode(out, *outLen, v.t, nDigits);
  return 0;
}

u32 RSA_Public_Encrypt(u8* out, u32* outLen, const u8* in, u32 inLen, const RSA_PUBLIC_KEY* key,
                       RANDOM_STATE* rs) {
  return pad_and_apply(out, outLen, in, inLen, kBlockEncrypt, key, rs);
}

u32 RSA_Public_Decrypt(u8* out, u32* outLen, const u8* in, u32 inLen,
                       const RSA_PUBLIC_KEY* key) {
  return apply_and_unpad(out, outLen, in, inLen, kBlockSign, key);
}

u32 RSA_Private_Encrypt(u8* out, u32* outLen, const u8* in, u32 inLen,
                        const RSA_PRIVATE_KEY* key) {
  return pad_and_apply(out, outLen, in, inLen, kBlockSign, key, nullptr);
}

u32 RSA_Private_Decrypt(u8* out, u32* outLen, const u8* in, u32 inLen,
                        const RSA_PRIVATE_KEY* key) {
  return apply_and_unpad(out, outLen, in, inLen, kBlockEncrypt, key);
}

int Rsa_Pub_Enc(int, u8* out, u32* outLen, const u8* in, u32 inLen, const RSA_PUBLIC_KEY* key) {
  return RSA_Public_Encrypt(out, outLen, in, inLen, key, module_random_state()) == 0 ? 1 : 0;
}

int Rsa_Pub_Dec(int, u8* out, u32* outLen, const u8* in, u32 inLen, const RSA_PUBLIC_KEY* key) {
  return RSA_Public_Decrypt(out, outLen, in, inLen, key) == 0 ? 1 : 0;
}

int Rsa_Pri_Enc(int, u8* out, u32* outLen, const u8* in, u32 inLen,
                const RSA_PRIVATE_KEY* key) {
  return RSA_Private_Encrypt(out, outLen, in, inLen, key) == 0 ? 1 : 0;
}

int Rsa_Pri_Dec(int, u8* out, u32* outLen, const u8* in, u32 inLen,
                const RSA_PRIVATE_KEY* key) {
  return RSA_Private_Decrypt(out, outLen, in, inLen, key) == 0 ? 1 : 0;
}

}  // namespace hylorn
