// SPDX-License-Identifier: BSD-3-Clause
// The scaling tables: one row per kernel folder.
#include "blas/kernels/level1_kernel.h"

namespace zml::blas {

namespace {
using dispatch::Isa;

constexpr dscal_variant kDscalRef{Isa::kRef, ref::dscal_kernel, "ref"};
constexpr dscal_variant kDscalSse2{Isa::kSse2, sse2::dscal_kernel, "sse2"};
constexpr dscal_variant kDscalAvx{Isa::kAvx, avx::dscal_kernel, "avx"};
constexpr dscal_variant kDscalAvx2{Isa::kAvx2, avx2::dscal_kernel, "avx2"};
constexpr dscal_variant kDscalAvx512{Isa::kAvx512, avx512::dscal_kernel, "avx512"};

constexpr zscal_variant kZscalRef{Isa::kRef, ref::zscal_kernel, "ref"};
constexpr zscal_variant kZscalSse2{Isa::kSse2, sse2::zscal_kernel, "sse2"};
constexpr zscal_variant kZscalAvx{Isa::kAvx, avx::zscal_kernel, "avx"};
constexpr zscal_variant kZscalAvx2{Isa::kAvx2, avx2::zscal_kernel, "avx2"};
constexpr zscal_variant kZscalAvx512{Isa::kAvx512, avx512::zscal_kernel, "avx512"};
}  // namespace

constexpr dispatch::Table<dscal_variant> kDscalTable{
    "dscal", {&kDscalRef, &kDscalSse2, &kDscalAvx, &kDscalAvx2, &kDscalAvx512}};
constexpr dispatch::Table<zscal_variant> kZscalTable{
    "zscal", {&kZscalRef, &kZscalSse2, &kZscalAvx, &kZscalAvx2, &kZscalAvx512}};
const dispatch::Registration kRegistered{&kDscalTable, &kZscalTable};

}  // namespace zml::blas
