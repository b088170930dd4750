// OpenSSL as the independent side of RSA key tests: it makes PKCS #1 keys, reads ours and
// checks them, signs, verifies and runs the raw RSA operations.
#pragma once

#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <array>
#include <memory>

#include "support/hex.h"

namespace hylorn_test {

struct EvpKeyFree {
  void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
};
using EvpKey = std::unique_ptr<EVP_PKEY, EvpKeyFree>;

// A fresh RSA key of the given size and public exponent.
EvpKey openssl_keygen(unsigned bits, unsigned long e = 65537);
// The key made of the given big-endian numbers, in the order n, e, d, p, q, d mod (p - 1),
// d mod (q - 1), q^-1 mod p (throws when OpenSSL refuses them).
EvpKey key_from_numbers(const std::array<Bytes, 8>& numbers);

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

// Raw operations: the public operation that recovers what a private-key block holds,
// the private operation that makes one (a type-1 block around data, no digest), and both
// directions of encryption; RSA_PKCS1_PADDING or RSA_NO_PADDING. Empty on failure.
Bytes openssl_recover(EVP_PKEY* key, const Bytes& sig, int padding);
Bytes openssl_sign_block(EVP_PKEY* key, const Bytes& data, int padding = RSA_PKCS1_PADDING);
Bytes openssl_encrypt(EVP_PKEY* key, const Bytes& data, int padding = RSA_PKCS1_PADDING);
Bytes openssl_decrypt(EVP_PKEY* key, const Bytes& block, int padding = RSA_PKCS1_PADDING);

}  // namespace hylorn_test
