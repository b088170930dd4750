// The DER primitives: every type against OpenSSL at each length-octet boundary, the
// special rules as known answers, the error entries of each step, and truncations.
#include "asn1/der.h"

#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/bn.h>
#include <openssl/objects.h>

#include <random>
#include <string>

#include "asn1/der_reader.h"
#include "asn1/list.h"
#include "coders.h"
#include "frame/error.h"
#include "hylorn.h"
#include "support/error_list.h"
#include "support/hex.h"
#include "support/openssl_bytes.h"
#include "support/random_bytes.h"

namespace {

using namespace hylorn_test;
using asn1_test::decode_exact;
using hylorn::DATA_BUFFER;
using hylorn::u32;
using hylorn::u8;

const char* const kL2 = "data length less than 2";
const char* const kDL = "data length";
const char* const kTT = "tag type";
const char* const kTTE = "tag type error";

constexpr int kExplicit3 = -1;  // [3] EXPLICIT around contents that are an element

// OpenSSL's element of a universal type holding contents (INTEGER: as a magnitude;
// BIT STRING: with no unused bits), or of [3] EXPLICIT.
Bytes openssl_element(int type, const Bytes& contents) {
  if (type == kExplicit3) return openssl_tlv(true, 3, V_ASN1_CONTEXT_SPECIFIC, contents);
  const int n = static_cast<int>(contents.size());
  ASN1_TYPE* t = ASN1_TYPE_new();
  unsigned char* data = const_cast<unsigned char*>(contents.data());
  if (type == V_ASN1_INTEGER) {
    BIGNUM* bn = BN_bin2bn(data, n, nullptr);
    ASN1_TYPE_set(t, type, BN_to_ASN1_INTEGER(bn, nullptr));
    BN_free(bn);
  } else if (type == V_ASN1_OBJECT) {
    ASN1_TYPE_set(t, type, ASN1_OBJECT_create(NID_undef, data, n, nullptr, nullptr));
  } else {
    ASN1_STRING* s = ASN1_STRING_type_new(type);
    ASN1_STRING_set(s, data, n);
    if (type == V_ASN1_BIT_STRING) s->flags |= ASN1_STRING_FLAG_BITS_LEFT;  // 0 unused bits
    ASN1_TYPE_set(t, type, s);
  }
  Bytes out = i2d_bytes(i2d_ASN1_TYPE, static_cast<const ASN1_TYPE*>(t));
  ASN1_TYPE_free(t);
  return out;
}

// Guards tags, length octets at each width boundary, the INTEGER sign octet (contents
// alternate bit 8 set and clear, so 127 octets plus the sign octet cross to long form),
// the BIT STRING unused-bits octet and the contents copy: our encoder writes byte for
// byte what OpenSSL writes, and our decoder reads OpenSSL's element back.
TEST(Primitives, MatchOpenSslAtEveryLengthBoundary) {
  // clang-format off
  const std::tuple<const char*, int, bool> types[] = {
      {"Integer", V_ASN1_INTEGER, true}, {"BitString", V_ASN1_BIT_STRING, true},
      {"Object", V_ASN1_OBJECT, true}, {"OctetString", V_ASN1_OCTET_STRING, true},
      {"PrintableString", V_ASN1_PRINTABLESTRING, true}, {"T61String", V_ASN1_T61STRING, false},
      {"IA5String", V_ASN1_IA5STRING, true}, {"UTCTime", V_ASN1_UTCTIME, true},
      {"GeneralizedTime", V_ASN1_GENERALIZEDTIME, true}, {"ExplicitTag", kExplicit3, true},
      {"ExplicitTagP", kExplicit3, true}};
  // clang-format on
  std::mt19937 rng(11);
  for (auto [coder, type, has_encoder] : types) {
    for (std::size_t n : {1u, 2u, 126u, 127u, 128u, 255u, 256u, 65535u, 65536u}) {
      SCOPED_TRACE(std::string(coder) + " " + std::to_string(n));
      Bytes contents = random_bytes(rng, n);
      contents[0] = n % 2 ? 0x80 : 0x7F;  // the sign boundary; never a leading zero
      const Bytes theirs = openssl_element(type, contents);
      ASSERT_FALSE(theirs.empty());
      if (has_encoder) {
        const auto ours = asn1_test::encode(coder, contents);
        ASSERT_EQ(ours.result, 0u);
        EXPECT_EQ(to_hex(ours.der), to_hex(theirs));
      }
      const auto back = decode_exact(coder, theirs);
      ASSERT_EQ(back.result, 0u);
      EXPECT_TRUE(back.value == contents);
      EXPECT_EQ(back.extra, type == kExplicit3 ? 3u : type == V_ASN1_OBJECT ? 77u : 0u);
    }
  }
}

// Guards the 3- and 4-octet lengths, which no element above reaches.
TEST(Primitives, LongLengthOctetsWrittenAndReadBack) {
  const std::pair<u32, const char*> cases[] = {
      {16777215, "83 ff ff ff"}, {16777216, "84 01 00 00 00"}, {0xFFFFFFFFu, "84 ff ff ff ff"}};
  for (auto [n, octets] : cases) {
    u8 buf[8] = {};
    const u8* end = hylorn::write_length_octets(buf + 1, n);
    EXPECT_EQ(to_hex(buf + 1, std::size_t(end - buf - 1)), to_hex(from_hex(octets))) << n;
    hylorn::DerHeader h{};
    ASSERT_EQ(hylorn::read_length_octets(u32(end - buf), buf, &h), hylorn::DerLength::kOk);
    EXPECT_EQ(h.length, n);
    EXPECT_EQ(h.header_size, u32(end - buf));
  }
}

// One element through one decoder: its contents and extra (unused bits, tag number,
// BOOLEAN value, the untouched oidValue 77), or, for value nullptr, the one entry it is
// refused with.
struct DecodeCase {
  const char* decoder;
  const char* der;
  const char* value;
  unsigned extra = 0;
  int err_no = 0;
  const char* msg = nullptr;
};

// Guards the special rules of each decoder, and that it empties the list on entry.
TEST(Decode, SpecialContents) {
  asn1_test::load_test_bmp_table();
  // clang-format off
  const DecodeCase cases[] = {
      // INTEGER drops exactly one leading zero, and only from two octets or more.
      {"Integer", "02 03 00 80 00", "80 00"}, {"Integer", "02 01 00", "00"},
      {"Integer", "02 02 00 00", "00"}, {"Integer", "02 01 80", "80"}, {"Integer", "02 00", ""},
      // 0x80 reads as length 0; non-minimal long forms are accepted.
      {"OctetString", "04 80", ""}, {"OctetString", "04 84 00 00 00 02 aa bb", "aa bb"},
      {"OctetString", "04 80 00", nullptr, 0, 4, kDL},
      {"OctetString", "04 84 ff ff ff ff 00", nullptr, 0, 4, kDL},
      {"OctetString", "", nullptr, 0, 1, kL2},
      {"Boolean", "01 01 00", "", 0}, {"Boolean", "01 01 05", "", 1},
      {"Boolean", "01 02 00 01", "", 0}, {"Boolean", "01 81 00", "", 0},
      {"Boolean", "01 00", nullptr, 0, 1, kL2}, {"Boolean", "01 01", nullptr, 0, 1, kL2},
      {"BitString", "03 02 07 80", "80", 7}, {"BitString", "03 01 00", ""},
      {"BitString", "03 02 08 ff", nullptr, 0, 6, "unusedBits"},
      {"BitString", "03 00", nullptr, 0, 6, "unusedBits"},
      {"BitString", "03 81 00", nullptr, 0, 6, "unusedBits"},
      {"T61String", "14 00", ""},
      // Explicit tags: bits 8 and 6 must be set; any class with them is accepted.
      {"ExplicitTag", "e3 00", "", 3}, {"ExplicitTagP", "bf 02 05 00", "05 00", 31},
      {"ExplicitTagP", "a0 80", "", 0},
      {"ExplicitTag", "30 00", nullptr, 0, 2, kTT}, {"ExplicitTag", "83 00", nullptr, 0, 3, kTT},
      {"ExplicitTagP", "7f 00", nullptr, 0, 2, kTT}, {"ExplicitTagP", "c3 00", nullptr, 0, 3, kTT},
      // Test table entry u: (u >> 8) ^ 0x11, (u & 0xFF) ^ 0x22, then bit 8 set; code
      // units below 0x100 pass as one byte, an odd last octet is dropped.
      {"BMPString", "1e 04 00 41 00 42", "41 42"}, {"BMPString", "1e 02 4e 2d", "df 8f"},
      {"BMPString", "1e 02 80 00", "91 a2"}, {"BMPString", "1e 04 00 e9 4e 2d", "e9 df 8f"},
      {"BMPString", "1e 00", ""}, {"BMPString", "1e 03 00 41 00", "41"},
      {"BMPString", "1e 01 4e", ""}};
  // clang-format on
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.decoder) + " " + c.der);
    const auto& d = asn1_test::decoder(c.decoder);
    hylorn::Crypt_Put_Err(1, 1, "left by an earlier call");
    const auto r = decode_exact(d, from_hex(c.der));
    if (c.value == nullptr) {
      EXPECT_EQ(r.result, 1u);
      EXPECT_EQ(read_errors(), (Entries{{d.func_no, c.err_no, c.msg}}));
      continue;
    }
    ASSERT_EQ(r.result, 0u) << ::testing::PrintToString(read_errors());
    EXPECT_EQ(to_hex(r.value), to_hex(from_hex(c.value)));
    EXPECT_EQ(r.extra, c.extra);
    EXPECT_TRUE(read_errors().empty());
  }
}

// Guards the (err_no, msg) each decoder gives each header step, tried with: one byte;
// a NULL element; more than 4 length octets; a long form claiming one byte more than
// given; a short form with a trailing byte.
TEST(Decode, EachHeaderStepHasItsEntry) {
  asn1_test::load_test_bmp_table();
  struct Steps {
    int err_no[5] = {1, 2, 3, 4, 5};
    const char* tag_msg = kTT;
    const char* octets_msg = kDL;
  };
  const std::pair<const char*, Steps> unusual[] = {
      {"Object", {{1, 2, 3, 4, 5}, kTTE, "data too length"}},
      {"ExplicitTag", {{1, 2, 4, 5, 6}}},
      {"ExplicitTagP", {{1, 2, 4, 5, 6}}},
      {"Sequence", {{1, 2, 3, 3, 4}, kTTE}},
      {"Set", {{1, 2, 3, 4, 5}, kTTE}}};
  for (const auto& d : asn1_test::decoders()) {
    Steps s;
    for (const auto& [name, steps] : unusual) {
      if (name == std::string(d.name)) s = steps;
    }
    const u8 t = d.tag;
    const Bytes elements[] = {{t},
                              from_hex("05 01 00"),
                              {t, 0x85, 0, 0, 0, 0, 1, 0xAA},
                              {t, 0x81, 2, 0xAA},
                              {t, 1, 0xAA, 0xBB}};
    const char* msgs[] = {kL2, s.tag_msg, s.octets_msg, kDL, kDL};
    for (int step = 0; step < 5; ++step) {
      SCOPED_TRACE(std::string(d.name) + " " + to_hex(elements[step]));
      EXPECT_EQ(decode_exact(d, elements[step]).result, 1u);
      EXPECT_EQ(read_errors(), (Entries{{d.func_no, s.err_no[step], msgs[step]}}));
    }
  }
}

// Guards the order of the BMPString checks and the null element of the _P decoder.
TEST(Decode, MissingTableAndNullElement) {
  Crypt_GetBMPTable(nullptr);
  for (const char* der : {"", "04 00", "1e 02 00 41"}) {
    EXPECT_EQ(decode_exact("BMPString", from_hex(der)).result, 1u);
    EXPECT_EQ(read_errors(), (Entries{{156, 10, "BMP table not loaded."}}));
  }
  DATA_BUFFER out{0, nullptr};
  u8 tag = 0;
  EXPECT_EQ(hylorn::ASN1_Decode_Explicit_Tag_P(nullptr, &out, &tag), 1u);
  EXPECT_EQ(read_errors(), (Entries{{223, 1, kL2}}));
}

Bytes with_contents(const char* header, std::size_t n) {
  Bytes der = from_hex(header);
  for (std::size_t i = 0; i < n; ++i) der.push_back(u8(0x31 + i % 40));
  return der;
}

// Guards every length check against reading outside the element: each decoder's sample
// and the long forms, 0x80 lengths and nested components, cut at every length, fail
// with "less than 2" while the minimum is missing and "data length" after; one byte too
// many is refused as well. Each runs in a heap buffer of exactly its size.
TEST(Decode, EveryTruncatedPrefixFailsCleanly) {
  asn1_test::load_test_bmp_table();
  // clang-format off
  std::vector<std::pair<const char*, Bytes>> wholes = {
      {"Integer", with_contents("02 81 80", 128)}, {"OctetString", from_hex("04 80")},
      {"OctetString", with_contents("04 82 01 00", 256)}, {"BitString", from_hex("03 81 01 00")},
      {"BMPString", from_hex("1e 81 03 00 41 00")}, {"ExplicitTagP", from_hex("a0 80")},
      {"Sequence", from_hex("30 0a 04 81 05 01 02 03 04 05 05 00")},
      {"Sequence", from_hex("30 81 06 02 01 05 04 01 41")},
      {"Sequence", from_hex("30 84 00 00 00 05 30 03 02 01 07")}};
  // clang-format on
  for (const auto& d : asn1_test::decoders()) wholes.emplace_back(d.name, from_hex(d.sample));
  for (const auto& [name, whole] : wholes) {
    const auto& d = asn1_test::decoder(name);
    ASSERT_EQ(decode_exact(d, whole).result, 0u) << to_hex(whole);
    const std::size_t too_short = std::string(name) == "Boolean" ? 3 : 2;
    Bytes longer = whole;
    longer.push_back(0);
    for (std::size_t n = 0; n <= longer.size(); ++n) {
      if (n == whole.size()) continue;  // the element itself
      const Bytes cut(longer.begin(), longer.begin() + n);
      SCOPED_TRACE(to_hex(cut));
      EXPECT_EQ(decode_exact(d, cut).result, 1u);
      const auto entries = read_errors();
      ASSERT_EQ(entries.size(), 1u);
      EXPECT_EQ(entries[0].func_no, d.func_no);
      EXPECT_EQ(entries[0].msg, n < too_short ? kL2 : kDL);
    }
  }
}

// Guards the INTEGER sign octet (never doubled, leading zeros kept), the BOOLEAN octets,
// BIT STRING unused bits and the explicit tag number.
TEST(Encode, SpecialContents) {
  const std::pair<const char*, const char*> integers[] = {
      {"00 80", "02 02 00 80"}, {"00 01", "02 02 00 01"}, {"00", "02 01 00"}};
  for (auto [contents, der] : integers) {
    EXPECT_EQ(to_hex(asn1_test::encode("Integer", from_hex(contents)).der), to_hex(from_hex(der)));
  }
  DATA_BUFFER out{0, nullptr};
  for (auto [value, der] : {std::pair{0, "010100"}, {1, "0101ff"}, {0x05, "0101ff"}}) {
    ASSERT_EQ(hylorn::ASN1_Encode_Boolean(u8(value), &out), 0u);
    EXPECT_EQ(to_hex(out.data, out.length), der);
    hylorn::free_DATA_BUFFER(&out);
  }
  u8 bits[] = {0xFF, 0x05, 0x00};
  ASSERT_EQ(hylorn::ASN1_Encode_Bit_String({1, 3, bits}, &out), 0u);
  EXPECT_EQ(to_hex(out.data, out.length), "030203ff");
  hylorn::free_DATA_BUFFER(&out);
  EXPECT_EQ(hylorn::ASN1_Encode_Bit_String({1, 8, bits}, &out), 1u);
  EXPECT_EQ(read_errors(), (Entries{{105, 3, "unusedBits"}}));
  for (u8 tag : {0, 1, 30}) {
    ASSERT_EQ(hylorn::ASN1_Encode_Explicit_Tag({2, bits + 1}, tag, &out), 0u);
    EXPECT_EQ(to_hex(out.data, out.length), to_hex(Bytes{u8(0xA0 | tag), 2, 5, 0}));
    hylorn::free_DATA_BUFFER(&out);
  }
}

// Guards the refusal of empty contents, and of elements and lists past 2^32 - 1 bytes
// before anything is read beyond the first byte.
TEST(Encode, RefusesEmptyAndOverlongContents) {
  for (const auto& e : asn1_test::encoders()) {
    EXPECT_EQ(asn1_test::encode(e, {}).result, 1u) << e.name;
    EXPECT_EQ(read_errors(), (Entries{{e.func_no, 1, "data length equal zero"}})) << e.name;
  }
  DATA_BUFFER out{0, nullptr};
  EXPECT_EQ(hylorn::ASN1_Encode_Explicit_Tag_P(nullptr, 1, &out), 1u);
  EXPECT_EQ(read_errors(), (Entries{{222, 1, "data length equal zero"}}));
  // The largest element that fits has 2^32 - 7 contents octets; each call is one over.
  EXPECT_EQ(hylorn::der_element_size(0xFFFFFFF9u), 0xFFFFFFFFu);
  u8 byte = 0x80;
  EXPECT_EQ(hylorn::ASN1_Encode_Octet_String({0xFFFFFFFAu, &byte}, &out), 1u);
  EXPECT_EQ(read_errors(), (Entries{{119, 2, "data too length"}}));
  EXPECT_EQ(hylorn::ASN1_Encode_Integer({0xFFFFFFF9u, &byte}, &out), 1u);  // with its 00
  EXPECT_EQ(read_errors(), (Entries{{111, 2, "data too length"}}));
  EXPECT_EQ(hylorn::ASN1_Encode_Bit_String({0xFFFFFFF9u, 9, &byte}, &out), 1u);  // before bits
  EXPECT_EQ(read_errors(), (Entries{{105, 2, "data too length"}}));
  // Lists sum their values in 64 bits: two adding up past 2^32 are refused.
  hylorn::ASN1_SEQUENCE second{nullptr, {0x80000000u, &byte}}, first{&second, {0x7FFFFFFFu, &byte}};
  EXPECT_EQ(hylorn::ASN1_Encode_Sequence(&first, &out), 1u);
  EXPECT_EQ(read_errors(), (Entries{{107, 2, "data too length"}}));
  EXPECT_EQ(hylorn::ASN1_Encode_Set(&first, &out), 1u);
  EXPECT_EQ(read_errors(), (Entries{{109, 2, "data too length"}}));
  EXPECT_EQ(out.data, nullptr);
}

}  // namespace
