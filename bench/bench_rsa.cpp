// RSA-1024 against OpenSSL on the same key: the private operation on a type-1 block as
// when signing a 35-byte DigestInfo, the public operation (e = 65537) that recovers it,
// and key generation. OpenSSL keeps its key object across iterations, so it never pays
// for its Montgomery set-up; ours starts from the key record every time, except that the
// public operation finds its modulus constants in its small cache.
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <vector>

#include "crypto/keygen.h"
#include "crypto/rsa.h"
#include "harness.h"
#include "support/openssl_rsa.h"

namespace {

using Bytes = std::vector<unsigned char>;
using hylorn::u32;

constexpr unsigned char kSeeds[] = {0x00, 0x11, 0x2F, 0x3C, 0x47, 0x5A, 0x66, 0x7E,
                                    0x81, 0x93, 0xA5, 0xB0, 0xC3, 0xD8, 0xE4, 0xFF};

// The same key as an OpenSSL key object.
hylorn_test::EvpKey openssl_key_of(const hylorn::RSA_PRIVATE_KEY& k) {
  auto number = [](const unsigned char* p, std::size_t n) { return Bytes(p, p + n); };
  return hylorn_test::key_from_numbers(
      {number(k.modulus, 128), number(k.publicExponent, 128), number(k.exponent, 128),
       number(k.prime[0], 64), number(k.prime[1], 64), number(k.primeExponent[0], 64),
       number(k.primeExponent[1], 64), number(k.coefficient, 64)});
}

struct Shared {
  hylorn::RSA_PUBLIC_KEY pub{};
  hylorn::RSA_PRIVATE_KEY priv{};
  hylorn_test::EvpKey pkey;
  Bytes digest_info = Bytes(35, 0x3A);
  Bytes signature;

  Shared() {
    hylorn::RSA_PROTO_KEY proto{1024, 1};
    hylorn::rsa_generate_keys_from_seed_byte(&pub, &priv, &proto, kSeeds[5]);
    pkey = openssl_key_of(priv);
    signature = hylorn_test::openssl_sign_block(pkey.get(), digest_info);
  }
};

const Shared& shared() {
  static const Shared s;
  return s;
}

EVP_PKEY_CTX* padded_ctx(int (*init)(EVP_PKEY_CTX*)) {
  EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(shared().pkey.get(), nullptr);
  init(ctx);
  EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_PKCS1_PADDING);
  return ctx;
}

void private_ours(benchmark::State& state) {
  const Shared& s = shared();
  unsigned char sig[128];
  u32 len = 0;
  for (auto _ : state) {
    hylorn::RSA_Private_Encrypt(sig, &len, s.digest_info.data(), 35, &s.priv);
    benchmark::DoNotOptimize(sig);
  }
}

void private_openssl(benchmark::State& state) {
  const Shared& s = shared();
  EVP_PKEY_CTX* ctx = padded_ctx(EVP_PKEY_sign_init);
  unsigned char sig[128];
  for (auto _ : state) {
    size_t len = sizeof sig;
    EVP_PKEY_sign(ctx, sig, &len, s.digest_info.data(), 35);
    benchmark::DoNotOptimize(sig);
  }
  EVP_PKEY_CTX_free(ctx);
}

void public_ours(benchmark::State& state) {
  const Shared& s = shared();
  unsigned char data[128];
  u32 len = 0;
  for (auto _ : state) {
    hylorn::RSA_Public_Decrypt(data, &len, s.signature.data(), 128, &s.pub);
    benchmark::DoNotOptimize(data);
  }
}

void public_openssl(benchmark::State& state) {
  const Shared& s = shared();
  EVP_PKEY_CTX* ctx = padded_ctx(EVP_PKEY_verify_init);
  for (auto _ : state) {
    int ok = EVP_PKEY_verify(ctx, s.signature.data(), 128, s.digest_info.data(), 35);
    benchmark::DoNotOptimize(ok);
  }
  EVP_PKEY_CTX_free(ctx);
}

void keygen_ours(benchmark::State& state) {
  hylorn::RSA_PROTO_KEY proto{1024, 1};
  hylorn::RSA_PUBLIC_KEY pub;
  hylorn::RSA_PRIVATE_KEY priv;
  size_t i = 0;
  for (auto _ : state) {
    hylorn::rsa_generate_keys_from_seed_byte(&pub, &priv, &proto, kSeeds[i++ % sizeof kSeeds]);
    benchmark::DoNotOptimize(priv);
  }
}

void keygen_openssl(benchmark::State& state) {
  for (auto _ : state) {
    hylorn_test::EvpKey key = hylorn_test::openssl_keygen(1024, 65537);
    benchmark::DoNotOptimize(key.get());
  }
}

[[maybe_unused]] const bool registered = [] {
  hylorn_bench::register_pair("rsa1024/private", private_ours, "openssl", private_openssl);
  hylorn_bench::register_pair("rsa1024/public", public_ours, "openssl", public_openssl);
  hylorn_bench::register_pair("rsa1024/keygen", keygen_ours, "openssl", keygen_openssl);
  return true;
}();

}  // namespace
