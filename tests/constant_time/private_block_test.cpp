// The raw RSA blocks against OpenSSL's raw operations on every Montgomery path this
// processor has; and under valgrind's memcheck, the private block with the key's secret
// numbers and the input marked undefined, so that a branch or a memory address computed
// from them shows up as an error. Natively the marks do nothing.
#include <gtest/gtest.h>
#include <valgrind/memcheck.h>

#include <cstddef>
#include <fstream>
#include <string>
#include <vector>

#include "crypto/models.h"
#include "crypto/rsa.h"

// The library's declassify, routed here by the linker (--wrap): what it names public
// becomes defined for memcheck.
extern "C" void __wrap__ZN6hylorn10declassifyEPvm(void* value, std::size_t size) {
  VALGRIND_MAKE_MEM_DEFINED(value, size);
}

#ifdef __x86_64__
// Valgrind runs MULX, ADCX and ADOX but hides ADX from CPUID: under it, the processor's
// flags as the kernel lists them decide whether the assembly path is there to check.
extern "C" bool __real__ZN6hylorn8mont_x8612has_mulx_adxEv();
extern "C" bool __wrap__ZN6hylorn8mont_x8612has_mulx_adxEv() {
  if (__real__ZN6hylorn8mont_x8612has_mulx_adxEv()) return true;
  if (!RUNNING_ON_VALGRIND) return false;
  std::ifstream cpuinfo("/proc/cpuinfo");
  std::string line;
  while (std::getline(cpuinfo, line) && line.rfind("flags", 0) != 0) {
  }
  line += ' ';
  for (const char* flag : {" adx ", " bmi2 ", " avx2 "})
    if (line.find(flag) == std::string::npos) return false;
  return true;
}
#endif

namespace {

using namespace hylorn;
using namespace hylorn_test;

// Whether memcheck holds any bit of the bytes undefined (false when not under valgrind).
bool undefined(const void* p, std::size_t n) {
  std::vector<unsigned char> bits(n);
  if (VALGRIND_GET_VBITS(p, bits.data(), n) != 1) return false;
  for (unsigned char b : bits)
    if (b != 0) return true;
  return false;
}

// No padding: GoogleTest prints a parameter byte by byte, and memcheck would see the holes.
struct KeyCase {
  u32 bits, e;
  u32 unreduced;  // coefficient q^-1 mod p plus p: the engine's CRT declines it
};
class RawBlocks : public testing::TestWithParam<KeyCase> {};

INSTANTIATE_TEST_SUITE_P(KeySizes, RawBlocks,
                         testing::Values(KeyCase{1024, 65537, 0}, KeyCase{1024, 3, 0},
                                         KeyCase{1023, 65537, 0}, KeyCase{768, 65537, 0},
                                         KeyCase{516, 3, 0}, KeyCase{1000, 65537, 1}));

// The edges and random inputs. A key the engine declines goes the textbook way, which is
// not meant to hide its secrets: its numbers are left unmarked.
TEST_P(RawBlocks, MatchOpenSslAndThePrivateOneHidesItsSecrets) {
  const KeyCase c = GetParam();
  Keys keys = make_keys(c.bits, c.e);
  if (c.unreduced) {  // 500-bit primes: qInv + p still fits its field
    Bn coefficient = bn_of(keys.priv.coefficient, 64);
    BN_add(coefficient.get(), coefficient.get(), bn_of(keys.priv.prime[0], 64).get());
    BN_bn2binpad(coefficient.get(), keys.priv.coefficient, 64);
  }
  const u32 len = (c.bits + 7) / 8;
  for (MontPath path : mont_paths()) {
    MontPathScope scope(path);
    for (const Bytes& input : edge_inputs(keys.priv)) {
      SCOPED_TRACE(to_hex(input));
      Bytes out(len, 0xEE), in = input;
      u32 out_len = 0;
      ASSERT_EQ(RSA_Public_Block(out.data(), &out_len, in.data(), len, &keys.pub), 0u);
      ASSERT_EQ(out_len, len);
      EXPECT_EQ(out, openssl_encrypt(keys.pkey.get(), input, RSA_NO_PADDING));

      RSA_PRIVATE_KEY k = keys.priv;
      constexpr std::size_t kSecret = offsetof(RSA_PRIVATE_KEY, exponent);
      if (!c.unreduced) {
        VALGRIND_MAKE_MEM_UNDEFINED(reinterpret_cast<char*>(&k) + kSecret, sizeof k - kSecret);
        VALGRIND_MAKE_MEM_UNDEFINED(in.data(), in.size());
      }
      out_len = 0;
      unsigned before = VALGRIND_COUNT_ERRORS;
      u32 status = RSA_Private_Block(out.data(), &out_len, in.data(), len, &k);
      unsigned errors = VALGRIND_COUNT_ERRORS - before;
      bool reached = undefined(out.data(), out_len);
      VALGRIND_MAKE_MEM_DEFINED(out.data(), out.size());
      EXPECT_EQ(errors, 0u) << "a branch or address depends on the key or the input";
      EXPECT_TRUE(reached || c.unreduced || !RUNNING_ON_VALGRIND) << "the secrets never reached m";
      ASSERT_EQ(status, 0u);
      ASSERT_EQ(out_len, len);
      EXPECT_EQ(out, openssl_decrypt(keys.pkey.get(), input, RSA_NO_PADDING));
    }
  }
}

// Without the linker's wrap every declassified value would stay secret and the test
// above would fail on them: this names that cause directly.
TEST(Declassify, MakesTheValueDefinedUnderMemcheck) {
  if (!RUNNING_ON_VALGRIND) GTEST_SKIP() << "not under valgrind";
  u32 v = 7;
  VALGRIND_MAKE_MEM_UNDEFINED(&v, sizeof v);
  EXPECT_TRUE(undefined(&v, sizeof v));
  declassify(&v, sizeof v);
  EXPECT_FALSE(undefined(&v, sizeof v));
}

}  // namespace
