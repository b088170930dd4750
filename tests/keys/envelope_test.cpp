// Raw RSA in both directions and digital envelopes, opened by OpenSSL and by us.
#include <gtest/gtest.h>
#include <openssl/rsa.h>

#include "key_fixtures.h"

namespace {

using namespace keys_test;

using RawFn = unsigned (*)(const unsigned char*, unsigned, unsigned char*, unsigned*,
                           const unsigned char*, unsigned);

struct Outcome {
  unsigned result;
  Bytes out;  // what was written, or the whole untouched buffer on failure
};

// Runs one exported function whose key is DER into a buffer of room bytes.
Outcome run(RawFn fn, const Bytes& in, const Bytes& key, std::size_t room = HYLORN_RSA_BLOCK_SIZE) {
  Bytes out(room, 0xA5);
  unsigned outLen = 0xFFFF;
  const unsigned r =
      fn(in.data(), unsigned(in.size()), out.data(), &outLen, key.data(), unsigned(key.size()));
  out.resize(r == 0 ? outLen : room);
  return {r, out};
}

// Both encrypting directions take at most 117 bytes into a 1024-bit block, and OpenSSL
// opens what they make; longer data is refused without output.
TEST(RawRsa, EncryptDirectionsUpTo117BytesAgainstOpenSsl) {
  const DerPair& pair = openssl_pair();
  for (std::size_t length : {0u, 1u, 117u, 118u, 128u}) {
    SCOPED_TRACE(length);
    const Bytes data = pattern(length);
    const Outcome pub = run(Crypt_Asyn_Enc_Data_By_Pubkey, data, pair.pub);
    const Outcome pri = run(Crypt_Asyn_Enc_Data_By_Prikey, data, pair.pri);
    ASSERT_EQ(pub.result, length <= 117 ? 0u : 1u);
    ASSERT_EQ(pri.result, pub.result);
    if (pub.result != 0) {
      EXPECT_EQ(pri.out, Bytes(HYLORN_RSA_BLOCK_SIZE, 0xA5));
      continue;
    }
    EXPECT_EQ(to_hex(openssl_decrypt(openssl_key(), pub.out)), to_hex(data));
    EXPECT_EQ(to_hex(openssl_recover(openssl_key(), pri.out, RSA_PKCS1_PADDING)), to_hex(data));
  }
}

// Each decrypting direction opens its own block type only, OpenSSL's public-key
// encryption included; keys that do not decode fail every direction.
TEST(RawRsa, DirectionsPairUpAndCrossingThemFails) {
  const DerPair& pair = our_pair();
  const Bytes data = pattern(100);
  const EvpKey pub = load_public_der(pair.pub);
  const Bytes type2 = openssl_encrypt(pub.get(), data);
  const Outcome type1 = run(Crypt_Asyn_Enc_Data_By_Prikey, data, pair.pri);
  EXPECT_EQ(run(Crypt_Asyn_Dec_Data_By_Prikey, type2, pair.pri).out, data);
  EXPECT_EQ(run(Crypt_Asyn_Dec_Data_By_Pubkey, type1.out, pair.pub).out, data);
  EXPECT_EQ(run(Crypt_Asyn_Dec_Data_By_Prikey, type1.out, pair.pri).result, 1u);
  EXPECT_EQ(run(Crypt_Asyn_Dec_Data_By_Pubkey, type2, pair.pub).result, 1u);

  const Bytes junk = from_hex("30 03 02 01 05");
  for (RawFn fn : {Crypt_Asyn_Enc_Data_By_Prikey, Crypt_Asyn_Dec_Data_By_Pubkey,
                   Crypt_Asyn_Enc_Data_By_Pubkey, Crypt_Asyn_Dec_Data_By_Prikey}) {
    EXPECT_EQ(run(fn, type1.out, junk).result, 1u);
  }
}

// Crypt_Dec_Data in the shape of the others: the key is the key file's path, NUL ended.
unsigned dec_by_file(const unsigned char* in, unsigned inLen, unsigned char* out, unsigned* outLen,
                     const unsigned char* path, unsigned) {
  return Crypt_Dec_Data(in, inLen, out, outLen, reinterpret_cast<const char*>(path));
}

Bytes c_string(const std::string& s) {
  return Bytes(s.c_str(), s.c_str() + s.size() + 1);
}

class Envelope : public ::testing::TestWithParam<std::size_t> {};

// Made for a key from our generator: OpenSSL unwraps the session key from the first 128
// bytes and the rest deciphers under it with our cipher; both envelope readers, one with
// the DER key and one with a key file, give the data back.
TEST_P(Envelope, OpensWithOpenSslAndWithBothReaders) {
  const std::size_t n = GetParam();
  const DerPair& pair = our_pair();
  const Bytes data = pattern(n);
  const Outcome sealed = run(Crypt_Enc_Data, data, pair.pub, 128 + n + 8);
  ASSERT_EQ(sealed.result, 0u);
  ASSERT_EQ(sealed.out.size(), 128 + n + 8 - n % 8);

  const EvpKey key = load_private_der(pair.pri);
  const Bytes session = openssl_decrypt(key.get(), Bytes(&sealed.out[0], &sealed.out[128]));
  ASSERT_EQ(session.size(), 16u);
  Bytes plain(sealed.out.size() - 128);
  unsigned plainLen = 0;
  ASSERT_EQ(Crypt_Dec_Data_S(&sealed.out[128], unsigned(plain.size()), plain.data(), &plainLen,
                             session.data()),
            0u);
  EXPECT_EQ(Bytes(plain.begin(), plain.begin() + plainLen), data);

  TempDir dir;
  write_file(dir.path("key"), pair.pri);
  EXPECT_EQ(run(Crypt_Dec_Data_By_Prikey, sealed.out, pair.pri, sealed.out.size()).out, data);
  EXPECT_EQ(run(dec_by_file, sealed.out, c_string(dir.path("key")), sealed.out.size()).out, data);
}

INSTANTIATE_TEST_SUITE_P(Lengths, Envelope, ::testing::Values(0u, 1u, 7u, 8u, 4097u, 10000u));

// An envelope of no more than the wrapped key is refused before any decryption, with
// nothing written; so are slot names and keys of the wrong kind.
TEST(EnvelopeRefusals, ShortInputsAndUnusableKeys) {
  const DerPair& pair = openssl_pair();
  const Outcome sealed = run(Crypt_Enc_Data, pattern(40), pair.pub, 128 + 48);
  ASSERT_EQ(sealed.result, 0u);
  TempDir dir;
  write_file(dir.path("key"), pair.pri);
  const Bytes path = c_string(dir.path("key"));
  const auto refused = [](const Outcome& o) {
    return o.result == 1 && o.out == Bytes(o.out.size(), 0xA5);
  };
  for (std::size_t n : {0u, 1u, 127u, 128u}) {
    const Bytes in(sealed.out.begin(), sealed.out.begin() + static_cast<long>(n));
    EXPECT_TRUE(refused(run(Crypt_Dec_Data_By_Prikey, in, pair.pri, 64))) << n;
    EXPECT_TRUE(refused(run(dec_by_file, in, path, 64))) << n;
  }
  EXPECT_TRUE(refused(run(dec_by_file, sealed.out, c_string("keypair.db2"), 256)));
  EXPECT_TRUE(refused(run(Crypt_Enc_Data, pattern(40), from_hex("30 00"), 256)));
  EXPECT_TRUE(refused(run(Crypt_Dec_Data_By_Prikey, sealed.out, pair.pub, 256)));
}

}  // namespace
