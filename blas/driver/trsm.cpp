// SPDX-License-Identifier: BSD-3-Clause
// zml_blas_dtrsm and zml_blas_ztrsm: the quick return, the one-column and
// one-row shortcuts to trsv, the clear for alpha = 0, and the hand-over to a
// threaded driver; the first-generation driver with its region, the thread
// choices and the team that splits the right-hand sides.
#include <cstring>
#include <type_traits>

#include "blas/driver/gemm_driver.h"
#include "blas/driver/trsm_driver.h"
#include "blas/kernels/trsm_kernel.h"
#include "service/service.h"
#include "service/threading/team.h"

namespace zml::blas {

namespace {

bool letter_is(const char* c, char x) { return (c[0] & ~0x20) == x; }

// Multiply-adds of a solve: tri^2/2 per right-hand side, a complex one four.
double trsm_work(bool complex, int32_t m, int32_t n, bool left) {
  const double tri = left ? m : n, rhs = left ? n : m;
  return 0.5 * tri * tri * rhs * (complex ? 4.0 : 1.0);
}

// The largest team up to `t` that gives every member at least `min_rhs`
// right-hand sides and `min_work` multiply-adds.
int32_t team_for(int32_t t, double work, int64_t rhs, int64_t min_rhs, double min_work) {
  if (rhs / min_rhs < t) t = static_cast<int32_t>(rhs / min_rhs);
  while (t > 1 && work < min_work * t) --t;
  return t < 1 ? 1 : t;
}

template <class T>
constexpr bool kComplex = !std::is_same_v<T, double>;

template <class T>
const double* words(const T* v) {
  return reinterpret_cast<const double*>(v);
}

template <class T>
void solve_team(int32_t threads, const TrsmProblem& p, const T* alpha) {
  if constexpr (kComplex<T>) {
    ztrsm_team(threads, p, words(alpha));
  } else {
    dtrsm_team(threads, p, alpha);
  }
}

template <class T>
TrsmProblem problem(const char* side, const char* uplo, const char* transa, const char* diag,
                    int32_t m, int32_t n, const T* a, int32_t lda, T* b, int32_t ldb) {
  return {letter_is(side, 'L'),
          letter_is(uplo, 'U'),
          trans_code(transa),
          letter_is(diag, 'U'),
          m,
          n,
          words(a),
          lda,
          reinterpret_cast<double*>(b),
          ldb};
}

template <class T>
void trsv_call(const char* uplo, const char* trans, const char* diag, int32_t n, const T* a,
               int32_t lda, T* x, int32_t incx) {
  if constexpr (kComplex<T>) {
    zml_blas_ztrsv(uplo, trans, diag, &n, a, &lda, x, &incx);
  } else {
    zml_blas_dtrsv(uplo, trans, diag, &n, a, &lda, x, &incx);
  }
}

template <class T>
void v1_driver(const char* side, const char* uplo, const char* transa, const char* diag,
               const int32_t* m, const int32_t* n, const T* alpha, const T* a, const int32_t* lda,
               T* b, const int32_t* ldb) {
  if (*m <= 0 || *n <= 0) return;
  const TrsmProblem p = problem(side, uplo, transa, diag, *m, *n, a, *lda, b, *ldb);
  const int32_t threads =
      trsm_v1_thread_choice(kComplex<T>, serv::team_size(serv::kDomainBlas), *m, *n, p.left);
  solve_team(threads, p, alpha);
}

template <class T>
void driver(const char* side, const char* uplo, const char* transa, const char* diag,
            const int32_t* m, const int32_t* n, const T* alpha, const T* a, const int32_t* lda,
            T* b, const int32_t* ldb) {
  const int32_t mm = *m, nn = *n;
  if (mm <= 0 || nn <= 0) return;
  const int32_t tc = trans_code(transa);
  const int32_t sc = letter_is(side, 'L') ? 0 : (letter_is(side, 'R') ? 1 : -1);
  // Exact comparisons: a NaN alpha is neither 1 nor 0 and takes the general path.
  if (*alpha == T(1.0)) {
    // trsv has no scaling argument, so only alpha = 1 may go there.
    if (nn == 1 && sc == 0) {
      trsv_call(uplo, transa, diag, mm, a, *lda, b, 1);
      return;
    }
    // x^T op(A) = b^T is op(A)^T x = b; op(A) = A^H would need a conjugated
    // transpose without transposition, so "C" stays on the general path.
    if (mm == 1 && sc == 1 && tc != 2) {
      trsv_call(uplo, tc == 0 ? "T" : "N", diag, nn, a, *lda, b, *ldb);
      return;
    }
  }
  if (*alpha == T(0.0)) {
    for (int64_t j = 0; j < nn; ++j) {
      T* col = b + j * *ldb;
      if (mm <= 12) {
        for (int32_t i = 0; i < mm; ++i) col[i] = T(0.0);
      } else {
        std::memset(static_cast<void*>(col), 0, sizeof(T) * static_cast<size_t>(mm));
      }
    }
    return;
  }
  if (gemm_driver_generation() == 2) {
    const TrsmProblem p = problem(side, uplo, transa, diag, mm, nn, a, *lda, b, *ldb);
    solve_team(trsm_v2_thread_choice(zml_serv_get_code_path(), kComplex<T>,
                                     serv::team_size(serv::kDomainBlas), mm, nn, p.left),
               p, alpha);
    return;
  }
  if constexpr (kComplex<T>) {
    zml_blas_ztrsm_omp_driver_v1(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
  } else {
    zml_blas_dtrsm_omp_driver_v1(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
  }
}

template <void (*Solve)(const TrsmProblem&, const double*, int64_t, int64_t), bool kIsComplex>
void team(int32_t threads, const TrsmProblem& p, const double* alpha) {
  const int64_t rhs = p.rhs();
  if (threads <= 1) {
    Solve(p, alpha, 0, rhs);
    return;
  }
  // Shares of whole leaf groups, so that only the last member has a partial one.
  const int64_t lanes = (kIsComplex ? kZtrsmTable : kDtrsmTable).get().lanes;
  const int64_t groups = (rhs + lanes - 1) / lanes;
  serv::run_team(threads, [&](int32_t size, int32_t id) {
    const serv::Share s = serv::share(groups, size, id);
    const int64_t r0 = s.begin * lanes, r1 = s.end * lanes < rhs ? s.end * lanes : rhs;
    if (r0 < r1) Solve(p, alpha, r0, r1);
  });
}

}  // namespace

// Bounds: a triangle of 4 or fewer, or 8 or fewer right-hand sides, is solved
// faster than a fork; members get at least 16 right-hand sides (half a leaf
// group on the widest rows) and as much work as a first-generation gemm member.
int32_t trsm_v1_thread_choice(bool complex, int32_t T, int32_t m, int32_t n, bool left) {
  const int32_t tri = left ? m : n, rhs = left ? n : m;
  if (T <= 1 || tri <= 4 || rhs <= 8) return 1;
  return team_for(T, trsm_work(complex, m, n, left), rhs, 16, static_cast<double>(kGemmV1MinWork));
}

// The second generation weighs the work by the code path's speed, as the
// gemm thread choice does: the AVX2 path (9) does twice the multiply-adds of
// the SSE paths per cycle, AVX without FMA (8) about the same as them.
int32_t trsm_v2_thread_choice(int32_t code_path, bool complex, int32_t T, int32_t m, int32_t n,
                              bool left) {
  const int32_t tri = left ? m : n, rhs = left ? n : m;
  if (T <= 1 || tri <= 4 || rhs <= 8) return 1;
  double per_member = 0;
  switch (code_path) {
    case 9:
      per_member = 128.0 * 1024;
      break;
    case 8:
    case 7:
      per_member = 64.0 * 1024;
      break;
    default:
      per_member = 96.0 * 1024;
      break;
  }
  return team_for(T, trsm_work(complex, m, n, left), rhs, 16, per_member);
}

void dtrsm_team(int32_t threads, const TrsmProblem& p, const double* alpha) {
  team<dtrsm_solve_range, false>(threads, p, alpha);
}
void ztrsm_team(int32_t threads, const TrsmProblem& p, const double* alpha) {
  team<ztrsm_solve_range, true>(threads, p, alpha);
}

void zml_blas_dtrsm_omp_driver_v1(const char* side, const char* uplo, const char* transa,
                                  const char* diag, const int32_t* m, const int32_t* n,
                                  const double* alpha, const double* a, const int32_t* lda,
                                  double* b, const int32_t* ldb) {
  v1_driver(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
}
void zml_blas_ztrsm_omp_driver_v1(const char* side, const char* uplo, const char* transa,
                                  const char* diag, const int32_t* m, const int32_t* n,
                                  const zcomplex* alpha, const zcomplex* a, const int32_t* lda,
                                  zcomplex* b, const int32_t* ldb) {
  v1_driver(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
}

void zml_blas_dtrsm(const char* side, const char* uplo, const char* transa, const char* diag,
                    const int32_t* m, const int32_t* n, const double* alpha, const double* a,
                    const int32_t* lda, double* b, const int32_t* ldb) {
  driver(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
}
void zml_blas_ztrsm(const char* side, const char* uplo, const char* transa, const char* diag,
                    const int32_t* m, const int32_t* n, const zcomplex* alpha, const zcomplex* a,
                    const int32_t* lda, zcomplex* b, const int32_t* ldb) {
  driver(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
}

}  // namespace zml::blas
