// SPDX-License-Identifier: BSD-3-Clause
// AVX-512 dgemm micro-kernel, 24x8 tile.
#include <immintrin.h>

#include "blas/kernels/avx512/dgemm_store.h"
#include "blas/kernels/gemm_kernel.h"

namespace zml::blas::avx512 {

// 24x8: 24 zmm accumulators are three times the eight independent chains that
// two 4-cycle FMA pipes need, and leave 8 of the 32 registers for the three A
// vectors and the broadcasts. Per k step: 3 vector loads and 8 broadcasts feed
// 24 FMAs, well under the load ports' rate. A taller tile than a wide one keeps
// the C columns (3 cache lines each) few, so the store is 8 columns of
// contiguous rows.
void dgemm_kernel_24x8(int64_t m, int64_t n, int64_t k, double alpha, const double* a,
                       const double* b, double beta, double* c, int64_t ldc) {
  __m512d c0[8], c1[8], c2[8];
#pragma GCC unroll 8
  for (int j = 0; j < 8; ++j) c0[j] = c1[j] = c2[j] = _mm512_setzero_pd();
  auto step = [&] {
    const __m512d a0 = _mm512_loadu_pd(a);
    const __m512d a1 = _mm512_loadu_pd(a + 8);
    const __m512d a2 = _mm512_loadu_pd(a + 16);
    // Each step consumes three lines of A; fetch the three that eight steps
    // ahead will need.
    _mm_prefetch(reinterpret_cast<const char*>(a + 192), _MM_HINT_T0);
    _mm_prefetch(reinterpret_cast<const char*>(a + 200), _MM_HINT_T0);
    _mm_prefetch(reinterpret_cast<const char*>(a + 208), _MM_HINT_T0);
#pragma GCC unroll 8
    for (int j = 0; j < 8; ++j) {
      const __m512d bj = _mm512_set1_pd(b[j]);
      c0[j] = _mm512_fmadd_pd(a0, bj, c0[j]);
      c1[j] = _mm512_fmadd_pd(a1, bj, c1[j]);
      c2[j] = _mm512_fmadd_pd(a2, bj, c2[j]);
    }
    a += 24;
    b += 8;
  };
  // The C tile (8 columns of three or four lines) is fetched during the last
  // 64 steps, one line every other step: issued together they would hold
  // every fill buffer and stall the loads of A.
  constexpr int64_t kTail = 64;
  int64_t p = 0;
  for (; p < k - kTail; ++p) step();
  for (int j = 0; j < 8; ++j) {
    const char* cj = reinterpret_cast<const char*>(c + j * ldc);
    for (int l = 0; l < 4; ++l) {
      _mm_prefetch(cj + (l < 3 ? 64 * l : 191), _MM_HINT_T0);
      if (p < k) step(), ++p;
      if (p < k) step(), ++p;
    }
  }
  const __m512d va = _mm512_set1_pd(alpha), vb = _mm512_set1_pd(beta);
  const bool bz = beta == 0.0;
  const __mmask8 m0 = dgemm_row_mask(m), m1 = dgemm_row_mask(m - 8), m2 = dgemm_row_mask(m - 16);
#pragma GCC unroll 8
  for (int j = 0; j < 8; ++j) {
    if (j < n) {
      double* cj = c + j * ldc;
      dgemm_store_vec(cj, c0[j], m0, va, vb, bz);
      dgemm_store_vec(cj + 8, c1[j], m1, va, vb, bz);
      dgemm_store_vec(cj + 16, c2[j], m2, va, vb, bz);
    }
  }
}

}  // namespace zml::blas::avx512
