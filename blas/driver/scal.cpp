// SPDX-License-Identifier: BSD-3-Clause
// The scaling drivers: the kernel of the active code path, nothing more.
#include "blas/blas.h"
#include "blas/kernels/level1_kernel.h"

namespace zml::blas {

void zml_blas_dscal(const int32_t* n, const double* alpha, double* x, const int32_t* incx) {
  kDscalTable.get().kernel(*n, *alpha, x, *incx);
}

void zml_blas_zscal(const int32_t* n, const zcomplex* alpha, zcomplex* x, const int32_t* incx) {
  kZscalTable.get().kernel(*n, reinterpret_cast<const double*>(alpha), reinterpret_cast<double*>(x),
                           *incx);
}

}  // namespace zml::blas
