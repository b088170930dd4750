// PKCS #1 v1.5 signatures (RFC 8017, 8.2): the DigestInfo of the data in a type 1 block
// under the private key, checked by opening the block with the public key.
#include <cstring>

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

// Verification results.
constexpr u32 kValid = 0;
constexpr u32 kRsaFailed = 1;
constexpr u32 kMismatch = 2;
constexpr u32 kUnsupportedHash = 3;

// DigestInfo ::= SEQUENCE { digestAlgorithm AlgorithmIdentifier, digest OCTET STRING }
struct EncodedHash {
  u8 bytes[HYLORN_ENCODED_HASH_SIZE];
  u32 length;
};

bool encode_hash(int alg, const u8* data, u32 dataLen, EncodedHash* out) {
  return Crypt_Gen_Encoded_Hash(alg, data, dataLen, out->bytes, &out->length) == 0;
}

// Signs with a loaded record (slot 0) or, for a slot name, with the all-zero record that
// stands for the slot's key. The outputs are written only on success.
u32 sign(int slot, int alg, const RSA_PRIVATE_KEY* key, const u8* data, u32 dataLen, u8* sig,
         u32* sigLen) {
  EncodedHash hash;
  if (!encode_hash(alg, data, dataLen, &hash)) return 1;
  u8 block[HYLORN_RSA_BLOCK_SIZE];
  u32 blockLen = 0;
  if (hylorn::Rsa_Pri_Enc(slot, block, &blockLen, hash.bytes, hash.length, key) != 1) return 1;
  std::memcpy(sig, block, blockLen);
  *sigLen = blockLen;
  return 0;
}

}  // namespace

extern "C" HYLORN_API u32 Crypt_Gen_Signature(int alg, const char* keyName, const char*,
                                              const u8* data, u32 dataLen, u8* sig,
                                              u32* sigLen) {
  int slot = 0;
  RSA_PRIVATE_KEY key;
  auto wipe = hylorn::on_exit([&] { hylorn::secure_wipe_object(key); });
  if (hylorn::load_private_key(keyName, &slot, &key) != 0) return 1;
  return sign(slot, alg, &key, data, dataLen, sig, sigLen);
}

extern "C" HYLORN_API u32 Crypt_Gen_Signature_By_Prikey(int alg, const u8* priDer,
                                                        u32 priDerLen, const u8* data,
                                                        u32 dataLen, u8* sig, u32* sigLen) {
  RSA_PRIVATE_KEY key;
  auto wipe = hylorn::on_exit([&] { hylorn::secure_wipe_object(key); });
  if (hylorn::d2c_RSA_PRIVATE_KEY(priDer, priDerLen, &key) != 0) return 1;
  return sign(0, alg, &key, data, dataLen, sig, sigLen);
}

// The recovered block's data is compared with the DigestInfo over the DigestInfo's length
// only: whatever follows a matching start is not looked at. A public key that does not
// decode is not reported as such; the decoder leaves a zero record, which no signature
// opens under.
extern "C" HYLORN_API u32 Crypt_Ver_Signature(int alg, const u8* pubDer, u32 pubDerLen,
                                              const u8* data, u32 dataLen, const u8* sig,
                                              u32 sigLen) {
  RSA_PUBLIC_KEY key;
  hylorn::d2c_RSA_PUBLIC_KEY(pubDer, pubDerLen, &key);
  EncodedHash hash;
  if (!encode_hash(alg, data, dataLen, &hash)) return kUnsupportedHash;
  u8 recovered[HYLORN_RSA_BLOCK_SIZE] = {};
  u32 recoveredLen = 0;
  if (hylorn::Rsa_Pub_Dec(0, recovered, &recoveredLen, sig, sigLen, &key) != 1) return kRsaFailed;
  if (recoveredLen < hash.length) return kMismatch;
  return std::memcmp(recovered, hash.bytes, hash.length) == 0 ? kValid : kMismatch;
}
