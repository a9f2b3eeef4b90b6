// SPDX-License-Identifier: BSD-3-Clause
// The zgemm variants and their table.
#include <algorithm>

#include "blas/kernels/zgemm_kernel.h"

namespace zml::blas {

using dispatch::Isa;

#define ZML_ZGEMM_KERNEL_ARGS                                                             \
  int64_t m, int64_t n, int64_t k, const double *alpha, const double *a, const double *b, \
      const double *beta, double *c, int64_t ldc
#define ZML_ZGEMM_PACK_ARGS \
  const double *x, int64_t ld, int64_t rows, int64_t k, bool k_contiguous, bool conj, double *dst
#define ZML_ZGEMM_SMALL_ARGS                                                                 \
  int64_t m, int64_t n, int64_t k, const double *alpha, const double *a, int64_t lda,        \
      const double *b, int64_t rsb, int64_t csb, bool conj_b, const double *beta, double *c, \
      int64_t ldc

namespace ref {
void zgemm_kernel_4x2(ZML_ZGEMM_KERNEL_ARGS);
void zgemm_pack_4(ZML_ZGEMM_PACK_ARGS);
void zgemm_pack_2(ZML_ZGEMM_PACK_ARGS);
void zgemm_small(ZML_ZGEMM_SMALL_ARGS);
}  // namespace ref
namespace sse2 {
void zgemm_kernel_2x2(ZML_ZGEMM_KERNEL_ARGS);
void zgemm_kernel_1x3(ZML_ZGEMM_KERNEL_ARGS);
void zgemm_pack_1(ZML_ZGEMM_PACK_ARGS);
void zgemm_pack_2(ZML_ZGEMM_PACK_ARGS);
void zgemm_pack_3(ZML_ZGEMM_PACK_ARGS);
void zgemm_small(ZML_ZGEMM_SMALL_ARGS);
}  // namespace sse2
namespace avx2 {
void zgemm_kernel_4x3(ZML_ZGEMM_KERNEL_ARGS);
void zgemm_kernel_2x3(ZML_ZGEMM_KERNEL_ARGS);
void zgemm_pack_4(ZML_ZGEMM_PACK_ARGS);
void zgemm_pack_2(ZML_ZGEMM_PACK_ARGS);
void zgemm_pack_3(ZML_ZGEMM_PACK_ARGS);
}  // namespace avx2
namespace avx512 {
void zgemm_kernel_8x6(ZML_ZGEMM_KERNEL_ARGS);
void zgemm_kernel_4x3(ZML_ZGEMM_KERNEL_ARGS);
void zgemm_pack_8(ZML_ZGEMM_PACK_ARGS);
void zgemm_pack_6(ZML_ZGEMM_PACK_ARGS);
void zgemm_pack_4(ZML_ZGEMM_PACK_ARGS);
void zgemm_pack_3(ZML_ZGEMM_PACK_ARGS);
void zgemm_small(ZML_ZGEMM_SMALL_ARGS);
}  // namespace avx512

#undef ZML_ZGEMM_KERNEL_ARGS
#undef ZML_ZGEMM_PACK_ARGS
#undef ZML_ZGEMM_SMALL_ARGS

// A complex element is 16 bytes. On a 48 KiB L1d / 1 MiB L2 / 32 MiB L3 part
// the shares keep a B micro-panel in a third of L1, the A block in half of L2
// and the B panel in a quarter of L3, so threads side by side still share it.
// The AVX-512 row gives A three quarters of L2 (measured 3-5% faster at
// n = 1024 than half) and the B micro-panel half of L1: on a 48 KiB L1 that is
// kc = 256 instead of 168, a third fewer tile stores per flop (1-2% faster).
// Its B panel stops at 1024 columns (4 MiB at kc = 256), as the real one's
// does at 4 MiB: 2% faster at n = 2048 than 8 MiB, 512 columns slower.
//
// Rows are kept one field group per line; the formatter would give each field
// a line of its own.
// clang-format off
constexpr zgemm_variant kZgemmRef = {
    ref::zgemm_kernel_4x2, 4, 2, 0.33, 0.5, 0.25, 256, 512, 4096,
    ref::zgemm_pack_4, ref::zgemm_pack_2, ref::zgemm_small, 16, Isa::kRef, "ref_4x2"};

constexpr zgemm_variant kSse2 = {
    sse2::zgemm_kernel_2x2, 2, 2, 0.33, 0.5, 0.25, 256, 512, 4096,
    sse2::zgemm_pack_2, sse2::zgemm_pack_2, sse2::zgemm_small, 16, Isa::kSse2, "sse2_2x2"};

// The SSE2 small kernel runs on any processor this row does; at k <= 16 a
// wider one would gain little.
constexpr zgemm_variant kAvx2 = {
    avx2::zgemm_kernel_4x3, 4, 3, 0.33, 0.5, 0.25, 256, 512, 4096,
    avx2::zgemm_pack_4, avx2::zgemm_pack_3, sse2::zgemm_small, 16, Isa::kAvx2, "avx2_4x3"};

constexpr zgemm_variant kAvx512 = {
    avx512::zgemm_kernel_8x6, 8, 6, 0.5, 0.75, 0.25, 256, 480, 1024,
    avx512::zgemm_pack_8, avx512::zgemm_pack_6, avx512::zgemm_small, 16, Isa::kAvx512,
    "avx512_8x6"};

// The narrow rows' tiles take 6 accumulators, so nothing spills.
constexpr zgemm_variant kSse2x32 = {
    sse2::zgemm_kernel_1x3, 1, 3, 0.33, 0.5, 0.25, 256, 512, 4096,
    sse2::zgemm_pack_1, sse2::zgemm_pack_3, sse2::zgemm_small, 16, Isa::kSse2, "sse2_1x3"};

constexpr zgemm_variant kAvx2x32 = {
    avx2::zgemm_kernel_2x3, 2, 3, 0.33, 0.5, 0.25, 256, 512, 4096,
    avx2::zgemm_pack_2, avx2::zgemm_pack_3, sse2::zgemm_small, 16, Isa::kAvx2, "avx2_2x3"};

constexpr zgemm_variant kAvx512x32 = {
    avx512::zgemm_kernel_4x3, 4, 3, 0.34, 0.75, 0.25, 256, 480, 4096,
    avx512::zgemm_pack_4, avx512::zgemm_pack_3, avx512::zgemm_small, 16, Isa::kAvx512,
    "avx512_4x3"};
// clang-format on

// There is no AVX-only complex kernel: code path 8 (AVX without FMA) runs the
// SSE2 row.
constexpr dispatch::Table<zgemm_variant> kZgemmTable{
    "zgemm", {&kZgemmRef, &kSse2, &kAvx2, &kAvx512}, {&kSse2x32, &kAvx2x32, &kAvx512x32}};
static_assert(kZgemmTable.slot(8).isa == Isa::kSse2);
// Tiles of at most 16 lines, which the on-stack fallback of the blocked loops
// holds.
static_assert(std::ranges::all_of(kZgemmTable.rows(), [](const zgemm_variant *r) {
  return fits_drivers(*r, 16, kZgemmSmallMax);
}));
const dispatch::Registration kRegistered{&kZgemmTable};

}  // namespace zml::blas
