// SPDX-License-Identifier: BSD-3-Clause
// zml_blas_dgemm and zml_blas_zgemm: the quick return, the degenerate shapes
// (one row or one column through gemv, inner dimension 1 through the rank-1
// update), the striped region, and the hand-over to a threaded driver.
#include "blas/driver/gemm_driver.h"

#include <atomic>
#include <type_traits>

#include "service/service.h"
#include "service/threading/team.h"

namespace zml::blas {

namespace {

std::atomic<int64_t> g_rank1_copies{0};

inline void gemv_call(int32_t trans, int32_t rows, int32_t cols, const double* alpha,
                      const double* a, int32_t lda, const double* x, int32_t incx,
                      const double* beta, double* y, int32_t incy) {
  zml_blas_dgemv(trans_letter(trans), &rows, &cols, alpha, a, &lda, x, &incx, beta, y, &incy);
}
inline void gemv_call(int32_t trans, int32_t rows, int32_t cols, const zcomplex* alpha,
                      const zcomplex* a, int32_t lda, const zcomplex* x, int32_t incx,
                      const zcomplex* beta, zcomplex* y, int32_t incy) {
  zml_blas_zgemv(trans_letter(trans), &rows, &cols, alpha, a, &lda, x, &incx, beta, y, &incy);
}

void conjugate_in_place(int32_t len, zcomplex* v, int32_t inc) {
  double* d = reinterpret_cast<double*>(v);
  for (int64_t i = 0; i < len; ++i) d[2 * i * inc + 1] = -d[2 * i * inc + 1];
}

// y := alpha*op(M)*conj(x) + beta*y. gemv has no conjugated-x option, so x is
// conjugated chunk by chunk into a small stack buffer and the product is
// accumulated chunk by chunk (beta only on the first); no allocation can fail.
void zgemv_conj_x(int32_t trans, int32_t rows, int32_t cols, const zcomplex* alpha,
                  const zcomplex* mat, int32_t ld, const zcomplex* x, int32_t incx,
                  const zcomplex* beta, zcomplex* y, int32_t incy) {
  constexpr int32_t kChunk = 512;
  zcomplex xc[kChunk];
  const zcomplex one(1.0, 0.0);
  const int32_t len = trans == 0 ? cols : rows;
  for (int32_t p0 = 0; p0 < len; p0 += kChunk) {
    const int32_t cnt = len - p0 < kChunk ? len - p0 : kChunk;
    for (int32_t i = 0; i < cnt; ++i) {
      xc[i] = std::conj(x[static_cast<int64_t>(p0 + i) * incx]);
    }
    const zcomplex* b = p0 == 0 ? beta : &one;
    if (trans == 0) {
      gemv_call(0, rows, cnt, alpha, mat + static_cast<int64_t>(p0) * ld, ld, xc, 1, b, y, incy);
    } else {
      gemv_call(trans, cnt, cols, alpha, mat + p0, ld, xc, 1, b, y, incy);
    }
  }
}

// The row of op(A) as a vector: 'N' walks a row of A (increment lda), 'T' and
// 'C' a column.
int32_t row_inc(int32_t transa, int32_t lda) { return transa == 0 ? lda : 1; }
// The column of op(B): 'N' is a column of B, 'T' and 'C' a row (increment ldb).
int32_t col_inc(int32_t transb, int32_t ldb) { return transb == 0 ? 1 : ldb; }

// k == 1: C := beta*C + alpha*x*y^T, x the column of op(A) and y the row of
// op(B). A strided x longer than 64 elements is made contiguous first.
template <class T>
void rank1(int32_t transa, int32_t transb, int32_t m, int32_t n, const T* alpha, const T* a,
           int32_t lda, const T* b, int32_t ldb, const T* beta, T* c, int32_t ldc) {
  int32_t incx = transa == 0 ? 1 : lda;
  const int32_t incy = transb == 0 ? ldb : 1;
  bool conj_x = transa == 2;
  const bool conj_y = transb == 2;
  const T* x = a;
  T* tmp = nullptr;
  if (gemm_rank1_copies_x(incx, m)) {
    // A refused allocation is not an error: the update reads x strided.
    tmp = static_cast<T*>(serv::aligned_alloc(sizeof(T) * static_cast<size_t>(m), 128));
    if (tmp != nullptr) {
      for (int64_t i = 0; i < m; ++i) {
        if constexpr (sizeof(T) == sizeof(zcomplex)) {
          tmp[i] = conj_x ? std::conj(a[i * incx]) : a[i * incx];
        } else {
          tmp[i] = a[i * incx];
        }
      }
      g_rank1_copies.fetch_add(1, std::memory_order_relaxed);
      x = tmp;
      incx = 1;
      conj_x = false;
    }
  }
  if constexpr (std::is_same_v<T, zcomplex>) {
    zml_blas_zgemmger(m, n, *alpha, x, incx, conj_x, b, incy, conj_y, *beta, c, ldc);
  } else {
    zml_blas_dgemmger(m, n, *alpha, x, incx, b, incy, *beta, c, ldc);
  }
  if (tmp != nullptr) serv::aligned_free(tmp);
}

// The striped region with the BLAS-domain team. Each member cuts C by
// integer division on the grid of gemm_grid (rows first within a column of
// the grid); a runtime that declines to fork gives a team of one, which
// multiplies all of C.
template <class T>
void striped(int32_t threads, int32_t transa, int32_t transb, int32_t m, int32_t n, int32_t k,
             const T* alpha, const T* a, int32_t lda, const T* b, int32_t ldb, const T* beta, T* c,
             int32_t ldc) {
  const char* ta = trans_letter(transa);
  const char* tb = trans_letter(transb);
  serv::run_team(threads, [&](int32_t team, int32_t id) {
    gemm_grid_member(team, id, gemm_grid(team, m, n), ta, tb, m, n, k, alpha, a, lda, b, ldb, beta,
                     c, ldc);
  });
}

inline gemm_scalar scalar_of(const double* v) { return {*v, 0.0}; }
inline gemm_scalar scalar_of(const zcomplex* v) { return {v->real(), v->imag()}; }

template <class T>
void gemm_driver(const char* transa, const char* transb, const int32_t* m_, const int32_t* n_,
                 const int32_t* k_, const T* alpha, const T* a, const int32_t* lda_, const T* b,
                 const int32_t* ldb_, const T* beta, T* c, const int32_t* ldc_) {
  const int32_t m = *m_, n = *n_, k = *k_;
  if (m <= 0 || n <= 0) return;
  const int32_t ta = trans_code(transa), tb = trans_code(transb);
  const int32_t lda = *lda_, ldb = *ldb_, ldc = *ldc_;
  if (k != 0) {
    if (m == 1) {
      gemm_row_gemv(ta, tb, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
      return;
    }
    if (n == 1) {
      gemm_col_gemv(ta, tb, m, k, alpha, a, lda, b, ldb, beta, c);
      return;
    }
    if (k == 1) {
      rank1(ta, tb, m, n, alpha, a, lda, b, ldb, beta, c, ldc);
      return;
    }
  }
  if (serv::num_stripes() > 0) {
    const int32_t team = serv::team_size(serv::kDomainBlas);
    if constexpr (std::is_same_v<T, zcomplex>) {
      _zml_blas_zgemm(team, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    } else {
      _zml_blas_dgemm(team, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    }
    return;
  }
  if (gemm_driver_generation() != 2) {
    if constexpr (std::is_same_v<T, zcomplex>) {
      zml_blas_zgemm_omp_driver_v1(transa, transb, m_, n_, k_, alpha, a, lda_, b, ldb_, beta, c,
                                   ldc_);
    } else {
      zml_blas_dgemm_omp_driver_v1(transa, transb, m_, n_, k_, alpha, a, lda_, b, ldb_, beta, c,
                                   ldc_);
    }
    return;
  }
  const int32_t t =
      gemm_v2_thread_choice(zml_serv_get_code_path(), serv::team_size(serv::kDomainBlas), m, n, k);
  if (t <= 1) {
    gemm_serial(transa, transb, m_, n_, k_, alpha, a, lda_, b, ldb_, beta, c, ldc_);
    return;
  }
  const int32_t es = static_cast<int32_t>(sizeof(T));
  const gemm_desc da =
      ta == 0 ? gemm_make_desc(a, m, k, lda, es, ta) : gemm_make_desc(a, k, m, lda, es, ta);
  const gemm_desc db =
      tb == 0 ? gemm_make_desc(b, k, n, ldb, es, tb) : gemm_make_desc(b, n, k, ldb, es, tb);
  const gemm_desc dc = gemm_make_desc(c, m, n, ldc, es, -1);
  gemm_omp_driver_v2(t, da, db, dc, ta, tb, scalar_of(alpha), scalar_of(beta));
}

}  // namespace

int64_t gemm_rank1_copies_made() { return g_rank1_copies.load(std::memory_order_relaxed); }

// m == 1: C(0, :) := alpha * op(B)^T * x + beta * C(0, :), x the row of op(A).
// op(B)^T is B used transposed for 'N' and B itself for 'T'.
void gemm_row_gemv(int32_t transa, int32_t transb, int32_t n, int32_t k, const double* alpha,
                   const double* a, int32_t lda, const double* b, int32_t ldb, const double* beta,
                   double* c, int32_t ldc) {
  if (transb == 0) {
    gemv_call(1, k, n, alpha, b, ldb, a, row_inc(transa, lda), beta, c, ldc);
  } else {
    gemv_call(0, n, k, alpha, b, ldb, a, row_inc(transa, lda), beta, c, ldc);
  }
}

// The complex row: with x the stored row of op(A) (conjugated when transa is
// 'C') and M = op(B)^T, which is B^T for 'N', B for 'T' and conj(B) for 'C':
//   plain M: y := alpha*M*x (x conjugated chunk-wise when asked);
//   conj(B): conj(y) := conj(alpha)*B*conj(x) + conj(beta)*conj(y), so y is
//   conjugated in place around a plain product (y is C's row: ours to write).
void gemm_row_gemv(int32_t transa, int32_t transb, int32_t n, int32_t k, const zcomplex* alpha,
                   const zcomplex* a, int32_t lda, const zcomplex* b, int32_t ldb,
                   const zcomplex* beta, zcomplex* c, int32_t ldc) {
  const int32_t incx = row_inc(transa, lda);
  const bool conj_x = transa == 2;
  const int32_t trans = transb == 0 ? 1 : 0;
  const int32_t rows = transb == 0 ? k : n, cols = transb == 0 ? n : k;
  if (transb != 2) {
    if (conj_x) {
      zgemv_conj_x(trans, rows, cols, alpha, b, ldb, a, incx, beta, c, ldc);
    } else {
      gemv_call(trans, rows, cols, alpha, b, ldb, a, incx, beta, c, ldc);
    }
    return;
  }
  const zcomplex calpha = std::conj(*alpha), cbeta = std::conj(*beta);
  conjugate_in_place(n, c, ldc);
  if (conj_x) {
    gemv_call(0, rows, cols, &calpha, b, ldb, a, incx, &cbeta, c, ldc);
  } else {
    zgemv_conj_x(0, rows, cols, &calpha, b, ldb, a, incx, &cbeta, c, ldc);
  }
  conjugate_in_place(n, c, ldc);
}

// n == 1: C(:, 0) := alpha * op(A) * x + beta * C(:, 0), x the column of op(B).
void gemm_col_gemv(int32_t transa, int32_t transb, int32_t m, int32_t k, const double* alpha,
                   const double* a, int32_t lda, const double* b, int32_t ldb, const double* beta,
                   double* c) {
  const int32_t rows = transa == 0 ? m : k, cols = transa == 0 ? k : m;
  gemv_call(transa, rows, cols, alpha, a, lda, b, col_inc(transb, ldb), beta, c, 1);
}

// The complex column: op(A) is gemv's own transposition; a conjugated column
// of op(B) (transb 'C') is conjugated chunk-wise.
void gemm_col_gemv(int32_t transa, int32_t transb, int32_t m, int32_t k, const zcomplex* alpha,
                   const zcomplex* a, int32_t lda, const zcomplex* b, int32_t ldb,
                   const zcomplex* beta, zcomplex* c) {
  const int32_t rows = transa == 0 ? m : k, cols = transa == 0 ? k : m;
  if (transb == 2) {
    zgemv_conj_x(transa, rows, cols, alpha, a, lda, b, col_inc(transb, ldb), beta, c, 1);
  } else {
    gemv_call(transa, rows, cols, alpha, a, lda, b, col_inc(transb, ldb), beta, c, 1);
  }
}

void _zml_blas_dgemm(int32_t threads, int32_t transa, int32_t transb, int32_t m, int32_t n,
                     int32_t k, const double* alpha, const double* a, int32_t lda, const double* b,
                     int32_t ldb, const double* beta, double* c, int32_t ldc) {
  striped(threads, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

void _zml_blas_zgemm(int32_t threads, int32_t transa, int32_t transb, int32_t m, int32_t n,
                     int32_t k, const zcomplex* alpha, const zcomplex* a, int32_t lda,
                     const zcomplex* b, int32_t ldb, const zcomplex* beta, zcomplex* c,
                     int32_t ldc) {
  striped(threads, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

void zml_blas_dgemm(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
                    const int32_t* k, const double* alpha, const double* a, const int32_t* lda,
                    const double* b, const int32_t* ldb, const double* beta, double* c,
                    const int32_t* ldc, hidden_len, hidden_len) {
  gemm_driver(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

void zml_blas_zgemm(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
                    const int32_t* k, const zcomplex* alpha, const zcomplex* a, const int32_t* lda,
                    const zcomplex* b, const int32_t* ldb, const zcomplex* beta, zcomplex* c,
                    const int32_t* ldc, hidden_len, hidden_len) {
  gemm_driver(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

}  // namespace zml::blas
