// SPDX-License-Identifier: BSD-3-Clause
// Checked entries of dgemm and zgemm: the argument checks in their fixed
// order, the report of the first failure under the six-character name, and
// the verbose line (written for failed calls too).
#include "blas/blas.h"
#include "service/service.h"
#include "service/verbose.h"

namespace zml::blas {

namespace {

int32_t max1(int32_t v) { return v > 1 ? v : 1; }

// The number of the first bad gemm argument, or 0.
int32_t check_gemm(const char* transa, const char* transb, int32_t m, int32_t n, int32_t k,
                   int32_t lda, int32_t ldb, int32_t ldc) {
  const int32_t ta = trans_code(transa), tb = trans_code(transb);
  if (ta < 0) return 1;
  if (tb < 0) return 2;
  if (m < 0) return 3;
  if (n < 0) return 4;
  if (k < 0) return 5;
  if (lda < max1(ta == 0 ? m : k)) return 8;
  if (ldb < max1(tb == 0 ? k : n)) return 10;
  if (ldc < max1(m)) return 13;
  return 0;
}

// Installs the library's parameter-error routine (the first installer wins),
// then reports `info` when it is not 0. Returns whether the checks passed.
bool checked(const char* name, int32_t info) {
  zml_serv_set_xerbla(zml_serv_xerbla);
  if (info == 0) return true;
  serv::param_error(name, info);
  return false;
}

}  // namespace

void dgemm(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
           const int32_t* k, const double* alpha, const double* a, const int32_t* lda,
           const double* b, const int32_t* ldb, const double* beta, double* c, const int32_t* ldc,
           hidden_len, hidden_len) {
  const bool ok = checked("DGEMM ", check_gemm(transa, transb, *m, *n, *k, *lda, *ldb, *ldc));
  serv::run_traced(
      ok, [&] { zml_blas_dgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc); },
      "DGEMM(%c,%c,%d,%d,%d,%p,%p,%d,%p,%d,%p,%p,%d)", transa[0], transb[0], *m, *n, *k,
      static_cast<const void*>(alpha), static_cast<const void*>(a), *lda,
      static_cast<const void*>(b), *ldb, static_cast<const void*>(beta), static_cast<void*>(c),
      *ldc);
}

void zgemm(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
           const int32_t* k, const zcomplex* alpha, const zcomplex* a, const int32_t* lda,
           const zcomplex* b, const int32_t* ldb, const zcomplex* beta, zcomplex* c,
           const int32_t* ldc, hidden_len, hidden_len) {
  const bool ok = checked("ZGEMM ", check_gemm(transa, transb, *m, *n, *k, *lda, *ldb, *ldc));
  serv::run_traced(
      ok, [&] { zml_blas_zgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc); },
      "ZGEMM(%c,%c,%d,%d,%d,%p,%p,%d,%p,%d,%p,%p,%d)", transa[0], transb[0], *m, *n, *k,
      static_cast<const void*>(alpha), static_cast<const void*>(a), *lda,
      static_cast<const void*>(b), *ldb, static_cast<const void*>(beta), static_cast<void*>(c),
      *ldc);
}

}  // namespace zml::blas
