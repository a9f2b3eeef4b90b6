// SPDX-License-Identifier: BSD-3-Clause
// The correctly rounded functions for the avx2 folder: the shared algorithms at
// this folder's width.
#include "service/simd/avx2/vec_ops.h"
#include "vml/kernels/exact_algo.h"

namespace zml::vml::avx2 {

ZML_VML_EXACT_KERNELS(simd::avx2::Ops)

}  // namespace zml::vml::avx2
