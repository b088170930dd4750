// Netscape requests: one made by `openssl spkac`, and SPKACs assembled from their ASN.1
// for each rule of the reader, with the entries of each refusal.
#include <openssl/evp.h>
#include <openssl/pem.h>

#include "request_fixtures.h"

namespace {

using namespace request_test;

// SignedPublicKeyAndChallenge around key, challenge and more; the signature is made up.
Bytes spkac(const Bytes& key, const Bytes& challenge, const Bytes& more = {}) {
  return signed_md5(tlv(0x30, cat({spki(key), challenge, more})));
}

TEST(Spkac, OpenSslRequestGivesKeyAndChallenge) {
  if (!have_tool("openssl")) GTEST_SKIP() << "no openssl tool";
  const KeyFile& k = key_file();
  const TempDir dir;
  FILE* f = fopen(dir.path("key.pem").c_str(), "w");
  ASSERT_EQ(
      PEM_write_PrivateKey(f, load_private_der(k.pri).get(), nullptr, nullptr, 0, nullptr, nullptr),
      1);
  fclose(f);
  auto [ok, out] = run_tool("openssl spkac -challenge 'Hylorn 42' -key " + dir.path("key.pem"));
  ASSERT_TRUE(ok && out.rfind("SPKAC=", 0) == 0) << out;
  out = out.substr(6, out.find_last_not_of("\r\n") - 5);
  Bytes der(out.size());
  const int n =
      EVP_DecodeBlock(der.data(), reinterpret_cast<const u8*>(out.data()), int(out.size()));
  der.resize(std::size_t(n) - std::count(out.end() - 2, out.end(), '='));
  const Decoded d = decode_spkac(der);
  ASSERT_EQ(d.rc, 0u) << error_text();
  EXPECT_EQ(d.key, k.pub);
  EXPECT_EQ(d.challenge, "Hylorn 42");
}

TEST(Spkac, AssembledRequests) {
  const Bytes key = key_file().pub, abc = tlv(0x16, bytes_of("abc"));
  const std::string latin1 = "\xC3\xA9t\xE9\x7F";
  const auto in = [](Entries head, int d2c_err, const char* d2c_msg) {
    head.push_back({703, d2c_err, d2c_msg});
    head.push_back({704, 4, "d2c_USER_NETSCAPE_CERT_REQ_INFO"});
    return head;
  };
  const char* der = "Der_Decode_NETSCAPE_CERT_REQ_INFO";
  const char* l2u = "l2u_USER_NETSCAPE_CERT_REQ_INFO";
  const struct {
    const char* what;
    Bytes der;
    std::string challenge;  // when it decodes
    Entries entries;        // the whole list when it fails
  } cases[] = {
      {"wrong signature", spkac(key, abc), "abc", {}},
      {"empty challenge", spkac(key, from_hex("16 00")), "", {}},
      {"bytes outside IA5", spkac(key, tlv(0x16, bytes_of(latin1))), latin1, {}},
      {"third element", spkac(key, abc, from_hex("02 01 05")), "abc", {}},
      {"1,023 characters", spkac(key, tlv(0x16, Bytes(1023, 'c'))), std::string(1023, 'c'), {}},
      {"only the key", spkac(key, {}), "", in({{705, 21, "encode error"}}, 1, der)},
      {"empty SEQUENCE", signed_md5(from_hex("30 00")), "", in({{705, 16, " "}}, 1, der)},
      {"UTF8String", spkac(key, tlv(0x0C, bytes_of("abc"))), "",
       in({{118, 2, "tag type"}, {705, 17, "ASN1_Decode_IA5String"}}, 1, der)},
      {"1,024 characters", spkac(key, tlv(0x16, Bytes(1024, 'c'))), "",
       in({{802, 1, "challenge too long"}, {702, 5, "l2u_challenge"}}, 2, l2u)},
      {"1,024-octet key", spkac(Bytes(1024, 9), abc), "",
       in({{310, 1, "subject public key too long"}, {702, 4, "l2u_subjectPublickeyInfo"}}, 2, l2u)},
  };
  for (const auto& c : cases) {
    const Decoded d = decode_spkac(c.der);
    EXPECT_EQ(d.rc, c.entries.empty() ? 0u : 1u) << c.what;
    if (d.rc != 0) {
      EXPECT_EQ(read_errors(), c.entries) << c.what;
    } else {
      EXPECT_EQ(d.challenge, c.challenge) << c.what;
      EXPECT_EQ(d.key, key) << c.what;
    }
  }
  // A certificate's to-be-signed part starts with its version, not a key.
  const Bytes tbs = tlv(0x30, cat({from_hex("A0 03 02 01 02 02 01 01"), spki(key)}));
  EXPECT_EQ(decode_spkac(signed_md5(tbs)).rc, 1u);
  expect_tail(in({{705, 17, "Der_Decode_X509_Public_Key"}}, 1, der), "certificate");
}

}  // namespace
