#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>

#include "key_fixtures.h"

namespace {

using namespace keys_test;
using Names = std::vector<std::string>;

constexpr unsigned char kSentinel = 0xA5;
constexpr unsigned kUnwritten = 0xDEADBEEF;

// Outputs of one call, pre-filled so that untouched buffers show.
struct PairOut {
  Bytes pub = Bytes(HYLORN_PUBKEY_DER_SIZE, kSentinel),
        pri = Bytes(HYLORN_PRIKEY_DER_SIZE, kSentinel);
  unsigned pubLen = kUnwritten, priLen = kUnwritten;
  bool operator==(const PairOut&) const = default;
  unsigned generate(const std::string& name) {
    return Crypt_GenRSAKeyPair(name.c_str(), 0, pub.data(), &pubLen, pri.data(), &priLen);
  }
  Bytes pub_der() const {
    return Bytes(pub.begin(), pub.begin() + std::min<std::size_t>(pubLen, pub.size()));
  }
  Bytes pri_der() const {
    return Bytes(pri.begin(), pri.begin() + std::min<std::size_t>(priLen, pri.size()));
  }
  // Both halves load in OpenSSL and belong together.
  bool halves_match() const {
    const EvpKey a = load_private_der(pri_der()), b = load_public_der(pub_der());
    return a && b && EVP_PKEY_eq(a.get(), b.get()) == 1;
  }
};

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
}

// The key file is the private DER alone; an uncreatable file fails after both outputs.
TEST(GenRSAKeyPair, KeyFileHoldsThePrivateDerAndGivesBackThePublicOne) {
  TempDir dir;
  const std::string path = dir.path("Keypair.db3");
  write_file(path, Bytes(3000, 0x55));
  PairOut out;
  ASSERT_EQ(out.generate(path), 0u);
  EXPECT_EQ(to_hex(read_file(path)), to_hex(out.pri_der()));
  Bytes pub(HYLORN_PUBKEY_DER_SIZE);
  unsigned pubLen = 0;
  ASSERT_EQ(Crypt_GetRSAPublicKey(path.c_str(), 0, pub.data(), &pubLen), 0u);
  EXPECT_EQ(to_hex(pub.data(), pubLen), to_hex(out.pub_der()));

  PairOut uncreatable;
  EXPECT_EQ(uncreatable.generate(dir.path("missing/key.der")), 1u);
  EXPECT_TRUE(uncreatable.halves_match());
}

// The file-size limit makes the write fail half-way: the earlier key stays whole.
TEST(GenRSAKeyPair, KeyFileIsPrivateAndNeverHalfWritten) {
  TempDir dir;
  const std::string path = dir.path("ca.key");
  PairOut first;
  ASSERT_EQ(first.generate(path), 0u);
  struct stat st {};
  ASSERT_EQ(::stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);

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
  EXPECT_EQ(dir.entries(), Names{"ca.key"});
}

TEST(GetRSAPublicKey, RefusesWritingNothing) {
  TempDir cwd(TempDir::kEnter);
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

}  // namespace
