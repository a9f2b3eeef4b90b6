// SPDX-License-Identifier: BSD-3-Clause
// Portable zgemm packing, written once and instantiated per kernel folder with
// that folder's tag type (each instantiation is a distinct symbol compiled with
// its own flags). Layout, padding and conjugation as stated in zgemm_kernel.h.
#pragma once

#include <cstdint>

namespace zml::blas {

template <class IsaTag, int W>
void zgemm_pack_generic(const double* __restrict x, int64_t ld, int64_t rows, int64_t k,
                        bool k_contiguous, bool conj, double* __restrict dst) {
  // Conjugation is a sign on the imaginary part; multiplying by +-1 is exact.
  const double s = conj ? -1.0 : 1.0;
  for (int64_t r0 = 0; r0 < rows; r0 += W, dst += 2 * W * k) {
    const int64_t w = rows - r0 < W ? rows - r0 : W;
    if (!k_contiguous) {
      // The panel direction is unit stride: each slice is a copy of W complex
      // numbers; full panels use the constant trip count so the copy
      // vectorises.
      const double* src = x + 2 * r0;
      for (int64_t p = 0; p < k; ++p) {
        double* d = dst + 2 * W * p;
        const double* q = src + 2 * p * ld;
        if (w == W) {
          for (int r = 0; r < 2 * W; r += 2) {
            d[r] = q[r];
            d[r + 1] = s * q[r + 1];
          }
        } else {
          for (int64_t r = 0; r < w; ++r) {
            d[2 * r] = q[2 * r];
            d[2 * r + 1] = s * q[2 * r + 1];
          }
          for (int64_t r = w; r < W; ++r) d[2 * r] = d[2 * r + 1] = 0.0;
        }
      }
    } else {
      // k is unit stride: W lines are read side by side, one complex number
      // from each per slice, so every slice is written contiguously.
      const double* src = x + 2 * r0 * ld;
      for (int64_t p = 0; p < k; ++p) {
        double* d = dst + 2 * W * p;
        const double* q = src + 2 * p;
        for (int64_t r = 0; r < w; ++r) {
          d[2 * r] = q[2 * r * ld];
          d[2 * r + 1] = s * q[2 * r * ld + 1];
        }
        for (int64_t r = w; r < W; ++r) d[2 * r] = d[2 * r + 1] = 0.0;
      }
    }
  }
}

}  // namespace zml::blas
