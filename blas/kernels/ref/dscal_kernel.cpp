// SPDX-License-Identifier: BSD-3-Clause
// dscal for the ref folder: the shared algorithm at this folder's width.
#include "blas/kernels/level1_algo.h"
#include "blas/kernels/level1_kernel.h"
#include "service/simd/ref/vec_ops.h"

namespace zml::blas::ref {

using simd::ref::Ops;

void dscal_kernel(int32_t n, double alpha, double* x, int32_t incx) {
  algo::dscal<Ops>(n, alpha, x, incx);
}

}  // namespace zml::blas::ref
