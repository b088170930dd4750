// The DER primitives and the SEQUENCE / SET lists: every type against OpenSSL at each
// length-octet boundary, the special rules as known answers, the error entries of each
// step, truncations, and each allocation failing in turn.
#include "asn1/der.h"

#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/bn.h>

#include <algorithm>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "asn1/algorithm.h"
#include "asn1/der_reader.h"
#include "asn1/list.h"
#include "frame/error.h"
#include "hylorn.h"
#include "support/alloc_failure.h"
#include "support/error_list.h"
#include "support/openssl_bytes.h"
#include "support/random_bytes.h"

namespace {

using namespace hylorn_test;
using hylorn::ASN1_SEQUENCE;
using hylorn::DATA_BUFFER;
using hylorn::u32;
using hylorn::u8;

// ---- uniform handles on the coders: one table of cases runs through every decoder or
// encoder; each adapter frees what the coder returned and hands back copies ----

struct Decoded {
  u32 result = 1;
  Bytes value;                 // contents (BIT STRING: without the unused-bits octet)
  unsigned extra = 0;          // BIT STRING unused bits, explicit tag number, BOOLEAN value,
                               // or the oidValue 77 the Object decoder must leave alone
  std::vector<Bytes> nodes{};  // SEQUENCE / SET components; "<list written>" on a failure
                               // that wrote the caller's list pointer
};

Bytes take(DATA_BUFFER* b) {
  Bytes out(b->data, b->data + b->length);
  hylorn::free_DATA_BUFFER(b);
  return out;
}

// The elements of a braced list are evaluated in order: each call before what it wrote.
template <u32 (*F)(u32, const u8*, DATA_BUFFER*)>
Decoded contents(u32 total, const u8* der) {
  DATA_BUFFER out{0, nullptr};
  return {F(total, der, &out), take(&out)};
}

Decoded boolean(u32 total, const u8* der) {
  u8 value = 0x55;
  return {hylorn::ASN1_Decode_Boolean(total, der, &value), {}, value};
}

Decoded bit_string(u32 total, const u8* der) {
  hylorn::BIT_DATA_BUFFER out{0, 0, nullptr};
  Decoded d{hylorn::ASN1_Decode_Bit_String(total, der, &out), {}, out.unusedBits};
  d.value.assign(out.data, out.data + out.length);
  hylorn::free_BIT_DATA_BUFFER(&out);
  return d;
}

Decoded object(u32 total, const u8* der) {
  hylorn::ASN1_OBJECT_ID out{77, {0, nullptr}};
  return {hylorn::ASN1_Decode_Object(total, der, &out), take(&out.oid), out.oidValue};
}

template <bool kByPointer>
Decoded explicit_tag(u32 total, const u8* der) {
  const DATA_BUFFER in{total, const_cast<u8*>(der)};
  DATA_BUFFER out{0, nullptr};
  u8 tag = 0xEE;
  return {kByPointer ? hylorn::ASN1_Decode_Explicit_Tag_P(&in, &out, &tag)
                     : hylorn::ASN1_Decode_Explicit_Tag(total, der, &out, &tag),
          take(&out), tag};
}

template <u32 (*F)(u32, const u8*, hylorn::ASN1_SEQUENCE**)>
Decoded list(u32 total, const u8* der) {
  auto* sentinel = reinterpret_cast<hylorn::ASN1_SEQUENCE*>(&total);
  hylorn::ASN1_SEQUENCE* head = sentinel;  // must be left alone on failure
  Decoded d;
  d.result = F(total, der, &head);
  if (d.result != 0) {
    if (head != sentinel) d.nodes.push_back(hylorn_test::bytes_of("<list written>"));
    return d;
  }
  for (const auto* n = head; n != nullptr; n = n->next)
    d.nodes.emplace_back(n->value.data, n->value.data + n->value.length);
  hylorn::free_ASN1_SEQUENCE(head);
  return d;
}

struct Decoder {
  const char* name;
  int func_no;
  u8 tag;              // identifier octet of a valid element
  const char* sample;  // a valid element, in hex
  Decoded (*run)(u32 total, const u8* der);
};

// clang-format off
const Decoder kDecoders[] = {
    {"Integer", 112, 0x02, "02 03 00 80 00", contents<hylorn::ASN1_Decode_Integer>},
    {"Boolean", 114, 0x01, "01 01 ff", boolean},
    {"BitString", 106, 0x03, "03 03 07 ff 80", bit_string},
    {"Object", 104, 0x06, "06 03 55 04 03", object},
    {"OctetString", 120, 0x04, "04 84 00 00 00 02 aa bb", contents<hylorn::ASN1_Decode_Octet_String>},
    {"PrintableString", 116, 0x13, "13 02 41 42", contents<hylorn::ASN1_Decode_PrintableString>},
    {"T61String", 226, 0x14, "14 83 00 00 02 41 42", contents<hylorn::ASN1_Decode_T61String>},
    {"IA5String", 118, 0x16, "16 02 41 42", contents<hylorn::ASN1_Decode_IA5String>},
    {"UTCTime", 122, 0x17, "17 02 41 42", contents<hylorn::ASN1_Decode_UTCTime>},
    {"GeneralizedTime", 124, 0x18, "18 02 41 42", contents<hylorn::ASN1_Decode_GeneralizedTime>},
    {"BMPString", 156, 0x1E, "1e 04 4e 2d 00 41", contents<hylorn::ASN1_Decode_BMPString>},
    {"ExplicitTag", 126, 0xA3, "a3 81 03 02 01 05", explicit_tag<false>},
    {"ExplicitTagP", 223, 0xA3, "a3 02 05 00", explicit_tag<true>},
    {"Sequence", 108, 0x30, "30 06 02 01 05 04 01 41", list<hylorn::ASN1_Decode_Sequence>},
    {"Set", 110, 0x31, "31 06 04 01 41 02 01 05", list<hylorn::ASN1_Decode_Set>},
};
// clang-format on

DATA_BUFFER view(const Bytes& c) {
  return DATA_BUFFER{u32(c.size()), const_cast<u8*>(c.data())};
}

// The encoders that take a contents buffer c (BIT STRING with 0 unused bits, explicit tags
// with tag number 3), writing to o.
struct Encoder {
  const char* name;
  int func_no;
  u32 (*run)(const Bytes& c, DATA_BUFFER* o);
};

#define ENCODE(call) [](const Bytes& c, DATA_BUFFER* o) { return hylorn::call; }
const Encoder kEncoders[] = {
    {"Integer", 111, ENCODE(ASN1_Encode_Integer(view(c), o))},
    {"BitString", 105, ENCODE(ASN1_Encode_Bit_String({u32(c.size()), 0, view(c).data}, o))},
    {"Object", 103, ENCODE(ASN1_Encode_Object({0, view(c)}, o))},
    {"OctetString", 119, ENCODE(ASN1_Encode_Octet_String(view(c), o))},
    {"PrintableString", 115, ENCODE(ASN1_Encode_PrintableString(view(c), o))},
    {"IA5String", 117, ENCODE(ASN1_Encode_IA5String(view(c), o))},
    {"UTCTime", 121, ENCODE(ASN1_Encode_UTCTime(view(c), o))},
    {"GeneralizedTime", 123, ENCODE(ASN1_Encode_GeneralizedTime(view(c), o))},
    {"ExplicitTag", 125, ENCODE(ASN1_Encode_Explicit_Tag(view(c), 3, o))},
    {"ExplicitTagP", 222,
     [](const Bytes& c, DATA_BUFFER* o) {
       const DATA_BUFFER in = view(c);
       return hylorn::ASN1_Encode_Explicit_Tag_P(&in, 3, o);
     }},
};
#undef ENCODE

template <class T, std::size_t N>
const T& find(const T (&all)[N], std::string_view name) {
  for (const T& x : all)
    if (name == x.name) return x;
  throw std::invalid_argument("no coder " + std::string(name));
}

// Runs the named decoder on a heap copy of der of exactly der.size() bytes, so that any
// read past the end is caught by AddressSanitizer.
Decoded decode_exact(std::string_view name, const Bytes& der) {
  std::unique_ptr<u8[]> copy(new u8[der.size()]);
  std::copy(der.begin(), der.end(), copy.get());
  return find(kDecoders, name).run(u32(der.size()), copy.get());
}

std::pair<u32, Bytes> encode(std::string_view name, const Bytes& contents) {
  DATA_BUFFER out{0, nullptr};
  return {find(kEncoders, name).run(contents, &out), take(&out)};
}

// Loads a BMP table whose entry u is { (u >> 8) ^ 0x11, (u & 0xFF) ^ 0x22 }.
void load_test_bmp_table() {
  static const std::vector<u8> table = [] {
    std::vector<u8> t(2 * HYLORN_BMP_TABLE_ENTRIES);
    for (u32 u = 0; u < HYLORN_BMP_TABLE_ENTRIES; ++u) {
      t[2 * u] = u8((u >> 8) ^ 0x11);
      t[2 * u + 1] = u8((u & 0xFF) ^ 0x22);
    }
    return t;
  }();
  Crypt_GetBMPTable(table.data());
}

const char* const kL2 = "data length less than 2";
const char* const kDL = "data length";
const char* const kTT = "tag type";
const char* const kTTE = "tag type error";

constexpr int kExplicit3 = -1;  // [3] EXPLICIT around contents that are an element

// OpenSSL's element of a universal type holding contents (INTEGER: as a magnitude, to
// which OpenSSL adds the sign octet; BIT STRING: with no unused bits), or of [3] EXPLICIT.
Bytes openssl_element(int type, Bytes contents) {
  if (type == kExplicit3) return openssl_tlv(true, 3, V_ASN1_CONTEXT_SPECIFIC, contents);
  if (type == V_ASN1_BIT_STRING) contents.insert(contents.begin(), 0);
  if (type != V_ASN1_INTEGER) return openssl_tlv(false, type, V_ASN1_UNIVERSAL, contents);
  BIGNUM* bn = BN_bin2bn(contents.data(), static_cast<int>(contents.size()), nullptr);
  ASN1_INTEGER* integer = BN_to_ASN1_INTEGER(bn, nullptr);
  Bytes out = i2d_bytes(i2d_ASN1_INTEGER, static_cast<const ASN1_INTEGER*>(integer));
  ASN1_INTEGER_free(integer);
  BN_free(bn);
  return out;
}

// Guards tags, length octets at each width boundary, the INTEGER sign octet (contents
// alternate bit 8 set and clear, so 127 octets plus the sign octet cross to long form),
// the BIT STRING unused-bits octet and the contents copy: our encoder writes byte for
// byte what OpenSSL writes, and our decoder reads OpenSSL's element back.
TEST(Primitives, MatchOpenSslAtEveryLengthBoundary) {
  // clang-format off
  const std::pair<const char*, int> types[] = {
      {"Integer", V_ASN1_INTEGER}, {"BitString", V_ASN1_BIT_STRING}, {"Object", V_ASN1_OBJECT},
      {"OctetString", V_ASN1_OCTET_STRING}, {"PrintableString", V_ASN1_PRINTABLESTRING},
      {"T61String", V_ASN1_T61STRING}, {"IA5String", V_ASN1_IA5STRING},
      {"UTCTime", V_ASN1_UTCTIME}, {"GeneralizedTime", V_ASN1_GENERALIZEDTIME},
      {"ExplicitTag", kExplicit3}, {"ExplicitTagP", kExplicit3}};
  // clang-format on
  std::mt19937 rng(11);
  for (auto [coder, type] : types) {
    for (std::size_t n : {1u, 2u, 126u, 127u, 128u, 255u, 256u, 65535u, 65536u}) {
      SCOPED_TRACE(std::string(coder) + " " + std::to_string(n));
      Bytes contents = random_bytes(rng, n);
      contents[0] = n % 2 ? 0x80 : 0x7F;  // the sign boundary; never a leading zero
      const Bytes theirs = openssl_element(type, contents);
      ASSERT_FALSE(theirs.empty());
      if (type != V_ASN1_T61STRING) {  // which has no encoder
        EXPECT_EQ(encode(coder, contents), std::pair(0u, theirs));
      }
      const auto back = decode_exact(coder, theirs);
      ASSERT_EQ(back.result, 0u);
      EXPECT_TRUE(back.value == contents);
      EXPECT_EQ(back.extra, type == kExplicit3 ? 3u : type == V_ASN1_OBJECT ? 77u : 0u);
    }
  }
}

// Guards the 3- and 4-octet lengths written, which no element above reaches (the decoder
// samples and vectors read them).
TEST(Primitives, LongLengthOctetsWritten) {
  for (auto [n, octets] : {std::pair{16777215u, "83 ff ff ff"},
                           {16777216u, "84 01 00 00 00"},
                           {0xFFFFFFFFu, "84 ff ff ff ff"}}) {
    u8 buf[8] = {};
    EXPECT_EQ(Bytes(buf, hylorn::write_length_octets(buf, n)), from_hex(octets)) << n;
  }
}

// One element through one decoder: its contents and extra (unused bits, tag number,
// BOOLEAN value, the untouched oidValue 77) or its components, separated by "|"; or, for
// value nullptr, the one entry it is refused with. Guards the special rules of each
// decoder, the split of lists into whole components (long forms, 0x80, nesting, tags not
// examined), and that each decoder empties the error list on entry.
TEST(Decode, Vectors) {
  load_test_bmp_table();
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
      {"BMPString", "1e 01 4e", ""},
      // The empty SEQUENCE ignores what follows it.
      {"Sequence", "30 00", ""}, {"Sequence", "30 00 05 00", ""}, {"Set", "31 00 ff", ""},
      {"Sequence", "30 80", ""}, {"Set", "31 03 ff 01 00", "ff 01 00"},
      {"Set", "31 06 04 01 41 02 01 05", "04 01 41 | 02 01 05"},
      {"Sequence", "30 81 06 02 01 05 04 01 41", "02 01 05 | 04 01 41"},
      {"Sequence", "30 0a 04 81 05 01 02 03 04 05 05 00", "04 81 05 01 02 03 04 05 | 05 00"},
      {"Sequence", "30 04 04 80 05 00", "04 80 | 05 00"},
      {"Sequence", "30 05 30 03 02 01 07", "30 03 02 01 07"},
      // Components that do not fit, refused reading only the contents' own bytes, with the
      // nodes built so far freed and *list left alone; the same numbers for both kinds.
      {"Sequence", "30 04 02 05 00 00", nullptr, 0, 9, kDL},  // claims 7 where there are 4
      {"Set", "31 06 04 84 ff ff ff ff", nullptr, 0, 9, kDL},  // size wraps 32 bits to 5
      {"Sequence", "30 08 04 84 ff ff ff fa 00 00", nullptr, 0, 9, kDL},  // ... to 0
      {"Set", "31 03 02 85 00", nullptr, 0, 8, kDL},  // more than 4 length octets
      {"Sequence", "30 05 02 01 05 04 02", nullptr, 0, 11, kDL},  // past the contents' end
      // Length octets past the end of the contents.
      {"Set", "31 01 05", nullptr, 0, 11, kDL}, {"Sequence", "30 04 02 01 05 04", nullptr, 0, 11, kDL},
      {"Set", "31 05 02 01 05 04 84", nullptr, 0, 11, kDL},
      {"Sequence", "30 06 02 01 05 04 82 01", nullptr, 0, 11, kDL}};
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.decoder) + " " + c.der);
    hylorn::Crypt_Put_Err(1, 1, "left by an earlier call");
    const auto r = decode_exact(c.decoder, from_hex(c.der));
    if (c.value == nullptr) {
      EXPECT_EQ(r.result, 1u);
      EXPECT_TRUE(r.nodes.empty());  // the adapter notes a written list
      EXPECT_EQ(read_errors(), (Entries{{find(kDecoders, c.decoder).func_no, c.err_no, c.msg}}));
      continue;
    }
    ASSERT_EQ(r.result, 0u) << ::testing::PrintToString(read_errors());
    std::string got = to_hex(r.value), want = c.value;
    for (const Bytes& node : r.nodes) got += (&node == r.nodes.data() ? "" : "|") + to_hex(node);
    std::erase(want, ' ');
    EXPECT_EQ(got, want);
    EXPECT_EQ(r.extra, c.extra);
    EXPECT_TRUE(read_errors().empty());
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

// Guards the (err_no, msg) each decoder gives each header step (a NULL element, more
// than 4 length octets, a long form claiming one byte more than given, a short form with
// a trailing byte), and every length check against reading outside the element: each
// decoder's sample and the long forms, 0x80 lengths and nested components, cut at every
// length and with one byte too many, each in a heap buffer of exactly its size.
TEST(Decode, EachHeaderStepAndEveryTruncation) {
  load_test_bmp_table();
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
  // Steps: 0 too short, 1 tag, 2 length octets, 3 long and 4 short form against the total.
  const auto refused = [&](const std::string& name, const Bytes& der, int step) {
    Steps s;
    for (const auto& [unusual_name, steps] : unusual)
      if (unusual_name == name) s = steps;
    const char* msgs[] = {kL2, s.tag_msg, s.octets_msg, kDL, kDL};
    EXPECT_EQ(decode_exact(name, der).result, 1u) << name << " " << to_hex(der);
    EXPECT_EQ(read_errors(), (Entries{{find(kDecoders, name).func_no, s.err_no[step], msgs[step]}}))
        << name << " " << to_hex(der);
  };
  for (const auto& d : kDecoders) {
    const u8 t = d.tag;
    const Bytes elements[] = {
        {5, 1, 0}, {t, 0x85, 0, 0, 0, 0, 1, 0xAA}, {t, 0x81, 2, 0xAA}, {t, 1, 0xAA, 0xBB}};
    for (int step = 1; step < 5; ++step) refused(d.name, elements[step - 1], step);
  }
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
  for (const auto& d : kDecoders) wholes.emplace_back(d.name, from_hex(d.sample));
  for (const auto& [name, whole] : wholes) {
    ASSERT_EQ(decode_exact(name, whole).result, 0u) << to_hex(whole);
    Bytes longer = whole;
    longer.push_back(0);
    for (std::size_t n = 0; n <= longer.size(); ++n) {
      if (n == whole.size()) continue;  // the element itself
      const int step = n < (name == "Boolean" ? 3u : 2u) ? 0 : (whole[1] & 0x80) ? 3 : 4;
      refused(name, Bytes(longer.begin(), longer.begin() + n), step);
    }
  }
}

// Runs f(&out), frees out and gives the result with the element written.
template <class F>
std::pair<u32, std::string> freeing(F f) {
  DATA_BUFFER out{0, nullptr};
  return {f(&out), to_hex(take(&out))};
}

u8 kOctets[] = {0x00, 0x01, 0xFF, 0x05, 0x00, 0x80};
u8* const kLast = kOctets + 5;  // anything read beyond it shows under AddressSanitizer
ASN1_SEQUENCE kSecond{nullptr, {0x80000000u, kLast}}, kFirst{&kSecond, {0x80000000u, kLast}};
const ASN1_SEQUENCE kOne{nullptr, {2, kOctets + 3}};  // 05 00
#define CALL(call) [](DATA_BUFFER* o) { return hylorn::call; }

// One call of an encoder: the element it writes, or the one entry it is refused with and
// nothing written. Guards the INTEGER sign octet (never doubled, leading zeros kept), the
// BOOLEAN octets, BIT STRING unused bits, the explicit tag number; the refusal of empty
// contents, and of elements and lists past 2^32 - 1 bytes before anything is read beyond
// the first byte: the largest element that fits has 2^32 - 7 contents octets, each call
// below is one over, and lists sum their values in 64 bits.
TEST(Encode, SpecialContentsAndRefusals) {
  const char *const kTooLong = "data too length", *const kEmpty = "data length equal zero";
  const std::tuple<u32 (*)(DATA_BUFFER*), const char*, ErrEntry> rows[] = {
      {CALL(ASN1_Encode_Integer({2, kOctets + 4}, o)), "02 02 00 80", {}},
      {CALL(ASN1_Encode_Integer({2, kOctets}, o)), "02 02 00 01", {}},
      {CALL(ASN1_Encode_Integer({1, kOctets}, o)), "02 01 00", {}},
      {CALL(ASN1_Encode_Boolean(0, o)), "01 01 00", {}},
      {CALL(ASN1_Encode_Boolean(1, o)), "01 01 ff", {}},
      {CALL(ASN1_Encode_Boolean(5, o)), "01 01 ff", {}},
      {CALL(ASN1_Encode_Bit_String({1, 3, kOctets + 2}, o)), "03 02 03 ff", {}},
      {CALL(ASN1_Encode_Bit_String({1, 8, kOctets + 2}, o)), nullptr, {105, 3, "unusedBits"}},
      {CALL(ASN1_Encode_Explicit_Tag({2, kOctets + 3}, 0, o)), "a0 02 05 00", {}},
      {CALL(ASN1_Encode_Explicit_Tag({2, kOctets + 3}, 1, o)), "a1 02 05 00", {}},
      {CALL(ASN1_Encode_Explicit_Tag({2, kOctets + 3}, 30, o)), "be 02 05 00", {}},
      {CALL(ASN1_Encode_Explicit_Tag_P(nullptr, 1, o)), nullptr, {222, 1, kEmpty}},
      {CALL(ASN1_Encode_Octet_String({0xFFFFFFFAu, kLast}, o)), nullptr, {119, 2, kTooLong}},
      {CALL(ASN1_Encode_Integer({0xFFFFFFF9u, kLast}, o)), nullptr, {111, 2, kTooLong}},  // its 00
      {CALL(ASN1_Encode_Bit_String({0xFFFFFFF9u, 9, kLast}, o)), nullptr, {105, 2, kTooLong}},
      {CALL(ASN1_Encode_Sequence(&kFirst, o)), nullptr, {107, 2, kTooLong}},
      {CALL(ASN1_Encode_Set(&kFirst, o)), nullptr, {109, 2, kTooLong}}};
  for (const auto& [call, der, refusal] : rows) {
    std::string want = der != nullptr ? der : "";
    std::erase(want, ' ');
    EXPECT_EQ(freeing(call), std::pair(der != nullptr ? 0u : 1u, want)) << want;
    EXPECT_TRUE(der != nullptr || read_errors() == Entries{refusal}) << error_text();
  }
  for (const auto& e : kEncoders) {
    EXPECT_EQ(encode(e.name, {}).first, 1u) << e.name;
    EXPECT_EQ(read_errors(), (Entries{{e.func_no, 1, kEmpty}})) << e.name;
  }
  EXPECT_EQ(hylorn::der_element_size(0xFFFFFFF9u), 0xFFFFFFFFu);
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

// Each malloc of each allocating function fails in turn: the function answers 1 with the
// entries below and leaves nothing allocated (the sanitizer build checks for leaks).
// Guards the "memory" entry of every coder (an empty list reports 1, a non-empty one 3);
// the list decoders allocate a node and a value per component, and report the head node
// differently from later ones; the node records keep the caller's list; the OID copy
// inside the look-up and inside u2l_signature, which must leave the record empty.
TEST(AllocFailure, EveryAllocatingFunction) {
  load_test_bmp_table();
  for (const auto& e : kEncoders) {
    SCOPED_TRACE(e.name);
    expect_each_malloc_failure([&e] { return encode(e.name, from_hex("80 01")).first; },
                               {{{e.func_no, e.func_no == 105 ? 4 : 3, "memory"}}});
  }
  for (const auto& d : kDecoders) {
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
  const std::pair<u32 (*)(DATA_BUFFER*), ErrEntry> encoders[] = {
      {CALL(ASN1_Encode_Boolean(1, o)), {113, 1, "memory"}},
      {CALL(ASN1_Encode_Sequence(&kOne, o)), {107, 3, "memory"}},
      {CALL(ASN1_Encode_Sequence(nullptr, o)), {107, 1, "memory"}},
      {CALL(ASN1_Encode_Set(&kOne, o)), {109, 3, "memory"}},
      {CALL(ASN1_Encode_Set(nullptr, o)), {109, 1, "memory"}}};
  for (const auto& [call, entry] : encoders)
    expect_each_malloc_failure([call = call] { return freeing(call).first; }, {{entry}});
  for (auto [make, fn] :
       {std::pair{&hylorn::new_ASN1_SEQUENCE, 138}, {&hylorn::new_ASN1_SET, 141}}) {
    expect_each_malloc_failure(
        [make = make] {
          ASN1_SEQUENCE* n = nullptr;
          const u32 r = make(&n);
          hylorn::free_ASN1_SEQUENCE(n);
          return r;
        },
        {{kEarlierEntry, {fn, 1, "malloc"}}});
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

#undef CALL

}  // namespace
