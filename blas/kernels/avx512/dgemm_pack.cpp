// SPDX-License-Identifier: BSD-3-Clause
// AVX-512 packing: A panels of 24 and B panels of 8 for the 24x8 kernel; the
// 32-bit 8x6 kernel takes 8 and 6.
#include "blas/kernels/avx512/dgemm_pack_panels.h"
#include "blas/kernels/dgemm_pack_generic.h"
#include "blas/kernels/gemm_kernel.h"

namespace zml::blas::avx512 {

struct Tag {};

void dgemm_pack_24(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                   double* dst) {
  dgemm_pack_panels<24>(x, ld, rows, k, k_contiguous, dst);
}

void dgemm_pack_8(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  double* dst) {
  dgemm_pack_panels<8>(x, ld, rows, k, k_contiguous, dst);
}

void dgemm_pack_6(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  double* dst) {
  dgemm_pack_generic<Tag, 6>(x, ld, rows, k, k_contiguous, dst);
}

}  // namespace zml::blas::avx512
