// SPDX-License-Identifier: BSD-3-Clause
// The scaling algorithms, written once over the SIMD ops of
// service/simd/<isa>/; each kernel folder instantiates them with its own ops.
// Contract: blas/kernels/level1_kernel.h.
#pragma once

#include <cstdint>

namespace zml::blas::algo {

template <class Ops>
void dscal(int32_t n, double alpha, double* x, int32_t incx) {
  if (n <= 0 || incx <= 0) return;
  if (incx != 1) {
    for (int64_t i = 0, p = 0; i < n; ++i, p += incx) x[p] *= alpha;
    return;
  }
  using V = typename Ops::V;
  constexpr int W = Ops::W;
  const V va = Ops::bcast(alpha);
  int64_t i = 0;
  // Four vectors per pass keep enough independent loads in flight.
  for (; i + 4 * W <= n; i += 4 * W) {
    V v0 = Ops::load(x + i), v1 = Ops::load(x + i + W);
    V v2 = Ops::load(x + i + 2 * W), v3 = Ops::load(x + i + 3 * W);
    Ops::store(x + i, Ops::mul(v0, va));
    Ops::store(x + i + W, Ops::mul(v1, va));
    Ops::store(x + i + 2 * W, Ops::mul(v2, va));
    Ops::store(x + i + 3 * W, Ops::mul(v3, va));
  }
  for (; i + W <= n; i += W) Ops::store(x + i, Ops::mul(Ops::load(x + i), va));
  for (; i < n; ++i) x[i] *= alpha;
}

template <class Ops>
void zscal(int32_t n, const double* alpha, double* x, int32_t incx) {
  if (n <= 0 || incx <= 0) return;
  const double ar = alpha[0], ai = alpha[1];
  auto one = [ar, ai](double* p) {
    const double xr = p[0], xi = p[1];
    p[0] = xr * ar + xi * -ai;
    p[1] = xi * ar + xr * ai;
  };
  if (incx != 1) {
    for (int64_t i = 0, p = 0; i < n; ++i, p += 2 * static_cast<int64_t>(incx)) one(x + p);
    return;
  }
  // (xr, xi) * (ar, ai) = xr*ar - xi*ai, xi*ar + xr*ai: the pair times ar plus
  // the swapped pair times (-ai, ai).
  using V = typename Ops::V;
  constexpr int W = Ops::W;
  const V vr = Ops::bcast(ar);
  const V vi = Ops::pair(-ai, ai);
  const int64_t n2 = 2 * static_cast<int64_t>(n);
  int64_t i = 0;
  for (; i + 2 * W <= n2; i += 2 * W) {
    V v0 = Ops::load(x + i), v1 = Ops::load(x + i + W);
    Ops::store(x + i, Ops::madd(v0, vr, Ops::mul(Ops::swap(v0), vi)));
    Ops::store(x + i + W, Ops::madd(v1, vr, Ops::mul(Ops::swap(v1), vi)));
  }
  for (; i + W <= n2; i += W) {
    V v = Ops::load(x + i);
    Ops::store(x + i, Ops::madd(v, vr, Ops::mul(Ops::swap(v), vi)));
  }
  for (; i < n2; i += 2) one(x + i);
}

}  // namespace zml::blas::algo
