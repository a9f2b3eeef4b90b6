// SPDX-License-Identifier: BSD-3-Clause
// Checked entry of zgemm3m: zgemm's checks under its own name, then the 3M
// driver. The CBLAS layer runs the same body with its own checks done.
#include "blas/api/checked_entry.h"
#include "blas/api/zgemm3m_entry.h"

namespace zml::blas {

void zgemm3m(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
             const int32_t* k, const zcomplex* alpha, const zcomplex* a, const int32_t* lda,
             const zcomplex* b, const int32_t* ldb, const zcomplex* beta, zcomplex* c,
             const int32_t* ldc, hidden_len, hidden_len) {
  entry::zgemm3m(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc,
                 entry::check_gemm(transa, transb, *m, *n, *k, *lda, *ldb, *ldc));
}

}  // namespace zml::blas
