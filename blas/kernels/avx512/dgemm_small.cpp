// SPDX-License-Identifier: BSD-3-Clause
// AVX-512 dgemm for small operands (m, n, k <= 32), straight from A and B
// without packing: users call it in loops, so nothing here allocates.
#include <immintrin.h>

#include "blas/kernels/avx512/dgemm_store.h"
#include "blas/kernels/gemm_kernel.h"

namespace zml::blas::avx512 {

namespace {

// One block of kV row vectors by kN columns starting at column j0. An edge
// block (kFull false) repeats the last valid column of B instead of branching
// inside the k loop; the extra columns are computed but never stored. A full
// block addresses column j as b + j*csb, which folds into scaled-index
// addressing and spares the general registers a table of column offsets.
// kS accumulator sets take alternate k steps: with one row vector there are
// only kN chains, too few to cover the FMA latency over a short k, so the
// chains are split and summed at the end.
template <int kV, int kN, int kS, bool kFull>
__attribute__((always_inline)) inline void small_block(int64_t n, int64_t k, const __mmask8* mask,
                                                       const double* a, int64_t lda,
                                                       const double* b, int64_t rsb, int64_t csb,
                                                       __m512d va, __m512d vb, bool bz, double* c,
                                                       int64_t ldc) {
  int64_t off[kN];
  for (int j = 0; j < kN; ++j) off[j] = (kFull || j < n ? j : n - 1) * csb;
  __m512d acc[kS][kV][kN];
#pragma GCC unroll 2
  for (int s = 0; s < kS; ++s) {
#pragma GCC unroll 8
    for (int j = 0; j < kN; ++j) {
#pragma GCC unroll 4
      for (int v = 0; v < kV; ++v) acc[s][v][j] = _mm512_setzero_pd();
    }
  }
  auto b_at = [&](int64_t p, int j) {
    return _mm512_set1_pd(kFull ? b[p * rsb + j * csb] : b[p * rsb + off[j]]);
  };
  int64_t p = 0;
  for (; p + kS <= k; p += kS) {
#pragma GCC unroll 2
    for (int s = 0; s < kS; ++s) {
      __m512d av[kV];
#pragma GCC unroll 4
      for (int v = 0; v < kV; ++v) {
        av[v] = _mm512_maskz_loadu_pd(mask[v], a + (p + s) * lda + 8 * v);
      }
#pragma GCC unroll 8
      for (int j = 0; j < kN; ++j) {
        const __m512d bv = b_at(p + s, j);
#pragma GCC unroll 4
        for (int v = 0; v < kV; ++v) acc[s][v][j] = _mm512_fmadd_pd(av[v], bv, acc[s][v][j]);
      }
    }
  }
  if (kS > 1 && p < k) {
    __m512d av[kV];
#pragma GCC unroll 4
    for (int v = 0; v < kV; ++v) av[v] = _mm512_maskz_loadu_pd(mask[v], a + p * lda + 8 * v);
#pragma GCC unroll 8
    for (int j = 0; j < kN; ++j) {
      const __m512d bv = b_at(p, j);
#pragma GCC unroll 4
      for (int v = 0; v < kV; ++v) acc[0][v][j] = _mm512_fmadd_pd(av[v], bv, acc[0][v][j]);
    }
  }
#pragma GCC unroll 2
  for (int s = 1; s < kS; ++s) {
#pragma GCC unroll 8
    for (int j = 0; j < kN; ++j) {
#pragma GCC unroll 4
      for (int v = 0; v < kV; ++v) acc[0][v][j] = _mm512_add_pd(acc[0][v][j], acc[s][v][j]);
    }
  }
#pragma GCC unroll 8
  for (int j = 0; j < kN; ++j) {
    if (kFull || j < n) {
#pragma GCC unroll 4
      for (int v = 0; v < kV; ++v) {
        dgemm_store_vec(c + j * ldc + 8 * v, acc[0][v][j], mask[v], va, vb, bz);
      }
    }
  }
}

// Each shape out of line: inlined into one dispatcher, all of them share one
// frame sized for the largest, and even a 2 x 2 call pays for setting it up.
template <int kV, int kN, int kS>
__attribute__((noinline)) void small_blocks(int64_t m, int64_t n, int64_t k, double alpha,
                                            const double* a, int64_t lda, const double* b,
                                            int64_t rsb, int64_t csb, double beta, double* c,
                                            int64_t ldc) {
  __mmask8 mask[kV];
  for (int v = 0; v < kV; ++v) mask[v] = dgemm_row_mask(m - 8 * v);
  const __m512d va = _mm512_set1_pd(alpha), vb = _mm512_set1_pd(beta);
  const bool bz = beta == 0.0;
  int64_t j0 = 0;
  for (; j0 + kN <= n; j0 += kN) {
    small_block<kV, kN, kS, true>(kN, k, mask, a, lda, b + j0 * csb, rsb, csb, va, vb, bz,
                                  c + j0 * ldc, ldc);
  }
  if (j0 < n) {
    small_block<kV, kN, kS, false>(n - j0, k, mask, a, lda, b + j0 * csb, rsb, csb, va, vb, bz,
                                   c + j0 * ldc, ldc);
  }
}

}  // namespace

void dgemm_small(int64_t m, int64_t n, int64_t k, double alpha, const double* a, int64_t lda,
                 const double* b, int64_t rsb, int64_t csb, double beta, double* c, int64_t ldc) {
  // Up to 32 rows in one block of as many vectors as the rows need (m = 8
  // costs one FMA per column and k step, not three); taller A in blocks of 24,
  // the micro-kernel's 3 x 8 accumulators.
  if (m <= 32) {
    switch ((m + 7) / 8) {
      case 1:
        small_blocks<1, 8, 2>(m, n, k, alpha, a, lda, b, rsb, csb, beta, c, ldc);
        return;
      case 2:
        small_blocks<2, 8, 1>(m, n, k, alpha, a, lda, b, rsb, csb, beta, c, ldc);
        return;
      case 3:
        small_blocks<3, 8, 1>(m, n, k, alpha, a, lda, b, rsb, csb, beta, c, ldc);
        return;
      default:
        small_blocks<4, 4, 1>(m, n, k, alpha, a, lda, b, rsb, csb, beta, c, ldc);
        return;
    }
  }
  for (int64_t i0 = 0; i0 < m; i0 += 24) {
    const int64_t mi = m - i0 < 24 ? m - i0 : 24;
    switch ((mi + 7) / 8) {
      case 1:
        small_blocks<1, 8, 2>(mi, n, k, alpha, a + i0, lda, b, rsb, csb, beta, c + i0, ldc);
        break;
      case 2:
        small_blocks<2, 8, 1>(mi, n, k, alpha, a + i0, lda, b, rsb, csb, beta, c + i0, ldc);
        break;
      default:
        small_blocks<3, 8, 1>(mi, n, k, alpha, a + i0, lda, b, rsb, csb, beta, c + i0, ldc);
        break;
    }
  }
}

}  // namespace zml::blas::avx512
