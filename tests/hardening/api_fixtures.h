// What the whole-API tests work on: a key pair and its key file, and a certificate (every
// extension the arguments can ask for), a CRL and a request made and signed with it, all
// through the public functions only.
#pragma once

#include <string>

#include "crl/crl_calls.h"
#include "request/request_calls.h"
#include "x509/cert_calls.h"

namespace hardening_test {

using namespace hylorn_test;
using u8 = unsigned char;
using x509_test::Name;

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

}  // namespace hardening_test
