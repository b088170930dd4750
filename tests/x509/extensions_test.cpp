// Certificate extensions: each value as OpenSSL reads it (d2i_X509_EXTENSION and
// X509V3_EXT_print) or as RFC 5280's ASN.1 spells it byte by byte, OpenSSL's own
// extensions read here, round trips of the caller's record, the list framework's edge
// cases and errors, and every damaged [3] element.
#include "x509/extensions.h"

#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "support/error_list.h"
#include "support/fail_malloc.h"
#include "support/hex.h"
#include "support/openssl_bytes.h"

namespace {

using namespace hylorn_test;
using hylorn::CERT_EXTN_INFO;
using hylorn::DATA_BUFFER;
using hylorn::u32;
using hylorn::u8;
using Fill = std::function<void(CERT_EXTN_INFO&)>;

std::unique_ptr<CERT_EXTN_INFO> blank() {
  return std::make_unique<CERT_EXTN_INFO>();
}

struct Encoded {
  u32 result;
  Bytes der;
};

Encoded encode(const CERT_EXTN_INFO& info) {
  DATA_BUFFER out{0, nullptr};
  const u32 r = hylorn::u2l_CERT_EXTN_INFO(&info, &out);
  Encoded e{r, Bytes(out.data, out.data + out.length)};
  hylorn::free_DATA_BUFFER(&out);
  return e;
}

// l2u_extensions on a heap copy of exactly der.size() bytes, so that ASan sees any read
// past the end.
u32 decode(const Bytes& der, CERT_EXTN_INFO* info) {
  auto copy = std::make_unique<u8[]>(der.size());
  if (!der.empty()) std::memcpy(copy.get(), der.data(), der.size());
  const DATA_BUFFER in{u32(der.size()), der.empty() ? nullptr : copy.get()};
  return hylorn::l2u_extensions(&in, info);
}

// The [3] element around an Extensions SEQUENCE assembled by hand.
Bytes under_tag3(const Bytes& extensions) {
  Bytes seq = openssl_tlv(true, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL, extensions);
  return openssl_tlv(true, 3, V_ASN1_CONTEXT_SPECIFIC, seq);
}

// One Extension as OpenSSL reads it.
struct Seen {
  std::string oid;
  bool critical;
  std::string text;  // X509V3_EXT_print, or "?" for an extension it cannot print
  Bytes value;
};

std::vector<Seen> openssl_reads(const Bytes& der) {
  const unsigned char* p = der.data();
  long length = 0;
  int tag = 0, xclass = 0;
  ASN1_get_object(&p, &length, &tag, &xclass, long(der.size()));  // [3]
  EXPECT_EQ(tag, 3);
  ASN1_get_object(&p, &length, &tag, &xclass, length);  // SEQUENCE
  const unsigned char* end = p + length;
  std::vector<Seen> seen;
  while (p < end) {
    X509_EXTENSION* ext = d2i_X509_EXTENSION(nullptr, &p, end - p);
    if (ext == nullptr) {
      ADD_FAILURE() << "OpenSSL cannot read " << to_hex(der);
      break;
    }
    char oid[80];
    OBJ_obj2txt(oid, sizeof oid, X509_EXTENSION_get_object(ext), 1);
    BIO* bio = BIO_new(BIO_s_mem());
    std::string text = "?";
    if (X509V3_EXT_print(bio, ext, 0, 0) == 1) {
      char* data = nullptr;
      const long n = BIO_get_mem_data(bio, &data);
      text.assign(data, std::size_t(n));
    }
    const ASN1_OCTET_STRING* v = X509_EXTENSION_get_data(ext);
    seen.push_back(
        {oid, X509_EXTENSION_get_critical(ext) != 0, text, Bytes(v->data, v->data + v->length)});
    BIO_free(bio);
    X509_EXTENSION_free(ext);
  }
  return seen;
}

// The eleven presence flags, in their order.
u32* presence(CERT_EXTN_INFO& i) {
  return &i.authorityKeyIdentifierPresent;
}

// A value worth reading back in every record; the presence flags choose what is written.
void fill(CERT_EXTN_INFO& i, u32 critical) {
  auto& a = i.authorityKeyIdentifier;
  a.keyIdentifierPresent = a.authorityCertIssuerPresent = a.nameCount = 1;
  a.authorityCertSerialNumberPresent = 1;
  a.keyIdentifierLength = 3;
  std::memcpy(a.keyIdentifier, "\x0a\x0b\x0c", 3);
  std::strcpy(a.authorityCertIssuer[0].slot[0], "CN");
  std::strcpy(a.authorityCertIssuer[0].slot[4], "Root CA");
  a.authorityCertSerialNumberLength = 2;
  std::memcpy(a.authorityCertSerialNumber, "\x81\xf2", 2);  // sign bit: padded like a serial
  i.subjectKeyIdentifier.keyIdentifierLength = 4;
  std::memcpy(i.subjectKeyIdentifier.keyIdentifier, "\xde\xad\xbe\xef", 4);
  auto& p = i.privateKeyUsagePeriod;
  p.notBeforePresent = p.notAfterPresent = 1;
  std::strcpy(p.notBefore, "20250102030405");
  std::strcpy(p.notAfter, "20600708091011");
  auto& c = i.certificatePolicies;
  c.count = 2;
  c.policyIdentifierLength[0] = 3;
  std::memcpy(c.policyIdentifier[0], "\x2a\x03\x04", 3);
  std::strcpy(c.qualifier[0], "http://ca.example/cps");
  c.policyIdentifierLength[1] = 8;
  std::memcpy(c.policyIdentifier[1], "\x2b\x06\x01\x04\x01\x82\x37\x0a", 8);
  i.basicConstraints = {1, 200, 1, u8(critical)};
  i.keyUsage.bits = 0x80 | 0x20 | 0x04 | 0x8000;
  auto& e = i.extKeyUsage;
  e.count = 2;
  e.purposeLength[0] = e.purposeLength[1] = 8;
  std::memcpy(e.purpose[0], "\x2b\x06\x01\x05\x05\x07\x03\x01", 8);
  std::memcpy(e.purpose[1], "\x2b\x06\x01\x05\x05\x07\x03\x04", 8);
  i.netscapeCertType.bits = 0x80 | 0x40 | 0x04;
  i.setCertType.bits = 0x0100 | 0x02;
  i.setHashedRootKey.length = 20;
  for (u8 k = 0; k < 20; ++k) i.setHashedRootKey.octets[k] = u8(0xa0 + k);
  auto& x = i.privateExtension;
  x.identifierLength = 4;
  std::memcpy(x.identifier, "\x2a\x03\x04\x05", 4);
  x.valueLength = 3;
  std::memcpy(x.value, "\x0c\x01\x41", 3);
  a.critical = i.subjectKeyIdentifier.critical = p.critical = c.critical = i.keyUsage.critical =
      e.critical = i.netscapeCertType.critical = i.setCertType.critical =
          i.setHashedRootKey.critical = x.critical = critical;
}

// How OpenSSL reads each extension of fill(), in flag order: its printer's text, or
// (where it has none) the value RFC 5280's ASN.1 and the SET prefix spell out.
struct Want {
  const char* oid;
  const char* text;
  const char* value;
};
constexpr Want kWant[] = {
    {"2.5.29.35", "keyid:0A:0B:0C\nDirName:/C=CN/CN=Root CA\nserial:81:F2", nullptr},
    {"2.5.29.14", "DE:AD:BE:EF", nullptr},
    {"2.5.29.16", "Not Before: Jan  2 03:04:05 2025 GMT, Not After: Jul  8 09:10:11 2060 GMT",
     nullptr},
    {"2.5.29.32", "Policy: 1.2.3.4\n  CPS: http://ca.example/cps\nPolicy: 1.3.6.1.4.1.311.10",
     nullptr},
    {"2.5.29.19", "CA:TRUE, pathlen:200", nullptr},
    {"2.5.29.15", "Digital Signature, Key Encipherment, Certificate Sign, Decipher Only", nullptr},
    {"2.5.29.37", "TLS Web Server Authentication, E-mail Protection", nullptr},
    {"2.16.840.1.113730.1.1", "SSL Client, SSL Server, SSL CA", nullptr},
    {"2.23.42.7.1", "?", "03 03 00 02 01"},  // 0x0102: first octet 02, second 01
    {"2.23.42.7.0", "?",
     "30 2f 30 2d 02 01 00 30 09 06 05 2b 0e 03 02 1a 05 00 30 07 06 05 67 2a 03 00 00 04 14"
     "a0 a1 a2 a3 a4 a5 a6 a7 a8 a9 aa ab ac ad ae af b0 b1 b2 b3"},
    {"1.2.3.4.5", "?", "0c 01 41"},
};

// Guards every value's DER and both conversions: OpenSSL reads each extension alone and
// all of them together, critical or not; the record read back has the same flags
// (the private extension is never reported) and encodes to the same DER.
TEST(ExtensionValues, OpenSslReadsEachAndTheRecordComesBack) {
  for (std::size_t k = 0; k <= 11; ++k) {
    for (u32 critical : {0u, 1u}) {
      SCOPED_TRACE(::testing::Message() << "extension " << k << " critical " << critical);
      auto info = blank();
      fill(*info, critical);
      for (std::size_t j = 0; j < 11; ++j) presence(*info)[j] = (k == 11 ? j < 10 : j == k);
      const Encoded e = encode(*info);
      ASSERT_EQ(e.result, 0u) << ::testing::PrintToString(read_errors());
      const auto seen = openssl_reads(e.der);
      ASSERT_EQ(seen.size(), k == 11 ? 10u : 1u);
      for (std::size_t j = 0; j < seen.size(); ++j) {
        const Want& want = kWant[k == 11 ? j : k];
        EXPECT_EQ(seen[j].oid, want.oid);
        EXPECT_EQ(seen[j].critical, critical == 1);
        EXPECT_EQ(seen[j].text, want.text);
        if (want.value != nullptr) {
          EXPECT_EQ(to_hex(seen[j].value), to_hex(from_hex(want.value)));
        }
      }
      auto back = blank();
      ASSERT_EQ(decode(e.der, back.get()), 0u) << ::testing::PrintToString(read_errors());
      EXPECT_EQ(back->privateExtensionPresent, 0u);
      if (k == 10) continue;  // nothing left to write
      EXPECT_EQ(std::memcmp(presence(*back), presence(*info), 10 * sizeof(u32)), 0);
      EXPECT_EQ(to_hex(encode(*back).der), to_hex(e.der));
    }
  }
}

// The DER of an extension OpenSSL made; the extension is freed.
Bytes extension_der(X509_EXTENSION* ext) {
  EXPECT_NE(ext, nullptr);
  const Bytes der = i2d_bytes(i2d_X509_EXTENSION, static_cast<const X509_EXTENSION*>(ext));
  X509_EXTENSION_free(ext);
  return der;
}

template <class T>
Bytes openssl_extension(int nid, int critical, T* value, void (*free_value)(T*)) {
  X509_EXTENSION* ext = X509V3_EXT_i2d(nid, critical, value);
  free_value(value);
  return extension_der(ext);
}

Bytes openssl_conf(int nid, const char* text) {
  return extension_der(X509V3_EXT_conf_nid(nullptr, nullptr, nid, text));
}

Bytes openssl_authority_key_id() {
  AUTHORITY_KEYID* aki = AUTHORITY_KEYID_new();
  aki->keyid = ASN1_OCTET_STRING_new();
  ASN1_OCTET_STRING_set(aki->keyid, reinterpret_cast<const unsigned char*>("\x11\x22"), 2);
  X509_NAME* name = X509_NAME_new();
  X509_NAME_add_entry_by_txt(name, "O", V_ASN1_PRINTABLESTRING,
                             reinterpret_cast<const unsigned char*>("Acme"), -1, -1, 0);
  X509_NAME_add_entry_by_txt(name, "CN", V_ASN1_PRINTABLESTRING,
                             reinterpret_cast<const unsigned char*>("Root"), -1, -1, 0);
  GENERAL_NAME* gn = GENERAL_NAME_new();
  GENERAL_NAME_set0_value(gn, GEN_DIRNAME, name);
  aki->issuer = GENERAL_NAMES_new();
  sk_GENERAL_NAME_push(aki->issuer, gn);
  aki->serial = ASN1_INTEGER_new();
  ASN1_INTEGER_set(aki->serial, 0x9234);
  return openssl_extension(NID_authority_key_identifier, 0, aki, AUTHORITY_KEYID_free);
}

Bytes openssl_policies() {
  CERTIFICATEPOLICIES* policies = CERTIFICATEPOLICIES_new();
  for (const char* oid : {"1.2.3.4", "2.5.29.32.0"}) {
    POLICYINFO* info = POLICYINFO_new();
    ASN1_OBJECT_free(info->policyid);
    info->policyid = OBJ_txt2obj(oid, 1);
    if (std::strcmp(oid, "1.2.3.4") == 0) {
      POLICYQUALINFO* q = POLICYQUALINFO_new();
      q->pqualid = OBJ_nid2obj(NID_id_qt_cps);
      q->d.cpsuri = ASN1_IA5STRING_new();
      ASN1_STRING_set(q->d.cpsuri, "http://x.example/cps", -1);
      info->qualifiers = sk_POLICYQUALINFO_new_null();
      sk_POLICYQUALINFO_push(info->qualifiers, q);
    }
    sk_POLICYINFO_push(policies, info);
  }
  return openssl_extension(NID_certificate_policies, 1, policies, CERTIFICATEPOLICIES_free);
}

Bytes openssl_usage_period() {
  PKEY_USAGE_PERIOD* period = PKEY_USAGE_PERIOD_new();
  period->notAfter = ASN1_GENERALIZEDTIME_new();
  ASN1_GENERALIZEDTIME_set_string(period->notAfter, "20301231235958Z");
  return openssl_extension(NID_private_key_usage_period, 0, period, PKEY_USAGE_PERIOD_free);
}

// Guards the readers against extensions OpenSSL builds: every value lands in its field,
// with its criticality, and subjectAltName (not supported) is skipped without a flag.
TEST(ExtensionValues, ReadsWhatOpenSslWrites) {
  Bytes all;
  for (const Bytes& e : {openssl_conf(NID_basic_constraints, "critical,CA:TRUE,pathlen:7"),
                         openssl_conf(NID_subject_alt_name, "DNS:a.example"),
                         openssl_conf(NID_key_usage, "digitalSignature,cRLSign,decipherOnly"),
                         openssl_conf(NID_netscape_cert_type, "client,email,objsign"),
                         openssl_conf(NID_subject_key_identifier, "01:02:03:04:05"),
                         openssl_conf(NID_ext_key_usage, "critical,serverAuth,codeSigning"),
                         openssl_authority_key_id(), openssl_policies(), openssl_usage_period()}) {
    all.insert(all.end(), e.begin(), e.end());
  }
  auto info = blank();
  ASSERT_EQ(decode(under_tag3(all), info.get()), 0u) << ::testing::PrintToString(read_errors());
  const CERT_EXTN_INFO& i = *info;
  EXPECT_EQ(std::vector<u32>(presence(*info), presence(*info) + 11),
            (std::vector<u32>{1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0}));
  EXPECT_EQ(i.basicConstraints.cA, 1);
  EXPECT_EQ(i.basicConstraints.pathLenConstraint, 7);
  EXPECT_EQ(i.basicConstraints.pathLenPresent, 1);
  EXPECT_EQ(i.basicConstraints.critical, 1);
  EXPECT_EQ(i.keyUsage.bits, 0x80u | 0x02u | 0x8000u);
  EXPECT_EQ(i.keyUsage.critical, 0u);
  EXPECT_EQ(i.netscapeCertType.bits, 0x80u | 0x20u | 0x10u);
  EXPECT_EQ(
      to_hex(i.subjectKeyIdentifier.keyIdentifier, i.subjectKeyIdentifier.keyIdentifierLength),
      "0102030405");
  ASSERT_EQ(i.extKeyUsage.count, 2u);
  EXPECT_EQ(i.extKeyUsage.critical, 1u);
  EXPECT_EQ(to_hex(i.extKeyUsage.purpose[1], i.extKeyUsage.purposeLength[1]), "2b06010505070303");
  const auto& a = i.authorityKeyIdentifier;
  EXPECT_EQ(to_hex(a.keyIdentifier, a.keyIdentifierLength), "1122");
  EXPECT_EQ(a.nameCount, 1u);
  EXPECT_STREQ(a.authorityCertIssuer[0].slot[1], "Acme");
  EXPECT_STREQ(a.authorityCertIssuer[0].slot[4], "Root");
  EXPECT_EQ(to_hex(a.authorityCertSerialNumber, a.authorityCertSerialNumberLength), "9234");
  const auto& p = i.certificatePolicies;
  ASSERT_EQ(p.count, 2u);
  EXPECT_EQ(p.critical, 1u);
  EXPECT_EQ(to_hex(p.policyIdentifier[0], p.policyIdentifierLength[0]), "2a0304");
  EXPECT_STREQ(p.qualifier[0], "http://x.example/cps");
  EXPECT_EQ(to_hex(p.policyIdentifier[1], p.policyIdentifierLength[1]), "551d2000");
  EXPECT_STREQ(p.qualifier[1], "");
  EXPECT_EQ(i.privateKeyUsagePeriod.notBeforePresent, 0u);
  EXPECT_EQ(i.privateKeyUsagePeriod.notAfterPresent, 1u);
  EXPECT_STREQ(i.privateKeyUsagePeriod.notAfter, "20301231235958");
}

// Guards the values at the edges: cA FALSE drops the path length, the empty and
// two-octet bit strings, bits above 15, a period with one bound, the SET prefix.
TEST(ExtensionValues, EdgeValues) {
  // clang-format off
  const std::pair<Fill, const char*> cases[] = {
      {[](CERT_EXTN_INFO& i) { i.basicConstraintsPresent = 1, i.basicConstraints = {0, 5, 1, 0}; },
       "30 00"},
      {[](CERT_EXTN_INFO& i) { i.basicConstraintsPresent = 1, i.basicConstraints = {1, 0, 0, 0}; },
       "30 03 01 01 ff"},
      {[](CERT_EXTN_INFO& i) { i.basicConstraintsPresent = 1, i.basicConstraints = {1, 0, 1, 0}; },
       "30 06 01 01 ff 02 01 00"},
      {[](CERT_EXTN_INFO& i) { i.keyUsagePresent = 1, i.keyUsage.bits = 0; }, "03 01 00"},
      {[](CERT_EXTN_INFO& i) { i.keyUsagePresent = 1, i.keyUsage.bits = 0x80; }, "03 02 07 80"},
      {[](CERT_EXTN_INFO& i) { i.keyUsagePresent = 1, i.keyUsage.bits = 0x06; }, "03 02 01 06"},
      {[](CERT_EXTN_INFO& i) { i.keyUsagePresent = 1, i.keyUsage.bits = 0x8000; }, "03 03 07 00 80"},
      {[](CERT_EXTN_INFO& i) { i.keyUsagePresent = 1, i.keyUsage.bits = 0x10080; }, "03 02 07 80"},
      {[](CERT_EXTN_INFO& i) {
         i.privateKeyUsagePeriodPresent = 1, i.privateKeyUsagePeriod = {0, 1, "", "20491231235959", 0};
       }, "30 11 81 0f 32 30 34 39 31 32 33 31 32 33 35 39 35 39 5a"},
      {[](CERT_EXTN_INFO& i) { i.setHashedRootKeyPresent = 1, i.setHashedRootKey.length = 0; },
       "30 2f 30 2d 02 01 00 30 09 06 05 2b 0e 03 02 1a 05 00 30 07 06 05 67 2a 03 00 00 04 14"},
  };
  // clang-format on
  for (const auto& [setup, value] : cases) {
    auto info = blank();
    setup(*info);
    const Encoded e = encode(*info);
    ASSERT_EQ(e.result, 0u) << value;
    const auto seen = openssl_reads(e.der);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(to_hex(seen[0].value), to_hex(from_hex(value)));
    auto back = blank();
    ASSERT_EQ(decode(e.der, back.get()), 0u) << value;
    EXPECT_EQ(to_hex(encode(*back).der), to_hex(e.der)) << value;
    if (info->basicConstraints.cA == 0) {
      EXPECT_EQ(back->basicConstraints.pathLenPresent, 0u);
    }
  }
  auto info = blank();
  fill(*info, 0);
  info->setHashedRootKeyPresent = 1;
  const auto seen = openssl_reads(encode(*info).der);
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].value.size(), 49u);
}

Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

Bytes seq(std::initializer_list<Bytes> parts) {
  return openssl_tlv(true, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL, cat(parts));
}

// Extension { OBJECT IDENTIFIER, [BOOLEAN TRUE], OCTET STRING } by hand.
Bytes ext(const char* oid, const Bytes& value, bool critical = false) {
  return seq({openssl_tlv(false, V_ASN1_OBJECT, V_ASN1_UNIVERSAL, from_hex(oid)),
              critical ? from_hex("01 01 ff") : Bytes{},
              openssl_tlv(false, V_ASN1_OCTET_STRING, V_ASN1_UNIVERSAL, value)});
}
Bytes ext(const char* oid, const char* value, bool critical = false) {
  return ext(oid, from_hex(value), critical);
}

// Guards the reading of lists that hold more than the supported: an unknown identifier
// and subjectAltName are kept in the list and set no flag, and the first of two
// occurrences counts.
TEST(ExtensionList, UnknownKeptAndFirstOccurrenceCounts) {
  const Bytes der =
      under_tag3(cat({ext("2a 03 04 05", "05 00", true), ext("55 1d 11", "30 06 82 04 61 2e 65 78"),
                      ext("55 1d 0f", "03 02 05 a0"), ext("55 1d 0f", "03 02 07 80")}));
  auto info = blank();
  ASSERT_EQ(decode(der, info.get()), 0u) << ::testing::PrintToString(read_errors());
  EXPECT_EQ(info->keyUsagePresent, 1u);
  EXPECT_EQ(info->keyUsage.bits, 0xa0u);
  EXPECT_EQ(info->authorityKeyIdentifierPresent + info->basicConstraintsPresent, 0u);

  hylorn::X509_EXTN_CONTEXT ctx{};
  ASSERT_EQ(hylorn::Cert_Decode_X509_Extensions_Begin(u32(der.size()), der.data(), &ctx), 0u);
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
  // Numbers without an identifier.
  for (u32 number : {0u, 13u, 22u, 25u, 39u, 49u, 59u, 62u, 1000u}) {
    EXPECT_EQ(hylorn::Find_X509_EXTN_By_Number(&ctx, number), 1u) << number;
    EXPECT_EQ(read_errors(), (Entries{{520, 1, "Uid error"}})) << number;
  }
  EXPECT_EQ(hylorn::Cert_Decode_X509_Extensions_End(&ctx), 0u);
  EXPECT_EQ(ctx.head, nullptr);
}

// Guards the three taggings one list coder serves: [3] for certificates, [0] for CRLs,
// none for a revoked entry; each reads back only under its own tagging.
TEST(ExtensionList, Taggings) {
  const Bytes one = ext("55 1d 14", "02 01 05");
  for (u8 tag : {hylorn::kCertExtensionsTag, hylorn::kCrlExtensionsTag, hylorn::kBareExtensions}) {
    hylorn::X509_EXTN_CONTEXT ctx{};
    ASSERT_EQ(hylorn::Cert_Encode_X509_Extensions_Begin(&ctx), 0u);
    ASSERT_EQ(hylorn::Create_One_New_X509_EXTN(&ctx), 0u);
    ASSERT_EQ(hylorn::Der_Decode_X509_Extn(u32(one.size()), one.data(), ctx.cursor), 0u);
    DATA_BUFFER out{0, nullptr};
    ASSERT_EQ(hylorn::Cert_Encode_X509_Extensions_End(&ctx, &out, tag), 0u);
    EXPECT_EQ(ctx.head, nullptr);
    const Bytes der(out.data, out.data + out.length);
    hylorn::free_DATA_BUFFER(&out);
    const Bytes seq = openssl_tlv(true, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL, one);
    EXPECT_EQ(to_hex(der), to_hex(tag == hylorn::kBareExtensions
                                      ? seq
                                      : openssl_tlv(true, tag, V_ASN1_CONTEXT_SPECIFIC, seq)));
    for (u8 read_as :
         {hylorn::kCertExtensionsTag, hylorn::kCrlExtensionsTag, hylorn::kBareExtensions}) {
      EXPECT_EQ(
          hylorn::Cert_Decode_X509_Extensions_Begin(u32(der.size()), der.data(), &ctx, read_as),
          read_as == tag ? 0u : 1u);
      hylorn::Cert_Decode_X509_Extensions_End(&ctx);
    }
  }
}

// Guards the failures of both directions, read back from the error list.
TEST(ExtensionErrors, Entries) {
  auto none = blank();
  EXPECT_EQ(encode(*none).result, 1u);
  EXPECT_EQ(read_errors(),
            (Entries{{518, 1, "no extension"}, {313, 18, "Cert_Encode_X509_Extensions_End"}}));
  auto empty_serial = blank();
  empty_serial->authorityKeyIdentifierPresent = 1;
  empty_serial->authorityKeyIdentifier.authorityCertSerialNumberPresent = 1;
  EXPECT_EQ(encode(*empty_serial).result, 1u);
  EXPECT_EQ(read_errors(), (Entries{{111, 1, "data length equal zero"},
                                    {525, 7, "ASN1_Encode_Integer"},
                                    {526, 5, "Encode_XEXT_AuthorityKeyIdentifier"},
                                    {313, 2, "u2l_XEXT_AuthorityKeyIdentifier"}}));

  const Bytes cps = from_hex("06 08 2b 06 01 05 05 07 02 01");
  const Bytes long_cps = openssl_tlv(false, V_ASN1_IA5STRING, V_ASN1_UNIVERSAL, Bytes(256, 'q'));
  Bytes seventeen;
  for (int k = 0; k < 17; ++k) seventeen = cat({seventeen, from_hex("30 03 06 01 2a")});
  const Bytes prefix = from_hex(
      "30 2f 30 2d 02 01 00 30 09 06 05 2b 0e 03 02 1a 05 00 30 07 06 05 67 2a 03 00 00 04 14");
  const char* kLists = "Cert_Decode_X509_Extensions_Begin";
  const char* kBad = "certificate encode error";
  // clang-format off
  const std::pair<Bytes, Entries> cases[] = {
      {from_hex("a3 02 30 00"), {{519, 5, "no extension"}, {523, 1, kLists}}},
      {from_hex("a0 02 30 00"), {{519, 2, "ASN1_Decode_Explicit_Tag"}, {523, 1, kLists}}},
      {under_tag3(from_hex("30 05 06 03 55 1d 13")),
       {{502, 4, kBad}, {519, 8, "Der_Decode_X509_Extn"}, {523, 1, kLists}}},
      {under_tag3(ext("55 1d 20", seq({seq({from_hex("06 03 2a 03 04"), seq({seq({cps, long_cps})})})}))),
       {{540, 4, "policy qualifier too long"}, {523, 2, "l2u_XEXT_CertificatePolicies"}}},
      {under_tag3(ext("55 1d 20", ("30 25 30 23 06 21" + std::string(66, '1')).c_str())),
       {{540, 3, "policy identifier too long"}, {523, 2, "l2u_XEXT_CertificatePolicies"}}},
      {under_tag3(ext("55 1d 20", seq({seventeen}))),
       {{540, 2, "too many policies"}, {523, 2, "l2u_XEXT_CertificatePolicies"}}},
      {under_tag3(ext("67 2a 07 00", cat({prefix, Bytes(65, 7)}))),
       {{565, 2, "hashed root key too long"}, {523, 2, "l2u_SET_EXT_hashedRootKey"}}},
      {under_tag3(ext("67 2a 07 00", "30 2f 30 2d")),
       {{564, 1, kBad}, {565, 1, "Decode_SET_EXT_hashedRootKey"}, {523, 2, "l2u_SET_EXT_hashedRootKey"}}},
      {under_tag3(ext("55 1d 13", "30 06 01 01 ff 04 01 00")),
       {{508, 6, kBad}, {509, 1, "Decode_XEXT_BasicConstraints"}, {523, 2, "l2u_XEXT_BasicConstraints"}}},
      {under_tag3(ext("55 1d 13", "30 0a 01 01 ff 02 05 01 00 00 00 00")),
       {{508, 5, kBad}, {509, 1, "Decode_XEXT_BasicConstraints"}, {523, 2, "l2u_XEXT_BasicConstraints"}}},
      {under_tag3(ext("55 1d 23", "30 02 82 00")),
       {{302, 1, "serial number error"}, {528, 3, "l2u_serialNumber"},
        {523, 2, "l2u_XEXT_AuthorityKeyIdentifier"}}},
      {under_tag3(ext("55 1d 23", "30 03 83 01 00")),
       {{527, 7, kBad}, {528, 1, "Decode_XEXT_AuthorityKeyIdentifier"},
        {523, 2, "l2u_XEXT_AuthorityKeyIdentifier"}}},
      {under_tag3(ext("55 1d 10", "30 06 80 04 32 30 32 35")),
       {{536, 2, "time error"}, {523, 2, "l2u_XEXT_PrivateKeyUsagePeriod"}}},
      {under_tag3(ext("55 1d 0e", cat({from_hex("04 41"), Bytes(65, 1)}))),
       {{532, 2, "key identifier too long"}, {523, 2, "l2u_XEXT_SubjectKeyIdentifier"}}},
      {under_tag3(ext("55 1d 0f", "04 01 00")),
       {{106, 2, "tag type"}, {543, 1, "ASN1_Decode_Bit_String"}, {544, 1, "Decode_XEXT_KeyUsage"},
        {523, 2, "l2u_XEXT_KeyUsage"}}},
  };
  // clang-format on
  for (const auto& [der, entries] : cases) {
    auto out = blank();
    EXPECT_EQ(decode(der, out.get()), 1u) << to_hex(der);
    EXPECT_EQ(read_errors(), entries) << to_hex(der);
  }
}

// Every extension at once.
std::unique_ptr<CERT_EXTN_INFO> everything() {
  auto info = blank();
  fill(*info, 1);
  for (std::size_t j = 0; j < 11; ++j) presence(*info)[j] = 1;
  return info;
}

// Guards the bounds of every decoder on the way: each truncated prefix fails, and each
// single-byte change either reads or fails cleanly (the sanitizer build checks reads and
// leaks).
TEST(ExtensionDamage, PrefixesAndMutations) {
  const Bytes der = encode(*everything()).der;
  ASSERT_GT(der.size(), 300u);
  for (std::size_t n = 0; n < der.size(); ++n) {
    auto info = blank();
    EXPECT_EQ(decode(Bytes(der.begin(), der.begin() + long(n)), info.get()), 1u) << n;
  }
  for (std::size_t k = 0; k < der.size(); ++k) {
    for (u8 change : {u8(0x00), u8(0xff), u8(der[k] ^ 0x01), u8(der[k] ^ 0x80)}) {
      Bytes bad = der;
      bad[k] = change;
      auto info = blank();
      decode(bad, info.get());
    }
  }
}

// Guards each allocation of both directions: a failure answers 1 with the walk's own
// entry last and leaves nothing allocated.
TEST(ExtensionDamage, AllocationFailures) {
  const auto info = everything();
  const Bytes der = encode(*info).der;
  for (auto [fn, call] :
       {std::pair<int, std::function<u32()>>{313, [&] { return encode(*info).result; }},
        {523, [&] {
           auto out = blank();
           return decode(der, out.get());
         }}}) {
    for (int n = 1;; ++n) {
      u32 r;
      bool fired;
      {
        FailNthMalloc fail(n);
        r = call();
        fired = fail.fired();
      }
      if (!fired) {
        EXPECT_EQ(r, 0u);
        EXPECT_GT(n, 40) << fn;  // every extension allocates
        break;
      }
      EXPECT_EQ(r, 1u) << n;
      const auto entries = read_errors();
      ASSERT_FALSE(entries.empty()) << n;
      EXPECT_EQ(entries.back().func_no, fn) << n;
    }
  }
}

}  // namespace
