// Independent models for the crypto tests, on OpenSSL.
#pragma once

#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>

#include <algorithm>
#include <array>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "crypto/mont.h"
#include "crypto/mp.h"
#include "crypto/rsa_keys.h"
#include "support/openssl_bytes.h"
#include "support/openssl_rsa.h"
#include "support/random_bytes.h"

namespace hylorn_test {

struct BnFree {
  void operator()(BIGNUM* b) const { BN_free(b); }
  void operator()(BN_CTX* c) const { BN_CTX_free(c); }
};
using Bn = std::unique_ptr<BIGNUM, BnFree>;
using BnCtx = std::unique_ptr<BN_CTX, BnFree>;
using Digits = std::vector<hylorn::MP_DIGIT>;

inline Bn bn_word(unsigned long w = 0) {
  Bn b(BN_new());
  BN_set_word(b.get(), w);
  return b;
}
inline Bn bn_power_of_two(int bit) {
  Bn b(BN_new());
  BN_set_bit(b.get(), bit);
  return b;
}
inline Bn bn_of(const unsigned char* big_endian, int n) {
  return Bn(BN_bin2bn(big_endian, n, nullptr));
}
// Hex text, for readable failures.
inline std::string hex(const Bn& b) {
  char* s = BN_bn2hex(b.get());
  std::string out(s);
  OPENSSL_free(s);
  return out;
}

inline Bn to_bn(const Digits& a) {
  Bytes be;
  for (std::size_t i = a.size(); i-- > 0;)
    for (int s = 24; s >= 0; s -= 8) be.push_back(static_cast<unsigned char>(a[i] >> s));
  return bn_of(be.data(), static_cast<int>(be.size()));
}
// The low `digits` digits of b.
inline Digits from_bn(const BIGNUM* b, std::size_t digits) {
  Bytes le(std::max<std::size_t>(4 * digits, BN_num_bytes(b)));
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
  hylorn::MP_DIGIT digit() {
    const hylorn::MP_DIGIT awkward[] = {0, 0xFFFFFFFFu, 0x80000000u, hylorn::MP_DIGIT(rng_() % 4)};
    const unsigned pick = rng_() % 8;
    return pick < 4 ? awkward[pick] : static_cast<hylorn::MP_DIGIT>(rng_());
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

// The private record's numbers in the order n, e, d, p, q, dP, dQ, qInv.
struct Field {
  unsigned char* at;
  int width;
  const char* name;
};
inline std::array<Field, 8> private_fields(hylorn::RSA_PRIVATE_KEY& r) {
  return {{{r.modulus, 128, OSSL_PKEY_PARAM_RSA_N},
           {r.publicExponent, 128, OSSL_PKEY_PARAM_RSA_E},
           {r.exponent, 128, OSSL_PKEY_PARAM_RSA_D},
           {r.prime[0], 64, OSSL_PKEY_PARAM_RSA_FACTOR1},
           {r.prime[1], 64, OSSL_PKEY_PARAM_RSA_FACTOR2},
           {r.primeExponent[0], 64, OSSL_PKEY_PARAM_RSA_EXPONENT1},
           {r.primeExponent[1], 64, OSSL_PKEY_PARAM_RSA_EXPONENT2},
           {r.coefficient, 64, OSSL_PKEY_PARAM_RSA_COEFFICIENT1}}};
}

// An OpenSSL key holding exactly the numbers of our private record.
inline EvpKey pkey_of(hylorn::RSA_PRIVATE_KEY r) {
  std::array<Bytes, 8> numbers;
  auto fields = private_fields(r);
  for (std::size_t i = 0; i < fields.size(); ++i)
    numbers[i].assign(fields[i].at, fields[i].at + fields[i].width);
  return key_from_numbers(numbers);
}

struct Keys {
  EvpKey pkey;
  hylorn::RSA_PUBLIC_KEY pub;
  hylorn::RSA_PRIVATE_KEY priv;
};
inline Keys make_keys(unsigned bits, unsigned long e = 65537) {
  Keys k{openssl_keygen(bits, e), {}, {}};
  for (const Field& f : private_fields(k.priv)) {
    Bytes v = key_number(k.pkey.get(), f.name, f.width);
    std::copy(v.begin(), v.end(), f.at);
  }
  k.pub.bits = k.priv.bits = static_cast<hylorn::u16>(bits);
  std::copy_n(k.priv.modulus, 128, k.pub.modulus);
  std::copy_n(k.priv.publicExponent, 128, k.pub.exponent);
  EXPECT_GT(BN_cmp(bn_of(k.priv.prime[0], 64).get(), bn_of(k.priv.prime[1], 64).get()), 0);
  return k;
}

// Inputs of the modulus's length for the raw blocks: 0, 2, and x and n - x for x = 1, p, q
// (residues 0, 1 and -1 modulo a prime), then random numbers below n.
inline std::vector<Bytes> edge_inputs(const hylorn::RSA_PRIVATE_KEY& k) {
  const int len = (k.bits + 7) / 8;
  std::vector<Bytes> all;
  const auto add = [&](const Bn& v) {
    all.emplace_back(len);
    BN_bn2binpad(v.get(), all.back().data(), len);
  };
  const Bn n = bn_of(k.modulus, 128), rest = bn_word();
  add(bn_word(0)), add(bn_word(2));
  for (const Bn& x : {bn_word(1), bn_of(k.prime[0], 64), bn_of(k.prime[1], 64)}) {
    BN_sub(rest.get(), n.get(), x.get());
    add(x), add(rest);
  }
  std::mt19937 rng(k.bits);
  for (int r = 0; r < 4; ++r) all.push_back(random_bytes(rng, len)), all.back()[0] = 0;
  return all;
}

// The generator: state = sum of seed digests, output = MD5(state), then the state steps.
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
  Block16 state_{}, output_{};
  std::size_t available_ = 0;
};

}  // namespace hylorn_test
