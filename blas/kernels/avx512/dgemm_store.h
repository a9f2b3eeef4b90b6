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

// The first `rows` (1..7) lanes of v + beta*C at c, in pieces of 4, 2 and 1
// doubles with plain loads and stores. The staging array takes unaligned
// moves: 64-bit MinGW does not align stack arrays beyond 16 bytes.
inline void dgemm_store_rows(double* c, __m512d v, int rows, double beta, bool beta_zero) {
  double t[8];
  _mm512_storeu_pd(t, v);
  int i = 0;
  if (rows & 4) {
    __m256d x = _mm256_loadu_pd(t);
    if (!beta_zero) x = _mm256_fmadd_pd(_mm256_set1_pd(beta), _mm256_loadu_pd(c), x);
    _mm256_storeu_pd(c, x);
    i = 4;
  }
  if (rows & 2) {
    __m128d x = _mm_loadu_pd(t + i);
    if (!beta_zero) x = _mm_fmadd_pd(_mm_set1_pd(beta), _mm_loadu_pd(c + i), x);
    _mm_storeu_pd(c + i, x);
    i += 2;
  }
  if (rows & 1) c[i] = beta_zero ? t[i] : __builtin_fma(beta, c[i], t[i]);
}

// C := alpha*acc + beta*C for the lanes of `mask` (always a run of low
// lanes). beta == 0 never loads C: NaN there must not reach the result.
// Otherwise beta*C is formed from C alone, before the product is done, so
// only one multiply-add follows the last accumulation.
//
// kPieces: a partial vector goes through dgemm_store_rows instead of a
// masked load and store. A masked load cannot take its data from a masked
// store still in flight, so a caller that accumulates many small products
// into one C (C += A_i*B_i in a loop) would wait for every partial column of
// the previous call to land; plain pieces forward. The small kernels take
// that form; the micro-kernel, whose edge tiles are rare and which needs
// every register in its loop, keeps the masked one.
template <bool kPieces = false>
inline void dgemm_store_vec(double* c, __m512d acc, __mmask8 mask, __m512d alpha, __m512d beta,
                            bool beta_zero) {
  if (mask == 0xFF) {
    if (beta_zero) {
      _mm512_storeu_pd(c, _mm512_mul_pd(alpha, acc));
    } else {
      _mm512_storeu_pd(c, _mm512_fmadd_pd(alpha, acc, _mm512_mul_pd(beta, _mm512_loadu_pd(c))));
    }
    return;
  }
  if constexpr (kPieces) {
    if (mask != 0) {
      dgemm_store_rows(c, _mm512_mul_pd(alpha, acc), __builtin_popcount(mask),
                       _mm512_cvtsd_f64(beta), beta_zero);
    }
  } else {
    __m512d v = _mm512_mul_pd(alpha, acc);
    if (!beta_zero) v = _mm512_fmadd_pd(beta, _mm512_maskz_loadu_pd(mask, c), v);
    _mm512_mask_storeu_pd(c, mask, v);
  }
}

}  // namespace zml::blas::avx512
