// ENUMERATED, the CRL layer's own primitive: OpenSSL's bytes for each length and sign
// octet, and a refusal for each thing that is not a non-negative 32-bit value.
#include <gtest/gtest.h>
#include <openssl/asn1.h>

#include "crl/crl_extensions.h"
#include "crl_fixtures.h"
#include "support/error_list.h"
#include "support/openssl_bytes.h"

namespace {

using namespace crl_test;
using hylorn::DATA_BUFFER;

TEST(Enumerated, MatchesOpensslAndReadsBack) {
  for (u32 v : {0u, 10u, 0x7Fu, 0x80u, 0x100u, 0x8000u, 0x123456u, 0x80000000u, 0xFFFFFFFFu}) {
    ASN1_ENUMERATED* e = ASN1_ENUMERATED_new();
    ASN1_ENUMERATED_set_int64(e, int64_t(v));
    const Bytes want = i2d_bytes(i2d_ASN1_ENUMERATED, e);
    ASN1_ENUMERATED_free(e);
    DATA_BUFFER out{};
    ASSERT_EQ(hylorn::ASN1_Encode_Enumerated(v, &out), 0u);
    EXPECT_EQ(to_hex(Bytes(out.data, out.data + out.length)), to_hex(want)) << v;
    u32 back = ~v;
    EXPECT_EQ(hylorn::ASN1_Decode_Enumerated(out.length, out.data, &back), 0u);
    EXPECT_EQ(back, v);
    hylorn::free_DATA_BUFFER(&out);
  }
}

TEST(Enumerated, RefusesWhatIsNotANonNegative32BitValue) {
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

}  // namespace
