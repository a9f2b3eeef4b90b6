// SPDX-License-Identifier: BSD-3-Clause
// The three random n x n operands (A, B, C) a multiply benchmark case uses,
// filled from fixed seeds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "bench/support/random_fill.h"

namespace zml::bench {

template <class T>
struct SquareOperands {
  std::vector<T> a, b, c;
  explicit SquareOperands(int n) : a(static_cast<size_t>(n) * n), b(a.size()), c(a.size()) {
    fill_random(a, 1u);
    fill_random(b, 2u);
    fill_random(c, 3u);
  }
};

}  // namespace zml::bench
