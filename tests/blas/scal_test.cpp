// SPDX-License-Identifier: BSD-3-Clause
// cblas_dscal and cblas_zscal through every code path's row and through the
// exports: exact products, any positive increment, n <= 0 and incx <= 0 doing
// nothing, NaN staying NaN under alpha = 0, a true complex product.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <vector>

#include "blas/kernels/level1_kernel.h"
#include "tests/support/blas_ref.h"
#include "tests/support/child.h"
#include "zml_cblas.h"

namespace {

using zml::test::random_vector;
using zcomplex = std::complex<double>;

const int kSizes[] = {0, 1, 2, 7, 63, 64, 65, 1000};

TEST(Scal, DscalExportExactAtEveryIncrement) {
  for (int n : kSizes) {
    for (int inc : {1, 2, 5}) {
      auto x = random_vector<double>(zml::test::vec_storage(n, inc), 11 + n);
      auto want = x;
      for (int i = 0; i < n; ++i) want[size_t(i) * inc] *= -2.5;
      cblas_dscal(n, -2.5, x.data(), inc);
      EXPECT_EQ(x, want) << "n " << n << " inc " << inc;
    }
  }
}

TEST(Scal, NonPositiveNOrIncrementDoesNothing) {
  auto x = random_vector<double>(16, 3);
  const auto before = x;
  cblas_dscal(0, 2.0, x.data(), 1);
  cblas_dscal(-4, 2.0, x.data(), 1);
  cblas_dscal(8, 2.0, x.data(), 0);
  cblas_dscal(8, 2.0, x.data(), -1);
  EXPECT_EQ(x, before);
  auto z = random_vector<zcomplex>(16, 4);
  const auto zbefore = z;
  const zcomplex alpha(2, 1);
  cblas_zscal(8, &alpha, z.data(), -2);
  cblas_zscal(0, &alpha, z.data(), 1);
  EXPECT_EQ(z, zbefore);
}

TEST(Scal, AlphaZeroMultipliesSoNaNStays) {
  std::vector<double> x = {1.0, std::numeric_limits<double>::quiet_NaN(), -3.0};
  cblas_dscal(3, 0.0, x.data(), 1);
  EXPECT_EQ(x[0], 0.0);
  EXPECT_TRUE(std::isnan(x[1]));
}

// Every row the processor supports, against the plain product.
TEST(Scal, EveryRowAgreesWithPlainProduct) {
  for (const zml::blas::dscal_variant* row : zml::blas::kDscalRows) {
    if (!zml::dispatch::isa_usable(row->isa)) {
      std::printf("[  SKIPPED ] dscal row %s: instruction set not usable here\n", row->name);
      continue;
    }
    for (int n : kSizes) {
      for (int inc : {1, 3}) {
        auto x = random_vector<double>(zml::test::vec_storage(n, inc), 21 + n);
        auto want = x;
        for (int i = 0; i < n; ++i) want[size_t(i) * inc] *= 0.375;
        row->kernel(n, 0.375, x.data(), inc);
        EXPECT_EQ(x, want) << row->name << " n " << n << " inc " << inc;
      }
    }
  }
  for (const zml::blas::zscal_variant* row : zml::blas::kZscalRows) {
    if (!zml::dispatch::isa_usable(row->isa)) {
      std::printf("[  SKIPPED ] zscal row %s: instruction set not usable here\n", row->name);
      continue;
    }
    const zcomplex alpha(0.75, -1.5);
    for (int n : kSizes) {
      for (int inc : {1, 2}) {
        auto x = random_vector<zcomplex>(zml::test::vec_storage(n, inc), 31 + n);
        auto want = x;
        for (int i = 0; i < n; ++i) want[size_t(i) * inc] = alpha * want[size_t(i) * inc];
        row->kernel(n, reinterpret_cast<const double*>(&alpha), reinterpret_cast<double*>(x.data()),
                    inc);
        for (size_t p = 0; p < x.size(); ++p) {
          ASSERT_LE(std::abs(x[p] - want[p]), 4e-16 * (1 + std::abs(want[p])))
              << row->name << " n " << n << " inc " << inc << " at " << p;
        }
      }
    }
  }
}

TEST(Scal, ZscalIsATrueComplexProduct) {
  std::vector<zcomplex> x = {{1, 2}, {-3, 0.5}, {0, 1}};
  const zcomplex alpha(0, 1);  // multiplying by i rotates: (a, b) -> (-b, a)
  cblas_zscal(3, &alpha, x.data(), 1);
  EXPECT_EQ(x[0], zcomplex(-2, 1));
  EXPECT_EQ(x[1], zcomplex(-0.5, -3));
  EXPECT_EQ(x[2], zcomplex(-1, 0));
}

// Verbose mode writes "DSCAL(n,alpha,x,incx)" for the call.
TEST(Scal, DISABLED_ChildVerboseLine) {
  double x[4] = {1, 2, 3, 4};
  const std::string out = zml::test::capture_stdout([&] { cblas_dscal(4, 2.0, x, 1); });
  zml::test::emit("has_line", out.find("DSCAL(4,") != std::string::npos ? 1 : 0);
}
TEST(Scal, VerboseLineNamesTheCall) {
  const auto r = zml::test::run_child("Scal.DISABLED_ChildVerboseLine", {{"ZML_VERBOSE", "1"}});
  EXPECT_EQ(r.value("has_line"), "1") << r.out;
}

}  // namespace
