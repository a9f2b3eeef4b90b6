// SPDX-License-Identifier: BSD-3-Clause
// The "T" and "C" matrix-vector products (real and complex), written once
// over the SIMD ops of service/simd/<isa>/; each kernel folder instantiates
// them with its own ops. Contract and tuning fields: blas/kernels/level2_kernel.h.
#pragma once

#include <cstdint>

#include "blas/kernels/level2_kernel.h"

namespace zml::blas::algo {

// Rows of x, in vectors, held in registers by the in-L2 form of "T": half
// the register file, the rest for the columns' sums and loads.
template <class Ops>
constexpr int t_row_vectors() {
  return Ops::kRegisters / 2;
}

// C dot products col_k . x at once, two accumulators each so the adds of one
// column do not wait on each other; each load of x serves all C columns.
template <class Ops, int C>
void dgemv_t_cols(int64_t m, const double* a, int64_t lda, const double* x, double* sums) {
  using V = typename Ops::V;
  constexpr int W = Ops::W;
  V acc0[C], acc1[C];
  const double* col[C];
  for (int k = 0; k < C; ++k) {
    acc0[k] = Ops::zero();
    acc1[k] = Ops::zero();
    col[k] = a + k * lda;
  }
  int64_t i = 0;
  for (; i + 2 * W <= m; i += 2 * W) {
    const V x0 = Ops::load(x + i), x1 = Ops::load(x + i + W);
    for (int k = 0; k < C; ++k) {
      acc0[k] = Ops::madd(Ops::load(col[k] + i), x0, acc0[k]);
      acc1[k] = Ops::madd(Ops::load(col[k] + i + W), x1, acc1[k]);
    }
  }
  for (; i + W <= m; i += W) {
    const V x0 = Ops::load(x + i);
    for (int k = 0; k < C; ++k) acc0[k] = Ops::madd(Ops::load(col[k] + i), x0, acc0[k]);
  }
  for (int k = 0; k < C; ++k) {
    double s = Ops::hsum(Ops::add(acc0[k], acc1[k]));
    for (int64_t r = i; r < m; ++r) s = col[k][r] * x[r] + s;
    sums[k] = s;
  }
}

// "T" while A sits in L2, for ops that can sum eight vectors' lanes at once:
// a block of rows of x stays in registers and eight columns at a time are
// read over just that block, so A is walked in short pieces as the register
// form of "N" walks it (measured 1.2x the whole-column form at 256 x 256).
// It covers mb rows (whole blocks) and nb columns (a multiple of eight); the
// caller adds the rest.
template <class Ops>
void dgemv_t_blocks(int64_t mb, int64_t nb, double alpha, const double* a, int64_t lda,
                    const double* x, double* y) {
  using V = typename Ops::V;
  constexpr int R = t_row_vectors<Ops>(), W = Ops::W;
  const V va = Ops::bcast(alpha);
  for (int64_t i0 = 0; i0 < mb; i0 += R * W) {
    V xv[R];
    for (int r = 0; r < R; ++r) xv[r] = Ops::load(x + i0 + r * W);
    for (int64_t j = 0; j < nb; j += W) {
      V acc[W];
      for (int c = 0; c < W; ++c) {
        const double* col = a + (j + c) * lda + i0;
        V s0 = Ops::mul(Ops::load(col), xv[0]), s1 = Ops::mul(Ops::load(col + W), xv[1]);
        for (int r = 2; r < R; r += 2) {
          s0 = Ops::madd(Ops::load(col + r * W), xv[r], s0);
          s1 = Ops::madd(Ops::load(col + (r + 1) * W), xv[r + 1], s1);
        }
        acc[c] = Ops::add(s0, s1);
      }
      Ops::store(y + j, Ops::madd(va, Ops::sum_lanes8(acc), Ops::load(y + j)));
    }
  }
}

// "T" by whole columns: several dot products at once.
template <class Ops>
void dgemv_t_cols_all(int64_t m, int64_t n, double alpha, const double* a, int64_t lda,
                      const double* x, double* y, const gemv_tuning& tune) {
  double s[8];
  int64_t j = 0;
  // Sixteen sums plus two of x fit 32 registers. In cache the narrower pass is
  // as fast and leaves the compiler spare general registers.
  if constexpr (Ops::kRegisters >= 32) {
    if (int64_t{m} * n >= tune.large_elems) {
      for (; j + 8 <= n; j += 8) {
        dgemv_t_cols<Ops, 8>(m, a + j * lda, lda, x, s);
        for (int k = 0; k < 8; ++k) y[j + k] += alpha * s[k];
      }
    }
  }
  for (; j + 4 <= n; j += 4) {
    dgemv_t_cols<Ops, 4>(m, a + j * lda, lda, x, s);
    for (int k = 0; k < 4; ++k) y[j + k] += alpha * s[k];
  }
  for (; j < n; ++j) {
    dgemv_t_cols<Ops, 1>(m, a + j * lda, lda, x, s);
    y[j] += alpha * s[0];
  }
}

// Eight dot products at once from memory; while A sits in L2, the block form.
template <class Ops>
void dgemv_t(int32_t m, int32_t n, double alpha, const double* a, int64_t lda, const double* x,
             double* y, const gemv_tuning& tune) {
  // The block form holds 16 vectors of x: a 32-register file only.
  if constexpr (Ops::kRegisters >= 32 &&
                requires(const typename Ops::V* v) { Ops::sum_lanes8(v); }) {
    static_assert(Ops::W == 8, "sum_lanes8 sums eight vectors of eight");
    constexpr int64_t rows = int64_t{t_row_vectors<Ops>()} * Ops::W;
    const int64_t mb = m / rows * rows, nb = n / Ops::W * Ops::W;
    if (int64_t{m} * n <= tune.l2_elems && mb > 0 && nb > 0) {
      // y += alpha*A^T x splits over blocks of A: the bulk here, then the
      // rows below the bulk for every column and the columns right of it.
      dgemv_t_blocks<Ops>(mb, nb, alpha, a, lda, x, y);
      if (mb < m) dgemv_t_cols_all<Ops>(m - mb, n, alpha, a + mb, lda, x + mb, y, tune);
      if (nb < n) dgemv_t_cols_all<Ops>(mb, n - nb, alpha, a + nb * lda, lda, x, y + nb, tune);
      return;
    }
  }
  dgemv_t_cols_all<Ops>(m, n, alpha, a, lda, x, y, tune);
}

// Complex dot products: p += a*x gives (ar*xr, ai*xi), q += a*swap(x) gives
// (ar*xi, ai*xr). Then a.x = (pe - po, qe + qo) and conj(a).x = (pe + po, qe - qo).
template <class Ops, bool Conj, int C>
void zgemv_t_cols(int64_t m, const double* a, int64_t lda, const double* x, double* sums,
                  int64_t ahead) {
  using V = typename Ops::V;
  constexpr int W = Ops::W;
  V p[C], q[C];
  const double* col[C];
  for (int k = 0; k < C; ++k) {
    p[k] = Ops::zero();
    q[k] = Ops::zero();
    col[k] = a + 2 * k * lda;
  }
  const int64_t m2 = 2 * m;
  int64_t i = 0;
  for (; i + W <= m2; i += W) {
    const V xv = Ops::load(x + i);
    const V xs = Ops::swap(xv);
    for (int k = 0; k < C; ++k) {
      __builtin_prefetch(col[k] + i + ahead);
      const V v = Ops::load(col[k] + i);
      p[k] = Ops::madd(v, xv, p[k]);
      q[k] = Ops::madd(v, xs, q[k]);
    }
  }
  for (int k = 0; k < C; ++k) {
    double pe, po, qe, qo;
    Ops::hsum_pairs(p[k], &pe, &po);
    Ops::hsum_pairs(q[k], &qe, &qo);
    for (int64_t r = i; r < m2; r += 2) {
      const double ar = col[k][r], ai = col[k][r + 1];
      pe = ar * x[r] + pe;
      po = ai * x[r + 1] + po;
      qe = ar * x[r + 1] + qe;
      qo = ai * x[r] + qo;
    }
    sums[2 * k] = Conj ? pe + po : pe - po;
    sums[2 * k + 1] = Conj ? qe - qo : qe + qo;
  }
}

template <class Ops, bool Conj>
void zgemv_t(int32_t m, int32_t n, const double* alpha, const double* a, int64_t lda,
             const double* x, double* y, const gemv_tuning& tune) {
  const double ar = alpha[0], ai = alpha[1];
  const int64_t ahead = tune.prefetch_ahead;
  double s[16];
  auto add = [&](int32_t j, int k) {
    y[2 * j] += ar * s[2 * k] - ai * s[2 * k + 1];
    y[2 * j + 1] += ar * s[2 * k + 1] + ai * s[2 * k];
  };
  int32_t j = 0;
  // Eight columns share each load and swap of x where the register file holds
  // their sixteen sums (32 vector registers); four elsewhere.
  if constexpr (Ops::kRegisters >= 32) {
    for (; j + 8 <= n; j += 8) {
      zgemv_t_cols<Ops, Conj, 8>(m, a + 2 * j * lda, lda, x, s, ahead);
      for (int k = 0; k < 8; ++k) add(j + k, k);
    }
  }
  for (; j + 4 <= n; j += 4) {
    zgemv_t_cols<Ops, Conj, 4>(m, a + 2 * j * lda, lda, x, s, ahead);
    for (int k = 0; k < 4; ++k) add(j + k, k);
  }
  for (; j < n; ++j) {
    zgemv_t_cols<Ops, Conj, 1>(m, a + 2 * j * lda, lda, x, s, ahead);
    add(j, 0);
  }
}

}  // namespace zml::blas::algo
