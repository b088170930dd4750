// The sessions' rules on DER assembled by hand from RFC 5280's ASN.1: what Init, Update
// and Final write for each combination of optional parts, what decoding returns, the
// error chains, and the refusal of over-long input.
#include <gtest/gtest.h>

#include "crl_fixtures.h"
#include "hylorn.h"
#include "support/error_list.h"

namespace {

using namespace crl_test;

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

// RDNSequence of C, O, CN as PrintableStrings, one attribute per SET.
Bytes name_der(const std::string& c, const std::string& o, const std::string& cn) {
  auto rdn = [](const char* oid, const std::string& v) {
    return tlv(0x31, seq({from_hex(oid), str(0x13, v)}));
  };
  return seq({rdn("06 03 55 04 06", c), rdn("06 03 55 04 0a", o), rdn("06 03 55 04 03", cn)});
}
// version v2, md5WithRSAEncryption with NULL, the default issuer
const Bytes kHead = cat({integer({1}), from_hex("30 0d 06 09 2a 86 48 86 f7 0d 01 01 04 05 00"),
                         name_der("CN", "Hylorn Test CA", "CRL Issuer")});
const Bytes kThis = utc("250301120000Z"), kNext = utc("250401120000Z");

// Extension ::= SEQUENCE { extnID, critical BOOLEAN DEFAULT FALSE, extnValue OCTET STRING }
Bytes extension(const char* oid, bool critical, const Bytes& value) {
  return seq({from_hex(oid), critical ? from_hex("01 01 ff") : Bytes{}, tlv(0x04, value)});
}
Bytes reason(u8 code, bool crit) {
  return extension("06 03 55 1d 15", crit, {0x0a, 0x01, code});
}
Bytes invalidity(const std::string& t, bool crit) {
  return extension("06 03 55 1d 18", crit, gen(t));
}

struct Case {
  const char* name;
  Crl crl;
  Bytes tbs;
};

std::vector<Case> written_cases() {
  std::vector<Case> cases;
  auto add = [&](const char* name, auto change, Bytes tbs) {
    Crl c;
    change(c);
    cases.push_back({name, c, std::move(tbs)});
  };
  add(
      "no_update_no_next_update", [](Crl& c) { c.nextUpdate = ""; }, seq({kHead, kThis}));
  add(
      "v1_entry_without_extensions",
      [](Crl& c) {
        c.version = 0;
        c.entries = {{{0x05}, "20250215083000", 0, 0, 0, ""}};
      },
      seq({integer({0}), Bytes(kHead.begin() + 3, kHead.end()), kThis, kNext,
           seq({seq({integer({0x05}), utc("250215083000Z")})})}));
  // In the order added; an invalidity date is a GeneralizedTime whatever its year.
  add(
      "entry_extensions",
      [](Crl& c) {
        c.entries = {
            {{0x30, 0x39}, "20250210000000", kReason | kInvalidity, kReason, 1, "20500101000000"},
            {{0x01}, "20250211000000", kInvalidity, 0, 0, "20200101000000"},
            {{0x80}, "20250212000000", kReason | kInvalidity, kInvalidity, 5, "20491231235959"}};
      },
      seq({kHead, kThis, kNext,
           seq({seq({integer({0x30, 0x39}), utc("250210000000Z"),
                     seq({reason(1, true), invalidity("20500101000000Z", false)})}),
                seq({integer({0x01}), utc("250211000000Z"),
                     seq({invalidity("20200101000000Z", false)})}),
                seq({integer({0x00, 0x80}), utc("250212000000Z"),
                     seq({reason(5, false), invalidity("20491231235959Z", true)})})})}));
  // 2049 is the last UTCTime year, 2050 the first GeneralizedTime one.
  add(
      "years_2049_and_2050",
      [](Crl& c) {
        c.thisUpdate = "20491231235959";
        c.nextUpdate = "20500101000000";
        c.entries = {{{0x02}, "20500101000000", 0, 0, 0, ""}};
      },
      seq({kHead, utc("491231235959Z"), gen("20500101000000Z"),
           seq({seq({integer({0x02}), gen("20500101000000Z")})})}));
  // AuthorityKeyIdentifier { [1] { [4] Name }, [2] serial } and CRLNumber, under [0].
  add(
      "crl_extensions",
      [](Crl& c) {
        c.ext = kAki | kNumber | 0x0402;  // bits other than these two write nothing
        c.crit = kNumber;
        c.akiIssuer = {"US", "Root Org", "", "", "Root"};
        c.akiSerial = {0x01, 0x02};
        c.number = {0x2a};
      },
      seq({kHead, kThis, kNext,
           tlv(0xa0, seq({extension("06 03 55 1d 23", false,
                                    seq({tlv(0xa1, tlv(0xa4, name_der("US", "Root Org", "Root"))),
                                         from_hex("82 02 01 02")})),
                          extension("06 03 55 1d 14", true, integer({0x2a}))}))}));
  add(
      "other_final_flags_only", [](Crl& c) { c.ext = 0x0C02; }, seq({kHead, kThis, kNext}));
  return cases;
}

class CrlWritten : public testing::TestWithParam<Case> {};

// The bytes RFC 5280 prescribes, and back the same fields under the decoding rules.
TEST_P(CrlWritten, AsAssembledAndReadBack) {
  const Case& c = GetParam();
  const Bytes der = encode(c.crl);
  EXPECT_EQ(to_hex(tbs_of(der)), to_hex(c.tbs));
  Crl want = c.crl;
  want.ext &= kAki | kNumber;
  want.crit &= want.ext;
  if (!(want.ext & kAki)) want.akiIssuer = {}, want.akiSerial = {};
  if (!(want.ext & kNumber)) want.number = {};
  for (Entry& e : want.entries) e = as_decoded(e);
  EXPECT_EQ(decode(der), want);
}

INSTANTIATE_TEST_SUITE_P(Crl, CrlWritten, testing::ValuesIn(written_cases()),
                         [](const auto& info) { return std::string(info.param.name); });

struct DecodeCase {
  const char* name;
  Bytes tbs;
  std::string thisUpdate;  // expected; empty when decoding fails with errors
  Entries errors;
};

std::vector<DecodeCase> decode_cases() {
  const Bytes t = utc("250101000000Z");
  auto entry = [&](const Bytes& serial, const Bytes& date, const Bytes& ext) {
    return seq({seq({integer(serial), date, ext})});
  };
  const ErrEntry l2u{935, 2, "l2u_CRL_TBS_CERT_LIST"}, d2c{937, 2, "d2c_USER_X509_TBS_CERT"};
  const ErrEntry tiem{927, 1, "tiem type error"}, in_entry{933, 7, "l2u_REVOKED_CERT"};
  const Bytes not_enumerated = seq({extension("06 03 55 1d 15", false, integer({1}))});
  const Bytes big_number =
      tlv(0xa0, seq({extension("06 03 55 1d 14", false, integer(Bytes(129, 0x01)))}));
  return {
      {"utc_50_is_2050", seq({kHead, utc("500101000000Z")}), "20500101000000", {}},
      {"utc_51_is_1951", seq({kHead, utc("510101000000Z")}), "19510101000000", {}},
      {"generalized_2049", seq({kHead, gen("20491231235959Z")}), "20491231235959", {}},
      {"no_version_is_v1", seq({Bytes(kHead.begin() + 3, kHead.end()), t}), "20250101000000", {}},
      {"this_update_not_a_time",
       seq({kHead, integer({5})}),
       "",
       {tiem, {933, 4, "l2u_crl_time"}, l2u, d2c}},
      {"revocation_date_not_a_time",
       seq({kHead, t, entry({9}, str(0x0c, "x"), {})}),
       "",
       {tiem, {929, 2, "l2u_crl_time"}, in_entry, l2u, d2c}},
      {"version_2",
       seq({integer({2}), Bytes(kHead.begin() + 3, kHead.end()), t}),
       "",
       {{925, 1, "version error"}, {933, 1, "l2u_crl_version"}, l2u, d2c}},
      {"serial_of_129_octets",
       seq({kHead, t, entry(Bytes(129, 0x11), t, {})}),
       "",
       {{302, 1, "serial number error"}, {929, 1, "l2u_serialNumber"}, in_entry, l2u, d2c}},
      {"reason_not_enumerated",
       seq({kHead, t, entry({9}, t, not_enumerated)}),
       "",
       {{912, 2, "tag type"},
        {914, 1, "ASN1_Decode_Enumerated"},
        {921, 2, "Decode_XEXT_CRLReason"},
        {929, 3, "l2u_CRL_ENTRY_EXTENSIONS"},
        in_entry,
        l2u,
        d2c}},
      {"crl_number_of_129_octets",
       seq({kHead, t, big_number}),
       "",
       {{918, 2, "crl number too length"},
        {923, 3, "Decode_XEXT_CRLNumber"},
        {933, 8, "l2u_CRL_EXTENSIONS"},
        l2u,
        d2c}},
  };
}

class CrlDecoded : public testing::TestWithParam<DecodeCase> {};

TEST_P(CrlDecoded, GivesTheCallerTextOrTheFailingChain) {
  const DecodeCase& c = GetParam();
  const std::optional<Crl> back = decode(wrap_tbs(c.tbs));
  EXPECT_EQ(back.has_value(), !c.thisUpdate.empty());
  if (back.has_value()) {
    EXPECT_EQ(back->thisUpdate, c.thisUpdate);
  } else {
    EXPECT_EQ(read_errors(), c.errors);
  }
}

INSTANTIATE_TEST_SUITE_P(Crl, CrlDecoded, testing::ValuesIn(decode_cases()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(CrlEncodeFailure, FinalReportsTheFailingStep) {
  struct Row {
    const char* name;
    void (*change)(Crl&);
    const char* key;
    Entries tail;  // the last entries of the list
  };
  const Row rows[] = {
      {"version 2",
       [](Crl& c) { c.version = 2; },
       nullptr,
       {{924, 1, "version error"},
        {932, 2, "u2l_crl_version"},
        {934, 2, "u2l_CRL_TBS_CERT_LIST"},
        {936, 1, "c2d_USER_crlTbsCertList"}}},
      {"unknown algorithm",
       [](Crl& c) { c.alg = 9; },
       nullptr,
       {{932, 3, "u2l_signature"},
        {934, 2, "u2l_CRL_TBS_CERT_LIST"},
        {936, 1, "c2d_USER_crlTbsCertList"}}},
      {"no key file", [](Crl&) {}, "/nonexistent/key", {{936, 3, "Crypt_Gen_Signature"}}},
  };
  for (const Row& r : rows) {
    Crl c;
    r.change(c);
    int failed_at = 0;
    EXPECT_TRUE(encode(c, r.key ? r.key : signing_key().path, &failed_at).empty()) << r.name;
    EXPECT_EQ(failed_at, 3) << r.name;
    const Entries all = read_errors();
    ASSERT_GE(all.size(), r.tail.size()) << r.name;
    EXPECT_EQ(Entries(all.end() - std::ptrdiff_t(r.tail.size()), all.end()), r.tail) << r.name;
  }
  EXPECT_FALSE(encode(Crl{}).empty());  // and the next session succeeds
}

// Each over-long input is refused with 1 by the call that takes it; at its bound it is not.
TEST(CrlEncodeFailure, OverLongInputsAreRefused) {
  struct Row {
    const char* name;
    void (*grow)(Crl&, std::size_t);
    std::size_t fits;
    int step;
  };
  const Row rows[] = {
      {"params", [](Crl& c, std::size_t n) { c.params.assign(n, 0x05); }, 1024, 1},
      {"this update", [](Crl& c, std::size_t n) { c.thisUpdate.assign(n, '2'); }, 63, 1},
      {"next update", [](Crl& c, std::size_t n) { c.nextUpdate.assign(n, '2'); }, 63, 1},
      {"issuer slot", [](Crl& c, std::size_t n) { c.issuer[7].assign(n, 'a'); }, 255, 1},
      {"serial", [](Crl& c, std::size_t n) { c.entries[0].serial.assign(n, 0x11); }, 128, 2},
      {"revocation", [](Crl& c, std::size_t n) { c.entries[0].revoked.assign(n, '2'); }, 63, 2},
      {"invalidity", [](Crl& c, std::size_t n) { c.entries[0].invalidity.assign(n, '2'); }, 63, 2},
      {"aki serial", [](Crl& c, std::size_t n) { c.akiSerial.assign(n, 0x22); }, 128, 3},
      {"aki issuer", [](Crl& c, std::size_t n) { c.akiIssuer[4].assign(n, 'b'); }, 255, 3},
      {"crl number", [](Crl& c, std::size_t n) { c.number.assign(n, 0x33); }, 128, 3},
  };
  for (const Row& r : rows) {
    Crl c;
    c.entries = {{{0x01}, "20250101000000", kInvalidity, 0, 0, "20250101000000"}};
    c.ext = kAki | kNumber;
    c.akiSerial = c.number = {0x01};
    int failed_at = 0;
    r.grow(c, r.fits + 1);
    EXPECT_TRUE(encode(c, signing_key().path, &failed_at).empty()) << r.name;
    EXPECT_EQ(failed_at, r.step) << r.name;
    const Entries refusal = read_errors();
    EXPECT_TRUE(refusal.size() == 1 && refusal[0].func_no == 322) << r.name;
    r.grow(c, r.fits);
    encode(c, signing_key().path, &failed_at);  // may still fail later, on the contents
    EXPECT_NE(failed_at, r.step) << r.name;
  }
  int failed_at = 0;
  EXPECT_TRUE(encode(Crl{}, std::string(128, 'k'), &failed_at).empty());  // key name
  EXPECT_EQ(failed_at, 3);
  EXPECT_EQ(Crypt_Encode_Crl_Final(kAki, 0, "", "", "", "", "", "", "", "", "", "", "", "", "", "",
                                   "", "", nullptr, -1, nullptr, 0, "", "", nullptr, nullptr),
            1u);
}

}  // namespace
