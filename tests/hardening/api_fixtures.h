// What the whole-API tests work on: a key pair and its key file, and a certificate (every
// extension the arguments can ask for), a CRL and a request made and signed with it, all
// through the public functions only.
#pragma once

#include <string>

#include "crl/crl_calls.h"
#include "hylorn.h"
#include "support/error_list.h"
#include "support/hex.h"
#include "support/temp_dir.h"
#include "x509/cert_calls.h"

namespace hardening_test {

using namespace hylorn_test;
using u8 = unsigned char;
using Name = std::array<std::string, 16>;

// A key pair written to its own key file in a directory of its own.
struct KeyFile {
  TempDir dir;
  std::string path = dir.path("signer.key");
  Bytes pub = Bytes(HYLORN_PUBKEY_DER_SIZE), pri = Bytes(HYLORN_PRIKEY_DER_SIZE);
  unsigned rc;
  KeyFile() {
    unsigned pubLen = 0, priLen = 0;
    rc = Crypt_GenRSAKeyPair(path.c_str(), 0, pub.data(), &pubLen, pri.data(), &priLen);
    pub.resize(pubLen), pri.resize(priLen);
  }
};

// clang-format off
// A self-signed certificate for cn under key, with every extension.
inline x509_test::CertInput cert_input(const KeyFile& key, const std::string& cn) {
  const Name name = {"DE", "Hylorn", "Hardening", "", cn};
  return {.issuer = name, .subject = name, .pubKey = key.pub, .extFlags = 0x1DF, .critFlags = 0x12,
          .akiIssuer = name, .akiSerial = {0x02},
          .policies = {{{{0x2A, 0x03, 0x04}, "http://example.com/cps", {}}}},
          .pkupNotBefore = "20210101000000", .pkupNotAfter = "20301231235959", .cA = 1,
          .pathLen = 2, .keyUsage = 0xA0, .nsCertType = 0xA0, .setCertType = 0x80,
          .hashedRootKey = Bytes(20, 0x5C), .keyName = key.path};
}

// A CRL of the given entries, with both CRL extensions, signed with key.
inline crl_test::Crl crl_input(const KeyFile& key, std::vector<crl_test::Entry> entries) {
  using namespace crl_test;
  return {.entries = std::move(entries), .ext = kAki | kNumber, .akiIssuer = {"DE", "Hylorn"},
          .akiSerial = {0x01}, .number = {0x07}, .key = key.path};
}
inline crl_test::Entry revoked(u8 a, u8 b) {
  using namespace crl_test;
  return {{a, b}, "20250302000000", kReason | kInvalidity, kReason, 1, "20250301000000"};
}
// clang-format on

// The three encoding calls for c one at a time, so that other work can go between them.
inline unsigned crl_init(const crl_test::Crl& c) {
  return Crypt_Encode_Crl_Init(u8(c.version), static_cast<unsigned short>(c.alg), c.params.data(),
                               unsigned(c.params.size()), IN_SLOTS(c.issuer), c.thisUpdate.c_str(),
                               c.nextUpdate.c_str());
}
inline unsigned crl_update(const crl_test::Entry& e) {
  return Crypt_Encode_Crl_Update(e.serial.data(), unsigned(e.serial.size()), e.revoked.c_str(),
                                 e.ext, e.crit, e.reason, e.invalidity.c_str());
}
inline unsigned crl_final(const crl_test::Crl& c, Bytes* out) {
  out->resize(8192);
  unsigned len = 0;
  const unsigned rc = Crypt_Encode_Crl_Final(
      c.ext, c.crit, IN_SLOTS(c.akiIssuer), c.akiSerial.data(), int(c.akiSerial.size()),
      c.number.data(), unsigned(c.number.size()), c.key.c_str(), "", out->data(), &len);
  out->resize(rc == 0 ? len : 0);
  return rc;
}

inline unsigned encode_pkcs10(u8 version, const Name& s, const KeyFile& key, const char* keyName,
                              Bytes* out) {
  out->resize(HYLORN_PKCS10_DER_SIZE);
  unsigned len = 0;
  const unsigned rc = Crypt_Encode_Pkcs10(version, IN_SLOTS(s), key.pub.data(),
                                          unsigned(key.pub.size()), keyName, "", out->data(), &len);
  out->resize(rc == 0 ? len : 0);
  return rc;
}

// A DER element, and concatenation.
inline Bytes tlv(u8 tag, Bytes c) {
  const std::size_t n = c.size();
  const Bytes head = n < 0x80    ? Bytes{tag, u8(n)}
                     : n < 0x100 ? Bytes{tag, 0x81, u8(n)}
                                 : Bytes{tag, 0x82, u8(n >> 8), u8(n)};
  c.insert(c.begin(), head.begin(), head.end());
  return c;
}
inline Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// SubjectPublicKeyInfo of an RSA key, and tbs wrapped as signed md5WithRSAEncryption by
// nobody: the request readers do not check the signature.
inline Bytes spki(const Bytes& key) {
  return tlv(0x30, from_hex("300D06092A864886F70D0101010500") + tlv(0x03, Bytes{0} + key));
}
inline Bytes signed_by_nobody(const Bytes& tbs) {
  const Bytes md5 = from_hex("300D06092A864886F70D0101040500");
  return tlv(0x30, tbs + md5 + tlv(0x03, Bytes{0} + Bytes(128, 0x33)));
}
inline Bytes spkac(const Bytes& key, const std::string& challenge) {
  return signed_by_nobody(tlv(0x30, spki(key) + tlv(0x16, bytes_of(challenge))));
}
// A PKCS #10 request for key whose only name attribute is a commonName BMPString.
inline Bytes bmp_request(const Bytes& key, const Bytes& bmp) {
  const Bytes cn = tlv(0x31, tlv(0x30, from_hex("0603550403") + tlv(0x1E, bmp)));
  return signed_by_nobody(
      tlv(0x30, from_hex("020100") + tlv(0x30, cn) + spki(key) + Bytes{0xA0, 0}));
}

}  // namespace hardening_test
