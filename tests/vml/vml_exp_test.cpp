// SPDX-License-Identifier: BSD-3-Clause
// The exponential: each class's kernels against long double expl over the
// whole range, the special values and the statuses at both ends. The sweep
// has 2e5 arguments per kernel; ZML_TEST_SWEEP=1000000 runs the full one.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "tests/vml/vml_accuracy.h"
#include "vml/api/vml_frame.h"
#include "zml_vml.h"

namespace {

using zml::test::kInf;
using zml::test::ulps;

TEST(VmlExp, AccuracySpecialValuesAndStatuses) {
  const int n = zml::test::sweep_size();
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
    // Type 10 has no kernel; types 1 and 2 run one kernel in every class.
    EXPECT_EQ(zml::vml::kExp.costs[10 + 12 * a], zml::vml::kNoKernelCost);
    EXPECT_EQ(zml::vml::kExp.kernels[10 + 12 * a], nullptr);
    EXPECT_EQ(zml::vml::kExp.kernels[1 + 12 * a], zml::vml::kExp.kernels[1 + 12]);
    for (const auto* row : zml::test::usable_rows(zml::vml::kExp, a)) {
      const auto ref = [](double v) { return std::exp(static_cast<long double>(v)); };
      EXPECT_LE(zml::test::worst_ulps(*row, x, ref, "exp", a), bound[a]) << row->name;

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
