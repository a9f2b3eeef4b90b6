// SPDX-License-Identifier: BSD-3-Clause
// Tile store shared by the AVX2 zgemm kernels: folds the two accumulator sets
// into complex products and writes C := alpha*acc + beta*C for one vector of
// two complex rows; an edge row is masked off, so full and edge tiles take the
// same path and memory past the tile's corner is never touched.
#pragma once

#include <immintrin.h>

#include <cstdint>

namespace zml::blas::avx2 {

// Lane mask of the first `rows` complex numbers of a two-complex vector.
inline __m256i zgemm_row_mask(int64_t rows) {
  if (rows >= 2) return _mm256_set1_epi64x(-1);
  if (rows <= 0) return _mm256_setzero_si256();
  return _mm256_set_epi64x(0, 0, -1, -1);
}

// x * (sr + i*si) for broadcast sr, si.
inline __m256d zgemm_cmul(__m256d x, __m256d sr, __m256d si) {
  return _mm256_fmaddsub_pd(x, sr, _mm256_mul_pd(_mm256_permute_pd(x, 0x5), si));
}

// re holds sum a*Re(b), im holds sum a*Im(b): the product is re -+ swap(im).
inline void zgemm_store_vec(double* c, __m256d re, __m256d im, __m256i mask, bool full,
                            const double* alpha, const double* beta, bool beta_zero) {
  const __m256d prod = _mm256_addsub_pd(re, _mm256_permute_pd(im, 0x5));
  __m256d v = zgemm_cmul(prod, _mm256_broadcast_sd(alpha), _mm256_broadcast_sd(alpha + 1));
  // beta == 0 never loads C: NaN there must not reach the result.
  if (!beta_zero) {
    const __m256d old = full ? _mm256_loadu_pd(c) : _mm256_maskload_pd(c, mask);
    v = _mm256_add_pd(v, zgemm_cmul(old, _mm256_broadcast_sd(beta), _mm256_broadcast_sd(beta + 1)));
  }
  if (full) {
    _mm256_storeu_pd(c, v);
  } else {
    _mm256_maskstore_pd(c, mask, v);
  }
}

}  // namespace zml::blas::avx2
