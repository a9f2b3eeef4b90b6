// SPDX-License-Identifier: BSD-3-Clause
// dgemv "T" for the avx2 folder: four dot products at once, two accumulators each.
#include "blas/kernels/avx2/vec_ops.h"
#include "blas/kernels/level2_algo.h"
#include "blas/kernels/level2_kernel.h"

namespace zml::blas::avx2 {

void dgemv_kernel_t(int32_t m, int32_t n, double alpha, const double* a, int64_t lda,
                    const double* x, double* y) {
  algo::dgemv_t<Ops>(m, n, alpha, a, lda, x, y);
}

}  // namespace zml::blas::avx2
