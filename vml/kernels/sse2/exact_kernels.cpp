// SPDX-License-Identifier: BSD-3-Clause
// The correctly rounded functions for the sse2 folder: the shared algorithms at
// this folder's width.
#include "service/simd/sse2/vec_ops.h"
#include "vml/kernels/exact_algo.h"

namespace zml::vml::sse2 {

ZML_VML_EXACT_KERNELS(simd::sse2::Ops)

}  // namespace zml::vml::sse2
