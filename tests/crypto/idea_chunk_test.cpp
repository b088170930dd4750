// Chunks, padding, the data-level operations with their last-error word, and the two
// exported symmetric functions. Expected ciphertexts come from libgcrypt over the padded
// message: in ECB the chunking must be invisible.
#include <algorithm>

#include "hylorn.h"
#include "idea_oracle.h"

using hylorn::u16;
using hylorn::u32;
using hylorn_test::from_hex;
using hylorn_test::to_hex;
using namespace idea_test;

namespace {

const Bytes kKey = from_hex("2BD6459F82C5B300952C49104881FF48");
constexpr unsigned char kUntouched = 0xEE;
constexpr u16 kNoLen = 0xBEEF;

// Checks an output buffer: `expected` at its start, nothing written behind it.
void expect_output(const Bytes& out, const Bytes& expected) {
  ASSERT_LE(expected.size(), out.size());
  EXPECT_EQ(to_hex(Bytes(out.begin(), out.begin() + expected.size())), to_hex(expected));
  EXPECT_TRUE(std::all_of(out.begin() + expected.size(), out.end(),
                          [](unsigned char c) { return c == kUntouched; }));
}

struct ChunkCase {
  int selector, len, result;
  int data_len;  // on success: plaintext bytes
};

TEST(IdeaChunk, EncryptLengthRulesAndPadding) {
  const ChunkCase cases[] = {
      {1, 4096, 0, 4096}, {2, 4096, 0, 4096}, {1, 4095, 195, 0}, {2, 4097, 195, 0},
      {1, 0, 195, 0},     {3, 0, 0, 0},       {4, 1, 0, 1},      {3, 7, 0, 7},
      {4, 8, 0, 8},       {3, 4095, 0, 4095}, {4, 4096, 0, 4096}, {3, 4097, 196, 0},
      {4, -1, 196, 0},    {0, 8, -1, 0},      {5, 8, -1, 0},     {-3, 4096, -1, 0},
  };
  std::mt19937 rng(3);
  const Bytes in = random_bytes(rng, 4200);
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << "selector " << c.selector << " len " << c.len);
    Bytes out(4200, kUntouched);
    u16 out_len = kNoLen;
    ASSERT_EQ(hylorn::Idea_Encrypt_Chunk(c.selector, in.data(), c.len, out.data(), &out_len,
                                         kKey.data()),
              c.result);
    Bytes data(in.begin(), in.begin() + c.data_len);
    Bytes expected = c.result != 0 ? Bytes{}
                                   : gcrypt_ecb(kKey, c.selector >= 3 ? padded(data) : data, true);
    EXPECT_EQ(out_len, c.result != 0 ? kNoLen : expected.size());
    expect_output(out, expected);
  }
}

TEST(IdeaChunk, DecryptLengthRules) {
  const ChunkCase cases[] = {
      {1, 4096, 0, 4096}, {2, 4096, 0, 4096}, {3, 8, 0, 0},      {4, 16, 0, 9},
      {3, 4096, 0, 4095}, {1, 4088, 201, 0},  {2, 4104, 201, 0}, {1, 4095, 201, 0},
      {3, 12, 201, 0},    {4, -4, 201, 0},    {4, 4104, 196, 0}, {3, -8, 196, 0},
      {3, 0, -59, 0},     {0, 8, -1, 0},      {5, 4096, -1, 0},
  };
  std::mt19937 rng(4);
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << "selector " << c.selector << " len " << c.len);
    Bytes plain = random_bytes(rng, static_cast<std::size_t>(c.data_len));
    Bytes in = c.result != 0 ? random_bytes(rng, 4200)
                             : gcrypt_ecb(kKey, c.selector <= 2 ? plain : padded(plain), true);
    Bytes out(4200, kUntouched);
    u16 out_len = kNoLen;
    ASSERT_EQ(hylorn::Idea_Decrypt_Chunk(c.selector, out.data(), &out_len, in.data(), c.len,
                                         kKey.data()),
              c.result);
    EXPECT_EQ(out_len, c.result != 0 ? kNoLen : plain.size());
    expect_output(out, plain);
  }
}

// The data ends before the last 0x01 of the final block; bytes behind it are not
// checked; a final block without 0x01 is refused even if an earlier block holds one.
TEST(IdeaChunk, PaddingMarkerSearch) {
  const struct {
    const char* last_block;
    int data_in_last_block;  // -1: refused
  } cases[] = {
      {"AA BB CC DD EE FF 11 01", 7}, {"AA 01 00 00 00 00 00 00", 1},
      {"01 00 00 00 00 00 00 00", 0}, {"01 01 01 01 01 01 01 01", 7},
      {"AA 01 BB CC DD EE FF 00", 1}, {"01 02 03 04 05 06 07 08", 0},
      {"00 00 00 00 00 00 00 00", -1}, {"02 03 04 05 06 07 08 09", -1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.last_block);
    Bytes plain = from_hex(std::string("01 01 01 01 01 01 01 01") + c.last_block);
    Bytes in = gcrypt_ecb(kKey, plain, true), out(16, kUntouched);
    u16 out_len = kNoLen;
    int r = hylorn::Idea_Decrypt_Chunk(3, out.data(), &out_len, in.data(), 16, kKey.data());
    EXPECT_EQ(r, c.data_in_last_block < 0 ? hylorn::IDEA_WORKER_NO_MARKER : 0);
    plain.resize(c.data_in_last_block < 0 ? 0 : 8 + c.data_in_last_block);
    EXPECT_EQ(out_len, r != 0 ? kNoLen : plain.size());
    expect_output(out, plain);
  }
}

// The workers repeat the length checks with their own codes (unreachable through the
// chunk operations, which check first).
TEST(IdeaChunk, WorkerCodes) {
  hylorn::IdeaSchedule s;
  hylorn::idea_encrypt_schedule(kKey.data(), &s);
  Bytes in(4200, 0), out(4200, kUntouched);
  u16 n = kNoLen;
  const ChunkCase enc[] = {{1, 4095, -61, 0}, {2, 0, -61, 0}, {3, 4097, -60, 0},
                           {4, -1, -60, 0},   {7, 8, -1, 0}};
  for (const auto& c : enc)
    EXPECT_EQ(hylorn::idea_encrypt_chunk_worker(c.selector, in.data(), c.len, out.data(), &n, s),
              c.result);
  const ChunkCase dec[] = {{2, 8, -61, 0},  {1, 4104, -61, 0}, {4, 4104, -60, 0},
                           {3, 12, -60, 0}, {3, 0, -59, 0},    {0, 4096, -1, 0}};
  for (const auto& c : dec)
    EXPECT_EQ(hylorn::idea_decrypt_chunk_worker(c.selector, out.data(), &n, in.data(), c.len, s),
              c.result);
  EXPECT_EQ(n, kNoLen);
  expect_output(out, {});
}

// Lengths around the chunk boundaries, through the data level and the exported pair:
// the output is the whole padded message enciphered (0 bytes give the block 01 00 ..),
// and decryption splits it back however the chunks fall (8192 bytes give 8200, whose
// last chunk is the padding block alone).
TEST(IdeaData, EncryptAndDecryptAcrossChunkBoundaries) {
  std::mt19937 rng(5);
  std::vector<std::size_t> lengths = {0, 1, 7, 8, 9, 12288, 12289, 16384};
  for (std::size_t len = 4080; len <= 4112; ++len) lengths.push_back(len);
  for (std::size_t len = 8176; len <= 8208; ++len) lengths.push_back(len);
  for (std::size_t len : lengths) {
    SCOPED_TRACE(len);
    const Bytes data = random_bytes(rng, len), expected = gcrypt_ecb(kKey, padded(data), true);
    Bytes enc(len + 8, kUntouched), exported(len + 8, kUntouched), dec(len + 8, kUntouched);
    u32 enc_len = 0, exported_len = 0, dec_len = 0;
    ASSERT_EQ(hylorn::Idea_Encrypt_Data(enc.data(), &enc_len, data.data(), u32(len), kKey.data(), 16), 1);
    ASSERT_EQ(enc_len, expected.size());
    expect_output(enc, expected);
    ASSERT_EQ(Crypt_Enc_Data_S(data.data(), u32(len), exported.data(), &exported_len, kKey.data()), 0u);
    EXPECT_EQ(exported, enc);
    ASSERT_EQ(hylorn::Idea_Decrypt_Data(dec.data(), &dec_len, enc.data(), enc_len, kKey.data(), 16), 1);
    ASSERT_EQ(dec_len, len);
    expect_output(dec, data);
    std::fill(dec.begin(), dec.end(), kUntouched);
    ASSERT_EQ(Crypt_Dec_Data_S(enc.data(), enc_len, dec.data(), &dec_len, kKey.data()), 0u);
    expect_output(dec, data);
  }
}

// 4100 bytes: selector 1 deciphers the first 4096 before selector 3 refuses 4 bytes.
// A refused key length comes first, whatever the data.
TEST(IdeaData, DecryptFailuresAndLastErrorWord) {
  const struct {
    const char* name;
    std::size_t in_len;
    u32 key_len;
    bool no_marker;
    u32 last_error;
    std::size_t written;  // leading output bytes written before the failure
  } cases[] = {
      {"key 15", 4104, 15, false, hylorn::IDEA_ERR_KEY_LEN, 0},
      {"key 17 before length check", 12, 17, false, hylorn::IDEA_ERR_KEY_LEN, 0},
      {"empty", 0, 16, false, hylorn::IDEA_ERR_DECRYPT, 0},
      {"not whole blocks", 12, 16, false, hylorn::IDEA_ERR_DECRYPT, 0},
      {"short last chunk", 4100, 16, false, hylorn::IDEA_ERR_DECRYPT, 4096},
      {"no marker", 4104, 16, true, hylorn::IDEA_ERR_DECRYPT, 4096},
  };
  std::mt19937 rng(6);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    // Whole blocks of a valid ciphertext, then any odd bytes as zeros.
    const std::size_t whole = c.in_len / 8 * 8;
    Bytes plain = padded(random_bytes(rng, whole > 0 ? whole - 1 : 0));
    if (c.no_marker) std::fill(plain.end() - 8, plain.end(), 0);
    Bytes in = gcrypt_ecb(kKey, plain, true), out(c.in_len + 8, kUntouched);
    in.resize(c.in_len, 0);
    u32 out_len = 12345;
    EXPECT_EQ(hylorn::Idea_Decrypt_Data(out.data(), &out_len, in.data(), u32(c.in_len), kKey.data(),
                                        c.key_len),
              0);
    EXPECT_EQ(hylorn::idea_last_error(), c.last_error);
    EXPECT_EQ(out_len, 12345u);
    expect_output(out, Bytes(plain.begin(), plain.begin() + c.written));
    if (c.key_len == 16) {
      EXPECT_EQ(Crypt_Dec_Data_S(in.data(), u32(c.in_len), out.data(), &out_len, kKey.data()), 1u);
    }
  }
}

// Only failures write the word: a success afterwards leaves the last code standing.
TEST(IdeaData, EncryptKeyLengthAndStickyLastError) {
  for (u32 key_len : {0u, 15u, 17u, 32u}) {
    Bytes out(16, kUntouched);
    u32 out_len = 7;
    EXPECT_EQ(hylorn::Idea_Encrypt_Data(out.data(), &out_len, kKey.data(), 8, kKey.data(), key_len), 0);
    EXPECT_EQ(hylorn::idea_last_error(), hylorn::IDEA_ERR_KEY_LEN);
    EXPECT_EQ(out_len, 7u);
    expect_output(out, {});
  }
  Bytes out(16);
  u32 out_len = 0;
  EXPECT_EQ(Crypt_Enc_Data_S(kKey.data(), 8, out.data(), &out_len, kKey.data()), 0u);
  EXPECT_EQ(hylorn::idea_last_error(), hylorn::IDEA_ERR_KEY_LEN);
}

}  // namespace
