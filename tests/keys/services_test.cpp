#include <gtest/gtest.h>
#include <openssl/rsa.h>

#include "key_fixtures.h"

namespace {

using namespace keys_test;

using KeyFn = unsigned (*)(const unsigned char*, unsigned, unsigned char*, unsigned*,
                           const unsigned char*, unsigned);

struct Outcome {
  unsigned result;
  Bytes out;  // what was written, or the whole untouched buffer on failure
};

// Runs one exported function whose key is DER into a buffer of room bytes.
Outcome run(KeyFn fn, const Bytes& in, const Bytes& key, std::size_t room = HYLORN_RSA_BLOCK_SIZE) {
  Bytes out(room, 0xA5);
  unsigned outLen = 0xFFFF;
  const unsigned r =
      fn(in.data(), unsigned(in.size()), out.data(), &outLen, key.data(), unsigned(key.size()));
  out.resize(r == 0 ? outLen : room);
  return {r, out};
}

// Decrypting directions open their own block type only; bad keys fail every direction.
TEST(RawRsa, DirectionsAgainstOpenSsl) {
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
  const DerPair& ours = our_pair();
  const Bytes data = pattern(100);
  const Bytes type2 = openssl_encrypt(load_public_der(ours.pub).get(), data);
  const Outcome type1 = run(Crypt_Asyn_Enc_Data_By_Prikey, data, ours.pri);
  EXPECT_EQ(run(Crypt_Asyn_Dec_Data_By_Prikey, type2, ours.pri).out, data);
  EXPECT_EQ(run(Crypt_Asyn_Dec_Data_By_Pubkey, type1.out, ours.pub).out, data);
  EXPECT_EQ(run(Crypt_Asyn_Dec_Data_By_Prikey, type1.out, ours.pri).result, 1u);
  EXPECT_EQ(run(Crypt_Asyn_Dec_Data_By_Pubkey, type2, ours.pub).result, 1u);
  for (KeyFn fn : {Crypt_Asyn_Enc_Data_By_Prikey, Crypt_Asyn_Dec_Data_By_Pubkey,
                   Crypt_Asyn_Enc_Data_By_Pubkey, Crypt_Asyn_Dec_Data_By_Prikey})
    EXPECT_EQ(run(fn, type1.out, from_hex("30 03 02 01 05")).result, 1u);
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

// OpenSSL unwraps the session key; both envelope readers give the data back.
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

constexpr unsigned kUnwritten = 77;

// The signature, or empty when signing fails; the outputs must then be untouched.
Bytes sign(int alg, const Bytes& pri, const Bytes& data) {
  Bytes sig(HYLORN_RSA_BLOCK_SIZE, 0xA5);
  unsigned sigLen = kUnwritten;
  if (Crypt_Gen_Signature_By_Prikey(alg, pri.data(), unsigned(pri.size()), data.data(),
                                    unsigned(data.size()), sig.data(), &sigLen) == 0)
    return Bytes(sig.begin(), sig.begin() + sigLen);
  EXPECT_EQ(sigLen, kUnwritten);
  EXPECT_EQ(sig, Bytes(HYLORN_RSA_BLOCK_SIZE, 0xA5));
  return {};
}

unsigned verify(int alg, const Bytes& pub, const Bytes& data, const Bytes& sig) {
  return Crypt_Ver_Signature(alg, pub.data(), unsigned(pub.size()), data.data(),
                             unsigned(data.size()), sig.data(), unsigned(sig.size()));
}

// Ours and OpenSSL's signatures are the same bytes; MD2 ones are opened raw.
TEST(Signature, SameBytesAsOpenSslAndEachVerifiesTheOther) {
  const char* md2_abc = "3020300c06082a864886f70d020205000410da853b0d3f88d99b30283a69e6ded6bb";
  const struct {
    int alg;
    const char* md;
    bool our_key;
    std::size_t data_size;
  } cases[] = {{2, "MD5", true, 0},   {5, "MD5", true, 1000},   {3, "SHA1", true, 1},
               {6, "SHA1", true, 64}, {2, "MD5", false, 55},    {5, "MD5", false, 56},
               {3, "SHA1", false, 0}, {6, "SHA1", false, 4097}, {1, nullptr, false, 3},
               {7, nullptr, true, 3}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.alg) + (c.our_key ? " ours " : " OpenSSL's ") +
                 std::to_string(c.data_size));
    const DerPair& pair = c.our_key ? our_pair() : openssl_pair();
    const EvpKey key = load_private_der(pair.pri);
    ASSERT_NE(key, nullptr);
    const Bytes data = c.md ? pattern(c.data_size, 1) : bytes_of("abc");
    const Bytes ours = sign(c.alg, pair.pri, data);
    EXPECT_EQ(verify(c.alg, pair.pub, data, ours), 0u);
    if (!c.md) {
      EXPECT_EQ(to_hex(openssl_recover(key.get(), ours, RSA_PKCS1_PADDING)), md2_abc);
      continue;
    }
    const EVP_MD* md = EVP_get_digestbyname(c.md);
    EXPECT_TRUE(openssl_verify(key.get(), md, data, ours));
    const Bytes theirs = openssl_sign(key.get(), md, data);
    EXPECT_EQ(to_hex(ours), to_hex(theirs));
    EXPECT_EQ(verify(c.alg, pair.pub, data, theirs), 0u);
  }
}

// 0 valid, 1 unopenable, 2 mismatch, 3 no digest; only the DigestInfo's length is compared.
TEST(Verify, ResultRules) {
  const DerPair& pair = openssl_pair();
  const Bytes data = bytes_of("the signed text");
  const Bytes sig = sign(2, pair.pri, data);
  Bytes changed = data, longer = sig;
  changed[3] ^= 1;
  longer.push_back(0);
  EXPECT_EQ(verify(2, pair.pub, changed, sig), 2u);
  EXPECT_EQ(verify(3, pair.pub, data, sig), 2u);  // MD5 signature checked as SHA-1
  EXPECT_EQ(verify(2, pair.pub, data, longer), 1u);
  EXPECT_EQ(verify(2, pair.pub, data, Bytes(128, 0xFF)), 1u);
  for (const char* der : {"", "30 00", "30 03 02 01 05"})
    EXPECT_EQ(verify(2, from_hex(der), data, sig), 1u) << der;
  for (int alg : {0, 4, 8, -1, 1000}) {
    EXPECT_EQ(sign(alg, pair.pri, data), Bytes{}) << alg;
    EXPECT_EQ(verify(alg, pair.pub, data, sig), 3u) << alg;
  }
  Bytes info(HYLORN_ENCODED_HASH_SIZE);
  unsigned infoLen = 0;
  ASSERT_EQ(Crypt_Gen_Encoded_Hash(3, data.data(), unsigned(data.size()), info.data(), &infoLen),
            0);
  info.resize(infoLen);
  Bytes more = info;
  more.insert(more.end(), {1, 2, 3});
  const Bytes more_sig = run(Crypt_Asyn_Enc_Data_By_Prikey, more, pair.pri).out;
  EXPECT_EQ(verify(3, pair.pub, data, more_sig), 0u);
  EXPECT_FALSE(openssl_verify(openssl_key(), EVP_sha1(), data, more_sig));
  info.back() ^= 1;
  EXPECT_EQ(verify(3, pair.pub, data, run(Crypt_Asyn_Enc_Data_By_Prikey, info, pair.pri).out), 2u);
  info.pop_back();
  EXPECT_EQ(verify(3, pair.pub, data, run(Crypt_Asyn_Enc_Data_By_Prikey, info, pair.pri).out), 2u);
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

// Slot names are never opened; a key file is read only up to its 2048th byte.
TEST(SignByName, SlotNamesAndTheFirst2048BytesOfAFile) {
  TempDir cwd(TempDir::kEnter);
  const DerPair& pair = openssl_pair();
  write_file("keypair.db3", pair.pri);
  write_file("Keypair.db3", pair.pri);
  const Bytes data = bytes_of("slot"), expected = sign(3, pair.pri, data);
  EXPECT_EQ(sign_by_name("keypair.db3", data), Bytes{});
  EXPECT_EQ(sign_by_name("Keypair.db3", data), expected);
  EXPECT_EQ(sign_by_name("absent", data), Bytes{});
  EXPECT_EQ(sign_by_name(nullptr, data), Bytes{});
  ASSERT_EQ(pair.pri[1], 0x82);                               // the long form the padding relies on
  const Bytes numbers(pair.pri.begin() + 7, pair.pri.end());  // after 30 82 hi lo | 02 01 00
  for (std::size_t size : {2048u, 2049u}) {
    Bytes body = tlv(0x04, Bytes(size - 8 - numbers.size()));
    body.insert(body.end(), numbers.begin(), numbers.end());
    Bytes der = tlv(0x30, body);
    ASSERT_EQ(sign(3, der, data), expected);  // the padded DER itself is sound
    der.insert(der.end(), 500, 0xEE);
    write_file("key", der);
    EXPECT_EQ(sign_by_name("key", data), size == 2048 ? expected : Bytes{});
  }
}

}  // namespace
