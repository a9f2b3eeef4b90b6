// SPDX-License-Identifier: BSD-3-Clause
// Shared by the gemm tests: a naive multiply in long double for real and
// complex data, column- or row-major, and the comparison of a computed C with
// it (elements within a rounding bound, untouched padding bitwise equal).
#pragma once

#include <gtest/gtest.h>

#include <complex>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/blas_ref.h"

namespace zml::test {

// Element (i, j) of a matrix stored with leading dimension ld.
inline size_t at(bool row_major, int64_t ld, int64_t i, int64_t j) {
  return static_cast<size_t>(row_major ? i * ld + j : i + j * ld);
}

// Storage of a rows x cols matrix with leading dimension ld (at least 1 element).
inline size_t mat_storage(bool row_major, int64_t rows, int64_t cols, int64_t ld) {
  const int64_t lines = row_major ? rows : cols;
  return static_cast<size_t>(lines > 0 ? lines * ld : 1) + 1;
}

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

// Expected C after C := alpha*op(A)*op(B) + beta*C (trans letters 'N', 'T',
// 'C'); every stored element outside the m x n block keeps its value. scale
// receives, per element of the block, the magnitude its error is measured against.
template <class T>
std::vector<T> naive_gemm(bool row_major, char ta, char tb, int64_t m, int64_t n, int64_t k,
                          T alpha, const T* a, int64_t lda, const T* b, int64_t ldb, T beta,
                          const std::vector<T>& c, int64_t ldc, std::vector<double>* scale) {
  std::vector<T> out = c;
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
      const size_t ci = at(row_major, ldc, i, j);
      const wide_t<T> old = beta == T(0) ? wide_t<T>(0) : widen(beta) * widen(c[ci]);
      out[ci] = narrow<T>(widen(alpha) * s + old);
      (*scale)[static_cast<size_t>(i + j * m)] =
          static_cast<double>(std::abs(widen(alpha)) * mag + std::abs(old)) + 1e-300;
    }
  }
  return out;
}

// Whether got matches want: block elements within the rounding bound of a
// k-term sum, everything else bitwise equal. `what` names the case on failure.
template <class T>
::testing::AssertionResult same_c(bool row_major, int64_t m, int64_t n, int64_t k,
                                  const std::vector<T>& got, const std::vector<T>& want,
                                  int64_t ldc, const std::vector<double>& scale,
                                  const std::string& what) {
  std::vector<bool> in_block(got.size(), false);
  const double tol = sum_tolerance(k) * 4;
  for (int64_t j = 0; j < n; ++j) {
    for (int64_t i = 0; i < m; ++i) {
      const size_t ci = at(row_major, ldc, i, j);
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
      return ::testing::AssertionFailure() << what << ": padding element " << p << " changed";
    }
  }
  return ::testing::AssertionSuccess();
}

}  // namespace zml::test
