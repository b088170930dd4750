// OpenSSL and GnuTLS against our CRLs: OpenSSL's X509_CRL API writes the very bytes we
// write for the same content and verifies our signature, each side's CRL decodes here
// field by field, and the command-line tools print every field and verify.
#include "crl_fixtures.h"

namespace {

using namespace crl_test;

// Every reason and ENUMERATED lengths up to five octets, both Time types, all four flags
// and their criticality, a serial with its top bit set, an entry without extensions.
// Serials ascend, as OpenSSL sorts them.
Crl full_crl(u32 alg) {
  Crl c{.alg = alg,
        .thisUpdate = "20251231235959",
        .nextUpdate = "20500101000000",
        .ext = kAki | kNumber,
        .crit = kAki,
        .akiIssuer = {"CN", "Hylorn Root", "", "", "Root CA"},
        .akiSerial = {0x03, 0xe8},
        .number = {0x01, 0x00}};
  const u32 reasons[] = {0,  1,    2,    3,     4,      5,        6,          8,         9,
                         10, 0x7F, 0x80, 0x100, 0x8000, 0x123456, 0x80000000, 0xFFFFFFFF};
  for (u32 i = 0; i < std::size(reasons); ++i) {
    const u32 crit = i % 2 ? kReason : kInvalidity;
    c.entries.push_back({{u8(0x10 + i), u8(i)},
                         "20250219083000",
                         kReason | kInvalidity,
                         crit,
                         reasons[i],
                         "20250119000000"});
  }
  c.entries.push_back({{0x80, 0x01}, "20491231235959"});
  return c;
}

const std::pair<const char*, Crl> kRows[] = {
    {"full_md5", full_crl(kMd5)},
    {"full_sha1", full_crl(kSha1)},
    // no nextUpdate, no entries; Final flags other than the two it knows write nothing
    {"bare", {.nextUpdate = "", .ext = 0x0C02, .crit = 0x0C02}},
    {"v1_entry_without_extensions", {.version = 0, .entries = {{{0x05}, "20250215083000"}}}},
    // 2049 is the last UTCTime year, 2050 the first GeneralizedTime one; an invalidity
    // date is a GeneralizedTime whatever its year.
    {"years_2049_2050",
     {.thisUpdate = "20491231235959",
      .entries =
          {{{0x01}, "20500101000000", kInvalidity, 0, 0, "20200101000000"},
           {{0x02}, "20491231235959", kReason | kInvalidity, kInvalidity, 5, "20500101000000"}},
      .ext = kNumber | 0x0402,
      .crit = kNumber,
      .number = {0x2a}}},
};

// The same content, the same key and a deterministic signature: the same bytes, and so
// a signature OpenSSL verifies. (Our SHA-1 identifier is the OIW one, so only MD5
// compares whole; the tools below verify a SHA-1 CRL.)
TEST(CrlAgainstOpenssl, SameBytesAndSameFields) {
  for (const auto& [name, crl] : kRows) {
    const Bytes ours = encode(crl);
    const Bytes theirs = openssl_crl(crl, crl.alg == kMd5 ? EVP_md5() : EVP_sha1());
    EXPECT_EQ(to_hex(ours), to_hex(crl.alg == kMd5 ? theirs : ours)) << name;
    EXPECT_EQ(decode(ours), as_decoded(crl)) << name;
    EXPECT_EQ(decode(theirs), as_decoded(crl)) << name;
  }
}

TEST(CrlAgainstTools, OpensslAndCerttoolPrintAndVerify) {
  const TempDir dir;
  const std::string crl = dir.path("crl.der"), ca = dir.path("ca.pem");
  write_file(crl, encode(full_crl(kSha1)));
  write_file(dir.path("ca.der"), library_key().pri);
  ASSERT_TRUE(run("openssl req -x509 -new -keyform DER -key " + dir.path("ca.der") +
                  " -subj '/C=CN/O=Hylorn Test CA/CN=CRL Issuer' -days 1 -out " + ca)
                  .ok);
  expect_outputs({
      {"openssl crl -inform DER -noout -text -in " + crl,
       {"Issuer: C = CN, O = Hylorn Test CA, CN = CRL Issuer",
        "Last Update: Dec 31 23:59:59 2025 GMT", "Next Update: Jan  1 00:00:00 2050 GMT",
        "Serial Number: 1909", "Revocation Date: Feb 19 08:30:00 2025 GMT", "Remove From CRL",
        "Invalidity Date: critical", "Jan 19 00:00:00 2025 GMT",
        "X509v3 CRL Number: \n                256", "Authority Key Identifier: critical",
        "DirName:/C=CN/O=Hylorn Root/CN=Root CA", "serial:03:E8",
        "Serial Number: 8001\n        Revocation Date: Dec 31 23:59:59 2049"}},
      {"openssl crl -inform DER -noout -in " + crl + " -CAfile " + ca, {"verify OK"}},
      {"certtool --crl-info --inder --infile " + crl,
       {"Issuer: CN=CRL Issuer,O=Hylorn Test CA,C=CN", "Revoked certificates (18)",
        "Serial Number (hex): 1909", "Serial Number (hex): 008001",
        "CRL Number (not critical): 0100", "Authority Key Identifier (critical)"}},
  });
}

}  // namespace
