// The generator checked against its rules, with OpenSSL's MD5 as the independent digest
// and 128-bit integer arithmetic as the independent adder.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <ctime>
#include <vector>

#include "crypto/random.h"
#include "hylorn.h"
#include "openssl_oracle.h"

namespace {

using hylorn::RANDOM_STATE;
using hylorn::u32;
using hylorn::u8;
using Block = std::array<u8, 16>;

Block md5(const u8* data, std::size_t n) {
  auto d = hylorn_test::openssl_digest(EVP_md5(), data, n);
  Block b{};
  std::copy(d.begin(), d.end(), b.begin());
  return b;
}
Block md5(const Block& b) { return md5(b.data(), b.size()); }

Block add_be128(const Block& a, const Block& b) {
  unsigned __int128 x = 0, y = 0;
  for (u8 v : a) x = (x << 8) | v;
  for (u8 v : b) y = (y << 8) | v;
  x += y;  // modulo 2^128
  Block out{};
  for (int i = 15; i >= 0; --i, x >>= 8) out[i] = static_cast<u8>(x);
  return out;
}

Block state_of(const RANDOM_STATE& rs) {
  Block b{};
  std::memcpy(b.data(), rs.state, 16);
  return b;
}

RANDOM_STATE ready_with(const Block& state) {
  RANDOM_STATE rs{};
  std::memcpy(rs.state, state.data(), 16);
  return rs;
}

Block filled(u8 v) {
  Block b{};
  b.fill(v);
  return b;
}

Block with_tail(std::initializer_list<u8> tail, u8 head = 0) {
  Block b = filled(head);
  std::copy(tail.begin(), tail.end(), b.end() - tail.size());
  return b;
}

TEST(RandomInit, ResetsCountsAndStateButKeepsOutput) {
  RANDOM_STATE rs;
  std::memset(&rs, 0x5A, sizeof rs);
  EXPECT_EQ(hylorn::Random_Init(&rs), 0u);
  EXPECT_EQ(rs.bytesNeeded, 256u);
  EXPECT_EQ(state_of(rs), filled(0));
  EXPECT_EQ(rs.outputAvailable, 0u);
  for (u8 v : rs.output) EXPECT_EQ(v, 0x5A);
}

struct UpdateCase {
  Block start;
  std::vector<u8> block;
  u32 needed_before, needed_after;
};

TEST(RandomUpdate, AddsTheMd5OfTheBlockWithCarryAndCountsSeedBytes) {
  const UpdateCase cases[] = {
      {filled(0), {'a', 'b', 'c'}, 256, 253},
      {filled(0xFF), {'a', 'b', 'c'}, 256, 253},  // carries run through every byte
      {with_tail({0xFF, 0xFF, 0xFF}), std::vector<u8>(300, 7), 256, 0},
      {with_tail({0x80}, 0xFF), {}, 5, 5},
      {with_tail({1, 2, 3}, 0x7F), std::vector<u8>(5, 0), 5, 0},
      {filled(0x11), {0}, 0, 0},
  };
  for (const auto& c : cases) {
    RANDOM_STATE rs = ready_with(c.start);
    rs.bytesNeeded = c.needed_before;
    EXPECT_EQ(hylorn::Random_Update(&rs, c.block.data(), static_cast<u32>(c.block.size())), 0u);
    EXPECT_EQ(state_of(rs), add_be128(c.start, md5(c.block.data(), c.block.size())));
    EXPECT_EQ(rs.bytesNeeded, c.needed_after);
    u32 reported = 12345;
    EXPECT_EQ(hylorn::Random_Bytes_Needed(&reported, &rs), 0u);
    EXPECT_EQ(reported, c.needed_after);
  }
}

TEST(RandomGenerate, RefusesUntilAllSeedBytesArrived) {
  RANDOM_STATE rs;
  hylorn::Random_Init(&rs);
  u8 out[8];
  std::memset(out, 0xA5, sizeof out);
  const u8 seed[255] = {};
  hylorn::Random_Update(&rs, seed, sizeof seed);
  EXPECT_EQ(hylorn::Random_Generate_Bytes(out, sizeof out, &rs), hylorn::RANDOM_ERR_NEED_RANDOM);
  EXPECT_EQ(hylorn::RANDOM_ERR_NEED_RANDOM, 1032u);
  for (u8 v : out) EXPECT_EQ(v, 0xA5);
  hylorn::Random_Update(&rs, seed, 1);
  EXPECT_EQ(hylorn::Random_Generate_Bytes(out, sizeof out, &rs), 0u);
}

// One draw of a byte from a fresh block shows one step of the state.
TEST(RandomGenerate, StepsTheStateByItsOwnIncrementRule) {
  const struct {
    Block before, after;
  } cases[] = {
      {with_tail({0xFF}), filled(0)},                        // wraps without carry
      {with_tail({0x05, 0x00}), with_tail({0x06, 0x01})},    // carries past a zero
      {filled(0), filled(1)},                                // every byte was zero
      {filled(0xFF), with_tail({0x00}, 0xFF)},
      {with_tail({0xAA, 0x00, 0xFF, 0x00}), with_tail({0xAA, 0x00, 0x00, 0x01})},
      {with_tail({0x12, 0x34}, 0x00), with_tail({0x12, 0x35})},
  };
  for (const auto& c : cases) {
    RANDOM_STATE rs = ready_with(c.before);
    u8 one = 0;
    ASSERT_EQ(hylorn::Random_Generate_Bytes(&one, 1, &rs), 0u);
    Block block = md5(c.before);
    EXPECT_EQ(one, block[0]);
    EXPECT_EQ(state_of(rs), c.after);
    EXPECT_EQ(rs.outputAvailable, 15u);
    EXPECT_EQ(std::memcmp(rs.output, block.data(), 16), 0);
  }
}

TEST(RandomGenerate, SixteenThenOneUsesANewBlockFromTheSteppedState) {
  const Block s0 = with_tail({0x05, 0x00});
  RANDOM_STATE rs = ready_with(s0);
  u8 first[16], second = 0;
  ASSERT_EQ(hylorn::Random_Generate_Bytes(first, 16, &rs), 0u);
  EXPECT_EQ(std::memcmp(first, md5(s0).data(), 16), 0);
  EXPECT_EQ(rs.outputAvailable, 0u);
  EXPECT_EQ(state_of(rs), with_tail({0x06, 0x01}));
  ASSERT_EQ(hylorn::Random_Generate_Bytes(&second, 1, &rs), 0u);
  EXPECT_EQ(second, md5(with_tail({0x06, 0x01}))[0]);
  EXPECT_EQ(rs.outputAvailable, 15u);
  EXPECT_EQ(state_of(rs), with_tail({0x06, 0x02}));
}

// From the all-zero state the blocks come from 00..00, then 01..01, then 01..01 02.
TEST(RandomGenerate, AnySplitOfTheDrawsGivesTheSameStream) {
  std::vector<u8> stream;
  for (const Block& s : {filled(0), filled(1), with_tail({0x02}, 0x01)}) {
    Block b = md5(s);
    stream.insert(stream.end(), b.begin(), b.end());
  }
  stream.resize(40);
  const std::vector<std::vector<u32>> splits = {
      {40}, {16, 16, 8}, {5, 20, 15}, {1, 15, 1, 15, 8}, {0, 40, 0}, {17, 17, 6}};
  for (const auto& split : splits) {
    RANDOM_STATE rs{};
    std::vector<u8> got(40, 0);
    u32 at = 0;
    for (u32 n : split) {
      ASSERT_EQ(hylorn::Random_Generate_Bytes(got.data() + at, n, &rs), 0u);
      at += n;
    }
    EXPECT_EQ(got, stream);
    EXPECT_EQ(rs.outputAvailable, 8u);
  }
}

TEST(RandomSeed, TimeByteIsTheFirstValueOfTheLinearCongruentialGenerator) {
  EXPECT_EQ(hylorn::seed_byte_from_time(1), 41);  // the well-known first value after seed 1
  for (u32 seconds : {0u, 1u, 2u, 1700000000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    unsigned long long next = (seconds * 214013ull + 2531011ull) % (1ull << 32);
    EXPECT_EQ(hylorn::seed_byte_from_time(seconds), static_cast<u8>((next >> 16) & 0x7FFF))
        << seconds;
  }
}

Block seeded_by_repeating(const std::vector<u8>& block, int rounds) {
  Block s = filled(0);
  for (int i = 0; i < rounds; ++i) s = add_be128(s, md5(block.data(), block.size()));
  return s;
}

TEST(RandomSeed, FromByteRuns256RoundsOfTheSameByte) {
  for (u8 seed : {0x00, 0x26, 0xFF}) {
    RANDOM_STATE rs;
    std::memset(&rs, 0x33, sizeof rs);
    hylorn::Random_Seed_From_Byte(&rs, seed);
    EXPECT_EQ(rs.bytesNeeded, 0u);
    EXPECT_EQ(rs.outputAvailable, 0u);
    EXPECT_EQ(state_of(rs), seeded_by_repeating({seed}, 256));
  }
}

TEST(RandomSeed, FromTimeDependsOnlyOnTheCalendarSecond) {
  RANDOM_STATE a, b;
  if (hylorn::random_seeds_from_system()) {
    hylorn::Random_Seed_From_Time(&a);
    hylorn::Random_Seed_From_Time(&b);
    EXPECT_EQ(a.bytesNeeded, 0u);
    EXPECT_NE(state_of(a), state_of(b));
    return;
  }
  u32 before = static_cast<u32>(std::time(nullptr));
  hylorn::Random_Seed_From_Time(&a);
  u32 after = static_cast<u32>(std::time(nullptr));
  bool matched = false;
  for (u32 t = before; t <= after; ++t) {
    hylorn::Random_Seed_From_Byte(&b, hylorn::seed_byte_from_time(t));
    matched = matched || state_of(a) == state_of(b);
  }
  EXPECT_TRUE(matched);
  EXPECT_EQ(a.bytesNeeded, 0u);
}

u32 clock_word_now() {
  unsigned long long ms = static_cast<unsigned long long>(std::clock()) * 1000 / CLOCKS_PER_SEC;
  return static_cast<u32>(std::time(nullptr)) + static_cast<u32>(ms & 0xFFFFFF);
}

// While the clock word stays the same, seeding is 64 rounds of its little-endian bytes.
TEST(RandomSeed, FromClockFeedsLittleEndianClockWords) {
  RANDOM_STATE rs;
  if (hylorn::random_seeds_from_system()) {
    RANDOM_STATE other;
    hylorn::Random_Seed_From_Clock(&rs);
    hylorn::Random_Seed_From_Clock(&other);
    EXPECT_EQ(rs.bytesNeeded, 0u);
    EXPECT_NE(state_of(rs), state_of(other));
    return;
  }
  for (int attempt = 0; attempt < 100; ++attempt) {
    u32 w = clock_word_now();
    hylorn::Random_Seed_From_Clock(&rs);
    if (clock_word_now() != w) continue;
    EXPECT_EQ(rs.bytesNeeded, 0u);
    EXPECT_EQ(state_of(rs), seeded_by_repeating({u8(w), u8(w >> 8), u8(w >> 16), u8(w >> 24)}, 64));
    return;
  }
  ADD_FAILURE() << "the clock never held still for one seeding";
}

TEST(RandomBytes, RefusedLengthsWriteNothingButStillReseed) {
  for (u32 len : {0u, 257u, 4096u}) {
    RANDOM_STATE* module = hylorn::module_random_state();
    module->bytesNeeded = 99;
    std::vector<u8> buf(300, 0xC3);
    EXPECT_EQ(Crypt_Gen_RandomBytes(buf.data(), len), 0u);
    EXPECT_EQ(buf, std::vector<u8>(300, 0xC3)) << len;
    EXPECT_EQ(module->bytesNeeded, 0u);
    u8 scratch[16];
    module->bytesNeeded = 99;
    EXPECT_EQ(hylorn::Random_Get_Bytes(buf.data(), len, scratch, 16), 1u);
    EXPECT_EQ(module->bytesNeeded, 0u);
  }
}

// The bytes written last are the head of the module's current output block.
TEST(RandomBytes, AcceptedLengthsFillExactlyThatMuch) {
  for (u32 len : {1u, 15u, 16u, 17u, 255u, 256u}) {
    std::vector<u8> buf(300, 0xC3);
    EXPECT_EQ(Crypt_Gen_RandomBytes(buf.data(), len), 0u);
    const RANDOM_STATE* module = hylorn::module_random_state();
    u32 used = 16 - module->outputAvailable;
    EXPECT_EQ(used, (len - 1) % 16 + 1) << len;
    EXPECT_EQ(std::memcmp(buf.data() + len - used, module->output, used), 0) << len;
    EXPECT_EQ(std::vector<u8>(buf.begin() + len, buf.end()), std::vector<u8>(300 - len, 0xC3));
  }
}

// Every draw re-seeds from scratch, so two draws within one clock reading repeat.
TEST(RandomBytes, DrawsRepeatWithinOneClockReading) {
  u8 a[32], b[32];
  if (hylorn::random_seeds_from_system()) {
    Crypt_Gen_RandomBytes(a, 32);
    Crypt_Gen_RandomBytes(b, 32);
    EXPECT_NE(std::memcmp(a, b, 32), 0);
    return;
  }
  for (int attempt = 0; attempt < 100; ++attempt) {
    u32 w = clock_word_now();
    Crypt_Gen_RandomBytes(a, 32);
    Crypt_Gen_RandomBytes(b, 32);
    if (clock_word_now() != w) continue;
    EXPECT_EQ(std::memcmp(a, b, 32), 0);
    return;
  }
  ADD_FAILURE() << "the clock never held still for two draws";
}

}  // namespace
