// SPDX-License-Identifier: BSD-3-Clause
// The AVX-512 zgemm micro-kernel body, written once over the register tile:
// MV vectors of four complex rows by NR columns. Each kernel file
// instantiates one shape; the 32-bit build, with 8 vector registers, needs a
// smaller one than the 64-bit build with 32.
#pragma once

#include <immintrin.h>

#include <cstdint>

#include "blas/kernels/avx512/zgemm_store.h"

namespace zml::blas::avx512 {

// A is packed interleaved (re, im). Each k step broadcasts Re(b_j) and Im(b_j)
// and accumulates A*Re(b_j) and A*Im(b_j) into separate registers; the swap
// and sign fold happen once per tile in the store, so the loop is pure FMAs.
// PV and PR are the panels' widths (vectors of A, columns of B per step);
// an edge tile computes only its first MV <= PV vectors and NR <= PR columns.
template <int MV, int NR, int PV = MV, int PR = NR>
inline void zgemm_tile(int64_t m, int64_t n, int64_t k, const double* alpha, const double* a,
                       const double* b, const double* beta, double* c, int64_t ldc) {
  __m512d re[MV][NR], im[MV][NR];
#pragma GCC unroll 8
  for (int v = 0; v < MV; ++v) {
#pragma GCC unroll 8
    for (int j = 0; j < NR; ++j) re[v][j] = im[v][j] = _mm512_setzero_pd();
  }
  auto step = [&] {
    // MV lines of A per step; the prefetches fetch those eight steps ahead.
    __m512d av[MV];
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) av[v] = _mm512_loadu_pd(a + 8 * v);
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) {
      _mm_prefetch(reinterpret_cast<const char*>(a + 64 * PV + 8 * v), _MM_HINT_T0);
    }
#pragma GCC unroll 8
    for (int j = 0; j < NR; ++j) {
      const __m512d br = _mm512_set1_pd(b[2 * j]);
      const __m512d bi = _mm512_set1_pd(b[2 * j + 1]);
#pragma GCC unroll 8
      for (int v = 0; v < MV; ++v) {
        re[v][j] = _mm512_fmadd_pd(av[v], br, re[v][j]);
        im[v][j] = _mm512_fmadd_pd(av[v], bi, im[v][j]);
      }
    }
    a += 8 * PV;
    b += 2 * PR;
  };
  // The C tile (a column spans MV lines, plus one when unaligned) is fetched
  // during the last steps, one line every other step: issued together the
  // fetches would hold every fill buffer and stall the loads of A.
  constexpr int64_t kTail = 2 * NR * (MV + 1);
  int64_t p = 0;
  for (; p < k - kTail; ++p) step();
  for (int j = 0; j < NR; ++j) {
    const char* cj = reinterpret_cast<const char*>(c + 2 * j * ldc);
    for (int l = 0; l <= MV; ++l) {
      _mm_prefetch(cj + (l < MV ? 64 * l : 64 * MV - 1), _MM_HINT_T0);
      if (p < k) step(), ++p;
      if (p < k) step(), ++p;
    }
  }
  const bool bz = beta[0] == 0.0 && beta[1] == 0.0;
#pragma GCC unroll 8
  for (int j = 0; j < NR; ++j) {
    if (j < n) {
      double* cj = c + 2 * j * ldc;
#pragma GCC unroll 8
      for (int v = 0; v < MV; ++v) {
        if (m > 4 * v) {
          zgemm_store_vec(cj + 8 * v, re[v][j], im[v][j], zgemm_row_mask(m - 4 * v), alpha, beta,
                          bz);
        }
      }
    }
  }
}

}  // namespace zml::blas::avx512
