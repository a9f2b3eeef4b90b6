// SPDX-License-Identifier: BSD-3-Clause
// Checked entries of the scalings: no argument can be wrong (n <= 0 does
// nothing), so they only trace in verbose mode and call the driver.
#include "blas/blas.h"
#include "service/verbose.h"

namespace zml::blas {

void dscal(const int32_t* n, const double* alpha, double* x, const int32_t* incx) {
  serv::run_traced(
      true, [&] { zml_blas_dscal(n, alpha, x, incx); }, "DSCAL(%d,%p,%p,%d)", *n,
      static_cast<const void*>(alpha), static_cast<void*>(x), *incx);
}

void zscal(const int32_t* n, const zcomplex* alpha, zcomplex* x, const int32_t* incx) {
  serv::run_traced(
      true, [&] { zml_blas_zscal(n, alpha, x, incx); }, "ZSCAL(%d,%p,%p,%d)", *n,
      static_cast<const void*>(alpha), static_cast<void*>(x), *incx);
}

}  // namespace zml::blas
