// SPDX-License-Identifier: BSD-3-Clause
// AVX-512 zgemm packing: panels of 8 and 6 for the 64-bit tile, 4 and 3 for
// the 32-bit one.
#include "blas/kernels/avx512/zgemm_pack_panels.h"
#include "blas/kernels/zgemm_kernel.h"

namespace zml::blas::avx512 {

void zgemm_pack_8(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  bool conj, double* dst) {
  zgemm_pack_panels<8>(x, ld, rows, k, k_contiguous, conj, dst);
}

void zgemm_pack_6(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  bool conj, double* dst) {
  zgemm_pack_panels<6>(x, ld, rows, k, k_contiguous, conj, dst);
}

void zgemm_pack_4(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  bool conj, double* dst) {
  zgemm_pack_panels<4>(x, ld, rows, k, k_contiguous, conj, dst);
}

void zgemm_pack_3(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  bool conj, double* dst) {
  zgemm_pack_panels<3>(x, ld, rows, k, k_contiguous, conj, dst);
}

}  // namespace zml::blas::avx512
