// SPDX-License-Identifier: BSD-3-Clause
// The correctly rounded functions, every row the processor supports, the
// exports and the entry under forced processor types, against scalar C: the
// same bits for every element (NaN for NaN), special values and in-place
// calls included.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "service/service.h"
#include "tests/support/child.h"
#include "vml/api/vml_frame.h"
#include "vml/kernels/vml_kernel.h"
#include "zml_vml.h"

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

std::vector<double> operands(int n, unsigned seed) {
  const double special[] = {0.0, -0.0, kInf, -kInf, kNaN, 4.9e-324, -2.2e-308, 1e308, -3.0, 2.0};
  std::mt19937_64 gen(seed);
  std::uniform_real_distribution<double> mant(-1.0, 1.0);
  std::uniform_int_distribution<int> ex(-1070, 1023);
  std::vector<double> v(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) {
    v[i] = gen() % 4 == 0 ? special[gen() % 10] : std::ldexp(mant(gen), ex(gen) / (i % 3 + 1));
  }
  return v;
}

bool same(double x, double y) {
  return (std::isnan(x) && std::isnan(y)) || std::memcmp(&x, &y, sizeof x) == 0;
}

// The first differing element, or "" when all match.
template <class Ref>
std::string check(int n, const double* y, Ref ref) {
  for (int i = 0; i < n; ++i) {
    if (!same(y[i], ref(i))) return "element " + std::to_string(i) + " of " + std::to_string(n);
  }
  return "";
}

double c_add(double a, double b) { return a + b; }
double c_sub(double a, double b) { return a - b; }
double c_mul(double a, double b) { return a * b; }
double c_div(double a, double b) { return a / b; }
struct Binary {
  const zml::vml::Function<zml::vml::binary_fn>& f;
  double (*ref)(double, double);
  void (*entry)(int, const double*, const double*, double*);
};
struct Unary {
  const zml::vml::Function<zml::vml::unary_fn>& f;
  double (*ref)(double);
  void (*entry)(int, const double*, double*);
};
const Binary kBinary[] = {{zml::vml::kAdd, c_add, vdAdd},
                          {zml::vml::kSub, c_sub, vdSub},
                          {zml::vml::kMul, c_mul, vdMul},
                          {zml::vml::kDiv, c_div, vdDiv}};
const Unary kUnary[] = {{zml::vml::kSqrt, [](double x) { return std::sqrt(x); }, vdSqrt},
                        {zml::vml::kAbs, [](double x) { return std::fabs(x); }, vdAbs}};

// Every size up to two AVX-512 steps past a block, in place too, through
// `bin` and `un`, which take the function's index.
template <class B, class U>
std::string check_all(B bin, U un) {
  for (int n : {1, 3, 8, 15, 17, 33, 250}) {
    const std::vector<double> a = operands(n, 7u + n), b = operands(n, 99u + n);
    for (const Binary& t : kBinary) {
      std::vector<double> y(n), inplace = a;
      bin(t, n, a.data(), b.data(), y.data());
      bin(t, n, inplace.data(), b.data(), inplace.data());
      for (const auto* out : {&y, &inplace}) {
        const std::string bad = check(n, out->data(), [&](int i) { return t.ref(a[i], b[i]); });
        if (!bad.empty()) return std::string(t.f.name) + " " + bad;
      }
    }
    for (const Unary& t : kUnary) {
      std::vector<double> y(n), inplace = a;
      un(t, n, a.data(), y.data());
      un(t, n, inplace.data(), inplace.data());
      for (const auto* out : {&y, &inplace}) {
        const std::string bad = check(n, out->data(), [&](int i) { return t.ref(a[i]); });
        if (!bad.empty()) return std::string(t.f.name) + " " + bad;
      }
    }
  }
  return "";
}

TEST(VmlExact, EveryRowMatchesScalarC) {
  for (const auto* row : zml::vml::kDiv.rows->rows()) {
    if (!zml::dispatch::isa_usable(row->isa)) {
      std::printf("vml row %s not run: instruction set not usable here\n", row->name);
      continue;
    }
    const auto isa = row->isa;
    const std::string bad =
        check_all([isa](const Binary& t, int n, const double* a, const double* b,
                        double* y) { t.f.rows->at(isa).kernel(n, a, b, y); },
                  [isa](const Unary& t, int n, const double* a, double* y) {
                    t.f.rows->at(isa).kernel(n, a, y);
                  });
    EXPECT_EQ(bad, "") << row->name;
  }
}

// The kernel tables: each type runs the level of its folded type's code path,
// in every class.
TEST(VmlExact, TablesFollowCodePaths) {
  for (int a = 0; a < 3; ++a) {
    for (int t = 0; t < zml::vml::kTypes; ++t) {
      const auto isa =
          zml::dispatch::isa_of_path(zml::cpu::code_path_of_type(zml::cpu::fold_type(t)));
      EXPECT_EQ(zml::vml::kDiv.kernels[t + 12 * a], &zml::vml::kDiv.rows->at(isa));
      EXPECT_EQ(zml::vml::kSqrt.kernels[t + 12 * a], &zml::vml::kSqrt.rows->at(isa));
      EXPECT_GT(zml::vml::kAdd.costs[t + 12 * a], 0.0f);
    }
  }
}

TEST(VmlExact, DISABLED_ChildExports) {
  const std::string bad =
      check_all([](const Binary& t, int n, const double* a, const double* b,
                   double* y) { t.entry(n, a, b, y); },
                [](const Unary& t, int n, const double* a, double* y) { t.entry(n, a, y); });
  // The exponential's kernel of this type and class, and its overflow status.
  std::vector<double> x(37), y(37);
  for (int i = 0; i < 37; ++i) x[i] = i == 36 ? 710.0 : -700.0 + 38.0 * i;
  vdExp(37, x.data(), y.data());
  int close = 0;
  for (int i = 0; i < 37; ++i)
    close += x[i] > 709.8 || std::fabs(y[i] / std::exp(x[i]) - 1) < 5e-16;
  const bool exp_ok = close == 37 && zml::vml::status() == VML_STATUS_OVERFLOW;
  // The logarithms, with a pole (ln 0) and a domain error (log10 of -1).
  bool log_ok = true;
  for (int f = 0; f < 2; ++f) {
    for (int i = 0; i < 37; ++i) x[i] = i == 0 ? -f : std::ldexp(1.5 + i / 64.0, 50 * i - 900);
    (f == 0 ? vdLn : vdLog10)(37, x.data(), y.data());
    log_ok &= zml::vml::status() == (f == 0 ? VML_STATUS_SING : VML_STATUS_ERRDOM);
    for (int i = 1; i < 37; ++i) {
      log_ok &= std::fabs(y[i] / (f == 0 ? std::log(x[i]) : std::log10(x[i])) - 1) < 1e-15;
    }
  }
  zml::test::emit("type", zml::serv::processor_type());
  zml::test::emit("exact", bad.empty() ? "yes" : bad);
  zml::test::emit("exp", exp_ok ? "yes" : "no");
  zml::test::emit("log", log_ok ? "yes" : "no");
}

// Through the entries, each forced processor type (SSE2, AVX, AVX2, AVX-512)
// in its own process, in low and high accuracy (the exponential within 5e-16,
// the logarithms within 1e-15).
TEST(VmlExact, ExportsUnderForcedTypes) {
  for (const char* type : {"0", "6", "7", "9"}) {
    for (const char* mode : {"VML_LA", "VML_HA|VML_ERRMODE_NOERR"}) {
      const auto r = zml::test::run_child("VmlExact.DISABLED_ChildExports",
                                          {{"ZML_DEBUG_CPU_TYPE", type}, {"ZML_VML_MODE", mode}});
      EXPECT_EQ(r.mismatches(std::string("exact=yes exp=yes log=yes type=") + type), "") << mode;
    }
  }
}

}  // namespace
