// Signatures against OpenSSL (PKCS #1 v1.5 signing is deterministic, so ours and
// OpenSSL's must be the same bytes), MD2 through the raw public operation, the result
// rules of verification, and signing by key name.
#include <gtest/gtest.h>
#include <openssl/rsa.h>

#include "key_fixtures.h"

namespace {

using namespace keys_test;

constexpr unsigned kUnwritten = 77;

// The signature, or empty when signing fails; the outputs must then be untouched.
Bytes sign(int alg, const Bytes& pri, const Bytes& data) {
  Bytes sig(HYLORN_RSA_BLOCK_SIZE, 0xA5);
  unsigned sigLen = kUnwritten;
  if (Crypt_Gen_Signature_By_Prikey(alg, pri.data(), unsigned(pri.size()), data.data(),
                                    unsigned(data.size()), sig.data(), &sigLen) == 0) {
    return Bytes(sig.begin(), sig.begin() + sigLen);
  }
  EXPECT_EQ(sigLen, kUnwritten);
  EXPECT_EQ(sig, Bytes(HYLORN_RSA_BLOCK_SIZE, 0xA5));
  return {};
}

unsigned verify(int alg, const Bytes& pub, const Bytes& data, const Bytes& sig) {
  return Crypt_Ver_Signature(alg, pub.data(), unsigned(pub.size()), data.data(),
                             unsigned(data.size()), sig.data(), unsigned(sig.size()));
}

// Every MD5 and SHA-1 identifier, on our generated key and on OpenSSL's, makes OpenSSL's
// signature byte for byte, and each side verifies the other's.
TEST(Signature, SameBytesAsOpenSslAndEachVerifiesTheOther) {
  const struct {
    int alg;
    const char* md;
    bool our_key;
    std::size_t data_size;
  } cases[] = {{2, "MD5", true, 0},   {5, "MD5", true, 1000},  {3, "SHA1", true, 1},
               {6, "SHA1", true, 64}, {2, "MD5", false, 55},   {5, "MD5", false, 56},
               {3, "SHA1", false, 0}, {6, "SHA1", false, 4097}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.alg) + (c.our_key ? " ours " : " OpenSSL's ") +
                 std::to_string(c.data_size));
    const DerPair& pair = c.our_key ? our_pair() : openssl_pair();
    const EvpKey key = load_private_der(pair.pri);
    ASSERT_NE(key, nullptr);
    const EVP_MD* md = EVP_get_digestbyname(c.md);
    const Bytes data = pattern(c.data_size, 1);

    const Bytes ours = sign(c.alg, pair.pri, data);
    EXPECT_TRUE(openssl_verify(key.get(), md, data, ours));
    const Bytes theirs = openssl_sign(key.get(), md, data);
    EXPECT_EQ(to_hex(ours), to_hex(theirs));
    EXPECT_EQ(verify(c.alg, pair.pub, data, theirs), 0u);
  }
}

// OpenSSL no longer computes MD2, so its raw public operation opens our signature and the
// DigestInfo inside must hold the RFC 1319 digest, under both MD2 identifiers.
TEST(Signature, Md2HoldsTheKnownDigest) {
  const struct {
    const char* text;
    const char* digest;
  } cases[] = {{"", "8350e5a3e24c153df2275c9f80692773"},
               {"abc", "da853b0d3f88d99b30283a69e6ded6bb"},
               {"message digest", "ab4f496bfb2a530b219ff33031fe06b0"}};
  const DerPair& pair = openssl_pair();
  for (const auto& c : cases) {
    for (int alg : {1, 7}) {
      const Bytes sig = sign(alg, pair.pri, bytes_of(c.text));
      EXPECT_EQ(to_hex(openssl_recover(openssl_key(), sig, RSA_PKCS1_PADDING)),
                "3020300c06082a864886f70d020205000410" + std::string(c.digest))
          << alg << " " << c.text;
      EXPECT_EQ(verify(alg, pair.pub, bytes_of(c.text), sig), 0u);
    }
  }
}

// 0 valid, 2 for a signature that opens but does not match, 1 for one that does not open
// (wrong length, not below the modulus, a public key that does not decode), 3 for an
// identifier without a digest, which also fails signing without touching the outputs.
TEST(Verify, ResultRules) {
  const DerPair& pair = openssl_pair();
  const Bytes data = bytes_of("the signed text");
  const Bytes sig = sign(2, pair.pri, data);
  EXPECT_EQ(verify(2, pair.pub, data, sig), 0u);

  Bytes changed = data;
  changed[3] ^= 1;
  EXPECT_EQ(verify(2, pair.pub, changed, sig), 2u);
  EXPECT_EQ(verify(3, pair.pub, data, sig), 2u);  // MD5 signature checked as SHA-1

  Bytes longer = sig;
  longer.push_back(0);
  EXPECT_EQ(verify(2, pair.pub, data, longer), 1u);
  EXPECT_EQ(verify(2, pair.pub, data, Bytes(128, 0xFF)), 1u);
  for (const char* der : {"", "30 00", "30 03 02 01 05"}) {
    EXPECT_EQ(verify(2, from_hex(der), data, sig), 1u) << der;
  }
  for (int alg : {0, 4, 8, -1, 1000}) {
    EXPECT_EQ(sign(alg, pair.pri, data), Bytes{}) << alg;
    EXPECT_EQ(verify(alg, pair.pub, data, sig), 3u) << alg;
  }
}

// Only the DigestInfo's length of the opened block is compared: a block that carries more
// after a matching DigestInfo verifies here, though OpenSSL refuses it. One that carries
// less does not match.
TEST(Verify, ComparesTheDigestInfoLengthOnly) {
  const DerPair& pair = openssl_pair();
  const Bytes data = bytes_of("loose");
  Bytes info(HYLORN_ENCODED_HASH_SIZE);
  unsigned infoLen = 0;
  ASSERT_EQ(Crypt_Gen_Encoded_Hash(3, data.data(), unsigned(data.size()), info.data(), &infoLen),
            0);
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
  EXPECT_EQ(verify(3, pair.pub, data, block_of(more)), 0u);
  EXPECT_FALSE(openssl_verify(openssl_key(), EVP_sha1(), data, block_of(more)));
  EXPECT_EQ(verify(3, pair.pub, data, block_of(Bytes(info.begin(), info.end() - 1))), 2u);
}

// The signature made through a key name, or empty.
Bytes sign_by_name(const char* name, const Bytes& data) {
  Bytes sig(HYLORN_RSA_BLOCK_SIZE);
  unsigned sigLen = 0;
  const unsigned r = Crypt_Gen_Signature(3, name, "unused", data.data(), unsigned(data.size()),
                                         sig.data(), &sigLen);
  sig.resize(r == 0 ? sigLen : 0);
  return sig;
}

// The slot names are matched exactly and never opened: a file carrying a slot's name is
// not read, while the same name with a capital letter is a file like any other.
TEST(SignByName, SlotNamesNeverReachTheFileSystem) {
  TempDir cwd(TempDir::kEnter);
  const DerPair& pair = openssl_pair();
  write_file("keypair.db3", pair.pri);
  write_file("Keypair.db3", pair.pri);
  const Bytes data = bytes_of("slot");
  EXPECT_EQ(sign_by_name("keypair.db3", data), Bytes{});
  EXPECT_EQ(sign_by_name("Keypair.db3", data), sign(3, pair.pri, data));
  EXPECT_EQ(sign_by_name("absent", data), Bytes{});
  EXPECT_EQ(sign_by_name(nullptr, data), Bytes{});
}

// The private DER grown to total bytes: the version, never read, becomes an OCTET STRING
// of the size that makes up the total (long-form lengths of two bytes throughout).
Bytes private_der_of_size(const Bytes& pri, std::size_t total) {
  const Bytes numbers(pri.begin() + 7, pri.end());  // after 30 82 hi lo | 02 01 00
  Bytes body = tlv(0x04, Bytes(total - 8 - numbers.size()));
  body.insert(body.end(), numbers.begin(), numbers.end());
  return tlv(0x30, body);
}

// A key file is read only up to its 2048th byte: a DER key of exactly 2048 bytes loads
// whatever follows it in the file, and one of 2049 bytes does not.
TEST(SignByName, KeyFileIsReadUpToItsFirst2048Bytes) {
  TempDir dir;
  const DerPair& pair = openssl_pair();
  ASSERT_EQ(pair.pri[1], 0x82);  // the long form the padding relies on
  const Bytes data = bytes_of("long file");
  const Bytes expected = sign(3, pair.pri, data);
  for (std::size_t size : {2048u, 2049u}) {
    Bytes der = private_der_of_size(pair.pri, size);
    ASSERT_EQ(sign(3, der, data), expected);  // the padded DER itself is sound
    der.insert(der.end(), 500, 0xEE);
    write_file(dir.path("key"), der);
    EXPECT_EQ(sign_by_name(dir.path("key").c_str(), data), size == 2048 ? expected : Bytes{});
  }
}

}  // namespace
