// SPDX-License-Identifier: BSD-3-Clause
// Seeded random complex operands for matrix multiply benches (the tests'
// oracle and data are in tests/blas/gemm_check.h and tests/support/blas_ref.h).
#pragma once

#include <cmath>
#include <complex>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace zml::test {

using zc = std::complex<double>;

// Both parts uniform in [-1, 1) from a fixed seed.
inline void zfill_random(std::vector<zc>& v, uint32_t seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> dist(-1.0, 1.0);
  for (zc& x : v) {
    const double re = dist(gen);
    x = zc(re, dist(gen));
  }
}

}  // namespace zml::test
