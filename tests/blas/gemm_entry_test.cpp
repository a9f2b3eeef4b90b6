// SPDX-License-Identifier: BSD-3-Clause
// The checked gemm entries: the argument checks in their order with the exact
// reports, rejected calls leaving C alone, and the quick returns and
// zero-or-one scalars of the driver (the verbose trace of failed calls is in
// cblas_errors_test.cpp).
#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <string>
#include <utility>
#include <vector>

#include "blas/blas.h"
#include "blas/driver/gemm_driver.h"
#include "tests/blas/gemm_check.h"
#include "tests/support/child.h"

namespace {

using zml::blas::zcomplex;
using zml::test::capture_stdout;

std::string report(int p, const char* name) {
  return "\nArvel ZML ERROR: Parameter " + std::to_string(p) + " was incorrect on entry to " +
         name + ".\n";
}

struct Args {
  const char* ta = "N";
  const char* tb = "N";
  int32_t m = 2, n = 3, k = 4, lda = 2, ldb = 4, ldc = 2;
};

// Calls dgemm on 16 x 16 buffers (large enough for every case) and returns
// what it printed; c receives the final C.
std::string call_d(const Args& g, std::vector<double>& c) {
  std::vector<double> a(256, 1.0), b(256, 1.0);
  c.assign(256, 7.0);
  const double alpha = 1.0, beta = 0.5;
  return capture_stdout([&] {
    zml::blas::dgemm(g.ta, g.tb, &g.m, &g.n, &g.k, &alpha, a.data(), &g.lda, b.data(), &g.ldb,
                     &beta, c.data(), &g.ldc);
  });
}

std::string call_z(const Args& g, std::vector<zcomplex>& c) {
  std::vector<zcomplex> a(256, 1.0), b(256, 1.0);
  c.assign(256, zcomplex(7.0, -1.0));
  const zcomplex alpha(1.0, 0.5), beta(0.5, 0.0);
  return capture_stdout([&] {
    zml::blas::zgemm(g.ta, g.tb, &g.m, &g.n, &g.k, &alpha, a.data(), &g.lda, b.data(), &g.ldb,
                     &beta, c.data(), &g.ldc);
  });
}

// Each bad argument in check order, with the number it must report; earlier
// checks win, and a leading dimension is never allowed below 1.
struct BadCase {
  Args args;
  int number;
};
const BadCase kBadCases[] = {
    {{.ta = "x"}, 1},
    {{.tb = "?"}, 2},
    {{.m = -1}, 3},
    {{.n = -1}, 4},
    {{.k = -1}, 5},
    {{.lda = 1}, 8},              // 'N': lda >= m = 2
    {{.ta = "T", .lda = 3}, 8},   // 'T': lda >= k = 4
    {{.ldb = 3}, 10},             // 'N': ldb >= k = 4
    {{.tb = "c", .ldb = 2}, 10},  // 'C': ldb >= n = 3
    {{.ldc = 1}, 13},
    {{.ta = "Q", .m = -5}, 1},
    {{.m = -5, .lda = 0}, 3},
    {{.m = 0, .lda = 0, .ldc = 1}, 8},
    {{.m = 0, .ldc = 0}, 13},
};

// The generation query may print message 1213 once per process; ask it
// before any output is compared.
class GemmEntryChecks : public ::testing::Test {
 protected:
  void SetUp() override {
    (void)capture_stdout([] { zml::blas::gemm_driver_generation(); });
  }
};

TEST_F(GemmEntryChecks, EachBadArgumentReportedOnceWithItsNumberAndCUntouched) {
  for (const BadCase& bc : kBadCases) {
    std::vector<double> c;
    EXPECT_EQ(call_d(bc.args, c), report(bc.number, "DGEMM ")) << "number " << bc.number;
    EXPECT_EQ(c, std::vector<double>(256, 7.0)) << "number " << bc.number;
    std::vector<zcomplex> zc;
    EXPECT_EQ(call_z(bc.args, zc), report(bc.number, "ZGEMM ")) << "number " << bc.number;
    EXPECT_EQ(zc, std::vector<zcomplex>(256, zcomplex(7.0, -1.0))) << "number " << bc.number;
  }
  // Zero sizes need leading dimensions of 1 only. Letters in lower case and
  // minimal leading dimensions pass in gemm_shapes_test and gemm_routing_test.
  std::vector<double> c;
  EXPECT_EQ(call_d({.m = 0, .n = 0, .k = 0, .lda = 1, .ldb = 1, .ldc = 1}, c), "");
}

// ---- quick returns and zero-or-one scalars, through the checked entry -----------

// Shapes that reach every path of the driver: general, one row, one column,
// inner dimension 1, and a large one that takes threads. The general shapes
// end in the single-thread multiply, whole or in pieces: 7 x 9 x 5 on its
// small path and k = 130 (above every row's small_max) on the blocked one, so
// these cases stand for that multiply's own alpha and beta rules as well.
const int32_t kShapes[][3] = {{7, 9, 5}, {1, 9, 5}, {7, 1, 5}, {7, 9, 1}, {150, 140, 130}};

using zml::test::GemmCase;
using zml::test::scalar;

// Multiplies x in place with operands a and b (null or x's own).
void call(GemmCase<double>& x, const double* a, const double* b) {
  zml::blas::dgemm(x.sa().c_str(), x.sb().c_str(), &x.m, &x.n, &x.k, &x.alpha, a, &x.lda, b, &x.ldb,
                   &x.beta, x.pc(), &x.ldc);
}
void call(GemmCase<zcomplex>& x, const zcomplex* a, const zcomplex* b) {
  zml::blas::zgemm(x.sa().c_str(), x.sb().c_str(), &x.m, &x.n, &x.k, &x.alpha, a, &x.lda, b, &x.ldb,
                   &x.beta, x.pc(), &x.ldc);
}

template <class T>
std::string dims(int32_t m, int32_t n, int32_t k) {
  return std::string(zml::test::is_complex<T>::value ? "z " : "d ") + std::to_string(m) + "x" +
         std::to_string(n) + "x" + std::to_string(k);
}

// The three kinds of beta: 0 (C holds NaN and must come out as exact
// zeros), 1 (C as it was) and any other.
template <class T>
std::vector<T> distinct_betas() {
  return {T(0.0), T(1.0), scalar<T>(-2.0, 0.5)};
}

// Every quick return and zero-or-one scalar rule, for one element type.
template <class T>
void quick_returns() {
  for (auto [m, n] : {std::pair{0, 5}, std::pair{5, 0}, std::pair{0, 0}}) {
    GemmCase<T> x(false, 'N', 'N', m, n, 4, T(2.0), T(3.0), 1, 10);
    call(x, x.pa(), x.pb());
    EXPECT_TRUE(x.matches(dims<T>(m, n, 4) + " empty C untouched"));
  }
  for (const auto& s : kShapes) {
    const std::string shape = dims<T>(s[0], s[1], s[2]);
    for (const T beta : distinct_betas<T>()) {
      // k = 0 gives beta times C; A and B are null, there is nothing to read.
      GemmCase<T> k0(false, 'T', 'C', s[0], s[1], 0, T(2.0), beta, 1, 20);
      call(k0, nullptr, nullptr);
      EXPECT_TRUE(k0.matches(dims<T>(s[0], s[1], 0)));
      // alpha = 0: A and B hold NaN, and then are null; neither may be read.
      GemmCase<T> x(false, 'N', 'T', s[0], s[1], s[2], T(0.0), beta, 1, 40);
      const std::vector<T> c = x.c;
      std::fill(x.a.begin(), x.a.end(), zml::test::nan_value<T>());
      std::fill(x.b.begin(), x.b.end(), zml::test::nan_value<T>());
      call(x, x.pa(), x.pb());
      EXPECT_TRUE(x.matches(shape + " NaN operands"));
      x.c = c;
      call(x, nullptr, nullptr);
      EXPECT_TRUE(x.matches(shape + " null operands"));
    }
    // beta = 0 overwrites the NaN in C.
    for (auto [ta, tb] : {std::pair{'N', 'N'}, std::pair{'T', 'C'}}) {
      GemmCase<T> x(false, ta, tb, s[0], s[1], s[2], scalar<T>(1.5, -0.5), T(0.0), 1, 30);
      call(x, x.pa(), x.pb());
      EXPECT_TRUE(x.matches(shape + " beta 0"));
    }
  }
}

TEST(GemmDriverQuick, QuickReturnsAndZeroOrOneScalars) {
  quick_returns<double>();
  quick_returns<zcomplex>();
}

}  // namespace
