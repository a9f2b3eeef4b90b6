// SPDX-License-Identifier: BSD-3-Clause
// ztrsv for the avx2 folder: the blocked solve over this folder's zgemv.
#include "blas/kernels/level2_kernel.h"
#include "blas/kernels/trsv_algo.h"
#include "service/simd/avx2/vec_ops.h"

namespace zml::blas::avx2 {

using simd::avx2::Ops;

void ztrsv_kernel(int32_t upper, int32_t trans, int32_t unit, int32_t n, const double* a,
                  int64_t lda, double* x, int32_t nb, const gemv_tuning& tune) {
  algo::trsv_blocked<algo::ComplexField<Ops>>(upper, trans, unit, n, a, lda, x, nb, tune);
}

}  // namespace zml::blas::avx2
