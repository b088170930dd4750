#include <gtest/gtest.h>

#include <optional>

#include "models.h"

namespace {

using namespace hylorn;
using namespace hylorn_test;

using Sizes = std::vector<std::size_t>;

std::uint32_t u32_of(std::size_t n) {
  return static_cast<std::uint32_t>(n);
}

class MpBySize : public testing::TestWithParam<int> {
 protected:
  std::size_t n() const { return static_cast<std::size_t>(GetParam()); }
  std::uint32_t n32() const { return u32_of(n()); }
  // a + sign * word * 2^(32 n): a result with the carry, borrow or bits it returned.
  std::string with_word(const Digits& a, MP_DIGIT word, int sign) {
    Bn v = to_bn(a), w = bn_power_of_two(32 * GetParam());
    BN_mul_word(w.get(), word);
    sign > 0 ? BN_add(v.get(), v.get(), w.get()) : BN_sub(v.get(), v.get(), w.get());
    return hex(v);
  }
  Operands ops_{static_cast<unsigned>(GetParam()) * 7919u};
  BnCtx ctx_{BN_CTX_new()};
};

INSTANTIATE_TEST_SUITE_P(Digits1To33, MpBySize, testing::Range(1, 34));

TEST_P(MpBySize, ElementaryOperationsAndCodingMatchBn) {
  for (int r = 0; r < 60; ++r) {
    Digits b = ops_.number(n()), c = ops_.number(n()), a = b, wide(2 * n());
    const MP_DIGIT m = ops_.digit();
    const std::uint32_t s = ops_.below(32);
    Bn bb = to_bn(b), bc = to_bn(c), mc(BN_dup(bc.get())), want = bn_word();
    BN_mul_word(mc.get(), m);
    BN_add(want.get(), bb.get(), bc.get());
    EXPECT_EQ(with_word(a, MP_Add(a.data(), a.data(), c.data(), n32()), 1), hex(want));
    BN_sub(want.get(), bb.get(), bc.get());
    EXPECT_EQ(with_word(a, MP_Sub(a.data(), b.data(), c.data(), n32()), -1), hex(want));
    BN_lshift(want.get(), bb.get(), static_cast<int>(s));
    EXPECT_EQ(with_word(a, MP_LShift(a.data(), b.data(), s, n32()), 1), hex(want));
    BN_add(want.get(), bb.get(), mc.get());
    EXPECT_EQ(with_word(a, MP_AddDigitMult(a.data(), b.data(), m, c.data(), n32()), 1), hex(want));
    BN_sub(want.get(), bb.get(), mc.get());
    EXPECT_EQ(with_word(a, MP_SubDigitMult(a.data(), b.data(), m, c.data(), n32()), -1), hex(want));
    BN_rshift(want.get(), bb.get(), static_cast<int>(s));
    EXPECT_EQ(MP_RShift(a.data(), b.data(), s, n32()), s == 0 ? 0 : b[0] << (32 - s));
    EXPECT_EQ(a, from_bn(want.get(), n()));
    BN_mul(want.get(), bb.get(), bc.get(), ctx_.get());
    MP_Mult(wide.data(), b.data(), c.data(), n32());
    EXPECT_EQ(wide, from_bn(want.get(), 2 * n()));

    c = ops_.coin() ? b : ops_.number(n());
    if (ops_.coin()) c[ops_.below(n32())] ^= 1u << ops_.below(32);
    EXPECT_EQ(MP_Cmp(b.data(), c.data(), n32()), BN_cmp(bb.get(), to_bn(c).get()));
    EXPECT_EQ(MP_Digits(b.data(), n32()), u32_of((BN_num_bits(bb.get()) + 31) / 32));
    EXPECT_EQ(mp_bits(b.data(), n32()), u32_of(BN_num_bits(bb.get())));
    EXPECT_EQ(MP_Zero(b.data(), n32()), BN_is_zero(bb.get()));
    // The single-digit helpers, with a divisor whose top bit is set.
    MP_DIGIT prod[2], q, top = m | 0x80000000u, dividend[2] = {b[0], c[0] % top};
    MP_DigitMult(prod, b[0], top);
    EXPECT_EQ((std::uint64_t{prod[1]} << 32) | prod[0], std::uint64_t{b[0]} * top);
    MP_DigitDiv(&q, dividend, top);
    EXPECT_EQ(q, ((std::uint64_t{dividend[1]} << 32) | dividend[0]) / top);
    EXPECT_EQ(MP_DigitBits(m), u32_of(BN_num_bits(bn_word(m).get())));

    const std::size_t lengths[] = {129, 133, 4 * n() - 1, 0};
    Bytes bytes(r < 4 ? lengths[r] : ops_.below(140));
    for (auto& x : bytes) x = static_cast<unsigned char>(ops_.digit());
    Digits decoded(n(), 0x55);
    MP_Decode(decoded.data(), n32(), bytes.data(), u32_of(bytes.size()));
    EXPECT_EQ(decoded, from_bn(bn_of(bytes.data(), int(bytes.size())).get(), n()));

    Bytes out(bytes.size() + 1, 0x55), encoded(out.size());
    MP_Encode(out.data(), u32_of(out.size()), b.data(), n32());
    BN_mask_bits(bb.get(), static_cast<int>(8 * out.size()));
    BN_bn2binpad(bb.get(), encoded.data(), static_cast<int>(encoded.size()));
    EXPECT_EQ(out, encoded);
  }
}

TEST_P(MpBySize, DivModGcdAndInverseMatchBn) {
  for (int r = 0; r < 60; ++r) {
    // Round 0 at 8 digits: a quotient digit guessed one too high needs the add-back step.
    const bool add_back = r == 0 && n() == 8;
    std::size_t cDigits = add_back ? 8 : 1 + ops_.below(2 * n32());
    Digits c = ops_.number(cDigits), d = ops_.number(n()), q(cDigits, 0xAA), rem(n(), 0xAA), m(n());
    if (add_back) {
      c = {2, 0, 0, 0x80000000u, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu, 0x7FFFFFFFu};
      d = {0xFFFFFFFFu, 0xFFFFFFFFu, 0, 0x80000000u, 0, 0x80000000u, 0, 0};
    }
    Bn bq = bn_word(), br = bn_word();
    BN_div(bq.get(), br.get(), to_bn(c).get(), to_bn(d).get(), ctx_.get());
    MP_Div(q.data(), rem.data(), c.data(), u32_of(cDigits), d.data(), n32());
    EXPECT_EQ(q, from_bn(bq.get(), cDigits));
    EXPECT_EQ(rem, from_bn(br.get(), n()));
    MP_Mod(m.data(), c.data(), u32_of(cDigits), d.data(), n32());
    EXPECT_EQ(m, rem);
  }
  for (int r = 0; r < 12; ++r) {
    Digits b = ops_.number(n()), c = ops_.number(n()), d = ops_.full(n()), a(n());
    Bn want = bn_word(), g = bn_word();
    BN_mod_mul(want.get(), to_bn(b).get(), to_bn(c).get(), to_bn(d).get(), ctx_.get());
    MP_ModMult(a.data(), b.data(), c.data(), d.data(), n32());
    EXPECT_EQ(a, from_bn(want.get(), n()));
    if (ops_.coin() && n() > 1) {
      Digits f = ops_.full(1 + ops_.below(n32() / 2));
      BN_mul(want.get(), to_bn(ops_.number(n() / 2)).get(), to_bn(f).get(), ctx_.get());
      b = from_bn(want.get(), n());
    }
    BN_gcd(g.get(), to_bn(b).get(), to_bn(d).get(), ctx_.get());
    MP_Gcd(a.data(), b.data(), d.data(), n32());
    EXPECT_EQ(a, from_bn(g.get(), n()));
    if (!BN_is_one(g.get()) || BN_is_one(to_bn(d).get())) continue;
    BN_mod_inverse(want.get(), to_bn(b).get(), to_bn(d).get(), ctx_.get());
    MP_ModInv(a.data(), b.data(), d.data(), n32());
    EXPECT_EQ(a, from_bn(want.get(), n()));
  }
}

// Odd moduli on every Montgomery path, even ones on the textbook windows.
TEST_P(MpBySize, ModExpMatchesBnOnEveryPath) {
  auto check = [&](int r, bool odd) {
    Digits d = ops_.full(n()), b = ops_.number(n()), a(n());  // b may exceed d
    d[0] = odd ? d[0] | 1 : d[0] & ~1u;
    if (BN_is_zero(to_bn(d).get())) return;
    if (r % 4 == 0) b.assign(n(), 0), b[0] = 2;
    std::size_t cDigits = r % 3 == 0 ? std::min<std::size_t>(2, n()) : 1 + ops_.below(n32());
    Digits c = ops_.full(cDigits);
    // An odd modulus goes through the public cache too, then again with one digit
    // changed: moduli that differ little must keep their own constants.
    for (int pass = 0; pass < (odd ? 3 : 1); ++pass) {
      if (pass == 2) d[ops_.below(n32())] ^= 0x10u;
      Bn want = bn_word();
      BN_mod_exp(want.get(), to_bn(b).get(), to_bn(c).get(), to_bn(d).get(), ctx_.get());
      (pass == 0 ? MP_ModExp : mp_mod_exp_public)(a.data(), b.data(), c.data(), u32_of(cDigits),
                                                  d.data(), n32());
      EXPECT_EQ(a, from_bn(want.get(), n())) << "round " << r << ", pass " << pass;
    }
  };
  for (MontPath path : mont_paths()) {
    MontPathScope scope(path);
    for (int r = 0; r < 4; ++r) check(r, true);
  }
  for (int r = 0; r < 2; ++r) check(r, false);
}

// Zero lengths and shift limits; division by zero writes nothing; exponent corners.
TEST(MpEdge, ZeroLengthsShiftLimitsDivisionAndExponentCorners) {
  Digits a = {1, 2}, b = {3, 4};
  EXPECT_EQ(MP_Cmp(a.data(), b.data(), 0), 0);
  EXPECT_EQ(MP_Zero(a.data(), 0), 1);
  EXPECT_EQ(MP_Digits(a.data(), 0), 0u);
  EXPECT_EQ(MP_LShift(a.data(), b.data(), 32, 2), 0u);
  EXPECT_EQ(MP_RShift(a.data(), b.data(), 40, 2), 0u);
  EXPECT_EQ(a, (Digits{1, 2}));
  MP_Assign2Exp(a.data(), 63, 2);
  EXPECT_EQ(a, (Digits{0, 0x80000000u}));
  MP_Assign2Exp(a.data(), 64, 2);
  EXPECT_EQ(a, (Digits{0, 0}));
  Digits c = {7, 9}, zero = {0, 0}, q = {0xAB, 0xCD}, r = {0xEF, 0x12};
  MP_Div(q.data(), r.data(), c.data(), 2, zero.data(), 2);
  MP_Mod(r.data(), c.data(), 2, zero.data(), 2);
  EXPECT_EQ(q, (Digits{0xAB, 0xCD}));
  EXPECT_EQ(r, (Digits{0xEF, 0x12}));

  const struct {
    Digits b, c, d, want;
  } cases[] = {
      {{5}, {0}, {1}, {1}},
      {{5, 0}, {0}, {0, 0}, {1, 0}},
      {{5}, {3}, {1}, {0}},
      {{10}, {1}, {7}, {3}},
      {{2}, {5}, {3}, {2}},
      {{9}, {2}, {8}, {1}},
      {{0xFFFFFFFFu, 0xFFFFFFFFu}, {3}, {0xFFFFFFFFu, 0}, {0, 0}},  // wide base, narrow modulus
  };
  for (const auto& k : cases) {
    Digits a(k.d.size(), 0x77), g(k.d.size(), 0x77);
    const auto nd = u32_of(k.d.size()), nc = u32_of(k.c.size());
    MP_ModExp(a.data(), k.b.data(), k.c.data(), nc, k.d.data(), nd);
    mp_mod_exp_generic(g.data(), k.b.data(), k.c.data(), nc, k.d.data(), nd);
    EXPECT_EQ(a, k.want);
    EXPECT_EQ(g, k.want);
  }
}
// x mod m for a random x, sometimes m - 1, all-ones limbs or `also`.
Digits below(Operands& ops, const BIGNUM* m, std::size_t digits, BN_CTX* ctx, const BIGNUM* also) {
  Bn x = to_bn(ops.number(digits));
  const unsigned pick = ops.below(6);
  if (pick == 0) BN_sub(x.get(), m, BN_value_one());
  if (pick == 1) x = to_bn(Digits(digits, 0xFFFFFFFFu));
  if (pick == 2) BN_copy(x.get(), also);
  BN_mod(x.get(), x.get(), m, ctx);
  return from_bn(x.get(), digits);
}

// a b / R mod d from the product and square kernels of every path, at their own sizes and
// beside them; then from the IFMA pair kernel, whose R is 2^520 and whose operands and
// results are only below 2d.
TEST(MontProduct, KernelsOfEveryPathMatchBn) {
  BnCtx ctx(BN_CTX_new());
  Operands ops(29);
  Bn rinv = bn_word(), bound = bn_word(), got = bn_word(), want = bn_word();
  const std::vector<MontPath> paths = mont_paths();
  for (std::size_t kind = 0; kind <= paths.size(); ++kind) {
    const bool pair = kind == paths.size();
    std::optional<MontPathScope> scope;
    if (!pair) scope.emplace(paths[kind]);
    for (std::size_t digits : pair ? Sizes{16} : Sizes{3, 15, 16, 17, 31, 32}) {
      const Bn radix = bn_power_of_two(pair ? 520 : static_cast<int>(64 * ((digits + 1) / 2)));
      const std::size_t width = pair ? 17 : digits;
      for (int r = 0; r < (pair ? 1000 : 200); ++r) {
        Digits dd = r % 5 == 0 ? Digits(digits, 0xFFFFFFFFu) : ops.full(digits);
        if (r % 5 == 1) dd.back() = pair ? 0x80000000u : 1;  // the smallest top limb
        if (pair && r % 5 == 2) dd.assign(16, 0), dd[0] = 0xFFFFFFFFu, dd[1] = 0xFFFFFu;
        dd[0] |= 1;
        const Bn d = to_bn(dd);
        BN_lshift(bound.get(), d.get(), pair ? 1 : 0);
        BN_mod_inverse(rinv.get(), radix.get(), d.get(), ctx.get());
        // a may reach R on the paths when b is below d; a == b squares.
        Digits a = !pair && r % 3 == 0 ? ops.number(digits)
                                       : below(ops, bound.get(), width, ctx.get(), d.get());
        Digits b = r % 3 == 1 ? a : below(ops, bound.get(), width, ctx.get(), d.get()), out(width);
        if (pair && !mont_ifma_product(out.data(), a.data(), b.data(), dd.data())) return;
        if (!pair) mont_product(out.data(), a.data(), b.data(), dd.data(), u32_of(digits));
        BN_mod(got.get(), to_bn(out).get(), d.get(), ctx.get());
        BN_mod_mul(want.get(), to_bn(a).get(), to_bn(b).get(), d.get(), ctx.get());
        BN_mod_mul(want.get(), want.get(), rinv.get(), d.get(), ctx.get());
        const auto where = testing::Message() << digits << " digits, round " << r;
        EXPECT_EQ(hex(got), hex(want)) << where;
        EXPECT_LT(BN_cmp(to_bn(out).get(), bound.get()), 0) << where;
      }
    }
  }
}

}  // namespace
