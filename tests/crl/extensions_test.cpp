// The CRL's own coders: ENUMERATED against OpenSSL's, and the refusals of each decoder
// with its error entries.
#include <gtest/gtest.h>
#include <openssl/asn1.h>

#include "crl/crl_extensions.h"
#include "crl_fixtures.h"
#include "support/error_list.h"
#include "support/openssl_bytes.h"

namespace {

using namespace crl_test;
using hylorn::DATA_BUFFER;

// Every length of contents, and each side of a sign octet: the same bytes as OpenSSL,
// and back to the value.
TEST(Enumerated, MatchesOpensslAndReadsBack) {
  for (u32 v : {0u, 1u, 10u, 0x7Fu, 0x80u, 0xFFu, 0x100u, 0x7FFFu, 0x8000u, 0x123456u, 0x7FFFFFFFu,
                0x80000000u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(v);
    ASN1_ENUMERATED* e = ASN1_ENUMERATED_new();
    ASN1_ENUMERATED_set_int64(e, int64_t(v));
    const Bytes want = i2d_bytes(i2d_ASN1_ENUMERATED, e);
    ASN1_ENUMERATED_free(e);
    DATA_BUFFER out{};
    ASSERT_EQ(hylorn::ASN1_Encode_Enumerated(v, &out), 0u);
    EXPECT_EQ(to_hex(Bytes(out.data, out.data + out.length)), to_hex(want));
    u32 back = ~v;
    EXPECT_EQ(hylorn::ASN1_Decode_Enumerated(out.length, out.data, &back), 0u);
    EXPECT_EQ(back, v);
    hylorn::free_DATA_BUFFER(&out);
  }
}

TEST(Enumerated, RefusesWhatIsNotANonNegative32BitValue) {
  struct Row {
    const char* hex;
    ErrEntry entry;
  };
  const Row rows[] = {
      {"0a", {912, 1, "data length less than 2"}},
      {"02 01 01", {912, 2, "tag type"}},
      {"0a 02 01", {912, 5, "data length"}},
      {"0a 00", {912, 6, "data length"}},
      {"0a 01 80", {912, 7, "negative value"}},
      {"0a 05 01 00 00 00 00", {912, 8, "data too length"}},
      {"0a 06 00 00 00 00 00 01", {912, 8, "data too length"}},
  };
  for (const Row& r : rows) {
    const Bytes der = from_hex(r.hex);
    u32 value = 99;
    EXPECT_EQ(hylorn::ASN1_Decode_Enumerated(u32(der.size()), der.data(), &value), 1u) << r.hex;
    EXPECT_EQ(read_errors(), Entries{r.entry}) << r.hex;
    EXPECT_EQ(value, 99u);
  }
}

// A CRL whose entry carries a reason that is not an ENUMERATED, or a CRL number of more
// than 128 octets, fails to decode with the chain from the coder up.
TEST(CrlExtensionValues, BadValuesFailTheDecodeWithTheirChain) {
  const Bytes head = from_hex(
      "02 01 01 30 0d 06 09 2a 86 48 86 f7 0d 01 01 04 05 00 30 00 17 0d 32 35 30 31 30 31 30 "
      "30 30 30 30 30 5a");
  const Bytes time = from_hex("17 0d 32 35 30 31 30 31 30 30 30 30 30 30 5a");
  const Bytes bad_reason =
      tlv(0x30, cat({from_hex("06 03 55 1d 15"), tlv(0x04, {0x02, 0x01, 0x01})}));
  const Bytes entry = tlv(0x30, cat({from_hex("02 01 01"), time, tlv(0x30, bad_reason)}));
  const Bytes big_number =
      tlv(0x30, cat({from_hex("06 03 55 1d 14"), tlv(0x04, tlv(0x02, Bytes(129, 0x01)))}));
  struct Row {
    const char* name;
    Bytes tbs;
    Entries errors;
  };
  const Row rows[] = {
      {"reason",
       tlv(0x30, cat({head, tlv(0x30, entry)})),
       {{912, 2, "tag type"},
        {914, 1, "ASN1_Decode_Enumerated"},
        {921, 2, "Decode_XEXT_CRLReason"},
        {929, 3, "l2u_CRL_ENTRY_EXTENSIONS"},
        {933, 7, "l2u_REVOKED_CERT"},
        {935, 2, "l2u_CRL_TBS_CERT_LIST"},
        {937, 2, "d2c_USER_X509_TBS_CERT"}}},
      {"crl number",
       tlv(0x30, cat({head, tlv(0xa0, tlv(0x30, big_number))})),
       {{918, 2, "crl number too length"},
        {923, 3, "Decode_XEXT_CRLNumber"},
        {933, 8, "l2u_CRL_EXTENSIONS"},
        {935, 2, "l2u_CRL_TBS_CERT_LIST"},
        {937, 2, "d2c_USER_X509_TBS_CERT"}}},
  };
  for (const Row& r : rows) {
    EXPECT_FALSE(decode(wrap_tbs(r.tbs)).has_value()) << r.name;
    EXPECT_EQ(read_errors(), r.errors) << r.name;
  }
}

}  // namespace
