// The PKCS #1 key encodings: OpenSSL's keys read here field by field and write back byte
// for byte, the size class of a public key, and the refusals.
#include "keys/key_der.h"

#include <gtest/gtest.h>
#include <openssl/core_names.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "key_fixtures.h"
#include "support/fail_malloc.h"

namespace {

using hylorn::RSA_PRIVATE_KEY;
using hylorn::RSA_PUBLIC_KEY;
using hylorn::u32;
using hylorn::u8;
using namespace keys_test;

Bytes tlv(u8 tag, const Bytes& contents) {
  const std::size_t n = contents.size();
  Bytes out = n < 0x80    ? Bytes{tag, u8(n)}
              : n < 0x100 ? Bytes{tag, 0x81, u8(n)}
                          : Bytes{tag, 0x82, u8(n >> 8), u8(n)};
  out.insert(out.end(), contents.begin(), contents.end());
  return out;
}

Bytes sequence_of_integers(const std::vector<Bytes>& values) {
  Bytes body;
  for (const Bytes& v : values) {
    const Bytes element = tlv(0x02, v);
    body.insert(body.end(), element.begin(), element.end());
  }
  return tlv(0x30, body);
}

// n bytes starting 0x5a: positive, no sign byte needed, no leading zero.
Bytes number(std::size_t n) {
  return Bytes(n, 0x5a);
}

// The same magnitude behind the sign byte a leading 0xC3 needs.
Bytes signed_number(std::size_t n) {
  Bytes b(n + 1, 0xC3);
  b[0] = 0x00;
  return b;
}

template <class Record>
bool all_zero(const Record& r) {
  const auto* b = reinterpret_cast<const u8*>(&r);
  return std::all_of(b, b + sizeof r, [](u8 x) { return x == 0; });
}

// DER read into a record and written again (empty when either step fails).
template <class Record, class Decode, class Encode>
Bytes written_back(const Bytes& der, Decode decode, Encode encode) {
  Record record;
  Bytes back(HYLORN_PRIKEY_DER_SIZE);
  u32 backLen = 0;
  if (decode(der.data(), u32(der.size()), &record) != 0) return {};
  if (encode(&record, back.data(), &backLen) != 0) return {};
  back.resize(backLen);
  return back;
}

// The exported reader of either kind, with scratch outputs; its result.
int decode_info(bool priv, const Bytes& der, int derLen, u32* bits = nullptr,
                u8 (*f)[128] = nullptr) {
  u32 scratch_bits = 0;
  u8 scratch[10][128];
  if (bits == nullptr) bits = &scratch_bits;
  if (f == nullptr) f = scratch;
  return priv ? Crypt_Decode_Prikey_Info(der.data(), derLen, bits, f[2], f[3], f[4], f[5], f[6],
                                         f[7], f[8], f[9])
              : Crypt_Decode_Pubkey_Info(der.data(), derLen, bits, f[0], f[1]);
}

EVP_PKEY* sized_key(unsigned bits) {
  static std::map<unsigned, EvpKey> keys;
  EvpKey& key = keys[bits];
  if (!key) key = openssl_keygen(bits);
  return key.get();
}

class OpenSslKeys : public ::testing::TestWithParam<unsigned> {};

// Every number lands right-aligned in its own field (a swapped or shifted field shows),
// bits follows the size-class rules, and encoding gives OpenSSL's DER back.
TEST_P(OpenSslKeys, ReadFieldByFieldAndWriteBackIdentically) {
  EVP_PKEY* key = sized_key(GetParam());
  const Bytes pub = public_der(key), pri = private_der(key);
  u32 bits = 0;
  u8 f[10][128];  // public n, e; private n, e, d, p, q, dp, dq, qinv
  ASSERT_EQ(decode_info(false, pub, int(pub.size()), &bits, f), 0);
  EXPECT_EQ(bits, GetParam() <= 512 ? 512u : 1024u);
  ASSERT_EQ(decode_info(true, pri, int(pri.size()), &bits, f), 0);
  EXPECT_EQ(bits, 1024u);  // whatever the key's size
  const char* names[10] = {OSSL_PKEY_PARAM_RSA_N,         OSSL_PKEY_PARAM_RSA_E,
                           OSSL_PKEY_PARAM_RSA_N,         OSSL_PKEY_PARAM_RSA_E,
                           OSSL_PKEY_PARAM_RSA_D,         OSSL_PKEY_PARAM_RSA_FACTOR1,
                           OSSL_PKEY_PARAM_RSA_FACTOR2,   OSSL_PKEY_PARAM_RSA_EXPONENT1,
                           OSSL_PKEY_PARAM_RSA_EXPONENT2, OSSL_PKEY_PARAM_RSA_COEFFICIENT1};
  for (int i = 0; i < 10; ++i) {
    const int width = i < 5 ? 128 : 64;
    EXPECT_EQ(to_hex(f[i], width), to_hex(key_number(key, names[i], width))) << i;
  }
  EXPECT_EQ(to_hex(written_back<RSA_PUBLIC_KEY>(pub, hylorn::d2c_RSA_PUBLIC_KEY,
                                                hylorn::c2d_RSA_PUBLIC_KEY)),
            to_hex(pub));
  EXPECT_EQ(to_hex(written_back<RSA_PRIVATE_KEY>(pri, hylorn::d2c_RSA_PRIVATE_KEY,
                                                 hylorn::c2d_RSA_PRIVATE_KEY)),
            to_hex(pri));
}

// A truncated key never decodes, and the record it leaves holds nothing of it.
TEST_P(OpenSslKeys, EveryShorterPrefixIsRefusedAndLeavesTheRecordClear) {
  const Bytes der = private_der(sized_key(GetParam()));
  for (u32 len = 0; len < der.size(); ++len) {
    RSA_PRIVATE_KEY pri;
    RSA_PUBLIC_KEY pub;
    std::memset(&pri, 0xEE, sizeof pri);
    std::memset(&pub, 0xEE, sizeof pub);
    ASSERT_EQ(hylorn::d2c_RSA_PRIVATE_KEY(der.data(), len, &pri), 1u) << len;
    ASSERT_EQ(hylorn::d2c_RSA_PUBLIC_KEY(der.data(), len, &pub), 1u) << len;
    ASSERT_TRUE(all_zero(pri) && all_zero(pub)) << len;
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, OpenSslKeys, ::testing::Values(512u, 768u, 1024u));

// bits is a size class (moduli up to 64 bytes read as 512, up to 128 as 1024) in which a
// sign byte does not count; a value longer than its 128-byte place is refused.
TEST(PublicKey, SizeClassAndOverlongValues) {
  const Bytes e = {0x01, 0x00, 0x01};
  const struct {
    Bytes modulus;
    u32 bits;  // 0: refused
    Bytes exponent;
  } cases[] = {
      {number(1), 512, e},          {number(64), 512, e},       {signed_number(64), 512, e},
      {number(65), 1024, e},        {number(128), 1024, e},     {signed_number(128), 1024, e},
      {number(129), 0, e},          {signed_number(129), 0, e}, {number(128), 1024, number(128)},
      {number(128), 0, number(129)}};
  for (const auto& c : cases) {
    SCOPED_TRACE(to_hex(c.modulus).substr(0, 4) + " x" + std::to_string(c.modulus.size()));
    const Bytes der = sequence_of_integers({c.modulus, c.exponent});
    u32 bits = 0;
    u8 f[10][128];
    const int result = decode_info(false, der, int(der.size()), &bits, f);
    ASSERT_EQ(result, c.bits == 0 ? -1 : 0);
    if (result != 0) continue;
    EXPECT_EQ(bits, c.bits);
    // right-aligned, zero-filled on the left, the sign byte gone
    const Bytes magnitude(c.modulus.begin() + (c.modulus[0] == 0), c.modulus.end());
    Bytes expected(128 - magnitude.size(), 0);
    expected.insert(expected.end(), magnitude.begin(), magnitude.end());
    EXPECT_EQ(to_hex(f[0], 128), to_hex(expected));
  }
}

// Each private field one byte longer than its place is refused with no field of the
// record filled; at its width it fits.
TEST(PrivateKey, FieldsLongerThanTheirPlaceAreRefused) {
  const std::size_t widths[8] = {128, 128, 128, 64, 64, 64, 64, 64};
  for (std::size_t field = 0; field < 8; ++field) {
    for (std::size_t extra : {0u, 1u}) {
      std::vector<Bytes> values{{0x00}};
      for (std::size_t i = 0; i < 8; ++i)
        values.push_back(number(widths[i] + (i == field) * extra));
      const Bytes der = sequence_of_integers(values);
      RSA_PRIVATE_KEY key;
      EXPECT_EQ(hylorn::d2c_RSA_PRIVATE_KEY(der.data(), u32(der.size()), &key), u32(extra))
          << "field " << field << " extra " << extra;
      if (extra != 0) {
        EXPECT_TRUE(all_zero(key)) << "field " << field;
      }
    }
  }
}

// Shapes the readers accept or refuse. The private key's version is skipped unread; a
// public key may carry more after its exponent.
const std::string kSeven = "02 01 02 02 01 03 02 01 04 02 01 05 02 01 06 02 01 07 02 01 08 ";
const std::string kPrivate = "30 1b 02 01 00 " + kSeven + "02 01 09";

TEST(KeyShapes, AcceptedOrRefused) {
  const struct {
    bool priv;
    std::string der;
    int result;
  } cases[] = {
      {true, kPrivate, 0},
      {true, "30 1b 02 01 07 " + kSeven + "02 01 09", 0},   // any version number
      {true, "30 1b 04 01 ff " + kSeven + "02 01 09", 0},   // version not even an INTEGER
      {true, "30 18 02 01 00 " + kSeven, -1},               // eight components
      {true, "30 1b 02 01 00 " + kSeven + "04 01 09", -1},  // a field not an INTEGER
      {true, "31 1b 02 01 00 " + kSeven + "02 01 09", -1},  // a SET
      {true, "30 00", -1},
      {false, "30 06 02 01 65 02 01 03", 0},
      {false, "30 09 02 01 65 02 01 03 05 01 00", 0},  // a third component
      {false, "30 00", -1},
      {false, "30 03 02 01 65", -1},
      {false, "30 06 02 01 65 04 01 03", -1},
      {false, "30 06 02 01 65 02 01 03 00", -1},  // trailing byte
      {false, "", -1},
  };
  for (const auto& c : cases) {
    const Bytes der = from_hex(c.der);
    EXPECT_EQ(decode_info(c.priv, der, int(der.size())), c.result) << c.der;
    EXPECT_EQ(decode_info(c.priv, der, -1), -1) << c.der;  // a negative length never reads
  }
}

// Allocation failures anywhere in either direction are reported, and leak nothing (the
// sanitizer build checks that).
TEST(KeyCoders, EveryAllocationFailureIsReported) {
  const Bytes der = openssl_pair().pri;
  RSA_PRIVATE_KEY pri;
  ASSERT_EQ(hylorn::d2c_RSA_PRIVATE_KEY(der.data(), u32(der.size()), &pri), 0u);
  u8 out[HYLORN_PRIKEY_DER_SIZE];
  u32 len = 0;
  int failures = 0;
  for (int n = 1;; ++n) {
    hylorn_test::FailNthMalloc fail(n);
    RSA_PRIVATE_KEY back;
    const u32 decoded = hylorn::d2c_RSA_PRIVATE_KEY(der.data(), u32(der.size()), &back);
    const u32 encoded = hylorn::c2d_RSA_PRIVATE_KEY(&pri, out, &len);
    if (!fail.fired()) {
      EXPECT_EQ(decoded | encoded, 0u);
      break;
    }
    EXPECT_EQ(decoded | encoded, 1u) << n;
    ++failures;
  }
  EXPECT_GT(failures, 18);  // at least one allocation per element in each direction
}

// Crypt_Restore_Key keeps its odd result table: either key decoding is success; two
// undecodable keys fail except under a slot name, matched exactly.
TEST(RestoreKey, ResultTable) {
  const Bytes pub = from_hex("30 06 02 01 65 02 01 03");
  const Bytes pri = from_hex(kPrivate);
  const Bytes junk = from_hex("04 02 30 00");
  const struct {
    const char* name;
    const Bytes& pub;
    const Bytes& pri;
    u32 result;
  } cases[] = {{"keypair.out", pub, junk, 0},   {"keypair.out", junk, pri, 0},
               {"keypair.out", junk, junk, 1},  {"any/path", junk, junk, 1},
               {"keypair.db1", junk, junk, 0},  {"keypair.db5", junk, junk, 0},
               {"Keypair.db3", junk, junk, 1},  {"keypair.db6", junk, junk, 1},
               {"keypair.db3 ", junk, junk, 1}, {nullptr, junk, junk, 1}};
  for (const auto& c : cases) {
    EXPECT_EQ(
        Crypt_Restore_Key(c.name, c.pub.data(), int(c.pub.size()), c.pri.data(), int(c.pri.size())),
        c.result)
        << (c.name ? c.name : "null");
  }
}

}  // namespace
