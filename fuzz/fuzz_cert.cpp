// Arbitrary bytes as a certificate: the splitting decoder, every query item, the key and
// the signature check against itself, and the chain builders. What one entry accepts the
// others must agree on: a certificate that splits yields its key and every item.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "hylorn.h"
#include "x509/cert.h"

namespace {

using namespace hylorn;

void check(bool ok) {
  if (!ok) std::abort();
}

struct Split {
  USER_X509_TBS_CERT tbs;
  USER_X509_ALG_ID alg;
  u8 sig[kSignatureSize];
  u32 sigLen;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 1u << 16) return 0;
  const u32 n = static_cast<u32>(size);
  auto split = std::make_unique<Split>();
  const bool decoded =
      Decode_X509_Signed_Cert(data, n, &split->tbs, &split->alg, split->sig, &split->sigLen) == 0;
  if (decoded) check(split->sigLen <= kSignatureSize);

  static u8 out[HYLORN_CERT_ITEM_SIZE];
  u32 outLen = 0;
  for (u32 item = 0; item <= 22; ++item) {
    const int rc = Crypt_Get_Char_Info_FromCert(data, n, item, out, &outLen);
    // Item 21 may be too long for its room; every other item of a decoded certificate is
    // there.
    if (!decoded || item != 21) check(rc == (!decoded ? 1 : item >= 1 && item <= 20 ? 0 : -1));
  }
  u8 key[kPublicKeySize];
  u32 keyLen = 0;
  check((Crypt_Get_PubKey_FromCert(data, n, key, &keyLen) == 0) == decoded);
  if (decoded) {
    const auto& spki = split->tbs.subjectPublicKeyInfo;
    check(keyLen == spki.subjectPublicKeyLength &&
          std::memcmp(key, spki.subjectPublicKey, keyLen) == 0);
  }
  Crypt_Ver_Cert_ByRootCert(data, n, data, n);

  if (n <= HYLORN_CHAIN_SLOT_SIZE && n > 0) {
    static u8 chain[HYLORN_CHAIN_SIZE], p7[HYLORN_PKCS7_CHAIN_SIZE];
    u32 chainLen = 0, p7Len = 0;
    check(Crypt_Gen_Cert_Chain(data, n, data, n, chain, &chainLen) == 0);
    check(Crypt_Gen_Ie_Cert_Chain(chain, chainLen, p7, &p7Len) == 0);
  }
  return 0;
}
