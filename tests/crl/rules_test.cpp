// The sessions' rules on DER assembled by hand from RFC 5280's ASN.1: what decoding
// returns or the error chain it leaves, the ENUMERATED refusals, what each failing
// encode call leaves in the error list; and bad input and failing allocations, which
// the sanitizer build checks for stray reads and leaks.
#include "crl/crl_extensions.h"
#include "crl_fixtures.h"
#include "support/fail_malloc.h"

namespace {

using namespace crl_test;

const auto utc = [](const char* s) { return tlv(0x17, bytes_of(s)); };
// Extension with critical at its DEFAULT FALSE
const auto ext = [](const char* oid, const Bytes& v) { return seq({from_hex(oid), tlv(4, v)}); };

// md5WithRSAEncryption with NULL, and the issuer C=CN, CN=x in PrintableStrings.
const Bytes kAlg = from_hex("30 0d 06 09 2a 86 48 86 f7 0d 01 01 04 05 00");
const Bytes kAlgName = concat({kAlg, from_hex("30 19 31 0b 30 09 06 03 55 04 06 13 02 43 4e"
                                              "31 0a 30 08 06 03 55 04 03 13 01 78")});
const Bytes kHead = concat({from_hex("02 01 01"), kAlgName}), kTime = utc("250101000000Z");

// A CRL of the TBSCertList's parts, signed with nine zero octets.
Bytes crl_of(const Bytes& head, const Bytes& thisUpdate, const Bytes& rest = {}) {
  return seq({seq({head, thisUpdate, rest}), kAlg, tlv(0x03, Bytes(9, 0x00))});
}
Bytes one_entry(const Bytes& serial, const Bytes& date, const Bytes& extensions = {}) {
  return seq({seq({tlv(0x02, serial), date, extensions})});
}
const auto crl_number = [](std::size_t octets) {
  return tlv(0xa0, seq({ext("06 03 55 1d 14", tlv(0x02, Bytes(octets, 0x01)))}));
};

TEST(CrlDecoded, TimesAndVersionsTheCallerReads) {
  const std::pair<Bytes, const char*> rows[] = {
      {crl_of(kHead, utc("500101000000Z")), "20500101000000"},
      {crl_of(kHead, utc("510101000000Z")), "19510101000000"},
      {crl_of(kHead, tlv(0x18, bytes_of("20491231235959Z"))), "20491231235959"},
      {crl_of(kAlgName, kTime), "20250101000000"},  // no version: v1
      {crl_of(kHead, kTime, crl_number(128)), "20250101000000"},
  };
  for (const auto& [der, thisUpdate] : rows) {
    const std::optional<Crl> back = decode(der);
    EXPECT_EQ(back ? back->thisUpdate : "refused", thisUpdate) << error_text();
  }
}

// Each chain ends in the TBSCertList's and the whole CRL's entries.
TEST(CrlDecoded, RefusalsLeaveTheFailingChain) {
  const ErrEntry tiem{927, 1, "tiem type error"}, in_entry{933, 7, "l2u_REVOKED_CERT"};
  const Bytes reason_integer = seq({ext("06 03 55 1d 15", from_hex("02 01 01"))});
  const std::pair<Bytes, Entries> rows[] = {
      {crl_of(kHead, from_hex("02 01 05")), {tiem, {933, 4, "l2u_crl_time"}}},
      {crl_of(kHead, kTime, one_entry({9}, from_hex("0c 01 78"))),
       {tiem, {929, 2, "l2u_crl_time"}, in_entry}},
      {crl_of(concat({from_hex("02 01 02"), kAlgName}), kTime),
       {{925, 1, "version error"}, {933, 1, "l2u_crl_version"}}},
      {crl_of(kHead, kTime, one_entry(Bytes(129, 0x11), kTime)),
       {{302, 1, "serial number error"}, {929, 1, "l2u_serialNumber"}, in_entry}},
      {crl_of(kHead, kTime, one_entry({9}, kTime, reason_integer)),
       {{912, 2, "tag type"},
        {914, 1, "ASN1_Decode_Enumerated"},
        {921, 2, "Decode_XEXT_CRLReason"},
        {929, 3, "l2u_CRL_ENTRY_EXTENSIONS"},
        in_entry}},
      {crl_of(kHead, kTime, crl_number(129)),
       {{918, 2, "crl number too length"},
        {923, 3, "Decode_XEXT_CRLNumber"},
        {933, 8, "l2u_CRL_EXTENSIONS"}}},
  };
  for (auto [der, errors] : rows) {
    errors.insert(errors.end(),
                  {{935, 2, "l2u_CRL_TBS_CERT_LIST"}, {937, 2, "d2c_USER_X509_TBS_CERT"}});
    EXPECT_FALSE(decode(der));
    EXPECT_EQ(read_errors(), errors);
  }
}

// Values OpenSSL writes are read back through whole CRLs; these are the refusals.
TEST(CrlDecoded, EnumeratedRefusesWhatIsNotANonNegative32BitValue) {
  const std::pair<const char*, ErrEntry> rows[] = {
      {"0a", {912, 1, "data length less than 2"}},
      {"02 01 01", {912, 2, "tag type"}},
      {"0a 02 01", {912, 5, "data length"}},
      {"0a 00", {912, 6, "data length"}},
      {"0a 01 80", {912, 7, "negative value"}},
      {"0a 05 01 00 00 00 00", {912, 8, "data too length"}},
      {"0a 06 00 00 00 00 00 01", {912, 8, "data too length"}},
  };
  for (const auto& [hex, entry] : rows) {
    const Bytes der = from_hex(hex);
    u32 value = 99;
    EXPECT_EQ(hylorn::ASN1_Decode_Enumerated(u32(der.size()), der.data(), &value), 1u) << hex;
    EXPECT_EQ(read_errors(), Entries{entry}) << hex;
    EXPECT_EQ(value, 99u);
  }
}

// The call that fails and the last entries it leaves. An over-long argument is refused,
// alone in the list, by the call that takes it; at its bound it is not.
TEST(CrlEncodeFailure, EachCallRefusesWhatItCannotWrite) {
  const ErrEntry text{322, 1, "text too long for its field"};
  const ErrEntry octets{322, 2, "octets too long for their field"};
  const ErrEntry tbs{934, 2, "u2l_CRL_TBS_CERT_LIST"}, signed_{936, 1, "c2d_USER_crlTbsCertList"};
  const struct {
    const char* name;
    void (*set)(Crl&, std::size_t);
    std::size_t fits;  // 0: fails whatever the size
    int step;
    Entries tail;
  } rows[] = {
#define GROW(field) [](Crl& c, std::size_t n) { c.field.assign(n, '2'); }
      {"params", GROW(params), 1024, 1, {octets}},
      {"thisUpdate", GROW(thisUpdate), 63, 1, {text}},
      {"nextUpdate", GROW(nextUpdate), 63, 1, {text}},
      {"issuer[7]", GROW(issuer[7]), 255, 1, {text}},
      {"entries[0].serial", GROW(entries[0].serial), 128, 2, {octets}},
      {"entries[0].revoked", GROW(entries[0].revoked), 63, 2, {text}},
      {"entries[0].invalidity", GROW(entries[0].invalidity), 63, 2, {text}},
      {"akiSerial", GROW(akiSerial), 128, 3, {octets}},
      {"akiIssuer[4]", GROW(akiIssuer[4]), 255, 3, {text}},
      {"number", GROW(number), 128, 3, {octets}},
      {"key", GROW(key), 0, 3, {text}},  // the key name: 128 and no file of that name
#define SET(assignment) [](Crl& c, std::size_t) { c.assignment; }
      {"version 2",
       SET(version = 2),
       0,
       3,
       {{924, 1, "version error"}, {932, 2, "u2l_crl_version"}, tbs, signed_}},
      {"unknown algorithm", SET(alg = 9), 0, 3, {{932, 3, "u2l_signature"}, tbs, signed_}},
      {"no key file", SET(key = "/nonexistent/key"), 0, 3, {{936, 3, "Crypt_Gen_Signature"}}},
#undef GROW
#undef SET
  };
  for (const auto& r : rows) {
    Crl c{.entries = {{{0x01}, "20250101000000", kInvalidity, 0, 0, "20250101000000"}},
          .ext = kAki | kNumber,
          .akiSerial = {0x01},
          .number = {0x01}};
    int failed_at = 0;
    r.set(c, r.fits > 0 ? r.fits + 1 : 128);
    EXPECT_TRUE(encode(c, &failed_at).empty()) << r.name;
    EXPECT_EQ(failed_at, r.step) << r.name;
    const Entries all = read_errors();
    const std::size_t n = r.fits > 0 ? all.size() : std::min(all.size(), r.tail.size());
    EXPECT_EQ(Entries(all.end() - std::ptrdiff_t(n), all.end()), r.tail) << r.name;
    if (r.fits == 0) continue;
    r.set(c, r.fits);
    encode(c, &failed_at);  // may still fail later, on the contents
    EXPECT_NE(failed_at, r.step) << r.name;
  }
  EXPECT_FALSE(encode(Crl{}).empty());  // and the next session succeeds
  EXPECT_EQ(Crypt_Encode_Crl_Final(kAki, 0, "", "", "", "", "", "", "", "", "", "", "", "", "", "",
                                   "", "", nullptr, -1, nullptr, 0, "", "", nullptr, nullptr),
            1u);
}

const Crl kSmall{
    .entries = {{{0x01}, "20250101000000", kReason | kInvalidity, kReason, 1, "20241231000000"},
                {{0x81, 0x02}, "20500101000000"},
                {{0x03}, "20250103000000", kInvalidity, 0, 0, "20241230000000"}},
    .ext = kAki | kNumber,
    .akiIssuer = {"CN", "Root"},
    .akiSerial = {0x05},
    .number = {0x07}};

// Every prefix (in a block of exactly its size) fails; an altered byte inside the
// signature, which decoding does not check, changes nothing that comes back; Final
// before the end of the list returns the CRL's extensions and releases the rest.
TEST(CrlBadInput, PrefixesAlteredBytesAndEarlyFinal) {
  const Bytes der = encode(kSmall);
  sweep(
      der, [](const Bytes& prefix) { return !decode(prefix); },
      [&](const Bytes& altered, std::size_t i) {
        const std::optional<Crl> back = decode(altered);
        if (i >= der.size() - HYLORN_RSA_BLOCK_SIZE) {
          EXPECT_EQ(back, as_decoded(kSmall)) << i;
        }
      });
  for (std::size_t read = 0; read <= 3; ++read) {
    Crl want = as_decoded(kSmall);
    want.entries.resize(read);
    EXPECT_EQ(decode(der, read), want);
  }
}

// The n-th allocation of a session fails, for each n and each kind of session: it answers
// 1 (the encoder with an entry from the failing call) until no allocation fails.
TEST(CrlAllocationFailure, EachAllocationOfBothSessions) {
  const Bytes der = encode(kSmall);
  for (const bool encoding : {true, false}) {
    for (int n = 1;; ++n) {
      FailNthMalloc fail(n);
      int step = 0;
      const bool failed = encoding ? encode(kSmall, &step).empty() : !decode(der);
      const int func_no = failed && encoding ? read_errors().back().func_no : 0;
      EXPECT_EQ(failed, fail.fired()) << n;
      EXPECT_EQ(func_no, failed && encoding ? (step == 2 ? 938 : 936) : 0) << n;
      if (!fail.fired()) {
        EXPECT_GT(n, 50);  // the loop did reach the session's allocations
        break;
      }
    }
  }
}

}  // namespace
