// SPDX-License-Identifier: BSD-3-Clause
// Tile store shared by the SSE2 dgemm kernels: C := alpha*acc + beta*C for a
// pair of rows, with a partial pair stored through the scalar lane only.
#pragma once

#include <immintrin.h>

#include <cstdint>

namespace zml::blas::sse2 {

// Stores `rows` (<= 0: nothing, 1, or 2 and more) of one two-row vector.
inline void dgemm_store_pair(double* c, __m128d acc, int64_t rows, __m128d alpha, __m128d beta,
                             bool beta_zero) {
  if (rows >= 2) {
    __m128d v = _mm_mul_pd(alpha, acc);
    if (!beta_zero) v = _mm_add_pd(v, _mm_mul_pd(beta, _mm_loadu_pd(c)));
    _mm_storeu_pd(c, v);
  } else if (rows == 1) {
    __m128d v = _mm_mul_sd(alpha, acc);
    if (!beta_zero) v = _mm_add_sd(v, _mm_mul_sd(beta, _mm_load_sd(c)));
    _mm_store_sd(c, v);
  }
}

}  // namespace zml::blas::sse2
