// SPDX-License-Identifier: BSD-3-Clause
// Tile store shared by the AVX dgemm kernels: C := alpha*acc + beta*C for one
// four-row vector, edge rows selected by a lane mask (AVX has masked moves but
// no 64-bit integer compare, so masks come from a sliding window of a table).
#pragma once

#include <immintrin.h>

#include <cstdint>

namespace zml::blas::avx {

inline __m256i dgemm_row_mask(int64_t rows) {
  static const int64_t kWindow[8] = {-1, -1, -1, -1, 0, 0, 0, 0};
  const int64_t r = rows < 0 ? 0 : (rows > 4 ? 4 : rows);
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(kWindow + 4 - r));
}

inline void dgemm_store_vec(double* c, __m256d acc, bool full, __m256i mask, __m256d alpha,
                            __m256d beta, bool beta_zero) {
  __m256d v = _mm256_mul_pd(alpha, acc);
  if (full) {
    if (!beta_zero) v = _mm256_add_pd(v, _mm256_mul_pd(beta, _mm256_loadu_pd(c)));
    _mm256_storeu_pd(c, v);
  } else {
    // Masked lanes are neither read nor written.
    if (!beta_zero) v = _mm256_add_pd(v, _mm256_mul_pd(beta, _mm256_maskload_pd(c, mask)));
    _mm256_maskstore_pd(c, mask, v);
  }
}

}  // namespace zml::blas::avx
