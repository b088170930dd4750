// Bytes out of OpenSSL objects, for cross-checks against OpenSSL.
#pragma once

#include <openssl/asn1.h>
#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "support/hex.h"

namespace hylorn_test {

// The digest OpenSSL computes over n bytes of data (EVP_md5(), EVP_sha1() ...).
inline Bytes openssl_digest(const EVP_MD* md, const unsigned char* data, std::size_t n) {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  if (EVP_Digest(data, n, out, &len, md, nullptr) != 1) throw std::runtime_error("EVP_Digest");
  return Bytes(out, out + len);
}

// The minimal big-endian magnitude of bn (empty for zero).
inline Bytes bn_bytes(const BIGNUM* bn) {
  Bytes out(static_cast<std::size_t>(BN_num_bytes(bn)));
  BN_bn2bin(bn, out.data());
  return out;
}

// The magnitude as decimal text, as OpenSSL prints it.
inline std::string bn_decimal(const Bytes& magnitude) {
  BIGNUM* bn = BN_bin2bn(magnitude.data(), static_cast<int>(magnitude.size()), nullptr);
  char* dec = BN_bn2dec(bn);
  std::string s = dec;
  OPENSSL_free(dec);
  BN_free(bn);
  return s;
}

// The element OpenSSL's ASN1_put_object writes around contents: tag number and class
// (V_ASN1_UNIVERSAL, V_ASN1_CONTEXT_SPECIFIC ...), definite length.
inline Bytes openssl_tlv(bool constructed, int tag, int xclass, const Bytes& contents) {
  const int n = static_cast<int>(contents.size());
  Bytes out(static_cast<std::size_t>(ASN1_object_size(constructed ? 1 : 0, n, tag)));
  unsigned char* p = out.data();
  ASN1_put_object(&p, constructed ? 1 : 0, n, tag, xclass);
  std::copy(contents.begin(), contents.end(), p);
  return out;
}

// The DER an OpenSSL i2d function writes for x (empty when it fails).
template <class T>
Bytes i2d_bytes(int (*i2d)(const T*, unsigned char**), const T* x) {
  unsigned char* der = nullptr;
  const int n = i2d(x, &der);
  Bytes out(der, der + (n > 0 ? n : 0));
  OPENSSL_free(der);
  return out;
}

}  // namespace hylorn_test
