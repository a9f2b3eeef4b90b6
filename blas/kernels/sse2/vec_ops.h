// SPDX-License-Identifier: BSD-3-Clause
// SSE2 ops for the level-1/2 algorithms: two doubles per vector, no FMA (a
// separate multiply and add), unaligned loads throughout.
#pragma once

#include <immintrin.h>

namespace zml::blas::sse2 {

struct Ops {
  using V = __m128d;
  // Vector registers the algorithms may plan for: 32-bit x86 has only 8.
  static constexpr int kRegisters = sizeof(void*) == 4 ? 8 : 16;
  static constexpr int W = 2;
  static V load(const double* p) { return _mm_loadu_pd(p); }
  static void store(double* p, V v) { _mm_storeu_pd(p, v); }
  static V bcast(double s) { return _mm_set1_pd(s); }
  static V pair(double e, double o) { return _mm_setr_pd(e, o); }
  static V zero() { return _mm_setzero_pd(); }
  static V add(V a, V b) { return _mm_add_pd(a, b); }
  static V mul(V a, V b) { return _mm_mul_pd(a, b); }
  static V madd(V a, V b, V c) { return _mm_add_pd(_mm_mul_pd(a, b), c); }
  static V swap(V v) { return _mm_shuffle_pd(v, v, 1); }
  static double hsum(V v) { return _mm_cvtsd_f64(_mm_add_sd(v, _mm_unpackhi_pd(v, v))); }
  static void hsum_pairs(V v, double* e, double* o) {
    *e = _mm_cvtsd_f64(v);
    *o = _mm_cvtsd_f64(_mm_unpackhi_pd(v, v));
  }
};

}  // namespace zml::blas::sse2
