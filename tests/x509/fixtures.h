// The helpers of the certificate tests: DER assembled by hand, OpenSSL's names, the two
// 94-argument certificate functions behind records, a small PKI of library keys in key
// files, and the command-line oracles.
#pragma once

#include <openssl/x509.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cert_calls.h"
#include "common.h"
#include "frame/buffer.h"
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

// Crypt_Get_Err's text for entries, exact to the blank (read_errors() reads " " as "").
std::string entries_text(const Entries& entries);

// Runs an encoder into a fresh buffer; the bytes (empty when it fails), buffer freed.
template <class F>
Bytes encoded(F encode) {
  hylorn::DATA_BUFFER out{0, nullptr};
  const bool ok = encode(&out) == 0;
  Bytes der(out.data, out.data + out.length);
  hylorn::free_DATA_BUFFER(&out);
  return ok ? der : Bytes{};
}

// Runs call with its 1st, 2nd, ... malloc failing until one run allocates no more: each
// failing run answers 1 with fn's entry last (ASan reports what is left allocated).
void expect_allocation_failures_cleaned(int fn, const std::function<unsigned()>& call,
                                        int at_least);

// A caller name with the given (slot, text) pairs, every other slot empty.
hylorn::USER_X500_NAME user_name(const std::vector<std::pair<int, std::string>>& slots);

// i2d_X509_NAME of one attribute per RDN: (OpenSSL's short name, string type, value).
struct OsslAttribute {
  const char* field;
  int type;
  std::string value;
};
Bytes openssl_name(const std::vector<OsslAttribute>& attributes);

// The eleven presence flags of an extension record, in their order; a value worth
// reading back in every extension (the flags choose what is written); all of them.
hylorn::u32* presence(hylorn::CERT_EXTN_INFO& info);
void fill(hylorn::CERT_EXTN_INFO& info, hylorn::u32 critical);
std::unique_ptr<hylorn::CERT_EXTN_INFO> everything();

Name name_of(const char (*slots)[HYLORN_NAME_SIZE]);
unsigned verify_cert(const Bytes& cert, const Bytes& issuer);

// A key pair of the library, its private key in a key file.
struct Key {
  std::string file;
  Bytes pub;
};
// Three keys (root, intermediate, leaf) made once per test binary.
struct Pki {
  TempDir dir;
  Key root, inter, leaf;
};
const Pki& pki();

// The elements inside a constructed element (definite lengths): a certificate's TBS,
// algorithm and signature value, for instance.
std::vector<Bytes> elements(const Bytes& der);

}  // namespace x509_test
