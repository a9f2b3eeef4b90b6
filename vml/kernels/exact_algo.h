// SPDX-License-Identifier: BSD-3-Clause
// The correctly rounded functions (add, sub, mul, div, sqrt, abs), written
// once over the SIMD ops of service/simd/<isa>/; each kernel folder
// instantiates them with its own ops. One instruction per element is already
// the correctly rounded result, so the three accuracy classes share these
// kernels. The last, partial step loads its missing lanes as 1.0, which no
// operation here flags, so the status test needs no lane mask.
#pragma once

#include <cstdint>

#include "vml/kernels/vml_kernel.h"

namespace zml::vml::algo {

// An Op gives run() (the vector operation) and, when kChecks, flags() (lanes
// that may raise a status) and classify() (the scalar look at such a step's
// inputs, made before the step stores, so in-place calls still see them).
template <class Ops, class Op>
void unary(int32_t n, const double* a, double* y) {
  constexpr int W = Ops::W;
  int64_t i = 0;
  for (; i + W <= n; i += W) {
    const auto x = Ops::load(a + i);
    if (Op::kChecks && Op::template flags<Ops>(x) != 0) Op::classify(a + i, W);
    Ops::store(y + i, Op::template run<Ops>(x));
  }
  if (i < n) {
    const int count = static_cast<int>(n - i);
    const auto x = Ops::load_partial_or(a + i, count, 1.0);
    if (Op::kChecks && Op::template flags<Ops>(x) != 0) Op::classify(a + i, count);
    Ops::store_partial(y + i, Op::template run<Ops>(x), count);
  }
}

template <class Ops, class Op>
void binary(int32_t n, const double* a, const double* b, double* y) {
  constexpr int W = Ops::W;
  int64_t i = 0;
  for (; i + W <= n; i += W) {
    const auto x = Ops::load(a + i), z = Ops::load(b + i);
    if (Op::kChecks && Op::template flags<Ops>(z) != 0) Op::classify(a + i, b + i, W);
    Ops::store(y + i, Op::template run<Ops>(x, z));
  }
  if (i < n) {
    const int count = static_cast<int>(n - i);
    const auto x = Ops::load_partial_or(a + i, count, 1.0);
    const auto z = Ops::load_partial_or(b + i, count, 1.0);
    if (Op::kChecks && Op::template flags<Ops>(z) != 0) Op::classify(a + i, b + i, count);
    Ops::store_partial(y + i, Op::template run<Ops>(x, z), count);
  }
}

#define ZML_VML_PLAIN_BINARY(Name, op)                         \
  struct Name {                                                \
    static constexpr bool kChecks = false;                     \
    template <class Ops, class V>                              \
    static V run(V x, V z) {                                   \
      return Ops::op(x, z);                                    \
    }                                                          \
    template <class Ops, class V>                              \
    static int flags(V) {                                      \
      return 0;                                                \
    }                                                          \
    static void classify(const double*, const double*, int) {} \
  };
ZML_VML_PLAIN_BINARY(AddOp, add)
ZML_VML_PLAIN_BINARY(SubOp, sub)
ZML_VML_PLAIN_BINARY(MulOp, mul)
#undef ZML_VML_PLAIN_BINARY

// x / 0: a pole for finite nonzero x, a domain error for 0 / 0; NaN / 0 and
// Inf / 0 are quiet, as in C.
struct DivOp {
  static constexpr bool kChecks = true;
  template <class Ops, class V>
  static V run(V x, V z) {
    return Ops::div(x, z);
  }
  template <class Ops, class V>
  static int flags(V z) {
    return Ops::eq_bits(z, Ops::zero());
  }
  static void classify(const double* a, const double* b, int count) { classify_div(a, b, count); }
};

// The square root of anything below zero (-Inf too; -0 is not below) is a
// domain error.
struct SqrtOp {
  static constexpr bool kChecks = true;
  template <class Ops, class V>
  static V run(V x) {
    return Ops::sqrt(x);
  }
  template <class Ops, class V>
  static int flags(V x) {
    return Ops::lt_bits(x, Ops::zero());
  }
  static void classify(const double*, int) { report_status(kErrDom); }
};

struct AbsOp {
  static constexpr bool kChecks = false;
  template <class Ops, class V>
  static V run(V x) {
    return Ops::abs(x);
  }
  template <class Ops, class V>
  static int flags(V) {
    return 0;
  }
  static void classify(const double*, int) {}
};

}  // namespace zml::vml::algo

// The six kernels of one folder over its ops, as each folder's source defines them.
#define ZML_VML_EXACT_KERNELS(Ops)                                                              \
  void add(int32_t n, const double* a, const double* b, double* y) {                            \
    algo::binary<Ops, algo::AddOp>(n, a, b, y);                                                 \
  }                                                                                             \
  void sub(int32_t n, const double* a, const double* b, double* y) {                            \
    algo::binary<Ops, algo::SubOp>(n, a, b, y);                                                 \
  }                                                                                             \
  void mul(int32_t n, const double* a, const double* b, double* y) {                            \
    algo::binary<Ops, algo::MulOp>(n, a, b, y);                                                 \
  }                                                                                             \
  void div(int32_t n, const double* a, const double* b, double* y) {                            \
    algo::binary<Ops, algo::DivOp>(n, a, b, y);                                                 \
  }                                                                                             \
  void sqrt(int32_t n, const double* a, double* y) { algo::unary<Ops, algo::SqrtOp>(n, a, y); } \
  void abs(int32_t n, const double* a, double* y) { algo::unary<Ops, algo::AbsOp>(n, a, y); }
