// SPDX-License-Identifier: BSD-3-Clause
// cblas_dgemm and cblas_zgemm through the CBLAS layer's mappings: both
// layouts and every transpose pair against a naive long double loop, and the
// layer's reports (with nothing computed) for the documented bad calls.
#include <gtest/gtest.h>

#include <complex>
#include <string>
#include <vector>

#include "tests/blas/gemm_check.h"
#include "tests/support/child.h"
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

std::string report(int p, const char* name) {
  return "\nArvel ZML ERROR: Parameter " + std::to_string(p) + " was incorrect on entry to " +
         name + ".\n";
}

TEST(CblasLayout, GemmReportsTouchNothing) {
  std::vector<double> a(16, 1.0), b(16, 1.0), c(16, 3.0);
  // Layout 0 and transa 0: parameter 2, not 1.
  std::string out = zml::test::capture_stdout([&] {
    cblas_dgemm(static_cast<CBLAS_LAYOUT>(0), static_cast<CBLAS_TRANSPOSE>(0), CblasNoTrans, 2, 2,
                2, 1.0, a.data(), 2, b.data(), 2, 0.0, c.data(), 2);
  });
  EXPECT_EQ(out, report(2, "cblas_dgemm"));
  // Row-major m 3, k 5, transa 111, lda 4: parameter 9; lda 5 passes.
  out = zml::test::capture_stdout([&] {
    cblas_dgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, 3, 1, 5, 1.0, a.data(), 4, b.data(), 1,
                0.0, c.data(), 1);
  });
  EXPECT_EQ(out, report(9, "cblas_dgemm"));
  // Column-major m 0, lda 0: parameter 9.
  const double z[2] = {1, 0};
  out = zml::test::capture_stdout([&] {
    cblas_zgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, 0, 2, 2, z, a.data(), 0, b.data(), 2, z,
                c.data(), 1);
  });
  EXPECT_EQ(out, report(9, "cblas_zgemm"));
  EXPECT_EQ(c, std::vector<double>(16, 3.0));
}

}  // namespace
