// SPDX-License-Identifier: BSD-3-Clause
// SSE2 packing: width 4 for both operands of the 4x4 kernel; 2 and 6 for the
// 32-bit 2x6 one.
#include "blas/kernels/dgemm_pack_generic.h"
#include "blas/kernels/gemm_kernel.h"

namespace zml::blas::sse2 {

struct Tag {};

void dgemm_pack_4(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  double* dst) {
  dgemm_pack_generic<Tag, 4>(x, ld, rows, k, k_contiguous, dst);
}

void dgemm_pack_2(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  double* dst) {
  dgemm_pack_generic<Tag, 2>(x, ld, rows, k, k_contiguous, dst);
}

void dgemm_pack_6(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  double* dst) {
  dgemm_pack_generic<Tag, 6>(x, ld, rows, k, k_contiguous, dst);
}

}  // namespace zml::blas::sse2
