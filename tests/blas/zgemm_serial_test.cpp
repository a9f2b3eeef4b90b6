// SPDX-License-Identifier: BSD-3-Clause
// The single-thread zgemm through its entry and through every row the CPU
// supports: all nine transposition pairs, odd and degenerate shapes, padded
// leading dimensions, sub-blocks, and the alpha/beta special values, against
// a long-double loop.
#include "blas/driver/zgemm_serial.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <vector>

#include "blas/blas.h"
#include "blas/kernels/zgemm_kernel.h"
#include "tests/support/zgemm_ref.h"

namespace zml::blas {
namespace {

using test::zc;
using test::zfill_random;
using test::zgemm_mismatch;
using test::zgemm_ref;

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const char* const kTrans[3] = {"N", "T", "C"};

struct Shape {
  int32_t m, n, k;
};

// One multiply through the public single-thread entry on sub-blocks of larger
// arrays (offset rows and columns, leading dimensions padded by `pad`).
void check_entry(int ta, int tb, Shape s, zc alpha, zc beta, int32_t pad, uint32_t seed) {
  const int32_t ar = ta == 0 ? s.m : s.k, ac = ta == 0 ? s.k : s.m;
  const int32_t br = tb == 0 ? s.k : s.n, bc = tb == 0 ? s.n : s.k;
  const int32_t lda = ar + 3 + pad, ldb = br + 1 + pad, ldc = s.m + 2 + pad;
  std::vector<zc> a(static_cast<size_t>(lda) * (ac + 2)), b(static_cast<size_t>(ldb) * (bc + 2));
  std::vector<zc> c(static_cast<size_t>(ldc) * (s.n + 2));
  zfill_random(a, seed);
  zfill_random(b, seed + 1);
  zfill_random(c, seed + 2);
  // The operands start one row and one column into their arrays.
  const zc* as = a.data() + 1 + lda;
  const zc* bs = b.data() + 1 + ldb;
  zc* cs = c.data() + 1 + ldc;
  const std::vector<zc> before = c;
  const auto want = zgemm_ref(ta, tb, s.m, s.n, s.k, alpha, as, lda, bs, ldb, beta, cs, ldc);
  zml_blas_zgemm_serial(kTrans[ta], kTrans[tb], &s.m, &s.n, &s.k, &alpha, as, &lda, bs, &ldb, &beta,
                        cs, &ldc);
  const std::string bad = zgemm_mismatch(want, cs, ldc, s.m, s.n, s.k);
  ASSERT_TRUE(bad.empty()) << kTrans[ta] << kTrans[tb] << " m=" << s.m << " n=" << s.n
                           << " k=" << s.k << " seed=" << seed << ": " << bad;
  // Nothing outside the m x n block moves.
  for (int32_t j = 0; j < s.n + 2; ++j) {
    for (int32_t i = 0; i < ldc; ++i) {
      if (i >= 1 && i <= s.m && j >= 1 && j <= s.n) continue;
      const size_t x = static_cast<size_t>(i) + static_cast<size_t>(j) * ldc;
      ASSERT_EQ(c[x], before[x]) << "written outside C at (" << i << "," << j << ")";
    }
  }
}

TEST(ZgemmSerial, NineTranspositionPairsOddShapes) {
  const int32_t sizes[] = {1, 2, 3, 15, 16, 17, 31, 33, 64, 65, 127, 129};
  uint32_t seed = 100;
  for (int ta = 0; ta < 3; ++ta) {
    for (int tb = 0; tb < 3; ++tb) {
      for (int32_t s : sizes) check_entry(ta, tb, {s, s, s}, zc(2, -3), zc(0, 1), 0, seed++);
      for (Shape s : {Shape{300, 17, 33}, Shape{1, 129, 65}, Shape{65, 1, 127}, Shape{3, 300, 2},
                      Shape{129, 127, 1}, Shape{17, 15, 300}, Shape{16, 16, 17}}) {
        check_entry(ta, tb, s, zc(-1, 0.5), zc(0.25, -2), 0, seed++);
      }
    }
  }
}

TEST(ZgemmSerial, LargeSquareAndPaddedLeadingDimensions) {
  check_entry(0, 0, {300, 300, 300}, zc(1, 0), zc(1, 0), 0, 7);
  check_entry(2, 2, {300, 300, 300}, zc(2, -3), zc(0, 0), 5, 8);
  check_entry(1, 2, {129, 300, 65}, zc(0, 1), zc(2, -3), 11, 9);
  check_entry(2, 0, {33, 65, 300}, zc(1, 0), zc(0, 1), 3, 10);
}

TEST(ZgemmSerial, AlphaBetaSpecialValues) {
  const zc values[] = {zc(0, 0), zc(1, 0), zc(0, 1), zc(2, -3)};
  uint32_t seed = 500;
  for (zc alpha : values) {
    for (zc beta : values) {
      check_entry(0, 2, {33, 17, 65}, alpha, beta, 1, seed++);
      check_entry(2, 1, {5, 7, 9}, alpha, beta, 2, seed++);
    }
  }
}

// beta = 0 overwrites C: NaN there does not survive, on the small path and the
// blocked one.
TEST(ZgemmSerial, BetaZeroIgnoresNaNInC) {
  for (int32_t s : {5, 70}) {
    const int32_t ld = s;
    std::vector<zc> a(static_cast<size_t>(s) * s), b(a.size()), c(a.size(), zc(kNaN, kNaN));
    zfill_random(a, 1u);
    zfill_random(b, 2u);
    const zc alpha(2, -3), beta(0, 0);
    const auto want =
        zgemm_ref(0, 0, s, s, s, alpha, a.data(), ld, b.data(), ld, beta, c.data(), ld);
    zml_blas_zgemm_serial("n", "n", &s, &s, &s, &alpha, a.data(), &ld, b.data(), &ld, &beta,
                          c.data(), &ld);
    ASSERT_TRUE(zgemm_mismatch(want, c.data(), ld, s, s, s).empty()) << "s=" << s;
  }
}

// alpha = 0 and k = 0 scale C by beta without reading A or B (NaN there must
// not appear); beta = 0 then writes exact zeros over NaN.
TEST(ZgemmSerial, AlphaZeroAndKZeroDoNotReadAB) {
  const int32_t m = 20, n = 9, k = 11, ld = 24;
  std::vector<zc> a(static_cast<size_t>(ld) * ld, zc(kNaN, kNaN)), b(a);
  for (zc beta : {zc(0, 0), zc(1, 0), zc(0, 1), zc(2, -3)}) {
    for (int32_t kk : {k, 0}) {
      std::vector<zc> c(static_cast<size_t>(ld) * n);
      zfill_random(c, 3u);
      if (beta == zc()) c[0] = zc(kNaN, kNaN);
      const std::vector<zc> c0 = c;
      const zc alpha = kk == 0 ? zc(2, -3) : zc(0, 0);
      zml_blas_zgemm_serial("C", "t", &m, &n, &kk, &alpha, a.data(), &ld, b.data(), &ld, &beta,
                            c.data(), &ld);
      for (int32_t j = 0; j < n; ++j) {
        for (int32_t i = 0; i < ld; ++i) {
          const size_t x = static_cast<size_t>(i + j * ld);
          const zc want = i < m ? (beta == zc() ? zc() : beta * c0[x]) : c0[x];
          ASSERT_EQ(c[x], want) << "beta=" << beta << " k=" << kk << " at (" << i << "," << j
                                << ")";
        }
      }
    }
  }
}

TEST(ZgemmSerial, EmptyProductsLeaveCUntouched) {
  const int32_t ld = 4, k = 3;
  std::vector<zc> a(16), b(16), c(16, zc(7, 8));
  const zc alpha(1, 1), beta(0, 0);
  for (Shape s : {Shape{0, 3, k}, Shape{3, 0, k}, Shape{0, 0, 0}}) {
    zml_blas_zgemm_serial("N", "N", &s.m, &s.n, &s.k, &alpha, a.data(), &ld, b.data(), &ld, &beta,
                          c.data(), &ld);
    for (const zc& x : c) ASSERT_EQ(x, zc(7, 8));
  }
}

// The whole single-thread path on every row the CPU supports (the entry above
// only reaches this process's row).
class ZgemmSerialRow : public ::testing::TestWithParam<const zgemm_variant*> {};

TEST_P(ZgemmSerialRow, ShapesAndTranspositions) {
  const zgemm_variant& row = *GetParam();
  if (!dispatch::isa_usable(row.isa)) {
    GTEST_SKIP() << "row " << row.name << " needs an instruction set this CPU lacks";
  }
  const Shape shapes[] = {{1, 1, 1},    {2, 3, 2},   {15, 16, 17},  {16, 16, 16},
                          {17, 31, 33}, {64, 65, 3}, {127, 33, 129}};
  uint32_t seed = 900;
  for (int ta = 0; ta < 3; ++ta) {
    for (int tb = 0; tb < 3; ++tb) {
      for (Shape s : shapes) {
        const int64_t lda = (ta == 0 ? s.m : s.k) + 1, ldb = (tb == 0 ? s.k : s.n) + 2;
        const int64_t ldc = s.m + 3;
        std::vector<zc> a(static_cast<size_t>(lda * (s.m + s.k))),
            b(static_cast<size_t>(ldb * (s.n + s.k))), c(static_cast<size_t>(ldc * s.n));
        zfill_random(a, seed++);
        zfill_random(b, seed++);
        zfill_random(c, seed++);
        const zc alpha(0.5, -1), beta(1, 2);
        const auto want = zgemm_ref(ta, tb, s.m, s.n, s.k, alpha, a.data(), lda, b.data(), ldb,
                                    beta, c.data(), ldc);
        zgemm_serial_row(row, ta, tb, s.m, s.n, s.k, reinterpret_cast<const double*>(&alpha),
                         reinterpret_cast<const double*>(a.data()), lda,
                         reinterpret_cast<const double*>(b.data()), ldb,
                         reinterpret_cast<const double*>(&beta),
                         reinterpret_cast<double*>(c.data()), ldc);
        const std::string bad = zgemm_mismatch(want, c.data(), ldc, s.m, s.n, s.k);
        ASSERT_TRUE(bad.empty()) << row.name << " " << kTrans[ta] << kTrans[tb] << " m=" << s.m
                                 << " n=" << s.n << " k=" << s.k << ": " << bad;
      }
    }
  }
}

std::vector<const zgemm_variant*> rows() {
  std::vector<const zgemm_variant*> r;
  for (const zgemm_variant* const* p = kZgemmRows; *p != nullptr; ++p) r.push_back(*p);
  return r;
}

INSTANTIATE_TEST_SUITE_P(AllRows, ZgemmSerialRow, ::testing::ValuesIn(rows()),
                         [](const ::testing::TestParamInfo<const zgemm_variant*>& p) {
                           return std::string(p.param->name);
                         });

}  // namespace
}  // namespace zml::blas
