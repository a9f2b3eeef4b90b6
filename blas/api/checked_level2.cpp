// SPDX-License-Identifier: BSD-3-Clause
// Checked entries of gemv and trsv: the argument checks in their fixed order,
// the report of the first failure under the six-character name, and the
// verbose line (written for failed calls too).
#include "blas/api/checked_entry.h"

namespace zml::blas {

namespace {

using entry::checked;
using entry::max1;

bool is_uplo(const char* c) { return (c[0] & ~0x20) == 'U' || (c[0] & ~0x20) == 'L'; }
bool is_diag(const char* c) { return (c[0] & ~0x20) == 'U' || (c[0] & ~0x20) == 'N'; }

// The number of the first bad gemv argument, or 0.
int32_t check_gemv(const char* trans, int32_t m, int32_t n, int32_t lda, int32_t incx,
                   int32_t incy) {
  if (trans_code(trans) < 0) return 1;
  if (m < 0) return 2;
  if (n < 0) return 3;
  if (lda < max1(m)) return 6;
  if (incx == 0) return 8;
  if (incy == 0) return 11;
  return 0;
}

// The number of the first bad trsv argument, or 0.
int32_t check_trsv(const char* uplo, const char* trans, const char* diag, int32_t n, int32_t lda,
                   int32_t incx) {
  if (!is_uplo(uplo)) return 1;
  if (trans_code(trans) < 0) return 2;
  if (!is_diag(diag)) return 3;
  if (n < 0) return 4;
  if (lda < max1(n)) return 6;
  if (incx == 0) return 8;
  return 0;
}

}  // namespace

void dgemv(const char* trans, const int32_t* m, const int32_t* n, const double* alpha,
           const double* a, const int32_t* lda, const double* x, const int32_t* incx,
           const double* beta, double* y, const int32_t* incy, hidden_len) {
  const bool ok = checked("DGEMV ", check_gemv(trans, *m, *n, *lda, *incx, *incy));
  serv::run_traced(
      ok, [&] { zml_blas_dgemv(trans, m, n, alpha, a, lda, x, incx, beta, y, incy); },
      "DGEMV(%c,%d,%d,%p,%p,%d,%p,%d,%p,%p,%d)", trans[0], *m, *n, static_cast<const void*>(alpha),
      static_cast<const void*>(a), *lda, static_cast<const void*>(x), *incx,
      static_cast<const void*>(beta), static_cast<void*>(y), *incy);
}

void zgemv(const char* trans, const int32_t* m, const int32_t* n, const zcomplex* alpha,
           const zcomplex* a, const int32_t* lda, const zcomplex* x, const int32_t* incx,
           const zcomplex* beta, zcomplex* y, const int32_t* incy, hidden_len) {
  const bool ok = checked("ZGEMV ", check_gemv(trans, *m, *n, *lda, *incx, *incy));
  serv::run_traced(
      ok, [&] { zml_blas_zgemv(trans, m, n, alpha, a, lda, x, incx, beta, y, incy); },
      "ZGEMV(%c,%d,%d,%p,%p,%d,%p,%d,%p,%p,%d)", trans[0], *m, *n, static_cast<const void*>(alpha),
      static_cast<const void*>(a), *lda, static_cast<const void*>(x), *incx,
      static_cast<const void*>(beta), static_cast<void*>(y), *incy);
}

void dtrsv(const char* uplo, const char* trans, const char* diag, const int32_t* n, const double* a,
           const int32_t* lda, double* x, const int32_t* incx, hidden_len, hidden_len, hidden_len) {
  const bool ok = checked("DTRSV ", check_trsv(uplo, trans, diag, *n, *lda, *incx));
  serv::run_traced(
      ok, [&] { zml_blas_dtrsv(uplo, trans, diag, n, a, lda, x, incx); },
      "DTRSV(%c,%c,%c,%d,%p,%d,%p,%d)", uplo[0], trans[0], diag[0], *n, static_cast<const void*>(a),
      *lda, static_cast<void*>(x), *incx);
}

void ztrsv(const char* uplo, const char* trans, const char* diag, const int32_t* n,
           const zcomplex* a, const int32_t* lda, zcomplex* x, const int32_t* incx, hidden_len,
           hidden_len, hidden_len) {
  const bool ok = checked("ZTRSV ", check_trsv(uplo, trans, diag, *n, *lda, *incx));
  serv::run_traced(
      ok, [&] { zml_blas_ztrsv(uplo, trans, diag, n, a, lda, x, incx); },
      "ZTRSV(%c,%c,%c,%d,%p,%d,%p,%d)", uplo[0], trans[0], diag[0], *n, static_cast<const void*>(a),
      *lda, static_cast<void*>(x), *incx);
}

}  // namespace zml::blas
