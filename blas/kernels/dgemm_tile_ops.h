// SPDX-License-Identifier: BSD-3-Clause
// The dgemm micro-kernel written once over an instruction set's vector ops
// (service/simd/<isa>/vec_ops.h): a tile of MV vectors of rows by NR columns,
// MV*NR accumulators. Each kernel folder instantiates the shapes its rows
// name; the shape is what fits the folder's register file (see each file).
#pragma once

#include <cstdint>

namespace zml::blas {

// kAheadA: doubles of packed A ahead of the current step that each step
// prefetches (0: none, where the hardware prefetcher keeps up on its own).
template <class Ops, int MV, int NR, int kAheadA = 0>
inline void dgemm_tile_ops(int64_t m, int64_t n, int64_t k, double alpha, const double* a,
                           const double* b, double beta, double* c, int64_t ldc) {
  using V = typename Ops::V;
  constexpr int W = Ops::W, MR = MV * W;
  V acc[MV][NR];
#pragma GCC unroll 8
  for (int v = 0; v < MV; ++v) {
#pragma GCC unroll 8
    for (int j = 0; j < NR; ++j) acc[v][j] = Ops::zero();
  }
  for (int64_t p = 0; p < k; ++p) {
    V av[MV];
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) av[v] = Ops::load(a + v * W);
    if constexpr (kAheadA > 0) Ops::prefetch(a + kAheadA);
#pragma GCC unroll 8
    for (int j = 0; j < NR; ++j) {
      const V bj = Ops::bcast(b[j]);
#pragma GCC unroll 8
      for (int v = 0; v < MV; ++v) acc[v][j] = Ops::madd(av[v], bj, acc[v][j]);
    }
    a += MR;
    b += NR;
  }
  const V va = Ops::bcast(alpha), vb = Ops::bcast(beta);
  // beta == 0 never reads C: NaN there must not reach the result.
  const bool bz = beta == 0.0;
  if (m == MR && n == NR) {
#pragma GCC unroll 8
    for (int j = 0; j < NR; ++j) {
#pragma GCC unroll 8
      for (int v = 0; v < MV; ++v) {
        double* cp = c + j * ldc + v * W;
        const V r = Ops::mul(va, acc[v][j]);
        Ops::store(cp, bz ? r : Ops::madd(vb, Ops::load(cp), r));
      }
    }
    return;
  }
  // Edge tile: the rows past m go through partial moves, which leave C past
  // the tile's corner unread and unwritten.
#pragma GCC unroll 8
  for (int j = 0; j < NR; ++j) {
    if (j >= n) break;
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) {
      const int64_t rows = m - int64_t{v} * W;
      double* cp = c + j * ldc + v * W;
      const V r = Ops::mul(va, acc[v][j]);
      if (rows >= W) {
        Ops::store(cp, bz ? r : Ops::madd(vb, Ops::load(cp), r));
      } else if (rows > 0) {
        const int cnt = static_cast<int>(rows);
        Ops::store_partial(cp, bz ? r : Ops::madd(vb, Ops::load_partial(cp, cnt), r), cnt);
      }
    }
  }
}

}  // namespace zml::blas
