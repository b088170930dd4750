// OpenSSL RSA keys and operations as the reference for our key records and blocks.
#pragma once

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>

#include <memory>
#include <stdexcept>
#include <vector>

#include "bn_oracle.h"
#include "crypto/rsa_keys.h"

namespace hylorn_test {

struct PkeyFree {
  void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
};
using Pkey = std::unique_ptr<EVP_PKEY, PkeyFree>;
using Bytes = std::vector<unsigned char>;

inline void check(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(what);
}

// The numbers of a private key; p > q as our records require.
struct RsaNumbers {
  Bn n, e, d, p, q, dP, dQ, qInv;
};

inline RsaNumbers numbers_of(EVP_PKEY* key) {
  const char* names[] = {OSSL_PKEY_PARAM_RSA_N, OSSL_PKEY_PARAM_RSA_E, OSSL_PKEY_PARAM_RSA_D,
                         OSSL_PKEY_PARAM_RSA_FACTOR1, OSSL_PKEY_PARAM_RSA_FACTOR2};
  BIGNUM* v[5] = {};
  for (int i = 0; i < 5; ++i) check(EVP_PKEY_get_bn_param(key, names[i], &v[i]) == 1, "param");
  RsaNumbers k{Bn(v[0]), Bn(v[1]), Bn(v[2]), Bn(v[3]), Bn(v[4]), new_bn(), new_bn(), new_bn()};
  if (BN_cmp(k.p.get(), k.q.get()) < 0) std::swap(k.p, k.q);
  BnCtx ctx(BN_CTX_new());
  Bn pm1 = new_bn(), qm1 = new_bn();
  BN_sub(pm1.get(), k.p.get(), BN_value_one());
  BN_sub(qm1.get(), k.q.get(), BN_value_one());
  BN_mod(k.dP.get(), k.d.get(), pm1.get(), ctx.get());
  BN_mod(k.dQ.get(), k.d.get(), qm1.get(), ctx.get());
  BN_mod_inverse(k.qInv.get(), k.q.get(), k.p.get(), ctx.get());
  return k;
}

inline void put(unsigned char* field, int width, const Bn& v) {
  check(BN_bn2binpad(v.get(), field, width) == width, "field width");
}

inline hylorn::RSA_PRIVATE_KEY private_record(const RsaNumbers& k) {
  hylorn::RSA_PRIVATE_KEY r{};
  r.bits = static_cast<hylorn::u16>(BN_num_bits(k.n.get()));
  put(r.modulus, 128, k.n);
  put(r.publicExponent, 128, k.e);
  put(r.exponent, 128, k.d);
  put(r.prime[0], 64, k.p);
  put(r.prime[1], 64, k.q);
  put(r.primeExponent[0], 64, k.dP);
  put(r.primeExponent[1], 64, k.dQ);
  put(r.coefficient, 64, k.qInv);
  return r;
}

inline hylorn::RSA_PUBLIC_KEY public_record(const RsaNumbers& k) {
  hylorn::RSA_PUBLIC_KEY r{};
  r.bits = static_cast<hylorn::u16>(BN_num_bits(k.n.get()));
  put(r.modulus, 128, k.n);
  put(r.exponent, 128, k.e);
  return r;
}

inline Bn field_bn(const unsigned char* field, int width) {
  return Bn(BN_bin2bn(field, width, nullptr));
}

// An OpenSSL key holding exactly the numbers of our private record.
inline Pkey pkey_of(const hylorn::RSA_PRIVATE_KEY& r) {
  Bn v[] = {field_bn(r.modulus, 128),          field_bn(r.publicExponent, 128),
            field_bn(r.exponent, 128),         field_bn(r.prime[0], 64),
            field_bn(r.prime[1], 64),          field_bn(r.primeExponent[0], 64),
            field_bn(r.primeExponent[1], 64),  field_bn(r.coefficient, 64)};
  const char* names[] = {OSSL_PKEY_PARAM_RSA_N,         OSSL_PKEY_PARAM_RSA_E,
                         OSSL_PKEY_PARAM_RSA_D,         OSSL_PKEY_PARAM_RSA_FACTOR1,
                         OSSL_PKEY_PARAM_RSA_FACTOR2,   OSSL_PKEY_PARAM_RSA_EXPONENT1,
                         OSSL_PKEY_PARAM_RSA_EXPONENT2, OSSL_PKEY_PARAM_RSA_COEFFICIENT1};
  OSSL_PARAM_BLD* bld = OSSL_PARAM_BLD_new();
  for (int i = 0; i < 8; ++i) OSSL_PARAM_BLD_push_BN(bld, names[i], v[i].get());
  OSSL_PARAM* params = OSSL_PARAM_BLD_to_param(bld);
  EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
  EVP_PKEY* key = nullptr;
  bool ok = EVP_PKEY_fromdata_init(ctx) == 1 &&
            EVP_PKEY_fromdata(ctx, &key, EVP_PKEY_KEYPAIR, params) == 1;
  EVP_PKEY_CTX_free(ctx);
  OSSL_PARAM_free(params);
  OSSL_PARAM_BLD_free(bld);
  check(ok, "EVP_PKEY_fromdata");
  return Pkey(key);
}

inline Pkey generate_openssl_key(unsigned bits, unsigned long e) {
  EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
  Bn pub = bn_word(e);
  EVP_PKEY* key = nullptr;
  bool ok = EVP_PKEY_keygen_init(ctx) == 1 && EVP_PKEY_CTX_set_rsa_keygen_bits(ctx, bits) == 1 &&
            EVP_PKEY_CTX_set1_rsa_keygen_pubexp(ctx, pub.get()) == 1 &&
            EVP_PKEY_generate(ctx, &key) == 1;
  EVP_PKEY_CTX_free(ctx);
  check(ok, "keygen");
  return Pkey(key);
}

enum class Op { encrypt, decrypt, sign, verify_recover };

// One OpenSSL RSA operation with the given padding; empty on failure.
inline Bytes openssl_rsa(EVP_PKEY* key, Op op, int padding, const Bytes& in) {
  EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(key, nullptr);
  using Init = int (*)(EVP_PKEY_CTX*);
  using Run = int (*)(EVP_PKEY_CTX*, unsigned char*, size_t*, const unsigned char*, size_t);
  Init init[] = {EVP_PKEY_encrypt_init, EVP_PKEY_decrypt_init, EVP_PKEY_sign_init,
                 EVP_PKEY_verify_recover_init};
  Run run[] = {EVP_PKEY_encrypt, EVP_PKEY_decrypt, EVP_PKEY_sign, EVP_PKEY_verify_recover};
  int i = static_cast<int>(op);
  Bytes out(512);
  size_t len = out.size();
  bool ok = init[i](ctx) == 1 && EVP_PKEY_CTX_set_rsa_padding(ctx, padding) == 1 &&
            run[i](ctx, out.data(), &len, in.data(), in.size()) == 1;
  EVP_PKEY_CTX_free(ctx);
  out.resize(ok ? len : 0);
  return out;
}

}  // namespace hylorn_test
