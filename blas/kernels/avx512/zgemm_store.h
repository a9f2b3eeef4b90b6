// SPDX-License-Identifier: BSD-3-Clause
// Tile store shared by the AVX-512 zgemm kernels: folds the two accumulator
// sets into complex products and writes C := alpha*acc + beta*C for one vector
// of four complex rows; edge rows are masked off, so full and edge tiles take
// the same path and memory past the tile's corner is never touched.
#pragma once

#include <immintrin.h>

#include <cstdint>

namespace zml::blas::avx512 {

// Mask of the first `rows` complex lanes of a four-complex vector.
inline __mmask8 zgemm_row_mask(int64_t rows) {
  if (rows >= 4) return 0xFF;
  if (rows <= 0) return 0;
  return static_cast<__mmask8>((1u << (2 * rows)) - 1u);
}

// Swaps re and im of each complex lane. The masked form with the source as
// its own fallback avoids GCC 12's maybe-uninitialized warning on the plain
// intrinsic's undefined operand.
inline __m512d zgemm_swap(__m512d x) { return _mm512_mask_permute_pd(x, 0xFF, x, 0x55); }

// x * (sr + i*si) for broadcast sr, si: even lanes xr*sr - xi*si, odd lanes
// xi*sr + xr*si, the swapped product entering through fmaddsub's signs.
inline __m512d zgemm_cmul(__m512d x, __m512d sr, __m512d si) {
  return _mm512_fmaddsub_pd(x, sr, _mm512_mul_pd(zgemm_swap(x), si));
}

// re holds sum a*Re(b) and im holds sum a*Im(b) (a interleaved): the product
// is re - swap(im) in the real lanes and re + swap(im) in the imaginary ones.
// Multiplying by one is exact, so fmaddsub does the fold in one instruction.
inline void zgemm_store_vec(double* c, __m512d re, __m512d im, __mmask8 mask, const double* alpha,
                            const double* beta, bool beta_zero) {
  const __m512d prod = _mm512_fmaddsub_pd(re, _mm512_set1_pd(1.0), zgemm_swap(im));
  __m512d v = zgemm_cmul(prod, _mm512_set1_pd(alpha[0]), _mm512_set1_pd(alpha[1]));
  // beta == 0 never loads C: NaN there must not reach the result.
  if (!beta_zero) {
    const __m512d old = _mm512_maskz_loadu_pd(mask, c);
    v = _mm512_add_pd(v, zgemm_cmul(old, _mm512_set1_pd(beta[0]), _mm512_set1_pd(beta[1])));
  }
  _mm512_mask_storeu_pd(c, mask, v);
}

}  // namespace zml::blas::avx512
