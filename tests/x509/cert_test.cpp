#include "x509/cert.h"

#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/x509v3.h>

#include "fixtures.h"
#include "support/openssl_bytes.h"
#include "support/openssl_rsa.h"

namespace {

using namespace x509_test;

const Name kRootName = {"CN", "Hylorn Test", "Roots", "", "Hylorn Root"};
const Name kInterName = {"CN", "Hylorn Test",   "", "Beijing", "Hylorn Issuing", "", "", "", "",
                         "",   "ca@example.com"};
const Name kLeafName = {"CN",           "Leaf Org", "Leaf Unit",        "Shanghai",
                        "leaf.example", "Pudong",   "Engineer",         "Zhang",
                        "Wei",          "ZW",       "leaf@example.com", "1 Leaf Road",
                        "200120",       "PO 7",     "+86 21 5555",      "12345"};

const Bytes kPolicy1 = from_hex("2B0601040186 8D1F01");  // 1.3.6.1.4.1.99999.1
const Bytes kPolicy2 = from_hex("2A0304");               // 1.2.3.4
const Bytes kRootKeyHash = from_hex("00112233445566778899AABBCCDDEEFF01234567");

// Root, intermediate (MD5) and a leaf with every extension the arguments can ask for.
CertInput root_input() {
  CertInput in{.serial = {1}, .issuer = kRootName, .subject = kRootName};
  in.pubKey = pki().root.pub, in.extFlags = in.critFlags = 0x12, in.cA = 1, in.pathLen = 2;
  in.keyUsage = 0x06, in.keyName = pki().root.file;
  return in;
}
CertInput inter_input() {
  CertInput in = root_input();
  in.serial = {0x02}, in.sigAlg = 2, in.subject = kInterName, in.pubKey = pki().inter.pub;
  in.extFlags = 0x13, in.akiIssuer = kRootName, in.akiSerial = {0x01}, in.pathLen = 0;
  return in;
}
CertInput leaf_input() {
  CertInput in{.serial = {0x0A, 0x0B}, .issuer = kInterName, .subject = kLeafName};
  in.pubKey = pki().leaf.pub, in.extFlags = 0x1DF, in.critFlags = 0x12, in.akiSerial = {0x02};
  in.akiIssuer = kRootName, in.pkupNotBefore = "20210101000000", in.pkupNotAfter = "20301231235959";
  in.policies = {Policy{kPolicy1, "http://example.com/cps", {}}, Policy{kPolicy2, "", {}}};
  in.keyUsage = 0xA0, in.nsCertType = 0xA0, in.setCertType = 0x80;  // SSL client, S/MIME
  in.hashedRootKey = kRootKeyHash, in.keyName = pki().inter.file;
  return in;
}

Bytes issue(const CertInput& in) {
  Bytes der;
  EXPECT_EQ(encode_cert(in, &der), 0u) << error_text();
  return der;
}

const Bytes& leaf_cert() {
  static const Bytes der = issue(leaf_input());
  return der;
}

TEST(CertTools, ReadEveryFieldAndAcceptTheChain) {
  const Bytes root = issue(root_input()), inter = issue(inter_input());
  const auto file = [](const std::string& name) { return pki().dir.path(name + ".der"); };
  write_file(file("root"), root), write_file(file("inter"), inter);
  write_file(file("leaf"), leaf_cert());
  expect_outputs({
      // clang-format off
      {"openssl x509 -inform DER -text -noout -in " + file("leaf"),
       {"Version: 3 (0x2)", "Serial Number: 2571 (0xa0b)", "Signature Algorithm: sha1WithRSA",
        "Not Before: Jan  1 00:00:00 2020 GMT", "Not After : Dec 31 23:59:59 2049 GMT",
        "Subject: C = CN, O = Leaf Org, OU = Leaf Unit, ST = Shanghai, CN = leaf.example",
        "Public-Key: (1024 bit)", "X509v3 Authority Key Identifier: \n",
        "DirName:/C=CN/O=Hylorn Test/OU=Roots/CN=Hylorn Root", "serial:02",
        "X509v3 Key Usage: critical", "Digital Signature, Key Encipherment",
        "X509v3 Private Key Usage Period: \n",
        "Not Before: Jan  1 00:00:00 2021 GMT, Not After: Dec 31 23:59:59 2030 GMT",
        "Policy: 1.3.6.1.4.1.99999.1", "CPS: http://example.com/cps", "Policy: 1.2.3.4",
        "X509v3 Basic Constraints: critical", "CA:FALSE", "Netscape Cert Type: \n",
        "SSL Client, S/MIME", "setCext-hashedRoot: \n", "setCext-certType: \n"}},
      {"openssl verify -auth_level 0 -trusted " + file("root") + " -untrusted " + file("inter") +
       " " + file("leaf"), {}},
      // clang-format on
  });
}

// The SET and SignedData by hand from RFC 2315, read by OpenSSL; oversized slots refused.
TEST(CertChain, SetOfTwoSignedDataAndSlotLimits) {
  // The chain of x and y, or with y empty the PKCS #7 of xLen octets of x; empty when
  // refused, and then out keeps 0xEE and 77.
  const auto chain_of = [](const Bytes& x, const Bytes& y, unsigned xLen = 0) {
    Bytes out(HYLORN_PKCS7_CHAIN_SIZE, 0xEE);
    unsigned outLen = 77;
    const unsigned rc =
        y.empty()
            ? Crypt_Gen_Ie_Cert_Chain(x.data(), xLen ? xLen : size_of(x), out.data(), &outLen)
            : Crypt_Gen_Cert_Chain(x.data(), size_of(x), y.data(), size_of(y), out.data(), &outLen);
    EXPECT_TRUE(rc == 0 || (rc == 1 && outLen == 77 && out == Bytes(out.size(), 0xEE)));
    out.resize(rc == 0 ? outLen : 0);
    return out;
  };
  const Bytes a = leaf_cert(), b = issue(inter_input()), chain = chain_of(a, b);
  EXPECT_EQ(chain, tlv(0x31, concat({a, b})));
  const Bytes p7 = chain_of(chain, {}), oid7 = from_hex("2A864886F70D0107");
  const Bytes signedData = seq({from_hex("020101 3100"), seq({tlv(0x06, concat({oid7, {0x01}}))}),
                                tlv(0xA0, concat({a, b})), from_hex("3100")});
  EXPECT_EQ(p7, seq({tlv(0x06, concat({oid7, {0x02}})), tlv(0xA0, signedData)}));
  write_file(pki().dir.path("chain.p7b"), p7);
  expect_outputs(
      {{"openssl pkcs7 -inform DER -print_certs -noout -in " + pki().dir.path("chain.p7b"),
        {"subject=C = CN, O = Leaf Org", "subject=C = CN, O = Hylorn Test, ST = Beijing"}}});

  const Bytes big(HYLORN_CHAIN_SLOT_SIZE + 1, 0x30), fits(HYLORN_CHAIN_SLOT_SIZE, 0x30);
  EXPECT_EQ(chain_of(fits, fits).size(), 4u + 2 * HYLORN_CHAIN_SLOT_SIZE);
  EXPECT_EQ(chain_of(fits, big), Bytes{});
  EXPECT_EQ(read_errors(), (Entries{{321, 1, "data too length"}}));
  EXPECT_EQ(chain_of(big, {}, HYLORN_CHAIN_SIZE + 1), Bytes{});
  EXPECT_EQ(read_errors(), (Entries{{604, 1, "data too length"}}));
}

// The decoded certificate as the arguments that would encode it (no key name).
CertInput as_input(const CertOutput& o) {
  CertInput in{u8(o.version), bytes(o.serial, o.serialLen), (unsigned short)o.sigAlg};
  in.params = bytes(o.params, o.paramsLen), in.issuer = name_of(o.issuer);
  in.notBefore = o.notBefore, in.notAfter = o.notAfter, in.subject = name_of(o.subject);
  in.pubKey = bytes(o.pubKey, o.pubKeyLen), in.extFlags = o.extFlags, in.critFlags = o.critFlags;
  in.akiIssuer = name_of(o.akiIssuer), in.akiSerial = bytes(o.akiSerial, o.akiSerialLen);
  unsigned policies = 0;
  for (int i = 0; i < 4; ++i) {
    in.policies[i] = {bytes(o.policyOid[i], o.policyOidLen[i]), o.policyQualifier[i], {}};
    policies += o.policyOidLen[i] > 0;
  }
  EXPECT_EQ(o.policyCount, policies);
  in.pkupNotBefore = o.pkupNotBefore, in.pkupNotAfter = o.pkupNotAfter, in.cA = o.cA;
  in.pathLen = o.pathLen, in.keyUsage = o.keyUsage, in.nsCertType = o.nsCertType;
  in.setCertType = o.setCertType, in.hashedRootKey = bytes(o.hashedRootKey, o.hashedRootKeyLen);
  EXPECT_EQ(o.issuerUIDLen + o.subjectUIDLen + o.subjectKeyIdLen, 0u);  // never reported
  EXPECT_EQ(o.signatureLen, 128u);
  return in;
}

CertInput round_trip(const CertInput& in) {
  CertOutput out;
  EXPECT_EQ(decode_cert(issue(in), &out), 0u) << error_text();
  return as_input(out);
}

// What is selected comes back; what is not reads as empty.
TEST(CertRoundTrip, EverySelectedExtensionComesBack) {
  const std::pair<unsigned, unsigned> selections[] = {
      {0, 0},    {0x1, 0x1},   {0x2, 0},   {0x4, 0x4},     {0x8, 0},      {0x10, 0x10},
      {0x40, 0}, {0x80, 0x80}, {0x100, 0}, {0x1FF, 0x1FF}, {0x1DF, 0x0A5}};
  for (const auto& [extFlags, critFlags] : selections) {
    CertInput in = leaf_input();
    in.extFlags = extFlags, in.critFlags = critFlags, in.cA = 1, in.pathLen = 5;
    CertInput want = in;
    want.keyName = "", want.extFlags &= 0x1DF, want.critFlags &= want.extFlags;
    const auto has = [&](unsigned bit) { return (want.extFlags & bit) != 0; };
    if (!has(0x1)) want.akiIssuer = {}, want.akiSerial = {};
    if (!has(0x2)) want.keyUsage = 0;
    if (!has(0x4)) want.pkupNotBefore = want.pkupNotAfter = "";
    if (!has(0x8)) want.policies = {};
    if (!has(0x10)) want.cA = 0, want.pathLen = 0;
    if (!has(0x40)) want.nsCertType = 0;
    if (!has(0x80)) want.hashedRootKey = {};
    if (!has(0x100)) want.setCertType = 0;
    EXPECT_EQ(round_trip(in), want) << std::hex << extFlags << " " << critFlags;
  }
  // Without a serial the authority key identifier holds none, as OpenSSL reads it.
  CertInput in = leaf_input();
  in.akiSerial = {};
  const Bytes der = issue(in);
  const u8* p = der.data();
  X509* x = d2i_X509(nullptr, &p, long(der.size()));
  ASSERT_NE(x, nullptr);
  AUTHORITY_KEYID* aki = static_cast<AUTHORITY_KEYID*>(
      X509_get_ext_d2i(x, NID_authority_key_identifier, nullptr, nullptr));
  ASSERT_NE(aki, nullptr);
  EXPECT_EQ(aki->serial, nullptr);
  AUTHORITY_KEYID_free(aki);
  X509_free(x);
}

// Policies of length <= 0 are skipped; pathLen -1 is absent, 0 is written.
TEST(CertEncode, SkippedPoliciesAbsentPathLengthAndBound) {
  CertInput in = leaf_input();
  in.policies = {Policy{kPolicy2, "", 0}, Policy{kPolicy2, "x", -3}, Policy{kPolicy1, "a", {}},
                 Policy{kPolicy2, "b", {}}};
  in.cA = 1, in.pathLen = -1, in.pkupNotBefore = "";
  CertInput want = in;
  want.keyName = "", want.critFlags = 0x12;
  want.policies = {Policy{kPolicy1, "a", {}}, Policy{kPolicy2, "b", {}}};
  EXPECT_EQ(round_trip(in), want);
  in.pathLen = want.pathLen = 0;  // a length of 0 is written, not taken for none
  EXPECT_EQ(round_trip(in), want);
}

TEST(CertEncode, RefusesArgumentsLongerThanTheirFieldsAndAMissingKey) {
  const Entries text{{322, 1, "text too long for its field"}},
      octets{{322, 2, "octets too long for their field"}};
  const std::pair<void (*)(CertInput*), Entries> cases[] = {
      {[](CertInput* in) { in->serial = Bytes(129, 1); }, octets},
      {[](CertInput* in) { in->params = Bytes(1025, 5); }, octets},
      {[](CertInput* in) { in->subject[kCN] = std::string(256, 'n'); }, text},
      {[](CertInput* in) { in->akiIssuer[kO] = std::string(256, 'o'); }, text},
      {[](CertInput* in) { in->notAfter = std::string(64, '2'); }, text},
      {[](CertInput* in) { in->pkupNotBefore = std::string(64, '2'); }, text},
      {[](CertInput* in) { in->akiSerial = Bytes(129, 1); }, octets},
      {[](CertInput* in) { in->policies[2].oid = Bytes(33, 0x2A); }, octets},
      {[](CertInput* in) { in->policies[0].qualifier = std::string(256, 'q'); }, text},
      {[](CertInput* in) { in->hashedRootKey = Bytes(65, 7); }, octets},
      {[](CertInput* in) { in->pubKey = Bytes(1025, 7); }, octets},
      {[](CertInput* in) { in->keyName = std::string(128, 'k'); }, text},
      {[](CertInput* in) { in->keyName = pki().dir.path("missing.key"); },
       {{317, 3, "Crypt_Gen_Signature"}}},
  };
  for (const auto& [change, entries] : cases) {
    CertInput in = leaf_input();
    change(&in);
    Bytes der;
    EXPECT_EQ(encode_cert(in, &der), 1u) << &change - &cases[0].first;
    EXPECT_EQ(read_errors(), entries) << &change - &cases[0].first;
  }
  CertInput at_limits = leaf_input();
  at_limits.serial = Bytes(128, 0x41);
  at_limits.subject[kCN] = std::string(255, 'n');
  at_limits.policies[2] = {Bytes(32, 0x2A), std::string(255, 'q'), {}};
  issue(at_limits);
}

std::pair<int, std::string> item(const Bytes& cert, unsigned number) {
  Bytes out(HYLORN_CERT_ITEM_SIZE, 0);  // exactly the item's room
  unsigned outLen = 0;
  const int rc =
      Crypt_Get_Char_Info_FromCert(cert.data(), size_of(cert), number, out.data(), &outLen);
  return {rc, rc == 0 ? std::string(out.begin(), out.begin() + outLen) : ""};
}

TEST(CertQuery, EveryItemTheKeyAndASignature) {
  const std::pair<unsigned, std::string> items[] = {
      {1, "2"},
      {2, "2571"},
      {3, "sha1WithRSAEncryption"},
      {11, "20200101000000"},
      {12, "20491231235959"},
      {20, std::string(pki().leaf.pub.begin(), pki().leaf.pub.end())},
      {21,
       "C=CN, O=Leaf Org, OU=Leaf Unit, ST=Shanghai, CN=leaf.example, L=Pudong, "
       "title=Engineer, SN=Zhang, GN=Wei, initials=ZW, emailAddress=leaf@example.com, "
       "postalAddress=1 Leaf Road, postalCode=200120, postOfficeBox=PO 7, "
       "telephoneNumber=+86 21 5555, telexNumber=12345"}};
  for (const auto& [number, text] : items) {
    EXPECT_EQ(item(leaf_cert(), number), std::make_pair(0, text)) << "item " << number;
  }
  // Items 4-10 and 13-19: C, O, OU, ST, CN, L and emailAddress of issuer and subject.
  for (unsigned k = 0; k < 7; ++k) {
    const int slot = k < 6 ? int(k) : kEmail;
    EXPECT_EQ(item(leaf_cert(), 4 + k), std::make_pair(0, kInterName[slot])) << 4 + k;
    EXPECT_EQ(item(leaf_cert(), 13 + k), std::make_pair(0, kLeafName[slot])) << 13 + k;
  }
  for (unsigned number : {0u, 22u, 1000u}) EXPECT_EQ(item(leaf_cert(), number).first, -1);
  const Bytes broken(leaf_cert().begin(), leaf_cert().end() - 1);
  for (unsigned number : {0u, 1u, 22u}) EXPECT_EQ(item(broken, number).first, 1);
  CertInput in = leaf_input();
  in.sigAlg = 1;
  EXPECT_EQ(item(issue(in), 3).second, "md2WithRSAEncryption");
  // Three 255-character slots make 776 characters; with ", ST=" and a fourth the line
  // fits up to the item's room less its NUL: 1,023 characters, not 1,024.
  in.subject = Name{};
  for (int slot : {kC, kO, kOU}) in.subject[slot] = std::string(255, 'x');
  EXPECT_EQ(item(issue(in), 21).second.size(), 776u);
  in.subject[kST] = std::string(242, 'y');
  EXPECT_EQ(item(issue(in), 21).second.size(), 1023u);
  in.subject[kST] = std::string(243, 'y');
  const Bytes longName = issue(in);
  EXPECT_EQ(item(longName, 21).first, -1);
  EXPECT_EQ(item(longName, 16), std::make_pair(0, std::string(243, 'y')));

  // The key as the certificate holds it; an OpenSSL signature checked under it.
  Bytes key(HYLORN_PUBKEY_SIZE);
  unsigned keyLen = 0;
  ASSERT_EQ(
      Crypt_Get_PubKey_FromCert(leaf_cert().data(), size_of(leaf_cert()), key.data(), &keyLen), 0u);
  EXPECT_EQ(Bytes(key.begin(), key.begin() + keyLen), pki().leaf.pub);
  const Bytes data = bytes_of("signed by the leaf"),
              sig = openssl_sign(pki().leaf.evp.get(), EVP_sha1(), data);
  // another key: the block does not open; no certificate: no key
  const std::pair<Bytes, unsigned> cases[] = {
      {leaf_cert(), 0}, {issue(inter_input()), 1}, {bytes_of("not a certificate"), 3}};
  for (const auto& [cert, answer] : cases) {
    EXPECT_EQ(Crypt_Ver_Signature_ByCert(3, cert.data(), size_of(cert), data.data(), size_of(data),
                                         sig.data(), size_of(sig)),
              answer);
  }
}

using X509Ptr = std::unique_ptr<X509, decltype([](X509* x) { X509_free(x); })>;

// subject: C, O and CN as PrintableString, emailAddress as IA5String; issuer null:
// self-signed.
X509Ptr make_cert(const Key& key, const std::array<const char*, 4>& subject, const Key& issuerKey,
                  X509* issuer, const EVP_MD* md, const Bytes& serial) {
  X509Ptr cert(X509_new());
  X509_set_version(cert.get(), 2);
  BIGNUM* bn = BN_bin2bn(serial.data(), int(serial.size()), nullptr);
  BN_to_ASN1_INTEGER(bn, X509_get_serialNumber(cert.get()));
  BN_free(bn);
  const char* fields[] = {"C", "O", "CN", "emailAddress"};
  for (int i = 0; i < 4; ++i) {
    X509_NAME_add_entry_by_txt(X509_get_subject_name(cert.get()), fields[i],
                               i == 3 ? V_ASN1_IA5STRING : V_ASN1_PRINTABLESTRING,
                               reinterpret_cast<const u8*>(subject[i]), -1, -1, 0);
  }
  X509_set_issuer_name(cert.get(),
                       issuer ? X509_get_subject_name(issuer) : X509_get_subject_name(cert.get()));
  ASN1_TIME_set_string(X509_getm_notBefore(cert.get()), "991231235959Z");
  ASN1_TIME_set_string(X509_getm_notAfter(cert.get()), "20600101000000Z");
  X509_set_pubkey(cert.get(), key.evp.get());
  // In the library's order, so that the TBS re-encodes byte for byte.
  const std::pair<int, const char*> extensions[] = {
      {issuer ? NID_authority_key_identifier : NID_undef, "keyid:always"},
      {NID_subject_key_identifier, "hash"},
      {NID_basic_constraints, issuer ? "critical,CA:FALSE" : "critical,CA:TRUE,pathlen:1"},
      {NID_key_usage, "critical,digitalSignature,keyCertSign"},
      {NID_ext_key_usage, "serverAuth,codeSigning"},
      {NID_netscape_cert_type, "client,email,objsign"}};
  for (const auto& [nid, value] : extensions) {
    if (nid == NID_undef) continue;
    X509V3_CTX ctx;
    X509V3_set_ctx(&ctx, issuer ? issuer : cert.get(), cert.get(), nullptr, nullptr, 0);
    X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value);
    EXPECT_NE(ext, nullptr) << value;
    X509_add_ext(cert.get(), ext, -1);
    X509_EXTENSION_free(ext);
  }
  EXPECT_GT(X509_sign(cert.get(), issuerKey.evp.get(), md), 0);
  return cert;
}

class OpenSslCert : public testing::TestWithParam<std::pair<const char*, unsigned>> {};

TEST_P(OpenSslCert, DecodesFieldByFieldAndVerifiesUnderItsIssuer) {
  const EVP_MD* md = EVP_get_digestbyname(GetParam().first);
  const X509Ptr ca = make_cert(pki().root, {"CN", "OpenSSL CA", "Test CA", "ca@example.org"},
                               pki().root, nullptr, md, {0x07});
  const X509Ptr leaf =
      make_cert(pki().leaf, {"US", "Leaf Inc", "leaf.example.org", "leaf@example.org"}, pki().root,
                ca.get(), md, from_hex("00C0FFEE1234"));
  const Bytes der = i2d_bytes(i2d_X509, static_cast<const X509*>(leaf.get())),
              caDer = i2d_bytes(i2d_X509, static_cast<const X509*>(ca.get()));
  CertOutput out;
  ASSERT_EQ(decode_cert(der, &out), 0u) << error_text();
  EXPECT_EQ(std::make_tuple(out.version, bytes(out.serial, out.serialLen), out.sigAlg,
                            bytes(out.params, out.paramsLen), std::string(out.subject[kCN]),
                            std::string(out.notBefore)),
            std::make_tuple(2u, from_hex("C0FFEE1234"), GetParam().second, from_hex("0500"),
                            std::string("leaf.example.org"), std::string("19991231235959")));
  const ASN1_BIT_STRING* sig = nullptr;
  X509_get0_signature(&sig, nullptr, leaf.get());
  EXPECT_EQ(bytes(out.signature, out.signatureLen), Bytes(sig->data, sig->data + sig->length));
  // AKI (key identifier only), KeyUsage, BasicConstraints, NetscapeCertType.
  EXPECT_EQ(std::make_tuple(out.extFlags, out.nsCertType, out.akiSerialLen, out.critFlags,
                            out.keyUsage, out.cA, out.pathLen),
            std::make_tuple(0x53u, 0xB0u, 0u, 0x12u, 0x84u, u8(0), -1));
  const ASN1_OCTET_STRING* ski = X509_get0_subject_key_id(leaf.get());
  EXPECT_EQ(bytes(out.subjectKeyId, out.subjectKeyIdLen),
            Bytes(ski->data, ski->data + ski->length));
  // The algorithm reported is the outer one, not its copy in the TBS.
  const Bytes md2 = from_hex("300d06092a864886f70d0101020500");
  ASSERT_EQ(decode_cert(seq({elements(der)[0], md2, elements(der)[2]}), &out), 0u);
  EXPECT_EQ(out.sigAlg, 1u);
  ASSERT_EQ(decode_cert(caDer, &out), 0u) << error_text();
  EXPECT_EQ(std::make_pair(out.cA, out.pathLen), std::make_pair(u8(1), 1));

  // Through the caller's record, OpenSSL's TBS re-encodes byte for byte (MD5 only).
  for (const Bytes& cert : {der, caDer}) {
    if (GetParam().second != 2) break;
    const Bytes tbs = elements(cert)[0];
    auto user = std::make_unique<hylorn::USER_X509_TBS_CERT>();
    ASSERT_EQ(hylorn::d2c_USER_X509_TBS_CERT(tbs.data(), size_of(tbs), user.get()), 0u);
    EXPECT_EQ(user->versionPresent, 0);  // not set on the way back
    user->versionPresent = 1;
    Bytes again(hylorn::kTbsMaxSize);
    hylorn::u32 n = 0;
    ASSERT_EQ(hylorn::c2d_USER_X509_TBS_CERT(user.get(), again.data(), &n), 0u);
    EXPECT_EQ(to_hex(bytes(again.data(), n)), to_hex(tbs));
  }
  EXPECT_EQ(verify_cert(der, caDer), 0u);
  EXPECT_EQ(verify_cert(caDer, caDer), 0u);
  EXPECT_EQ(verify_cert(caDer, der), 1u);  // the leaf's key did not sign the CA
}

INSTANTIATE_TEST_SUITE_P(Md5AndSha1, OpenSslCert,
                         testing::Values(std::make_pair("SHA1", 3u), std::make_pair("MD5", 2u)));

}  // namespace
