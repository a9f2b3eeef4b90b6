// SPDX-License-Identifier: BSD-3-Clause
// AVX2 zgemm packing: A panels of 4 (64-bit tile) or 2 (32-bit tile), B panels
// of 3.
#include "blas/kernels/zgemm_kernel.h"
#include "blas/kernels/zgemm_pack_generic.h"

namespace zml::blas::avx2 {

struct ZTag {};

void zgemm_pack_4(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  bool conj, double* dst) {
  zgemm_pack_generic<ZTag, 4>(x, ld, rows, k, k_contiguous, conj, dst);
}

void zgemm_pack_2(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  bool conj, double* dst) {
  zgemm_pack_generic<ZTag, 2>(x, ld, rows, k, k_contiguous, conj, dst);
}

void zgemm_pack_3(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  bool conj, double* dst) {
  zgemm_pack_generic<ZTag, 3>(x, ld, rows, k, k_contiguous, conj, dst);
}

}  // namespace zml::blas::avx2
