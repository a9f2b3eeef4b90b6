// SPDX-License-Identifier: BSD-3-Clause
// dgemv "N" for the sse2 folder: eight columns per pass over a block of y.
#include "blas/kernels/gemv_n_algo.h"
#include "blas/kernels/level2_kernel.h"
#include "service/simd/sse2/vec_ops.h"

namespace zml::blas::sse2 {

using simd::sse2::Ops;

void dgemv_kernel_n(int32_t m, int32_t n, double alpha, const double* a, int64_t lda,
                    const double* x, double* y, const gemv_tuning& tune) {
  algo::dgemv_n<Ops>(m, n, alpha, a, lda, x, y, tune);
}

}  // namespace zml::blas::sse2
