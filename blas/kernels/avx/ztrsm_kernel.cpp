// SPDX-License-Identifier: BSD-3-Clause
// ztrsm leaf solve for the avx folder: 2 vectors of right-hand sides per group.
#include "blas/kernels/trsm_kernel.h"
#include "blas/kernels/trsm_leaf_ops.h"
#include "service/simd/avx/vec_ops.h"

namespace zml::blas::avx {

void ztrsm_kernel(int64_t l, const double* t, double* x, int64_t ldx) {
  ztrsm_leaf_ops<simd::avx::Ops, 2>(l, t, x, ldx);
}

}  // namespace zml::blas::avx
