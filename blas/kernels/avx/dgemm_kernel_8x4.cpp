// SPDX-License-Identifier: BSD-3-Clause
// AVX dgemm micro-kernel (no FMA), 8x4 tile: each update is a multiply and an
// add on separate ports, so the tile needs the product temporaries in
// registers too: eight accumulators, two A vectors, a broadcast and the
// products fit the 16 ymm registers.
#include "blas/kernels/dgemm_tile_ops.h"
#include "blas/kernels/gemm_kernel.h"
#include "service/simd/avx/vec_ops.h"

namespace zml::blas::avx {

void dgemm_kernel_8x4(int64_t m, int64_t n, int64_t k, double alpha, const double* a,
                      const double* b, double beta, double* c, int64_t ldc) {
  dgemm_tile_ops<simd::avx::Ops, 2, 4>(m, n, k, alpha, a, b, beta, c, ldc);
}

}  // namespace zml::blas::avx
