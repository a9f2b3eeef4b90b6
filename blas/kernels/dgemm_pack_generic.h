// SPDX-License-Identifier: BSD-3-Clause
// Portable dgemm packing, written once and instantiated per kernel folder with
// that folder's tag type (so each instantiation is a distinct symbol compiled
// with its own flags). Layout and padding as stated in gemm_kernel.h.
#pragma once

#include <cstdint>

namespace zml::blas {

template <class IsaTag, int W>
void dgemm_pack_generic(const double* __restrict x, int64_t ld, int64_t rows, int64_t k,
                        bool k_contiguous, double* __restrict dst) {
  for (int64_t r0 = 0; r0 < rows; r0 += W, dst += W * k) {
    const int64_t w = rows - r0 < W ? rows - r0 : W;
    if (!k_contiguous) {
      // Panel direction is unit stride: copy W at a time, pad with zeros.
      const double* src = x + r0;
      for (int64_t p = 0; p < k; ++p) {
        double* d = dst + p * W;
        const double* s = src + p * ld;
        if (w == W) {
          for (int r = 0; r < W; ++r) d[r] = s[r];
        } else {
          for (int r = 0; r < W; ++r) d[r] = r < w ? s[r] : 0.0;
        }
      }
    } else {
      // k is unit stride: read each line along k (contiguous reads), write
      // with stride W; the W output streams stay in L1.
      const double* src = x + r0 * ld;
      for (int64_t r = 0; r < w; ++r) {
        const double* s = src + r * ld;
        for (int64_t p = 0; p < k; ++p) dst[p * W + r] = s[p];
      }
      for (int64_t r = w; r < W; ++r) {
        for (int64_t p = 0; p < k; ++p) dst[p * W + r] = 0.0;
      }
    }
  }
}

}  // namespace zml::blas
