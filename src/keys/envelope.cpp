// Digital envelopes: a fresh 16-byte session key enciphers the data with the block
// cipher, and the recipient's public key wraps the session key in a type 2 block.
//
//   envelope = RSA block (k bytes, 128 for the library's 1024-bit keys) || ciphertext
//
// The readers always take exactly the first 128 bytes as the wrapped key.
#include <cstring>

#include "crypto/idea.h"
#include "crypto/random.h"
#include "crypto/rsa.h"
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

constexpr u32 kWrappedKeyLen = HYLORN_ENVELOPE_KEY_SIZE;
constexpr u32 kSessionKeyLen = HYLORN_SESSION_KEY_SIZE;

// Unwraps the session key with the private key (or, for a slot, the all-zero record) and
// deciphers the rest. An envelope without at least one cipher block behind the wrapped
// key is refused before any decryption. The unwrapped key's length is not checked: the
// cipher takes its first 16 bytes.
u32 open_envelope(int slot, const RSA_PRIVATE_KEY* key, const u8* in, u32 inLen, u8* out,
                  u32* outLen) {
  u8 session[HYLORN_RSA_BLOCK_SIZE] = {};
  auto wipe = hylorn::on_exit([&] { hylorn::secure_wipe_object(session); });
  u32 sessionLen = 0;
  if (hylorn::Rsa_Pri_Dec(slot, session, &sessionLen, in, kWrappedKeyLen, key) != 1) return 1;
  return hylorn::Idea_Decrypt_Data(out, outLen, in + kWrappedKeyLen, inLen - kWrappedKeyLen,
                                   session, kSessionKeyLen) == 1
             ? 0
             : 1;
}

bool too_short(u32 inLen) { return inLen <= kWrappedKeyLen; }

}  // namespace

extern "C" HYLORN_API u32 Crypt_Enc_Data(const u8* in, u32 inLen, u8* out, u32* outLen,
                                         const u8* pubDer, u32 pubDerLen) {
  u8 session[kSessionKeyLen];
  auto wipe = hylorn::on_exit([&] { hylorn::secure_wipe_object(session); });
  hylorn::Random_Get_Bytes(session, kSessionKeyLen, nullptr, 0);
  RSA_PUBLIC_KEY key;
  if (hylorn::d2c_RSA_PUBLIC_KEY(pubDer, pubDerLen, &key) != 0) return 1;
  u8 wrapped[HYLORN_RSA_BLOCK_SIZE];
  u32 wrappedLen = 0;
  if (hylorn::Rsa_Pub_Enc(0, wrapped, &wrappedLen, session, kSessionKeyLen, &key) != 1) return 1;
  std::memcpy(out, wrapped, wrappedLen);
  u32 cipherLen = 0;
  if (hylorn::Idea_Encrypt_Data(out + wrappedLen, &cipherLen, in, inLen, session,
                                kSessionKeyLen) != 1) {
    return 1;
  }
  *outLen = wrappedLen + cipherLen;
  return 0;
}

extern "C" HYLORN_API u32 Crypt_Dec_Data(const u8* in, u32 inLen, u8* out, u32* outLen,
                                         const char* keyName) {
  if (too_short(inLen)) return 1;
  int slot = 0;
  RSA_PRIVATE_KEY key;
  auto wipe = hylorn::on_exit([&] { hylorn::secure_wipe_object(key); });
  if (hylorn::load_private_key(keyName, &slot, &key) != 0) return 1;
  return open_envelope(slot, &key, in, inLen, out, outLen);
}

extern "C" HYLORN_API u32 Crypt_Dec_Data_By_Prikey(const u8* in, u32 inLen, u8* out,
                                                   u32* outLen, const u8* priDer,
                                                   u32 priDerLen) {
  if (too_short(inLen)) return 1;
  RSA_PRIVATE_KEY key;
  auto wipe = hylorn::on_exit([&] { hylorn::secure_wipe_object(key); });
  if (hylorn::d2c_RSA_PRIVATE_KEY(priDer, priDerLen, &key) != 0) return 1;
  return open_envelope(0, &key, in, inLen, out, outLen);
}
