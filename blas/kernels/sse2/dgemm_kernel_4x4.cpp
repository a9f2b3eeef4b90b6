// SPDX-License-Identifier: BSD-3-Clause
// SSE2 dgemm micro-kernel, 4x4 tile: eight accumulators of two rows, two A
// vectors and one broadcast B value fit the 16 xmm registers of x86-64 with
// room for the multiply temporaries; SSE2 has no FMA, so a larger tile would
// only add register pressure. On 32-bit x86 (8 registers) the compiler
// spills some accumulators but the result is the same.
#include "blas/kernels/dgemm_tile_ops.h"
#include "blas/kernels/gemm_kernel.h"
#include "service/simd/sse2/vec_ops.h"

namespace zml::blas::sse2 {

void dgemm_kernel_4x4(int64_t m, int64_t n, int64_t k, double alpha, const double* a,
                      const double* b, double beta, double* c, int64_t ldc) {
  dgemm_tile_ops<simd::sse2::Ops, 2, 4>(m, n, k, alpha, a, b, beta, c, ldc);
}

}  // namespace zml::blas::sse2
