#include "crypto/keygen.h"

#include <gtest/gtest.h>

#include <cstring>

#include "models.h"

namespace {

using hylorn::MP_DIGIT;
using hylorn::RSA_PRIVATE_KEY;
using hylorn::RSA_PROTO_KEY;
using hylorn::RSA_PUBLIC_KEY;
using hylorn::u32;
using namespace hylorn_test;

// One prime of the walk on BN: random in [3 * 2^(bits-2), 2^bits), odd, up by 2 to a prime.
Bn model_prime(ModelGenerator& gen, unsigned bits, std::size_t bytes, BIGNUM* e) {
  BnCtx ctx(BN_CTX_new());
  Bn lower = new_bn(), range = new_bn(), a = new_bn(), g = new_bn(), u = new_bn();
  Bn two = bn_word(2);
  BN_set_bit(lower.get(), static_cast<int>(bits - 1));
  BN_set_bit(lower.get(), static_cast<int>(bits - 2));
  BN_set_bit(range.get(), static_cast<int>(bits - 2));  // upper - lower + 1
  auto probable_prime = [&] {
    for (BN_ULONG small : {3, 5, 7, 11}) {
      if (BN_is_word(a.get(), small)) break;
      if (BN_mod_word(a.get(), small) == 0) return false;
    }
    BN_mod_exp(u.get(), two.get(), a.get(), a.get(), ctx.get());
    return BN_is_word(u.get(), 2) == 1;
  };
  for (;;) {
    Bytes r = gen.draw(bytes);
    BN_bin2bn(r.data(), static_cast<int>(r.size()), a.get());
    BN_mod(a.get(), a.get(), range.get(), ctx.get());
    BN_add(a.get(), a.get(), lower.get());
    if (!BN_is_odd(a.get())) BN_add_word(a.get(), 1);
    while (!probable_prime()) BN_add_word(a.get(), 2);  // never near the top for these seeds
    BN_sub_word(a.get(), 1);
    BN_gcd(g.get(), a.get(), e, ctx.get());
    BN_add_word(a.get(), 1);
    if (BN_is_one(g.get())) return a;
  }
}

// No padding: GoogleTest prints a parameter byte by byte, and memcheck would see the holes.
struct KeyCase {
  u32 seed;  // a byte
  u32 bits;
  u32 useF4;
};

class KeyGeneration : public testing::TestWithParam<KeyCase> {};

INSTANTIATE_TEST_SUITE_P(Seeds, KeyGeneration,
                         testing::Values(KeyCase{0x5A, 1024, 1}, KeyCase{0x00, 1024, 0},
                                         KeyCase{0xC3, 1023, 1}, KeyCase{0x17, 508, 0},
                                         KeyCase{0x80, 777, 1}));

// The seed byte pins the primes to those of the independent walk; OpenSSL checks the key.
TEST_P(KeyGeneration, FollowsTheWalkAndMakesAConsistentKey) {
  const KeyCase c = GetParam();
  const unsigned long e = c.useF4 ? 65537 : 3;
  RSA_PUBLIC_KEY pub{};
  RSA_PRIVATE_KEY priv{};
  RSA_PROTO_KEY proto{c.bits, c.useF4};
  ASSERT_EQ(hylorn::rsa_generate_keys_from_seed_byte(&pub, &priv, &proto,
                                                     static_cast<unsigned char>(c.seed)),
            0u);
  auto gen = ModelGenerator::seeded({static_cast<unsigned char>(c.seed)}, 256);
  const std::size_t bytes = 4 * (((c.bits + 31) / 32 + 1) / 2);
  const unsigned pBits = (c.bits + 1) / 2;
  Bn e_bn = bn_word(e), mp = model_prime(gen, pBits, bytes, e_bn.get()),
     mq = model_prime(gen, c.bits - pBits, bytes, e_bn.get());
  if (BN_cmp(mp.get(), mq.get()) < 0) std::swap(mp, mq);
  Bn n = bn_of(pub.modulus, 128), p = bn_of(priv.prime[0], 64), q = bn_of(priv.prime[1], 64);
  EXPECT_EQ(hex(p), hex(mp));
  EXPECT_EQ(hex(q), hex(mq));
  EXPECT_EQ(BN_cmp(p.get(), q.get()), 1);
  for (auto [prime, bits] : {std::pair{p.get(), pBits}, std::pair{q.get(), c.bits - pBits}}) {
    EXPECT_EQ(BN_num_bits(prime), static_cast<int>(bits));
    EXPECT_TRUE(BN_is_bit_set(prime, static_cast<int>(bits - 2)));
    EXPECT_TRUE(BN_is_odd(prime));
  }
  EXPECT_EQ(pub.bits, c.bits);
  EXPECT_EQ(priv.bits, c.bits);
  EXPECT_EQ(BN_num_bits(n.get()), static_cast<int>(c.bits));
  EXPECT_TRUE(BN_is_word(bn_of(pub.exponent, 128).get(), e));
  EXPECT_EQ(std::memcmp(pub.modulus, priv.modulus, 128), 0);
  EXPECT_EQ(std::memcmp(pub.exponent, priv.publicExponent, 128), 0);
  EXPECT_TRUE(key_checks(pkey_of(priv).get()));
}

TEST(KeyGenerationLimits, RefusedSizesAndTheExportedPair) {
  RSA_PUBLIC_KEY pub{};
  RSA_PRIVATE_KEY priv{};
  for (u32 bits : {0u, 507u, 1025u, 65536u + 1024u}) {
    hylorn::RANDOM_STATE rs;
    hylorn::Random_Init(&rs);  // wants seeding
    RSA_PROTO_KEY proto{bits, 1};
    EXPECT_EQ(hylorn::RSA_Generate_Keys(&pub, &priv, &proto, &rs), 1031u) << bits;
    EXPECT_EQ(rs.bytesNeeded, 0u) << bits;
  }
  ASSERT_EQ(hylorn::Rsa_Gen_Key_Pair(0, &pub, &priv), 1);
  EXPECT_EQ(pub.bits, 1024);
  EXPECT_EQ(BN_num_bits(bn_of(pub.modulus, 128).get()), 1024);
  EXPECT_TRUE(BN_is_word(bn_of(priv.publicExponent, 128).get(), 65537));
  EXPECT_TRUE(key_checks(pkey_of(priv).get()));
}

TEST(PrimeTests, SmallFactorsFermatAndCoprimality) {
  const struct {
    MP_DIGIT a;
    int small_factor, fermat;
  } cases[] = {
      {3, 0, 1},    {11, 0, 1},    {9, 1, 0},    {55, 1, 0},   {13, 0, 1},    {169, 0, 0},
      {341, 1, 1},  {561, 1, 1},   {1387, 0, 1}, {2047, 0, 1}, {4033, 0, 1},  {4681, 0, 1},
      {8321, 0, 1}, {29341, 0, 1}, {4031, 0, 0}, {2039, 0, 1}, {65537, 0, 1}, {1, 0, 0},
  };
  hylorn::RANDOM_STATE rs;
  hylorn::Random_Seed_From_Byte(&rs, 9);
  for (const auto& c : cases) {
    MP_DIGIT a[2] = {c.a, 0}, found[2] = {}, step[2] = {2, 0};
    EXPECT_EQ(hylorn::Small_Factor(a, 2), c.small_factor) << c.a;
    EXPECT_EQ(hylorn::Fermat_Test(a, 2), c.fermat) << c.a;
    const int probable = !c.small_factor && c.fermat;
    EXPECT_EQ(hylorn::Probable_Prime(a, 2), probable) << c.a;
    if (c.a < 3) continue;
    EXPECT_EQ(hylorn::Generate_Prime(found, a, a, step, 2, &rs), probable ? 0u : 1025u) << c.a;
  }
  MP_DIGIT e3[1] = {3}, a7[2] = {7, 0}, a11[2] = {11, 0}, b[2] = {12, 0}, d[2] = {35, 0};
  EXPECT_EQ(hylorn::RSA_Filter(a7, 2, e3, 1), 0);  // 6 shares 3 with e
  EXPECT_EQ(hylorn::RSA_Filter(a11, 2, e3, 1), 1);
  EXPECT_EQ(hylorn::Relatively_Prime(b, 2, d, 2), 1);
  EXPECT_EQ(hylorn::Relatively_Prime(d, 2, a7, 2), 0);
}

}  // namespace
