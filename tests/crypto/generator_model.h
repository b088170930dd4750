// The random generator rebuilt from its rules on OpenSSL's MD5 and 128-bit integers:
// the state is a big-endian sum of the seed blocks' digests; an output block is MD5 of
// the state, which then steps by adding 1 to its last byte, carrying on only past a
// byte that was 0.
#pragma once

#include <array>
#include <vector>

#include "support/openssl_bytes.h"

namespace hylorn_test {

using Block16 = std::array<unsigned char, 16>;

inline Block16 md5_block(const unsigned char* data, std::size_t n) {
  Bytes d = openssl_digest(EVP_md5(), data, n);
  Block16 b{};
  std::copy(d.begin(), d.end(), b.begin());
  return b;
}

// a + b modulo 2^128, both big-endian.
inline Block16 add_be128(const Block16& a, const Block16& b) {
  unsigned __int128 x = 0, y = 0;
  for (int i = 0; i < 16; ++i) x = (x << 8) | a[i], y = (y << 8) | b[i];
  x += y;
  Block16 out{};
  for (int i = 15; i >= 0; --i, x >>= 8) out[i] = static_cast<unsigned char>(x);
  return out;
}

class ModelGenerator {
 public:
  explicit ModelGenerator(const Block16& state = {}) : state_(state) {}
  // A zero state after `rounds` updates with the same block.
  static ModelGenerator seeded(const Bytes& block, int rounds) {
    ModelGenerator g;
    for (int i = 0; i < rounds; ++i)
      g.state_ = add_be128(g.state_, md5_block(block.data(), block.size()));
    return g;
  }
  const Block16& state() const { return state_; }
  Bytes draw(std::size_t len) {
    Bytes out;
    while (out.size() < len) {
      if (available_ == 0) {
        output_ = md5_block(state_.data(), 16);
        available_ = 16;
        for (int i = 15; i >= 0 && state_[i]++ == 0;) --i;
      }
      out.push_back(output_[16 - available_--]);
    }
    return out;
  }

 private:
  Block16 state_, output_{};
  std::size_t available_ = 0;
};

}  // namespace hylorn_test
