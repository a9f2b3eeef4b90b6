// SPDX-License-Identifier: BSD-3-Clause
// AVX-512 packing into panels of width W (a multiple of 8), layout as stated in
// gemm_kernel.h. The k-contiguous case transposes 8x8 blocks in registers.
#pragma once

#include <immintrin.h>

#include <cstdint>

#include "blas/kernels/avx512/dgemm_store.h"

namespace zml::blas::avx512 {

// In-register transpose of eight rows of eight doubles in three stages of
// two-source permutes (interleave pairs, then 128-bit pairs, then 256-bit
// halves). Two-source permutes rather than unpack/shuffle intrinsics: the
// latter start from an undefined vector that GCC 12 reports as uninitialised.
inline void dgemm_transpose_8x8(__m512d r[8]) {
  const __m512i lo1 = _mm512_set_epi64(14, 6, 12, 4, 10, 2, 8, 0);
  const __m512i hi1 = _mm512_set_epi64(15, 7, 13, 5, 11, 3, 9, 1);
  const __m512i lo2 = _mm512_set_epi64(13, 12, 5, 4, 9, 8, 1, 0);
  const __m512i hi2 = _mm512_set_epi64(15, 14, 7, 6, 11, 10, 3, 2);
  const __m512i lo4 = _mm512_set_epi64(11, 10, 9, 8, 3, 2, 1, 0);
  const __m512i hi4 = _mm512_set_epi64(15, 14, 13, 12, 7, 6, 5, 4);
  __m512d t[8], s[8];
  for (int i = 0; i < 4; ++i) {
    t[2 * i] = _mm512_permutex2var_pd(r[2 * i], lo1, r[2 * i + 1]);
    t[2 * i + 1] = _mm512_permutex2var_pd(r[2 * i], hi1, r[2 * i + 1]);
  }
  // s[0]: k=0,4 of rows 0-3; s[1]: k=1,5; s[2]: k=2,6; s[3]: k=3,7; s[4..7] rows 4-7.
  for (int h = 0; h < 2; ++h) {
    s[4 * h + 0] = _mm512_permutex2var_pd(t[4 * h + 0], lo2, t[4 * h + 2]);
    s[4 * h + 2] = _mm512_permutex2var_pd(t[4 * h + 0], hi2, t[4 * h + 2]);
    s[4 * h + 1] = _mm512_permutex2var_pd(t[4 * h + 1], lo2, t[4 * h + 3]);
    s[4 * h + 3] = _mm512_permutex2var_pd(t[4 * h + 1], hi2, t[4 * h + 3]);
  }
  for (int q = 0; q < 4; ++q) {
    r[q] = _mm512_permutex2var_pd(s[q], lo4, s[q + 4]);
    r[q + 4] = _mm512_permutex2var_pd(s[q], hi4, s[q + 4]);
  }
}

template <int W>
inline void dgemm_pack_panels(const double* x, int64_t ld, int64_t rows, int64_t k,
                              bool k_contiguous, double* dst) {
  constexpr int kV = W / 8;
  if (!k_contiguous) {
    // Lines run along unit stride: walk each source column once from top to
    // bottom (one long contiguous read the prefetchers follow) and deal it out
    // to the panels, rather than revisiting every column once per panel.
    const int64_t full = rows / W;
    const int64_t rest = rows - full * W;
    __mmask8 mask[kV];
    for (int v = 0; v < kV; ++v) mask[v] = dgemm_row_mask(rest - 8 * v);
    for (int64_t p = 0; p < k; ++p) {
      const double* src = x + p * ld;
      double* d = dst + p * W;
      for (int64_t q = 0; q < full; ++q) {
#pragma GCC unroll 4
        for (int v = 0; v < kV; ++v) {
          _mm512_storeu_pd(d + q * W * k + 8 * v, _mm512_loadu_pd(src + q * W + 8 * v));
        }
      }
      if (rest > 0) {
#pragma GCC unroll 4
        for (int v = 0; v < kV; ++v) {
          _mm512_storeu_pd(d + full * W * k + 8 * v,
                           _mm512_maskz_loadu_pd(mask[v], src + full * W + 8 * v));
        }
      }
    }
    return;
  }
  for (int64_t r0 = 0; r0 < rows; r0 += W, dst += W * k) {
    const int64_t w = rows - r0 < W ? rows - r0 : W;
    for (int v = 0; v < kV; ++v) {
      // Lines past the matrix read nothing (mask 0) from a valid address and
      // come out as the zero padding.
      const double* line[8];
      __mmask8 lmask[8];
      for (int i = 0; i < 8; ++i) {
        const bool valid = 8 * v + i < w;
        line[i] = valid ? x + (r0 + 8 * v + i) * ld : x;
        lmask[i] = valid ? 0xFF : 0;
      }
      double* d = dst + 8 * v;
      int64_t p = 0;
      __m512d r[8];
      for (; p + 8 <= k; p += 8) {
#pragma GCC unroll 8
        for (int i = 0; i < 8; ++i) r[i] = _mm512_maskz_loadu_pd(lmask[i], line[i] + p);
        dgemm_transpose_8x8(r);
#pragma GCC unroll 8
        for (int t = 0; t < 8; ++t) _mm512_storeu_pd(d + (p + t) * W, r[t]);
      }
      if (p < k) {
        const __mmask8 tail = dgemm_row_mask(k - p);
        for (int i = 0; i < 8; ++i) {
          r[i] = _mm512_maskz_loadu_pd(static_cast<__mmask8>(lmask[i] & tail), line[i] + p);
        }
        dgemm_transpose_8x8(r);
        for (int t = 0; t < k - p; ++t) _mm512_storeu_pd(d + (p + t) * W, r[t]);
      }
    }
  }
}

}  // namespace zml::blas::avx512
