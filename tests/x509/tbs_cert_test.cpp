// The TBSCertificate: OpenSSL reads our DER and we read OpenSSL's, the whole-record
// conversions, the decoder's entries by position, and its behaviour on every truncated
// or altered input and on every failing allocation.
#include "x509/tbs_cert.h"

#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <vector>

#include "asn1/list.h"
#include "field_fixtures.h"
#include "support/error_list.h"
#include "support/fail_malloc.h"
#include "support/hex.h"
#include "support/openssl_bytes.h"
#include "support/openssl_rsa.h"
#include "x509/signed_packet.h"

namespace {

using namespace hylorn_test;
using namespace x509_test;
using hylorn::DATA_BUFFER;
using hylorn::u32;
using hylorn::u8;
using hylorn::USER_X509_TBS_CERT;
using hylorn::X509_TBS_CERT;

u32 size_of(const Bytes& b) {
  return static_cast<u32>(b.size());
}

// A caller record with every field but the extensions, the key made by OpenSSL.
std::unique_ptr<USER_X509_TBS_CERT> sample_user(const Bytes& rsa_key) {
  auto user = std::make_unique<USER_X509_TBS_CERT>();
  hylorn::ini_USER_X509_TBS_CERT(user.get());
  user->version = 2;
  user->versionPresent = 1;
  const Bytes serial = from_hex("0123456789abcdef");
  std::memcpy(user->serialNumber, serial.data(), serial.size());
  user->serialNumberLength = static_cast<hylorn::u16>(serial.size());
  user->signature = {3, {0x05, 0x00}, 2};
  user->issuer = user_name({{0, "CN"}, {1, "Issuer Org"}, {4, "Root CA"}});
  std::strcpy(user->validity.notBefore, "20240101000000");
  std::strcpy(user->validity.notAfter, "20500101000000");
  user->subject = user_name({{0, "CN"}, {4, "Leaf"}, {10, "leaf@example.com"}, {13, "PO 9"}});
  std::memcpy(user->subjectPublicKeyInfo.subjectPublicKey, rsa_key.data(), rsa_key.size());
  user->subjectPublicKeyInfo.subjectPublicKeyLength = static_cast<hylorn::u16>(rsa_key.size());
  user->subjectPublicKeyInfo.algorithm = {4, {0x05, 0x00}, 2};
  user->issuerUniqueIDPresent = 1;
  user->issuerUniqueID = {{0xAA, 0xBB}, 2};
  user->subjectUniqueIDPresent = 1;
  user->subjectUniqueID = {{0xCC}, 1};
  return user;
}

Bytes tbs_der(const USER_X509_TBS_CERT& user) {
  X509_TBS_CERT tbs{};
  EXPECT_EQ(hylorn::u2l_USER_X509_TBS_CERT(&user, &tbs), 0u);
  Bytes der = encoded([&](DATA_BUFFER* o) { return hylorn::Der_Encode_X509_Tbs_Cert(&tbs, o); });
  hylorn::free_X509_TBS_CERT(&tbs);
  return der;
}

// Decodes der (in a heap block of exactly its size) and frees the record; the result.
u32 decode_exactly(const Bytes& der) {
  std::unique_ptr<u8[]> exact(new u8[der.size() + (der.empty() ? 1 : 0)]);
  if (!der.empty()) std::memcpy(exact.get(), der.data(), der.size());
  X509_TBS_CERT tbs{};
  hylorn::ini_X509_TBS_CERT(&tbs);
  const u32 r = hylorn::Der_Decode_X509_Tbs_Cert(size_of(der), exact.get(), &tbs);
  if (r != 0) {  // left empty
    EXPECT_EQ(tbs.serialNumber.data, nullptr);
    EXPECT_EQ(tbs.issuer, nullptr);
    EXPECT_EQ(tbs.subjectPublicKeyInfo.subjectPublicKey.data, nullptr);
  }
  hylorn::free_X509_TBS_CERT(&tbs);
  return r;
}

// The components of a SEQUENCE, and a SEQUENCE of components.
std::vector<Bytes> components(const Bytes& der) {
  hylorn::ASN1_SEQUENCE* list = nullptr;
  EXPECT_EQ(hylorn::ASN1_Decode_Sequence(size_of(der), der.data(), &list), 0u);
  std::vector<Bytes> out;
  for (auto* n = list; n != nullptr; n = n->next) {
    out.emplace_back(n->value.data, n->value.data + n->value.length);
  }
  hylorn::free_ASN1_SEQUENCE(list);
  return out;
}

Bytes sequence_of(const std::vector<Bytes>& parts) {
  Bytes contents;
  for (const Bytes& p : parts) contents.insert(contents.end(), p.begin(), p.end());
  return openssl_tlv(true, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL, contents);
}

class TbsCert : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    key_ = openssl_keygen(1024).release();
    rsa_ = new Bytes(public_der(key_));
  }
  static void TearDownTestSuite() {
    EVP_PKEY_free(key_);
    delete rsa_;
  }
  static EVP_PKEY* key_;
  static Bytes* rsa_;
};
EVP_PKEY* TbsCert::key_ = nullptr;
Bytes* TbsCert::rsa_ = nullptr;

// Guards the field order and every field coder as OpenSSL reads them: our TBS wrapped as a
// certificate parses there with the same version, serial, names, times, key and IDs.
TEST_F(TbsCert, OpenSslReadsOurDer) {
  const Bytes tbs = tbs_der(*sample_user(*rsa_));
  const Bytes cert = sequence_of({tbs, from_hex("300906052b0e03021d0500"), from_hex("030200ff")});
  const unsigned char* p = cert.data();
  X509* x = d2i_X509(nullptr, &p, static_cast<long>(cert.size()));
  ASSERT_NE(x, nullptr);
  EXPECT_EQ(X509_get_version(x), 2);
  const ASN1_INTEGER* serial = X509_get0_serialNumber(x);
  EXPECT_EQ(to_hex(ASN1_STRING_get0_data(serial), ASN1_STRING_length(serial)), "0123456789abcdef");
  char line[256];
  X509_NAME_oneline(X509_get_issuer_name(x), line, sizeof line);
  EXPECT_STREQ(line, "/C=CN/O=Issuer Org/CN=Root CA");
  X509_NAME_oneline(X509_get_subject_name(x), line, sizeof line);
  EXPECT_STREQ(line, "/C=CN/CN=Leaf/emailAddress=leaf@example.com/postOfficeBox=PO 9");
  EXPECT_EQ(ASN1_TIME_cmp_time_t(X509_get0_notBefore(x), 1704067200), 0);
  EXPECT_EQ(ASN1_STRING_type(X509_get0_notAfter(x)), V_ASN1_GENERALIZEDTIME);
  EXPECT_EQ(EVP_PKEY_eq(X509_get0_pubkey(x), key_), 1);
  const ASN1_BIT_STRING *issuer_id = nullptr, *subject_id = nullptr;
  X509_get0_uids(x, &issuer_id, &subject_id);
  ASSERT_NE(issuer_id, nullptr);
  ASSERT_NE(subject_id, nullptr);
  EXPECT_EQ(to_hex(issuer_id->data, issuer_id->length), "aabb");
  EXPECT_EQ(to_hex(subject_id->data, subject_id->length), "cc");
  X509_free(x);
}

// Guards the decoder and the way back to the caller record on OpenSSL's DER: T61String
// and IA5String values, a UTCTime before 2000, sha1WithRSAEncryption, no unique IDs.
TEST_F(TbsCert, WeReadOpenSslDer) {
  X509* x = X509_new();
  X509_set_version(x, 2);
  ASN1_INTEGER_set(X509_get_serialNumber(x), 0x7F01);
  X509_NAME* issuer = X509_NAME_new();
  const auto add = [](X509_NAME* n, const char* field, int type, const char* value) {
    X509_NAME_add_entry_by_txt(n, field, type, reinterpret_cast<const unsigned char*>(value), -1,
                               -1, 0);
  };
  add(issuer, "C", V_ASN1_PRINTABLESTRING, "DE");
  add(issuer, "O", V_ASN1_T61STRING, "T61 Org");
  add(issuer, "emailAddress", V_ASN1_IA5STRING, "ca@example.org");
  X509_set_issuer_name(x, issuer);
  X509_NAME* subject = X509_NAME_new();
  add(subject, "CN", V_ASN1_PRINTABLESTRING, "Someone");
  X509_set_subject_name(x, subject);
  ASN1_TIME_set_string(X509_getm_notBefore(x), "991231235959Z");
  ASN1_TIME_set_string(X509_getm_notAfter(x), "20600101000000Z");
  X509_set_pubkey(x, key_);
  ASSERT_GT(X509_sign(x, key_, EVP_sha1()), 0);
  unsigned char* der = nullptr;
  const int n = i2d_re_X509_tbs(x, &der);
  const Bytes tbs(der, der + n);
  OPENSSL_free(der);
  X509_NAME_free(issuer);
  X509_NAME_free(subject);
  X509_free(x);

  X509_TBS_CERT decoded{};
  hylorn::ini_X509_TBS_CERT(&decoded);
  ASSERT_EQ(hylorn::Der_Decode_X509_Tbs_Cert(size_of(tbs), tbs.data(), &decoded), 0u);
  auto user = std::make_unique<USER_X509_TBS_CERT>();
  ASSERT_EQ(hylorn::l2u_USER_X509_TBS_CERT(&decoded, user.get()), 0u);
  hylorn::free_X509_TBS_CERT(&decoded);
  EXPECT_EQ(user->version, 2);
  EXPECT_EQ(user->versionPresent, 0);  // not set on the way back
  EXPECT_EQ(to_hex(user->serialNumber, user->serialNumberLength), "7f01");
  EXPECT_EQ(user->signature.algorithm, 3);
  EXPECT_STREQ(user->issuer.slot[0], "DE");
  EXPECT_STREQ(user->issuer.slot[1], "T61 Org");
  EXPECT_STREQ(user->issuer.slot[10], "ca@example.org");
  EXPECT_STREQ(user->subject.slot[4], "Someone");
  EXPECT_STREQ(user->validity.notBefore, "19991231235959");
  EXPECT_STREQ(user->validity.notAfter, "20600101000000");
  EXPECT_EQ(to_hex(user->subjectPublicKeyInfo.subjectPublicKey,
                   user->subjectPublicKeyInfo.subjectPublicKeyLength),
            to_hex(*rsa_));
  EXPECT_EQ(user->issuerUniqueIDPresent + user->subjectUniqueIDPresent + user->extensionsPresent,
            0);
}

// Guards the round trip of every field through both conversions and both coders.
TEST_F(TbsCert, CallerRecordRoundTrip) {
  const auto user = sample_user(*rsa_);
  const Bytes der = tbs_der(*user);
  X509_TBS_CERT tbs{};
  hylorn::ini_X509_TBS_CERT(&tbs);
  ASSERT_EQ(hylorn::Der_Decode_X509_Tbs_Cert(size_of(der), der.data(), &tbs), 0u);
  auto back = std::make_unique<USER_X509_TBS_CERT>();
  ASSERT_EQ(hylorn::l2u_USER_X509_TBS_CERT(&tbs, back.get()), 0u);
  hylorn::free_X509_TBS_CERT(&tbs);
  back->versionPresent = 1;
  EXPECT_EQ(std::memcmp(back.get(), user.get(), sizeof *back), 0);
}

// Guards the conversions' own entries after their callee's.
TEST_F(TbsCert, ConversionsNameTheFailingStep) {
  auto user = sample_user(*rsa_);
  user->version = 3;
  X509_TBS_CERT tbs{};
  EXPECT_EQ(hylorn::u2l_USER_X509_TBS_CERT(user.get(), &tbs), 1u);
  EXPECT_EQ(read_errors(), (Entries{{319, 1, "version error"}, {313, 2, "u2l_version"}}));
  hylorn::free_X509_TBS_CERT(&tbs);

  user->version = 2;
  user->signature.algorithm = 9;
  EXPECT_EQ(hylorn::u2l_USER_X509_TBS_CERT(user.get(), &tbs), 1u);
  EXPECT_EQ(read_errors(), (Entries{{303, 1, "Algorithm_Uid2Oid"}, {313, 4, "u2l_signature"}}));
  hylorn::free_X509_TBS_CERT(&tbs);

  user->signature.algorithm = 3;
  ASSERT_EQ(hylorn::u2l_USER_X509_TBS_CERT(user.get(), &tbs), 0u);
  std::vector<u8> long_serial(129, 0x11);
  hylorn::free_DATA_BUFFER(&tbs.serialNumber);
  tbs.serialNumber = {129, long_serial.data()};
  auto back = std::make_unique<USER_X509_TBS_CERT>();
  EXPECT_EQ(hylorn::l2u_USER_X509_TBS_CERT(&tbs, back.get()), 1u);
  EXPECT_EQ(read_errors(),
            (Entries{{302, 1, "serial number error"}, {314, 6, "l2u_serialNumber"}}));
  tbs.serialNumber = {0, nullptr};
  tbs.version = 3;
  EXPECT_EQ(hylorn::l2u_USER_X509_TBS_CERT(&tbs, back.get()), 1u);
  EXPECT_EQ(read_errors(), (Entries{{320, 1, "version error"}, {314, 5, "l2u_version"}}));
  hylorn::free_X509_TBS_CERT(&tbs);
}

// The elements of the sample's DER: version, serial, signature, issuer, validity,
// subject, key, issuer ID, subject ID.
enum Element { kVersion, kSerial, kAlg, kIssuer, kValidity, kSubject, kKey, kIssuerId, kSubjectId };

struct ByPosition {
  const char* what;
  std::vector<int> elements;  // indices into the sample's elements; -1 the [3] element
  Entries entries;            // empty: decodes
};

// Guards the decoder's reading by position after the scan for tags, and its entries.
TEST_F(TbsCert, DecoderReadsByPosition) {
  const std::vector<Bytes> parts = components(tbs_der(*sample_user(*rsa_)));
  ASSERT_EQ(parts.size(), 9u);
  const Bytes extensions = from_hex("a3053003300100");  // any [3] element travels whole
  const ByPosition cases[] = {
      {"no version", {kSerial, kAlg, kIssuer, kValidity, kSubject, kKey}, {}},
      {"version only", {kVersion}, {{221, 6, " "}}},
      {"no algorithm", {kVersion, kSerial}, {{221, 8, " "}}},
      {"no issuer", {kVersion, kSerial, kAlg}, {{221, 10, " "}}},
      {"no validity", {kVersion, kSerial, kAlg, kIssuer}, {{221, 12, " "}}},
      {"no subject", {kVersion, kSerial, kAlg, kIssuer, kValidity}, {{221, 14, " "}}},
      {"no public key", {kVersion, kSerial, kAlg, kIssuer, kValidity, kSubject}, {{221, 16, " "}}},
      {"[3] before the subject",
       {kVersion, kSerial, kAlg, kIssuer, kValidity, -1, kSubject, kKey},
       {{108, 2, "tag type error"},
        {208, 2, "ASN1_Decode_Sequence"},
        {221, 15, "Der_Decode_X500_Name"}}},
      {"[3] last, elements after it ignored",
       {kVersion, kSerial, kAlg, kIssuer, kValidity, kSubject, kKey, -1, kSerial},
       {}},
      {"serial not an INTEGER",
       {kAlg, kAlg, kIssuer, kValidity, kSubject, kKey},
       {{112, 2, "tag type"},
        {204, 1, "ASN1_Decode_Integer"},
        {221, 7, "Der_Decode_serialNumber"}}},
      {"subject ID read in the issuer ID's place",
       {kVersion, kSerial, kAlg, kIssuer, kValidity, kSubject, kKey, kSubjectId},
       {}},
  };
  for (const ByPosition& c : cases) {
    std::vector<Bytes> chosen;
    for (int i : c.elements) chosen.push_back(i < 0 ? extensions : parts[i]);
    const Bytes der = sequence_of(chosen);
    X509_TBS_CERT tbs{};
    hylorn::ini_X509_TBS_CERT(&tbs);
    const u32 r = hylorn::Der_Decode_X509_Tbs_Cert(size_of(der), der.data(), &tbs);
    EXPECT_EQ(r, c.entries.empty() ? 0u : 1u) << c.what;
    if (r != 0) {
      EXPECT_EQ(error_text(), entries_text(c.entries)) << c.what;
    } else if (c.elements[0] != kVersion) {
      EXPECT_EQ(tbs.version, 0) << c.what;
    }
    if (r == 0 && c.elements.size() > 7) {
      EXPECT_EQ(tbs.extensionsPresent + tbs.subjectUniqueIDPresent, 1) << c.what;
    }
    if (tbs.extensionsPresent) {
      EXPECT_EQ(to_hex(tbs.extensions.data, tbs.extensions.length), to_hex(extensions));
    }
    hylorn::free_X509_TBS_CERT(&tbs);
  }
  const Bytes empty = from_hex("3000");
  X509_TBS_CERT tbs{};
  hylorn::ini_X509_TBS_CERT(&tbs);
  EXPECT_EQ(hylorn::Der_Decode_X509_Tbs_Cert(2, empty.data(), &tbs), 1u);
  EXPECT_EQ(read_errors(), (Entries{{220, 1, "p==NULL"}, {221, 3, "Scan_X509_Tbs_Cert"}}));
}

// Guards the tag rewrite of the unique-ID decoders: in place in the caller's element, and
// never in the TBSCertificate decoder's input, which it copies.
TEST_F(TbsCert, UniqueIdDecodersRewriteTheirInput) {
  using Decoder = u32 (*)(u32, u8*, hylorn::BIT_DATA_BUFFER*);
  for (auto [decode, tag] : {std::pair<Decoder, u8>{hylorn::Der_Decode_X509_issuerUniqueID, 0x81},
                             {hylorn::Der_Decode_X509_subjectUniqueID, 0x82}}) {
    u8 element[] = {tag, 0x03, 0x04, 0xAB, 0xC0};
    hylorn::BIT_DATA_BUFFER id{};
    ASSERT_EQ(decode(sizeof element, element, &id), 0u);
    EXPECT_EQ(element[0], 0x03);
    EXPECT_EQ(to_hex(id.data, id.length), "abc0");
    EXPECT_EQ(id.unusedBits, 4u);
    hylorn::free_BIT_DATA_BUFFER(&id);
  }
  u8 bad[] = {0x81, 0x01, 0x08};  // unused-bits count above 7
  hylorn::BIT_DATA_BUFFER id{};
  EXPECT_EQ(hylorn::Der_Decode_X509_issuerUniqueID(sizeof bad, bad, &id), 1u);
  EXPECT_EQ(read_errors(), (Entries{{106, 6, "unusedBits"}, {216, 1, "ASN1_Decode_Bit_String"}}));

  const Bytes der = tbs_der(*sample_user(*rsa_));
  const Bytes copy = der;
  EXPECT_EQ(decode_exactly(der), 0u);
  EXPECT_EQ(der, copy);
}

// Guards the bounds of every coder under the TBSCertificate decoder: each truncated
// prefix and each altered byte, in a block of exactly its size (ASan checks the reads).
TEST_F(TbsCert, TruncatedAndAlteredInputsFailCleanly) {
  const Bytes der = tbs_der(*sample_user(*rsa_));
  for (std::size_t n = 0; n < der.size(); ++n) {
    EXPECT_EQ(decode_exactly(Bytes(der.begin(), der.begin() + n)), 1u) << n;
    EXPECT_FALSE(read_errors().empty()) << n;
  }
  for (std::size_t i = 0; i < der.size(); ++i) {
    for (u8 change : {0x01, 0x80, 0xFF}) {
      Bytes altered = der;
      altered[i] ^= change;
      if (decode_exactly(altered) != 0) {
        EXPECT_EQ(read_errors().back().func_no, 221) << i;
      }
    }
  }
}

// Guards the clean-up of every allocation in both directions: each failing run answers
// 1 with the coder's own entry last; ASan reports anything left allocated.
TEST_F(TbsCert, EveryAllocationFailureIsCleanedUp) {
  const auto user = sample_user(*rsa_);
  X509_TBS_CERT tbs{};
  ASSERT_EQ(hylorn::u2l_USER_X509_TBS_CERT(user.get(), &tbs), 0u);
  const Bytes der = tbs_der(*user);
  for (int direction = 0; direction < 2; ++direction) {
    int n = 1;
    for (;; ++n) {
      u32 r = 0;
      bool fired = false;
      {
        FailNthMalloc fail(n);
        if (direction == 0) {
          DATA_BUFFER out{0, nullptr};
          r = hylorn::Der_Encode_X509_Tbs_Cert(&tbs, &out);
          EXPECT_EQ(out.data == nullptr, r != 0);
          hylorn::free_DATA_BUFFER(&out);
        } else {
          r = decode_exactly(der);
        }
        fired = fail.fired();
      }
      if (!fired) break;
      EXPECT_EQ(r, 1u) << direction << " malloc " << n;
      const Entries entries = read_errors();
      ASSERT_FALSE(entries.empty());
      EXPECT_EQ(entries.back().func_no, direction == 0 ? 219 : 221) << n;
    }
    EXPECT_GT(n, 40) << "allocations seen";
  }
  hylorn::free_X509_TBS_CERT(&tbs);
}

}  // namespace
