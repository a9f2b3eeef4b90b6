// SPDX-License-Identifier: BSD-3-Clause
// SSE2 ops: two doubles per vector, no FMA (a separate multiply and add),
// unaligned loads throughout.
#pragma once

#include <immintrin.h>

namespace zml::simd::sse2 {

struct Ops {
  using V = __m128d;
  // Vector registers the algorithms may plan for: 32-bit x86 has only 8.
  static constexpr int kRegisters = sizeof(void*) == 4 ? 8 : 16;
  static constexpr int W = 2;
  static V load(const double* p) { return _mm_loadu_pd(p); }
  static void store(double* p, V v) { _mm_storeu_pd(p, v); }
  // No masked moves at this level: a partial vector is its low lane or nothing.
  static V load_partial(const double* p, int count) {
    if (count >= 2) return _mm_loadu_pd(p);
    return count == 1 ? _mm_load_sd(p) : _mm_setzero_pd();
  }
  static void store_partial(double* p, V v, int count) {
    if (count >= 2) {
      _mm_storeu_pd(p, v);
    } else if (count == 1) {
      _mm_store_sd(p, v);
    }
  }
  static V bcast(double s) { return _mm_set1_pd(s); }
  static V pair(double e, double o) { return _mm_setr_pd(e, o); }
  static V zero() { return _mm_setzero_pd(); }
  static V add(V a, V b) { return _mm_add_pd(a, b); }
  static V mul(V a, V b) { return _mm_mul_pd(a, b); }
  static V sub(V a, V b) { return _mm_sub_pd(a, b); }
  static V div(V a, V b) { return _mm_div_pd(a, b); }
  static V sqrt(V a) { return _mm_sqrt_pd(a); }
  static V abs(V a) { return _mm_andnot_pd(_mm_set1_pd(-0.0), a); }
  // Bit k set where lane k of a < b (ordered: a NaN lane is clear).
  static int lt_bits(V a, V b) { return _mm_movemask_pd(_mm_cmplt_pd(a, b)); }
  static int eq_bits(V a, V b) { return _mm_movemask_pd(_mm_cmpeq_pd(a, b)); }
  // As load_partial, with `fill` in the lanes from count on.
  static V load_partial_or(const double* p, int count, double fill) {
    if (count >= 2) return _mm_loadu_pd(p);
    return count == 1 ? _mm_setr_pd(p[0], fill) : _mm_set1_pd(fill);
  }
  static V madd(V a, V b, V c) { return _mm_add_pd(_mm_mul_pd(a, b), c); }
  // addsub arrived after SSE2: flip the sign of the low lane of b and add,
  // which rounds exactly as a subtraction.
  static V addsub(V a, V b) { return _mm_add_pd(a, _mm_xor_pd(b, _mm_set_pd(0.0, -0.0))); }
  static V swap(V v) { return _mm_shuffle_pd(v, v, 1); }
  static V cmul(V x, V sr, V si) { return addsub(mul(x, sr), mul(swap(x), si)); }
  static double hsum(V v) { return _mm_cvtsd_f64(_mm_add_sd(v, _mm_unpackhi_pd(v, v))); }
  static void hsum_pairs(V v, double* e, double* o) {
    *e = _mm_cvtsd_f64(v);
    *o = _mm_cvtsd_f64(_mm_unpackhi_pd(v, v));
  }
  static void prefetch(const void* p) { _mm_prefetch(static_cast<const char*>(p), _MM_HINT_T0); }
};

}  // namespace zml::simd::sse2
