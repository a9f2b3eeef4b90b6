// SPDX-License-Identifier: BSD-3-Clause
// The vector-math threaders: run a kernel over [0, n) in the calling thread,
// or split it between the threads of the vector-math domain when the cost
// model says that pays. One template serves the three argument shapes.
#pragma once

#include <cstdint>

#include "vml/kernels/vml_kernel.h"

namespace zml::vml {

// The per-element threading factor F of the cost model for a machine of P
// logical processors in groups of G1 (sharing a core) inside groups of G2
// (sharing a package); 0 for one processor.
float cost_factor(int32_t g1, int32_t g2, int32_t p);
// The threads a call of n elements at `cost` each gets from `count`.
int32_t model_threads(int32_t count, int32_t n, float cost);

}  // namespace zml::vml

// The three shapes, named as the library's threaders are; the trailing
// argument is reserved and passed as 0.
void zml_vml_serv_threader_d_1i_1o(zml::vml::unary_fn kernel, float cost, int32_t n,
                                   const double* a, double* y, int32_t reserved);
void zml_vml_serv_threader_d_2i_1o(zml::vml::binary_fn kernel, float cost, int32_t n,
                                   const double* a, const double* b, double* y, int32_t reserved);
void zml_vml_serv_threader_d_cd_2i_d_1o(zml::vml::scalar_fn kernel, float cost, int32_t n,
                                        const double* a, double b, double* y, int32_t reserved);
