// SPDX-License-Identifier: BSD-3-Clause
// AVX-512 dgemm micro-kernel, 24x8 tile.
#include <immintrin.h>

#include "blas/kernels/avx512/dgemm_store.h"
#include "blas/kernels/gemm_kernel.h"

namespace zml::blas::avx512 {

namespace {

// kV vectors of eight rows by kN columns, from panels 24 rows and 8 columns
// wide: the full tile is kV = 3, kN = 8; edge tiles compute only what they
// store.
template <int kV, int kN>
inline void dgemm_tile(int64_t m, int64_t n, int64_t k, double alpha, const double* a,
                       const double* b, double beta, double* c, int64_t ldc) {
  __m512d acc[kV][kN];
#pragma GCC unroll 8
  for (int j = 0; j < kN; ++j) {
#pragma GCC unroll 4
    for (int v = 0; v < kV; ++v) acc[v][j] = _mm512_setzero_pd();
  }
  auto step = [&] {
    // Each step consumes up to three lines of A; the prefetches fetch those
    // eight steps ahead.
    __m512d av[kV];
#pragma GCC unroll 4
    for (int v = 0; v < kV; ++v) av[v] = _mm512_loadu_pd(a + 8 * v);
#pragma GCC unroll 4
    for (int v = 0; v < kV; ++v) {
      _mm_prefetch(reinterpret_cast<const char*>(a + 192 + 8 * v), _MM_HINT_T0);
    }
#pragma GCC unroll 8
    for (int j = 0; j < kN; ++j) {
      const __m512d bj = _mm512_set1_pd(b[j]);
#pragma GCC unroll 4
      for (int v = 0; v < kV; ++v) acc[v][j] = _mm512_fmadd_pd(av[v], bj, acc[v][j]);
    }
    a += 24;
    b += 8;
  };
  // The C tile (kN columns of up to four lines) is fetched during the last
  // steps, one line every other step: issued together they would hold every
  // fill buffer and stall the loads of A.
  constexpr int64_t kTail = 2 * kN * (kV + 1);
  int64_t p = 0;
  for (; p < k - kTail; ++p) step();
  for (int j = 0; j < kN; ++j) {
    const char* cj = reinterpret_cast<const char*>(c + j * ldc);
    for (int l = 0; l <= kV; ++l) {
      _mm_prefetch(cj + (l < kV ? 64 * l : 64 * kV - 1), _MM_HINT_T0);
      if (p < k) step(), ++p;
      if (p < k) step(), ++p;
    }
  }
  const __m512d va = _mm512_set1_pd(alpha), vb = _mm512_set1_pd(beta);
  const bool bz = beta == 0.0;
#pragma GCC unroll 8
  for (int j = 0; j < kN; ++j) {
    if (j < n) {
      double* cj = c + j * ldc;
#pragma GCC unroll 4
      for (int v = 0; v < kV; ++v)
        dgemm_store_vec(cj + 8 * v, acc[v][j], dgemm_row_mask(m - 8 * v), va, vb, bz);
    }
  }
}

}  // namespace

// 24x8: 24 zmm accumulators are three times the eight independent chains that
// two 4-cycle FMA pipes need, and leave 8 of the 32 registers for the three A
// vectors and the broadcasts. Per k step: 3 vector loads and 8 broadcasts feed
// 24 FMAs, well under the load ports' rate. A taller tile than a wide one keeps
// the C columns (3 cache lines each) few, so the store is 8 columns of
// contiguous rows. Edge tiles take one or two vectors and four columns where
// that covers them, rather than multiply the panels' zero padding.
void dgemm_kernel_24x8(int64_t m, int64_t n, int64_t k, double alpha, const double* a,
                       const double* b, double beta, double* c, int64_t ldc) {
  if (n > 4) {
    if (m > 16) {
      dgemm_tile<3, 8>(m, n, k, alpha, a, b, beta, c, ldc);
    } else if (m > 8) {
      dgemm_tile<2, 8>(m, n, k, alpha, a, b, beta, c, ldc);
    } else {
      dgemm_tile<1, 8>(m, n, k, alpha, a, b, beta, c, ldc);
    }
  } else if (m > 16) {
    dgemm_tile<3, 4>(m, n, k, alpha, a, b, beta, c, ldc);
  } else if (m > 8) {
    dgemm_tile<2, 4>(m, n, k, alpha, a, b, beta, c, ldc);
  } else {
    dgemm_tile<1, 4>(m, n, k, alpha, a, b, beta, c, ldc);
  }
}

}  // namespace zml::blas::avx512
