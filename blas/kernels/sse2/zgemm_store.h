// SPDX-License-Identifier: BSD-3-Clause
// Complex helpers shared by the SSE2 zgemm kernels: one complex number per
// xmm, so an edge tile simply skips the vectors past its corner; the store
// folds the two accumulator sets and writes C := alpha*acc + beta*C.
#pragma once

#include <immintrin.h>

namespace zml::blas::sse2 {

// SSE2 has no addsub: flip the sign of the real lane with a mask instead.
inline __m128d zgemm_neg_re(__m128d x) { return _mm_xor_pd(x, _mm_set_pd(0.0, -0.0)); }

inline __m128d zgemm_swap(__m128d x) { return _mm_shuffle_pd(x, x, 1); }

// x * (sr + i*si) for broadcast sr, si.
inline __m128d zgemm_cmul(__m128d x, __m128d sr, __m128d si) {
  return _mm_add_pd(_mm_mul_pd(x, sr), zgemm_neg_re(_mm_mul_pd(zgemm_swap(x), si)));
}

// re holds sum a*Re(b), im holds sum a*Im(b): the product is re -+ swap(im).
inline void zgemm_store_vec(double* c, __m128d re, __m128d im, const double* alpha,
                            const double* beta, bool beta_zero) {
  const __m128d prod = _mm_add_pd(re, zgemm_neg_re(zgemm_swap(im)));
  __m128d v = zgemm_cmul(prod, _mm_set1_pd(alpha[0]), _mm_set1_pd(alpha[1]));
  // beta == 0 never loads C: NaN there must not reach the result.
  if (!beta_zero) {
    v = _mm_add_pd(v, zgemm_cmul(_mm_loadu_pd(c), _mm_set1_pd(beta[0]), _mm_set1_pd(beta[1])));
  }
  _mm_storeu_pd(c, v);
}

}  // namespace zml::blas::sse2
