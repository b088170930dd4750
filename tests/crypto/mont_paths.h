// Runs arithmetic tests on every Montgomery path this CPU has.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "crypto/mont.h"

namespace hylorn_test {

inline std::vector<hylorn::MontPath> mont_paths() {
  std::vector<hylorn::MontPath> paths;
  for (hylorn::MontPath p : {hylorn::MontPath::portable, hylorn::MontPath::mulx_adx,
                             hylorn::MontPath::avx512_ifma})
    if (hylorn::mont_path_available(p)) paths.push_back(p);
  return paths;
}

inline const char* name_of(hylorn::MontPath p) {
  switch (p) {
    case hylorn::MontPath::portable: return "portable";
    case hylorn::MontPath::mulx_adx: return "mulx_adx";
    default: return "avx512_ifma";
  }
}

class MontPathScope {
 public:
  explicit MontPathScope(hylorn::MontPath p) { EXPECT_TRUE(hylorn::select_mont_path(p)); }
  ~MontPathScope() { hylorn::select_mont_path_automatically(); }
  MontPathScope(const MontPathScope&) = delete;
  MontPathScope& operator=(const MontPathScope&) = delete;
};

}  // namespace hylorn_test
