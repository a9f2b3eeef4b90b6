// SPDX-License-Identifier: BSD-3-Clause
// The matrix-vector algorithms (gemv "N"/"T"/"C", blocked trsv), written once
// over a per-ISA ops struct; each kernel folder instantiates them with its own
// ops. Contract: blas/kernels/level2_kernel.h.
#pragma once

#include <cstdint>

namespace zml::blas::algo {

// Rows of y handled per pass over a column block in gemv "N": 2048 doubles
// (16 KB) of y stay in L1/L2 while eight columns of A stream past them.
inline constexpr int64_t kGemvRowBlock = 2048;

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

template <class Ops>
void dgemv_n_stream(int32_t m, int32_t n, double alpha, const double* a, int64_t lda,
                    const double* x, double* y) {
  double b[8];
  for (int64_t i0 = 0; i0 < m; i0 += kGemvRowBlock) {
    const int64_t mb = (m - i0 < kGemvRowBlock) ? m - i0 : kGemvRowBlock;
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

// Elements of A (32 MiB) from which dgemv takes its out-of-cache form: while
// A sits in L3, streaming eight columns past a block of y is the faster
// "N" pass (y is reread from L1); from memory, holding y in registers over
// whole panels of columns is, and eight dot products at once for "T".
inline constexpr int64_t kGemvLargeElems = int64_t{1} << 22;

// Elements of A (512 KiB) up to which A is taken to sit in L2, where the
// register form of "N" is also the faster one: the column pieces it reads are
// short, which costs nothing from L2 and only the L3 stream prefers longer
// ones (measured with 32 vector registers: 1.6x at 256 x 256, 0.9x at
// 512 x 512 on a 2 MiB L2). With 16 registers the row blocks are too short
// for it to pay.
inline constexpr int64_t kGemvL2Elems = int64_t{1} << 16;

// Doubles ahead (eight cache lines) at which the complex column loops fetch
// each column: they stream eight or more columns at once from L3, more than
// the hardware prefetchers follow well (zgemv 1024: 26 -> 28 GB/s).
inline constexpr int64_t kZgemvAhead = 64;

// Columns of dgemv "N" whose multipliers alpha*x_j are staged at a time (2 KB
// on the stack); y is loaded and stored once per panel and row block.
inline constexpr int64_t kGemvColPanel = 256;

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

template <class Ops>
void dgemv_n_regs(int32_t m, int32_t n, double alpha, const double* a, int64_t lda, const double* x,
                  double* y) {
  // Half the register file holds y; the rest covers A, the broadcast and spare.
  constexpr int kR = Ops::kRegisters / 2;
  double b[kGemvColPanel];
  for (int64_t j0 = 0; j0 < n; j0 += kGemvColPanel) {
    const int64_t nb = (n - j0 < kGemvColPanel) ? n - j0 : kGemvColPanel;
    for (int64_t k = 0; k < nb; ++k) b[k] = alpha * x[j0 + k];
    dgemv_n_panel<Ops, kR>(m, nb, a + j0 * lda, lda, b, y);
  }
}

template <class Ops>
void dgemv_n(int32_t m, int32_t n, double alpha, const double* a, int64_t lda, const double* x,
             double* y) {
  const int64_t elems = int64_t{m} * n;
  const bool in_l2 = Ops::kRegisters >= 32 && elems <= kGemvL2Elems;
  if (elems >= kGemvLargeElems || in_l2) {
    dgemv_n_regs<Ops>(m, n, alpha, a, lda, x, y);
  } else {
    dgemv_n_stream<Ops>(m, n, alpha, a, lda, x, y);
  }
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

// Rows of x held in registers by the in-L2 form of "T" (16 vectors).
inline constexpr int kGemvTRowVectors = 16;

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
  constexpr int R = kGemvTRowVectors, W = Ops::W;
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
                      const double* x, double* y) {
  double s[8];
  int64_t j = 0;
  // Sixteen sums plus two of x fit 32 registers. In cache the narrower pass is
  // as fast and leaves the compiler spare general registers.
  if constexpr (Ops::kRegisters >= 32) {
    if (int64_t{m} * n >= kGemvLargeElems) {
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

template <class Ops>
void dgemv_t(int32_t m, int32_t n, double alpha, const double* a, int64_t lda, const double* x,
             double* y) {
  // The block form holds 16 vectors of x: a 32-register file only.
  if constexpr (Ops::kRegisters >= 32 &&
                requires(const typename Ops::V* v) { Ops::sum_lanes8(v); }) {
    static_assert(Ops::W == 8, "sum_lanes8 sums eight vectors of eight");
    constexpr int64_t rows = int64_t{kGemvTRowVectors} * Ops::W;
    const int64_t mb = m / rows * rows, nb = n / Ops::W * Ops::W;
    if (int64_t{m} * n <= kGemvL2Elems && mb > 0 && nb > 0) {
      // y += alpha*A^T x splits over blocks of A: the bulk here, then the
      // rows below the bulk for every column and the columns right of it.
      dgemv_t_blocks<Ops>(mb, nb, alpha, a, lda, x, y);
      if (mb < m) dgemv_t_cols_all<Ops>(m - mb, n, alpha, a + mb, lda, x + mb, y);
      if (nb < n) dgemv_t_cols_all<Ops>(mb, n - nb, alpha, a + nb * lda, lda, x, y + nb);
      return;
    }
  }
  dgemv_t_cols_all<Ops>(m, n, alpha, a, lda, x, y);
}

// Complex "N": for columns with multipliers b_k = alpha*x_k = (br, bi),
// y += a*br + swap(a*bi)*(-1, 1). swap commutes with the sum over k, so one
// swap per row vector serves all C columns.
template <class Ops, int C>
void zgemv_n_cols(int64_t m, const double* a, int64_t lda, const double* b, double* y) {
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
      __builtin_prefetch(col[k] + i + kZgemvAhead);
      __builtin_prefetch(col[k + 1] + i + kZgemvAhead);
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
             const double* x, double* y) {
  const double ar = alpha[0], ai = alpha[1];
  double b[16];
  auto scale = [&](int32_t j, int k) {
    b[2 * k] = ar * x[2 * j] - ai * x[2 * j + 1];
    b[2 * k + 1] = ar * x[2 * j + 1] + ai * x[2 * j];
  };
  for (int64_t i0 = 0; i0 < m; i0 += kGemvRowBlock / 2) {
    const int64_t mb = (m - i0 < kGemvRowBlock / 2) ? m - i0 : kGemvRowBlock / 2;
    const double* ab = a + 2 * i0;
    double* yb = y + 2 * i0;
    int32_t j = 0;
    for (; j + 8 <= n; j += 8) {
      for (int k = 0; k < 8; ++k) scale(j + k, k);
      zgemv_n_cols<Ops, 8>(mb, ab + 2 * j * lda, lda, b, yb);
    }
    if (j + 4 <= n) {
      for (int k = 0; k < 4; ++k) scale(j + k, k);
      zgemv_n_cols<Ops, 4>(mb, ab + 2 * j * lda, lda, b, yb);
      j += 4;
    }
    for (; j < n; ++j) {
      scale(j, 0);
      zgemv_n_cols<Ops, 1>(mb, ab + 2 * j * lda, lda, b, yb);
    }
  }
}

// Complex dot products: p += a*x gives (ar*xr, ai*xi), q += a*swap(x) gives
// (ar*xi, ai*xr). Then a.x = (pe - po, qe + qo) and conj(a).x = (pe + po, qe - qo).
template <class Ops, bool Conj, int C>
void zgemv_t_cols(int64_t m, const double* a, int64_t lda, const double* x, double* sums) {
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
      __builtin_prefetch(col[k] + i + kZgemvAhead);
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
             const double* x, double* y) {
  const double ar = alpha[0], ai = alpha[1];
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
      zgemv_t_cols<Ops, Conj, 8>(m, a + 2 * j * lda, lda, x, s);
      for (int k = 0; k < 8; ++k) add(j + k, k);
    }
  }
  for (; j + 4 <= n; j += 4) {
    zgemv_t_cols<Ops, Conj, 4>(m, a + 2 * j * lda, lda, x, s);
    for (int k = 0; k < 4; ++k) add(j + k, k);
  }
  for (; j < n; ++j) {
    zgemv_t_cols<Ops, Conj, 1>(m, a + 2 * j * lda, lda, x, s);
    add(j, 0);
  }
}

// ---- blocked triangular solve ------------------------------------------------

// Real field for trsv_blocked: element = one double.
template <class Ops>
struct RealField {
  static constexpr int kWidth = 1;
  static void update_n(int32_t m, int32_t n, const double* a, int64_t lda, const double* x,
                       double* y) {
    dgemv_n<Ops>(m, n, -1.0, a, lda, x, y);
  }
  static void update_t(int32_t, int32_t m, int32_t n, const double* a, int64_t lda, const double* x,
                       double* y) {
    dgemv_t<Ops>(m, n, -1.0, a, lda, x, y);
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
                       double* y) {
    const double minus_one[2] = {-1.0, 0.0};
    zgemv_n<Ops>(m, n, minus_one, a, lda, x, y);
  }
  static void update_t(int32_t trans, int32_t m, int32_t n, const double* a, int64_t lda,
                       const double* x, double* y) {
    const double minus_one[2] = {-1.0, 0.0};
    if (trans == 2) {
      zgemv_t<Ops, true>(m, n, minus_one, a, lda, x, y);
    } else {
      zgemv_t<Ops, false>(m, n, minus_one, a, lda, x, y);
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
                  int64_t lda, double* x, int32_t nb) {
  constexpr int s = F::kWidth;
  if (n <= 0) return;
  if (nb < 1) nb = 1;
  auto A = [a, lda](int64_t i, int64_t j) { return a + s * (i + j * lda); };
  auto X = [x](int64_t i) { return x + s * i; };
  const bool forward = (trans == 0) != (upper != 0);
  const int32_t blocks = (n + nb - 1) / nb;
  for (int32_t q = 0; q < blocks; ++q) {
    const int32_t b = forward ? q : blocks - 1 - q;
    const int32_t j0 = b * nb;
    const int32_t j1 = (n - j0 < nb) ? n : j0 + nb;
    const int32_t w = j1 - j0;
    if (trans == 0) {
      F::solve(upper, 0, unit, w, A(j0, j0), lda, X(j0));
      if (upper) {
        F::update_n(j0, w, A(0, j0), lda, X(j0), X(0));
      } else {
        F::update_n(n - j1, w, A(j1, j0), lda, X(j0), X(j1));
      }
    } else {
      if (upper) {
        F::update_t(trans, j0, w, A(0, j0), lda, X(0), X(j0));
      } else {
        F::update_t(trans, n - j1, w, A(j1, j0), lda, X(j1), X(j0));
      }
      F::solve(upper, trans, unit, w, A(j0, j0), lda, X(j0));
    }
  }
}

}  // namespace zml::blas::algo
