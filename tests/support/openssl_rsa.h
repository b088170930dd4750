// OpenSSL as the independent side of RSA key tests: it makes PKCS #1 keys, reads ours and
// checks them, signs, verifies and runs the raw RSA operations.
#pragma once

#include <openssl/evp.h>

#include <memory>

#include "support/hex.h"

namespace hylorn_test {

struct EvpKeyFree {
  void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
};
using EvpKey = std::unique_ptr<EVP_PKEY, EvpKeyFree>;

// A fresh RSA key of the given size with e = 65537.
EvpKey openssl_keygen(unsigned bits);

// PKCS #1 RSAPublicKey / RSAPrivateKey DER of a key, and back (null when OpenSSL refuses).
Bytes public_der(EVP_PKEY* key);
Bytes private_der(EVP_PKEY* key);
EvpKey load_public_der(const Bytes& der);
EvpKey load_private_der(const Bytes& der);

// OpenSSL's own consistency check of a private key (n = pq, d, CRT values).
bool key_checks(EVP_PKEY* key);

// One number of the key (OSSL_PKEY_PARAM_RSA_N, ..._RSA_FACTOR1, ...), big-endian,
// right-aligned in width bytes.
Bytes key_number(EVP_PKEY* key, const char* name, int width);

// PKCS #1 v1.5 signatures through EVP_DigestSign / EVP_DigestVerify.
Bytes openssl_sign(EVP_PKEY* key, const EVP_MD* md, const Bytes& data);
bool openssl_verify(EVP_PKEY* key, const EVP_MD* md, const Bytes& data, const Bytes& sig);

// Raw operations: the public operation that recovers what a private-key block holds (with
// RSA_PKCS1_PADDING or RSA_NO_PADDING), and both directions of PKCS #1 v1.5 encryption.
// Empty on failure.
Bytes openssl_recover(EVP_PKEY* key, const Bytes& sig, int padding);
Bytes openssl_encrypt(EVP_PKEY* key, const Bytes& data);
Bytes openssl_decrypt(EVP_PKEY* key, const Bytes& block);

}  // namespace hylorn_test
