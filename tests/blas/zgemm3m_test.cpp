// SPDX-License-Identifier: BSD-3-Clause
// zgemm3m against a long-double reference within the 3M bound stated in the
// README, every transpose pair, both layouts, one thread and a team; and the
// switch to the ordinary complex multiply at k = 8.
#include <gtest/gtest.h>

#include <complex>
#include <cstring>
#include <string>
#include <vector>

#include "tests/blas/gemm_check.h"
#include "zml_cblas.h"
#include "zml_service.h"

namespace {

using zcomplex = std::complex<double>;
using zml::test::GemmCase;

CBLAS_TRANSPOSE cb(char t) {
  return t == 'N' ? CblasNoTrans : t == 'T' ? CblasTrans : CblasConjTrans;
}

double abs1(zcomplex z) { return std::abs(z.real()) + std::abs(z.imag()); }

// Whether every element of C is within 8 (k + 2) eps of
// |alpha| sum_p (|Re a| + |Im a|)(|Re b| + |Im b|) + |beta c| (c as it was)
// of the reference: the sums of real and imaginary parts the three products
// form bound their rounding, not the size of the result.
::testing::AssertionResult within_3m_bound(const GemmCase<zcomplex>& cs,
                                           const std::vector<zcomplex>& old,
                                           const std::string& what) {
  const auto op = [&](const zcomplex* x, int32_t ld, char t, int i, int j) {
    return t == 'N' ? x[zml::test::at(cs.row_major, ld, i, j)]
                    : x[zml::test::at(cs.row_major, ld, j, i)];
  };
  const double tol = 2.0 * zml::test::sum_tolerance(cs.k);
  for (int j = 0; j < cs.n; ++j) {
    for (int i = 0; i < cs.m; ++i) {
      double mag = 0;
      for (int p = 0; p < cs.k; ++p) {
        mag += abs1(op(cs.pa(), cs.lda, cs.ta, i, p)) * abs1(op(cs.pb(), cs.ldb, cs.tb, p, j));
      }
      const size_t e = cs.c0 + zml::test::at(cs.row_major, cs.ldc, i, j);
      const double was = cs.beta == 0.0 ? 0.0 : std::abs(cs.beta * old[e]);
      const double bound = tol * (std::abs(cs.alpha) * mag + was) + 1e-300;
      if (!(std::abs(cs.c[e] - cs.want[e]) <= bound)) {
        return ::testing::AssertionFailure() << what << " (" << i << ", " << j << ") off by "
                                             << std::abs(cs.c[e] - cs.want[e]) << " > " << bound;
      }
    }
  }
  return ::testing::AssertionSuccess();
}

// Runs zgemm3m on the case and returns C as it was.
std::vector<zcomplex> run3m(GemmCase<zcomplex>& cs) {
  std::vector<zcomplex> old = cs.c;
  cblas_zgemm3m(cs.row_major ? CblasRowMajor : CblasColMajor, cb(cs.ta), cb(cs.tb), cs.m, cs.n,
                cs.k, &cs.alpha, cs.pa(), cs.lda, cs.pb(), cs.ldb, &cs.beta, cs.pc(), cs.ldc);
  return old;
}

TEST(Zgemm3m, WithinBoundEveryTransposeLayoutAndTeam) {
  // k = 300 takes more than one pass over k; beta = 0 puts NaN in C first.
  const int shapes[][3] = {{9, 9, 9}, {37, 61, 300}, {150, 70, 40}};
  const int blas = ZML_DOMAIN_BLAS;
  uint64_t seed = 7;
  for (const int threads : {1, 3}) {
    zml_domain_set_num_threads(&threads, &blas);
    for (const char ta : {'N', 'T', 'C'}) {
      for (const char tb : {'N', 'T', 'C'}) {
        for (const auto& s : shapes) {
          const bool row = (seed & 2) != 0;
          const zcomplex beta = seed % 3 == 0 ? zcomplex(0) : zcomplex(0.5, -0.25);
          GemmCase<zcomplex> cs(row, ta, tb, s[0], s[1], s[2], {1.0, 0.5}, beta, 1, seed += 5);
          const std::vector<zcomplex> old = run3m(cs);
          EXPECT_TRUE(within_3m_bound(cs, old, std::to_string(threads) + " threads " + ta + tb));
        }
      }
    }
  }
  const int zero = 0;
  zml_domain_set_num_threads(&zero, &blas);
}

// m = n = 100: k = 8 is the ordinary multiply (bit for bit zgemm's), k = 9
// the 3M method (within its bound, and not zgemm's bits). alpha = 0 reads
// neither operand: NaN in A stays out of C.
TEST(Zgemm3m, SwitchAtK8AndAlphaZero) {
  for (const int k : {8, 9}) {
    GemmCase<zcomplex> cs(false, 'N', 'T', 100, 100, k, {0.5, 1.0}, {2.0, 0.0}, 0, 31);
    std::vector<zcomplex> plain = cs.c;
    cblas_zgemm(CblasColMajor, CblasNoTrans, CblasTrans, 100, 100, k, &cs.alpha, cs.pa(), cs.lda,
                cs.pb(), cs.ldb, &cs.beta, plain.data() + cs.c0, cs.ldc);
    const std::vector<zcomplex> old = run3m(cs);
    EXPECT_EQ(k == 8, std::memcmp(plain.data(), cs.c.data(), plain.size() * 16) == 0) << k;
    EXPECT_TRUE(within_3m_bound(cs, old, "k " + std::to_string(k)));
  }
  GemmCase<zcomplex> cs(true, 'C', 'N', 20, 30, 40, {0.0, 0.0}, {0.0, 1.0}, 1, 5);
  cs.a.assign(cs.a.size(), zml::test::nan_value<zcomplex>());
  run3m(cs);
  EXPECT_TRUE(cs.matches("alpha 0"));
}

}  // namespace
