#include <gtest/gtest.h>

#include <iterator>
#include <sstream>

#include "request/request_calls.h"

namespace {

using namespace request_test;

const Name kFull = {"DE",    "Org",   "Unit",     "Bavaria", "Full Name",      "Munich",
                    "Dr",    "Doe",   "John",     "JD",      "jd@example.org", "Street 1",
                    "80331", "Box 7", "+49 89 1", "Telex 9"};
const Name kShort = named("Request One");

// Every field at its bound still fits the room the header names.
TEST(Pkcs10Encode, Refusals) {
  const KeyFile& k = library_key();
  const Entries sign = {{613, 3, "Crypt_Gen_Signature"}},
                text = {{322, 1, "text too long for its field"}},
                version = {{605, 1, "version error"},
                           {609, 2, "u2l_pkcs10_version"},
                           {611, 2, "u2l_USER_PKCS10_CERT_REQ_INFO"},
                           {613, 1, "c2d_USER_PKCS10_CERT_REQ_INFO"}};
  const std::tuple<Name, Bytes, std::string, u8, Entries> cases[] = {
      {kShort, k.pub, k.path, 1, version},
      {kShort, k.pub, "keypair.db1", 0, sign},  // a slot key
      {kShort, k.pub, k.path + ".none", 0, sign},
      {named(std::string(256, 'x')), k.pub, k.path, 0, text},
      {kShort, Bytes(1025, 1), k.path, 0, {{322, 2, "octets too long for their field"}}},
      {kShort, k.pub, std::string(128, 'k'), 0, text},
  };
  for (const auto& [subject, key, keyName, version, tail] : cases) {
    EXPECT_TRUE(encode(subject, key, keyName, version).empty()) << keyName;
    expect_tail(tail, keyName);
  }
  Name longest;
  longest.fill(std::string(255, 'x'));
  const Bytes largest = encode(longest, Bytes(1024, 0x41), k.path);
  EXPECT_FALSE(largest.empty());
  EXPECT_LE(largest.size(), std::size_t{HYLORN_PKCS10_DER_SIZE});
}

// `openssl req` over subject, PrintableString where it can, emailAddress IA5String, and the
// slots in the order the encoder writes them, postOfficeBox last.
Bytes openssl_request(const std::string& md, const Name& subject) {
  std::istringstream names(
      "C O OU ST CN L title SN GN initials emailAddress postalAddress "
      "postalCode postOfficeBox telephoneNumber telexNumber");
  const std::vector<std::string> type{std::istream_iterator<std::string>(names), {}};
  std::string subj;
  for (int i : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14, 15, 13}) {
    if (!subject[i].empty()) subj += "/" + type[i] + "=";
    for (char c : subject[i]) subj += c == '+' ? std::string("\\+") : std::string(1, c);
  }
  const std::string cfg = library_key().dir.path("req.cnf"),
                    out = library_key().dir.path("openssl.der");
  write_file(cfg, bytes_of("[req]\ndistinguished_name=dn\nstring_mask=nombstr\n[dn]\n"));
  const ToolRun r = run("openssl req -new -config " + cfg + " -keyform DER -key " +
                        library_key().dir.path("key.der") + " -outform DER -out " + out + " -" +
                        md + " -subj '" + subj + "'");
  EXPECT_TRUE(r.ok) << r.output;
  return read_file(out);
}

// Byte for byte what `openssl req -md5` makes of the same subject and key.
TEST(Pkcs10Encode, SameBytesAsOpenSsl) {
  const KeyFile& k = library_key();
  for (const Name& subject : {kShort, kFull}) {
    const Bytes ours = encode(subject, k.pub, k.path);
    EXPECT_EQ(to_hex(ours), to_hex(openssl_request("md5", subject)));
    EXPECT_EQ(decode(false, ours).subject, subject);
  }
}

// Bytes outside IA5 are copied as they are; a third element is ignored.
TEST(RequestDecoders, Read) {
  const Bytes key = library_key().pub, abc = tlv(0x16, bytes_of("abc")), k1023(1023, 7);
  const std::string c255(255, 'c'), latin1 = "\xC3\xA9t\xE9\x7F";
  const ToolRun spkac_tool =
      run("openssl spkac -challenge 'Hylorn 42' -keyform DER -key " +
          library_key().dir.path("key.der") + " | sed 's/^SPKAC=//' | base64 -d");
  const std::tuple<bool, Bytes, Name, Bytes, std::string> cases[] = {
      {0, openssl_request("md5", kFull), kFull, key, ""},
      {0, openssl_request("sha1", kFull), kFull, key, ""},
      {0, signed_md5(info(key)), kShort, key, ""},
      {0, signed_md5(info(key, name_der(c255))), named(c255), key, ""},
      {0, signed_md5(info(k1023)), kShort, k1023, ""},
      {1, bytes_of(spkac_tool.output), {}, key, "Hylorn 42"},
      {1, spkac(key, abc), {}, key, "abc"},
      {1, spkac(key, from_hex("16 00")), {}, key, ""},
      {1, spkac(key, tlv(0x16, bytes_of(latin1))), {}, key, latin1},
      {1, spkac(key, abc, from_hex("02 01 05")), {}, key, "abc"},
      {1, spkac(key, tlv(0x16, Bytes(1023, 'c'))), {}, key, std::string(1023, 'c')},
  };
  for (const auto& [netscape, der, subject, pub, challenge] : cases) {
    const Decoded d = decode(netscape, der);
    ASSERT_EQ(d.rc, 0u) << error_text();
    EXPECT_EQ(std::make_tuple(d.version, d.subject, d.key, d.challenge),
              std::make_tuple(0u, subject, pub, challenge));
  }
}

// The reader's entries, then its step (1 reading, 2 converting, 0 none) and the call's.
TEST(RequestDecoders, Refuse) {
  const Bytes key = library_key().pub, abc = tlv(0x16, bytes_of("abc")),
              v1 = from_hex("A0 03 02 01 02");
  const Bytes validity =
      seq({tlv(0x17, bytes_of("250101000000Z")), tlv(0x17, bytes_of("300101000000Z"))});
  const Bytes cert = seq({v1, {2, 1, 1}, alg(4), name_der(), validity, name_der(), spki(key)});
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
  const std::tuple<bool, Bytes, int, Entries> cases[] = {
      {0, signed_md5(info(Bytes(1024, 7))), 2, {{610, 4, "l2u_subjectPublickeyInfo"}}},
      {0, signed_md5(info(key, name_der(), {2, 1, 1})), 2, version1},
      {0, signed_md5(info(key, name_der(), {2, 2, 1, 0})), 1, two_octets},
      {0, signed_md5(info(key, name_der(), {2, 1, 0}, {})), 1, {{604, 8, " "}}},
      {0, signed_md5(cert), 1, not_integer},
      {0, concat({signed_md5(info(key)), {0}}), 0, {{614, 2, "Der_Decode_COMMON_SIGNED_PACKET"}}},
      {0, signed_md5(info(key), Bytes(128, 0x33), 3), 0, {{614, 5, "l2u_signature"}}},
      {1, spkac(key, {}), 1, {{705, 21, "encode error"}}},
      {1, signed_md5(from_hex("30 00")), 1, {{705, 16, " "}}},
      {1, spkac(key, tlv(0x0C, bytes_of("abc"))), 1, utf8},
      {1, spkac(key, tlv(0x16, Bytes(1024, 'c'))), 2, long_challenge},
      {1, spkac(Bytes(1024, 9), abc), 2, long_key},
      {1, signed_md5(seq({v1, spki(key)})), 1, not_key},  // a key after a version
  };
  const char* steps[2][3] = {
      {"d2c_USER_PKCS10_CERT_REQ", "Der_Decode_PKCS10_CERT_REQ_INFO",
       "l2u_USER_PKCS10_CERT_REQ_INFO"},
      {"d2c_USER_NETSCAPE_CERT_REQ_INFO", "Der_Decode_NETSCAPE_CERT_REQ_INFO",
       "l2u_USER_NETSCAPE_CERT_REQ_INFO"}};
  for (const auto& [netscape, der, step, head] : cases) {
    EXPECT_EQ(decode(netscape, der).rc, 1u) << to_hex(der);
    Entries tail = head;
    if (step != 0) {
      tail.push_back({netscape ? 703 : 612, step, steps[netscape][step]});
      tail.push_back({netscape ? 704 : 614, 4, steps[netscape][0]});
    }
    expect_tail(tail, to_hex(der));
    EXPECT_TRUE(!netscape || read_errors().size() == tail.size())
        << error_text();  // nothing before
  }
}

}  // namespace
