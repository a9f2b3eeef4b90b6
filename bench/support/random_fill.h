// SPDX-License-Identifier: BSD-3-Clause
// Seeded random operands for the benchmarks: every element (both parts of a
// complex one) uniform in [-1, 1), the same values in every run.
#pragma once

#include <complex>
#include <cstdint>
#include <random>
#include <vector>

namespace zml::bench {

inline void fill_random(std::vector<double>& v, uint32_t seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> dist(-1.0, 1.0);
  for (double& x : v) x = dist(gen);
}

inline void fill_random(std::vector<std::complex<double>>& v, uint32_t seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> dist(-1.0, 1.0);
  for (auto& x : v) {
    const double re = dist(gen);
    x = {re, dist(gen)};
  }
}

}  // namespace zml::bench
