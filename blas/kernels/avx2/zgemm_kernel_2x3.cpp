// SPDX-License-Identifier: BSD-3-Clause
// AVX2 zgemm micro-kernel, 2x3 complex tile (32-bit builds).
#include "blas/kernels/zgemm_kernel.h"
#include "blas/kernels/zgemm_tile_ops.h"
#include "service/simd/avx2/vec_ops.h"

namespace zml::blas::avx2 {

// With only 8 vector registers, 1 A vector x 3 columns x 2 sets = 6
// accumulators plus A and one broadcast fill the file without spilling.
void zgemm_kernel_2x3(int64_t m, int64_t n, int64_t k, const double* alpha, const double* a,
                      const double* b, const double* beta, double* c, int64_t ldc) {
  zgemm_tile_ops<simd::avx2::Ops, 1, 3, ZgemmPrefetch::kA>(m, n, k, alpha, a, b, beta, c, ldc);
}

}  // namespace zml::blas::avx2
