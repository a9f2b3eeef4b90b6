// SPDX-License-Identifier: BSD-3-Clause
// A dgemm micro-kernel written once over an instruction set's vector ops
// (vec_ops.h of each kernel folder), for the rows of 32-bit builds: there the
// register file has 8 vector registers, so the tile is MV vectors by NR
// columns with MV*NR accumulators plus one A vector and one broadcast at
// most 8. Edge tiles go through a small buffer rather than masked stores,
// which not every instruction set has; they are rare in a blocked product.
#pragma once

#include <cstdint>

namespace zml::blas {

template <class Ops, int MV, int NR>
inline void dgemm_tile_ops(int64_t m, int64_t n, int64_t k, double alpha, const double* a,
                           const double* b, double beta, double* c, int64_t ldc) {
  using V = typename Ops::V;
  constexpr int W = Ops::W, MR = MV * W;
  V acc[MV][NR];
  for (int v = 0; v < MV; ++v) {
    for (int j = 0; j < NR; ++j) acc[v][j] = Ops::zero();
  }
  for (int64_t p = 0; p < k; ++p) {
    V av[MV];
    for (int v = 0; v < MV; ++v) av[v] = Ops::load(a + v * W);
    for (int j = 0; j < NR; ++j) {
      const V bj = Ops::bcast(b[j]);
      for (int v = 0; v < MV; ++v) acc[v][j] = Ops::madd(av[v], bj, acc[v][j]);
    }
    a += MR;
    b += NR;
  }
  // beta == 0 never reads C: NaN there must not reach the result.
  const bool bz = beta == 0.0;
  if (m == MR && n == NR) {
    const V va = Ops::bcast(alpha), vb = Ops::bcast(beta);
    for (int j = 0; j < NR; ++j) {
      for (int v = 0; v < MV; ++v) {
        double* cp = c + j * ldc + v * W;
        const V r = Ops::mul(va, acc[v][j]);
        Ops::store(cp, bz ? r : Ops::madd(vb, Ops::load(cp), r));
      }
    }
    return;
  }
  alignas(64) double t[MR * NR];
  for (int j = 0; j < NR; ++j) {
    for (int v = 0; v < MV; ++v) Ops::store(t + j * MR + v * W, acc[v][j]);
  }
  for (int64_t j = 0; j < n; ++j) {
    for (int64_t i = 0; i < m; ++i) {
      double& cij = c[i + j * ldc];
      const double r = alpha * t[j * MR + i];
      cij = bz ? r : beta * cij + r;
    }
  }
}

}  // namespace zml::blas
