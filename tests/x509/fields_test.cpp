// Names, times, algorithm identifiers, public keys, the small TBSCertificate fields and
// the signed packet: DER against OpenSSL or bytes assembled from RFC 5280, the caller
// conversions with their limits, and the entries of what does not decode.
#include <gtest/gtest.h>
#include <openssl/objects.h>

#include <memory>

#include "field_fixtures.h"
#include "hylorn.h"
#include "support/fail_malloc.h"
#include "support/openssl_bytes.h"
#include "x509/name.h"
#include "x509/public_key.h"
#include "x509/signed_packet.h"
#include "x509/tbs_cert.h"
#include "x509/time.h"

namespace {

using namespace hylorn_test;
using namespace x509_test;
using hylorn::DATA_BUFFER;
using hylorn::u32;
using hylorn::u8;

Bytes name_der(const hylorn::USER_X500_NAME& user) {
  hylorn::X500_NAME* list = nullptr;
  EXPECT_EQ(hylorn::u2l_X500_NAME(&user, &list), 0u);
  const Bytes der = encoded([&](DATA_BUFFER* o) { return hylorn::Der_Encode_X500_Name(list, o); });
  hylorn::free_X500_NAME(list);
  return der;
}

hylorn::USER_X500_NAME name_slots(const Bytes& der) {
  hylorn::USER_X500_NAME user{};
  hylorn::X500_NAME* list = nullptr;
  EXPECT_EQ(hylorn::Der_Decode_X500_Name(size_of(der), der.data(), &list), 0u);
  hylorn::l2u_X500_NAME(list, &user);
  hylorn::free_X500_NAME(list);
  return user;
}

// Guards the slot table, the visiting order (postOfficeBox after telexNumber), the string
// tags (IA5String for emailAddress only) and the decoder's string types, against OpenSSL.
TEST(FieldName, MatchesOpenSslBothWays) {
  const char* const fields[16] = {"C",
                                  "O",
                                  "OU",
                                  "ST",
                                  "CN",
                                  "L",
                                  "title",
                                  "SN",
                                  "GN",
                                  "initials",
                                  "emailAddress",
                                  "postalAddress",
                                  "postalCode",
                                  "postOfficeBox",
                                  "telephoneNumber",
                                  "telexNumber"};
  std::vector<std::pair<int, std::string>> slots;
  std::vector<OsslAttribute> expected;
  for (int slot : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14, 15, 13}) {
    slots.emplace_back(slot, "v" + std::to_string(slot));
    expected.push_back({fields[slot], slot == 10 ? V_ASN1_IA5STRING : V_ASN1_PRINTABLESTRING,
                        "v" + std::to_string(slot)});
  }
  EXPECT_EQ(to_hex(name_der(user_name(slots))), to_hex(openssl_name(expected)));
  EXPECT_EQ(to_hex(name_der(user_name({{13, "box"}, {15, "telex"}}))),
            to_hex(openssl_name({{"telexNumber", V_ASN1_PRINTABLESTRING, "telex"},
                                 {"postOfficeBox", V_ASN1_PRINTABLESTRING, "box"}})));
  EXPECT_EQ(to_hex(name_der(user_name({}))), "3000");
  for (const char* slot : name_slots(from_hex("3000")).slot) EXPECT_STREQ(slot, "");

  // The last occurrence wins; 255 characters fit a slot, 256 are dropped silently.
  const hylorn::USER_X500_NAME user =
      name_slots(openssl_name({{"CN", V_ASN1_T61STRING, "first"},
                               {"CN", V_ASN1_PRINTABLESTRING, "second"},
                               {"O", V_ASN1_IA5STRING, std::string(255, 'x')},
                               {"OU", V_ASN1_PRINTABLESTRING, std::string(256, 'y')},
                               {"emailAddress", V_ASN1_IA5STRING, "a@b.c"},
                               {"postOfficeBox", V_ASN1_T61STRING, "PO 7"}}));
  EXPECT_STREQ(user.slot[4], "second");
  EXPECT_EQ(user.slot[1], std::string(255, 'x'));
  EXPECT_STREQ(user.slot[2], "");
  EXPECT_STREQ(user.slot[10], "a@b.c");
  EXPECT_STREQ(user.slot[13], "PO 7");

  static const std::vector<u8> table(2 * HYLORN_BMP_TABLE_ENTRIES, 0x20);
  Crypt_GetBMPTable(table.data());  // BMPString code units below 0x100 become one byte
  EXPECT_STREQ(name_slots(from_hex("300f310d300b0603550403 1e0400410062")).slot[4], "Ab");
  Crypt_GetBMPTable(nullptr);
}

// Guards the per-slot numbers of the caller conversion, by visiting position.
TEST(FieldName, ConversionNumbersItsStepsBySlot) {
  const hylorn::USER_X500_NAME user = user_name({{0, "C"}, {13, "box"}});  // visited 1st, 16th
  const std::pair<int, Entries> cases[] = {
      {1, {{213, 1, "malloc"}, {305, 2, "new_X500_NAME"}}},
      {2, {{132, 1, "malloc"}, {101, 2, "copy DATA_BUFFER"}, {305, 4, "ASN1_Find_Object_ID"}}},
      {4, {{213, 1, "malloc"}, {305, 63, "new_X500_NAME"}}},
      {6, {{132, 1, "malloc"}, {305, 65, "copy_DATA_BUFFER"}}}};
  for (const auto& [n, entries] : cases) {
    hylorn::X500_NAME* list = nullptr;
    {
      FailNthMalloc fail(n);
      EXPECT_EQ(hylorn::u2l_X500_NAME(&user, &list), 1u);
    }
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(read_errors(), entries) << n;
  }
}

// Guards the 2050 rule both ways (they disagree at 2050 on purpose) and the reads of
// short texts, each in a block of exactly its size so that ASan sees a read past the NUL.
TEST(FieldTime, CenturyRulesAndShortTexts) {
  const std::tuple<const char*, u8, const char*, const char*> cases[] = {
      {"20491231235959", 0, "491231235959Z", "20491231235959"},
      {"20500101000000", 1, "20500101000000Z", "20500101000000"},
      {"19510101000000", 0, "510101000000Z", "19510101000000"},
      {"19500101000000", 0, "500101000000Z", "20500101000000"},
      {"2049", 0, "49Z", "2049Z"},
      {"2", 0, "Z", "20Z"},
      {"", 0, "Z", "20Z"},
      {"2050", 1, "2050Z", "2050Z"}};
  for (const auto& [text, type, der_text, back] : cases) {
    std::unique_ptr<char[]> exact(new char[std::strlen(text) + 1]);
    std::strcpy(exact.get(), text);
    hylorn::X509_TIME t{};
    hylorn::u2l_X509_TIME(exact.get(), &t);
    EXPECT_EQ(t.type, type) << text;
    EXPECT_STREQ(t.text, der_text);
    char user[hylorn::kTimeTextSize];
    EXPECT_EQ(hylorn::l2u_X509_TIME(&t, user), 0u);
    EXPECT_STREQ(user, back);
  }
}

Bytes openssl_algor(int nid, int parameters) {
  X509_ALGOR* a = X509_ALGOR_new();
  X509_ALGOR_set0(a, OBJ_nid2obj(nid), parameters, nullptr);
  const Bytes der = i2d_bytes(i2d_X509_ALGOR, static_cast<const X509_ALGOR*>(a));
  X509_ALGOR_free(a);
  return der;
}

// Guards the caller numbers' identifiers and the verbatim parameters against
// i2d_X509_ALGOR, and both SHA-1 identifiers read back as 3. (Keys, names and times are
// cross-checked inside whole TBSCertificates.)
TEST(AlgorithmId, MatchesOpenSslBothWays) {
  for (const auto& [number, nid] : {std::pair{1, NID_md2WithRSAEncryption},
                                    {2, NID_md5WithRSAEncryption},
                                    {3, NID_sha1WithRSA},
                                    {4, NID_rsaEncryption}}) {
    const hylorn::USER_X509_ALG_ID user{static_cast<hylorn::u16>(number), {0x05, 0x00}, 2};
    hylorn::X509_ALG_ID alg{};
    ASSERT_EQ(hylorn::u2l_signature(&user, &alg), 0u);
    EXPECT_EQ(
        to_hex(encoded([&](DATA_BUFFER* o) { return hylorn::Der_Encode_X509_Alg_Id(&alg, o); })),
        to_hex(openssl_algor(nid, V_ASN1_NULL)));
    hylorn::free_X509_ALG_ID(&alg);
  }
  const Bytes sha1 = openssl_algor(NID_sha1WithRSAEncryption, V_ASN1_NULL);
  hylorn::X509_ALG_ID alg{};
  ASSERT_EQ(hylorn::Der_Decode_X509_Alg_Id(size_of(sha1), sha1.data(), &alg), 0u);
  hylorn::USER_X509_ALG_ID user{};
  EXPECT_EQ(hylorn::l2u_signature(&alg, &user), 0u);
  EXPECT_EQ(user.algorithm, 3);  // 1.2.840.113549.1.1.5 reads as 3 too
  hylorn::free_X509_ALG_ID(&alg);
}

// Guards the limits that only the conversions into the caller record check.
TEST(FieldLimits, RefusedOnTheWayBackOnly) {
  u8 version = 0;
  EXPECT_EQ(hylorn::u2l_version(3, &version), 1u);
  EXPECT_EQ(read_errors(), (Entries{{319, 1, "version error"}}));
  EXPECT_EQ(hylorn::l2u_version(3, &version), 1u);
  EXPECT_EQ(read_errors(), (Entries{{320, 1, "version error"}}));
  std::vector<u8> octets(1024, 0x42);
  u8 serial[hylorn::kSerialSize];
  hylorn::u16 length = 0;
  for (u32 n : {0u, 1u, 128u, 129u}) {
    DATA_BUFFER in{};
    EXPECT_EQ(hylorn::u2l_serialNumber(octets.data(), n, &in), 0u);  // never refused
    EXPECT_EQ(hylorn::l2u_serialNumber(&in, serial, &length), n == 0 || n == 129 ? 1u : 0u) << n;
    hylorn::free_DATA_BUFFER(&in);
  }
  EXPECT_EQ(read_errors(), (Entries{{302, 1, "serial number error"}}));
  auto key = std::make_unique<hylorn::USER_X509_PUBLIC_KEY>();
  for (u32 n : {1023u, 1024u}) {
    const hylorn::X509_PUBLIC_KEY k{{{8, {0, nullptr}}, {0, nullptr}}, {n, octets.data()}};
    EXPECT_EQ(hylorn::l2u_subjectPublickeyInfo(&k, key.get()), n == 1024 ? 1u : 0u);
  }
  EXPECT_EQ(read_errors(), (Entries{{310, 1, "subject public key too long"}}));
  for (u32 n : {127u, 128u}) {
    hylorn::USER_UNIQUE_ID id{};
    const hylorn::BIT_DATA_BUFFER bits{n, 0, octets.data()};
    EXPECT_EQ(hylorn::l2u_certUniqueID(&bits, &id), n == 128 ? 1u : 0u);
  }
  EXPECT_EQ(read_errors(), (Entries{{312, 1, "UniqueID too long"}}));
}

// Guards the wrapper's layout (tbs verbatim, AlgorithmIdentifier, BIT STRING with 0
// unused bits), assembled by hand, and the way back.
TEST(SignedPacket, LayoutAndRoundTrip) {
  const Bytes tbs = from_hex("3003020107"), signature = from_hex("a1b2c3");
  hylorn::COMMON_SIGNED_PACKET packet{};
  hylorn::ini_COMMON_SIGNED_PACKET(&packet);
  packet.tbs = {size_of(tbs), const_cast<u8*>(tbs.data())};
  packet.signature = {size_of(signature), const_cast<u8*>(signature.data())};
  const hylorn::USER_X509_ALG_ID user{2, {0x05, 0x00}, 2};
  ASSERT_EQ(hylorn::u2l_signature(&user, &packet.signatureAlgorithm), 0u);
  const Bytes der =
      encoded([&](DATA_BUFFER* o) { return hylorn::Der_Encode_COMMON_SIGNED_PACKET(&packet, o); });
  hylorn::free_X509_ALG_ID(&packet.signatureAlgorithm);
  EXPECT_EQ(to_hex(der), "301a3003020107300d06092a864886f70d0101040500030400a1b2c3");
  hylorn::COMMON_SIGNED_PACKET back{};
  hylorn::ini_COMMON_SIGNED_PACKET(&back);
  ASSERT_EQ(hylorn::Der_Decode_COMMON_SIGNED_PACKET(size_of(der), der.data(), &back), 0u);
  EXPECT_EQ(
      to_hex(back.tbs.data, back.tbs.length) + to_hex(back.signature.data, back.signature.length),
      "3003020107a1b2c3");
  hylorn::free_COMMON_SIGNED_PACKET(&back);
  hylorn::free_COMMON_SIGNED_PACKET(&back);  // a second free is harmless
}

enum class Decoder { kName, kTime, kValidity, kAlgId, kKey, kPacket };

// Runs one decoder on der and frees what it built; the result.
u32 decode(Decoder d, const Bytes& der) {
  const u32 n = size_of(der);
  const u8* p = der.data();
  hylorn::X500_NAME* name = nullptr;
  hylorn::X509_VALIDITY validity{};
  hylorn::X509_PUBLIC_KEY key{};
  hylorn::COMMON_SIGNED_PACKET packet{};
  switch (d) {
    case Decoder::kName: {
      const u32 r = hylorn::Der_Decode_X500_Name(n, p, &name);
      EXPECT_EQ(name == nullptr, r != 0);
      hylorn::free_X500_NAME(name);
      return r;
    }
    case Decoder::kTime:
      return hylorn::Der_Decode_X509_TIME(n, p, &validity.notBefore);
    case Decoder::kValidity:
      return hylorn::Der_Decode_Validity(n, p, &validity);
    case Decoder::kAlgId: {
      const u32 r = hylorn::Der_Decode_X509_Alg_Id(n, p, &key.algorithm);
      hylorn::free_X509_ALG_ID(&key.algorithm);
      return r;
    }
    case Decoder::kKey: {
      const u32 r = hylorn::Der_Decode_X509_Public_Key(n, p, &key);
      hylorn::free_X509_PUBLIC_KEY(&key);
      return r;
    }
    case Decoder::kPacket: {
      const u32 r = hylorn::Der_Decode_COMMON_SIGNED_PACKET(n, p, &packet);
      EXPECT_EQ(packet.tbs.data == nullptr, r != 0);
      hylorn::free_COMMON_SIGNED_PACKET(&packet);
      return r;
    }
  }
  return 0;
}

// Guards the entries of every field decoder, read back exact to the blank.
TEST(FieldDecoders, RefusalsListTheFailingStep) {
  using enum Decoder;
  const ErrEntry type_error{208, 12, "type error"}, no_oid{102, 1, "ASN1 oidValue not found"};
  const std::string md5 = "300d06092a864886f70d0101040500", rsa = "300d06092a864886f70d0101010500";
  const std::tuple<Decoder, std::string, Entries> cases[] = {
      {kName, "30", {{208, 1, "der_x500_name length error, encode error"}}},
      {kName, "300c310a300806035504030c0161", {type_error}},        // UTF8String
      {kName, "300f310d300b06035504031c0400000061", {type_error}},  // UniversalString
      {kName, "3018310a30080603550403130161310a300806035504030c0162", {type_error}},
      {kName, "30023100", {{208, 7, ""}}},
      {kName, "3009310730050603550403", {{208, 10, ""}}},
      {kName, "300c310a3008060355042d130161", {no_oid, {208, 9, "ASN1_Find_Oid_Value"}}},
      {kName,
       "300f310d300b06035504031e0400410062",  // BMPString, no table loaded
       {{156, 10, "BMP table not loaded."}, {208, 13, "ASN1_Decode_BMPString"}}},
      {kTime, "0c0131", {{225, 6, ""}}},
      {kValidity, "3000", {{210, 3, ""}}},
      {kValidity, "3003170131", {{210, 8, ""}}},
      {kValidity, "3006130131170131", {{210, 6, ""}}},
      {kValidity, "3006170131020101", {{210, 11, ""}}},
      {kValidity, "30251701311820" + std::string(64, '1'), {{210, 12, "data too length"}}},
      {kAlgId, "300b06092a864886f70d010105", {{206, 5, ""}}},  // no parameters
      {kAlgId, "3000", {{206, 2, ""}}},
      {kAlgId, "300706032a03040500", {no_oid, {206, 4, "ASN1_Find_Oid_Value"}}},
      {kKey, "3000", {{212, 3, ""}}},
      {kKey, "300f" + rsa, {{212, 5, ""}}},
      {kKey, "3012" + rsa + "040100", {{106, 2, "tag type"}, {212, 6, "ASN1_Decode_Bit_String"}}},
      {kPacket, "3000", {{411, 2, " "}}},
      {kPacket, "30053003020107", {{411, 4, " "}}},
      {kPacket, "30143003020107" + md5, {{411, 6, " "}}},
      {kPacket,
       "30163003020107300b06092a864886f70d01010403020000",
       {{206, 5, ""}, {411, 5, "Der_Decode_X509_Alg_Id"}}},
      {kPacket, "0400", {{108, 2, "tag type error"}, {411, 1, "ASN1_Decode_Sequence"}}},
  };
  Crypt_GetBMPTable(nullptr);
  for (const auto& [decoder, der, entries] : cases) {
    EXPECT_EQ(decode(decoder, from_hex(der)), 1u) << der;
    EXPECT_EQ(error_text(), entries_text(entries)) << der;
  }
}

}  // namespace
