// SPDX-License-Identifier: BSD-3-Clause
// cblas_dgemm, cblas_zgemm: checks in the layer's order, then the
// column-major entry, which has nothing left to check; a row-major call
// computes C^T = op(B)^T op(A)^T, so the operands, their dimensions and their
// transpose letters exchange.
#include "blas/api/cblas_layer.h"
#include "blas/api/checked_entry.h"
#include "blas/blas.h"
#include "zml_cblas.h"

extern "C" {

void cblas_dgemm(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE TransA,
                 const CBLAS_TRANSPOSE TransB, const int M, const int N, const int K,
                 const double alpha, const double* A, const int lda, const double* B, const int ldb,
                 const double beta, double* C, const int ldc) {
  using namespace zml::blas::cblas;
  if (const int32_t p = check_gemm(Layout, TransA, TransB, M, N, K, lda, ldb, ldc)) {
    cblas_xerbla("cblas_dgemm", p);
    return;
  }
  const char* ta = kTransDirect[TransA - kNoTrans];
  const char* tb = kTransDirect[TransB - kNoTrans];
  if (Layout == kColMajor) {
    zml::blas::entry::gemm(ta, tb, &M, &N, &K, &alpha, A, &lda, B, &ldb, &beta, C, &ldc, 0);
  } else {
    zml::blas::entry::gemm(tb, ta, &N, &M, &K, &alpha, B, &ldb, A, &lda, &beta, C, &ldc, 0);
  }
}

void cblas_zgemm(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE TransA,
                 const CBLAS_TRANSPOSE TransB, const int M, const int N, const int K,
                 const void* alpha, const void* A, const int lda, const void* B, const int ldb,
                 const void* beta, void* C, const int ldc) {
  using namespace zml::blas::cblas;
  using zml::blas::zcomplex;
  if (const int32_t p = check_gemm(Layout, TransA, TransB, M, N, K, lda, ldb, ldc)) {
    cblas_xerbla("cblas_zgemm", p);
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
    zml::blas::entry::gemm(ta, tb, &M, &N, &K, al, a, &lda, b, &ldb, be, c, &ldc, 0);
  } else {
    zml::blas::entry::gemm(tb, ta, &N, &M, &K, al, b, &ldb, a, &lda, be, c, &ldc, 0);
  }
}

}  // extern "C"
