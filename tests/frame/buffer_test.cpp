#include <gtest/gtest.h>

#include "frame/buffer.h"
#include "support/error_list.h"
#include "support/fail_malloc.h"
#include "support/hex.h"

using namespace hylorn;
using hylorn_test::ErrEntry;
using hylorn_test::FailNthMalloc;
using hylorn_test::from_hex;
using hylorn_test::read_errors;

TEST(DataBuffer, CopyOfZeroBytesIsEmptyAndDoesNotReadSource) {
  DATA_BUFFER b{7, nullptr};
  EXPECT_EQ(copy_DATA_BUFFER(&b, 0, nullptr), 0u);
  EXPECT_EQ(b.length, 0u);
  EXPECT_EQ(b.data, nullptr);
}

TEST(DataBuffer, CopyOwnsItsBytesAndFreeIsIdempotent) {
  auto src = from_hex("01 02 03 04 05 06 07");
  DATA_BUFFER b;
  ini_DATA_BUFFER(&b);
  ASSERT_EQ(copy_DATA_BUFFER(&b, src.size(), src.data()), 0u);
  ASSERT_EQ(b.length, src.size());
  EXPECT_NE(b.data, src.data());
  EXPECT_EQ(hylorn_test::Bytes(b.data, b.data + b.length), src);
  EXPECT_EQ(free_DATA_BUFFER(&b), 0u);
  EXPECT_EQ(b.data, nullptr);
  EXPECT_EQ(free_DATA_BUFFER(&b), 0u);
}

TEST(DataBuffer, BitConversionsDropOrZeroUnusedBits) {
  auto src = from_hex("ff 81");
  BIT_DATA_BUFFER bits{2, 5, src.data()};
  DATA_BUFFER plain;
  ini_DATA_BUFFER(&plain);
  ASSERT_EQ(copy_BIT_To_NoneBIT(&plain, bits), 0u);
  EXPECT_EQ(hylorn_test::Bytes(plain.data, plain.data + plain.length), src);  // last byte kept

  BIT_DATA_BUFFER back{9, 9, nullptr};
  ASSERT_EQ(copy_NoneBIT_To_BIT(&back, plain), 0u);
  EXPECT_EQ(back.unusedBits, 0u);
  EXPECT_EQ(back.length, 2u);
  free_BIT_DATA_BUFFER(&back);
  EXPECT_EQ(back.unusedBits, 0u);

  DATA_BUFFER empty{0, nullptr};
  BIT_DATA_BUFFER e{3, 3, nullptr};
  ASSERT_EQ(copy_NoneBIT_To_BIT(&e, empty), 0u);
  EXPECT_EQ(e.length + e.unusedBits, 0u);
  free_DATA_BUFFER(&plain);
}

struct AllocFailCase {
  const char* name;
  int func_no;
  u32 (*copy)(const hylorn_test::Bytes&);
};

class BufferAllocFailure : public ::testing::TestWithParam<AllocFailCase> {};

TEST_P(BufferAllocFailure, ReportsMallocAndLeavesLengthAndNullData) {
  hylorn_test::clear_errors();
  u32 result;
  {
    FailNthMalloc fail(1);
    result = GetParam().copy(from_hex("0a 0b 0c"));
    EXPECT_TRUE(fail.fired());
  }
  EXPECT_EQ(result, 1u);
  EXPECT_EQ(read_errors(), (std::vector<ErrEntry>{{GetParam().func_no, 1, "malloc"}}));
}

// Each case checks the record the copy leaves behind on failure.
INSTANTIATE_TEST_SUITE_P(
    Copies, BufferAllocFailure,
    ::testing::Values(
        AllocFailCase{"copy_DATA_BUFFER", 132,
                      [](const hylorn_test::Bytes& s) {
                        DATA_BUFFER d{42, nullptr};
                        u32 r = copy_DATA_BUFFER(&d, s.size(), s.data());
                        EXPECT_EQ(d.length, 42u);  // only the pointer was written
                        EXPECT_EQ(d.data, nullptr);
                        return r;
                      }},
        AllocFailCase{"copy_BIT_To_NoneBIT", 136,
                      [](const hylorn_test::Bytes& s) {
                        DATA_BUFFER d{0, nullptr};
                        u32 r = copy_BIT_To_NoneBIT(
                            &d, BIT_DATA_BUFFER{u32(s.size()), 0, const_cast<u8*>(s.data())});
                        EXPECT_EQ(d.data, nullptr);
                        return r;
                      }},
        AllocFailCase{"copy_NoneBIT_To_BIT", 137,
                      [](const hylorn_test::Bytes& s) {
                        BIT_DATA_BUFFER d{0, 0, nullptr};
                        u32 r = copy_NoneBIT_To_BIT(
                            &d, DATA_BUFFER{u32(s.size()), const_cast<u8*>(s.data())});
                        EXPECT_EQ(d.data, nullptr);
                        return r;
                      }}),
    [](const auto& info) { return std::string(info.param.name); });
