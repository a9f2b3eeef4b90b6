// SPDX-License-Identifier: BSD-3-Clause
// The logarithms for the sse2 folder: the element-wise algorithm, which meets
// the high-accuracy bound and so serves all three classes.
#include "service/simd/sse2/vec_ops.h"
#include "vml/kernels/log_algo.h"

namespace zml::vml::sse2 {

using simd::sse2::Ops;
void ln_ha(int32_t n, const double* a, double* y) { algo::log_loop<Ops, false>(n, a, y); }
void ln_la(int32_t n, const double* a, double* y) { ln_ha(n, a, y); }
void ln_ep(int32_t n, const double* a, double* y) { ln_ha(n, a, y); }
void log10_ha(int32_t n, const double* a, double* y) { algo::log_loop<Ops, true>(n, a, y); }
void log10_la(int32_t n, const double* a, double* y) { log10_ha(n, a, y); }
void log10_ep(int32_t n, const double* a, double* y) { log10_ha(n, a, y); }

}  // namespace zml::vml::sse2
