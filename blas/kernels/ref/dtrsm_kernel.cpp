// SPDX-License-Identifier: BSD-3-Clause
// dtrsm leaf solve for the ref folder: 2 vectors of right-hand sides per group.
#include "blas/kernels/trsm_kernel.h"
#include "blas/kernels/trsm_leaf_ops.h"
#include "service/simd/ref/vec_ops.h"

namespace zml::blas::ref {

void dtrsm_kernel(int64_t l, const double* t, double* x, int64_t ldx) {
  dtrsm_leaf_ops<simd::ref::Ops, 2>(l, t, x, ldx);
}

}  // namespace zml::blas::ref
