// SPDX-License-Identifier: BSD-3-Clause
// The dgemm variants and the code-path table that picks one per process.
#include "blas/kernels/gemm_kernel.h"

namespace zml::blas {

using dispatch::Isa;

namespace ref {
dgemm_ukernel_t dgemm_kernel_4x4;
dgemm_pack_t dgemm_pack_4;
}  // namespace ref
namespace sse2 {
dgemm_ukernel_t dgemm_kernel_4x4;
dgemm_pack_t dgemm_pack_4;
}  // namespace sse2
namespace avx {
dgemm_ukernel_t dgemm_kernel_8x4;
dgemm_pack_t dgemm_pack_8;
dgemm_pack_t dgemm_pack_4;
}  // namespace avx
namespace avx2 {
dgemm_ukernel_t dgemm_kernel_8x6;
dgemm_pack_t dgemm_pack_8;
dgemm_pack_t dgemm_pack_6;
}  // namespace avx2
namespace avx512 {
dgemm_ukernel_t dgemm_kernel_24x8;
dgemm_pack_t dgemm_pack_24;
dgemm_pack_t dgemm_pack_8;
dgemm_small_t dgemm_small;
}  // namespace avx512

// The AVX-512 shares were tuned by measurement on a 48 KiB L1d / 1 MiB L2 /
// 32 MiB L3 part: kc 256 keeps a B micro-panel in a third of L1 next to the
// streaming A micro-panel, the packed A block (384 x 256) in three quarters of
// L2, and the B panel in a quarter of L3 so that threads running side by side
// still share it. The other rows use the same rules of thumb, untuned.
constexpr dgemm_variant kDgemmRef = {.ukernel = ref::dgemm_kernel_4x4,
                                     .mr = 4,
                                     .nr = 4,
                                     .l1_share = 0.33,
                                     .l2_share = 0.5,
                                     .l3_share = 0.25,
                                     .kc_max = 256,
                                     .mc_max = 512,
                                     .nc_max = 4096,
                                     .pack_a = ref::dgemm_pack_4,
                                     .pack_b = ref::dgemm_pack_4,
                                     .small = nullptr,
                                     .small_max = 32,
                                     .isa = Isa::kRef,
                                     .name = "ref_4x4"};

constexpr dgemm_variant kSse2 = {.ukernel = sse2::dgemm_kernel_4x4,
                                 .mr = 4,
                                 .nr = 4,
                                 .l1_share = 0.33,
                                 .l2_share = 0.5,
                                 .l3_share = 0.25,
                                 .kc_max = 256,
                                 .mc_max = 512,
                                 .nc_max = 4096,
                                 .pack_a = sse2::dgemm_pack_4,
                                 .pack_b = sse2::dgemm_pack_4,
                                 .small = nullptr,
                                 .small_max = 32,
                                 .isa = Isa::kSse2,
                                 .name = "sse2_4x4"};

constexpr dgemm_variant kAvx = {.ukernel = avx::dgemm_kernel_8x4,
                                .mr = 8,
                                .nr = 4,
                                .l1_share = 0.25,
                                .l2_share = 0.5,
                                .l3_share = 0.25,
                                .kc_max = 256,
                                .mc_max = 512,
                                .nc_max = 4096,
                                .pack_a = avx::dgemm_pack_8,
                                .pack_b = avx::dgemm_pack_4,
                                .small = nullptr,
                                .small_max = 32,
                                .isa = Isa::kAvx,
                                .name = "avx_8x4"};

constexpr dgemm_variant kAvx2 = {.ukernel = avx2::dgemm_kernel_8x6,
                                 .mr = 8,
                                 .nr = 6,
                                 .l1_share = 0.25,
                                 .l2_share = 0.5,
                                 .l3_share = 0.25,
                                 .kc_max = 256,
                                 .mc_max = 512,
                                 .nc_max = 4096,
                                 .pack_a = avx2::dgemm_pack_8,
                                 .pack_b = avx2::dgemm_pack_6,
                                 .small = nullptr,
                                 .small_max = 32,
                                 .isa = Isa::kAvx2,
                                 .name = "avx2_8x6"};

constexpr dgemm_variant kAvx512 = {.ukernel = avx512::dgemm_kernel_24x8,
                                   .mr = 24,
                                   .nr = 8,
                                   .l1_share = 0.34,
                                   .l2_share = 0.75,
                                   .l3_share = 0.25,
                                   .kc_max = 512,
                                   .mc_max = 480,
                                   .nc_max = 4096,
                                   .pack_a = avx512::dgemm_pack_24,
                                   .pack_b = avx512::dgemm_pack_8,
                                   .small = avx512::dgemm_small,
                                   .small_max = 64,
                                   .isa = Isa::kAvx512,
                                   .name = "avx512_24x8"};

constexpr dispatch::Table<dgemm_variant> kDgemmTable = {
    &kSse2,    // 0: baseline
    &kSse2,    // 1: override only
    &kSse2,    // 2
    &kSse2,    // 3
    &kSse2,    // 4
    &kSse2,    // 5
    &kSse2,    // 6: override only
    &kSse2,    // 7: SSE4.2 adds nothing to a multiply-add kernel
    &kAvx,     // 8: AVX without FMA; the FMA kernels must not run here
    &kAvx2,    // 9: AVX2 + FMA
    &kAvx2,    // 10: never detected
    &kAvx512,  // 11: AVX-512
};
static_assert(kDgemmTable.size() == dispatch::kCodePaths);
static_assert(kDgemmTable[8]->isa == Isa::kAvx, "code path 8 has no FMA");

constexpr const dgemm_variant *kDgemmRows[] = {&kDgemmRef, &kSse2,   &kAvx,
                                               &kAvx2,     &kAvx512, nullptr};

}  // namespace zml::blas
