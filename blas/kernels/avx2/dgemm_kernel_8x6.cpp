// SPDX-License-Identifier: BSD-3-Clause
// AVX2+FMA dgemm micro-kernel, 8x6 tile.
#include <immintrin.h>

#include "blas/kernels/avx2/dgemm_store.h"
#include "blas/kernels/gemm_kernel.h"

namespace zml::blas::avx2 {

// 8x6: twelve ymm accumulators cover two FMA pipes of 4-5 cycle latency, and
// two A vectors plus one broadcast leave the 16 registers just full. Each k
// step issues 12 FMAs against 2 vector loads and 6 broadcasts.
void dgemm_kernel_8x6(int64_t m, int64_t n, int64_t k, double alpha, const double* a,
                      const double* b, double beta, double* c, int64_t ldc) {
  __m256d c0[6], c1[6];
  for (int j = 0; j < 6; ++j) c0[j] = c1[j] = _mm256_setzero_pd();
  for (int64_t p = 0; p < k; ++p) {
    const __m256d a0 = _mm256_loadu_pd(a);
    const __m256d a1 = _mm256_loadu_pd(a + 4);
    _mm_prefetch(reinterpret_cast<const char*>(a + 64), _MM_HINT_T0);
#pragma GCC unroll 6
    for (int j = 0; j < 6; ++j) {
      const __m256d bj = _mm256_broadcast_sd(b + j);
      c0[j] = _mm256_fmadd_pd(a0, bj, c0[j]);
      c1[j] = _mm256_fmadd_pd(a1, bj, c1[j]);
    }
    a += 8;
    b += 6;
  }
  const __m256d va = _mm256_set1_pd(alpha), vb = _mm256_set1_pd(beta);
  const bool bz = beta == 0.0;
  const bool full = m == 8;
  const __m256i m0 = dgemm_row_mask(m), m1 = dgemm_row_mask(m - 4);
#pragma GCC unroll 6
  for (int j = 0; j < 6; ++j) {
    if (j < n) {
      dgemm_store_vec(c + j * ldc, c0[j], full, m0, va, vb, bz);
      if (m > 4) dgemm_store_vec(c + j * ldc + 4, c1[j], full, m1, va, vb, bz);
    }
  }
}

}  // namespace zml::blas::avx2
