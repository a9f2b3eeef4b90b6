// SPDX-License-Identifier: BSD-3-Clause
// The logarithms: each class's kernels against long double over the whole
// positive range (subnormals included) and around 1, the special values and
// their statuses. 2e5 arguments per kernel; ZML_TEST_SWEEP=1000000 runs the
// full sweep.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "tests/vml/vml_accuracy.h"
#include "vml/api/vml_frame.h"
#include "zml_vml.h"

namespace {

using zml::test::kInf;
using zml::test::ulps;

TEST(VmlLog, AccuracySpecialValuesAndStatuses) {
  const int n = zml::test::sweep_size();
  std::mt19937_64 gen(2025);
  std::uniform_int_distribution<uint64_t> any(1, 0x7FEFFFFFFFFFFFFFull);
  std::uniform_real_distribution<double> near(-0x1p-6, 0x1p-6);
  std::vector<double> x(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) {
    const uint64_t b = any(gen);
    std::memcpy(&x[i], &b, sizeof b);  // uniform over the exponents
    if (i % 3 == 0) x[i] = 1.0 + near(gen) * (i % 2 == 0 ? 1.0 : 0x1p-30);
  }
  const double bound[3] = {4.0, 1.0, 0x1p26};  // LA, HA, EP (26 correct bits)
  const double sx[] = {1.0, kInf, NAN, 5e-324, 0x1p-1022, 1.7976931348623157e308, 10.0, 0.1};
  const zml::vml::Function<zml::vml::unary_fn>* fns[2] = {&zml::vml::kLn, &zml::vml::kLog10};
  for (int f = 0; f < 2; ++f) {
    auto ref = [f](double v) {
      return f == 0 ? std::log(static_cast<long double>(v))
                    : std::log10(static_cast<long double>(v));
    };
    for (int a = 0; a < 3; ++a) {
      for (const auto* row : zml::test::usable_rows(*fns[f], a)) {
        EXPECT_LE(zml::test::worst_ulps(*row, x, ref, fns[f]->name, a), bound[a]) << row->name;

        double out[8];
        zml::vml::set_status(0);
        row->kernel(8, sx, out);
        EXPECT_EQ(zml::vml::status(), VML_STATUS_OK);
        EXPECT_TRUE(out[0] == 0.0 && !std::signbit(out[0])) << row->name;
        EXPECT_EQ(out[1], kInf);
        EXPECT_TRUE(std::isnan(out[2]));
        for (int i = 3; i < 8; ++i) EXPECT_LE(ulps(out[i], ref(sx[i])), bound[a]) << sx[i];
        // Zeros are poles, negative arguments domain errors; each in a masked
        // step beside an ordinary lane.
        const double bad[4][2] = {{0.0, 2.0}, {-0.0, 2.0}, {-1e-300, 2.0}, {-kInf, 2.0}};
        for (int e = 0; e < 4; ++e) {
          zml::vml::set_status(0);
          row->kernel(2, bad[e], out);
          EXPECT_EQ(zml::vml::status(), e < 2 ? VML_STATUS_SING : VML_STATUS_ERRDOM);
          EXPECT_TRUE(e < 2 ? out[0] == -kInf : std::isnan(out[0])) << row->name << bad[e][0];
          EXPECT_EQ(out[1], static_cast<double>(ref(2.0)));
        }
      }
    }
  }
}

}  // namespace
