// Certificate checking against an issuer certificate, with one side fixed. The first
// input byte picks the side the rest of the input plays:
//   even  the certificate, checked against the fixed root;
//   odd   the issuer, against which the fixed (self-signed) root is checked.
// A certificate passes exactly when its signature is the one the fixed private key makes
// over its TBS octets (PKCS #1 v1.5 signatures are deterministic, so that signature can
// be made again and compared as a number); an issuer whose key has the fixed key's numbers passes,
// and one whose key cannot be read never does.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "fixed_key.h"
#include "fuzz_support.h"
#include "hylorn.h"
#include "split_cert.h"
#include "x509/cert.h"
#include "x509/signed_packet.h"

namespace {

using namespace hylorn;
using fuzz_fixed::kFixedPrivateKey;
using fuzz_fixed::kFixedRoot;
using fuzz_support::check;
using fuzz_support::same;
using Bytes = std::vector<unsigned char>;

using Split = fuzz_support::SplitCert;

// The signature the fixed key makes over the certificate's TBS octets with its own
// algorithm, or nothing when the certificate does not split or the algorithm signs
// nothing.
bool expected_signature(const Bytes& cert, Split* split, Bytes* sig) {
  if (Decode_X509_Signed_Cert(cert.data(), u32(cert.size()), &split->tbs, &split->alg, split->sig,
                              &split->sigLen) != 0) {
    return false;
  }
  COMMON_SIGNED_PACKET packet;
  ini_COMMON_SIGNED_PACKET(&packet);
  check(Der_Decode_COMMON_SIGNED_PACKET(u32(cert.size()), cert.data(), &packet) == 0);
  sig->assign(HYLORN_RSA_BLOCK_SIZE, 0);
  u32 sigLen = 0;
  const bool made =
      Crypt_Gen_Signature_By_Prikey(split->alg.algorithm, kFixedPrivateKey, sizeof kFixedPrivateKey,
                                    packet.tbs.data, packet.tbs.length, sig->data(), &sigLen) == 0;
  free_COMMON_SIGNED_PACKET(&packet);
  sig->resize(made ? sigLen : 0);
  return made;
}

// Signatures are numbers: leading zero octets do not count.
bool same_number(const u8* a, std::size_t aLen, const u8* b, std::size_t bLen) {
  for (; aLen > 0 && *a == 0; --aLen) ++a;
  for (; bLen > 0 && *b == 0; --bLen) ++b;
  return same(a, aLen, b, bLen);
}

void certificate_side(const Bytes& cert) {
  const u32 rc =
      Crypt_Ver_Cert_ByRootCert(cert.data(), u32(cert.size()), kFixedRoot, sizeof kFixedRoot);
  check(rc <= 1);
  auto split = std::make_unique<Split>();
  Bytes sig;
  const bool signs = expected_signature(cert, split.get(), &sig);
  const bool matches = signs && same_number(split->sig, split->sigLen, sig.data(), sig.size());
  check((rc == 0) == matches);
}

struct KeyNumbers {
  unsigned bits = 0;
  unsigned char modulus[128] = {}, exponent[128] = {};
};

bool key_numbers(const Bytes& cert, KeyNumbers* numbers) {
  u8 key[HYLORN_PUBKEY_SIZE];
  u32 keyLen = 0;
  if (Crypt_Get_PubKey_FromCert(cert.data(), u32(cert.size()), key, &keyLen) != 0) return false;
  return Crypt_Decode_Pubkey_Info(key, int(keyLen), &numbers->bits, numbers->modulus,
                                  numbers->exponent) == 0;
}

void issuer_side(const Bytes& issuer) {
  static const Bytes root(kFixedRoot, kFixedRoot + sizeof kFixedRoot);
  static KeyNumbers fixed;
  static const bool readable = key_numbers(root, &fixed);
  check(readable);
  const u32 rc =
      Crypt_Ver_Cert_ByRootCert(kFixedRoot, sizeof kFixedRoot, issuer.data(), u32(issuer.size()));
  check(rc <= 1);
  u8 key[HYLORN_PUBKEY_SIZE];
  u32 keyLen = 0;
  const bool has_key =
      Crypt_Get_PubKey_FromCert(issuer.data(), u32(issuer.size()), key, &keyLen) == 0;
  if (!has_key) check(rc == 1);
  KeyNumbers numbers;
  if (key_numbers(issuer, &numbers) && same(numbers.modulus, 128, fixed.modulus, 128) &&
      same(numbers.exponent, 128, fixed.exponent, 128)) {
    check(rc == 0);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0 || size > HYLORN_CERT_DER_SIZE + 1) return 0;
  // An exact copy, so that any read past the input is caught.
  const Bytes rest(data + 1, data + size);
  if (data[0] % 2 == 0) {
    certificate_side(rest);
  } else {
    issuer_side(rest);
  }
  return 0;
}
