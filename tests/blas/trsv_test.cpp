// SPDX-License-Identifier: BSD-3-Clause
// cblas_dtrsv and cblas_ztrsv against long double substitution: both
// layouts, both triangles, every transpose (row-major conjugate transpose
// included), unit and non-unit diagonals, strided and negative increments.
#include <gtest/gtest.h>

#include <complex>
#include <vector>

#include "tests/support/blas_ref.h"
#include "zml_cblas.h"

namespace {

using zml::test::max_scaled_error;
using zml::test::random_vector;
using zml::test::vec_storage;
using zcomplex = std::complex<double>;

// Off-diagonal entries of size 1/n and a diagonal near 2 keep every solve
// well conditioned, so the long double answer is a fair oracle.
template <class T>
std::vector<T> triangle(int n, int lda, uint64_t seed) {
  auto a = random_vector<T>(size_t(lda) * std::max(1, n), seed);
  for (auto& v : a) v *= 1.0 / std::max(1, n);
  for (int i = 0; i < n; ++i) a[i + size_t(i) * lda] += T(2.0);
  return a;
}

void solve(CBLAS_LAYOUT l, CBLAS_UPLO u, CBLAS_TRANSPOSE t, CBLAS_DIAG d, int n, const double* a,
           int lda, double* x, int inc) {
  cblas_dtrsv(l, u, t, d, n, a, lda, x, inc);
}
void solve(CBLAS_LAYOUT l, CBLAS_UPLO u, CBLAS_TRANSPOSE t, CBLAS_DIAG d, int n, const zcomplex* a,
           int lda, zcomplex* x, int inc) {
  cblas_ztrsv(l, u, t, d, n, a, lda, x, inc);
}

template <class T>
void sweep() {
  uint64_t seed = 3000;
  for (CBLAS_LAYOUT layout : {CblasColMajor, CblasRowMajor}) {
    for (CBLAS_UPLO uplo : {CblasUpper, CblasLower}) {
      for (CBLAS_TRANSPOSE trans : {CblasNoTrans, CblasTrans, CblasConjTrans}) {
        for (CBLAS_DIAG diag : {CblasNonUnit, CblasUnit}) {
          for (int n : {0, 1, 2, 7, 63, 64, 65, 200}) {
            for (int inc : {1, 2, -1, -3}) {
              const int lda = std::max(1, n) + 3;
              auto a = triangle<T>(n, lda, ++seed);
              auto x = random_vector<T>(vec_storage(n, inc), seed + 1);
              auto want = x;
              const bool row = layout == CblasRowMajor;
              auto A = [&](int i, int j) {
                return row ? a[size_t(i) * lda + j] : a[i + size_t(j) * lda];
              };
              const char tl = trans == CblasNoTrans ? 'N' : trans == CblasTrans ? 'T' : 'C';
              zml::test::ref_trsv(uplo == CblasUpper, tl, diag == CblasUnit, n, A, want.data(),
                                  inc);
              solve(layout, uplo, trans, diag, n, a.data(), lda, x.data(), inc);
              ASSERT_TRUE(zml::test::gaps_equal(x, want, n, inc));
              ASSERT_LE(max_scaled_error(x.data(), want.data(), n, inc), 1e-13)
                  << "layout " << layout << " uplo " << uplo << " trans " << trans << " diag "
                  << diag << " n " << n << " inc " << inc << " seed " << seed;
            }
          }
        }
      }
    }
  }
}

TEST(Trsv, RealEveryOptionLayoutAndIncrement) { sweep<double>(); }
TEST(Trsv, ComplexEveryOptionLayoutAndIncrement) { sweep<zcomplex>(); }

TEST(Trsv, UnitDiagonalIsNotRead) {
  const int n = 5;
  auto a = triangle<double>(n, n, 1);
  for (int i = 0; i < n; ++i) a[i + size_t(i) * n] = std::numeric_limits<double>::quiet_NaN();
  auto x = random_vector<double>(n, 2);
  cblas_dtrsv(CblasColMajor, CblasLower, CblasNoTrans, CblasUnit, n, a.data(), n, x.data(), 1);
  for (double v : x) EXPECT_FALSE(std::isnan(v));
}

}  // namespace
