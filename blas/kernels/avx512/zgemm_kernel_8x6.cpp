// SPDX-License-Identifier: BSD-3-Clause
// AVX-512 zgemm micro-kernel, 8x6 complex tile (64-bit builds).
#include "blas/kernels/zgemm_kernel.h"
#include "blas/kernels/zgemm_tile_ops.h"
#include "service/simd/avx512/vec_ops.h"

namespace zml::blas::avx512 {

namespace {
// Every shape walks the full panels, two A vectors by six B columns per step.
template <int MV, int NR>
void tile(int64_t m, int64_t n, int64_t k, const double* alpha, const double* a, const double* b,
          const double* beta, double* c, int64_t ldc) {
  zgemm_tile_ops<simd::avx512::Ops, MV, NR, ZgemmPrefetch::kAC, 2, 6>(m, n, k, alpha, a, b, beta, c,
                                                                      ldc);
}
}  // namespace

// 8x6: 2 A vectors x 6 columns x 2 sets = 24 accumulators, three times the
// eight independent chains two 4-cycle FMA pipes need, leaving 8 of the 32
// registers for A and the broadcasts. Each k step feeds 24 FMAs from 2
// vector loads and 12 broadcasts. Measured a few per cent faster than 12x4, which
// streams half again as much of A from L2 per FMA.
//
// Edge tiles compute only what they store: half the rows (one vector) and
// two or four columns, where the full tile would multiply the panels' zero
// padding. At n = 17..63 edges are a large part of the product.
void zgemm_kernel_8x6(int64_t m, int64_t n, int64_t k, const double* alpha, const double* a,
                      const double* b, const double* beta, double* c, int64_t ldc) {
  if (m > 4) {
    if (n > 4) {
      tile<2, 6>(m, n, k, alpha, a, b, beta, c, ldc);
    } else if (n > 2) {
      tile<2, 4>(m, n, k, alpha, a, b, beta, c, ldc);
    } else {
      tile<2, 2>(m, n, k, alpha, a, b, beta, c, ldc);
    }
  } else if (n > 4) {
    tile<1, 6>(m, n, k, alpha, a, b, beta, c, ldc);
  } else if (n > 2) {
    tile<1, 4>(m, n, k, alpha, a, b, beta, c, ldc);
  } else {
    tile<1, 2>(m, n, k, alpha, a, b, beta, c, ldc);
  }
}

}  // namespace zml::blas::avx512
