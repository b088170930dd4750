// Certificates made by the library: read by OpenSSL and GnuTLS's certtool, a chain they
// accept, every selection bit through encode and decode, the queries, the chains, and
// decoders that survive every prefix and every single-byte change.
#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "cert_calls.h"
#include "support/error_list.h"

namespace {

using namespace cert_test;

Name dn(std::initializer_list<std::pair<int, std::string>> attributes) {
  Name n;
  for (const auto& [slot, value] : attributes) n[slot] = value;
  return n;
}

const Name kRootName = dn({{kC, "CN"}, {kO, "Hylorn Test"}, {kOU, "Roots"}, {kCN, "Hylorn Root"}});
const Name kInterName = dn({{kC, "CN"},
                            {kO, "Hylorn Test"},
                            {kST, "Beijing"},
                            {kCN, "Hylorn Issuing"},
                            {kEmail, "ca@example.com"}});
// Every slot filled, in slot order.
const Name kLeafName = {"CN",           "Leaf Org", "Leaf Unit",        "Shanghai",
                        "leaf.example", "Pudong",   "Engineer",         "Zhang",
                        "Wei",          "ZW",       "leaf@example.com", "1 Leaf Road",
                        "200120",       "PO 7",     "+86 21 5555",      "12345"};

const Bytes kPolicy1 = from_hex("2B0601040186 8D1F01");  // 1.3.6.1.4.1.99999.1
const Bytes kPolicy2 = from_hex("2A0304");               // 1.2.3.4
const Bytes kRootKeyHash = from_hex("00112233445566778899AABBCCDDEEFF01234567");

CertInput root_input() {
  CertInput in;
  in.serial = {0x01};
  in.issuer = in.subject = kRootName;
  in.pubKey = pki().root.pub;
  in.extFlags = in.critFlags = 0x12;  // KeyUsage, BasicConstraints
  in.keyUsage = 0x06;                 // keyCertSign, cRLSign
  in.cA = 1;
  in.pathLen = 2;
  in.keyName = pki().root.file;
  return in;
}

// Signed with MD5 (algorithm 2), under the root.
CertInput inter_input() {
  CertInput in = root_input();
  in.serial = {0x02};
  in.sigAlg = 2;
  in.subject = kInterName;
  in.pubKey = pki().inter.pub;
  in.extFlags = 0x13;
  in.akiIssuer = kRootName;
  in.akiSerial = {0x01};
  in.pathLen = 0;
  return in;
}

// Every extension the argument list can ask for, under the intermediate.
CertInput leaf_input() {
  CertInput in;
  in.serial = {0x0A, 0x0B};
  in.issuer = kInterName;
  in.subject = kLeafName;
  in.pubKey = pki().leaf.pub;
  in.extFlags = 0x1DF;
  in.critFlags = 0x12;
  in.akiIssuer = kRootName;
  in.akiSerial = {0x02};
  in.policies[0] = {kPolicy1, "http://example.com/cps", {}};
  in.policies[1] = {kPolicy2, "", {}};
  in.pkupNotBefore = "20210101000000";
  in.pkupNotAfter = "20301231235959";
  in.keyUsage = 0xA0;    // digitalSignature, keyEncipherment
  in.nsCertType = 0xA0;  // SSL client, S/MIME
  in.setCertType = 0x80;
  in.hashedRootKey = kRootKeyHash;
  in.keyName = pki().inter.file;
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

// The DER file and its PEM twin, made by OpenSSL, in the PKI's directory.
std::string pem_file(const Bytes& der, const std::string& name) {
  const std::string base = pki().dir.path(name);
  write_file(base + ".der", der);
  run("openssl x509 -inform DER -in " + base + ".der -out " + base + ".pem");
  return base + ".pem";
}

TEST(CertTools, ReadEveryFieldAndExtension) {
  if (!have_tool("openssl") || !have_tool("certtool")) GTEST_SKIP() << "no openssl/certtool";
  write_file(pki().dir.path("leaf.der"), leaf_cert());
  const std::string file = pki().dir.path("leaf.der");
  const struct {
    std::string command;
    std::vector<std::string> expected;
  } tools[] = {
      // clang-format off
      {"openssl x509 -inform DER -text -noout -in " + file,
       {"Version: 3 (0x2)", "Serial Number: 2571 (0xa0b)", "Signature Algorithm: sha1WithRSA",
        "Issuer: C = CN, O = Hylorn Test, ST = Beijing, CN = Hylorn Issuing, "
        "emailAddress = ca@example.com",
        "Not Before: Jan  1 00:00:00 2020 GMT", "Not After : Dec 31 23:59:59 2049 GMT",
        "C = CN, O = Leaf Org, OU = Leaf Unit, ST = Shanghai, CN = leaf.example, L = Pudong, "
        "title = Engineer, SN = Zhang, GN = Wei, initials = ZW, emailAddress = leaf@example.com, "
        "postalAddress = 1 Leaf Road, postalCode = 200120, telephoneNumber = \"+86 21 5555\", "
        "telexNumber = 12345, postOfficeBox = PO 7",
        "Public-Key: (1024 bit)", "X509v3 Authority Key Identifier: \n",
        "DirName:/C=CN/O=Hylorn Test/OU=Roots/CN=Hylorn Root", "serial:02",
        "X509v3 Key Usage: critical", "Digital Signature, Key Encipherment",
        "X509v3 Private Key Usage Period: \n",
        "Not Before: Jan  1 00:00:00 2021 GMT, Not After: Dec 31 23:59:59 2030 GMT",
        "Policy: 1.3.6.1.4.1.99999.1", "CPS: http://example.com/cps", "Policy: 1.2.3.4",
        "X509v3 Basic Constraints: critical", "CA:FALSE", "Netscape Cert Type: \n",
        "SSL Client, S/MIME", "setCext-hashedRoot: \n", "setCext-certType: \n"}},
      {"certtool --certificate-info --inder --infile " + file,
       {"Version: 3", "Serial Number (hex): 0a0b",
        "Issuer: EMAIL=ca@example.com,CN=Hylorn Issuing,ST=Beijing,O=Hylorn Test,C=CN",
        "2.5.4.21=#13053132333435,telephoneNumber=\\+86 21 5555,postalCode=200120",
        "initials=ZW,givenName=Wei,surName=Zhang,title=Engineer,L=Pudong,CN=leaf.example",
        "Basic Constraints (critical):", "Certificate Authority (CA): FALSE",
        "Key Usage (critical):", "Digital signature.", "Key encipherment.",
        "Certificate Policies (not critical):", "1.3.6.1.4.1.99999.1",
        "URI: http://example.com/cps", "Authority Key Identifier (not critical):",
        "directoryName: CN=Hylorn Root,OU=Roots,O=Hylorn Test,C=CN", "serial: 02",
        "Private Key Usage Period (not critical):", "Not Before: Fri Jan 01 00:00:00 UTC 2021",
        "Not After: Tue Dec 31 23:59:59 UTC 2030", "Hexdump: 030205a0", "Hexdump: 03020780",
        // SEQUENCE { SEQUENCE { INTEGER 0, { sha1, NULL }, { 2.23.42.3.0.0 }, OCTET STRING } }
        "Hexdump: 302f302d020100300906052b0e03021a050030070605672a0300000414"
        "00112233445566778899aabbccddeeff01234567"}},
      // clang-format on
  };
  for (const auto& tool : tools) {
    const ToolRun r = run(tool.command);
    ASSERT_EQ(r.status, 0) << r.output;
    for (const std::string& text : tool.expected) {
      EXPECT_NE(r.output.find(text), std::string::npos) << tool.command << ": " << text << "\n"
                                                        << r.output;
    }
  }
}

// Root -> intermediate (MD5) -> leaf (SHA-1): both tools accept the chain, and so do we.
TEST(CertTools, AcceptChainSignedWithMd5AndSha1) {
  if (!have_tool("openssl") || !have_tool("certtool")) GTEST_SKIP() << "no openssl/certtool";
  const Bytes root = issue(root_input()), inter = issue(inter_input());
  const std::string rootPem = pem_file(root, "root"), interPem = pem_file(inter, "inter"),
                    leafPem = pem_file(leaf_cert(), "leaf");
  const ToolRun ossl = run("openssl verify -auth_level 0 -CAfile " + rootPem + " -untrusted " +
                           interPem + " " + leafPem);
  EXPECT_EQ(ossl.status, 0) << ossl.output;
  const std::string chain = pki().dir.path("chain.pem");
  run("cat " + leafPem + " " + interPem + " " + rootPem + " > " + chain);
  const ToolRun gnutls = run("certtool --verify-chain --verify-allow-broken --infile " + chain);
  EXPECT_EQ(gnutls.status, 0) << gnutls.output;
  EXPECT_NE(gnutls.output.find("Chain verification output: Verified"), std::string::npos)
      << gnutls.output;

  const auto verify = [](const Bytes& cert, const Bytes& issuer) {
    return Crypt_Ver_Cert_ByRootCert(cert.data(), unsigned(cert.size()), issuer.data(),
                                     unsigned(issuer.size()));
  };
  EXPECT_EQ(verify(inter, root), 0u);
  EXPECT_EQ(verify(leaf_cert(), inter), 0u);
  EXPECT_EQ(verify(root, root), 0u);
  EXPECT_EQ(verify(leaf_cert(), root), 1u);  // signed by another key
  EXPECT_EQ(verify(inter, leaf_cert()), 1u);
}

TEST(CertTools, Pkcs7ChainShowsBothCertificates) {
  if (!have_tool("openssl")) GTEST_SKIP() << "no openssl";
  const Bytes inter = issue(inter_input());
  Bytes chain(HYLORN_CHAIN_SIZE), p7(HYLORN_PKCS7_CHAIN_SIZE);
  unsigned chainLen = 0, p7Len = 0;
  ASSERT_EQ(Crypt_Gen_Cert_Chain(leaf_cert().data(), unsigned(leaf_cert().size()), inter.data(),
                                 unsigned(inter.size()), chain.data(), &chainLen),
            0u);
  ASSERT_EQ(Crypt_Gen_Ie_Cert_Chain(chain.data(), chainLen, p7.data(), &p7Len), 0u);
  p7.resize(p7Len);
  write_file(pki().dir.path("chain.p7b"), p7);
  const ToolRun r =
      run("openssl pkcs7 -inform DER -print_certs -noout -in " + pki().dir.path("chain.p7b"));
  ASSERT_EQ(r.status, 0) << r.output;
  EXPECT_NE(r.output.find("subject=C = CN, O = Leaf Org"), std::string::npos) << r.output;
  EXPECT_NE(r.output.find("subject=C = CN, O = Hylorn Test, ST = Beijing"), std::string::npos)
      << r.output;
}

// The SET and the SignedData around it, assembled here from RFC 2315's ASN.1.
TEST(CertChain, SetOfTwoAndSignedDataAroundIt) {
  const Bytes a = tlv(0x30, Bytes(300, 0x11)), b = tlv(0x30, Bytes(20, 0x22));
  Bytes chain(HYLORN_CHAIN_SIZE), p7(HYLORN_PKCS7_CHAIN_SIZE);
  unsigned chainLen = 0, p7Len = 0;
  ASSERT_EQ(Crypt_Gen_Cert_Chain(a.data(), unsigned(a.size()), b.data(), unsigned(b.size()),
                                 chain.data(), &chainLen),
            0u);
  chain.resize(chainLen);
  EXPECT_EQ(chain, tlv(0x31, concat({a, b})));
  ASSERT_EQ(Crypt_Gen_Ie_Cert_Chain(chain.data(), chainLen, p7.data(), &p7Len), 0u);
  p7.resize(p7Len);
  const Bytes oid7 = from_hex("2A864886F70D0107");
  const Bytes signedData =
      tlv(0x30, concat({from_hex("020101 3100"), tlv(0x30, tlv(0x06, concat({oid7, {0x01}}))),
                        tlv(0xA0, concat({a, b})), from_hex("3100")}));
  EXPECT_EQ(p7, tlv(0x30, concat({tlv(0x06, concat({oid7, {0x02}})), tlv(0xA0, signedData)})));
}

TEST(CertChain, RefusesWhatDoesNotFitItsSlots) {
  const Bytes big(HYLORN_CHAIN_SLOT_SIZE + 1, 0x30), fits(HYLORN_CHAIN_SLOT_SIZE, 0x30);
  Bytes out(HYLORN_PKCS7_CHAIN_SIZE, 0xEE);
  unsigned outLen = 77;
  EXPECT_EQ(Crypt_Gen_Cert_Chain(fits.data(), unsigned(fits.size()), big.data(),
                                 unsigned(big.size()), out.data(), &outLen),
            1u);
  EXPECT_EQ(read_errors(), (Entries{{321, 1, "data too length"}}));
  EXPECT_EQ(Crypt_Gen_Ie_Cert_Chain(big.data(), HYLORN_CHAIN_SIZE + 1, out.data(), &outLen), 1u);
  EXPECT_EQ(read_errors(), (Entries{{604, 1, "data too length"}}));
  EXPECT_EQ(outLen, 77u);
  EXPECT_EQ(out, Bytes(HYLORN_PKCS7_CHAIN_SIZE, 0xEE));
}

// ---- encode and decode ------------------------------------------------------------------

void expect_extensions(const CertInput& in, const CertOutput& out) {
  const unsigned sel = in.extFlags & 0x1DF;
  EXPECT_EQ(out.extFlags, sel);
  EXPECT_EQ(out.critFlags, in.critFlags & sel);
  const auto has = [&](unsigned bit) { return (sel & bit) != 0; };
  EXPECT_EQ(name_of(out.akiIssuer), has(0x1) ? in.akiIssuer : Name{});
  EXPECT_EQ(bytes(out.akiSerial, out.akiSerialLen), has(0x1) ? in.akiSerial : Bytes{});
  EXPECT_EQ(out.keyUsage, has(0x2) ? in.keyUsage : 0);
  EXPECT_STREQ(out.pkupNotBefore, has(0x4) ? in.pkupNotBefore.c_str() : "");
  EXPECT_STREQ(out.pkupNotAfter, has(0x4) ? in.pkupNotAfter.c_str() : "");
  EXPECT_EQ(out.policyCount, has(0x8) ? 2u : 0u);
  EXPECT_EQ(bytes(out.policyOid[0], out.policyOidLen[0]), has(0x8) ? kPolicy1 : Bytes{});
  EXPECT_STREQ(out.policyQualifier[0], has(0x8) ? "http://example.com/cps" : "");
  EXPECT_EQ(bytes(out.policyOid[1], out.policyOidLen[1]), has(0x8) ? kPolicy2 : Bytes{});
  EXPECT_EQ(out.cA, has(0x10) ? in.cA : 0);
  EXPECT_EQ(out.pathLen, has(0x10) ? (in.cA && in.pathLen >= 0 ? in.pathLen : -1) : 0);
  EXPECT_EQ(out.nsCertType, has(0x40) ? in.nsCertType : 0);
  EXPECT_EQ(bytes(out.hashedRootKey, out.hashedRootKeyLen), has(0x80) ? kRootKeyHash : Bytes{});
  EXPECT_EQ(out.setCertType, has(0x100) ? in.setCertType : 0);
}

struct Selection {
  unsigned extFlags, critFlags;
};
class CertRoundTrip : public testing::TestWithParam<Selection> {};

TEST_P(CertRoundTrip, EverySelectedExtensionComesBack) {
  CertInput in = leaf_input();
  in.extFlags = GetParam().extFlags;
  in.critFlags = GetParam().critFlags;
  in.cA = 1;
  in.pathLen = 5;
  Bytes der;
  ASSERT_EQ(encode_cert(in, &der), 0u) << error_text();
  CertOutput out;
  ASSERT_EQ(decode_cert(der, &out), 0u) << error_text();
  EXPECT_EQ(out.version, 2u);
  EXPECT_EQ(bytes(out.serial, out.serialLen), in.serial);
  EXPECT_EQ(out.sigAlg, 3u);
  EXPECT_EQ(bytes(out.params, out.paramsLen), in.params);
  EXPECT_EQ(name_of(out.issuer), in.issuer);
  EXPECT_EQ(name_of(out.subject), in.subject);
  EXPECT_STREQ(out.notBefore, "20200101000000");
  EXPECT_STREQ(out.notAfter, "20491231235959");
  EXPECT_EQ(bytes(out.pubKey, out.pubKeyLen), in.pubKey);
  EXPECT_EQ(out.issuerUIDLen + out.subjectUIDLen, 0u);
  EXPECT_EQ(out.signatureLen, 128u);
  EXPECT_EQ(out.subjectKeyIdLen, 0u);
  expect_extensions(in, out);
}

INSTANTIATE_TEST_SUITE_P(EachBitAndAll, CertRoundTrip,
                         testing::Values(Selection{0, 0}, Selection{0x1, 0x1}, Selection{0x2, 0},
                                         Selection{0x4, 0x4}, Selection{0x8, 0},
                                         Selection{0x10, 0x10}, Selection{0x40, 0},
                                         Selection{0x80, 0x80}, Selection{0x100, 0},
                                         Selection{0x1FF, 0x1FF}, Selection{0x1DF, 0x0A5}));

// Policies with a length of 0 or below are skipped and the rest close up; a negative path
// length leaves pathLenConstraint out; an empty PKUP text leaves that bound out.
TEST(CertEncode, SkippedPoliciesAbsentPathLengthAndBound) {
  CertInput in = leaf_input();
  in.policies = {Policy{kPolicy2, "", 0}, Policy{kPolicy2, "x", -3}, Policy{kPolicy1, "a", {}},
                 Policy{kPolicy2, "b", {}}};
  in.cA = 1;
  in.pathLen = -1;
  in.pkupNotBefore = "";
  Bytes der;
  ASSERT_EQ(encode_cert(in, &der), 0u) << error_text();
  CertOutput out;
  ASSERT_EQ(decode_cert(der, &out), 0u) << error_text();
  EXPECT_EQ(out.policyCount, 2u);
  EXPECT_EQ(bytes(out.policyOid[0], out.policyOidLen[0]), kPolicy1);
  EXPECT_STREQ(out.policyQualifier[0], "a");
  EXPECT_EQ(bytes(out.policyOid[1], out.policyOidLen[1]), kPolicy2);
  EXPECT_STREQ(out.policyQualifier[1], "b");
  EXPECT_EQ(out.policyOidLen[2], 0u);
  EXPECT_EQ(out.pathLen, -1);
  EXPECT_EQ(out.cA, 1);
  EXPECT_STREQ(out.pkupNotBefore, "");
  EXPECT_STREQ(out.pkupNotAfter, "20301231235959");
}

// Each argument one past its field is refused before anything is signed.
TEST(CertEncode, RefusesArgumentsLongerThanTheirFields) {
  const struct {
    const char* what;
    void (*change)(CertInput*);
  } cases[] = {
      {"serial", [](CertInput* in) { in->serial = Bytes(129, 1); }},
      {"params", [](CertInput* in) { in->params = Bytes(1025, 5); }},
      {"name", [](CertInput* in) { in->subject[kCN] = std::string(256, 'n'); }},
      {"aki name", [](CertInput* in) { in->akiIssuer[kO] = std::string(256, 'o'); }},
      {"time", [](CertInput* in) { in->notAfter = std::string(64, '2'); }},
      {"pkup", [](CertInput* in) { in->pkupNotBefore = std::string(64, '2'); }},
      {"aki serial", [](CertInput* in) { in->akiSerial = Bytes(129, 1); }},
      {"policy oid",
       [](CertInput* in) {
         in->policies[2] = {Bytes(33, 0x2A), "", {}};
       }},
      {"qualifier", [](CertInput* in) { in->policies[0].qualifier = std::string(256, 'q'); }},
      {"hashed root key", [](CertInput* in) { in->hashedRootKey = Bytes(65, 7); }},
      {"public key", [](CertInput* in) { in->pubKey = Bytes(1025, 7); }},
      {"key name", [](CertInput* in) { in->keyName = std::string(128, 'k'); }},
  };
  const std::set<std::string> octets = {"serial",     "params",          "aki serial",
                                        "policy oid", "hashed root key", "public key"};
  for (const auto& c : cases) {
    CertInput in = leaf_input();
    c.change(&in);
    Bytes der;
    EXPECT_EQ(encode_cert(in, &der), 1u) << c.what;
    const Entries refusal = octets.count(c.what) != 0
                                ? Entries{{322, 2, "octets too long for their field"}}
                                : Entries{{322, 1, "text too long for its field"}};
    EXPECT_EQ(read_errors(), refusal) << c.what;
  }
  CertInput at_limits = leaf_input();
  at_limits.serial = Bytes(128, 0x41);
  at_limits.subject[kCN] = std::string(255, 'n');
  at_limits.policies[2] = {Bytes(32, 0x2A), std::string(255, 'q'), {}};
  Bytes der;
  EXPECT_EQ(encode_cert(at_limits, &der), 0u) << error_text();
}

TEST(CertEncode, SignerFailureIsReported) {
  CertInput in = leaf_input();
  in.keyName = pki().dir.path("missing.key");
  Bytes der;
  EXPECT_EQ(encode_cert(in, &der), 1u);
  EXPECT_EQ(read_errors(), (Entries{{317, 3, "Crypt_Gen_Signature"}}));
}

// Every text comes back empty and every number 0 when the certificate does not decode.
TEST(CertDecode, FailureLeavesEveryOutputEmpty) {
  CertOutput out;
  ASSERT_EQ(decode_cert(from_hex("3003020101"), &out), 1u);
  for (int i = 0; i < 16; ++i) {
    EXPECT_STREQ(out.issuer[i], "");
    EXPECT_STREQ(out.subject[i], "");
    EXPECT_STREQ(out.akiIssuer[i], "");
  }
  for (const char* text : {out.notBefore, out.notAfter, out.pkupNotBefore, out.pkupNotAfter,
                           out.policyQualifier[0], out.policyQualifier[3]}) {
    EXPECT_STREQ(text, "");
  }
  const unsigned numbers[] = {
      out.version,          out.serialLen,    out.sigAlg,          out.paramsLen,
      out.pubKeyLen,        out.issuerUIDLen, out.subjectUIDLen,   out.signatureLen,
      out.extFlags,         out.critFlags,    out.akiSerialLen,    out.policyOidLen[0],
      out.policyOidLen[3],  out.keyUsage,     out.nsCertType,      out.setCertType,
      out.hashedRootKeyLen, out.policyCount,  out.subjectKeyIdLen, out.cA,
      unsigned(out.pathLen)};
  for (unsigned n : numbers) EXPECT_EQ(n, 0u);
}

// ---- queries --------------------------------------------------------------------------

std::pair<int, std::string> item(const Bytes& cert, unsigned number) {
  Bytes out(HYLORN_CERT_ITEM_SIZE, 0);  // exactly the documented room
  unsigned outLen = 0;
  const int rc =
      Crypt_Get_Char_Info_FromCert(cert.data(), unsigned(cert.size()), number, out.data(), &outLen);
  return {rc, rc == 0 ? std::string(out.begin(), out.begin() + outLen) : ""};
}

TEST(CertQuery, EveryItem) {
  const std::string key(pki().leaf.pub.begin(), pki().leaf.pub.end());
  const std::pair<unsigned, std::string> items[] = {
      {1, "2"},
      {2, "2571"},
      {3, "sha1WithRSAEncryption"},
      {4, "CN"},
      {5, "Hylorn Test"},
      {6, ""},
      {7, "Beijing"},
      {8, "Hylorn Issuing"},
      {9, ""},
      {10, "ca@example.com"},
      {11, "20200101000000"},
      {12, "20491231235959"},
      {13, "CN"},
      {14, "Leaf Org"},
      {15, "Leaf Unit"},
      {16, "Shanghai"},
      {17, "leaf.example"},
      {18, "Pudong"},
      {19, "leaf@example.com"},
      {20, key},
      {21,
       "C=CN, O=Leaf Org, OU=Leaf Unit, ST=Shanghai, CN=leaf.example, L=Pudong, "
       "title=Engineer, SN=Zhang, GN=Wei, initials=ZW, emailAddress=leaf@example.com, "
       "postalAddress=1 Leaf Road, postalCode=200120, postOfficeBox=PO 7, "
       "telephoneNumber=+86 21 5555, telexNumber=12345"}};
  for (const auto& [number, text] : items) {
    EXPECT_EQ(item(leaf_cert(), number), std::make_pair(0, text)) << "item " << number;
  }
  for (unsigned number : {0u, 22u, 1000u}) EXPECT_EQ(item(leaf_cert(), number).first, -1);
  const Bytes broken(leaf_cert().begin(), leaf_cert().end() - 1);
  for (unsigned number : {0u, 1u, 22u}) EXPECT_EQ(item(broken, number).first, 1);
  CertInput in = leaf_input();
  in.sigAlg = 1;
  EXPECT_EQ(item(issue(in), 3).second, "md2WithRSAEncryption");
  // Three slots of 255 characters fit the item's room on one line (C=, O=, OU=, two
  // separators: 776 characters), four do not (1,036).
  in.subject = Name{};
  for (int slot : {kC, kO, kOU}) in.subject[slot] = std::string(255, 'x');
  EXPECT_EQ(item(issue(in), 21).second.size(), 776u);
  in.subject[kST] = std::string(255, 'y');
  const Bytes longName = issue(in);
  EXPECT_EQ(item(longName, 21).first, -1);
  EXPECT_EQ(item(longName, 16), std::make_pair(0, std::string(255, 'y')));
}

TEST(CertQuery, PublicKeyAndSignatureByCertificate) {
  Bytes key(HYLORN_PUBKEY_SIZE);
  unsigned keyLen = 0;
  ASSERT_EQ(Crypt_Get_PubKey_FromCert(leaf_cert().data(), unsigned(leaf_cert().size()), key.data(),
                                      &keyLen),
            0u);
  EXPECT_EQ(Bytes(key.begin(), key.begin() + keyLen), pki().leaf.pub);
  const Bytes data = bytes_of("signed by the leaf");
  u8 sig[HYLORN_RSA_BLOCK_SIZE];
  unsigned sigLen = 0;
  ASSERT_EQ(Crypt_Gen_Signature(3, pki().leaf.file.c_str(), "", data.data(), unsigned(data.size()),
                                sig, &sigLen),
            0u);
  const auto check = [&](const Bytes& cert) {
    return Crypt_Ver_Signature_ByCert(3, cert.data(), unsigned(cert.size()), data.data(),
                                      unsigned(data.size()), sig, sigLen);
  };
  EXPECT_EQ(check(leaf_cert()), 0u);
  EXPECT_EQ(check(issue(inter_input())), 1u);  // another key: the block does not open
  EXPECT_EQ(check(bytes_of("not a certificate")), 3u);
}

// ---- hostile input --------------------------------------------------------------------

// Every truncated prefix (in a buffer of exactly that size) fails; a changed byte inside
// the signed part never verifies. The sanitizer build proves neither reads out of bounds.
TEST(CertDecode, SurvivesEveryPrefixAndEveryByteChange) {
  const Bytes& cert = leaf_cert();
  const Bytes inter = issue(inter_input());
  const std::size_t tbsEnd = certificate_parts(cert)[1].first;
  CertOutput out;
  Bytes text(4096);
  unsigned textLen = 0;
  for (std::size_t n = 0; n < cert.size(); ++n) {
    const Bytes prefix(cert.begin(), cert.begin() + n);
    EXPECT_EQ(decode_cert(prefix, &out), 1u) << n;
    EXPECT_EQ(Crypt_Get_Char_Info_FromCert(prefix.data(), unsigned(n), 17, text.data(), &textLen),
              1)
        << n;
    EXPECT_EQ(
        Crypt_Ver_Cert_ByRootCert(prefix.data(), unsigned(n), inter.data(), unsigned(inter.size())),
        1u)
        << n;
  }
  for (std::size_t pos = 0; pos < cert.size(); ++pos) {
    for (u8 flip : {0x01, 0x80, 0xFF}) {
      Bytes changed = cert;
      changed[pos] ^= flip;
      decode_cert(changed, &out);
      Crypt_Get_Char_Info_FromCert(changed.data(), unsigned(changed.size()), 21, text.data(),
                                   &textLen);
      const unsigned verified = Crypt_Ver_Cert_ByRootCert(changed.data(), unsigned(changed.size()),
                                                          inter.data(), unsigned(inter.size()));
      if (pos < tbsEnd) {
        EXPECT_EQ(verified, 1u) << pos;
      }
    }
  }
}

}  // namespace
