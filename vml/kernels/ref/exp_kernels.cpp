// SPDX-License-Identifier: BSD-3-Clause
// The exponential for the ref folder: the element-wise algorithm, which meets
// the high-accuracy bound and so serves all three classes.
#include "service/simd/ref/vec_ops.h"
#include "vml/kernels/exp_algo.h"

namespace zml::vml::ref {

void exp_ha(int32_t n, const double* a, double* y) { algo::exp_loop<simd::ref::Ops>(n, a, y); }
void exp_la(int32_t n, const double* a, double* y) { exp_ha(n, a, y); }
void exp_ep(int32_t n, const double* a, double* y) { exp_ha(n, a, y); }

}  // namespace zml::vml::ref
