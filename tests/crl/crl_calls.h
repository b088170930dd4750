// CRLs in the caller's terms, written and read through the six exported functions.
#pragma once
#include <optional>
#include <string>
#include <vector>

#include "hylorn.h"
#include "x509/cert_calls.h"
#include "x509/common.h"

namespace crl_test {

using namespace hylorn_test;
using u8 = unsigned char;
using u32 = unsigned int;
using x509_test::Name;

constexpr u32 kAki = 0x0001, kReason = 0x0400, kInvalidity = 0x0800, kNumber = 0x1000;
constexpr u32 kMd5 = 2, kSha1 = 3;

struct Entry {
  Bytes serial;
  std::string revoked;
  u32 ext = 0, crit = 0, reason = 0;
  std::string invalidity;
  bool operator==(const Entry&) const = default;
};

struct Crl {
  u32 version = 1, alg = kMd5;
  Bytes params = {0x05, 0x00};
  Name issuer = {"CN", "Hylorn Test CA", "", "", "CRL Issuer"};
  std::string thisUpdate = "20250301120000", nextUpdate = "20250401120000";
  std::vector<Entry> entries;
  u32 ext = 0, crit = 0;
  Name akiIssuer;
  Bytes akiSerial, number;
  std::string key;  // the key file Final signs with; empty for library_key()
  bool operator==(const Crl&) const = default;
};

// Only the two CRL extensions come back; InvalidityDate is critical when the reason is.
inline Crl as_decoded(Crl c) {
  c.ext &= kAki | kNumber;
  c.crit &= c.ext;
  if (!(c.ext & kAki)) c.akiIssuer = {}, c.akiSerial = {};
  if (!(c.ext & kNumber)) c.number = {};
  for (Entry& e : c.entries) {
    e.crit = (e.crit & kReason) && (e.ext & kInvalidity) ? kReason | kInvalidity : e.crit & kReason;
  }
  c.key = "";
  return c;
}

// The three encoding calls one at a time, so that other work can go between them.
inline unsigned crl_init(const Crl& c) {
  return Crypt_Encode_Crl_Init(u8(c.version), static_cast<unsigned short>(c.alg), c.params.data(),
                               u32(c.params.size()), IN_SLOTS(c.issuer), c.thisUpdate.c_str(),
                               c.nextUpdate.c_str());
}
inline unsigned crl_update(const Entry& e) {
  return Crypt_Encode_Crl_Update(e.serial.data(), u32(e.serial.size()), e.revoked.c_str(), e.ext,
                                 e.crit, e.reason, e.invalidity.c_str());
}
// Empty on failure. A refusal answers 1, from each of the calls.
inline Bytes crl_final(const Crl& c) {
  Bytes out(8192 + 256 * c.entries.size());
  u32 outLen = 0;
  const unsigned rc = Crypt_Encode_Crl_Final(
      c.ext, c.crit, IN_SLOTS(c.akiIssuer), c.akiSerial.data(), int(c.akiSerial.size()),
      c.number.data(), u32(c.number.size()), (c.key.empty() ? library_key().path : c.key).c_str(),
      "", out.data(), &outLen);
  EXPECT_LE(rc, 1u);
  out.resize(rc == 0 ? outLen : 0);
  return out;
}

// Empty on failure; *failed_at: 1 Init, 2 an Update, 3 Final, 0 none.
inline Bytes encode(const Crl& c, int* failed_at = nullptr) {
  const auto refused = [](unsigned rc) {
    EXPECT_LE(rc, 1u);
    return rc != 0;
  };
  int step = refused(crl_init(c)) ? 1 : 0;
  for (std::size_t i = 0; step == 0 && i < c.entries.size(); ++i) {
    if (refused(crl_update(c.entries[i]))) step = 2;
  }
  Bytes out = step == 0 ? crl_final(c) : Bytes{};
  if (step == 0 && out.empty()) step = 3;
  if (failed_at != nullptr) *failed_at = step;
  return out;
}

// The flag words start as garbage, so that a flag left unset shows.
inline std::optional<Crl> decode(const Bytes& der, std::size_t max_entries = SIZE_MAX) {
  Crl c{.ext = ~0u, .crit = ~0u};
  void* handle = nullptr;
  char name[16][HYLORN_NAME_SIZE] = {}, aki[16][HYLORN_NAME_SIZE] = {};
  char thisUpdate[HYLORN_TIME_SIZE], nextUpdate[HYLORN_TIME_SIZE];
  u8 params[HYLORN_PARAMS_SIZE], serial[HYLORN_SERIAL_SIZE], number[128];
  u32 paramsLen = 0, serialLen = 0, numberLen = 0;
  const unsigned rc =
      Crypt_Decode_Crl_Init(&handle, der.data(), u32(der.size()), &c.version, &c.alg, params,
                            &paramsLen, OUT_SLOTS(name), thisUpdate, nextUpdate);
  EXPECT_LE(rc, 1u);  // a refusal answers 1
  if (rc != 0) return std::nullopt;
  c.params.assign(params, params + paramsLen);
  std::copy(std::begin(name), std::end(name), c.issuer.begin());
  c.thisUpdate = thisUpdate;
  c.nextUpdate = nextUpdate;
  for (Entry e{.ext = ~0u, .crit = ~0u}; c.entries.size() < max_entries;
       e = {.ext = ~0u, .crit = ~0u}) {
    char revoked[HYLORN_TIME_SIZE] = {}, invalidity[HYLORN_TIME_SIZE] = {};
    if (Crypt_Decode_Crl_Update(handle, serial, &serialLen, revoked, &e.ext, &e.crit, &e.reason,
                                invalidity) != 0) {
      break;
    }
    e.serial.assign(serial, serial + serialLen);
    e.revoked = revoked;
    e.invalidity = invalidity;
    c.entries.push_back(e);
  }
  serialLen = 0;
  Crypt_Decode_Crl_Final(handle, &c.ext, &c.crit, OUT_SLOTS(aki), serial, &serialLen, number,
                         &numberLen);
  std::copy(std::begin(aki), std::end(aki), c.akiIssuer.begin());
  c.akiSerial.assign(serial, serial + serialLen);
  c.number.assign(number, number + numberLen);
  return c;
}

}  // namespace crl_test
