// The PKCS #1 key encodings: OpenSSL's keys read here field by field and write back
// byte for byte, the size-class rule for bits, and the refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <openssl/core_names.h>

#include "hylorn.h"
#include "keys/key_der.h"
#include "openssl_keys.h"
#include "support/fail_malloc.h"
#include "support/hex.h"

namespace {

using hylorn::RSA_PRIVATE_KEY;
using hylorn::RSA_PUBLIC_KEY;
using hylorn::u32;
using hylorn::u8;
using hylorn_test::from_hex;
using hylorn_test::to_hex;
using keys_test::Bytes;
using keys_test::EvpKey;

Bytes tlv(u8 tag, const Bytes& contents) {
  Bytes out{tag};
  const std::size_t n = contents.size();
  if (n < 0x80) {
    out.push_back(static_cast<u8>(n));
  } else if (n < 0x100) {
    out.insert(out.end(), {0x81, static_cast<u8>(n)});
  } else {
    out.insert(out.end(), {0x82, static_cast<u8>(n >> 8), static_cast<u8>(n)});
  }
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
Bytes number(std::size_t n) { return Bytes(n, 0x5a); }

bool all_zero(const void* p, std::size_t n) {
  const auto* b = static_cast<const u8*>(p);
  return std::all_of(b, b + n, [](u8 x) { return x == 0; });
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

// ---------------------------------------------------------------------------------------
// OpenSSL's keys of three sizes

class OpenSslKeys : public ::testing::TestWithParam<unsigned> {
 protected:
  static void SetUpTestSuite() {
    for (unsigned bits : {512u, 768u, 1024u}) keys_[bits] = keys_test::openssl_rsa(bits);
  }
  static void TearDownTestSuite() { keys_.clear(); }
  EVP_PKEY* key() const { return keys_.at(GetParam()).get(); }

  static std::map<unsigned, EvpKey> keys_;
};
std::map<unsigned, EvpKey> OpenSslKeys::keys_;

TEST_P(OpenSslKeys, PublicKeyReadsIntoItsSizeClassAndWritesBackIdentically) {
  const Bytes der = keys_test::public_der(key());
  u32 bits = 0;
  u8 modulus[128], exponent[128];
  ASSERT_EQ(Crypt_Decode_Pubkey_Info(der.data(), int(der.size()), &bits, modulus, exponent), 0);
  EXPECT_EQ(bits, GetParam() <= 512 ? 512u : 1024u);
  EXPECT_EQ(to_hex(modulus, 128), to_hex(keys_test::key_number(key(), OSSL_PKEY_PARAM_RSA_N, 128)));
  EXPECT_EQ(to_hex(exponent, 128), to_hex(keys_test::key_number(key(), OSSL_PKEY_PARAM_RSA_E, 128)));

  EXPECT_EQ(to_hex(written_back<RSA_PUBLIC_KEY>(der, hylorn::d2c_RSA_PUBLIC_KEY,
                                                 hylorn::c2d_RSA_PUBLIC_KEY)),
            to_hex(der));
}

TEST_P(OpenSslKeys, PrivateKeyReadsEveryFieldAndWritesBackIdentically) {
  const Bytes der = keys_test::private_der(key());
  u32 bits = 0;
  u8 n[128], e[128], d[128], p[64], q[64], dp[64], dq[64], qinv[64];
  ASSERT_EQ(Crypt_Decode_Prikey_Info(der.data(), int(der.size()), &bits, n, e, d, p, q, dp, dq,
                                     qinv),
            0);
  EXPECT_EQ(bits, 1024u);  // whatever the key's size
  const struct {
    const u8* got;
    const char* name;
    int width;
  } fields[] = {{n, OSSL_PKEY_PARAM_RSA_N, 128},
                {e, OSSL_PKEY_PARAM_RSA_E, 128},
                {d, OSSL_PKEY_PARAM_RSA_D, 128},
                {p, OSSL_PKEY_PARAM_RSA_FACTOR1, 64},
                {q, OSSL_PKEY_PARAM_RSA_FACTOR2, 64},
                {dp, OSSL_PKEY_PARAM_RSA_EXPONENT1, 64},
                {dq, OSSL_PKEY_PARAM_RSA_EXPONENT2, 64},
                {qinv, OSSL_PKEY_PARAM_RSA_COEFFICIENT1, 64}};
  for (const auto& f : fields) {
    EXPECT_EQ(to_hex(f.got, f.width), to_hex(keys_test::key_number(key(), f.name, f.width)))
        << f.name;
  }

  const Bytes back = written_back<RSA_PRIVATE_KEY>(der, hylorn::d2c_RSA_PRIVATE_KEY,
                                                   hylorn::c2d_RSA_PRIVATE_KEY);
  EXPECT_EQ(to_hex(back), to_hex(der));
  const EvpKey reloaded = keys_test::load_private_der(back);
  ASSERT_NE(reloaded, nullptr);
  EXPECT_TRUE(keys_test::key_checks(reloaded.get()));
}

TEST_P(OpenSslKeys, EveryShorterPrefixIsRefusedAndLeavesTheRecordClear) {
  const Bytes der = keys_test::private_der(key());
  for (std::size_t len = 0; len < der.size(); ++len) {
    const Bytes prefix(der.begin(), der.begin() + static_cast<long>(len));
    RSA_PRIVATE_KEY pri;
    RSA_PUBLIC_KEY pub;
    std::memset(&pri, 0xEE, sizeof pri);
    std::memset(&pub, 0xEE, sizeof pub);
    ASSERT_EQ(hylorn::d2c_RSA_PRIVATE_KEY(prefix.data(), u32(len), &pri), 1u) << len;
    ASSERT_EQ(hylorn::d2c_RSA_PUBLIC_KEY(prefix.data(), u32(len), &pub), 1u) << len;
    ASSERT_TRUE(all_zero(&pri, sizeof pri) && all_zero(&pub, sizeof pub)) << len;
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, OpenSslKeys, ::testing::Values(512u, 768u, 1024u));

// ---------------------------------------------------------------------------------------
// bits of a public key is a size class; over-long values are refused

struct ModulusCase {
  Bytes modulus;    // INTEGER contents as written
  u32 bits;         // 0: refused
  Bytes exponent = {0x01, 0x00, 0x01};
};

class PublicSizeClass : public ::testing::TestWithParam<ModulusCase> {};

TEST_P(PublicSizeClass, FollowsTheModulusLength) {
  const auto& c = GetParam();
  const Bytes der = sequence_of_integers({c.modulus, c.exponent});
  RSA_PUBLIC_KEY key;
  const u32 result = hylorn::d2c_RSA_PUBLIC_KEY(der.data(), u32(der.size()), &key);
  u32 bits = 0;
  u8 modulus[128], exponent[128];
  const int info = Crypt_Decode_Pubkey_Info(der.data(), int(der.size()), &bits, modulus, exponent);
  if (c.bits == 0) {
    EXPECT_EQ(result, 1u);
    EXPECT_EQ(info, -1);
    return;
  }
  ASSERT_EQ(result, 0u);
  ASSERT_EQ(info, 0);
  EXPECT_EQ(key.bits, c.bits);
  EXPECT_EQ(bits, c.bits);
  // right-aligned, leading zeros on the left, the sign byte gone
  Bytes magnitude = c.modulus;
  if (magnitude.size() > 1 && magnitude[0] == 0) magnitude.erase(magnitude.begin());
  Bytes expected(128 - magnitude.size(), 0);
  expected.insert(expected.end(), magnitude.begin(), magnitude.end());
  EXPECT_EQ(to_hex(key.modulus, 128), to_hex(expected));
}

Bytes signed_magnitude(std::size_t n) {
  Bytes b(n + 1, 0xC3);
  b[0] = 0x00;
  return b;
}

INSTANTIATE_TEST_SUITE_P(
    Lengths, PublicSizeClass,
    ::testing::Values(ModulusCase{number(1), 512}, ModulusCase{number(64), 512},
                      ModulusCase{signed_magnitude(64), 512}, ModulusCase{number(65), 1024},
                      ModulusCase{number(96), 1024}, ModulusCase{number(128), 1024},
                      ModulusCase{signed_magnitude(128), 1024}, ModulusCase{number(129), 0},
                      ModulusCase{signed_magnitude(129), 0}, ModulusCase{number(256), 0},
                      ModulusCase{number(128), 1024, number(128)},
                      ModulusCase{number(128), 0, number(129)}));

// Each private field one byte longer than its place is refused, leaving no field of the
// record filled; at its width it fits.
TEST(PrivateKeyFields, LongerThanTheirPlaceAreRefused) {
  const std::size_t widths[8] = {128, 128, 128, 64, 64, 64, 64, 64};
  for (std::size_t field = 0; field < 8; ++field) {
    for (std::size_t extra : {0u, 1u}) {
      std::vector<Bytes> values{{0x00}};
      for (std::size_t i = 0; i < 8; ++i) values.push_back(number(widths[i] + (i == field) * extra));
      const Bytes der = sequence_of_integers(values);
      RSA_PRIVATE_KEY key;
      EXPECT_EQ(hylorn::d2c_RSA_PRIVATE_KEY(der.data(), u32(der.size()), &key), u32(extra))
          << "field " << field << " extra " << extra;
      if (extra != 0) {
        EXPECT_TRUE(all_zero(&key, sizeof key)) << "field " << field;
      }
    }
  }
}

// ---------------------------------------------------------------------------------------
// Shapes the decoders accept or refuse

struct ShapeCase {
  const char* what;
  const char* der;
  u32 result;
};

class PrivateShapes : public ::testing::TestWithParam<ShapeCase> {};

// a three-byte version, then the INTEGERs 2 .. 9
std::string private_with_version(const char* version) {
  return std::string("30 1b ") + version +
         " 02 01 02 02 01 03 02 01 04 02 01 05 02 01 06 02 01 07 02 01 08 02 01 09";
}

TEST_P(PrivateShapes, Decode) {
  const Bytes der = from_hex(GetParam().der);
  RSA_PRIVATE_KEY key;
  EXPECT_EQ(hylorn::d2c_RSA_PRIVATE_KEY(der.data(), u32(der.size()), &key), GetParam().result);
  if (GetParam().result == 0) {
    EXPECT_EQ(key.bits, 1024);
    EXPECT_EQ(key.modulus[127], 2);
    EXPECT_EQ(key.coefficient[63], 9);
  }
}

const std::string kVersion0 = private_with_version("02 01 00");
const std::string kVersion7 = private_with_version("02 01 07");
const std::string kVersionOctets = private_with_version("04 01 ff");

INSTANTIATE_TEST_SUITE_P(
    Table, PrivateShapes,
    ::testing::Values(
        ShapeCase{"version 0", kVersion0.c_str(), 0},
        ShapeCase{"any version number", kVersion7.c_str(), 0},
        ShapeCase{"version not even an INTEGER", kVersionOctets.c_str(), 0},
        ShapeCase{"empty SEQUENCE", "30 00", 1},
        ShapeCase{"eight components", "30 18 02 01 00 02 01 02 02 01 03 02 01 04 02 01 05 02 01 06 "
                                      "02 01 07 02 01 08", 1},
        ShapeCase{"a field not an INTEGER", "30 1b 02 01 00 02 01 02 04 01 03 02 01 04 02 01 05 "
                                            "02 01 06 02 01 07 02 01 08 02 01 09", 1},
        ShapeCase{"a SET", "31 1b 02 01 00 02 01 02 02 01 03 02 01 04 02 01 05 02 01 06 02 01 07 "
                           "02 01 08 02 01 09", 1}));

struct PublicShape {
  const char* what;
  const char* der;
  int result;
};

class PublicShapes : public ::testing::TestWithParam<PublicShape> {};

TEST_P(PublicShapes, Decode) {
  const Bytes der = from_hex(GetParam().der);
  u32 bits = 0;
  u8 modulus[128], exponent[128];
  EXPECT_EQ(Crypt_Decode_Pubkey_Info(der.data(), int(der.size()), &bits, modulus, exponent),
            GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(
    Table, PublicShapes,
    ::testing::Values(PublicShape{"two INTEGERs", "30 06 02 01 65 02 01 03", 0},
                      PublicShape{"a third component is ignored", "30 09 02 01 65 02 01 03 05 01 00", 0},
                      PublicShape{"empty SEQUENCE", "30 00", -1},
                      PublicShape{"no exponent", "30 03 02 01 65", -1},
                      PublicShape{"exponent not an INTEGER", "30 06 02 01 65 04 01 03", -1},
                      PublicShape{"trailing byte", "30 06 02 01 65 02 01 03 00", -1},
                      PublicShape{"nothing", "", -1}));

TEST(KeyInfo, NegativeLengthsNeverDecode) {
  const Bytes der = from_hex("30 06 02 01 65 02 01 03");
  u32 bits = 0;
  u8 big[128], small[64];
  EXPECT_EQ(Crypt_Decode_Pubkey_Info(der.data(), -1, &bits, big, big), -1);
  EXPECT_EQ(Crypt_Decode_Prikey_Info(der.data(), -1, &bits, big, big, big, small, small, small,
                                     small, small),
            -1);
}

// ---------------------------------------------------------------------------------------
// Encoders

TEST(KeyEncoders, ZeroFieldsAreTheSingleByteZero) {
  RSA_PRIVATE_KEY pri{};
  RSA_PUBLIC_KEY pub{};
  u8 der[700];
  u32 len = 0;
  ASSERT_EQ(hylorn::c2d_RSA_PRIVATE_KEY(&pri, der, &len), 0u);
  std::string nine_zeros;
  for (int i = 0; i < 9; ++i) nine_zeros += "020100";
  EXPECT_EQ(to_hex(der, len), "301b" + nine_zeros);
  ASSERT_EQ(hylorn::c2d_RSA_PUBLIC_KEY(&pub, der, &len), 0u);
  EXPECT_EQ(to_hex(der, len), "3006020100020100");
}

TEST(KeyEncoders, EveryAllocationFailureIsReportedWithoutLeaks) {
  const EvpKey key = keys_test::openssl_rsa(1024);
  const Bytes der = keys_test::private_der(key.get());
  RSA_PRIVATE_KEY pri;
  ASSERT_EQ(hylorn::d2c_RSA_PRIVATE_KEY(der.data(), u32(der.size()), &pri), 0u);
  u8 out[700];
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

// ---------------------------------------------------------------------------------------
// Crypt_Restore_Key keeps its odd result table

struct RestoreCase {
  const char* name;
  bool pub_decodes;
  bool pri_decodes;
  u32 result;
};

class RestoreKey : public ::testing::TestWithParam<RestoreCase> {};

TEST_P(RestoreKey, Result) {
  const auto& c = GetParam();
  const Bytes pub = from_hex("30 06 02 01 65 02 01 03");
  const Bytes pri = from_hex(kVersion0);
  const Bytes junk = from_hex("04 02 30 00");
  const Bytes& p = c.pub_decodes ? pub : junk;
  const Bytes& q = c.pri_decodes ? pri : junk;
  EXPECT_EQ(Crypt_Restore_Key(c.name, p.data(), int(p.size()), q.data(), int(q.size())), c.result);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RestoreKey,
    ::testing::Values(RestoreCase{"keypair.out", true, false, 0},
                      RestoreCase{"keypair.out", false, true, 0},
                      RestoreCase{"keypair.out", false, false, 1},
                      RestoreCase{"any/path", false, false, 1},
                      RestoreCase{"keypair.db1", false, false, 0},
                      RestoreCase{"keypair.db3", false, false, 0},
                      RestoreCase{"keypair.db5", false, false, 0},
                      RestoreCase{"Keypair.db3", false, false, 1},
                      RestoreCase{"keypair.db6", false, false, 1},
                      RestoreCase{"keypair.db3 ", false, false, 1},
                      RestoreCase{nullptr, false, false, 1}));

}  // namespace
