// SPDX-License-Identifier: BSD-3-Clause
// The three random n x n operands (A, B, C) a multiply benchmark case uses,
// filled by the same seeded generators as the tests.
#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "bench/support/gemm_ref.h"
#include "bench/support/zgemm_ref.h"

namespace zml::bench {

template <class T>
struct SquareOperands {
  std::vector<T> a, b, c;
  explicit SquareOperands(int n) : a(static_cast<size_t>(n) * n), b(a.size()), c(a.size()) {
    fill(a, 1u);
    fill(b, 2u);
    fill(c, 3u);
  }

 private:
  static void fill(std::vector<T>& v, uint32_t seed) {
    if constexpr (std::is_same_v<T, double>) {
      zml::test::fill_random(v, seed);
    } else {
      zml::test::zfill_random(v, seed);
    }
  }
};

}  // namespace zml::bench
