// SPDX-License-Identifier: BSD-3-Clause
// zscal for the avx2 folder: the shared complex scaling at this folder's width.
#include "blas/kernels/level1_algo.h"
#include "blas/kernels/level1_kernel.h"
#include "service/simd/avx2/vec_ops.h"

namespace zml::blas::avx2 {

using simd::avx2::Ops;

void zscal_kernel(int32_t n, const double* alpha, double* x, int32_t incx) {
  algo::zscal<Ops>(n, alpha, x, incx);
}

}  // namespace zml::blas::avx2
