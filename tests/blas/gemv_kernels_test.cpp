// SPDX-License-Identifier: BSD-3-Clause
// Every gemv and trsv table row the processor supports, called directly on
// contiguous data against the naive loop (unsupported rows skip visibly).
#include <gtest/gtest.h>

#include <complex>
#include <string>

#include "blas/kernels/level2_kernel.h"
#include "tests/blas/level2_check.h"

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

// One kernel folder per parameter: its dgemv row, and the other tables' rows
// of the same level.
class Level2Rows : public ::testing::TestWithParam<const zml::blas::dgemv_variant*> {
 protected:
  void SetUp() override {
    if (!zml::dispatch::isa_usable(GetParam()->isa)) {
      GTEST_SKIP() << "row " << GetParam()->name << " not usable";
    }
  }
  template <class Row>
  const Row* same_level(const zml::dispatch::Table<Row>& table) const {
    return &table.at(GetParam()->isa);
  }
};

TEST_P(Level2Rows, GemvMatchesNaiveLoop) {
  const auto* d = GetParam();
  check_gemv_kernel<double>('N', d->gemv_n, d->tune, d->name);
  check_gemv_kernel<double>('T', d->gemv_t, d->tune, d->name);
  const auto* z = same_level(zml::blas::kZgemvTable);
  check_gemv_kernel<zcomplex>('N', z->gemv_n, z->tune, z->name);
  check_gemv_kernel<zcomplex>('T', z->gemv_t, z->tune, z->name);
  check_gemv_kernel<zcomplex>('C', z->gemv_c, z->tune, z->name);
}

// Matrices of 4 Mi elements and more take the register-blocked form that
// keeps y (N) or eight sums (T) in registers over column panels; odd sizes, a
// padded lda and a misaligned start exercise its leading and trailing rows.
TEST_P(Level2Rows, DgemvLargeMatricesMatchNaiveLoop) {
  const auto* row = GetParam();
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
  const auto* d = same_level(zml::blas::kDtrsvTable);
  check_trsv_kernel<double>(d->kernel, d->tune, d->name);
  const auto* z = same_level(zml::blas::kZtrsvTable);
  check_trsv_kernel<zcomplex>(z->kernel, z->tune, z->name);
}

INSTANTIATE_TEST_SUITE_P(Rows, Level2Rows, ::testing::ValuesIn(zml::blas::kDgemvTable.rows()),
                         [](const ::testing::TestParamInfo<const zml::blas::dgemv_variant*>& p) {
                           return std::string(p.param->name);
                         });

}  // namespace
