// Every exported function that allocates, run with its 1st, 2nd, ... allocation failing
// until a run allocates no more: each failed run answers the function's own failure result,
// names the allocation failure in the error list where the function reports through it,
// and leaves nothing allocated (the sanitizer build checks that) and nothing half-built.
//
// Measured to allocate nothing, so not listed: Crypt_Get_Err, Crypt_Get_Soft_Version,
// Crypt_InitEnvironment, Crypt_ClearEnvironment, Crypt_GetBMPTable, Crypt_Char2Int,
// Crypt_Int2Char, Crypt_Gen_Hash, Crypt_Gen_Encoded_Hash, Crypt_Gen_RandomBytes,
// Crypt_Enc_Data_S, Crypt_Dec_Data_S and Crypt_Gen_Ie_Cert_Chain (a row for any of them
// fails). The CRL calls run as whole sessions.
#include <gtest/gtest.h>

#include <algorithm>

#include "api_fixtures.h"
#include "support/fail_malloc.h"

namespace hardening_test {

void PrintTo(const Call& row, std::ostream* os) {
  *os << row.name;
}

namespace {

Service& in() {
  static Service service;
  return service;
}

class AllocSweep : public testing::TestWithParam<Call> {};

TEST_P(AllocSweep, EveryFailedAllocationFailsTheCallCleanly) {
  const Call& row = GetParam();
  ASSERT_FALSE(in().cert.empty());  // made before any allocation fails
  for (int n = 1;; ++n) {
    ASSERT_LT(n, 100000) << "never ran without a failed allocation";
    clear_errors();
    long result;
    bool fired;
    {
      FailNthMalloc fail{n};
      result = row.call(in());
      fired = fail.fired();
    }
    const std::string list = error_text();
    if (!fired) {
      EXPECT_EQ(result, 0) << list;
      EXPECT_GT(n, 1) << "allocates nothing: the row is not needed";
      return;
    }
    EXPECT_NE(std::find(row.failed.begin(), row.failed.end(), result), row.failed.end())
        << "answered " << result << " with malloc " << n << " failing";
    const bool named = list.find("malloc") != list.npos || list.find("memory") != list.npos;
    EXPECT_TRUE(row.report != kNamed || named) << "malloc " << n << ":\n" << list;
    EXPECT_TRUE(row.report != kEmpty || list.empty()) << "malloc " << n << ":\n" << list;
  }
}

INSTANTIATE_TEST_SUITE_P(Api, AllocSweep, testing::ValuesIn(kCalls),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace hardening_test
