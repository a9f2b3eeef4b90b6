// SPDX-License-Identifier: BSD-3-Clause
// AVX-512 small-matrix zgemm: C := alpha*A*op(B) + beta*C straight from the
// caller's arrays, for the tiny products where packing would cost more than
// the multiply.
#include <immintrin.h>

#include "blas/kernels/zgemm_kernel.h"
#include "blas/kernels/zgemm_tile_ops.h"
#include "service/simd/avx512/vec_ops.h"

namespace zml::blas::avx512 {

using simd::avx512::Ops;

// Tiles of 8 complex rows (two masked column loads of A) by 4 columns of C:
// 16 accumulators keep both FMA pipes busy even though k is at most 16.
void zgemm_small(int64_t m, int64_t n, int64_t k, const double* alpha, const double* a, int64_t lda,
                 const double* b, int64_t rsb, int64_t csb, bool conj_b, const double* beta,
                 double* c, int64_t ldc) {
  const bool bz = beta[0] == 0.0 && beta[1] == 0.0;
  const double sgn = conj_b ? -1.0 : 1.0;
  for (int64_t j0 = 0; j0 < n; j0 += 4) {
    const int64_t nn = n - j0 < 4 ? n - j0 : 4;
    for (int64_t i0 = 0; i0 < m; i0 += 8) {
      // Doubles of C in this tile, four complex rows per vector.
      const int64_t d0 = 2 * (m - i0), d1 = d0 - 8;
      const __mmask8 m0 = Ops::mask(d0 < 8 ? static_cast<int>(d0) : 8);
      const __mmask8 m1 = Ops::mask(d1 < 8 ? static_cast<int>(d1) : 8);
      __m512d r0[4], r1[4], s0[4], s1[4];
#pragma GCC unroll 4
      for (int j = 0; j < 4; ++j) r0[j] = r1[j] = s0[j] = s1[j] = _mm512_setzero_pd();
      const double* ap = a + 2 * i0;
      for (int64_t p = 0; p < k; ++p) {
        const __m512d a0 = _mm512_maskz_loadu_pd(m0, ap + 2 * p * lda);
        const __m512d a1 = _mm512_maskz_loadu_pd(m1, ap + 2 * p * lda + 8);
        const double* bp = b + 2 * (p * rsb + j0 * csb);
#pragma GCC unroll 4
        for (int j = 0; j < 4; ++j) {
          if (j < nn) {
            const __m512d br = _mm512_set1_pd(bp[2 * j * csb]);
            const __m512d bi = _mm512_set1_pd(sgn * bp[2 * j * csb + 1]);
            r0[j] = _mm512_fmadd_pd(a0, br, r0[j]);
            r1[j] = _mm512_fmadd_pd(a1, br, r1[j]);
            s0[j] = _mm512_fmadd_pd(a0, bi, s0[j]);
            s1[j] = _mm512_fmadd_pd(a1, bi, s1[j]);
          }
        }
      }
#pragma GCC unroll 4
      for (int j = 0; j < 4; ++j) {
        if (j < nn) {
          double* cj = c + 2 * (i0 + (j0 + j) * ldc);
          zgemm_store_ops<Ops>(cj, r0[j], s0[j], d0, alpha, beta, bz);
          if (d1 > 0) zgemm_store_ops<Ops>(cj + 8, r1[j], s1[j], d1, alpha, beta, bz);
        }
      }
    }
  }
}

}  // namespace zml::blas::avx512
