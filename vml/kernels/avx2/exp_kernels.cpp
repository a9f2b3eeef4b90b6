// SPDX-License-Identifier: BSD-3-Clause
// The exponential with 256-bit vectors and fused multiply-add, four elements
// per step and a masked last step: k = 16 x / ln 2 rounded to nearest, a
// remainder of at most ln 2 / 32 in two steps, 2^(j/16) looked up in the
// table (leading double and remainder), and 2^m built in the exponent bits.
// High accuracy adds the table's remainder to a degree-7 polynomial; low
// accuracy drops the remainder; enhanced performance also cuts the degree to 4.
// A step with an argument of magnitude 1021 ln 2 or more goes to the
// element-wise algorithm, so 2^m stays a normal number here.
#include <immintrin.h>

#include "service/simd/avx2/vec_ops.h"
#include "vml/kernels/exp_algo.h"

namespace zml::vml::avx2 {

namespace {

using simd::avx2::Ops;

template <int kDegree, bool kRemainder>
__m256d step(__m256d x) {
  const __m256d shift = _mm256_set1_pd(algo::kRoundShift);
  const __m256d t = _mm256_fmadd_pd(x, _mm256_set1_pd(algo::kInvLn2x16), shift);
  const __m256d kf = _mm256_sub_pd(t, shift);
  __m256d r = _mm256_fnmadd_pd(kf, _mm256_set1_pd(algo::kLn2d16Hi), x);
  r = _mm256_fnmadd_pd(kf, _mm256_set1_pd(algo::kLn2d16Lo), r);
  const __m256i k = _mm256_sub_epi64(_mm256_castpd_si256(t), _mm256_castpd_si256(shift));
  const __m256i j = _mm256_and_si256(k, _mm256_set1_epi64x(15));
  // (k - j) is 16 m, so shifting it by 48 puts m in the exponent field.
  const __m256i scale = _mm256_add_epi64(_mm256_slli_epi64(_mm256_sub_epi64(k, j), 48),
                                         _mm256_set1_epi64x(0x3FF0000000000000ll));
  constexpr double kInv[] = {1.0, 1.0, 0.5, 1.0 / 6, 1.0 / 24, 1.0 / 120, 1.0 / 720, 1.0 / 5040};
  __m256d q = _mm256_set1_pd(kInv[kDegree]);
  for (int d = kDegree - 1; d >= 2; --d) q = _mm256_fmadd_pd(q, r, _mm256_set1_pd(kInv[d]));
  const __m256d p = _mm256_fmadd_pd(_mm256_mul_pd(r, r), q, r);
  const __m256i j2 = _mm256_slli_epi64(j, 1);
  const double* table = &algo::kExpTable[0][0];
  const __m256d hi = Ops::lookup(table, j2);
  __m256d y;
  if constexpr (kRemainder) {
    y = _mm256_add_pd(hi, _mm256_fmadd_pd(hi, p, Ops::lookup(table + 1, j2)));
  } else {
    y = _mm256_fmadd_pd(hi, p, hi);
  }
  return _mm256_mul_pd(y, _mm256_castsi256_pd(scale));
}

template <int kDegree, bool kRemainder>
void run(int32_t n, const double* a, double* y) {
  const __m256d limit = _mm256_set1_pd(707.7032713517042);  // 1021 ln 2
  for (int64_t i = 0; i < n; i += 4) {
    const int count = n - i < 4 ? static_cast<int>(n - i) : 4;
    const __m256d x = Ops::load_partial(a + i, count);
    if (_mm256_movemask_pd(_mm256_cmp_pd(Ops::abs(x), limit, _CMP_GE_OQ)) != 0) {
      // Read before this step stores, so an in-place call still sees them.
      double in[4];
      _mm256_storeu_pd(in, x);
      algo::exp_loop<Ops>(count, in, y + i);
      continue;
    }
    Ops::store_partial(y + i, step<kDegree, kRemainder>(x), count);
  }
}

}  // namespace

void exp_la(int32_t n, const double* a, double* y) { run<7, false>(n, a, y); }
void exp_ha(int32_t n, const double* a, double* y) { run<7, true>(n, a, y); }
void exp_ep(int32_t n, const double* a, double* y) { run<4, false>(n, a, y); }

}  // namespace zml::vml::avx2
