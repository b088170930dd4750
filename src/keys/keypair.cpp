// Key pair generation and the public half of a key name.
#include <cstdio>
#include <cstring>

#include "crypto/keygen.h"
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

// The key file is the private DER alone, written in one go; the count written is not
// checked, as a short write shows up when the file is read back.
u32 write_key_file(const char* path, const u8* der, u32 derLen) {
  std::FILE* file = std::fopen(path, "wb");
  if (file == nullptr) return 1;
  std::fwrite(der, 1, derLen, file);
  std::fclose(file);
  return 0;
}

}  // namespace

// A slot name generates a pair and drops it (there is no store behind the slots), so
// neither buffer is written. Otherwise both halves go out as DER; "keypair.out" stops
// there, any other name is the key file to create, and failing to create it still leaves
// both outputs written.
extern "C" HYLORN_API u32 Crypt_GenRSAKeyPair(const char* keyName, u32, u8* pubDer, u32* pubDerLen,
                                              u8* priDer, u32* priDerLen) {
  const int slot = hylorn::key_slot_number(keyName);
  RSA_PUBLIC_KEY pub;
  RSA_PRIVATE_KEY pri;
  auto wipe = hylorn::on_exit([&] { hylorn::secure_wipe_object(pri); });
  if (hylorn::Rsa_Gen_Key_Pair(slot, &pub, &pri) != 1) return 1;
  const char* name = keyName != nullptr ? keyName : "";
  const bool no_file = std::strcmp(name, hylorn::KEY_NAME_NO_FILE) == 0;
  if (slot != 0) return 0;
  if (hylorn::c2d_RSA_PUBLIC_KEY(&pub, pubDer, pubDerLen) != 0) return 1;
  if (hylorn::c2d_RSA_PRIVATE_KEY(&pri, priDer, priDerLen) != 0) return 1;
  if (no_file) return 0;
  return write_key_file(name, priDer, *priDerLen);
}

// The public half of a key file. A slot has no public key to give.
extern "C" HYLORN_API u32 Crypt_GetRSAPublicKey(const char* keyName, u32, u8* pubDer,
                                                u32* pubDerLen) {
  int slot = 0;
  RSA_PRIVATE_KEY pri;
  auto wipe = hylorn::on_exit([&] { hylorn::secure_wipe_object(pri); });
  if (hylorn::load_private_key(keyName, &slot, &pri) != 0) return 1;
  RSA_PUBLIC_KEY pub{};
  if (slot != 0) return hylorn::slot_public_key(slot, &pub);
  pub.bits = pri.bits;
  std::memcpy(pub.modulus, pri.modulus, sizeof pub.modulus);
  std::memcpy(pub.exponent, pri.publicExponent, sizeof pub.exponent);
  // This step has always reported success: the encoder, which can fail only when memory
  // runs out, is not asked.
  hylorn::c2d_RSA_PUBLIC_KEY(&pub, pubDer, pubDerLen);
  return 0;
}
