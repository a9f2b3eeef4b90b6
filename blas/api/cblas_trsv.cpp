// SPDX-License-Identifier: BSD-3-Clause
// cblas_dtrsv, cblas_ztrsv: checks, then the column-major entry; a row-major
// call solves with the transposed matrix, so uplo and the transpose reverse.
#include "blas/api/cblas_layer.h"
#include "blas/blas.h"
#include "zml_cblas.h"

extern "C" {

void cblas_dtrsv(const CBLAS_LAYOUT Layout, const CBLAS_UPLO Uplo, const CBLAS_TRANSPOSE TransA,
                 const CBLAS_DIAG Diag, const int N, const double* A, const int lda, double* X,
                 const int incX) {
  using namespace zml::blas::cblas;
  if (const int32_t p = check_trsv(Layout, Uplo, TransA, Diag, N, lda, incX)) {
    cblas_xerbla("cblas_dtrsv", p);
    return;
  }
  const bool col = Layout == kColMajor;
  const char* uplo = col ? kUploDirect[Uplo - kUpper] : kUploReversed[Uplo - kUpper];
  const char* trans = col ? kTransDirect[TransA - kNoTrans] : kTransReversed[TransA - kNoTrans];
  zml::blas::dtrsv(uplo, trans, kDiagDirect[Diag - kNonUnit], &N, A, &lda, X, &incX);
}

void cblas_ztrsv(const CBLAS_LAYOUT Layout, const CBLAS_UPLO Uplo, const CBLAS_TRANSPOSE TransA,
                 const CBLAS_DIAG Diag, const int N, const void* A, const int lda, void* X,
                 const int incX) {
  using namespace zml::blas::cblas;
  using zml::blas::zcomplex;
  if (const int32_t p = check_trsv(Layout, Uplo, TransA, Diag, N, lda, incX)) {
    cblas_xerbla("cblas_ztrsv", p);
    return;
  }
  const auto* a = static_cast<const zcomplex*>(A);
  auto* x = static_cast<zcomplex*>(X);
  const char* diag = kDiagDirect[Diag - kNonUnit];
  if (Layout == kColMajor) {
    zml::blas::ztrsv(kUploDirect[Uplo - kUpper], kTransDirect[TransA - kNoTrans], diag, &N, a, &lda,
                     x, &incX);
    return;
  }
  const char* uplo = kUploReversed[Uplo - kUpper];
  if (TransA != kConjTrans) {
    zml::blas::ztrsv(uplo, kTransReversed[TransA - kNoTrans], diag, &N, a, &lda, x, &incX);
    return;
  }
  // Row-major A^H x = b is conj(B) x = b on the column-major view B = A^T,
  // that is B conj(x) = conj(b): an "N" solve between two in-place
  // conjugations of x.
  double* xd = static_cast<double*>(X);
  conjugate(N, xd, incX);
  zml::blas::ztrsv(uplo, "N", diag, &N, a, &lda, x, &incX);
  conjugate(N, xd, incX);
}

}  // extern "C"
