// Cross-checks with OpenSSL: what our encoders write parses there with the same contents,
// at every length-octet boundary, and what OpenSSL writes our decoders read.
#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/bn.h>
#include <openssl/objects.h>

#include <functional>
#include <random>

#include "asn1/der.h"
#include "asn1/list.h"
#include "coders.h"
#include "support/hex.h"

namespace {

using asn1_test::Bytes;
using asn1_test::decode_exact;
using asn1_test::encode;
using hylorn::u32;
using hylorn::u8;
using hylorn_test::to_hex;

// The contents OpenSSL finds in der, or nothing when it refuses it.
using Parser = std::function<std::optional<Bytes>(const Bytes& der)>;

Bytes string_bytes(const ASN1_STRING* s) {
  const u8* p = ASN1_STRING_get0_data(s);
  return Bytes(p, p + ASN1_STRING_length(s));
}

template <class T, T* (*D2i)(T**, const unsigned char**, long), void (*Free)(T*)>
std::optional<Bytes> parse_string(const Bytes& der) {
  const unsigned char* p = der.data();
  T* s = D2i(nullptr, &p, long(der.size()));
  if (s == nullptr || p != der.data() + der.size()) return std::nullopt;
  Bytes out = string_bytes(s);
  Free(s);
  return out;
}

// The magnitude of a non-negative INTEGER, without leading zeros.
std::optional<Bytes> parse_integer(const Bytes& der) {
  const unsigned char* p = der.data();
  ASN1_INTEGER* i = d2i_ASN1_INTEGER(nullptr, &p, long(der.size()));
  if (i == nullptr) return std::nullopt;
  BIGNUM* bn = ASN1_INTEGER_to_BN(i, nullptr);
  Bytes out(BN_num_bytes(bn));
  BN_bn2bin(bn, out.data());
  const bool negative = BN_is_negative(bn);
  BN_free(bn);
  ASN1_INTEGER_free(i);
  if (negative) return std::nullopt;
  return out;
}

std::optional<Bytes> parse_object(const Bytes& der) {
  const unsigned char* p = der.data();
  ASN1_OBJECT* o = d2i_ASN1_OBJECT(nullptr, &p, long(der.size()));
  if (o == nullptr) return std::nullopt;
  Bytes out(OBJ_get0_data(o), OBJ_get0_data(o) + OBJ_length(o));
  ASN1_OBJECT_free(o);
  return out;
}

// [3] EXPLICIT: OpenSSL reads the header; the contents are the inner element.
std::optional<Bytes> parse_explicit3(const Bytes& der) {
  const unsigned char* p = der.data();
  long length = 0;
  int tag = 0, cls = 0;
  const int r = ASN1_get_object(&p, &length, &tag, &cls, long(der.size()));
  if ((r & 0x80) || !(r & V_ASN1_CONSTRUCTED) || tag != 3 || cls != V_ASN1_CONTEXT_SPECIFIC ||
      p + length != der.data() + der.size()) {
    return std::nullopt;
  }
  return Bytes(p, p + length);
}

struct Checked {
  const char* encoder;
  Parser parse;
  // Contents of n bytes that are valid for the type.
  Bytes (*contents)(std::size_t n, std::mt19937& rng);
};

Bytes random_bytes(std::size_t n, std::mt19937& rng) {
  Bytes b(n);
  for (auto& x : b) x = u8(rng());
  b[0] |= 0x01;  // INTEGER magnitudes without leading zero, as OpenSSL requires DER
  return b;
}
Bytes printable(std::size_t n, std::mt19937& rng) {
  Bytes b(n);
  for (auto& x : b) x = u8('A' + rng() % 26);
  return b;
}
Bytes object_arcs(std::size_t n, std::mt19937&) {  // 1.2.1.1.1...
  Bytes b(n, 0x01);
  b[0] = 0x2A;
  return b;
}

const Checked kChecked[] = {
    {"Integer", parse_integer, random_bytes},
    {"BitString", parse_string<ASN1_BIT_STRING, d2i_ASN1_BIT_STRING, ASN1_BIT_STRING_free>,
     random_bytes},
    {"Object", parse_object, object_arcs},
    {"OctetString", parse_string<ASN1_OCTET_STRING, d2i_ASN1_OCTET_STRING, ASN1_OCTET_STRING_free>,
     random_bytes},
    {"PrintableString",
     parse_string<ASN1_PRINTABLESTRING, d2i_ASN1_PRINTABLESTRING, ASN1_PRINTABLESTRING_free>,
     printable},
    {"IA5String", parse_string<ASN1_IA5STRING, d2i_ASN1_IA5STRING, ASN1_IA5STRING_free>, printable},
    {"UTCTime", parse_string<ASN1_UTCTIME, d2i_ASN1_UTCTIME, ASN1_UTCTIME_free>, printable},
    {"GeneralizedTime",
     parse_string<ASN1_GENERALIZEDTIME, d2i_ASN1_GENERALIZEDTIME, ASN1_GENERALIZEDTIME_free>,
     printable},
    {"ExplicitTag", parse_explicit3, random_bytes},
    {"ExplicitTagP", parse_explicit3, random_bytes},
};

class OpenSslReadsOurs : public ::testing::TestWithParam<Checked> {};

TEST_P(OpenSslReadsOurs, AtEveryLengthOctetBoundary) {
  const auto& c = GetParam();
  std::mt19937 rng(11);
  for (std::size_t n : {1u, 2u, 126u, 127u, 128u, 254u, 255u, 256u, 65534u, 65535u, 65536u}) {
    const Bytes contents = c.contents(n, rng);
    const auto ours = encode(c.encoder, contents);
    ASSERT_EQ(ours.result, 0u);
    const auto theirs = c.parse(ours.der);
    ASSERT_TRUE(theirs.has_value()) << c.encoder << " " << n;
    EXPECT_EQ(*theirs, contents) << c.encoder << " " << n;
  }
}

INSTANTIATE_TEST_SUITE_P(Encoders, OpenSslReadsOurs, ::testing::ValuesIn(kChecked),
                         [](const auto& info) { return std::string(info.param.encoder); });

TEST(OpenSslReadsOurs, SixteenMebibyteOctetString) {
  const Bytes contents(16777216, 0x5C);
  const auto ours = encode("OctetString", contents);
  ASSERT_EQ(ours.result, 0u);
  EXPECT_EQ(to_hex(ours.der.data(), 6), "048401000000");
  const auto theirs =
      parse_string<ASN1_OCTET_STRING, d2i_ASN1_OCTET_STRING, ASN1_OCTET_STRING_free>(ours.der);
  ASSERT_TRUE(theirs.has_value());
  EXPECT_TRUE(*theirs == contents);
}

TEST(OpenSslReadsOurs, Booleans) {
  for (u8 value : {0, 1, 0x80}) {
    hylorn::DATA_BUFFER out{0, nullptr};
    ASSERT_EQ(hylorn::ASN1_Encode_Boolean(value, &out), 0u);
    const unsigned char* p = out.data;
    ASN1_TYPE* t = d2i_ASN1_TYPE(nullptr, &p, out.length);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(ASN1_TYPE_get(t), V_ASN1_BOOLEAN);
    EXPECT_EQ(t->value.boolean != 0, value != 0);
    ASN1_TYPE_free(t);
    hylorn::free_DATA_BUFFER(&out);
  }
}

// SEQUENCE / SET of OCTET STRINGs whose total crosses each boundary; OpenSSL splits them
// into the same elements.
TEST(OpenSslReadsOurs, SequencesAndSets) {
  using Split = STACK_OF(ASN1_TYPE) * (*)(STACK_OF(ASN1_TYPE)**, const unsigned char**, long);
  const std::tuple<u32 (*)(const hylorn::ASN1_SEQUENCE*, hylorn::DATA_BUFFER*), Split> kinds[] = {
      {hylorn::ASN1_Encode_Sequence, d2i_ASN1_SEQUENCE_ANY},
      {hylorn::ASN1_Encode_Set, d2i_ASN1_SET_ANY}};
  for (auto [encode_list, split] : kinds) {
    for (u32 first : {0u, 1u, 120u, 123u, 124u, 250u, 251u, 65528u, 65529u}) {
      const Bytes a(first, 0x11), b(2, 0x22);
      hylorn::ASN1_SEQUENCE* head = nullptr;
      ASSERT_EQ(hylorn::new_ASN1_SEQUENCE(&head), 0u);
      ASSERT_EQ(hylorn::new_ASN1_SEQUENCE(&head->next), 0u);
      // An empty OCTET STRING is written by hand: the encoder refuses empty contents.
      if (first == 0) {
        ASSERT_EQ(hylorn::copy_DATA_BUFFER(&head->value, 2, Bytes{0x04, 0x00}.data()), 0u);
      } else {
        ASSERT_EQ(
            hylorn::ASN1_Encode_Octet_String({first, const_cast<u8*>(a.data())}, &head->value), 0u);
      }
      ASSERT_EQ(
          hylorn::ASN1_Encode_Octet_String({2, const_cast<u8*>(b.data())}, &head->next->value), 0u);
      hylorn::DATA_BUFFER out{0, nullptr};
      ASSERT_EQ(encode_list(head, &out), 0u);
      hylorn::free_ASN1_SEQUENCE(head);

      const unsigned char* p = out.data;
      STACK_OF(ASN1_TYPE)* items = split(nullptr, &p, out.length);
      ASSERT_NE(items, nullptr) << first;
      EXPECT_EQ(p, out.data + out.length);
      ASSERT_EQ(sk_ASN1_TYPE_num(items), 2);
      EXPECT_EQ(string_bytes(sk_ASN1_TYPE_value(items, 0)->value.octet_string), a);
      EXPECT_EQ(string_bytes(sk_ASN1_TYPE_value(items, 1)->value.octet_string), b);
      sk_ASN1_TYPE_pop_free(items, ASN1_TYPE_free);
      hylorn::free_DATA_BUFFER(&out);
    }
  }
}

// ---------------------------------------------------------------------------------------
// OpenSSL writes, we read.

// The DER OpenSSL's i2d function writes for x.
template <class T>
Bytes i2d_bytes(int (*i2d)(const T*, unsigned char**), const T* x) {
  unsigned char* der = nullptr;
  const int n = i2d(x, &der);
  Bytes out(der, der + (n > 0 ? n : 0));
  OPENSSL_free(der);
  return out;
}

TEST(WeReadOpenSsl, IntegersGiveTheirMagnitude) {
  std::mt19937 rng(5);
  for (int bits : {1, 7, 8, 9, 127 * 8, 128 * 8, 1024, 8 * 300}) {
    BIGNUM* bn = BN_new();
    ASSERT_EQ(BN_rand(bn, bits, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY), 1);
    ASN1_INTEGER* i = BN_to_ASN1_INTEGER(bn, nullptr);
    const Bytes encoded = i2d_bytes(i2d_ASN1_INTEGER, i);
    Bytes magnitude(BN_num_bytes(bn));
    BN_bn2bin(bn, magnitude.data());
    const auto d = decode_exact("Integer", encoded);
    ASSERT_EQ(d.result, 0u);
    EXPECT_EQ(d.value, magnitude) << bits;
    // And our encoding of the magnitude is byte for byte OpenSSL's.
    EXPECT_EQ(to_hex(encode("Integer", magnitude).der), to_hex(encoded)) << bits;
    ASN1_INTEGER_free(i);
    BN_free(bn);
  }
}

TEST(WeReadOpenSsl, StringsAndBitStrings) {
  for (int n : {0, 1, 127, 128, 255, 256, 65535, 65536}) {
    const Bytes contents(n, u8(n | 0x40));
    ASN1_OCTET_STRING* s = ASN1_OCTET_STRING_new();
    ASN1_OCTET_STRING_set(s, contents.data(), n);
    const Bytes encoded = i2d_bytes(i2d_ASN1_OCTET_STRING, s);
    ASN1_OCTET_STRING_free(s);
    const auto d = decode_exact("OctetString", encoded);
    ASSERT_EQ(d.result, 0u) << n;
    EXPECT_EQ(d.value, contents);
  }
  // OpenSSL counts the unused bits from the trailing zero bits of the last byte.
  for (auto [last, unused] : {std::pair{u8(0x01), 0u}, {u8(0x80), 7u}, {u8(0x50), 4u}}) {
    ASN1_BIT_STRING* s = ASN1_BIT_STRING_new();
    const u8 bytes[] = {0xFF, last};
    ASN1_BIT_STRING_set(s, const_cast<u8*>(bytes), 2);
    const Bytes encoded = i2d_bytes(i2d_ASN1_BIT_STRING, s);
    ASN1_BIT_STRING_free(s);
    const auto d = decode_exact("BitString", encoded);
    ASSERT_EQ(d.result, 0u);
    EXPECT_EQ(d.value, Bytes(bytes, bytes + 2));
    EXPECT_EQ(d.extra, unused);
  }
}

}  // namespace
