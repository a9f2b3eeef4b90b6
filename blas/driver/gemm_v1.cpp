// SPDX-License-Identifier: BSD-3-Clause
// The first-generation threaded gemm: the routing into one thread or a team,
// the choice among the general split and the one-dimensional regions, and
// the regions themselves (row and column splits, and for real data the
// splits that share one contiguous copy of op(B) or op(A)).
#include <cstring>
#include <type_traits>

#include "blas/driver/dgemm_serial.h"
#include "blas/driver/gemm_driver.h"
#include "blas/driver/zgemm_serial.h"
#include "service/service.h"
#include "service/threading/team.h"

namespace zml::blas {

GemmV1Route gemm_v1_first_routing(int32_t m, int32_t n, int32_t k) {
  if (k != 0) {
    if (m == 1) return GemmV1Route::kRowGemv;
    if (n == 1) return GemmV1Route::kColGemv;
  }
  // A C of at most 16 rows takes a team for more than 16 columns, or for a k
  // above 16 with more than 4 columns; one of 17 to 32 rows for more than 4
  // columns.
  bool short_c = false;
  if (k > 4) {
    if (m > 32) return GemmV1Route::kGeneral;
    short_c = m <= 16;
  } else {
    if (n < 16) return GemmV1Route::kSerial;
    if (m > 16) return GemmV1Route::kGeneral;
    short_c = true;
  }
  if (short_c) {
    if (n > 16) return GemmV1Route::kGeneral;
    if (k <= 16) return GemmV1Route::kSerial;
  }
  return n <= 4 ? GemmV1Route::kSerial : GemmV1Route::kGeneral;
}

// The tree behind "threads considered" (T > 1):
//  1. Team size by work: every member gets at least kGemmV1MinWork multiply-adds
//     (a complex one counts 4), so that a fork costs a few percent at most.
//     A team of one is the single-thread multiply.
//  2. Both m and n at least 100: the general grid split, which duplicates the
//     least packing. On code paths 4 to 7 the SSE kernels' slower arithmetic
//     hides duplicated packing, so C is split one-dimensionally along its
//     longer side (rows when m >= n), each member streaming one contiguous
//     slab of C.
//  3. n below 100 (tall C): split the rows. Every member then reads all of
//     op(B); when op(B) is a transposed real operand (strided along k) and
//     k is at least 100, one shared contiguous copy is made first (1D_bcopy).
//  4. m below 100 (wide C): split the columns; likewise a transposed real
//     op(A) with k at least 100 is copied once (1D_acopy).
//  A copy is made only when it fits in half the last-level cache, so that it
//  is still cached when the members read it, and on code path 4 only on
//  processors whose last-level cache reaches 3 MiB: the smaller caches of
//  that generation are taken by the members' packed panels.
GemmV1Choice gemm_v1_choice(bool complex, int32_t code_path, int32_t T, int32_t m, int32_t n,
                            int32_t k, int32_t transa, int32_t transb, bool copies_allowed,
                            int64_t llc_bytes) {
  const GemmV1Route first = gemm_v1_first_routing(m, n, k);
  if (first != GemmV1Route::kGeneral) return {first, 1};
  if (T <= 1) return {GemmV1Route::kSerial, 1};
  const int64_t work = static_cast<int64_t>(m) * n * (k > 0 ? k : 1) * (complex ? 4 : 1);
  const int64_t by_work = work / kGemmV1MinWork;
  const int32_t t = by_work < T ? static_cast<int32_t>(by_work) : T;
  if (t <= 1) return {GemmV1Route::kSerial, 1};
  constexpr int32_t kLarge = 100;
  constexpr int64_t kCp4CacheFloor = 3145728;
  if (m >= kLarge && n >= kLarge) {
    if (code_path >= 4 && code_path <= 7) {
      return {m >= n ? GemmV1Route::kRow : GemmV1Route::kCol, t};
    }
    return {GemmV1Route::kGeneral, t};
  }
  const bool may_copy =
      copies_allowed && !complex && k >= kLarge && (code_path != 4 || llc_bytes >= kCp4CacheFloor);
  if (n < kLarge) {
    const int64_t bytes = static_cast<int64_t>(k) * n * 8;
    const bool copy = may_copy && transb != 0 && bytes <= llc_bytes / 2;
    return {copy ? GemmV1Route::kBcopy : GemmV1Route::kRow, t};
  }
  const int64_t bytes = static_cast<int64_t>(m) * k * 8;
  const bool copy = may_copy && transa != 0 && bytes <= llc_bytes / 2;
  return {copy ? GemmV1Route::kAcopy : GemmV1Route::kCol, t};
}

namespace {

// A region on a fixed grid shape: rows cut among the team (1D_row), columns
// (1D_col), or the grid of gemm_grid.
enum class Cut { kGeneral, kRows, kCols };

template <class T>
void grid_region(Cut cut, int32_t threads, const char* transa, const char* transb, int32_t m,
                 int32_t n, int32_t k, const T* alpha, const T* a, int32_t lda, const T* b,
                 int32_t ldb, const T* beta, T* c, int32_t ldc) {
  serv::run_team(threads, [&](int32_t team, int32_t id) {
    const GemmGrid g = cut == Cut::kGeneral ? gemm_grid(team, m, n)
                       : cut == Cut::kRows  ? GemmGrid{team, 1}
                                            : GemmGrid{1, team};
    gemm_grid_member(team, id, g, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  });
}

// dst (rows x cols, leading dimension rows) := columns [c0, c1) of op(X),
// where op(X) is rows x cols and X is stored with leading dimension ld.
// The transposed case walks 32 x 32 tiles so reads and writes both stay in
// a few cache lines per row.
void copy_op_columns(const double* x, int32_t ld, bool trans, int32_t rows, int64_t c0, int64_t c1,
                     double* dst) {
  if (!trans) {
    for (int64_t j = c0; j < c1; ++j) {
      std::memcpy(dst + j * rows, x + j * ld, sizeof(double) * static_cast<size_t>(rows));
    }
    return;
  }
  constexpr int64_t kTile = 32;
  for (int64_t j0 = c0; j0 < c1; j0 += kTile) {
    const int64_t j1 = j0 + kTile < c1 ? j0 + kTile : c1;
    for (int64_t i0 = 0; i0 < rows; i0 += kTile) {
      const int64_t i1 = i0 + kTile < rows ? i0 + kTile : rows;
      for (int64_t i = i0; i < i1; ++i) {
        for (int64_t j = j0; j < j1; ++j) dst[i + j * rows] = x[j + i * ld];
      }
    }
  }
}

// The body of both shared-copy regions: every member copies its share of the
// columns of one operand (rows x cols once transposed as asked) into a shared
// contiguous copy; after the barrier all of the copy is read, and each member
// multiplies its own part of C with the copy as an untransposed operand.
// copy_b: op(B) (k x n) is copied and C's rows are split; otherwise op(A)
// (m x k) is copied and C's columns are split.
bool shared_copy_region(bool copy_b, int32_t threads, const char* transa, const char* transb,
                        int32_t m, int32_t n, int32_t k, const double* alpha, const double* a,
                        int32_t lda, const double* b, int32_t ldb, const double* beta, double* c,
                        int32_t ldc) {
  if (k <= 0) return false;
  const int32_t rows = copy_b ? k : m, cols = copy_b ? n : k;
  auto* copy = static_cast<double*>(serv::aligned_alloc(
      sizeof(double) * static_cast<size_t>(rows) * static_cast<size_t>(cols), 128));
  if (copy == nullptr) return false;
  const double* src = copy_b ? b : a;
  const int32_t ld = copy_b ? ldb : lda;
  const bool trans = trans_code(copy_b ? transb : transa) != 0;
  const GemmUnits u = dgemm_split_units();
  serv::run_team(threads, [&](int32_t team, int32_t id) {
    const serv::Share part = serv::share(cols, team, id);
    copy_op_columns(src, ld, trans, rows, part.begin, part.end, copy);
#pragma omp barrier
    if (copy_b) {
      gemm_piece(transa, "N", gemm_cut(m, team, id, u.rows), gemm_cut(m, team, id + 1, u.rows), 0,
                 n, k, alpha, a, lda, copy, k, beta, c, ldc);
    } else {
      gemm_piece("N", transb, 0, m, gemm_cut(n, team, id, u.cols),
                 gemm_cut(n, team, id + 1, u.cols), k, alpha, copy, m, b, ldb, beta, c, ldc);
    }
  });
  serv::aligned_free(copy);
  return true;
}

int64_t last_level_cache() {
  const serv::CacheSizes& cs = serv::cache_sizes();
  return cs.l3 > 0 ? cs.l3 : cs.l2;
}

// Both precisions' driver. Complex data have no shared-copy regions: their
// routes fall to the plain row and column splits.
template <class T>
void gemm_omp_driver_v1(const char* transa, const char* transb, const int32_t* m_,
                        const int32_t* n_, const int32_t* k_, const T* alpha, const T* a,
                        const int32_t* lda_, const T* b, const int32_t* ldb_, const T* beta, T* c,
                        const int32_t* ldc_) {
  constexpr bool kComplex = std::is_same_v<T, zcomplex>;
  const int32_t m = *m_, n = *n_, k = *k_;
  if (m <= 0 || n <= 0) return;
  const int32_t ta = trans_code(transa), tb = trans_code(transb);
  const int32_t lda = *lda_, ldb = *ldb_, ldc = *ldc_;
  const GemmV1Route first = gemm_v1_first_routing(m, n, k);
  GemmV1Choice ch{first, 1};
  if (first == GemmV1Route::kGeneral) {
    // A copy is pointless when alpha is 0: the operands are not read at all.
    bool copies = false;
    int64_t llc = 0;
    if constexpr (!kComplex) {
      copies = *alpha != 0.0;
      llc = last_level_cache();
    }
    ch = gemm_v1_choice(kComplex, zml_serv_get_code_path(), serv::team_size(serv::kDomainBlas), m,
                        n, k, ta, tb, copies, llc);
  }
  switch (ch.route) {
    case GemmV1Route::kRowGemv:
      gemm_row_gemv(ta, tb, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
      return;
    case GemmV1Route::kColGemv:
      gemm_col_gemv(ta, tb, m, k, alpha, a, lda, b, ldb, beta, c);
      return;
    case GemmV1Route::kSerial:
      gemm_serial(transa, transb, m_, n_, k_, alpha, a, lda_, b, ldb_, beta, c, ldc_);
      return;
    case GemmV1Route::kGeneral:
      grid_region(Cut::kGeneral, ch.threads, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta,
                  c, ldc);
      return;
    case GemmV1Route::kBcopy:
      if constexpr (!kComplex) {
        if (shared_copy_region(true, ch.threads, transa, transb, m, n, k, alpha, a, lda, b, ldb,
                               beta, c, ldc)) {
          return;
        }
      }
      [[fallthrough]];
    case GemmV1Route::kRow:
      grid_region(Cut::kRows, ch.threads, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c,
                  ldc);
      return;
    case GemmV1Route::kAcopy:
      if constexpr (!kComplex) {
        if (shared_copy_region(false, ch.threads, transa, transb, m, n, k, alpha, a, lda, b, ldb,
                               beta, c, ldc)) {
          return;
        }
      }
      [[fallthrough]];
    case GemmV1Route::kCol:
      grid_region(Cut::kCols, ch.threads, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c,
                  ldc);
      return;
  }
}

}  // namespace

void zml_blas_dgemm_1D_row(int32_t threads, const char* transa, const char* transb, int32_t m,
                           int32_t n, int32_t k, const double* alpha, const double* a, int32_t lda,
                           const double* b, int32_t ldb, const double* beta, double* c,
                           int32_t ldc) {
  grid_region(Cut::kRows, threads, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

void zml_blas_dgemm_1D_col(int32_t threads, const char* transa, const char* transb, int32_t m,
                           int32_t n, int32_t k, const double* alpha, const double* a, int32_t lda,
                           const double* b, int32_t ldb, const double* beta, double* c,
                           int32_t ldc) {
  grid_region(Cut::kCols, threads, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

void zml_blas_zgemm_1D_row(int32_t threads, const char* transa, const char* transb, int32_t m,
                           int32_t n, int32_t k, const zcomplex* alpha, const zcomplex* a,
                           int32_t lda, const zcomplex* b, int32_t ldb, const zcomplex* beta,
                           zcomplex* c, int32_t ldc) {
  grid_region(Cut::kRows, threads, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

void zml_blas_zgemm_1D_col(int32_t threads, const char* transa, const char* transb, int32_t m,
                           int32_t n, int32_t k, const zcomplex* alpha, const zcomplex* a,
                           int32_t lda, const zcomplex* b, int32_t ldb, const zcomplex* beta,
                           zcomplex* c, int32_t ldc) {
  grid_region(Cut::kCols, threads, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

// A shared copy of op(B); C split by rows.
bool zml_blas_dgemm_1D_bcopy(int32_t threads, const char* transa, const char* transb, int32_t m,
                             int32_t n, int32_t k, const double* alpha, const double* a,
                             int32_t lda, const double* b, int32_t ldb, const double* beta,
                             double* c, int32_t ldc) {
  return shared_copy_region(true, threads, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c,
                            ldc);
}

// A shared copy of op(A); C split by columns.
bool zml_blas_dgemm_1D_acopy(int32_t threads, const char* transa, const char* transb, int32_t m,
                             int32_t n, int32_t k, const double* alpha, const double* a,
                             int32_t lda, const double* b, int32_t ldb, const double* beta,
                             double* c, int32_t ldc) {
  return shared_copy_region(false, threads, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c,
                            ldc);
}

void zml_blas_dgemm_omp_driver_v1(const char* transa, const char* transb, const int32_t* m,
                                  const int32_t* n, const int32_t* k, const double* alpha,
                                  const double* a, const int32_t* lda, const double* b,
                                  const int32_t* ldb, const double* beta, double* c,
                                  const int32_t* ldc) {
  gemm_omp_driver_v1(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

void zml_blas_zgemm_omp_driver_v1(const char* transa, const char* transb, const int32_t* m,
                                  const int32_t* n, const int32_t* k, const zcomplex* alpha,
                                  const zcomplex* a, const int32_t* lda, const zcomplex* b,
                                  const int32_t* ldb, const zcomplex* beta, zcomplex* c,
                                  const int32_t* ldc) {
  gemm_omp_driver_v1(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

// The active kernels' register tiles: pieces that start on a tile boundary
// keep every micro-tile full.
GemmUnits dgemm_split_units() {
  const dgemm_variant& row = dgemm_active_variant();
  return {row.mr, row.nr};
}

GemmUnits zgemm_split_units() {
  const zgemm_variant& row = zgemm_active_variant();
  return {row.mr, row.nr};
}

}  // namespace zml::blas
