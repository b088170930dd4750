// PKCS #10 requests against OpenSSL (libcrypto and `openssl req`) and GnuTLS's certtool,
// against bytes assembled from RFC 2986's ASN.1, and through their failure entries.
#include <openssl/x509.h>

#include <functional>

#include "request_fixtures.h"
#include "support/openssl_bytes.h"

namespace {

using namespace request_test;

const Name kShort = {"DE", "Hylorn", "", "", "Request One"};
const Name kFull = {"DE",    "Org",   "Unit",     "Bavaria", "Full Name",      "Munich",
                    "Dr",    "Doe",   "John",     "JD",      "jd@example.org", "Street 1",
                    "80331", "Box 7", "+49 89 1", "Telex 9"};
// AttributeTypeAndValue of commonName 2.5.4.3, PrintableString
Bytes rdn(u8 type, u8 tag, const std::string& value) {
  return tlv(0x31,
             tlv(0x30, cat({from_hex("06 03 55 04"), Bytes{type}, tlv(tag, bytes_of(value))})));
}
Bytes short_name() {
  return tlv(0x30, cat({rdn(6, 0x13, "DE"), rdn(10, 0x13, "Hylorn"), rdn(3, 0x13, "Request One")}));
}
Bytes info(const Bytes& version, const Bytes& name, const Bytes& key, const Bytes& attributes) {
  return tlv(0x30, cat({version, name, spki(key), attributes}));
}

// Our request matches the bytes of RFC 2986 built by hand: version 0, the name, the key,
// an empty [0] attributes element (A0 00), md5WithRSA.
TEST(Pkcs10Encode, IsTheHandAssembledRequest) {
  const KeyFile& k = key_file();
  const Encoded req = encode(kShort, k.pub, k.path);
  ASSERT_EQ(req.rc, 0u);
  const Bytes sig(req.der.end() - 128, req.der.end());
  const Bytes tbs = info(from_hex("02 01 00"), short_name(), k.pub, from_hex("A0 00"));
  EXPECT_EQ(to_hex(req.der), to_hex(signed_md5(tbs, sig)));
}

// libcrypto verifies the signature and reads back subject and key; `openssl req -verify`
// and certtool print them. Names in DER order, emailAddress as IA5String.
TEST(Pkcs10Encode, OpenSslAndCerttoolAcceptOurRequests) {
  const struct {
    Name subject;
    const char* openssl_line;
    const char* certtool_line;
  } cases[] = {
      {kShort, "Subject: C = DE, O = Hylorn, CN = Request One",
       "Subject: CN=Request One,O=Hylorn,C=DE"},
      {kFull,
       "Subject: C = DE, O = Org, OU = Unit, ST = Bavaria, CN = Full Name, L = Munich, "
       "title = Dr, SN = Doe, GN = John, initials = JD, emailAddress = jd@example.org, "
       "postalAddress = Street 1, postalCode = 80331, telephoneNumber = \"+49 89 1\", "
       "telexNumber = Telex 9, postOfficeBox = Box 7",
       "Subject: 2.5.4.18=#1305426f782037,2.5.4.21=#130754656c65782039,telephoneNumber=\\+49 89 1,"
       "postalCode=80331,2.5.4.16=#13085374726565742031,EMAIL=jd@example.org,initials=JD,"
       "givenName=John,surName=Doe,title=Dr,L=Munich,CN=Full Name,ST=Bavaria,OU=Unit,O=Org,C=DE"},
      {Name{}, "Subject: \n", "Subject:\n"},
  };
  const KeyFile& k = key_file();
  TempDir dir;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.openssl_line);
    const Encoded req = encode(c.subject, k.pub, k.path);
    ASSERT_EQ(req.rc, 0u);
    const u8* p = req.der.data();
    X509_REQ* x = d2i_X509_REQ(nullptr, &p, long(req.der.size()));
    ASSERT_NE(x, nullptr);
    EXPECT_EQ(X509_REQ_verify(x, X509_REQ_get0_pubkey(x)), 1);
    EXPECT_EQ(X509_REQ_get_signature_nid(x), NID_md5WithRSAEncryption);
    EXPECT_EQ(i2d_bytes(i2d_PublicKey, X509_REQ_get0_pubkey(x)), k.pub);
    X509_REQ_free(x);

    write_file(dir.path("req.der"), req.der);
    if (!have_tool("openssl")) GTEST_SKIP() << "no openssl tool";
    const ToolRun o =
        run_tool("openssl req -inform DER -verify -text -noout -in " + dir.path("req.der"));
    EXPECT_TRUE(o.ok) << o.out;
    EXPECT_NE(o.out.find("self-signature verify OK"), std::string::npos) << o.out;
    EXPECT_NE(o.out.find(c.openssl_line), std::string::npos) << o.out;
    EXPECT_NE(o.out.find("Public-Key: (1024 bit)"), std::string::npos) << o.out;
    if (!have_tool("certtool")) GTEST_SKIP() << "no certtool";
    const ToolRun g = run_tool("certtool --crq-info --inder --infile " + dir.path("req.der"));
    EXPECT_NE(g.out.find(c.certtool_line), std::string::npos) << g.out;
    EXPECT_NE(g.out.find("Modulus (bits 1024)"), std::string::npos) << g.out;
  }
}

// What the encoder refuses: a version other than 0 (with its chain of entries), a key that
// cannot sign, and anything that would not fit its field (no entry: the list is kept).
TEST(Pkcs10Encode, Refusals) {
  const KeyFile& k = key_file();
  Name long_cn = kShort;
  long_cn[4] = std::string(256, 'x');
  const struct {
    const char* what;
    std::function<Encoded()> call;
    Entries tail;
  } cases[] = {
      {"version 1",
       [&] { return encode(kShort, k.pub, k.path, 1); },
       {{605, 1, "version error"},
        {609, 2, "u2l_pkcs10_version"},
        {611, 2, "u2l_USER_PKCS10_CERT_REQ_INFO"},
        {613, 1, "c2d_USER_PKCS10_CERT_REQ_INFO"}}},
      {"slot key",
       [&] { return encode(kShort, k.pub, "keypair.db1"); },
       {{613, 3, "Crypt_Gen_Signature"}}},
      {"no key file",
       [&] { return encode(kShort, k.pub, k.path + ".none"); },
       {{613, 3, "Crypt_Gen_Signature"}}},
      {"256-character slot", [&] { return encode(long_cn, k.pub, k.path); }, {kMarker}},
      {"1,025-octet key", [&] { return encode(kShort, Bytes(1025, 1), k.path); }, {kMarker}},
      {"128-character key name",
       [&] { return encode(kShort, k.pub, std::string(128, 'k')); },
       {kMarker}},
  };
  for (const auto& c : cases) {
    put_marker();
    EXPECT_EQ(c.call().rc, 1u) << c.what;
    expect_tail(c.tail, c.what);
  }
}

// Requests that OpenSSL makes with PrintableString names (emailAddress IA5String), signed
// with MD5 or SHA-1, read back to their subject, key and version.
TEST(Pkcs10Decode, OpenSslRequests) {
  static const EvpKey key = openssl_keygen(1024);
  const char* fields[] = {"C",
                          "O",
                          "OU",
                          "ST",
                          "CN",
                          "L",
                          "title",
                          "SN",
                          "GN",
                          "initials",
                          "emailAddress",
                          "postalAddress",
                          "postalCode",
                          "postOfficeBox",
                          "telephoneNumber",
                          "telexNumber"};
  for (const EVP_MD* md : {EVP_md5(), EVP_sha1()}) {
    X509_REQ* x = X509_REQ_new();
    X509_NAME* name = X509_NAME_new();
    for (int i = 0; i < 16; ++i) {
      X509_NAME_add_entry_by_txt(name, fields[i],
                                 i == 10 ? V_ASN1_IA5STRING : V_ASN1_PRINTABLESTRING,
                                 reinterpret_cast<const u8*>(kFull[i].c_str()), -1, -1, 0);
    }
    X509_REQ_set_subject_name(x, name);
    X509_REQ_set_pubkey(x, key.get());
    ASSERT_GT(X509_REQ_sign(x, key.get(), md), 0);
    const Decoded d = decode_pkcs10(i2d_bytes(i2d_X509_REQ, x));
    X509_NAME_free(name);
    X509_REQ_free(x);
    ASSERT_EQ(d.rc, 0u) << error_text();
    EXPECT_EQ(d.version, 0u);
    EXPECT_EQ(d.subject, kFull);
    EXPECT_EQ(d.key, public_der(key.get()));
  }
}

// Assembled requests: what decodes (a wrong signature, a 255-character slot, a key of
// 1,023 octets) and what fails, with the entries that end the list.
TEST(Pkcs10Decode, AssembledRequests) {
  const Bytes key = key_file().pub, v0 = from_hex("02 01 00"), attrs = from_hex("A0 00");
  const Bytes sig(128, 0x5A);
  const Bytes cert = tlv(0x30, cat({from_hex("A0 03 02 01 02 02 01 01"), pkcs1_alg(4), short_name(),
                                    tlv(0x30, cat({tlv(0x17, bytes_of("250101000000Z")),
                                                   tlv(0x17, bytes_of("300101000000Z"))})),
                                    short_name(), spki(key)}));
  const Bytes long_cn = tlv(0x30, rdn(3, 0x13, std::string(255, 'c')));
  Bytes trailing = signed_md5(info(v0, short_name(), key, attrs), sig);
  trailing.push_back(0);
  const std::string one = "Request One";
  const struct {
    const char* what;
    Bytes der;
    std::string cn;  // when it decodes
    Entries tail;    // when it fails
  } cases[] = {
      {"wrong signature", signed_md5(info(v0, short_name(), key, attrs), sig), one, {}},
      {"255-character CN",
       signed_md5(info(v0, long_cn, key, attrs), sig),
       std::string(255, 'c'),
       {}},
      {"1,023-octet key", signed_md5(info(v0, short_name(), Bytes(1023, 7), attrs), sig), one, {}},
      {"1,024-octet key",
       signed_md5(info(v0, short_name(), Bytes(1024, 7), attrs), sig),
       "",
       {{310, 1, "subject public key too long"},
        {610, 4, "l2u_subjectPublickeyInfo"},
        {612, 2, "l2u_USER_PKCS10_CERT_REQ_INFO"},
        {614, 4, "d2c_USER_PKCS10_CERT_REQ"}}},
      {"version 1",
       signed_md5(info(from_hex("02 01 01"), short_name(), key, attrs), sig),
       "",
       {{606, 1, "version error"},
        {610, 2, "l2u_pkcs10_version"},
        {612, 2, "l2u_USER_PKCS10_CERT_REQ_INFO"},
        {614, 4, "d2c_USER_PKCS10_CERT_REQ"}}},
      {"no attributes",
       signed_md5(tlv(0x30, cat({v0, short_name(), spki(key)})), sig),
       "",
       {{604, 8, " "},
        {612, 1, "Der_Decode_PKCS10_CERT_REQ_INFO"},
        {614, 4, "d2c_USER_PKCS10_CERT_REQ"}}},
      {"a certificate",
       signed_md5(cert, sig),
       "",
       {{112, 2, "tag type"},
        {602, 1, "ASN1_Decode_Integer"},
        {604, 3, "Der_Decode_PKCS10_Version"},
        {612, 1, "Der_Decode_PKCS10_CERT_REQ_INFO"},
        {614, 4, "d2c_USER_PKCS10_CERT_REQ"}}},
      {"trailing byte", trailing, "", {{614, 2, "Der_Decode_COMMON_SIGNED_PACKET"}}},
      {"md4WithRSA",
       tlv(0x30,
           cat({info(v0, short_name(), key, attrs), pkcs1_alg(3), tlv(0x03, cat({{0}, sig}))})),
       "",
       {{614, 5, "l2u_signature"}}},
  };
  for (const auto& c : cases) {
    const Decoded d = decode_pkcs10(c.der);
    EXPECT_EQ(d.rc, c.tail.empty() ? 0u : 1u) << c.what;
    if (d.rc != 0) {
      expect_tail(c.tail, c.what);
    } else {
      EXPECT_EQ(d.subject[4], c.cn) << c.what;
    }
  }
}

// Whatever we encode reads back: every slot, the key, version 0.
TEST(Pkcs10, RoundTrip) {
  const KeyFile& k = key_file();
  Name edge = kFull;
  edge[13] = std::string(255, 'b');
  for (const Name& n : {kShort, kFull, edge, Name{}}) {
    const Decoded d = decode_pkcs10(encode(n, k.pub, k.path).der);
    ASSERT_EQ(d.rc, 0u) << error_text();
    EXPECT_EQ(d.subject, n);
    EXPECT_EQ(d.key, k.pub);
    EXPECT_EQ(d.version, 0u);
  }
}

// Every allocation made while encoding and decoding can fail: result 1, the outermost
// entry is the signing or unwrapping step, nothing leaks (the sanitizer build checks).
TEST(Pkcs10, EachAllocationFailure) {
  const KeyFile& k = key_file();
  const Bytes req = encode(kShort, k.pub, k.path).der;
  u8 out[HYLORN_CERT_DER_SIZE], key[HYLORN_PUBKEY_SIZE];
  char s[16][HYLORN_NAME_SIZE];
  unsigned len = 0, version = 0;
  const auto enc = [&] {
    return Crypt_Encode_Pkcs10(0, "DE", "", "", "", "CN", "", "", "", "", "", "", "", "", "", "",
                               "", k.pub.data(), unsigned(k.pub.size()), k.path.c_str(), "", out,
                               &len);
  };
  const auto dec = [&] {
    return Crypt_Decode_Pkcs10(req.data(), unsigned(req.size()), &version, s[0], s[1], s[2], s[3],
                               s[4], s[5], s[6], s[7], s[8], s[9], s[10], s[11], s[12], s[13],
                               s[14], s[15], key, &len);
  };
  expect_each_allocation_fails(enc, 613);
  expect_each_allocation_fails(dec, 614);
}

}  // namespace
