// Every truncated prefix of a valid element, in a heap buffer of exactly its size, must
// fail with one entry and without a read past the end (checked by AddressSanitizer).
#include <gtest/gtest.h>

#include <string>

#include "coders.h"
#include "support/error_list.h"
#include "support/hex.h"

namespace {

using asn1_test::Bytes;
using asn1_test::decode_exact;
using hylorn_test::from_hex;
using hylorn_test::read_errors;
using hylorn_test::to_hex;

struct Whole {
  const char* decoder;
  Bytes der;
};

Bytes with_contents(const char* header, std::size_t n) {
  Bytes der = from_hex(header);
  for (std::size_t i = 0; i < n; ++i) der.push_back(hylorn::u8(0x31 + i % 40));
  return der;
}

std::vector<Whole> wholes() {
  return {
      {"Integer", from_hex("02 03 00 80 00")},
      {"Integer", with_contents("02 81 80", 128)},
      {"OctetString", from_hex("04 84 00 00 00 02 aa bb")},
      {"OctetString", with_contents("04 82 01 00", 256)},
      {"OctetString", from_hex("04 80")},
      {"Boolean", from_hex("01 01 ff")},
      {"BitString", from_hex("03 03 07 ff 80")},
      {"BitString", from_hex("03 81 01 00")},
      {"Object", from_hex("06 03 55 04 03")},
      {"PrintableString", from_hex("13 02 41 42")},
      {"T61String", from_hex("14 83 00 00 02 41 42")},
      {"IA5String", from_hex("16 02 41 42")},
      {"UTCTime", with_contents("17 0d", 13)},
      {"GeneralizedTime", with_contents("18 0f", 15)},
      {"BMPString", from_hex("1e 04 4e 2d 00 41")},
      {"BMPString", from_hex("1e 81 03 00 41 00")},
      {"ExplicitTag", from_hex("a3 81 03 02 01 05")},
      {"ExplicitTagP", from_hex("a0 80")},
      {"Sequence", from_hex("30 0a 04 81 05 01 02 03 04 05 05 00")},
      {"Sequence", from_hex("30 81 06 02 01 05 04 01 41")},
      {"Sequence", from_hex("30 84 00 00 00 05 30 03 02 01 07")},
      {"Set", from_hex("31 06 04 01 41 02 01 05")},
  };
}

class Prefixes : public ::testing::TestWithParam<Whole> {};

TEST_P(Prefixes, EveryTruncationFailsWithALengthEntry) {
  asn1_test::TestBmpTable table;
  const auto& w = GetParam();
  const auto& d = asn1_test::decoder(w.decoder);
  ASSERT_EQ(decode_exact(d, w.der).result, 0u) << to_hex(w.der);
  const std::size_t too_short = std::string(w.decoder) == "Boolean" ? 3 : 2;
  for (std::size_t n = 0; n < w.der.size(); ++n) {
    const Bytes prefix(w.der.begin(), w.der.begin() + n);
    EXPECT_EQ(decode_exact(d, prefix).result, 1u) << to_hex(prefix);
    const auto entries = read_errors();
    ASSERT_EQ(entries.size(), 1u) << to_hex(prefix);
    EXPECT_EQ(entries[0].func_no, d.func_no);
    EXPECT_EQ(entries[0].msg, n < too_short ? "data length less than 2" : "data length")
        << to_hex(prefix);
  }
  // One byte too many is refused as well.
  Bytes longer = w.der;
  longer.push_back(0);
  EXPECT_EQ(decode_exact(d, longer).result, 1u);
  EXPECT_EQ(read_errors().at(0).msg, "data length");
}

INSTANTIATE_TEST_SUITE_P(ValidElements, Prefixes, ::testing::ValuesIn(wholes()),
                         [](const auto& info) {
                           return std::string(info.param.decoder) + "_" +
                                  std::to_string(info.index);
                         });

}  // namespace
