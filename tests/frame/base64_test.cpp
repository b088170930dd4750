#include "frame/base64.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <random>
#include <string>

#include "frame/error.h"
#include "support/error_list.h"
#include "support/hex.h"

using hylorn_test::Bytes;
using hylorn_test::bytes_of;
using hylorn_test::ErrEntry;
using hylorn_test::from_hex;
using hylorn_test::read_errors;

namespace {

std::string encode(const Bytes& in) {
  std::string out(4 * ((in.size() + 2) / 3) + 1, '#');
  EXPECT_EQ(hylorn::base64_encode(in.data(), static_cast<unsigned>(in.size()), out.data()), 0u);
  EXPECT_EQ(out.back(), '\0');
  out.pop_back();
  return out;
}

// Decodes into a buffer of exactly 3 * strlen / 4 bytes, the documented bound.
bool decode(const std::string& text, Bytes* out) {
  Bytes buf(3 * text.size() / 4);
  unsigned len = 12345;
  if (hylorn::base64_decode(text.c_str(), buf.data(), &len) != 0) return false;
  EXPECT_LE(len, buf.size());
  *out = Bytes(buf.begin(), buf.begin() + len);
  return true;
}

Bytes random_bytes(std::mt19937& rng, std::size_t n) {
  Bytes b(n);
  for (auto& x : b) x = static_cast<unsigned char>(rng());
  return b;
}

}  // namespace

// RFC 4648, section 10.
TEST(Base64, Rfc4648VectorsBothWays) {
  const std::pair<const char*, const char*> vectors[] = {{"", ""},
                                                         {"f", "Zg=="},
                                                         {"fo", "Zm8="},
                                                         {"foo", "Zm9v"},
                                                         {"foob", "Zm9vYg=="},
                                                         {"fooba", "Zm9vYmE="},
                                                         {"foobar", "Zm9vYmFy"}};
  for (auto [plain, coded] : vectors) {
    EXPECT_EQ(encode(bytes_of(plain)), coded);
    Bytes back;
    ASSERT_TRUE(decode(coded, &back)) << coded;
    EXPECT_EQ(back, bytes_of(plain)) << coded;
  }
}

TEST(Base64, RandomDataMatchesOpenSsl) {
  std::mt19937 rng(4648);
  for (std::size_t n = 0; n < 200; ++n) {
    Bytes data = random_bytes(rng, n);
    std::string theirs(4 * ((n + 2) / 3) + 1, '\0');
    int len = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(theirs.data()), data.data(),
                              static_cast<int>(n));
    theirs.resize(static_cast<std::size_t>(len));
    EXPECT_EQ(encode(data), theirs);
    Bytes back;
    ASSERT_TRUE(decode(theirs, &back));
    EXPECT_EQ(back, data) << n;
  }
}

struct DecodeCase {
  const char* text;
  const char* hex;  // nullptr: the text ends inside a group
};

class Base64Decode : public ::testing::TestWithParam<DecodeCase> {};

TEST_P(Base64Decode, StopsAndSkipsAsDocumented) {
  hylorn::Crypt_Put_Err(1, 1, "left by an earlier call");
  Bytes out;
  const bool ok = decode(GetParam().text, &out);
  if (GetParam().hex == nullptr) {
    EXPECT_FALSE(ok);
    EXPECT_EQ(read_errors(), (std::vector<ErrEntry>{{151, 1, "base64 decode, not 4"}}));
  } else {
    ASSERT_TRUE(ok);
    EXPECT_EQ(out, from_hex(GetParam().hex));
    EXPECT_TRUE(read_errors().empty());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Base64Decode,
    ::testing::Values(DecodeCase{"Zm", ""},  // fewer than 4 characters: nothing, no error
                      DecodeCase{"Zm9", ""},
                      DecodeCase{"Zg==Zm9v", "66"},  // the first padded group ends decoding
                      DecodeCase{"Zm8=Zm9v", "666f"},
                      DecodeCase{"Z===Zm9v", ""},  // three or four "=": no bytes at all
                      DecodeCase{"=Zg=Zm9v", "01"}, DecodeCase{"====", ""},
                      DecodeCase{"=Zg9", "0198"},  // "=" counts where it stands, as a zero sextet
                      DecodeCase{"Zm9vYg", "666f6f"},  // a tail of fewer than 4 is ignored
                      DecodeCase{"Zm9vYmFyZm9", "666f6f626172"},
                      DecodeCase{"Zm 9\r\nv", "666f6f"},  // skipped characters inside a group
                      DecodeCase{"Zm9v\r\nYg", nullptr},  // 4 characters remain, but only 2 count
                      DecodeCase{"Zm9v\r\n", "666f6f"},   // position 4 + 4 is beyond the end: stop
                      DecodeCase{"Zm9vYm\r\n", nullptr},  // likewise
                      DecodeCase{"Zm9vYmF\r", nullptr},
                      DecodeCase{"!!!!", nullptr},  // nothing countable at all
                      DecodeCase{"Zm9v\x80\xff\x01-Yg==", "666f6f62"}));
