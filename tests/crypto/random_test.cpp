// The generator against its rules, with OpenSSL's MD5 as the independent digest and
// 128-bit integer arithmetic as the independent adder.
#include "crypto/random.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

#include "hylorn.h"
#include "models.h"

namespace {

using hylorn::RANDOM_STATE;
using hylorn::u32;
using hylorn::u8;
using namespace hylorn_test;
using Block = Block16;

Block state_of(const RANDOM_STATE& rs) {
  Block b{};
  std::memcpy(b.data(), rs.state, 16);
  return b;
}

// `head` in every byte, then `tail` at the end.
Block bytes(u8 head, std::initializer_list<u8> tail = {}) {
  Block b{};
  b.fill(head);
  std::copy(tail.begin(), tail.end(), b.end() - tail.size());
  return b;
}

// Update adds the block's digest to the state as 128-bit numbers, carries running through
// every byte, and counts the owed seed bytes down to 0. Generating one byte takes it from
// MD5 of the state, which then steps by its own rule: +1 on the last byte, moving on only
// past a byte that was 0 (not a 128-bit increment).
TEST(Random, UpdateAddsWithCarryAndGenerateStepsByItsOwnRule) {
  const struct {
    Block start;
    Bytes block;
    u32 needed_before, needed_after;
    Block stepped;
  } cases[] = {
      {bytes(0), {'a', 'b', 'c'}, 256, 253, bytes(1)},  // every byte was zero
      {bytes(0xFF), {'a', 'b', 'c'}, 256, 253, bytes(0xFF, {0x00})},
      {bytes(0, {0xFF, 0xFF, 0xFF}), Bytes(300, 7), 256, 0, bytes(0, {0xFF, 0xFF, 0x00})},
      {bytes(0xFF, {0x80}), {}, 5, 5, bytes(0xFF, {0x81})},
      {bytes(0x7F, {1, 2, 3}), Bytes(5, 0), 5, 0, bytes(0x7F, {1, 2, 4})},
      {bytes(0, {0x05, 0x00}), {1}, 1, 0, bytes(0, {0x06, 0x01})},
      {bytes(0, {0xAA, 0x00, 0xFF, 0x00}), {2}, 0, 0, bytes(0, {0xAA, 0x00, 0x00, 0x01})},
  };
  for (const auto& c : cases) {
    RANDOM_STATE rs{};
    std::memcpy(rs.state, c.start.data(), 16);
    rs.bytesNeeded = c.needed_before;
    EXPECT_EQ(hylorn::Random_Update(&rs, c.block.data(), static_cast<u32>(c.block.size())), 0u);
    EXPECT_EQ(state_of(rs), add_be128(c.start, md5_block(c.block.data(), c.block.size())));
    u32 reported = 12345;
    EXPECT_EQ(hylorn::Random_Bytes_Needed(&reported, &rs), 0u);
    EXPECT_EQ(reported, c.needed_after);

    std::memcpy(rs.state, c.start.data(), 16);
    rs.bytesNeeded = 0;
    u8 one = 0;
    ASSERT_EQ(hylorn::Random_Generate_Bytes(&one, 1, &rs), 0u);
    Block block = md5_block(c.start.data(), 16);
    EXPECT_EQ(one, block[0]);
    EXPECT_EQ(state_of(rs), c.stepped);
    EXPECT_EQ(rs.outputAvailable, 15u);
    EXPECT_EQ(std::memcmp(rs.output, block.data(), 16), 0);
  }
}

// Init resets the count and the state, not the output block; output is refused (1032,
// nothing written) until all 256 seed bytes arrived.
TEST(Random, InitThenNoOutputUntilSeeded) {
  RANDOM_STATE rs;
  std::memset(&rs, 0x5A, sizeof rs);
  EXPECT_EQ(hylorn::Random_Init(&rs), 0u);
  EXPECT_EQ(rs.bytesNeeded, 256u);
  EXPECT_EQ(state_of(rs), bytes(0));
  EXPECT_EQ(rs.outputAvailable, 0u);
  EXPECT_EQ(rs.output[15], 0x5A);
  u8 out[1] = {0xA5}, seed[255] = {};
  hylorn::Random_Update(&rs, seed, sizeof seed);
  EXPECT_EQ(hylorn::Random_Generate_Bytes(out, 1, &rs), 1032u);
  EXPECT_EQ(out[0], 0xA5);
  hylorn::Random_Update(&rs, seed, 1);
  EXPECT_EQ(hylorn::Random_Generate_Bytes(out, 1, &rs), 0u);
}

// From the all-zero state the blocks come from 00..00, then 01..01, then 01..01 02:
// however the draws split, the stream is the same.
TEST(Random, AnySplitOfTheDrawsGivesTheSameStream) {
  Bytes stream;
  for (const Block& s : {bytes(0), bytes(1), bytes(1, {0x02})}) {
    Block b = md5_block(s.data(), 16);
    stream.insert(stream.end(), b.begin(), b.end());
  }
  stream.resize(40);
  const std::vector<std::vector<u32>> splits = {
      {40}, {16, 1, 23}, {16, 16, 8}, {5, 20, 15}, {1, 15, 1, 15, 8}, {0, 40, 0}, {17, 17, 6}};
  for (const auto& split : splits) {
    RANDOM_STATE rs{};
    Bytes got(40, 0);
    u32 at = 0;
    for (u32 n : split) {
      ASSERT_EQ(hylorn::Random_Generate_Bytes(got.data() + at, n, &rs), 0u);
      at += n;
    }
    EXPECT_EQ(got, stream);
    EXPECT_EQ(rs.outputAvailable, 8u);
  }
}

// The time byte is the low byte of the first value of the generator seed * 214013 +
// 2531011 (mod 2^32), (seed >> 16) & 0x7FFF; large seeds wrap. Seeding from a byte is
// Init and 256 rounds of that byte; from the time, the same with the calendar second's.
TEST(RandomSeed, FromByteAndFromTime) {
  const std::pair<u32, u8> times[] = {
      {0, 38},           {1, 41},    {1700000000u, 46}, {0x7FFFFFFFu, 35},
      {0xFFFFFFFFu, 35}, {50412, 54}};  // low half all ones: one more in the constant carries into
                                        // the byte
  for (auto [seconds, byte] : times) EXPECT_EQ(hylorn::seed_byte_from_time(seconds), byte);
  for (u8 seed : {0x00, 0x26, 0xFF}) {
    RANDOM_STATE rs;
    std::memset(&rs, 0x33, sizeof rs);
    hylorn::Random_Seed_From_Byte(&rs, seed);
    EXPECT_EQ(rs.bytesNeeded + rs.outputAvailable, 0u);
    EXPECT_EQ(state_of(rs), ModelGenerator::seeded({seed}, 256).state());
  }
  if (hylorn::random_seeds_from_system()) return;
  RANDOM_STATE a, b;
  u32 before = static_cast<u32>(std::time(nullptr));
  hylorn::Random_Seed_From_Time(&a);
  bool matched = false;
  for (u32 t = before; t <= static_cast<u32>(std::time(nullptr)); ++t) {
    hylorn::Random_Seed_From_Byte(&b, hylorn::seed_byte_from_time(t));
    matched = matched || state_of(a) == state_of(b);
  }
  EXPECT_TRUE(matched);
}

u32 clock_word_now() {
  unsigned long long ms = static_cast<unsigned long long>(std::clock()) * 1000 / CLOCKS_PER_SEC;
  return static_cast<u32>(std::time(nullptr)) + static_cast<u32>(ms & 0xFFFFFF);
}

// While the clock word (second + processor milliseconds) stays the same, seeding is 64
// rounds of its little-endian bytes. Built for system entropy, two seedings differ.
TEST(RandomSeed, FromClockFeedsLittleEndianClockWords) {
  RANDOM_STATE rs, other;
  if (hylorn::random_seeds_from_system()) {
    for (auto seed : {hylorn::Random_Seed_From_Time, hylorn::Random_Seed_From_Clock}) {
      seed(&rs);
      seed(&other);
      EXPECT_EQ(rs.bytesNeeded, 0u);
      EXPECT_NE(state_of(rs), state_of(other));
    }
    return;
  }
  for (int attempt = 0; attempt < 100; ++attempt) {
    u32 w = clock_word_now();
    hylorn::Random_Seed_From_Clock(&rs);
    if (clock_word_now() != w) continue;
    EXPECT_EQ(rs.bytesNeeded, 0u);
    EXPECT_EQ(state_of(rs),
              ModelGenerator::seeded({u8(w), u8(w >> 8), u8(w >> 16), u8(w >> 24)}, 64).state());
    return;
  }
  ADD_FAILURE() << "the clock never held still for one seeding";
}

// 1 to 256 bytes are written, exactly that many, the last of them from the head of the
// module's current block; 0 and 257 or more write nothing. Every call re-seeds.
TEST(RandomBytes, LengthRules) {
  RANDOM_STATE* module = hylorn::module_random_state();
  for (u32 len : {0u, 1u, 15u, 16u, 17u, 255u, 256u, 257u, 4096u}) {
    SCOPED_TRACE(len);
    const u32 written = len >= 1 && len <= 256 ? len : 0;
    Bytes buf(300, 0xC3);
    module->bytesNeeded = 99;
    EXPECT_EQ(Crypt_Gen_RandomBytes(buf.data(), len), 0u);
    EXPECT_EQ(module->bytesNeeded, 0u);
    EXPECT_EQ(Bytes(buf.begin() + written, buf.end()), Bytes(300 - written, 0xC3));
    const u32 used = written ? 16 - module->outputAvailable : 0;
    EXPECT_EQ(used, written ? (len - 1) % 16 + 1 : 0);
    EXPECT_EQ(std::memcmp(buf.data() + written - used, module->output, used), 0);
    u8 scratch[16];
    module->bytesNeeded = 99;
    EXPECT_EQ(hylorn::Random_Get_Bytes(buf.data(), len, scratch, 16), 1u);
    EXPECT_EQ(module->bytesNeeded, 0u);
  }
}

}  // namespace
