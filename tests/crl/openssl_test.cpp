// OpenSSL and GnuTLS read every CRL we write, and our decoder reads CRLs that OpenSSL's
// X509_CRL API writes, entry by entry.
#include <gtest/gtest.h>
#include <openssl/x509v3.h>

#include <fstream>

#include "crl_fixtures.h"
#include "hylorn.h"
#include "support/openssl_bytes.h"
#include "support/temp_dir.h"

namespace {

using namespace crl_test;

// A CRL with every feature: entries with and without extensions, each reason once,
// both Time types, AKI and CRL number.
Crl full_crl(u32 alg) {
  Crl c = base_crl();
  c.alg = alg;
  c.thisUpdate = "20251231235959";
  c.nextUpdate = "20500101000000";
  const u32 reasons[] = {0, 1, 2, 3, 4, 5, 6, 8, 9, 10};
  for (u32 i = 0; i < std::size(reasons); ++i) {
    c.entries.push_back(Entry{{u8(0x10 + i), u8(i)},
                              "2025021" + std::to_string(i) + "083000",
                              kReason | kInvalidity,
                              i % 2 ? kReason : kInvalidity,
                              reasons[i],
                              "2025011" + std::to_string(i) + "000000"});
  }
  c.entries.push_back(
      Entry{{0x80, 0x01}, "20491231235959", 0, 0, 0, ""});  // no extensions; high bit set
  c.ext = kAki | kNumber;
  c.akiIssuer = name_of("CN", "Hylorn Root", "Root CA");
  c.akiSerial = {0x03, 0xe8};
  c.number = {0x01, 0x00};
  return c;
}

std::string text_of(const ASN1_TIME* t) {
  BIO* bio = BIO_new(BIO_s_mem());
  ASN1_TIME_print_ex(bio, t, ASN1_DTFLGS_ISO8601);
  char* data = nullptr;
  const long n = BIO_get_mem_data(bio, &data);
  std::string out(data, std::size_t(n));
  BIO_free(bio);
  return out;
}

// "20250210083000" -> "2025-02-10 08:30:00Z", as OpenSSL prints ISO 8601.
std::string iso(const std::string& t) {
  return t.substr(0, 4) + "-" + t.substr(4, 2) + "-" + t.substr(6, 2) + " " + t.substr(8, 2) + ":" +
         t.substr(10, 2) + ":" + t.substr(12, 2) + "Z";
}

Bytes integer_bytes(const ASN1_INTEGER* i) {
  return Bytes(ASN1_STRING_get0_data(i), ASN1_STRING_get0_data(i) + ASN1_STRING_length(i));
}

std::string name_text(const X509_NAME* n) {
  char buf[512];
  X509_NAME_oneline(n, buf, sizeof buf);
  return buf;
}

class OpensslReadsOurs : public testing::TestWithParam<u32> {};

TEST_P(OpensslReadsOurs, EveryFieldAndTheSignature) {
  const Crl c = full_crl(GetParam());
  const Bytes der = encode(c);
  const CrlPtr crl = openssl_parse(der);
  ASSERT_NE(crl, nullptr);
  EXPECT_EQ(X509_CRL_get_version(crl.get()), 1);
  EXPECT_EQ(name_text(X509_CRL_get_issuer(crl.get())), "/C=CN/O=Hylorn Test CA/CN=CRL Issuer");
  EXPECT_EQ(text_of(X509_CRL_get0_lastUpdate(crl.get())), iso(c.thisUpdate));
  EXPECT_EQ(text_of(X509_CRL_get0_nextUpdate(crl.get())), iso(c.nextUpdate));

  const STACK_OF(X509_REVOKED)* revoked = X509_CRL_get_REVOKED(crl.get());
  ASSERT_EQ(sk_X509_REVOKED_num(revoked), int(c.entries.size()));
  for (int i = 0; i < sk_X509_REVOKED_num(revoked); ++i) {
    const Entry& want = c.entries[std::size_t(i)];
    SCOPED_TRACE(i);
    X509_REVOKED* r = sk_X509_REVOKED_value(revoked, i);
    Bytes magnitude = want.serial;
    while (magnitude.size() > 1 && magnitude[0] == 0) magnitude.erase(magnitude.begin());
    EXPECT_EQ(to_hex(integer_bytes(X509_REVOKED_get0_serialNumber(r))), to_hex(magnitude));
    EXPECT_EQ(text_of(X509_REVOKED_get0_revocationDate(r)), iso(want.revoked));
    int crit = -1;
    auto* reason =
        static_cast<ASN1_ENUMERATED*>(X509_REVOKED_get_ext_d2i(r, NID_crl_reason, &crit, nullptr));
    auto* when = static_cast<ASN1_GENERALIZEDTIME*>(
        X509_REVOKED_get_ext_d2i(r, NID_invalidity_date, nullptr, nullptr));
    if (want.ext == 0) {
      EXPECT_EQ(reason, nullptr);
      EXPECT_EQ(when, nullptr);
      EXPECT_EQ(X509_REVOKED_get_ext_count(r), 0);
      continue;
    }
    ASSERT_NE(reason, nullptr);
    ASSERT_NE(when, nullptr);
    EXPECT_EQ(ASN1_ENUMERATED_get(reason), long(want.reason));
    EXPECT_EQ(crit, (want.crit & kReason) ? 1 : 0);
    EXPECT_EQ(ASN1_STRING_type(when), V_ASN1_GENERALIZEDTIME);
    EXPECT_EQ(text_of(when), iso(want.invalidity));
    ASN1_ENUMERATED_free(reason);
    ASN1_GENERALIZEDTIME_free(when);
  }

  int crit = -1;
  auto* number =
      static_cast<ASN1_INTEGER*>(X509_CRL_get_ext_d2i(crl.get(), NID_crl_number, &crit, nullptr));
  ASSERT_NE(number, nullptr);
  EXPECT_EQ(ASN1_INTEGER_get(number), 256);
  EXPECT_EQ(crit, 0);
  ASN1_INTEGER_free(number);
  auto* aki = static_cast<AUTHORITY_KEYID*>(
      X509_CRL_get_ext_d2i(crl.get(), NID_authority_key_identifier, nullptr, nullptr));
  ASSERT_NE(aki, nullptr);
  EXPECT_EQ(aki->keyid, nullptr);
  ASSERT_EQ(sk_GENERAL_NAME_num(aki->issuer), 1);
  const GENERAL_NAME* gn = sk_GENERAL_NAME_value(aki->issuer, 0);
  ASSERT_EQ(gn->type, GEN_DIRNAME);
  EXPECT_EQ(name_text(gn->d.directoryName), "/C=CN/O=Hylorn Root/CN=Root CA");
  EXPECT_EQ(to_hex(integer_bytes(aki->serial)), "03e8");
  AUTHORITY_KEYID_free(aki);

  const EvpKey key = load_public_der(signing_key().pub);
  EXPECT_EQ(X509_CRL_verify(crl.get(), key.get()), 1);
}

INSTANTIATE_TEST_SUITE_P(Crl, OpensslReadsOurs, testing::Values(kMd5, kSha1),
                         [](const auto& info) { return info.param == kMd5 ? "md5" : "sha1"; });

// The command-line tools: the text they print, and the signature checked against the
// issuing certificate.
TEST(ToolsReadOurs, OpensslAndCerttoolPrintAndVerify) {
  const Crl c = full_crl(kSha1);
  const TempDir dir;
  write_file(dir.path("crl.der"), encode(c));
  std::ofstream(dir.path("ca.pem")) << pem_of(issuing_certificate(c.issuer).get());

  const auto [text, ok] =
      run("openssl crl -inform DER -in " + dir.path("crl.der") + " -noout -text");
  ASSERT_TRUE(ok) << text;
  for (const char* want :
       {"Issuer: C = CN, O = Hylorn Test CA, CN = CRL Issuer",
        "Last Update: Dec 31 23:59:59 2025 GMT", "Next Update: Jan  1 00:00:00 2050 GMT",
        "Serial Number: 1909", "Revocation Date: Feb 19 08:30:00 2025 GMT", "Key Compromise",
        "Remove From CRL", "Invalidity Date: critical", "Jan 19 00:00:00 2025 GMT",
        "X509v3 CRL Number:", "256", "DirName:/C=CN/O=Hylorn Root/CN=Root CA", "serial:03:E8",
        "Serial Number: 8001"}) {
    EXPECT_NE(text.find(want), std::string::npos) << want << "\n" << text;
  }
  const auto [verify, verified] = run("openssl crl -inform DER -in " + dir.path("crl.der") +
                                      " -noout -CAfile " + dir.path("ca.pem"));
  EXPECT_TRUE(verified) << verify;
  EXPECT_NE(verify.find("verify OK"), std::string::npos) << verify;

  const auto [info, read] = run("certtool --crl-info --inder --infile " + dir.path("crl.der"));
  ASSERT_TRUE(read) << info;
  for (const char* want :
       {"Version: 2", "Issuer: CN=CRL Issuer,O=Hylorn Test CA,C=CN", "Revoked certificates (11)",
        "Serial Number (hex): 1909", "Serial Number (hex): 008001",
        "CRL Number (not critical): 0100", "Authority Key Identifier (not critical)",
        "Fri Feb 14 08:30:00 UTC 2025"}) {
    EXPECT_NE(info.find(want), std::string::npos) << want << "\n" << info;
  }
}

// ---- OpenSSL writes, we read ----------------------------------------------------------------

X509_NAME* printable_name(const Name& n) {
  X509_NAME* name = X509_NAME_new();
  const char* fields[] = {"C", "O", "OU", "ST", "CN"};
  for (int i = 0; i < 5; ++i) {
    if (n[i].empty()) continue;
    X509_NAME_add_entry_by_txt(name, fields[i], V_ASN1_PRINTABLESTRING,
                               reinterpret_cast<const u8*>(n[i].c_str()), -1, -1, 0);
  }
  return name;
}

ASN1_TIME* time_of(const std::string& t, bool generalized) {
  ASN1_TIME* out = ASN1_TIME_new();
  ASN1_TIME_set_string(out, ((generalized ? t : t.substr(2)) + "Z").c_str());
  return out;
}

// OpenSSL sorts entries by serial when it signs, so the entries here are in that order.
Bytes openssl_crl(const Crl& c, const EVP_MD* md) {
  CrlPtr crl(X509_CRL_new());
  X509_CRL_set_version(crl.get(), c.version);
  X509_NAME* issuer = printable_name(c.issuer);
  X509_CRL_set_issuer_name(crl.get(), issuer);
  X509_NAME_free(issuer);
  ASN1_TIME* t = time_of(c.thisUpdate, c.thisUpdate >= "2050");
  X509_CRL_set1_lastUpdate(crl.get(), t);
  ASN1_TIME_free(t);
  if (!c.nextUpdate.empty()) {
    t = time_of(c.nextUpdate, c.nextUpdate >= "2050");
    X509_CRL_set1_nextUpdate(crl.get(), t);
    ASN1_TIME_free(t);
  }
  for (const Entry& e : c.entries) {
    X509_REVOKED* r = X509_REVOKED_new();
    BIGNUM* bn = BN_bin2bn(e.serial.data(), int(e.serial.size()), nullptr);
    ASN1_INTEGER* serial = BN_to_ASN1_INTEGER(bn, nullptr);
    X509_REVOKED_set_serialNumber(r, serial);
    ASN1_INTEGER_free(serial);
    BN_free(bn);
    t = time_of(e.revoked, e.revoked >= "2050");
    X509_REVOKED_set_revocationDate(r, t);
    ASN1_TIME_free(t);
    if (e.ext & kReason) {
      ASN1_ENUMERATED* code = ASN1_ENUMERATED_new();
      ASN1_ENUMERATED_set(code, long(e.reason));
      X509_REVOKED_add1_ext_i2d(r, NID_crl_reason, code, (e.crit & kReason) ? 1 : 0, 0);
      ASN1_ENUMERATED_free(code);
    }
    if (e.ext & kInvalidity) {
      ASN1_GENERALIZEDTIME* when = ASN1_GENERALIZEDTIME_new();
      ASN1_GENERALIZEDTIME_set_string(when, (e.invalidity + "Z").c_str());
      X509_REVOKED_add1_ext_i2d(r, NID_invalidity_date, when, (e.crit & kInvalidity) ? 1 : 0, 0);
      ASN1_GENERALIZEDTIME_free(when);
    }
    X509_CRL_add0_revoked(crl.get(), r);
  }
  if (c.ext & kNumber) {
    ASN1_INTEGER* number = ASN1_INTEGER_new();
    ASN1_STRING_set(number, c.number.data(), int(c.number.size()));
    X509_CRL_add1_ext_i2d(crl.get(), NID_crl_number, number, (c.crit & kNumber) ? 1 : 0, 0);
    ASN1_INTEGER_free(number);
  }
  if (c.ext & kAki) {
    AUTHORITY_KEYID* aki = AUTHORITY_KEYID_new();
    aki->issuer = GENERAL_NAMES_new();
    GENERAL_NAME* gn = GENERAL_NAME_new();
    gn->type = GEN_DIRNAME;
    gn->d.directoryName = printable_name(c.akiIssuer);
    sk_GENERAL_NAME_push(aki->issuer, gn);
    aki->serial = ASN1_INTEGER_new();
    ASN1_STRING_set(aki->serial, c.akiSerial.data(), int(c.akiSerial.size()));
    X509_CRL_add1_ext_i2d(crl.get(), NID_authority_key_identifier, aki, (c.crit & kAki) ? 1 : 0, 0);
    AUTHORITY_KEYID_free(aki);
  }
  const EvpKey key = load_private_der(signing_key().pri);
  if (X509_CRL_sign(crl.get(), key.get(), md) <= 0) return {};
  return i2d_bytes(i2d_X509_CRL, crl.get());
}

TEST(WeReadOpenssls, EntryByEntry) {
  struct Row {
    const EVP_MD* md;
    u32 alg;
  };
  for (const Row& row : {Row{EVP_md5(), kMd5}, Row{EVP_sha1(), kSha1}}) {
    SCOPED_TRACE(row.alg);
    Crl c = full_crl(row.alg);
    c.crit = kAki;
    for (Entry& e : c.entries) e = as_decoded(e);
    const Bytes der = openssl_crl(c, row.md);
    ASSERT_FALSE(der.empty());
    const std::optional<Crl> back = decode(der);
    ASSERT_TRUE(back.has_value());
    EXPECT_EQ(back->version, 1u);
    EXPECT_EQ(back->alg, row.alg);
    EXPECT_EQ(back->params, (Bytes{0x05, 0x00}));
    EXPECT_EQ(back->issuer, c.issuer);
    EXPECT_EQ(back->thisUpdate, c.thisUpdate);
    EXPECT_EQ(back->nextUpdate, c.nextUpdate);
    EXPECT_EQ(back->entries, c.entries);
    EXPECT_EQ(back->ext, kAki | kNumber);
    EXPECT_EQ(back->crit, kAki);
    EXPECT_EQ(back->akiIssuer, c.akiIssuer);
    EXPECT_EQ(back->akiSerial, c.akiSerial);
    EXPECT_EQ(back->number, c.number);
  }
}

}  // namespace
