/* SPDX-License-Identifier: BSD-3-Clause */
/* LAPACKE interface: by-value entries to the dense solvers, with the
   conventional argument lists so existing callers compile unchanged. */
#ifndef ZML_LAPACKE_H
#define ZML_LAPACKE_H

#include <stdint.h>

#include "zml_export.h"

ZML_EXTERN_C_BEGIN

#ifndef lapack_int
#define lapack_int int32_t
#endif

/* A caller may define lapack_complex_double before including this header
   (for example as std::complex<double> or double _Complex); both have the
   layout of two doubles, real part first. */
#ifndef lapack_complex_double
typedef struct zml_complex_double {
  double real;
  double imag;
} zml_complex_double;
#define lapack_complex_double zml_complex_double
#endif

#define LAPACK_ROW_MAJOR 101
#define LAPACK_COL_MAJOR 102

#define LAPACK_WORK_MEMORY_ERROR -1010
#define LAPACK_TRANSPOSE_MEMORY_ERROR -1011

ZML_API lapack_int LAPACKE_dgetrf(int matrix_layout, lapack_int m, lapack_int n, double* a,
                                  lapack_int lda, lapack_int* ipiv);
ZML_API lapack_int LAPACKE_zgetrf(int matrix_layout, lapack_int m, lapack_int n,
                                  lapack_complex_double* a, lapack_int lda, lapack_int* ipiv);
ZML_API lapack_int LAPACKE_dgetrs(int matrix_layout, char trans, lapack_int n, lapack_int nrhs,
                                  const double* a, lapack_int lda, const lapack_int* ipiv,
                                  double* b, lapack_int ldb);
ZML_API lapack_int LAPACKE_zgetrs(int matrix_layout, char trans, lapack_int n, lapack_int nrhs,
                                  const lapack_complex_double* a, lapack_int lda,
                                  const lapack_int* ipiv, lapack_complex_double* b, lapack_int ldb);
ZML_API lapack_int LAPACKE_dgetri(int matrix_layout, lapack_int n, double* a, lapack_int lda,
                                  const lapack_int* ipiv);
ZML_API lapack_int LAPACKE_zgetri(int matrix_layout, lapack_int n, lapack_complex_double* a,
                                  lapack_int lda, const lapack_int* ipiv);
ZML_API lapack_int LAPACKE_dpotrf(int matrix_layout, char uplo, lapack_int n, double* a,
                                  lapack_int lda);
ZML_API lapack_int LAPACKE_zpotrf(int matrix_layout, char uplo, lapack_int n,
                                  lapack_complex_double* a, lapack_int lda);
ZML_API lapack_int LAPACKE_dtrtri(int matrix_layout, char uplo, char diag, lapack_int n, double* a,
                                  lapack_int lda);
ZML_API lapack_int LAPACKE_ztrtri(int matrix_layout, char uplo, char diag, lapack_int n,
                                  lapack_complex_double* a, lapack_int lda);
ZML_API lapack_int LAPACKE_dgeev(int matrix_layout, char jobvl, char jobvr, lapack_int n, double* a,
                                 lapack_int lda, double* wr, double* wi, double* vl,
                                 lapack_int ldvl, double* vr, lapack_int ldvr);
ZML_API lapack_int LAPACKE_zgeev(int matrix_layout, char jobvl, char jobvr, lapack_int n,
                                 lapack_complex_double* a, lapack_int lda, lapack_complex_double* w,
                                 lapack_complex_double* vl, lapack_int ldvl,
                                 lapack_complex_double* vr, lapack_int ldvr);
ZML_API lapack_int LAPACKE_dsyevd(int matrix_layout, char jobz, char uplo, lapack_int n, double* a,
                                  lapack_int lda, double* w);
ZML_API lapack_int LAPACKE_zheevd(int matrix_layout, char jobz, char uplo, lapack_int n,
                                  lapack_complex_double* a, lapack_int lda, double* w);
ZML_API lapack_int LAPACKE_dsyevr(int matrix_layout, char jobz, char range, char uplo, lapack_int n,
                                  double* a, lapack_int lda, double vl, double vu, lapack_int il,
                                  lapack_int iu, double abstol, lapack_int* m, double* w, double* z,
                                  lapack_int ldz, lapack_int* isuppz);
ZML_API lapack_int LAPACKE_dgesdd(int matrix_layout, char jobz, lapack_int m, lapack_int n,
                                  double* a, lapack_int lda, double* s, double* u, lapack_int ldu,
                                  double* vt, lapack_int ldvt);
ZML_API lapack_int LAPACKE_zgesdd(int matrix_layout, char jobz, lapack_int m, lapack_int n,
                                  lapack_complex_double* a, lapack_int lda, double* s,
                                  lapack_complex_double* u, lapack_int ldu,
                                  lapack_complex_double* vt, lapack_int ldvt);
ZML_API lapack_int LAPACKE_dgelss(int matrix_layout, lapack_int m, lapack_int n, lapack_int nrhs,
                                  double* a, lapack_int lda, double* b, lapack_int ldb, double* s,
                                  double rcond, lapack_int* rank);
ZML_API lapack_int LAPACKE_zgelss(int matrix_layout, lapack_int m, lapack_int n, lapack_int nrhs,
                                  lapack_complex_double* a, lapack_int lda,
                                  lapack_complex_double* b, lapack_int ldb, double* s, double rcond,
                                  lapack_int* rank);

ZML_EXTERN_C_END

#endif /* ZML_LAPACKE_H */
