// SPDX-License-Identifier: BSD-3-Clause
// cblas_dgemv, cblas_zgemv: checks, then the column-major entry; a row-major
// call is the transposed column-major one with m and n exchanged.
#include "blas/api/cblas_layer.h"
#include "blas/blas.h"
#include "service/service.h"
#include "service/stride.h"
#include "zml_cblas.h"

namespace zml::blas::cblas {
namespace {

// Row-major y := alpha*A^H*x + beta*y is, on the column-major view B = A^T
// (m' = n rows, n' = m columns), y := alpha*conj(B)*x + beta*y. Conjugating
// both sides gives conj(y) := conj(alpha)*B*conj(x) + conj(beta)*conj(y): a
// plain "N" product on a conjugated copy of x, with y conjugated in place
// before and after (y is the caller's output, so that is allowed).
void zgemv_row_conj(int32_t m, int32_t n, const zcomplex* alpha, const zcomplex* a, int32_t lda,
                    const zcomplex* x, int32_t incx, const zcomplex* beta, zcomplex* y,
                    int32_t incy) {
  const int32_t rows = n, cols = m;
  if (rows == 0 || cols == 0) {
    zgemv("N", &rows, &cols, alpha, a, &lda, x, &incx, beta, y, &incy);
    return;
  }
  auto* xc = static_cast<zcomplex*>(serv::aligned_alloc(sizeof(zcomplex) * cols, 128));
  if (!xc) {
    zml_serv_report_memory(0, "cblas_zgemv");
    return;
  }
  for (int64_t i = 0; i < cols; ++i) xc[i] = std::conj(x[serv::element_offset(cols, incx, i)]);
  const zcomplex calpha = std::conj(*alpha), cbeta = std::conj(*beta);
  const int32_t one = 1;
  double* yd = reinterpret_cast<double*>(y);
  conjugate(rows, yd, incy);
  zgemv("N", &rows, &cols, &calpha, a, &lda, xc, &one, &cbeta, y, &incy);
  conjugate(rows, yd, incy);
  serv::aligned_free(xc);
}

}  // namespace
}  // namespace zml::blas::cblas

extern "C" {

void cblas_dgemv(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE TransA, const int M, const int N,
                 const double alpha, const double* A, const int lda, const double* X,
                 const int incX, const double beta, double* Y, const int incY) {
  using namespace zml::blas::cblas;
  if (const int32_t p = check_gemv(Layout, TransA, M, N, lda, incX, incY)) {
    cblas_xerbla("cblas_dgemv", p);
    return;
  }
  if (Layout == kColMajor) {
    zml::blas::dgemv(kTransDirect[TransA - kNoTrans], &M, &N, &alpha, A, &lda, X, &incX, &beta, Y,
                     &incY);
  } else {
    zml::blas::dgemv(kTransReversed[TransA - kNoTrans], &N, &M, &alpha, A, &lda, X, &incX, &beta, Y,
                     &incY);
  }
}

void cblas_zgemv(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE TransA, const int M, const int N,
                 const void* alpha, const void* A, const int lda, const void* X, const int incX,
                 const void* beta, void* Y, const int incY) {
  using namespace zml::blas::cblas;
  using zml::blas::zcomplex;
  if (const int32_t p = check_gemv(Layout, TransA, M, N, lda, incX, incY)) {
    cblas_xerbla("cblas_zgemv", p);
    return;
  }
  const auto* al = static_cast<const zcomplex*>(alpha);
  const auto* be = static_cast<const zcomplex*>(beta);
  const auto* a = static_cast<const zcomplex*>(A);
  const auto* x = static_cast<const zcomplex*>(X);
  auto* y = static_cast<zcomplex*>(Y);
  if (Layout == kColMajor) {
    zml::blas::zgemv(kTransDirect[TransA - kNoTrans], &M, &N, al, a, &lda, x, &incX, be, y, &incY);
  } else if (TransA == kConjTrans) {
    zgemv_row_conj(M, N, al, a, lda, x, incX, be, y, incY);
  } else {
    zml::blas::zgemv(kTransReversed[TransA - kNoTrans], &N, &M, al, a, &lda, x, &incX, be, y,
                     &incY);
  }
}

}  // extern "C"
