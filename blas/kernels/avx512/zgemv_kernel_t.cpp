// SPDX-License-Identifier: BSD-3-Clause
// zgemv "T" and "C" for the avx512 folder: the same complex dot products, the
// conjugation decided at the final combine.
#include "blas/kernels/gemv_t_algo.h"
#include "blas/kernels/level2_kernel.h"
#include "service/simd/avx512/vec_ops.h"

namespace zml::blas::avx512 {

using simd::avx512::Ops;

void zgemv_kernel_t(int32_t m, int32_t n, const double* alpha, const double* a, int64_t lda,
                    const double* x, double* y, const gemv_tuning& tune) {
  algo::zgemv_t<Ops, false>(m, n, alpha, a, lda, x, y, tune);
}

void zgemv_kernel_c(int32_t m, int32_t n, const double* alpha, const double* a, int64_t lda,
                    const double* x, double* y, const gemv_tuning& tune) {
  algo::zgemv_t<Ops, true>(m, n, alpha, a, lda, x, y, tune);
}

}  // namespace zml::blas::avx512
