// SPDX-License-Identifier: BSD-3-Clause
// cblas_dgemm and cblas_zgemm through the CBLAS layer's mappings: both
// layouts and every transpose pair against a naive long double loop (the
// layer's reports are in cblas_errors_test.cpp).
#include <gtest/gtest.h>

#include <complex>
#include <tuple>

#include "tests/blas/gemm_check.h"
#include "zml_cblas.h"

namespace {

using zcomplex = std::complex<double>;

void gemm(CBLAS_LAYOUT l, CBLAS_TRANSPOSE ta, CBLAS_TRANSPOSE tb, int m, int n, int k, double alpha,
          const double* a, int lda, const double* b, int ldb, double beta, double* c, int ldc) {
  cblas_dgemm(l, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
void gemm(CBLAS_LAYOUT l, CBLAS_TRANSPOSE ta, CBLAS_TRANSPOSE tb, int m, int n, int k,
          zcomplex alpha, const zcomplex* a, int lda, const zcomplex* b, int ldb, zcomplex beta,
          zcomplex* c, int ldc) {
  cblas_zgemm(l, ta, tb, m, n, k, &alpha, a, lda, b, ldb, &beta, c, ldc);
}

char letter(CBLAS_TRANSPOSE t) { return t == CblasNoTrans ? 'N' : t == CblasTrans ? 'T' : 'C'; }

// The degenerate shapes take the driver's gemv and rank-1 routes, whose
// operands the layer's mapping swaps; 33 x 17 x 29 the general one.
template <class T>
void sweep(T alpha, T beta) {
  uint64_t seed = 7000;
  for (CBLAS_LAYOUT layout : {CblasColMajor, CblasRowMajor}) {
    for (CBLAS_TRANSPOSE ta : {CblasNoTrans, CblasTrans, CblasConjTrans}) {
      for (CBLAS_TRANSPOSE tb : {CblasNoTrans, CblasTrans, CblasConjTrans}) {
        for (auto [m, n, k] : {std::tuple{1, 1, 1}, std::tuple{7, 1, 5}, std::tuple{1, 9, 4},
                               std::tuple{6, 5, 1}, std::tuple{33, 17, 29}, std::tuple{3, 4, 0}}) {
          zml::test::GemmCase<T> x(layout == CblasRowMajor, letter(ta), letter(tb), m, n, k, alpha,
                                   beta, 2, seed += 3);
          gemm(layout, ta, tb, m, n, k, alpha, x.pa(), x.lda, x.pb(), x.ldb, beta, x.pc(), x.ldc);
          ASSERT_TRUE(x.matches("cblas"));
        }
      }
    }
  }
}

TEST(CblasLayout, DgemmBothLayoutsEveryTransposePair) { sweep<double>(0.75, -1.5); }
TEST(CblasLayout, ZgemmBothLayoutsEveryTransposePair) {
  sweep<zcomplex>(zcomplex(0.5, 1.0), zcomplex(-0.25, 0.5));
}

}  // namespace
