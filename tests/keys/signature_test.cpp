// Signatures against OpenSSL (PKCS #1 v1.5 signing is deterministic, so ours and
// OpenSSL's must be the same bytes), MD2 through the raw public operation, and the
// result rules of verification.
#include <gtest/gtest.h>

#include <openssl/rsa.h>

#include "hylorn.h"
#include "key_fixtures.h"

namespace {

using hylorn_test::bytes_of;
using hylorn_test::from_hex;
using hylorn_test::to_hex;
using keys_test::Bytes;
using keys_test::DerPair;

Bytes sign_by_prikey(int alg, const Bytes& pri, const Bytes& data, unsigned* result = nullptr) {
  Bytes sig(HYLORN_RSA_BLOCK_SIZE);
  unsigned sigLen = 0;
  const unsigned r = Crypt_Gen_Signature_By_Prikey(alg, pri.data(), unsigned(pri.size()),
                                                   data.data(), unsigned(data.size()), sig.data(),
                                                   &sigLen);
  if (result != nullptr) *result = r;
  sig.resize(r == 0 ? sigLen : 0);
  return sig;
}

unsigned verify(int alg, const Bytes& pub, const Bytes& data, const Bytes& sig) {
  return Crypt_Ver_Signature(alg, pub.data(), unsigned(pub.size()), data.data(),
                             unsigned(data.size()), sig.data(), unsigned(sig.size()));
}

// ---------------------------------------------------------------------------------------
// MD5 and SHA-1 with OpenSSL, on our generated key and on OpenSSL's

struct InteropCase {
  int alg;
  const char* md;
  bool our_key;
  std::size_t data_size;
};

class SignatureInterop : public ::testing::TestWithParam<InteropCase> {};

TEST_P(SignatureInterop, SameBytesAsOpenSslAndEachVerifiesTheOther) {
  const auto& c = GetParam();
  const DerPair& pair = c.our_key ? keys_test::our_pair() : keys_test::openssl_pair();
  const keys_test::EvpKey key = keys_test::load_private_der(pair.pri);
  const EVP_MD* md = EVP_get_digestbyname(c.md);
  Bytes data(c.data_size);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i * 7 + 1);

  const Bytes ours = sign_by_prikey(c.alg, pair.pri, data);
  ASSERT_EQ(ours.size(), 128u);
  EXPECT_TRUE(keys_test::openssl_verify(key.get(), md, data, ours));
  const Bytes theirs = keys_test::openssl_sign(key.get(), md, data);
  EXPECT_EQ(to_hex(ours), to_hex(theirs));
  EXPECT_EQ(verify(c.alg, pair.pub, data, theirs), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Table, SignatureInterop,
    ::testing::Values(InteropCase{2, "MD5", true, 0}, InteropCase{5, "MD5", true, 1000},
                      InteropCase{3, "SHA1", true, 1}, InteropCase{6, "SHA1", true, 64},
                      InteropCase{2, "MD5", false, 55}, InteropCase{3, "SHA1", false, 0},
                      InteropCase{6, "SHA1", false, 4097}));

// ---------------------------------------------------------------------------------------
// MD2: OpenSSL no longer computes it, so its raw public operation opens our signature and
// the DigestInfo inside must hold the RFC 1319 digest.

struct Md2Case {
  const char* text;
  const char* digest;
};

class Md2Signature : public ::testing::TestWithParam<Md2Case> {};

TEST_P(Md2Signature, HoldsTheKnownDigest) {
  const Bytes data = bytes_of(GetParam().text);
  const DerPair& pair = keys_test::openssl_pair();
  for (int alg : {1, 7}) {
    const Bytes sig = sign_by_prikey(alg, pair.pri, data);
    const Bytes inside = keys_test::openssl_recover(keys_test::openssl_key(), sig, RSA_PKCS1_PADDING);
    EXPECT_EQ(to_hex(inside), "3020300c06082a864886f70d020205000410" + std::string(GetParam().digest));
    EXPECT_EQ(verify(alg, pair.pub, data, sig), 0u);
  }
}

INSTANTIATE_TEST_SUITE_P(Rfc1319, Md2Signature,
                         ::testing::Values(Md2Case{"", "8350e5a3e24c153df2275c9f80692773"},
                                           Md2Case{"abc", "da853b0d3f88d99b30283a69e6ded6bb"},
                                           Md2Case{"message digest",
                                                   "ab4f496bfb2a530b219ff33031fe06b0"}));

// ---------------------------------------------------------------------------------------
// Identifiers

TEST(SignatureIdentifiers, PairsSelectTheSameDigest) {
  const Bytes data = bytes_of("identifier pairs");
  const Bytes& pri = keys_test::openssl_pair().pri;
  EXPECT_EQ(sign_by_prikey(1, pri, data), sign_by_prikey(7, pri, data));
  EXPECT_EQ(sign_by_prikey(2, pri, data), sign_by_prikey(5, pri, data));
  EXPECT_EQ(sign_by_prikey(3, pri, data), sign_by_prikey(6, pri, data));
  EXPECT_NE(sign_by_prikey(1, pri, data), sign_by_prikey(2, pri, data));
}

class UnsupportedIdentifier : public ::testing::TestWithParam<int> {};

TEST_P(UnsupportedIdentifier, SigningFailsUntouchedAndVerifyingAnswersThree) {
  const DerPair& pair = keys_test::openssl_pair();
  const Bytes data = bytes_of("data");
  Bytes sig(HYLORN_RSA_BLOCK_SIZE, 0xA5);
  unsigned sigLen = 77;
  EXPECT_EQ(Crypt_Gen_Signature_By_Prikey(GetParam(), pair.pri.data(), unsigned(pair.pri.size()),
                                          data.data(), unsigned(data.size()), sig.data(), &sigLen),
            1u);
  EXPECT_EQ(sigLen, 77u);
  EXPECT_EQ(sig, Bytes(HYLORN_RSA_BLOCK_SIZE, 0xA5));
  const Bytes good = sign_by_prikey(3, pair.pri, data);
  EXPECT_EQ(verify(GetParam(), pair.pub, data, good), 3u);
}

INSTANTIATE_TEST_SUITE_P(Table, UnsupportedIdentifier, ::testing::Values(0, 4, 8, -1, 1000));

// ---------------------------------------------------------------------------------------
// Verification results

// Whether a recovered raw block is a well-formed type 1 block with at least 8 bytes of FF.
bool well_formed_type1(const Bytes& block) {
  if (block.size() != 128 || block[0] != 0 || block[1] != 1) return false;
  std::size_t i = 2;
  while (i < block.size() && block[i] == 0xFF) ++i;
  return i < block.size() && block[i] == 0 && i - 2 >= 8;
}

TEST(VerifySignature, ResultRules) {
  const DerPair& pair = keys_test::openssl_pair();
  const Bytes data = bytes_of("the signed text");
  const Bytes sig = sign_by_prikey(2, pair.pri, data);
  ASSERT_EQ(verify(2, pair.pub, data, sig), 0u);

  Bytes changed = data;
  changed[3] ^= 1;
  EXPECT_EQ(verify(2, pair.pub, changed, sig), 2u);
  EXPECT_EQ(verify(3, pair.pub, data, sig), 2u);  // MD5 signature checked as SHA-1

  Bytes longer = sig;
  longer.push_back(0);
  EXPECT_EQ(verify(2, pair.pub, data, longer), 1u);
  EXPECT_EQ(verify(2, pair.pub, data, Bytes(128, 0xFF)), 1u);  // not below the modulus

  // A changed signature byte gives 1 unless the block it opens to is still well formed.
  for (std::size_t pos : {0u, 1u, 64u, 127u}) {
    Bytes bad = sig;
    bad[pos] ^= 0x10;
    const Bytes raw = keys_test::openssl_recover(keys_test::openssl_key(), bad, RSA_NO_PADDING);
    EXPECT_EQ(verify(2, pair.pub, data, bad), well_formed_type1(raw) ? 2u : 1u) << pos;
  }
}

// Only the DigestInfo's length of the opened block is compared: a block that carries more
// after a matching DigestInfo verifies here, though OpenSSL refuses it. One that carries
// less does not.
TEST(VerifySignature, ComparesTheDigestInfoLengthOnly) {
  const DerPair& pair = keys_test::openssl_pair();
  const Bytes data = bytes_of("loose");
  Bytes info(HYLORN_ENCODED_HASH_SIZE);
  unsigned infoLen = 0;
  ASSERT_EQ(Crypt_Gen_Encoded_Hash(3, data.data(), unsigned(data.size()), info.data(), &infoLen), 0);
  info.resize(infoLen);

  const auto block_of = [&](const Bytes& in) {
    Bytes out(HYLORN_RSA_BLOCK_SIZE);
    unsigned outLen = 0;
    EXPECT_EQ(Crypt_Asyn_Enc_Data_By_Prikey(in.data(), unsigned(in.size()), out.data(), &outLen,
                                            pair.pri.data(), unsigned(pair.pri.size())),
              0u);
    return out;
  };
  Bytes more = info;
  more.insert(more.end(), {1, 2, 3});
  const Bytes loose = block_of(more);
  EXPECT_EQ(verify(3, pair.pub, data, loose), 0u);
  EXPECT_FALSE(keys_test::openssl_verify(keys_test::openssl_key(), EVP_sha1(), data, loose));

  const Bytes less(info.begin(), info.end() - 1);
  EXPECT_EQ(verify(3, pair.pub, data, block_of(less)), 2u);
}

TEST(VerifySignature, PublicKeyThatDoesNotDecodeFailsTheRsaStep) {
  const DerPair& pair = keys_test::openssl_pair();
  const Bytes data = bytes_of("x");
  const Bytes sig = sign_by_prikey(3, pair.pri, data);
  for (const char* der : {"", "30 00", "04 01 00", "30 03 02 01 05"}) {
    EXPECT_EQ(verify(3, from_hex(der), data, sig), 1u) << der;
  }
}

// ---------------------------------------------------------------------------------------
// Signing with a key name

unsigned sign_by_name(const char* name, const Bytes& data, Bytes* sig) {
  sig->assign(HYLORN_RSA_BLOCK_SIZE, 0);
  unsigned sigLen = 0;
  const unsigned r = Crypt_Gen_Signature(3, name, "unused", data.data(), unsigned(data.size()),
                                         sig->data(), &sigLen);
  if (r == 0) sig->resize(sigLen);
  return r;
}

// The slot names are matched exactly and never opened: a file carrying a slot's name is
// not read, while the same name with a capital letter is a file like any other.
TEST(SignByName, SlotNamesNeverReachTheFileSystem) {
  keys_test::InTempDir cwd;
  const DerPair& pair = keys_test::openssl_pair();
  keys_test::write_file("keypair.db3", pair.pri);
  keys_test::write_file("Keypair.db3", pair.pri);
  const Bytes data = bytes_of("slot");
  Bytes sig;
  EXPECT_EQ(sign_by_name("keypair.db3", data, &sig), 1u);
  ASSERT_EQ(sign_by_name("Keypair.db3", data, &sig), 0u);
  EXPECT_EQ(sig, sign_by_prikey(3, pair.pri, data));
  EXPECT_EQ(sign_by_name("absent", data, &sig), 1u);
  EXPECT_EQ(sign_by_name(nullptr, data, &sig), 1u);
}

// A key file is read only up to its 2048th byte: a DER key of exactly 2048 bytes loads
// whatever follows it in the file, and one of 2049 bytes does not.
Bytes private_der_of_size(const Bytes& pri, std::size_t total) {
  // 30 82 hi lo | 02 01 00 (version) | the eight numbers: pad the version, which is
  // never read, as an OCTET STRING of the size that makes up the total.
  const Bytes numbers(pri.begin() + 4 + 3, pri.end());
  const std::size_t pad = total - 4 - 4 - numbers.size();
  const std::size_t body = 4 + pad + numbers.size();
  Bytes der{0x30, 0x82, static_cast<unsigned char>(body >> 8), static_cast<unsigned char>(body),
            0x04, 0x82, static_cast<unsigned char>(pad >> 8), static_cast<unsigned char>(pad)};
  der.resize(der.size() + pad, 0);
  der.insert(der.end(), numbers.begin(), numbers.end());
  return der;
}

TEST(SignByName, KeyFileIsReadUpToItsFirst2048Bytes) {
  keys_test::TempDir dir;
  const DerPair& pair = keys_test::openssl_pair();
  ASSERT_EQ(pair.pri[1], 0x82);  // the long form the padding relies on
  const Bytes data = bytes_of("long file");
  const Bytes expected = sign_by_prikey(3, pair.pri, data);

  Bytes exact = private_der_of_size(pair.pri, 2048);
  ASSERT_EQ(sign_by_prikey(3, exact, data), expected);  // the padded DER itself is sound
  exact.insert(exact.end(), 500, 0xEE);
  keys_test::write_file(dir.path("exact"), exact);
  Bytes sig;
  ASSERT_EQ(sign_by_name(dir.path("exact").c_str(), data, &sig), 0u);
  EXPECT_EQ(sig, expected);

  const Bytes over = private_der_of_size(pair.pri, 2049);
  ASSERT_EQ(sign_by_prikey(3, over, data), expected);
  keys_test::write_file(dir.path("over"), over);
  EXPECT_EQ(sign_by_name(dir.path("over").c_str(), data, &sig), 1u);
}

}  // namespace
