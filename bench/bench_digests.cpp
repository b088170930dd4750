// Digest rows: MD5 and SHA-1 against OpenSSL's EVP one-shot, MD2 against nettle, each on
// a 64-byte and an 8 KiB message.
#include <nettle/md2.h>
#include <openssl/evp.h>

#include <string>
#include <vector>

#include "crypto/digest.h"
#include "harness.h"

namespace {

using hylorn::u32;
using hylorn::u8;

std::vector<u8> message(std::size_t n) {
  std::vector<u8> m(n);
  for (std::size_t i = 0; i < n; ++i) m[i] = static_cast<u8>(i * 131 + 7);
  return m;
}

template <class Ours>
hylorn_bench::BenchFn ours_fn(std::size_t n, Ours digest) {
  return [n, digest](benchmark::State& state) {
    auto m = message(n);
    u8 out[20];
    for (auto _ : state) {
      digest(m.data(), static_cast<u32>(n), out);
      benchmark::DoNotOptimize(out);
    }
  };
}

hylorn_bench::BenchFn openssl_fn(std::size_t n, const EVP_MD* (*md)()) {
  return [n, md](benchmark::State& state) {
    auto m = message(n);
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    for (auto _ : state) {
      EVP_Digest(m.data(), n, out, &len, md(), nullptr);
      benchmark::DoNotOptimize(out);
    }
  };
}

hylorn_bench::BenchFn nettle_md2_fn(std::size_t n) {
  return [n](benchmark::State& state) {
    auto m = message(n);
    u8 out[MD2_DIGEST_SIZE];
    for (auto _ : state) {
      md2_ctx ctx;
      md2_init(&ctx);
      md2_update(&ctx, n, m.data());
      md2_digest(&ctx, sizeof out, out);
      benchmark::DoNotOptimize(out);
    }
  };
}

std::string row(const char* digest, std::size_t n) {
  std::string name = digest;
  name += '/';
  name += std::to_string(n);
  return name;
}

const bool registered = [] {
  for (std::size_t n : {64, 8192}) {
    long bytes = static_cast<long>(n);
    hylorn_bench::register_pair(row("md5", n), ours_fn(n, hylorn::Digest_MD5), "openssl",
                                openssl_fn(n, EVP_md5), bytes);
    hylorn_bench::register_pair(row("sha1", n), ours_fn(n, hylorn::Digest_SHA1), "openssl",
                                openssl_fn(n, EVP_sha1), bytes);
    hylorn_bench::register_pair(row("md2", n), ours_fn(n, hylorn::Digest_MD2), "nettle",
                                nettle_md2_fn(n), bytes);
  }
  return true;
}();

}  // namespace
