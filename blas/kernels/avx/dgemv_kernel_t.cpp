// SPDX-License-Identifier: BSD-3-Clause
// dgemv "T" for the avx folder: four dot products at once, two accumulators each.
#include "blas/kernels/gemv_t_algo.h"
#include "blas/kernels/level2_kernel.h"
#include "service/simd/avx/vec_ops.h"

namespace zml::blas::avx {

using simd::avx::Ops;

void dgemv_kernel_t(int32_t m, int32_t n, double alpha, const double* a, int64_t lda,
                    const double* x, double* y, const gemv_tuning& tune) {
  algo::dgemv_t<Ops>(m, n, alpha, a, lda, x, y, tune);
}

}  // namespace zml::blas::avx
