// The block cipher: published known answers and libgcrypt on every engine, the
// multiplication mod 65537, and the engines agreeing byte for byte.
#include <fstream>
#include <map>
#include <sstream>

#include "idea_oracle.h"

using hylorn::IdeaPath;
using hylorn_test::from_hex;
using hylorn_test::to_hex;
using namespace idea_test;

namespace {

struct Vector {
  Bytes key, plain, cipher;
};

std::vector<Vector> published_vectors() {
  std::ifstream in(std::string(HYLORN_VECTORS_DIR) + "/idea_ecb.txt");
  std::vector<Vector> out;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::string k, p, c;
    fields >> k >> p >> c;
    out.push_back({from_hex(k), from_hex(p), from_hex(c)});
  }
  return out;
}

Bytes encrypt_blocks(const Bytes& key, const Bytes& data) {
  Bytes out(data.size());
  hylorn::Idea_Encrypt_Blocks(data.data(), static_cast<hylorn::u32>(data.size() / 8), out.data(),
                              key.data());
  return out;
}

Bytes decrypt_blocks(const Bytes& key, const Bytes& data) {
  Bytes out(data.size());
  hylorn::Idea_Decrypt_Blocks(data.data(), static_cast<hylorn::u32>(data.size() / 8), out.data(),
                              key.data());
  return out;
}

const char* name_of(IdeaPath p) {
  const char* names[] = {"automatic", "scalar", "sse2", "avx2"};
  return names[static_cast<int>(p)];
}

class IdeaEngine : public ::testing::TestWithParam<IdeaPath> {};

INSTANTIATE_TEST_SUITE_P(Engines, IdeaEngine,
                         ::testing::Values(IdeaPath::scalar, IdeaPath::sse2, IdeaPath::avx2),
                         [](const auto& info) { return std::string(name_of(info.param)); });

// The vectors of one key, cycled over 25 blocks (one group of 16, one of 8, one single),
// so each engine and each lane position sees them.
TEST_P(IdeaEngine, PublishedVectorsBothDirections) {
  ForcedPath path(GetParam());
  if (!path.ok()) GTEST_SKIP() << "CPU lacks this engine";
  auto vectors = published_vectors();
  ASSERT_EQ(vectors.size(), 15u);
  std::map<Bytes, std::vector<Vector>> by_key;
  for (const auto& v : vectors) by_key[v.key].push_back(v);
  for (const auto& [key, group] : by_key) {
    Bytes plain, cipher;
    for (std::size_t i = 0; i < 25; ++i) {
      const Vector& v = group[i % group.size()];
      plain.insert(plain.end(), v.plain.begin(), v.plain.end());
      cipher.insert(cipher.end(), v.cipher.begin(), v.cipher.end());
    }
    EXPECT_EQ(to_hex(encrypt_blocks(key, plain)), to_hex(cipher)) << to_hex(key);
    EXPECT_EQ(to_hex(decrypt_blocks(key, cipher)), to_hex(plain)) << to_hex(key);
  }
}

// Random keys (and keys whose subkeys are 0, the value standing for 65536) over block
// counts around the lane widths, against libgcrypt in both directions.
TEST_P(IdeaEngine, MatchesLibgcrypt) {
  ForcedPath path(GetParam());
  if (!path.ok()) GTEST_SKIP() << "CPU lacks this engine";
  std::mt19937 rng(1234);
  std::vector<Bytes> keys = {Bytes(16, 0x00), Bytes(16, 0xFF), from_hex("0001000100010001 0001000100010001")};
  for (int i = 0; i < 20; ++i) keys.push_back(random_bytes(rng, 16));
  for (const Bytes& key : keys) {
    for (std::size_t blocks : {1, 7, 8, 9, 15, 16, 17, 24, 25, 31, 33, 512}) {
      Bytes data = random_bytes(rng, blocks * 8);
      if (blocks == 9) std::fill(data.begin(), data.begin() + 16, 0);  // zero words as inputs
      Bytes enc = encrypt_blocks(key, data);
      ASSERT_EQ(to_hex(enc), to_hex(gcrypt_ecb(key, data, true))) << to_hex(key) << " " << blocks;
      ASSERT_EQ(to_hex(decrypt_blocks(key, data)), to_hex(gcrypt_ecb(key, data, false)));
      ASSERT_EQ(decrypt_blocks(key, enc), data);
    }
  }
}

TEST(IdeaEngines, GiveTheSameBytesForEveryCountAndInPlace) {
  std::mt19937 rng(99);
  for (std::size_t blocks = 0; blocks <= 70; ++blocks) {
    Bytes key = random_bytes(rng, 16), data = random_bytes(rng, blocks * 8);
    Bytes reference;
    {
      ForcedPath scalar(IdeaPath::scalar);
      reference = encrypt_blocks(key, data);
    }
    for (IdeaPath p : {IdeaPath::sse2, IdeaPath::avx2, IdeaPath::automatic}) {
      ForcedPath path(p);
      if (!path.ok()) continue;
      EXPECT_EQ(encrypt_blocks(key, data), reference) << name_of(p) << " " << blocks;
      Bytes in_place = data;
      hylorn::Idea_Encrypt_Blocks(in_place.data(), static_cast<hylorn::u32>(blocks),
                                  in_place.data(), key.data());
      EXPECT_EQ(in_place, reference) << name_of(p) << " " << blocks;
    }
  }
}

// a (.) b mod 65537 computed the long way, 0 standing for 65536.
hylorn::u16 reference_mul(unsigned a, unsigned b) {
  unsigned long long x = a ? a : 65536, y = b ? b : 65536;
  return static_cast<hylorn::u16>(x * y % 65537 % 65536);
}

TEST(IdeaMultiplication, MatchesModularArithmetic) {
  const unsigned edges[] = {0, 1, 2, 255, 256, 32768, 65534, 65535};
  for (unsigned a : edges)
    for (unsigned b : edges) EXPECT_EQ(hylorn::idea_mul(a, b), reference_mul(a, b)) << a << "*" << b;
  std::mt19937 rng(7);
  for (int i = 0; i < 100000; ++i) {
    unsigned a = rng() & 0xFFFF, b = rng() & 0xFFFF;
    ASSERT_EQ(hylorn::idea_mul(a, b), reference_mul(a, b)) << a << "*" << b;
  }
}

TEST(IdeaMultiplication, EveryValueHasItsInverse) {
  for (unsigned a = 0; a <= 0xFFFF; ++a)
    ASSERT_EQ(hylorn::idea_mul(a, hylorn::idea_mul_inverse(a)), 1) << a;
}

}  // namespace
