// Helpers shared by the certificate field tests.
#pragma once

#include <openssl/x509.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "frame/buffer.h"
#include "support/error_list.h"
#include "support/hex.h"
#include "x509/records.h"

namespace x509_test {

using hylorn_test::Bytes;

inline hylorn::u32 size_of(const Bytes& b) {
  return static_cast<hylorn::u32>(b.size());
}

// The text Crypt_Get_Err gives for entries, exact to the blank: read_errors() cannot tell
// the message " " from "".
inline std::string entries_text(const hylorn_test::Entries& entries) {
  std::string text;
  for (const auto& e : entries) {
    text += "func_no = " + std::to_string(e.func_no) + " err_no = " + std::to_string(e.err_no) +
            " err_msg = " + e.msg + "\n";
  }
  return text;
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

// A caller name with the given (slot, text) pairs, every other slot empty.
inline hylorn::USER_X500_NAME user_name(const std::vector<std::pair<int, std::string>>& slots) {
  hylorn::USER_X500_NAME name{};
  for (const auto& [slot, text] : slots) std::strncpy(name.slot[slot], text.c_str(), 255);
  return name;
}

// i2d_X509_NAME of one attribute per RDN: (OpenSSL's short name, string type, value).
struct OsslAttribute {
  const char* field;
  int type;
  std::string value;
};
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

}  // namespace x509_test
