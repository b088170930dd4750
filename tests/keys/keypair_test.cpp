// Key pair generation, key files and key names. Every file lives in a temporary
// directory that the test removes.
#include <gtest/gtest.h>

#include <openssl/core_names.h>

#include "hylorn.h"
#include "key_fixtures.h"

namespace {

using hylorn_test::to_hex;
using keys_test::Bytes;
using keys_test::InTempDir;
using Names = std::vector<std::string>;

constexpr unsigned char kSentinel = 0xA5;
constexpr unsigned kUnwritten = 0xDEADBEEF;

// Outputs of one call, pre-filled so that untouched buffers show.
struct PairOut {
  Bytes pub = Bytes(HYLORN_PUBKEY_DER_SIZE, kSentinel);
  Bytes pri = Bytes(HYLORN_PRIKEY_DER_SIZE, kSentinel);
  unsigned pubLen = kUnwritten;
  unsigned priLen = kUnwritten;

  unsigned generate(const char* name) {
    return Crypt_GenRSAKeyPair(name, 0, pub.data(), &pubLen, pri.data(), &priLen);
  }
  bool untouched() const {
    const auto fresh = [](const Bytes& b) {
      return std::all_of(b.begin(), b.end(), [](unsigned char c) { return c == kSentinel; });
    };
    return fresh(pub) && fresh(pri) && pubLen == kUnwritten && priLen == kUnwritten;
  }
  Bytes pub_der() const { return Bytes(pub.begin(), pub.begin() + pubLen); }
  Bytes pri_der() const { return Bytes(pri.begin(), pri.begin() + priLen); }
};

// The generated pair is a sound 1024-bit key with e = 65537 whose halves belong together.
TEST(GenRSAKeyPair, OutputLoadsInOpenSslAndPassesItsKeyCheck) {
  const keys_test::DerPair& pair = keys_test::our_pair();
  const keys_test::EvpKey pri = keys_test::load_private_der(pair.pri);
  const keys_test::EvpKey pub = keys_test::load_public_der(pair.pub);
  ASSERT_NE(pri, nullptr);
  ASSERT_NE(pub, nullptr);
  EXPECT_TRUE(keys_test::key_checks(pri.get()));
  EXPECT_EQ(EVP_PKEY_get_bits(pri.get()), 1024);
  EXPECT_EQ(to_hex(keys_test::key_number(pri.get(), OSSL_PKEY_PARAM_RSA_E, 3)), "010001");
  EXPECT_EQ(EVP_PKEY_eq(pri.get(), pub.get()), 1);
  EXPECT_LE(pair.pub.size(), size_t{HYLORN_PUBKEY_DER_SIZE});
  EXPECT_LE(pair.pri.size(), size_t{HYLORN_PRIKEY_DER_SIZE});
}

TEST(GenRSAKeyPair, KeypairOutReturnsThePairAndWritesNoFile) {
  InTempDir cwd;
  PairOut out;
  ASSERT_EQ(out.generate("keypair.out"), 0u);
  EXPECT_NE(keys_test::load_private_der(out.pri_der()), nullptr);
  EXPECT_EQ(cwd.entries(), Names{});
  Bytes pub(HYLORN_PUBKEY_DER_SIZE);
  unsigned pubLen = 0;
  EXPECT_EQ(Crypt_GetRSAPublicKey("keypair.out", 0, pub.data(), &pubLen), 1u);
}

TEST(GenRSAKeyPair, SlotNamesWriteNothingAnywhere) {
  InTempDir cwd;
  for (const char* slot : {"keypair.db1", "keypair.db4"}) {
    PairOut out;
    EXPECT_EQ(out.generate(slot), 0u) << slot;
    EXPECT_TRUE(out.untouched()) << slot;
  }
  EXPECT_EQ(cwd.entries(), Names{});
}

// The key file is the private DER alone, and reading it back gives the same public DER.
TEST(GenRSAKeyPair, KeyFileHoldsThePrivateDerAndGivesBackThePublicOne) {
  keys_test::TempDir dir;
  const std::string path = dir.path("Keypair.db3");  // not a slot name: a file
  PairOut out;
  ASSERT_EQ(out.generate(path.c_str()), 0u);
  EXPECT_EQ(to_hex(keys_test::read_file(path)), to_hex(out.pri_der()));

  Bytes pub(HYLORN_PUBKEY_DER_SIZE);
  unsigned pubLen = 0;
  ASSERT_EQ(Crypt_GetRSAPublicKey(path.c_str(), 0, pub.data(), &pubLen), 0u);
  EXPECT_EQ(to_hex(pub.data(), pubLen), to_hex(out.pub_der()));
}

TEST(GenRSAKeyPair, UncreatableFileFailsWithBothOutputsWritten) {
  keys_test::TempDir dir;
  PairOut out;
  EXPECT_EQ(out.generate(dir.path("missing/key.der").c_str()), 1u);
  ASSERT_NE(out.pubLen, kUnwritten);
  ASSERT_NE(out.priLen, kUnwritten);
  const keys_test::EvpKey pri = keys_test::load_private_der(out.pri_der());
  const keys_test::EvpKey pub = keys_test::load_public_der(out.pub_der());
  ASSERT_NE(pri, nullptr);
  ASSERT_NE(pub, nullptr);
  EXPECT_EQ(EVP_PKEY_eq(pri.get(), pub.get()), 1);
}

// A generated file is replaced, not appended to.
TEST(GenRSAKeyPair, ExistingFileIsReplaced) {
  keys_test::TempDir dir;
  const std::string path = dir.path("key");
  keys_test::write_file(path, Bytes(3000, 0x55));
  PairOut out;
  ASSERT_EQ(out.generate(path.c_str()), 0u);
  EXPECT_EQ(keys_test::read_file(path), out.pri_der());
}

enum class FileHolds { kNothing, kPrivateDer, kPublicDer };

struct PublicKeyCase {
  const char* what;
  const char* name;  // relative to a fresh working directory
  FileHolds file;    // written under name first, unless kNothing
};

class GetRSAPublicKeyRefuses : public ::testing::TestWithParam<PublicKeyCase> {};

TEST_P(GetRSAPublicKeyRefuses, WritingNothing) {
  InTempDir cwd;
  const keys_test::DerPair& pair = keys_test::openssl_pair();
  if (GetParam().file != FileHolds::kNothing) {
    keys_test::write_file(GetParam().name,
                          GetParam().file == FileHolds::kPrivateDer ? pair.pri : pair.pub);
  }
  Bytes pub(HYLORN_PUBKEY_DER_SIZE, kSentinel);
  unsigned pubLen = kUnwritten;
  EXPECT_EQ(Crypt_GetRSAPublicKey(GetParam().name, 0, pub.data(), &pubLen), 1u);
  EXPECT_EQ(pubLen, kUnwritten);
  EXPECT_EQ(pub, Bytes(HYLORN_PUBKEY_DER_SIZE, kSentinel));
}

// A slot has no public key even when a file of its name holds one.
INSTANTIATE_TEST_SUITE_P(
    Table, GetRSAPublicKeyRefuses,
    ::testing::Values(
        PublicKeyCase{"slot", "keypair.db2", FileHolds::kNothing},
        PublicKeyCase{"slot with a file of its name", "keypair.db5", FileHolds::kPrivateDer},
        PublicKeyCase{"no such file", "absent.der", FileHolds::kNothing},
        PublicKeyCase{"public DER is no private key", "pub.der", FileHolds::kPublicDer},
        PublicKeyCase{"empty name", "", FileHolds::kNothing}),
    [](const auto& info) {
      std::string s = info.param.what;
      std::replace(s.begin(), s.end(), ' ', '_');
      return s;
    });

}  // namespace
