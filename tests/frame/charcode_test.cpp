// Decimal text <-> big-endian bytes, against OpenSSL's arithmetic for numbers of every
// length up to the limits of 128 digits and 128 bytes.
#include <gtest/gtest.h>
#include <openssl/bn.h>

#include <optional>
#include <random>
#include <string>

#include "frame/error.h"
#include "hylorn.h"
#include "support/error_list.h"
#include "support/hex.h"
#include "support/openssl_bytes.h"
#include "support/random_bytes.h"

namespace {

using namespace hylorn_test;

// Char2Int into exactly the documented 54 bytes; nothing when refused.
std::optional<Bytes> char2int(const std::string& text) {
  Bytes buf(54);
  unsigned len = 0;
  if (Crypt_Char2Int(text.c_str(), buf.data(), &len) != 0) return std::nullopt;
  buf.resize(len);  // a length past the room shows as a wrong value
  return buf;
}

// Int2Char of inLen bytes into exactly the documented 310 characters; nothing when refused.
std::optional<std::string> int2char(const Bytes& in, int inLen) {
  std::vector<char> buf(310, '#');
  if (Crypt_Int2Char(in.data(), inLen, buf.data()) != 0) return std::nullopt;
  return std::string(buf.data());
}

// sum(v_i * 10^i), each character counting as (code - '0') mod 256, in OpenSSL's
// arithmetic, as minimal big-endian bytes (zero as one byte 00).
Bytes reference_value(const std::string& text) {
  BIGNUM* bn = BN_new();
  BN_zero(bn);
  for (unsigned char c : text) {
    BN_mul_word(bn, 10);
    BN_add_word(bn, static_cast<unsigned char>(c - '0'));
  }
  Bytes out = bn_bytes(bn);
  BN_free(bn);
  return out.empty() ? Bytes{0} : out;
}

// Guards the conversion of decimal numbers and of other characters taken as wide digits
// ('/' counts 255), at every length up to 128, and the refusal of 129 characters.
TEST(Char2Int, MatchesOpenSslUpTo128Characters) {
  std::mt19937 rng(1024);
  std::vector<std::string> texts = {
      "", "0", "000255", "128", std::string(128, '9'), std::string(128, '/'), ":", "9\x80"};
  for (std::size_t n = 1; n <= 128; ++n) {
    std::string digits(n, '0'), any(n, ' ');
    for (auto& c : digits) c = char('0' + rng() % 10);
    for (auto& c : any) c = char(1 + rng() % 255);
    texts.push_back(digits);
    texts.push_back(any);
  }
  for (const auto& text : texts) {
    EXPECT_EQ(char2int(text), reference_value(text)) << to_hex(bytes_of(text));
  }
  EXPECT_EQ(char2int(std::string(129, '0')), std::nullopt);
}

// Guards the conversion at every length up to 128 bytes (leading zero bytes included),
// zero and the empty number as "0", and the refusal of 129 bytes and negative lengths;
// neither direction touches the error list.
TEST(Int2Char, MatchesOpenSslUpTo128Bytes) {
  std::mt19937 rng(2048);
  std::vector<Bytes> numbers = {{}, from_hex("00000000"), Bytes(128, 0xff)};
  for (std::size_t n = 1; n <= 128; ++n) {
    numbers.push_back(random_bytes(rng, n));
    numbers.push_back(numbers.back());
    numbers.back()[0] = 0;
  }
  for (const auto& in : numbers)
    EXPECT_EQ(int2char(in, int(in.size())), bn_decimal(in)) << to_hex(in);
  clear_errors();
  hylorn::Crypt_Put_Err(1, 1, "kept");
  for (int length : {129, -1, INT32_MIN}) EXPECT_EQ(int2char(Bytes(129, 1), length), std::nullopt);
  EXPECT_EQ(char2int(std::string(200, '1')), std::nullopt);
  EXPECT_NE(char2int("12"), std::nullopt);
  EXPECT_EQ(read_errors().size(), 1u);
}

}  // namespace
