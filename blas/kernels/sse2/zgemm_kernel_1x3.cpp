// SPDX-License-Identifier: BSD-3-Clause
// SSE2 zgemm micro-kernel, 1x3 complex tile (32-bit builds).
#include "blas/kernels/zgemm_kernel.h"
#include "blas/kernels/zgemm_tile_ops.h"
#include "service/simd/sse2/vec_ops.h"

namespace zml::blas::sse2 {

// With only 8 vector registers: 1 row x 3 columns x 2 sets = 6 accumulators
// plus A and one broadcast.
void zgemm_kernel_1x3(int64_t m, int64_t n, int64_t k, const double* alpha, const double* a,
                      const double* b, const double* beta, double* c, int64_t ldc) {
  zgemm_tile_ops<simd::sse2::Ops, 1, 3, ZgemmPrefetch::kNone>(m, n, k, alpha, a, b, beta, c, ldc);
}

}  // namespace zml::blas::sse2
