// SPDX-License-Identifier: BSD-3-Clause
// The correctly rounded functions for the ref folder: the shared algorithms at
// this folder's width.
#include "service/simd/ref/vec_ops.h"
#include "vml/kernels/exact_algo.h"

namespace zml::vml::ref {

ZML_VML_EXACT_KERNELS(simd::ref::Ops)

}  // namespace zml::vml::ref
