#include <gtest/gtest.h>

#include "bn_oracle.h"
#include "crypto/mp.h"
#include "mont_paths.h"

namespace {

using hylorn::MP_DIGIT;
using hylorn_test::Bn;
using hylorn_test::bn_word;
using hylorn_test::Digits;
using hylorn_test::from_bn;
using hylorn_test::new_bn;
using hylorn_test::Operands;
using hylorn_test::to_bn;

constexpr int kRounds = 120;  // per digit count, for the cheap operations

std::uint32_t u32_of(size_t n) { return static_cast<std::uint32_t>(n); }

// 2^(32 digits) as a BIGNUM: the wrap-around of fixed-size results.
Bn radix(size_t digits) {
  Bn r = new_bn();
  BN_set_bit(r.get(), static_cast<int>(32 * digits));
  return r;
}

class MpBySize : public testing::TestWithParam<int> {
 protected:
  size_t n() const { return static_cast<size_t>(GetParam()); }
  Operands ops_{static_cast<unsigned>(GetParam()) * 7919u};
  hylorn_test::BnCtx ctx_{BN_CTX_new()};
};

TEST_P(MpBySize, AddAndSubWrapAndReportCarry) {
  Bn wrap = radix(n());
  for (int r = 0; r < kRounds; ++r) {
    Digits b = ops_.number(n()), c = ops_.number(n()), a = b;
    Bn sum = new_bn(), diff = new_bn();
    BN_add(sum.get(), to_bn(b).get(), to_bn(c).get());
    BN_sub(diff.get(), to_bn(b).get(), to_bn(c).get());
    bool negative = BN_is_negative(diff.get());
    if (negative) BN_add(diff.get(), diff.get(), wrap.get());
    MP_DIGIT carry = hylorn::MP_Add(a.data(), a.data(), c.data(), u32_of(n()));  // a aliases b
    EXPECT_EQ(carry, BN_cmp(sum.get(), wrap.get()) >= 0 ? 1u : 0u);
    EXPECT_EQ(a, from_bn(sum.get(), n()));
    Digits s(n());
    EXPECT_EQ(hylorn::MP_Sub(s.data(), b.data(), c.data(), u32_of(n())), negative ? 1u : 0u);
    EXPECT_EQ(s, from_bn(diff.get(), n()));
  }
}

TEST_P(MpBySize, MultGivesTheFullProduct) {
  for (int r = 0; r < kRounds; ++r) {
    Digits b = ops_.number(n()), c = ops_.number(n()), a(2 * n());
    Bn p = new_bn();
    BN_mul(p.get(), to_bn(b).get(), to_bn(c).get(), ctx_.get());
    hylorn::MP_Mult(a.data(), b.data(), c.data(), u32_of(n()));
    EXPECT_EQ(a, from_bn(p.get(), 2 * n()));
  }
}

TEST_P(MpBySize, DivAndModMatchBn) {
  for (int r = 0; r < kRounds; ++r) {
    size_t cDigits = 1 + ops_.below(u32_of(2 * n()));
    Digits c = ops_.number(cDigits), d = ops_.number(n());
    Digits q(cDigits, 0xAA), rem(n(), 0xAA), m(n());
    Bn bq = new_bn(), br = new_bn();
    BN_div(bq.get(), br.get(), to_bn(c).get(), to_bn(d).get(), ctx_.get());
    hylorn::MP_Div(q.data(), rem.data(), c.data(), u32_of(cDigits), d.data(), u32_of(n()));
    EXPECT_EQ(q, from_bn(bq.get(), cDigits));
    EXPECT_EQ(rem, from_bn(br.get(), n()));
    hylorn::MP_Mod(m.data(), c.data(), u32_of(cDigits), d.data(), u32_of(n()));
    EXPECT_EQ(m, rem);
  }
}

TEST_P(MpBySize, ModMultGcdAndModInvMatchBn) {
  for (int r = 0; r < kRounds / 2; ++r) {
    Digits b = ops_.number(n()), c = ops_.number(n()), d = ops_.full(n()), a(n());
    Bn expect = new_bn();
    BN_mod_mul(expect.get(), to_bn(b).get(), to_bn(c).get(), to_bn(d).get(), ctx_.get());
    hylorn::MP_ModMult(a.data(), b.data(), c.data(), d.data(), u32_of(n()));
    EXPECT_EQ(a, from_bn(expect.get(), n()));

    // A shared factor half of the time, so that gcds other than 1 come up.
    if (ops_.coin() && n() > 1) {
      Digits g = ops_.full(1 + ops_.below(u32_of(n() / 2)));
      BN_mul(expect.get(), to_bn(ops_.number(n() / 2)).get(), to_bn(g).get(), ctx_.get());
      b = from_bn(expect.get(), n());
    }
    Bn g = new_bn();
    BN_gcd(g.get(), to_bn(b).get(), to_bn(d).get(), ctx_.get());
    hylorn::MP_Gcd(a.data(), b.data(), d.data(), u32_of(n()));
    EXPECT_EQ(a, from_bn(g.get(), n()));
    if (!BN_is_one(g.get()) || BN_is_one(to_bn(d).get())) continue;
    BN_mod_inverse(expect.get(), to_bn(b).get(), to_bn(d).get(), ctx_.get());
    hylorn::MP_ModInv(a.data(), b.data(), d.data(), u32_of(n()));
    EXPECT_EQ(a, from_bn(expect.get(), n()));
  }
}

TEST_P(MpBySize, ModExpMatchesBnForOddAndEvenModuli) {
  for (int r = 0; r < 12; ++r) {
    Digits d = ops_.full(n());
    if (r % 2 == 0) d[0] |= 1; else d[0] &= ~1u;
    if (BN_is_zero(to_bn(d).get())) continue;
    size_t cDigits = 1 + ops_.below(u32_of(n()));
    Digits b = ops_.number(n()), c = ops_.number(cDigits), a(n());  // b may exceed d
    Bn expect = new_bn();
    BN_mod_exp(expect.get(), to_bn(b).get(), to_bn(c).get(), to_bn(d).get(), ctx_.get());
    hylorn::MP_ModExp(a.data(), b.data(), c.data(), u32_of(cDigits), d.data(), u32_of(n()));
    EXPECT_EQ(a, from_bn(expect.get(), n())) << "round " << r;
  }
}

// The Montgomery engine must give what the textbook windows give, for every shape of
// input it treats apart: base 2, bases above the modulus, short and long exponents.
TEST_P(MpBySize, FastEngineAgreesWithTheGenericPath) {
  for (hylorn::MontPath path : hylorn_test::mont_paths()) {
    hylorn_test::MontPathScope scope(path);
    for (int r = 0; r < 12; ++r) {
      Digits d = ops_.odd(n()), b = ops_.number(n()), fast(n()), slow(n());
      if (r % 4 == 0) b.assign(n(), 0), b[0] = 2;
      size_t cDigits = r % 3 == 0 ? std::min<size_t>(2, n()) : n();
      Digits c = ops_.full(cDigits);
      hylorn::MP_ModExp(fast.data(), b.data(), c.data(), u32_of(cDigits), d.data(), u32_of(n()));
      hylorn::mp_mod_exp_generic(slow.data(), b.data(), c.data(), u32_of(cDigits), d.data(),
                                 u32_of(n()));
      EXPECT_EQ(fast, slow) << hylorn_test::name_of(path) << " round " << r;
    }
  }
}

TEST_P(MpBySize, ShiftsReturnTheBitsShiftedOut) {
  Bn wrap = radix(n());
  for (int r = 0; r < kRounds; ++r) {
    Digits b = ops_.number(n()), a(n());
    int shift = static_cast<int>(ops_.below(32));
    Bn big = new_bn(), low = new_bn(), expect = new_bn();
    BN_lshift(big.get(), to_bn(b).get(), shift);
    BN_div(expect.get(), low.get(), big.get(), wrap.get(), ctx_.get());
    EXPECT_EQ(hylorn::MP_LShift(a.data(), b.data(), u32_of(shift), u32_of(n())),
              BN_get_word(expect.get()));
    EXPECT_EQ(a, from_bn(low.get(), n()));

    BN_rshift(expect.get(), to_bn(b).get(), shift);
    MP_DIGIT out = shift == 0 ? 0 : (b[0] << (32 - shift));
    EXPECT_EQ(hylorn::MP_RShift(a.data(), b.data(), u32_of(shift), u32_of(n())), out);
    EXPECT_EQ(a, from_bn(expect.get(), n()));
  }
}

TEST_P(MpBySize, DigitMultiplesAddAndSubtract) {
  Bn wrap = radix(n());
  for (int r = 0; r < kRounds; ++r) {
    Digits b = ops_.number(n()), d = ops_.number(n()), a(n());
    MP_DIGIT c = ops_.digit();
    Bn v = new_bn(), carry = new_bn(), low = new_bn();
    BN_copy(v.get(), to_bn(d).get());
    BN_mul_word(v.get(), c);
    Bn sum = new_bn();
    BN_add(sum.get(), to_bn(b).get(), v.get());
    BN_div(carry.get(), low.get(), sum.get(), wrap.get(), ctx_.get());
    EXPECT_EQ(hylorn::MP_AddDigitMult(a.data(), b.data(), c, d.data(), u32_of(n())),
              BN_get_word(carry.get()));
    EXPECT_EQ(a, from_bn(low.get(), n()));

    // b - c d + borrow * 2^(32 n) must land in [0, 2^(32 n)).
    MP_DIGIT borrow = hylorn::MP_SubDigitMult(a.data(), b.data(), c, d.data(), u32_of(n()));
    Bn back = new_bn(), shifted = new_bn();
    BN_sub(back.get(), to_bn(b).get(), v.get());
    BN_mul_word(BN_copy(shifted.get(), wrap.get()), borrow);
    BN_add(back.get(), back.get(), shifted.get());
    EXPECT_FALSE(BN_is_negative(back.get()));
    EXPECT_LT(BN_cmp(back.get(), wrap.get()), 0);
    EXPECT_EQ(a, from_bn(back.get(), n()));
  }
}

TEST_P(MpBySize, CompareCountAndCode) {
  for (int r = 0; r < kRounds; ++r) {
    Digits a = ops_.number(n()), b = ops_.coin() ? a : ops_.number(n());
    if (ops_.coin()) b[ops_.below(u32_of(n()))] ^= 1u << ops_.below(32);
    EXPECT_EQ(hylorn::MP_Cmp(a.data(), b.data(), u32_of(n())),
              BN_cmp(to_bn(a).get(), to_bn(b).get()));
    EXPECT_EQ(hylorn::MP_Digits(a.data(), u32_of(n())),
              u32_of((BN_num_bits(to_bn(a).get()) + 31) / 32));
    EXPECT_EQ(hylorn::mp_bits(a.data(), u32_of(n())), u32_of(BN_num_bits(to_bn(a).get())));
    EXPECT_EQ(hylorn::MP_Zero(a.data(), u32_of(n())), BN_is_zero(to_bn(a).get()));

    std::vector<unsigned char> bytes(ops_.below(140));
    for (auto& x : bytes) x = static_cast<unsigned char>(ops_.digit());
    Bn value(BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr)), low = new_bn();
    BN_mod(low.get(), value.get(), radix(n()).get(), ctx_.get());
    Digits decoded(n(), 0x55);
    hylorn::MP_Decode(decoded.data(), u32_of(n()), bytes.data(), u32_of(bytes.size()));
    EXPECT_EQ(decoded, from_bn(low.get(), n()));

    std::vector<unsigned char> out(bytes.size() + 1, 0x55), expect(out.size());
    hylorn::MP_Encode(out.data(), u32_of(out.size()), a.data(), u32_of(n()));
    Bn trimmed = to_bn(a);
    BN_mask_bits(trimmed.get(), static_cast<int>(8 * out.size()));
    BN_bn2binpad(trimmed.get(), expect.data(), static_cast<int>(expect.size()));
    EXPECT_EQ(out, expect);
  }
}

INSTANTIATE_TEST_SUITE_P(Digits1To33, MpBySize, testing::Range(1, 34));

TEST(MpDigit, BitsProductAndQuotientOfSingleDigits) {
  Operands ops(5);
  for (int r = 0; r < 5000; ++r) {
    MP_DIGIT b = ops.digit(), c = ops.digit() | 0x80000000u, prod[2], q;
    std::uint64_t p = static_cast<std::uint64_t>(b) * c;
    hylorn::MP_DigitMult(prod, b, c);
    EXPECT_EQ((static_cast<std::uint64_t>(prod[1]) << 32) | prod[0], p);
    MP_DIGIT dividend[2] = {ops.digit(), ops.digit() % c};
    hylorn::MP_DigitDiv(&q, dividend, c);
    EXPECT_EQ(q, ((static_cast<std::uint64_t>(dividend[1]) << 32) | dividend[0]) / c);
    EXPECT_EQ(hylorn::MP_DigitBits(b), u32_of(BN_num_bits(bn_word(b).get())));
  }
}

TEST(MpEdge, DecodeKeepsTheLowest33DigitsOfTheBytes) {
  std::vector<unsigned char> bytes(133);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i + 1);
  Digits a(33);
  hylorn::MP_Decode(a.data(), 33, bytes.data() + 4, 129);  // 129 bytes: all kept
  EXPECT_EQ(a[32], 0x05u);
  EXPECT_EQ(a[0], 0x82838485u);
  hylorn::MP_Decode(a.data(), 33, bytes.data(), 133);  // 133 bytes: the first is dropped
  EXPECT_EQ(a[32], 0x02030405u);
  EXPECT_EQ(a[0], 0x82838485u);
}

TEST(MpEdge, EncodeTruncatesToTheLowBytes) {
  Digits a = {0x44332211u, 0x88776655u};
  std::vector<unsigned char> out(3);
  hylorn::MP_Encode(out.data(), 3, a.data(), 2);
  EXPECT_EQ(out, (std::vector<unsigned char>{0x33, 0x22, 0x11}));
}

TEST(MpEdge, DivisionByZeroWritesNothing) {
  Digits c = {7, 9}, zero = {0, 0}, q = {0xAB, 0xCD}, r = {0xEF, 0x12};
  hylorn::MP_Div(q.data(), r.data(), c.data(), 2, zero.data(), 2);
  EXPECT_EQ(q, (Digits{0xAB, 0xCD}));
  EXPECT_EQ(r, (Digits{0xEF, 0x12}));
  hylorn::MP_Mod(r.data(), c.data(), 2, zero.data(), 2);
  EXPECT_EQ(r, (Digits{0xEF, 0x12}));
}

// A quotient limb whose estimate stays one too large after refinement: the division has
// to add the divisor back.
TEST(MpEdge, DivisionThatNeedsItsAddBackStep) {
  Digits c = {2, 0, 0, 0x80000000u, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu, 0x7FFFFFFFu};
  Digits d = {0xFFFFFFFFu, 0xFFFFFFFFu, 0, 0x80000000u, 0, 0x80000000u, 0, 0};
  Digits q(8), r(8);
  hylorn::MP_Div(q.data(), r.data(), c.data(), 8, d.data(), 8);
  Bn bq = new_bn(), br = new_bn();
  hylorn_test::BnCtx ctx(BN_CTX_new());
  BN_div(bq.get(), br.get(), to_bn(c).get(), to_bn(d).get(), ctx.get());
  EXPECT_EQ(q, from_bn(bq.get(), 8));
  EXPECT_EQ(r, from_bn(br.get(), 8));
}

TEST(MpEdge, ModExpCornerCases) {
  struct Case {
    Digits b, c, d, expect;
  } cases[] = {
      {{5}, {0}, {1}, {1}},            // exponent 0 gives 1 even modulo 1
      {{5, 0}, {0}, {0, 0}, {1, 0}},   // and modulo 0
      {{5}, {3}, {1}, {0}},            // modulo 1 everything else is 0
      {{10}, {1}, {7}, {3}},           // the base is reduced, not used as given
      {{2}, {5}, {3}, {2}},            // base 2 below a tiny modulus
      {{9}, {2}, {8}, {1}},            // even modulus
      {{0xFFFFFFFFu, 0xFFFFFFFFu}, {3}, {0xFFFFFFFFu, 0}, {0, 0}},  // wide base, narrow modulus
  };
  for (const Case& k : cases) {
    Digits a(k.d.size(), 0x77), g(k.d.size(), 0x77);
    std::uint32_t nd = u32_of(k.d.size()), nc = u32_of(k.c.size());
    hylorn::MP_ModExp(a.data(), k.b.data(), k.c.data(), nc, k.d.data(), nd);
    hylorn::mp_mod_exp_generic(g.data(), k.b.data(), k.c.data(), nc, k.d.data(), nd);
    EXPECT_EQ(a, k.expect);
    EXPECT_EQ(g, k.expect);
  }
}

TEST(MpEdge, ZeroCountsShiftLimitsAndPowersOfTwo) {
  Digits a = {1, 2}, b = {3, 4};
  EXPECT_EQ(hylorn::MP_Cmp(a.data(), b.data(), 0), 0);
  EXPECT_EQ(hylorn::MP_Zero(a.data(), 0), 1);
  EXPECT_EQ(hylorn::MP_Digits(a.data(), 0), 0u);
  EXPECT_EQ(hylorn::MP_LShift(a.data(), b.data(), 32, 2), 0u);
  EXPECT_EQ(hylorn::MP_RShift(a.data(), b.data(), 40, 2), 0u);
  EXPECT_EQ(a, (Digits{1, 2}));
  hylorn::MP_Assign2Exp(a.data(), 63, 2);
  EXPECT_EQ(a, (Digits{0, 0x80000000u}));
  hylorn::MP_Assign2Exp(a.data(), 64, 2);
  EXPECT_EQ(a, (Digits{0, 0}));
}

}  // namespace
