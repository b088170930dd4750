#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <memory>
#include <sstream>

#include "fixtures.h"
#include "x509/name.h"
#include "x509/public_key.h"
#include "x509/signed_packet.h"
#include "x509/tbs_cert.h"
#include "x509/time.h"

namespace {

using namespace x509_test;
using hylorn::DATA_BUFFER;
using hylorn::u32;
using hylorn::USER_X509_TBS_CERT;
using hylorn::X509_TBS_CERT;

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

// Slot table, visiting order and string tags (IA5String for emailAddress only).
TEST(Fields, NamesMatchOpenSslBothWays) {
  std::istringstream words(
      "C O OU ST CN L title SN GN initials emailAddress postalAddress "
      "postalCode postOfficeBox telephoneNumber telexNumber");
  const std::vector<std::string> fields{std::istream_iterator<std::string>(words), {}};
  std::vector<std::pair<int, std::string>> slots;
  std::vector<OsslAttribute> expected;
  for (int slot : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14, 15, 13}) {
    slots.emplace_back(slot, "v" + std::to_string(slot));
    expected.push_back({fields[slot].c_str(),
                        slot == 10 ? V_ASN1_IA5STRING : V_ASN1_PRINTABLESTRING,
                        "v" + std::to_string(slot)});
  }
  EXPECT_EQ(to_hex(name_der(user_name(slots))), to_hex(openssl_name(expected)));
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
  EXPECT_EQ(name_of(user.slot), (Name{"", std::string(255, 'x'), "", "", "second", "", "", "", "",
                                      "", "a@b.c", "", "", "PO 7"}));
  static const std::vector<u8> table(2 * HYLORN_BMP_TABLE_ENTRIES, 0x20);
  Crypt_GetBMPTable(table.data());  // BMPString code units below 0x100 become one byte
  EXPECT_STREQ(name_slots(from_hex("300f310d300b0603550403 1e0400410062")).slot[4], "Ab");
  Crypt_GetBMPTable(nullptr);
}

TEST(Fields, NameConversionNumbersItsStepsBySlot) {
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

// The 2050 rule both ways; short texts in blocks of exactly their size.
TEST(Fields, TimeCenturyRulesAndShortTexts) {
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
    char user[hylorn::kTimeTextSize];
    EXPECT_EQ(hylorn::l2u_X509_TIME(&t, user), 0u);
    EXPECT_EQ(std::make_tuple(t.type, std::string(t.text), std::string(user)),
              std::make_tuple(type, std::string(der_text), std::string(back)))
        << text;
  }
}

using Decoder = u32 (*)(const Bytes&);
u32 name(const Bytes& d) {
  hylorn::X500_NAME* list = nullptr;
  const u32 r = hylorn::Der_Decode_X500_Name(size_of(d), d.data(), &list);
  EXPECT_EQ(list == nullptr, r != 0);
  hylorn::free_X500_NAME(list);
  return r;
}
template <class T, auto decode, auto release>
u32 field(const Bytes& d) {
  T t{};
  const u32 r = decode(size_of(d), d.data(), &t);
  release(&t);
  return r;
}
void keep(void*) {}
const Decoder time = field<hylorn::X509_TIME, hylorn::Der_Decode_X509_TIME, keep>;
const Decoder validity = field<hylorn::X509_VALIDITY, hylorn::Der_Decode_Validity, keep>;
const Decoder alg_id =
    field<hylorn::X509_ALG_ID, hylorn::Der_Decode_X509_Alg_Id, hylorn::free_X509_ALG_ID>;
const Decoder key = field<hylorn::X509_PUBLIC_KEY, hylorn::Der_Decode_X509_Public_Key,
                          hylorn::free_X509_PUBLIC_KEY>;
u32 packet(const Bytes& d) {
  hylorn::COMMON_SIGNED_PACKET p{};
  const u32 r = hylorn::Der_Decode_COMMON_SIGNED_PACKET(size_of(d), d.data(), &p);
  EXPECT_EQ(p.tbs.data == nullptr, r != 0);
  hylorn::free_COMMON_SIGNED_PACKET(&p);
  return r;
}

TEST(Fields, DecoderRefusalsListTheFailingStep) {
  const ErrEntry type_error{208, 12, "type error"}, no_oid{102, 1, "ASN1 oidValue not found"};
  const std::string md5 = "300d06092a864886f70d0101040500", rsa = "300d06092a864886f70d0101010500";
  const std::tuple<Decoder, std::string, Entries> cases[] = {
      {name, "30", {{208, 1, "der_x500_name length error, encode error"}}},
      {name, "300c310a300806035504030c0161", {type_error}},  // UTF8String
      {name, "3018310a30080603550403130161310a300806035504030c0162", {type_error}},
      {name, "30023100", {{208, 7, ""}}},
      {name, "3009310730050603550403", {{208, 10, ""}}},
      {name, "300c310a3008060355042d130161", {no_oid, {208, 9, "ASN1_Find_Oid_Value"}}},
      {name,
       "300f310d300b06035504031e0400410062",  // BMPString, no table loaded
       {{156, 10, "BMP table not loaded."}, {208, 13, "ASN1_Decode_BMPString"}}},
      {time, "0c0131", {{225, 6, ""}}},
      {validity, "3000", {{210, 3, ""}}},
      {validity, "3003170131", {{210, 8, ""}}},
      {validity, "3006130131170131", {{210, 6, ""}}},
      {validity, "3006170131020101", {{210, 11, ""}}},
      {validity, "30251701311820" + std::string(64, '1'), {{210, 12, "data too length"}}},
      {alg_id, "300b06092a864886f70d010105", {{206, 5, ""}}},  // no parameters
      {alg_id, "3000", {{206, 2, ""}}},
      {alg_id, "300706032a03040500", {no_oid, {206, 4, "ASN1_Find_Oid_Value"}}},
      {key, "3000", {{212, 3, ""}}},
      {key, "300f" + rsa, {{212, 5, ""}}},
      {key, "3012" + rsa + "040100", {{106, 2, "tag type"}, {212, 6, "ASN1_Decode_Bit_String"}}},
      {packet, "3000", {{411, 2, " "}}},
      {packet, "30053003020107", {{411, 4, " "}}},
      {packet, "30143003020107" + md5, {{411, 6, " "}}},
      {packet,
       "30163003020107300b06092a864886f70d01010403020000",
       {{206, 5, ""}, {411, 5, "Der_Decode_X509_Alg_Id"}}},
      {packet, "0400", {{108, 2, "tag type error"}, {411, 1, "ASN1_Decode_Sequence"}}},
  };
  Crypt_GetBMPTable(nullptr);
  for (const auto& [decode, der, entries] : cases) {
    EXPECT_EQ(decode(from_hex(der)), 1u) << der;
    EXPECT_EQ(read_errors(), entries) << der;
  }
}

std::unique_ptr<USER_X509_TBS_CERT> sample_user() {
  const Bytes& rsa_key = pki().leaf.pub;
  auto user = std::make_unique<USER_X509_TBS_CERT>();
  hylorn::ini_USER_X509_TBS_CERT(user.get());
  user->version = 2;
  user->versionPresent = 1;
  std::memcpy(user->serialNumber, "\x01\x23\x45\x67\x89\xab\xcd\xef", 8);
  user->serialNumberLength = 8;
  user->signature = {3, {0x05, 0x00}, 2};
  user->issuer = user_name({{0, "CN"}, {1, "Issuer Org"}, {4, "Root CA"}});
  user->validity = {"20240101000000", "20500101000000"};
  user->subject = user_name({{0, "CN"}, {4, "Leaf"}, {10, "leaf@example.com"}, {13, "PO 9"}});
  user->subjectPublicKeyInfo = {{}, static_cast<hylorn::u16>(rsa_key.size()), {4, {0x05, 0x00}, 2}};
  user->issuerUniqueIDPresent = user->subjectUniqueIDPresent = 1;
  user->issuerUniqueID = {{0xAA, 0xBB}, 2};
  user->subjectUniqueID = {{0xCC}, 1};
  std::memcpy(user->subjectPublicKeyInfo.subjectPublicKey, rsa_key.data(), rsa_key.size());
  return user;
}

Bytes tbs_der(const USER_X509_TBS_CERT& user) {
  X509_TBS_CERT tbs{};
  EXPECT_EQ(hylorn::u2l_USER_X509_TBS_CERT(&user, &tbs), 0u);
  const Bytes der =
      encoded([&](DATA_BUFFER* o) { return hylorn::Der_Encode_X509_Tbs_Cert(&tbs, o); });
  hylorn::free_X509_TBS_CERT(&tbs);
  return der;
}

// der in a block of exactly its size, into user when given.
u32 decode_exactly(const Bytes& der, USER_X509_TBS_CERT* user = nullptr) {
  std::unique_ptr<u8[]> exact(new u8[der.size() + 1]);
  if (!der.empty()) std::memcpy(exact.get(), der.data(), der.size());
  X509_TBS_CERT tbs{};
  hylorn::ini_X509_TBS_CERT(&tbs);
  u32 r = hylorn::Der_Decode_X509_Tbs_Cert(size_of(der), exact.get(), &tbs);
  EXPECT_TRUE(r == 0 || tbs.serialNumber.data == nullptr);  // left empty on failure
  if (r == 0 && user != nullptr) r = hylorn::l2u_USER_X509_TBS_CERT(&tbs, user);
  hylorn::free_X509_TBS_CERT(&tbs);
  return r;
}

TEST(TbsCert, ConversionsNameTheFailingStep) {
  auto user = sample_user();
  user->signature.algorithm = 9;
  X509_TBS_CERT tbs{};
  EXPECT_EQ(hylorn::u2l_USER_X509_TBS_CERT(user.get(), &tbs), 1u);
  EXPECT_EQ(read_errors(), (Entries{{303, 1, "Algorithm_Uid2Oid"}, {313, 4, "u2l_signature"}}));
  hylorn::free_X509_TBS_CERT(&tbs);
  user->signature.algorithm = 3;
  user->serialNumberLength = 0;  // taken as it is; the INTEGER encoder refuses it
  EXPECT_EQ(tbs_der(*user), Bytes{});
  EXPECT_EQ(read_errors(), (Entries{{111, 1, "data length equal zero"},
                                    {203, 1, "ASN1_Encode_Integer"},
                                    {219, 4, "Der_Encode_serialNumber"}}));
}

// Elements by position, each missing in turn, and the limits of the caller's record.
TEST(TbsCert, DecoderReadsByPositionWithinLimits) {
  enum { kVersion, kSerial, kAlg, kIssuer, kValidity, kSubject, kKey, kIssuerId, kSubjectId, kExt };
  std::vector<Bytes> parts = elements(tbs_der(*sample_user()));
  parts.push_back(from_hex("a3133011300f0603551d130101ff040530030101ff"));  // cA, critical
  EXPECT_EQ(to_hex(concat({parts[kIssuerId], parts[kSubjectId]})), "810300aabb820200cc");
  const std::pair<std::vector<int>, Entries> cases[] = {
      {{kSerial, kAlg, kIssuer, kValidity, kSubject, kKey}, {}},
      {{kVersion}, {{221, 6, " "}}},
      {{kVersion, kSerial}, {{221, 8, " "}}},
      {{kVersion, kSerial, kAlg}, {{221, 10, " "}}},
      {{kVersion, kSerial, kAlg, kIssuer}, {{221, 12, " "}}},
      {{kVersion, kSerial, kAlg, kIssuer, kValidity}, {{221, 14, " "}}},
      {{kVersion, kSerial, kAlg, kIssuer, kValidity, kSubject}, {{221, 16, " "}}},
      {{kVersion, kSerial, kAlg, kIssuer, kValidity, kExt, kSubject, kKey},
       {{108, 2, "tag type error"},
        {208, 2, "ASN1_Decode_Sequence"},
        {221, 15, "Der_Decode_X500_Name"}}},
      {{kVersion, kSerial, kAlg, kIssuer, kValidity, kSubject, kKey, kExt, kSerial}, {}},
      {{kAlg, kAlg, kIssuer, kValidity, kSubject, kKey},
       {{112, 2, "tag type"},
        {204, 1, "ASN1_Decode_Integer"},
        {221, 7, "Der_Decode_serialNumber"}}},
      {{kVersion, kSerial, kAlg, kIssuer, kValidity, kSubject, kKey, kSubjectId}, {}},
      {{}, {{220, 1, "p==NULL"}, {221, 3, "Scan_X509_Tbs_Cert"}}},
  };
  const auto check = [](const std::vector<Bytes>& elements, const Entries& entries) {
    auto user = std::make_unique<USER_X509_TBS_CERT>();
    EXPECT_EQ(decode_exactly(seq(elements), user.get()), entries.empty() ? 0u : 1u);
    EXPECT_EQ(entries.empty() ? Entries{} : read_errors(), entries) << to_hex(seq(elements));
  };
  for (const auto& [chosen, entries] : cases) {
    std::vector<Bytes> elements;
    for (int e : chosen) elements.push_back(parts[e]);
    check(elements, entries);
  }
  // Limits apply on the way into the caller's record: the largest that fits, one more.
  const auto key = [](std::size_t n) {
    return seq({from_hex("300d06092a864886f70d0101010500"), tlv(0x03, concat({{0}, Bytes(n, 7)}))});
  };
  const Entries serial{{302, 1, "serial number error"}, {314, 6, "l2u_serialNumber"}};
  const std::tuple<int, Bytes, Entries> limits[] = {
      {kVersion, from_hex("a003020103"), {{320, 1, "version error"}, {314, 5, "l2u_version"}}},
      {kSerial, tlv(0x02, Bytes(128, 0x41)), {}},
      {kSerial, tlv(0x02, Bytes(129, 0x41)), serial},
      {kSerial, from_hex("0200"), serial},
      {kKey, key(1023), {}},
      {kKey,
       key(1024),
       {{310, 1, "subject public key too long"}, {314, 11, "l2u_subjectPublickeyInfo"}}},
      {kIssuerId, tlv(0x81, Bytes(128, 0)), {}},  // the unused-bits octet, 127 octets
      {kIssuerId,
       tlv(0x81, Bytes(129, 0)),
       {{312, 1, "UniqueID too long"}, {314, 12, "l2u_certUniqueID"}}},
  };
  for (const auto& [at, part, entries] : limits) {
    std::vector<Bytes> elements(parts.begin(), parts.begin() + kSubjectId + 1);
    elements[at] = part;
    check(elements, entries);
  }
}

}  // namespace
