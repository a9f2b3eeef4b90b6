// SPDX-License-Identifier: BSD-3-Clause
// dgemv "T" for the sse2 folder: four dot products at once, two accumulators each.
#include "blas/kernels/level2_algo.h"
#include "blas/kernels/level2_kernel.h"
#include "blas/kernels/sse2/vec_ops.h"

namespace zml::blas::sse2 {

void dgemv_kernel_t(int32_t m, int32_t n, double alpha, const double* a, int64_t lda,
                    const double* x, double* y) {
  algo::dgemv_t<Ops>(m, n, alpha, a, lda, x, y);
}

}  // namespace zml::blas::sse2
