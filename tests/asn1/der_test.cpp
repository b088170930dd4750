// The DER primitives and the SEQUENCE / SET lists: every type against OpenSSL at each
// length-octet boundary, the special rules as known answers, the error entries of each
// step, truncations, and each allocation failing in turn.
#include "asn1/der.h"

#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/bn.h>
#include <openssl/objects.h>

#include <random>
#include <string>

#include "asn1/algorithm.h"
#include "asn1/der_reader.h"
#include "asn1/list.h"
#include "coders.h"
#include "frame/error.h"
#include "hylorn.h"
#include "support/alloc_failure.h"
#include "support/error_list.h"
#include "support/openssl_bytes.h"
#include "support/random_bytes.h"

namespace {

using namespace hylorn_test;
using asn1_test::decode_exact;
using asn1_test::encode;
using hylorn::ASN1_SEQUENCE;
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
        EXPECT_EQ(encode(coder, contents), std::pair(0u, theirs));
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
  for (auto [n, octets] : {std::pair{16777215u, "83 ff ff ff"},
                           {16777216u, "84 01 00 00 00"},
                           {0xFFFFFFFFu, "84 ff ff ff ff"}}) {
    u8 buf[8] = {};
    const u8* end = hylorn::write_length_octets(buf + 1, n);
    EXPECT_EQ(Bytes(&buf[1], &buf[end - buf]), from_hex(octets)) << n;
    hylorn::DerHeader h{};
    ASSERT_EQ(hylorn::read_length_octets(u32(end - buf), buf, &h), hylorn::DerLength::kOk);
    EXPECT_EQ(h.length, n);
    EXPECT_EQ(h.header_size, u32(end - buf));
  }
}

// One element through one decoder: its contents and extra (unused bits, tag number,
// BOOLEAN value, the untouched oidValue 77), or, for value nullptr, the one entry it is
// refused with. Guards the special rules of each decoder, and that it empties the list
// on entry.
TEST(Decode, SpecialContents) {
  asn1_test::load_test_bmp_table();
  struct Case {
    const char *decoder, *der, *value;
    unsigned extra = 0;
    int err_no = 0;
    const char* msg = nullptr;
  };
  // clang-format off
  const Case cases[] = {
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
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.decoder) + " " + c.der);
    hylorn::Crypt_Put_Err(1, 1, "left by an earlier call");
    const auto r = decode_exact(c.decoder, from_hex(c.der));
    if (c.value == nullptr) {
      EXPECT_EQ(r.result, 1u);
      EXPECT_EQ(read_errors(), (Entries{{asn1_test::decoder(c.decoder).func_no, c.err_no, c.msg}}));
      continue;
    }
    ASSERT_EQ(r.result, 0u) << ::testing::PrintToString(read_errors());
    EXPECT_EQ(r.value, from_hex(c.value));
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
  const std::pair<std::string, Steps> unusual[] = {
      {"Object", {{1, 2, 3, 4, 5}, kTTE, "data too length"}},
      {"ExplicitTag", {{1, 2, 4, 5, 6}}},
      {"ExplicitTagP", {{1, 2, 4, 5, 6}}},
      {"Sequence", {{1, 2, 3, 3, 4}, kTTE}},
      {"Set", {{1, 2, 3, 4, 5}, kTTE}}};
  for (const auto& d : asn1_test::decoders()) {
    Steps s;
    for (const auto& [name, steps] : unusual)
      if (name == d.name) s = steps;
    const u8 t = d.tag;
    const Bytes elements[] = {
        {t}, {5, 1, 0}, {t, 0x85, 0, 0, 0, 0, 1, 0xAA}, {t, 0x81, 2, 0xAA}, {t, 1, 0xAA, 0xBB}};
    const char* msgs[] = {kL2, s.tag_msg, s.octets_msg, kDL, kDL};
    for (int step = 0; step < 5; ++step) {
      EXPECT_EQ(decode_exact(d.name, elements[step]).result, 1u);
      EXPECT_EQ(read_errors(), (Entries{{d.func_no, s.err_no[step], msgs[step]}}))
          << d.name << " " << to_hex(elements[step]);
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

// Guards every length check against reading outside the element: each decoder's sample
// and the long forms, 0x80 lengths and nested components, cut at every length, fail
// with "less than 2" while the minimum is missing and "data length" after; one byte too
// many is refused as well. Each runs in a heap buffer of exactly its size.
TEST(Decode, EveryTruncatedPrefixFailsCleanly) {
  asn1_test::load_test_bmp_table();
  Bytes long_integer = from_hex("02 81 80"), long_octets = from_hex("04 82 01 00");
  long_integer.resize(3 + 128, 0x31);
  long_octets.resize(4 + 256, 0x32);
  std::vector<std::pair<std::string, Bytes>> wholes = {
      {"Integer", long_integer},
      {"OctetString", long_octets},
      {"OctetString", from_hex("04 80")},
      {"BitString", from_hex("03 81 01 00")},
      {"BMPString", from_hex("1e 81 03 00 41 00")},
      {"ExplicitTagP", from_hex("a0 80")},
      {"Sequence", from_hex("30 0a 04 81 05 01 02 03 04 05 05 00")},
      {"Sequence", from_hex("30 84 00 00 00 05 30 03 02 01 07")}};
  for (const auto& d : asn1_test::decoders()) wholes.emplace_back(d.name, from_hex(d.sample));
  for (const auto& [name, whole] : wholes) {
    ASSERT_EQ(decode_exact(name, whole).result, 0u) << to_hex(whole);
    Bytes longer = whole;
    longer.push_back(0);
    for (std::size_t n = 0; n <= longer.size(); ++n) {
      if (n == whole.size()) continue;  // the element itself
      const Bytes cut(longer.begin(), longer.begin() + n);
      EXPECT_EQ(decode_exact(name, cut).result, 1u) << to_hex(cut);
      const auto entries = read_errors();
      ASSERT_EQ(entries.size(), 1u) << to_hex(cut);
      EXPECT_EQ(entries[0].func_no, asn1_test::decoder(name).func_no);
      EXPECT_EQ(entries[0].msg, n < (name == "Boolean" ? 3u : 2u) ? kL2 : kDL) << to_hex(cut);
    }
  }
}

// Runs f(&out), frees out and gives the result with the element written.
template <class F>
std::pair<u32, std::string> freeing(F f) {
  DATA_BUFFER out{0, nullptr};
  const u32 r = f(&out);
  const std::string der = to_hex(out.data, out.length);
  hylorn::free_DATA_BUFFER(&out);
  return {r, der};
}

// Guards the INTEGER sign octet (never doubled, leading zeros kept), the BOOLEAN octets,
// BIT STRING unused bits and the explicit tag number.
TEST(Encode, SpecialContents) {
  for (auto [contents, der] :
       {std::pair{"00 80", "02 02 00 80"}, {"00 01", "02 02 00 01"}, {"00", "02 01 00"}})
    EXPECT_EQ(encode("Integer", from_hex(contents)), std::pair(0u, from_hex(der)));
  for (auto [value, der] : {std::pair{0, "010100"}, {1, "0101ff"}, {0x05, "0101ff"}})
    EXPECT_EQ(
        freeing([v = value](DATA_BUFFER* o) { return hylorn::ASN1_Encode_Boolean(u8(v), o); }),
        std::pair(0u, std::string(der)));
  u8 bits[] = {0xFF, 0x05, 0x00};
  EXPECT_EQ(freeing([&](DATA_BUFFER* o) {
              return hylorn::ASN1_Encode_Bit_String({1, 3, bits}, o);
            }),
            std::pair(0u, std::string("030203ff")));
  EXPECT_EQ(freeing([&](DATA_BUFFER* o) {
              return hylorn::ASN1_Encode_Bit_String({1, 8, bits}, o);
            }),
            std::pair(1u, std::string()));
  EXPECT_EQ(read_errors(), (Entries{{105, 3, "unusedBits"}}));
  for (u8 tag : {0, 1, 30})
    EXPECT_EQ(freeing([&](DATA_BUFFER* o) {
                return hylorn::ASN1_Encode_Explicit_Tag({2, bits + 1}, tag, o);
              }),
              std::pair(0u, to_hex(Bytes{u8(0xA0 | tag), 2, 5, 0})));
}

// Guards the refusal of empty contents, and of elements and lists past 2^32 - 1 bytes
// before anything is read beyond the first byte.
TEST(Encode, RefusesEmptyAndOverlongContents) {
  for (const auto& e : asn1_test::encoders()) {
    EXPECT_EQ(encode(e.name, {}).first, 1u) << e.name;
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
  ASN1_SEQUENCE second{nullptr, {0x80000000u, &byte}}, first{&second, {0x80000000u, &byte}};
  EXPECT_EQ(hylorn::ASN1_Encode_Sequence(&first, &out), 1u);
  EXPECT_EQ(read_errors(), (Entries{{107, 2, "data too length"}}));
  EXPECT_EQ(hylorn::ASN1_Encode_Set(&first, &out), 1u);
  EXPECT_EQ(read_errors(), (Entries{{109, 2, "data too length"}}));
  EXPECT_EQ(out.data, nullptr);
}

// Guards the list header over the summed values at each length boundary, the list order
// (SET components are not sorted) and empty values: OpenSSL writes the same header. The
// list is built the way the field coders build theirs (new_ into the previous next).
TEST(ListEncode, SameHeaderAsOpenSslAtEveryLengthBoundary) {
  std::mt19937 rng(5);
  for (auto [encoder, tag] : {std::pair{&hylorn::ASN1_Encode_Sequence, V_ASN1_SEQUENCE},
                              {&hylorn::ASN1_Encode_Set, V_ASN1_SET}}) {
    for (std::size_t first : {0u, 1u, 125u, 126u, 127u, 253u, 254u, 65533u, 65534u, 99999u}) {
      const std::vector<Bytes> values =
          first == 99999u ? std::vector<Bytes>{}
                          : std::vector{from_hex("ff 00"), random_bytes(rng, first)};
      ASN1_SEQUENCE* head = nullptr;
      ASN1_SEQUENCE** slot = &head;
      Bytes both;
      for (const Bytes& v : values) {
        EXPECT_EQ(hylorn::new_ASN1_SEQUENCE(slot), 0u);
        EXPECT_EQ(hylorn::copy_DATA_BUFFER(&(*slot)->value, u32(v.size()), v.data()), 0u);
        slot = &(*slot)->next;
        both.insert(both.end(), v.begin(), v.end());
      }
      EXPECT_EQ(freeing([&, e = encoder](DATA_BUFFER* o) { return e(head, o); }),
                std::pair(0u, to_hex(openssl_tlv(true, tag, V_ASN1_UNIVERSAL, both))))
          << first;
      hylorn::free_ASN1_SEQUENCE(head);
    }
  }
}

// Guards the split into whole components: long forms, 0x80, nesting, tags not examined,
// and the empty SEQUENCE that ignores what follows it.
TEST(ListDecode, GivesTheComponentsInOrder) {
  // clang-format off
  const std::tuple<const char*, const char*, std::vector<const char*>> cases[] = {
      {"Sequence", "30 00", {}}, {"Sequence", "30 00 05 00", {}}, {"Set", "31 00 ff", {}},
      {"Sequence", "30 80", {}}, {"Set", "31 03 ff 01 00", {"ff 01 00"}},
      {"Set", "31 06 04 01 41 02 01 05", {"04 01 41", "02 01 05"}},
      {"Sequence", "30 81 06 02 01 05 04 01 41", {"02 01 05", "04 01 41"}},
      {"Sequence", "30 0a 04 81 05 01 02 03 04 05 05 00", {"04 81 05 01 02 03 04 05", "05 00"}},
      {"Sequence", "30 04 04 80 05 00", {"04 80", "05 00"}},
      {"Sequence", "30 05 30 03 02 01 07", {"30 03 02 01 07"}}};
  // clang-format on
  for (const auto& [decoder, der, nodes] : cases) {
    const auto d = decode_exact(decoder, from_hex(der));
    ASSERT_EQ(d.result, 0u) << der << ::testing::PrintToString(read_errors());
    std::vector<Bytes> want;
    for (const char* n : nodes) want.push_back(from_hex(n));
    EXPECT_EQ(d.nodes, want) << der;
  }
}

// Guards the component checks, which must read only the contents' own bytes, free the
// nodes built so far and leave *list alone; the same numbers for SEQUENCE and SET.
TEST(ListDecode, RefusesComponentsThatDoNotFit) {
  // clang-format off
  const std::pair<const char*, int> cases[] = {
      {"30 04 02 05 00 00", 9},              // claims 7 where the contents are 4
      {"30 06 04 84 ff ff ff ff", 9},        // size wraps 32 bits to 5
      {"30 08 04 84 ff ff ff fa 00 00", 9},  // size wraps 32 bits to 0
      {"30 03 02 85 00", 8},                 // more than 4 length octets
      {"30 05 02 01 05 04 02", 11},          // within the contents, past their end
      // Length octets past the end of the contents.
      {"30 01 05", 11}, {"30 04 02 01 05 04", 11}, {"30 05 02 01 05 04 84", 11},
      {"30 06 02 01 05 04 82 01", 11}};
  // clang-format on
  for (auto [hex, err_no] : cases) {
    Bytes der = from_hex(hex);
    for (auto [name, func_no, tag] :
         {std::tuple{"Sequence", 108, u8(0x30)}, {"Set", 110, u8(0x31)}}) {
      der[0] = tag;
      const auto d = decode_exact(name, der);
      EXPECT_EQ(d.result, 1u) << hex;
      EXPECT_TRUE(d.nodes.empty()) << hex;  // the adapter notes a written list
      EXPECT_EQ(read_errors(), (Entries{{func_no, err_no, "data length"}})) << hex;
    }
  }
}

// Each malloc of each allocating function fails in turn: the function answers 1 with the
// entries below and leaves nothing allocated (the sanitizer build checks for leaks).
// Guards the "memory" entry of every primitive coder; the list decoders allocate a node
// and a value per component, and report the head node differently from later ones.
TEST(AllocFailure, Coders) {
  asn1_test::load_test_bmp_table();
  for (const auto& e : asn1_test::encoders()) {
    SCOPED_TRACE(e.name);
    expect_each_malloc_failure([&e] { return encode(e.name, from_hex("80 01")).first; },
                               {{{e.func_no, e.func_no == 105 ? 4 : 3, "memory"}}});
  }
  for (const auto& d : asn1_test::decoders()) {
    SCOPED_TRACE(d.name);
    std::vector<Entries> expected;
    if (d.func_no == 108 || d.func_no == 110) {
      const bool seq = d.func_no == 108;
      const ErrEntry node{seq ? 138 : 141, 1, "malloc"}, value{d.func_no, 10, "memory"};
      const char* msg = seq ? "new ASN1_SEQUENCE" : "new ASN1_SET";
      expected = {{node, {d.func_no, 6, msg}}, {value}, {node, {d.func_no, 7, msg}}, {value}};
    } else if (d.func_no != 114) {  // BOOLEAN allocates nothing
      const bool seven = d.func_no == 106 || d.func_no == 126 || d.func_no == 223;
      expected = {{{d.func_no, seven ? 7 : 6, "memory"}}};
    }
    expect_each_malloc_failure([&d] { return decode_exact(d.name, from_hex(d.sample)).result; },
                               expected);
  }
}

// Guards the other allocating functions: BOOLEAN and list encoders (the empty list
// reports 1, a non-empty one 3), the node records, which keep the caller's list, and
// the OID copy inside the look-up and inside u2l_signature, which must leave the record
// empty on failure.
TEST(AllocFailure, BooleanListsNodesAndLookups) {
  expect_each_malloc_failure(
      [] {
        return freeing([](DATA_BUFFER* o) { return hylorn::ASN1_Encode_Boolean(1, o); }).first;
      },
      {{{113, 1, "memory"}}});
  u8 element[] = {0x05, 0x00};
  const ASN1_SEQUENCE one{nullptr, {2, element}};
  for (auto [encoder, make, fn] :
       {std::tuple{&hylorn::ASN1_Encode_Sequence, &hylorn::new_ASN1_SEQUENCE, 107},
        {&hylorn::ASN1_Encode_Set, &hylorn::new_ASN1_SET, 109}}) {
    for (const ASN1_SEQUENCE* list : {&one, static_cast<const ASN1_SEQUENCE*>(nullptr)}) {
      expect_each_malloc_failure(
          [e = encoder, list] { return freeing([&](DATA_BUFFER* o) { return e(list, o); }).first; },
          {{{fn, list ? 3 : 1, "memory"}}});
    }
    expect_each_malloc_failure(
        [make = make] {
          ASN1_SEQUENCE* n = nullptr;
          const u32 r = make(&n);
          hylorn::free_ASN1_SEQUENCE(n);
          return r;
        },
        {{kEarlierEntry, {fn == 107 ? 138 : 141, 1, "malloc"}}});
  }
  const ErrEntry copy{132, 1, "malloc"}, find{101, 2, "copy DATA_BUFFER"};
  expect_each_malloc_failure(
      [] {
        hylorn::ASN1_OBJECT_ID obj{61, {0, nullptr}};
        const u32 r = hylorn::ASN1_Find_Object_ID(&obj);
        hylorn::free_ASN1_OBJECT_ID(&obj);
        return r;
      },
      {{copy, find}});
  expect_each_malloc_failure(
      [] {
        hylorn::USER_X509_ALG_ID user{};
        user.algorithm = 3;
        user.parametersLength = 2;
        hylorn::X509_ALG_ID alg;
        hylorn::ini_X509_ALG_ID(&alg);
        const u32 r = hylorn::u2l_signature(&user, &alg);
        EXPECT_TRUE(r == 0 ||
                    (alg.algorithm.oid.data == nullptr && alg.parameters.data == nullptr));
        hylorn::free_X509_ALG_ID(&alg);
        return r;
      },
      {{copy, find, {303, 2, "ASN1_Find_Object_ID"}}, {{303, 3, "malloc"}}});
}

}  // namespace
