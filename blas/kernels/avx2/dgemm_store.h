// SPDX-License-Identifier: BSD-3-Clause
// Tile store shared by the AVX2 dgemm kernels: C := alpha*acc + beta*C for one
// four-row vector, with the rows of an edge tile selected by a lane mask.
#pragma once

#include <immintrin.h>

#include <cstdint>

namespace zml::blas::avx2 {

// Lane mask for the first `rows` lanes of a four-row vector (rows may be <= 0
// or >= 4).
inline __m256i dgemm_row_mask(int64_t rows) {
  const __m256i lane = _mm256_set_epi64x(3, 2, 1, 0);
  return _mm256_cmpgt_epi64(_mm256_set1_epi64x(rows), lane);
}

// Masked lanes are neither read nor written, so an edge tile never touches C
// past its corner.
inline void dgemm_store_vec(double* c, __m256d acc, bool full, __m256i mask, __m256d alpha,
                            __m256d beta, bool beta_zero) {
  __m256d v = _mm256_mul_pd(alpha, acc);
  if (full) {
    if (!beta_zero) v = _mm256_fmadd_pd(beta, _mm256_loadu_pd(c), v);
    _mm256_storeu_pd(c, v);
  } else {
    if (!beta_zero) v = _mm256_fmadd_pd(beta, _mm256_maskload_pd(c, mask), v);
    _mm256_maskstore_pd(c, mask, v);
  }
}

}  // namespace zml::blas::avx2
