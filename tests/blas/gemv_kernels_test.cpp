// SPDX-License-Identifier: BSD-3-Clause
// Every gemv and trsv table row the processor supports, called directly on
// contiguous data against the naive loop (unsupported rows skip visibly), and
// every code path forced through the override variable in a child process.
#include <gtest/gtest.h>

#include <complex>
#include <cstdio>
#include <string>

#include "blas/kernels/level2_kernel.h"
#include "service/service.h"
#include "tests/blas/level2_check.h"
#include "tests/support/child.h"
#include "zml_cblas.h"

namespace {

using zml::test::dp;
using zml::test::GemvCase;
using zml::test::scalar;
using zml::test::TrsvCase;
using zcomplex = std::complex<double>;

// Sizes around every vector width and unroll edge (1..16 doubles per pass).
const int kEdges[] = {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33, 63, 64, 65, 130};

// The kernels take a real alpha by value and a complex one by address.
double alpha_arg(const double& a) { return a; }
const double* alpha_arg(const zcomplex& a) { return dp(&a); }

// y += alpha*op(A)*x for one kernel (contiguous vectors, lda = m + 3).
template <class T, class Kernel>
void check_gemv_kernel(char trans, Kernel kernel, const zml::blas::gemv_tuning& tune,
                       const char* name) {
  for (int m : kEdges) {
    for (int n : {1, 3, 4, 5, 8, 9, 17}) {
      GemvCase<T> c(false, trans, m, n, scalar<T>(0.5, -1.25), T(1), 3, 1, 1, 1000 + 37 * m + n);
      kernel(m, n, alpha_arg(c.alpha), dp(c.pa()), c.lda, dp(c.x.p()), dp(c.y.p()), tune);
      ASSERT_TRUE(c.matches(name));
    }
  }
}

// Every trans, triangle and diagonal over sizes and diagonal blocks that
// leave partial blocks at either end.
template <class T, class Kernel>
void check_trsv_kernel(Kernel kernel, const zml::blas::gemv_tuning& tune, const char* name) {
  for (int n : {1, 2, 5, 17, 64, 65, 150}) {
    for (int nb : {1, 3, 64}) {
      for (int upper : {0, 1}) {
        for (int trans = 0; trans < (zml::test::is_complex<T>::value ? 3 : 2); ++trans) {
          for (int unit : {0, 1}) {
            TrsvCase<T> c(false, upper, "NTC"[trans], unit, n, 2, 1, 500 + n * 7 + nb);
            kernel(upper, trans, unit, n, dp(c.pa()), c.lda, dp(c.x.p()), nb, tune);
            ASSERT_TRUE(c.matches(std::string(name) + " nb " + std::to_string(nb)));
          }
        }
      }
    }
  }
}

class Level2Rows : public ::testing::TestWithParam<int> {
 protected:
  // The rows of one folder share its instruction set.
  void SetUp() override {
    const auto* row = zml::blas::kDgemvRows[GetParam()];
    if (!zml::dispatch::isa_usable(row->isa)) GTEST_SKIP() << "row " << row->name << " not usable";
  }
};

TEST_P(Level2Rows, GemvMatchesNaiveLoop) {
  const auto* d = zml::blas::kDgemvRows[GetParam()];
  check_gemv_kernel<double>('N', d->gemv_n, d->tune, d->name);
  check_gemv_kernel<double>('T', d->gemv_t, d->tune, d->name);
  const auto* z = zml::blas::kZgemvRows[GetParam()];
  check_gemv_kernel<zcomplex>('N', z->gemv_n, z->tune, z->name);
  check_gemv_kernel<zcomplex>('T', z->gemv_t, z->tune, z->name);
  check_gemv_kernel<zcomplex>('C', z->gemv_c, z->tune, z->name);
}

// Matrices of 4 Mi elements and more take the register-blocked form that
// keeps y (N) or eight sums (T) in registers over column panels; odd sizes, a
// padded lda and a misaligned start exercise its leading and trailing rows.
TEST_P(Level2Rows, DgemvLargeMatricesMatchNaiveLoop) {
  const auto* row = zml::blas::kDgemvRows[GetParam()];
  const int m = 2053, n = 2047;
  ASSERT_GE(int64_t{m} * n, int64_t{1} << 22);
  for (char t : {'N', 'T'}) {
    GemvCase<double> c(false, t, m, n, -0.75, 1.0, 3, 1, 1, 77);
    (t == 'N' ? row->gemv_n : row->gemv_t)(m, n, c.alpha, c.pa(), c.lda, c.x.p(), c.y.p(),
                                           row->tune);
    EXPECT_TRUE(c.matches(row->name));
  }
}

TEST_P(Level2Rows, TrsvMatchesSubstitution) {
  const auto* d = zml::blas::kDtrsvRows[GetParam()];
  check_trsv_kernel<double>(d->kernel, d->tune, d->name);
  const auto* z = zml::blas::kZtrsvRows[GetParam()];
  check_trsv_kernel<zcomplex>(z->kernel, z->tune, z->name);
}

INSTANTIATE_TEST_SUITE_P(Rows, Level2Rows, ::testing::Range(0, zml::blas::kLevel2Rows),
                         [](const ::testing::TestParamInfo<int>& p) {
                           return std::string(zml::blas::kDgemvRows[p.param]->name);
                         });

// ---- the override, once per code path, in child processes ---------------------

// In the child: the code path it runs, the row the table gives it, and whether
// a gemv (negative increment), a zgemv "C" and a real and a complex trsv
// through the exports match the naive loops.
TEST(GemvCodePath, DISABLED_Child) {
  zml::test::emit("code_path", zml_serv_get_code_path());
  zml::test::emit("row", zml::dispatch::pick(zml::blas::kDgemvTable).name);
  GemvCase<double> d(false, 'T', 67, 45, 2.0, 0.5, 0, -2, 1, 77);
  GemvCase<zcomplex> z(false, 'C', 67, 45, zcomplex(1, -1), zcomplex(0.5, 0.5), 0, 1, 1, 80);
  TrsvCase<double> dt(false, true, 'N', false, 45, 0, 1, 83);
  TrsvCase<zcomplex> zt(false, false, 'C', false, 45, 1, 1, 84);
  zml::test::call_cblas(d);
  zml::test::call_cblas(z);
  zml::test::call_cblas(dt);
  zml::test::call_cblas(zt);
  bool ok = true;
  for (const auto& r :
       {d.matches("dgemv"), z.matches("zgemv"), dt.matches("dtrsv"), zt.matches("ztrsv")}) {
    if (!r) std::printf("%s\n", r.message());
    ok = ok && r;
  }
  zml::test::emit("correct", ok ? 1 : 0);
}

class GemvCodePathOverride : public ::testing::TestWithParam<int> {};

TEST_P(GemvCodePathOverride, ChildRunsForcedPathCorrectly) {
  const int cp = GetParam();
  const auto r = zml::test::run_child("GemvCodePath.DISABLED_Child",
                                      {{"ZML_CODE_PATH_OVERRIDE", std::to_string(cp)}});
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(r.value("code_path"), std::to_string(cp)) << r.out;
  // The row is the slot's own, or the best usable lower one on this processor.
  EXPECT_EQ(r.value("row"), zml::dispatch::pick(zml::blas::kDgemvTable, cp).name) << r.out;
  EXPECT_EQ(r.value("correct"), "1") << r.out;
}

INSTANTIATE_TEST_SUITE_P(Paths, GemvCodePathOverride, ::testing::Values(0, 7, 8, 9, 11));

}  // namespace
