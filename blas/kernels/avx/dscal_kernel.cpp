// SPDX-License-Identifier: BSD-3-Clause
// dscal for the avx folder: the shared algorithm at this folder's width.
#include "blas/kernels/avx/vec_ops.h"
#include "blas/kernels/level1_algo.h"
#include "blas/kernels/level1_kernel.h"

namespace zml::blas::avx {

void dscal_kernel(int32_t n, double alpha, double* x, int32_t incx) {
  algo::dscal<Ops>(n, alpha, x, incx);
}

}  // namespace zml::blas::avx
