// PKCS #10 requests against libcrypto, `openssl req` and GnuTLS's certtool, against bytes
// assembled from RFC 2986's ASN.1, and through their failure entries.
#include <openssl/x509.h>

#include <sstream>

#include "request_fixtures.h"
#include "support/openssl_bytes.h"

namespace {

using namespace request_test;

const Name kShort = {"DE", "Hylorn", "", "", "Request One"};
const Name kFull = {"DE",    "Org",   "Unit",     "Bavaria", "Full Name",      "Munich",
                    "Dr",    "Doe",   "John",     "JD",      "jd@example.org", "Street 1",
                    "80331", "Box 7", "+49 89 1", "Telex 9"};

// C "DE", O "Hylorn", CN cn: one PrintableString AttributeTypeAndValue per SET.
Bytes name_der(const std::string& cn = "Request One") {
  Bytes rdns;
  for (auto [type, value] : {std::pair<u8, std::string>{6, "DE"}, {10, "Hylorn"}, {3, cn}}) {
    const Bytes atv = cat({from_hex("06 03 55 04"), {type}, tlv(0x13, bytes_of(value))});
    rdns = cat({rdns, tlv(0x31, tlv(0x30, atv))});
  }
  return tlv(0x30, rdns);
}
Bytes info(const Bytes& key, const Bytes& name = name_der(), u8 version = 0,
           const Bytes& attributes = {0xA0, 0}) {
  return tlv(0x30, cat({{2, 1, version}, name, spki(key), attributes}));
}

// Version 0, the name, the key, an empty [0] attributes element, md5WithRSA.
TEST(Pkcs10Encode, IsTheRequestAssembledByHand) {
  const KeyFile& k = key_file();
  const Bytes req = encode(kShort, k.pub, k.path);
  ASSERT_GT(req.size(), 128u);
  EXPECT_EQ(to_hex(req), to_hex(signed_md5(info(k.pub), Bytes(req.end() - 128, req.end()))));
}

// libcrypto verifies our MD5 signature and finds our key; `openssl req -verify` and
// certtool show subject and key (names in DER order, postOfficeBox written last).
TEST(Pkcs10Encode, OpenSslAndCerttoolReadOurRequests) {
  const struct {
    Name subject;
    std::string openssl, certtool;
  } cases[] = {
      {kShort, "C = DE, O = Hylorn, CN = Request One", "CN=Request One,O=Hylorn,C=DE"},
      {kFull,
       "C = DE, O = Org, OU = Unit, ST = Bavaria, CN = Full Name, L = Munich, title = Dr, SN = "
       "Doe, GN = John, initials = JD, emailAddress = jd@example.org, postalAddress = Street 1, "
       "postalCode = 80331, telephoneNumber = \"+49 89 1\", telexNumber = Telex 9, "
       "postOfficeBox = Box 7",
       "2.5.4.18=#1305426f782037,2.5.4.21=#130754656c65782039,telephoneNumber=\\+49 89 1,"
       "postalCode=80331,2.5.4.16=#13085374726565742031,EMAIL=jd@example.org,initials=JD,"
       "givenName=John,surName=Doe,title=Dr,L=Munich,CN=Full Name,ST=Bavaria,OU=Unit,O=Org,C=DE"},
      {Name{}, "", ""},
  };
  const KeyFile& k = key_file();
  const TempDir dir;
  for (const auto& c : cases) {
    const Bytes req = encode(c.subject, k.pub, k.path);
    const u8* p = req.data();
    X509_REQ* x = d2i_X509_REQ(nullptr, &p, long(req.size()));
    ASSERT_NE(x, nullptr) << c.openssl;
    EXPECT_EQ(X509_REQ_verify(x, X509_REQ_get0_pubkey(x)), 1);
    EXPECT_EQ(X509_REQ_get_signature_nid(x), NID_md5WithRSAEncryption);
    EXPECT_EQ(i2d_bytes(i2d_PublicKey, X509_REQ_get0_pubkey(x)), k.pub);
    X509_REQ_free(x);
    EXPECT_EQ(decode_pkcs10(req).subject, c.subject);

    write_file(dir.path("r.der"), req);
    if (!have_tool("openssl") || !have_tool("certtool")) GTEST_SKIP() << "openssl or certtool";
    const auto [ok, out] =
        run_tool("openssl req -inform DER -verify -text -noout -in " + dir.path("r.der"));
    EXPECT_TRUE(ok) << out;
    for (const std::string& line :
         {std::string("self-signature verify OK"), std::string("Public-Key: (1024 bit)"),
          "Subject: " + c.openssl + "\n"}) {
      EXPECT_NE(out.find(line), std::string::npos) << line << "\n" << out;
    }
    const std::string gnu =
        run_tool("certtool --crq-info --inder --infile " + dir.path("r.der")).second;
    for (const std::string& line :
         {std::string("Modulus (bits 1024)"),
          "Subject:" + (c.certtool.empty() ? "" : " " + c.certtool) + "\n"}) {
      EXPECT_NE(gnu.find(line), std::string::npos) << line << "\n" << gnu;
    }
  }
}

// A version other than 0 and a key that cannot sign fail with their entries; what would
// not fit its field is refused with an entry that says so.
TEST(Pkcs10Encode, Refusals) {
  const KeyFile& k = key_file();
  Name long_cn = kShort;
  long_cn[4] = std::string(256, 'x');
  const Entries sign = {{613, 3, "Crypt_Gen_Signature"}};
  const Entries text = {{322, 1, "text too long for its field"}};
  const Entries octets = {{322, 2, "octets too long for their field"}};
  const auto check = [](const Bytes& req, const Entries& tail, const char* what) {
    EXPECT_TRUE(req.empty()) << what;
    expect_tail(tail, what);
  };
  put_marker();
  check(encode(kShort, k.pub, k.path, 1),
        {{605, 1, "version error"},
         {609, 2, "u2l_pkcs10_version"},
         {611, 2, "u2l_USER_PKCS10_CERT_REQ_INFO"},
         {613, 1, "c2d_USER_PKCS10_CERT_REQ_INFO"}},
        "version 1");
  check(encode(kShort, k.pub, "keypair.db1"), sign, "slot key");
  check(encode(kShort, k.pub, k.path + ".none"), sign, "no key file");
  check(encode(long_cn, k.pub, k.path), text, "256-character CN");
  check(encode(kShort, Bytes(1025, 1), k.path), octets, "1,025-octet key");
  check(encode(kShort, k.pub, std::string(128, 'k')), text, "128-character key name");
}

// OpenSSL's requests, PrintableString names (emailAddress IA5String), MD5 or SHA-1.
TEST(Pkcs10Decode, OpenSslRequests) {
  static const EvpKey key = openssl_keygen(1024);
  std::istringstream fields(
      "C O OU ST CN L title SN GN initials emailAddress postalAddress postalCode postOfficeBox "
      "telephoneNumber telexNumber");
  X509_REQ* x = X509_REQ_new();
  for (int i = 0; i < 16; ++i) {
    std::string field;
    fields >> field;
    X509_NAME_add_entry_by_txt(X509_REQ_get_subject_name(x), field.c_str(),
                               i == 10 ? V_ASN1_IA5STRING : V_ASN1_PRINTABLESTRING,
                               reinterpret_cast<const u8*>(kFull[i].c_str()), -1, -1, 0);
  }
  X509_REQ_set_pubkey(x, key.get());
  for (const EVP_MD* md : {EVP_md5(), EVP_sha1()}) {
    ASSERT_GT(X509_REQ_sign(x, key.get(), md), 0);
    const Decoded d = decode_pkcs10(i2d_bytes(i2d_X509_REQ, x));
    ASSERT_EQ(d.rc, 0u) << error_text();
    EXPECT_EQ(d.version, 0u);
    EXPECT_EQ(d.subject, kFull);
    EXPECT_EQ(d.key, public_der(key.get()));
  }
  X509_REQ_free(x);
}

// Assembled requests: what decodes (a wrong signature, the longest slot and key) and the
// entries that end the list of what fails.
TEST(Pkcs10Decode, AssembledRequests) {
  const Bytes key = key_file().pub, sig(128, 0x5A);
  const Bytes cert = tlv(0x30, cat({from_hex("A0 03 02 01 02 02 01 01"), pkcs1_alg(4), name_der(),
                                    tlv(0x30, cat({tlv(0x17, bytes_of("250101000000Z")),
                                                   tlv(0x17, bytes_of("300101000000Z"))})),
                                    name_der(), spki(key)}));
  const Entries d2c = {{614, 4, "d2c_USER_PKCS10_CERT_REQ"}};
  const auto in = [&](Entries head, int d2c_err, const char* d2c_msg) {
    head.push_back({612, d2c_err, d2c_msg});
    head.push_back(d2c[0]);
    return head;
  };
  const char* l2u = "l2u_USER_PKCS10_CERT_REQ_INFO";
  const char* der = "Der_Decode_PKCS10_CERT_REQ_INFO";
  const struct {
    const char* what;
    Bytes der;
    Entries tail;  // empty: decodes
  } cases[] = {
      {"wrong signature", signed_md5(info(key), sig), {}},
      {"255-character CN", signed_md5(info(key, name_der(std::string(255, 'c'))), sig), {}},
      {"1,023-octet key", signed_md5(info(Bytes(1023, 7)), sig), {}},
      {"1,024-octet key", signed_md5(info(Bytes(1024, 7)), sig),
       in({{310, 1, "subject public key too long"}, {610, 4, "l2u_subjectPublickeyInfo"}}, 2, l2u)},
      {"version 1", signed_md5(info(key, name_der(), 1), sig),
       in({{606, 1, "version error"}, {610, 2, "l2u_pkcs10_version"}}, 2, l2u)},
      {"no attributes", signed_md5(info(key, name_der(), 0, {}), sig), in({{604, 8, " "}}, 1, der)},
      {"a certificate", signed_md5(cert, sig),
       in({{112, 2, "tag type"},
           {602, 1, "ASN1_Decode_Integer"},
           {604, 3, "Der_Decode_PKCS10_Version"}},
          1, der)},
      {"trailing byte",
       cat({signed_md5(info(key), sig), {0}}),
       {{614, 2, "Der_Decode_COMMON_SIGNED_PACKET"}}},
      {"md4WithRSA",
       tlv(0x30, cat({info(key), pkcs1_alg(3), tlv(0x03, cat({{0}, sig}))})),
       {{614, 5, "l2u_signature"}}},
  };
  for (const auto& c : cases) {
    const Decoded d = decode_pkcs10(c.der);
    EXPECT_EQ(d.rc, c.tail.empty() ? 0u : 1u) << c.what;
    if (d.rc != 0) {
      expect_tail(c.tail, c.what);
    } else {
      // What was read rebuilds the input.
      EXPECT_EQ(signed_md5(info(d.key, name_der(d.subject[4])), sig), c.der) << c.what;
    }
  }
}

}  // namespace
