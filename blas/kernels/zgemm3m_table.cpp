// SPDX-License-Identifier: BSD-3-Clause
// The 3M packing and fold table. Below AVX2 the plain row runs: these loops
// move data more than they compute, and SSE2 is in every x86-64 build.
#include "blas/kernels/zgemm3m_kernel.h"

namespace zml::blas {

namespace {
using dispatch::Isa;
constexpr zgemm3m_variant kRef{Isa::kRef, ref::zgemm3m_pack, ref::zgemm3m_fold, "ref"};
constexpr zgemm3m_variant kAvx2{Isa::kAvx2, avx2::zgemm3m_pack, avx2::zgemm3m_fold, "avx2"};
constexpr zgemm3m_variant kAvx512{Isa::kAvx512, avx512::zgemm3m_pack, avx512::zgemm3m_fold,
                                  "avx512"};
}  // namespace

constexpr dispatch::Table<zgemm3m_variant> kZgemm3mTable{"zgemm3m", {&kRef, &kAvx2, &kAvx512}};
const dispatch::Registration kRegistered{&kZgemm3mTable};

}  // namespace zml::blas
