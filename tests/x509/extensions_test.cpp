#include "x509/extensions.h"

#include <gtest/gtest.h>
#include <openssl/x509v3.h>

#include <cstring>

#include "fixtures.h"

namespace {

using namespace x509_test;
using hylorn::CERT_EXTN_INFO;
using hylorn::DATA_BUFFER;
using hylorn::u32;

Bytes encode(const CERT_EXTN_INFO& info) {
  return encoded([&](DATA_BUFFER* o) { return hylorn::u2l_CERT_EXTN_INFO(&info, o); });
}

// l2u_extensions on a block of exactly der's size, into a fresh record.
std::pair<u32, std::unique_ptr<CERT_EXTN_INFO>> decode(const Bytes& der) {
  auto copy = std::make_unique<u8[]>(der.size());
  std::copy(der.begin(), der.end(), copy.get());
  const DATA_BUFFER in{size_of(der), der.empty() ? nullptr : copy.get()};
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
    if (info.basicConstraints.cA == 0) {
      EXPECT_EQ(back->basicConstraints.pathLenPresent, 0u);
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

// Unknown extensions are kept without a flag; the first of two occurrences counts.
TEST(ExtensionList, UnknownKeptAndFirstOccurrenceCounts) {
  const Bytes der = under_tag3(concat({ext("2a030405", "0500", true), ext("551d11", "30028200"),
                                       ext("551d0f", "030205a0"), ext("551d0f", "03020780")}));
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

// [3] for certificates, [0] for CRLs, none for a revoked entry; each reads only its own.
TEST(ExtensionList, Taggings) {
  const Bytes one = ext("551d14", "020105");
  for (u8 tag : {hylorn::kCertExtensionsTag, hylorn::kCrlExtensionsTag, hylorn::kBareExtensions}) {
    hylorn::X509_EXTN_CONTEXT ctx{};
    ASSERT_EQ(hylorn::Cert_Encode_X509_Extensions_Begin(&ctx), 0u);
    ASSERT_EQ(hylorn::Create_One_New_X509_EXTN(&ctx), 0u);
    ASSERT_EQ(hylorn::Der_Decode_X509_Extn(size_of(one), one.data(), ctx.cursor), 0u);
    const Bytes der = encoded(
        [&](DATA_BUFFER* o) { return hylorn::Cert_Encode_X509_Extensions_End(&ctx, o, tag); });
    EXPECT_EQ(ctx.head, nullptr);
    const Bytes list = tlv(0x30, one);
    EXPECT_EQ(to_hex(der), to_hex(tag == hylorn::kBareExtensions ? list : tlv(0xA0 | tag, list)));
    for (u8 as : {hylorn::kCertExtensionsTag, hylorn::kCrlExtensionsTag, hylorn::kBareExtensions}) {
      EXPECT_EQ(hylorn::Cert_Decode_X509_Extensions_Begin(size_of(der), der.data(), &ctx, as),
                as == tag ? 0u : 1u);
      hylorn::Cert_Decode_X509_Extensions_End(&ctx);
    }
  }
}

TEST(ExtensionErrors, Entries) {
  CERT_EXTN_INFO none{}, empty_serial{};
  EXPECT_EQ(encode(none), Bytes{});
  EXPECT_EQ(read_errors(),
            (Entries{{518, 1, "no extension"}, {313, 18, "Cert_Encode_X509_Extensions_End"}}));
  empty_serial.authorityKeyIdentifierPresent = 1;
  empty_serial.authorityKeyIdentifier.authorityCertSerialNumberPresent = 1;
  EXPECT_EQ(encode(empty_serial), Bytes{});
  EXPECT_EQ(read_errors(), (Entries{{111, 1, "data length equal zero"},
                                    {525, 7, "ASN1_Encode_Integer"},
                                    {526, 5, "Encode_XEXT_AuthorityKeyIdentifier"},
                                    {313, 2, "u2l_XEXT_AuthorityKeyIdentifier"}}));

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
