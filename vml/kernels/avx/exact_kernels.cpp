// SPDX-License-Identifier: BSD-3-Clause
// The correctly rounded functions for the avx folder: the shared algorithms at
// this folder's width.
#include "service/simd/avx/vec_ops.h"
#include "vml/kernels/exact_algo.h"

namespace zml::vml::avx {

ZML_VML_EXACT_KERNELS(simd::avx::Ops)

}  // namespace zml::vml::avx
