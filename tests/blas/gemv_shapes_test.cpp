// SPDX-License-Identifier: BSD-3-Clause
// cblas_dgemv and cblas_zgemv against a naive long double loop: both layouts,
// every transpose, odd and empty sizes, negative and wide increments, lda
// above its minimum, and the scalar rules (beta = 0 overwrites NaN in y,
// alpha = 0 reads no A, an empty product leaves y alone). cblas_dtrsv and
// cblas_ztrsv against long double substitution: both layouts and triangles,
// every transpose, unit and non-unit diagonals, strided and negative
// increments; NaN outside the referenced triangle and on a unit diagonal must
// not be read.
#include <gtest/gtest.h>

#include <climits>
#include <complex>
#include <cstdint>
#include <utility>

#include "tests/blas/level2_check.h"

namespace {

using zcomplex = std::complex<double>;

template <class T>
void sweep(T alpha, T beta) {
  const int sizes[] = {0, 1, 2, 7, 63, 64, 65, 1000};
  // Successive cases take successive pairs, so each layout and transpose meets
  // every rule, the empty sizes included (beta = 1 is the driver's shortcut).
  const std::pair<T, T> scalars[] = {{alpha, beta}, {T(1), T(1)}, {alpha, T(0)}, {T(0), beta}};
  uint64_t seed = 100;
  for (bool row_major : {false, true}) {
    for (char t : {'N', 'T', 'C'}) {
      for (int m : sizes) {
        for (int n : sizes) {
          if (m * int64_t{n} > 200000) continue;
          for (auto [incx, incy] : {std::pair{1, 1}, std::pair{2, -1}, std::pair{-3, 2}}) {
            const auto [al, be] = scalars[seed % 4];
            zml::test::GemvCase<T> c(row_major, t, m, n, al, be, (m + n) % 3, incx, incy, ++seed);
            zml::test::call_cblas(c);
            ASSERT_TRUE(c.matches("cblas"));
          }
        }
      }
    }
  }
}

TEST(GemvShapes, RealEveryLayoutTransposeSizeAndScalarRule) { sweep<double>(1.5, -0.75); }
TEST(GemvShapes, ComplexEveryLayoutTransposeSizeAndScalarRule) {
  sweep<zcomplex>(zcomplex(0.5, -1.25), zcomplex(-0.5, 0.25));
}

template <class T>
void trsv_sweep() {
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

TEST(Trsv, RealEveryOptionLayoutAndIncrement) { trsv_sweep<double>(); }
TEST(Trsv, ComplexEveryOptionLayoutAndIncrement) { trsv_sweep<zcomplex>(); }

// INT_MIN increments on one-element vectors: |INT_MIN| has no 32-bit value,
// so a negated increment would skip beta or read far outside the vector.
TEST(GemvShapes, LowestIncrementOnOneElement) {
  const double a = 2, x = 3;
  double y = 10;
  cblas_dgemv(CblasColMajor, CblasNoTrans, 1, 1, 1.0, &a, 1, &x, INT_MIN, 0.5, &y, INT_MIN);
  EXPECT_EQ(y, 11.0);
  const zcomplex za(1, 2), zx(3, -1), alpha(1, 0), beta(0.5, 0), t(2, 1), b(4, 3);
  zcomplex zy(10, 4), s = b;
  cblas_zgemv(CblasRowMajor, CblasConjTrans, 1, 1, &alpha, &za, 1, &zx, INT_MIN, &beta, &zy,
              INT_MIN);
  EXPECT_EQ(zy, zcomplex(6, -5));
  cblas_ztrsv(CblasRowMajor, CblasUpper, CblasConjTrans, CblasNonUnit, 1, &t, 1, &s, INT_MIN);
  EXPECT_LT(std::abs(std::conj(t) * s - b), 1e-15);
}

}  // namespace
