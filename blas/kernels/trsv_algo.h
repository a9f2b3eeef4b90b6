// SPDX-License-Identifier: BSD-3-Clause
// The blocked triangular solve (real and complex), its updates through the
// same variant's gemv forms; each kernel folder instantiates it with its own
// ops. Contract and tuning fields: blas/kernels/level2_kernel.h.
#pragma once

#include <cstdint>

#include "blas/kernels/gemv_n_algo.h"
#include "blas/kernels/gemv_t_algo.h"
#include "blas/kernels/level2_kernel.h"

namespace zml::blas::algo {

// Real field for trsv_blocked: element = one double.
template <class Ops>
struct RealField {
  static constexpr int kWidth = 1;
  static void update_n(int32_t m, int32_t n, const double* a, int64_t lda, const double* x,
                       double* y, const gemv_tuning& tune) {
    dgemv_n<Ops>(m, n, -1.0, a, lda, x, y, tune);
  }
  static void update_t(int32_t, int32_t m, int32_t n, const double* a, int64_t lda, const double* x,
                       double* y, const gemv_tuning& tune) {
    dgemv_t<Ops>(m, n, -1.0, a, lda, x, y, tune);
  }
  // Direct substitution inside one diagonal block, by columns for "N" and by
  // dot products for "T", so A is always walked down its columns.
  static void solve(int32_t upper, int32_t trans, int32_t unit, int32_t nb, const double* a,
                    int64_t lda, double* x) {
    auto A = [a, lda](int64_t i, int64_t j) { return a[i + j * lda]; };
    if (trans == 0) {
      for (int32_t s = 0; s < nb; ++s) {
        const int32_t j = upper ? nb - 1 - s : s;
        if (!unit) x[j] /= A(j, j);
        const double t = x[j];
        const int32_t lo = upper ? 0 : j + 1, hi = upper ? j : nb;
        for (int32_t i = lo; i < hi; ++i) x[i] -= t * A(i, j);
      }
    } else {
      for (int32_t s = 0; s < nb; ++s) {
        const int32_t j = upper ? s : nb - 1 - s;
        double t = x[j];
        const int32_t lo = upper ? 0 : j + 1, hi = upper ? j : nb;
        for (int32_t i = lo; i < hi; ++i) t -= A(i, j) * x[i];
        if (!unit) t /= A(j, j);
        x[j] = t;
      }
    }
  }
};

// Complex field: element = (re, im); trans 2 conjugates A.
template <class Ops>
struct ComplexField {
  static constexpr int kWidth = 2;
  static void update_n(int32_t m, int32_t n, const double* a, int64_t lda, const double* x,
                       double* y, const gemv_tuning& tune) {
    const double minus_one[2] = {-1.0, 0.0};
    zgemv_n<Ops>(m, n, minus_one, a, lda, x, y, tune);
  }
  static void update_t(int32_t trans, int32_t m, int32_t n, const double* a, int64_t lda,
                       const double* x, double* y, const gemv_tuning& tune) {
    const double minus_one[2] = {-1.0, 0.0};
    if (trans == 2) {
      zgemv_t<Ops, true>(m, n, minus_one, a, lda, x, y, tune);
    } else {
      zgemv_t<Ops, false>(m, n, minus_one, a, lda, x, y, tune);
    }
  }
  // x /= d by Smith's method, which avoids overflow in |d|^2.
  static void div(double* x, double dr, double di) {
    const double adr = dr < 0 ? -dr : dr, adi = di < 0 ? -di : di;
    const double xr = x[0], xi = x[1];
    if (adr >= adi) {
      const double r = di / dr, den = dr + di * r;
      x[0] = (xr + xi * r) / den;
      x[1] = (xi - xr * r) / den;
    } else {
      const double r = dr / di, den = di + dr * r;
      x[0] = (xr * r + xi) / den;
      x[1] = (xi * r - xr) / den;
    }
  }
  static void solve(int32_t upper, int32_t trans, int32_t unit, int32_t nb, const double* a,
                    int64_t lda, double* x) {
    const double sgn = trans == 2 ? -1.0 : 1.0;  // imaginary sign of op(A)'s elements
    auto at = [a, lda](int64_t i, int64_t j) { return a + 2 * (i + j * lda); };
    if (trans == 0) {
      for (int32_t s = 0; s < nb; ++s) {
        const int32_t j = upper ? nb - 1 - s : s;
        if (!unit) div(x + 2 * j, at(j, j)[0], at(j, j)[1]);
        const double tr = x[2 * j], ti = x[2 * j + 1];
        const int32_t lo = upper ? 0 : j + 1, hi = upper ? j : nb;
        for (int32_t i = lo; i < hi; ++i) {
          const double* e = at(i, j);
          x[2 * i] -= tr * e[0] - ti * e[1];
          x[2 * i + 1] -= tr * e[1] + ti * e[0];
        }
      }
    } else {
      for (int32_t s = 0; s < nb; ++s) {
        const int32_t j = upper ? s : nb - 1 - s;
        double tr = x[2 * j], ti = x[2 * j + 1];
        const int32_t lo = upper ? 0 : j + 1, hi = upper ? j : nb;
        for (int32_t i = lo; i < hi; ++i) {
          const double* e = at(i, j);
          const double er = e[0], ei = sgn * e[1];
          tr -= er * x[2 * i] - ei * x[2 * i + 1];
          ti -= er * x[2 * i + 1] + ei * x[2 * i];
        }
        x[2 * j] = tr;
        x[2 * j + 1] = ti;
        if (!unit) div(x + 2 * j, at(j, j)[0], sgn * at(j, j)[1]);
      }
    }
  }
};

// op(A) x = b by diagonal blocks of nb: "N" upper and "T"/"C" lower run from
// the bottom block up, the others from the top down. Each block is solved
// directly, and its contribution is removed from the rest of x with one gemv
// ("N": the block's columns below or above it; "T"/"C": the solved part of x
// against the block's columns, before the block is solved).
template <class F>
void trsv_blocked(int32_t upper, int32_t trans, int32_t unit, int32_t n, const double* a,
                  int64_t lda, double* x, int32_t nb, const gemv_tuning& tune) {
  constexpr int s = F::kWidth;
  if (n <= 0) return;
  if (nb < 1) nb = 1;
  auto A = [a, lda](int64_t i, int64_t j) { return a + s * (i + j * lda); };
  auto X = [x](int64_t i) { return x + s * i; };
  const bool forward = (trans == 0) != (upper != 0);
  const int32_t blocks = (n - 1) / nb + 1;
  for (int32_t q = 0; q < blocks; ++q) {
    const int32_t b = forward ? q : blocks - 1 - q;
    const int32_t j0 = b * nb;
    const int32_t j1 = (n - j0 < nb) ? n : j0 + nb;
    const int32_t w = j1 - j0;
    if (trans == 0) {
      F::solve(upper, 0, unit, w, A(j0, j0), lda, X(j0));
      if (upper) {
        F::update_n(j0, w, A(0, j0), lda, X(j0), X(0), tune);
      } else {
        F::update_n(n - j1, w, A(j1, j0), lda, X(j0), X(j1), tune);
      }
    } else {
      if (upper) {
        F::update_t(trans, j0, w, A(0, j0), lda, X(0), X(j0), tune);
      } else {
        F::update_t(trans, n - j1, w, A(j1, j0), lda, X(j1), X(j0), tune);
      }
      F::solve(upper, trans, unit, w, A(j0, j0), lda, X(j0));
    }
  }
}

}  // namespace zml::blas::algo
