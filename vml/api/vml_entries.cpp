// SPDX-License-Identifier: BSD-3-Clause
// The exported vector-math functions. Every one is the same entry: check the
// arguments, pick the kernel and cost of this processor type and the thread's
// accuracy, hand them to the threader of its shape, and react to the status
// its kernels left.
#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <utility>

#include "service/cpu/code_path.h"
#include "service/entry.h"
#include "service/service.h"
#include "vml/api/vml_frame.h"
#include "vml/driver/threader.h"
#include "vml/kernels/vml_kernel.h"
#include "zml_vml.h"

namespace zml::vml {

namespace {

// Bit i set when instruction-set level i runs here; computed once, racing
// first callers store the same word.
std::atomic<uint32_t> g_usable{0};
constexpr uint32_t kUsableKnown = 1u << 31;

bool usable(dispatch::Isa isa) {
  uint32_t u = g_usable.load(std::memory_order_relaxed);
  if (u == 0) {
    u = kUsableKnown;
    for (int32_t l = 0; l < dispatch::kLevelCount; ++l) {
      if (dispatch::isa_usable(dispatch::kLevels[l].isa)) u |= 1u << l;
    }
    g_usable.store(u, std::memory_order_relaxed);
  }
  return (u >> static_cast<int32_t>(isa) & 1u) != 0;
}

template <class Fn>
struct Pick {
  Fn kernel;
  float cost;
};

// The kernel and cost of this processor type and the thread's accuracy. A
// type without a kernel of its own runs the type that serves it, and a
// forced type above what the processor can run falls back to the best row it
// can.
template <class Fn>
Pick<Fn> pick(const Function<Fn>& f) {
  int32_t type = serv::processor_type();
  if (type < 0 || type >= kTypes) type = 0;
  const int32_t row = kTypes * accuracy_row(current_mode());
  if (f.kernels[type + row] == nullptr) type = cpu::fold_type(type);
  const Variant<Fn>* v = f.kernels[type + row];
  if (!usable(v->isa)) v = &f.rows->pick(cpu::code_path_of_type(type));
  return {v->kernel, f.costs[type + row]};
}

// The arguments after n as (pointer, parameter number) pairs, checked in
// order; returns the number of the first null one, or 0.
int32_t first_null(std::initializer_list<std::pair<const void*, int32_t>> ptrs) {
  for (const auto& [p, number] : ptrs) {
    if (p == nullptr) return number;
  }
  return 0;
}

serv::EntryWord g_word;

template <class Fn, class Threader, class... Args>
void run(const Function<Fn>& f, Threader threader, int32_t n, int32_t bad, Args... args) {
  if (n < 0) return bad_argument(f.name, 1, VML_STATUS_BADSIZE, n);
  // An empty call neither reports nor clears the status, deliberately: the
  // status of the last real call stays readable.
  if (n == 0) return;
  if (bad != 0) return bad_argument(f.name, bad, VML_STATUS_BADMEM, n);
  set_status(0);
  serv::checked_entry(
      g_word, serv::kDomainVml, f.name, 0,
      [](uint64_t, const Function<Fn>* fp, Threader th, int32_t m, Args... xs) {
        const Pick<Fn> k = pick(*fp);
        th(k.kernel, k.cost, m, xs..., 0);
      },
      [](char* buf, size_t size, const Function<Fn>* fp, Threader, int32_t m, Args... xs) {
        if constexpr (sizeof...(xs) == 2) {
          serv::format_call(buf, size, "%s(%d,%p,%p)", fp->name, m,
                            static_cast<const void*>(xs)...);
        } else {
          serv::format_call(buf, size, "%s(%d,%p,%p,%p)", fp->name, m,
                            static_cast<const void*>(xs)...);
        }
      },
      &f, threader, n, args...);
  if (const int32_t st = status(); st != 0) react(f.name, st, n);
}

void unary(const Function<unary_fn>& f, int32_t n, const double* a, double* y) {
  run(f, &zml_vml_serv_threader_d_1i_1o, n, first_null({{a, 2}, {y, 3}}), a, y);
}
void binary(const Function<binary_fn>& f, int32_t n, const double* a, const double* b, double* y) {
  run(f, &zml_vml_serv_threader_d_2i_1o, n, first_null({{a, 2}, {b, 3}, {y, 4}}), a, b, y);
}

}  // namespace
}  // namespace zml::vml

using zml::vml::binary;
using zml::vml::unary;

ZML_API void vdAdd(const int n, const double a[], const double b[], double r[]) {
  binary(zml::vml::kAdd, n, a, b, r);
}
ZML_API void vdSub(const int n, const double a[], const double b[], double r[]) {
  binary(zml::vml::kSub, n, a, b, r);
}
ZML_API void vdMul(const int n, const double a[], const double b[], double r[]) {
  binary(zml::vml::kMul, n, a, b, r);
}
ZML_API void vdDiv(const int n, const double a[], const double b[], double r[]) {
  binary(zml::vml::kDiv, n, a, b, r);
}
ZML_API void vdSqrt(const int n, const double a[], double r[]) { unary(zml::vml::kSqrt, n, a, r); }
ZML_API void vdAbs(const int n, const double a[], double r[]) { unary(zml::vml::kAbs, n, a, r); }
ZML_API void vdExp(const int n, const double a[], double r[]) { unary(zml::vml::kExp, n, a, r); }
ZML_API void vdLn(const int n, const double a[], double r[]) { unary(zml::vml::kLn, n, a, r); }
ZML_API void vdLog10(const int n, const double a[], double r[]) {
  unary(zml::vml::kLog10, n, a, r);
}
