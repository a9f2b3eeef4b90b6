// SPDX-License-Identifier: BSD-3-Clause
// The exponential: each class's kernels against long double expl over the
// whole range, the special values and the statuses at both ends. The sweep
// has 2e5 arguments per kernel; ZML_TEST_SWEEP=1000000 runs the full one.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <set>
#include <vector>

#include "vml/api/vml_frame.h"
#include "vml/kernels/vml_kernel.h"
#include "zml_vml.h"

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

// |y - e| in units of the last place of the correctly rounded result.
double ulps(double y, long double e) {
  const double er = static_cast<double>(e);
  if (er == 0.0 || std::isinf(er)) return y == er ? 0.0 : kInf;
  int ex = 0;
  std::frexp(er, &ex);
  const long double ulp = std::ldexp(1.0L, std::max(ex - 53, -1074));
  return static_cast<double>(std::fabs(static_cast<long double>(y) - e) / ulp);
}

TEST(VmlExp, AccuracySpecialValuesAndStatuses) {
  const char* env = std::getenv("ZML_TEST_SWEEP");
  const int n = env != nullptr ? std::atoi(env) : 200000;
  std::mt19937_64 gen(2024);
  std::uniform_real_distribution<double> wide(-745.2, 709.8), near(-2.0, 2.0);
  std::vector<double> x(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) x[i] = i % 4 == 0 ? near(gen) : wide(gen);
  const double bound[3] = {4.0, 1.0, 0x1p26};  // LA, HA, EP (26 correct bits)

  const double sx[] = {0.0, -0.0, kInf, -kInf, NAN, 1e-310, -708.5, -740.0, 709.78, 1.0};
  const double sy[] = {
      1.0,          1.0, kInf, 0.0, NAN, 1.0, std::exp(-708.5), std::exp(-740.0), std::exp(709.78),
      std::exp(1.0)};
  for (int a = 0; a < 3; ++a) {
    std::set<const zml::vml::Variant<zml::vml::unary_fn>*> rows;
    for (int t = 0; t < zml::vml::kTypes; ++t) {
      if (const auto* v = zml::vml::kExp.kernels[t + 12 * a]) rows.insert(v);
    }
    // Type 10 has no kernel; types 1 and 2 run one kernel in every class.
    EXPECT_EQ(zml::vml::kExp.costs[10 + 12 * a], zml::vml::kNoKernelCost);
    EXPECT_EQ(zml::vml::kExp.kernels[10 + 12 * a], nullptr);
    EXPECT_EQ(zml::vml::kExp.kernels[1 + 12 * a], zml::vml::kExp.kernels[1 + 12]);
    for (const auto* row : rows) {
      if (!zml::dispatch::isa_usable(row->isa)) continue;
      std::vector<double> y(x.size());
      row->kernel(n, x.data(), y.data());
      double worst = 0.0, at = 0.0;
      for (int i = 0; i < n; ++i) {
        const double u = ulps(y[i], std::exp(static_cast<long double>(x[i])));
        if (u > worst) worst = u, at = x[i];
      }
      std::printf("exp class %d row %s: max %.3g ulp at %.17g\n", a + 1, row->name, worst, at);
      EXPECT_LE(worst, bound[a]) << row->name << " class " << a + 1;

      double out[10];
      zml::vml::set_status(0);
      row->kernel(10, sx, out);
      EXPECT_EQ(zml::vml::status(), VML_STATUS_UNDERFLOW) << row->name;  // the subnormal results
      for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(std::isnan(sy[i]) ? std::isnan(out[i]) : ulps(out[i], sy[i]) <= bound[a])
            << row->name << " exp(" << sx[i] << ") = " << out[i];
      }
      const double ends[2][2] = {{710.0, 0.5}, {-746.0, 0.5}};
      for (int e = 0; e < 2; ++e) {
        zml::vml::set_status(0);
        row->kernel(2, ends[e], out);  // a masked step with a large lane
        EXPECT_EQ(zml::vml::status(), e == 0 ? VML_STATUS_OVERFLOW : VML_STATUS_UNDERFLOW);
        EXPECT_EQ(out[0], e == 0 ? kInf : 0.0);
      }
    }
  }
}

}  // namespace
