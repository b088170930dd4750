// Allocation-failure injection for tests. Test binaries link with --wrap=malloc, so
// every malloc of the library passes through here.
#pragma once

namespace hylorn_test {

// While it lives, the n-th malloc call from its construction on (1-based) returns null;
// all others succeed.
class FailNthMalloc {
 public:
  explicit FailNthMalloc(int n);
  ~FailNthMalloc();
  FailNthMalloc(const FailNthMalloc&) = delete;
  FailNthMalloc& operator=(const FailNthMalloc&) = delete;
  bool fired() const;
};

}  // namespace hylorn_test
