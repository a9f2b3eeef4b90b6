// SPDX-License-Identifier: BSD-3-Clause
// Internal pieces of the gemm drivers that tests and the other gemm layers
// reach: the pure decisions (generation, thread choices, splits of C), the
// degenerate-shape paths, the rank-1 update and the parallel regions.
#pragma once

#include <cstdint>

#include "blas/blas.h"
#include "blas/driver/dgemm_serial.h"
#include "service/service.h"

namespace zml::blas {

// ---- decisions ----------------------------------------------------------------

// Which threaded driver serves `code_path`: 1 (first generation), 2 (second)
// or 0 (not served; the caller prints message 1213 and stops).
int32_t gemm_generation_for(int32_t code_path);
// The answer for this process's code path, resolved once and remembered. On
// the first call an unserved code path prints message 1213 once and calls the
// stop routine; code paths 1, 2 and 4 run the reproducibility-branch query.
int32_t gemm_driver_generation();

// Team size of the second-generation driver for an m x n x k product given T
// threads of the BLAS domain; 1 means the single-thread multiply.
int32_t gemm_v2_thread_choice(int32_t code_path, int32_t T, int32_t m, int32_t n, int32_t k);

// A grid of rows x cols pieces of C for `threads` members (rows * cols ==
// threads). Each member packs the part of op(B) under its column of the grid
// and the part of op(A) beside its row, so the grid minimising the duplicated
// packing, rows*n + cols*m, is chosen; ties go to more columns, because
// column pieces of a column-major C share no cache lines.
struct GemmGrid {
  int32_t rows;
  int32_t cols;
};
GemmGrid gemm_grid(int32_t threads, int32_t m, int32_t n);

// Start of piece i (0..parts) when `total` is cut into `parts` nearly equal
// pieces with boundaries on multiples of `unit` (so each piece keeps full
// micro-tiles) where the total allows it. gemm_cut(.., 0, ..) is 0 and
// gemm_cut(.., parts, ..) is total; boundaries never decrease.
int32_t gemm_cut(int32_t total, int32_t parts, int32_t i, int32_t unit);

// The first-generation routing.
enum class GemmV1Route : int32_t {
  kRowGemv,  // m == 1: gemv on the row of C
  kColGemv,  // n == 1: gemv on the column of C
  kSerial,   // one thread
  kGeneral,  // the general two-dimensional split
  kRow,      // zml_blas_?gemm_1D_row
  kCol,      // zml_blas_?gemm_1D_col
  kBcopy,    // zml_blas_dgemm_1D_bcopy
  kAcopy,    // zml_blas_dgemm_1D_acopy
};
struct GemmV1Choice {
  GemmV1Route route;
  int32_t threads;
};
// The class of the first routing alone: gemv paths, one thread, or threads
// considered (returned as kGeneral).
GemmV1Route gemm_v1_first_routing(int32_t m, int32_t n, int32_t k);
// Multiply-adds (a complex one counts 4) each member of a first-generation
// team gets at least, so that a fork costs a few percent at most.
inline constexpr int64_t kGemmV1MinWork = int64_t{1} << 18;
// The whole first-generation decision. trans codes are 0 'N', 1 'T', 2 'C';
// `copies_allowed` is false where the packed-copy regions must not be used
// (complex data, alpha == 0); `llc_bytes` is the last-level cache size of the
// service layer. The tree is documented at the definition.
GemmV1Choice gemm_v1_choice(bool complex, int32_t code_path, int32_t T, int32_t m, int32_t n,
                            int32_t k, int32_t transa, int32_t transb, bool copies_allowed,
                            int64_t llc_bytes);

// ---- degenerate shapes (k != 0) --------------------------------------------

// m == 1: the row of C through gemv; n == 1: the column of C through gemv.
// Complex conjugations of op(A) or op(B) are folded into the gemv call.
void gemm_row_gemv(int32_t transa, int32_t transb, int32_t n, int32_t k, const double* alpha,
                   const double* a, int32_t lda, const double* b, int32_t ldb, const double* beta,
                   double* c, int32_t ldc);
void gemm_row_gemv(int32_t transa, int32_t transb, int32_t n, int32_t k, const zcomplex* alpha,
                   const zcomplex* a, int32_t lda, const zcomplex* b, int32_t ldb,
                   const zcomplex* beta, zcomplex* c, int32_t ldc);
void gemm_col_gemv(int32_t transa, int32_t transb, int32_t m, int32_t k, const double* alpha,
                   const double* a, int32_t lda, const double* b, int32_t ldb, const double* beta,
                   double* c);
void gemm_col_gemv(int32_t transa, int32_t transb, int32_t m, int32_t k, const zcomplex* alpha,
                   const zcomplex* a, int32_t lda, const zcomplex* b, int32_t ldb,
                   const zcomplex* beta, zcomplex* c);

// k == 1: whether x (increment incx, m elements) is first copied to a
// contiguous temporary, and how many such copies this process has made
// (an observation point for tests; a relaxed counter costs nothing beside
// the copy itself).
inline bool gemm_rank1_copies_x(int32_t incx, int32_t m) { return incx != 1 && m > 64; }
int64_t gemm_rank1_copies_made();

// ---- rank-1 update (gemm_rank1.cpp): C := beta*C + alpha*x*y^T, beta == 0 overwrites C
// Increments are positive (they come from leading dimensions or are 1).
// The complex form conjugates x and/or y on the fly when asked.
void zml_blas_dgemmger(int32_t m, int32_t n, double alpha, const double* x, int32_t incx,
                       const double* y, int32_t incy, double beta, double* c, int32_t ldc);
void zml_blas_zgemmger(int32_t m, int32_t n, zcomplex alpha, const zcomplex* x, int32_t incx,
                       bool conj_x, const zcomplex* y, int32_t incy, bool conj_y, zcomplex beta,
                       zcomplex* c, int32_t ldc);
// Team size of the rank-1 update: columns are split once each member gets
// enough of C to stream.
int32_t rank1_thread_choice(int32_t T, int32_t m, int32_t n, bool complex);
// The region: `threads` members, each updating its own columns.
void zml_blas_dgemmger_omp(int32_t threads, int32_t m, int32_t n, double alpha, const double* x,
                           int32_t incx, const double* y, int32_t incy, double beta, double* c,
                           int32_t ldc);
void zml_blas_zgemmger_omp(int32_t threads, int32_t m, int32_t n, zcomplex alpha, const zcomplex* x,
                           int32_t incx, bool conj_x, const zcomplex* y, int32_t incy, bool conj_y,
                           zcomplex beta, zcomplex* c, int32_t ldc);

// ---- striped mode -------------------------------------------------------------
// The region of zml_blas_dgemm (zgemm) when a stripe count is set: every
// member of a team of the BLAS-domain size multiplies its piece of the grid.
void _zml_blas_dgemm(int32_t threads, int32_t transa, int32_t transb, int32_t m, int32_t n,
                     int32_t k, const double* alpha, const double* a, int32_t lda, const double* b,
                     int32_t ldb, const double* beta, double* c, int32_t ldc);
void _zml_blas_zgemm(int32_t threads, int32_t transa, int32_t transb, int32_t m, int32_t n,
                     int32_t k, const zcomplex* alpha, const zcomplex* a, int32_t lda,
                     const zcomplex* b, int32_t ldb, const zcomplex* beta, zcomplex* c,
                     int32_t ldc);

// ---- first generation -----------------------------------------------------------
void zml_blas_dgemm_omp_driver_v1(const char* transa, const char* transb, const int32_t* m,
                                  const int32_t* n, const int32_t* k, const double* alpha,
                                  const double* a, const int32_t* lda, const double* b,
                                  const int32_t* ldb, const double* beta, double* c,
                                  const int32_t* ldc);
void zml_blas_zgemm_omp_driver_v1(const char* transa, const char* transb, const int32_t* m,
                                  const int32_t* n, const int32_t* k, const zcomplex* alpha,
                                  const zcomplex* a, const int32_t* lda, const zcomplex* b,
                                  const int32_t* ldb, const zcomplex* beta, zcomplex* c,
                                  const int32_t* ldc);

// The regions: `threads` members, arguments already checked, m, n >= 1.
#define ZML_GEMM_REGION_ARGS(T)                                                              \
  int32_t threads, const char *transa, const char *transb, int32_t m, int32_t n, int32_t k,  \
      const T *alpha, const T *a, int32_t lda, const T *b, int32_t ldb, const T *beta, T *c, \
      int32_t ldc
void zml_blas_dgemm_1D_row(ZML_GEMM_REGION_ARGS(double));
void zml_blas_dgemm_1D_col(ZML_GEMM_REGION_ARGS(double));
// Both copy regions return false, having done nothing, when the shared copy
// cannot be allocated; the caller then runs the plain split.
bool zml_blas_dgemm_1D_bcopy(ZML_GEMM_REGION_ARGS(double));
bool zml_blas_dgemm_1D_acopy(ZML_GEMM_REGION_ARGS(double));
void zml_blas_zgemm_1D_row(ZML_GEMM_REGION_ARGS(zcomplex));
void zml_blas_zgemm_1D_col(ZML_GEMM_REGION_ARGS(zcomplex));
#undef ZML_GEMM_REGION_ARGS

// ---- second generation ---------------------------------------------------------

// Address of the block of a described matrix whose first element is element
// (i, j) of op(X) (for C, of C itself).
struct gemm_desc;
using gemm_locate_fn = const void* (*)(const gemm_desc& d, int32_t i, int32_t j);

// One operand of the second-generation driver. `op` is 1 for "N", 2 for "T",
// 4 for "C" and 0 for C itself; `locate` is gemm_locate_direct for "N" and C,
// gemm_locate_transposed otherwise. Rows and columns are those stored.
struct gemm_desc {
  const void* ptr;
  int32_t rows;
  int32_t cols;
  int32_t ld;
  int32_t elem_size;  // 8 real, 16 complex
  int32_t op;
  gemm_locate_fn locate;
};
const void* gemm_locate_direct(const gemm_desc& d, int32_t i, int32_t j);
const void* gemm_locate_transposed(const gemm_desc& d, int32_t i, int32_t j);

// The descriptor of X used with transposition code `trans` (-1 for C).
gemm_desc gemm_make_desc(const void* ptr, int32_t rows, int32_t cols, int32_t ld, int32_t elem_size,
                         int32_t trans);

// Scalars travel by value: real ones have im == 0.
struct gemm_scalar {
  double re;
  double im;
};

// Splits C over a grid of `threads` members, each multiplying its block with
// the single-thread multiply of the element size.
void gemm_omp_driver_v2(int32_t threads, gemm_desc a, gemm_desc b, gemm_desc c, int32_t transa,
                        int32_t transb, gemm_scalar alpha, gemm_scalar beta);

// The option letter of a transposition code.
inline const char* trans_letter(int32_t code) { return code == 0 ? "N" : code == 1 ? "T" : "C"; }

// Unit (rows, columns) on which the splits of C cut, from the micro-tile of
// the active kernels.
struct GemmUnits {
  int32_t rows;
  int32_t cols;
};
GemmUnits dgemm_split_units();
GemmUnits zgemm_split_units();
inline GemmUnits gemm_split_units(const double*) { return dgemm_split_units(); }
inline GemmUnits gemm_split_units(const zcomplex*) { return zgemm_split_units(); }

// The single-thread multiply of the element type.
inline void gemm_serial(const char* ta, const char* tb, const int32_t* m, const int32_t* n,
                        const int32_t* k, const double* alpha, const double* a, const int32_t* lda,
                        const double* b, const int32_t* ldb, const double* beta, double* c,
                        const int32_t* ldc) {
  dgemm_serial_run(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
inline void gemm_serial(const char* ta, const char* tb, const int32_t* m, const int32_t* n,
                        const int32_t* k, const zcomplex* alpha, const zcomplex* a,
                        const int32_t* lda, const zcomplex* b, const int32_t* ldb,
                        const zcomplex* beta, zcomplex* c, const int32_t* ldc) {
  zml_blas_zgemm_serial(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

// First element of the block of X whose corner is element (i, j) of op(X).
template <class T>
T* op_block(T* x, int32_t ld, int32_t trans, int64_t i, int64_t j) {
  return trans == 0 ? x + i + j * ld : x + j + i * ld;
}

// Rows [i0, i1) and columns [j0, j1) of C multiplied in the calling thread.
template <class T>
void gemm_piece(const char* transa, const char* transb, int32_t i0, int32_t i1, int32_t j0,
                int32_t j1, int32_t k, const T* alpha, const T* a, int32_t lda, const T* b,
                int32_t ldb, const T* beta, T* c, int32_t ldc) {
  const int32_t mm = i1 - i0, nn = j1 - j0;
  if (mm <= 0 || nn <= 0) return;
  gemm_serial(transa, transb, &mm, &nn, &k, alpha, op_block(a, lda, trans_code(transa), i0, 0),
              &lda, op_block(b, ldb, trans_code(transb), 0, j0), &ldb, beta,
              c + i0 + static_cast<int64_t>(j0) * ldc, &ldc);
}

// Member `id` of a team of `team` on a grid over m x n: its piece of C.
template <class T>
void gemm_grid_member(int32_t team, int32_t id, GemmGrid grid, const char* transa,
                      const char* transb, int32_t m, int32_t n, int32_t k, const T* alpha,
                      const T* a, int32_t lda, const T* b, int32_t ldb, const T* beta, T* c,
                      int32_t ldc) {
  if (id >= grid.rows * grid.cols || team <= 0) return;
  const GemmUnits u = gemm_split_units(alpha);
  const int32_t ir = id % grid.rows, jc = id / grid.rows;
  gemm_piece(transa, transb, gemm_cut(m, grid.rows, ir, u.rows),
             gemm_cut(m, grid.rows, ir + 1, u.rows), gemm_cut(n, grid.cols, jc, u.cols),
             gemm_cut(n, grid.cols, jc + 1, u.cols), k, alpha, a, lda, b, ldb, beta, c, ldc);
}

}  // namespace zml::blas
