// SPDX-License-Identifier: BSD-3-Clause
// SSE2 zgemm packing: width 2 for the 64-bit tile, 1 and 3 for the 32-bit one.
#include "blas/kernels/zgemm_kernel.h"
#include "blas/kernels/zgemm_pack_generic.h"

namespace zml::blas::sse2 {

struct ZTag {};

void zgemm_pack_2(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  bool conj, double* dst) {
  zgemm_pack_generic<ZTag, 2>(x, ld, rows, k, k_contiguous, conj, dst);
}

void zgemm_pack_1(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  bool conj, double* dst) {
  zgemm_pack_generic<ZTag, 1>(x, ld, rows, k, k_contiguous, conj, dst);
}

void zgemm_pack_3(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  bool conj, double* dst) {
  zgemm_pack_generic<ZTag, 3>(x, ld, rows, k, k_contiguous, conj, dst);
}

}  // namespace zml::blas::sse2
