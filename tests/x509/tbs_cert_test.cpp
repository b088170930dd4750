// The TBSCertificate: OpenSSL reads our DER and we read OpenSSL's, the whole-record
// conversions, the decoder's entries by position, and its behaviour on every truncated
// or altered input and on every failing allocation.
#include "x509/tbs_cert.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <tuple>

#include "asn1/list.h"
#include "field_fixtures.h"
#include "support/fail_malloc.h"
#include "support/openssl_bytes.h"
#include "support/openssl_rsa.h"

namespace {

using namespace hylorn_test;
using namespace x509_test;
using hylorn::DATA_BUFFER;
using hylorn::u32;
using hylorn::u8;
using hylorn::USER_X509_TBS_CERT;
using hylorn::X509_TBS_CERT;

// A caller record with every field but the extensions.
std::unique_ptr<USER_X509_TBS_CERT> sample_user(const Bytes& rsa_key) {
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

Bytes sequence_of(const std::vector<Bytes>& parts) {
  Bytes contents;
  for (const Bytes& p : parts) contents.insert(contents.end(), p.begin(), p.end());
  return openssl_tlv(true, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL, contents);
}

class TbsCert : public testing::Test {
 protected:
  static void SetUpTestSuite() { key_ = openssl_keygen(1024).release(); }
  static void TearDownTestSuite() { EVP_PKEY_free(key_); }
  static Bytes rsa() { return public_der(key_); }
  static EVP_PKEY* key_;
};
EVP_PKEY* TbsCert::key_ = nullptr;

// Guards the field order and every field coder as OpenSSL reads them: our TBS wrapped as a
// certificate parses there with the same fields.
TEST_F(TbsCert, OpenSslReadsOurDer) {
  const Bytes cert = sequence_of(
      {tbs_der(*sample_user(rsa())), from_hex("300906052b0e03021d0500"), from_hex("030200ff")});
  const unsigned char* p = cert.data();
  X509* x = d2i_X509(nullptr, &p, static_cast<long>(cert.size()));
  ASSERT_NE(x, nullptr);
  EXPECT_EQ(X509_get_version(x), 2);
  const ASN1_INTEGER* serial = X509_get0_serialNumber(x);
  EXPECT_EQ(to_hex(ASN1_STRING_get0_data(serial), ASN1_STRING_length(serial)), "0123456789abcdef");
  char issuer[256], subject[256];
  X509_NAME_oneline(X509_get_issuer_name(x), issuer, sizeof issuer);
  X509_NAME_oneline(X509_get_subject_name(x), subject, sizeof subject);
  EXPECT_STREQ(issuer, "/C=CN/O=Issuer Org/CN=Root CA");
  EXPECT_STREQ(subject, "/C=CN/CN=Leaf/emailAddress=leaf@example.com/postOfficeBox=PO 9");
  EXPECT_EQ(ASN1_TIME_cmp_time_t(X509_get0_notBefore(x), 1704067200), 0);
  EXPECT_EQ(ASN1_STRING_type(X509_get0_notAfter(x)), V_ASN1_GENERALIZEDTIME);
  EXPECT_EQ(EVP_PKEY_eq(X509_get0_pubkey(x), key_), 1);
  const ASN1_BIT_STRING *issuer_id = nullptr, *subject_id = nullptr;
  X509_get0_uids(x, &issuer_id, &subject_id);
  ASSERT_TRUE(issuer_id != nullptr && subject_id != nullptr);
  EXPECT_EQ(
      to_hex(issuer_id->data, issuer_id->length) + to_hex(subject_id->data, subject_id->length),
      "aabbcc");
  X509_free(x);
}

// Guards the decoder, both conversions and the encoder on OpenSSL's DER: read, taken to
// the caller record and back, it encodes to the same bytes. Our own sample round-trips.
TEST_F(TbsCert, OpenSslDerRoundTrips) {
  X509* x = X509_new();
  X509_set_version(x, 2);
  ASN1_INTEGER_set(X509_get_serialNumber(x), 0x7F01);
  const Bytes name = openssl_name(
      {{"C", V_ASN1_PRINTABLESTRING, "DE"}, {"emailAddress", V_ASN1_IA5STRING, "ca@example.org"}});
  const unsigned char* p = name.data();
  X509_NAME* issuer = d2i_X509_NAME(nullptr, &p, static_cast<long>(name.size()));
  X509_set_issuer_name(x, issuer);
  X509_set_subject_name(x, issuer);
  ASN1_TIME_set_string(X509_getm_notBefore(x), "991231235959Z");
  ASN1_TIME_set_string(X509_getm_notAfter(x), "20600101000000Z");
  X509_set_pubkey(x, key_);
  ASSERT_GT(X509_sign(x, key_, EVP_md5()), 0);
  unsigned char* der = nullptr;
  const int length = i2d_re_X509_tbs(x, &der);
  const Bytes tbs(der, der + length);
  OPENSSL_free(der);
  X509_NAME_free(issuer);
  X509_free(x);

  auto user = std::make_unique<USER_X509_TBS_CERT>();
  ASSERT_EQ(decode_exactly(tbs, user.get()), 0u);
  EXPECT_EQ(user->versionPresent, 0);  // not set on the way back
  EXPECT_STREQ(user->validity.notBefore, "19991231235959");
  user->versionPresent = 1;
  EXPECT_EQ(to_hex(tbs_der(*user)), to_hex(tbs));

  const auto sample = sample_user(rsa());
  sample->extensionsPresent = 1;  // the extension set travels as its [3] element
  sample->extensions.basicConstraintsPresent = 1;
  hylorn::USER_XEXT_BasicConstraints& constraints = sample->extensions.basicConstraints;
  constraints.cA = constraints.pathLenPresent = constraints.critical = 1;
  constraints.pathLenConstraint = 3;
  ASSERT_EQ(decode_exactly(tbs_der(*sample), user.get()), 0u);
  user->versionPresent = 1;
  // Everything up to the extension set byte for byte; the set by its fields (its records
  // are assigned whole, padding included).
  EXPECT_EQ(std::memcmp(user.get(), sample.get(), offsetof(USER_X509_TBS_CERT, extensions)), 0);
  const hylorn::USER_XEXT_BasicConstraints& back = user->extensions.basicConstraints;
  EXPECT_EQ(std::tuple(user->issuerUniqueIDPresent, user->subjectUniqueIDPresent,
                       user->extensionsPresent, user->extensions.basicConstraintsPresent, back.cA,
                       back.pathLenConstraint, back.pathLenPresent, back.critical),
            std::tuple(1, 1, 1, 1u, 1, 3, 1, 1));
}

// Guards the conversions' own entries after their callee's.
TEST_F(TbsCert, ConversionsNameTheFailingStep) {
  auto user = sample_user(rsa());
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
TEST_F(TbsCert, DecoderReadsByPosition) {
  hylorn::ASN1_SEQUENCE* list = nullptr;
  const Bytes whole = tbs_der(*sample_user(rsa()));
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
    EXPECT_EQ(decode_exactly(sequence_of(chosen), user.get()), entries.empty() ? 0u : 1u);
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

// Guards the bounds of every coder under the TBSCertificate decoder: each truncated
// prefix and each altered byte, in a block of exactly its size (ASan checks the reads).
TEST_F(TbsCert, TruncatedAndAlteredInputsFailCleanly) {
  const Bytes der = tbs_der(*sample_user(rsa()));
  for (std::size_t n = 0; n < der.size(); ++n) {
    EXPECT_EQ(decode_exactly(Bytes(der.begin(), der.begin() + n)), 1u) << n;
  }
  for (std::size_t i = 0; i < der.size(); ++i) {
    for (u8 change : {0x01, 0x80, 0xFF}) {
      Bytes altered = der;
      altered[i] ^= change;
      EXPECT_TRUE(decode_exactly(altered) == 0 || read_errors().back().func_no == 221) << i;
    }
  }
}

// Guards the clean-up of every allocation in both directions: each failing run answers
// 1 with the coder's own entry last; ASan reports anything left allocated.
TEST_F(TbsCert, EveryAllocationFailureIsCleanedUp) {
  X509_TBS_CERT tbs{};
  ASSERT_EQ(hylorn::u2l_USER_X509_TBS_CERT(sample_user(rsa()).get(), &tbs), 0u);
  const Bytes der =
      encoded([&](DATA_BUFFER* o) { return hylorn::Der_Encode_X509_Tbs_Cert(&tbs, o); });
  for (int fn : {219, 221}) {
    int n = 1;
    for (;; ++n) {
      FailNthMalloc fail(n);
      const u32 r = fn == 219 ? encoded([&](DATA_BUFFER* o) {
                                  return hylorn::Der_Encode_X509_Tbs_Cert(&tbs, o);
                                }).empty()
                              : decode_exactly(der);
      if (!fail.fired()) break;
      EXPECT_EQ(r, 1u) << n;
      EXPECT_EQ(read_errors().back().func_no, fn) << n;
    }
    EXPECT_GT(n, 40) << "allocations seen";
  }
  hylorn::free_X509_TBS_CERT(&tbs);
}

}  // namespace
