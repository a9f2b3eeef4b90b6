// SPDX-License-Identifier: BSD-3-Clause
// dgemv "N" for the avx folder: eight columns per pass over a block of y.
#include "blas/kernels/avx/vec_ops.h"
#include "blas/kernels/level2_algo.h"
#include "blas/kernels/level2_kernel.h"

namespace zml::blas::avx {

void dgemv_kernel_n(int32_t m, int32_t n, double alpha, const double* a, int64_t lda,
                    const double* x, double* y) {
  algo::dgemv_n<Ops>(m, n, alpha, a, lda, x, y);
}

}  // namespace zml::blas::avx
