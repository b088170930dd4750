#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "crypto/rsa.h"
#include "mont_paths.h"
#include "rsa_oracle.h"

namespace {

using hylorn::RSA_ERR_DATA;
using hylorn::RSA_ERR_LEN;
using hylorn::RSA_PRIVATE_KEY;
using hylorn::RSA_PUBLIC_KEY;
using hylorn::u32;
using hylorn_test::Bytes;
using hylorn_test::Op;
using hylorn_test::openssl_rsa;

struct Keys {
  hylorn_test::Pkey pkey;
  RSA_PUBLIC_KEY pub;
  RSA_PRIVATE_KEY priv;
};

Keys make_keys(unsigned bits, unsigned long e) {
  Keys k;
  k.pkey = hylorn_test::generate_openssl_key(bits, e);
  hylorn_test::RsaNumbers nums = hylorn_test::numbers_of(k.pkey.get());
  k.pub = hylorn_test::public_record(nums);
  k.priv = hylorn_test::private_record(nums);
  return k;
}

// One 1024-bit key shared by the format tests (key generation is slow under sanitizers).
const Keys& key1024() {
  static const Keys k = make_keys(1024, 65537);
  return k;
}

Bytes random_bytes(std::mt19937& rng, size_t n) {
  Bytes b(n);
  for (auto& x : b) x = static_cast<unsigned char>(rng());
  return b;
}

// A block of the modulus size below n: a random number with a zero top byte.
Bytes random_block(std::mt19937& rng, size_t len) {
  Bytes b = random_bytes(rng, len);
  b[0] = 0;
  return b;
}

class RawBlocks : public testing::TestWithParam<std::tuple<unsigned, unsigned long>> {};

TEST_P(RawBlocks, MatchOpenSslWithoutPadding) {
  auto [bits, e] = GetParam();
  Keys k = make_keys(bits, e);
  std::mt19937 rng(bits);
  u32 len = (bits + 7) / 8;
  for (hylorn::MontPath path : hylorn_test::mont_paths()) {
    hylorn_test::MontPathScope scope(path);
    for (int r = 0; r < 10; ++r) {
      Bytes in = random_block(rng, len), out(128, 0xEE);
      u32 outLen = 0;
      ASSERT_EQ(hylorn::RSA_Public_Block(out.data(), &outLen, in.data(), len, &k.pub), 0u);
      ASSERT_EQ(outLen, len);
      out.resize(len);
      EXPECT_EQ(out, openssl_rsa(k.pkey.get(), Op::encrypt, RSA_NO_PADDING, in)) << hylorn_test::name_of(path);

      out.assign(128, 0xEE);
      ASSERT_EQ(hylorn::RSA_Private_Block(out.data(), &outLen, in.data(), len, &k.priv), 0u);
      ASSERT_EQ(outLen, len);
      out.resize(len);
      EXPECT_EQ(out, openssl_rsa(k.pkey.get(), Op::decrypt, RSA_NO_PADDING, in)) << hylorn_test::name_of(path);
    }
  }
}

// Inputs that are 0 modulo a prime or sit at the ends of the range take the edge cases
// of every path's reductions.
TEST(RsaPrivateBlock, InputsAtTheEdgesOnEveryPath) {
  const Keys& k = key1024();
  hylorn_test::RsaNumbers nums = hylorn_test::numbers_of(k.pkey.get());
  hylorn_test::BnCtx ctx(BN_CTX_new());
  std::vector<hylorn_test::Bn> inputs;
  for (unsigned long w : {0ul, 1ul, 2ul}) inputs.push_back(hylorn_test::bn_word(w));
  for (const hylorn_test::Bn* prime : {&nums.p, &nums.q}) {
    hylorn_test::Bn x = hylorn_test::new_bn(), y = hylorn_test::new_bn();
    BN_copy(x.get(), prime->get());
    BN_sub(y.get(), nums.n.get(), prime->get());  // the largest multiple below n
    inputs.push_back(std::move(x));
    inputs.push_back(std::move(y));
  }
  hylorn_test::Bn last = hylorn_test::new_bn();
  BN_sub(last.get(), nums.n.get(), BN_value_one());
  inputs.push_back(std::move(last));
  for (hylorn::MontPath path : hylorn_test::mont_paths()) {
    hylorn_test::MontPathScope scope(path);
    for (size_t i = 0; i < inputs.size(); ++i) {
      Bytes in(128), out(128);
      BN_bn2binpad(inputs[i].get(), in.data(), 128);
      u32 outLen = 0;
      ASSERT_EQ(hylorn::RSA_Private_Block(out.data(), &outLen, in.data(), 128, &k.priv), 0u);
      EXPECT_EQ(out, openssl_rsa(k.pkey.get(), Op::decrypt, RSA_NO_PADDING, in))
          << hylorn_test::name_of(path) << " input " << i;
    }
  }
}

// A record whose coefficient is q^-1 mod p plus p is no longer reduced: the private
// operation leaves the engine's CRT for the general steps, and the result stays the same.
TEST(RsaPrivateBlock, UnreducedCoefficientGivesTheSameResult) {
  Keys k = make_keys(1000, 65537);  // primes of 500 bits: qInv + p still fits its field
  hylorn_test::RsaNumbers nums = hylorn_test::numbers_of(k.pkey.get());
  BN_add(nums.qInv.get(), nums.qInv.get(), nums.p.get());
  RSA_PRIVATE_KEY odd = hylorn_test::private_record(nums);
  std::mt19937 rng(1000);
  for (int r = 0; r < 5; ++r) {
    Bytes in = random_block(rng, 125), out(128), want(128);
    u32 outLen = 0, wantLen = 0;
    ASSERT_EQ(hylorn::RSA_Private_Block(out.data(), &outLen, in.data(), 125, &odd), 0u);
    ASSERT_EQ(hylorn::RSA_Private_Block(want.data(), &wantLen, in.data(), 125, &k.priv), 0u);
    EXPECT_EQ(out, want);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + outLen), openssl_rsa(k.pkey.get(), Op::decrypt, RSA_NO_PADDING, in));
  }
}

INSTANTIATE_TEST_SUITE_P(KeySizes, RawBlocks,
                         testing::Values(std::make_tuple(1024u, 65537ul),
                                         std::make_tuple(1024u, 3ul), std::make_tuple(1023u, 65537ul),
                                         std::make_tuple(768u, 65537ul), std::make_tuple(516u, 3ul)));

TEST(RsaPkcs1, OpenSslReadsOurBlocksAndWeReadTheirs) {
  const Keys& k = key1024();
  std::mt19937 rng(11);
  for (u32 n : {0u, 1u, 36u, 117u}) {
    Bytes data = random_bytes(rng, n), out(128), back(128);
    u32 outLen = 0, backLen = 0;
    ASSERT_EQ(hylorn::RSA_Private_Encrypt(out.data(), &outLen, data.data(), n, &k.priv), 0u);
    out.resize(outLen);
    EXPECT_EQ(openssl_rsa(k.pkey.get(), Op::verify_recover, RSA_PKCS1_PADDING, out), data);
    ASSERT_EQ(hylorn::RSA_Public_Decrypt(back.data(), &backLen, out.data(), outLen, &k.pub), 0u);
    EXPECT_EQ(Bytes(back.begin(), back.begin() + backLen), data);

    out.assign(128, 0);
    ASSERT_EQ(hylorn::RSA_Public_Encrypt(out.data(), &outLen, data.data(), n, &k.pub,
                                         hylorn::module_random_state()),
              0u);
    out.resize(outLen);
    EXPECT_EQ(openssl_rsa(k.pkey.get(), Op::decrypt, RSA_PKCS1_PADDING, out), data);
    // A type-2 block whose separator is its last byte is refused, empty or not.
    ASSERT_EQ(hylorn::RSA_Private_Decrypt(back.data(), &backLen, out.data(), outLen, &k.priv),
              n == 0 ? RSA_ERR_DATA : 0u);
    if (n == 0) continue;  // and OpenSSL signs and encrypts at least one byte
    EXPECT_EQ(Bytes(back.begin(), back.begin() + backLen), data);

    Bytes theirs = openssl_rsa(k.pkey.get(), Op::sign, RSA_PKCS1_PADDING, data);
    ASSERT_EQ(hylorn::RSA_Public_Decrypt(back.data(), &backLen, theirs.data(), 128, &k.pub), 0u);
    EXPECT_EQ(Bytes(back.begin(), back.begin() + backLen), data);
    theirs = openssl_rsa(k.pkey.get(), Op::encrypt, RSA_PKCS1_PADDING, data);
    ASSERT_EQ(hylorn::RSA_Private_Decrypt(back.data(), &backLen, theirs.data(), 128, &k.priv), 0u);
    EXPECT_EQ(Bytes(back.begin(), back.begin() + backLen), data);
  }
}

// The padding is drawn byte by byte from the given state, zeros drawn again.
TEST(RsaPkcs1, PaddingComesFromTheStateOneNonZeroByteAtATime) {
  const Keys& k = key1024();
  hylorn::RANDOM_STATE rs{}, copy{};
  hylorn::Random_Seed_From_Byte(&rs, 0x3C);
  copy = rs;
  Bytes data(40, 0x5A), out(128);
  u32 outLen = 0;
  ASSERT_EQ(hylorn::RSA_Public_Encrypt(out.data(), &outLen, data.data(), 40, &k.pub, &rs), 0u);
  Bytes block = openssl_rsa(k.pkey.get(), Op::decrypt, RSA_NO_PADDING, out);
  ASSERT_EQ(block.size(), 128u);
  for (size_t i = 2; i < 128 - 40 - 1; ++i) {
    unsigned char b = 0;
    while (b == 0) hylorn::Random_Generate_Bytes(&b, 1, &copy);
    ASSERT_EQ(block[i], b) << "padding byte " << i;
  }
  EXPECT_EQ(std::memcmp(&rs, &copy, sizeof rs), 0);  // nothing more was drawn
}

TEST(RsaPkcs1, GeneratorThatWantsSeedIsRefusedInsteadOfLooping) {
  hylorn::RANDOM_STATE rs;
  hylorn::Random_Init(&rs);
  Bytes data(20), out(128, 0xEE);
  u32 outLen = 7;
  EXPECT_EQ(hylorn::RSA_Public_Encrypt(out.data(), &outLen, data.data(), 20, &key1024().pub, &rs),
            hylorn::RANDOM_ERR_NEED_RANDOM);
  EXPECT_EQ(outLen, 7u);
}

TEST(RsaPkcs1, LengthLimitsOf117And128Bytes) {
  const Keys& k = key1024();
  Bytes in(129, 0x01), out(128);
  u32 outLen = 0;
  EXPECT_EQ(hylorn::RSA_Private_Encrypt(out.data(), &outLen, in.data(), 118, &k.priv), RSA_ERR_LEN);
  EXPECT_EQ(hylorn::RSA_Public_Encrypt(out.data(), &outLen, in.data(), 118, &k.pub,
                                       hylorn::module_random_state()),
            RSA_ERR_LEN);
  EXPECT_EQ(hylorn::RSA_Public_Encrypt(out.data(), &outLen, in.data(), 0xFFFFFFF8u, &k.pub,
                                       hylorn::module_random_state()),
            RSA_ERR_LEN);  // no wrap-around of the length test
  EXPECT_EQ(hylorn::RSA_Public_Decrypt(out.data(), &outLen, in.data(), 129, &k.pub), RSA_ERR_LEN);
  EXPECT_EQ(hylorn::RSA_Private_Decrypt(out.data(), &outLen, in.data(), 129, &k.priv), RSA_ERR_LEN);
}

TEST(RsaPkcs1, InputEqualToTheModulusIsRefused) {
  const Keys& k = key1024();
  Bytes out(128);
  u32 outLen = 0;
  EXPECT_EQ(hylorn::RSA_Public_Block(out.data(), &outLen, k.pub.modulus, 128, &k.pub), RSA_ERR_DATA);
  EXPECT_EQ(hylorn::RSA_Private_Block(out.data(), &outLen, k.priv.modulus, 128, &k.priv),
            RSA_ERR_DATA);
  EXPECT_EQ(outLen, 0u);
}

// Recovered blocks, made with OpenSSL's raw operations, and what opening them gives:
// the status and the length stored (kept = *outLen left as it was).
struct Recovered {
  const char* name;
  Bytes block;
  u32 status;
  u32 outLen;
};

Bytes block_of(std::initializer_list<Bytes> parts) {
  Bytes b;
  for (const Bytes& p : parts) b.insert(b.end(), p.begin(), p.end());
  return b;
}

constexpr u32 kept = 0xDEAD;

std::vector<Recovered> type1_cases() {
  Bytes ff(8, 0xFF), z = {0x00};
  return {
      {"seven padding bytes", block_of({{0x00, 0x01}, Bytes(7, 0xFF), z, Bytes(118, 7)}), RSA_ERR_DATA, 118},
      {"eight padding bytes", block_of({{0x00, 0x01}, ff, z, Bytes(117, 7)}), 0, 117},
      {"empty data", block_of({{0x00, 0x01}, Bytes(125, 0xFF), z}), 0, 0},
      {"no separator", block_of({{0x00, 0x01}, Bytes(126, 0xFF)}), RSA_ERR_DATA, kept},
      {"bad padding byte", block_of({{0x00, 0x01}, ff, {0xFE}, z, Bytes(116, 7)}), RSA_ERR_DATA, kept},
      {"block type 2", block_of({{0x00, 0x02}, ff, z, Bytes(117, 7)}), RSA_ERR_DATA, kept},
      {"leading byte", block_of({{0x01, 0x01}, ff, z, Bytes(117, 7)}), RSA_ERR_DATA, kept},
  };
}

std::vector<Recovered> type2_cases() {
  Bytes pad(8, 0x9C), z = {0x00};
  return {
      {"seven padding bytes", block_of({{0x00, 0x02}, Bytes(7, 0x9C), z, Bytes(118, 7)}), RSA_ERR_DATA, 118},
      {"eight padding bytes", block_of({{0x00, 0x02}, pad, z, Bytes(117, 7)}), 0, 117},
      {"separator last", block_of({{0x00, 0x02}, Bytes(125, 0x9C), z}), RSA_ERR_DATA, kept},
      {"no separator", block_of({{0x00, 0x02}, Bytes(126, 0x9C)}), RSA_ERR_DATA, kept},
      {"block type 1", block_of({{0x00, 0x01}, Bytes(8, 0xFF), z, Bytes(117, 7)}), RSA_ERR_DATA, kept},
  };
}

// Each recovered block is made into an input with OpenSSL's raw inverse operation, then
// opened by our operation and by its wrapper.
template <class Open, class Wrapper>
void check_recovered(const std::vector<Recovered>& cases, Op inverse, Open open, Wrapper wrapper) {
  for (const Recovered& c : cases) {
    Bytes in = openssl_rsa(key1024().pkey.get(), inverse, RSA_NO_PADDING, c.block);
    ASSERT_EQ(in.size(), 128u) << c.name;
    Bytes out(128, 0xEE);
    u32 outLen = kept;
    EXPECT_EQ(open(out.data(), &outLen, in.data()), c.status) << c.name;
    EXPECT_EQ(outLen, c.outLen) << c.name;
    Bytes expect = c.status == 0 ? block_of({Bytes(c.block.end() - outLen, c.block.end()),
                                             Bytes(128 - outLen, 0xEE)})
                                 : Bytes(128, 0xEE);
    EXPECT_EQ(out, expect) << c.name;
    EXPECT_EQ(wrapper(out.data(), &outLen, in.data()), c.status == 0 ? 1 : 0) << c.name;
  }
}

TEST(RsaPkcs1, PublicDecryptChecksTypeOneBlocks) {
  const RSA_PUBLIC_KEY* key = &key1024().pub;
  check_recovered(
      type1_cases(), Op::decrypt,
      [&](unsigned char* o, u32* l, const unsigned char* in) {
        return hylorn::RSA_Public_Decrypt(o, l, in, 128, key);
      },
      [&](unsigned char* o, u32* l, const unsigned char* in) {
        return hylorn::Rsa_Pub_Dec(0, o, l, in, 128, key);
      });
}

TEST(RsaPkcs1, PrivateDecryptChecksTypeTwoBlocks) {
  const RSA_PRIVATE_KEY* key = &key1024().priv;
  check_recovered(
      type2_cases(), Op::encrypt,
      [&](unsigned char* o, u32* l, const unsigned char* in) {
        return hylorn::RSA_Private_Decrypt(o, l, in, 128, key);
      },
      [&](unsigned char* o, u32* l, const unsigned char* in) {
        return hylorn::Rsa_Pri_Dec(0, o, l, in, 128, key);
      });
}

TEST(RsaPkcs1, WrappersReportOnlySuccessOrFailure) {
  const Keys& k = key1024();
  Bytes in(118, 0x42), out(128), back(128);
  u32 outLen = 0, backLen = 0;
  EXPECT_EQ(hylorn::Rsa_Pri_Enc(0, out.data(), &outLen, in.data(), 118, &k.priv), 0);
  EXPECT_EQ(hylorn::Rsa_Pub_Enc(0, out.data(), &outLen, in.data(), 118, &k.pub), 0);
  EXPECT_EQ(hylorn::Rsa_Pri_Enc(0, out.data(), &outLen, in.data(), 117, &k.priv), 1);
  EXPECT_EQ(hylorn::Rsa_Pub_Dec(0, back.data(), &backLen, out.data(), outLen, &k.pub), 1);
  EXPECT_EQ(hylorn::Rsa_Pub_Enc(0, out.data(), &outLen, in.data(), 117, &k.pub), 1);
  EXPECT_EQ(hylorn::Rsa_Pri_Dec(0, back.data(), &backLen, out.data(), outLen, &k.priv), 1);
  EXPECT_EQ(Bytes(back.begin(), back.begin() + backLen), Bytes(117, 0x42));
  RSA_PRIVATE_KEY zero{};  // what a key slot name signs with: refused, no crash
  EXPECT_EQ(hylorn::Rsa_Pri_Enc(0, out.data(), &outLen, in.data(), 20, &zero), 0);
  EXPECT_EQ(hylorn::Rsa_Pri_Dec(0, out.data(), &outLen, in.data(), 0, &zero), 0);
}

// Reads the stack below the caller: a fresh frame the size of what the private operation
// used, left as that operation left it.
__attribute__((noinline)) Bytes stack_below() {
  volatile unsigned char area[48 * 1024];
  Bytes copy(sizeof area);
  for (size_t i = 0; i < sizeof area; ++i) copy[i] = area[i];
  return copy;
}

__attribute__((noinline)) void scrub_stack() {
  volatile unsigned char area[48 * 1024];
  for (size_t i = 0; i < sizeof area; ++i) area[i] = 0;
}

bool contains(const Bytes& hay, const unsigned char* needle, size_t n) {
  return std::search(hay.begin(), hay.end(), needle, needle + n) != hay.end();
}

__attribute__((noinline)) void private_operation(const RSA_PRIVATE_KEY* key) {
  unsigned char in[128] = {0, 1, 2, 3}, out[128];
  u32 outLen = 0;
  hylorn::RSA_Private_Block(out, &outLen, in, 128, key);
}

// The primes and CRT exponents, big-endian as in the record and as little-endian digit
// arrays, must not survive on the stack after the operation.
TEST(RsaWipe, PrivateBlockLeavesNoKeyNumbersOnTheStack) {
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
  GTEST_SKIP() << "the sanitizer's stack layout is not the plain one this test reads";
#endif
#endif
  auto key = std::make_unique<RSA_PRIVATE_KEY>(key1024().priv);
  scrub_stack();  // whatever making the key left behind
  private_operation(key.get());
  Bytes stack = stack_below();
  for (const unsigned char* field : {key->prime[0], key->prime[1], key->primeExponent[0],
                                     key->primeExponent[1], key->coefficient}) {
    unsigned char le[64];
    for (int i = 0; i < 64; ++i) le[i] = field[63 - i];
    EXPECT_FALSE(contains(stack, field + 40, 16));
    EXPECT_FALSE(contains(stack, le + 8, 16));
  }
}

}  // namespace
