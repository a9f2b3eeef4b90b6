// SPDX-License-Identifier: BSD-3-Clause
// Internal pieces of the single-thread dgemm, reachable by tests: the blocked
// multiply and the small-matrix path for a given variant row.
#pragma once

#include <cstdint>

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

}  // namespace zml::blas
