// SPDX-License-Identifier: BSD-3-Clause
// The "N" matrix-vector products (real and complex), written once over the
// SIMD ops of service/simd/<isa>/; each kernel folder instantiates them with
// its own ops. Contract and tuning fields: blas/kernels/level2_kernel.h.
#pragma once

#include <cstdint>

#include "blas/kernels/level2_kernel.h"

namespace zml::blas::algo {

// y[0..m) += sum_k col_k * b[k] for C columns of A. Each pass over y reads C
// columns, so y is loaded and stored once per C columns instead of once per
// column: that is what keeps the memory-bound "N" product at stream speed.
template <class Ops, int C>
void dgemv_n_cols(int64_t m, const double* a, int64_t lda, const double* b, double* y) {
  using V = typename Ops::V;
  constexpr int W = Ops::W;
  V vb[C];
  const double* col[C];
  for (int k = 0; k < C; ++k) {
    vb[k] = Ops::bcast(b[k]);
    col[k] = a + k * lda;
  }
  int64_t i = 0;
  for (; i + W <= m; i += W) {
    // Even and odd columns in separate sums halve the dependent chain of FMAs.
    V acc0 = Ops::load(y + i), acc1 = Ops::zero();
    for (int k = 0; k + 1 < C; k += 2) {
      acc0 = Ops::madd(Ops::load(col[k] + i), vb[k], acc0);
      acc1 = Ops::madd(Ops::load(col[k + 1] + i), vb[k + 1], acc1);
    }
    if (C % 2) acc0 = Ops::madd(Ops::load(col[C - 1] + i), vb[C - 1], acc0);
    Ops::store(y + i, Ops::add(acc0, acc1));
  }
  for (; i < m; ++i) {
    double s = y[i];
    for (int k = 0; k < C; ++k) s = col[k][i] * b[k] + s;
    y[i] = s;
  }
}

// Rows of y in blocks of tune.row_block, which stay in L1/L2 while eight
// columns of A stream past them.
template <class Ops>
void dgemv_n_stream(int32_t m, int32_t n, double alpha, const double* a, int64_t lda,
                    const double* x, double* y, const gemv_tuning& tune) {
  double b[8];
  const int64_t block = tune.row_block;
  for (int64_t i0 = 0; i0 < m; i0 += block) {
    const int64_t mb = (m - i0 < block) ? m - i0 : block;
    const double* ab = a + i0;
    double* yb = y + i0;
    int32_t j = 0;
    for (; j + 8 <= n; j += 8) {
      for (int k = 0; k < 8; ++k) b[k] = alpha * x[j + k];
      dgemv_n_cols<Ops, 8>(mb, ab + j * lda, lda, b, yb);
    }
    if (j + 4 <= n) {
      for (int k = 0; k < 4; ++k) b[k] = alpha * x[j + k];
      dgemv_n_cols<Ops, 4>(mb, ab + j * lda, lda, b, yb);
      j += 4;
    }
    for (; j < n; ++j) {
      b[0] = alpha * x[j];
      dgemv_n_cols<Ops, 1>(mb, ab + j * lda, lda, b, yb);
    }
  }
}

// y[0..R*W) += sum_j col_j * b[j] over n columns with the R vectors of y held
// in registers throughout: each column costs R loads of A and one broadcast,
// and the R sums are independent, so the loop runs at load throughput.
template <class Ops, int R>
void dgemv_n_rows(int64_t n, const double* a, int64_t lda, const double* b, double* y) {
  using V = typename Ops::V;
  constexpr int W = Ops::W;
  V acc[R];
  for (int r = 0; r < R; ++r) acc[r] = Ops::load(y + r * W);
  for (int64_t j = 0; j < n; ++j) {
    const V bj = Ops::bcast(b[j]);
    const double* c = a + j * lda;
    for (int r = 0; r < R; ++r) acc[r] = Ops::madd(Ops::load(c + r * W), bj, acc[r]);
  }
  for (int r = 0; r < R; ++r) Ops::store(y + r * W, acc[r]);
}

// Rows [0, m) in blocks of R vectors, then what is left with R/2 and so on;
// m is a multiple of W here.
template <class Ops, int R>
void dgemv_n_blocks(int64_t m, int64_t n, const double* a, int64_t lda, const double* b,
                    double* y) {
  constexpr int64_t rows = int64_t{R} * Ops::W;
  int64_t i = 0;
  for (; i + rows <= m; i += rows) dgemv_n_rows<Ops, R>(n, a + i, lda, b, y + i);
  if constexpr (R > 1) dgemv_n_blocks<Ops, R / 2>(m - i, n, a + i, lda, b, y + i);
}

// Rows of the vector at a whose lanes [lo, hi) are added to y[lo, hi): the
// other lanes belong to rows done elsewhere and are dropped. Four sums over
// the columns keep the FMA chain short.
template <class Ops>
void dgemv_n_edge(int64_t n, const double* a, int64_t lda, const double* b, double* y, int lo,
                  int hi) {
  using V = typename Ops::V;
  V acc[4] = {Ops::zero(), Ops::zero(), Ops::zero(), Ops::zero()};
  int64_t j = 0;
  for (; j + 4 <= n; j += 4) {
    for (int k = 0; k < 4; ++k) {
      acc[k] = Ops::madd(Ops::load(a + (j + k) * lda), Ops::bcast(b[j + k]), acc[k]);
    }
  }
  for (; j < n; ++j) acc[0] = Ops::madd(Ops::load(a + j * lda), Ops::bcast(b[j]), acc[0]);
  double t[Ops::W];
  Ops::store(t, Ops::add(Ops::add(acc[0], acc[1]), Ops::add(acc[2], acc[3])));
  for (int k = lo; k < hi; ++k) y[k] += t[k];
}

// Rows to skip before a + rows is aligned to a whole vector, so the loads of
// the bulk do not split cache lines (all columns share it when lda allows).
template <class Ops>
int64_t head_rows(const double* a) {
  constexpr int64_t W = Ops::W;
  const int64_t off = static_cast<int64_t>(reinterpret_cast<uintptr_t>(a) / sizeof(double)) % W;
  return off ? W - off : 0;
}

// The bulk runs on aligned vectors; the head and tail rows short of one
// vector come from one overlapping vector each.
template <class Ops, int R>
void dgemv_n_panel(int64_t m, int64_t n, const double* a, int64_t lda, const double* b, double* y) {
  constexpr int64_t W = Ops::W;
  if (m < W) {
    for (int64_t i = 0; i < m; ++i) {
      double s = y[i];
      for (int64_t j = 0; j < n; ++j) s = a[i + j * lda] * b[j] + s;
      y[i] = s;
    }
    return;
  }
  int64_t p = head_rows<Ops>(a);
  if (p > m) p = 0;
  const int64_t body = (m - p) / W * W;
  const int64_t t = m - p - body;
  dgemv_n_blocks<Ops, R>(body, n, a + p, lda, b, y + p);
  if (p) dgemv_n_edge<Ops>(n, a, lda, b, y, 0, static_cast<int>(p));
  if (t) dgemv_n_edge<Ops>(n, a + m - W, lda, b, y + m - W, static_cast<int>(W - t), W);
}

// Columns in panels of tune.col_panel whose multipliers alpha*x_j are staged
// on the stack; y is loaded and stored once per panel and row block.
template <class Ops>
void dgemv_n_regs(int32_t m, int32_t n, double alpha, const double* a, int64_t lda, const double* x,
                  double* y, const gemv_tuning& tune) {
  // Half the register file holds y; the rest covers A, the broadcast and spare.
  constexpr int kR = Ops::kRegisters / 2;
  double b[kGemvColPanelMax];
  const int64_t panel = tune.col_panel < kGemvColPanelMax ? tune.col_panel : kGemvColPanelMax;
  for (int64_t j0 = 0; j0 < n; j0 += panel) {
    const int64_t nb = (n - j0 < panel) ? n - j0 : panel;
    for (int64_t k = 0; k < nb; ++k) b[k] = alpha * x[j0 + k];
    dgemv_n_panel<Ops, kR>(m, nb, a + j0 * lda, lda, b, y);
  }
}

// While A sits in L3, streaming eight columns past a block of y is the faster
// pass (y is reread from L1); from memory, holding y in registers over whole
// panels of columns is. In L2 the register form wins too where the file has
// 32 registers (1.6x at 256 x 256, 0.9x at 512 x 512 on a 2 MiB L2): the
// column pieces it reads are short, which costs nothing from L2; with 16 the
// row blocks are too short for it to pay.
template <class Ops>
void dgemv_n(int32_t m, int32_t n, double alpha, const double* a, int64_t lda, const double* x,
             double* y, const gemv_tuning& tune) {
  const int64_t elems = int64_t{m} * n;
  const bool in_l2 = Ops::kRegisters >= 32 && elems <= tune.l2_elems;
  if (elems >= tune.large_elems || in_l2) {
    dgemv_n_regs<Ops>(m, n, alpha, a, lda, x, y, tune);
  } else {
    dgemv_n_stream<Ops>(m, n, alpha, a, lda, x, y, tune);
  }
}

// Complex "N": for columns with multipliers b_k = alpha*x_k = (br, bi),
// y += a*br + swap(a*bi)*(-1, 1). swap commutes with the sum over k, so one
// swap per row vector serves all C columns.
template <class Ops, int C>
void zgemv_n_cols(int64_t m, const double* a, int64_t lda, const double* b, double* y,
                  int64_t ahead) {
  using V = typename Ops::V;
  constexpr int W = Ops::W;
  V br[C], bi[C];
  const double* col[C];
  for (int k = 0; k < C; ++k) {
    br[k] = Ops::bcast(b[2 * k]);
    bi[k] = Ops::bcast(b[2 * k + 1]);
    col[k] = a + 2 * k * lda;
  }
  const V sign = Ops::pair(-1.0, 1.0);
  const int64_t m2 = 2 * m;
  int64_t i = 0;
  for (; i + W <= m2; i += W) {
    // Two sums per part (even and odd columns) halve the dependent chains.
    V accr0 = Ops::load(y + i), acci0 = Ops::zero();
    V accr1 = Ops::zero(), acci1 = Ops::zero();
    for (int k = 0; k + 1 < C; k += 2) {
      __builtin_prefetch(col[k] + i + ahead);
      __builtin_prefetch(col[k + 1] + i + ahead);
      const V v0 = Ops::load(col[k] + i), v1 = Ops::load(col[k + 1] + i);
      accr0 = Ops::madd(v0, br[k], accr0);
      acci0 = Ops::madd(v0, bi[k], acci0);
      accr1 = Ops::madd(v1, br[k + 1], accr1);
      acci1 = Ops::madd(v1, bi[k + 1], acci1);
    }
    if (C % 2) {
      const V v = Ops::load(col[C - 1] + i);
      accr0 = Ops::madd(v, br[C - 1], accr0);
      acci0 = Ops::madd(v, bi[C - 1], acci0);
    }
    const V accr = Ops::add(accr0, accr1), acci = Ops::add(acci0, acci1);
    Ops::store(y + i, Ops::madd(Ops::swap(acci), sign, accr));
  }
  for (; i < m2; i += 2) {
    double yr = y[i], yi = y[i + 1];
    for (int k = 0; k < C; ++k) {
      const double ar = col[k][i], ai = col[k][i + 1];
      yr = ar * b[2 * k] + (ai * -b[2 * k + 1] + yr);
      yi = ai * b[2 * k] + (ar * b[2 * k + 1] + yi);
    }
    y[i] = yr;
    y[i + 1] = yi;
  }
}

template <class Ops>
void zgemv_n(int32_t m, int32_t n, const double* alpha, const double* a, int64_t lda,
             const double* x, double* y, const gemv_tuning& tune) {
  const double ar = alpha[0], ai = alpha[1];
  double b[16];
  auto scale = [&](int32_t j, int k) {
    b[2 * k] = ar * x[2 * j] - ai * x[2 * j + 1];
    b[2 * k + 1] = ar * x[2 * j + 1] + ai * x[2 * j];
  };
  const int64_t block = tune.row_block / 2, ahead = tune.prefetch_ahead;
  for (int64_t i0 = 0; i0 < m; i0 += block) {
    const int64_t mb = (m - i0 < block) ? m - i0 : block;
    const double* ab = a + 2 * i0;
    double* yb = y + 2 * i0;
    int32_t j = 0;
    for (; j + 8 <= n; j += 8) {
      for (int k = 0; k < 8; ++k) scale(j + k, k);
      zgemv_n_cols<Ops, 8>(mb, ab + 2 * j * lda, lda, b, yb, ahead);
    }
    if (j + 4 <= n) {
      for (int k = 0; k < 4; ++k) scale(j + k, k);
      zgemv_n_cols<Ops, 4>(mb, ab + 2 * j * lda, lda, b, yb, ahead);
      j += 4;
    }
    for (; j < n; ++j) {
      scale(j, 0);
      zgemv_n_cols<Ops, 1>(mb, ab + 2 * j * lda, lda, b, yb, ahead);
    }
  }
}

}  // namespace zml::blas::algo
