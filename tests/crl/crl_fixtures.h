// CRLs in the caller's terms, written and read through the six exported functions; the
// same CRL built by OpenSSL's X509_CRL API; the key both sign with.
#pragma once

#include <openssl/x509.h>

#include <array>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "support/hex.h"
#include "support/openssl_rsa.h"

namespace crl_test {

using namespace hylorn_test;
using u8 = unsigned char;
using u32 = unsigned int;
using Name = std::array<std::string, 16>;  // slot order C, O, OU, ST, CN, ...

constexpr u32 kAki = 0x0001, kReason = 0x0400, kInvalidity = 0x0800, kNumber = 0x1000;
constexpr u32 kMd5 = 2, kSha1 = 3;

struct Entry {
  Bytes serial;
  std::string revoked;
  u32 ext = 0, crit = 0, reason = 0;
  std::string invalidity;
  bool operator==(const Entry&) const = default;
};
std::ostream& operator<<(std::ostream& os, const Entry& e);

// The entry as decoding returns it: InvalidityDate is critical exactly when the reason is.
inline Entry as_decoded(Entry e) {
  e.crit &= ~kInvalidity;
  if ((e.ext & kInvalidity) && (e.crit & kReason)) e.crit |= kInvalidity;
  return e;
}

struct Crl {
  u32 version = 1;
  u32 alg = kMd5;
  Bytes params = {0x05, 0x00};
  Name issuer = {"CN", "Hylorn Test CA", "", "", "CRL Issuer"};
  std::string thisUpdate = "20250301120000", nextUpdate = "20250401120000";
  std::vector<Entry> entries;
  u32 ext = 0, crit = 0;
  Name akiIssuer;
  Bytes akiSerial, number;
  bool operator==(const Crl&) const = default;
};

// A key file made by Crypt_GenRSAKeyPair, in a directory that lives as long as the test.
struct SigningKey {
  std::string path;
  Bytes pub, pri;  // PKCS #1 DER
};
const SigningKey& signing_key();

// Init, one Update per entry, Final. Empty on failure, and *failed_at says which call
// failed: 1 Init, 2 an Update, 3 Final.
Bytes encode(const Crl& crl, const std::string& key = signing_key().path, int* failed_at = nullptr);
// Init, Update until it answers 1 (or at most max_entries times), Final. Nothing when
// Init fails.
std::optional<Crl> decode(const Bytes& der, std::size_t max_entries = SIZE_MAX);

// tag, definite length, contents; and concatenation.
Bytes tlv(u8 tag, const Bytes& contents);
Bytes cat(std::initializer_list<Bytes> parts);
// The TBSCertList of a CRL, and a CRL around a TBSCertList with a dummy signature.
Bytes tbs_of(const Bytes& crl);
Bytes wrap_tbs(const Bytes& tbs);

// The CRL OpenSSL writes for crl with the signing key (entries must be in serial order,
// which OpenSSL sorts them into); and a self-signed certificate for the key, in PEM.
Bytes openssl_crl(const Crl& crl, const EVP_MD* md);
std::string issuing_certificate_pem(const Name& subject);
// A command's output (with its errors) and whether it exited with 0.
std::pair<std::string, bool> run(const std::string& command);

}  // namespace crl_test
