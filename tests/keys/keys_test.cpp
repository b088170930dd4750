// The key functions against OpenSSL: the PKCS #1 coders and readers field by field, the
// key pair generator and its files, the raw RSA directions, the envelope and signatures.
#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/core_names.h>
#include <openssl/rsa.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <stdexcept>

#include "hylorn.h"
#include "keys/key_der.h"
#include "support/fail_malloc.h"
#include "support/openssl_bytes.h"
#include "support/openssl_rsa.h"
#include "support/temp_dir.h"

namespace {

using namespace hylorn_test;
using hylorn::RSA_PRIVATE_KEY;
using hylorn::RSA_PUBLIC_KEY;
using hylorn::u32;
using u8 = unsigned char;
using Names = std::vector<std::string>;

constexpr unsigned char kSentinel = 0xA5;
constexpr unsigned kUnwritten = 0xDEADBEEF;

// A DER element of a universal type, its header written by OpenSSL.
Bytes tlv(int tag, const Bytes& contents) {
  return openssl_tlv(tag == V_ASN1_SEQUENCE, tag, V_ASN1_UNIVERSAL, contents);
}

// n bytes of a fixed pattern, different for each seed.
Bytes pattern(std::size_t n, unsigned seed = 3) {
  Bytes b(n);
  for (std::size_t i = 0; i < n; ++i) b[i] = static_cast<u8>(i * 31 + seed);
  return b;
}

// Outputs of one call, pre-filled so that untouched buffers show.
struct PairOut {
  Bytes pub = Bytes(HYLORN_PUBKEY_DER_SIZE, kSentinel),
        pri = Bytes(HYLORN_PRIKEY_DER_SIZE, kSentinel);
  unsigned pubLen = kUnwritten, priLen = kUnwritten;
  bool operator==(const PairOut&) const = default;
  unsigned generate(const std::string& name) {
    return Crypt_GenRSAKeyPair(name.c_str(), 0, pub.data(), &pubLen, pri.data(), &priLen);
  }
  static Bytes head(const Bytes& b, unsigned n) {
    return Bytes(b.begin(), b.begin() + std::min<std::size_t>(n, b.size()));
  }
  Bytes pub_der() const { return head(pub, pubLen); }
  Bytes pri_der() const { return head(pri, priLen); }
  // Both halves load in OpenSSL and belong together.
  bool halves_match() const {
    const EvpKey a = load_private_der(pri_der()), b = load_public_der(pub_der());
    return a && b && EVP_PKEY_eq(a.get(), b.get()) == 1;
  }
};

struct DerPair {
  Bytes pub;
  Bytes pri;
};

// Our generator's pair, made in a scratch working directory.
const DerPair& our_pair() {
  static const DerPair pair = [] {
    TempDir cwd(TempDir::kEnter);
    PairOut out;
    if (out.generate("keypair.out") != 0) throw std::runtime_error("Crypt_GenRSAKeyPair");
    return DerPair{out.pub_der(), out.pri_der()};
  }();
  return pair;
}

// A 1024-bit key from OpenSSL, as OpenSSL holds it and as DER.
EVP_PKEY* openssl_key() {
  static const EvpKey key = openssl_keygen(1024);
  return key.get();
}
const DerPair& openssl_pair() {
  static const DerPair pair{public_der(openssl_key()), private_der(openssl_key())};
  return pair;
}

Bytes sequence_of_integers(const std::vector<Bytes>& values) {
  Bytes body;
  for (const Bytes& v : values) {
    const Bytes element = tlv(V_ASN1_INTEGER, v);
    body.insert(body.end(), element.begin(), element.end());
  }
  return tlv(V_ASN1_SEQUENCE, body);
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
  const std::tuple<bool, std::string, int, u32> cases[] = {
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
  for (const auto& [priv, der, result, bits] : cases) {
    Info info;
    EXPECT_EQ(info.read(priv, from_hex(der)), result) << der;
    EXPECT_EQ(info.bits, bits) << der;
    EXPECT_EQ(info.read(priv, from_hex(der), -1), -1) << der;
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
  const std::tuple<const char*, const Bytes&, const Bytes&, u32> cases[] = {
      {"keypair.out", pub, junk, 0},   {"keypair.out", junk, pri, 0},
      {"keypair.out", junk, junk, 1},  {"any/path", junk, junk, 1},
      {"keypair.db1", junk, junk, 0},  {"keypair.db5", junk, junk, 0},
      {"Keypair.db3", junk, junk, 1},  {"keypair.db6", junk, junk, 1},
      {"keypair.db3 ", junk, junk, 1}, {nullptr, junk, junk, 1}};
  for (const auto& [name, pub_der, pri_der, result] : cases) {
    EXPECT_EQ(Crypt_Restore_Key(name, pub_der.data(), int(pub_der.size()), pri_der.data(),
                                int(pri_der.size())),
              result)
        << (name ? name : "null");
  }
}

// keypair.out and the slot names write no file, and a public key is only read from a key
// file: slot names, absent files and public key files give nothing.
TEST(GenRSAKeyPair, KeypairOutAndSlotNamesWriteNoFile) {
  TempDir cwd(TempDir::kEnter);
  PairOut out;
  ASSERT_EQ(out.generate("keypair.out"), 0u);
  EXPECT_TRUE(out.halves_match());
  const EvpKey pri = load_private_der(out.pri_der());
  ASSERT_NE(pri, nullptr);
  EXPECT_TRUE(key_checks(pri.get()));
  EXPECT_EQ(EVP_PKEY_get_bits(pri.get()), 1024);
  EXPECT_EQ(to_hex(key_number(pri.get(), OSSL_PKEY_PARAM_RSA_E, 3)), "010001");
  for (const char* slot : {"keypair.db1", "keypair.db4"}) {
    PairOut slot_out;
    EXPECT_EQ(slot_out.generate(slot), 0u) << slot;
    EXPECT_TRUE(slot_out == PairOut{}) << slot;
  }
  EXPECT_EQ(cwd.entries(), Names{});
  write_file("keypair.db5", openssl_pair().pri);
  write_file("pub.der", openssl_pair().pub);
  for (const char* name : {"keypair.db2", "keypair.db5", "absent.der", "pub.der", ""}) {
    Bytes pub(HYLORN_PUBKEY_DER_SIZE, kSentinel);
    unsigned pubLen = kUnwritten;
    EXPECT_EQ(Crypt_GetRSAPublicKey(name, 0, pub.data(), &pubLen), 1u) << name;
    EXPECT_EQ(pubLen, kUnwritten) << name;
    EXPECT_EQ(pub, Bytes(HYLORN_PUBKEY_DER_SIZE, kSentinel)) << name;
  }
}

// The key file is the private DER alone, replaces a longer file and is private; the
// public half reads back from it. An uncreatable file fails after both outputs; the
// file-size limit makes the write fail half-way, and the earlier key stays whole.
TEST(GenRSAKeyPair, KeyFileHoldsThePrivateDerAndIsNeverHalfWritten) {
  TempDir dir;
  const std::string path = dir.path("Keypair.db3");
  write_file(path, Bytes(3000, 0x55));
  PairOut first;
  ASSERT_EQ(first.generate(path), 0u);
  EXPECT_EQ(to_hex(read_file(path)), to_hex(first.pri_der()));
  struct stat st {};
  ASSERT_EQ(::stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  Bytes pub(HYLORN_PUBKEY_DER_SIZE);
  unsigned pubLen = 0;
  ASSERT_EQ(Crypt_GetRSAPublicKey(path.c_str(), 0, pub.data(), &pubLen), 0u);
  EXPECT_EQ(to_hex(pub.data(), pubLen), to_hex(first.pub_der()));
  PairOut uncreatable;
  EXPECT_EQ(uncreatable.generate(dir.path("missing/key.der")), 1u);
  EXPECT_TRUE(uncreatable.halves_match());

  rlimit saved{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &saved), 0);
  rlimit small = saved;
  small.rlim_cur = 100;
  auto* previous = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  PairOut second;
  const unsigned result = second.generate(path);
  ::setrlimit(RLIMIT_FSIZE, &saved);
  std::signal(SIGXFSZ, previous);
  EXPECT_EQ(result, 1u);
  EXPECT_EQ(to_hex(read_file(path)), to_hex(first.pri_der()));
  EXPECT_EQ(dir.entries(), Names{"Keypair.db3"});
}

using KeyFn = unsigned (*)(const unsigned char*, unsigned, unsigned char*, unsigned*,
                           const unsigned char*, unsigned);

struct Outcome {
  unsigned result;
  Bytes out;  // what was written, or the whole untouched buffer on failure
};

// Runs one exported function whose key is DER into a buffer of room bytes.
Outcome run(KeyFn fn, const Bytes& in, const Bytes& key, std::size_t room = HYLORN_RSA_BLOCK_SIZE) {
  Bytes out(room, kSentinel);
  unsigned outLen = 0xFFFF;
  const unsigned r =
      fn(in.data(), unsigned(in.size()), out.data(), &outLen, key.data(), unsigned(key.size()));
  out.resize(r == 0 ? outLen : room);
  return {r, out};
}

// Decrypting directions open their own block type only; bad keys fail every direction.
TEST(RawRsa, DirectionsAgainstOpenSsl) {
  const DerPair& pair = openssl_pair();
  for (std::size_t length : {0u, 1u, 117u, 118u, 128u}) {
    SCOPED_TRACE(length);
    const Bytes data = pattern(length);
    const Outcome pub = run(Crypt_Asyn_Enc_Data_By_Pubkey, data, pair.pub);
    const Outcome pri = run(Crypt_Asyn_Enc_Data_By_Prikey, data, pair.pri);
    ASSERT_EQ(pub.result, length <= 117 ? 0u : 1u);
    ASSERT_EQ(pri.result, pub.result);
    if (pub.result != 0) {
      EXPECT_EQ(pri.out, Bytes(HYLORN_RSA_BLOCK_SIZE, kSentinel));
      continue;
    }
    EXPECT_EQ(to_hex(openssl_decrypt(openssl_key(), pub.out)), to_hex(data));
    EXPECT_EQ(to_hex(openssl_recover(openssl_key(), pri.out, RSA_PKCS1_PADDING)), to_hex(data));
  }
  const DerPair& ours = our_pair();
  const Bytes data = pattern(100);
  const Bytes type2 = openssl_encrypt(load_public_der(ours.pub).get(), data);
  const Outcome type1 = run(Crypt_Asyn_Enc_Data_By_Prikey, data, ours.pri);
  EXPECT_EQ(run(Crypt_Asyn_Dec_Data_By_Prikey, type2, ours.pri).out, data);
  EXPECT_EQ(run(Crypt_Asyn_Dec_Data_By_Pubkey, type1.out, ours.pub).out, data);
  EXPECT_EQ(run(Crypt_Asyn_Dec_Data_By_Prikey, type1.out, ours.pri).result, 1u);
  EXPECT_EQ(run(Crypt_Asyn_Dec_Data_By_Pubkey, type2, ours.pub).result, 1u);
  for (KeyFn fn : {Crypt_Asyn_Enc_Data_By_Prikey, Crypt_Asyn_Dec_Data_By_Pubkey,
                   Crypt_Asyn_Enc_Data_By_Pubkey, Crypt_Asyn_Dec_Data_By_Prikey})
    EXPECT_EQ(run(fn, type1.out, from_hex("30 03 02 01 05")).result, 1u);
}

// Crypt_Dec_Data in the shape of the others: the key is the key file's path, NUL ended.
unsigned dec_by_file(const unsigned char* in, unsigned inLen, unsigned char* out, unsigned* outLen,
                     const unsigned char* path, unsigned) {
  return Crypt_Dec_Data(in, inLen, out, outLen, reinterpret_cast<const char*>(path));
}

Bytes c_string(const std::string& s) {
  return Bytes(s.c_str(), s.c_str() + s.size() + 1);
}

class Envelope : public ::testing::TestWithParam<std::size_t> {};

// OpenSSL unwraps the session key; both envelope readers give the data back and refuse
// what they cannot open.
TEST_P(Envelope, OpensWithOpenSslAndWithBothReaders) {
  const std::size_t n = GetParam();
  const DerPair& pair = our_pair();
  const Bytes data = pattern(n);
  const Outcome sealed = run(Crypt_Enc_Data, data, pair.pub, 128 + n + 8);
  ASSERT_EQ(sealed.result, 0u);
  ASSERT_EQ(sealed.out.size(), 128 + n + 8 - n % 8);
  const EvpKey key = load_private_der(pair.pri);
  const Bytes session = openssl_decrypt(key.get(), Bytes(&sealed.out[0], &sealed.out[128]));
  ASSERT_EQ(session.size(), 16u);
  Bytes plain(sealed.out.size() - 128);
  unsigned plainLen = 0;
  ASSERT_EQ(Crypt_Dec_Data_S(&sealed.out[128], unsigned(plain.size()), plain.data(), &plainLen,
                             session.data()),
            0u);
  EXPECT_EQ(Bytes(plain.begin(), plain.begin() + plainLen), data);
  TempDir dir;
  write_file(dir.path("key"), pair.pri);
  EXPECT_EQ(run(Crypt_Dec_Data_By_Prikey, sealed.out, pair.pri, sealed.out.size()).out, data);
  EXPECT_EQ(run(dec_by_file, sealed.out, c_string(dir.path("key")), sealed.out.size()).out, data);
  // Short envelopes and unusable keys are refused, and nothing is written.
  const auto refused = [](const Outcome& o) {
    return o.result == 1 && o.out == Bytes(o.out.size(), kSentinel);
  };
  for (long cut : {0, 1, 127, 128}) {
    const Bytes in(sealed.out.begin(), sealed.out.begin() + cut);
    EXPECT_TRUE(refused(run(Crypt_Dec_Data_By_Prikey, in, pair.pri, 64))) << cut;
    EXPECT_TRUE(refused(run(dec_by_file, in, c_string(dir.path("key")), 64))) << cut;
  }
  EXPECT_TRUE(refused(run(dec_by_file, sealed.out, c_string("keypair.db2"), 256)));
  EXPECT_TRUE(refused(run(Crypt_Enc_Data, data, from_hex("30 00"), 256)));
  EXPECT_TRUE(refused(run(Crypt_Dec_Data_By_Prikey, sealed.out, pair.pub, 256)));
}

INSTANTIATE_TEST_SUITE_P(Lengths, Envelope, ::testing::Values(0u, 1u, 7u, 8u, 4097u, 10000u));

// The signature, or empty when signing fails; the outputs must then be untouched.
Bytes sign(int alg, const Bytes& pri, const Bytes& data) {
  Bytes sig(HYLORN_RSA_BLOCK_SIZE, kSentinel);
  unsigned sigLen = kUnwritten;
  if (Crypt_Gen_Signature_By_Prikey(alg, pri.data(), unsigned(pri.size()), data.data(),
                                    unsigned(data.size()), sig.data(), &sigLen) == 0)
    return Bytes(sig.begin(), sig.begin() + sigLen);
  EXPECT_EQ(sigLen, kUnwritten);
  EXPECT_EQ(sig, Bytes(HYLORN_RSA_BLOCK_SIZE, kSentinel));
  return {};
}

unsigned verify(int alg, const Bytes& pub, const Bytes& data, const Bytes& sig) {
  return Crypt_Ver_Signature(alg, pub.data(), unsigned(pub.size()), data.data(),
                             unsigned(data.size()), sig.data(), unsigned(sig.size()));
}

// Ours and OpenSSL's signatures are the same bytes; MD2 ones are opened raw.
TEST(Signature, SameBytesAsOpenSslAndEachVerifiesTheOther) {
  const char* md2_abc = "3020300c06082a864886f70d020205000410da853b0d3f88d99b30283a69e6ded6bb";
  const std::tuple<int, const char*, bool, std::size_t> cases[] = {
      {2, "MD5", true, 0},   {5, "MD5", true, 1000},   {3, "SHA1", true, 1},
      {6, "SHA1", true, 64}, {2, "MD5", false, 55},    {5, "MD5", false, 56},
      {3, "SHA1", false, 0}, {6, "SHA1", false, 4097}, {1, nullptr, false, 3},
      {7, nullptr, true, 3}};
  for (const auto& [alg, md_name, our_key, data_size] : cases) {
    SCOPED_TRACE(std::to_string(alg) + (our_key ? " ours " : " OpenSSL's ") +
                 std::to_string(data_size));
    const DerPair& pair = our_key ? our_pair() : openssl_pair();
    const EvpKey key = load_private_der(pair.pri);
    ASSERT_NE(key, nullptr);
    const Bytes data = md_name ? pattern(data_size, 1) : bytes_of("abc");
    const Bytes ours = sign(alg, pair.pri, data);
    EXPECT_EQ(verify(alg, pair.pub, data, ours), 0u);
    if (!md_name) {
      EXPECT_EQ(to_hex(openssl_recover(key.get(), ours, RSA_PKCS1_PADDING)), md2_abc);
      continue;
    }
    const EVP_MD* md = EVP_get_digestbyname(md_name);
    EXPECT_TRUE(openssl_verify(key.get(), md, data, ours));
    const Bytes theirs = openssl_sign(key.get(), md, data);
    EXPECT_EQ(to_hex(ours), to_hex(theirs));
    EXPECT_EQ(verify(alg, pair.pub, data, theirs), 0u);
  }
}

// 0 valid, 1 unopenable, 2 mismatch, 3 no digest; only the DigestInfo's length is compared.
TEST(Verify, ResultRules) {
  const DerPair& pair = openssl_pair();
  const Bytes data = bytes_of("the signed text");
  const Bytes sig = sign(2, pair.pri, data);
  Bytes changed = data, longer = sig;
  changed[3] ^= 1;
  longer.push_back(0);
  EXPECT_EQ(verify(2, pair.pub, changed, sig), 2u);
  EXPECT_EQ(verify(3, pair.pub, data, sig), 2u);  // MD5 signature checked as SHA-1
  EXPECT_EQ(verify(2, pair.pub, data, longer), 1u);
  EXPECT_EQ(verify(2, pair.pub, data, Bytes(128, 0xFF)), 1u);
  for (const char* der : {"", "30 00", "30 03 02 01 05"})
    EXPECT_EQ(verify(2, from_hex(der), data, sig), 1u) << der;
  for (int alg : {0, 4, 8, -1, 1000}) {
    EXPECT_EQ(sign(alg, pair.pri, data), Bytes{}) << alg;
    EXPECT_EQ(verify(alg, pair.pub, data, sig), 3u) << alg;
  }
  Bytes info(HYLORN_ENCODED_HASH_SIZE);
  unsigned infoLen = 0;
  ASSERT_EQ(Crypt_Gen_Encoded_Hash(3, data.data(), unsigned(data.size()), info.data(), &infoLen),
            0);
  info.resize(infoLen);
  Bytes more = info;
  more.insert(more.end(), {1, 2, 3});
  const Bytes more_sig = run(Crypt_Asyn_Enc_Data_By_Prikey, more, pair.pri).out;
  EXPECT_EQ(verify(3, pair.pub, data, more_sig), 0u);
  EXPECT_FALSE(openssl_verify(openssl_key(), EVP_sha1(), data, more_sig));
  info.back() ^= 1;
  EXPECT_EQ(verify(3, pair.pub, data, run(Crypt_Asyn_Enc_Data_By_Prikey, info, pair.pri).out), 2u);
  info.pop_back();
  EXPECT_EQ(verify(3, pair.pub, data, run(Crypt_Asyn_Enc_Data_By_Prikey, info, pair.pri).out), 2u);
}

// The signature made through a key name, or empty.
Bytes sign_by_name(const char* name, const Bytes& data) {
  Bytes sig(HYLORN_RSA_BLOCK_SIZE);
  unsigned sigLen = 0;
  const unsigned r = Crypt_Gen_Signature(3, name, "unused", data.data(), unsigned(data.size()),
                                         sig.data(), &sigLen);
  sig.resize(r == 0 ? sigLen : 0);
  return sig;
}

// Slot names are never opened; a key file is read only up to its 2048th byte.
TEST(SignByName, SlotNamesAndTheFirst2048BytesOfAFile) {
  TempDir cwd(TempDir::kEnter);
  const DerPair& pair = openssl_pair();
  write_file("keypair.db3", pair.pri);
  write_file("Keypair.db3", pair.pri);
  const Bytes data = bytes_of("slot"), expected = sign(3, pair.pri, data);
  EXPECT_EQ(sign_by_name("keypair.db3", data), Bytes{});
  EXPECT_EQ(sign_by_name("Keypair.db3", data), expected);
  EXPECT_EQ(sign_by_name("absent", data), Bytes{});
  EXPECT_EQ(sign_by_name(nullptr, data), Bytes{});
  ASSERT_EQ(pair.pri[1], 0x82);                               // the long form the padding relies on
  const Bytes numbers(pair.pri.begin() + 7, pair.pri.end());  // after 30 82 hi lo | 02 01 00
  for (std::size_t size : {2048u, 2049u}) {
    Bytes body = tlv(V_ASN1_OCTET_STRING, Bytes(size - 8 - numbers.size()));
    body.insert(body.end(), numbers.begin(), numbers.end());
    Bytes der = tlv(V_ASN1_SEQUENCE, body);
    ASSERT_EQ(sign(3, der, data), expected);  // the padded DER itself is sound
    der.insert(der.end(), 500, 0xEE);
    write_file("key", der);
    EXPECT_EQ(sign_by_name("key", data), size == 2048 ? expected : Bytes{});
  }
}

}  // namespace
