// The object identifier table against the dotted forms of the identifiers: the octets
// are derived here from the text, and OpenSSL derives them independently.
#include "asn1/oid.h"

#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/objects.h>

#include <sstream>
#include <string>

#include "asn1/algorithm.h"
#include "frame/error.h"
#include "support/error_list.h"
#include "support/hex.h"

namespace {

using hylorn::ASN1_OBJECT_ID;
using hylorn::u32;
using hylorn::u8;
using hylorn_test::Bytes;
using hylorn_test::ErrEntry;
using hylorn_test::from_hex;
using hylorn_test::read_errors;
using hylorn_test::to_hex;
using Entries = std::vector<ErrEntry>;

struct Dotted {
  u32 value;
  const char* text;
};

// The identifiers the library knows by number, in table order.
// clang-format off
const Dotted kDotted[] = {
    {1, "1.2.840.113549.1.1.2"}, {2, "1.2.840.113549.1.1.4"}, {3, "1.3.14.3.2.29"},
    {4, "1.2.10040.4.3"}, {5, "0.0"}, {6, "0.0"}, {7, "1.2.840.113549.1.1"},
    {8, "1.2.840.113549.1.1.1"}, {9, "1.2.840.113549.1.1.2"}, {10, "1.2.840.113549.1.1.3"},
    {11, "1.2.840.113549.1.1.4"}, {12, "1.2.840.113549.1.3"}, {13, "1.2.840.113549.1.3.1"},
    {14, "1.2.840.113549.1.5"}, {15, "1.2.840.113549.1.5.1"}, {16, "1.2.840.113549.1.5.3"},
    {17, "1.2.840.113549.1.7"}, {18, "1.2.840.113549.1.7.1"}, {19, "1.2.840.113549.1.7.2"},
    {20, "1.2.840.113549.1.7.3"}, {21, "1.2.840.113549.1.7.4"}, {22, "1.2.840.113549.1.7.5"},
    {23, "1.2.840.113549.1.7.6"}, {24, "1.2.840.113549.1.9"}, {25, "1.2.840.113549.1.9.1"},
    {26, "1.2.840.113549.1.9.2"}, {27, "1.2.840.113549.1.9.3"}, {28, "1.2.840.113549.1.9.4"},
    {29, "1.2.840.113549.1.9.5"}, {30, "1.2.840.113549.1.9.6"}, {31, "1.2.840.113549.1.9.7"},
    {32, "1.2.840.113549.1.9.8"}, {33, "1.2.840.113549.1.9.9"}, {34, "1.2.840.113549.2.2"},
    {35, "1.2.840.113549.2.4"}, {36, "1.2.840.113549.2.5"}, {37, "1.3.14.3.2.6"},
    {38, "1.3.14.3.2.9"}, {39, "1.3.14.3.2.7"}, {40, "1.3.14.3.2.17"}, {41, "1.2.840.113549.3.2"},
    {42, "1.2.840.113549.3.4"}, {43, "1.3.14.3.2.18"}, {44, "1.3.14.3.2.15"},
    {45, "1.2.840.113549.3.7"}, {46, "1.3.14.3.2.8"}, {47, "1.3.14.3.2.26"},
    {48, "1.2.840.113549.1.1.5"}, {49, "1.3.14.3.2.13"}, {50, "1.3.14.3.2.12"},
    {51, "1.2.840.113549.1.5.11"}, {52, "1.2.840.113549.1.5.12"}, {53, "1.3.14.3.2.27"},
    {54, "2.5.8.3.101"}, {55, "2.5.8.3.100"}, {56, "2.5.4.6"}, {57, "2.5.4.8"}, {58, "2.5.4.7"},
    {59, "2.5.4.10"}, {60, "2.5.4.11"}, {61, "2.5.4.3"}, {62, "2.5.4.4"}, {63, "2.5.4.9"},
    {64, "2.5.4.12"}, {65, "2.5.4.16"}, {66, "2.5.4.17"}, {67, "2.5.4.20"}, {68, "2.5.4.21"},
    {69, "2.5.4.24"}, {70, "2.5.4.42"}, {71, "2.5.4.43"}, {72, "2.5.4.18"}, {73, "2.5.29.35"},
    {74, "2.5.29.14"}, {75, "2.5.29.15"}, {76, "2.5.29.16"}, {77, "2.5.29.32"}, {78, "2.5.29.33"},
    {79, "2.5.29.17"}, {80, "2.5.29.18"}, {81, "2.5.29.9"}, {82, "2.5.29.19"}, {83, "2.5.29.30"},
    {84, "2.5.29.36"}, {86, "2.5.29.37"}, {87, "2.5.29.20"}, {88, "2.5.29.28"}, {89, "2.5.29.27"},
    {90, "2.5.29.29"}, {91, "2.5.29.21"}, {92, "2.5.29.23"}, {93, "2.5.29.24"},
    {94, "1.3.6.1.5.5.7.2.1"}, {95, "1.3.6.1.5.5.7.2.2"}, {96, "1.3.6.1.5.5.7.48.1"},
    {97, "1.3.6.1.5.5.7.48.2"}, {98, "1.3.6.1.5.5.7.3.1"}, {99, "1.3.6.1.5.5.7.3.2"},
    {100, "1.3.6.1.5.5.7.3.3"}, {101, "1.3.6.1.5.5.7.4"}, {102, "1.3.6.1.5.5.7.5"},
    {103, "1.3.6.1.5.5.7.6"}, {104, "1.3.6.1.5.5.7.7"}, {105, "1.3.6.1.5.5.7.8"},
    {106, "2.16.840.1.113730.1.1"}, {107, "2.16.840.1.113730.1.2"},
    {108, "2.16.840.1.113730.1.3"}, {109, "2.16.840.1.113730.1.4"},
    {110, "2.16.840.1.113730.1.7"}, {111, "2.16.840.1.113730.1.8"},
    {112, "2.16.840.1.113730.1.12"}, {113, "2.16.840.1.113730.1.13"},
    {114, "2.16.840.1.113730.2.5"}, {115, "2.23.42.7.0"}, {116, "2.23.42.7.1"},
    {117, "2.23.42.7.2"}, {118, "2.23.42.7.3"}, {119, "2.23.42.7.4"}, {120, "2.23.42.7.5"},
    {121, "2.23.42.7.6"}, {122, "2.16.840.1.113731.1"}, {123, "2.16.840.1.113731.2"},
    {124, "2.16.840.1.113731.3"}, {125, "2.16.840.1.113731.4"}, {126, "2.16.840.1.113731.10"},
    {127, "2.16.840.1.113731.11"}, {128, "2.16.840.1.113731.12"}, {129, "2.16.840.1.113731.13"},
    {130, "2.16.840.1.113731.14"}, {131, "2.16.840.1.113731.15"}, {132, "2.16.840.1.113731.16"},
    {133, "2.16.840.1.113731.17"}, {134, "2.16.840.1.113731.18"}, {135, "2.16.840.1.113731.19"},
};
// clang-format on

// X.690 content octets: 40 * first + second, then every arc in base 128, high groups
// first, bit 8 set on all but the last octet of an arc.
Bytes content_octets(const std::string& dotted) {
  std::vector<unsigned long> arcs;
  std::istringstream in(dotted);
  for (std::string arc; std::getline(in, arc, '.');) arcs.push_back(std::stoul(arc));
  arcs[1] += 40 * arcs[0];
  Bytes out;
  for (std::size_t i = 1; i < arcs.size(); ++i) {
    Bytes groups{u8(arcs[i] & 0x7F)};
    for (unsigned long v = arcs[i] >> 7; v != 0; v >>= 7)
      groups.insert(groups.begin(), u8(0x80 | (v & 0x7F)));
    out.insert(out.end(), groups.begin(), groups.end());
  }
  return out;
}

Bytes openssl_content_octets(const char* dotted) {
  ASN1_OBJECT* obj = OBJ_txt2obj(dotted, 1);
  EXPECT_NE(obj, nullptr) << dotted;
  if (obj == nullptr) return {};
  unsigned char* der = nullptr;
  const int n = i2d_ASN1_OBJECT(obj, &der);
  Bytes out(der + 2, der + n);  // every identifier here is shorter than 128 octets
  OPENSSL_free(der);
  ASN1_OBJECT_free(obj);
  return out;
}

Bytes octets_of(const hylorn::OidEntry& e) {
  return Bytes(e.octets, e.octets + e.length);
}

TEST(ObjectIdTable, HoldsTheIdentifiersInOrderWithTheirOctets) {
  const auto table = hylorn::object_id_table();
  ASSERT_EQ(table.size(), 134u);
  ASSERT_EQ(std::size(kDotted), 134u);
  for (std::size_t i = 0; i < table.size(); ++i) {
    EXPECT_EQ(table[i].oidValue, kDotted[i].value) << i;
    EXPECT_EQ(to_hex(octets_of(table[i])), to_hex(content_octets(kDotted[i].text)))
        << kDotted[i].text;
    EXPECT_EQ(to_hex(octets_of(table[i])), to_hex(openssl_content_octets(kDotted[i].text)))
        << kDotted[i].text;
  }
}

// Each value gives its octets; the octets give back the first value that has them.
TEST(ObjectIdTable, FindsBothWaysWithTheFirstMatchWinning) {
  for (const auto& e : hylorn::object_id_table()) {
    ASN1_OBJECT_ID obj{e.oidValue, {0, nullptr}};
    ASSERT_EQ(hylorn::ASN1_Find_Object_ID(&obj), 0u) << e.oidValue;
    EXPECT_EQ(Bytes(obj.oid.data, obj.oid.data + obj.oid.length), octets_of(e));
    obj.oidValue = 999;
    ASSERT_EQ(hylorn::ASN1_Find_Oid_Value(&obj), 0u);
    const u32 first = e.oidValue == 9 ? 1 : e.oidValue == 11 ? 2 : e.oidValue == 6 ? 5 : e.oidValue;
    EXPECT_EQ(obj.oidValue, first);
    EXPECT_EQ(obj.oid.length, e.length);  // left in place
    hylorn::free_ASN1_OBJECT_ID(&obj);
    EXPECT_TRUE(read_errors().empty());
  }
}

TEST(ObjectIdTable, UnknownValuesAreNotFound) {
  for (u32 value : {0u, 85u, 136u, 0x101u, 0x10000001u}) {
    ASN1_OBJECT_ID obj{value, {0, nullptr}};
    EXPECT_EQ(hylorn::ASN1_Find_Object_ID(&obj), 2u) << value;
    EXPECT_EQ(obj.oid.data, nullptr);
    EXPECT_EQ(read_errors(), (Entries{{101, 1, "ASN1 oidValue not found"}}));
  }
}

TEST(ObjectIdTable, UnknownOctetsAreNotFound) {
  const std::string unknown[] = {"", "55 1d", "55 1d 25 00", "2a 86 48 86 f7 0d 01 01 02 00",
                                 to_hex(content_octets("1.3.6.1.5.5.7.3.4"))};
  for (const auto& hex : unknown) {
    Bytes octets = from_hex(hex);
    ASN1_OBJECT_ID obj{4242, {u32(octets.size()), octets.data()}};
    EXPECT_EQ(hylorn::ASN1_Find_Oid_Value(&obj), 2u) << hex;
    EXPECT_EQ(obj.oidValue, 4242u);
    EXPECT_EQ(read_errors(), (Entries{{102, 1, "ASN1 oidValue not found"}}));
  }
}

TEST(ObjectIdRecord, IniAndFreeKeepTheErrorList) {
  hylorn::Crypt_Clear_Err();
  hylorn::Crypt_Put_Err(7, 7, "kept");
  ASN1_OBJECT_ID obj{5, {3, nullptr}};
  EXPECT_EQ(hylorn::ini_ASN1_OBJECT_ID(&obj), 0u);
  EXPECT_EQ(obj.oidValue, 0u);
  EXPECT_EQ(obj.oid.length, 0u);
  obj.oidValue = 61;
  ASSERT_EQ(hylorn::ASN1_Find_Object_ID(&obj), 0u);
  hylorn::Crypt_Put_Err(7, 7, "kept");
  EXPECT_EQ(hylorn::free_ASN1_OBJECT_ID(&obj), 0u);
  EXPECT_EQ(obj.oidValue, 61u);
  EXPECT_EQ(obj.oid.data, nullptr);
  EXPECT_EQ(read_errors(), (Entries{{7, 7, "kept"}}));
}

// ---------------------------------------------------------------------------------------
// Caller algorithm numbers

TEST(AlgorithmCodes, MapBothWaysWithoutTouchingTheErrorList) {
  hylorn::Crypt_Clear_Err();
  hylorn::Crypt_Put_Err(7, 7, "kept");
  const std::pair<u32, u32> to_oid[] = {{1, 1}, {2, 2}, {3, 3}, {4, 8}};
  for (auto [number, value] : to_oid) {
    u32 out = 0;
    EXPECT_EQ(hylorn::Algorithm_Uid2Oid(number, &out), 0u);
    EXPECT_EQ(out, value);
  }
  const std::pair<u8, u32> to_number[] = {{1, 1}, {2, 2}, {3, 3}, {48, 3}, {8, 4}};
  for (auto [value, number] : to_number) {
    u32 out = 0;
    EXPECT_EQ(hylorn::Algorithm_Oid2Uid(value, &out), 0u);
    EXPECT_EQ(out, number);
  }
  u32 out = 99;
  for (u32 number : {0u, 5u, 48u, 0x103u}) EXPECT_EQ(hylorn::Algorithm_Uid2Oid(number, &out), 1u);
  for (u8 value : {0, 4, 9, 61}) EXPECT_EQ(hylorn::Algorithm_Oid2Uid(value, &out), 1u);
  EXPECT_EQ(out, 99u);
  EXPECT_EQ(read_errors(), (Entries{{7, 7, "kept"}}));
}

TEST(U2lSignature, BuildsTheInternalIdentifier) {
  for (auto [number, dotted] : {std::pair{1u, "1.2.840.113549.1.1.2"},
                                {2u, "1.2.840.113549.1.1.4"},
                                {3u, "1.3.14.3.2.29"},
                                {4u, "1.2.840.113549.1.1.1"}}) {
    hylorn::USER_X509_ALG_ID user{};
    user.algorithm = hylorn::u16(number);
    user.parameters[0] = 0x05;
    user.parametersLength = number == 4 ? 2 : 0;
    hylorn::X509_ALG_ID alg;
    hylorn::ini_X509_ALG_ID(&alg);
    ASSERT_EQ(hylorn::u2l_signature(&user, &alg), 0u);
    EXPECT_EQ(to_hex(alg.algorithm.oid.data, alg.algorithm.oid.length),
              to_hex(content_octets(dotted)));
    EXPECT_EQ(to_hex(alg.parameters.data, alg.parameters.length), number == 4 ? "0500" : "");
    hylorn::free_X509_ALG_ID(&alg);
  }
}

TEST(U2lSignature, RefusesUnknownNumbers) {
  hylorn::USER_X509_ALG_ID user{};
  user.algorithm = 5;
  hylorn::X509_ALG_ID alg;
  hylorn::ini_X509_ALG_ID(&alg);
  EXPECT_EQ(hylorn::u2l_signature(&user, &alg), 1u);
  EXPECT_EQ(read_errors(), (Entries{{303, 1, "Algorithm_Uid2Oid"}}));
  EXPECT_EQ(alg.algorithm.oid.data, nullptr);
}

TEST(L2uSignature, GivesTheCallerNumberAndParameters) {
  Bytes params(1025, 0x5A);
  for (auto [value, length, expected] :
       {std::tuple{48u, 1024u, 3u}, {3u, 0u, 3u}, {8u, 2u, 4u}, {256u + 2, 5u, 2u}}) {
    const hylorn::X509_ALG_ID alg{{value, {0, nullptr}}, {length, params.data()}};
    hylorn::USER_X509_ALG_ID user{};
    ASSERT_EQ(hylorn::l2u_signature(&alg, &user), 0u) << value;
    EXPECT_EQ(user.algorithm, expected);
    EXPECT_EQ(user.parametersLength, length);
    EXPECT_EQ(Bytes(user.parameters, user.parameters + length), Bytes(length, 0x5A));
  }
}

TEST(L2uSignature, RefusesLongParametersAndUnknownAlgorithms) {
  Bytes params(1025, 0x5A);
  hylorn::USER_X509_ALG_ID user{};
  const hylorn::X509_ALG_ID too_long{{48, {0, nullptr}}, {1025, params.data()}};
  EXPECT_EQ(hylorn::l2u_signature(&too_long, &user), 1u);
  EXPECT_EQ(read_errors(), (Entries{{304, 1, "parameters too length"}}));
  const hylorn::X509_ALG_ID unknown{{61, {0, nullptr}}, {2, params.data()}};
  EXPECT_EQ(hylorn::l2u_signature(&unknown, &user), 1u);
  EXPECT_EQ(read_errors(), (Entries{{304, 2, "Algorithm_Oid2Uid"}}));
}

}  // namespace
