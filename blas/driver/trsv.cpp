// SPDX-License-Identifier: BSD-3-Clause
// The triangular-solve drivers: never threaded. A strided x is solved in a
// contiguous copy from the memory manager, since the blocked solve revisits
// every element.
#include <cstring>

#include "blas/driver/level2_driver.h"
#include "blas/kernels/level2_kernel.h"
#include "service/service.h"
#include "service/stride.h"

namespace zml::blas {

namespace {

int32_t uplo_upper(const char* uplo) { return (uplo[0] & ~0x20) == 'U'; }
int32_t diag_unit(const char* diag) { return (diag[0] & ~0x20) == 'U'; }

// Runs solve(x_contiguous) on x of n elements (W doubles each) with increment
// inc, through a 128-byte aligned copy when inc is not 1.
template <int W, class Solve>
void with_contiguous(int32_t n, double* x, int32_t inc, const char* name, Solve&& solve) {
  if (inc == 1) {
    solve(x);
    return;
  }
  auto* tmp = static_cast<double*>(serv::aligned_alloc(sizeof(double) * W * n, 128));
  if (!tmp) {
    zml_serv_report_memory(0, name);
    return;
  }
  for (int64_t i = 0; i < n; ++i) {
    std::memcpy(tmp + W * i, x + W * serv::element_offset(n, inc, i), W * 8);
  }
  solve(tmp);
  for (int64_t i = 0; i < n; ++i) {
    std::memcpy(x + W * serv::element_offset(n, inc, i), tmp + W * i, W * 8);
  }
  serv::aligned_free(tmp);
}

}  // namespace

void zml_blas_dtrsv_serial(const char* uplo, const char* trans, const char* diag, const int32_t* n,
                           const double* a, const int32_t* lda, double* x, const int32_t* incx,
                           hidden_len, hidden_len, hidden_len) {
  const dtrsv_variant& row = kDtrsvTable.get();
  with_contiguous<1>(*n, x, *incx, "DTRSV", [&](double* xc) {
    row.kernel(uplo_upper(uplo), trans_code(trans), diag_unit(diag), *n, a, *lda, xc, row.nb,
               row.tune);
  });
}

void zml_blas_ztrsv_serial(const char* uplo, const char* trans, const char* diag, const int32_t* n,
                           const zcomplex* a, const int32_t* lda, zcomplex* x, const int32_t* incx,
                           hidden_len, hidden_len, hidden_len) {
  const ztrsv_variant& row = kZtrsvTable.get();
  with_contiguous<2>(*n, reinterpret_cast<double*>(x), *incx, "ZTRSV", [&](double* xc) {
    row.kernel(uplo_upper(uplo), trans_code(trans), diag_unit(diag), *n,
               reinterpret_cast<const double*>(a), *lda, xc, row.nb, row.tune);
  });
}

void zml_blas_dtrsv(const char* uplo, const char* trans, const char* diag, const int32_t* n,
                    const double* a, const int32_t* lda, double* x, const int32_t* incx) {
  if (*n <= 0) return;
  zml_blas_dtrsv_serial(uplo, trans, diag, n, a, lda, x, incx, 1, 1, 1);
}

void zml_blas_ztrsv(const char* uplo, const char* trans, const char* diag, const int32_t* n,
                    const zcomplex* a, const int32_t* lda, zcomplex* x, const int32_t* incx) {
  if (*n <= 0) return;
  zml_blas_ztrsv_serial(uplo, trans, diag, n, a, lda, x, incx, 1, 1, 1);
}

}  // namespace zml::blas
