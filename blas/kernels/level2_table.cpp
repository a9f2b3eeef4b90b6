// SPDX-License-Identifier: BSD-3-Clause
// The matrix-vector tables: one row per kernel folder.
#include "blas/kernels/level2_kernel.h"

namespace zml::blas {

namespace {
using dispatch::Isa;

// Diagonal block of the blocked solve: 64 keeps a block (32 KB real, 64 KB
// complex) near L1 while the gemv updates carry nearly all the flops.
constexpr int32_t kTrsvBlock = 64;

#define ZML_LEVEL2_ROWS(isa, Isa_, Name)                                                      \
  constexpr dgemv_variant kDgemv##Name{Isa_, isa::dgemv_kernel_n, isa::dgemv_kernel_t, #isa}; \
  constexpr zgemv_variant kZgemv##Name{Isa_, isa::zgemv_kernel_n, isa::zgemv_kernel_t,        \
                                       isa::zgemv_kernel_c, #isa};                            \
  constexpr dtrsv_variant kDtrsv##Name{Isa_, isa::dtrsv_kernel, kTrsvBlock, #isa};            \
  constexpr ztrsv_variant kZtrsv##Name{Isa_, isa::ztrsv_kernel, kTrsvBlock, #isa};
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
