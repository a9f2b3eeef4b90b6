// SPDX-License-Identifier: BSD-3-Clause
// SSE2 small-matrix zgemm: C := alpha*A*op(B) + beta*C straight from the
// caller's arrays, for the tiny products where packing would cost more than
// the multiply.
#include <immintrin.h>

#include "blas/kernels/zgemm_kernel.h"
#include "blas/kernels/zgemm_tile_ops.h"
#include "service/simd/sse2/vec_ops.h"

namespace zml::blas::sse2 {

using simd::sse2::Ops;

// Tiles of 2x2 complex numbers, eight accumulators; the row or column past an
// odd edge is simply not computed.
void zgemm_small(int64_t m, int64_t n, int64_t k, const double* alpha, const double* a, int64_t lda,
                 const double* b, int64_t rsb, int64_t csb, bool conj_b, const double* beta,
                 double* c, int64_t ldc) {
  const bool bz = beta[0] == 0.0 && beta[1] == 0.0;
  const double sgn = conj_b ? -1.0 : 1.0;
  for (int64_t j = 0; j < n; j += 2) {
    const bool two_cols = j + 1 < n;
    for (int64_t i = 0; i < m; i += 2) {
      const bool two_rows = i + 1 < m;
      __m128d r00 = _mm_setzero_pd(), r10 = r00, r01 = r00, r11 = r00;
      __m128d i00 = r00, i10 = r00, i01 = r00, i11 = r00;
      for (int64_t p = 0; p < k; ++p) {
        const double* ap = a + 2 * (i + p * lda);
        const __m128d a0 = _mm_loadu_pd(ap);
        const __m128d a1 = two_rows ? _mm_loadu_pd(ap + 2) : _mm_setzero_pd();
        const double* bp = b + 2 * (p * rsb + j * csb);
        __m128d br = _mm_set1_pd(bp[0]), bi = _mm_set1_pd(sgn * bp[1]);
        r00 = _mm_add_pd(r00, _mm_mul_pd(a0, br));
        r10 = _mm_add_pd(r10, _mm_mul_pd(a1, br));
        i00 = _mm_add_pd(i00, _mm_mul_pd(a0, bi));
        i10 = _mm_add_pd(i10, _mm_mul_pd(a1, bi));
        if (two_cols) {
          br = _mm_set1_pd(bp[2 * csb]);
          bi = _mm_set1_pd(sgn * bp[2 * csb + 1]);
          r01 = _mm_add_pd(r01, _mm_mul_pd(a0, br));
          r11 = _mm_add_pd(r11, _mm_mul_pd(a1, br));
          i01 = _mm_add_pd(i01, _mm_mul_pd(a0, bi));
          i11 = _mm_add_pd(i11, _mm_mul_pd(a1, bi));
        }
      }
      double* c0 = c + 2 * (i + j * ldc);
      zgemm_store_ops<Ops>(c0, r00, i00, 2, alpha, beta, bz);
      if (two_rows) zgemm_store_ops<Ops>(c0 + 2, r10, i10, 2, alpha, beta, bz);
      if (two_cols) {
        double* c1 = c0 + 2 * ldc;
        zgemm_store_ops<Ops>(c1, r01, i01, 2, alpha, beta, bz);
        if (two_rows) zgemm_store_ops<Ops>(c1 + 2, r11, i11, 2, alpha, beta, bz);
      }
    }
  }
}

}  // namespace zml::blas::sse2
