// SPDX-License-Identifier: BSD-3-Clause
// Small-matrix dgemm (m, n, k up to the row's small_max): no heap, no threads,
// no packing beyond what a transposed A needs, so a loop of tiny multiplies
// pays little more than the call.
#include "blas/driver/dgemm_serial.h"

namespace zml::blas {

namespace {

// Rows without a direct small kernel: pack both operands on the stack and run
// the micro-kernel over the tiles; 32 lines of padding cover any tile width.
// Kept out of line so its buffers do not join the direct path's frame.
__attribute__((noinline)) void small_packed(const dgemm_variant& row, bool trans_a, bool trans_b,
                                            int64_t m, int64_t n, int64_t k, double alpha,
                                            const double* a, int64_t lda, const double* b,
                                            int64_t ldb, double beta, double* c, int64_t ldc) {
  constexpr int kPacked = 32, kLines = kPacked + 32;
  double pa[kLines * kPacked];
  double pb[kLines * kPacked];
  const int64_t mr = row.mr, nr = row.nr;
  if (m > kPacked || n > kPacked || k > kPacked || mr > 32 || nr > 32) {
    dgemm_blocked(row, trans_a, trans_b, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    return;
  }
  row.pack_a(a, lda, m, k, trans_a, pa);
  row.pack_b(b, ldb, n, k, !trans_b, pb);
  for (int64_t j = 0; j < n; j += nr) {
    for (int64_t i = 0; i < m; i += mr) {
      row.ukernel(m - i < mr ? m - i : mr, n - j < nr ? n - j : nr, k, alpha, pa + i * k,
                  pb + j * k, beta, c + i + j * ldc, ldc);
    }
  }
}

}  // namespace

void dgemm_small(const dgemm_variant& row, bool trans_a, bool trans_b, int64_t m, int64_t n,
                 int64_t k, double alpha, const double* a, int64_t lda, const double* b,
                 int64_t ldb, double beta, double* c, int64_t ldc) {
  if (row.small != nullptr) {
    if (!trans_a) {
      dgemm_small_direct(row, trans_b, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
      return;
    }
    // The kernels load columns of A as vectors: transpose A once into a
    // column-major copy on the stack (bounded, so the frame stays small).
    if (m > kSmallTransposedMax || k > kSmallTransposedMax) {
      dgemm_blocked(row, trans_a, trans_b, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
      return;
    }
    double at[kSmallTransposedMax * kSmallTransposedMax];
    for (int64_t i = 0; i < m; ++i) {
      const double* src = a + i * lda;
      for (int64_t p = 0; p < k; ++p) at[i + p * m] = src[p];
    }
    dgemm_small_direct(row, trans_b, m, n, k, alpha, at, m, b, ldb, beta, c, ldc);
    return;
  }
  small_packed(row, trans_a, trans_b, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

}  // namespace zml::blas
