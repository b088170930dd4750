#include <gtest/gtest.h>
#include <openssl/x509v3.h>

#include <cstring>
#include <memory>

#include "fixtures.h"
#include "x509/extensions.h"
#include "x509/name.h"
#include "x509/public_key.h"
#include "x509/signed_packet.h"
#include "x509/tbs_cert.h"
#include "x509/time.h"

namespace {

using namespace x509_test;
using hylorn::CERT_EXTN_INFO;
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
  // clang-format off
  const char* fields[] = {"C", "O", "OU", "ST", "CN", "L", "title", "SN", "GN", "initials",
                          "emailAddress", "postalAddress", "postalCode", "postOfficeBox",
                          "telephoneNumber", "telexNumber"};
  // clang-format on
  std::vector<std::pair<int, std::string>> slots;
  std::vector<OsslAttribute> expected;
  for (int slot : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14, 15, 13}) {
    slots.emplace_back(slot, "v" + std::to_string(slot));
    expected.push_back({fields[slot], slot == 10 ? V_ASN1_IA5STRING : V_ASN1_PRINTABLESTRING,
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
    std::vector<char> exact(text, text + std::strlen(text) + 1);
    hylorn::X509_TIME t{};
    hylorn::u2l_X509_TIME(exact.data(), &t);
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
  user->version = 2, user->versionPresent = 1;
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

// The record's DER, empty when its conversion or the encoder refuses it.
Bytes tbs_der(const USER_X509_TBS_CERT& user) {
  X509_TBS_CERT tbs{};
  Bytes der;
  if (hylorn::u2l_USER_X509_TBS_CERT(&user, &tbs) == 0) {
    der = encoded([&](DATA_BUFFER* o) { return hylorn::Der_Encode_X509_Tbs_Cert(&tbs, o); });
  }
  hylorn::free_X509_TBS_CERT(&tbs);
  return der;
}

TEST(TbsCert, EncodingRefusalsNameTheFailingStep) {
  using Change = void (*)(USER_X509_TBS_CERT&);
  const ErrEntry extensions{313, 11, "u2l_CERT_EXTN_INFO"};
  const std::pair<Change, Entries> cases[] = {
      {[](USER_X509_TBS_CERT& u) { u.signature.algorithm = 9; },
       {{303, 1, "Algorithm_Uid2Oid"}, {313, 4, "u2l_signature"}}},
      {[](USER_X509_TBS_CERT& u) { u.serialNumberLength = 0; },  // the INTEGER encoder refuses it
       {{111, 1, "data length equal zero"},
        {203, 1, "ASN1_Encode_Integer"},
        {219, 4, "Der_Encode_serialNumber"}}},
      {[](USER_X509_TBS_CERT& u) { u.extensionsPresent = 1; },  // none of them present
       {{518, 1, "no extension"}, {313, 18, "Cert_Encode_X509_Extensions_End"}, extensions}},
      {[](USER_X509_TBS_CERT& u) {
         u.extensionsPresent = u.extensions.authorityKeyIdentifierPresent = 1;
         u.extensions.authorityKeyIdentifier.authorityCertSerialNumberPresent = 1;  // but empty
       },
       {{111, 1, "data length equal zero"},
        {525, 7, "ASN1_Encode_Integer"},
        {526, 5, "Encode_XEXT_AuthorityKeyIdentifier"},
        {313, 2, "u2l_XEXT_AuthorityKeyIdentifier"},
        extensions}},
  };
  for (const auto& [change, entries] : cases) {
    auto user = sample_user();
    change(*user);
    EXPECT_EQ(tbs_der(*user), Bytes{});
    EXPECT_EQ(read_errors(), entries);
  }
}

// Elements by position, each missing in turn, and the limits of the caller's record.
TEST(TbsCert, DecoderReadsByPositionWithinLimits) {
  enum { kVersion, kSerial, kAlg, kIssuer, kValidity, kSubject, kKey, kIssuerId, kSubjectId, kExt };
  std::vector<Bytes> parts = elements(tbs_der(*sample_user()));
  parts.push_back(from_hex("a3133011300f0603551d130101ff040530030101ff"));  // cA, critical
  EXPECT_EQ(to_hex(concat({parts[kIssuerId], parts[kSubjectId]})), "810300aabb820200cc");
  const std::pair<std::vector<int>, Entries> cases[] = {
      {{kSerial, kAlg, kIssuer, kValidity, kSubject, kKey}, {}},
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
  // The TBS of elements, in a block of exactly its size, decoded into a fresh record.
  const auto check = [](const std::vector<Bytes>& elements, const Entries& entries) {
    const Bytes der = seq(elements), exact(der);
    X509_TBS_CERT tbs{};
    hylorn::ini_X509_TBS_CERT(&tbs);
    u32 r = hylorn::Der_Decode_X509_Tbs_Cert(size_of(exact), exact.data(), &tbs);
    EXPECT_TRUE(r == 0 || tbs.serialNumber.data == nullptr);  // left empty on failure
    auto user = std::make_unique<USER_X509_TBS_CERT>();
    if (r == 0) r = hylorn::l2u_USER_X509_TBS_CERT(&tbs, user.get());
    hylorn::free_X509_TBS_CERT(&tbs);
    EXPECT_EQ(r, entries.empty() ? 0u : 1u);
    EXPECT_EQ(entries.empty() ? Entries{} : read_errors(), entries) << to_hex(der);
  };
  // Cut short after each element before the key: each step names the element missing.
  for (int n = 1; n <= kSubject; ++n) {
    check(std::vector<Bytes>(parts.begin(), parts.begin() + n), {{221, 4 + 2 * n, " "}});
  }
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
  const Bytes sha1 = from_hex("300d06092a864886f70d0101050500");
  CertOutput out;
  for (const auto& [at, part, entries] : limits) {
    std::vector<Bytes> elements(parts.begin(), parts.begin() + kSubjectId + 1);
    elements[at] = part;
    check(elements, entries);
    // Through the certificate decoder, under the entries of its two callers.
    Entries all = entries;
    if (!all.empty())
      all.insert(all.end(),
                 {{316, 2, "l2u_USER_X509_TBS_CERT"}, {318, 4, "d2c_USER_X509_TBS_CERT"}});
    EXPECT_EQ(decode_cert(seq({seq(elements), sha1, tlv(0x03, Bytes(129, 0))}), &out),
              all.empty() ? 0u : 1u);
    EXPECT_EQ(read_errors(), all);
  }
  // A signature longer than the caller's buffer.
  EXPECT_EQ(decode_cert(seq({seq(std::vector<Bytes>(parts.begin(), parts.begin() + kKey + 1)), sha1,
                             tlv(0x03, Bytes(130, 0))}),
                        &out),
            1u);
  EXPECT_EQ(read_errors(), (Entries{{318, 6, "signature too long"}}));
}

Bytes encode(const CERT_EXTN_INFO& info) {
  return encoded([&](DATA_BUFFER* o) { return hylorn::u2l_CERT_EXTN_INFO(&info, o); });
}

// l2u_extensions on a block of exactly der's size, into a fresh record.
std::pair<u32, std::unique_ptr<CERT_EXTN_INFO>> decode(const Bytes& der) {
  Bytes exact(der);  // a copy is allocated at exactly its size
  const DATA_BUFFER in{size_of(exact), exact.data()};
  auto info = std::make_unique<CERT_EXTN_INFO>();
  const u32 r = hylorn::l2u_extensions(&in, info.get());
  return {r, std::move(info)};
}

// Each extension as OpenSSL reads it: "oid value", with "!" after the oid when critical.
std::vector<std::string> openssl_reads(const Bytes& der) {
  const unsigned char* p = der.data();
  long length = 0;
  int tag = 0, xclass = 0;
  ASN1_get_object(&p, &length, &tag, &xclass, long(der.size()));  // [3]
  EXPECT_EQ(tag, 3);
  X509_EXTENSIONS* list = d2i_X509_EXTENSIONS(nullptr, &p, length);
  EXPECT_NE(list, nullptr) << "OpenSSL cannot read " << to_hex(der);
  std::vector<std::string> seen;
  for (int i = 0; list != nullptr && i < sk_X509_EXTENSION_num(list); ++i) {
    X509_EXTENSION* ext = sk_X509_EXTENSION_value(list, i);
    char oid[80];
    OBJ_obj2txt(oid, sizeof oid, X509_EXTENSION_get_object(ext), 1);
    const ASN1_OCTET_STRING* v = X509_EXTENSION_get_data(ext);
    seen.push_back(oid + std::string(X509_EXTENSION_get_critical(ext) ? "! " : " ") +
                   to_hex(v->data, v->length));
  }
  sk_X509_EXTENSION_pop_free(list, X509_EXTENSION_free);
  return seen;
}

const std::string kSetPrefix = "302f302d020100300906052b0e03021a050030070605672a0300000414";

// Values by hand from the extensions' ASN.1; OpenSSL reads each, and what reads back
// encodes the same (a private extension reads back as an unknown one, not kept).
TEST(ExtensionValues, EdgeValues) {
  using Fill = void (*)(CERT_EXTN_INFO&);
  // clang-format off
  const std::pair<Fill, std::string> cases[] = {
      {[](CERT_EXTN_INFO& i) { i.basicConstraintsPresent = 1, i.basicConstraints = {0, 5, 1, 0}; }, "2.5.29.19 3000"},
      {[](CERT_EXTN_INFO& i) { i.basicConstraintsPresent = 1, i.basicConstraints = {1, 0, 0, 1}; }, "2.5.29.19! 30030101ff"},
      {[](CERT_EXTN_INFO& i) { i.basicConstraintsPresent = 1, i.basicConstraints = {1, 0, 1, 0}; }, "2.5.29.19 30060101ff020100"},
      {[](CERT_EXTN_INFO& i) { i.basicConstraintsPresent = 1, i.basicConstraints = {1, 200, 1, 0}; }, "2.5.29.19 30070101ff020200c8"},
      {[](CERT_EXTN_INFO& i) { i.keyUsagePresent = 1, i.keyUsage.bits = 0; }, "2.5.29.15 030100"},
      {[](CERT_EXTN_INFO& i) { i.keyUsagePresent = 1, i.keyUsage.bits = 0x80; }, "2.5.29.15 03020780"},
      {[](CERT_EXTN_INFO& i) { i.keyUsagePresent = 1, i.keyUsage = {0x06, 1}; }, "2.5.29.15! 03020106"},
      {[](CERT_EXTN_INFO& i) { i.keyUsagePresent = 1, i.keyUsage.bits = 0x8000; }, "2.5.29.15 0303070080"},
      {[](CERT_EXTN_INFO& i) { i.keyUsagePresent = 1, i.keyUsage.bits = 0x10080; }, "2.5.29.15 03020780"},
      {[](CERT_EXTN_INFO& i) { i.setCertTypePresent = 1, i.setCertType.bits = 0x0102; }, "2.23.42.7.1 0303000201"},
      {[](CERT_EXTN_INFO& i) {
         i.privateKeyUsagePeriodPresent = 1, i.privateKeyUsagePeriod = {0, 1, "", "20491231235959", 0};
       }, "2.5.29.16 3011810f" + to_hex(bytes_of("20491231235959Z"))},
      {[](CERT_EXTN_INFO& i) { i.setHashedRootKeyPresent = 1, i.setHashedRootKey.length = 0; }, "2.23.42.7.0 " + kSetPrefix},
      {[](CERT_EXTN_INFO& i) {  // keyIdentifier [0], a serial [2] that needs its sign octet
         i.authorityKeyIdentifierPresent = 1, i.authorityKeyIdentifier = {1, {0x0A}, 1, 0, 0, {}, 1, {0x81, 0xF2}, 2, 0};
       }, "2.5.29.35 300880010a82030081f2"},
      {[](CERT_EXTN_INFO& i) {
         i.privateExtensionPresent = 1, i.privateExtension = {{0x2A, 0x03, 0x04, 0x05}, 4, {0x0C, 0x01, 0x41}, 3, 1};
       }, "1.2.3.4.5! 0c0141"},
  };
  // clang-format on
  for (const auto& [setup, value] : cases) {
    CERT_EXTN_INFO info{};
    setup(info);
    const Bytes der = encode(info);
    EXPECT_EQ(openssl_reads(der), std::vector<std::string>{value}) << error_text();
    const auto [r, back] = decode(der);
    ASSERT_EQ(r, 0u) << value;
    EXPECT_EQ(back->privateExtensionPresent, 0u);
    if (info.privateExtensionPresent == 0) {
      EXPECT_EQ(to_hex(encode(*back)), to_hex(der)) << value;
    }
  }
}

// Extension ::= SEQUENCE { extnID, critical BOOLEAN DEFAULT FALSE, extnValue }
Bytes ext(const char* oid, const Bytes& value, bool critical = false) {
  return seq({tlv(0x06, from_hex(oid)), critical ? from_hex("0101ff") : Bytes{}, tlv(0x04, value)});
}
Bytes ext(const char* oid, const char* value, bool critical = false) {
  return ext(oid, from_hex(value), critical);
}
Bytes under_tag3(const Bytes& extensions) {
  return tlv(0xA3, tlv(0x30, extensions));
}

// Unknown extensions are kept without a flag; the first of two occurrences counts, its
// unused bits (set here) masked off.
TEST(ExtensionList, UnknownKeptAndFirstOccurrenceCounts) {
  const Bytes der = under_tag3(concat({ext("2a030405", "0500", true), ext("551d11", "30028200"),
                                       ext("551d0f", "030205a7"), ext("551d0f", "03020780")}));
  const auto [r, info] = decode(der);
  ASSERT_EQ(r, 0u) << error_text();
  EXPECT_EQ(info->keyUsagePresent + info->keyUsage.bits, 0xa1u);
  EXPECT_EQ(info->authorityKeyIdentifierPresent + info->basicConstraintsPresent, 0u);

  hylorn::X509_EXTN_CONTEXT ctx{};
  ASSERT_EQ(hylorn::Cert_Decode_X509_Extensions_Begin(size_of(der), der.data(), &ctx), 0u);
  u32 nodes = 0;
  for (auto* n = ctx.head; n != nullptr; n = n->next) ++nodes;
  EXPECT_EQ(nodes, 4u);
  EXPECT_EQ(ctx.head->extnID.oidValue, 0u);  // unknown
  EXPECT_EQ(ctx.head->critical, 1);
  ASSERT_EQ(hylorn::Find_X509_EXTN_By_Number(&ctx, 7), 0u);  // subjectAltName
  EXPECT_EQ(ctx.cursor, ctx.head->next);
  clear_errors();
  EXPECT_EQ(hylorn::Find_X509_EXTN_By_Number(&ctx, 10), 1u);  // absent: no entry
  EXPECT_TRUE(read_errors().empty());
  for (u32 number : {0u, 13u, 22u, 25u, 39u, 49u, 59u, 62u, 1000u}) {
    EXPECT_EQ(hylorn::Find_X509_EXTN_By_Number(&ctx, number), 1u) << number;
    EXPECT_EQ(read_errors(), (Entries{{520, 1, "Uid error"}})) << number;
  }
  EXPECT_EQ(hylorn::Cert_Decode_X509_Extensions_End(&ctx), 0u);
  EXPECT_EQ(ctx.head, nullptr);
}

TEST(ExtensionErrors, Entries) {
  const Bytes cps = from_hex("06082b06010505070201"), long_cps = tlv(0x16, Bytes(256, 'q'));
  Bytes seventeen;
  for (int k = 0; k < 17; ++k) seventeen = concat({seventeen, from_hex("300306012a")});
  const std::string lists = "Cert_Decode_X509_Extensions_Begin", bad = "certificate encode error",
                    policies = "l2u_XEXT_CertificatePolicies", bc = "l2u_XEXT_BasicConstraints",
                    aki = "l2u_XEXT_AuthorityKeyIdentifier";
  // clang-format off
  const std::pair<Bytes, Entries> cases[] = {
      {from_hex("a3023000"), {{519, 5, "no extension"}, {523, 1, lists}}},
      {from_hex("a0023000"), {{519, 2, "ASN1_Decode_Explicit_Tag"}, {523, 1, lists}}},
      {under_tag3(from_hex("30050603551d13")), {{502, 4, bad}, {519, 8, "Der_Decode_X509_Extn"}, {523, 1, lists}}},
      {ext("551d20", seq({seq({from_hex("06032a0304"), seq({seq({cps, long_cps})})})})),
       {{540, 4, "policy qualifier too long"}, {523, 2, policies}}},
      {ext("551d20", ("3025302306 21" + std::string(66, '1')).c_str()),
       {{540, 3, "policy identifier too long"}, {523, 2, policies}}},
      {ext("551d20", seq({seventeen})), {{540, 2, "too many policies"}, {523, 2, policies}}},
      {ext("672a0700", concat({from_hex(kSetPrefix), Bytes(65, 7)})),
       {{565, 2, "hashed root key too long"}, {523, 2, "l2u_SET_EXT_hashedRootKey"}}},
      {ext("672a0700", "302f302d"),
       {{564, 1, bad}, {565, 1, "Decode_SET_EXT_hashedRootKey"}, {523, 2, "l2u_SET_EXT_hashedRootKey"}}},
      {ext("551d13", "30060101ff040100"), {{508, 6, bad}, {509, 1, "Decode_XEXT_BasicConstraints"}, {523, 2, bc}}},
      {ext("551d13", "300a0101ff02050100000000"), {{508, 5, bad}, {509, 1, "Decode_XEXT_BasicConstraints"}, {523, 2, bc}}},
      {ext("551d23", "30028200"), {{302, 1, "serial number error"}, {528, 3, "l2u_serialNumber"}, {523, 2, aki}}},
      {ext("551d23", "3003830100"), {{527, 7, bad}, {528, 1, "Decode_XEXT_AuthorityKeyIdentifier"}, {523, 2, aki}}},
      {ext("551d10", "3006800432303235"), {{536, 2, "time error"}, {523, 2, "l2u_XEXT_PrivateKeyUsagePeriod"}}},
      {ext("551d0e", concat({from_hex("0441"), Bytes(65, 1)})),
       {{532, 2, "key identifier too long"}, {523, 2, "l2u_XEXT_SubjectKeyIdentifier"}}},
      {ext("551d0f", "040100"), {{106, 2, "tag type"}, {543, 1, "ASN1_Decode_Bit_String"},
                                 {544, 1, "Decode_XEXT_KeyUsage"}, {523, 2, "l2u_XEXT_KeyUsage"}}},
  };
  // clang-format on
  for (const auto& [der, entries] : cases) {
    const Bytes whole = der[0] == 0x30 ? under_tag3(der) : der;
    EXPECT_EQ(decode(whole).first, 1u) << to_hex(whole);
    EXPECT_EQ(read_errors(), entries) << to_hex(whole);
  }
}

}  // namespace
