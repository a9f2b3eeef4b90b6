// SPDX-License-Identifier: BSD-3-Clause
// dscal for the avx512 folder: the shared algorithm at this folder's width.
#include "blas/kernels/level1_algo.h"
#include "blas/kernels/level1_kernel.h"
#include "service/simd/avx512/vec_ops.h"

namespace zml::blas::avx512 {

using simd::avx512::Ops;

void dscal_kernel(int32_t n, double alpha, double* x, int32_t incx) {
  algo::dscal<Ops>(n, alpha, x, incx);
}

}  // namespace zml::blas::avx512
