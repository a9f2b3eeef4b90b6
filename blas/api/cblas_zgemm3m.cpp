// SPDX-License-Identifier: BSD-3-Clause
// cblas_zgemm3m: cblas_zgemm's checks and row-major mapping, then the 3M entry.
#include "blas/api/cblas_layer.h"
#include "blas/api/zgemm3m_entry.h"
#include "zml_cblas.h"

extern "C" {

void cblas_zgemm3m(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE TransA,
                   const CBLAS_TRANSPOSE TransB, const int M, const int N, const int K,
                   const void* alpha, const void* A, const int lda, const void* B, const int ldb,
                   const void* beta, void* C, const int ldc) {
  using namespace zml::blas::cblas;
  using zml::blas::zcomplex;
  if (const int32_t p = check_gemm(Layout, TransA, TransB, M, N, K, lda, ldb, ldc)) {
    cblas_xerbla("cblas_zgemm3m", p);
    return;
  }
  const char* ta = kTransDirect[TransA - kNoTrans];
  const char* tb = kTransDirect[TransB - kNoTrans];
  const auto* al = static_cast<const zcomplex*>(alpha);
  const auto* be = static_cast<const zcomplex*>(beta);
  const auto* a = static_cast<const zcomplex*>(A);
  const auto* b = static_cast<const zcomplex*>(B);
  auto* c = static_cast<zcomplex*>(C);
  if (Layout == kColMajor) {
    zml::blas::entry::zgemm3m(ta, tb, &M, &N, &K, al, a, &lda, b, &ldb, be, c, &ldc, 0);
  } else {
    zml::blas::entry::zgemm3m(tb, ta, &N, &M, &K, al, b, &ldb, a, &lda, be, c, &ldc, 0);
  }
}

}  // extern "C"
