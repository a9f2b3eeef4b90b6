// SPDX-License-Identifier: BSD-3-Clause
// The triangular-solve kernel interface: the small solve of a diagonal block
// for a group of right-hand sides, the row each code path's variant fills in,
// and the one contract both element types implement. The updates between
// diagonal blocks are gemm products and use the gemm tables.
#pragma once

#include <cstdint>

#include "service/dispatch/code_path_table.h"

namespace zml::blas {

// Contract of a leaf solve, leaf(l, t, x, ldx):
//
// Solves L y = x in place for a unit-lower-or-not l x l triangle L and a group
// of `lanes` right-hand sides (the row's lanes; the driver pads a short group
// with zeros). Everything is packed by the driver:
//   t: row r of the triangle (r = 0..l-1) at t + r*(r+1)/2 elements: first
//      -L(r, c) for c = 0..r-1, then 1/L(r, r) (1 for a unit diagonal, which
//      is never read from A). The negation lets every update be one
//      multiply-add; the reciprocal trades one rounding for a division per
//      row, which would cost as much as the whole row's updates.
//   x: slice r (the r-th unknown of every right-hand side) at x + r*ldx
//      doubles, lanes consecutive elements. The driver packs the slices
//      (even where B holds them side by side, a power-of-two ldb would put
//      them all in a few sets of L1).
// Complex elements are (re, im) pairs of doubles and offsets above count
// elements. y_r = (x_r + sum_c -L(r, c) y_c) * (1/L(r, r)), the sum in
// increasing c, so every right-hand side gets the same arithmetic whatever
// group it is solved in. No alignment is assumed.
using trsm_leaf_fn = void (*)(int64_t l, const double* t, double* x, int64_t ldx);

// lanes: right-hand sides per group (elements); leaf_max: the largest
// triangle the driver hands a leaf, so that t and x stay in L1.
struct trsm_variant {
  dispatch::Isa isa;
  trsm_leaf_fn leaf;
  int32_t lanes;
  int32_t leaf_max;
  const char* name;
};

// Bounds on every row, so the driver's leaf scratch has a fixed size.
inline constexpr int32_t kTrsmLeafCap = 32;
inline constexpr int32_t kTrsmLaneDoublesCap = 32;

extern const dispatch::Table<trsm_variant> kDtrsmTable;
extern const dispatch::Table<trsm_variant> kZtrsmTable;

// The leaf solves of each folder. Declared for every level so a new folder
// needs no edit here; a level without a folder declares what nothing defines.
#define ZML_TRSM_DECLARE(folder, ...)                                    \
  namespace folder {                                                     \
  void dtrsm_kernel(int64_t l, const double* t, double* x, int64_t ldx); \
  void ztrsm_kernel(int64_t l, const double* t, double* x, int64_t ldx); \
  }
ZML_ISA_LEVELS(ZML_TRSM_DECLARE)
#undef ZML_TRSM_DECLARE

}  // namespace zml::blas
