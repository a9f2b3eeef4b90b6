// SPDX-License-Identifier: BSD-3-Clause
// The dgemm variants and their table.
#include <algorithm>

#include "blas/kernels/gemm_kernel.h"

namespace zml::blas {

using dispatch::Isa;

namespace ref {
dgemm_ukernel_t dgemm_kernel_4x4;
dgemm_pack_t dgemm_pack_4;
}  // namespace ref
namespace sse2 {
dgemm_ukernel_t dgemm_kernel_4x4;
dgemm_ukernel_t dgemm_kernel_2x6;
dgemm_pack_t dgemm_pack_2;
dgemm_pack_t dgemm_pack_4;
dgemm_pack_t dgemm_pack_6;
}  // namespace sse2
namespace avx {
dgemm_ukernel_t dgemm_kernel_8x4;
dgemm_ukernel_t dgemm_kernel_4x6;
dgemm_pack_t dgemm_pack_8;
dgemm_pack_t dgemm_pack_4;
dgemm_pack_t dgemm_pack_6;
}  // namespace avx
namespace avx2 {
dgemm_ukernel_t dgemm_kernel_8x6;
dgemm_ukernel_t dgemm_kernel_4x6;
dgemm_pack_t dgemm_pack_8;
dgemm_pack_t dgemm_pack_6;
dgemm_pack_t dgemm_pack_4;
}  // namespace avx2
namespace avx512 {
dgemm_ukernel_t dgemm_kernel_24x8;
dgemm_ukernel_t dgemm_kernel_8x6;
dgemm_pack_t dgemm_pack_24;
dgemm_pack_t dgemm_pack_8;
dgemm_pack_t dgemm_pack_6;
dgemm_small_t dgemm_small;
}  // namespace avx512

// Rows the cache shares were not tuned for take the same rules of thumb: a B
// micro-panel in a third (narrow tiles) or a quarter (wide A panels) of L1,
// the A block in half of L2, the B panel in a quarter of L3.
constexpr dgemm_variant untuned(dgemm_ukernel_fn ukernel, int32_t mr, int32_t nr, double l1_share,
                                dgemm_pack_fn pack_a, dgemm_pack_fn pack_b, Isa isa,
                                const char* name) {
  return {.ukernel = ukernel,
          .mr = mr,
          .nr = nr,
          .l1_share = l1_share,
          .l2_share = 0.5,
          .l3_share = 0.25,
          .kc_max = 256,
          .mc_max = 512,
          .nc_max = 4096,
          .pack_a = pack_a,
          .pack_b = pack_b,
          .small = nullptr,
          .small_max = 32,
          .isa = isa,
          .name = name};
}

constexpr dgemm_variant kDgemmRef = untuned(ref::dgemm_kernel_4x4, 4, 4, 0.33, ref::dgemm_pack_4,
                                            ref::dgemm_pack_4, Isa::kRef, "ref_4x4");
constexpr dgemm_variant kSse2 = untuned(sse2::dgemm_kernel_4x4, 4, 4, 0.33, sse2::dgemm_pack_4,
                                        sse2::dgemm_pack_4, Isa::kSse2, "sse2_4x4");
constexpr dgemm_variant kAvx = untuned(avx::dgemm_kernel_8x4, 8, 4, 0.25, avx::dgemm_pack_8,
                                       avx::dgemm_pack_4, Isa::kAvx, "avx_8x4");
constexpr dgemm_variant kAvx2 = untuned(avx2::dgemm_kernel_8x6, 8, 6, 0.25, avx2::dgemm_pack_8,
                                        avx2::dgemm_pack_6, Isa::kAvx2, "avx2_8x6");

// The AVX-512 shares were tuned by measurement on a 48 KiB L1d / 1 MiB L2 /
// 32 MiB L3 part: kc 256 keeps a B micro-panel in a third of L1 next to the
// streaming A micro-panel, the packed A block (384 x 256) in three quarters of
// L2, and the B panel in a quarter of L3 so that threads running side by side
// still share it. The direct small kernel stays ahead of packing up to 112
// (72-85 GF/s against 55-72 at n = 65..112, A aligned or not); at 128 the
// power-of-two stride of A makes its columns collide in L1 and packing wins.
// nc stops at 2048 (a 4 MiB B panel) even where a quarter of L3 holds more:
// on a 2 MiB L2 / 260 MiB L3 part an 8 MiB panel measured 2-3% slower at
// n = 4000, 1024 slower again.
constexpr dgemm_variant kAvx512 = {.ukernel = avx512::dgemm_kernel_24x8,
                                   .mr = 24,
                                   .nr = 8,
                                   .l1_share = 0.34,
                                   .l2_share = 0.75,
                                   .l3_share = 0.25,
                                   .kc_max = 512,
                                   .mc_max = 480,
                                   .nc_max = 2048,
                                   .pack_a = avx512::dgemm_pack_24,
                                   .pack_b = avx512::dgemm_pack_8,
                                   .small = avx512::dgemm_small,
                                   .small_max = 112,
                                   .isa = Isa::kAvx512,
                                   .name = "avx512_24x8"};

// The narrow rows hold one vector of rows by six columns, so the tile does
// not spill; the small kernels' wider tiles would, so these rows pack small
// products too.
constexpr dgemm_variant kSse2x32 = untuned(sse2::dgemm_kernel_2x6, 2, 6, 0.33, sse2::dgemm_pack_2,
                                           sse2::dgemm_pack_6, Isa::kSse2, "sse2_2x6");
constexpr dgemm_variant kAvxx32 = untuned(avx::dgemm_kernel_4x6, 4, 6, 0.33, avx::dgemm_pack_4,
                                          avx::dgemm_pack_6, Isa::kAvx, "avx_4x6");
constexpr dgemm_variant kAvx2x32 = untuned(avx2::dgemm_kernel_4x6, 4, 6, 0.33, avx2::dgemm_pack_4,
                                           avx2::dgemm_pack_6, Isa::kAvx2, "avx2_4x6");
constexpr dgemm_variant kAvx512x32 =
    untuned(avx512::dgemm_kernel_8x6, 8, 6, 0.33, avx512::dgemm_pack_8, avx512::dgemm_pack_6,
            Isa::kAvx512, "avx512_8x6");

constexpr dispatch::Table<dgemm_variant> kDgemmTable{"dgemm",
                                                     {&kDgemmRef, &kSse2, &kAvx, &kAvx2, &kAvx512},
                                                     {&kSse2x32, &kAvxx32, &kAvx2x32, &kAvx512x32}};
static_assert(kDgemmTable.slot(8).isa == Isa::kAvx);
// Tiles of at most 32 lines: the packed small path and the on-stack fallback
// of the blocked loops pad to that on the stack.
static_assert(std::ranges::all_of(kDgemmTable.rows(), [](const dgemm_variant* r) {
  return fits_drivers(*r, 32, kSmallMax);
}));
const dispatch::Registration kRegistered{&kDgemmTable};

}  // namespace zml::blas
