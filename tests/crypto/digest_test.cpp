// MD2, MD5 and SHA-1: the standards' known answers run every way (one-shot, static
// output, byte by byte, split at every offset), cross-checks against OpenSSL, and the
// SHA-1 paths against each other.
#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "crypto/digest.h"
#include "crypto/sha1_paths.h"
#include "openssl_oracle.h"
#include "support/hex.h"

namespace {

using hylorn::u32;
using hylorn::u8;
using hylorn_test::Bytes;
using hylorn_test::to_hex;
using Cuts = std::vector<std::size_t>;  // lengths of the successive Update calls

// Feeds the message in pieces of the given lengths, the remainder in a last call.
template <class Ctx, void (*Init)(Ctx*), void (*Update)(Ctx*, const u8*, u32),
          void (*Final)(u8*, Ctx*), std::size_t Size>
Bytes streamed(const Bytes& m, const Cuts& cuts) {
  Ctx ctx;
  Init(&ctx);
  std::size_t at = 0;
  for (std::size_t n : cuts) {
    Update(&ctx, m.data() + at, static_cast<u32>(n));
    at += n;
  }
  Update(&ctx, m.data() + at, static_cast<u32>(m.size() - at));
  Bytes out(Size);
  Final(out.data(), &ctx);
  return out;
}

struct Algo {
  const char* name;
  std::size_t size;
  u8* (*one_shot)(const u8*, u32, u8*);
  Bytes (*stream)(const Bytes&, const Cuts&);
  const EVP_MD* (*openssl)();

  Bytes digest(const Bytes& m) const {
    Bytes out(size);
    EXPECT_EQ(one_shot(m.data(), static_cast<u32>(m.size()), out.data()), out.data());
    return out;
  }
};

const Algo kMd2{"md2", 16, hylorn::Digest_MD2,
                streamed<hylorn::MD2_CTX, hylorn::MD2_Init, hylorn::MD2_Update, hylorn::MD2_Final, 16>,
                nullptr};
const Algo kMd5{"md5", 16, hylorn::Digest_MD5,
                streamed<hylorn::MD5_CTX, hylorn::MD5_Init, hylorn::MD5_Update, hylorn::MD5_Final, 16>,
                EVP_md5};
const Algo kSha1{"sha1", 20, hylorn::Digest_SHA1,
                 streamed<hylorn::SHA1_CTX, hylorn::SHA1_Init, hylorn::SHA1_Update, hylorn::SHA1_Final, 20>,
                 EVP_sha1};

const Algo& algo_named(const std::string& name) {
  if (name == "md2") return kMd2;
  if (name == "md5") return kMd5;
  return kSha1;
}

// Every SHA-1 path this CPU runs; the other digests have one path.
std::vector<hylorn::Sha1Path> sha1_paths() {
  std::vector<hylorn::Sha1Path> paths{hylorn::Sha1Path::portable};
  if (hylorn::sha1_path_available(hylorn::Sha1Path::sha_extensions))
    paths.push_back(hylorn::Sha1Path::sha_extensions);
  return paths;
}

class PathScope {
 public:
  explicit PathScope(hylorn::Sha1Path p) { EXPECT_TRUE(hylorn::select_sha1_path(p)); }
  ~PathScope() { hylorn::select_sha1_path_automatically(); }
};

struct Vector {
  const Algo* algo;
  Bytes message;
  std::string expected;
};

std::vector<Vector> load_vectors() {
  std::ifstream in(HYLORN_VECTORS_DIR "/digests.txt");
  EXPECT_TRUE(in.good());
  std::vector<Vector> out;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::string name, hex;
    std::size_t repeat = 0;
    fields >> name >> repeat >> hex;
    std::string text;
    if (fields.get() == ' ') std::getline(fields, text);
    Vector v{&algo_named(name), {}, hex};
    for (std::size_t i = 0; i < repeat; ++i) v.message.insert(v.message.end(), text.begin(), text.end());
    out.push_back(std::move(v));
  }
  return out;
}

TEST(DigestKnownAnswers, EveryVectorEveryWay) {
  auto vectors = load_vectors();
  ASSERT_EQ(vectors.size(), 17u);
  for (const Vector& v : vectors) {
    auto paths = v.algo == &kSha1 ? sha1_paths() : std::vector<hylorn::Sha1Path>{hylorn::Sha1Path::portable};
    for (auto path : paths) {
      PathScope scope(path);
      SCOPED_TRACE(std::string(v.algo->name) + " of " + std::to_string(v.message.size()) +
                   " bytes, path " + std::to_string(static_cast<int>(path)));
      const Bytes& m = v.message;
      EXPECT_EQ(to_hex(v.algo->digest(m)), v.expected);
      EXPECT_EQ(to_hex(v.algo->stream(m, Cuts(m.size(), 1))), v.expected);  // byte by byte
      // Every split point for short messages; a few around block edges for the long one.
      Cuts offsets;
      if (m.size() <= 200) {
        for (std::size_t i = 0; i <= m.size(); ++i) offsets.push_back(i);
      } else {
        offsets = {1, 15, 16, 17, 55, 56, 63, 64, 65, 4096, m.size() - 1};
      }
      for (std::size_t at : offsets) EXPECT_EQ(to_hex(v.algo->stream(m, {at})), v.expected) << at;
      EXPECT_EQ(to_hex(v.algo->stream(m, {0, 0, m.size(), 0})), v.expected);
    }
  }
}

TEST(DigestOneShot, NullOutputUsesOneStaticBufferPerDigest) {
  const Bytes abc = hylorn_test::bytes_of("abc");
  u8* md2 = hylorn::Digest_MD2(abc.data(), 3, nullptr);
  u8* md5 = hylorn::Digest_MD5(abc.data(), 3, nullptr);
  u8* sha1 = hylorn::Digest_SHA1(abc.data(), 3, nullptr);
  ASSERT_TRUE(md2 && md5 && sha1);
  EXPECT_TRUE(md2 != md5 && md5 != sha1 && md2 != sha1);
  EXPECT_EQ(to_hex(md2, 16), "da853b0d3f88d99b30283a69e6ded6bb");
  EXPECT_EQ(to_hex(md5, 16), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(to_hex(sha1, 20), "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(hylorn::Digest_MD5(nullptr, 0, nullptr), md5);  // same buffer, overwritten
  EXPECT_EQ(to_hex(md5, 16), "d41d8cd98f00b204e9800998ecf8427e");
}

Bytes pseudo_random(std::size_t n, unsigned seed) {
  std::mt19937 gen(seed);
  Bytes b(n);
  for (auto& v : b) v = static_cast<u8>(gen());
  return b;
}

// Random piece lengths, biased towards the small and the block-sized.
Cuts random_cuts(std::size_t total, std::mt19937& gen) {
  Cuts cuts;
  std::size_t used = 0;
  while (used < total) {
    std::size_t n = std::uniform_int_distribution<std::size_t>(0, gen() % 2 ? 8 : 150)(gen);
    n = std::min(n, total - used);
    cuts.push_back(n);
    used += n;
  }
  return cuts;
}

TEST(DigestCrossCheck, Md5AndSha1MatchOpenSslForEveryLengthUpTo1000) {
  const Bytes data = pseudo_random(1000, 7);
  for (const Algo* algo : {&kMd5, &kSha1}) {
    auto paths = algo == &kSha1 ? sha1_paths() : std::vector<hylorn::Sha1Path>{hylorn::Sha1Path::portable};
    for (auto path : paths) {
      PathScope scope(path);
      std::mt19937 gen(11);
      for (std::size_t len = 0; len <= 1000; ++len) {
        Bytes m(data.begin(), data.begin() + len);
        Bytes want = hylorn_test::openssl_digest(algo->openssl(), m.data(), m.size());
        ASSERT_EQ(algo->digest(m), want) << algo->name << " length " << len;
        for (int i = 0; i < 3; ++i)
          ASSERT_EQ(algo->stream(m, random_cuts(len, gen)), want) << algo->name << " length " << len;
      }
    }
  }
}

// Two Update calls at every split point of every message up to three blocks long.
TEST(DigestCrossCheck, EverySplitOfShortMessages) {
  const Bytes data = pseudo_random(192, 3);
  for (const Algo* algo : {&kMd5, &kSha1}) {
    for (std::size_t len = 0; len <= data.size(); ++len) {
      Bytes m(data.begin(), data.begin() + len);
      Bytes want = hylorn_test::openssl_digest(algo->openssl(), m.data(), m.size());
      for (std::size_t at = 0; at <= len; ++at)
        ASSERT_EQ(algo->stream(m, {at}), want) << algo->name << " " << len << "/" << at;
    }
  }
}

// The bit count is one 64-bit number kept as two words: the low word's overflow must
// reach the high word.
template <class Ctx, void (*Init)(Ctx*), void (*Update)(Ctx*, const u8*, u32)>
void check_bit_count() {
  const u8 data[3] = {1, 2, 3};
  const struct {
    u32 low, high, add;
  } cases[] = {
      {0xFFFFFFF0u, 0, 3}, {0xFFFFFFE8u, 7, 3}, {0x7FFFFFF0u, 0, 3}, {0xFFFFFFFFu, 0xFFFFFFFFu, 1}};
  for (const auto& c : cases) {
    Ctx ctx;
    Init(&ctx);
    ctx.count[0] = c.low;
    ctx.count[1] = c.high;
    Update(&ctx, data, c.add);
    unsigned long long want = ((static_cast<unsigned long long>(c.high) << 32) | c.low) + 8ull * c.add;
    EXPECT_EQ(ctx.count[0], static_cast<u32>(want));
    EXPECT_EQ(ctx.count[1], static_cast<u32>(want >> 32));
  }
}

TEST(DigestStreaming, BitCountCarriesIntoTheHighWord) {
  check_bit_count<hylorn::MD5_CTX, hylorn::MD5_Init, hylorn::MD5_Update>();
  check_bit_count<hylorn::SHA1_CTX, hylorn::SHA1_Init, hylorn::SHA1_Update>();
}

// The compression functions directly, from arbitrary chaining values and block counts.
TEST(Sha1Paths, ExtensionsAndPortableGiveIdenticalStates) {
  if (!hylorn::sha1_path_available(hylorn::Sha1Path::sha_extensions))
    GTEST_SKIP() << "this CPU has no SHA extensions";
  std::mt19937 gen(5);
  for (std::size_t blocks = 0; blocks <= 9; ++blocks) {
    Bytes data = pseudo_random(64 * blocks, static_cast<unsigned>(blocks));
    u32 a[5], b[5];
    for (int i = 0; i < 5; ++i) a[i] = b[i] = static_cast<u32>(gen());
    hylorn::sha1_blocks_portable(a, data.data(), blocks);
    hylorn::sha1_blocks_sha_extensions(b, data.data(), blocks);
    EXPECT_EQ(to_hex(reinterpret_cast<u8*>(a), 20), to_hex(reinterpret_cast<u8*>(b), 20)) << blocks;
  }
}

}  // namespace
