#include "keys/key_der.h"

#include <gtest/gtest.h>
#include <openssl/core_names.h>

#include <algorithm>
#include <cstring>

#include "key_fixtures.h"
#include "support/fail_malloc.h"

namespace {

using hylorn::RSA_PRIVATE_KEY;
using hylorn::RSA_PUBLIC_KEY;
using hylorn::u32;
using namespace keys_test;

Bytes sequence_of_integers(const std::vector<Bytes>& values) {
  Bytes body;
  for (const Bytes& v : values) {
    const Bytes element = tlv(0x02, v);
    body.insert(body.end(), element.begin(), element.end());
  }
  return tlv(0x30, body);
}

// An n-byte magnitude: starting 0x5a, or 0xC3 behind the sign byte that then needs.
Bytes number(std::size_t n, bool sign_byte = false) {
  Bytes b(n, sign_byte ? 0xC3 : 0x5a);
  if (sign_byte) b.insert(b.begin(), 0x00);
  return b;
}

template <class Record>
bool all_zero(const Record& r) {
  const auto* b = reinterpret_cast<const u8*>(&r);
  return std::all_of(b, b + sizeof r, [](u8 x) { return x == 0; });
}

// DER read into a record and written again (empty when either step fails).
template <class Record>
Bytes written_back(const Bytes& der, u32 (*decode)(const u8*, u32, Record*),
                   u32 (*encode)(const Record*, u8*, u32*)) {
  Record record;
  Bytes back(HYLORN_PRIKEY_DER_SIZE);
  u32 backLen = 0;
  if (decode(der.data(), u32(der.size()), &record) || encode(&record, back.data(), &backLen))
    return {};
  back.resize(backLen);
  return back;
}

// The outputs of the exported readers: public n, e; private n, e, d, p, q, dp, dq, qinv.
struct Info {
  u32 bits = 0;
  u8 f[10][128];
  int read(bool priv, const Bytes& der, int derLen) {
    return priv ? Crypt_Decode_Prikey_Info(der.data(), derLen, &bits, f[2], f[3], f[4], f[5], f[6],
                                           f[7], f[8], f[9])
                : Crypt_Decode_Pubkey_Info(der.data(), derLen, &bits, f[0], f[1]);
  }
  int read(bool priv, const Bytes& der) { return read(priv, der, int(der.size())); }
};

class OpenSslKeys : public ::testing::TestWithParam<unsigned> {};

// Every field right-aligned in its place, written back byte for byte; prefixes refused.
TEST_P(OpenSslKeys, ReadFieldByFieldWrittenBackAndPrefixesRefused) {
  const EvpKey key = openssl_keygen(GetParam());
  const Bytes pub = public_der(key.get()), pri = private_der(key.get());
  Info info;
  ASSERT_EQ(info.read(false, pub), 0);
  EXPECT_EQ(info.bits, GetParam() <= 512 ? 512u : 1024u);
  ASSERT_EQ(info.read(true, pri), 0);
  EXPECT_EQ(info.bits, 1024u);  // whatever the key's size
  const char* names[10] = {OSSL_PKEY_PARAM_RSA_N,         OSSL_PKEY_PARAM_RSA_E,
                           OSSL_PKEY_PARAM_RSA_N,         OSSL_PKEY_PARAM_RSA_E,
                           OSSL_PKEY_PARAM_RSA_D,         OSSL_PKEY_PARAM_RSA_FACTOR1,
                           OSSL_PKEY_PARAM_RSA_FACTOR2,   OSSL_PKEY_PARAM_RSA_EXPONENT1,
                           OSSL_PKEY_PARAM_RSA_EXPONENT2, OSSL_PKEY_PARAM_RSA_COEFFICIENT1};
  for (int i = 0; i < 10; ++i) {
    const int width = i < 5 ? 128 : 64;
    EXPECT_EQ(to_hex(info.f[i], width), to_hex(key_number(key.get(), names[i], width))) << i;
  }
  EXPECT_EQ(to_hex(written_back(pub, hylorn::d2c_RSA_PUBLIC_KEY, hylorn::c2d_RSA_PUBLIC_KEY)),
            to_hex(pub));
  EXPECT_EQ(to_hex(written_back(pri, hylorn::d2c_RSA_PRIVATE_KEY, hylorn::c2d_RSA_PRIVATE_KEY)),
            to_hex(pri));
  for (u32 len = 0; len < pri.size(); ++len) {
    RSA_PRIVATE_KEY pri_key;
    RSA_PUBLIC_KEY pub_key;
    std::memset(&pri_key, 0xEE, sizeof pri_key);
    std::memset(&pub_key, 0xEE, sizeof pub_key);
    ASSERT_EQ(hylorn::d2c_RSA_PRIVATE_KEY(pri.data(), len, &pri_key), 1u) << len;
    ASSERT_EQ(hylorn::d2c_RSA_PUBLIC_KEY(pri.data(), len, &pub_key), 1u) << len;
    ASSERT_TRUE(all_zero(pri_key) && all_zero(pub_key)) << len;
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, OpenSslKeys, ::testing::Values(512u, 768u, 1024u));

// A field one byte longer than its place is refused and leaves the record zeroed.
template <class Record>
void check_field_widths(u32 (*decode)(const u8*, u32, Record*), std::vector<std::size_t> widths,
                        std::vector<Bytes> leading) {
  for (std::size_t field = 0; field < widths.size(); ++field) {
    for (std::size_t extra : {0u, 1u}) {
      std::vector<Bytes> values = leading;
      for (std::size_t i = 0; i < widths.size(); ++i)
        values.push_back(i != field ? number(widths[i]) : number(widths[i] + extra, true));
      const Bytes der = sequence_of_integers(values);
      Record key;
      EXPECT_EQ(decode(der.data(), u32(der.size()), &key), u32(extra)) << field << " " << extra;
      EXPECT_TRUE(extra == 0 || all_zero(key)) << "field " << field;
    }
  }
}

TEST(KeyFields, LongerThanTheirPlaceAreRefused) {
  check_field_widths(hylorn::d2c_RSA_PUBLIC_KEY, {128, 128}, {});
  check_field_widths(hylorn::d2c_RSA_PRIVATE_KEY, {128, 128, 128, 64, 64, 64, 64, 64}, {{0x00}});
}

// The private version is skipped unread; a public key's bits is a size class (512 or 1024).
const std::string kSeven = "02 01 02 02 01 03 02 01 04 02 01 05 02 01 06 02 01 07 02 01 08 ";
const std::string kPrivate = "30 1b 02 01 00 " + kSeven + "02 01 09";
std::string public_with(const Bytes& modulus) {
  return to_hex(sequence_of_integers({modulus, {0x03}}));
}

TEST(KeyShapes, AcceptedOrRefused) {
  const struct {
    bool priv;
    std::string der;
    int result;
    u32 bits;
  } cases[] = {
      {true, kPrivate, 0, 1024},
      {true, "30 1b 02 01 07 " + kSeven + "02 01 09", 0, 1024},  // any version number
      {true, "30 1b 04 01 ff " + kSeven + "02 01 09", 0, 1024},  // version not even an INTEGER
      {true, "30 18 02 01 00 " + kSeven, -1, 0},                 // eight components
      {true, "30 1b 02 01 00 " + kSeven + "04 01 09", -1, 0},    // a field not an INTEGER
      {false, "30 06 02 01 65 02 01 03", 0, 512},
      {false, "30 09 02 01 65 02 01 03 05 01 00", 0, 512},  // a third component
      {false, "30 03 02 01 65", -1, 0},                     // no exponent
      {false, "30 06 02 01 65 04 01 03", -1, 0},            // exponent not an INTEGER
      {false, "30 06 02 01 65 02 01 03 00", -1, 0},         // trailing byte
      {false, "", -1, 0},
      {false, public_with(number(64)), 0, 512},
      {false, public_with(number(64, true)), 0, 512},
      {false, public_with(number(65)), 0, 1024},
      {false, public_with(number(65, true)), 0, 1024},
      {false, public_with(number(128, true)), 0, 1024},
  };
  for (const auto& c : cases) {
    Info info;
    EXPECT_EQ(info.read(c.priv, from_hex(c.der)), c.result) << c.der;
    EXPECT_EQ(info.bits, c.bits) << c.der;
    EXPECT_EQ(info.read(c.priv, from_hex(c.der), -1), -1) << c.der;
  }
}

TEST(KeyCoders, EveryAllocationFailureIsReported) {
  const Bytes der = openssl_pair().pri;
  RSA_PRIVATE_KEY pri, back;
  ASSERT_EQ(hylorn::d2c_RSA_PRIVATE_KEY(der.data(), u32(der.size()), &pri), 0u);
  u8 out[HYLORN_PRIKEY_DER_SIZE];
  u32 len = 0;
  int n = 1;
  for (;; ++n) {
    hylorn_test::FailNthMalloc fail(n);
    const u32 result = hylorn::d2c_RSA_PRIVATE_KEY(der.data(), u32(der.size()), &back) |
                       hylorn::c2d_RSA_PRIVATE_KEY(&pri, out, &len);
    ASSERT_EQ(result, fail.fired() ? 1u : 0u) << n;
    if (!fail.fired()) break;
  }
  EXPECT_GT(n, 18);  // at least one allocation per element in each direction
}

TEST(RestoreKey, ResultTable) {
  const Bytes pub = from_hex("30 06 02 01 65 02 01 03"), pri = from_hex(kPrivate);
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
