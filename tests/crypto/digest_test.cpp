#include "crypto/digest.h"

#include <gtest/gtest.h>

#include <climits>
#include <fstream>
#include <random>
#include <sstream>
#include <type_traits>

#include "crypto/sha1_paths.h"
#include "hylorn.h"
#include "support/openssl_bytes.h"
#include "support/random_bytes.h"

namespace {

using namespace hylorn;
using namespace hylorn_test;
using Cuts = std::vector<std::size_t>;  // lengths of the successive Update calls

// Feeds the message in pieces of the given lengths, the remainder in a last call.
template <class Ctx, void (*Init)(Ctx*), void (*Update)(Ctx*, const u8*, u32),
          void (*Final)(u8*, Ctx*)>
Bytes streamed(const Bytes& m, const Cuts& cuts) {
  Ctx ctx;
  Init(&ctx);
  std::size_t at = 0;
  for (std::size_t n : cuts) Update(&ctx, m.data() + at, static_cast<u32>(n)), at += n;
  Update(&ctx, m.data() + at, static_cast<u32>(m.size() - at));
  Bytes out(std::is_same_v<Ctx, SHA1_CTX> ? 20 : 16);
  Final(out.data(), &ctx);
  return out;
}

struct Algo {
  std::string name;
  u8* (*one_shot)(const u8*, u32, u8*);
  Bytes (*stream)(const Bytes&, const Cuts&);
  const EVP_MD* (*openssl)();
  Bytes digest(const Bytes& m) const {
    Bytes out(name == "sha1" ? 20 : 16);
    EXPECT_EQ(one_shot(m.data(), static_cast<u32>(m.size()), out.data()), out.data());
    return out;
  }
};

const Algo kAlgos[] = {
    {"md2", Digest_MD2, streamed<MD2_CTX, MD2_Init, MD2_Update, MD2_Final>, nullptr},
    {"md5", Digest_MD5, streamed<MD5_CTX, MD5_Init, MD5_Update, MD5_Final>, EVP_md5},
    {"sha1", Digest_SHA1, streamed<SHA1_CTX, SHA1_Init, SHA1_Update, SHA1_Final>, EVP_sha1}};

// Each test runs on every SHA-1 path; MD2 and MD5 have one path and run once.
class Digest : public testing::TestWithParam<Sha1Path> {
 protected:
  void SetUp() override {
    if (!select_sha1_path(GetParam())) GTEST_SKIP() << "no SHA extensions here";
  }
  void TearDown() override { select_sha1_path_automatically(); }
  bool runs(const Algo& algo) const {
    return algo.name == "sha1" || GetParam() == Sha1Path::portable;
  }
};

INSTANTIATE_TEST_SUITE_P(Sha1Paths, Digest,
                         testing::Values(Sha1Path::portable, Sha1Path::sha_extensions));

// RFC 1319, RFC 1321, FIPS 180-1: one-shot, byte by byte, empty calls, split everywhere.
TEST_P(Digest, KnownAnswersEveryWay) {
  std::ifstream in(HYLORN_VECTORS_DIR "/digests.txt");
  int count = 0;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::string name, expected, text;
    std::size_t repeat = 0;
    fields >> name >> repeat >> expected;
    if (fields.get() == ' ') std::getline(fields, text);
    Bytes m(text.size() * repeat);
    for (std::size_t i = 0; i < m.size(); ++i) m[i] = static_cast<u8>(text[i % text.size()]);
    const Algo& algo = kAlgos[name == "md2" ? 0 : name == "md5" ? 1 : 2];
    ++count;
    if (!runs(algo)) continue;
    SCOPED_TRACE(name + " of " + std::to_string(m.size()) + " bytes");
    EXPECT_EQ(to_hex(algo.digest(m)), expected);
    if (m.size() > 200) {
      EXPECT_EQ(to_hex(algo.stream(m, {4097})), expected);
      continue;
    }
    EXPECT_EQ(to_hex(algo.stream(m, {0, 0, m.size(), 0})), expected);
    EXPECT_EQ(to_hex(algo.stream(m, Cuts(m.size(), 1))), expected);
    for (std::size_t at = 0; at <= m.size(); ++at)
      EXPECT_EQ(to_hex(algo.stream(m, {at})), expected) << "split at " << at;
  }
  EXPECT_EQ(count, 17);
}

// Lengths 0..1000 against OpenSSL, one-shot and in random pieces.
TEST_P(Digest, Md5AndSha1MatchOpenSslForEveryLengthAndSplit) {
  std::mt19937 gen(11);
  const Bytes data = random_bytes(gen, 1000);
  for (const Algo& algo : {kAlgos[1], kAlgos[2]}) {
    if (!runs(algo)) continue;
    for (std::size_t len = 0; len <= 1000; ++len) {
      Bytes m(data.begin(), data.begin() + len);
      Bytes want = openssl_digest(algo.openssl(), m.data(), m.size());
      Cuts cuts;
      for (std::size_t used = 0; used < len; used += cuts.back()) {
        const std::size_t limit = gen() % 2 ? 9 : 151;
        cuts.push_back(std::min<std::size_t>(gen() % limit, len - used));
      }
      ASSERT_EQ(algo.digest(m), want) << algo.name << " length " << len;
      ASSERT_EQ(algo.stream(m, cuts), want) << algo.name << " " << len;
    }
  }
}

TEST(DigestRules, BitCountCarriesIntoTheHighWord) {
  const u8 data[3] = {1, 2, 3};
  const u32 cases[][3] = {
      {0xFFFFFFF0u, 0, 3}, {0xFFFFFFE8u, 7, 3}, {0x7FFFFFF0u, 0, 3}, {0xFFFFFFFFu, 0xFFFFFFFFu, 1}};
  for (const auto& row : cases) {
    const u32 low = row[0], high = row[1], add = row[2];  // named, as clang 14 captures no binding
    const auto check = [&](auto ctx, auto init, auto update) {
      init(&ctx);
      ctx.count[0] = low, ctx.count[1] = high;
      update(&ctx, data, add);
      EXPECT_EQ(ctx.count[0] | 1ull * ctx.count[1] << 32, ((1ull * high << 32) | low) + 8ull * add);
    };
    check(MD5_CTX{}, MD5_Init, MD5_Update);
    check(SHA1_CTX{}, SHA1_Init, SHA1_Update);
  }
}

TEST(DigestRules, NullOutputUsesOneStaticBufferPerDigest) {
  const Bytes abc = bytes_of("abc");
  u8* md2 = Digest_MD2(abc.data(), 3, nullptr);
  u8* md5 = Digest_MD5(abc.data(), 3, nullptr);
  u8* sha1 = Digest_SHA1(abc.data(), 3, nullptr);
  ASSERT_TRUE(md2 && md5 && sha1);
  EXPECT_EQ(to_hex(md2, 16), "da853b0d3f88d99b30283a69e6ded6bb");
  EXPECT_EQ(to_hex(md5, 16), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(to_hex(sha1, 20), "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(Digest_MD5(nullptr, 0, nullptr), md5);
  EXPECT_EQ(to_hex(md5, 16), "d41d8cd98f00b204e9800998ecf8427e");
  unsigned len = 0;  // the exported form passes a null digest pointer on
  ASSERT_EQ(Crypt_Gen_Hash(3, nullptr, 0, nullptr, &len), 0);
  EXPECT_EQ(len, 20u);
  EXPECT_EQ(to_hex(sha1, 20), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
}

// Digest and RFC 8017 DigestInfo per number; refused numbers write nothing.
TEST(HashApi, NumbersGiveTheDigestAndItsDigestInfoOrNothing) {
  const Bytes fox = bytes_of("The quick brown fox jumps over the lazy dog");
  const auto openssl = [&](const EVP_MD* md) {
    return to_hex(openssl_digest(md, fox.data(), fox.size()));
  };
  const std::string md2 = "03d85a0d629d2c442e987525319fc471", md5 = openssl(EVP_md5()),
                    sha1 = openssl(EVP_sha1()), p2 = "3020300c06082a864886f70d020205000410",
                    p5 = "3020300c06082a864886f70d020505000410",
                    p1 = "3021300906052b0e03021a05000414";
  const struct {
    int alg;
    std::string digest, prefix;
  } cases[] = {{1, md2, p2},  {7, md2, p2},  {2, md5, p5},      {5, md5, p5},
               {3, sha1, p1}, {6, sha1, p1}, {0, "", ""},       {4, "", ""},
               {8, "", ""},   {-1, "", ""},  {INT_MIN, "", ""}, {INT_MAX, "", ""}};
  for (const auto& c : cases) {
    Bytes out(40, 0xEE), enc(40, 0xEE);
    unsigned len = 0xDEAD, enc_len = 0xDEAD;
    const int result = c.digest.empty() ? 1 : 0;
    const auto n = static_cast<unsigned>(fox.size());
    ASSERT_EQ(Crypt_Gen_Hash(c.alg, fox.data(), n, out.data(), &len), result) << c.alg;
    ASSERT_EQ(Crypt_Gen_Encoded_Hash(c.alg, fox.data(), n, enc.data(), &enc_len), result);
    const std::string info = c.prefix + c.digest;
    EXPECT_EQ(to_hex(out), c.digest + std::string(80 - c.digest.size(), 'e')) << c.alg;
    EXPECT_EQ(to_hex(enc), info + std::string(80 - info.size(), 'e')) << c.alg;
    EXPECT_EQ(len, result ? 0xDEAD : c.digest.size() / 2);
    EXPECT_EQ(enc_len, result ? 0xDEAD : info.size() / 2);
  }
}

}  // namespace
