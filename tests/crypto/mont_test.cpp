#include <gtest/gtest.h>

#include "bn_oracle.h"
#include "crypto/mont.h"
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

}  // namespace
