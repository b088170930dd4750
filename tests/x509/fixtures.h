#pragma once

#include <openssl/x509.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "cert_calls.h"
#include "common.h"
#include "frame/buffer.h"
#include "support/fail_malloc.h"
#include "support/openssl_rsa.h"
#include "support/temp_dir.h"
#include "x509/records.h"

namespace x509_test {

using namespace hylorn_test;

inline hylorn::u32 size_of(const Bytes& b) {
  return static_cast<hylorn::u32>(b.size());
}
inline Bytes bytes(const u8* p, unsigned n) {
  return Bytes(p, p + n);
}

// Runs an encoder into a fresh buffer; the bytes (empty when it fails), buffer freed.
template <class F>
Bytes encoded(F encode) {
  hylorn::DATA_BUFFER out{0, nullptr};
  const bool ok = encode(&out) == 0;
  Bytes der(out.data, out.data + out.length);
  hylorn::free_DATA_BUFFER(&out);
  return ok ? der : Bytes{};
}

// i2d_X509_NAME of one attribute per RDN: (OpenSSL's short name, string type, value).
struct OsslAttribute {
  const char* field;
  int type;
  std::string value;
};

// Three OpenSSL keys (root, intermediate, leaf) made once per test binary, each also
// written as the library's key file: its private key DER in the clear.
struct Key {
  std::string file;
  EvpKey evp = openssl_keygen(1024);
  Bytes pub = public_der(evp.get());
};
struct Pki {
  TempDir dir;
  Key root{dir.path("root.key")}, inter{dir.path("inter.key")}, leaf{dir.path("leaf.key")};
  Pki() {
    for (const Key* k : {&root, &inter, &leaf}) write_file(k->file, private_der(k->evp.get()));
  }
};
inline const Pki& pki() {
  static const Pki* p = new Pki;
  return *p;
}

inline hylorn::USER_X500_NAME user_name(const std::vector<std::pair<int, std::string>>& slots) {
  hylorn::USER_X500_NAME name{};
  for (const auto& [slot, text] : slots) std::strncpy(name.slot[slot], text.c_str(), 255);
  return name;
}

inline Bytes openssl_name(const std::vector<OsslAttribute>& attributes) {
  X509_NAME* name = X509_NAME_new();
  for (const OsslAttribute& a : attributes) {
    X509_NAME_add_entry_by_txt(name, a.field, a.type,
                               reinterpret_cast<const unsigned char*>(a.value.data()),
                               static_cast<int>(a.value.size()), -1, 0);
  }
  unsigned char* der = nullptr;
  const int n = i2d_X509_NAME(name, &der);
  Bytes out(der, der + (n > 0 ? n : 0));
  OPENSSL_free(der);
  X509_NAME_free(name);
  return out;
}

inline hylorn::u32* presence(hylorn::CERT_EXTN_INFO& i) {
  return &i.authorityKeyIdentifierPresent;
}

// A value worth reading back in every record; the presence flags choose what is written.
inline void fill(hylorn::CERT_EXTN_INFO& i, hylorn::u32 critical) {
  const auto put = [](u8* field, auto* length, const char* hex) {
    const Bytes b = from_hex(hex);
    std::memcpy(field, b.data(), b.size());
    *length = static_cast<std::remove_reference_t<decltype(*length)>>(b.size());
  };
  auto& a = i.authorityKeyIdentifier;
  a.keyIdentifierPresent = a.authorityCertIssuerPresent = a.nameCount = 1;
  a.authorityCertSerialNumberPresent = 1;
  put(a.keyIdentifier, &a.keyIdentifierLength, "0a0b0c");
  a.authorityCertIssuer[0] = user_name({{0, "CN"}, {4, "Root CA"}});
  // sign bit: padded like a serial
  put(a.authorityCertSerialNumber, &a.authorityCertSerialNumberLength, "81f2");
  put(i.subjectKeyIdentifier.keyIdentifier, &i.subjectKeyIdentifier.keyIdentifierLength,
      "deadbeef");
  auto& p = i.privateKeyUsagePeriod;
  p.notBeforePresent = p.notAfterPresent = 1;
  std::strcpy(p.notBefore, "20250102030405");
  std::strcpy(p.notAfter, "20600708091011");
  auto& c = i.certificatePolicies;
  c.count = 2;
  put(c.policyIdentifier[0], &c.policyIdentifierLength[0], "2a0304");
  std::strcpy(c.qualifier[0], "http://ca.example/cps");
  put(c.policyIdentifier[1], &c.policyIdentifierLength[1], "2b0601040182370a");
  i.basicConstraints = {1, 200, 1, u8(critical)};
  i.keyUsage.bits = 0x80 | 0x20 | 0x04 | 0x8000;
  auto& e = i.extKeyUsage;
  e.count = 2;
  put(e.purpose[0], &e.purposeLength[0], "2b06010505070301");
  put(e.purpose[1], &e.purposeLength[1], "2b06010505070304");
  i.netscapeCertType.bits = 0x80 | 0x40 | 0x04;
  i.setCertType.bits = 0x0100 | 0x02;
  i.setHashedRootKey.length = 20;
  for (u8 k = 0; k < 20; ++k) i.setHashedRootKey.octets[k] = u8(0xa0 + k);
  auto& x = i.privateExtension;
  put(x.identifier, &x.identifierLength, "2a030405");
  put(x.value, &x.valueLength, "0c0141");
  a.critical = i.subjectKeyIdentifier.critical = p.critical = c.critical = i.keyUsage.critical =
      e.critical = i.netscapeCertType.critical = i.setCertType.critical =
          i.setHashedRootKey.critical = x.critical = critical;
}

inline unsigned verify_cert(const Bytes& cert, const Bytes& issuer) {
  return Crypt_Ver_Cert_ByRootCert(cert.data(), unsigned(cert.size()), issuer.data(),
                                   unsigned(issuer.size()));
}

inline Name name_of(const char (*slots)[HYLORN_NAME_SIZE]) {
  Name n;
  for (int i = 0; i < 16; ++i) n[i] = slots[i];
  return n;
}

inline std::size_t element_size(const Bytes& der, std::size_t pos) {
  const u8 first = der[pos + 1];
  if (first < 0x80) return 2 + first;
  std::size_t n = 0;
  for (int i = 0; i < (first & 0x7F); ++i) n = n << 8 | der[pos + 2 + i];
  return 2 + (first & 0x7F) + n;
}

// The elements inside a constructed element (definite lengths).
inline std::vector<Bytes> elements(const Bytes& der) {
  std::vector<Bytes> out;
  for (std::size_t pos = der[1] < 0x80 ? 2 : 2 + (der[1] & 0x7F); pos < der.size();) {
    const std::size_t n = element_size(der, pos);
    out.emplace_back(der.begin() + pos, der.begin() + pos + n);
    pos += n;
  }
  return out;
}

}  // namespace x509_test
