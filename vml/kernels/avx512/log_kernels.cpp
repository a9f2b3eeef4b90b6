// SPDX-License-Identifier: BSD-3-Clause
// The logarithms with 512-bit vectors, eight elements per step and a masked
// last step (filled with 1, an ordinary argument), with the 32-row table in
// registers: permutes cost less than the gathers of the larger table. A step with a zero,
// negative, subnormal, infinite or NaN argument goes to the element-wise
// algorithm, which handles it and the statuses. Masked forms with a named
// pass-through where the plain intrinsic leaves it undefined (see
// service/simd/avx512/vec_ops.h).
#include <immintrin.h>

#include <limits>

#include "service/simd/avx512/vec_ops.h"
#include "vml/kernels/log_step.h"

namespace zml::vml::avx512 {

namespace {

using simd::avx512::Ops;

struct Lanes {
  using V = __m512d;
  using I = __m512i;
  static I bits(V v) { return _mm512_castpd_si512(v); }
  static V real(I i) { return _mm512_castsi512_pd(i); }
  static I iset(int64_t s) { return _mm512_set1_epi64(s); }
  static I iadd(I a, I b) { return _mm512_add_epi64(a, b); }
  static I isub(I a, I b) { return _mm512_sub_epi64(a, b); }
  static I iand(I a, I b) { return _mm512_and_si512(a, b); }
  static I srl52(I a) { return _mm512_mask_srli_epi64(a, 0xFF, a, 52); }
  static constexpr int kBits = 5;
  // Each column of the 32-row table in four registers: two two-source
  // permutes pick from rows 0-15 and 16-31 by the low four bits of the row,
  // and its bit 4 chooses between them.
  V col[3][4];
  Lanes() {
    for (int k = 0; k < 3; ++k) {
      for (int q = 0; q < 4; ++q) {
        const double* t = &algo::kLogTable32[8 * q][k];
        col[k][q] = _mm512_setr_pd(t[0], t[3], t[6], t[9], t[12], t[15], t[18], t[21]);
      }
    }
  }
  V pick(int k, I row, __mmask8 upper) const {
    const V lo = _mm512_permutex2var_pd(col[k][0], row, col[k][1]);
    const V hi = _mm512_permutex2var_pd(col[k][2], row, col[k][3]);
    return _mm512_mask_blend_pd(upper, lo, hi);
  }
  void lookup(I u, V* c, V* th, V* tl) const {
    const I row = _mm512_mask_srli_epi64(u, 0xFF, u, 47);
    const __mmask8 upper = _mm512_test_epi64_mask(row, iset(16));
    *c = pick(0, row, upper);
    *th = pick(1, row, upper);
    if (tl != nullptr) *tl = pick(2, row, upper);
  }
  static V set(double s) { return _mm512_set1_pd(s); }
  static V add(V a, V b) { return _mm512_add_pd(a, b); }
  static V sub(V a, V b) { return _mm512_sub_pd(a, b); }
  static V mul(V a, V b) { return _mm512_mul_pd(a, b); }
  static V fma(V a, V b, V c) { return _mm512_fmadd_pd(a, b, c); }
  static V fms(V a, V b, V c) { return _mm512_fmsub_pd(a, b, c); }
  static V fnma(V a, V b, V c) { return _mm512_fnmadd_pd(a, b, c); }
};

[[gnu::noinline]] void odd_step(const double* a, double* y, int count, bool log10) {
  if (log10) {
    algo::log_loop<Ops, true>(count, a, y);
  } else {
    algo::log_loop<Ops, false>(count, a, y);
  }
}

template <algo::LogClass kClass, bool kLog10>
void run(int32_t n, const double* a, double* y) {
  const Lanes lanes;
  const __m512d lo = _mm512_set1_pd(std::numeric_limits<double>::min());
  const __m512d hi = _mm512_set1_pd(std::numeric_limits<double>::max());
  for (int64_t i = 0; i < n; i += 8) {
    const int count = n - i < 8 ? static_cast<int>(n - i) : 8;
    const __mmask8 m = Ops::mask(count);
    const __m512d x = Ops::load_partial_or(a + i, count, 1.0);
    if ((_mm512_cmp_pd_mask(x, lo, _CMP_NGE_UQ) | _mm512_cmp_pd_mask(x, hi, _CMP_NLE_UQ)) != 0) {
      // Read before this step stores, so an in-place call still sees them.
      double in[8];
      _mm512_storeu_pd(in, x);
      odd_step(in, y + i, count, kLog10);
      continue;
    }
    _mm512_mask_storeu_pd(y + i, m, algo::log_step<Lanes, kClass, kLog10>(lanes, x));
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

}  // namespace zml::vml::avx512
