// SPDX-License-Identifier: BSD-3-Clause
// Checked entries of dgemm and zgemm (bodies in checked_entry.h, which the
// CBLAS layer runs inline too).
#include "blas/api/checked_entry.h"

namespace zml::blas {

void dgemm(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
           const int32_t* k, const double* alpha, const double* a, const int32_t* lda,
           const double* b, const int32_t* ldb, const double* beta, double* c, const int32_t* ldc,
           hidden_len, hidden_len) {
  entry::gemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

void zgemm(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
           const int32_t* k, const zcomplex* alpha, const zcomplex* a, const int32_t* lda,
           const zcomplex* b, const int32_t* ldb, const zcomplex* beta, zcomplex* c,
           const int32_t* ldc, hidden_len, hidden_len) {
  entry::gemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

}  // namespace zml::blas
