// SPDX-License-Identifier: BSD-3-Clause
// What the accuracy tests of the vector-math kernels share: the error in
// units of the last place against a long double reference, the sweep size,
// and the distinct rows a function's table runs in one accuracy class.
#pragma once

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <set>
#include <vector>

#include "vml/kernels/vml_kernel.h"

namespace zml::test {

inline constexpr double kInf = std::numeric_limits<double>::infinity();

// |y - e| in units of the last place of the correctly rounded result.
inline double ulps(double y, long double e) {
  const double er = static_cast<double>(e);
  if (er == 0.0 || std::isinf(er)) return y == er ? 0.0 : kInf;
  int ex = 0;
  std::frexp(er, &ex);
  const long double ulp = std::ldexp(1.0L, std::max(ex - 53, -1074));
  return static_cast<double>(std::fabs(static_cast<long double>(y) - e) / ulp);
}

// 2e5 arguments per kernel; ZML_TEST_SWEEP=1000000 runs the full sweep.
inline int sweep_size() {
  const char* env = std::getenv("ZML_TEST_SWEEP");
  return env != nullptr ? std::atoi(env) : 200000;
}

// The usable rows of class `a` (0 LA, 1 HA, 2 EP); types without a kernel
// are left out.
inline std::set<const vml::Variant<vml::unary_fn>*> usable_rows(
    const vml::Function<vml::unary_fn>& f, int a) {
  std::set<const vml::Variant<vml::unary_fn>*> rows;
  for (int t = 0; t < vml::kTypes; ++t) {
    const auto* v = f.kernels[t + 12 * a];
    if (v != nullptr && dispatch::isa_usable(v->isa)) rows.insert(v);
  }
  return rows;
}

// The row's largest error over `x`, printed with the argument that gave it.
template <class Ref>
double worst_ulps(const vml::Variant<vml::unary_fn>& row, const std::vector<double>& x, Ref ref,
                  const char* fn, int a) {
  std::vector<double> y(x.size());
  row.kernel(static_cast<int32_t>(x.size()), x.data(), y.data());
  double worst = 0.0, at = 0.0;
  for (size_t i = 0; i < x.size(); ++i) {
    const double u = ulps(y[i], ref(x[i]));
    if (u > worst) worst = u, at = x[i];
  }
  std::printf("%s class %d row %s: max %.3g ulp at %.17g\n", fn, a + 1, row.name, worst, at);
  return worst;
}

}  // namespace zml::test
