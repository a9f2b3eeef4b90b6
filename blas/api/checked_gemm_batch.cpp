// SPDX-License-Identifier: BSD-3-Clause
// Checked entries of the batched multiplies (bodies in gemm_batch_entry.h,
// which the CBLAS layer runs too).
#include "blas/api/gemm_batch_entry.h"

namespace zml::blas {

void dgemm_batch(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
                 const int32_t* k, const double* alpha, const double* const* a, const int32_t* lda,
                 const double* const* b, const int32_t* ldb, const double* beta, double* const* c,
                 const int32_t* ldc, const int32_t* group_count, const int32_t* group_size,
                 hidden_len, hidden_len) {
  entry::gemm_batch(
      BatchKind::kReal, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, group_count,
      group_size,
      entry::check_gemm_batch(transa, transb, m, n, k, lda, ldb, ldc, *group_count, group_size));
}

void zgemm_batch(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
                 const int32_t* k, const zcomplex* alpha, const zcomplex* const* a,
                 const int32_t* lda, const zcomplex* const* b, const int32_t* ldb,
                 const zcomplex* beta, zcomplex* const* c, const int32_t* ldc,
                 const int32_t* group_count, const int32_t* group_size, hidden_len, hidden_len) {
  entry::gemm_batch(
      BatchKind::kComplex, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc,
      group_count, group_size,
      entry::check_gemm_batch(transa, transb, m, n, k, lda, ldb, ldc, *group_count, group_size));
}

void zgemm3m_batch(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
                   const int32_t* k, const zcomplex* alpha, const zcomplex* const* a,
                   const int32_t* lda, const zcomplex* const* b, const int32_t* ldb,
                   const zcomplex* beta, zcomplex* const* c, const int32_t* ldc,
                   const int32_t* group_count, const int32_t* group_size, hidden_len, hidden_len) {
  entry::gemm_batch(
      BatchKind::kComplex3m, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc,
      group_count, group_size,
      entry::check_gemm_batch(transa, transb, m, n, k, lda, ldb, ldc, *group_count, group_size));
}

}  // namespace zml::blas
