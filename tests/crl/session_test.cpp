// The sessions' rules, on DER assembled by hand from RFC 5280's ASN.1: what Init, Update
// and Final write for each combination of optional parts, what the decoder returns for
// each, the error chains, and the refusals of over-long input.
#include <gtest/gtest.h>

#include <string>

#include "crl_fixtures.h"
#include "hylorn.h"
#include "support/error_list.h"

namespace {

using namespace crl_test;

// ---- the parts of the expected TBSCertList ------------------------------------------------

Bytes str(u8 tag, const std::string& s) {
  return tlv(tag, bytes_of(s));
}
Bytes seq(std::initializer_list<Bytes> parts) {
  return tlv(0x30, cat(parts));
}
Bytes utc(const std::string& s) {
  return str(0x17, s);
}
Bytes gen(const std::string& s) {
  return str(0x18, s);
}
Bytes integer(const Bytes& contents) {
  return tlv(0x02, contents);
}

const Bytes kMd5Rsa = from_hex("30 0d 06 09 2a 86 48 86 f7 0d 01 01 04 05 00");

// RDNSequence of C, O, CN as PrintableStrings, one attribute per SET.
Bytes name_der(const std::string& c, const std::string& o, const std::string& cn) {
  auto rdn = [](const char* oid_hex, const std::string& v) {
    return tlv(0x31, seq({from_hex(oid_hex), str(0x13, v)}));
  };
  return seq({rdn("06 03 55 04 06", c), rdn("06 03 55 04 0a", o), rdn("06 03 55 04 03", cn)});
}
const Bytes kIssuer = name_der("CN", "Hylorn Test CA", "CRL Issuer");

// Extension ::= SEQUENCE { extnID, critical BOOLEAN DEFAULT FALSE, extnValue OCTET STRING }
Bytes extension(const char* oid_hex, bool critical, const Bytes& value) {
  return seq({from_hex(oid_hex), critical ? from_hex("01 01 ff") : Bytes{}, tlv(0x04, value)});
}
Bytes reason(u8 code, bool critical) {
  return extension("06 03 55 1d 15", critical, Bytes{0x0a, 0x01, code});
}
Bytes invalidity(const std::string& t, bool critical) {
  return extension("06 03 55 1d 18", critical, gen(t));
}

Entry entry(Bytes serial, std::string revoked, u32 ext = 0, u32 crit = 0, u32 code = 0,
            std::string inv = "") {
  return Entry{std::move(serial), std::move(revoked), ext, crit, code, std::move(inv)};
}

struct Case {
  const char* name;
  Crl crl;
  Bytes tbs;  // expected TBSCertList
};

std::vector<Case> tbs_cases() {
  std::vector<Case> cases;
  Crl c = base_crl();
  c.nextUpdate = "";
  cases.push_back({"no_update_and_no_next_update", c,
                   seq({integer({1}), kMd5Rsa, kIssuer, utc("250301120000Z")})});

  c = base_crl();
  c.version = 0;
  c.entries = {entry({0x05}, "20250215083000")};
  cases.push_back({"v1_entry_without_extensions", c,
                   seq({integer({0}), kMd5Rsa, kIssuer, utc("250301120000Z"), utc("250401120000Z"),
                        seq({seq({integer({0x05}), utc("250215083000Z")})})})});

  // Entries in the order added; reason alone, invalidity alone, both; an invalidity
  // date is a GeneralizedTime whatever its year.
  c = base_crl();
  c.entries = {entry({0x30, 0x39}, "20250210000000", kReason, kReason, 1),
               entry({0x01}, "20250211000000", kInvalidity, 0, 0, "20200101000000"),
               entry({0x7f, 0x00}, "20250212000000", kReason | kInvalidity, kInvalidity, 5,
                     "20491231235959")};
  cases.push_back(
      {"entry_extensions", c,
       seq({integer({1}), kMd5Rsa, kIssuer, utc("250301120000Z"), utc("250401120000Z"),
            seq({seq({integer({0x30, 0x39}), utc("250210000000Z"), seq({reason(1, true)})}),
                 seq({integer({0x01}), utc("250211000000Z"),
                      seq({invalidity("20200101000000Z", false)})}),
                 seq({integer({0x7f, 0x00}), utc("250212000000Z"),
                      seq({reason(5, false), invalidity("20491231235959Z", true)})})})})});

  // 2049 is the last UTCTime year, 2050 the first GeneralizedTime one.
  c = base_crl();
  c.thisUpdate = "20491231235959";
  c.nextUpdate = "20500101000000";
  c.entries = {entry({0x02}, "20500101000000")};
  cases.push_back(
      {"years_2049_and_2050", c,
       seq({integer({1}), kMd5Rsa, kIssuer, utc("491231235959Z"), gen("20500101000000Z"),
            seq({seq({integer({0x02}), gen("20500101000000Z")})})})});

  // AuthorityKeyIdentifier { [1] { [4] Name }, [2] serial } and CRLNumber, under [0].
  c = base_crl();
  c.ext = kAki | kNumber;
  c.crit = kNumber;
  c.akiIssuer = name_of("US", "Root Org", "Root");
  c.akiSerial = {0x01, 0x02};
  c.number = {0x2a};
  const Bytes aki =
      seq({tlv(0xa1, tlv(0xa4, name_der("US", "Root Org", "Root"))), from_hex("82 02 01 02")});
  cases.push_back({"crl_extensions", c,
                   seq({integer({1}), kMd5Rsa, kIssuer, utc("250301120000Z"), utc("250401120000Z"),
                        tlv(0xa0, seq({extension("06 03 55 1d 23", false, aki),
                                       extension("06 03 55 1d 14", true, integer({0x2a}))}))})});

  // Other bits of Final's flag word write nothing.
  c = base_crl();
  c.ext = 0x0402;
  cases.push_back(
      {"other_final_flags", c,
       seq({integer({1}), kMd5Rsa, kIssuer, utc("250301120000Z"), utc("250401120000Z")})});
  return cases;
}

class TbsWritten : public testing::TestWithParam<Case> {};

TEST_P(TbsWritten, AsAssembledFromTheAsn1) {
  const Case& c = GetParam();
  const Bytes der = encode(c.crl);
  ASSERT_FALSE(der.empty());
  EXPECT_EQ(to_hex(tbs_of(der)), to_hex(c.tbs));
}

INSTANTIATE_TEST_SUITE_P(Crl, TbsWritten, testing::ValuesIn(tbs_cases()),
                         [](const auto& info) { return std::string(info.param.name); });

// What comes back: every field, with the rules that make it differ from what went in.
TEST(CrlRoundTrip, DecodesWhatWasWrittenUnderTheRules) {
  for (const Case& c : tbs_cases()) {
    SCOPED_TRACE(c.name);
    const std::optional<Crl> back = decode(encode(c.crl));
    ASSERT_TRUE(back.has_value());
    Crl want = c.crl;
    want.ext &= kAki | kNumber;
    want.crit &= want.ext;
    if (!(want.ext & kAki)) want.akiIssuer = {}, want.akiSerial = {};
    if (!(want.ext & kNumber)) want.number = {};
    for (Entry& e : want.entries) e = as_decoded(e);
    EXPECT_EQ(back->version, want.version);
    EXPECT_EQ(back->alg, want.alg);
    EXPECT_EQ(back->params, want.params);
    EXPECT_EQ(back->issuer, want.issuer);
    EXPECT_EQ(back->thisUpdate, want.thisUpdate);
    EXPECT_EQ(back->nextUpdate, want.nextUpdate);
    EXPECT_EQ(back->entries, want.entries);
    EXPECT_EQ(back->ext, want.ext);
    EXPECT_EQ(back->crit, want.crit);
    EXPECT_EQ(back->akiIssuer, want.akiIssuer);
    EXPECT_EQ(back->akiSerial, want.akiSerial);
    EXPECT_EQ(back->number, want.number);
  }
}

// The decoded criticality of InvalidityDate follows the reason's, both ways round.
TEST(CrlRoundTrip, InvalidityDateCriticalityFollowsTheReason) {
  struct Row {
    u32 crit_in, crit_out;
  };
  const Row rows[] = {{0, 0},
                      {kInvalidity, 0},
                      {kReason, kReason | kInvalidity},
                      {kReason | kInvalidity, kReason | kInvalidity}};
  Crl c = base_crl();
  for (const Row& r : rows) {
    c.entries.push_back(entry({u8(c.entries.size() + 1)}, "20250101000000", kReason | kInvalidity,
                              r.crit_in, 3, "20241231000000"));
  }
  const std::optional<Crl> back = decode(encode(c));
  ASSERT_TRUE(back.has_value());
  ASSERT_EQ(back->entries.size(), std::size(rows));
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    EXPECT_EQ(back->entries[i].crit, rows[i].crit_out) << i;
  }
}

// ---- decoding what another writer may produce ----------------------------------------------

struct DecodeCase {
  const char* name;
  Bytes tbs;
  std::string thisUpdate;  // expected; empty when decoding must fail
  Entries errors;          // expected error list after a failure
};

std::vector<DecodeCase> decode_cases() {
  const Bytes head = cat({integer({1}), kMd5Rsa, kIssuer});
  const Bytes rev = seq({seq({integer({0x09}), utc("250101000000Z")})});
  const ErrEntry d2c{937, 2, "d2c_USER_X509_TBS_CERT"};
  const ErrEntry l2u{935, 2, "l2u_CRL_TBS_CERT_LIST"};
  const ErrEntry tiem{927, 1, "tiem type error"};
  return {
      {"utc_50_is_2050", seq({head, utc("500101000000Z")}), "20500101000000", {}},
      {"utc_51_is_1951", seq({head, utc("510101000000Z")}), "19510101000000", {}},
      {"generalized_2049", seq({head, gen("20491231235959Z")}), "20491231235959", {}},
      {"no_version_is_v1",
       seq({kMd5Rsa, kIssuer, utc("990101000000Z"), rev}),
       "19990101000000",
       {}},
      {"this_update_not_a_time",
       seq({head, integer({5})}),
       "",
       {tiem, {933, 4, "l2u_crl_time"}, l2u, d2c}},
      {"revocation_date_not_a_time",
       seq({head, utc("250101000000Z"), seq({seq({integer({0x09}), str(0x0c, "x")})})}),
       "",
       {tiem, {929, 2, "l2u_crl_time"}, {933, 7, "l2u_REVOKED_CERT"}, l2u, d2c}},
      {"version_2",
       seq({integer({2}), kMd5Rsa, kIssuer, utc("250101000000Z")}),
       "",
       {{925, 1, "version error"}, {933, 1, "l2u_crl_version"}, l2u, d2c}},
      {"serial_of_129_octets",
       seq({head, utc("250101000000Z"),
            seq({seq({integer(Bytes(129, 0x11)), utc("250101000000Z")})})}),
       "",
       {{302, 1, "serial number error"},
        {929, 1, "l2u_serialNumber"},
        {933, 7, "l2u_REVOKED_CERT"},
        l2u,
        d2c}},
  };
}

class CrlDecoded : public testing::TestWithParam<DecodeCase> {};

TEST_P(CrlDecoded, GivesTheCallerTextOrTheFailingChain) {
  const DecodeCase& c = GetParam();
  clear_errors();
  const std::optional<Crl> back = decode(wrap_tbs(c.tbs));
  if (c.thisUpdate.empty()) {
    EXPECT_FALSE(back.has_value());
    EXPECT_EQ(read_errors(), c.errors);
  } else {
    ASSERT_TRUE(back.has_value()) << error_text();
    EXPECT_EQ(back->thisUpdate, c.thisUpdate);
  }
}

INSTANTIATE_TEST_SUITE_P(Crl, CrlDecoded, testing::ValuesIn(decode_cases()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(CrlDecoded, FirstUpdateOfAListlessCrlAnswers1AndWritesNothing) {
  Crl c = base_crl();
  const Bytes der = encode(c);
  void* handle = nullptr;
  char slots[16][HYLORN_NAME_SIZE], t1[64], t2[64];
  u8 params[HYLORN_PARAMS_SIZE];
  u32 version = 0, alg = 0, paramsLen = 0;
  ASSERT_EQ(Crypt_Decode_Crl_Init(&handle, der.data(), u32(der.size()), &version, &alg, params,
                                  &paramsLen, slots[0], slots[1], slots[2], slots[3], slots[4],
                                  slots[5], slots[6], slots[7], slots[8], slots[9], slots[10],
                                  slots[11], slots[12], slots[13], slots[14], slots[15], t1, t2),
            0u);
  u8 serial[HYLORN_SERIAL_SIZE];
  u32 serialLen = 77, ext = 77, crit = 77, code = 77;
  char revoked[64] = "untouched", inv[64] = "untouched";
  EXPECT_EQ(Crypt_Decode_Crl_Update(handle, serial, &serialLen, revoked, &ext, &crit, &code, inv),
            1u);
  EXPECT_EQ(serialLen + ext + crit + code, 4 * 77u);
  EXPECT_STREQ(revoked, "untouched");
  u32 numberLen = 0, akiLen = 0;
  EXPECT_EQ(Crypt_Decode_Crl_Final(handle, &ext, &crit, slots[0], slots[1], slots[2], slots[3],
                                   slots[4], slots[5], slots[6], slots[7], slots[8], slots[9],
                                   slots[10], slots[11], slots[12], slots[13], slots[14], slots[15],
                                   serial, &akiLen, serial, &numberLen),
            0u);
  EXPECT_EQ(ext, 0u);
}

// ---- failures of the encoding session ------------------------------------------------------

TEST(CrlEncodeFailure, Version2FailsFinalWithTheConversionChain) {
  Crl c = base_crl();
  c.version = 2;
  int failed_at = -1;
  EXPECT_TRUE(encode(c, signing_key().path, &failed_at).empty());
  EXPECT_EQ(failed_at, 3);
  EXPECT_EQ(read_errors(), (Entries{{924, 1, "version error"},
                                    {932, 2, "u2l_crl_version"},
                                    {934, 2, "u2l_CRL_TBS_CERT_LIST"},
                                    {936, 1, "c2d_USER_crlTbsCertList"}}));
}

TEST(CrlEncodeFailure, UnknownAlgorithmAndMissingKeyFailFinal) {
  Crl c = base_crl();
  c.alg = 9;
  int failed_at = -1;
  EXPECT_TRUE(encode(c, signing_key().path, &failed_at).empty());
  EXPECT_EQ(failed_at, 3);
  EXPECT_EQ(read_errors().back(), (ErrEntry{936, 1, "c2d_USER_crlTbsCertList"}));
  c.alg = kMd5;
  EXPECT_TRUE(encode(c, "/nonexistent/key", &failed_at).empty());
  EXPECT_EQ(read_errors().back(), (ErrEntry{936, 3, "Crypt_Gen_Signature"}));
  EXPECT_FALSE(encode(c).empty());  // the session is still usable
}

// Each over-long input is refused with 1; one character or octet less is taken.
TEST(CrlEncodeFailure, OverLongInputsAreRefused) {
  struct Row {
    const char* name;
    void (*grow)(Crl&, std::size_t);  // sets the field to n characters or octets
    std::size_t fits;
    int step;  // which call refuses
  };
  const Row rows[] = {
      {"params", [](Crl& c, std::size_t n) { c.params.assign(n, 0x05); }, 1024, 1},
      {"this update", [](Crl& c, std::size_t n) { c.thisUpdate.assign(n, '2'); }, 63, 1},
      {"next update", [](Crl& c, std::size_t n) { c.nextUpdate.assign(n, '2'); }, 63, 1},
      {"issuer slot", [](Crl& c, std::size_t n) { c.issuer[7].assign(n, 'a'); }, 255, 1},
      {"serial", [](Crl& c, std::size_t n) { c.entries[0].serial.assign(n, 0x11); }, 128, 2},
      {"revocation date", [](Crl& c, std::size_t n) { c.entries[0].revoked.assign(n, '2'); }, 63,
       2},
      {"invalidity date", [](Crl& c, std::size_t n) { c.entries[0].invalidity.assign(n, '2'); }, 63,
       2},
      {"aki serial", [](Crl& c, std::size_t n) { c.akiSerial.assign(n, 0x22); }, 128, 3},
      {"aki issuer slot", [](Crl& c, std::size_t n) { c.akiIssuer[4].assign(n, 'b'); }, 255, 3},
      {"crl number", [](Crl& c, std::size_t n) { c.number.assign(n, 0x33); }, 128, 3},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.name);
    Crl c = base_crl();
    c.entries = {entry({0x01}, "20250101000000", kInvalidity, 0, 0, "20250101000000")};
    c.ext = kAki | kNumber;
    c.akiSerial = {0x01};
    c.number = {0x01};
    r.grow(c, r.fits + 1);
    int failed_at = 0;
    EXPECT_TRUE(encode(c, signing_key().path, &failed_at).empty());
    EXPECT_EQ(failed_at, r.step);
    r.grow(c, r.fits);
    // Fields that must be digits or DER make Final fail later; only the refusal counts.
    encode(c, signing_key().path, &failed_at);
    EXPECT_NE(failed_at, r.step) << "refused at its bound";
  }
  // A negative serial length and a key name the signing record cannot hold.
  Crl c = base_crl();
  c.ext = kAki;
  EXPECT_EQ(Crypt_Encode_Crl_Final(kAki, 0, "", "", "", "", "", "", "", "", "", "", "", "", "", "",
                                   "", "", nullptr, -1, nullptr, 0, signing_key().path.c_str(), "",
                                   nullptr, nullptr),
            1u);
  int failed_at = 0;
  EXPECT_TRUE(encode(base_crl(), std::string(128, 'k'), &failed_at).empty());
  EXPECT_EQ(failed_at, 3);
}

}  // namespace
