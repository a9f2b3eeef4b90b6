// SPDX-License-Identifier: BSD-3-Clause
// End-to-end gemm against the naive loop: every transposition, odd and
// degenerate sizes, through the internal column-major entries (zero sizes
// through cblas_dgemm / cblas_zgemm), on one and on two threads. On one thread
// every shape but the degenerate ones ends whole in the single-thread
// multiply, on two most of them in pieces of C. cblas_dgemv and cblas_zgemv
// against a naive long double loop: both layouts, every transpose, odd and
// empty sizes, negative and wide increments, lda above its minimum, and the
// scalar rules (beta = 0 overwrites NaN in y, alpha = 0 reads no A, an empty
// product leaves y alone). cblas_dtrsv and cblas_ztrsv against long double
// substitution: both layouts and triangles, every transpose, unit and non-unit
// diagonals, strided and negative increments; NaN outside the referenced
// triangle and on a unit diagonal must not be read.
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <complex>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "blas/blas.h"
#include "service/config/settings.h"
#include "tests/blas/gemm_check.h"
#include "tests/blas/level2_check.h"
#include "zml_cblas.h"

namespace {

using zml::blas::zcomplex;

const int32_t kSizes[] = {1, 2, 3, 15, 16, 17, 31, 33, 64, 65, 127, 129, 500};
constexpr int kCount = sizeof kSizes / sizeof kSizes[0];

// The BLAS-domain thread count for one test; the slot is unset afterwards.
class GemmShapes : public ::testing::TestWithParam<int32_t> {
 protected:
  void SetUp() override { zml::serv::g_settings.domain_threads_blas.store(GetParam()); }
  void TearDown() override { zml::serv::g_settings.domain_threads_blas.store(-1); }
};

// Shapes: every size as a cube, and each size with two others as n and k.
std::vector<std::array<int32_t, 3>> shapes() {
  std::vector<std::array<int32_t, 3>> v;
  for (int i = 0; i < kCount; ++i) {
    v.push_back({kSizes[i], kSizes[i], kSizes[i]});
    v.push_back({kSizes[i], kSizes[(i + 4) % kCount], kSizes[(i + 9) % kCount]});
  }
  return v;
}

// One column-major product through the internal entry, with the letters in
// lower case (the other tests spell them in upper case), checked against the
// naive loop. The CBLAS layer's row-major mapping onto it is checked in
// cblas_layout_test.cpp.
template <class T>
::testing::AssertionResult run_case(char ta, char tb, int32_t m, int32_t n, int32_t k,
                                    uint64_t seed) {
  const T alpha = zml::test::scalar<T>(0.75, -0.5), beta = zml::test::scalar<T>(-0.25, 1.0);
  zml::test::GemmCase<T> x(false, ta, tb, m, n, k, alpha, beta, 1, seed);
  const char sa[2] = {static_cast<char>(ta | 0x20), 0}, sb[2] = {static_cast<char>(tb | 0x20), 0};
  if constexpr (zml::test::is_complex<T>::value) {
    zml::blas::zgemm(sa, sb, &m, &n, &k, &alpha, x.pa(), &x.lda, x.pb(), &x.ldb, &beta, x.pc(),
                     &x.ldc);
  } else {
    zml::blas::dgemm(sa, sb, &m, &n, &k, &alpha, x.pa(), &x.lda, x.pb(), &x.ldb, &beta, x.pc(),
                     &x.ldc);
  }
  return x.matches("internal");
}

// All transposition pairs for small products; larger ones keep four pairs
// and the largest one pair, so the naive loop stays affordable.
template <class T>
void all_shapes() {
  const bool complex = zml::test::is_complex<T>::value;
  const std::vector<char> letters =
      complex ? std::vector<char>{'N', 'T', 'C'} : std::vector<char>{'N', 'T'};
  uint64_t seed = 1000;
  for (const auto& s : shapes()) {
    const int64_t work = static_cast<int64_t>(s[0]) * s[1] * s[2];
    std::vector<std::pair<char, char>> pairs = {{'T', complex ? 'C' : 'N'}};
    if (work <= (complex ? 5000000 : 40000000)) {
      pairs = {{'N', 'N'}, {'T', complex ? 'C' : 'T'}, {'T', 'N'}, {complex ? 'C' : 'N', 'T'}};
    }
    if (work <= (complex ? 400000 : 2200000)) {
      pairs.clear();
      for (char ta : letters) {
        for (char tb : letters) pairs.push_back({ta, tb});
      }
    }
    for (const auto& [ta, tb] : pairs)
      EXPECT_TRUE(run_case<T>(ta, tb, s[0], s[1], s[2], seed += 3));
  }
}

TEST_P(GemmShapes, Dgemm) { all_shapes<double>(); }
TEST_P(GemmShapes, Zgemm) { all_shapes<zcomplex>(); }

// Zero sizes through the CBLAS layer: no quick return there, C untouched here.
TEST_P(GemmShapes, ZeroSizesLeaveCUntouched) {
  std::vector<double> a(4, 1.0), b(4, 1.0), c(4, 5.0);
  cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, 0, 2, 2, 1.0, a.data(), 1, b.data(), 2,
              3.0, c.data(), 1);
  cblas_dgemm(CblasRowMajor, CblasTrans, CblasNoTrans, 2, 0, 2, 1.0, a.data(), 2, b.data(), 1, 3.0,
              c.data(), 1);
  EXPECT_EQ(c, std::vector<double>(4, 5.0));
  std::vector<zcomplex> za(4, 1.0), zb(4, 1.0), zc(4, zcomplex(5.0, 1.0));
  const zcomplex one(1.0), three(3.0);
  cblas_zgemm(CblasColMajor, CblasConjTrans, CblasNoTrans, 2, 0, 2, &one, za.data(), 2, zb.data(),
              2, &three, zc.data(), 2);
  EXPECT_EQ(zc, std::vector<zcomplex>(4, zcomplex(5.0, 1.0)));
}

INSTANTIATE_TEST_SUITE_P(Threads, GemmShapes, ::testing::Values(1, 2),
                         [](const ::testing::TestParamInfo<int32_t>& p) {
                           return std::to_string(p.param) + "thread";
                         });

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
