// Raw RSA with PKCS #1 v1.5 blocks (RFC 8017, 7.2): type 1 under the private key, type 2
// under the public key, at most the modulus length less 11 bytes of data per block.
#include <cstring>

#include "crypto/rsa.h"
#include "frame/guard.h"
#include "frame/wipe.h"
#include "hylorn.h"
#include "keys/key_der.h"

using hylorn::RSA_PRIVATE_KEY;
using hylorn::RSA_PUBLIC_KEY;
using hylorn::u32;
using hylorn::u8;

namespace {

// The four directions share one shape: decode the key, run the wrapper, 1 on any failure.
using PublicOp = int (*)(int, u8*, u32*, const u8*, u32, const RSA_PUBLIC_KEY*);
using PrivateOp = int (*)(int, u8*, u32*, const u8*, u32, const RSA_PRIVATE_KEY*);

u32 with_public_key(PublicOp op, bool key_must_decode, const u8* in, u32 inLen, u8* out,
                    u32* outLen, const u8* der, u32 derLen) {
  RSA_PUBLIC_KEY key;
  if (hylorn::d2c_RSA_PUBLIC_KEY(der, derLen, &key) != 0 && key_must_decode) return 1;
  return op(0, out, outLen, in, inLen, &key) == 1 ? 0 : 1;
}

u32 with_private_key(PrivateOp op, const u8* in, u32 inLen, u8* out, u32* outLen, const u8* der,
                     u32 derLen) {
  RSA_PRIVATE_KEY key;
  auto wipe = hylorn::on_exit([&] { hylorn::secure_wipe_object(key); });
  if (hylorn::d2c_RSA_PRIVATE_KEY(der, derLen, &key) != 0) return 1;
  return op(0, out, outLen, in, inLen, &key) == 1 ? 0 : 1;
}

}  // namespace

// Built in a block of our own, then handed over whole.
extern "C" HYLORN_API u32 Crypt_Asyn_Enc_Data_By_Prikey(const u8* in, u32 inLen, u8* out,
                                                        u32* outLen, const u8* priDer,
                                                        u32 priDerLen) {
  u8 block[HYLORN_RSA_BLOCK_SIZE];
  u32 blockLen = 0;
  if (with_private_key(hylorn::Rsa_Pri_Enc, in, inLen, block, &blockLen, priDer, priDerLen) != 0) {
    return 1;
  }
  std::memcpy(out, block, blockLen);
  *outLen = blockLen;
  return 0;
}

// Like signature checking, this direction does not ask whether the key decoded: a key
// that does not leaves a zero record, under which no block opens.
extern "C" HYLORN_API u32 Crypt_Asyn_Dec_Data_By_Pubkey(const u8* in, u32 inLen, u8* out,
                                                        u32* outLen, const u8* pubDer,
                                                        u32 pubDerLen) {
  return with_public_key(hylorn::Rsa_Pub_Dec, false, in, inLen, out, outLen, pubDer, pubDerLen);
}

extern "C" HYLORN_API u32 Crypt_Asyn_Enc_Data_By_Pubkey(const u8* in, u32 inLen, u8* out,
                                                        u32* outLen, const u8* pubDer,
                                                        u32 pubDerLen) {
  return with_public_key(hylorn::Rsa_Pub_Enc, true, in, inLen, out, outLen, pubDer, pubDerLen);
}

extern "C" HYLORN_API u32 Crypt_Asyn_Dec_Data_By_Prikey(const u8* in, u32 inLen, u8* out,
                                                        u32* outLen, const u8* priDer,
                                                        u32 priDerLen) {
  return with_private_key(hylorn::Rsa_Pri_Dec, in, inLen, out, outLen, priDer, priDerLen);
}
