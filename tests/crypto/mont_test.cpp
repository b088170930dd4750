#include <gtest/gtest.h>

#include "bn_oracle.h"
#include "crypto/mont.h"
#include "crypto/mp.h"
#include "mont_paths.h"

namespace {

using hylorn_test::Bn;
using hylorn_test::Digits;
using hylorn_test::from_bn;
using hylorn_test::new_bn;
using hylorn_test::to_bn;

// A number below d: mostly random, sometimes d - 1 or a run of all-ones limbs.
Digits below(hylorn_test::Operands& ops, const Bn& d, size_t digits, BN_CTX* ctx) {
  Bn x = to_bn(ops.number(digits));
  switch (ops.below(6)) {
    case 0: BN_sub(x.get(), d.get(), BN_value_one()); break;
    case 1: x = to_bn(Digits(digits, 0xFFFFFFFFu)); break;
    default: break;
  }
  BN_mod(x.get(), x.get(), d.get(), ctx);
  return from_bn(x.get(), digits);
}

// The product and square kernels of every path against BN, a b R^-1 mod d, at the sizes
// with kernels of their own (8 and 16 limbs) and beside them. The operands load the
// carry chains: all-ones limbs, values just below d, moduli just below R; the first
// factor of a product may exceed d.
TEST(MontProduct, KernelsOfEveryPathMatchBn) {
  hylorn_test::BnCtx ctx(BN_CTX_new());
  for (hylorn::MontPath path : hylorn_test::mont_paths()) {
    hylorn_test::MontPathScope scope(path);
    hylorn_test::Operands ops(29);
    for (size_t digits : {3, 15, 16, 17, 31, 32}) {
      for (int r = 0; r < 150; ++r) {
        Digits dd = r % 5 == 0 ? Digits(digits, 0xFFFFFFFFu) : ops.odd(digits);
        if (r % 5 == 1) dd.back() = 1;  // the smallest top limb
        Bn d = to_bn(dd);
        Bn rinv = new_bn(), radix = new_bn();
        BN_set_bit(radix.get(), static_cast<int>(64 * ((digits + 1) / 2)));
        BN_mod_inverse(rinv.get(), radix.get(), d.get(), ctx.get());

        Digits a = r % 3 == 0 ? ops.number(digits) : below(ops, d, digits, ctx.get());
        Digits b = below(ops, d, digits, ctx.get()), s = below(ops, d, digits, ctx.get());
        Digits prod(digits), square(digits);
        hylorn::mont_product(prod.data(), a.data(), b.data(), dd.data(), static_cast<hylorn::u32>(digits));
        hylorn::mont_product(square.data(), s.data(), s.data(), dd.data(), static_cast<hylorn::u32>(digits));

        Bn want = new_bn(), want_sq = new_bn();
        BN_mod_mul(want.get(), to_bn(a).get(), to_bn(b).get(), d.get(), ctx.get());
        BN_mod_mul(want.get(), want.get(), rinv.get(), d.get(), ctx.get());
        BN_mod_mul(want_sq.get(), to_bn(s).get(), to_bn(s).get(), d.get(), ctx.get());
        BN_mod_mul(want_sq.get(), want_sq.get(), rinv.get(), d.get(), ctx.get());
        EXPECT_EQ(prod, from_bn(want.get(), digits)) << hylorn_test::name_of(path) << " " << digits << " digits, round " << r;
        EXPECT_EQ(square, from_bn(want_sq.get(), digits)) << hylorn_test::name_of(path) << " " << digits << " digits, round " << r;
      }
    }
  }
}

// The IFMA pair kernel against BN: a b 2^-520 mod d, below 2d, for operands anywhere
// below 2d (the kernel's outputs are not reduced further) and moduli of every shape
// below 2^512, including those whose 52-bit limbs are all ones.
TEST(MontIfmaProduct, MatchesBnBelowTwiceTheModulus) {
  std::vector<hylorn::MP_DIGIT> probe(17), one(17, 0), d1(16, 0xFFFFFFFFu);
  one[0] = 1;
  if (!hylorn::mont_ifma_product(probe.data(), one.data(), one.data(), d1.data()))
    GTEST_SKIP() << "no AVX-512 IFMA";
  hylorn_test::BnCtx ctx(BN_CTX_new());
  hylorn_test::Operands ops(37);
  Bn radix = new_bn(), rinv = new_bn();
  BN_set_bit(radix.get(), 520);
  for (int r = 0; r < 3000; ++r) {
    Digits dd = r % 4 == 0 ? Digits(16, 0xFFFFFFFFu) : ops.odd(16);
    if (r % 4 == 1) dd.back() = 0x80000000u;
    if (r % 8 == 2) dd.assign(16, 0), dd[0] = 0xFFFFFFFFu, dd[1] = 0xFFFFFu;  // 52 bits of ones
    dd[0] |= 1;
    Bn d = to_bn(dd), twice = new_bn();
    BN_lshift1(twice.get(), d.get());
    BN_mod_inverse(rinv.get(), radix.get(), d.get(), ctx.get());
    auto operand = [&]() {
      Bn x = to_bn(ops.number(17));
      switch (ops.below(5)) {
        case 0: BN_sub(x.get(), twice.get(), BN_value_one()); return x;
        case 1: BN_copy(x.get(), d.get()); return x;
        default: BN_mod(x.get(), x.get(), twice.get(), ctx.get()); return x;
      }
    };
    Bn a = operand(), b = operand(), want = new_bn();
    Digits got(17);
    ASSERT_TRUE(hylorn::mont_ifma_product(got.data(), from_bn(a.get(), 17).data(), from_bn(b.get(), 17).data(), dd.data()));
    Bn g = to_bn(got), reduced = new_bn();
    BN_mod_mul(want.get(), a.get(), b.get(), d.get(), ctx.get());
    BN_mod_mul(want.get(), want.get(), rinv.get(), d.get(), ctx.get());
    BN_mod(reduced.get(), g.get(), d.get(), ctx.get());
    EXPECT_EQ(BN_cmp(reduced.get(), want.get()), 0) << "round " << r;
    EXPECT_LT(BN_cmp(g.get(), twice.get()), 0) << "round " << r;
  }
}

// The public exponentiation keeps constants per modulus: moduli that differ only in one
// high digit, or only in length, must never share them, and more moduli than the cache
// holds must come and go.
TEST(MontPublic, ModuliThatDifferLittleKeepTheirOwnConstants) {
  hylorn_test::BnCtx ctx(BN_CTX_new());
  hylorn_test::Operands ops(31);
  Digits base = ops.odd(32);
  std::vector<Digits> moduli;
  for (size_t flip : {31, 30, 16, 9, 1}) {
    Digits d = base;
    d[flip] ^= 0x10u;
    moduli.push_back(d);
  }
  moduli.push_back(base);
  Digits shorter = base;
  shorter[31] = 0;  // the same low digits, one limb fewer
  shorter[30] = 0;
  shorter[29] |= 1u << 31;
  moduli.push_back(shorter);
  for (int pass = 0; pass < 3; ++pass) {
    for (const Digits& d : moduli) {
      Digits b = ops.number(32), e = {65537}, got(32);
      hylorn::mp_mod_exp_public(got.data(), b.data(), e.data(), 1, d.data(), 32);
      Bn want = new_bn();
      BN_mod_exp(want.get(), to_bn(b).get(), to_bn(e).get(), to_bn(d).get(), ctx.get());
      EXPECT_EQ(got, from_bn(want.get(), 32)) << "pass " << pass;
    }
  }
}

}  // namespace
