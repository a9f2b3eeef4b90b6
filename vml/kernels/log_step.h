// SPDX-License-Identifier: BSD-3-Clause
// One vector step of the logarithms for the folders with fused multiply-add,
// written once over a folder's lane traits L (double vector V, integer
// vector I, bit casts, 64-bit integer add/and/shift, and the lookup of a
// table of 2^L::kBits rows: 128 gathered or 32 held in registers). The
// arguments must be positive normal numbers; the kernels send any step with
// another argument to algo::log_one.
//
// High accuracy follows algo::log_one, with the exact product from fused
// multiply-add. Low accuracy rounds r once and sums plainly; enhanced
// performance also drops the table's remainder and cuts the polynomial to
// degree 4 (truncation below 2^-34 relative). The 32-row table leaves |r| up
// to 2^-6 rather than 2^-8 and takes fitted polynomials of degrees 9, 8 and
// 4 in place of the Taylor ones of degrees 7, 7 and 4. Decimal logarithms
// multiply by log10 e, as a double-double product in high accuracy.
#pragma once

#include "vml/kernels/log_algo.h"

namespace zml::vml::algo {

enum class LogClass { kLow, kHigh, kFast };

template <class L, LogClass kClass, bool kLog10>
typename L::V log_step(const L& lanes, typename L::V x) {
  using V = typename L::V;
  using I = typename L::I;
  constexpr bool kWide = L::kBits == 7;
  const I ix = L::bits(x);
  const I u = L::iadd(ix, L::iset(log_shift(L::kBits)));
  const V z = L::real(L::iadd(L::isub(ix, L::iand(u, L::iset(~int64_t{0xFFFFFFFFFFFFF}))),
                              L::iset(0x3FF0000000000000)));
  // k + 1023 in the low bits of 2^52's bits makes 2^52 + k + 1023.
  const V kf =
      L::sub(L::real(L::iadd(L::srl52(u), L::iset(0x4330000000000000))), L::set(0x1p52 + 1023.0));
  V c, th, tl;
  lanes.lookup(u, &c, &th, kClass == LogClass::kFast ? nullptr : &tl);
  // The polynomial (log1p(r) - r) / r^2 of this table and class.
  constexpr auto poly = [] {
    struct P {
      const double* c;
      int top;
    };
    if constexpr (kWide) return P{kLogPoly, kClass == LogClass::kFast ? 2 : 5};
    if constexpr (kClass == LogClass::kHigh) return P{kLogPoly32Ha, 7};
    if constexpr (kClass == LogClass::kLow) return P{kLogPoly32La, 6};
    return P{kLogPoly32Ep, 2};
  }();
  V r, q, res;
  if constexpr (kClass == LogClass::kHigh) {
    const V ph = L::mul(z, c);
    const V pl = L::fms(z, c, ph);
    r = L::sub(ph, L::set(1.0));
    const V a = L::mul(kf, L::set(kLn2Hi));
    const V s1 = L::add(a, th);
    const V e1 = L::sub(th, L::sub(s1, a));
    // |r| stays below |s1| (below |th| in every row but that of 1, below
    // ln 2 / 2 when k != 0) unless s1 = 0, so the short two-sum is exact.
    const V s2 = L::add(s1, r);
    const V e2 = L::sub(r, L::sub(s2, s1));
    q = L::set(poly.c[poly.top]);
    for (int d = poly.top - 1; d >= 0; --d) q = L::fma(q, r, L::set(poly.c[d]));
    const V small = L::add(L::add(tl, L::add(e1, e2)), L::fnma(pl, r, pl));
    const V tail = L::fma(L::mul(r, r), q, L::fma(kf, L::set(kLn2Lo), small));
    if constexpr (!kLog10) {
      res = L::add(s2, tail);
    } else {
      const V hi = L::mul(s2, L::set(kLog10eHi));
      const V lo = L::fms(s2, L::set(kLog10eHi), hi);
      res = L::add(hi, L::fma(s2, L::set(kLog10eLo), L::fma(tail, L::set(kLog10eHi), lo)));
    }
  } else {
    r = L::fms(z, c, L::set(1.0));
    q = L::set(poly.c[poly.top]);
    for (int d = poly.top - 1; d >= 0; --d) q = L::fma(q, r, L::set(poly.c[d]));
    // k ln 2 + th keeps its rounding error; when k = 0 the sum is exact and r
    // nearly cancels it, so r is added to it before the small terms.
    const V a = L::mul(kf, L::set(kLn2Hi));
    const V s1 = L::add(a, th);
    const V e1 = L::sub(th, L::sub(s1, a));
    const V hi = L::add(s1, r);
    const V small = kClass == LogClass::kFast ? e1 : L::add(tl, e1);
    const V lo = L::fma(L::mul(r, r), q, L::fma(kf, L::set(kLn2Lo), small));
    if constexpr (kLog10) {
      res = L::fma(hi, L::set(kLog10eHi), L::mul(lo, L::set(kLog10eHi)));
    } else {
      res = L::add(hi, lo);
    }
  }
  return res;
}

}  // namespace zml::vml::algo
