// SPDX-License-Identifier: BSD-3-Clause
// The leaf solve of trsm_kernel.h written once over an instruction set's
// vector ops: each row of the triangle is a dot product of its packed
// coefficients with the slices already solved, MV vectors of right-hand
// sides at a time. Each kernel folder instantiates it.
#pragma once

#include <cstdint>

namespace zml::blas {

// Real elements. Rows go in pairs: both sums share the loads of every solved
// slice, and their 2*MV multiply-add chains cover the latency with MV = 4.
// The second row takes the first's solution as its last term.
template <class Ops, int MV>
inline void dtrsm_leaf_ops(int64_t l, const double* t, double* x, int64_t ldx) {
  using V = typename Ops::V;
  constexpr int W = Ops::W;
  int64_t r = 0;
  for (; r + 1 < l; r += 2) {
    const double* t0 = t + r * (r + 1) / 2;
    const double* t1 = t0 + r + 1;
    double* x0 = x + r * ldx;
    double* x1 = x0 + ldx;
    V s0[MV], s1[MV];
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) {
      s0[v] = Ops::load(x0 + v * W);
      s1[v] = Ops::load(x1 + v * W);
    }
    for (int64_t c = 0; c < r; ++c) {
      const V a0 = Ops::bcast(t0[c]), a1 = Ops::bcast(t1[c]);
      const double* xc = x + c * ldx;
#pragma GCC unroll 8
      for (int v = 0; v < MV; ++v) {
        const V xv = Ops::load(xc + v * W);
        s0[v] = Ops::madd(a0, xv, s0[v]);
        s1[v] = Ops::madd(a1, xv, s1[v]);
      }
    }
    const V d0 = Ops::bcast(t0[r]), a1 = Ops::bcast(t1[r]), d1 = Ops::bcast(t1[r + 1]);
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) {
      const V y0 = Ops::mul(s0[v], d0);
      Ops::store(x0 + v * W, y0);
      Ops::store(x1 + v * W, Ops::mul(Ops::madd(a1, y0, s1[v]), d1));
    }
  }
  if (r < l) {
    const double* t0 = t + r * (r + 1) / 2;
    double* x0 = x + r * ldx;
    V s0[MV];
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) s0[v] = Ops::load(x0 + v * W);
    for (int64_t c = 0; c < r; ++c) {
      const V a0 = Ops::bcast(t0[c]);
#pragma GCC unroll 8
      for (int v = 0; v < MV; ++v) s0[v] = Ops::madd(a0, Ops::load(x + c * ldx + v * W), s0[v]);
    }
    const V d0 = Ops::bcast(t0[r]);
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) Ops::store(x0 + v * W, Ops::mul(s0[v], d0));
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
