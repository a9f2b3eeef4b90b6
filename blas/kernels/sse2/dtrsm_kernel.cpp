// SPDX-License-Identifier: BSD-3-Clause
// dtrsm leaf solve for the sse2 folder: 4 vectors of right-hand sides per group.
#include "blas/kernels/trsm_kernel.h"
#include "blas/kernels/trsm_leaf_ops.h"
#include "service/simd/sse2/vec_ops.h"

namespace zml::blas::sse2 {

void dtrsm_kernel(int64_t l, const double* t, double* x, int64_t ldx) {
  dtrsm_leaf_ops<simd::sse2::Ops, 4>(l, t, x, ldx);
}

}  // namespace zml::blas::sse2
