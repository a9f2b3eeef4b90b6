// SPDX-License-Identifier: BSD-3-Clause
// SSE2 dgemm micro-kernel, 4x4 tile.
#include <immintrin.h>

#include "blas/kernels/gemm_kernel.h"
#include "blas/kernels/sse2/dgemm_store.h"

namespace zml::blas::sse2 {

// 4x4: eight accumulators of two rows, two A vectors and one broadcast B value
// fit the 16 xmm registers of x86-64 with room for the multiply temporaries;
// SSE2 has no FMA, so a larger tile would only add register pressure. On
// 32-bit x86 (8 registers) the compiler spills some accumulators but the
// result is the same.
void dgemm_kernel_4x4(int64_t m, int64_t n, int64_t k, double alpha, const double* a,
                      const double* b, double beta, double* c, int64_t ldc) {
  __m128d c0[4], c1[4];
  for (int j = 0; j < 4; ++j) c0[j] = c1[j] = _mm_setzero_pd();
  for (int64_t p = 0; p < k; ++p) {
    const __m128d a0 = _mm_loadu_pd(a);
    const __m128d a1 = _mm_loadu_pd(a + 2);
#pragma GCC unroll 4
    for (int j = 0; j < 4; ++j) {
      const __m128d bj = _mm_load1_pd(b + j);
      c0[j] = _mm_add_pd(c0[j], _mm_mul_pd(a0, bj));
      c1[j] = _mm_add_pd(c1[j], _mm_mul_pd(a1, bj));
    }
    a += 4;
    b += 4;
  }
  const __m128d va = _mm_set1_pd(alpha), vb = _mm_set1_pd(beta);
  const bool bz = beta == 0.0;
#pragma GCC unroll 4
  for (int j = 0; j < 4; ++j) {
    if (j < n) {
      dgemm_store_pair(c + j * ldc, c0[j], m, va, vb, bz);
      dgemm_store_pair(c + j * ldc + 2, c1[j], m - 2, va, vb, bz);
    }
  }
}

}  // namespace zml::blas::sse2
