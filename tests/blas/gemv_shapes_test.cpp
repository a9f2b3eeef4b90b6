// SPDX-License-Identifier: BSD-3-Clause
// cblas_dgemv and cblas_zgemv against a naive long double loop: both layouts,
// every transpose, odd and degenerate sizes, negative and wide increments,
// lda above its minimum, and the beta = 0 / alpha = 0 rules.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <vector>

#include "tests/support/blas_ref.h"
#include "zml_cblas.h"

namespace {

using zml::test::gaps_equal;
using zml::test::max_scaled_error;
using zml::test::random_vector;
using zml::test::ref_gemv;
using zml::test::sum_tolerance;
using zml::test::vec_storage;
using zcomplex = std::complex<double>;

struct Case {
  CBLAS_LAYOUT layout;
  CBLAS_TRANSPOSE trans;
  int m, n, lda_extra, incx, incy;
};

char trans_letter(CBLAS_TRANSPOSE t) {
  return t == CblasNoTrans ? 'N' : t == CblasTrans ? 'T' : 'C';
}

void call(const Case& c, double alpha, const double* a, int lda, const double* x, double beta,
          double* y) {
  cblas_dgemv(c.layout, c.trans, c.m, c.n, alpha, a, lda, x, c.incx, beta, y, c.incy);
}
void call(const Case& c, zcomplex alpha, const zcomplex* a, int lda, const zcomplex* x,
          zcomplex beta, zcomplex* y) {
  cblas_zgemv(c.layout, c.trans, c.m, c.n, &alpha, a, lda, x, c.incx, &beta, y, c.incy);
}

// Runs one case against the oracle; returns the scaled error (or +inf when a
// gap of a strided y was touched).
template <class T>
double run_case(const Case& c, T alpha, T beta, uint64_t seed) {
  const bool row = c.layout == CblasRowMajor;
  const int lda = (row ? std::max(1, c.n) : std::max(1, c.m)) + c.lda_extra;
  const int stored_cols = row ? c.m : c.n;
  const bool tr = c.trans != CblasNoTrans;
  const int lenx = tr ? c.m : c.n, leny = tr ? c.n : c.m;
  auto a = random_vector<T>(static_cast<size_t>(lda) * std::max(1, stored_cols), seed);
  auto x = random_vector<T>(vec_storage(lenx, c.incx), seed + 1);
  auto y = random_vector<T>(vec_storage(leny, c.incy), seed + 2);
  auto want = y;
  auto A = [&](int i, int j) { return row ? a[i * size_t(lda) + j] : a[i + j * size_t(lda)]; };
  std::vector<double> scale;
  ref_gemv(trans_letter(c.trans), c.m, c.n, alpha, A, x.data(), c.incx, beta, want.data(), c.incy,
           &scale);
  call(c, alpha, a.data(), lda, x.data(), beta, y.data());
  if (!gaps_equal(y, want, leny, c.incy)) return std::numeric_limits<double>::infinity();
  return max_scaled_error(y.data(), want.data(), leny, c.incy, &scale);
}

template <class T>
void sweep(T alpha, T beta) {
  const int sizes[] = {1, 2, 7, 63, 64, 65, 1000};
  const CBLAS_TRANSPOSE transes[] = {CblasNoTrans, CblasTrans, CblasConjTrans};
  uint64_t seed = 100;
  for (CBLAS_LAYOUT layout : {CblasColMajor, CblasRowMajor}) {
    for (CBLAS_TRANSPOSE t : transes) {
      for (int m : sizes) {
        for (int n : sizes) {
          if (m * static_cast<int64_t>(n) > 200000) continue;
          for (auto [incx, incy] : {std::pair{1, 1}, std::pair{2, -1}, std::pair{-3, 2}}) {
            const Case c{layout, t, m, n, (m + n) % 3, incx, incy};
            const double err = run_case(c, alpha, beta, ++seed);
            ASSERT_LE(err, sum_tolerance(std::max(m, n)))
                << "layout " << layout << " trans " << t << " m " << m << " n " << n << " incx "
                << incx << " incy " << incy << " seed " << seed;
          }
        }
      }
    }
  }
}

TEST(GemvShapes, RealAllLayoutsTransposesSizes) { sweep<double>(1.5, -0.75); }
TEST(GemvShapes, ComplexAllLayoutsTransposesSizes) {
  sweep<zcomplex>(zcomplex(0.5, -1.25), zcomplex(-0.5, 0.25));
}
TEST(GemvShapes, ComplexAlphaOneBetaOne) { sweep<zcomplex>(zcomplex(1, 0), zcomplex(1, 0)); }

TEST(GemvShapes, BetaZeroOverwritesNaN) {
  for (CBLAS_TRANSPOSE t : {CblasNoTrans, CblasTrans}) {
    const int m = 37, n = 29;
    auto a = random_vector<double>(m * n, 7);
    auto x = random_vector<double>(std::max(m, n), 8);
    std::vector<double> y(std::max(m, n), std::numeric_limits<double>::quiet_NaN());
    cblas_dgemv(CblasColMajor, t, m, n, 1.0, a.data(), m, x.data(), 1, 0.0, y.data(), 1);
    const int leny = t == CblasNoTrans ? m : n;
    for (int i = 0; i < leny; ++i) EXPECT_FALSE(std::isnan(y[i])) << i;

    std::vector<zcomplex> zy(std::max(m, n), zcomplex(NAN, NAN));
    auto za = random_vector<zcomplex>(m * n, 9);
    auto zx = random_vector<zcomplex>(std::max(m, n), 10);
    const zcomplex one(1, 0), zero(0, 0);
    cblas_zgemv(CblasColMajor, t, m, n, &one, za.data(), m, zx.data(), 1, &zero, zy.data(), 1);
    for (int i = 0; i < leny; ++i) EXPECT_FALSE(std::isnan(zy[i].real())) << i;
  }
}

TEST(GemvShapes, AlphaZeroOnlyScalesY) {
  const int m = 70, n = 9;
  std::vector<double> a(m * n, std::numeric_limits<double>::quiet_NaN());
  auto x = random_vector<double>(n, 3);
  auto y = random_vector<double>(m, 4);
  auto want = y;
  for (double& v : want) v *= 2.0;
  cblas_dgemv(CblasColMajor, CblasNoTrans, m, n, 0.0, a.data(), m, x.data(), 1, 2.0, y.data(), 1);
  EXPECT_EQ(y, want);
}

TEST(GemvShapes, EmptyProductLeavesYUnscaled) {
  auto y = random_vector<double>(8, 5);
  const auto before = y;
  const double a[1] = {1.0}, x[8] = {};
  cblas_dgemv(CblasColMajor, CblasNoTrans, 8, 0, 1.0, a, 8, x, 1, 3.0, y.data(), 1);
  EXPECT_EQ(y, before);
  cblas_dgemv(CblasColMajor, CblasTrans, 0, 8, 1.0, a, 1, x, 1, 3.0, y.data(), 1);
  EXPECT_EQ(y, before);
  auto zy = random_vector<zcomplex>(8, 6);
  const auto zbefore = zy;
  const zcomplex za[1] = {}, zx[8] = {}, alpha(1, 0), beta(2, 1);
  cblas_zgemv(CblasRowMajor, CblasConjTrans, 0, 8, &alpha, za, 8, zx, 1, &beta, zy.data(), 1);
  EXPECT_EQ(zy, zbefore);
}

}  // namespace
