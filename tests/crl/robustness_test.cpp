// Bad input and failing allocations: every truncated prefix and single altered byte of a
// CRL decodes cleanly or fails cleanly, every failing allocation of a session fails it
// with 1, and a handle closed early releases everything (the sanitizer build checks the
// reads and the leaks).
#include <gtest/gtest.h>

#include "crl_fixtures.h"
#include "hylorn.h"
#include "support/error_list.h"
#include "support/fail_malloc.h"

namespace {

using namespace crl_test;

Crl small_crl() {
  Crl c = base_crl();
  c.entries = {Entry{{0x01}, "20250101000000", kReason | kInvalidity, kReason, 1, "20241231000000"},
               Entry{{0x81, 0x02}, "20500101000000", 0, 0, 0, ""},
               Entry{{0x03}, "20250103000000", kInvalidity, 0, 0, "20241230000000"}};
  c.ext = kAki | kNumber;
  c.akiIssuer = name_of("CN", "Root", "Root CA");
  c.akiSerial = {0x05};
  c.number = {0x07};
  return c;
}

const Bytes& small_der() {
  static const Bytes der = encode(small_crl());
  return der;
}

TEST(CrlBadInput, EveryTruncatedPrefixFails) {
  const Bytes& der = small_der();
  ASSERT_FALSE(der.empty());
  for (std::size_t n = 0; n < der.size(); ++n) {
    const Bytes prefix(der.begin(), der.begin() + std::ptrdiff_t(n));  // exactly n bytes
    EXPECT_FALSE(decode(prefix).has_value()) << n;
  }
  EXPECT_TRUE(decode(der).has_value());
}

// Any altered byte decodes or fails without harm; one inside the signature value, which
// decoding does not check, changes nothing that comes back.
TEST(CrlBadInput, EveryAlteredByteIsHandled) {
  const Bytes& der = small_der();
  const std::optional<Crl> reference = decode(der);
  ASSERT_TRUE(reference.has_value());
  const std::size_t signature_start = der.size() - HYLORN_RSA_BLOCK_SIZE;
  for (std::size_t i = 0; i < der.size(); ++i) {
    for (u8 delta : {0x01, 0x80, 0xFF}) {
      Bytes altered = der;
      altered[i] ^= delta;
      const std::optional<Crl> back = decode(altered);
      if (i >= signature_start) {
        EXPECT_EQ(back, reference) << i;
      }
    }
  }
}

// Final may come before Update has run out; nothing of the handle is left behind.
TEST(CrlBadInput, FinalBeforeTheEndOfTheList) {
  const Bytes& der = small_der();
  for (int read = 0; read <= 3; ++read) {
    void* handle = nullptr;
    char s[16][HYLORN_NAME_SIZE], t1[64], t2[64], r[64], inv[64];
    u8 params[HYLORN_PARAMS_SIZE], serial[HYLORN_SERIAL_SIZE];
    u32 version, alg, paramsLen, serialLen, ext, crit, code;
    ASSERT_EQ(Crypt_Decode_Crl_Init(&handle, der.data(), u32(der.size()), &version, &alg, params,
                                    &paramsLen, s[0], s[1], s[2], s[3], s[4], s[5], s[6], s[7],
                                    s[8], s[9], s[10], s[11], s[12], s[13], s[14], s[15], t1, t2),
              0u);
    for (int i = 0; i < read; ++i) {
      ASSERT_EQ(Crypt_Decode_Crl_Update(handle, serial, &serialLen, r, &ext, &crit, &code, inv),
                0u);
    }
    u32 akiLen = 0, numberLen = 0;
    EXPECT_EQ(Crypt_Decode_Crl_Final(handle, &ext, &crit, s[0], s[1], s[2], s[3], s[4], s[5], s[6],
                                     s[7], s[8], s[9], s[10], s[11], s[12], s[13], s[14], s[15],
                                     serial, &akiLen, serial, &numberLen),
              0u);
    EXPECT_EQ(ext, kAki | kNumber);
  }
}

// Each allocation of a whole encoding session, failed in turn: the session answers 1
// with an entry saying where, and the next session writes the same bytes as before.
TEST(CrlAllocationFailure, EncodingFailsCleanlyAtEveryAllocation) {
  const Crl c = small_crl();
  const Bytes& reference = small_der();
  for (int n = 1;; ++n) {
    Bytes der;
    int failed_at = 0;
    bool fired;
    {
      FailNthMalloc fail(n);
      der = encode(c, signing_key().path, &failed_at);
      fired = fail.fired();
    }
    if (!fired) {
      EXPECT_EQ(der, reference);
      EXPECT_GT(n, 50);
      break;
    }
    ASSERT_TRUE(der.empty()) << n;
    ASSERT_FALSE(read_errors().empty()) << n;
    const ErrEntry last = read_errors().back();
    EXPECT_EQ(last.func_no, failed_at == 2 ? 938 : 936) << n;
  }
  EXPECT_EQ(encode(c), reference);
}

TEST(CrlAllocationFailure, DecodingFailsCleanlyAtEveryAllocation) {
  const Bytes& der = small_der();
  const std::optional<Crl> reference = decode(der);
  for (int n = 1;; ++n) {
    std::optional<Crl> back;
    bool fired;
    {
      FailNthMalloc fail(n);
      back = decode(der);
      fired = fail.fired();
    }
    if (!fired) {
      EXPECT_EQ(back, reference);
      EXPECT_GT(n, 50);
      break;
    }
    EXPECT_FALSE(back.has_value()) << n;
    // The first allocation is the handle itself, which leaves no entry.
    if (n > 1) {
      EXPECT_EQ(read_errors().back().func_no, 937) << n;
    }
  }
}

}  // namespace
