// SPDX-License-Identifier: BSD-3-Clause
// AVX2+FMA dgemm micro-kernel, 8x6 tile: twelve ymm accumulators cover two
// FMA pipes of 4-5 cycle latency, and two A vectors plus one broadcast leave
// the 16 registers just full. Each k step issues 12 FMAs against 2 vector
// loads and 6 broadcasts, and fetches the A panel eight steps ahead.
#include "blas/kernels/dgemm_tile_ops.h"
#include "blas/kernels/gemm_kernel.h"
#include "service/simd/avx2/vec_ops.h"

namespace zml::blas::avx2 {

void dgemm_kernel_8x6(int64_t m, int64_t n, int64_t k, double alpha, const double* a,
                      const double* b, double beta, double* c, int64_t ldc) {
  dgemm_tile_ops<simd::avx2::Ops, 2, 6, 64>(m, n, k, alpha, a, b, beta, c, ldc);
}

}  // namespace zml::blas::avx2
