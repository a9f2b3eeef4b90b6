// SPDX-License-Identifier: BSD-3-Clause
// dtrsv for the ref folder: the blocked solve over this folder's gemv.
#include "blas/kernels/level2_algo.h"
#include "blas/kernels/level2_kernel.h"
#include "blas/kernels/ref/vec_ops.h"

namespace zml::blas::ref {

void dtrsv_kernel(int32_t upper, int32_t trans, int32_t unit, int32_t n, const double* a,
                  int64_t lda, double* x, int32_t nb) {
  algo::trsv_blocked<algo::RealField<Ops>>(upper, trans, unit, n, a, lda, x, nb);
}

}  // namespace zml::blas::ref
