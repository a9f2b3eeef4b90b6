// SPDX-License-Identifier: BSD-3-Clause
// dscal and zscal, every row the processor supports and the CBLAS exports,
// against the plain product: exact for real data, any positive increment,
// n <= 0 and incx <= 0 doing nothing, NaN staying NaN under alpha = 0, a true
// complex product.
#include <gtest/gtest.h>

#include <complex>
#include <cstdio>
#include <limits>
#include <string>

#include "blas/kernels/level1_kernel.h"
#include "tests/blas/level2_check.h"
#include "zml_cblas.h"

namespace {

using zml::test::dp;
using zml::test::StridedVec;
using zcomplex = std::complex<double>;

// x := alpha*x by scal(n, alpha, x, incx) over sizes and increments, the
// non-positive ones included; real data also carries a NaN, which must stay.
template <class T, class Scal>
void check_scal(Scal scal, T alpha, const std::string& name) {
  constexpr bool complex = zml::test::is_complex<T>::value;
  for (int n : {-4, 0, 1, 2, 7, 63, 64, 65, 1000}) {
    for (int inc : {1, 2, 5, 0, -2}) {
      StridedVec<T> x(std::max(n, 0), inc, 21 + n), want = x;
      if (!complex && n > 1) x[1] = want[1] = std::numeric_limits<double>::quiet_NaN();
      for (int i = 0; inc > 0 && i < n; ++i) want[i] = alpha * want[i];
      scal(n, alpha, x.p(), inc);
      // The real product is one rounding either way; the complex one may fuse.
      ASSERT_TRUE(
          zml::test::same_vec(x, want, complex ? 8e-16 : 0.0, nullptr,
                              name + " n " + std::to_string(n) + " inc " + std::to_string(inc)));
    }
  }
}

TEST(Scal, DscalEveryRowAndExport) {
  for (const zml::blas::dscal_variant* row : zml::blas::kDscalTable.rows()) {
    if (!zml::dispatch::isa_usable(row->isa)) {
      std::printf("dscal row %s not run: instruction set not usable here\n", row->name);
      continue;
    }
    for (double alpha : {0.375, 0.0}) check_scal(row->kernel, alpha, row->name);
  }
  for (double alpha : {-2.5, 0.0}) {
    check_scal([](int n, double al, double* x, int inc) { cblas_dscal(n, al, x, inc); }, alpha,
               "cblas_dscal");
  }
}

TEST(Scal, ZscalEveryRowAndExport) {
  const zcomplex alpha(0.75, -1.5);
  for (const zml::blas::zscal_variant* row : zml::blas::kZscalTable.rows()) {
    if (!zml::dispatch::isa_usable(row->isa)) {
      std::printf("zscal row %s not run: instruction set not usable here\n", row->name);
      continue;
    }
    check_scal(
        [row](int n, zcomplex al, zcomplex* x, int inc) { row->kernel(n, dp(&al), dp(x), inc); },
        alpha, row->name);
  }
  check_scal([](int n, zcomplex al, zcomplex* x, int inc) { cblas_zscal(n, &al, x, inc); }, alpha,
             "cblas_zscal");
}

}  // namespace
