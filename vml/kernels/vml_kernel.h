// SPDX-License-Identifier: BSD-3-Clause
// The vector-math kernel interface: kernel types by arity, the row each
// kernel folder fills in, and the per-function tables of 36 entries (three
// accuracy rows of twelve processor types) through
// which the entries pick a kernel and the threader's cost.
#pragma once

#include <array>
#include <cstdint>

#include "service/cpu/code_path.h"
#include "service/dispatch/code_path_table.h"

namespace zml::vml {

// A kernel computes the whole range [0, n) in the calling thread and leaves
// the computational statuses it meets in the thread's status word
// (report_status). Inputs and output may be the same array; a kernel reads
// each step's inputs before it stores that step's results.
using unary_fn = void (*)(int32_t n, const double* a, double* y);
using binary_fn = void (*)(int32_t n, const double* a, const double* b, double* y);
using scalar_fn = void (*)(int32_t n, const double* a, double b, double* y);

template <class Fn>
struct Variant {
  dispatch::Isa isa;
  Fn kernel;
  const char* name;
};

inline constexpr int32_t kTypes = cpu::kProcessorTypes;
inline constexpr int32_t kTableSize = 36;

// A function's two tables, indexed by type + 12 * (accuracy - 1). A null
// kernel marks a type the function has no kernel for; its cost then holds
// the sentinel kNoKernelCost.
template <class Fn>
struct Function {
  const char* name;
  const dispatch::Table<Variant<Fn>>* rows;
  std::array<const Variant<Fn>*, kTableSize> kernels;
  std::array<float, kTableSize> costs;
};
inline constexpr float kNoKernelCost = 1111.0f;

// The row each processor type runs: that of its code path's level. Types 8,
// 10 and 11 are folded first (onto 7, 7 and 9) as detection folds them, so
// their columns hold the kernel of the level they are served by.
template <class Fn>
constexpr const Variant<Fn>* row_of_type(const dispatch::Table<Variant<Fn>>& t, int32_t type) {
  return &t.at(dispatch::isa_of_path(cpu::code_path_of_type(cpu::fold_type(type))));
}

// The kernels table of a function whose three accuracies share one kernel
// per processor type (the correctly rounded functions).
template <class Fn>
constexpr std::array<const Variant<Fn>*, kTableSize> one_kernel_per_type(
    const dispatch::Table<Variant<Fn>>& t) {
  std::array<const Variant<Fn>*, kTableSize> k{};
  for (int32_t a = 0; a < 3; ++a) {
    for (int32_t type = 0; type < kTypes; ++type) k[type + kTypes * a] = row_of_type(t, type);
  }
  return k;
}

// Three cost rows of twelve.
constexpr std::array<float, kTableSize> cost_rows(const float (&la)[kTypes],
                                                  const float (&ha)[kTypes],
                                                  const float (&ep)[kTypes]) {
  std::array<float, kTableSize> c{};
  for (int32_t type = 0; type < kTypes; ++type) {
    c[type] = la[type];
    c[type + kTypes] = ha[type];
    c[type + 2 * kTypes] = ep[type];
  }
  return c;
}

extern const Function<binary_fn> kAdd, kSub, kMul, kDiv;
extern const Function<unary_fn> kSqrt, kAbs, kExp, kLn, kLog10;

// The statuses a kernel may leave (values of zml_vml.h).
enum Status : int32_t { kOk = 0, kErrDom = 1, kSing = 2, kOverflow = 3, kUnderflow = 4 };
// Stores `status` into the calling thread's status word; out of line and cold,
// kernels call it only on the special values that raise a condition.
[[gnu::cold]] void report_status(int32_t status);
// The statuses of a division step with a zero divisor among its count lanes.
// Both are baseline code, defined once, so that kernels of every folder share
// them without ODR clashes.
[[gnu::cold]] void classify_div(const double* a, const double* b, int count);

// The kernels of each folder, defined there. Declared for every level so a
// new folder needs no edit here; a level without a folder (sse42) declares
// kernels nothing defines or calls.
#define ZML_VML_DECLARE(folder, ...)                                \
  namespace folder {                                                \
  void add(int32_t n, const double* a, const double* b, double* y); \
  void sub(int32_t n, const double* a, const double* b, double* y); \
  void mul(int32_t n, const double* a, const double* b, double* y); \
  void div(int32_t n, const double* a, const double* b, double* y); \
  void sqrt(int32_t n, const double* a, double* y);                 \
  void abs(int32_t n, const double* a, double* y);                  \
  void exp_la(int32_t n, const double* a, double* y);               \
  void exp_ha(int32_t n, const double* a, double* y);               \
  void exp_ep(int32_t n, const double* a, double* y);               \
  void ln_la(int32_t n, const double* a, double* y);                \
  void ln_ha(int32_t n, const double* a, double* y);                \
  void ln_ep(int32_t n, const double* a, double* y);                \
  void log10_la(int32_t n, const double* a, double* y);             \
  void log10_ha(int32_t n, const double* a, double* y);             \
  void log10_ep(int32_t n, const double* a, double* y);             \
  }
ZML_ISA_LEVELS(ZML_VML_DECLARE)
#undef ZML_VML_DECLARE

}  // namespace zml::vml
