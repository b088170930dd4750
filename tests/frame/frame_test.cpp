#include <gtest/gtest.h>
#include <openssl/bn.h>

#include <cstdlib>
#include <cstring>
#include <optional>
#include <random>

#include "frame/buffer.h"
#include "frame/error.h"
#include "hylorn.h"
#include "support/alloc_failure.h"
#include "support/openssl_bytes.h"
#include "support/random_bytes.h"

namespace {

using namespace hylorn;
using namespace hylorn_test;

TEST(ErrorList, FormatOrderCapAndSlots) {
  Crypt_Clear_Err();
  char out[8];
  std::memset(out, 'x', sizeof out);
  EXPECT_EQ(Crypt_Get_Err(out), 0u);
  EXPECT_EQ(std::string(out, sizeof out), std::string(sizeof out, 'x'));
  Crypt_Put_Err(108, 9, "data length");
  Crypt_Put_Err(203, 1, "ASN1_Decode_Sequence");
  const std::string expected =
      "func_no = 108 err_no = 9 err_msg = data length\n"
      "func_no = 203 err_no = 1 err_msg = ASN1_Decode_Sequence\n";
  EXPECT_EQ(error_text(), expected);
  EXPECT_EQ(error_text(), expected);
  const std::string long_msg(300, 'a');
  Crypt_Clear_Err();
  for (int i = 1; i <= 18; ++i) Crypt_Put_Err(100 + i, i, i == 16 ? long_msg.c_str() : "m");
  const auto entries = read_errors();
  ASSERT_EQ(entries.size(), 16u);
  EXPECT_EQ(entries.front(), (ErrEntry{101, 1, "m"}));
  EXPECT_EQ(entries.back().func_no, 116);
  EXPECT_EQ(error_text().size() - error_text().rfind('\n') - 1, kErrorSlotSize - 1u);
  Crypt_Clear_Err();
  for (int i = 1; i <= 18; ++i) Crypt_Put_Err(100 + i, i, long_msg.c_str());
  EXPECT_EQ(error_text().size(), 16 * (kErrorSlotSize - 1u));
  EXPECT_LT(error_text().size(), std::size_t{HYLORN_ERR_TEXT_SIZE});
}

TEST(Frame, VersionAndEnvironmentInAnyOrder) {
  unsigned major = 0, minor = 0;
  EXPECT_EQ(Crypt_Get_Soft_Version(&major, &minor), 0u);
  EXPECT_EQ(major * 100 + minor, 110u);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Crypt_ClearEnvironment() + Crypt_InitEnvironment(), 0u);
}

TEST(Buffers, CopiesOwnTheirBytes) {
  const Bytes src = from_hex("ff 81");
  DATA_BUFFER plain{7, nullptr}, back{0, nullptr}, empty{7, nullptr};
  BIT_DATA_BUFFER bits{9, 9, nullptr}, empty_bits{3, 3, nullptr};
  ASSERT_EQ(copy_DATA_BUFFER(&plain, 2, src.data()) + copy_NoneBIT_To_BIT(&bits, plain), 0u);
  EXPECT_NE(plain.data, src.data());
  EXPECT_EQ(bits.unusedBits, 0u);
  bits.unusedBits = 5;
  ASSERT_EQ(copy_BIT_To_NoneBIT(&back, bits), 0u);
  EXPECT_EQ(Bytes(bits.data, bits.data + bits.length), src);
  EXPECT_EQ(Bytes(back.data, back.data + back.length), src);
  for (int twice = 0; twice < 2; ++twice) {
    EXPECT_EQ(free_DATA_BUFFER(&plain) + free_DATA_BUFFER(&back) + free_BIT_DATA_BUFFER(&bits), 0u);
    EXPECT_EQ(plain.data, nullptr);
    EXPECT_EQ(bits.length + bits.unusedBits, 0u);
  }
  ASSERT_EQ(copy_DATA_BUFFER(&empty, 0, nullptr), 0u);
  ASSERT_EQ(copy_NoneBIT_To_BIT(&empty_bits, DATA_BUFFER{0, nullptr}), 0u);
  EXPECT_EQ(empty.length + empty_bits.length + empty_bits.unusedBits, 0u);
  empty.length = 9;
  ASSERT_EQ(copy_BIT_To_NoneBIT(&empty, BIT_DATA_BUFFER{0, 5, nullptr}), 0u);
  EXPECT_EQ(empty.length, 0u);
}

TEST(Buffers, FailedCopyReportsMallocUnderItsNumber) {
  u8 src[3] = {1, 2, 3};
  const auto check = [](int func_no, auto record, auto copy) {
    expect_each_malloc_failure(
        [&] {
          auto r = record;
          const u32 result = copy(&r);
          EXPECT_TRUE(result == 0 || r.length == 42u);
          EXPECT_EQ(r.data == nullptr, result != 0);
          std::free(r.data);
          return result;
        },
        {{kEarlierEntry, {func_no, 1, "malloc"}}});
  };
  const BIT_DATA_BUFFER bits{3, 1, src};
  check(132, DATA_BUFFER{42, nullptr}, [&](DATA_BUFFER* d) { return copy_DATA_BUFFER(d, 3, src); });
  check(136, DATA_BUFFER{42, nullptr},
        [&](DATA_BUFFER* d) { return copy_BIT_To_NoneBIT(d, bits); });
  check(137, BIT_DATA_BUFFER{42, 0, nullptr}, [&](BIT_DATA_BUFFER* b) {
    return copy_NoneBIT_To_BIT(b, DATA_BUFFER{3, src});
  });
}

// sum(v_i * 10^i) with v_i = (c - '0') mod 256, as minimal big-endian bytes.
Bytes reference_value(const std::string& text) {
  BIGNUM* bn = BN_new();
  for (unsigned char c : text) BN_mul_word(bn, 10), BN_add_word(bn, u8(c - '0'));
  Bytes out = bn_bytes(bn);
  BN_free(bn);
  return out.empty() ? Bytes{0} : out;
}

// Char2Int into exactly the documented 54 bytes, Int2Char into exactly 310 characters.
std::optional<Bytes> char2int(const std::string& text) {
  Bytes buf(54);
  unsigned len = 0;
  if (Crypt_Char2Int(text.c_str(), buf.data(), &len) != 0) return std::nullopt;
  buf.resize(len);  // a length past the room shows as a wrong value
  return buf;
}
std::optional<std::string> int2char(const Bytes& in, int inLen) {
  std::vector<char> buf(310, '#');
  if (Crypt_Int2Char(in.data(), inLen, buf.data()) != 0) return std::nullopt;
  return std::string(buf.data());
}

// Every length to the limits both ways against OpenSSL; one more is refused.
TEST(Charcode, BothWaysMatchOpenSslUpToTheLimits) {
  std::mt19937 rng(1024);
  std::vector<std::string> texts = {"", "0", "000255", std::string(128, '/'), ":", "9\x80"};
  std::vector<Bytes> numbers = {{}, from_hex("00000000"), Bytes(128, 0xff)};
  for (std::size_t n = 1; n <= 128; ++n) {
    std::string digits(n, '0'), any(n, ' ');
    for (auto& c : digits) c = char('0' + rng() % 10);
    for (auto& c : any) c = char(1 + rng() % 255);
    texts.insert(texts.end(), {digits, any});
    numbers.push_back(random_bytes(rng, n));
    numbers.push_back(numbers.back());
    numbers.back()[0] = 0;
  }
  for (const auto& text : texts) EXPECT_EQ(char2int(text), reference_value(text)) << text;
  for (const auto& in : numbers) EXPECT_EQ(int2char(in, int(in.size())), bn_decimal(in));
  clear_errors();
  Crypt_Put_Err(1, 1, "kept");
  for (int length : {129, -1, INT32_MIN}) EXPECT_EQ(int2char(Bytes(129, 1), length), std::nullopt);
  EXPECT_EQ(char2int(std::string(129, '0')), std::nullopt);
  EXPECT_EQ(read_errors().size(), 1u);
}

}  // namespace
