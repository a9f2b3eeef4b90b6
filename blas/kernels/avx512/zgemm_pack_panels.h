// SPDX-License-Identifier: BSD-3-Clause
// AVX-512 zgemm packing into panels of W complex numbers, layout, padding and
// conjugation as stated in zgemm_kernel.h. A complex number is one 128-bit
// lane, so the k-contiguous case transposes 4x4 blocks of lanes in registers.
// Masks count doubles (dgemm_row_mask: the first n lanes of a vector).
#pragma once

#include <immintrin.h>

#include <cstdint>

#include "blas/kernels/avx512/dgemm_store.h"

namespace zml::blas::avx512 {

// Lane-wise 4x4 transpose: r[i] holds complex numbers 0..3 of line i; after
// it r[t] holds number t of lines 0..3. The masked forms with a named
// fallback keep GCC 12 from reporting the plain intrinsic's undefined source.
inline void zgemm_transpose_4x4(__m512d r[4]) {
  const __m512d t0 = _mm512_mask_shuffle_f64x2(r[0], 0xFF, r[0], r[1], 0x88);
  const __m512d t1 = _mm512_mask_shuffle_f64x2(r[0], 0xFF, r[0], r[1], 0xDD);
  const __m512d t2 = _mm512_mask_shuffle_f64x2(r[2], 0xFF, r[2], r[3], 0x88);
  const __m512d t3 = _mm512_mask_shuffle_f64x2(r[2], 0xFF, r[2], r[3], 0xDD);
  r[0] = _mm512_mask_shuffle_f64x2(t0, 0xFF, t0, t2, 0x88);
  r[2] = _mm512_mask_shuffle_f64x2(t0, 0xFF, t0, t2, 0xDD);
  r[1] = _mm512_mask_shuffle_f64x2(t1, 0xFF, t1, t3, 0x88);
  r[3] = _mm512_mask_shuffle_f64x2(t1, 0xFF, t1, t3, 0xDD);
}

template <int W>
inline void zgemm_pack_panels(const double* x, int64_t ld, int64_t rows, int64_t k,
                              bool k_contiguous, bool conj, double* dst) {
  // Conjugation flips the sign bit of every imaginary part: exact, and -0.0
  // comes out as the multiply by -1 would give it.
  const __m512d flip =
      conj ? _mm512_set_pd(-0.0, 0.0, -0.0, 0.0, -0.0, 0.0, -0.0, 0.0) : _mm512_setzero_pd();
  constexpr int kV = (2 * W + 7) / 8;  // vectors per slice
  if (!k_contiguous) {
    // The panel direction is unit stride: each slice is one short copy, and
    // a panel is written front to back. (Dealing each column out to all the
    // panels, as the real packer does, measured no faster here.)
    __mmask8 slice_mask[kV];
    for (int v = 0; v < kV; ++v) slice_mask[v] = dgemm_row_mask(2 * W - 8 * v);
    for (int64_t r0 = 0; r0 < rows; r0 += W, dst += 2 * W * k) {
      const int64_t w = rows - r0 < W ? rows - r0 : W;
      __mmask8 in[kV];
      for (int v = 0; v < kV; ++v) {
        in[v] = static_cast<__mmask8>(dgemm_row_mask(2 * w - 8 * v) & slice_mask[v]);
      }
      const double* src = x + 2 * r0;
      for (int64_t p = 0; p < k; ++p) {
#pragma GCC unroll 4
        for (int v = 0; v < kV; ++v) {
          const __m512d val = _mm512_maskz_loadu_pd(in[v], src + 2 * p * ld + 8 * v);
          _mm512_mask_storeu_pd(dst + 2 * W * p + 8 * v, slice_mask[v], _mm512_xor_pd(val, flip));
        }
      }
    }
    return;
  }
  // k is unit stride: lines are read four complex numbers at a time, four
  // lines side by side, and transposed into four slices.
  for (int64_t r0 = 0; r0 < rows; r0 += W, dst += 2 * W * k) {
    const int64_t w = rows - r0 < W ? rows - r0 : W;
    for (int g = 0; g < W; g += 4) {
      const int lines = W - g < 4 ? W - g : 4;
      // Lines past the matrix read nothing (mask 0) from a valid address and
      // come out as the zero padding.
      const double* line[4];
      __mmask8 lmask[4];
      for (int i = 0; i < 4; ++i) {
        const bool valid = g + i < w && i < lines;
        line[i] = valid ? x + 2 * (r0 + g + i) * ld : x;
        lmask[i] = valid ? 0xFF : 0;
      }
      const __mmask8 out = dgemm_row_mask(2 * lines);
      double* d = dst + 2 * g;
      __m512d r[4];
      int64_t p = 0;
      for (; p + 4 <= k; p += 4) {
#pragma GCC unroll 4
        for (int i = 0; i < 4; ++i) r[i] = _mm512_maskz_loadu_pd(lmask[i], line[i] + 2 * p);
        zgemm_transpose_4x4(r);
#pragma GCC unroll 4
        for (int t = 0; t < 4; ++t) {
          _mm512_mask_storeu_pd(d + 2 * W * (p + t), out, _mm512_xor_pd(r[t], flip));
        }
      }
      if (p < k) {
        const __mmask8 tail = dgemm_row_mask(2 * (k - p));
        for (int i = 0; i < 4; ++i) {
          r[i] = _mm512_maskz_loadu_pd(static_cast<__mmask8>(lmask[i] & tail), line[i] + 2 * p);
        }
        zgemm_transpose_4x4(r);
        for (int t = 0; t < k - p; ++t) {
          _mm512_mask_storeu_pd(d + 2 * W * (p + t), out, _mm512_xor_pd(r[t], flip));
        }
      }
    }
  }
}

}  // namespace zml::blas::avx512
