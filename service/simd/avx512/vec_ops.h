// SPDX-License-Identifier: BSD-3-Clause
// AVX-512 ops: eight doubles per vector, fused multiply-add written
// explicitly, unaligned loads throughout, edge lanes through write masks.
#pragma once

#include <immintrin.h>

namespace zml::simd::avx512 {

struct Ops {
  using V = __m512d;
  // Vector registers the algorithms may plan for: 32-bit x86 has only 8.
  static constexpr int kRegisters = sizeof(void*) == 4 ? 8 : 32;
  static constexpr int W = 8;
  static V load(const double* p) { return _mm512_loadu_pd(p); }
  static void store(double* p, V v) { _mm512_storeu_pd(p, v); }
  // Lanes below count set (count may be <= 0 or >= 8).
  static __mmask8 mask(int count) {
    if (count >= 8) return 0xFF;
    if (count <= 0) return 0;
    return static_cast<__mmask8>((1u << count) - 1u);
  }
  static V load_partial(const double* p, int count) {
    return _mm512_maskz_loadu_pd(mask(count), p);
  }
  static void store_partial(double* p, V v, int count) { _mm512_mask_storeu_pd(p, mask(count), v); }
  static V bcast(double s) { return _mm512_set1_pd(s); }
  static V pair(double e, double o) { return _mm512_setr_pd(e, o, e, o, e, o, e, o); }
  static V zero() { return _mm512_setzero_pd(); }
  static V add(V a, V b) { return _mm512_add_pd(a, b); }
  static V mul(V a, V b) { return _mm512_mul_pd(a, b); }
  static V sub(V a, V b) { return _mm512_sub_pd(a, b); }
  static V div(V a, V b) { return _mm512_div_pd(a, b); }
  // Masked forms with a named pass-through, as in fold() below.
  static V sqrt(V a) { return _mm512_mask_sqrt_pd(a, 0xFF, a); }
  static V abs(V a) { return _mm512_mask_abs_pd(a, 0xFF, a); }
  // Bit k set where lane k of a < b (ordered: a NaN lane is clear).
  static int lt_bits(V a, V b) { return _mm512_cmp_pd_mask(a, b, _CMP_LT_OQ); }
  static int eq_bits(V a, V b) { return _mm512_cmp_pd_mask(a, b, _CMP_EQ_OQ); }
  // As load_partial, with `fill` in the lanes from count on.
  static V load_partial_or(const double* p, int count, double fill) {
    return _mm512_mask_loadu_pd(_mm512_set1_pd(fill), mask(count), p);
  }
  static V madd(V a, V b, V c) { return _mm512_fmadd_pd(a, b, c); }
  // There is no addsub at this width; a*1 is exact, so fmaddsub rounds as one.
  static V addsub(V a, V b) { return _mm512_fmaddsub_pd(a, _mm512_set1_pd(1.0), b); }
  // Masked form for the same reason as in fold() below.
  static V swap(V v) { return _mm512_mask_permute_pd(v, 0xFF, v, 0x55); }
  // One rounding fewer than addsub(mul, mul): the first product is fused.
  static V cmul(V x, V sr, V si) { return _mm512_fmaddsub_pd(x, sr, mul(swap(x), si)); }
  static __m128d fold(V v) {
    // Masked extracts name their pass-through operand; the plain extract (and
    // the cast built on it) leaves it undefined, which some compiler headers
    // flag as uninitialised under -Werror.
    const __m256d zero = _mm256_setzero_pd();
    const __m256d h = _mm256_add_pd(_mm512_mask_extractf64x4_pd(zero, 0xF, v, 0),
                                    _mm512_mask_extractf64x4_pd(zero, 0xF, v, 1));
    return _mm_add_pd(_mm256_castpd256_pd128(h), _mm256_extractf128_pd(h, 1));
  }
  static double hsum(V v) {
    const __m128d s = fold(v);
    return _mm_cvtsd_f64(_mm_add_sd(s, _mm_unpackhi_pd(s, s)));
  }
  // Lane k of the result is the sum of the lanes of v[k]: the eight
  // horizontal sums of a block of dot products in one vector, three rounds of
  // adds over shuffled halves instead of eight separate reductions. Masked
  // forms with a named pass-through, as in fold().
  static V lo(V a, V b) { return _mm512_mask_unpacklo_pd(a, 0xFF, a, b); }
  static V hi(V a, V b) { return _mm512_mask_unpackhi_pd(a, 0xFF, a, b); }
  static V even_halves(V a, V b) { return _mm512_mask_shuffle_f64x2(a, 0xFF, a, b, 0x88); }
  static V odd_halves(V a, V b) { return _mm512_mask_shuffle_f64x2(a, 0xFF, a, b, 0xDD); }
  static V sum_lanes8(const V* v) {
    V p[4];
    for (int i = 0; i < 4; ++i) p[i] = add(lo(v[2 * i], v[2 * i + 1]), hi(v[2 * i], v[2 * i + 1]));
    const V q0 = add(even_halves(p[0], p[1]), odd_halves(p[0], p[1]));
    const V q1 = add(even_halves(p[2], p[3]), odd_halves(p[2], p[3]));
    return add(even_halves(q0, q1), odd_halves(q0, q1));
  }
  static void hsum_pairs(V v, double* e, double* o) {
    const __m128d s = fold(v);
    *e = _mm_cvtsd_f64(s);
    *o = _mm_cvtsd_f64(_mm_unpackhi_pd(s, s));
  }
  static void prefetch(const void* p) { _mm_prefetch(static_cast<const char*>(p), _MM_HINT_T0); }
};

}  // namespace zml::simd::avx512
