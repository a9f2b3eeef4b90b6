// SPDX-License-Identifier: BSD-3-Clause
// The vector-math tables: one row per kernel folder for each function, and
// each function's 36-entry kernels and costs tables built from those rows.
#include "vml/kernels/vml_kernel.h"

namespace zml::vml {

namespace {
using dispatch::Isa;

template <class Fn>
using Rows = dispatch::Table<Variant<Fn>>;

#define ZML_VML_ROWS(fn, Fn, kind)                                           \
  constexpr Variant<Fn> k##fn##Ref{Isa::kRef, ref::kind, "ref"};             \
  constexpr Variant<Fn> k##fn##Sse2{Isa::kSse2, sse2::kind, "sse2"};         \
  constexpr Variant<Fn> k##fn##Avx{Isa::kAvx, avx::kind, "avx"};             \
  constexpr Variant<Fn> k##fn##Avx2{Isa::kAvx2, avx2::kind, "avx2"};         \
  constexpr Variant<Fn> k##fn##Avx512{Isa::kAvx512, avx512::kind, "avx512"}; \
  constexpr Rows<Fn> k##fn##Rows{                                            \
      "vml_" #kind, {&k##fn##Ref, &k##fn##Sse2, &k##fn##Avx, &k##fn##Avx2, &k##fn##Avx512}};
ZML_VML_ROWS(Add, binary_fn, add)
ZML_VML_ROWS(Sub, binary_fn, sub)
ZML_VML_ROWS(Mul, binary_fn, mul)
ZML_VML_ROWS(Div, binary_fn, div)
ZML_VML_ROWS(Sqrt, unary_fn, sqrt)
ZML_VML_ROWS(Abs, unary_fn, abs)
#undef ZML_VML_ROWS

// The exponential and the logarithms have no avx folder (without FMA and
// 256-bit integers that level gains nothing over sse2): it runs the sse2 row.
#define ZML_VML_FMA_ROWS(fn, kind)                                                 \
  constexpr Variant<unary_fn> k##fn##Ref{Isa::kRef, ref::kind, "ref"};             \
  constexpr Variant<unary_fn> k##fn##Sse2{Isa::kSse2, sse2::kind, "sse2"};         \
  constexpr Variant<unary_fn> k##fn##Avx2{Isa::kAvx2, avx2::kind, "avx2"};         \
  constexpr Variant<unary_fn> k##fn##Avx512{Isa::kAvx512, avx512::kind, "avx512"}; \
  constexpr Rows<unary_fn> k##fn##Rows{"vml_" #kind,                               \
                                       {&k##fn##Ref, &k##fn##Sse2, &k##fn##Avx2, &k##fn##Avx512}};
ZML_VML_FMA_ROWS(ExpLa, exp_la)
ZML_VML_FMA_ROWS(ExpHa, exp_ha)
ZML_VML_FMA_ROWS(ExpEp, exp_ep)
ZML_VML_FMA_ROWS(LnLa, ln_la)
ZML_VML_FMA_ROWS(LnHa, ln_ha)
ZML_VML_FMA_ROWS(LnEp, ln_ep)
ZML_VML_FMA_ROWS(Log10La, log10_la)
ZML_VML_FMA_ROWS(Log10Ha, log10_ha)
ZML_VML_FMA_ROWS(Log10Ep, log10_ep)
#undef ZML_VML_FMA_ROWS

// Types 1 and 2 run one kernel in every class (the high-accuracy one, which
// meets all three bounds); type 10 has no kernel and runs as the type that
// serves it.
constexpr std::array<const Variant<unary_fn>*, kTableSize> exp_kernels() {
  std::array<const Variant<unary_fn>*, kTableSize> k{};
  const Rows<unary_fn>* by_class[3] = {&kExpLaRows, &kExpHaRows, &kExpEpRows};
  for (int32_t a = 0; a < 3; ++a) {
    for (int32_t t = 0; t < kTypes; ++t) {
      const Rows<unary_fn>& rows = t == 1 || t == 2 ? kExpHaRows : *by_class[a];
      k[t + kTypes * a] = t == 10 ? nullptr : row_of_type(rows, t);
    }
  }
  return k;
}

// Every type runs its level's kernel of the class.
constexpr std::array<const Variant<unary_fn>*, kTableSize> class_kernels(const Rows<unary_fn>& la,
                                                                         const Rows<unary_fn>& ha,
                                                                         const Rows<unary_fn>& ep) {
  std::array<const Variant<unary_fn>*, kTableSize> k{};
  const Rows<unary_fn>* by_class[3] = {&la, &ha, &ep};
  for (int32_t a = 0; a < 3; ++a) {
    for (int32_t t = 0; t < kTypes; ++t) k[t + kTypes * a] = row_of_type(*by_class[a], t);
  }
  return k;
}

// Costs per element, in the units of the exponential's table: measured with
// bench/vml_bench (n = 1e5, one thread, each type forced) as the time per
// element relative to the low-accuracy exponential on type 11, whose cost is
// 1.619. The correctly rounded functions cost the same in every class, and
// the types of one instruction-set level run one kernel. Adding streams
// from the caches at about the same rate at every width.
constexpr float kStreamCost[kTypes] = {0.84f, 0.84f, 0.84f, 0.84f, 0.84f, 0.84f,
                                       0.8f,  0.8f,  0.8f,  0.8f,  0.8f,  0.8f};
constexpr float kDivCost[kTypes] = {1.7f,  1.7f,  1.7f,  1.7f, 1.7f,  1.7f,
                                    0.86f, 0.83f, 0.83f, 0.9f, 0.83f, 0.9f};
constexpr float kSqrtCost[kTypes] = {3.1f, 3.1f, 3.1f, 3.1f, 3.1f, 3.1f,
                                     1.6f, 1.6f, 1.6f, 1.4f, 1.6f, 1.4f};

}  // namespace

const Function<binary_fn> kAdd{"vdAdd", &kAddRows, one_kernel_per_type(kAddRows),
                               cost_rows(kStreamCost, kStreamCost, kStreamCost)};
const Function<binary_fn> kSub{"vdSub", &kSubRows, one_kernel_per_type(kSubRows),
                               cost_rows(kStreamCost, kStreamCost, kStreamCost)};
const Function<binary_fn> kMul{"vdMul", &kMulRows, one_kernel_per_type(kMulRows),
                               cost_rows(kStreamCost, kStreamCost, kStreamCost)};
const Function<binary_fn> kDiv{"vdDiv", &kDivRows, one_kernel_per_type(kDivRows),
                               cost_rows(kDivCost, kDivCost, kDivCost)};
const Function<unary_fn> kSqrt{"vdSqrt", &kSqrtRows, one_kernel_per_type(kSqrtRows),
                               cost_rows(kSqrtCost, kSqrtCost, kSqrtCost)};
const Function<unary_fn> kAbs{"vdAbs", &kAbsRows, one_kernel_per_type(kAbsRows),
                              cost_rows(kStreamCost, kStreamCost, kStreamCost)};

// Type 10 has no kernel of its own and holds the sentinel cost.
const Function<unary_fn> kExp{"vdExp", &kExpHaRows, exp_kernels(),
                              cost_rows({59.84f, 3.0f, 37.08f, 17.45f, 21.24f, 11.22f, 11.07f,
                                         8.49f, 6.56f, 3.876f, kNoKernelCost, 1.619f},
                                        {67.59f, 3.0f, 37.08f, 26.45f, 30.49f, 17.91f, 17.62f,
                                         14.11f, 8.69f, 5.394f, kNoKernelCost, 1.779f},
                                        {59.84f, 3.0f, 37.08f, 13.02f, 17.11f, 8.81f, 8.56f, 7.82f,
                                         6.548f, 3.771f, kNoKernelCost, 1.08f})};

// The logarithms' costs in the exponential's units: each entry is the
// exponential's cost of that type and class times the measured ratio of the
// two kernels' times (n = 1e5, one thread). Types 10 and 11 run the rows of
// types 7 and 9, whose ratios they take; type 10 has no exponential cost to
// scale, so it takes type 7's cost as it stands.
const Function<unary_fn> kLn{"vdLn", &kLnHaRows, class_kernels(kLnLaRows, kLnHaRows, kLnEpRows),
                             cost_rows({81.65f, 4.09f, 52.43f, 23.84f, 28.97f, 15.34f, 15.08f,
                                        13.13f, 10.15f, 6.724f, 13.13f, 2.809f},
                                       {92.16f, 4.103f, 50.63f, 36.15f, 41.62f, 24.16f, 24.07f,
                                        16.84f, 10.88f, 10.29f, 16.84f, 3.394f},
                                       {81.72f, 4.097f, 50.59f, 17.74f, 23.3f, 12.03f, 11.67f,
                                        11.92f, 10.03f, 5.706f, 11.92f, 1.634f})};
const Function<unary_fn> kLog10{"vdLog10", &kLog10HaRows,
                                class_kernels(kLog10LaRows, kLog10HaRows, kLog10EpRows),
                                cost_rows({108.7f, 5.004f, 67.43f, 31.71f, 38.63f, 20.36f, 20.12f,
                                           13.53f, 10.45f, 6.923f, 13.53f, 2.892f},
                                          {122.7f, 5.452f, 67.46f, 49.91f, 55.36f, 32.49f, 32.03f,
                                           18.48f, 11.36f, 11.18f, 18.48f, 3.687f},
                                          {108.7f, 5.457f, 67.35f, 23.66f, 31.11f, 16.6f, 15.54f,
                                           12.45f, 10.34f, 6.051f, 12.45f, 1.733f})};

const dispatch::Registration kRegistered{&kAddRows,     &kSubRows,     &kMulRows,    &kDivRows,
                                         &kSqrtRows,    &kAbsRows,     &kExpLaRows,  &kExpHaRows,
                                         &kExpEpRows,   &kLnLaRows,    &kLnHaRows,   &kLnEpRows,
                                         &kLog10LaRows, &kLog10HaRows, &kLog10EpRows};

}  // namespace zml::vml
