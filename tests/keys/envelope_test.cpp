// Raw RSA in both directions and digital envelopes, opened by OpenSSL and by us.
#include <gtest/gtest.h>

#include <openssl/rsa.h>

#include "hylorn.h"
#include "key_fixtures.h"

namespace {

using hylorn_test::to_hex;
using keys_test::Bytes;
using keys_test::DerPair;

using RawFn = unsigned (*)(const unsigned char*, unsigned, unsigned char*, unsigned*,
                           const unsigned char*, unsigned);

// Runs one exported function whose key is DER; the result and the output it wrote.
struct Outcome {
  unsigned result;
  Bytes out;
};

Outcome run(RawFn fn, const Bytes& in, const Bytes& key, std::size_t room = HYLORN_RSA_BLOCK_SIZE) {
  Bytes out(room, 0xA5);
  unsigned outLen = 0xFFFF;
  const unsigned r = fn(in.data(), unsigned(in.size()), out.data(), &outLen, key.data(),
                        unsigned(key.size()));
  out.resize(r == 0 ? outLen : room);
  return {r, out};
}

Bytes pattern(std::size_t n, unsigned seed = 1) {
  Bytes b(n);
  for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<unsigned char>(i * 31 + seed);
  return b;
}

// ---------------------------------------------------------------------------------------
// Raw RSA

struct LimitCase {
  std::size_t length;
  unsigned result;
};

class RawLimits : public ::testing::TestWithParam<LimitCase> {};

// Both encrypting directions take at most 117 bytes into a 1024-bit block, and OpenSSL
// opens what they make.
TEST_P(RawLimits, EncryptDirectionsAgainstOpenSsl) {
  const DerPair& pair = keys_test::openssl_pair();
  const Bytes data = pattern(GetParam().length);

  const Outcome pub = run(Crypt_Asyn_Enc_Data_By_Pubkey, data, pair.pub);
  const Outcome pri = run(Crypt_Asyn_Enc_Data_By_Prikey, data, pair.pri);
  ASSERT_EQ(pub.result, GetParam().result);
  ASSERT_EQ(pri.result, GetParam().result);
  if (GetParam().result != 0) {
    EXPECT_EQ(pri.out, Bytes(HYLORN_RSA_BLOCK_SIZE, 0xA5));
    return;
  }
  EXPECT_EQ(pub.out.size(), 128u);
  EXPECT_EQ(pri.out.size(), 128u);
  EXPECT_EQ(to_hex(keys_test::openssl_decrypt(keys_test::openssl_key(), pub.out)), to_hex(data));
  EXPECT_EQ(to_hex(keys_test::openssl_recover(keys_test::openssl_key(), pri.out,
                                              RSA_PKCS1_PADDING)),
            to_hex(data));
}

INSTANTIATE_TEST_SUITE_P(Lengths, RawLimits,
                         ::testing::Values(LimitCase{0, 0}, LimitCase{1, 0}, LimitCase{16, 0},
                                           LimitCase{117, 0}, LimitCase{118, 1},
                                           LimitCase{128, 1}));

// Each decrypting direction opens its own block type only; OpenSSL's public-key
// encryption opens here too.
TEST(RawRsa, DirectionsPairUpAndCrossingThemFails) {
  const DerPair& pair = keys_test::our_pair();
  const Bytes data = pattern(100);
  const Outcome type2 = run(Crypt_Asyn_Enc_Data_By_Pubkey, data, pair.pub);
  const Outcome type1 = run(Crypt_Asyn_Enc_Data_By_Prikey, data, pair.pri);
  ASSERT_EQ(type2.result | type1.result, 0u);

  EXPECT_EQ(run(Crypt_Asyn_Dec_Data_By_Prikey, type2.out, pair.pri).out, data);
  EXPECT_EQ(run(Crypt_Asyn_Dec_Data_By_Pubkey, type1.out, pair.pub).out, data);
  EXPECT_EQ(run(Crypt_Asyn_Dec_Data_By_Prikey, type1.out, pair.pri).result, 1u);
  EXPECT_EQ(run(Crypt_Asyn_Dec_Data_By_Pubkey, type2.out, pair.pub).result, 1u);

  const keys_test::EvpKey pub = keys_test::load_public_der(pair.pub);
  const Bytes theirs = keys_test::openssl_encrypt(pub.get(), data);
  EXPECT_EQ(run(Crypt_Asyn_Dec_Data_By_Prikey, theirs, pair.pri).out, data);
}

// Type 2 padding is random, type 1 padding is not.
TEST(RawRsa, OnlyThePublicDirectionIsRandomised) {
  const DerPair& pair = keys_test::openssl_pair();
  const Bytes data = pattern(20);
  EXPECT_NE(run(Crypt_Asyn_Enc_Data_By_Pubkey, data, pair.pub).out,
            run(Crypt_Asyn_Enc_Data_By_Pubkey, data, pair.pub).out);
  EXPECT_EQ(run(Crypt_Asyn_Enc_Data_By_Prikey, data, pair.pri).out,
            run(Crypt_Asyn_Enc_Data_By_Prikey, data, pair.pri).out);
}

TEST(RawRsa, KeysThatDoNotDecodeFail) {
  const Bytes junk = hylorn_test::from_hex("30 03 02 01 05");
  const Bytes block(128, 0x01);
  for (RawFn fn : {Crypt_Asyn_Enc_Data_By_Prikey, Crypt_Asyn_Dec_Data_By_Pubkey,
                   Crypt_Asyn_Enc_Data_By_Pubkey, Crypt_Asyn_Dec_Data_By_Prikey}) {
    EXPECT_EQ(run(fn, block, junk).result, 1u);
  }
}

// ---------------------------------------------------------------------------------------
// Envelopes

class Envelope : public ::testing::TestWithParam<std::size_t> {};

// Made for a key from our generator: OpenSSL unwraps the session key from the first 128
// bytes and the rest deciphers under it with our cipher; both envelope readers, one with
// the DER key and one with a key file, give the data back.
TEST_P(Envelope, OpensWithOpenSslAndWithBothReaders) {
  const std::size_t n = GetParam();
  const DerPair& pair = keys_test::our_pair();
  const keys_test::EvpKey key = keys_test::load_private_der(pair.pri);
  const Bytes data = pattern(n, 3);
  const Outcome sealed = run(Crypt_Enc_Data, data, pair.pub, 128 + n + 8);
  ASSERT_EQ(sealed.result, 0u);
  ASSERT_EQ(sealed.out.size(), 128 + n + 8 - n % 8);

  const Bytes wrapped(sealed.out.begin(), sealed.out.begin() + 128);
  const Bytes session = keys_test::openssl_decrypt(key.get(), wrapped);
  ASSERT_EQ(session.size(), 16u);
  Bytes plain(sealed.out.size() - 128);
  unsigned plainLen = 0;
  ASSERT_EQ(Crypt_Dec_Data_S(sealed.out.data() + 128, unsigned(plain.size()), plain.data(),
                             &plainLen, session.data()),
            0u);
  plain.resize(plainLen);
  EXPECT_EQ(plain, data);

  EXPECT_EQ(run(Crypt_Dec_Data_By_Prikey, sealed.out, pair.pri, sealed.out.size()).out, data);
  keys_test::TempDir dir;
  keys_test::write_file(dir.path("key"), pair.pri);
  Bytes out(sealed.out.size());
  unsigned outLen = 0;
  ASSERT_EQ(Crypt_Dec_Data(sealed.out.data(), unsigned(sealed.out.size()), out.data(), &outLen,
                           dir.path("key").c_str()),
            0u);
  out.resize(outLen);
  EXPECT_EQ(out, data);
}

INSTANTIATE_TEST_SUITE_P(Lengths, Envelope,
                         ::testing::Values(0u, 1u, 7u, 8u, 4095u, 4096u, 4097u, 8192u, 10000u));

TEST(EnvelopeRefusals, ShortInputsAndUnusableKeys) {
  const DerPair& pair = keys_test::openssl_pair();
  const Outcome sealed = run(Crypt_Enc_Data, pattern(40), pair.pub, 128 + 48);
  ASSERT_EQ(sealed.result, 0u);
  // nothing but the wrapped key, or less: refused before any decryption
  keys_test::TempDir dir;
  keys_test::write_file(dir.path("key"), pair.pri);
  for (std::size_t n : {0u, 1u, 127u, 128u}) {
    const Bytes in(sealed.out.begin(), sealed.out.begin() + static_cast<long>(n));
    const Outcome r = run(Crypt_Dec_Data_By_Prikey, in, pair.pri, 64);
    EXPECT_EQ(r.result, 1u) << n;
    EXPECT_EQ(r.out, Bytes(64, 0xA5)) << n;
    Bytes out(64, 0xA5);
    unsigned outLen = 0;
    EXPECT_EQ(Crypt_Dec_Data(in.data(), unsigned(n), out.data(), &outLen, dir.path("key").c_str()),
              1u);
    EXPECT_EQ(out, Bytes(64, 0xA5)) << n;
  }
  Bytes out(sealed.out.size());
  unsigned outLen = 0;
  EXPECT_EQ(Crypt_Dec_Data(sealed.out.data(), unsigned(sealed.out.size()), out.data(), &outLen,
                           "keypair.db2"),
            1u);
  EXPECT_EQ(run(Crypt_Enc_Data, pattern(40), hylorn_test::from_hex("30 00"), 256).result, 1u);
  EXPECT_EQ(run(Crypt_Dec_Data_By_Prikey, sealed.out, pair.pub, 256).result, 1u);
}

}  // namespace
