// SPDX-License-Identifier: BSD-3-Clause
// The exponential with 512-bit vectors, eight elements per step and a masked
// last step. Every class reduces x to a multiple of ln 2 / 16 and a
// remainder, takes 2^(j/16) from a 16-entry table held in two registers, and
// scales with the scale-by-power-of-two instruction. A step with any
// argument of magnitude 1021 ln 2 or more (compared ordered, so NaN runs the
// vector path) is computed by the element-wise algorithm, which handles
// overflow, underflow and the statuses.
// Masked forms with a named pass-through where the plain intrinsic leaves it
// undefined (see service/simd/avx512/vec_ops.h).
#include <immintrin.h>

#include "service/simd/avx512/vec_ops.h"
#include "vml/kernels/exp_algo.h"

namespace zml::vml::avx512 {

namespace {

using simd::avx512::Ops;

constexpr double kLargeArgument = 707.7032713517042;  // 1021 ln 2

inline __m512d table_hi(int half) {
  const int o = 8 * half;
  const auto& t = algo::kExpTable;
  return _mm512_setr_pd(t[o][0], t[o + 1][0], t[o + 2][0], t[o + 3][0], t[o + 4][0], t[o + 5][0],
                        t[o + 6][0], t[o + 7][0]);
}
inline __m512d table_lo(int half) {
  const int o = 8 * half;
  const auto& t = algo::kExpTable;
  return _mm512_setr_pd(t[o][1], t[o + 1][1], t[o + 2][1], t[o + 3][1], t[o + 4][1], t[o + 5][1],
                        t[o + 6][1], t[o + 7][1]);
}

inline __m512d bits(uint64_t b) {
  return _mm512_castsi512_pd(_mm512_set1_epi64(static_cast<long long>(b)));
}

// Low accuracy (and, with a shorter polynomial, enhanced performance): t is
// x log2 e plus a shifter whose last place is 1/16 and whose bits carry the
// exponent bias, rounded toward zero, so t - S = n is x log2 e cut to
// sixteenths and the low four bits of t are j.
template <bool kShort>
struct Low {
  __m512d t0 = table_hi(0), t1 = table_hi(1);
  __m512d operator()(__m512d x) const {
    const __m512d s = bits(0x42F8000000003FF0ull);
    const __m512d t = _mm512_fmadd_round_pd(x, _mm512_set1_pd(1.4426950408889634), s,
                                            _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
    const __m512d n = _mm512_sub_pd(t, s);
    __m512d r = _mm512_fnmadd_pd(n, _mm512_set1_pd(0.6931471805599453), x);
    r = _mm512_fnmadd_pd(n, _mm512_set1_pd(2.3190468138462996e-17), r);
    // Clearing the top exponent bit keeps the remainder of an infinite
    // argument (a NaN) finite in the polynomial; finite remainders are below
    // 2 and keep their bits.
    r = _mm512_castsi512_pd(_mm512_and_si512(
        _mm512_castpd_si512(r), _mm512_set1_epi64(static_cast<long long>(0xBFFFFFFFFFFFFFFFull))));
    const __m512i j = _mm512_and_si512(_mm512_castpd_si512(t), _mm512_set1_epi64(15));
    const __m512d tj = _mm512_permutex2var_pd(t0, j, t1);
    const __m512d r2 = _mm512_mul_pd(r, r);
    __m512d p;
    if constexpr (kShort) {
      // Degree 4: the truncation stays below 2^-29 on [0, ln 2 / 16).
      p = _mm512_fmadd_pd(
          r2,
          _mm512_fmadd_pd(r, _mm512_fmadd_pd(r, _mm512_set1_pd(1.0 / 24), _mm512_set1_pd(1.0 / 6)),
                          _mm512_set1_pd(0.5)),
          r);
    } else {
      const __m512d lo = _mm512_fmadd_pd(r2, _mm512_set1_pd(0.5000000000010838), r);
      const __m512d a = _mm512_fmadd_pd(r, _mm512_set1_pd(0.041666695348322125),
                                        _mm512_set1_pd(0.16666666637508337));
      const __m512d b = _mm512_fmadd_pd(r, _mm512_set1_pd(0.0014149452874381984),
                                        _mm512_set1_pd(0.008332058899382488));
      p = _mm512_fmadd_pd(_mm512_mul_pd(r2, r), _mm512_fmadd_pd(r2, b, a), lo);
    }
    const __m512d y = _mm512_fmadd_pd(tj, p, tj);
    return _mm512_mask_scalef_pd(y, 0xFF, y, n);
  }
};

// High accuracy: k = 16 x / ln 2 rounded to nearest, a remainder of at most
// ln 2 / 32 in two steps, a degree-7 polynomial, and 2^(j/16) as a leading
// double and a remainder, so the sum rounds once.
struct High {
  __m512d h0 = table_hi(0), h1 = table_hi(1), l0 = table_lo(0), l1 = table_lo(1);
  __m512d operator()(__m512d x) const {
    const __m512d shift = _mm512_set1_pd(algo::kRoundShift);
    const __m512d t = _mm512_fmadd_pd(x, _mm512_set1_pd(algo::kInvLn2x16), shift);
    const __m512d kf = _mm512_sub_pd(t, shift);
    __m512d r = _mm512_fnmadd_pd(kf, _mm512_set1_pd(algo::kLn2d16Hi), x);
    r = _mm512_fnmadd_pd(kf, _mm512_set1_pd(algo::kLn2d16Lo), r);
    const __m512i k = _mm512_sub_epi64(_mm512_castpd_si512(t), _mm512_castpd_si512(shift));
    const __m512i j = _mm512_and_si512(k, _mm512_set1_epi64(15));
    const __m512d m = _mm512_mask_cvtepi64_pd(kf, 0xFF, _mm512_mask_srai_epi64(k, 0xFF, k, 4));
    __m512d q = _mm512_set1_pd(1.0 / 5040);
    for (double c : {1.0 / 720, 1.0 / 120, 1.0 / 24, 1.0 / 6, 0.5}) {
      q = _mm512_fmadd_pd(q, r, _mm512_set1_pd(c));
    }
    const __m512d p = _mm512_fmadd_pd(_mm512_mul_pd(r, r), q, r);
    const __m512d hi = _mm512_permutex2var_pd(h0, j, h1);
    const __m512d lo = _mm512_permutex2var_pd(l0, j, l1);
    const __m512d y = _mm512_add_pd(hi, _mm512_fmadd_pd(hi, p, lo));
    return _mm512_mask_scalef_pd(y, 0xFF, y, m);
  }
};

[[gnu::noinline]] void large_step(const double* a, double* y, int count) {
  for (int k = 0; k < count; ++k) y[k] = algo::exp_one<Ops>(a[k]);
}

template <class Step>
void run(int32_t n, const double* a, double* y) {
  const Step step;
  const __m512d limit = _mm512_set1_pd(kLargeArgument);
  int64_t i = 0;
  for (; i < n; i += 8) {
    const int count = n - i < 8 ? static_cast<int>(n - i) : 8;
    const __mmask8 m = Ops::mask(count);
    const __m512d x = _mm512_maskz_loadu_pd(m, a + i);
    if (_mm512_cmp_pd_mask(Ops::abs(x), limit, _CMP_GE_OQ) != 0) {
      // The inputs are read before any result of this step is stored, so an
      // in-place call sees them.
      double in[8];
      _mm512_mask_storeu_pd(in, m, x);
      large_step(in, y + i, count);
      continue;
    }
    _mm512_mask_storeu_pd(y + i, m, step(x));
  }
}

}  // namespace

void exp_la(int32_t n, const double* a, double* y) { run<Low<false>>(n, a, y); }
void exp_ep(int32_t n, const double* a, double* y) { run<Low<true>>(n, a, y); }
void exp_ha(int32_t n, const double* a, double* y) { run<High>(n, a, y); }

}  // namespace zml::vml::avx512
