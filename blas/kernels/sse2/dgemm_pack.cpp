// SPDX-License-Identifier: BSD-3-Clause
// SSE2 packing for the 4x4 kernel (both operands use width 4).
#include "blas/kernels/dgemm_pack_generic.h"
#include "blas/kernels/gemm_kernel.h"

namespace zml::blas::sse2 {

struct Tag {};

void dgemm_pack_4(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  double* dst) {
  dgemm_pack_generic<Tag, 4>(x, ld, rows, k, k_contiguous, dst);
}

}  // namespace zml::blas::sse2
