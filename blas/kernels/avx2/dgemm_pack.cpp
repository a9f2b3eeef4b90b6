// SPDX-License-Identifier: BSD-3-Clause
// AVX2 packing: A panels of 8 and B panels of 6 for the 8x6 kernel; the 32-bit
// 4x6 kernel takes 4 and 6.
#include "blas/kernels/dgemm_pack_generic.h"
#include "blas/kernels/gemm_kernel.h"

namespace zml::blas::avx2 {

struct Tag {};

void dgemm_pack_8(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  double* dst) {
  dgemm_pack_generic<Tag, 8>(x, ld, rows, k, k_contiguous, dst);
}

void dgemm_pack_6(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  double* dst) {
  dgemm_pack_generic<Tag, 6>(x, ld, rows, k, k_contiguous, dst);
}

void dgemm_pack_4(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  double* dst) {
  dgemm_pack_generic<Tag, 4>(x, ld, rows, k, k_contiguous, dst);
}

}  // namespace zml::blas::avx2
