// Key-service rows on one 1024-bit key made by OpenSSL, used by both sides:
// - sign and verify, PKCS #1 v1.5 with SHA-1 and MD5, on a 64-byte message: ours through
//   the exported functions (which decode the DER key on every call), OpenSSL through
//   EVP_DigestSign / EVP_DigestVerify on a loaded key;
// - envelopes of 1 KiB and 64 KiB: ours through Crypt_Enc_Data; the peer is the same
//   construction in OpenSSL: a fresh 16-byte key from RAND_bytes, wrapped by RSA PKCS #1
//   v1.5 encryption (EVP_PKEY_encrypt), and the data under CAST5 in ECB with PKCS #7
//   padding. CAST5 is OpenSSL's nearest match to our cipher (64-bit block, 128-bit key,
//   no hardware help); this OpenSSL has no IDEA. It comes from the legacy provider.
#include <openssl/evp.h>
#include <openssl/provider.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "harness.h"
#include "hylorn.h"

namespace {

using Bytes = std::vector<unsigned char>;

void require(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(what);
}

Bytes pattern(std::size_t n) {
  Bytes b(n);
  for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<unsigned char>(i * 131 + 7);
  return b;
}

// The shared key, as OpenSSL holds it and as the DER our functions take.
struct SharedKey {
  EVP_PKEY* key;
  Bytes pub;
  Bytes pri;
};

Bytes der_of(EVP_PKEY* key, int (*encode)(const EVP_PKEY*, unsigned char**)) {
  Bytes out(static_cast<std::size_t>(encode(key, nullptr)));
  unsigned char* p = out.data();
  require(encode(key, &p) > 0, "i2d");
  return out;
}

const SharedKey& shared_key() {
  static const SharedKey k = [] {
    EVP_PKEY* key = EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", std::size_t{1024});
    require(key != nullptr, "keygen");
    return SharedKey{key, der_of(key, i2d_PublicKey), der_of(key, i2d_PrivateKey)};
  }();
  return k;
}

// ---------------------------------------------------------------------------------------
// Signatures

hylorn_bench::BenchFn our_sign(int alg) {
  return [alg](benchmark::State& state) {
    const SharedKey& k = shared_key();
    const Bytes m = pattern(64);
    unsigned char sig[HYLORN_RSA_BLOCK_SIZE];
    unsigned sigLen = 0;
    for (auto _ : state) {
      require(Crypt_Gen_Signature_By_Prikey(alg, k.pri.data(), unsigned(k.pri.size()), m.data(),
                                            unsigned(m.size()), sig, &sigLen) == 0,
              "sign");
      benchmark::DoNotOptimize(sig);
    }
  };
}

hylorn_bench::BenchFn openssl_sign(const EVP_MD* (*md)()) {
  return [md](benchmark::State& state) {
    const SharedKey& k = shared_key();
    const Bytes m = pattern(64);
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    unsigned char sig[256];
    for (auto _ : state) {
      std::size_t n = sizeof sig;
      require(EVP_DigestSignInit(ctx, nullptr, md(), nullptr, k.key) == 1 &&
                  EVP_DigestSign(ctx, sig, &n, m.data(), m.size()) == 1,
              "EVP_DigestSign");
      benchmark::DoNotOptimize(sig);
    }
    EVP_MD_CTX_free(ctx);
  };
}

Bytes signature(int alg) {
  const SharedKey& k = shared_key();
  const Bytes m = pattern(64);
  Bytes sig(HYLORN_RSA_BLOCK_SIZE);
  unsigned sigLen = 0;
  require(Crypt_Gen_Signature_By_Prikey(alg, k.pri.data(), unsigned(k.pri.size()), m.data(),
                                        unsigned(m.size()), sig.data(), &sigLen) == 0,
          "sign");
  return sig;
}

hylorn_bench::BenchFn our_verify(int alg) {
  return [alg](benchmark::State& state) {
    const SharedKey& k = shared_key();
    const Bytes m = pattern(64);
    const Bytes sig = signature(alg);
    for (auto _ : state) {
      require(Crypt_Ver_Signature(alg, k.pub.data(), unsigned(k.pub.size()), m.data(),
                                  unsigned(m.size()), sig.data(), unsigned(sig.size())) == 0,
              "verify");
    }
  };
}

hylorn_bench::BenchFn openssl_verify(int alg, const EVP_MD* (*md)()) {
  return [alg, md](benchmark::State& state) {
    const SharedKey& k = shared_key();
    const Bytes m = pattern(64);
    const Bytes sig = signature(alg);
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    for (auto _ : state) {
      require(EVP_DigestVerifyInit(ctx, nullptr, md(), nullptr, k.key) == 1 &&
                  EVP_DigestVerify(ctx, sig.data(), sig.size(), m.data(), m.size()) == 1,
              "EVP_DigestVerify");
    }
    EVP_MD_CTX_free(ctx);
  };
}

// ---------------------------------------------------------------------------------------
// Envelopes

hylorn_bench::BenchFn our_envelope(std::size_t n) {
  return [n](benchmark::State& state) {
    const SharedKey& k = shared_key();
    const Bytes m = pattern(n);
    Bytes out(HYLORN_ENVELOPE_KEY_SIZE + n + 8);
    unsigned outLen = 0;
    for (auto _ : state) {
      require(Crypt_Enc_Data(m.data(), unsigned(n), out.data(), &outLen, k.pub.data(),
                             unsigned(k.pub.size())) == 0,
              "Crypt_Enc_Data");
      benchmark::DoNotOptimize(out.data());
    }
  };
}

const EVP_CIPHER* cast5_ecb() {
  static const EVP_CIPHER* cipher = [] {
    OSSL_PROVIDER_load(nullptr, "legacy");
    OSSL_PROVIDER_load(nullptr, "default");
    return EVP_CIPHER_fetch(nullptr, "CAST5-ECB", nullptr);
  }();
  require(cipher != nullptr, "CAST5-ECB (legacy provider)");
  return cipher;
}

hylorn_bench::BenchFn openssl_envelope(std::size_t n) {
  return [n](benchmark::State& state) {
    const SharedKey& k = shared_key();
    const Bytes m = pattern(n);
    Bytes out(HYLORN_ENVELOPE_KEY_SIZE + n + 8);
    EVP_PKEY_CTX* wrap = EVP_PKEY_CTX_new(k.key, nullptr);
    require(EVP_PKEY_encrypt_init(wrap) == 1 &&
                EVP_PKEY_CTX_set_rsa_padding(wrap, RSA_PKCS1_PADDING) == 1,
            "EVP_PKEY_encrypt_init");
    EVP_CIPHER_CTX* cipher = EVP_CIPHER_CTX_new();
    for (auto _ : state) {
      unsigned char session[16];
      require(RAND_bytes(session, sizeof session) == 1, "RAND_bytes");
      std::size_t wrapped = HYLORN_ENVELOPE_KEY_SIZE;
      require(EVP_PKEY_encrypt(wrap, out.data(), &wrapped, session, sizeof session) == 1,
              "EVP_PKEY_encrypt");
      int body = 0, tail = 0;
      require(EVP_EncryptInit_ex2(cipher, cast5_ecb(), session, nullptr, nullptr) == 1 &&
                  EVP_EncryptUpdate(cipher, out.data() + wrapped, &body, m.data(), int(n)) == 1 &&
                  EVP_EncryptFinal_ex(cipher, out.data() + wrapped + body, &tail) == 1,
              "CAST5-ECB");
      benchmark::DoNotOptimize(out.data());
    }
    EVP_CIPHER_CTX_free(cipher);
    EVP_PKEY_CTX_free(wrap);
  };
}

const bool registered = [] {
  const struct {
    const char* name;
    int alg;
    const EVP_MD* (*md)();
  } digests[] = {{"sha1", 3, EVP_sha1}, {"md5", 2, EVP_md5}};
  for (const auto& d : digests) {
    const std::string suffix = std::string("/") + d.name + "/rsa1024";
    hylorn_bench::register_pair("sign" + suffix, our_sign(d.alg), "openssl", openssl_sign(d.md));
    hylorn_bench::register_pair("verify" + suffix, our_verify(d.alg), "openssl",
                                openssl_verify(d.alg, d.md));
  }
  for (std::size_t kib : {1, 64}) {
    const std::size_t n = kib * 1024;
    hylorn_bench::register_pair("envelope/" + std::to_string(kib) + "KiB", our_envelope(n),
                                "openssl", openssl_envelope(n), static_cast<long>(n));
  }
  return true;
}();

}  // namespace
