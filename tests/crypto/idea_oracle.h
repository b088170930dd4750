// Test helpers for the cipher: libgcrypt's IDEA as an independent oracle, the padding
// rule written out plainly, reproducible random bytes and a guard that forces a block
// engine for one test.
#pragma once

#include <gcrypt.h>
#include <gtest/gtest.h>

#include <random>

#include "crypto/idea_internal.h"
#include "support/hex.h"

namespace idea_test {

using hylorn_test::Bytes;

// ECB over whole blocks with libgcrypt.
inline Bytes gcrypt_ecb(const Bytes& key, const Bytes& data, bool encrypt) {
  static const bool ready = [] {
    gcry_check_version(nullptr);
    gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
    gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
    return true;
  }();
  (void)ready;
  if (data.empty()) return {};
  gcry_cipher_hd_t h = nullptr;
  Bytes out(data.size());
  EXPECT_EQ(gcry_cipher_open(&h, GCRY_CIPHER_IDEA, GCRY_CIPHER_MODE_ECB, 0), 0u);
  EXPECT_EQ(gcry_cipher_setkey(h, key.data(), key.size()), 0u);
  gcry_error_t e = encrypt ? gcry_cipher_encrypt(h, out.data(), out.size(), data.data(), data.size())
                           : gcry_cipher_decrypt(h, out.data(), out.size(), data.data(), data.size());
  EXPECT_EQ(e, 0u);
  gcry_cipher_close(h);
  return out;
}

// The message, one 0x01 and zeros up to the next multiple of 8 (1 to 8 bytes added).
inline Bytes padded(Bytes data) {
  data.push_back(0x01);
  while (data.size() % 8 != 0) data.push_back(0x00);
  return data;
}

inline Bytes random_bytes(std::mt19937& rng, std::size_t n) {
  Bytes b(n);
  for (auto& x : b) x = static_cast<unsigned char>(rng());
  return b;
}

// Routes block work through one engine while it lives; ok() is false if the CPU lacks it.
class ForcedPath {
 public:
  explicit ForcedPath(hylorn::IdeaPath p) : ok_(hylorn::idea_force_path(p)) {}
  ~ForcedPath() { hylorn::idea_force_path(hylorn::IdeaPath::automatic); }
  ForcedPath(const ForcedPath&) = delete;
  ForcedPath& operator=(const ForcedPath&) = delete;
  bool ok() const { return ok_; }

 private:
  bool ok_;
};

}  // namespace idea_test
