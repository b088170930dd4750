// OpenSSL's BN as the independent model of our arithmetic: conversions between digit
// arrays and BIGNUMs written apart from MP_Decode/MP_Encode, and a seeded source of
// operands that likes the awkward digits (0, all ones, a lone top bit).
#pragma once

#include <openssl/bn.h>

#include <memory>
#include <random>
#include <vector>

#include "crypto/mp.h"

namespace hylorn_test {

struct BnFree {
  void operator()(BIGNUM* b) const { BN_free(b); }
};
using Bn = std::unique_ptr<BIGNUM, BnFree>;

struct CtxFree {
  void operator()(BN_CTX* c) const { BN_CTX_free(c); }
};
using BnCtx = std::unique_ptr<BN_CTX, CtxFree>;

using Digits = std::vector<hylorn::MP_DIGIT>;

inline Bn new_bn() { return Bn(BN_new()); }

inline Bn to_bn(const Digits& a) {
  std::vector<unsigned char> be;
  for (size_t i = a.size(); i-- > 0;)
    for (int s = 24; s >= 0; s -= 8) be.push_back(static_cast<unsigned char>(a[i] >> s));
  return Bn(BN_bin2bn(be.data(), static_cast<int>(be.size()), nullptr));
}

// The low `digits` digits of b (b must fit unless truncation is meant).
inline Digits from_bn(const BIGNUM* b, size_t digits) {
  std::vector<unsigned char> be(static_cast<size_t>(BN_num_bytes(b)));
  BN_bn2bin(b, be.data());
  Digits a(digits, 0);
  for (size_t k = 0; k < be.size(); ++k) {
    size_t bit = 8 * k;  // position of byte be[size - 1 - k]
    if (bit / 32 < digits) a[bit / 32] |= static_cast<hylorn::MP_DIGIT>(be[be.size() - 1 - k]) << (bit % 32);
  }
  return a;
}

inline Bn bn_word(unsigned long w) {
  Bn b = new_bn();
  BN_set_word(b.get(), w);
  return b;
}

class Operands {
 public:
  explicit Operands(unsigned seed) : rng_(seed) {}

  // A number of `digits` digits whose significant length is drawn at random (full
  // length half of the time).
  Digits number(size_t digits) {
    Digits a(digits, 0);
    if (digits == 0) return a;
    size_t sig = coin() ? digits : 1 + rng_() % digits;
    for (size_t i = 0; i < sig; ++i) a[i] = digit();
    if (a[sig - 1] == 0) a[sig - 1] = 1;
    return a;
  }
  // A number with exactly `digits` significant digits.
  Digits full(size_t digits) {
    Digits a = number(digits);
    if (a.back() == 0) a.back() = digit() | 1;
    return a;
  }
  Digits odd(size_t digits) {
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
  std::mt19937& rng() { return rng_; }

 private:
  std::mt19937 rng_;
};

}  // namespace hylorn_test
