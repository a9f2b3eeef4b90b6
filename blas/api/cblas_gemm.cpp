// SPDX-License-Identifier: BSD-3-Clause
// cblas_dgemm, cblas_zgemm, cblas_zgemm3m: checks in the layer's order, then
// the column-major entry, which has nothing left to check; a row-major call
// computes C^T = op(B)^T op(A)^T, so the operands, their dimensions and their
// transpose letters exchange.
#include "blas/api/cblas_layer.h"
#include "blas/api/checked_entry.h"
#include "blas/api/zgemm3m_entry.h"
#include "blas/blas.h"
#include "zml_cblas.h"

namespace {

using zml::blas::zcomplex;

template <class T, class Entry>
void gemm_layer(const char* name, Entry entry, CBLAS_LAYOUT Layout, CBLAS_TRANSPOSE TransA,
                CBLAS_TRANSPOSE TransB, int M, int N, int K, const T* alpha, const T* A, int lda,
                const T* B, int ldb, const T* beta, T* C, int ldc) {
  using namespace zml::blas::cblas;
  if (const int32_t p = check_gemm(Layout, TransA, TransB, M, N, K, lda, ldb, ldc)) {
    cblas_xerbla(name, p);
    return;
  }
  const char* ta = kTransDirect[TransA - kNoTrans];
  const char* tb = kTransDirect[TransB - kNoTrans];
  if (Layout == kColMajor) {
    entry(ta, tb, &M, &N, &K, alpha, A, &lda, B, &ldb, beta, C, &ldc);
  } else {
    entry(tb, ta, &N, &M, &K, alpha, B, &ldb, A, &lda, beta, C, &ldc);
  }
}

// The complex exports take untyped pointers.
template <class Entry>
void zgemm_layer(const char* name, Entry entry, CBLAS_LAYOUT Layout, CBLAS_TRANSPOSE TransA,
                 CBLAS_TRANSPOSE TransB, int M, int N, int K, const void* alpha, const void* A,
                 int lda, const void* B, int ldb, const void* beta, void* C, int ldc) {
  gemm_layer<zcomplex>(name, entry, Layout, TransA, TransB, M, N, K,
                       static_cast<const zcomplex*>(alpha), static_cast<const zcomplex*>(A), lda,
                       static_cast<const zcomplex*>(B), ldb, static_cast<const zcomplex*>(beta),
                       static_cast<zcomplex*>(C), ldc);
}

template <class T>
void gemm_entry(const char* ta, const char* tb, const int32_t* m, const int32_t* n,
                const int32_t* k, const T* alpha, const T* a, const int32_t* lda, const T* b,
                const int32_t* ldb, const T* beta, T* c, const int32_t* ldc) {
  zml::blas::entry::gemm(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, 0);
}

void zgemm3m_entry(const char* ta, const char* tb, const int32_t* m, const int32_t* n,
                   const int32_t* k, const zcomplex* alpha, const zcomplex* a, const int32_t* lda,
                   const zcomplex* b, const int32_t* ldb, const zcomplex* beta, zcomplex* c,
                   const int32_t* ldc) {
  zml::blas::entry::zgemm3m(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, 0);
}

}  // namespace

extern "C" {

void cblas_dgemm(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE TransA,
                 const CBLAS_TRANSPOSE TransB, const int M, const int N, const int K,
                 const double alpha, const double* A, const int lda, const double* B, const int ldb,
                 const double beta, double* C, const int ldc) {
  gemm_layer<double>("cblas_dgemm", gemm_entry<double>, Layout, TransA, TransB, M, N, K, &alpha, A,
                     lda, B, ldb, &beta, C, ldc);
}

void cblas_zgemm(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE TransA,
                 const CBLAS_TRANSPOSE TransB, const int M, const int N, const int K,
                 const void* alpha, const void* A, const int lda, const void* B, const int ldb,
                 const void* beta, void* C, const int ldc) {
  zgemm_layer("cblas_zgemm", gemm_entry<zcomplex>, Layout, TransA, TransB, M, N, K, alpha, A, lda,
              B, ldb, beta, C, ldc);
}

void cblas_zgemm3m(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE TransA,
                   const CBLAS_TRANSPOSE TransB, const int M, const int N, const int K,
                   const void* alpha, const void* A, const int lda, const void* B, const int ldb,
                   const void* beta, void* C, const int ldc) {
  zgemm_layer("cblas_zgemm3m", zgemm3m_entry, Layout, TransA, TransB, M, N, K, alpha, A, lda, B,
              ldb, beta, C, ldc);
}

}  // extern "C"
