// SPDX-License-Identifier: BSD-3-Clause
// The dgemm kernel interface: micro-kernel, packing and small-matrix entry
// types, the row every code path's variant fills in, and the one contract
// all variants implement.
#pragma once

#include <cstdint>

#include "service/dispatch/code_path_table.h"

namespace zml::blas {

// Contract shared by every dgemm variant.
//
// Packed panels. The blocked driver packs op(A) (m x k) into micro-panels of
// MR rows and op(B) (k x n) into micro-panels of NR columns. A micro-panel of
// width W holds k slices of W consecutive doubles: slice p is
// (X(r0, p), X(r0+1, p), ..., X(r0+W-1, p)) for A and
// (X(p, c0), X(p, c0+1), ..., X(p, c0+W-1)) for B. Panels follow one another
// in the buffer (panel q starts at q*W*k). Rows or columns past the end of the
// matrix are packed as zeros, so a micro-kernel always computes a full MR x NR
// tile and never needs a scalar edge loop.
//
// Alignment. Packing buffers come from the memory manager aligned to 4096
// bytes; since every panel is a multiple of W*k doubles, panels start at least
// 8-byte aligned and, when W*8 is a multiple of 64, 64-byte aligned. Kernels
// must not rely on more than 8-byte alignment of C.
//
// Micro-kernel. ukernel(m, n, k, alpha, a, b, beta, c, ldc) forms the MR x NR
// product of one A micro-panel and one B micro-panel over k (k >= 1) and
// stores C := alpha*AB + beta*C for the leading m x n corner only
// (1 <= m <= MR, 1 <= n <= NR): m < MR or n < NR marks an edge tile, and
// memory of C outside that corner is neither read nor written. beta == 0 must
// not read C at all, so NaN or Inf already in C cannot leak into the result.
//
// Packing. pack(x, ld, rows, k, k_contiguous, dst) packs `rows` panel-direction
// lines (rows of op(A) or columns of op(B)) of length k into ceil(rows/W)
// micro-panels at dst, zero-padding the last. Element (r, p) of the source is
// x[r + p*ld] when k_contiguous is false and x[p + r*ld] when it is true; the
// driver maps the transposition of A or B onto that flag.
//
// Small entry. small(m, n, k, alpha, a, lda, b, rsb, csb, beta, c, ldc)
// computes C := alpha*A*B + beta*C directly from unpacked operands for
// 1 <= m, n, k <= the row's small_max (at most kSmallMax), A column-major
// (element (i, p) at a[i + p*lda]) and B with element (p, j) at
// b[p*rsb + j*csb]. The same beta == 0 rule holds. It allocates nothing.
inline constexpr int kSmallMax = 112;
// A transposed A reaches a small kernel through a column-major copy on the
// stack, up to this many rows and columns; larger ones take the blocked path.
inline constexpr int kSmallTransposedMax = 64;

// Function types (variants are declared with them in the table) and pointers.
using dgemm_ukernel_t = void(int64_t m, int64_t n, int64_t k, double alpha, const double* a,
                             const double* b, double beta, double* c, int64_t ldc);
using dgemm_pack_t = void(const double* x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous,
                          double* dst);
using dgemm_small_t = void(int64_t m, int64_t n, int64_t k, double alpha, const double* a,
                           int64_t lda, const double* b, int64_t rsb, int64_t csb, double beta,
                           double* c, int64_t ldc);
using dgemm_ukernel_fn = dgemm_ukernel_t*;
using dgemm_pack_fn = dgemm_pack_t*;
using dgemm_small_fn = dgemm_small_t*;

// One gemm variant, the same fields for every element type. Block sizes are
// stated as shares of the cache levels reported by the service layer, so one
// row serves any cache hierarchy (sizes in elements of the row's type):
//   kc: a B micro-panel (kc x NR) takes about l1_share of L1d;
//   mc: the packed A block (mc x kc) takes about l2_share of L2;
//   nc: the packed B panel (kc x nc) takes about l3_share of L3.
// The *_max fields bound the results when caches are reported oddly.
template <class UkernelFn, class PackFn, class SmallFn>
struct gemm_variant {
  UkernelFn ukernel;
  int32_t mr;
  int32_t nr;
  double l1_share;
  double l2_share;
  double l3_share;
  int32_t kc_max;
  int32_t mc_max;
  int32_t nc_max;
  PackFn pack_a;      // panels of width mr
  PackFn pack_b;      // panels of width nr
  SmallFn small;      // the small-matrix entry (see each family's contract)
  int32_t small_max;  // m, n, k up to this take the small path
  zml::dispatch::Isa isa;
  const char* name;
};

// The shape every driver relies on, checked on each table at compile time:
// tiles of 1 to max_tile lines, small_max from 1 to the family's limit, and
// block bounds no smaller than one tile.
template <class Variant>
constexpr bool fits_drivers(const Variant& r, int32_t max_tile, int32_t small_limit) {
  return r.mr >= 1 && r.nr >= 1 && r.mr <= max_tile && r.nr <= max_tile && r.small_max >= 1 &&
         r.small_max <= small_limit && r.kc_max >= 16 && r.mc_max >= r.mr && r.nc_max >= r.nr;
}

// small may be null: the driver then packs small operands on the stack.
// small_max is at most kSmallMax.
using dgemm_variant = gemm_variant<dgemm_ukernel_fn, dgemm_pack_fn, dgemm_small_fn>;

extern const zml::dispatch::Table<dgemm_variant> kDgemmTable;

}  // namespace zml::blas
