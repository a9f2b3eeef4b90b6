/* SPDX-License-Identifier: BSD-3-Clause */
/* CBLAS interface: the conventional enumerations and prototypes, so code
   written against a standard cblas.h compiles unchanged. Complex scalars and
   arrays are passed as void pointers to pairs of doubles (real part first). */
#ifndef ZML_CBLAS_H
#define ZML_CBLAS_H

#include <stddef.h>

#include "zml_export.h"

ZML_EXTERN_C_BEGIN

typedef enum CBLAS_LAYOUT { CblasRowMajor = 101, CblasColMajor = 102 } CBLAS_LAYOUT;
typedef enum CBLAS_TRANSPOSE {
  CblasNoTrans = 111,
  CblasTrans = 112,
  CblasConjTrans = 113
} CBLAS_TRANSPOSE;
typedef enum CBLAS_UPLO { CblasUpper = 121, CblasLower = 122 } CBLAS_UPLO;
typedef enum CBLAS_DIAG { CblasNonUnit = 131, CblasUnit = 132 } CBLAS_DIAG;
typedef enum CBLAS_SIDE { CblasLeft = 141, CblasRight = 142 } CBLAS_SIDE;
typedef CBLAS_LAYOUT CBLAS_ORDER; /* older name of the same enumeration */

ZML_API void cblas_dscal(const int N, const double alpha, double* X, const int incX);
ZML_API void cblas_zscal(const int N, const void* alpha, void* X, const int incX);

ZML_API void cblas_dgemv(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE TransA, const int M,
                         const int N, const double alpha, const double* A, const int lda,
                         const double* X, const int incX, const double beta, double* Y,
                         const int incY);
ZML_API void cblas_zgemv(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE TransA, const int M,
                         const int N, const void* alpha, const void* A, const int lda,
                         const void* X, const int incX, const void* beta, void* Y, const int incY);
ZML_API void cblas_dtrsv(const CBLAS_LAYOUT Layout, const CBLAS_UPLO Uplo,
                         const CBLAS_TRANSPOSE TransA, const CBLAS_DIAG Diag, const int N,
                         const double* A, const int lda, double* X, const int incX);
ZML_API void cblas_ztrsv(const CBLAS_LAYOUT Layout, const CBLAS_UPLO Uplo,
                         const CBLAS_TRANSPOSE TransA, const CBLAS_DIAG Diag, const int N,
                         const void* A, const int lda, void* X, const int incX);

ZML_API void cblas_dgemm(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE TransA,
                         const CBLAS_TRANSPOSE TransB, const int M, const int N, const int K,
                         const double alpha, const double* A, const int lda, const double* B,
                         const int ldb, const double beta, double* C, const int ldc);
ZML_API void cblas_zgemm(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE TransA,
                         const CBLAS_TRANSPOSE TransB, const int M, const int N, const int K,
                         const void* alpha, const void* A, const int lda, const void* B,
                         const int ldb, const void* beta, void* C, const int ldc);
ZML_API void cblas_zgemm3m(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE TransA,
                           const CBLAS_TRANSPOSE TransB, const int M, const int N, const int K,
                           const void* alpha, const void* A, const int lda, const void* B,
                           const int ldb, const void* beta, void* C, const int ldc);

ZML_API void cblas_dgemm_batch(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE* TransA_Array,
                               const CBLAS_TRANSPOSE* TransB_Array, const int* M_Array,
                               const int* N_Array, const int* K_Array, const double* alpha_Array,
                               const double** A_Array, const int* lda_Array, const double** B_Array,
                               const int* ldb_Array, const double* beta_Array, double** C_Array,
                               const int* ldc_Array, const int group_count, const int* group_size);
ZML_API void cblas_zgemm_batch(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE* TransA_Array,
                               const CBLAS_TRANSPOSE* TransB_Array, const int* M_Array,
                               const int* N_Array, const int* K_Array, const void* alpha_Array,
                               const void** A_Array, const int* lda_Array, const void** B_Array,
                               const int* ldb_Array, const void* beta_Array, void** C_Array,
                               const int* ldc_Array, const int group_count, const int* group_size);
ZML_API void cblas_zgemm3m_batch(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE* TransA_Array,
                                 const CBLAS_TRANSPOSE* TransB_Array, const int* M_Array,
                                 const int* N_Array, const int* K_Array, const void* alpha_Array,
                                 const void** A_Array, const int* lda_Array, const void** B_Array,
                                 const int* ldb_Array, const void* beta_Array, void** C_Array,
                                 const int* ldc_Array, const int group_count,
                                 const int* group_size);

ZML_API void cblas_dtrsm(const CBLAS_LAYOUT Layout, const CBLAS_SIDE Side, const CBLAS_UPLO Uplo,
                         const CBLAS_TRANSPOSE TransA, const CBLAS_DIAG Diag, const int M,
                         const int N, const double alpha, const double* A, const int lda, double* B,
                         const int ldb);
ZML_API void cblas_ztrsm(const CBLAS_LAYOUT Layout, const CBLAS_SIDE Side, const CBLAS_UPLO Uplo,
                         const CBLAS_TRANSPOSE TransA, const CBLAS_DIAG Diag, const int M,
                         const int N, const void* alpha, const void* A, const int lda, void* B,
                         const int ldb);

ZML_EXTERN_C_END

#endif /* ZML_CBLAS_H */
