/* SPDX-License-Identifier: BSD-3-Clause */
/* Sparse matrices: CSR routines in the classic sparse-BLAS calling style
   (every argument by address) and routines around an opaque matrix handle. */
#ifndef ZML_SPARSE_H
#define ZML_SPARSE_H

#include "zml_export.h"

ZML_EXTERN_C_BEGIN

/* Double complex as two doubles, real part first. */
typedef struct zml_complex16 {
  double real;
  double imag;
} zml_complex16;

typedef enum {
  ZML_SPARSE_STATUS_SUCCESS = 0,
  ZML_SPARSE_STATUS_NOT_INITIALIZED = 1,
  ZML_SPARSE_STATUS_ALLOC_FAILED = 2,
  ZML_SPARSE_STATUS_INVALID_VALUE = 3,
  ZML_SPARSE_STATUS_EXECUTION_FAILED = 4,
  ZML_SPARSE_STATUS_INTERNAL_ERROR = 5,
  ZML_SPARSE_STATUS_NOT_SUPPORTED = 6
} zml_sparse_status_t;
typedef enum {
  ZML_SPARSE_INDEX_BASE_ZERO = 0,
  ZML_SPARSE_INDEX_BASE_ONE = 1
} zml_sparse_index_base_t;
typedef enum {
  ZML_SPARSE_OPERATION_NON_TRANSPOSE = 10,
  ZML_SPARSE_OPERATION_TRANSPOSE = 11,
  ZML_SPARSE_OPERATION_CONJUGATE_TRANSPOSE = 12
} zml_sparse_operation_t;
typedef enum {
  ZML_SPARSE_LAYOUT_ROW_MAJOR = 101,
  ZML_SPARSE_LAYOUT_COLUMN_MAJOR = 102
} zml_sparse_layout_t;
typedef struct zml_sparse_matrix *zml_sparse_matrix_t; /* opaque */

ZML_API void zml_dcsrmv(const char *transa, const int *m, const int *k, const double *alpha,
                        const char *matdescra, const double *val, const int *indx, const int *pntrb,
                        const int *pntre, const double *x, const double *beta, double *y);
ZML_API void zml_dcsrmm(const char *transa, const int *m, const int *n, const int *k,
                        const double *alpha, const char *matdescra, const double *val,
                        const int *indx, const int *pntrb, const int *pntre, const double *b,
                        const int *ldb, const double *beta, double *c, const int *ldc);
ZML_API void zml_dcsradd(const char *trans, const int *request, const int *sort, const int *m,
                         const int *n, double *a, int *ja, int *ia, const double *beta, double *b,
                         int *jb, int *ib, double *c, int *jc, int *ic, const int *nzmax,
                         int *info);
ZML_API void zml_zcsradd(const char *trans, const int *request, const int *sort, const int *m,
                         const int *n, zml_complex16 *a, int *ja, int *ia,
                         const zml_complex16 *beta, zml_complex16 *b, int *jb, int *ib,
                         zml_complex16 *c, int *jc, int *ic, const int *nzmax, int *info);
ZML_API void zml_dcsrmultcsr(const char *trans, const int *request, const int *sort, const int *m,
                             const int *n, const int *k, double *a, int *ja, int *ia, double *b,
                             int *jb, int *ib, double *c, int *jc, int *ic, const int *nzmax,
                             int *info);
ZML_API void zml_dcsrmultd(const char *trans, const int *m, const int *n, const int *k,
                           const double *a, const int *ja, const int *ia, const double *b,
                           const int *jb, const int *ib, double *c, const int *ldc);
ZML_API void zml_dcsrcsc(const int *job, const int *n, double *acsr, int *ja, int *ia, double *acsc,
                         int *ja1, int *ia1, int *info);

ZML_API zml_sparse_status_t zml_sparse_d_create_csr(zml_sparse_matrix_t *A,
                                                    zml_sparse_index_base_t indexing, int rows,
                                                    int cols, int *rows_start, int *rows_end,
                                                    int *col_indx, double *values);
ZML_API zml_sparse_status_t zml_sparse_d_export_csr(const zml_sparse_matrix_t source,
                                                    zml_sparse_index_base_t *indexing, int *rows,
                                                    int *cols, int **rows_start, int **rows_end,
                                                    int **col_indx, double **values);
ZML_API zml_sparse_status_t zml_sparse_destroy(zml_sparse_matrix_t A);
ZML_API zml_sparse_status_t zml_sparse_order(const zml_sparse_matrix_t A);
ZML_API zml_sparse_status_t zml_sparse_syrk(zml_sparse_operation_t operation,
                                            const zml_sparse_matrix_t A, zml_sparse_matrix_t *C);
ZML_API zml_sparse_status_t zml_sparse_d_syrkd(zml_sparse_operation_t operation,
                                               const zml_sparse_matrix_t A, double alpha,
                                               double beta, double *C, zml_sparse_layout_t layout,
                                               int ldc);

ZML_EXTERN_C_END

#endif /* ZML_SPARSE_H */
