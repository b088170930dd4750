// The private-key block under valgrind's memcheck: the key's secret numbers and the input
// are marked undefined, so that a branch or a memory address computed from them shows up
// as an error. Natively the marks do nothing, and the results are checked against
// OpenSSL's raw private operation on every Montgomery path this processor has.
#include <gtest/gtest.h>
#include <valgrind/memcheck.h>

#include <cstddef>
#include <fstream>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "crypto/keygen.h"
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

// Our key of each size, made once from a fixed seed.
const RSA_PRIVATE_KEY& key_of(unsigned bits) {
  static std::map<unsigned, RSA_PRIVATE_KEY> keys;
  auto [at, fresh] = keys.try_emplace(bits);
  if (fresh) {
    RSA_PUBLIC_KEY pub;
    RSA_PROTO_KEY proto{bits, 1};
    EXPECT_EQ(rsa_generate_keys_from_seed_byte(&pub, &at->second, &proto, 0x5A), 0u);
  }
  return at->second;
}

class PrivateBlock : public testing::TestWithParam<std::tuple<unsigned, MontPath>> {
 protected:
  void TearDown() override { select_mont_path_automatically(); }
};

TEST_P(PrivateBlock, NoSecretBranchOrAddressAndOpenSslNumbers) {
  auto [bits, path] = GetParam();
  if (!select_mont_path(path)) GTEST_SKIP() << "path not run here";
  const RSA_PRIVATE_KEY& key = key_of(bits);
  const EvpKey openssl = pkey_of(key);
  for (const Bytes& input : edge_inputs(key)) {
    SCOPED_TRACE(to_hex(input));
    RSA_PRIVATE_KEY k = key;
    Bytes c = input, out(128);
    u32 len = 0;
    constexpr std::size_t kSecret = offsetof(RSA_PRIVATE_KEY, exponent);
    VALGRIND_MAKE_MEM_UNDEFINED(reinterpret_cast<char*>(&k) + kSecret, sizeof k - kSecret);
    VALGRIND_MAKE_MEM_UNDEFINED(c.data(), c.size());
    unsigned before = VALGRIND_COUNT_ERRORS;
    u32 status = RSA_Private_Block(out.data(), &len, c.data(), c.size(), &k);
    unsigned errors = VALGRIND_COUNT_ERRORS - before;
    bool reached = undefined(out.data(), len);
    VALGRIND_MAKE_MEM_DEFINED(out.data(), out.size());
    EXPECT_EQ(errors, 0u) << "a branch or address depends on the key or the input";
    EXPECT_TRUE(reached || !RUNNING_ON_VALGRIND) << "the marked secrets never reached m";
    ASSERT_EQ(status, 0u);
    out.resize(len);
    EXPECT_EQ(to_hex(out), to_hex(openssl_sign_block(openssl.get(), input, RSA_NO_PADDING)));
  }
}

INSTANTIATE_TEST_SUITE_P(KeysAndPaths, PrivateBlock,
                         testing::Combine(testing::Values(508u, 768u, 1024u),
                                          testing::Values(MontPath::portable, MontPath::mulx_adx,
                                                          MontPath::avx512_ifma)));

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
