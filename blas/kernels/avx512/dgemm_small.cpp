// SPDX-License-Identifier: BSD-3-Clause
// AVX-512 dgemm for small operands (m, n, k <= 112), straight from A and B
// without packing: users call it in loops, so nothing here allocates and the
// fixed cost of a call is kept to a few instructions per tile.
#include <immintrin.h>

#include <type_traits>

#include "blas/kernels/avx512/dgemm_store.h"
#include "blas/kernels/gemm_kernel.h"

namespace zml::blas::avx512 {

namespace {

// What every tile of one call shares. alpha and beta stay scalars: a vector
// member would make the structure a 64-byte-aligned stack object, which
// 64-bit MinGW does not reliably align; each tile broadcasts them instead.
struct Call {
  int64_t k;
  const double* a;
  int64_t lda;
  const double* b;
  int64_t rsb, csb;
  double alpha, beta;
  bool alpha_one, beta_zero;
  double* c;
  int64_t ldc;
};

// C := alpha*acc + beta*C for one vector of rows, as dgemm_store_vec forms
// it. With alpha == 1 the product is acc itself, so the sum is a plain add,
// which runs beside the multiply-adds instead of taking their units: the
// same values, and at k = 16 the store's two operations per vector would
// add an eighth to the sixteen multiply-adds of each accumulator.
template <bool kAlphaOne>
inline void store_vec(double* c, __m512d acc, __mmask8 mask, __m512d alpha, __m512d beta,
                      bool beta_zero) {
  if constexpr (!kAlphaOne) {
    dgemm_store_vec<true>(c, acc, mask, alpha, beta, beta_zero);
  } else if (mask != 0xFF) {
    if (mask != 0) {
      dgemm_store_rows(c, acc, __builtin_popcount(mask), _mm512_cvtsd_f64(beta), beta_zero);
    }
  } else if (beta_zero) {
    _mm512_storeu_pd(c, acc);
  } else {
    _mm512_storeu_pd(c, _mm512_add_pd(acc, _mm512_mul_pd(beta, _mm512_loadu_pd(c))));
  }
}

// One tile of kV row vectors by kN columns, C rows [i0, i0 + 8*kV) and
// columns [j0, j0 + kN). kMask: the last vector holds fewer than eight rows
// (`last` is their mask); whole vectors take plain loads and stores. kRowB:
// B is stored by rows (csb == 1), so one pointer walks down B and the kN
// broadcasts of a step sit at fixed offsets from it; otherwise each column
// keeps its own pointer and a shared offset walks down the columns. Both
// forms leave the loop with one A pointer, one B offset and nothing else to
// update per step.
template <int kV, int kN, bool kMask, bool kRowB>
__attribute__((noinline)) void tile(const Call& cl, int64_t i0, int64_t j0, __mmask8 last) {
  __m512d acc[kV][kN];
#pragma GCC unroll 8
  for (int j = 0; j < kN; ++j) {
#pragma GCC unroll 4
    for (int v = 0; v < kV; ++v) acc[v][j] = _mm512_setzero_pd();
  }
  const double* pa = cl.a + i0;
  const int64_t lda = cl.lda;
  const __mmask8 lm = kMask ? last : __mmask8(0xFF);
  if constexpr (kRowB) {
    const double* pb = cl.b + j0;
    const int64_t rsb = cl.rsb;
#pragma GCC unroll 2
    for (int64_t p = 0; p < cl.k; ++p) {
      __m512d av[kV];
#pragma GCC unroll 4
      for (int v = 0; v < kV; ++v) {
        av[v] = (kMask && v == kV - 1) ? _mm512_maskz_loadu_pd(lm, pa + 8 * v)
                                       : _mm512_loadu_pd(pa + 8 * v);
      }
#pragma GCC unroll 8
      for (int j = 0; j < kN; ++j) {
        const __m512d bj = _mm512_set1_pd(pb[j]);
#pragma GCC unroll 4
        for (int v = 0; v < kV; ++v) acc[v][j] = _mm512_fmadd_pd(av[v], bj, acc[v][j]);
      }
      pa += lda;
      pb += rsb;
    }
  } else {
    const char* col[kN];
#pragma GCC unroll 8
    for (int j = 0; j < kN; ++j) col[j] = reinterpret_cast<const char*>(cl.b + (j0 + j) * cl.csb);
    const int64_t step = cl.rsb * static_cast<int64_t>(sizeof(double));
    int64_t off = 0;
#pragma GCC unroll 2
    for (int64_t p = 0; p < cl.k; ++p) {
      __m512d av[kV];
#pragma GCC unroll 4
      for (int v = 0; v < kV; ++v) {
        av[v] = (kMask && v == kV - 1) ? _mm512_maskz_loadu_pd(lm, pa + 8 * v)
                                       : _mm512_loadu_pd(pa + 8 * v);
      }
#pragma GCC unroll 8
      for (int j = 0; j < kN; ++j) {
        const __m512d bj = _mm512_set1_pd(*reinterpret_cast<const double*>(col[j] + off));
#pragma GCC unroll 4
        for (int v = 0; v < kV; ++v) acc[v][j] = _mm512_fmadd_pd(av[v], bj, acc[v][j]);
      }
      pa += lda;
      off += step;
    }
  }
  // Locals: C may alias nothing of `cl` as far as the compiler knows, and
  // would otherwise have it reread after every store.
  const int64_t ldc = cl.ldc;
  const __m512d va = _mm512_set1_pd(cl.alpha), vb = _mm512_set1_pd(cl.beta);
  const bool bz = cl.beta_zero;
  double* pc = cl.c + i0 + j0 * ldc;
  auto store_all = [&](auto alpha_one) {
#pragma GCC unroll 8
    for (int j = 0; j < kN; ++j) {
#pragma GCC unroll 4
      for (int v = 0; v < kV; ++v) {
        store_vec<alpha_one()>(pc + j * ldc + 8 * v, acc[v][j], v == kV - 1 ? lm : __mmask8(0xFF),
                               va, vb, bz);
      }
    }
  };
  if (cl.alpha_one) {
    store_all(std::true_type{});
  } else {
    store_all(std::false_type{});
  }
}

// Columns [j0, n) of one row block: tiles of kN columns, then the rest in
// tiles of 4, 2 and 1 so that no tile computes a column it does not store.
template <int kV, int kN, bool kMask, bool kRowB>
void row_block(const Call& cl, int64_t i0, int64_t n, __mmask8 last) {
  int64_t j = 0;
  for (; j + kN <= n; j += kN) tile<kV, kN, kMask, kRowB>(cl, i0, j, last);
  if constexpr (kN > 4) {
    if (j + 4 <= n) {
      tile<kV, 4, kMask, kRowB>(cl, i0, j, last);
      j += 4;
    }
  }
  if constexpr (kN > 2) {
    if (j + 2 <= n) {
      tile<kV, 2, kMask, kRowB>(cl, i0, j, last);
      j += 2;
    }
  }
  if (j < n) tile<kV, 1, kMask, kRowB>(cl, i0, j, last);
}

// kV vectors of rows: four of them share a tile with four columns (16
// accumulators, plus four of A), fewer with eight (at most 24 accumulators),
// the shapes that measured fastest at k = 16..64.
template <int kV, bool kRowB>
void rows_of(const Call& cl, int64_t i0, int64_t rows, int64_t n) {
  constexpr int kN = kV == 4 ? 4 : 8;
  if (rows == 8 * kV) {
    row_block<kV, kN, false, kRowB>(cl, i0, n, 0xFF);
  } else {
    row_block<kV, kN, true, kRowB>(cl, i0, n, dgemm_row_mask(rows - 8 * (kV - 1)));
  }
}

template <bool kRowB>
void run(const Call& cl, int64_t m, int64_t n) {
  // Blocks of 32 rows, then the remainder in one block of as many vectors as
  // it needs. (A column block is reread per row block; it stays in L1.)
  int64_t i0 = 0;
  for (; i0 + 32 <= m; i0 += 32) rows_of<4, kRowB>(cl, i0, 32, n);
  const int64_t rest = m - i0;
  switch ((rest + 7) / 8) {
    case 1:
      rows_of<1, kRowB>(cl, i0, rest, n);
      break;
    case 2:
      rows_of<2, kRowB>(cl, i0, rest, n);
      break;
    case 3:
      rows_of<3, kRowB>(cl, i0, rest, n);
      break;
    case 4:
      rows_of<4, kRowB>(cl, i0, rest, n);
      break;
    default:  // nothing left
      break;
  }
}

}  // namespace

void dgemm_small(int64_t m, int64_t n, int64_t k, double alpha, const double* a, int64_t lda,
                 const double* b, int64_t rsb, int64_t csb, double beta, double* c, int64_t ldc) {
  const Call cl{k, a, lda, b, rsb, csb, alpha, beta, alpha == 1.0, beta == 0.0, c, ldc};
  if (csb == 1) {
    run<true>(cl, m, n);
  } else {
    run<false>(cl, m, n);
  }
}

}  // namespace zml::blas::avx512
