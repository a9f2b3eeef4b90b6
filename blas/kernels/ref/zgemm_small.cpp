// SPDX-License-Identifier: BSD-3-Clause
// Reference small-matrix zgemm, plain C++: one dot product per element of C.
#include "blas/kernels/zgemm_kernel.h"

namespace zml::blas::ref {

void zgemm_small(int64_t m, int64_t n, int64_t k, const double* alpha, const double* a, int64_t lda,
                 const double* b, int64_t rsb, int64_t csb, bool conj_b, const double* beta,
                 double* c, int64_t ldc) {
  const bool bz = beta[0] == 0.0 && beta[1] == 0.0;
  const double sgn = conj_b ? -1.0 : 1.0;
  for (int64_t j = 0; j < n; ++j) {
    for (int64_t i = 0; i < m; ++i) {
      double pr = 0.0, pi = 0.0;
      for (int64_t p = 0; p < k; ++p) {
        const double* ap = a + 2 * (i + p * lda);
        const double* bp = b + 2 * (p * rsb + j * csb);
        const double br = bp[0], bi = sgn * bp[1];
        pr += ap[0] * br - ap[1] * bi;
        pi += ap[0] * bi + ap[1] * br;
      }
      double vr = alpha[0] * pr - alpha[1] * pi;
      double vi = alpha[0] * pi + alpha[1] * pr;
      double* cij = c + 2 * (i + j * ldc);
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
