// SPDX-License-Identifier: BSD-3-Clause
// Reference zgemm packing for the 4x2 kernel (A panels of 4, B panels of 2).
#include "blas/kernels/zgemm_kernel.h"
#include "blas/kernels/zgemm_pack_generic.h"

namespace zml::blas::ref {

struct ZTag {};

void zgemm_pack_4(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  bool conj, double* dst) {
  zgemm_pack_generic<ZTag, 4>(x, ld, rows, k, k_contiguous, conj, dst);
}

void zgemm_pack_2(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                  bool conj, double* dst) {
  zgemm_pack_generic<ZTag, 2>(x, ld, rows, k, k_contiguous, conj, dst);
}

}  // namespace zml::blas::ref
