// Several threads use the library at once. Each runs the whole service with its own key and
// data, keeping a CRL session open across each round while it signs and verifies, seals and
// opens an envelope, and issues, reads and checks a certificate. Then, with calls that touch
// no file, each reads names through the shared BMP table while one thread loads it again,
// and fails in its own way and reads back exactly its own error entries.
#include <gtest/gtest.h>

#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "api_fixtures.h"

namespace hardening_test {
namespace {

using crl_test::crl_final, crl_test::crl_init, crl_test::crl_update;

constexpr int kThreads = 4;
constexpr int kRounds = 8, kFastRounds = 200;

// Every code unit above 0xFF becomes the two bytes 0x31 0x31 (with their top bits set).
const Bytes kBmpTable(2 * HYLORN_BMP_TABLE_ENTRIES, 0x31);

// A failure per thread, each leaving its own chain of entries.
using Provoke = bool (*)(const KeyFile&);
const Provoke kFailures[kThreads] = {
    [](const KeyFile& k) { return request_test::encode({"DE"}, k.pub, k.path, 1).empty(); },
    [](const KeyFile& k) {
      crl_test::Crl c = crl_input(k, {});
      c.version = 2;
      return crl_init(c) == 0 && crl_final(c).empty();
    },
    [](const KeyFile&) {
      u8 der[8];
      unsigned n;
      return PEM2DER_data_format("-----", 5, der, &n) == 1;
    },
    [](const KeyFile& k) { return request_test::encode({"DE"}, k.pub, "keypair.db1").empty(); },
};

// Starts the threads together, so that their rounds overlap, and waits for them.
template <class Body>
void run_threads(const Body& body) {
  std::latch ready(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] { ready.arrive_and_wait(), body(t); });
  }
  for (std::thread& th : threads) th.join();
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

  const Bytes crlDer = crl_final(crl);
  ASSERT_FALSE(crlDer.empty()) << error_text();
  EXPECT_EQ(crl_test::decode(crlDer), crl_test::as_decoded(crl));
  // Every internal function on the way empties the list on entry and none failed.
  EXPECT_EQ(read_errors(), Entries{});
}

TEST(Threads, EachThreadSignsSealsIssuesAndBuildsItsOwnCrl) {
  const KeyFile keys[kThreads];  // each with its own key file
  run_threads([&keys](int t) {
    for (int r = 0; r < kRounds && !testing::Test::HasFailure(); ++r) round_of(t, r, keys[t]);
  });
}

// Only calls that touch no file here, so that nothing but the library's own state can
// order one thread's steps against another's for the race detector.
TEST(Threads, EachThreadReadsItsOwnErrorsBesideTheSharedBmpTable) {
  const KeyFile& key = library_key();
  // A request whose only name attribute is a commonName BMPString: "A", then U+4E2D.
  const Bytes cn = seq({from_hex("06 03 55 04 03"), tlv(0x1E, from_hex("0041 4E2D"))});
  const Bytes request = request_test::signed_md5(request_test::info(key.pub, seq({tlv(0x31, cn)})));
  Entries chains[kThreads];  // what each failure leaves when it runs alone
  for (int t = 0; t < kThreads; ++t) {
    ASSERT_TRUE(kFailures[t](key));
    chains[t] = read_errors();
    for (int u = 0; u < t; ++u) ASSERT_NE(chains[t], chains[u]);
  }
  Crypt_GetBMPTable(kBmpTable.data());
  run_threads([&](int t) {
    for (int i = 0; i < kFastRounds && !testing::Test::HasFailure(); ++i) {
      if (t == 0) Crypt_GetBMPTable(kBmpTable.data());  // loaded again while the others read
      const request_test::Decoded d = request_test::decode(false, request);
      ASSERT_EQ(d.rc, 0u) << error_text();
      EXPECT_EQ(d.subject[x509_test::kCN], "A\xB1\xB1");  // the table's entry, top bits set
      EXPECT_EQ(read_errors(), Entries{});
      EXPECT_TRUE(kFailures[t](key));
      // Hashing leaves the list alone: what other threads do meanwhile must not show in it.
      u8 digest[HYLORN_DIGEST_SIZE];
      unsigned digestLen = 0;
      EXPECT_EQ(Crypt_Gen_Hash(3, kBmpTable.data(), 65536, digest, &digestLen), 0);
      EXPECT_EQ(read_errors(), chains[t]);
    }
  });
  Crypt_GetBMPTable(nullptr);
}

// A thread that ends in the middle of a CRL leaves no entries behind (the leak checker
// of the sanitizer build watches this), and the CRL another thread has under way meanwhile
// keeps exactly its own entries.
TEST(Threads, AnUnfinishedCrlSessionDiesWithItsThread) {
  const KeyFile& key = library_key();
  const crl_test::Crl c = crl_input(key, {revoked(1, 1)});
  ASSERT_EQ(crl_init(c), 0u);
  ASSERT_EQ(crl_update(c.entries[0]), 0u);
  std::thread([&key] {
    const crl_test::Crl other = crl_input(key, {revoked(0x0E, 1), revoked(0x0E, 2)});
    ASSERT_EQ(crl_init(other), 0u);
    for (const crl_test::Entry& e : other.entries) ASSERT_EQ(crl_update(e), 0u);
  }).join();
  EXPECT_EQ(crl_test::decode(crl_final(c)), crl_test::as_decoded(c));
}

}  // namespace
}  // namespace hardening_test
