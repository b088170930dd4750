// The exported key readers and Crypt_Restore_Key.
#include <cstring>

#include "frame/guard.h"
#include "frame/wipe.h"
#include "hylorn.h"
#include "keys/key_der.h"
#include "keys/key_name.h"

using hylorn::RSA_PRIVATE_KEY;
using hylorn::RSA_PUBLIC_KEY;
using hylorn::u32;
using hylorn::u8;

namespace {

// A negative length never decodes.
bool decode_public(const u8* der, int derLen, RSA_PUBLIC_KEY* key) {
  return derLen >= 0 && hylorn::d2c_RSA_PUBLIC_KEY(der, static_cast<u32>(derLen), key) == 0;
}

bool decode_private(const u8* der, int derLen, RSA_PRIVATE_KEY* key) {
  return derLen >= 0 && hylorn::d2c_RSA_PRIVATE_KEY(der, static_cast<u32>(derLen), key) == 0;
}

}  // namespace

extern "C" HYLORN_API int Crypt_Decode_Pubkey_Info(const u8* der, int derLen, u32* bits,
                                                   u8* modulus, u8* exponent) {
  RSA_PUBLIC_KEY key;
  if (!decode_public(der, derLen, &key)) return -1;
  *bits = key.bits;
  std::memcpy(modulus, key.modulus, sizeof key.modulus);
  std::memcpy(exponent, key.exponent, sizeof key.exponent);
  return 0;
}

extern "C" HYLORN_API int Crypt_Decode_Prikey_Info(const u8* der, int derLen, u32* bits,
                                                   u8* modulus, u8* publicExponent, u8* exponent,
                                                   u8* prime1, u8* prime2, u8* primeExponent1,
                                                   u8* primeExponent2, u8* coefficient) {
  RSA_PRIVATE_KEY key;
  auto wipe = hylorn::on_exit([&] { hylorn::secure_wipe_object(key); });
  if (!decode_private(der, derLen, &key)) return -1;
  *bits = key.bits;
  const struct {
    u8* out;
    const u8* field;
    std::size_t size;
  } copies[] = {
      {modulus, key.modulus, sizeof key.modulus},
      {publicExponent, key.publicExponent, sizeof key.publicExponent},
      {exponent, key.exponent, sizeof key.exponent},
      {prime1, key.prime[0], sizeof key.prime[0]},
      {prime2, key.prime[1], sizeof key.prime[1]},
      {primeExponent1, key.primeExponent[0], sizeof key.primeExponent[0]},
      {primeExponent2, key.primeExponent[1], sizeof key.primeExponent[1]},
      {coefficient, key.coefficient, sizeof key.coefficient},
  };
  for (const auto& c : copies) std::memcpy(c.out, c.field, c.size);
  return 0;
}

// Kept as callers know it: either encoding decoding is success; two undecodable inputs
// fail only for a name outside the slots, since the slot store answers 0 without
// storing anything.
extern "C" HYLORN_API u32 Crypt_Restore_Key(const char* name, const u8* pubDer, int pubDerLen,
                                            const u8* priDer, int priDerLen) {
  const int slot = hylorn::key_slot_number(name);
  RSA_PUBLIC_KEY pub;
  if (decode_public(pubDer, pubDerLen, &pub)) return 0;
  RSA_PRIVATE_KEY pri;
  auto wipe = hylorn::on_exit([&] { hylorn::secure_wipe_object(pri); });
  if (decode_private(priDer, priDerLen, &pri)) return 0;
  if (slot == 0) return 1;
  return hylorn::store_slot_keys(slot, &pub, &pri);
}
