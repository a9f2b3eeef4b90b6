// SPDX-License-Identifier: BSD-3-Clause
// Oracle for complex matrix multiply tests: a naive long-double loop with the
// magnitude each element's rounding error is measured against, seeded random
// fill, and an element-wise comparison that reports the first mismatch.
#pragma once

#include <cmath>
#include <complex>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace zml::test {

using zc = std::complex<double>;
using zcl = std::complex<long double>;

// Both parts uniform in [-1, 1) from a fixed seed.
inline void zfill_random(std::vector<zc>& v, uint32_t seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> dist(-1.0, 1.0);
  for (zc& x : v) {
    const double re = dist(gen);
    x = zc(re, dist(gen));
  }
}

// op(X)(r, c) for transposition code t: 0 'N', 1 'T', 2 'C'.
inline zcl zop_at(const zc* x, int64_t ld, int t, int64_t r, int64_t c) {
  const zc v = t == 0 ? x[r + c * ld] : x[c + r * ld];
  const zcl w(v.real(), v.imag());
  return t == 2 ? std::conj(w) : w;
}

struct ZgemmRef {
  std::vector<zc> c;        // expected C (m x n, leading dimension m)
  std::vector<double> mag;  // |alpha| sum |a||b| + |beta c|, per element
};

// C := alpha*op(A)*op(B) + beta*C in long double; alpha == 0 reads neither A
// nor B and beta == 0 ignores C, as the library must.
inline ZgemmRef zgemm_ref(int ta, int tb, int64_t m, int64_t n, int64_t k, zc alpha, const zc* a,
                          int64_t lda, const zc* b, int64_t ldb, zc beta, const zc* c,
                          int64_t ldc) {
  ZgemmRef r;
  r.c.assign(static_cast<size_t>(m * n), zc());
  r.mag.assign(static_cast<size_t>(m * n), 0.0);
  const zcl al(alpha.real(), alpha.imag()), be(beta.real(), beta.imag());
  // Real arithmetic in the inner loop: the complex operator* of the standard
  // library checks for infinities on every product and is far slower. The
  // magnitude uses |re| + |im|, an upper bound of the modulus.
  auto l1 = [](zcl v) { return std::fabs(v.real()) + std::fabs(v.imag()); };
  for (int64_t j = 0; j < n; ++j) {
    for (int64_t i = 0; i < m; ++i) {
      long double sr = 0, si = 0, g = 0;
      if (alpha != zc()) {
        for (int64_t p = 0; p < k; ++p) {
          const zcl x = zop_at(a, lda, ta, i, p), y = zop_at(b, ldb, tb, p, j);
          sr += x.real() * y.real() - x.imag() * y.imag();
          si += x.real() * y.imag() + x.imag() * y.real();
          g += l1(x) * l1(y);
        }
      }
      const zcl s(sr, si);
      zcl v = al * s;
      long double mg = l1(al) * g;
      if (beta != zc()) {
        const zcl cv(c[i + j * ldc].real(), c[i + j * ldc].imag());
        v += be * cv;
        mg += l1(be) * l1(cv);
      }
      r.c[static_cast<size_t>(i + j * m)] =
          zc(static_cast<double>(v.real()), static_cast<double>(v.imag()));
      r.mag[static_cast<size_t>(i + j * m)] = static_cast<double>(mg);
    }
  }
  return r;
}

// Rounding bound for an element accumulated over k complex products (each a
// few roundings, with FMA or not), plus the alpha and beta steps.
inline double zgemm_tolerance(int64_t k, double mag) {
  return 4.0 * static_cast<double>(k + 4) * std::numeric_limits<double>::epsilon() * mag +
         std::numeric_limits<double>::min();
}

// Empty when the m x n block of `got` (leading dimension ldg) matches `want`,
// else a description of the first element that does not.
inline std::string zgemm_mismatch(const ZgemmRef& want, const zc* got, int64_t ldg, int64_t m,
                                  int64_t n, int64_t k) {
  for (int64_t j = 0; j < n; ++j) {
    for (int64_t i = 0; i < m; ++i) {
      const size_t w = static_cast<size_t>(i + j * m);
      const zc g = got[i + j * ldg];
      const double err = std::abs(g - want.c[w]);
      if (!(err <= zgemm_tolerance(k, want.mag[w]))) {
        return "C(" + std::to_string(i) + "," + std::to_string(j) + ") = (" +
               std::to_string(g.real()) + "," + std::to_string(g.imag()) + "), want (" +
               std::to_string(want.c[w].real()) + "," + std::to_string(want.c[w].imag()) + ")";
      }
    }
  }
  return {};
}

}  // namespace zml::test
