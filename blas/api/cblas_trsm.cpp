// SPDX-License-Identifier: BSD-3-Clause
// cblas_dtrsm, cblas_ztrsm: checks in the layer's order, then the
// column-major entry. A row-major B is the column-major B^T, and
// op(A) X = B is X^T op(A)^T = B^T on the column-major view A^T of A, so the
// side and uplo reverse, m and n exchange and the transpose letter stays.
#include "blas/api/cblas_layer.h"
#include "blas/blas.h"
#include "zml_cblas.h"

namespace {

using namespace zml::blas::cblas;

// The letters of a checked call, by the layout's tables.
struct Letters {
  const char *side, *uplo, *trans, *diag;
  Letters(int32_t layout, int32_t side_, int32_t uplo_, int32_t trans_, int32_t diag_) {
    const bool col = layout == kColMajor;
    side = col ? kSideDirect[side_ - kLeft] : kSideReversed[side_ - kLeft];
    uplo = col ? kUploDirect[uplo_ - kUpper] : kUploReversed[uplo_ - kUpper];
    trans = kTransDirect[trans_ - kNoTrans];
    diag = kDiagDirect[diag_ - kNonUnit];
  }
};

}  // namespace

extern "C" {

void cblas_dtrsm(const CBLAS_LAYOUT Layout, const CBLAS_SIDE Side, const CBLAS_UPLO Uplo,
                 const CBLAS_TRANSPOSE TransA, const CBLAS_DIAG Diag, const int M, const int N,
                 const double alpha, const double* A, const int lda, double* B, const int ldb) {
  if (const int32_t p = check_trsm(Layout, Side, Uplo, TransA, Diag, M, N, lda, ldb)) {
    cblas_xerbla("cblas_dtrsm", p);
    return;
  }
  const Letters l(Layout, Side, Uplo, TransA, Diag);
  const bool col = Layout == kColMajor;
  zml::blas::dtrsm(l.side, l.uplo, l.trans, l.diag, col ? &M : &N, col ? &N : &M, &alpha, A, &lda,
                   B, &ldb);
}

void cblas_ztrsm(const CBLAS_LAYOUT Layout, const CBLAS_SIDE Side, const CBLAS_UPLO Uplo,
                 const CBLAS_TRANSPOSE TransA, const CBLAS_DIAG Diag, const int M, const int N,
                 const void* alpha, const void* A, const int lda, void* B, const int ldb) {
  using zml::blas::zcomplex;
  if (const int32_t p = check_trsm(Layout, Side, Uplo, TransA, Diag, M, N, lda, ldb)) {
    cblas_xerbla("cblas_ztrsm", p);
    return;
  }
  const Letters l(Layout, Side, Uplo, TransA, Diag);
  const bool col = Layout == kColMajor;
  zml::blas::ztrsm(l.side, l.uplo, l.trans, l.diag, col ? &M : &N, col ? &N : &M,
                   static_cast<const zcomplex*>(alpha), static_cast<const zcomplex*>(A), &lda,
                   static_cast<zcomplex*>(B), &ldb);
}

}  // extern "C"
