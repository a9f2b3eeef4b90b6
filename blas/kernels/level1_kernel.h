// SPDX-License-Identifier: BSD-3-Clause
// The scaling kernel interface (dscal, zscal): the kernel types, the row each
// code path's variant fills in, and the contract all variants implement.
#pragma once

#include <cstdint>

#include "service/dispatch/code_path_table.h"

namespace zml::blas {

// Contract shared by every scaling variant.
//
// dscal(n, alpha, x, incx) multiplies the n elements x[0], x[incx], ...,
// x[(n-1)*incx] by alpha. zscal does the same for complex x (pairs of doubles,
// real part first; incx counts complex elements) with the complex alpha
// (alpha[0], alpha[1]), as a true complex product. n <= 0 or incx <= 0 does
// nothing, as the reference BLAS does: a scaling has no order, so there is no
// meaning to give a negative increment. alpha == 0 multiplies too (NaN times 0
// stays NaN), again as the reference BLAS does; callers that must overwrite
// (gemv with beta == 0) fill zeros themselves. No alignment is assumed.
using dscal_fn = void (*)(int32_t n, double alpha, double* x, int32_t incx);
using zscal_fn = void (*)(int32_t n, const double* alpha, double* x, int32_t incx);

struct dscal_variant {
  dispatch::Isa isa;
  dscal_fn kernel;
  const char* name;
};
struct zscal_variant {
  dispatch::Isa isa;
  zscal_fn kernel;
  const char* name;
};

extern const dispatch::Table<dscal_variant> kDscalTable;
extern const dispatch::Table<zscal_variant> kZscalTable;

// The kernels of each folder, defined there. Declared for every level so a
// new folder needs no edit here; a level without a folder (sse42) declares
// kernels nothing defines or calls.
#define ZML_LEVEL1_DECLARE(folder, ...)                                       \
  namespace folder {                                                          \
  void dscal_kernel(int32_t n, double alpha, double* x, int32_t incx);        \
  void zscal_kernel(int32_t n, const double* alpha, double* x, int32_t incx); \
  }
ZML_ISA_LEVELS(ZML_LEVEL1_DECLARE)
#undef ZML_LEVEL1_DECLARE

}  // namespace zml::blas
