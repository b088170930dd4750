// CRLs in the caller's terms, written and read through the six exported functions, and
// the signing key and issuing certificate the OpenSSL cross-checks need.
#pragma once

#include <openssl/x509.h>

#include <array>
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
using Name = std::array<std::string, 16>;  // slot order C, O, OU, ST, CN, L, ...

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

// The entry as the decoder returns it: a decoded InvalidityDate is critical exactly when
// the entry's reason is.
inline Entry as_decoded(Entry e) {
  e.crit &= ~kInvalidity;
  if ((e.ext & kInvalidity) && (e.crit & kReason)) e.crit |= kInvalidity;
  return e;
}

struct Crl {
  u32 version = 1;
  u32 alg = kMd5;
  Bytes params = {0x05, 0x00};
  Name issuer;
  std::string thisUpdate, nextUpdate;
  std::vector<Entry> entries;
  u32 ext = 0, crit = 0;
  Name akiIssuer;
  Bytes akiSerial;
  Bytes number;
  bool operator==(const Crl&) const = default;
};

// A v2 CRL with a few attributes in its issuer and both update times.
Crl base_crl();
// Name with C, O and CN set.
Name name_of(const std::string& c, const std::string& o, const std::string& cn);

// The key everything here signs with: a key file made by Crypt_GenRSAKeyPair in a
// directory that lives as long as the test binary.
struct SigningKey {
  std::string path;
  Bytes pub, pri;  // PKCS #1 DER
};
const SigningKey& signing_key();

// Init, one Update per entry, Final. Empty on failure (the calls' results in *failed_at:
// 1 Init, 2 an Update, 3 Final).
Bytes encode(const Crl& crl, const std::string& key = signing_key().path, int* failed_at = nullptr);
// Init, Update until it answers 1, Final. Nothing when Init fails.
std::optional<Crl> decode(const Bytes& der);

// The first element of a DER CRL: its TBSCertList.
Bytes tbs_of(const Bytes& crl);
// A CRL around tbs with an md5WithRSA algorithm and a dummy signature, for the decoder.
Bytes wrap_tbs(const Bytes& tbs);
// tag, definite length, contents.
Bytes tlv(u8 tag, const Bytes& contents);
Bytes cat(std::initializer_list<Bytes> parts);

// ---- OpenSSL ------------------------------------------------------------------------------

struct X509Free {
  void operator()(X509* x) const { X509_free(x); }
};
struct CrlFree {
  void operator()(X509_CRL* x) const { X509_CRL_free(x); }
};
using X509Ptr = std::unique_ptr<X509, X509Free>;
using CrlPtr = std::unique_ptr<X509_CRL, CrlFree>;

// A self-signed CA certificate for subject, on the signing key.
X509Ptr issuing_certificate(const Name& subject);
CrlPtr openssl_parse(const Bytes& der);
std::string pem_of(X509* cert);
// Runs a command, returning its standard output and whether it exited with 0.
std::pair<std::string, bool> run(const std::string& command);

}  // namespace crl_test
