// SPDX-License-Identifier: BSD-3-Clause
// Tile store shared by the AVX-512 dgemm kernels: C := alpha*acc + beta*C for
// one eight-row vector; edge rows are masked off, so full and edge tiles take
// the same path and memory past the tile's corner is never touched.
#pragma once

#include <immintrin.h>

#include <cstdint>

namespace zml::blas::avx512 {

// Mask of the first `rows` lanes of an eight-row vector (rows may be <= 0 or >= 8).
inline __mmask8 dgemm_row_mask(int64_t rows) {
  if (rows >= 8) return 0xFF;
  if (rows <= 0) return 0;
  return static_cast<__mmask8>((1u << rows) - 1u);
}

inline void dgemm_store_vec(double* c, __m512d acc, __mmask8 mask, __m512d alpha, __m512d beta,
                            bool beta_zero) {
  // beta == 0 never loads C: NaN there must not reach the result. Otherwise
  // beta*C is formed from C alone, before the product is done, so only one
  // multiply-add follows the last accumulation.
  if (beta_zero) {
    const __m512d v = _mm512_mul_pd(alpha, acc);
    if (mask == 0xFF) {
      _mm512_storeu_pd(c, v);
    } else {
      _mm512_mask_storeu_pd(c, mask, v);
    }
    return;
  }
  // Whole vectors take plain loads and stores: a masked load cannot take its
  // data from a masked store still in flight, so a caller that multiplies
  // into the same small C again and again would wait for each store to land.
  if (mask == 0xFF) {
    _mm512_storeu_pd(c, _mm512_fmadd_pd(alpha, acc, _mm512_mul_pd(beta, _mm512_loadu_pd(c))));
    return;
  }
  const __m512d bc = _mm512_mul_pd(beta, _mm512_maskz_loadu_pd(mask, c));
  _mm512_mask_storeu_pd(c, mask, _mm512_fmadd_pd(alpha, acc, bc));
}

}  // namespace zml::blas::avx512
