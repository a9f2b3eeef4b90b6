// SPDX-License-Identifier: BSD-3-Clause
// AVX dgemm micro-kernel for 32-bit builds, 4x6 tile: one vector of
// rows by six columns is six accumulators, one A vector and one broadcast,
// the whole register file of 32-bit x86.
#include "blas/kernels/dgemm_tile_ops.h"
#include "blas/kernels/gemm_kernel.h"
#include "service/simd/avx/vec_ops.h"

namespace zml::blas::avx {

using simd::avx::Ops;

void dgemm_kernel_4x6(int64_t m, int64_t n, int64_t k, double alpha, const double* a,
                      const double* b, double beta, double* c, int64_t ldc) {
  dgemm_tile_ops<Ops, 1, 6>(m, n, k, alpha, a, b, beta, c, ldc);
}

}  // namespace zml::blas::avx
