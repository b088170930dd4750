#include "support/openssl_rsa.h"

#include <openssl/bn.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <stdexcept>

namespace hylorn_test {
namespace {

struct CtxFree {
  void operator()(EVP_PKEY_CTX* c) const { EVP_PKEY_CTX_free(c); }
  void operator()(EVP_MD_CTX* c) const { EVP_MD_CTX_free(c); }
};
using PkeyCtx = std::unique_ptr<EVP_PKEY_CTX, CtxFree>;
using MdCtx = std::unique_ptr<EVP_MD_CTX, CtxFree>;

void require(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(what);
}

Bytes der_of(EVP_PKEY* key, int (*encode)(const EVP_PKEY*, unsigned char**)) {
  Bytes out(static_cast<std::size_t>(std::max(encode(key, nullptr), 0)));
  unsigned char* p = out.data();
  require(!out.empty() && encode(key, &p) == int(out.size()), "i2d");
  return out;
}

EvpKey load_der(const Bytes& der, decltype(&d2i_PublicKey) decode) {
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

}  // namespace

EvpKey openssl_keygen(unsigned bits) {
  EVP_PKEY* key = EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", static_cast<std::size_t>(bits));
  require(key != nullptr, "EVP_PKEY_Q_keygen");
  return EvpKey(key);
}

Bytes public_der(EVP_PKEY* key) {
  return der_of(key, i2d_PublicKey);
}
Bytes private_der(EVP_PKEY* key) {
  return der_of(key, i2d_PrivateKey);
}
EvpKey load_public_der(const Bytes& der) {
  return load_der(der, d2i_PublicKey);
}
EvpKey load_private_der(const Bytes& der) {
  return load_der(der, d2i_PrivateKey);
}

bool key_checks(EVP_PKEY* key) {
  PkeyCtx ctx(EVP_PKEY_CTX_new(key, nullptr));
  return ctx != nullptr && EVP_PKEY_check(ctx.get()) == 1;
}

Bytes key_number(EVP_PKEY* key, const char* name, int width) {
  BIGNUM* bn = nullptr;
  require(EVP_PKEY_get_bn_param(key, name, &bn) == 1, name);
  Bytes out(static_cast<std::size_t>(width));
  const int written = BN_bn2binpad(bn, out.data(), width);
  BN_free(bn);
  require(written == width, "BN_bn2binpad");
  return out;
}

Bytes openssl_sign(EVP_PKEY* key, const EVP_MD* md, const Bytes& data) {
  MdCtx ctx(EVP_MD_CTX_new());
  Bytes sig(static_cast<std::size_t>(EVP_PKEY_get_size(key)));
  std::size_t n = sig.size();
  require(EVP_DigestSignInit(ctx.get(), nullptr, md, nullptr, key) == 1 &&
              EVP_DigestSign(ctx.get(), sig.data(), &n, data.data(), data.size()) == 1,
          "EVP_DigestSign");
  sig.resize(n);
  return sig;
}

bool openssl_verify(EVP_PKEY* key, const EVP_MD* md, const Bytes& data, const Bytes& sig) {
  MdCtx ctx(EVP_MD_CTX_new());
  require(EVP_DigestVerifyInit(ctx.get(), nullptr, md, nullptr, key) == 1, "DigestVerifyInit");
  return EVP_DigestVerify(ctx.get(), sig.data(), sig.size(), data.data(), data.size()) == 1;
}

Bytes openssl_recover(EVP_PKEY* key, const Bytes& sig, int padding) {
  return run_raw(key, padding, sig, EVP_PKEY_verify_recover_init, EVP_PKEY_verify_recover);
}

Bytes openssl_encrypt(EVP_PKEY* key, const Bytes& data) {
  return run_raw(key, RSA_PKCS1_PADDING, data, EVP_PKEY_encrypt_init, EVP_PKEY_encrypt);
}

Bytes openssl_decrypt(EVP_PKEY* key, const Bytes& block) {
  return run_raw(key, RSA_PKCS1_PADDING, block, EVP_PKEY_decrypt_init, EVP_PKEY_decrypt);
}

}  // namespace hylorn_test
