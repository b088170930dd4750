// Expected ciphertexts come from libgcrypt: in ECB the chunking must be invisible.
#include <gcrypt.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "crypto/idea_internal.h"
#include "hylorn.h"
#include "support/random_bytes.h"

namespace {

using namespace hylorn;
using namespace hylorn_test;

// ECB over whole blocks with libgcrypt.
Bytes gcrypt_ecb(const Bytes& key, const Bytes& data, bool encrypt) {
  static const bool ready = [] {
    gcry_check_version(nullptr);
    gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
    gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
    return true;
  }();
  (void)ready;
  if (data.empty()) return {};
  gcry_cipher_hd_t h = nullptr;
  Bytes out(data.size());
  EXPECT_EQ(gcry_cipher_open(&h, GCRY_CIPHER_IDEA, GCRY_CIPHER_MODE_ECB, 0), 0u);
  EXPECT_EQ(gcry_cipher_setkey(h, key.data(), key.size()), 0u);
  EXPECT_EQ(encrypt ? gcry_cipher_encrypt(h, out.data(), out.size(), data.data(), data.size())
                    : gcry_cipher_decrypt(h, out.data(), out.size(), data.data(), data.size()),
            0u);
  gcry_cipher_close(h);
  return out;
}

// The message, one 0x01 and zeros up to the next multiple of 8 (1 to 8 bytes added).
Bytes padded(Bytes data) {
  data.push_back(0x01);
  while (data.size() % 8 != 0) data.push_back(0x00);
  return data;
}

Bytes blocks(const Bytes& key, const Bytes& data, bool encrypt) {
  Bytes out(data.size());
  const auto count = static_cast<u32>(data.size() / 8);
  (encrypt ? Idea_Encrypt_Blocks : Idea_Decrypt_Blocks)(data.data(), count, out.data(), key.data());
  return out;
}

class IdeaEngine : public testing::TestWithParam<IdeaPath> {
 protected:
  void SetUp() override {
    if (!idea_force_path(GetParam())) GTEST_SKIP() << "CPU lacks this engine";
  }
  void TearDown() override { idea_force_path(IdeaPath::automatic); }
};

INSTANTIATE_TEST_SUITE_P(ScalarSse2Avx2, IdeaEngine,
                         testing::Values(IdeaPath::scalar, IdeaPath::sse2, IdeaPath::avx2));

// Published vectors in every lane position, then libgcrypt over lane-width block counts.
TEST_P(IdeaEngine, PublishedVectorsAndLibgcrypt) {
  std::ifstream in(HYLORN_VECTORS_DIR "/idea_ecb.txt");
  int count = 0;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::string k, p, c;
    fields >> k >> p >> c;
    std::string plain, cipher;
    for (int i = 0; i < 25; ++i) plain += p, cipher += c;
    EXPECT_EQ(to_hex(blocks(from_hex(k), from_hex(plain), true)), to_hex(from_hex(cipher)));
    EXPECT_EQ(to_hex(blocks(from_hex(k), from_hex(cipher), false)), to_hex(from_hex(plain)));
    ++count;
  }
  EXPECT_EQ(count, 15);
  std::mt19937 rng(1234);
  std::vector<Bytes> keys = {Bytes(16, 0x00), Bytes(16, 0xFF),
                             from_hex("00010001000100010001000100010001")};
  for (int i = 0; i < 6; ++i) keys.push_back(random_bytes(rng, 16));
  for (const Bytes& key : keys) {
    for (std::size_t count : {1, 7, 8, 9, 15, 16, 17, 25, 33, 100}) {
      SCOPED_TRACE(to_hex(key) + " " + std::to_string(count));
      Bytes data = random_bytes(rng, count * 8);
      if (count == 9) std::fill(data.begin(), data.begin() + 16, 0);  // zero words as inputs
      const Bytes enc = gcrypt_ecb(key, data, true);
      ASSERT_EQ(to_hex(blocks(key, data, true)), to_hex(enc));
      ASSERT_EQ(to_hex(blocks(key, data, false)), to_hex(gcrypt_ecb(key, data, false)));
      Idea_Encrypt_Blocks(data.data(), static_cast<u32>(count), data.data(), key.data());
      ASSERT_EQ(data, enc);
    }
  }
}

// The decryption schedule's inverses mod 65537 (0 standing for 65536), for every value.
TEST(IdeaArithmetic, EveryValueHasItsInverse) {
  for (unsigned a = 0; a <= 0xFFFF; ++a) {
    const unsigned long long x = a ? a : 65536, inv = idea_mul_inverse(static_cast<u16>(a));
    ASSERT_EQ(x * (inv ? inv : 65536) % 65537, 1u) << a;
  }
}

const Bytes kKey = from_hex("2BD6459F82C5B300952C49104881FF48");
constexpr unsigned char kUntouched = 0xEE;
constexpr u16 kNoLen = 0xBEEF;

// `expected` at the start of out, nothing written behind it.
void expect_output(const Bytes& out, const Bytes& expected) {
  ASSERT_LE(expected.size(), out.size());
  EXPECT_EQ(to_hex(Bytes(out.begin(), out.begin() + expected.size())), to_hex(expected));
  EXPECT_TRUE(std::all_of(out.begin() + expected.size(), out.end(),
                          [](unsigned char c) { return c == kUntouched; }));
}

// Results of the chunk calls and of their workers; nothing written on a refusal. A row
// with `last` deciphers 8 bytes of 01 and that final block: where the 0x01 marker is found.
TEST(IdeaChunk, LengthSelectorPaddingAndMarkerRules) {
  const struct {
    bool encrypt;
    int selector, len, result, worker;
    int data_len;  // on success: plaintext bytes
    const char* last = nullptr;
  } cases[] = {
      // clang-format off
      {true, 1, 4096, 0, 0, 4096},    {true, 2, 4096, 0, 0, 4096},    {true, 1, 4095, 195, -61, 0},
      {true, 2, 4097, 195, -61, 0},   {true, 1, 0, 195, -61, 0},      {true, 3, 0, 0, 0, 0},
      {true, 4, 1, 0, 0, 1},          {true, 3, 7, 0, 0, 7},          {true, 4, 8, 0, 0, 8},
      {true, 3, 4095, 0, 0, 4095},    {true, 4, 4096, 0, 0, 4096},    {true, 3, 4097, 196, -60, 0},
      {true, 4, -1, 196, -60, 0},     {true, 0, 8, -1, -1, 0},        {true, 5, 8, -1, -1, 0},
      {false, 1, 4096, 0, 0, 4096},   {false, 2, 4096, 0, 0, 4096},   {false, 3, 8, 0, 0, 0},
      {false, 4, 16, 0, 0, 9},        {false, 3, 4096, 0, 0, 4095},   {false, 1, 4088, 201, -61, 0},
      {false, 2, 4104, 201, -61, 0},  {false, 1, 4095, 201, -61, 0},  {false, 3, 12, 201, -60, 0},
      {false, 4, -4, 201, -60, 0},    {false, 4, 4104, 196, -60, 0},  {false, 3, -8, 196, -60, 0},
      {false, 3, 0, -59, -59, 0},     {false, 0, 8, -1, -1, 0},       {false, 5, 4096, -1, -1, 0},
      {false, 3, 16, 0, 0, 15, "AABBCCDDEEFF1101"},   {false, 3, 16, 0, 0, 9, "AA01000000000000"},
      {false, 3, 16, 0, 0, 8, "0100000000000000"},    {false, 3, 16, 0, 0, 15, "0101010101010101"},
      {false, 3, 16, 0, 0, 9, "AA01BBCCDDEEFF00"},    {false, 3, 16, 0, 0, 8, "0102030405060708"},
      {false, 3, 16, -59, -59, 0, "0000000000000000"},
      {false, 3, 16, -59, -59, 0, "0203040506070809"},
      // clang-format on
  };
  IdeaSchedule enc, dec;
  idea_encrypt_schedule(kKey.data(), &enc);
  idea_decrypt_schedule(enc, &dec);
  std::mt19937 rng(3);
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message()
                 << (c.encrypt ? "encrypt" : "decrypt") << " selector " << c.selector << " len "
                 << c.len << " " << (c.last ? c.last : ""));
    Bytes plain = c.last ? from_hex(std::string("0101010101010101") + c.last)
                         : random_bytes(rng, static_cast<std::size_t>(c.data_len));
    Bytes cipher = gcrypt_ecb(kKey, c.selector >= 3 && !c.last ? padded(plain) : plain, true);
    Bytes in = c.last          ? cipher
               : c.result != 0 ? random_bytes(rng, 4200)
               : c.encrypt     ? plain
                               : cipher;
    in.resize(4200);
    plain.resize(static_cast<std::size_t>(c.data_len));
    const Bytes& expected = c.result != 0 ? Bytes{} : c.encrypt ? cipher : plain;
    Bytes out(4200, kUntouched), by_worker(4200, kUntouched);
    u16 out_len = kNoLen, worker_len = kNoLen;
    ASSERT_EQ(
        c.encrypt
            ? Idea_Encrypt_Chunk(c.selector, in.data(), c.len, out.data(), &out_len, kKey.data())
            : Idea_Decrypt_Chunk(c.selector, out.data(), &out_len, in.data(), c.len, kKey.data()),
        c.result);
    EXPECT_EQ(c.encrypt ? idea_encrypt_chunk_worker(c.selector, in.data(), c.len, by_worker.data(),
                                                    &worker_len, enc)
                        : idea_decrypt_chunk_worker(c.selector, by_worker.data(), &worker_len,
                                                    in.data(), c.len, dec),
              c.worker);
    EXPECT_EQ(out_len, c.result != 0 ? kNoLen : expected.size());
    EXPECT_EQ(worker_len, out_len);
    expect_output(out, expected);
    EXPECT_EQ(by_worker, out);
  }
}

// Decryption splits the padded message back however the chunks fall.
TEST(IdeaData, EncryptAndDecryptAcrossChunkBoundaries) {
  std::mt19937 rng(5);
  for (std::size_t len :
       {0, 1, 7, 8, 9, 4087, 4088, 4095, 4096, 4097, 4103, 4104, 4105, 8191, 8192, 8193, 12289}) {
    SCOPED_TRACE(len);
    const Bytes data = random_bytes(rng, len), cipher = gcrypt_ecb(kKey, padded(data), true);
    for (bool exported : {false, true}) {
      Bytes enc(len + 8, kUntouched), dec(len + 8, kUntouched);
      u32 enc_len = 0, dec_len = 0, n = u32(len), m = u32(cipher.size());
      if (exported) {
        ASSERT_EQ(Crypt_Enc_Data_S(data.data(), n, enc.data(), &enc_len, kKey.data()), 0u);
        ASSERT_EQ(Crypt_Dec_Data_S(cipher.data(), m, dec.data(), &dec_len, kKey.data()), 0u);
      } else {
        ASSERT_EQ(Idea_Encrypt_Data(enc.data(), &enc_len, data.data(), n, kKey.data(), 16), 1);
        ASSERT_EQ(Idea_Decrypt_Data(dec.data(), &dec_len, cipher.data(), m, kKey.data(), 16), 1);
      }
      EXPECT_EQ(enc_len, m);
      expect_output(enc, cipher);
      EXPECT_EQ(dec_len, n);
      expect_output(dec, data);
    }
  }
}

constexpr u32 kErrKeyLen = 0x1000003d, kErrDecrypt = 0x1000003f;

// 4100 bytes: the first 4096 are deciphered before the 4-byte rest is refused.
TEST(IdeaData, FailuresAndTheLastErrorWord) {
  const struct {
    bool encrypt;
    std::size_t in_len;
    u32 key_len;
    bool no_marker;
    u32 last_error;
    std::size_t written;  // leading output bytes written before the failure
  } cases[] = {
      {true, 8, 15, false, kErrKeyLen, 0},         {true, 8, 17, false, kErrKeyLen, 0},
      {false, 4104, 15, false, kErrKeyLen, 0},     {false, 12, 17, false, kErrKeyLen, 0},
      {false, 0, 16, false, kErrDecrypt, 0},       {false, 12, 16, false, kErrDecrypt, 0},
      {false, 4100, 16, false, kErrDecrypt, 4096}, {false, 4104, 16, true, kErrDecrypt, 4096},
  };
  std::mt19937 rng(6);
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.encrypt << " " << c.in_len << " bytes, key " << c.key_len);
    // Whole blocks of a valid ciphertext, then any odd bytes as zeros.
    const std::size_t whole = c.in_len / 8 * 8;
    Bytes plain = padded(random_bytes(rng, whole > 0 ? whole - 1 : 0));
    if (c.no_marker) std::fill(plain.end() - 8, plain.end(), 0);
    Bytes in = gcrypt_ecb(kKey, plain, true), out(c.in_len + 8, kUntouched);
    in.resize(c.in_len, 0);
    u32 out_len = 12345;
    auto* run = c.encrypt ? Idea_Encrypt_Data : Idea_Decrypt_Data;
    EXPECT_EQ(run(out.data(), &out_len, in.data(), u32(c.in_len), kKey.data(), c.key_len), 0);
    EXPECT_EQ(idea_last_error(), c.last_error);
    EXPECT_EQ(out_len, 12345u);
    expect_output(out, Bytes(plain.begin(), plain.begin() + c.written));
    if (c.key_len == 16) {
      EXPECT_EQ(Crypt_Dec_Data_S(in.data(), u32(c.in_len), out.data(), &out_len, kKey.data()), 1u);
    }
  }
  Bytes out(16);
  u32 out_len = 0;
  EXPECT_EQ(Crypt_Enc_Data_S(kKey.data(), 8, out.data(), &out_len, kKey.data()), 0u);
  EXPECT_EQ(idea_last_error(), kErrDecrypt);
}

}  // namespace
