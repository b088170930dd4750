// OpenSSL and GnuTLS against our CRLs: OpenSSL's X509_CRL API writes the very bytes we
// write for the same content, verifies our signatures, and our decoder reads its CRLs
// entry by entry; the command-line tools print every field and verify the signature.
#include <gtest/gtest.h>

#include <fstream>

#include "crl_fixtures.h"
#include "hylorn.h"
#include "support/temp_dir.h"

namespace {

using namespace crl_test;

// Every reason, both Time types, all four flags and their criticality, a serial with its
// top bit set, an entry without extensions. Serials ascend, as OpenSSL sorts them.
Crl full_crl(u32 alg) {
  Crl c;
  c.alg = alg;
  c.thisUpdate = "20251231235959";
  c.nextUpdate = "20500101000000";
  const u32 reasons[] = {0, 1, 2, 3, 4, 5, 6, 8, 9, 10};
  for (u32 i = 0; i < 10; ++i) {
    const std::string d = std::to_string(i);
    c.entries.push_back({{u8(0x10 + i), u8(i)},
                         "2025021" + d + "083000",
                         kReason | kInvalidity,
                         i % 2 ? kReason : kInvalidity,
                         reasons[i],
                         "2025011" + d + "000000"});
  }
  c.entries.push_back({{0x80, 0x01}, "20491231235959", 0, 0, 0, ""});
  c.ext = kAki | kNumber;
  c.crit = kAki;
  c.akiIssuer = {"CN", "Hylorn Root", "", "", "Root CA"};
  c.akiSerial = {0x03, 0xe8};
  c.number = {0x01, 0x00};
  return c;
}

// The same content, the same key and a deterministic signature: the same bytes. (Our
// SHA-1 identifier is the OIW one, so only MD5 compares whole.)
TEST(CrlAgainstOpenssl, OpensslWritesTheSameBytesAndVerifiesOurs) {
  const Bytes ours = encode(full_crl(kMd5));
  EXPECT_EQ(to_hex(ours), to_hex(openssl_crl(full_crl(kMd5), EVP_md5())));
  const EvpKey key = load_public_der(signing_key().pub);
  for (const Bytes& der : {ours, encode(full_crl(kSha1))}) {
    const u8* p = der.data();
    X509_CRL* crl = d2i_X509_CRL(nullptr, &p, long(der.size()));
    ASSERT_NE(crl, nullptr);
    EXPECT_EQ(p, der.data() + der.size());
    EXPECT_EQ(X509_CRL_verify(crl, key.get()), 1);
    X509_CRL_free(crl);
  }
}

TEST(CrlAgainstOpenssl, OpensslsCrlsDecodeEntryByEntry) {
  for (auto [alg, md] : {std::pair{kMd5, EVP_md5()}, std::pair{kSha1, EVP_sha1()}}) {
    Crl want = full_crl(alg);
    for (Entry& e : want.entries) e = as_decoded(e);
    EXPECT_EQ(decode(openssl_crl(full_crl(alg), md)), want) << alg;
  }
}

TEST(CrlAgainstTools, OpensslAndCerttoolPrintAndVerify) {
  const Crl c = full_crl(kSha1);
  const TempDir dir;
  write_file(dir.path("crl.der"), encode(c));
  std::ofstream(dir.path("ca.pem")) << issuing_certificate_pem(c.issuer);
  const std::string crl = " -inform DER -in " + dir.path("crl.der") + " -noout";
  const auto [text, ok] = run("openssl crl" + crl + " -text");
  ASSERT_TRUE(ok) << text;
  for (const char* want :
       {"Issuer: C = CN, O = Hylorn Test CA, CN = CRL Issuer",
        "Last Update: Dec 31 23:59:59 2025 GMT", "Next Update: Jan  1 00:00:00 2050 GMT",
        "Serial Number: 1909", "Revocation Date: Feb 19 08:30:00 2025 GMT", "Remove From CRL",
        "Invalidity Date: critical", "Jan 19 00:00:00 2025 GMT",
        "X509v3 CRL Number: \n                256", "Authority Key Identifier: critical",
        "DirName:/C=CN/O=Hylorn Root/CN=Root CA", "serial:03:E8",
        "Serial Number: 8001\n        Revocation Date: Dec 31 23:59:59 2049"}) {
    EXPECT_NE(text.find(want), std::string::npos) << want << "\n" << text;
  }
  const auto [verify, verified] = run("openssl crl" + crl + " -CAfile " + dir.path("ca.pem"));
  EXPECT_TRUE(verified && verify.find("verify OK") != std::string::npos) << verify;
  const auto [info, read] = run("certtool --crl-info --inder --infile " + dir.path("crl.der"));
  ASSERT_TRUE(read) << info;
  for (const char* want :
       {"Issuer: CN=CRL Issuer,O=Hylorn Test CA,C=CN", "Revoked certificates (11)",
        "Serial Number (hex): 1909", "Serial Number (hex): 008001",
        "CRL Number (not critical): 0100", "Authority Key Identifier (critical)"}) {
    EXPECT_NE(info.find(want), std::string::npos) << want << "\n" << info;
  }
}

}  // namespace
