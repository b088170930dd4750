#include "support/alloc_failure.h"

#include <gtest/gtest.h>

#include "frame/error.h"
#include "support/fail_malloc.h"

namespace hylorn_test {

void expect_each_malloc_failure(const std::function<unsigned()>& call,
                                const std::vector<Entries>& expected, unsigned fail_result) {
  for (std::size_t n = 1;; ++n) {
    hylorn::Crypt_Clear_Err();
    hylorn::Crypt_Put_Err(kEarlierEntry.func_no, kEarlierEntry.err_no, kEarlierEntry.msg.c_str());
    unsigned result;
    bool fired;
    {
      FailNthMalloc fail{static_cast<int>(n)};
      result = call();
      fired = fail.fired();
    }
    if (!fired) {
      EXPECT_EQ(result, 0u);
      EXPECT_EQ(n - 1, expected.size()) << "number of allocations";
      return;
    }
    ASSERT_LE(n, expected.size()) << "number of allocations";
    EXPECT_EQ(result, fail_result) << "malloc " << n;
    EXPECT_EQ(read_errors(), expected[n - 1]) << "malloc " << n;
  }
}

}  // namespace hylorn_test
