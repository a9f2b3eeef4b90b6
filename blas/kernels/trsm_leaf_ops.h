// SPDX-License-Identifier: BSD-3-Clause
// The leaf solve of trsm_kernel.h written once over an instruction set's
// vector ops: each row of the triangle is a dot product of its packed
// coefficients with the slices already solved, MV vectors of right-hand
// sides at a time. Each kernel folder instantiates it.
#pragma once

#include <cstdint>

namespace zml::blas {

// Real elements. Two sets of accumulators (even and odd c) give 2*MV
// independent multiply-add chains, enough to cover the latency with MV = 4.
template <class Ops, int MV>
inline void dtrsm_leaf_ops(int64_t l, const double* t, double* x, int64_t ldx) {
  using V = typename Ops::V;
  constexpr int W = Ops::W;
  for (int64_t r = 0; r < l; ++r) {
    const double* tr = t + r * (r + 1) / 2;
    double* xr = x + r * ldx;
    V s0[MV], s1[MV];
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) {
      s0[v] = Ops::load(xr + v * W);
      s1[v] = Ops::zero();
    }
    int64_t c = 0;
    for (; c + 1 < r; c += 2) {
      const V t0 = Ops::bcast(tr[c]), t1 = Ops::bcast(tr[c + 1]);
      const double* x0 = x + c * ldx;
#pragma GCC unroll 8
      for (int v = 0; v < MV; ++v) {
        s0[v] = Ops::madd(t0, Ops::load(x0 + v * W), s0[v]);
        s1[v] = Ops::madd(t1, Ops::load(x0 + ldx + v * W), s1[v]);
      }
    }
    if (c < r) {
      const V t0 = Ops::bcast(tr[c]);
#pragma GCC unroll 8
      for (int v = 0; v < MV; ++v) s0[v] = Ops::madd(t0, Ops::load(x + c * ldx + v * W), s0[v]);
    }
    const V d = Ops::bcast(tr[r]);
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) Ops::store(xr + v * W, Ops::mul(Ops::add(s0[v], s1[v]), d));
  }
}

// Complex elements, MV vectors of W/2 interleaved right-hand sides. As in the
// zgemm tile, each step accumulates x*Re(t) and x*Im(t) apart and the swap
// and signs are folded once per row.
template <class Ops, int MV>
inline void ztrsm_leaf_ops(int64_t l, const double* t, double* x, int64_t ldx) {
  using V = typename Ops::V;
  constexpr int W = Ops::W;
  for (int64_t r = 0; r < l; ++r) {
    const double* tr = t + r * (r + 1);
    double* xr = x + r * ldx;
    V re[MV], im[MV];
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) re[v] = im[v] = Ops::zero();
    for (int64_t c = 0; c < r; ++c) {
      const V tre = Ops::bcast(tr[2 * c]), tim = Ops::bcast(tr[2 * c + 1]);
      const double* xc = x + c * ldx;
#pragma GCC unroll 8
      for (int v = 0; v < MV; ++v) {
        const V xv = Ops::load(xc + v * W);
        re[v] = Ops::madd(tre, xv, re[v]);
        im[v] = Ops::madd(tim, xv, im[v]);
      }
    }
    const V dr = Ops::bcast(tr[2 * r]), di = Ops::bcast(tr[2 * r + 1]);
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) {
      const V sum = Ops::add(Ops::load(xr + v * W), Ops::addsub(re[v], Ops::swap(im[v])));
      Ops::store(xr + v * W, Ops::cmul(sum, dr, di));
    }
  }
}

}  // namespace zml::blas
