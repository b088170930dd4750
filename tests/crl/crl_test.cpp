#include <gtest/gtest.h>
#include <openssl/x509v3.h>

#include <memory>
#include <optional>

#include "crl/crl_calls.h"
#include "support/openssl_bytes.h"
#include "support/openssl_rsa.h"

namespace {

using namespace crl_test;

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

ASN1_TIME* time_of(const std::string& t) {
  ASN1_TIME* out = ASN1_TIME_new();
  ASN1_TIME_set_string(out, ((t >= "2050" ? t : t.substr(2)) + "Z").c_str());
  return out;
}

template <class T>
std::unique_ptr<T, void (*)(T*)> owned(T* object, void (*free)(T*)) {
  return {object, free};
}

ASN1_INTEGER* integer_of(const Bytes& m) {
  return BN_to_ASN1_INTEGER(owned(BN_bin2bn(m.data(), int(m.size()), nullptr), BN_free).get(),
                            nullptr);
}

Bytes openssl_crl(const Crl& c, const EVP_MD* md) {
  auto crl = owned(X509_CRL_new(), X509_CRL_free);
  X509_CRL_set_version(crl.get(), c.version);
  X509_CRL_set_issuer_name(crl.get(), owned(printable_name(c.issuer), X509_NAME_free).get());
  X509_CRL_set1_lastUpdate(crl.get(), owned(time_of(c.thisUpdate), ASN1_TIME_free).get());
  if (!c.nextUpdate.empty()) {
    X509_CRL_set1_nextUpdate(crl.get(), owned(time_of(c.nextUpdate), ASN1_TIME_free).get());
  }
  for (const Entry& e : c.entries) {
    X509_REVOKED* r = X509_REVOKED_new();
    X509_REVOKED_set_serialNumber(r, owned(integer_of(e.serial), ASN1_INTEGER_free).get());
    X509_REVOKED_set_revocationDate(r, owned(time_of(e.revoked), ASN1_TIME_free).get());
    if (e.ext & kReason) {
      auto code = owned(ASN1_ENUMERATED_new(), ASN1_ENUMERATED_free);
      ASN1_ENUMERATED_set_int64(code.get(), int64_t(e.reason));
      X509_REVOKED_add1_ext_i2d(r, NID_crl_reason, code.get(), (e.crit & kReason) != 0, 0);
    }
    if (e.ext & kInvalidity) {
      auto when = owned(ASN1_GENERALIZEDTIME_new(), ASN1_GENERALIZEDTIME_free);
      ASN1_GENERALIZEDTIME_set_string(when.get(), (e.invalidity + "Z").c_str());
      X509_REVOKED_add1_ext_i2d(r, NID_invalidity_date, when.get(), (e.crit & kInvalidity) != 0, 0);
    }
    X509_CRL_add0_revoked(crl.get(), r);
  }
  if (c.ext & kAki) {
    auto aki = owned(AUTHORITY_KEYID_new(), AUTHORITY_KEYID_free);
    aki->issuer = GENERAL_NAMES_new();
    GENERAL_NAME* gn = GENERAL_NAME_new();
    GENERAL_NAME_set0_value(gn, GEN_DIRNAME, printable_name(c.akiIssuer));
    sk_GENERAL_NAME_push(aki->issuer, gn);
    aki->serial = integer_of(c.akiSerial);
    X509_CRL_add1_ext_i2d(crl.get(), NID_authority_key_identifier, aki.get(), c.crit & kAki, 0);
  }
  if (c.ext & kNumber) {
    X509_CRL_add1_ext_i2d(crl.get(), NID_crl_number,
                          owned(integer_of(c.number), ASN1_INTEGER_free).get(),
                          (c.crit & kNumber) != 0, 0);
  }
  const EvpKey key = load_private_der(library_key().pri);
  return X509_CRL_sign(crl.get(), key.get(), md) > 0 ? i2d_bytes(i2d_X509_CRL, crl.get()) : Bytes{};
}

const auto utc = [](const char* s) { return tlv(0x17, bytes_of(s)); };
// Extension with critical at its DEFAULT FALSE
const auto ext = [](const char* oid, const Bytes& v) { return seq({from_hex(oid), tlv(4, v)}); };

// md5WithRSAEncryption with NULL, and the issuer C=CN, CN=x in PrintableStrings.
const Bytes kAlg = from_hex("30 0d 06 09 2a 86 48 86 f7 0d 01 01 04 05 00");
const Bytes kAlgName = concat({kAlg, from_hex("30 19 31 0b 30 09 06 03 55 04 06 13 02 43 4e"
                                              "31 0a 30 08 06 03 55 04 03 13 01 78")});
// A UTCTime of year 50 reads as 2050.
const Bytes kHead = concat({from_hex("02 01 01"), kAlgName}), kTime = utc("500101000000Z");

Bytes crl_of(const Bytes& head, const Bytes& thisUpdate, const Bytes& rest = {}) {
  return seq({seq({head, thisUpdate, rest}), kAlg, tlv(0x03, Bytes(9, 0x00))});
}
Bytes one_entry(const Bytes& serial, const Bytes& date, const Bytes& extensions = {}) {
  return seq({seq({tlv(0x02, serial), date, extensions})});
}
const auto crl_number = [](std::size_t octets) {
  return tlv(0xa0, seq({ext("06 03 55 1d 14", tlv(0x02, Bytes(octets, 0x01)))}));
};

// CRLs made by hand: read, or refused with the chain of entries (the two outermost steps
// left out).
TEST(CrlDecoded, ReadOrRefusedWithTheFailingChain) {
  const ErrEntry tiem{927, 1, "tiem type error"}, in_entry{933, 7, "l2u_REVOKED_CERT"};
  const auto with_reason = [](const char* value) {
    return crl_of(kHead, kTime,
                  one_entry({9}, kTime, seq({ext("06 03 55 1d 15", from_hex(value))})));
  };
  // A reason that is not a non-negative 32-bit ENUMERATED.
  const auto bad_reason = [&](const char* value, const ErrEntry& entry) {
    return std::pair(with_reason(value), Entries{entry,
                                                 {914, 1, "ASN1_Decode_Enumerated"},
                                                 {921, 2, "Decode_XEXT_CRLReason"},
                                                 {929, 3, "l2u_CRL_ENTRY_EXTENSIONS"},
                                                 in_entry});
  };
  std::pair<Bytes, Entries> rows[] = {
      {crl_of(kAlgName, kTime), {}},  // no version: v1
      {crl_of(kHead, kTime, crl_number(128)), {}},
      {with_reason("0a 05 00 ff ff ff ff"), {}},
      {crl_of(kHead, from_hex("02 01 05")), {tiem, {933, 4, "l2u_crl_time"}}},
      {crl_of(kHead, kTime, one_entry({9}, from_hex("0c 01 78"))),
       {tiem, {929, 2, "l2u_crl_time"}, in_entry}},
      {crl_of(concat({from_hex("02 01 02"), kAlgName}), kTime),
       {{925, 1, "version error"}, {933, 1, "l2u_crl_version"}}},
      {crl_of(kHead, kTime, one_entry(Bytes(129, 0x11), kTime)),
       {{302, 1, "serial number error"}, {929, 1, "l2u_serialNumber"}, in_entry}},
      {crl_of(kHead, kTime, crl_number(129)),
       {{918, 2, "crl number too length"},
        {923, 3, "Decode_XEXT_CRLNumber"},
        {933, 8, "l2u_CRL_EXTENSIONS"}}},
      bad_reason("0a", {912, 1, "data length less than 2"}),
      bad_reason("02 01 01", {912, 2, "tag type"}),
      bad_reason("0a 02 01", {912, 5, "data length"}),
      bad_reason("0a 00", {912, 6, "data length"}),
      bad_reason("0a 01 80", {912, 7, "negative value"}),
      bad_reason("0a 05 01 00 00 00 00", {912, 8, "data too length"}),
      bad_reason("0a 06 00 00 00 00 00 01", {912, 8, "data too length"}),
  };
  for (auto& [der, errors] : rows) {
    const std::optional<Crl> back = decode(der);
    EXPECT_EQ(back ? back->thisUpdate : "", errors.empty() ? "20500101000000" : "") << to_hex(der);
    if (back) continue;
    errors.insert(errors.end(),
                  {{935, 2, "l2u_CRL_TBS_CERT_LIST"}, {937, 2, "d2c_USER_X509_TBS_CERT"}});
    EXPECT_EQ(read_errors(), errors) << to_hex(der);
  }
  // Whatever follows an entry's date must be its extensions.
  EXPECT_FALSE(decode(crl_of(kHead, kTime, one_entry({9}, kTime, from_hex("05 00")))));
  EXPECT_EQ(read_errors().front(), (ErrEntry{904, 6, "unexpected element"}));
}

// An over-long argument is refused, alone in the list, by the call that takes it.
TEST(CrlEncodeFailure, EachCallRefusesWhatItCannotWrite) {
  const ErrEntry text{322, 1, "text too long for its field"};
  const ErrEntry octets{322, 2, "octets too long for their field"};
  const ErrEntry tbs{934, 2, "u2l_CRL_TBS_CERT_LIST"}, signed_{936, 1, "c2d_USER_crlTbsCertList"};
  const Entries version = {{924, 1, "version error"}, {932, 2, "u2l_crl_version"}, tbs, signed_};
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
      {"version 2", SET(version = 2), 0, 3, version},
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

// Every reason, ENUMERATED up to five octets; serials ascend, as OpenSSL sorts them.
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
    // an invalidity date is a GeneralizedTime whatever its year
    {"years_2049_2050",
     {.thisUpdate = "20491231235959",
      .entries =
          {{{0x01}, "20500101000000", kInvalidity, 0, 0, "20200101000000"},
           {{0x02}, "20491231235959", kReason | kInvalidity, kInvalidity, 5, "20500101000000"}},
      .ext = kNumber | 0x0402,
      .crit = kNumber,
      .number = {0x2a}}},
};

// The signature is not checked by decoding; Final before the end releases the rest.
TEST(CrlBadInput, PrefixesAlteredBytesAndEarlyFinal) {
  const Crl crl = full_crl(kMd5);
  const Bytes der = encode(crl);
  sweep(
      der, [](const Bytes& prefix) { return !decode(prefix); },
      [&](const Bytes& altered, std::size_t i) {
        const std::optional<Crl> back = decode(altered);
        if (i >= der.size() - HYLORN_RSA_BLOCK_SIZE) {
          EXPECT_EQ(back, as_decoded(crl)) << i;
        }
      });
  for (std::size_t read : {0, 1, 5}) {
    Crl want = as_decoded(crl);
    want.entries.resize(read);
    EXPECT_EQ(decode(der, read), want);
  }
}

// The same bytes as OpenSSL (MD5 only: our SHA-1 identifier is the OIW one), and a
// signature OpenSSL accepts under either.
TEST(CrlAgainstOpenssl, SameBytesSameFieldsAndAValidSignature) {
  const EvpKey key = load_private_der(library_key().pri);
  for (const auto& [name, crl] : kRows) {
    const Bytes ours = encode(crl);
    const Bytes theirs = openssl_crl(crl, crl.alg == kMd5 ? EVP_md5() : EVP_sha1());
    EXPECT_EQ(to_hex(ours), to_hex(crl.alg == kMd5 ? theirs : ours)) << name;
    EXPECT_EQ(decode(ours), as_decoded(crl)) << name;
    EXPECT_EQ(decode(theirs), as_decoded(crl)) << name;
    const u8* p = ours.data();
    const auto parsed = owned(d2i_X509_CRL(nullptr, &p, long(ours.size())), X509_CRL_free);
    EXPECT_EQ(parsed ? X509_CRL_verify(parsed.get(), key.get()) : -1, 1) << name;
  }
}

}  // namespace
