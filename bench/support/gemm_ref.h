// SPDX-License-Identifier: BSD-3-Clause
// Seeded random operands for matrix multiply benches (the tests' oracle and
// data are in tests/blas/gemm_check.h and tests/support/blas_ref.h).
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

namespace zml::test {

// Fills v with uniform values in [-1, 1) from a fixed seed.
inline void fill_random(std::vector<double>& v, uint32_t seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> dist(-1.0, 1.0);
  for (double& x : v) x = dist(gen);
}

}  // namespace zml::test
