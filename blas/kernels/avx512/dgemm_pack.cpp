// SPDX-License-Identifier: BSD-3-Clause
// AVX-512 packing for the 24x8 kernel: A panels of width 24, B panels of width 8.
#include "blas/kernels/avx512/dgemm_pack_panels.h"
#include "blas/kernels/gemm_kernel.h"

namespace zml::blas::avx512 {

void dgemm_pack_24(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                   double* dst) {
  dgemm_pack_panels<24>(x, ld, rows, k, k_contiguous, dst);
}

void dgemm_pack_8(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  double* dst) {
  dgemm_pack_panels<8>(x, ld, rows, k, k_contiguous, dst);
}

}  // namespace zml::blas::avx512
