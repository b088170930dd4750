// Netscape requests: one made by `openssl spkac`, and SPKACs assembled from their ASN.1
// for each rule of the reader, with the entries of each refusal.
#include <openssl/evp.h>
#include <openssl/pem.h>

#include "request_fixtures.h"

namespace {

using namespace request_test;

// SignedPublicKeyAndChallenge with a made-up signature: nothing checks it.
Bytes spkac(const Bytes& key, const Bytes& challenge, const Bytes& more = {}) {
  return signed_md5(tlv(0x30, cat({spki(key), challenge, more})), Bytes(128, 0x33));
}

TEST(Spkac, OpenSslRequestGivesKeyAndChallenge) {
  if (!have_tool("openssl")) GTEST_SKIP() << "no openssl tool";
  const KeyFile& k = key_file();
  TempDir dir;
  const std::string pem = dir.path("key.pem");
  {
    const EvpKey key = load_private_der(k.pri);
    FILE* f = fopen(pem.c_str(), "w");
    ASSERT_NE(f, nullptr);
    ASSERT_EQ(PEM_write_PrivateKey(f, key.get(), nullptr, nullptr, 0, nullptr, nullptr), 1);
    fclose(f);
  }
  const ToolRun run = run_tool("openssl spkac -key " + pem + " -challenge 'Hylorn 42'");
  ASSERT_TRUE(run.ok) << run.out;
  ASSERT_EQ(run.out.rfind("SPKAC=", 0), 0u) << run.out;
  std::string b64 = run.out.substr(6);
  while (!b64.empty() && std::isspace(u8(b64.back()))) b64.pop_back();
  Bytes der(b64.size());
  const int n =
      EVP_DecodeBlock(der.data(), reinterpret_cast<const u8*>(b64.data()), int(b64.size()));
  ASSERT_GT(n, 0);
  der.resize(std::size_t(n) - std::count(b64.end() - 2, b64.end(), '='));
  const Decoded d = decode_spkac(der);
  ASSERT_EQ(d.rc, 0u) << error_text();
  EXPECT_EQ(d.key, k.pub);
  EXPECT_EQ(d.challenge, "Hylorn 42");
}

TEST(Spkac, AssembledRequests) {
  const Bytes key = key_file().pub;
  const Bytes abc = tlv(0x16, bytes_of("abc"));
  const std::string latin1 = "\xC3\xA9t\xE9\x7F";
  const Bytes cert_tbs = tlv(0x30, cat({from_hex("A0 03 02 01 02 02 01 01"), spki(key)}));
  const Entries outer = {{703, 1, "Der_Decode_NETSCAPE_CERT_REQ_INFO"},
                         {704, 4, "d2c_USER_NETSCAPE_CERT_REQ_INFO"}};
  const Entries converting = {{703, 2, "l2u_USER_NETSCAPE_CERT_REQ_INFO"},
                              {704, 4, "d2c_USER_NETSCAPE_CERT_REQ_INFO"}};
  const auto with = [](Entries head, const Entries& rest) {
    head.insert(head.end(), rest.begin(), rest.end());
    return head;
  };
  const struct {
    const char* what;
    Bytes der;
    std::string challenge;  // when it decodes
    Entries entries;        // the whole list when it fails
  } cases[] = {
      {"wrong signature", spkac(key, abc), "abc", {}},
      {"empty challenge", spkac(key, from_hex("16 00")), "", {}},
      {"bytes outside IA5 copied", spkac(key, tlv(0x16, bytes_of(latin1))), latin1, {}},
      {"third element ignored", spkac(key, abc, from_hex("02 01 05")), "abc", {}},
      {"1,023-character challenge",
       spkac(key, tlv(0x16, Bytes(1023, 'c'))),
       std::string(1023, 'c'),
       {}},
      {"only the key", spkac(key, {}), "", with({{705, 21, "encode error"}}, outer)},
      {"empty SEQUENCE", signed_md5(from_hex("30 00"), Bytes(128, 1)), "",
       with({{705, 16, " "}}, outer)},
      {"UTF8String challenge", spkac(key, tlv(0x0C, bytes_of("abc"))), "",
       with({{118, 2, "tag type"}, {705, 17, "ASN1_Decode_IA5String"}}, outer)},
      {"1,024-character challenge", spkac(key, tlv(0x16, Bytes(1024, 'c'))), "",
       with({{802, 1, "challenge too long"}, {702, 5, "l2u_challenge"}}, converting)},
      {"1,024-octet key", spkac(Bytes(1024, 9), abc), "",
       with({{310, 1, "subject public key too long"}, {702, 4, "l2u_subjectPublickeyInfo"}},
            converting)},
  };
  for (const auto& c : cases) {
    const Decoded d = decode_spkac(c.der);
    if (c.entries.empty()) {
      ASSERT_EQ(d.rc, 0u) << c.what << "\n" << error_text();
      EXPECT_EQ(d.challenge, c.challenge) << c.what;
      EXPECT_EQ(d.key, key) << c.what;
    } else {
      EXPECT_EQ(d.rc, 1u) << c.what;
      EXPECT_EQ(entries(), c.entries) << c.what;
    }
  }
  // A certificate's to-be-signed part starts with its version, not a key.
  EXPECT_EQ(decode_spkac(signed_md5(cert_tbs, Bytes(128, 2))).rc, 1u);
  expect_tail(with({{705, 17, "Der_Decode_X509_Public_Key"}}, outer), "certificate");
}

// Every allocation of the reader can fail cleanly.
TEST(Spkac, EachAllocationFailure) {
  const Bytes der = spkac(key_file().pub, tlv(0x16, bytes_of("abc")));
  u8 key[HYLORN_PUBKEY_SIZE];
  char challenge[HYLORN_CHALLENGE_SIZE];
  unsigned keyLen = 0;
  expect_each_allocation_fails(
      [&] {
        return Crypt_Decode_NetscapeCertReq(der.data(), unsigned(der.size()), key, &keyLen,
                                            challenge);
      },
      704);
}

}  // namespace
