// OpenSSL's BN as the independent model of our arithmetic: conversions between digit
// arrays and BIGNUMs written apart from MP_Decode/MP_Encode, a seeded source of operands
// that likes the awkward digits (0, all ones, a lone top bit), and a scope that forces
// one Montgomery path.
#pragma once

#include <gtest/gtest.h>
#include <openssl/bn.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "crypto/mont.h"
#include "crypto/mp.h"

namespace hylorn_test {

struct BnFree {
  void operator()(BIGNUM* b) const { BN_free(b); }
  void operator()(BN_CTX* c) const { BN_CTX_free(c); }
};
using Bn = std::unique_ptr<BIGNUM, BnFree>;
using BnCtx = std::unique_ptr<BN_CTX, BnFree>;
using Digits = std::vector<hylorn::MP_DIGIT>;

inline Bn new_bn() { return Bn(BN_new()); }

inline Bn bn_word(unsigned long w) {
  Bn b = new_bn();
  BN_set_word(b.get(), w);
  return b;
}

// 2^bit.
inline Bn bn_power_of_two(int bit) {
  Bn b = new_bn();
  BN_set_bit(b.get(), bit);
  return b;
}

// Hex text of b, for readable failures.
inline std::string hex(const BIGNUM* b) {
  char* s = BN_bn2hex(b);
  std::string out(s);
  OPENSSL_free(s);
  return out;
}
inline std::string hex(const Bn& b) { return hex(b.get()); }

inline Bn to_bn(const Digits& a) {
  std::vector<unsigned char> be;
  for (std::size_t i = a.size(); i-- > 0;)
    for (int s = 24; s >= 0; s -= 8) be.push_back(static_cast<unsigned char>(a[i] >> s));
  return Bn(BN_bin2bn(be.data(), static_cast<int>(be.size()), nullptr));
}

// The low `digits` digits of b.
inline Digits from_bn(const BIGNUM* b, std::size_t digits) {
  std::vector<unsigned char> le(std::max<std::size_t>(4 * digits, BN_num_bytes(b)));
  BN_bn2lebinpad(b, le.data(), static_cast<int>(le.size()));
  Digits a(digits, 0);
  for (std::size_t k = 0; k < 4 * digits; ++k) a[k / 4] |= hylorn::MP_DIGIT{le[k]} << (8 * (k % 4));
  return a;
}

class Operands {
 public:
  explicit Operands(unsigned seed) : rng_(seed) {}

  // `digits` digits whose significant length is drawn at random (full half of the time).
  Digits number(std::size_t digits) {
    Digits a(digits, 0);
    if (digits == 0) return a;
    std::size_t sig = coin() ? digits : 1 + rng_() % digits;
    for (std::size_t i = 0; i < sig; ++i) a[i] = digit();
    if (a[sig - 1] == 0) a[sig - 1] = 1;
    return a;
  }
  // Exactly `digits` significant digits.
  Digits full(std::size_t digits) {
    Digits a = number(digits);
    if (a.back() == 0) a.back() = digit() | 1;
    return a;
  }
  Digits odd(std::size_t digits) {
    Digits a = full(digits);
    a[0] |= 1;
    return a;
  }
  hylorn::MP_DIGIT digit() {
    switch (rng_() % 8) {
      case 0: return 0;
      case 1: return 0xFFFFFFFFu;
      case 2: return 0x80000000u;
      case 3: return static_cast<hylorn::MP_DIGIT>(rng_() % 4);
      default: return static_cast<hylorn::MP_DIGIT>(rng_());
    }
  }
  bool coin() { return rng_() % 2 == 0; }
  unsigned below(unsigned n) { return static_cast<unsigned>(rng_() % n); }

 private:
  std::mt19937 rng_;
};

// Every Montgomery path this CPU runs.
inline std::vector<hylorn::MontPath> mont_paths() {
  std::vector<hylorn::MontPath> paths;
  for (auto p :
       {hylorn::MontPath::portable, hylorn::MontPath::mulx_adx, hylorn::MontPath::avx512_ifma})
    if (hylorn::mont_path_available(p)) paths.push_back(p);
  return paths;
}

// Forces one path while it lives and names it in every failure message.
class MontPathScope {
 public:
  explicit MontPathScope(hylorn::MontPath p)
      : trace_(__FILE__, __LINE__, "Montgomery path " + std::to_string(static_cast<int>(p))) {
    EXPECT_TRUE(hylorn::select_mont_path(p));
  }
  ~MontPathScope() { hylorn::select_mont_path_automatically(); }
  MontPathScope(const MontPathScope&) = delete;
  MontPathScope& operator=(const MontPathScope&) = delete;

 private:
  testing::ScopedTrace trace_;
};

}  // namespace hylorn_test
