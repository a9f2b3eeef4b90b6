// SPDX-License-Identifier: BSD-3-Clause
// AVX2 ops: four doubles per vector, with the fused multiply-add that this
// code path guarantees (written explicitly).
#pragma once

#include <immintrin.h>

namespace zml::simd::avx2 {

struct Ops {
  using V = __m256d;
  // Vector registers the algorithms may plan for: 32-bit x86 has only 8.
  static constexpr int kRegisters = sizeof(void*) == 4 ? 8 : 16;
  static constexpr int W = 4;
  static V load(const double* p) { return _mm256_loadu_pd(p); }
  static void store(double* p, V v) { _mm256_storeu_pd(p, v); }
  // Lanes below count set (count may be <= 0 or >= 4).
  static __m256i mask(int count) {
    return _mm256_cmpgt_epi64(_mm256_set1_epi64x(count), _mm256_set_epi64x(3, 2, 1, 0));
  }
  static V load_partial(const double* p, int count) { return _mm256_maskload_pd(p, mask(count)); }
  static void store_partial(double* p, V v, int count) { _mm256_maskstore_pd(p, mask(count), v); }
  static V bcast(double s) { return _mm256_set1_pd(s); }
  static V pair(double e, double o) { return _mm256_setr_pd(e, o, e, o); }
  static V zero() { return _mm256_setzero_pd(); }
  static V add(V a, V b) { return _mm256_add_pd(a, b); }
  static V mul(V a, V b) { return _mm256_mul_pd(a, b); }
  static V sub(V a, V b) { return _mm256_sub_pd(a, b); }
  static V div(V a, V b) { return _mm256_div_pd(a, b); }
  static V sqrt(V a) { return _mm256_sqrt_pd(a); }
  static V abs(V a) { return _mm256_andnot_pd(_mm256_set1_pd(-0.0), a); }
  // base[idx[i]] for four small indices (64-bit lanes). Four loads rather than
  // a gather: about as fast here, and the user-mode emulator that runs the
  // 32-bit tests executes gathers wrongly.
  static V lookup(const double* base, __m256i idx) {
    const __m128i lo = _mm256_castsi256_si128(idx), hi = _mm256_extracti128_si256(idx, 1);
    const __m128d l =
        _mm_loadh_pd(_mm_load_sd(base + _mm_cvtsi128_si32(lo)), base + _mm_extract_epi32(lo, 2));
    const __m128d h =
        _mm_loadh_pd(_mm_load_sd(base + _mm_cvtsi128_si32(hi)), base + _mm_extract_epi32(hi, 2));
    return _mm256_insertf128_pd(_mm256_castpd128_pd256(l), h, 1);
  }
  // Bit k set where lane k of a < b (ordered: a NaN lane is clear).
  static int lt_bits(V a, V b) { return _mm256_movemask_pd(_mm256_cmp_pd(a, b, _CMP_LT_OQ)); }
  static int eq_bits(V a, V b) { return _mm256_movemask_pd(_mm256_cmp_pd(a, b, _CMP_EQ_OQ)); }
  // As load_partial, with `fill` in the lanes from count on.
  static V load_partial_or(const double* p, int count, double fill) {
    const __m256i m = mask(count);
    return _mm256_blendv_pd(_mm256_set1_pd(fill), _mm256_maskload_pd(p, m), _mm256_castsi256_pd(m));
  }
  static V madd(V a, V b, V c) { return _mm256_fmadd_pd(a, b, c); }
  static V addsub(V a, V b) { return _mm256_addsub_pd(a, b); }
  static V swap(V v) { return _mm256_permute_pd(v, 5); }
  // One rounding fewer than addsub(mul, mul): the first product is fused.
  static V cmul(V x, V sr, V si) { return _mm256_fmaddsub_pd(x, sr, mul(swap(x), si)); }
  static __m128d fold(V v) {
    return _mm_add_pd(_mm256_castpd256_pd128(v), _mm256_extractf128_pd(v, 1));
  }
  static double hsum(V v) {
    const __m128d s = fold(v);
    return _mm_cvtsd_f64(_mm_add_sd(s, _mm_unpackhi_pd(s, s)));
  }
  static void hsum_pairs(V v, double* e, double* o) {
    const __m128d s = fold(v);
    *e = _mm_cvtsd_f64(s);
    *o = _mm_cvtsd_f64(_mm_unpackhi_pd(s, s));
  }
  static void prefetch(const void* p) { _mm_prefetch(static_cast<const char*>(p), _MM_HINT_T0); }
};

}  // namespace zml::simd::avx2
