// SPDX-License-Identifier: BSD-3-Clause
// Internal pieces of the single-thread dgemm, reachable by tests: the blocked
// multiply and the small-matrix path for a given variant row.
#pragma once

#include <cstdint>

#include "blas/blas.h"
#include "blas/kernels/gemm_kernel.h"

namespace zml::blas {

// The row of this process's code path, picked once.
const dgemm_variant& dgemm_active_variant();

// C := beta*C for an m x n block (beta == 0 writes zeros without reading C).
void dgemm_scale_c(int64_t m, int64_t n, double beta, double* c, int64_t ldc);

// C := alpha*op(A)*op(B) + beta*C with row's kernels, k >= 1, m, n >= 1.
// trans_a / trans_b select op(X) = X^T.
void dgemm_blocked(const dgemm_variant& row, bool trans_a, bool trans_b, int64_t m, int64_t n,
                   int64_t k, double alpha, const double* a, int64_t lda, const double* b,
                   int64_t ldb, double beta, double* c, int64_t ldc);

// The blocked loops with one micro-panel of each operand on the stack: what
// dgemm_blocked falls back on when work memory is refused. Slow but complete.
void dgemm_blocked_on_stack(const dgemm_variant& row, bool trans_a, bool trans_b, int64_t m,
                            int64_t n, int64_t k, double alpha, const double* a, int64_t lda,
                            const double* b, int64_t ldb, double beta, double* c, int64_t ldc);

// The row's direct small kernel on untransposed A: op(B)(p, j) is
// b[p + j*ldb] untransposed and b[j + p*ldb] transposed, and the kernel reads
// B through both strides, so nothing is copied. Inline so that the serial
// entry reaches the kernel without another call in between.
inline void dgemm_small_direct(const dgemm_variant& row, bool trans_b, int64_t m, int64_t n,
                               int64_t k, double alpha, const double* a, int64_t lda,
                               const double* b, int64_t ldb, double beta, double* c, int64_t ldc) {
  row.small(m, n, k, alpha, a, lda, b, trans_b ? ldb : 1, trans_b ? 1 : ldb, beta, c, ldc);
}

// The same for 1 <= m, n, k <= row.small_max, without allocation.
void dgemm_small(const dgemm_variant& row, bool trans_a, bool trans_b, int64_t m, int64_t n,
                 int64_t k, double alpha, const double* a, int64_t lda, const double* b,
                 int64_t ldb, double beta, double* c, int64_t ldc);

// The single-thread multiply of m, n, k >= 1 on `row`: alpha == 0 scales C,
// then the small path or the blocked multiply. Inline so that the entries
// reach the kernels of a tiny product without one more call in between.
inline void dgemm_serial_row(const dgemm_variant& row, bool ta, bool tb, int64_t m, int64_t n,
                             int64_t k, double alpha, const double* a, int64_t lda, const double* b,
                             int64_t ldb, double beta, double* c, int64_t ldc) {
  if (alpha == 0.0) {
    dgemm_scale_c(m, n, beta, c, ldc);
    return;
  }
  if (m <= row.small_max && n <= row.small_max && k <= row.small_max) {
    if (row.small != nullptr && !ta) {
      dgemm_small_direct(row, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    } else {
      dgemm_small(row, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    }
    return;
  }
  dgemm_blocked(row, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

// The body of zml_blas_dgemm_serial: the quick returns, then the multiply on
// this process's row.
inline void dgemm_serial_run(const char* transa, const char* transb, const int32_t* m,
                             const int32_t* n, const int32_t* k, const double* alpha,
                             const double* a, const int32_t* lda, const double* b,
                             const int32_t* ldb, const double* beta, double* c,
                             const int32_t* ldc) {
  const int64_t mm = *m, nn = *n, kk = *k;
  if (mm <= 0 || nn <= 0) return;
  if (kk <= 0) {
    dgemm_scale_c(mm, nn, *beta, c, *ldc);
    return;
  }
  dgemm_serial_row(dgemm_active_variant(), trans_code(transa) != 0, trans_code(transb) != 0, mm, nn,
                   kk, *alpha, a, *lda, b, *ldb, *beta, c, *ldc);
}

}  // namespace zml::blas
