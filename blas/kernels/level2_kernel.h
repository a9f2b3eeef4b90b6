// SPDX-License-Identifier: BSD-3-Clause
// The matrix-vector kernel interface (dgemv, zgemv, dtrsv, ztrsv): the kernel
// types, the row each code path's variant fills in, and the one contract.
#pragma once

#include <cstdint>

#include "service/dispatch/code_path_table.h"

namespace zml::blas {

// Contract shared by every matrix-vector variant.
//
// A is column-major: element (i, j) at a[i + j*lda] (complex: at
// a[2*(i + j*lda)], real part first). Vectors are contiguous (increment 1):
// the driver packs strided vectors and applies beta before calling, so every
// gemv kernel only accumulates:
//   gemv_n(m, n, alpha, a, lda, x, y):  y[0..m) += alpha * A * x[0..n)
//   gemv_t(m, n, alpha, a, lda, x, y):  y[0..n) += alpha * A^T * x[0..m)
//   zgemv_c(...):                       y[0..n) += alpha * A^H * x[0..m)
// m or n of 0 does nothing. y must not overlap A or x. Complex alpha is
// (alpha[0], alpha[1]). No alignment is assumed: loads are unaligned-tolerant,
// since A columns start wherever lda puts them.
//
// trsv(upper, trans, unit, n, a, lda, x, nb) solves op(A) x = b in place for
// a triangular n x n A (upper != 0: upper triangle referenced; trans 0 "N",
// 1 "T", 2 "C"; unit != 0: the diagonal is taken as 1 and not read), with x
// contiguous. It works in diagonal blocks of nb: each block is solved
// directly, the rest of x is updated with the same variant's gemv kernels.
//
// Every kernel takes its row's gemv_tuning (trsv: for those updates).

// The matrix-vector algorithms' block sizes, thresholds and fetch distance, a
// field of each row. What follows from the register count stays in the code.
struct gemv_tuning {
  // Rows of y (doubles) per pass of the streaming "N" form: 2048 (16 KB) of y
  // stay in L1/L2 while eight columns of A stream past them.
  int32_t row_block;
  // Columns of the register "N" form whose multipliers alpha*x_j are staged
  // at a time (at most kGemvColPanelMax, on the stack).
  int32_t col_panel;
  // Doubles ahead at which the complex column loops fetch each column: they
  // stream eight or more columns at once from L3, more than the hardware
  // prefetchers follow well (zgemv 1024: 26 -> 28 GB/s at eight lines).
  int32_t prefetch_ahead;
  // Elements of A up to which A is taken to sit in L2 (register forms of "N"
  // and "T" where the file has 32 registers).
  int64_t l2_elems;
  // Elements of A from which the out-of-cache forms are taken: y held in
  // registers over panels for "N", eight dot products at once for "T".
  int64_t large_elems;
};
inline constexpr int32_t kGemvColPanelMax = 256;

using dgemv_fn = void (*)(int32_t m, int32_t n, double alpha, const double* a, int64_t lda,
                          const double* x, double* y, const gemv_tuning& tune);
using zgemv_fn = void (*)(int32_t m, int32_t n, const double* alpha, const double* a, int64_t lda,
                          const double* x, double* y, const gemv_tuning& tune);
using dtrsv_fn = void (*)(int32_t upper, int32_t trans, int32_t unit, int32_t n, const double* a,
                          int64_t lda, double* x, int32_t nb, const gemv_tuning& tune);
using ztrsv_fn = void (*)(int32_t upper, int32_t trans, int32_t unit, int32_t n, const double* a,
                          int64_t lda, double* x, int32_t nb, const gemv_tuning& tune);

struct dgemv_variant {
  dispatch::Isa isa;
  dgemv_fn gemv_n;
  dgemv_fn gemv_t;
  gemv_tuning tune;
  const char* name;
};
struct zgemv_variant {
  dispatch::Isa isa;
  zgemv_fn gemv_n;
  zgemv_fn gemv_t;
  zgemv_fn gemv_c;
  gemv_tuning tune;
  const char* name;
};
// nb: the diagonal block of the blocked solve, wide enough that the gemv
// updates dominate and small enough that the direct solve of a block stays in L1.
struct dtrsv_variant {
  dispatch::Isa isa;
  dtrsv_fn kernel;
  int32_t nb;
  gemv_tuning tune;
  const char* name;
};
struct ztrsv_variant {
  dispatch::Isa isa;
  ztrsv_fn kernel;
  int32_t nb;
  gemv_tuning tune;
  const char* name;
};

extern const dispatch::Table<dgemv_variant> kDgemvTable;
extern const dispatch::Table<zgemv_variant> kZgemvTable;
extern const dispatch::Table<dtrsv_variant> kDtrsvTable;
extern const dispatch::Table<ztrsv_variant> kZtrsvTable;

// The kernels of each folder, defined there. Declared for every level so a
// new folder needs no edit here; a level without a folder (sse42) declares
// kernels nothing defines or calls.
#define ZML_LEVEL2_DECLARE(folder, ...)                                                        \
  namespace folder {                                                                           \
  void dgemv_kernel_n(int32_t m, int32_t n, double alpha, const double* a, int64_t lda,        \
                      const double* x, double* y, const gemv_tuning& tune);                    \
  void dgemv_kernel_t(int32_t m, int32_t n, double alpha, const double* a, int64_t lda,        \
                      const double* x, double* y, const gemv_tuning& tune);                    \
  void zgemv_kernel_n(int32_t m, int32_t n, const double* alpha, const double* a, int64_t lda, \
                      const double* x, double* y, const gemv_tuning& tune);                    \
  void zgemv_kernel_t(int32_t m, int32_t n, const double* alpha, const double* a, int64_t lda, \
                      const double* x, double* y, const gemv_tuning& tune);                    \
  void zgemv_kernel_c(int32_t m, int32_t n, const double* alpha, const double* a, int64_t lda, \
                      const double* x, double* y, const gemv_tuning& tune);                    \
  void dtrsv_kernel(int32_t upper, int32_t trans, int32_t unit, int32_t n, const double* a,    \
                    int64_t lda, double* x, int32_t nb, const gemv_tuning& tune);              \
  void ztrsv_kernel(int32_t upper, int32_t trans, int32_t unit, int32_t n, const double* a,    \
                    int64_t lda, double* x, int32_t nb, const gemv_tuning& tune);              \
  }
ZML_ISA_LEVELS(ZML_LEVEL2_DECLARE)
#undef ZML_LEVEL2_DECLARE

}  // namespace zml::blas
