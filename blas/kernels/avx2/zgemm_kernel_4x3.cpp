// SPDX-License-Identifier: BSD-3-Clause
// AVX2 zgemm micro-kernel, 4x3 complex tile (64-bit builds).
#include "blas/kernels/zgemm_kernel.h"
#include "blas/kernels/zgemm_tile_ops.h"
#include "service/simd/avx2/vec_ops.h"

namespace zml::blas::avx2 {

// 4x3: 2 A vectors x 3 columns x 2 sets = 12 accumulators (more than the
// eight chains two 4-cycle FMA pipes need), leaving 4 of the 16 registers for
// A and the two broadcasts.
void zgemm_kernel_4x3(int64_t m, int64_t n, int64_t k, const double* alpha, const double* a,
                      const double* b, const double* beta, double* c, int64_t ldc) {
  zgemm_tile_ops<simd::avx2::Ops, 2, 3, ZgemmPrefetch::kA>(m, n, k, alpha, a, b, beta, c, ldc);
}

}  // namespace zml::blas::avx2
