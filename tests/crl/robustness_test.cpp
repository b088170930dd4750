// Bad input and failing allocations: every truncated prefix and altered byte of a CRL
// fails or decodes cleanly, every failed allocation fails its session with 1, and a
// handle closed early releases everything (the sanitizer build checks reads and leaks).
#include <gtest/gtest.h>

#include "crl_fixtures.h"
#include "hylorn.h"
#include "support/error_list.h"
#include "support/fail_malloc.h"

namespace {

using namespace crl_test;

Crl small_crl() {
  Crl c;
  c.entries = {{{0x01}, "20250101000000", kReason | kInvalidity, kReason, 1, "20241231000000"},
               {{0x81, 0x02}, "20500101000000", 0, 0, 0, ""},
               {{0x03}, "20250103000000", kInvalidity, 0, 0, "20241230000000"}};
  c.ext = kAki | kNumber;
  c.akiIssuer = {"CN", "Root"};
  c.akiSerial = {0x05};
  c.number = {0x07};
  return c;
}

const Bytes& small_der() {
  static const Bytes der = encode(small_crl());
  return der;
}

// Each prefix sits in a block of exactly its size; an altered byte inside the signature,
// which decoding does not check, changes nothing that comes back.
TEST(CrlBadInput, EveryPrefixFailsAndEveryAlteredByteIsHandled) {
  const Bytes& der = small_der();
  const std::optional<Crl> reference = decode(der);
  ASSERT_TRUE(reference.has_value());
  for (std::size_t n = 0; n < der.size(); ++n) {
    EXPECT_FALSE(decode(Bytes(der.begin(), der.begin() + std::ptrdiff_t(n)))) << n;
  }
  for (std::size_t i = 0; i < der.size(); ++i) {
    for (u8 delta : {0x01, 0x80, 0xFF}) {
      Bytes altered = der;
      altered[i] ^= delta;
      const std::optional<Crl> back = decode(altered);
      if (i >= der.size() - HYLORN_RSA_BLOCK_SIZE) {
        EXPECT_EQ(back, reference) << i;
      }
    }
  }
}

// Final may come before Update has run out: it still returns the CRL's extensions and
// releases the entries not read.
TEST(CrlBadInput, FinalBeforeTheEndOfTheList) {
  for (std::size_t read = 0; read < 3; ++read) {
    const std::optional<Crl> back = decode(small_der(), read);
    ASSERT_TRUE(back.has_value());
    EXPECT_EQ(back->entries.size(), read);
    EXPECT_EQ(back->ext, kAki | kNumber);
  }
}

// The n-th allocation of a whole session fails, for each n: the session answers 1 with
// an entry from the failing call, and once nothing fails the result is the usual one.
template <class Result>
void each_allocation_fails(Result (*run)(), const Result& reference,
                           void (*check_failure)(const Result&)) {
  for (int n = 1;; ++n) {
    Result result;
    bool fired;
    {
      FailNthMalloc fail(n);
      result = run();
      fired = fail.fired();
    }
    if (!fired) {
      EXPECT_EQ(result, reference);
      EXPECT_GT(n, 50);  // the loop did reach the sessions' allocations
      return;
    }
    check_failure(result);
  }
}

int failed_at = 0;

TEST(CrlAllocationFailure, EveryAllocationOfBothSessions) {
  each_allocation_fails<Bytes>(
      [] { return encode(small_crl(), signing_key().path, &failed_at); }, small_der(),
      [](const Bytes& der) {
        EXPECT_TRUE(der.empty());
        EXPECT_EQ(read_errors().back().func_no, failed_at == 2 ? 938 : 936);
      });
  each_allocation_fails<std::optional<Crl>>(
      [] { return decode(small_der()); }, decode(small_der()),
      [](const std::optional<Crl>& crl) { EXPECT_FALSE(crl.has_value()); });
}

}  // namespace
