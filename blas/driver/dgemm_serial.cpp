// SPDX-License-Identifier: BSD-3-Clause
// Single-thread dgemm: quick returns, then the small path or the blocked
// multiply (nc -> kc -> mc -> micro-tiles) around the code path's kernels.
#include "blas/driver/dgemm_serial.h"

#include "blas/blas.h"
#include "blas/driver/gemm_blocked.h"

namespace zml::blas {

using gemm_blocked::RealElem;

const dgemm_variant& dgemm_active_variant() { return kDgemmTable.get(); }

void dgemm_scale_c(int64_t m, int64_t n, double beta, double* c, int64_t ldc) {
  if (beta == 1.0) return;
  for (int64_t j = 0; j < n; ++j) {
    double* cj = c + j * ldc;
    if (beta == 0.0) {
      for (int64_t i = 0; i < m; ++i) cj[i] = 0.0;
    } else {
      for (int64_t i = 0; i < m; ++i) cj[i] *= beta;
    }
  }
}

void dgemm_blocked(const dgemm_variant& row, bool trans_a, bool trans_b, int64_t m, int64_t n,
                   int64_t k, double alpha, const double* a, int64_t lda, const double* b,
                   int64_t ldb, double beta, double* c, int64_t ldc) {
  gemm_blocked::run<RealElem>(row, trans_a, trans_b, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

void dgemm_blocked_on_stack(const dgemm_variant& row, bool trans_a, bool trans_b, int64_t m,
                            int64_t n, int64_t k, double alpha, const double* a, int64_t lda,
                            const double* b, int64_t ldb, double beta, double* c, int64_t ldc) {
  gemm_blocked::on_stack<RealElem>(row, trans_a, trans_b, m, n, k, alpha, a, lda, b, ldb, beta, c,
                                   ldc);
}

void zml_blas_dgemm_serial(const char* transa, const char* transb, const int32_t* m,
                           const int32_t* n, const int32_t* k, const double* alpha, const double* a,
                           const int32_t* lda, const double* b, const int32_t* ldb,
                           const double* beta, double* c, const int32_t* ldc) {
  dgemm_serial_run(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

}  // namespace zml::blas
