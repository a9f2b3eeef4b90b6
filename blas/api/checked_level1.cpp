// SPDX-License-Identifier: BSD-3-Clause
// Entries of the scalings: no argument can be wrong (n <= 0 does nothing), so
// they install no parameter-error routine; they only trace in verbose mode.
#include "blas/blas.h"
#include "service/entry.h"

namespace zml::blas {

namespace {
serv::EntryWord g_scal_word{serv::EntryWord::kNoChecks};
}  // namespace

void dscal(const int32_t* n, const double* alpha, double* x, const int32_t* incx) {
  serv::checked_entry(
      g_scal_word, serv::kDomainBlas, "DSCAL ", 0,
      [](uint64_t, auto... args) { zml_blas_dscal(args...); },
      [](char* buf, size_t size, const int32_t* n_, const double* al, double* x_,
         const int32_t* incx_) {
        serv::format_call(buf, size, "DSCAL(%d,%p,%p,%d)", *n_, static_cast<const void*>(al),
                          static_cast<void*>(x_), *incx_);
      },
      n, alpha, x, incx);
}

void zscal(const int32_t* n, const zcomplex* alpha, zcomplex* x, const int32_t* incx) {
  serv::checked_entry(
      g_scal_word, serv::kDomainBlas, "ZSCAL ", 0,
      [](uint64_t, auto... args) { zml_blas_zscal(args...); },
      [](char* buf, size_t size, const int32_t* n_, const zcomplex* al, zcomplex* x_,
         const int32_t* incx_) {
        serv::format_call(buf, size, "ZSCAL(%d,%p,%p,%d)", *n_, static_cast<const void*>(al),
                          static_cast<void*>(x_), *incx_);
      },
      n, alpha, x, incx);
}

}  // namespace zml::blas
