// Small helpers shared by the certificate field tests: owned bytes out of the library's
// records, caller names filled slot by slot, and OpenSSL-built names.
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

// The list text Crypt_Get_Err gives for entries, exact to the blank (read_errors() cannot
// tell the message " " from "").
inline std::string entries_text(const hylorn_test::Entries& entries) {
  std::string text;
  for (const hylorn_test::ErrEntry& e : entries) {
    text += "func_no = " + std::to_string(e.func_no) + " err_no = " + std::to_string(e.err_no) +
            " err_msg = " + e.msg + "\n";
  }
  return text;
}

// The bytes of buf; buf is freed.
inline Bytes take(hylorn::DATA_BUFFER* buf) {
  Bytes out(buf->data, buf->data + buf->length);
  hylorn::free_DATA_BUFFER(buf);
  return out;
}

// Runs an encoder into a fresh buffer; empty bytes when it fails.
template <class F>
Bytes encoded(F encode) {
  hylorn::DATA_BUFFER out{0, nullptr};
  if (encode(&out) != 0) return {};
  return take(&out);
}

// A caller name with the given (slot, text) pairs and every other slot empty.
inline hylorn::USER_X500_NAME user_name(const std::vector<std::pair<int, std::string>>& slots) {
  hylorn::USER_X500_NAME name{};
  for (const auto& [slot, text] : slots) {
    std::strncpy(name.slot[slot], text.c_str(), hylorn::kNameSlotSize - 1);
  }
  return name;
}

// One attribute for OpenSSL: the object identifier text, the string type, the value.
struct OsslAttribute {
  const char* oid;
  int type;  // V_ASN1_PRINTABLESTRING, V_ASN1_IA5STRING, V_ASN1_T61STRING, ...
  std::string value;
};

// i2d_X509_NAME of a name with one attribute per RDN, in the given order.
inline Bytes openssl_name(const std::vector<OsslAttribute>& attributes) {
  X509_NAME* name = X509_NAME_new();
  for (const OsslAttribute& a : attributes) {
    X509_NAME_add_entry_by_txt(name, a.oid, a.type,
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
