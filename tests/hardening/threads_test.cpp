// Several threads run the whole service at once, each with its own key and its own data:
// a CRL session is kept open across each round while the thread signs and verifies, seals
// and opens an envelope, and issues, reads and checks a certificate; then each thread
// fails in its own way and reads back exactly its own error entries.
#include <gtest/gtest.h>

#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "api_fixtures.h"

namespace hardening_test {
namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 24;

// A failure per thread, each leaving its own chain of entries.
struct Failure {
  unsigned (*provoke)(const KeyFile&);
  Entries entries;
};
// clang-format off
const Failure kFailures[kThreads] = {
  {[](const KeyFile& k) { Bytes der; return encode_pkcs10(1, {"DE"}, k, k.path.c_str(), &der); },
   {{605, 1, "version error"}, {609, 2, "u2l_pkcs10_version"},
    {611, 2, "u2l_USER_PKCS10_CERT_REQ_INFO"}, {613, 1, "c2d_USER_PKCS10_CERT_REQ_INFO"}}},
  {[](const KeyFile& k) {
     crl_test::Crl c = crl_input(k, {});
     c.version = 2;
     Bytes der;
     return crl_init(c) == 0 ? crl_final(c, &der) : 0u; },
   {{924, 1, "version error"}, {932, 2, "u2l_crl_version"}, {934, 2, "u2l_CRL_TBS_CERT_LIST"},
    {936, 1, "c2d_USER_crlTbsCertList"}}},
  {[](const KeyFile&) { u8 der[8]; unsigned n; return PEM2DER_data_format("-----", 5, der, &n); },
   {{155, 2, "not find second ----- "}}},
  {[](const KeyFile& k) { Bytes der; return encode_pkcs10(0, {"DE"}, k, "keypair.db1", &der); },
   {{613, 3, "Crypt_Gen_Signature"}}},
};
// clang-format on

// Enciphers a while with calls that never touch the error list, so that another thread's
// entries or emptying would show in this thread's list afterwards.
void work_beside_the_list(int t) {
  const Bytes data(32768, u8(t)), key(16, u8(t));
  Bytes sealed(data.size() + 8), opened(sealed.size());
  unsigned n = 0;
  ASSERT_EQ(Crypt_Enc_Data_S(data.data(), unsigned(data.size()), sealed.data(), &n, key.data()),
            0u);
  ASSERT_EQ(Crypt_Dec_Data_S(sealed.data(), n, opened.data(), &n, key.data()), 0u);
  EXPECT_EQ(Bytes(opened.begin(), opened.begin() + n), data);
}

void round_of(int t, int r, const KeyFile& key) {
  SCOPED_TRACE("thread " + std::to_string(t) + " round " + std::to_string(r));
  const std::string name = "Thread " + std::to_string(t) + " round " + std::to_string(r);
  const Bytes data = bytes_of(name);
  const unsigned n = unsigned(data.size()), pubLen = unsigned(key.pub.size());

  const crl_test::Crl crl =
      crl_input(key, {revoked(u8(0x10 + t), u8(r)), revoked(u8(0x20 + r), u8(t))});
  ASSERT_EQ(crl_init(crl), 0u);
  ASSERT_EQ(crl_update(crl.entries[0]), 0u);

  u8 sig[HYLORN_RSA_BLOCK_SIZE];
  unsigned sigLen = 0;
  ASSERT_EQ(Crypt_Gen_Signature(3, key.path.c_str(), "", data.data(), n, sig, &sigLen), 0u);
  EXPECT_EQ(Crypt_Ver_Signature(3, key.pub.data(), pubLen, data.data(), n, sig, sigLen), 0u);
  EXPECT_EQ(Crypt_Ver_Signature(3, key.pub.data(), pubLen, data.data(), n - 1, sig, sigLen), 2u);
  ASSERT_EQ(crl_update(crl.entries[1]), 0u);

  Bytes sealed(n + HYLORN_ENVELOPE_KEY_SIZE + 8), opened(n + 8);
  unsigned sealedLen = 0, openedLen = 0;
  ASSERT_EQ(Crypt_Enc_Data(data.data(), n, sealed.data(), &sealedLen, key.pub.data(), pubLen), 0u);
  ASSERT_EQ(Crypt_Dec_Data_By_Prikey(sealed.data(), sealedLen, opened.data(), &openedLen,
                                     key.pri.data(), unsigned(key.pri.size())),
            0u);
  EXPECT_EQ(Bytes(opened.begin(), opened.begin() + openedLen), data);

  Bytes cert;
  ASSERT_EQ(x509_test::encode_cert(cert_input(key, name), &cert), 0u) << error_text();
  auto out = std::make_unique<x509_test::CertOutput>();
  ASSERT_EQ(x509_test::decode_cert(cert, out.get()), 0u) << error_text();
  EXPECT_STREQ(out->subject[x509_test::kCN], name.c_str());
  EXPECT_EQ(out->extFlags, 0x1DFu);
  const unsigned certLen = unsigned(cert.size());
  EXPECT_EQ(Crypt_Ver_Cert_ByRootCert(cert.data(), certLen, cert.data(), certLen), 0u);

  Bytes crlDer;
  ASSERT_EQ(crl_final(crl, &crlDer), 0u) << error_text();
  EXPECT_EQ(crl_test::decode(crlDer), crl_test::as_decoded(crl));
  // Every internal function on the way empties the list on entry and none failed.
  EXPECT_EQ(read_errors(), Entries{});

  const Failure& f = kFailures[t % kThreads];
  EXPECT_EQ(f.provoke(key), 1u);
  work_beside_the_list(t);
  EXPECT_EQ(read_errors(), f.entries);
}

TEST(Threads, EachThreadHasItsOwnErrorListRandomStateAndCrlSession) {
  std::latch keys_made(kThreads);  // so that the rounds of all threads overlap
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &keys_made] {
      const KeyFile key;  // generated in the thread, written to its own key file
      keys_made.arrive_and_wait();
      ASSERT_EQ(key.rc, 0u);
      for (int r = 0; r < kRounds && !testing::Test::HasFatalFailure(); ++r) round_of(t, r, key);
    });
  }
  for (std::thread& th : threads) th.join();
}

// A thread that ends in the middle of a CRL leaves no entries behind (the leak checker
// of the sanitizer build watches this), and the CRL another thread has under way meanwhile
// keeps exactly its own entries.
TEST(Threads, AnUnfinishedCrlSessionDiesWithItsThread) {
  const KeyFile key;
  ASSERT_EQ(key.rc, 0u);
  const crl_test::Crl c = crl_input(key, {revoked(1, 1)});
  ASSERT_EQ(crl_init(c), 0u);
  ASSERT_EQ(crl_update(c.entries[0]), 0u);
  std::thread([&key] {
    const crl_test::Crl other = crl_input(key, {revoked(0x0E, 1), revoked(0x0E, 2)});
    ASSERT_EQ(crl_init(other), 0u);
    for (const crl_test::Entry& e : other.entries) ASSERT_EQ(crl_update(e), 0u);
  }).join();
  Bytes der;
  ASSERT_EQ(crl_final(c, &der), 0u);
  EXPECT_EQ(crl_test::decode(der), crl_test::as_decoded(c));
}

}  // namespace
}  // namespace hardening_test
