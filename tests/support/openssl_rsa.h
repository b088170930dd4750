// OpenSSL as the independent side of RSA key tests: it makes PKCS #1 keys, reads ours and
// checks them, signs, verifies and runs the raw RSA operations.
#pragma once

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <array>
#include <memory>
#include <stdexcept>

#include "support/hex.h"

namespace hylorn_test {

struct EvpKeyFree {
  void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
  void operator()(EVP_PKEY_CTX* c) const { EVP_PKEY_CTX_free(c); }
  void operator()(EVP_MD_CTX* c) const { EVP_MD_CTX_free(c); }
};
using EvpKey = std::unique_ptr<EVP_PKEY, EvpKeyFree>;

namespace openssl_detail {

using PkeyCtx = std::unique_ptr<EVP_PKEY_CTX, EvpKeyFree>;
using MdCtx = std::unique_ptr<EVP_MD_CTX, EvpKeyFree>;

inline void require(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(what);
}

inline Bytes der_of(EVP_PKEY* key, int (*encode)(const EVP_PKEY*, unsigned char**)) {
  Bytes out(static_cast<std::size_t>(std::max(encode(key, nullptr), 0)));
  unsigned char* p = out.data();
  require(!out.empty() && encode(key, &p) == int(out.size()), "i2d");
  return out;
}

inline EvpKey load_der(const Bytes& der, decltype(&d2i_PublicKey) decode) {
  const unsigned char* p = der.data();
  return EvpKey(decode(EVP_PKEY_RSA, nullptr, &p, static_cast<long>(der.size())));
}

// One raw operation (encrypt, decrypt, verify-recover) into a block-sized buffer.
template <class Init, class Run>
Bytes run_raw(EVP_PKEY* key, int padding, const Bytes& in, Init init, Run run) {
  PkeyCtx ctx(EVP_PKEY_CTX_new(key, nullptr));
  require(ctx != nullptr, "EVP_PKEY_CTX_new");
  if (init(ctx.get()) <= 0 || EVP_PKEY_CTX_set_rsa_padding(ctx.get(), padding) <= 0) return {};
  Bytes out(static_cast<std::size_t>(EVP_PKEY_get_size(key)));
  std::size_t n = out.size();
  if (run(ctx.get(), out.data(), &n, in.data(), in.size()) <= 0) return {};
  out.resize(n);
  return out;
}

}  // namespace openssl_detail

// A fresh RSA key of the given size and public exponent.
inline EvpKey openssl_keygen(unsigned bits, unsigned long e = 65537) {
  openssl_detail::PkeyCtx ctx(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
  BIGNUM* pub = BN_new();
  EVP_PKEY* key = nullptr;
  const bool ok = pub != nullptr && BN_set_word(pub, e) == 1 &&
                  EVP_PKEY_keygen_init(ctx.get()) == 1 &&
                  EVP_PKEY_CTX_set_rsa_keygen_bits(ctx.get(), static_cast<int>(bits)) == 1 &&
                  EVP_PKEY_CTX_set1_rsa_keygen_pubexp(ctx.get(), pub) == 1 &&
                  EVP_PKEY_generate(ctx.get(), &key) == 1;
  BN_free(pub);
  openssl_detail::require(ok, "RSA key generation");
  return EvpKey(key);
}

// The key made of the given big-endian numbers, in the order n, e, d, p, q, d mod (p - 1),
// d mod (q - 1), q^-1 mod p (throws when OpenSSL refuses them).
inline EvpKey key_from_numbers(const std::array<Bytes, 8>& numbers) {
  static const char* const names[] = {
      OSSL_PKEY_PARAM_RSA_N,         OSSL_PKEY_PARAM_RSA_E,           OSSL_PKEY_PARAM_RSA_D,
      OSSL_PKEY_PARAM_RSA_FACTOR1,   OSSL_PKEY_PARAM_RSA_FACTOR2,     OSSL_PKEY_PARAM_RSA_EXPONENT1,
      OSSL_PKEY_PARAM_RSA_EXPONENT2, OSSL_PKEY_PARAM_RSA_COEFFICIENT1};
  OSSL_PARAM_BLD* bld = OSSL_PARAM_BLD_new();
  std::array<BIGNUM*, 8> bns{};
  for (std::size_t i = 0; i < bns.size(); ++i) {
    bns[i] = BN_bin2bn(numbers[i].data(), static_cast<int>(numbers[i].size()), nullptr);
    OSSL_PARAM_BLD_push_BN(bld, names[i], bns[i]);
  }
  OSSL_PARAM* params = OSSL_PARAM_BLD_to_param(bld);
  openssl_detail::PkeyCtx ctx(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
  EVP_PKEY* key = nullptr;
  const bool ok = EVP_PKEY_fromdata_init(ctx.get()) == 1 &&
                  EVP_PKEY_fromdata(ctx.get(), &key, EVP_PKEY_KEYPAIR, params) == 1;
  OSSL_PARAM_free(params);
  OSSL_PARAM_BLD_free(bld);
  for (BIGNUM* bn : bns) BN_free(bn);
  openssl_detail::require(ok, "EVP_PKEY_fromdata");
  return EvpKey(key);
}

// PKCS #1 RSAPublicKey / RSAPrivateKey DER of a key, and back (null when OpenSSL refuses).
inline Bytes public_der(EVP_PKEY* key) {
  return openssl_detail::der_of(key, i2d_PublicKey);
}
inline Bytes private_der(EVP_PKEY* key) {
  return openssl_detail::der_of(key, i2d_PrivateKey);
}
inline EvpKey load_public_der(const Bytes& der) {
  return openssl_detail::load_der(der, d2i_PublicKey);
}
inline EvpKey load_private_der(const Bytes& der) {
  return openssl_detail::load_der(der, d2i_PrivateKey);
}

// OpenSSL's own consistency check of a private key (n = pq, d, CRT values).
inline bool key_checks(EVP_PKEY* key) {
  openssl_detail::PkeyCtx ctx(EVP_PKEY_CTX_new(key, nullptr));
  return ctx != nullptr && EVP_PKEY_check(ctx.get()) == 1;
}

// One number of the key (OSSL_PKEY_PARAM_RSA_N, ..._RSA_FACTOR1, ...), big-endian,
// right-aligned in width bytes.
inline Bytes key_number(EVP_PKEY* key, const char* name, int width) {
  BIGNUM* bn = nullptr;
  openssl_detail::require(EVP_PKEY_get_bn_param(key, name, &bn) == 1, name);
  Bytes out(static_cast<std::size_t>(width));
  const int written = BN_bn2binpad(bn, out.data(), width);
  BN_free(bn);
  openssl_detail::require(written == width, "BN_bn2binpad");
  return out;
}

// PKCS #1 v1.5 signatures through EVP_DigestSign / EVP_DigestVerify.
inline Bytes openssl_sign(EVP_PKEY* key, const EVP_MD* md, const Bytes& data) {
  openssl_detail::MdCtx ctx(EVP_MD_CTX_new());
  Bytes sig(static_cast<std::size_t>(EVP_PKEY_get_size(key)));
  std::size_t n = sig.size();
  openssl_detail::require(
      EVP_DigestSignInit(ctx.get(), nullptr, md, nullptr, key) == 1 &&
          EVP_DigestSign(ctx.get(), sig.data(), &n, data.data(), data.size()) == 1,
      "EVP_DigestSign");
  sig.resize(n);
  return sig;
}
inline bool openssl_verify(EVP_PKEY* key, const EVP_MD* md, const Bytes& data, const Bytes& sig) {
  openssl_detail::MdCtx ctx(EVP_MD_CTX_new());
  openssl_detail::require(EVP_DigestVerifyInit(ctx.get(), nullptr, md, nullptr, key) == 1,
                          "DigestVerifyInit");
  return EVP_DigestVerify(ctx.get(), sig.data(), sig.size(), data.data(), data.size()) == 1;
}

// Raw operations: the public operation that recovers what a private-key block holds,
// the private operation that makes one (a type-1 block around data, no digest), and both
// directions of encryption; RSA_PKCS1_PADDING or RSA_NO_PADDING. Empty on failure.
inline Bytes openssl_recover(EVP_PKEY* key, const Bytes& sig, int padding) {
  return openssl_detail::run_raw(key, padding, sig, EVP_PKEY_verify_recover_init,
                                 EVP_PKEY_verify_recover);
}
inline Bytes openssl_sign_block(EVP_PKEY* key, const Bytes& data, int padding = RSA_PKCS1_PADDING) {
  return openssl_detail::run_raw(key, padding, data, EVP_PKEY_sign_init, EVP_PKEY_sign);
}
inline Bytes openssl_encrypt(EVP_PKEY* key, const Bytes& data, int padding = RSA_PKCS1_PADDING) {
  return openssl_detail::run_raw(key, padding, data, EVP_PKEY_encrypt_init, EVP_PKEY_encrypt);
}
inline Bytes openssl_decrypt(EVP_PKEY* key, const Bytes& block, int padding = RSA_PKCS1_PADDING) {
  return openssl_detail::run_raw(key, padding, block, EVP_PKEY_decrypt_init, EVP_PKEY_decrypt);
}

}  // namespace hylorn_test
