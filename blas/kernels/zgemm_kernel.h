// SPDX-License-Identifier: BSD-3-Clause
// The zgemm kernel interface: micro-kernel, packing and small-matrix entry
// types, the row every code path's complex variant fills in, and the one
// contract all variants implement.
#pragma once

#include <cstdint>

#include "service/dispatch/code_path_table.h"

namespace zml::blas {

// Contract shared by every zgemm variant. Complex numbers are two doubles,
// real part first; every pointer below is to double, every stride and leading
// dimension counts complex elements.
//
// Packed panels. The blocked driver packs op(A) (m x k) into micro-panels of
// MR rows and op(B) (k x n) into micro-panels of NR columns. A micro-panel of
// width W holds k slices of W consecutive complex numbers (2*W doubles,
// interleaved re, im): slice p is (X(r0, p), ..., X(r0+W-1, p)) for A and
// (X(p, c0), ..., X(p, c0+W-1)) for B. Panel q starts at q*2*W*k doubles.
// Lines past the end of the matrix are packed as zeros, so a micro-kernel
// always computes a full tile. Conjugation ('C') is applied while packing:
// the micro-kernel only ever forms plain complex products.
//
// Alignment. Packing buffers normally come from the memory manager aligned to
// 4096 bytes, but the out-of-memory fallback packs into stack arrays and the
// small path reads the caller's arrays: kernels must use unaligned loads and
// rely on no more than 8-byte alignment of any operand.
//
// Micro-kernel. ukernel(m, n, k, alpha, a, b, beta, c, ldc) forms the MR x NR
// product of one A micro-panel and one B micro-panel over k (k >= 1) and
// stores C := alpha*AB + beta*C for the leading m x n corner only
// (1 <= m <= MR, 1 <= n <= NR); alpha and beta point at (re, im) pairs.
// m < MR or n < NR marks an edge tile: memory of C outside the corner is
// neither read nor written. beta == 0 must not read C at all, so NaN or Inf
// already in C cannot leak into the result.
//
// Packing. pack(x, ld, rows, k, k_contiguous, conj, dst) packs `rows`
// panel-direction lines (rows of op(A) or columns of op(B)) of length k into
// ceil(rows/W) micro-panels at dst, zero-padding the last. Element (r, p) of
// the source is x[r + p*ld] when k_contiguous is false and x[p + r*ld] when it
// is true; conj stores conjugated values.
//
// Small entry. small(m, n, k, alpha, a, lda, b, rsb, csb, conj_b, beta, c, ldc)
// computes C := alpha*A*op(B) + beta*C directly from unpacked operands for
// 1 <= m, n, k <= the row's small_max (at most kZgemmSmallMax): A column-major
// (element (i, p) at a[i + p*lda]), B element (p, j) at b[p*rsb + j*csb],
// conjugated when conj_b is set. The same beta == 0 rule holds. It allocates
// nothing.
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

// One zgemm variant. Block sizes are shares of the cache levels reported by
// the service layer, so one row serves any cache hierarchy:
//   kc: a B micro-panel (kc x NR complex) takes about l1_share of L1d;
//   mc: the packed A block (mc x kc complex) takes about l2_share of L2;
//   nc: the packed B panel (kc x nc complex) takes about l3_share of L3.
// The *_max fields bound the results when caches are reported oddly.
struct zgemm_variant {
  zgemm_ukernel_fn ukernel;
  int32_t mr;
  int32_t nr;
  double l1_share;
  double l2_share;
  double l3_share;
  int32_t kc_max;
  int32_t mc_max;
  int32_t nc_max;
  zgemm_pack_fn pack_a;  // panels of width mr
  zgemm_pack_fn pack_b;  // panels of width nr
  zgemm_small_fn small;  // required: the driver sends tiny products here
  int32_t small_max;     // m, n, k up to this take the small path (<= kZgemmSmallMax)
  zml::dispatch::Isa isa;
  const char* name;
};

// The variant of each code path, slots 0..11, and the plain C++ reference row.
extern const zml::dispatch::Table<zgemm_variant> kZgemmTable;
extern const zgemm_variant kZgemmRef;
// Every distinct row, for tests and tools (terminated by nullptr).
extern const zgemm_variant* const kZgemmRows[];

}  // namespace zml::blas
