// SPDX-License-Identifier: BSD-3-Clause
// The matrix-vector tables: one row per kernel folder.
#include "blas/kernels/level2_kernel.h"

namespace zml::blas {

namespace {
using dispatch::Isa;

// Diagonal block of the blocked solve: 64 keeps a block (32 KB real, 64 KB
// complex) near L1 while the gemv updates carry nearly all the flops.
constexpr int32_t kTrsvBlock = 64;

// One set of sizes serves every folder today (field by field in
// gemv_tuning): they follow the caches more than the instruction set. L2
// holds A up to 512 KiB (the register forms measured 1.6x at 256 x 256 with
// 32 registers, 0.9x at 512 x 512 on a 2 MiB L2); from 32 MiB A comes from
// memory.
constexpr gemv_tuning kGemvTuning{2048, 256, 64, int64_t{1} << 16, int64_t{1} << 22};
static_assert(kGemvTuning.col_panel >= 1 && kGemvTuning.col_panel <= kGemvColPanelMax);
static_assert(kGemvTuning.row_block >= 2, "the complex form takes half the block in elements");

#define ZML_LEVEL2_ROWS(isa, Isa_, Name)                                                        \
  constexpr dgemv_variant kDgemv##Name{Isa_, isa::dgemv_kernel_n, isa::dgemv_kernel_t,          \
                                       kGemvTuning, #isa};                                      \
  constexpr zgemv_variant kZgemv##Name{                                                         \
      Isa_, isa::zgemv_kernel_n, isa::zgemv_kernel_t, isa::zgemv_kernel_c, kGemvTuning, #isa};  \
  constexpr dtrsv_variant kDtrsv##Name{Isa_, isa::dtrsv_kernel, kTrsvBlock, kGemvTuning, #isa}; \
  constexpr ztrsv_variant kZtrsv##Name{Isa_, isa::ztrsv_kernel, kTrsvBlock, kGemvTuning, #isa};
ZML_LEVEL2_ROWS(ref, Isa::kRef, Ref)
ZML_LEVEL2_ROWS(sse2, Isa::kSse2, Sse2)
ZML_LEVEL2_ROWS(avx, Isa::kAvx, Avx)
ZML_LEVEL2_ROWS(avx2, Isa::kAvx2, Avx2)
ZML_LEVEL2_ROWS(avx512, Isa::kAvx512, Avx512)
#undef ZML_LEVEL2_ROWS
}  // namespace

constexpr dispatch::Table<dgemv_variant> kDgemvTable{
    "dgemv", {&kDgemvRef, &kDgemvSse2, &kDgemvAvx, &kDgemvAvx2, &kDgemvAvx512}};
constexpr dispatch::Table<zgemv_variant> kZgemvTable{
    "zgemv", {&kZgemvRef, &kZgemvSse2, &kZgemvAvx, &kZgemvAvx2, &kZgemvAvx512}};
constexpr dispatch::Table<dtrsv_variant> kDtrsvTable{
    "dtrsv", {&kDtrsvRef, &kDtrsvSse2, &kDtrsvAvx, &kDtrsvAvx2, &kDtrsvAvx512}};
constexpr dispatch::Table<ztrsv_variant> kZtrsvTable{
    "ztrsv", {&kZtrsvRef, &kZtrsvSse2, &kZtrsvAvx, &kZtrsvAvx2, &kZtrsvAvx512}};
const dispatch::Registration kRegistered{&kDgemvTable, &kZgemvTable, &kDtrsvTable, &kZtrsvTable};

}  // namespace zml::blas
