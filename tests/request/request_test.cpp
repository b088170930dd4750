// PKCS #10 and Netscape requests against bytes assembled from RFC 2986's ASN.1, against
// `openssl req`, `openssl spkac` and GnuTLS's certtool, and through the entries
// each refusal leaves.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>

#include "hylorn.h"
#include "support/error_list.h"
#include "support/openssl_bytes.h"
#include "support/temp_dir.h"

namespace {

using namespace hylorn_test;
using u8 = unsigned char;
using Name = std::array<std::string, 16>;  // slot order: C, O, OU, ST, CN, L, title, ...

const Name kFull = {"DE",    "Org",   "Unit",     "Bavaria", "Full Name",      "Munich",
                    "Dr",    "Doe",   "John",     "JD",      "jd@example.org", "Street 1",
                    "80331", "Box 7", "+49 89 1", "Telex 9"};
const auto named = [](const std::string& cn) { return Name{"DE", "Hylorn", "", "", cn}; };
const Name kShort = named("Request One");

// DER written by OpenSSL's ASN1_put_object: the tag octet's class, form and number.
const auto tlv = [](u8 tag, const Bytes& c) {
  return openssl_tlv(tag & 0x20, tag & 31, tag & 0xC0, c);
};
Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}
// AlgorithmIdentifier { 1.2.840.113549.1.1.n, NULL }: 1 rsaEncryption, 3 md4WithRSA, 4 md5WithRSA.
const auto alg = [](u8 n) {
  return tlv(0x30, cat({from_hex("06 09 2A 86 48 86 F7 0D 01 01"), {n, 5, 0}}));
};
const auto bits = [](const Bytes& b) { return tlv(0x03, cat({{0}, b})); };
const auto spki = [](const Bytes& key) { return tlv(0x30, cat({alg(1), bits(key)})); };
Bytes signed_md5(const Bytes& tbs, const Bytes& sig = Bytes(128, 0x33), u8 n = 4) {
  return tlv(0x30, cat({tbs, alg(n), bits(sig)}));
}
// Name: C "DE", O "Hylorn", CN cn, one PrintableString AttributeTypeAndValue per RDN.
Bytes name_der(const std::string& cn = "Request One") {
  Bytes rdns;
  for (auto [type, value] : {std::pair<u8, std::string>{6, "DE"}, {10, "Hylorn"}, {3, cn}}) {
    const Bytes atv = cat({from_hex("06 03 55 04"), {type}, tlv(0x13, bytes_of(value))});
    rdns = cat({rdns, tlv(0x31, tlv(0x30, atv))});
  }
  return tlv(0x30, rdns);
}
// CertificationRequestInfo; attributes [0] IMPLICIT SET OF Attribute, empty.
Bytes info(const Bytes& key, const Bytes& name = name_der(), const Bytes& version = {2, 1, 0},
           const Bytes& attributes = {0xA0, 0}) {
  return tlv(0x30, cat({version, name, spki(key), attributes}));
}
// SignedPublicKeyAndChallenge around key, challenge and more.
Bytes spkac(const Bytes& key, const Bytes& challenge, const Bytes& more = {}) {
  return signed_md5(tlv(0x30, cat({spki(key), challenge, more})));
}

// A pair from our generator, its key file and the private key for the outside tools.
struct KeyFile {
  TempDir dir;
  std::string path = dir.path("request.key");
  Bytes pub = Bytes(HYLORN_PUBKEY_DER_SIZE), pri = Bytes(HYLORN_PRIKEY_DER_SIZE);
  KeyFile() {
    unsigned pubLen = 0, priLen = 0;
    EXPECT_EQ(Crypt_GenRSAKeyPair(path.c_str(), 0, pub.data(), &pubLen, pri.data(), &priLen), 0u);
    pub.resize(pubLen), pri.resize(priLen);
    write_file(dir.path("key.der"), pri);
  }
};
const auto keys = []() -> const KeyFile& {
  static const KeyFile k;
  return k;
};

// The request, or empty when encoding fails (the length output must then be untouched).
Bytes encode(const Name& s, const Bytes& key, const std::string& keyName, u8 version = 0) {
  Bytes out(HYLORN_CERT_DER_SIZE);
  unsigned len = 77;
  if (Crypt_Encode_Pkcs10(version, s[0].c_str(), s[1].c_str(), s[2].c_str(), s[3].c_str(),
                          s[4].c_str(), s[5].c_str(), s[6].c_str(), s[7].c_str(), s[8].c_str(),
                          s[9].c_str(), s[10].c_str(), s[11].c_str(), s[12].c_str(), s[13].c_str(),
                          s[14].c_str(), s[15].c_str(), key.data(), unsigned(key.size()),
                          keyName.c_str(), "", out.data(), &len) != 0) {
    EXPECT_EQ(len, 77u);
    return {};
  }
  out.resize(len);
  return out;
}

struct Decoded {
  unsigned rc = 1, version = 0;
  Name subject;
  Bytes key;
  std::string challenge;
};
// der reaches the library in a block of exactly its size; spkac picks the Netscape reader.
Decoded decode(bool spkac, const Bytes& der) {
  char s[16][HYLORN_NAME_SIZE], challenge[HYLORN_CHALLENGE_SIZE] = "";
  u8 key[HYLORN_PUBKEY_SIZE];
  unsigned len = 0, n = unsigned(der.size());
  Decoded d;
  d.rc = spkac ? Crypt_Decode_NetscapeCertReq(der.data(), n, key, &len, challenge)
               : Crypt_Decode_Pkcs10(der.data(), n, &d.version, s[0], s[1], s[2], s[3], s[4], s[5],
                                     s[6], s[7], s[8], s[9], s[10], s[11], s[12], s[13], s[14],
                                     s[15], key, &len);
  for (int i = 0; d.rc == 0 && !spkac && i < 16; ++i) d.subject[i] = s[i];
  if (d.rc == 0) d.key.assign(key, key + len), d.challenge = challenge;
  return d;
}

// Output and error of a shell command, and whether it exited with 0.
std::pair<bool, std::string> run(const std::string& command) {
  FILE* p = popen((command + " 2>&1").c_str(), "r");
  std::string out;
  char buf[4096];
  for (std::size_t n; p != nullptr && (n = fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
  return {p != nullptr && pclose(p) == 0, out};
}
// The list ends with tail; what comes before belongs to the layers below.
void expect_tail(const Entries& tail, const std::string& what) {
  const Entries list = read_errors();
  ASSERT_GE(list.size(), tail.size()) << what << "\n" << error_text();
  EXPECT_EQ(Entries(list.end() - long(tail.size()), list.end()), tail) << what;
}

// The bytes assembled by hand (when given); `openssl req` verifies the MD5 signature and
// shows the subject in DER order, postOfficeBox last; certtool reads it too.
TEST(Pkcs10Encode, AssembledByHandAndReadByOpenSslAndCerttool) {
  const struct {
    Name subject;
    Bytes name;
    std::string openssl;
    const char* certtool;
  } cases[] = {
      {kShort, name_der(), "C = DE, O = Hylorn, CN = Request One", " CN=Request One,O=Hylorn,C=DE"},
      {Name{}, from_hex("30 00"), "", ""},
      {kFull,
       {},
       "C = DE, O = Org, OU = Unit, ST = Bavaria, CN = Full Name, L = Munich, title = Dr, SN = "
       "Doe, GN = John, initials = JD, emailAddress = jd@example.org, postalAddress = Street 1, "
       "postalCode = 80331, telephoneNumber = \"+49 89 1\", telexNumber = Telex 9, "
       "postOfficeBox = Box 7",
       nullptr},
  };
  const KeyFile& k = keys();
  const std::string file = k.dir.path("r.der");
  for (const auto& c : cases) {
    const Bytes req = encode(c.subject, k.pub, k.path);
    ASSERT_GT(req.size(), 128u) << c.openssl;
    const Bytes sig(req.end() - 128, req.end());
    if (!c.name.empty()) {
      EXPECT_EQ(to_hex(req), to_hex(signed_md5(info(k.pub, c.name), sig)));
    }
    EXPECT_EQ(decode(false, req).subject, c.subject);
    write_file(file, req);
    const auto [ok, out] = run("openssl req -inform DER -verify -text -noout -in " + file);
    const auto [gnu_ok, gnu] = run("certtool --crq-info --inder --infile " + file);
    EXPECT_TRUE(ok && gnu_ok) << out << gnu;
    for (const auto& [text, line] :
         {std::pair{out, std::string("self-signature verify OK")},
          {out, "Signature Algorithm: md5WithRSAEncryption"},
          {out, "Public-Key: (1024 bit)"},
          {out, "Subject: " + c.openssl + "\n"},
          {gnu, "Modulus (bits 1024)"},
          {gnu, c.certtool ? "Subject:" + std::string(c.certtool) + "\n" : "Subject:"}}) {
      EXPECT_NE(text.find(line), std::string::npos) << line << "\n" << text;
    }
  }
}

// A version other than 0 and a key that cannot sign fail with their entries; what would
// not fit its field is refused with an entry that says so.
TEST(Pkcs10Encode, Refusals) {
  const KeyFile& k = keys();
  const Entries sign = {{613, 3, "Crypt_Gen_Signature"}},
                text = {{322, 1, "text too long for its field"}},
                version = {{605, 1, "version error"},
                           {609, 2, "u2l_pkcs10_version"},
                           {611, 2, "u2l_USER_PKCS10_CERT_REQ_INFO"},
                           {613, 1, "c2d_USER_PKCS10_CERT_REQ_INFO"}};
  const struct {
    Name subject;
    Bytes key;
    std::string keyName;
    u8 version;
    Entries tail;
  } cases[] = {
      {kShort, k.pub, k.path, 1, version},
      {kShort, k.pub, "keypair.db1", 0, sign},  // a slot key
      {kShort, k.pub, k.path + ".none", 0, sign},
      {named(std::string(256, 'x')), k.pub, k.path, 0, text},
      {kShort, Bytes(1025, 1), k.path, 0, {{322, 2, "octets too long for their field"}}},
      {kShort, k.pub, std::string(128, 'k'), 0, text},
  };
  for (const auto& c : cases) {
    EXPECT_TRUE(encode(c.subject, c.key, c.keyName, c.version).empty()) << c.keyName;
    expect_tail(c.tail, c.keyName);
  }
  // Every field at its bound still fits the room the header names.
  Name longest;
  longest.fill(std::string(255, 'x'));
  const Bytes largest = encode(longest, Bytes(1024, 0x41), k.path);
  EXPECT_FALSE(largest.empty());
  EXPECT_LE(largest.size(), std::size_t{HYLORN_PKCS10_DER_SIZE});
}

// `openssl req` over kFull: PrintableString where it can, emailAddress IA5String.
Bytes openssl_request(const std::string& md) {
  const std::string cfg = keys().dir.path("req.cnf"), out = keys().dir.path("openssl.der");
  write_file(cfg, bytes_of("[req]\ndistinguished_name=dn\nstring_mask=nombstr\n[dn]\n"));
  const auto [ok, text] =
      run("openssl req -new -config " + cfg + " -keyform DER -key " + keys().dir.path("key.der") +
          " -outform DER -out " + out + " -" + md +
          " -subj '/C=DE/O=Org/OU=Unit/ST=Bavaria/CN=Full Name/L=Munich/title=Dr/SN=Doe/GN=John/"
          "initials=JD/emailAddress=jd@example.org/postalAddress=Street 1/postalCode=80331/"
          "postOfficeBox=Box 7/telephoneNumber=\\+49 89 1/telexNumber=Telex 9'");
  EXPECT_TRUE(ok) << text;
  return read_file(out);
}

// Requests that decode: OpenSSL's, a wrong signature, the longest slot, key and challenge,
// an empty challenge, bytes outside IA5 copied as they are, a third element ignored.
TEST(RequestDecoders, Read) {
  const Bytes key = keys().pub, abc = tlv(0x16, bytes_of("abc")), k1023(1023, 7);
  const std::string c255(255, 'c'), c1023(1023, 'c'), latin1 = "\xC3\xA9t\xE9\x7F";
  const auto spkac_tool = run("openssl spkac -challenge 'Hylorn 42' -keyform DER -key " +
                              keys().dir.path("key.der") + " | sed 's/^SPKAC=//' | base64 -d");
  const struct {
    bool spkac;
    Bytes der;
    Name subject;
    Bytes key;
    std::string challenge;
  } cases[] = {
      {0, openssl_request("md5"), kFull, key, ""},
      {0, openssl_request("sha1"), kFull, key, ""},
      {0, signed_md5(info(key)), kShort, key, ""},
      {0, signed_md5(info(key, name_der(c255))), named(c255), key, ""},
      {0, signed_md5(info(k1023)), kShort, k1023, ""},
      {1, bytes_of(spkac_tool.second), {}, key, "Hylorn 42"},
      {1, spkac(key, abc), {}, key, "abc"},
      {1, spkac(key, from_hex("16 00")), {}, key, ""},
      {1, spkac(key, tlv(0x16, bytes_of(latin1))), {}, key, latin1},
      {1, spkac(key, abc, from_hex("02 01 05")), {}, key, "abc"},
      {1, spkac(key, tlv(0x16, Bytes(1023, 'c'))), {}, key, c1023},
  };
  for (const auto& c : cases) {
    const Decoded d = decode(c.spkac, c.der);
    SCOPED_TRACE(&c - cases);
    ASSERT_EQ(d.rc, 0u) << error_text();
    EXPECT_EQ(d.version, 0u);
    EXPECT_EQ(d.subject, c.subject);
    EXPECT_EQ(d.key, c.key);
    EXPECT_EQ(d.challenge, c.challenge);
  }
}

// Requests that fail, and the entries they leave: the reader's own, then its step (1
// reading, 2 converting, 0 none) and the whole call's; a Netscape list holds nothing more.
TEST(RequestDecoders, Refuse) {
  const Bytes key = keys().pub, abc = tlv(0x16, bytes_of("abc")), v1 = from_hex("A0 03 02 01 02");
  const Bytes validity =
      tlv(0x30, cat({tlv(0x17, bytes_of("250101000000Z")), tlv(0x17, bytes_of("300101000000Z"))}));
  const Bytes cert =
      tlv(0x30, cat({v1, {2, 1, 1}, alg(4), name_der(), validity, name_der(), spki(key)}));
  const Bytes cert_start = tlv(0x30, cat({v1, spki(key)}));  // a key after a version
  const Entries version1 = {{606, 1, "version error"}, {610, 2, "l2u_pkcs10_version"}},
                two_octets = {{602, 2, "version error"}, {604, 3, "Der_Decode_PKCS10_Version"}},
                not_integer = {{602, 1, "ASN1_Decode_Integer"},
                               {604, 3, "Der_Decode_PKCS10_Version"}},
                long_challenge = {{802, 1, "challenge too long"}, {702, 5, "l2u_challenge"}},
                utf8 = {{118, 2, "tag type"}, {705, 17, "ASN1_Decode_IA5String"}},
                not_key = {{108, 2, "tag type error"},
                           {212, 2, "ASN1_Decode_Sequence"},
                           {705, 17, "Der_Decode_X509_Public_Key"}},
                long_key = {{310, 1, "subject public key too long"},
                            {702, 4, "l2u_subjectPublickeyInfo"}};
  const struct {
    bool spkac;
    Bytes der;
    int step;
    Entries head;
  } cases[] = {
      {0, signed_md5(info(Bytes(1024, 7))), 2, {{610, 4, "l2u_subjectPublickeyInfo"}}},
      {0, signed_md5(info(key, name_der(), {2, 1, 1})), 2, version1},
      {0, signed_md5(info(key, name_der(), {2, 2, 1, 0})), 1, two_octets},
      {0, signed_md5(info(key, name_der(), {2, 1, 0}, {})), 1, {{604, 8, " "}}},
      {0, signed_md5(cert), 1, not_integer},
      {0, cat({signed_md5(info(key)), {0}}), 0, {{614, 2, "Der_Decode_COMMON_SIGNED_PACKET"}}},
      {0, signed_md5(info(key), Bytes(128, 0x33), 3), 0, {{614, 5, "l2u_signature"}}},
      {1, spkac(key, {}), 1, {{705, 21, "encode error"}}},
      {1, signed_md5(from_hex("30 00")), 1, {{705, 16, " "}}},
      {1, spkac(key, tlv(0x0C, bytes_of("abc"))), 1, utf8},
      {1, spkac(key, tlv(0x16, Bytes(1024, 'c'))), 2, long_challenge},
      {1, spkac(Bytes(1024, 9), abc), 2, long_key},
      {1, signed_md5(cert_start), 1, not_key},
  };
  const char* steps[2][3] = {
      {"d2c_USER_PKCS10_CERT_REQ", "Der_Decode_PKCS10_CERT_REQ_INFO",
       "l2u_USER_PKCS10_CERT_REQ_INFO"},
      {"d2c_USER_NETSCAPE_CERT_REQ_INFO", "Der_Decode_NETSCAPE_CERT_REQ_INFO",
       "l2u_USER_NETSCAPE_CERT_REQ_INFO"}};
  for (const auto& c : cases) {
    EXPECT_EQ(decode(c.spkac, c.der).rc, 1u) << to_hex(c.der);
    Entries tail = c.head;
    if (c.step != 0) {
      tail.push_back({c.spkac ? 703 : 612, c.step, steps[c.spkac][c.step]});
      tail.push_back({c.spkac ? 704 : 614, 4, steps[c.spkac][0]});
    }
    expect_tail(tail, to_hex(c.der));
    EXPECT_TRUE(!c.spkac || read_errors().size() == tail.size()) << error_text();  // nothing before
  }
}

// Every truncated prefix and every single-byte change of a valid request, each in a block
// of exactly its size (the sanitizer build catches any read past it or write past a field).
TEST(RequestDecoders, SurviveEveryPrefixAndSingleByteChange) {
  for (bool netscape : {false, true}) {
    const Bytes der = netscape ? spkac(keys().pub, tlv(0x16, bytes_of("challenge")))
                               : encode(named("Prefix"), keys().pub, keys().path);
    ASSERT_EQ(decode(netscape, der).rc, 0u);
    for (std::size_t n = 0; n < der.size(); ++n) {
      EXPECT_EQ(decode(netscape, Bytes(der.begin(), der.begin() + long(n))).rc, 1u) << n;
    }
    for (std::size_t i = 0; i < der.size(); ++i) {
      for (u8 flip : {0x01, 0x40, 0x80, 0xFF}) {
        Bytes changed = der;
        changed[i] ^= flip;
        EXPECT_LE(decode(netscape, changed).key.size(), 1023u) << i;
      }
    }
  }
}

}  // namespace
