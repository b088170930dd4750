// Base64: the RFC 4648 vectors both ways, and where the decoder stops and what it skips.
// Encoding and decoding of every length against OpenSSL runs through the PEM tests.
#include "frame/base64.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "frame/error.h"
#include "support/error_list.h"
#include "support/hex.h"

namespace {

using namespace hylorn_test;

// Decodes into a buffer of exactly 3 * strlen / 4 bytes, the documented bound; false when
// the text is refused.
bool decode(const std::string& text, Bytes* out) {
  Bytes buf(3 * text.size() / 4);
  unsigned len = 12345;
  if (hylorn::base64_decode(text.c_str(), buf.data(), &len) != 0) return false;
  EXPECT_LE(len, buf.size());
  *out = Bytes(buf.begin(), buf.begin() + len);
  return true;
}

// Guards the alphabet, the bit order and the padding, both ways.
TEST(Base64, Rfc4648Vectors) {
  // clang-format off
  const std::pair<const char*, const char*> vectors[] = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}};
  // clang-format on
  for (auto [plain, coded] : vectors) {
    std::string out(std::strlen(coded) + 1, '#');
    hylorn::base64_encode(bytes_of(plain).data(), unsigned(std::strlen(plain)), out.data());
    EXPECT_EQ(out, std::string(coded) + '\0');
    Bytes back;
    ASSERT_TRUE(decode(coded, &back)) << coded;
    EXPECT_EQ(back, bytes_of(plain)) << coded;
  }
}

// Guards where decoding stops (the first padded group, a tail of fewer than 4 that
// remain), what it skips, the "=" counting as a zero sextet where it stands, and the one
// entry for a text that ends inside a group (hex nullptr).
TEST(Base64, DecodeStopsAndSkipsAsDocumented) {
  // clang-format off
  const std::pair<const char*, const char*> cases[] = {
      {"Zm", ""}, {"Zm9", ""}, {"Zg==Zm9v", "66"}, {"Zm8=Zm9v", "666f"}, {"Z===Zm9v", ""},
      {"=Zg=Zm9v", "01"}, {"====", ""}, {"=Zg9", "0198"}, {"Zm9vYg", "666f6f"},
      {"Zm9vYmFyZm9", "666f6f626172"}, {"Zm 9\r\nv", "666f6f"}, {"!!!!", nullptr},
      {"Zm9v\r\n", "666f6f"},  // position 4 + 4 is past the end: stop
      {"Zm9v\r\nYg", nullptr}, // 4 characters remain, only 2 count
      {"Zm9vYm\r\n", nullptr}, {"Zm9vYmF\r", nullptr}, {"Zm9v\x80\xff\x01-Yg==", "666f6f62"}};
  // clang-format on
  for (auto [text, hex] : cases) {
    hylorn::Crypt_Put_Err(1, 1, "left by an earlier call");
    Bytes out;
    const bool ok = decode(text, &out);
    EXPECT_EQ(ok, hex != nullptr) << text;
    EXPECT_EQ(out, from_hex(hex ? hex : "")) << text;
    const Entries none, refused = {{151, 1, "base64 decode, not 4"}};
    EXPECT_EQ(read_errors(), ok ? none : refused) << text;
  }
}

}  // namespace
