// SPDX-License-Identifier: BSD-3-Clause
// Reference zgemm micro-kernel, 4x2 complex tile, plain C++: the oracle the
// vector kernels are tested against, and a row any processor can run.
#include "blas/kernels/zgemm_kernel.h"

namespace zml::blas::ref {

void zgemm_kernel_4x2(int64_t m, int64_t n, int64_t k, const double* alpha, const double* a,
                      const double* b, const double* beta, double* c, int64_t ldc) {
  constexpr int kMr = 4, kNr = 2;
  double re[kMr * kNr] = {}, im[kMr * kNr] = {};
  for (int64_t p = 0; p < k; ++p) {
    const double* ap = a + 2 * kMr * p;
    const double* bp = b + 2 * kNr * p;
    for (int j = 0; j < kNr; ++j) {
      for (int i = 0; i < kMr; ++i) {
        re[i + j * kMr] += ap[2 * i] * bp[2 * j] - ap[2 * i + 1] * bp[2 * j + 1];
        im[i + j * kMr] += ap[2 * i] * bp[2 * j + 1] + ap[2 * i + 1] * bp[2 * j];
      }
    }
  }
  const bool bz = beta[0] == 0.0 && beta[1] == 0.0;
  for (int64_t j = 0; j < n; ++j) {
    for (int64_t i = 0; i < m; ++i) {
      const double pr = re[i + j * kMr], pi = im[i + j * kMr];
      double vr = alpha[0] * pr - alpha[1] * pi;
      double vi = alpha[0] * pi + alpha[1] * pr;
      double* cij = c + 2 * (i + j * ldc);
      // beta == 0 never reads C, so NaN there cannot leak.
      if (!bz) {
        vr += beta[0] * cij[0] - beta[1] * cij[1];
        vi += beta[0] * cij[1] + beta[1] * cij[0];
      }
      cij[0] = vr;
      cij[1] = vi;
    }
  }
}

}  // namespace zml::blas::ref
