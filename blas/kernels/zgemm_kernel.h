// SPDX-License-Identifier: BSD-3-Clause
// The zgemm kernel interface: micro-kernel, packing and small-matrix entry
// types, the row every code path's complex variant fills in, and the one
// contract all variants implement.
#pragma once

#include <cstdint>

#include "blas/kernels/gemm_kernel.h"
#include "service/dispatch/code_path_table.h"

namespace zml::blas {

// Every zgemm variant implements the gemm contract of gemm_kernel.h (packed
// panel layout and zero padding, edge tiles, the beta == 0 rule), read with
// these differences:
//
// Elements. Complex numbers are two doubles, real part first; every pointer
// is to double, every stride and leading dimension counts complex elements. A
// slice of a width-W micro-panel is 2*W doubles (interleaved re, im), so panel
// q starts at q*2*W*k doubles. alpha and beta point at (re, im) pairs.
//
// Conjugation ('C') is applied while packing: pack(x, ld, rows, k,
// k_contiguous, conj, dst) stores conjugated values when conj is set, so the
// micro-kernel only ever forms plain complex products.
//
// Alignment. The out-of-memory fallback packs into stack arrays and the small
// path reads the caller's arrays: kernels must use unaligned loads and rely on
// no more than 8-byte alignment of any operand.
//
// Small entry. small(m, n, k, alpha, a, lda, b, rsb, csb, conj_b, beta, c, ldc)
// computes C := alpha*A*op(B) + beta*C, B conjugated when conj_b is set, for
// 1 <= m, n, k <= the row's small_max (at most kZgemmSmallMax).
inline constexpr int kZgemmSmallMax = 16;

using zgemm_ukernel_fn = void (*)(int64_t m, int64_t n, int64_t k, const double* alpha,
                                  const double* a, const double* b, const double* beta, double* c,
                                  int64_t ldc);
using zgemm_pack_fn = void (*)(const double* x, int64_t ld, int64_t rows, int64_t k,
                               bool k_contiguous, bool conj, double* dst);
using zgemm_small_fn = void (*)(int64_t m, int64_t n, int64_t k, const double* alpha,
                                const double* a, int64_t lda, const double* b, int64_t rsb,
                                int64_t csb, bool conj_b, const double* beta, double* c,
                                int64_t ldc);

// The row shape is gemm_variant's (sizes in complex elements). small is
// required: the driver sends tiny products there. small_max is at most
// kZgemmSmallMax.
using zgemm_variant = gemm_variant<zgemm_ukernel_fn, zgemm_pack_fn, zgemm_small_fn>;

extern const zml::dispatch::Table<zgemm_variant> kZgemmTable;

}  // namespace zml::blas
