// SPDX-License-Identifier: BSD-3-Clause
// Shared by the gemm tests: a naive multiply in long double for real and
// complex data, column- or row-major, the comparison of a computed C with it
// (elements within a rounding bound, everything else bitwise equal), and one
// product's operands placed inside larger arrays (tests/support/blas_ref.h).
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "tests/support/blas_ref.h"

namespace zml::test {

// The textbook product, without the library's checks for infinite parts
// (which make the naive loop several times slower).
template <class W>
W plain_mul(W x, W y) {
  if constexpr (is_complex<W>::value) {
    return W(x.real() * y.real() - x.imag() * y.imag(), x.real() * y.imag() + x.imag() * y.real());
  } else {
    return x * y;
  }
}

// |re| + |im| (|x| for real data): bounds the modulus within a factor of
// sqrt(2) and costs no square root in the inner loop.
template <class W>
long double abs1(W x) {
  if constexpr (is_complex<W>::value) {
    return std::fabs(x.real()) + std::fabs(x.imag());
  } else {
    return std::fabs(x);
  }
}

// c := alpha*op(A)*op(B) + beta*c in place for the m x n block at c (trans
// letters 'N', 'T', 'C'); alpha = 0 reads neither A nor B and beta = 0 ignores
// C. scale receives, per element of the block, the magnitude its error is
// measured against.
template <class T>
void naive_gemm(bool row_major, char ta, char tb, int64_t m, int64_t n, int64_t k, T alpha,
                const T* a, int64_t lda, const T* b, int64_t ldb, T beta, T* c, int64_t ldc,
                std::vector<double>* scale) {
  scale->assign(static_cast<size_t>(m * n), 0.0);
  auto op = [&](const T* x, int64_t ld, char t, int64_t i, int64_t j) {
    const T v = t == 'N' ? x[at(row_major, ld, i, j)] : x[at(row_major, ld, j, i)];
    return conj_if(widen(v), t == 'C');
  };
  for (int64_t j = 0; j < n; ++j) {
    for (int64_t i = 0; i < m; ++i) {
      wide_t<T> s = 0;
      long double mag = 0;
      if (alpha != T(0)) {
        for (int64_t p = 0; p < k; ++p) {
          const wide_t<T> t = plain_mul(op(a, lda, ta, i, p), op(b, ldb, tb, p, j));
          s += t;
          mag += abs1(t);
        }
      }
      T& ci = c[at(row_major, ldc, i, j)];
      const wide_t<T> old = beta == T(0) ? wide_t<T>(0) : widen(beta) * widen(ci);
      ci = narrow<T>(widen(alpha) * s + old);
      (*scale)[static_cast<size_t>(i + j * m)] =
          static_cast<double>(std::abs(widen(alpha)) * mag + std::abs(old)) + 1e-300;
    }
  }
}

// Whether got matches want: the m x n block starting at element c0 within
// the rounding bound of a k-term sum, everything else bitwise equal. `what`
// names the case on failure.
template <class T>
::testing::AssertionResult same_c(bool row_major, int64_t m, int64_t n, int64_t k,
                                  const std::vector<T>& got, const std::vector<T>& want, size_t c0,
                                  int64_t ldc, const std::vector<double>& scale,
                                  const std::string& what) {
  std::vector<bool> in_block(got.size(), false);
  const double tol = sum_tolerance(k) * 4;
  for (int64_t j = 0; j < n; ++j) {
    for (int64_t i = 0; i < m; ++i) {
      const size_t ci = c0 + at(row_major, ldc, i, j);
      in_block[ci] = true;
      const double err = std::abs(got[ci] - want[ci]) / scale[static_cast<size_t>(i + j * m)];
      if (!(err <= tol)) {
        return ::testing::AssertionFailure() << what << ": element (" << i << ", " << j
                                             << ") off by " << err << " (bound " << tol << ")";
      }
    }
  }
  for (size_t p = 0; p < got.size(); ++p) {
    if (!in_block[p] && std::memcmp(&got[p], &want[p], sizeof(T)) != 0) {
      return ::testing::AssertionFailure() << what << ": element " << p << " outside C changed";
    }
  }
  return ::testing::AssertionSuccess();
}

// One product C := alpha*op(A)*op(B) + beta*C on seeded random data. Each
// operand lies inside a larger array: a spare line before and after it and,
// when pad > 0, a spare element before it in every line, so each check also
// shows that nothing around C moves (the threaded drivers multiply such
// sub-blocks in place). The leading dimensions are the stored line length
// plus pad (plus 1 for B and 2 for C when pad > 0, so that a mix-up shows).
// With beta = 0 the block of C holds NaN, which must not come through.
template <class T>
struct GemmCase {
  bool row_major;
  char ta, tb;
  int32_t m, n, k, lda, ldb, ldc;
  T alpha, beta;
  std::vector<T> a, b, c, want;
  size_t a0, b0, c0;  // first element of each operand
  std::vector<double> scale;

  GemmCase(bool row_major_, char ta_, char tb_, int32_t m_, int32_t n_, int32_t k_, T alpha_,
           T beta_, int32_t pad, uint64_t seed)
      : row_major(row_major_), ta(ta_), tb(tb_), m(m_), n(n_), k(k_), alpha(alpha_), beta(beta_) {
    const int32_t extra = pad > 0 ? 1 : 0;
    a0 = place_operand(row_major, ta == 'N' ? m : k, ta == 'N' ? k : m, pad, seed, &lda, &a);
    b0 = place_operand(row_major, tb == 'N' ? k : n, tb == 'N' ? n : k, pad + extra, seed + 1, &ldb,
                       &b);
    c0 = place_operand(row_major, m, n, pad + 2 * extra, seed + 2, &ldc, &c);
    if (beta == T(0)) {
      for (int32_t j = 0; j < n; ++j) {
        for (int32_t i = 0; i < m; ++i) {
          c[c0 + at(row_major, ldc, i, j)] = nan_value<T>();
        }
      }
    }
    want = c;
    naive_gemm<T>(row_major, ta, tb, m, n, k, alpha, pa(), lda, pb(), ldb, beta, want.data() + c0,
                  ldc, &scale);
  }
  const T* pa() const { return a.data() + a0; }
  const T* pb() const { return b.data() + b0; }
  T* pc() { return c.data() + c0; }
  // The letters as C strings, for the character entries.
  std::string sa() const { return std::string(1, ta); }
  std::string sb() const { return std::string(1, tb); }

  ::testing::AssertionResult matches(const std::string& what) const {
    return same_c(row_major, m, n, k, c, want, c0, ldc, scale,
                  what + (row_major ? " row " : " col ") + ta + tb + " " + std::to_string(m) + "x" +
                      std::to_string(n) + "x" + std::to_string(k));
  }
};

}  // namespace zml::test
