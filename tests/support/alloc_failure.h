// Allocation-failure loops over a whole call, on top of FailNthMalloc.
#pragma once

#include <functional>
#include <vector>

#include "support/error_list.h"

namespace hylorn_test {

// The entry every run starts from: a function that empties the list on entry drops it,
// a record operation that appends to its caller's list keeps it in front.
inline const ErrEntry kEarlierEntry{1, 1, "left by an earlier call"};

// Runs call with its 1st, 2nd, ... malloc failing. Run n must answer fail_result with
// expected[n - 1] as the error list; the first run in which nothing fails must answer 0
// after exactly expected.size() allocations. call frees whatever it got.
void expect_each_malloc_failure(const std::function<unsigned()>& call,
                                const std::vector<Entries>& expected, unsigned fail_result = 1);

}  // namespace hylorn_test
