// Bytes out of OpenSSL objects, for cross-checks against OpenSSL.
#pragma once

#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <string>

#include "support/hex.h"

namespace hylorn_test {

// The digest OpenSSL computes over n bytes of data (EVP_md5(), EVP_sha1() ...).
Bytes openssl_digest(const EVP_MD* md, const unsigned char* data, std::size_t n);

// The minimal big-endian magnitude of bn (empty for zero).
Bytes bn_bytes(const BIGNUM* bn);
// The magnitude as decimal text, as OpenSSL prints it.
std::string bn_decimal(const Bytes& magnitude);

// The element OpenSSL's ASN1_put_object writes around contents: tag number and class
// (V_ASN1_UNIVERSAL, V_ASN1_CONTEXT_SPECIFIC ...), definite length.
Bytes openssl_tlv(bool constructed, int tag, int xclass, const Bytes& contents);

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
