/* SPDX-License-Identifier: BSD-3-Clause */
/* Nonlinear least squares by a trust-region method, driven by reverse
   communication, and Jacobians by central differences. Scalars by address. */
#ifndef ZML_TRUST_REGION_H
#define ZML_TRUST_REGION_H

#include "zml_export.h"

ZML_EXTERN_C_BEGIN

#define TR_SUCCESS 1501
#define TR_INVALID_OPTION 1502
#define TR_OUT_OF_MEMORY 1503

/* Opaque handles, one pointer each, set by the init calls. */
typedef void* _TRNSP_HANDLE_t;
typedef void* _TRNSPBC_HANDLE_t;
typedef void* _JACOBIMATRIX_HANDLE_t;

/* The caller's function for djacobi: f(x), m values from n unknowns. */
typedef void (*USRFCNXD)(int* m, int* n, double* x, double* f);

ZML_API int dtrnlsp_init(_TRNSP_HANDLE_t* handle, const int* n, const int* m, const double* x,
                         const double* eps, const int* iter1, const int* iter2, const double* rs);
ZML_API int dtrnlsp_check(_TRNSP_HANDLE_t* handle, const int* n, const int* m, const double* fjac,
                          const double* fvec, const double* eps, int* info);
ZML_API int dtrnlsp_solve(_TRNSP_HANDLE_t* handle, double* fvec, double* fjac, int* RCI_Request);
ZML_API int dtrnlsp_get(_TRNSP_HANDLE_t* handle, int* iter, int* st_cr, double* r1, double* r2);
ZML_API int dtrnlsp_delete(_TRNSP_HANDLE_t* handle);

ZML_API int dtrnlspbc_init(_TRNSPBC_HANDLE_t* handle, const int* n, const int* m, const double* x,
                           const double* LW, const double* UP, const double* eps, const int* iter1,
                           const int* iter2, const double* rs);
ZML_API int dtrnlspbc_check(_TRNSPBC_HANDLE_t* handle, const int* n, const int* m,
                            const double* fjac, const double* fvec, const double* LW,
                            const double* UP, const double* eps, int* info);
ZML_API int dtrnlspbc_solve(_TRNSPBC_HANDLE_t* handle, double* fvec, double* fjac,
                            int* RCI_Request);
ZML_API int dtrnlspbc_get(_TRNSPBC_HANDLE_t* handle, int* iter, int* st_cr, double* r1, double* r2);
ZML_API int dtrnlspbc_delete(_TRNSPBC_HANDLE_t* handle);

ZML_API int djacobi_init(_JACOBIMATRIX_HANDLE_t* handle, const int* n, const int* m, double* x,
                         double* fjac, const double* eps);
ZML_API int djacobi_solve(_JACOBIMATRIX_HANDLE_t* handle, double* f1, double* f2, int* RCI_Request);
ZML_API int djacobi_delete(_JACOBIMATRIX_HANDLE_t* handle);
ZML_API int djacobi(USRFCNXD fcn, const int* n, const int* m, double* fjac, double* x, double* eps);

ZML_EXTERN_C_END

#endif /* ZML_TRUST_REGION_H */
