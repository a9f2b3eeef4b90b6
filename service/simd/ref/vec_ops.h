// SPDX-License-Identifier: BSD-3-Clause
// Reference ops: plain C++ on a "vector" of one complex number (two doubles),
// the portable variant every vector variant is compared with.
//
// Every folder of service/simd defines zml::simd::<isa>::Ops with these same
// members, so an algorithm written once over Ops compiles for every level;
// each header is included only from sources built with its folder's flags.
// load_partial/store_partial move the first `count` lanes (zero, or W and
// more, allowed) and touch no memory past them; addsub gives a - b in even
// lanes and a + b in odd ones; cmul(x, sr, si) is x times the complex number
// (sr, si) held in broadcasts.
#pragma once

namespace zml::simd::ref {

struct Ops {
  struct V {
    double e, o;
  };
  // No register file to fit: the wide column blocks, so the plain variant
  // exercises every blocking path on any machine.
  static constexpr int kRegisters = 32;
  static constexpr int W = 2;
  static V load(const double* p) { return {p[0], p[1]}; }
  static void store(double* p, V v) {
    p[0] = v.e;
    p[1] = v.o;
  }
  static V load_partial(const double* p, int count) {
    return {count > 0 ? p[0] : 0.0, count > 1 ? p[1] : 0.0};
  }
  static void store_partial(double* p, V v, int count) {
    if (count > 0) p[0] = v.e;
    if (count > 1) p[1] = v.o;
  }
  static V bcast(double s) { return {s, s}; }
  static V pair(double e, double o) { return {e, o}; }
  static V zero() { return {0.0, 0.0}; }
  static V add(V a, V b) { return {a.e + b.e, a.o + b.o}; }
  static V mul(V a, V b) { return {a.e * b.e, a.o * b.o}; }
  static V sub(V a, V b) { return {a.e - b.e, a.o - b.o}; }
  static V div(V a, V b) { return {a.e / b.e, a.o / b.o}; }
  static V sqrt(V a) { return {__builtin_sqrt(a.e), __builtin_sqrt(a.o)}; }
  static V abs(V a) { return {__builtin_fabs(a.e), __builtin_fabs(a.o)}; }
  // Bit k set where lane k of a < b (ordered: a NaN lane is clear).
  static int lt_bits(V a, V b) { return (a.e < b.e ? 1 : 0) | (a.o < b.o ? 2 : 0); }
  static int eq_bits(V a, V b) { return (a.e == b.e ? 1 : 0) | (a.o == b.o ? 2 : 0); }
  // As load_partial, with `fill` in the lanes from count on.
  static V load_partial_or(const double* p, int count, double fill) {
    return {count > 0 ? p[0] : fill, count > 1 ? p[1] : fill};
  }
  static V madd(V a, V b, V c) { return {a.e * b.e + c.e, a.o * b.o + c.o}; }
  static V addsub(V a, V b) { return {a.e - b.e, a.o + b.o}; }
  static V swap(V v) { return {v.o, v.e}; }
  static V cmul(V x, V sr, V si) { return addsub(mul(x, sr), mul(swap(x), si)); }
  static double hsum(V v) { return v.e + v.o; }
  static void hsum_pairs(V v, double* e, double* o) {
    *e = v.e;
    *o = v.o;
  }
  static void prefetch(const void*) {}
};

}  // namespace zml::simd::ref
