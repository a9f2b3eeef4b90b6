// SPDX-License-Identifier: BSD-3-Clause
// AVX packing for the 8x4 kernel: A panels of width 8, B panels of width 4.
#include "blas/kernels/dgemm_pack_generic.h"
#include "blas/kernels/gemm_kernel.h"

namespace zml::blas::avx {

struct Tag {};

void dgemm_pack_8(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  double* dst) {
  dgemm_pack_generic<Tag, 8>(x, ld, rows, k, k_contiguous, dst);
}

void dgemm_pack_4(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  double* dst) {
  dgemm_pack_generic<Tag, 4>(x, ld, rows, k, k_contiguous, dst);
}

}  // namespace zml::blas::avx
