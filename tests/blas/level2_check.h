// SPDX-License-Identifier: BSD-3-Clause
// Shared by the gemv, trsv and scaling tests: strided vectors inside larger
// arrays, the comparison of a computed vector with the expected one (logical
// elements within a rounding bound, everything else bitwise equal), one gemv
// and one triangular solve on seeded random data with the long double answer
// beside it, and the CBLAS call for each.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/blas_ref.h"
#include "zml_cblas.h"

namespace zml::test {

// A vector of n elements with increment inc inside a larger array: a spare
// element on each side of its storage, so a write past either end shows.
template <class T>
struct StridedVec {
  int64_t n;
  int inc;
  std::vector<T> v;

  StridedVec(int64_t n_, int inc_, uint64_t seed)
      : n(n_), inc(inc_), v(random_vector<T>(vec_storage(n_, inc_) + 2, seed)) {}
  T* p() { return v.data() + 1; }
  const T* p() const { return v.data() + 1; }
  T& operator[](int64_t i) { return p()[vec_index(i, n, inc)]; }
};

// Whether got matches want: each logical element bitwise equal or within tol,
// measured against its scale (max(1, |want|) without one); every other stored
// element bitwise equal. `what` names the case on failure.
template <class T>
::testing::AssertionResult same_vec(const StridedVec<T>& got, const StridedVec<T>& want, double tol,
                                    const std::vector<double>* scale, const std::string& what) {
  std::vector<bool> logical(got.v.size(), false);
  for (int64_t i = 0; i < got.n; ++i) {
    const size_t p = 1 + vec_index(i, got.n, got.inc);
    logical[p] = true;
    if (std::memcmp(&got.v[p], &want.v[p], sizeof(T)) == 0) continue;
    const double s = scale ? (*scale)[static_cast<size_t>(i)]
                           : std::max(1.0, static_cast<double>(std::abs(want.v[p])));
    const double err = std::abs(got.v[p] - want.v[p]) / s;
    if (!(err <= tol)) {
      return ::testing::AssertionFailure()
             << what << ": element " << i << " off by " << err << " (bound " << tol << ")";
    }
  }
  for (size_t p = 0; p < got.v.size(); ++p) {
    if (!logical[p] && std::memcmp(&got.v[p], &want.v[p], sizeof(T)) != 0) {
      return ::testing::AssertionFailure() << what << ": stored element " << p << " changed";
    }
  }
  return ::testing::AssertionSuccess();
}

// One y := alpha*op(A)*x + beta*y on seeded random data, trans 'N', 'T' or
// 'C'. A is placed as place_operand does (lda = line length + pad), x and y
// are strided vectors. beta = 0 puts NaN in y and alpha = 0 NaN in A, neither
// of which may come through.
template <class T>
struct GemvCase {
  bool row_major;
  char trans;
  int32_t m, n, lda;
  T alpha, beta;
  std::vector<T> a;
  size_t a0;
  StridedVec<T> x, y, want;
  std::vector<double> scale;

  GemvCase(bool row_major_, char trans_, int32_t m_, int32_t n_, T alpha_, T beta_, int32_t pad,
           int incx, int incy, uint64_t seed)
      : row_major(row_major_),
        trans(trans_),
        m(m_),
        n(n_),
        alpha(alpha_),
        beta(beta_),
        x(trans_ == 'N' ? n_ : m_, incx, seed + 1),
        y(trans_ == 'N' ? m_ : n_, incy, seed + 2),
        want(y) {
    a0 = place_operand(row_major, m, n, pad, seed, &lda, &a);
    auto A = [&](int i, int j) -> T& { return a[a0 + at(row_major, lda, i, j)]; };
    for (int j = 0; alpha == T(0) && j < n; ++j) {
      for (int i = 0; i < m; ++i) A(i, j) = nan_value<T>();
    }
    for (int64_t i = 0; beta == T(0) && i < y.n; ++i) y[i] = nan_value<T>();
    want = y;
    ref_gemv(trans, m, n, alpha, A, x.p(), incx, beta, want.p(), incy, &scale);
  }
  const T* pa() const { return a.data() + a0; }

  ::testing::AssertionResult matches(const std::string& what) const {
    return same_vec(y, want, sum_tolerance(m + n), &scale,
                    what + (row_major ? " row " : " col ") + trans + " " + std::to_string(m) + "x" +
                        std::to_string(n) + " incx " + std::to_string(x.inc) + " incy " +
                        std::to_string(y.inc));
  }
};

// One solve of op(A) x = b on seeded random data. Only the referenced
// triangle holds numbers: entries of size 1/n off the diagonal and near 2 on
// it keep every solve well conditioned, so the long double answer is a fair
// oracle. The other triangle, the spare elements around A and a unit diagonal
// hold NaN, so reading any of them shows.
template <class T>
struct TrsvCase {
  bool row_major, upper;
  char trans;
  bool unit;
  int32_t n, lda;
  std::vector<T> a;
  size_t a0;
  StridedVec<T> x, want;

  TrsvCase(bool row_major_, bool upper_, char trans_, bool unit_, int32_t n_, int32_t pad, int inc,
           uint64_t seed)
      : row_major(row_major_),
        upper(upper_),
        trans(trans_),
        unit(unit_),
        n(n_),
        x(n_, inc, seed + 1),
        want(x) {
    a0 = place_operand(row_major, n, n, pad, seed, &lda, &a);
    const std::vector<T> r = a;
    std::fill(a.begin(), a.end(), nan_value<T>());
    for (int j = 0; j < n; ++j) {
      for (int i = 0; i < n; ++i) {
        const size_t p = a0 + at(row_major, lda, i, j);
        if (i == j && !unit) a[p] = r[p] / double(n) + T(2.0);
        if (i != j && (i < j) == upper) a[p] = r[p] / double(n);
      }
    }
    ref_trsv(
        upper, trans, unit, n, [&](int i, int j) { return a[a0 + at(row_major, lda, i, j)]; },
        want.p(), inc);
  }
  const T* pa() const { return a.data() + a0; }

  ::testing::AssertionResult matches(const std::string& what) const {
    return same_vec(x, want, 1e-13, nullptr,
                    what + (row_major ? " row " : " col ") + (upper ? "U" : "L") + trans +
                        (unit ? "U " : "N ") + std::to_string(n) + " inc " + std::to_string(x.inc));
  }
};

inline CBLAS_TRANSPOSE cblas_trans(char t) {
  return t == 'N' ? CblasNoTrans : t == 'T' ? CblasTrans : CblasConjTrans;
}
inline CBLAS_LAYOUT cblas_layout(bool row_major) {
  return row_major ? CblasRowMajor : CblasColMajor;
}

template <class T>
void call_cblas(GemvCase<T>& c) {
  if constexpr (is_complex<T>::value) {
    cblas_zgemv(cblas_layout(c.row_major), cblas_trans(c.trans), c.m, c.n, &c.alpha, c.pa(), c.lda,
                c.x.p(), c.x.inc, &c.beta, c.y.p(), c.y.inc);
  } else {
    cblas_dgemv(cblas_layout(c.row_major), cblas_trans(c.trans), c.m, c.n, c.alpha, c.pa(), c.lda,
                c.x.p(), c.x.inc, c.beta, c.y.p(), c.y.inc);
  }
}

template <class T>
void call_cblas(TrsvCase<T>& c) {
  const CBLAS_UPLO uplo = c.upper ? CblasUpper : CblasLower;
  const CBLAS_DIAG diag = c.unit ? CblasUnit : CblasNonUnit;
  if constexpr (is_complex<T>::value) {
    cblas_ztrsv(cblas_layout(c.row_major), uplo, cblas_trans(c.trans), diag, c.n, c.pa(), c.lda,
                c.x.p(), c.x.inc);
  } else {
    cblas_dtrsv(cblas_layout(c.row_major), uplo, cblas_trans(c.trans), diag, c.n, c.pa(), c.lda,
                c.x.p(), c.x.inc);
  }
}

// The kernels' view of complex data: pairs of doubles (a no-op for real data).
template <class T>
const double* dp(const T* p) {
  return reinterpret_cast<const double*>(p);
}
template <class T>
double* dp(T* p) {
  return reinterpret_cast<double*>(p);
}

}  // namespace zml::test
