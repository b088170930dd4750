// CRLs in the caller's terms, written and read through the six exported functions, and
// the same CRL built by OpenSSL's X509_CRL API.
#pragma once

#include <gtest/gtest.h>
#include <openssl/x509v3.h>

#include <memory>
#include <optional>

#include "support/openssl_bytes.h"
#include "support/openssl_rsa.h"
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

// What decoding gives back for c: only the two CRL extensions, and an InvalidityDate
// critical exactly when the entry's reason is.
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

// Init, one Update per entry, Final. Empty on failure, and *failed_at says which call
// failed: 1 Init, 2 an Update, 3 Final (0 when none did).
inline Bytes encode(const Crl& c, int* failed_at = nullptr) {
  int ignored = 0;
  int& step = failed_at != nullptr ? *failed_at : ignored;
  Bytes out(8192 + 256 * c.entries.size());
  u32 outLen = 0;
  step = 1;
  if (Crypt_Encode_Crl_Init(u8(c.version), static_cast<unsigned short>(c.alg), c.params.data(),
                            u32(c.params.size()), IN_SLOTS(c.issuer), c.thisUpdate.c_str(),
                            c.nextUpdate.c_str()) != 0) {
    return {};
  }
  step = 2;
  for (const Entry& e : c.entries) {
    if (Crypt_Encode_Crl_Update(e.serial.data(), u32(e.serial.size()), e.revoked.c_str(), e.ext,
                                e.crit, e.reason, e.invalidity.c_str()) != 0) {
      return {};
    }
  }
  step = 3;
  if (Crypt_Encode_Crl_Final(c.ext, c.crit, IN_SLOTS(c.akiIssuer), c.akiSerial.data(),
                             int(c.akiSerial.size()), c.number.data(), u32(c.number.size()),
                             (c.key.empty() ? library_key().path : c.key).c_str(), "", out.data(),
                             &outLen) != 0) {
    return {};
  }
  step = 0;
  out.resize(outLen);
  return out;
}

// Init, Update until it answers 1 (or max_entries times), Final; nothing when Init
// fails. The flag words start as garbage, so that a flag left unset shows.
inline std::optional<Crl> decode(const Bytes& der, std::size_t max_entries = SIZE_MAX) {
  Crl c{.ext = ~0u, .crit = ~0u};
  void* handle = nullptr;
  char name[16][HYLORN_NAME_SIZE] = {}, aki[16][HYLORN_NAME_SIZE] = {};
  char thisUpdate[HYLORN_TIME_SIZE], nextUpdate[HYLORN_TIME_SIZE];
  u8 params[HYLORN_PARAMS_SIZE], serial[HYLORN_SERIAL_SIZE], number[128];
  u32 paramsLen = 0, serialLen = 0, numberLen = 0;
  if (Crypt_Decode_Crl_Init(&handle, der.data(), u32(der.size()), &c.version, &c.alg, params,
                            &paramsLen, OUT_SLOTS(name), thisUpdate, nextUpdate) != 0) {
    return std::nullopt;
  }
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

// ---- OpenSSL ---------------------------------------------------------------------------

// One RDN per attribute, as PrintableString, in slot order C, O, OU, ST, CN.
inline X509_NAME* printable_name(const Name& n) {
  X509_NAME* name = X509_NAME_new();
  const char* fields[] = {"C", "O", "OU", "ST", "CN"};
  for (int i = 0; i < 5; ++i) {
    if (n[i].empty()) continue;
    X509_NAME_add_entry_by_txt(name, fields[i], V_ASN1_PRINTABLESTRING,
                               reinterpret_cast<const u8*>(n[i].c_str()), -1, -1, 0);
  }
  return name;
}

// UTCTime through 2049, GeneralizedTime from 2050 on (RFC 5280, 4.1.2.5).
inline ASN1_TIME* time_of(const std::string& t) {
  ASN1_TIME* out = ASN1_TIME_new();
  ASN1_TIME_set_string(out, ((t >= "2050" ? t : t.substr(2)) + "Z").c_str());
  return out;
}

// OpenSSL's setters copy their argument, so it is freed after the call.
template <class T>
std::unique_ptr<T, void (*)(T*)> owned(T* object, void (*free)(T*)) {
  return {object, free};
}

inline ASN1_INTEGER* integer_of(const Bytes& m) {
  return BN_to_ASN1_INTEGER(owned(BN_bin2bn(m.data(), int(m.size()), nullptr), BN_free).get(),
                            nullptr);
}

// The CRL OpenSSL writes and signs for c (entries in serial order, as it sorts them).
inline Bytes openssl_crl(const Crl& c, const EVP_MD* md) {
  auto crl = owned(X509_CRL_new(), X509_CRL_free);
  X509_CRL_set_version(crl.get(), c.version);
  X509_CRL_set_issuer_name(crl.get(), owned(printable_name(c.issuer), X509_NAME_free).get());
  X509_CRL_set1_lastUpdate(crl.get(), owned(time_of(c.thisUpdate), ASN1_TIME_free).get());
  if (!c.nextUpdate.empty()) {
    X509_CRL_set1_nextUpdate(crl.get(), owned(time_of(c.nextUpdate), ASN1_TIME_free).get());
  }
  for (const Entry& e : c.entries) {
    X509_REVOKED* r = X509_REVOKED_new();
    X509_REVOKED_set_serialNumber(r, owned(integer_of(e.serial), ASN1_INTEGER_free).get());
    X509_REVOKED_set_revocationDate(r, owned(time_of(e.revoked), ASN1_TIME_free).get());
    if (e.ext & kReason) {
      auto code = owned(ASN1_ENUMERATED_new(), ASN1_ENUMERATED_free);
      ASN1_ENUMERATED_set_int64(code.get(), int64_t(e.reason));
      X509_REVOKED_add1_ext_i2d(r, NID_crl_reason, code.get(), (e.crit & kReason) != 0, 0);
    }
    if (e.ext & kInvalidity) {
      auto when = owned(ASN1_GENERALIZEDTIME_new(), ASN1_GENERALIZEDTIME_free);
      ASN1_GENERALIZEDTIME_set_string(when.get(), (e.invalidity + "Z").c_str());
      X509_REVOKED_add1_ext_i2d(r, NID_invalidity_date, when.get(), (e.crit & kInvalidity) != 0, 0);
    }
    X509_CRL_add0_revoked(crl.get(), r);
  }
  if (c.ext & kAki) {
    auto aki = owned(AUTHORITY_KEYID_new(), AUTHORITY_KEYID_free);
    aki->issuer = GENERAL_NAMES_new();
    GENERAL_NAME* gn = GENERAL_NAME_new();
    GENERAL_NAME_set0_value(gn, GEN_DIRNAME, printable_name(c.akiIssuer));
    sk_GENERAL_NAME_push(aki->issuer, gn);
    aki->serial = integer_of(c.akiSerial);
    X509_CRL_add1_ext_i2d(crl.get(), NID_authority_key_identifier, aki.get(), c.crit & kAki, 0);
  }
  if (c.ext & kNumber) {
    X509_CRL_add1_ext_i2d(crl.get(), NID_crl_number,
                          owned(integer_of(c.number), ASN1_INTEGER_free).get(),
                          (c.crit & kNumber) != 0, 0);
  }
  const EvpKey key = load_private_der(library_key().pri);
  return X509_CRL_sign(crl.get(), key.get(), md) > 0 ? i2d_bytes(i2d_X509_CRL, crl.get()) : Bytes{};
}

}  // namespace crl_test
