// Known answers and error entries of the DER primitives.
#include <gtest/gtest.h>

#include <random>

#include "asn1/der.h"
#include "asn1/der_reader.h"
#include "coders.h"
#include "hylorn.h"
#include "support/error_list.h"
#include "support/hex.h"

namespace {

using asn1_test::Bytes;
using asn1_test::decode_exact;
using asn1_test::encode;
using hylorn_test::ErrEntry;
using hylorn_test::from_hex;
using hylorn_test::read_errors;
using hylorn_test::to_hex;
using Entries = std::vector<ErrEntry>;
using hylorn::u32;
using hylorn::u64;

// ---------------------------------------------------------------------------------------
// Length octets

struct LengthCase {
  hylorn::u32 n;
  const char* octets;
};

class LengthOctets : public ::testing::TestWithParam<LengthCase> {};

TEST_P(LengthOctets, WrittenShortestBigEndianAndReadBack) {
  const auto& c = GetParam();
  const Bytes expected = from_hex(c.octets);
  hylorn::u8 buf[8] = {};
  hylorn::u8* end = hylorn::write_length_octets(buf + 1, c.n);
  EXPECT_EQ(to_hex(buf + 1, end - (buf + 1)), to_hex(expected));
  EXPECT_EQ(hylorn::length_of_length(c.n), expected.size());

  hylorn::DerHeader h{};
  ASSERT_EQ(hylorn::read_length_octets(u32(end - buf), buf, &h), hylorn::DerLength::kOk);
  EXPECT_EQ(h.length, c.n);
  EXPECT_EQ(h.header_size, 1 + expected.size());
}

INSTANTIATE_TEST_SUITE_P(Boundaries, LengthOctets,
                         ::testing::Values(LengthCase{0, "00"}, LengthCase{127, "7f"},
                                           LengthCase{128, "81 80"}, LengthCase{255, "81 ff"},
                                           LengthCase{256, "82 01 00"},
                                           LengthCase{65535, "82 ff ff"},
                                           LengthCase{65536, "83 01 00 00"},
                                           LengthCase{16777215, "83 ff ff ff"},
                                           LengthCase{16777216, "84 01 00 00 00"},
                                           LengthCase{0xFFFFFFFFu, "84 ff ff ff ff"}));

TEST(DerElementSize, RefusesWhatDoesNotFitThirtyTwoBits) {
  EXPECT_EQ(hylorn::der_element_size(0xFFFFFFF9u), 0xFFFFFFFFu);
  EXPECT_EQ(hylorn::der_element_size(0xFFFFFFFAu), 0u);
  EXPECT_EQ(hylorn::der_element_size(u64{1} << 32), 0u);
}

// ---------------------------------------------------------------------------------------
// Decoders: known answers

struct DecodeCase {
  const char* decoder;
  const char* der;
  const char* value;
  unsigned extra;  // unused bits, tag number, boolean; 77 = Object's untouched oidValue
};

class DecodeKnownAnswer : public ::testing::TestWithParam<DecodeCase> {};

TEST_P(DecodeKnownAnswer, GivesContents) {
  asn1_test::TestBmpTable table;
  const auto& c = GetParam();
  const auto d = decode_exact(c.decoder, from_hex(c.der));
  ASSERT_EQ(d.result, 0u) << ::testing::PrintToString(read_errors());
  EXPECT_EQ(to_hex(d.value), to_hex(from_hex(c.value)));
  EXPECT_EQ(d.extra, c.extra);
  EXPECT_TRUE(read_errors().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Primitives, DecodeKnownAnswer,
    ::testing::Values(
        DecodeCase{"Integer", "02 03 00 80 00", "80 00", 0},
        DecodeCase{"Integer", "02 01 00", "00", 0},
        DecodeCase{"Integer", "02 02 00 00", "00", 0},
        DecodeCase{"Integer", "02 02 00 7f", "7f", 0},
        DecodeCase{"Integer", "02 01 80", "80", 0},
        DecodeCase{"Integer", "02 00", "", 0},
        DecodeCase{"OctetString", "04 00", "", 0},
        DecodeCase{"OctetString", "04 80", "", 0},
        DecodeCase{"OctetString", "04 81 05 01 02 03 04 05", "01 02 03 04 05", 0},
        DecodeCase{"OctetString", "04 84 00 00 00 02 aa bb", "aa bb", 0},
        DecodeCase{"Boolean", "01 01 00", "", 0}, DecodeCase{"Boolean", "01 01 05", "", 1},
        DecodeCase{"Boolean", "01 02 00 01", "", 0}, DecodeCase{"Boolean", "01 81 00", "", 0},
        DecodeCase{"BitString", "03 02 07 80", "80", 7},
        DecodeCase{"BitString", "03 03 03 ff ff", "ff ff", 3},
        DecodeCase{"BitString", "03 01 00", "", 0},
        DecodeCase{"Object", "06 03 55 04 03", "55 04 03", 77},
        DecodeCase{"PrintableString", "13 02 41 42", "41 42", 0},
        DecodeCase{"T61String", "14 02 41 42", "41 42", 0},
        DecodeCase{"T61String", "14 00", "", 0},
        DecodeCase{"IA5String", "16 02 41 42", "41 42", 0},
        DecodeCase{"UTCTime", "17 02 41 42", "41 42", 0},
        DecodeCase{"GeneralizedTime", "18 02 41 42", "41 42", 0},
        DecodeCase{"ExplicitTag", "a3 03 02 01 05", "02 01 05", 3},
        DecodeCase{"ExplicitTag", "e3 00", "", 3},
        DecodeCase{"ExplicitTagP", "bf 02 05 00", "05 00", 31},
        DecodeCase{"ExplicitTagP", "a0 80", "", 0}));

// Entry u of the test table is (u >> 8) ^ 0x11, (u & 0xFF) ^ 0x22, then bit 7 is set.
INSTANTIATE_TEST_SUITE_P(
    BmpString, DecodeKnownAnswer,
    ::testing::Values(DecodeCase{"BMPString", "1e 04 00 41 00 42", "41 42", 0},
                      DecodeCase{"BMPString", "1e 02 4e 2d", "df 8f", 0},
                      DecodeCase{"BMPString", "1e 02 80 00", "91 a2", 0},
                      DecodeCase{"BMPString", "1e 04 00 e9 4e 2d", "e9 df 8f", 0},
                      DecodeCase{"BMPString", "1e 00", "", 0},
                      DecodeCase{"BMPString", "1e 03 00 41 00", "41", 0},
                      DecodeCase{"BMPString", "1e 01 4e", "", 0}));

// ---------------------------------------------------------------------------------------
// Decoders: one malformed element per step, built from the decoder's own tag:
// one byte; a NULL element with contents; more than 4 length octets; a long form claiming a byte more
// than given; a short form with one trailing byte.

struct StepCase {
  const char* decoder;
  Entries expected;
};

Bytes malformed(hylorn::u8 tag, int step) {
  switch (step) {
    case 0:
      return {tag};
    case 1:
      return from_hex("05 01 00");
    case 2:
      return {tag, 0x85, 0, 0, 0, 0, 1, 0xAA};
    case 3:
      return {tag, 0x81, 0x02, 0xAA};
    default:
      return {tag, 0x01, 0xAA, 0xBB};
  }
}

class DecodeSteps : public ::testing::TestWithParam<StepCase> {};

TEST_P(DecodeSteps, EachStepHasItsEntry) {
  asn1_test::TestBmpTable table;
  const auto& c = GetParam();
  const auto& d = asn1_test::decoder(c.decoder);
  for (int step = 0; step < 5; ++step) {
    const Bytes der = malformed(d.tag, step);
    EXPECT_EQ(decode_exact(d, der).result, 1u) << to_hex(der);
    EXPECT_EQ(read_errors(), Entries{c.expected[step]}) << to_hex(der);
  }
}

const char* const kL2 = "data length less than 2";
const char* const kDL = "data length";
const char* const kTT = "tag type";
const char* const kTTE = "tag type error";

Entries steps(int fn, const char* tag_msg, const char* octets_msg, std::vector<int> errs) {
  return {{fn, errs[0], kL2},
          {fn, errs[1], tag_msg},
          {fn, errs[2], octets_msg},
          {fn, errs[3], kDL},
          {fn, errs[4], kDL}};
}
Entries usual(int fn) { return steps(fn, kTT, kDL, {1, 2, 3, 4, 5}); }

INSTANTIATE_TEST_SUITE_P(
    All, DecodeSteps,
    ::testing::Values(StepCase{"Integer", usual(112)}, StepCase{"Boolean", usual(114)},
                      StepCase{"BitString", usual(106)},
                      StepCase{"Object", steps(104, kTTE, "data too length", {1, 2, 3, 4, 5})},
                      StepCase{"OctetString", usual(120)},
                      StepCase{"PrintableString", usual(116)},
                      StepCase{"T61String", usual(226)}, StepCase{"IA5String", usual(118)},
                      StepCase{"UTCTime", usual(122)}, StepCase{"GeneralizedTime", usual(124)},
                      StepCase{"BMPString", usual(156)},
                      StepCase{"ExplicitTag", steps(126, kTT, kDL, {1, 2, 4, 5, 6})},
                      StepCase{"ExplicitTagP", steps(223, kTT, kDL, {1, 2, 4, 5, 6})},
                      StepCase{"Sequence", steps(108, kTTE, kDL, {1, 2, 3, 3, 4})},
                      StepCase{"Set", steps(110, kTTE, kDL, {1, 2, 3, 4, 5})}),
    [](const auto& info) { return std::string(info.param.decoder); });

struct SingleCase {
  const char* decoder;
  const char* der;
  ErrEntry expected;
};

class DecodeRefuses : public ::testing::TestWithParam<SingleCase> {};

TEST_P(DecodeRefuses, WithOneEntry) {
  asn1_test::TestBmpTable table;
  const auto& c = GetParam();
  EXPECT_EQ(decode_exact(c.decoder, from_hex(c.der)).result, 1u);
  EXPECT_EQ(read_errors(), Entries{c.expected});
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DecodeRefuses,
    ::testing::Values(
        SingleCase{"OctetString", "", {120, 1, kL2}},
        SingleCase{"Boolean", "01 00", {114, 1, kL2}},
        SingleCase{"Boolean", "01 01", {114, 1, kL2}},
        SingleCase{"OctetString", "04 84 00 00", {120, 4, kDL}},  // length octets cut off
        SingleCase{"OctetString", "04 80 00", {120, 4, kDL}},
        SingleCase{"OctetString", "04 81 05 01 02 03 04 05 06", {120, 4, kDL}},
        SingleCase{"OctetString", "04 84 ff ff ff ff 00", {120, 4, kDL}},
        SingleCase{"Integer", "02 02 00", {112, 5, kDL}},
        SingleCase{"Integer", "04 01 00", {112, 2, kTT}},
        SingleCase{"BitString", "03 02 08 ff", {106, 6, "unusedBits"}},
        SingleCase{"BitString", "03 00", {106, 6, "unusedBits"}},
        SingleCase{"BitString", "03 81 00", {106, 6, "unusedBits"}},
        SingleCase{"ExplicitTag", "30 00", {126, 2, kTT}},
        SingleCase{"ExplicitTag", "83 00", {126, 3, kTT}},
        SingleCase{"ExplicitTagP", "7f 00", {223, 2, kTT}},
        SingleCase{"ExplicitTagP", "c3 00", {223, 3, kTT}},
        SingleCase{"ExplicitTagP", "a3 85 00 00 00 00 00", {223, 4, kDL}}));

TEST(BmpString, WithoutTableFailsBeforeLookingAtTheInput) {
  Crypt_GetBMPTable(nullptr);
  for (const char* der : {"", "04 00", "1e 02 00 41"}) {
    EXPECT_EQ(decode_exact("BMPString", from_hex(der)).result, 1u);
    EXPECT_EQ(read_errors(), (Entries{{156, 10, "BMP table not loaded."}}));
  }
}

// ---------------------------------------------------------------------------------------
// Encoders

struct EncodeCase {
  const char* encoder;
  const char* contents;
  const char* der;
};

class EncodeKnownAnswer : public ::testing::TestWithParam<EncodeCase> {};

TEST_P(EncodeKnownAnswer, WritesElement) {
  const auto& c = GetParam();
  const auto e = encode(c.encoder, from_hex(c.contents));
  ASSERT_EQ(e.result, 0u);
  EXPECT_EQ(to_hex(e.der), to_hex(from_hex(c.der)));
}

INSTANTIATE_TEST_SUITE_P(
    Primitives, EncodeKnownAnswer,
    ::testing::Values(EncodeCase{"Integer", "80 00", "02 03 00 80 00"},
                      EncodeCase{"Integer", "00 01", "02 02 00 01"},
                      EncodeCase{"Integer", "00 80", "02 02 00 80"},
                      EncodeCase{"Integer", "7f", "02 01 7f"},
                      EncodeCase{"Integer", "00", "02 01 00"},
                      EncodeCase{"Integer", "ff", "02 02 00 ff"},
                      EncodeCase{"BitString", "80", "03 02 00 80"},
                      EncodeCase{"Object", "55 04 03", "06 03 55 04 03"},
                      EncodeCase{"OctetString", "41", "04 01 41"},
                      EncodeCase{"PrintableString", "41", "13 01 41"},
                      EncodeCase{"IA5String", "41", "16 01 41"},
                      EncodeCase{"UTCTime", "41", "17 01 41"},
                      EncodeCase{"GeneralizedTime", "41", "18 01 41"},
                      EncodeCase{"ExplicitTag", "05 00", "a3 02 05 00"},
                      EncodeCase{"ExplicitTagP", "05 00", "a3 02 05 00"}));

TEST(Encode, EveryEncoderRefusesEmptyContents) {
  for (const auto& e : asn1_test::encoders()) {
    EXPECT_EQ(encode(e, {}).result, 1u) << e.name;
    EXPECT_EQ(read_errors(), (Entries{{e.func_no, 1, "data length equal zero"}})) << e.name;
  }
  hylorn::DATA_BUFFER out{0, nullptr};
  EXPECT_EQ(hylorn::ASN1_Encode_Explicit_Tag_P(nullptr, 1, &out), 1u);
  EXPECT_EQ(read_errors(), (Entries{{222, 1, "data length equal zero"}}));
}

// Lengths whose element would pass 2^32 - 1 bytes; nothing is read past the first byte.
TEST(Encode, RefusesElementsLongerThanThirtyTwoBits) {
  hylorn::u8 byte = 0x80;
  hylorn::DATA_BUFFER out{0, nullptr};
  EXPECT_EQ(hylorn::ASN1_Encode_Octet_String({0xFFFFFFFBu, &byte}, &out), 1u);
  EXPECT_EQ(read_errors(), (Entries{{119, 2, "data too length"}}));
  EXPECT_EQ(hylorn::ASN1_Encode_Integer({0xFFFFFFFAu, &byte}, &out), 1u);  // with its 00
  EXPECT_EQ(read_errors(), (Entries{{111, 2, "data too length"}}));
  EXPECT_EQ(hylorn::ASN1_Encode_Bit_String({0xFFFFFFFAu, 9, &byte}, &out), 1u);  // before bits
  EXPECT_EQ(read_errors(), (Entries{{105, 2, "data too length"}}));
  EXPECT_EQ(out.data, nullptr);
}

TEST(Encode, BooleanAndBitStringSpecials) {
  for (auto [value, der] : {std::pair{0, "010100"}, {1, "0101ff"}, {0x05, "0101ff"}}) {
    hylorn::DATA_BUFFER out{0, nullptr};
    ASSERT_EQ(hylorn::ASN1_Encode_Boolean(hylorn::u8(value), &out), 0u);
    EXPECT_EQ(to_hex(out.data, out.length), der);
    hylorn::free_DATA_BUFFER(&out);
  }
  hylorn::u8 bits[] = {0xFF};
  hylorn::DATA_BUFFER out{0, nullptr};
  ASSERT_EQ(hylorn::ASN1_Encode_Bit_String({1, 3, bits}, &out), 0u);
  EXPECT_EQ(to_hex(out.data, out.length), "030203ff");  // unused bits kept as given
  hylorn::free_DATA_BUFFER(&out);
  EXPECT_EQ(hylorn::ASN1_Encode_Bit_String({1, 8, bits}, &out), 1u);
  EXPECT_EQ(read_errors(), (Entries{{105, 3, "unusedBits"}}));
}

TEST(Encode, ExplicitTagOrsTheNumberIntoA0) {
  hylorn::u8 inner[] = {0x05, 0x00};
  for (hylorn::u8 tag : {0, 1, 3, 30}) {
    hylorn::DATA_BUFFER out{0, nullptr};
    ASSERT_EQ(hylorn::ASN1_Encode_Explicit_Tag({2, inner}, tag, &out), 0u);
    EXPECT_EQ(out.data[0], 0xA0 | tag);
    hylorn::free_DATA_BUFFER(&out);
  }
}

// Every encoder's output decodes back to its input through the matching decoder.
TEST(Encode, RoundTripsThroughTheDecoders) {
  std::mt19937 rng(7);
  for (const auto& e : asn1_test::encoders()) {
    for (std::size_t n : {1u, 2u, 127u, 128u, 255u, 256u, 1000u, 65536u}) {
      Bytes contents(n);
      for (auto& b : contents) b = hylorn::u8(rng());
      contents[0] |= 1;  // a leading 00 would be the one the Integer decoder removes
      const auto enc = encode(e, contents);
      ASSERT_EQ(enc.result, 0u);
      const auto dec = decode_exact(e.name, enc.der);
      ASSERT_EQ(dec.result, 0u) << e.name << " " << n;
      EXPECT_EQ(dec.value, contents) << e.name << " " << n;
    }
  }
}

}  // namespace
