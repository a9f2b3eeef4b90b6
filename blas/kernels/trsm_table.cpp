// SPDX-License-Identifier: BSD-3-Clause
// The trsm leaf tables: one row per kernel folder.
#include <algorithm>

#include "blas/kernels/trsm_kernel.h"

namespace zml::blas {

namespace {
using dispatch::Isa;

// Groups of MV vectors (see each folder's kernel file); leaves of 32 unknowns
// keep the packed triangle and the group's slices (8 KiB at 32 lanes) in L1,
// while the gemm updates between leaves still get an inner dimension of 32.
constexpr int32_t kLeafMax = 32;

#define ZML_TRSM_ROWS(isa, Isa_, Name, doubles)                                          \
  constexpr trsm_variant kDtrsm##Name{Isa_, isa::dtrsm_kernel, doubles, kLeafMax, #isa}; \
  constexpr trsm_variant kZtrsm##Name{Isa_, isa::ztrsm_kernel, (doubles) / 2, kLeafMax, #isa};
ZML_TRSM_ROWS(ref, Isa::kRef, Ref, 4)
ZML_TRSM_ROWS(sse2, Isa::kSse2, Sse2, 8)
ZML_TRSM_ROWS(avx, Isa::kAvx, Avx, 8)
ZML_TRSM_ROWS(avx2, Isa::kAvx2, Avx2, 16)
ZML_TRSM_ROWS(avx512, Isa::kAvx512, Avx512, 32)
#undef ZML_TRSM_ROWS
}  // namespace

constexpr dispatch::Table<trsm_variant> kDtrsmTable{
    "dtrsm", {&kDtrsmRef, &kDtrsmSse2, &kDtrsmAvx, &kDtrsmAvx2, &kDtrsmAvx512}};
constexpr dispatch::Table<trsm_variant> kZtrsmTable{
    "ztrsm", {&kZtrsmRef, &kZtrsmSse2, &kZtrsmAvx, &kZtrsmAvx2, &kZtrsmAvx512}};
static_assert(std::ranges::all_of(kDtrsmTable.rows(), [](const trsm_variant* r) {
  return r->leaf_max >= 1 && r->leaf_max <= kTrsmLeafCap && r->lanes <= kTrsmLaneDoublesCap;
}));
static_assert(std::ranges::all_of(kZtrsmTable.rows(), [](const trsm_variant* r) {
  return r->leaf_max >= 1 && r->leaf_max <= kTrsmLeafCap && 2 * r->lanes <= kTrsmLaneDoublesCap;
}));
const dispatch::Registration kRegistered{&kDtrsmTable, &kZtrsmTable};

}  // namespace zml::blas
