// Several threads use the library at once. Each runs every call of the API with its own key
// and data while a CRL session stays open beside them. Then, with calls that touch no file,
// each reads names through the shared BMP table while one thread loads it again, and fails
// in its own way and reads back exactly its own error entries.
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
constexpr int kRounds = 2, kFastRounds = 200;

// Every code unit above 0xFF becomes the two bytes 0x31 0x31 (with their top bits set).
const Bytes kBmpTable(2 * HYLORN_BMP_TABLE_ENTRIES, 0x31);

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

// Each thread runs every call of the API on its own service, round after round, while the
// main thread holds a CRL session open throughout: with one session for all threads, theirs
// would take over its entries. Each thread ends in the middle of a CRL of its own, which
// its end releases (the leak checker of the sanitizer build watches this).
TEST(Threads, EachThreadRunsTheWholeApiOnItsOwnKey) {
  const crl_test::Crl held = crl_input(library_key(), {revoked(1, 1)});
  ASSERT_EQ(crl_init(held), 0u);
  ASSERT_EQ(crl_update(held.entries[0]), 0u);
  run_threads([](int t) {
    const auto own = std::make_unique<Service>();
    for (int r = 0; r < kRounds; ++r) {
      for (const Call& c : kCalls) EXPECT_EQ(c.call(*own), 0) << c.name << ", thread " << t;
    }
    const crl_test::Crl left = crl_input(own->key, {revoked(0x0E, u8(t)), revoked(0x0F, 1)});
    EXPECT_EQ(crl_init(left), 0u);
    for (const crl_test::Entry& e : left.entries) EXPECT_EQ(crl_update(e), 0u);
  });
  EXPECT_EQ(crl_test::decode(crl_final(held)), crl_test::as_decoded(held));
}

// Only calls that touch no file here, so that nothing but the library's own state can
// order one thread's steps against another's for the race detector.
TEST(Threads, EachThreadReadsItsOwnErrorsBesideTheSharedBmpTable) {
  using namespace request_test;
  const Bytes key = library_key().pub;
  // A request whose only name attribute is a commonName BMPString: "A", then U+4E2D.
  const Bytes cn = seq({from_hex("06 03 55 04 03"), tlv(0x1E, from_hex("0041 4E2D"))});
  const Bytes request = signed_md5(info(key, seq({tlv(0x31, cn)})));
  // Requests each reader refuses in its own way (SPKAC for odd threads), and the chain each
  // leaves when it runs alone.
  const Bytes refused[kThreads] = {signed_md5(info(key, name_der(), {2, 1, 1})), spkac(key, {}),
                                   seq({}), spkac(key, tlv(0x0C, bytes_of("abc")))};
  Entries chains[kThreads];
  for (int t = 0; t < kThreads; ++t) {
    ASSERT_EQ(decode(t % 2, refused[t]).rc, 1u);
    chains[t] = read_errors();
    for (int u = 0; u < t; ++u) ASSERT_NE(chains[t], chains[u]);
  }
  Crypt_GetBMPTable(kBmpTable.data());
  run_threads([&](int t) {
    for (int i = 0; i < kFastRounds && !testing::Test::HasFailure(); ++i) {
      if (t == 0) Crypt_GetBMPTable(kBmpTable.data());  // loaded again while the others read
      const Decoded d = decode(false, request);
      ASSERT_EQ(d.rc, 0u) << error_text();
      EXPECT_EQ(d.subject[x509_test::kCN], "A\xB1\xB1");  // the table's entry, top bits set
      EXPECT_EQ(read_errors(), Entries{});
      EXPECT_EQ(decode(t % 2, refused[t]).rc, 1u);
      // Hashing leaves the list alone: what other threads do meanwhile must not show in it.
      u8 digest[HYLORN_DIGEST_SIZE];
      unsigned digestLen = 0;
      EXPECT_EQ(Crypt_Gen_Hash(3, kBmpTable.data(), 65536, digest, &digestLen), 0);
      EXPECT_EQ(read_errors(), chains[t]);
    }
  });
  Crypt_GetBMPTable(nullptr);
}

}  // namespace
}  // namespace hardening_test
