// SPDX-License-Identifier: BSD-3-Clause
// Internal BLAS entries. The checked entries take every argument by address in
// the reference BLAS order, followed by the hidden lengths (1) of the character
// arguments; they check, report a bad argument through the service layer's
// parameter-error routine and trace in verbose mode. The zml_blas_* drivers
// take arguments already checked. Complex data are pairs of doubles, real part
// first (std::complex<double> has that layout).
#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>

namespace zml::blas {

using zcomplex = std::complex<double>;
using hidden_len = size_t;

// ---- scaling ----------------------------------------------------------------
void dscal(const int32_t* n, const double* alpha, double* x, const int32_t* incx);
void zscal(const int32_t* n, const zcomplex* alpha, zcomplex* x, const int32_t* incx);
void zml_blas_dscal(const int32_t* n, const double* alpha, double* x, const int32_t* incx);
void zml_blas_zscal(const int32_t* n, const zcomplex* alpha, zcomplex* x, const int32_t* incx);

// ---- matrix-vector multiply: y := alpha*op(A)*x + beta*y --------------------
void dgemv(const char* trans, const int32_t* m, const int32_t* n, const double* alpha,
           const double* a, const int32_t* lda, const double* x, const int32_t* incx,
           const double* beta, double* y, const int32_t* incy, hidden_len ltrans = 1);
void zgemv(const char* trans, const int32_t* m, const int32_t* n, const zcomplex* alpha,
           const zcomplex* a, const int32_t* lda, const zcomplex* x, const int32_t* incx,
           const zcomplex* beta, zcomplex* y, const int32_t* incy, hidden_len ltrans = 1);
void zml_blas_dgemv(const char* trans, const int32_t* m, const int32_t* n, const double* alpha,
                    const double* a, const int32_t* lda, const double* x, const int32_t* incx,
                    const double* beta, double* y, const int32_t* incy);
void zml_blas_zgemv(const char* trans, const int32_t* m, const int32_t* n, const zcomplex* alpha,
                    const zcomplex* a, const int32_t* lda, const zcomplex* x, const int32_t* incx,
                    const zcomplex* beta, zcomplex* y, const int32_t* incy);

// ---- triangular solve with one vector ---------------------------------------
void dtrsv(const char* uplo, const char* trans, const char* diag, const int32_t* n, const double* a,
           const int32_t* lda, double* x, const int32_t* incx, hidden_len lu = 1, hidden_len lt = 1,
           hidden_len ld = 1);
void ztrsv(const char* uplo, const char* trans, const char* diag, const int32_t* n,
           const zcomplex* a, const int32_t* lda, zcomplex* x, const int32_t* incx,
           hidden_len lu = 1, hidden_len lt = 1, hidden_len ld = 1);
void zml_blas_dtrsv(const char* uplo, const char* trans, const char* diag, const int32_t* n,
                    const double* a, const int32_t* lda, double* x, const int32_t* incx);
void zml_blas_ztrsv(const char* uplo, const char* trans, const char* diag, const int32_t* n,
                    const zcomplex* a, const int32_t* lda, zcomplex* x, const int32_t* incx);

// ---- triangular solve with many right-hand sides ---------------------------
// op(A) X = alpha B (side "L") or X op(A) = alpha B (side "R"), X over B.
void dtrsm(const char* side, const char* uplo, const char* transa, const char* diag,
           const int32_t* m, const int32_t* n, const double* alpha, const double* a,
           const int32_t* lda, double* b, const int32_t* ldb, hidden_len ls = 1, hidden_len lu = 1,
           hidden_len lt = 1, hidden_len ld = 1);
void ztrsm(const char* side, const char* uplo, const char* transa, const char* diag,
           const int32_t* m, const int32_t* n, const zcomplex* alpha, const zcomplex* a,
           const int32_t* lda, zcomplex* b, const int32_t* ldb, hidden_len ls = 1,
           hidden_len lu = 1, hidden_len lt = 1, hidden_len ld = 1);
void zml_blas_dtrsm(const char* side, const char* uplo, const char* transa, const char* diag,
                    const int32_t* m, const int32_t* n, const double* alpha, const double* a,
                    const int32_t* lda, double* b, const int32_t* ldb);
void zml_blas_ztrsm(const char* side, const char* uplo, const char* transa, const char* diag,
                    const int32_t* m, const int32_t* n, const zcomplex* alpha, const zcomplex* a,
                    const int32_t* lda, zcomplex* b, const int32_t* ldb);
// First-generation threaded drivers, each with its own region.
void zml_blas_dtrsm_omp_driver_v1(const char* side, const char* uplo, const char* transa,
                                  const char* diag, const int32_t* m, const int32_t* n,
                                  const double* alpha, const double* a, const int32_t* lda,
                                  double* b, const int32_t* ldb);
void zml_blas_ztrsm_omp_driver_v1(const char* side, const char* uplo, const char* transa,
                                  const char* diag, const int32_t* m, const int32_t* n,
                                  const zcomplex* alpha, const zcomplex* a, const int32_t* lda,
                                  zcomplex* b, const int32_t* ldb);

// ---- general matrix multiply: C := alpha*op(A)*op(B) + beta*C ----------------
void dgemm(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
           const int32_t* k, const double* alpha, const double* a, const int32_t* lda,
           const double* b, const int32_t* ldb, const double* beta, double* c, const int32_t* ldc,
           hidden_len la = 1, hidden_len lb = 1);
void zgemm(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
           const int32_t* k, const zcomplex* alpha, const zcomplex* a, const int32_t* lda,
           const zcomplex* b, const int32_t* ldb, const zcomplex* beta, zcomplex* c,
           const int32_t* ldc, hidden_len la = 1, hidden_len lb = 1);
void zml_blas_dgemm(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
                    const int32_t* k, const double* alpha, const double* a, const int32_t* lda,
                    const double* b, const int32_t* ldb, const double* beta, double* c,
                    const int32_t* ldc, hidden_len la = 1, hidden_len lb = 1);
void zml_blas_zgemm(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
                    const int32_t* k, const zcomplex* alpha, const zcomplex* a, const int32_t* lda,
                    const zcomplex* b, const int32_t* ldb, const zcomplex* beta, zcomplex* c,
                    const int32_t* ldc, hidden_len la = 1, hidden_len lb = 1);
// Single-thread multiplies of the active code path. Every threaded piece ends here.
void zml_blas_dgemm_serial(const char* transa, const char* transb, const int32_t* m,
                           const int32_t* n, const int32_t* k, const double* alpha, const double* a,
                           const int32_t* lda, const double* b, const int32_t* ldb,
                           const double* beta, double* c, const int32_t* ldc);
void zml_blas_zgemm_serial(const char* transa, const char* transb, const int32_t* m,
                           const int32_t* n, const int32_t* k, const zcomplex* alpha,
                           const zcomplex* a, const int32_t* lda, const zcomplex* b,
                           const int32_t* ldb, const zcomplex* beta, zcomplex* c,
                           const int32_t* ldc);

// ---- 3M complex multiply: zgemm's arguments and result, three real products ----
void zgemm3m(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
             const int32_t* k, const zcomplex* alpha, const zcomplex* a, const int32_t* lda,
             const zcomplex* b, const int32_t* ldb, const zcomplex* beta, zcomplex* c,
             const int32_t* ldc, hidden_len la = 1, hidden_len lb = 1);
void zml_blas_zgemm3m(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
                      const int32_t* k, const zcomplex* alpha, const zcomplex* a,
                      const int32_t* lda, const zcomplex* b, const int32_t* ldb,
                      const zcomplex* beta, zcomplex* c, const int32_t* ldc, hidden_len la = 1,
                      hidden_len lb = 1);

// ---- batched multiply: group_count groups of group_size[g] products each ----
// transa, transb: one letter per group; m .. ldc: one value per group; a, b,
// c: one pointer per product, the products of group 0 first.
void dgemm_batch(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
                 const int32_t* k, const double* alpha, const double* const* a, const int32_t* lda,
                 const double* const* b, const int32_t* ldb, const double* beta, double* const* c,
                 const int32_t* ldc, const int32_t* group_count, const int32_t* group_size,
                 hidden_len la = 1, hidden_len lb = 1);
void zgemm_batch(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
                 const int32_t* k, const zcomplex* alpha, const zcomplex* const* a,
                 const int32_t* lda, const zcomplex* const* b, const int32_t* ldb,
                 const zcomplex* beta, zcomplex* const* c, const int32_t* ldc,
                 const int32_t* group_count, const int32_t* group_size, hidden_len la = 1,
                 hidden_len lb = 1);
void zgemm3m_batch(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
                   const int32_t* k, const zcomplex* alpha, const zcomplex* const* a,
                   const int32_t* lda, const zcomplex* const* b, const int32_t* ldb,
                   const zcomplex* beta, zcomplex* const* c, const int32_t* ldc,
                   const int32_t* group_count, const int32_t* group_size, hidden_len la = 1,
                   hidden_len lb = 1);

// Transposition code of an option letter: first byte, case-insensitive;
// 'N' 0, 'T' 1, 'C' 2, anything else -1.
inline int32_t trans_code(const char* t) {
  switch (t[0] & ~0x20) {
    case 'N':
      return 0;
    case 'T':
      return 1;
    case 'C':
      return 2;
    default:
      return -1;
  }
}

}  // namespace zml::blas
