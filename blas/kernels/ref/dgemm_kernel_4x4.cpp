// SPDX-License-Identifier: BSD-3-Clause
// Reference dgemm micro-kernel in plain C++: the oracle every vector kernel is
// tested against, and the row of last resort.
#include "blas/kernels/gemm_kernel.h"

namespace zml::blas::ref {

void dgemm_kernel_4x4(int64_t m, int64_t n, int64_t k, double alpha, const double* a,
                      const double* b, double beta, double* c, int64_t ldc) {
  constexpr int kMr = 4, kNr = 4;
  double acc[kMr * kNr] = {};
  for (int64_t p = 0; p < k; ++p) {
    for (int j = 0; j < kNr; ++j) {
      for (int i = 0; i < kMr; ++i) acc[i + j * kMr] += a[p * kMr + i] * b[p * kNr + j];
    }
  }
  for (int64_t j = 0; j < n; ++j) {
    for (int64_t i = 0; i < m; ++i) {
      double& cij = c[i + j * ldc];
      // beta == 0 overwrites without reading C.
      cij = beta == 0.0 ? alpha * acc[i + j * kMr] : alpha * acc[i + j * kMr] + beta * cij;
    }
  }
}

}  // namespace zml::blas::ref
