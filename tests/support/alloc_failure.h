// Allocation-failure loops over a whole call, on top of FailNthMalloc.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "support/error_list.h"
#include "support/fail_malloc.h"

namespace hylorn_test {

// The entry every run starts from: a function that empties the list on entry drops it,
// a record operation that appends to its caller's list keeps it in front.
inline const ErrEntry kEarlierEntry{1, 1, "left by an earlier call"};

// Runs call with its 1st, 2nd, ... malloc failing. Run n must answer fail_result with
// expected[n - 1] as the error list; the first run in which nothing fails must answer 0
// after exactly expected.size() allocations. call frees whatever it got.
inline void expect_each_malloc_failure(const std::function<unsigned()>& call,
                                       const std::vector<Entries>& expected,
                                       unsigned fail_result = 1) {
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
