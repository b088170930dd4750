// Runs arithmetic tests on every Montgomery path this CPU has.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "crypto/mont.h"

namespace hylorn_test {

inline std::vector<hylorn::MontPath> mont_paths() {
  std::vector<hylorn::MontPath> paths{hylorn::MontPath::portable};
  if (hylorn::mont_path_available(hylorn::MontPath::mulx_adx))
    paths.push_back(hylorn::MontPath::mulx_adx);
  return paths;
}

inline const char* name_of(hylorn::MontPath p) {
  return p == hylorn::MontPath::portable ? "portable" : "mulx_adx";
}

class MontPathScope {
 public:
  explicit MontPathScope(hylorn::MontPath p) { EXPECT_TRUE(hylorn::select_mont_path(p)); }
  ~MontPathScope() { hylorn::select_mont_path_automatically(); }
  MontPathScope(const MontPathScope&) = delete;
  MontPathScope& operator=(const MontPathScope&) = delete;
};

}  // namespace hylorn_test
