// SPDX-License-Identifier: BSD-3-Clause
// AVX dgemm micro-kernel (no FMA), 8x4 tile.
#include <immintrin.h>

#include "blas/kernels/avx/dgemm_store.h"
#include "blas/kernels/gemm_kernel.h"

namespace zml::blas::avx {

// 8x4: without FMA each update is a multiply and an add on separate ports, so
// the tile needs the product temporaries in registers too: eight accumulators,
// two A vectors, a broadcast and the products fit the 16 ymm registers.
void dgemm_kernel_8x4(int64_t m, int64_t n, int64_t k, double alpha, const double* a,
                      const double* b, double beta, double* c, int64_t ldc) {
  __m256d c0[4], c1[4];
  for (int j = 0; j < 4; ++j) c0[j] = c1[j] = _mm256_setzero_pd();
  for (int64_t p = 0; p < k; ++p) {
    const __m256d a0 = _mm256_loadu_pd(a);
    const __m256d a1 = _mm256_loadu_pd(a + 4);
#pragma GCC unroll 4
    for (int j = 0; j < 4; ++j) {
      const __m256d bj = _mm256_broadcast_sd(b + j);
      c0[j] = _mm256_add_pd(c0[j], _mm256_mul_pd(a0, bj));
      c1[j] = _mm256_add_pd(c1[j], _mm256_mul_pd(a1, bj));
    }
    a += 8;
    b += 4;
  }
  const __m256d va = _mm256_set1_pd(alpha), vb = _mm256_set1_pd(beta);
  const bool bz = beta == 0.0;
  const bool full = m == 8;
  const __m256i m0 = dgemm_row_mask(m), m1 = dgemm_row_mask(m - 4);
#pragma GCC unroll 4
  for (int j = 0; j < 4; ++j) {
    if (j < n) {
      dgemm_store_vec(c + j * ldc, c0[j], full, m0, va, vb, bz);
      if (m > 4) dgemm_store_vec(c + j * ldc + 4, c1[j], full, m1, va, vb, bz);
    }
  }
}

}  // namespace zml::blas::avx
