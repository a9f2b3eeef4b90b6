// SPDX-License-Identifier: BSD-3-Clause
// cblas_dtrsv and cblas_ztrsv against long double substitution: both
// layouts, both triangles, every transpose (row-major conjugate transpose
// included), unit and non-unit diagonals, strided and negative increments;
// NaN outside the referenced triangle and on a unit diagonal must not be read.
#include <gtest/gtest.h>

#include <complex>
#include <cstdint>

#include "tests/blas/level2_check.h"

namespace {

template <class T>
void sweep() {
  uint64_t seed = 3000;
  for (bool row_major : {false, true}) {
    for (bool upper : {true, false}) {
      for (char trans : {'N', 'T', 'C'}) {
        for (bool unit : {false, true}) {
          for (int n : {0, 1, 2, 7, 63, 64, 65, 200}) {
            for (int inc : {1, 2, -1, -3}) {
              zml::test::TrsvCase<T> c(row_major, upper, trans, unit, n, 3, inc, ++seed);
              zml::test::call_cblas(c);
              ASSERT_TRUE(c.matches("cblas"));
            }
          }
        }
      }
    }
  }
}

TEST(Trsv, RealEveryOptionLayoutAndIncrement) { sweep<double>(); }
TEST(Trsv, ComplexEveryOptionLayoutAndIncrement) { sweep<std::complex<double>>(); }

}  // namespace
