// SPDX-License-Identifier: BSD-3-Clause
// Single-thread zgemm: quick returns, then the small path or the blocked
// multiply (nc -> kc -> mc -> micro-tiles) around the code path's complex
// kernels. Conjugation is folded into packing.
#include "blas/driver/zgemm_serial.h"

#include "blas/blas.h"
#include "blas/driver/gemm_blocked.h"

namespace zml::blas {

using gemm_blocked::ComplexElem;

const zgemm_variant& zgemm_active_variant() { return kZgemmTable.get(); }

void zgemm_scale_c(int64_t m, int64_t n, const double* beta, double* c, int64_t ldc) {
  const double br = beta[0], bi = beta[1];
  if (br == 1.0 && bi == 0.0) return;
  const bool zero = br == 0.0 && bi == 0.0;
  for (int64_t j = 0; j < n; ++j) {
    double* cj = c + 2 * j * ldc;
    for (int64_t i = 0; i < 2 * m; i += 2) {
      if (zero) {
        cj[i] = cj[i + 1] = 0.0;
      } else {
        const double cr = cj[i], ci = cj[i + 1];
        cj[i] = br * cr - bi * ci;
        cj[i + 1] = br * ci + bi * cr;
      }
    }
  }
}

void zgemm_blocked(const zgemm_variant& row, int32_t ta, int32_t tb, int64_t m, int64_t n,
                   int64_t k, const double* alpha, const double* a, int64_t lda, const double* b,
                   int64_t ldb, const double* beta, double* c, int64_t ldc) {
  gemm_blocked::run<ComplexElem>(row, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

void zgemm_small(const zgemm_variant& row, int32_t ta, int32_t tb, int64_t m, int64_t n, int64_t k,
                 const double* alpha, const double* a, int64_t lda, const double* b, int64_t ldb,
                 const double* beta, double* c, int64_t ldc) {
  // op(B)(p, j) is b[p + j*ldb] untransposed and b[j + p*ldb] otherwise; the
  // small kernels read B through both strides and conjugate on the fly.
  const int64_t rsb = tb != 0 ? ldb : 1;
  const int64_t csb = tb != 0 ? 1 : ldb;
  if (ta == 0) {
    row.small(m, n, k, alpha, a, lda, b, rsb, csb, tb == 2, beta, c, ldc);
    return;
  }
  // The kernels load columns of A as vectors: transpose (and conjugate) A once
  // into a column-major copy of at most 16 x 16 complex numbers on the stack.
  double at[2 * kZgemmSmallMax * kZgemmSmallMax];
  const double s = ta == 2 ? -1.0 : 1.0;
  for (int64_t i = 0; i < m; ++i) {
    const double* src = a + 2 * i * lda;
    for (int64_t p = 0; p < k; ++p) {
      at[2 * (i + p * m)] = src[2 * p];
      at[2 * (i + p * m) + 1] = s * src[2 * p + 1];
    }
  }
  row.small(m, n, k, alpha, at, m, b, rsb, csb, tb == 2, beta, c, ldc);
}

void zgemm_serial_row(const zgemm_variant& row, int32_t ta, int32_t tb, int64_t m, int64_t n,
                      int64_t k, const double* alpha, const double* a, int64_t lda, const double* b,
                      int64_t ldb, const double* beta, double* c, int64_t ldc) {
  if (m <= 0 || n <= 0) return;
  if (k <= 0 || (alpha[0] == 0.0 && alpha[1] == 0.0)) {
    zgemm_scale_c(m, n, beta, c, ldc);
    return;
  }
  const int64_t small_max = row.small_max < kZgemmSmallMax ? row.small_max : kZgemmSmallMax;
  if (m <= small_max && n <= small_max && k <= small_max) {
    zgemm_small(row, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    return;
  }
  zgemm_blocked(row, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

void zml_blas_zgemm_serial(const char* transa, const char* transb, const int32_t* m,
                           const int32_t* n, const int32_t* k, const zcomplex* alpha,
                           const zcomplex* a, const int32_t* lda, const zcomplex* b,
                           const int32_t* ldb, const zcomplex* beta, zcomplex* c,
                           const int32_t* ldc) {
  if (*m <= 0 || *n <= 0) return;
  // std::complex<double> is layout-compatible with double[2] (real first).
  const double al[2] = {alpha->real(), alpha->imag()};
  const double be[2] = {beta->real(), beta->imag()};
  zgemm_serial_row(zgemm_active_variant(), trans_code(transa), trans_code(transb), *m, *n, *k, al,
                   reinterpret_cast<const double*>(a), *lda, reinterpret_cast<const double*>(b),
                   *ldb, be, reinterpret_cast<double*>(c), *ldc);
}

}  // namespace zml::blas
