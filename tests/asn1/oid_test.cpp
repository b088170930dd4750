// The object identifier table against the dotted forms of the identifiers, whose content
// octets OpenSSL derives from the text; the look-ups both ways; the algorithm numbers.
#include "asn1/oid.h"

#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/objects.h>

#include <string>

#include "asn1/algorithm.h"
#include "frame/error.h"
#include "support/error_list.h"
#include "support/hex.h"
#include "support/openssl_bytes.h"

namespace {

using hylorn::ASN1_OBJECT_ID;
using hylorn::u32;
using hylorn::u8;
using namespace hylorn_test;

// The identifiers of oidValue 1 to 135 in table order; 85 is not assigned.
// clang-format off
const char* const kDotted[] = {
    "1.2.840.113549.1.1.2", "1.2.840.113549.1.1.4", "1.3.14.3.2.29", "1.2.10040.4.3", "0.0", "0.0",
    "1.2.840.113549.1.1", "1.2.840.113549.1.1.1", "1.2.840.113549.1.1.2", "1.2.840.113549.1.1.3",
    "1.2.840.113549.1.1.4", "1.2.840.113549.1.3", "1.2.840.113549.1.3.1", "1.2.840.113549.1.5",
    "1.2.840.113549.1.5.1", "1.2.840.113549.1.5.3", "1.2.840.113549.1.7", "1.2.840.113549.1.7.1",
    "1.2.840.113549.1.7.2", "1.2.840.113549.1.7.3", "1.2.840.113549.1.7.4", "1.2.840.113549.1.7.5",
    "1.2.840.113549.1.7.6", "1.2.840.113549.1.9", "1.2.840.113549.1.9.1", "1.2.840.113549.1.9.2",
    "1.2.840.113549.1.9.3", "1.2.840.113549.1.9.4", "1.2.840.113549.1.9.5", "1.2.840.113549.1.9.6",
    "1.2.840.113549.1.9.7", "1.2.840.113549.1.9.8", "1.2.840.113549.1.9.9", "1.2.840.113549.2.2",
    "1.2.840.113549.2.4", "1.2.840.113549.2.5", "1.3.14.3.2.6", "1.3.14.3.2.9", "1.3.14.3.2.7",
    "1.3.14.3.2.17", "1.2.840.113549.3.2", "1.2.840.113549.3.4", "1.3.14.3.2.18", "1.3.14.3.2.15",
    "1.2.840.113549.3.7", "1.3.14.3.2.8", "1.3.14.3.2.26", "1.2.840.113549.1.1.5", "1.3.14.3.2.13",
    "1.3.14.3.2.12", "1.2.840.113549.1.5.11", "1.2.840.113549.1.5.12", "1.3.14.3.2.27",
    "2.5.8.3.101", "2.5.8.3.100", "2.5.4.6", "2.5.4.8", "2.5.4.7", "2.5.4.10", "2.5.4.11",
    "2.5.4.3", "2.5.4.4", "2.5.4.9", "2.5.4.12", "2.5.4.16", "2.5.4.17", "2.5.4.20", "2.5.4.21",
    "2.5.4.24", "2.5.4.42", "2.5.4.43", "2.5.4.18", "2.5.29.35", "2.5.29.14", "2.5.29.15",
    "2.5.29.16", "2.5.29.32", "2.5.29.33", "2.5.29.17", "2.5.29.18", "2.5.29.9", "2.5.29.19",
    "2.5.29.30", "2.5.29.36", "2.5.29.37", "2.5.29.20", "2.5.29.28", "2.5.29.27", "2.5.29.29",
    "2.5.29.21", "2.5.29.23", "2.5.29.24", "1.3.6.1.5.5.7.2.1", "1.3.6.1.5.5.7.2.2",
    "1.3.6.1.5.5.7.48.1", "1.3.6.1.5.5.7.48.2", "1.3.6.1.5.5.7.3.1", "1.3.6.1.5.5.7.3.2",
    "1.3.6.1.5.5.7.3.3", "1.3.6.1.5.5.7.4", "1.3.6.1.5.5.7.5", "1.3.6.1.5.5.7.6", "1.3.6.1.5.5.7.7",
    "1.3.6.1.5.5.7.8", "2.16.840.1.113730.1.1", "2.16.840.1.113730.1.2", "2.16.840.1.113730.1.3",
    "2.16.840.1.113730.1.4", "2.16.840.1.113730.1.7", "2.16.840.1.113730.1.8",
    "2.16.840.1.113730.1.12", "2.16.840.1.113730.1.13", "2.16.840.1.113730.2.5", "2.23.42.7.0",
    "2.23.42.7.1", "2.23.42.7.2", "2.23.42.7.3", "2.23.42.7.4", "2.23.42.7.5", "2.23.42.7.6",
    "2.16.840.1.113731.1", "2.16.840.1.113731.2", "2.16.840.1.113731.3", "2.16.840.1.113731.4",
    "2.16.840.1.113731.10", "2.16.840.1.113731.11", "2.16.840.1.113731.12", "2.16.840.1.113731.13",
    "2.16.840.1.113731.14", "2.16.840.1.113731.15", "2.16.840.1.113731.16", "2.16.840.1.113731.17",
    "2.16.840.1.113731.18", "2.16.840.1.113731.19",
};
// clang-format on
u32 value_at(std::size_t i) {
  return u32(i + 1 + (i >= 84));
}

// Content octets of the dotted identifier, as OpenSSL encodes it.
Bytes content_octets(const char* dotted) {
  ASN1_OBJECT* obj = OBJ_txt2obj(dotted, 1);
  EXPECT_NE(obj, nullptr) << dotted;
  const Bytes der = i2d_bytes(i2d_ASN1_OBJECT, static_cast<const ASN1_OBJECT*>(obj));
  ASN1_OBJECT_free(obj);
  return der.size() < 2 ? Bytes{} : Bytes(der.begin() + 2, der.end());  // all under 128 octets
}

// Guards every value, octet and length of the table and its order, through both
// look-ups: each value gives the octets of its dotted form, and those octets give back
// the first value with the same identifier.
TEST(ObjectIdTable, FindsBothWaysWithTheFirstMatchWinning) {
  ASSERT_EQ(hylorn::object_id_table().size(), std::size(kDotted));
  for (std::size_t i = 0; i < std::size(kDotted); ++i) {
    std::size_t first = 0;
    while (std::string(kDotted[first]) != kDotted[i]) ++first;
    ASN1_OBJECT_ID obj{value_at(i), {0, nullptr}};
    hylorn::Crypt_Put_Err(1, 1, "left by an earlier call");
    ASSERT_EQ(hylorn::ASN1_Find_Object_ID(&obj), 0u) << kDotted[i];
    EXPECT_EQ(Bytes(obj.oid.data, obj.oid.data + obj.oid.length), content_octets(kDotted[i]))
        << kDotted[i];
    obj.oidValue = 999;
    ASSERT_EQ(hylorn::ASN1_Find_Oid_Value(&obj), 0u) << kDotted[i];
    EXPECT_EQ(obj.oidValue, value_at(first)) << kDotted[i];
    EXPECT_TRUE(read_errors().empty());
    hylorn::free_ASN1_OBJECT_ID(&obj);
  }
}

// Guards the not-found answers (2, one entry, record untouched), including prefixes and
// extensions of known octets and values that only match in their low bits.
TEST(ObjectIdTable, UnknownValuesAndOctetsAreNotFound) {
  for (u32 value : {0u, 85u, 136u, 0x101u, 0x10000001u}) {
    ASN1_OBJECT_ID obj{value, {0, nullptr}};
    EXPECT_EQ(hylorn::ASN1_Find_Object_ID(&obj), 2u) << value;
    EXPECT_EQ(obj.oid.data, nullptr);
    EXPECT_EQ(read_errors(), (Entries{{101, 1, "ASN1 oidValue not found"}}));
  }
  for (const Bytes& octets :
       {Bytes{}, from_hex("55 1d"), from_hex("55 1d 25 00"),
        from_hex("2a 86 48 86 f7 0d 01 01 02 00"), content_octets("1.3.6.1.5.5.7.3.4")}) {
    ASN1_OBJECT_ID obj{4242, {u32(octets.size()), const_cast<u8*>(octets.data())}};
    EXPECT_EQ(hylorn::ASN1_Find_Oid_Value(&obj), 2u) << to_hex(octets);
    EXPECT_EQ(obj.oidValue, 4242u);
    EXPECT_EQ(read_errors(), (Entries{{102, 1, "ASN1 oidValue not found"}}));
  }
}

// Guards both conversions through the algorithm numbers. Caller -> internal: the
// identifier octets, parameters copied, unknown numbers refused with the record left
// empty. Internal -> caller, up to the 1,024-byte parameter limit: both SHA-1
// identifiers give 3, only the low 8 bits of the value count; and the refusals.
TEST(Signature, AlgorithmNumbersBothWays) {
  Bytes params(1025, 0x5A);
  hylorn::USER_X509_ALG_ID user{};
  for (auto [number, dotted] : {std::pair{1u, "1.2.840.113549.1.1.2"},
                                {2u, "1.2.840.113549.1.1.4"},
                                {3u, "1.3.14.3.2.29"},
                                {4u, "1.2.840.113549.1.1.1"}}) {
    user.algorithm = hylorn::u16(number);
    user.parametersLength = number == 4 ? 2 : 0;
    hylorn::X509_ALG_ID alg;
    hylorn::ini_X509_ALG_ID(&alg);
    ASSERT_EQ(hylorn::u2l_signature(&user, &alg), 0u);
    EXPECT_EQ(Bytes(alg.algorithm.oid.data, alg.algorithm.oid.data + alg.algorithm.oid.length),
              content_octets(dotted));
    EXPECT_EQ(Bytes(alg.parameters.data, alg.parameters.data + alg.parameters.length),
              Bytes(user.parameters, user.parameters + user.parametersLength));
    hylorn::free_X509_ALG_ID(&alg);
  }
  for (hylorn::u16 number : {0, 5, 48, 0x103}) {
    user.algorithm = number;
    hylorn::X509_ALG_ID alg{};
    EXPECT_EQ(hylorn::u2l_signature(&user, &alg), 1u);
    EXPECT_EQ(read_errors(), (Entries{{303, 1, "Algorithm_Uid2Oid"}}));
    EXPECT_EQ(alg.algorithm.oid.data, nullptr);
  }
  for (auto [value, length, expected] :
       {std::tuple{48u, 1024u, 3u}, {3u, 0u, 3u}, {1u, 0u, 1u}, {8u, 2u, 4u}, {256u + 2, 5u, 2u}}) {
    const hylorn::X509_ALG_ID alg{{value, {0, nullptr}}, {length, params.data()}};
    user = {};
    ASSERT_EQ(hylorn::l2u_signature(&alg, &user), 0u) << value;
    EXPECT_EQ(user.algorithm, expected);
    EXPECT_EQ(Bytes(user.parameters, user.parameters + user.parametersLength), Bytes(length, 0x5A));
  }
  const hylorn::X509_ALG_ID too_long{{48, {0, nullptr}}, {1025, params.data()}};
  EXPECT_EQ(hylorn::l2u_signature(&too_long, &user), 1u);
  EXPECT_EQ(read_errors(), (Entries{{304, 1, "parameters too length"}}));
  for (u32 value : {0u, 4u, 9u, 61u}) {
    const hylorn::X509_ALG_ID unknown{{value, {0, nullptr}}, {2, params.data()}};
    EXPECT_EQ(hylorn::l2u_signature(&unknown, &user), 1u);
    EXPECT_EQ(read_errors(), (Entries{{304, 2, "Algorithm_Oid2Uid"}}));
  }
}

}  // namespace
