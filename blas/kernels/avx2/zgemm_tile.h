// SPDX-License-Identifier: BSD-3-Clause
// The AVX2 zgemm micro-kernel body, written once over the register tile: MV
// vectors of two complex rows by NR columns. Each kernel file instantiates one
// shape; the 32-bit build, with 8 vector registers, needs a smaller one than
// the 64-bit build with 16.
#pragma once

#include <immintrin.h>

#include <cstdint>

#include "blas/kernels/avx2/zgemm_store.h"

namespace zml::blas::avx2 {

// A is packed interleaved. Each step accumulates A*Re(b_j) and A*Im(b_j)
// separately; the swap and sign fold happen once per tile in the store.
template <int MV, int NR>
inline void zgemm_tile(int64_t m, int64_t n, int64_t k, const double* alpha, const double* a,
                       const double* b, const double* beta, double* c, int64_t ldc) {
  __m256d re[MV][NR], im[MV][NR];
#pragma GCC unroll 8
  for (int v = 0; v < MV; ++v) {
#pragma GCC unroll 8
    for (int j = 0; j < NR; ++j) re[v][j] = im[v][j] = _mm256_setzero_pd();
  }
  for (int64_t p = 0; p < k; ++p) {
    __m256d av[MV];
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) av[v] = _mm256_loadu_pd(a + 4 * v);
    _mm_prefetch(reinterpret_cast<const char*>(a + 32 * MV), _MM_HINT_T0);
#pragma GCC unroll 8
    for (int j = 0; j < NR; ++j) {
      const __m256d br = _mm256_broadcast_sd(b + 2 * j);
      const __m256d bi = _mm256_broadcast_sd(b + 2 * j + 1);
#pragma GCC unroll 8
      for (int v = 0; v < MV; ++v) {
        re[v][j] = _mm256_fmadd_pd(av[v], br, re[v][j]);
        im[v][j] = _mm256_fmadd_pd(av[v], bi, im[v][j]);
      }
    }
    a += 4 * MV;
    b += 2 * NR;
  }
  const bool bz = beta[0] == 0.0 && beta[1] == 0.0;
#pragma GCC unroll 8
  for (int j = 0; j < NR; ++j) {
    if (j < n) {
      double* cj = c + 2 * j * ldc;
#pragma GCC unroll 8
      for (int v = 0; v < MV; ++v) {
        if (m > 2 * v) {
          zgemm_store_vec(cj + 4 * v, re[v][j], im[v][j], zgemm_row_mask(m - 2 * v), m >= 2 * v + 2,
                          alpha, beta, bz);
        }
      }
    }
  }
}

}  // namespace zml::blas::avx2
