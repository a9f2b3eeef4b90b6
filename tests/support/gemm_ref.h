// SPDX-License-Identifier: BSD-3-Clause
// Oracle for matrix multiply tests: a naive long-double loop that also returns
// the magnitude each element's rounding error is measured against, and seeded
// random fill.
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

// Column-major element access with optional transposition.
inline double op_at(const double* x, int64_t ld, bool trans, int64_t r, int64_t c) {
  return trans ? x[c + r * ld] : x[r + c * ld];
}

struct GemmRef {
  std::vector<double> c;    // expected C (m x n, leading dimension m)
  std::vector<double> mag;  // |alpha| sum |a||b| + |beta c|, per element
};

// C := alpha*op(A)*op(B) + beta*C in long double; beta == 0 ignores C.
inline GemmRef gemm_ref(bool ta, bool tb, int64_t m, int64_t n, int64_t k, double alpha,
                        const double* a, int64_t lda, const double* b, int64_t ldb, double beta,
                        const double* c, int64_t ldc) {
  GemmRef r;
  r.c.assign(static_cast<size_t>(m * n), 0.0);
  r.mag.assign(static_cast<size_t>(m * n), 0.0);
  for (int64_t j = 0; j < n; ++j) {
    for (int64_t i = 0; i < m; ++i) {
      long double s = 0, g = 0;
      if (alpha != 0.0) {
        for (int64_t p = 0; p < k; ++p) {
          const long double x = op_at(a, lda, ta, i, p), y = op_at(b, ldb, tb, p, j);
          s += x * y;
          g += std::fabs(x * y);
        }
      }
      long double v = static_cast<long double>(alpha) * s;
      long double mg = std::fabs(static_cast<long double>(alpha)) * g;
      if (beta != 0.0) {
        v += static_cast<long double>(beta) * c[i + j * ldc];
        mg += std::fabs(static_cast<long double>(beta) * c[i + j * ldc]);
      }
      r.c[static_cast<size_t>(i + j * m)] = static_cast<double>(v);
      r.mag[static_cast<size_t>(i + j * m)] = static_cast<double>(mg);
    }
  }
  return r;
}

// Rounding bound for an element accumulated over k products (with FMA or not),
// plus the alpha and beta steps.
inline double gemm_tolerance(int64_t k, double mag) {
  return 2.0 * static_cast<double>(k + 3) * std::numeric_limits<double>::epsilon() * mag +
         std::numeric_limits<double>::min();
}

}  // namespace zml::test
