// SPDX-License-Identifier: BSD-3-Clause
// SSE2 zgemm micro-kernel, 2x2 complex tile (64-bit builds).
#include "blas/kernels/zgemm_kernel.h"
#include "blas/kernels/zgemm_tile_ops.h"
#include "service/simd/sse2/vec_ops.h"

namespace zml::blas::sse2 {

// 2x2: 8 accumulators, enough chains to cover the add latency, and with A and
// the broadcasts within 16 registers.
void zgemm_kernel_2x2(int64_t m, int64_t n, int64_t k, const double* alpha, const double* a,
                      const double* b, const double* beta, double* c, int64_t ldc) {
  zgemm_tile_ops<simd::sse2::Ops, 2, 2, ZgemmPrefetch::kNone>(m, n, k, alpha, a, b, beta, c, ldc);
}

}  // namespace zml::blas::sse2
