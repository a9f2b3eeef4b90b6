// SPDX-License-Identifier: BSD-3-Clause
// dtrsv for the sse2 folder: the blocked solve over this folder's gemv.
#include "blas/kernels/level2_kernel.h"
#include "blas/kernels/trsv_algo.h"
#include "service/simd/sse2/vec_ops.h"

namespace zml::blas::sse2 {

using simd::sse2::Ops;

void dtrsv_kernel(int32_t upper, int32_t trans, int32_t unit, int32_t n, const double* a,
                  int64_t lda, double* x, int32_t nb, const gemv_tuning& tune) {
  algo::trsv_blocked<algo::RealField<Ops>>(upper, trans, unit, n, a, lda, x, nb, tune);
}

}  // namespace zml::blas::sse2
