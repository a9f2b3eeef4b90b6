// SPDX-License-Identifier: BSD-3-Clause
// zscal for the avx folder: the shared complex scaling at this folder's width.
#include "blas/kernels/avx/vec_ops.h"
#include "blas/kernels/level1_algo.h"
#include "blas/kernels/level1_kernel.h"

namespace zml::blas::avx {

void zscal_kernel(int32_t n, const double* alpha, double* x, int32_t incx) {
  algo::zscal<Ops>(n, alpha, x, incx);
}

}  // namespace zml::blas::avx
