// SPDX-License-Identifier: BSD-3-Clause
// The SSE2 zgemm micro-kernel body, written once over the register tile: MR
// complex rows (one per xmm) by NR columns. Each kernel file instantiates one
// shape; the 32-bit build, with 8 vector registers, needs a smaller one than
// the 64-bit build with 16.
#pragma once

#include <immintrin.h>

#include <cstdint>

#include "blas/kernels/sse2/zgemm_store.h"

namespace zml::blas::sse2 {

// Each step accumulates A*Re(b_j) and A*Im(b_j) separately (multiply and add:
// this level has no FMA); the swap and sign fold happen once per tile. An edge
// tile simply skips the vectors past its corner.
template <int MR, int NR>
inline void zgemm_tile(int64_t m, int64_t n, int64_t k, const double* alpha, const double* a,
                       const double* b, const double* beta, double* c, int64_t ldc) {
  __m128d re[MR][NR], im[MR][NR];
#pragma GCC unroll 8
  for (int i = 0; i < MR; ++i) {
#pragma GCC unroll 8
    for (int j = 0; j < NR; ++j) re[i][j] = im[i][j] = _mm_setzero_pd();
  }
  for (int64_t p = 0; p < k; ++p) {
    __m128d av[MR];
#pragma GCC unroll 8
    for (int i = 0; i < MR; ++i) av[i] = _mm_loadu_pd(a + 2 * i);
#pragma GCC unroll 8
    for (int j = 0; j < NR; ++j) {
      const __m128d br = _mm_set1_pd(b[2 * j]);
      const __m128d bi = _mm_set1_pd(b[2 * j + 1]);
#pragma GCC unroll 8
      for (int i = 0; i < MR; ++i) {
        re[i][j] = _mm_add_pd(re[i][j], _mm_mul_pd(av[i], br));
        im[i][j] = _mm_add_pd(im[i][j], _mm_mul_pd(av[i], bi));
      }
    }
    a += 2 * MR;
    b += 2 * NR;
  }
  const bool bz = beta[0] == 0.0 && beta[1] == 0.0;
#pragma GCC unroll 8
  for (int j = 0; j < NR; ++j) {
    if (j < n) {
#pragma GCC unroll 8
      for (int i = 0; i < MR; ++i) {
        if (i < m) zgemm_store_vec(c + 2 * (i + j * ldc), re[i][j], im[i][j], alpha, beta, bz);
      }
    }
  }
}

}  // namespace zml::blas::sse2
