// SPDX-License-Identifier: BSD-3-Clause
// Internal pieces of the single-thread zgemm, reachable by tests: the blocked
// multiply and the small-matrix path for a given variant row.
#pragma once

#include <cstdint>

#include "blas/kernels/zgemm_kernel.h"

namespace zml::blas {

// The row of this process's code path, picked once.
const zgemm_variant& zgemm_active_variant();

// C := beta*C for an m x n block (beta == 0 writes zeros without reading C).
// Complex values are (re, im) pairs of doubles; ldc counts complex elements.
void zgemm_scale_c(int64_t m, int64_t n, const double* beta, double* c, int64_t ldc);

// C := alpha*op(A)*op(B) + beta*C with row's kernels, k >= 1, m, n >= 1.
// ta / tb are transposition codes: 0 'N', 1 'T', 2 'C'.
void zgemm_blocked(const zgemm_variant& row, int32_t ta, int32_t tb, int64_t m, int64_t n,
                   int64_t k, const double* alpha, const double* a, int64_t lda, const double* b,
                   int64_t ldb, const double* beta, double* c, int64_t ldc);

// The same for m, n, k <= row.small_max, without allocation or packing of B.
void zgemm_small(const zgemm_variant& row, int32_t ta, int32_t tb, int64_t m, int64_t n, int64_t k,
                 const double* alpha, const double* a, int64_t lda, const double* b, int64_t ldb,
                 const double* beta, double* c, int64_t ldc);

// The whole single-thread multiply on a given row: quick returns, the small
// path or the blocked loops.
void zgemm_serial_row(const zgemm_variant& row, int32_t ta, int32_t tb, int64_t m, int64_t n,
                      int64_t k, const double* alpha, const double* a, int64_t lda, const double* b,
                      int64_t ldb, const double* beta, double* c, int64_t ldc);

}  // namespace zml::blas
