// SPDX-License-Identifier: BSD-3-Clause
// The logarithms with 256-bit vectors and fused multiply-add, four elements
// per step and a masked last step (filled with 1, an ordinary argument). A
// step with a zero, negative, subnormal, infinite or NaN argument goes to the
// element-wise algorithm, which handles it and the statuses.
#include <immintrin.h>

#include <limits>

#include "service/simd/avx2/vec_ops.h"
#include "vml/kernels/log_step.h"

namespace zml::vml::avx2 {

namespace {

using simd::avx2::Ops;

struct Lanes {
  using V = __m256d;
  using I = __m256i;
  static I bits(V v) { return _mm256_castpd_si256(v); }
  static V real(I i) { return _mm256_castsi256_pd(i); }
  static I iset(int64_t s) { return _mm256_set1_epi64x(s); }
  static I iadd(I a, I b) { return _mm256_add_epi64(a, b); }
  static I isub(I a, I b) { return _mm256_sub_epi64(a, b); }
  static I iand(I a, I b) { return _mm256_and_si256(a, b); }
  static I srl52(I a) { return _mm256_srli_epi64(a, 52); }
  static constexpr int kBits = 7;
  // Rows are four doubles (c, -ln c high and low, padding): four row loads
  // and a transpose rather than gathers, which cost about the same here and
  // which the user-mode emulator of the 32-bit tests executes wrongly.
  static void lookup(I u, V* c, V* th, V* tl) {
    const I row = _mm256_slli_epi64(_mm256_and_si256(_mm256_srli_epi64(u, 45), iset(127)), 2);
    const double* t = &algo::kLogTable[0][0];
    const __m128i lo = _mm256_castsi256_si128(row), hi = _mm256_extracti128_si256(row, 1);
    const V r0 = _mm256_loadu_pd(t + _mm_cvtsi128_si32(lo));
    const V r1 = _mm256_loadu_pd(t + _mm_extract_epi32(lo, 2));
    const V r2 = _mm256_loadu_pd(t + _mm_cvtsi128_si32(hi));
    const V r3 = _mm256_loadu_pd(t + _mm_extract_epi32(hi, 2));
    const V c01 = _mm256_unpacklo_pd(r0, r1), c23 = _mm256_unpacklo_pd(r2, r3);
    const V h01 = _mm256_unpackhi_pd(r0, r1), h23 = _mm256_unpackhi_pd(r2, r3);
    *c = _mm256_permute2f128_pd(c01, c23, 0x20);
    *th = _mm256_permute2f128_pd(h01, h23, 0x20);
    if (tl != nullptr) *tl = _mm256_permute2f128_pd(c01, c23, 0x31);
  }
  static V set(double s) { return _mm256_set1_pd(s); }
  static V add(V a, V b) { return _mm256_add_pd(a, b); }
  static V sub(V a, V b) { return _mm256_sub_pd(a, b); }
  static V mul(V a, V b) { return _mm256_mul_pd(a, b); }
  static V fma(V a, V b, V c) { return _mm256_fmadd_pd(a, b, c); }
  static V fms(V a, V b, V c) { return _mm256_fmsub_pd(a, b, c); }
  static V fnma(V a, V b, V c) { return _mm256_fnmadd_pd(a, b, c); }
};

template <algo::LogClass kClass, bool kLog10>
void run(int32_t n, const double* a, double* y) {
  const __m256d lo = _mm256_set1_pd(std::numeric_limits<double>::min());
  const __m256d hi = _mm256_set1_pd(std::numeric_limits<double>::max());
  for (int64_t i = 0; i < n; i += 4) {
    const int count = n - i < 4 ? static_cast<int>(n - i) : 4;
    const __m256d x = Ops::load_partial_or(a + i, count, 1.0);
    const __m256d odd =
        _mm256_or_pd(_mm256_cmp_pd(x, lo, _CMP_NGE_UQ), _mm256_cmp_pd(x, hi, _CMP_NLE_UQ));
    if (_mm256_movemask_pd(odd) != 0) {
      // Read before this step stores, so an in-place call still sees them.
      double in[4];
      _mm256_storeu_pd(in, x);
      algo::log_loop<Ops, kLog10>(count, in, y + i);
      continue;
    }
    Ops::store_partial(y + i, algo::log_step<Lanes, kClass, kLog10>(Lanes{}, x), count);
  }
}

}  // namespace

using algo::LogClass;
void ln_la(int32_t n, const double* a, double* y) { run<LogClass::kLow, false>(n, a, y); }
void ln_ha(int32_t n, const double* a, double* y) { run<LogClass::kHigh, false>(n, a, y); }
void ln_ep(int32_t n, const double* a, double* y) { run<LogClass::kFast, false>(n, a, y); }
void log10_la(int32_t n, const double* a, double* y) { run<LogClass::kLow, true>(n, a, y); }
void log10_ha(int32_t n, const double* a, double* y) { run<LogClass::kHigh, true>(n, a, y); }
void log10_ep(int32_t n, const double* a, double* y) { run<LogClass::kFast, true>(n, a, y); }

}  // namespace zml::vml::avx2
