// SPDX-License-Identifier: BSD-3-Clause
// The 3M packing and fold, compiled with this folder's flags.
#include "blas/kernels/zgemm3m_kernel.h"

namespace zml::blas::ref {

struct Tag {};
ZML_ZGEMM3M_DEFINE(Tag)

}  // namespace zml::blas::ref
