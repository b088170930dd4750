// The buffer records and their copies.
#include "frame/buffer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

#include "frame/error.h"
#include "support/alloc_failure.h"
#include "support/error_list.h"
#include "support/hex.h"

namespace {

using namespace hylorn;
using namespace hylorn_test;

// Guards the copies: bytes owned by the new record, unusedBits dropped or zeroed, length
// 0 giving the empty record without reading the source, and free emptying the record so
// that a second free is harmless.
TEST(Buffers, CopiesOwnTheirBytes) {
  const Bytes src = from_hex("ff 81");
  DATA_BUFFER plain{7, nullptr};
  ASSERT_EQ(copy_DATA_BUFFER(&plain, 2, src.data()), 0u);
  EXPECT_NE(plain.data, src.data());
  BIT_DATA_BUFFER bits{9, 9, nullptr};
  ASSERT_EQ(copy_NoneBIT_To_BIT(&bits, plain), 0u);
  EXPECT_EQ(bits.unusedBits, 0u);
  bits.unusedBits = 5;
  DATA_BUFFER back{0, nullptr};
  ASSERT_EQ(copy_BIT_To_NoneBIT(&back, bits), 0u);
  EXPECT_EQ(Bytes(bits.data, bits.data + bits.length), src);
  EXPECT_EQ(Bytes(back.data, back.data + back.length), src);
  for (int twice = 0; twice < 2; ++twice) {
    EXPECT_EQ(free_DATA_BUFFER(&plain) + free_DATA_BUFFER(&back) + free_BIT_DATA_BUFFER(&bits), 0u);
    EXPECT_EQ(plain.data, nullptr);
    EXPECT_EQ(bits.length + bits.unusedBits, 0u);
  }
  DATA_BUFFER empty{7, nullptr};
  BIT_DATA_BUFFER empty_bits{3, 3, nullptr};
  ASSERT_EQ(copy_DATA_BUFFER(&empty, 0, nullptr), 0u);
  ASSERT_EQ(copy_NoneBIT_To_BIT(&empty_bits, DATA_BUFFER{0, nullptr}), 0u);
  EXPECT_EQ(empty.length + empty_bits.length + empty_bits.unusedBits, 0u);
  empty.length = 9;
  ASSERT_EQ(copy_BIT_To_NoneBIT(&empty, BIT_DATA_BUFFER{0, 5, nullptr}), 0u);
  EXPECT_EQ(empty.length, 0u);
}

// Guards the failed copy: the "malloc" entry under each copy's own number, appended to
// the caller's list, and a null block with the length left as it was.
TEST(Buffers, FailedCopyReportsMallocUnderItsNumber) {
  u8 src[3] = {1, 2, 3};
  const auto checked = [](u32 result, auto& record) {
    EXPECT_TRUE(result == 0 || record.length == 42u);
    EXPECT_EQ(record.data == nullptr, result != 0);
    std::free(record.data);
    return result;
  };
  const std::pair<int, std::function<u32()>> copies[] = {
      {132,
       [&] {
         DATA_BUFFER d{42, nullptr};
         return checked(copy_DATA_BUFFER(&d, 3, src), d);
       }},
      {136,
       [&] {
         DATA_BUFFER d{42, nullptr};
         return checked(copy_BIT_To_NoneBIT(&d, BIT_DATA_BUFFER{3, 1, src}), d);
       }},
      {137, [&] {
         BIT_DATA_BUFFER b{42, 0, nullptr};
         return checked(copy_NoneBIT_To_BIT(&b, DATA_BUFFER{3, src}), b);
       }}};
  for (const auto& [func_no, copy] : copies) {
    expect_each_malloc_failure(copy, {{kEarlierEntry, {func_no, 1, "malloc"}}});
  }
}

}  // namespace
