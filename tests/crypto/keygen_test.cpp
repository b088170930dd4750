#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "crypto/keygen.h"
#include "crypto/rsa.h"
#include "openssl_oracle.h"
#include "rsa_oracle.h"

namespace {

using hylorn::RSA_PRIVATE_KEY;
using hylorn::RSA_PROTO_KEY;
using hylorn::RSA_PUBLIC_KEY;
using hylorn::u32;
using hylorn_test::Bn;
using hylorn_test::BnCtx;
using hylorn_test::field_bn;
using hylorn_test::new_bn;

// The generator rebuilt on OpenSSL's MD5: the state is a 128-bit big-endian sum of the
// seed blocks' digests; output blocks are MD5 of the state, which then steps by adding 1
// to its last byte and carrying on only past a byte that was 0.
class ModelGenerator {
 public:
  explicit ModelGenerator(unsigned char seed) {
    for (int round = 0; round < 256; ++round) add_digest_of(&seed, 1);
  }
  void draw(unsigned char* out, size_t len) {
    while (len > available_) {
      std::memcpy(out, output_.data() + 16 - available_, available_);
      out += available_;
      len -= available_;
      auto block = hylorn_test::openssl_digest(EVP_md5(), state_.data(), 16);
      std::memcpy(output_.data(), block.data(), 16);
      available_ = 16;
      for (int i = 15; i >= 0 && state_[i]++ == 0;) --i;
    }
    std::memcpy(out, output_.data() + 16 - available_, len);
    available_ -= static_cast<u32>(len);
  }

 private:
  void add_digest_of(const unsigned char* block, size_t n) {
    auto d = hylorn_test::openssl_digest(EVP_md5(), block, n);
    unsigned carry = 0;
    for (int i = 15; i >= 0; --i) {
      unsigned sum = state_[i] + d[i] + carry;
      state_[i] = static_cast<unsigned char>(sum);
      carry = sum >> 8;
    }
  }
  std::array<unsigned char, 16> state_{}, output_{};
  u32 available_ = 0;
};

// The prime walk with OpenSSL's BN: start = random mod (upper - lower + 1) + lower,
// made odd, then up by 2 until trial division by 3, 5, 7, 11 and a base-2 Fermat test
// pass; repeated until gcd(p - 1, e) = 1.
class ModelKeygen {
 public:
  ModelKeygen(unsigned char seed, unsigned bits, unsigned long e) : gen_(seed), e_(e) {
    unsigned nDigits = (bits + 31) / 32;
    bytes_ = 4 * ((nDigits + 1) / 2);
    unsigned pBits = (bits + 1) / 2;
    p = prime(pBits);
    q = prime(bits - pBits);
    if (BN_cmp(p.get(), q.get()) < 0) std::swap(p, q);
  }
  Bn p, q;

 private:
  Bn prime(unsigned bits) {
    Bn lower = new_bn(), upper = new_bn(), range = new_bn(), a = new_bn(), g = new_bn();
    BN_set_bit(lower.get(), static_cast<int>(bits - 1));
    BN_set_bit(lower.get(), static_cast<int>(bits - 2));
    BN_set_bit(upper.get(), static_cast<int>(bits));
    BN_sub_word(upper.get(), 1);
    BN_sub(range.get(), upper.get(), lower.get());
    BN_add_word(range.get(), 1);
    for (;;) {
      std::vector<unsigned char> r(bytes_);
      gen_.draw(r.data(), r.size());
      BN_bin2bn(r.data(), static_cast<int>(r.size()), a.get());
      BN_mod(a.get(), a.get(), range.get(), ctx_.get());
      BN_add(a.get(), a.get(), lower.get());
      if (!BN_is_odd(a.get())) BN_add_word(a.get(), 1);
      if (BN_cmp(a.get(), upper.get()) > 0) BN_sub_word(a.get(), 2);
      while (!probable_prime(a.get())) {
        BN_add_word(a.get(), 2);
        if (BN_cmp(a.get(), upper.get()) > 0) throw std::runtime_error("walk ran out");
      }
      BN_sub_word(a.get(), 1);
      BN_gcd(g.get(), a.get(), hylorn_test::bn_word(e_).get(), ctx_.get());
      BN_add_word(a.get(), 1);
      if (BN_is_one(g.get())) return Bn(BN_dup(a.get()));
    }
  }
  bool probable_prime(const BIGNUM* a) {
    for (BN_ULONG small : {3, 5, 7, 11}) {
      if (BN_is_word(a, small)) break;
      if (BN_mod_word(a, small) == 0) return false;
    }
    Bn two = hylorn_test::bn_word(2), u = new_bn();
    BN_mod_exp(u.get(), two.get(), a, a, ctx_.get());
    return BN_is_word(u.get(), 2);
  }
  ModelGenerator gen_;
  unsigned long e_;
  size_t bytes_;
  BnCtx ctx_{BN_CTX_new()};
};

struct Generated {
  u32 status;
  RSA_PUBLIC_KEY pub;
  RSA_PRIVATE_KEY priv;
};

Generated generate(unsigned char seed, u32 bits, u32 useF4) {
  Generated g{};
  RSA_PROTO_KEY proto{bits, useF4};
  g.status = hylorn::rsa_generate_keys_from_seed_byte(&g.pub, &g.priv, &proto, seed);
  return g;
}

struct KeyCase {
  unsigned char seed;
  u32 bits;
  u32 useF4;
};

class KeyGeneration : public testing::TestWithParam<KeyCase> {};

TEST_P(KeyGeneration, FollowsTheWalkAndMakesAConsistentKey) {
  KeyCase c = GetParam();
  unsigned long e = c.useF4 ? 65537 : 3;
  Generated g = generate(c.seed, c.bits, c.useF4);
  ASSERT_EQ(g.status, 0u);
  ModelKeygen model(c.seed, c.bits, e);
  EXPECT_EQ(BN_cmp(field_bn(g.priv.prime[0], 64).get(), model.p.get()), 0);
  EXPECT_EQ(BN_cmp(field_bn(g.priv.prime[1], 64).get(), model.q.get()), 0);

  Bn n = field_bn(g.pub.modulus, 128), p = field_bn(g.priv.prime[0], 64),
     q = field_bn(g.priv.prime[1], 64);
  EXPECT_EQ(BN_cmp(p.get(), q.get()), 1);
  unsigned pBits = (c.bits + 1) / 2;
  for (auto [prime, bits] : {std::pair{p.get(), pBits}, std::pair{q.get(), c.bits - pBits}}) {
    EXPECT_EQ(BN_num_bits(prime), static_cast<int>(bits));
    EXPECT_TRUE(BN_is_bit_set(prime, static_cast<int>(bits - 2)));
    EXPECT_TRUE(BN_is_odd(prime));
  }
  EXPECT_EQ(g.pub.bits, c.bits);
  EXPECT_EQ(g.priv.bits, c.bits);
  EXPECT_EQ(BN_num_bits(n.get()), static_cast<int>(c.bits));
  EXPECT_TRUE(BN_is_word(field_bn(g.pub.exponent, 128).get(), e));
  EXPECT_EQ(std::memcmp(g.pub.modulus, g.priv.modulus, 128), 0);
  EXPECT_EQ(std::memcmp(g.pub.exponent, g.priv.publicExponent, 128), 0);

  // OpenSSL's own consistency check of all eight numbers.
  hylorn_test::Pkey key = hylorn_test::pkey_of(g.priv);
  EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(key.get(), nullptr);
  EXPECT_EQ(EVP_PKEY_check(ctx), 1);
  EVP_PKEY_CTX_free(ctx);

  // And the key works: a signature made with it verifies.
  unsigned char data[20] = {1, 2, 3}, sig[128], back[128];
  u32 sigLen = 0, backLen = 0;
  ASSERT_EQ(hylorn::RSA_Private_Encrypt(sig, &sigLen, data, 20, &g.priv), 0u);
  ASSERT_EQ(hylorn::RSA_Public_Decrypt(back, &backLen, sig, sigLen, &g.pub), 0u);
  EXPECT_EQ(std::memcmp(back, data, 20), 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, KeyGeneration,
                         testing::Values(KeyCase{0x5A, 1024, 1}, KeyCase{0x00, 1024, 0},
                                         KeyCase{0xC3, 1023, 1}, KeyCase{0x17, 508, 0},
                                         KeyCase{0x80, 777, 1}));

TEST(KeyGenerationLimits, SizesOutsideTheRangeAreRefusedAfterReseeding) {
  for (u32 bits : {0u, 507u, 1025u, 65536u + 1024u}) {
    Generated g = generate(1, bits, 1);
    EXPECT_EQ(g.status, hylorn::RSA_ERR_MODULUS_LEN) << bits;
  }
  hylorn::RANDOM_STATE rs;
  hylorn::Random_Init(&rs);  // wants seeding: the refusal must still re-seed it
  RSA_PUBLIC_KEY pub{};
  RSA_PRIVATE_KEY priv{};
  RSA_PROTO_KEY proto{507, 1};
  EXPECT_EQ(hylorn::RSA_Generate_Keys(&pub, &priv, &proto, &rs), hylorn::RSA_ERR_MODULUS_LEN);
  u32 needed = 1;
  hylorn::Random_Bytes_Needed(&needed, &rs);
  EXPECT_EQ(needed, 0u);
}

TEST(KeyGenerationLimits, ExportedPairIs1024BitsWithF4) {
  RSA_PUBLIC_KEY pub{};
  RSA_PRIVATE_KEY priv{};
  ASSERT_EQ(hylorn::Rsa_Gen_Key_Pair(0, &pub, &priv), 1);
  EXPECT_EQ(pub.bits, 1024);
  EXPECT_EQ(BN_num_bits(field_bn(pub.modulus, 128).get()), 1024);
  EXPECT_TRUE(BN_is_word(field_bn(priv.publicExponent, 128).get(), 65537));
}

TEST(PrimeTests, SmallFactorsFermatAndCoprimality) {
  using hylorn::MP_DIGIT;
  struct Case {
    MP_DIGIT a;
    int small_factor, fermat;
  } cases[] = {
      {3, 0, 1},      {11, 0, 1},     {9, 1, 0},  {55, 1, 0},   {13, 0, 1},
      {169, 0, 0},    {341, 1, 1},    {561, 1, 1},  // 341 = 11 * 31 and 561 are base-2 pseudoprimes
      // Pseudoprimes that the four divisors let through, the last with a factor 13.
      {1387, 0, 1},   {2047, 0, 1},   {4033, 0, 1}, {4681, 0, 1},   {8321, 0, 1},
      {29341, 0, 1},  {4031, 0, 0},   {2039, 0, 1}, {65537, 0, 1},  {1, 0, 0},
  };
  hylorn::RANDOM_STATE rs;
  hylorn::Random_Seed_From_Byte(&rs, 9);
  for (const Case& c : cases) {
    MP_DIGIT a[2] = {c.a, 0}, found[2] = {}, step[2] = {2, 0};
    EXPECT_EQ(hylorn::Small_Factor(a, 2), c.small_factor) << c.a;
    EXPECT_EQ(hylorn::Fermat_Test(a, 2), c.fermat) << c.a;
    int probable = !c.small_factor && c.fermat;
    EXPECT_EQ(hylorn::Probable_Prime(a, 2), probable) << c.a;
    // A walk confined to a alone accepts exactly what the test accepts.
    if (c.a % 2 == 0 || c.a < 3) continue;
    EXPECT_EQ(hylorn::Generate_Prime(found, a, a, step, 2, &rs),
              probable ? 0u : hylorn::RSA_ERR_DATA)
        << c.a;
  }
  MP_DIGIT e3[1] = {3}, a7[2] = {7, 0}, a11[2] = {11, 0}, b[2] = {12, 0}, d[2] = {35, 0};
  EXPECT_EQ(hylorn::RSA_Filter(a7, 2, e3, 1), 0);  // 6 shares 3 with e
  EXPECT_EQ(hylorn::RSA_Filter(a11, 2, e3, 1), 1);
  EXPECT_EQ(hylorn::Relatively_Prime(b, 2, d, 2), 1);
  EXPECT_EQ(hylorn::Relatively_Prime(d, 2, a7, 2), 0);
}

}  // namespace
