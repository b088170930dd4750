#pragma once

#include <openssl/x509.h>

#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "cert_calls.h"
#include "common.h"
#include "frame/buffer.h"
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

// One attribute per RDN for i2d_X509_NAME: OpenSSL's short name, string type, value.
using OsslAttribute = std::tuple<const char*, int, std::string>;

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
  for (const auto& [field, type, value] : attributes) {
    X509_NAME_add_entry_by_txt(name, field, type,
                               reinterpret_cast<const unsigned char*>(value.data()),
                               static_cast<int>(value.size()), -1, 0);
  }
  unsigned char* der = nullptr;
  const int n = i2d_X509_NAME(name, &der);
  Bytes out(der, der + (n > 0 ? n : 0));
  OPENSSL_free(der);
  X509_NAME_free(name);
  return out;
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

// The elements inside a constructed element, as OpenSSL's parser finds them.
inline std::vector<Bytes> elements(const Bytes& der) {
  const unsigned char* p = der.data();
  long n = 0;
  int tag = 0, xclass = 0;
  ASN1_get_object(&p, &n, &tag, &xclass, long(der.size()));
  std::vector<Bytes> out;
  for (const unsigned char *end = p + n, *start = p; p < end; start = p) {
    ASN1_get_object(&p, &n, &tag, &xclass, end - p);
    out.emplace_back(start, p += n);
  }
  return out;
}

}  // namespace x509_test
