// Reproducible random test data.
#pragma once

#include <cstddef>
#include <random>

#include "support/hex.h"

namespace hylorn_test {

inline Bytes random_bytes(std::mt19937& rng, std::size_t n) {
  Bytes b(n);
  for (auto& x : b) x = static_cast<unsigned char>(rng());
  return b;
}

}  // namespace hylorn_test
