#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/crypto.h>

#include <random>
#include <string>

#include "frame/error.h"
#include "hylorn.h"
#include "support/error_list.h"
#include "support/hex.h"

using hylorn_test::Bytes;
using hylorn_test::from_hex;

namespace {

constexpr std::size_t kChar2IntRoom = 54;   // as the public header documents
constexpr std::size_t kInt2CharRoom = 310;  //

// Char2Int into exactly the documented room; false when refused.
bool char2int(const std::string& text, Bytes* out) {
  Bytes buf(kChar2IntRoom);
  unsigned len = 0;
  if (Crypt_Char2Int(text.c_str(), buf.data(), &len) != 0) return false;
  EXPECT_LE(len, buf.size());
  *out = Bytes(buf.begin(), buf.begin() + len);
  return true;
}

// Int2Char into exactly the documented room.
bool int2char(const unsigned char* in, int inLen, std::string* out) {
  std::vector<char> buf(kInt2CharRoom, '#');
  if (Crypt_Int2Char(in, inLen, buf.data()) != 0) return false;
  *out = buf.data();
  return true;
}
bool int2char(const Bytes& in, std::string* out) {
  return int2char(in.data(), static_cast<int>(in.size()), out);
}

// The number sum(v_i * 10^i), each character counting as (code - '0') mod 256, in
// OpenSSL's arithmetic, as minimal big-endian bytes (zero as one byte 00).
Bytes reference_value(const std::string& text) {
  BIGNUM* bn = BN_new();
  BN_zero(bn);
  for (unsigned char c : text) {
    BN_mul_word(bn, 10);
    BN_add_word(bn, static_cast<unsigned char>(c - '0'));
  }
  Bytes out(static_cast<std::size_t>(BN_num_bytes(bn)));
  BN_bn2bin(bn, out.data());
  BN_free(bn);
  return out.empty() ? Bytes{0} : out;
}

std::string openssl_decimal(const Bytes& in) {
  BIGNUM* bn = BN_bin2bn(in.data(), static_cast<int>(in.size()), nullptr);
  char* dec = BN_bn2dec(bn);
  std::string s = dec;
  OPENSSL_free(dec);
  BN_free(bn);
  return s;
}

}  // namespace

TEST(Char2Int, Boundaries) {
  const std::pair<std::string, const char*> cases[] = {
      {"255", "ff"},
      {"256", "0100"},
      {"0", "00"},
      {"000", "00"},
      {"", "00"},
      {"000255", "ff"},
      {"65535", "ffff"},
      {"4294967296", "0100000000"},
      {"1", "01"},
      {"128", "80"},
      // 10^128 - 1 needs 426 bits: 54 bytes, the documented room.
      {std::string(128, '9'), nullptr}};
  for (const auto& [text, hex] : cases) {
    Bytes out;
    ASSERT_TRUE(char2int(text, &out)) << text;
    EXPECT_EQ(out, hex ? from_hex(hex) : reference_value(text)) << text;
  }
  Bytes out;
  EXPECT_EQ(reference_value(std::string(128, '9')).size(), 54u);
  EXPECT_FALSE(char2int(std::string(129, '1'), &out));
  EXPECT_FALSE(char2int(std::string(129, '0'), &out));
}

TEST(Char2Int, RandomNumbersOfEveryLengthMatchOpenSsl) {
  std::mt19937 rng(1024);
  for (std::size_t digits = 1; digits <= 128; ++digits) {
    for (int round = 0; round < 3; ++round) {
      std::string text(1, static_cast<char>('1' + rng() % 9));
      while (text.size() < digits) text += static_cast<char>('0' + rng() % 10);
      BIGNUM* bn = nullptr;
      ASSERT_EQ(BN_dec2bn(&bn, text.c_str()), static_cast<int>(digits));
      Bytes theirs(static_cast<std::size_t>(BN_num_bytes(bn)));
      BN_bn2bin(bn, theirs.data());
      BN_free(bn);
      Bytes ours;
      ASSERT_TRUE(char2int(text, &ours));
      EXPECT_EQ(ours, theirs) << text;
    }
  }
}

// Other characters enter the arithmetic as digit values (code - '0') mod 256: any text
// of up to 128 characters makes a number that fits the 54 documented bytes.
TEST(Char2Int, OtherCharactersCountAsWideDigits) {
  std::mt19937 rng(256);
  std::vector<std::string> texts = {
      std::string(128, '/'), std::string(128, '\xff'), ":", "1:", " 7", "9\x80"};
  for (int i = 0; i < 200; ++i) {
    std::string t(1 + rng() % 128, ' ');
    for (auto& c : t) c = static_cast<char>(1 + rng() % 255);
    texts.push_back(t);
  }
  for (const auto& text : texts) {
    Bytes out;
    ASSERT_TRUE(char2int(text, &out));
    EXPECT_EQ(out, reference_value(text)) << hylorn_test::to_hex(hylorn_test::bytes_of(text));
  }
  EXPECT_EQ(reference_value(std::string(128, '/')).size(), 54u);  // the widest value
}

TEST(Int2Char, Boundaries) {
  std::string out;
  const std::pair<const char*, const char*> cases[] = {
      {"", "0"},         {"00", "0"},
      {"00000000", "0"}, {"0100", "256"},
      {"ff", "255"},     {"000001", "1"},
      {"0a", "10"},      {"ffffffffffffffff", "18446744073709551615"}};
  for (auto [hex, dec] : cases) {
    ASSERT_TRUE(int2char(from_hex(hex), &out)) << hex;
    EXPECT_EQ(out, dec) << hex;
  }
  const Bytes max(128, 0xff);  // 2^1024 - 1: 309 digits, the documented room less one
  ASSERT_TRUE(int2char(max, &out));
  EXPECT_EQ(out.size(), 309u);
  EXPECT_EQ(out, openssl_decimal(max));
  EXPECT_FALSE(int2char(Bytes(129, 1), &out));
  const unsigned char four[4] = {1, 2, 3, 4};
  EXPECT_FALSE(int2char(four, -1, &out));
  EXPECT_FALSE(int2char(four, INT32_MIN, &out));
}

TEST(Int2Char, RandomNumbersOfEveryLengthMatchOpenSsl) {
  std::mt19937 rng(2048);
  for (std::size_t n = 1; n <= 128; ++n) {
    for (int round = 0; round < 3; ++round) {
      Bytes in(n);
      for (auto& b : in) b = static_cast<unsigned char>(rng());
      if (round == 2) in[0] = 0;  // a leading zero byte changes nothing
      std::string ours;
      ASSERT_TRUE(int2char(in, &ours));
      EXPECT_EQ(ours, openssl_decimal(in)) << hylorn_test::to_hex(in);
    }
  }
}

TEST(CharCodes, LeaveTheErrorListAlone) {
  hylorn::Crypt_Clear_Err();
  hylorn::Crypt_Put_Err(1, 1, "kept");
  Bytes bytes;
  std::string text;
  EXPECT_TRUE(char2int("12", &bytes));
  EXPECT_FALSE(char2int(std::string(200, '1'), &bytes));
  EXPECT_TRUE(int2char(Bytes{1}, &text));
  EXPECT_FALSE(int2char(Bytes(200), &text));
  EXPECT_EQ(hylorn_test::read_errors().size(), 1u);
}
