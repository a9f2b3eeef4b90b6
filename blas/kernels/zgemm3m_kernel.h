// SPDX-License-Identifier: BSD-3-Clause
// The two loops of the 3M multiply that are not real micro-kernels: packing a
// complex block into real panels of its real parts, imaginary parts and their
// sums, and folding the three real products into complex C. Written once
// here, instantiated per kernel folder with that folder's tag type (distinct
// symbols, each compiled with its folder's flags), and picked per code path
// through a table like every kernel.
#pragma once

#include <cstdint>

#include "service/dispatch/code_path_table.h"

namespace zml::blas {

// pack(x, ld, rows, k, k_contiguous, conj, w, re, im, sum): lines [0, rows)
// of length k of a complex operand (element (r, p) at x[p + r*ld] when
// k_contiguous, else x[r + p*ld], in complex elements) into width-w
// micro-panels in the real kernels' layout (gemm_kernel.h), zero-padded, of
// the real parts, the imaginary parts (negated when conj) and their sums.
using zgemm3m_pack_fn = void (*)(const double* x, int64_t ld, int64_t rows, int64_t k,
                                 bool k_contiguous, bool conj, int64_t w, double* re, double* im,
                                 double* sum);

// How the fold treats C: overwrite (beta 0, C never read), add (beta 1), or
// scale by beta first.
enum class Zgemm3mBeta : int32_t { kZero, kOne, kGeneral };

// fold(m, n, alpha, beta, mode, p1, p2, p3, ldt, c, ldc): with P1, P2, P3 the
// real m x n products of the real parts, the imaginary parts and the sums
// (column-major, leading dimension ldt),
// C := alpha*((P1 - P2) + i*(P3 - P1 - P2)) + beta*C (as mode says).
using zgemm3m_fold_fn = void (*)(int64_t m, int64_t n, const double* alpha, const double* beta,
                                 Zgemm3mBeta mode, const double* p1, const double* p2,
                                 const double* p3, int64_t ldt, double* c, int64_t ldc);

struct zgemm3m_variant {
  dispatch::Isa isa;
  zgemm3m_pack_fn pack;
  zgemm3m_fold_fn fold;
  const char* name;
};

extern const dispatch::Table<zgemm3m_variant> kZgemm3mTable;

#define ZML_ZGEMM3M_DECLARE(folder)                                                          \
  namespace folder {                                                                         \
  void zgemm3m_pack(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous, \
                    bool conj, int64_t w, double* re, double* im, double* sum);              \
  void zgemm3m_fold(int64_t m, int64_t n, const double* alpha, const double* beta,           \
                    Zgemm3mBeta mode, const double* p1, const double* p2, const double* p3,  \
                    int64_t ldt, double* c, int64_t ldc);                                    \
  }
ZML_ZGEMM3M_DECLARE(ref)
ZML_ZGEMM3M_DECLARE(avx2)
ZML_ZGEMM3M_DECLARE(avx512)
#undef ZML_ZGEMM3M_DECLARE

template <class IsaTag>
void zgemm3m_pack_generic(const double* __restrict x, int64_t ld, int64_t rows, int64_t k,
                          bool k_contiguous, bool conj, int64_t w, double* __restrict re,
                          double* __restrict im, double* __restrict sum) {
  const double s = conj ? -1.0 : 1.0;
  // Slice p of the panel starting at line r0 holds line r0 + r at
  // r0*k + p*w + r. Reads go along memory, so that the block streams in
  // whatever its leading dimension: down each line when k runs along it,
  // else down each column.
  if (k_contiguous) {
    for (int64_t r0 = 0; r0 < rows; r0 += w) {
      const int64_t lines = rows - r0 < w ? rows - r0 : w;
      for (int64_t r = 0; r < lines; ++r) {
        const double* line = x + 2 * (r0 + r) * ld;
        // Lines lie a leading dimension apart, too far for the hardware to
        // guess: fetch the next one while this one is copied.
        if (r0 + r + 1 < rows) {
          for (int64_t d = 0; d < 2 * k; d += 8) __builtin_prefetch(line + 2 * ld + d);
        }
        double* pr = re + r0 * k + r;
        double* pi = im + r0 * k + r;
        double* ps = sum + r0 * k + r;
        for (int64_t p = 0; p < k; ++p) {
          const double vr = line[2 * p], vi = s * line[2 * p + 1];
          pr[p * w] = vr;
          pi[p * w] = vi;
          ps[p * w] = vr + vi;
        }
      }
    }
  } else {
    for (int64_t p = 0; p < k; ++p) {
      const double* col = x + 2 * p * ld;
      if (p + 1 < k) {
        for (int64_t d = 0; d < 2 * rows; d += 8) __builtin_prefetch(col + 2 * ld + d);
      }
      for (int64_t r0 = 0; r0 < rows; r0 += w) {
        const int64_t lines = rows - r0 < w ? rows - r0 : w;
        const double* e = col + 2 * r0;
        double* pr = re + r0 * k + p * w;
        double* pi = im + r0 * k + p * w;
        double* ps = sum + r0 * k + p * w;
        for (int64_t r = 0; r < lines; ++r) {
          const double vr = e[2 * r], vi = s * e[2 * r + 1];
          pr[r] = vr;
          pi[r] = vi;
          ps[r] = vr + vi;
        }
      }
    }
  }
  const int64_t full = rows / w * w;
  if (full == rows) return;
  for (int64_t p = 0; p < k; ++p) {
    for (int64_t r = rows - full; r < w; ++r) {
      const int64_t at = full * k + p * w + r;
      re[at] = im[at] = sum[at] = 0.0;
    }
  }
}

template <class IsaTag, Zgemm3mBeta kMode>
void zgemm3m_fold_mode(int64_t m, int64_t n, const double* alpha, const double* beta,
                       const double* __restrict p1, const double* __restrict p2,
                       const double* __restrict p3, int64_t ldt, double* __restrict c,
                       int64_t ldc) {
  const double ar = alpha[0], ai = alpha[1], br = beta[0], bi = beta[1];
  for (int64_t j = 0; j < n; ++j) {
    const double* x = p1 + j * ldt;
    const double* y = p2 + j * ldt;
    const double* z = p3 + j * ldt;
    double* cj = c + 2 * j * ldc;
    for (int64_t i = 0; i < m; ++i) {
      const double re = x[i] - y[i], im = z[i] - x[i] - y[i];
      const double pr = ar * re - ai * im, pi = ar * im + ai * re;
      if constexpr (kMode == Zgemm3mBeta::kZero) {
        cj[2 * i] = pr;
        cj[2 * i + 1] = pi;
      } else if constexpr (kMode == Zgemm3mBeta::kOne) {
        cj[2 * i] += pr;
        cj[2 * i + 1] += pi;
      } else {
        const double cr = cj[2 * i], ci = cj[2 * i + 1];
        cj[2 * i] = br * cr - bi * ci + pr;
        cj[2 * i + 1] = br * ci + bi * cr + pi;
      }
    }
  }
}

template <class IsaTag>
void zgemm3m_fold_generic(int64_t m, int64_t n, const double* alpha, const double* beta,
                          Zgemm3mBeta mode, const double* p1, const double* p2, const double* p3,
                          int64_t ldt, double* c, int64_t ldc) {
  switch (mode) {
    case Zgemm3mBeta::kZero:
      zgemm3m_fold_mode<IsaTag, Zgemm3mBeta::kZero>(m, n, alpha, beta, p1, p2, p3, ldt, c, ldc);
      break;
    case Zgemm3mBeta::kOne:
      zgemm3m_fold_mode<IsaTag, Zgemm3mBeta::kOne>(m, n, alpha, beta, p1, p2, p3, ldt, c, ldc);
      break;
    case Zgemm3mBeta::kGeneral:
      zgemm3m_fold_mode<IsaTag, Zgemm3mBeta::kGeneral>(m, n, alpha, beta, p1, p2, p3, ldt, c, ldc);
      break;
  }
}

// A folder's two entries, defined with its tag.
#define ZML_ZGEMM3M_DEFINE(Tag)                                                              \
  void zgemm3m_pack(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous, \
                    bool conj, int64_t w, double* re, double* im, double* sum) {             \
    zgemm3m_pack_generic<Tag>(x, ld, rows, k, k_contiguous, conj, w, re, im, sum);           \
  }                                                                                          \
  void zgemm3m_fold(int64_t m, int64_t n, const double* alpha, const double* beta,           \
                    Zgemm3mBeta mode, const double* p1, const double* p2, const double* p3,  \
                    int64_t ldt, double* c, int64_t ldc) {                                   \
    zgemm3m_fold_generic<Tag>(m, n, alpha, beta, mode, p1, p2, p3, ldt, c, ldc);             \
  }

}  // namespace zml::blas
