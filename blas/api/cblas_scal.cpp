// SPDX-License-Identifier: BSD-3-Clause
// cblas_dscal, cblas_zscal: no layout and nothing to check here; the
// addresses of the caller's scalars go straight to the checked entries.
#include "blas/blas.h"
#include "zml_cblas.h"

extern "C" {

void cblas_dscal(const int N, const double alpha, double* X, const int incX) {
  zml::blas::dscal(&N, &alpha, X, &incX);
}

void cblas_zscal(const int N, const void* alpha, void* X, const int incX) {
  zml::blas::zscal(&N, static_cast<const zml::blas::zcomplex*>(alpha),
                   static_cast<zml::blas::zcomplex*>(X), &incX);
}

}  // extern "C"
