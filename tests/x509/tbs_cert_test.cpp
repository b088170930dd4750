// The TBSCertificate record: the whole-record conversions, the decoder's entries by
// position, the unique identifiers' tags and every failing allocation. (OpenSSL's TBS
// round trip and the truncation sweeps run over whole certificates.)
#include "x509/tbs_cert.h"

#include <gtest/gtest.h>

#include <memory>

#include "asn1/list.h"
#include "fixtures.h"

namespace {

using namespace x509_test;
using hylorn::DATA_BUFFER;
using hylorn::u32;
using hylorn::u8;
using hylorn::USER_X509_TBS_CERT;
using hylorn::X509_TBS_CERT;

// A caller record with every field but the extensions.
std::unique_ptr<USER_X509_TBS_CERT> sample_user() {
  const Bytes& rsa_key = pki().leaf.pub;
  auto user = std::make_unique<USER_X509_TBS_CERT>();
  hylorn::ini_USER_X509_TBS_CERT(user.get());
  // Field by field on the zeroed record, so that padding stays zero for memcmp.
  user->version = 2;
  user->versionPresent = 1;
  const u8 serial[] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef};
  std::memcpy(user->serialNumber, serial, sizeof serial);
  user->serialNumberLength = sizeof serial;
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

// Decodes der from a block of exactly its size into user (when given); the result.
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

// Guards the conversions' own entries after their callee's.
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

enum Element {
  kVersion,
  kSerial,
  kAlg,
  kIssuer,
  kValidity,
  kSubject,
  kKey,
  kIssuerId,
  kSubjectId,
  kExt
};

// Guards the decoder's reading by position after the scan for tags, and its entries.
TEST(TbsCert, DecoderReadsByPosition) {
  hylorn::ASN1_SEQUENCE* list = nullptr;
  const Bytes whole = tbs_der(*sample_user());
  ASSERT_EQ(hylorn::ASN1_Decode_Sequence(size_of(whole), whole.data(), &list), 0u);
  std::vector<Bytes> parts;
  for (auto* n = list; n != nullptr; n = n->next)
    parts.emplace_back(n->value.data, n->value.data + n->value.length);
  hylorn::free_ASN1_SEQUENCE(list);
  parts.push_back(from_hex("a3133011300f0603551d130101ff040530030101ff"));  // cA, critical
  const std::pair<std::vector<Element>, Entries> cases[] = {
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
  for (const auto& [elements, entries] : cases) {
    std::vector<Bytes> chosen;
    for (Element e : elements) chosen.push_back(parts[e]);
    auto user = std::make_unique<USER_X509_TBS_CERT>();
    EXPECT_EQ(decode_exactly(tlv(0x30, concat(chosen)), user.get()), entries.empty() ? 0u : 1u);
    EXPECT_EQ(entries.empty() ? "" : error_text(), entries_text(entries)) << elements.size();
  }
}

// Guards the tag rewrite of the unique-ID decoders: in place in the caller's element.
TEST(TbsUniqueId, DecodersRewriteTheirInput) {
  for (auto [decode, tag] : {std::pair{&hylorn::Der_Decode_X509_issuerUniqueID, u8{0x81}},
                             {&hylorn::Der_Decode_X509_subjectUniqueID, u8{0x82}}}) {
    u8 element[] = {tag, 0x03, 0x04, 0xAB, 0xC0};
    hylorn::BIT_DATA_BUFFER id{};
    ASSERT_EQ(decode(sizeof element, element, &id), 0u);
    EXPECT_EQ(element[0], 0x03);
    EXPECT_EQ(to_hex(id.data, id.length) + std::to_string(id.unusedBits), "abc04");
    hylorn::free_BIT_DATA_BUFFER(&id);
  }
}

// Guards the clean-up of every allocation in both directions, the extensions included.
TEST(TbsCert, EveryAllocationFailureIsCleanedUp) {
  auto user = sample_user();
  user->extensionsPresent = user->extensions.basicConstraintsPresent = 1;
  user->extensions.basicConstraints = {1, 3, 1, 1};
  const Bytes der = tbs_der(*user);
  expect_allocation_failures_cleaned(
      313,
      [&] {
        X509_TBS_CERT tbs{};
        const u32 r = hylorn::u2l_USER_X509_TBS_CERT(user.get(), &tbs);
        hylorn::free_X509_TBS_CERT(&tbs);
        return r;
      },
      10);
  X509_TBS_CERT tbs{};
  ASSERT_EQ(hylorn::u2l_USER_X509_TBS_CERT(user.get(), &tbs), 0u);
  expect_allocation_failures_cleaned(
      219,
      [&] {
        return u32(encoded([&](DATA_BUFFER* o) {
                     return hylorn::Der_Encode_X509_Tbs_Cert(&tbs, o);
                   }).empty());
      },
      40);
  hylorn::free_X509_TBS_CERT(&tbs);
  expect_allocation_failures_cleaned(
      221, [&] { return decode_exactly(der); }, 40);
  hylorn::ini_X509_TBS_CERT(&tbs);
  ASSERT_EQ(hylorn::Der_Decode_X509_Tbs_Cert(size_of(der), der.data(), &tbs), 0u);
  expect_allocation_failures_cleaned(
      314,
      [&] {
        auto back = std::make_unique<USER_X509_TBS_CERT>();
        return hylorn::l2u_USER_X509_TBS_CERT(&tbs, back.get());
      },
      5);
  hylorn::free_X509_TBS_CERT(&tbs);
}

}  // namespace
