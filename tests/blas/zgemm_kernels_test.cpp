// SPDX-License-Identifier: BSD-3-Clause
// Every zgemm variant row the processor supports, called directly: micro-kernel
// on full and edge tiles, packing layouts with conjugation, the small kernel
// and the blocked loops, each against a long-double loop.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <vector>

#include "blas/driver/zgemm_serial.h"
#include "blas/kernels/zgemm_kernel.h"
#include "tests/support/zgemm_ref.h"

namespace zml::blas {
namespace {

using test::zc;
using test::zfill_random;
using test::zgemm_mismatch;
using test::zgemm_ref;

std::vector<const zgemm_variant*> all_rows() {
  std::vector<const zgemm_variant*> rows;
  for (const zgemm_variant* const* r = kZgemmRows; *r != nullptr; ++r) rows.push_back(*r);
  return rows;
}

const double* dp(const zc* x) { return reinterpret_cast<const double*>(x); }
double* dp(zc* x) { return reinterpret_cast<double*>(x); }

class ZgemmRow : public ::testing::TestWithParam<const zgemm_variant*> {
 protected:
  void SetUp() override {
    if (!dispatch::isa_usable(GetParam()->isa)) {
      GTEST_SKIP() << "row " << GetParam()->name << " needs an instruction set this CPU lacks";
    }
  }
  const zgemm_variant& row() const { return *GetParam(); }
};

const zc kSentinel(12345.0, -678.0);
const double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST_P(ZgemmRow, ShapeFieldsAreConsistent) {
  EXPECT_GE(row().mr, 1);
  EXPECT_GE(row().nr, 1);
  EXPECT_LE(row().mr, 16);  // the out-of-memory fallback packs 16 lines on the stack
  EXPECT_LE(row().nr, 16);
  EXPECT_NE(row().small, nullptr);
  EXPECT_GE(row().small_max, 1);
  EXPECT_LE(row().small_max, kZgemmSmallMax);
  EXPECT_GE(row().kc_max, 16);
  EXPECT_GE(row().mc_max, row().mr);
  EXPECT_GE(row().nc_max, row().nr);
}

// The micro-kernel on packed panels (A(i, p) = a[i + p*mr], B(p, j) = b[j + p*nr])
// for every corner m x n of the tile, several k and alpha/beta cases; C outside
// the corner must keep its sentinel, and beta = 0 must ignore NaN in C.
TEST_P(ZgemmRow, MicroKernelFullAndEdgeTiles) {
  const int64_t mr = row().mr, nr = row().nr, ldc = mr + 3;
  for (int64_t k : {1, 2, 3, 7, 64, 100}) {
    std::vector<zc> a(static_cast<size_t>(mr * k)), b(static_cast<size_t>(nr * k));
    zfill_random(a, 11u + static_cast<uint32_t>(k));
    zfill_random(b, 23u + static_cast<uint32_t>(k));
    for (zc alpha : {zc(1, 0), zc(0, 1), zc(2, -3)}) {
      for (zc beta : {zc(0, 0), zc(1, 0), zc(2, -3)}) {
        for (int64_t m = 1; m <= mr; ++m) {
          for (int64_t n = 1; n <= nr; ++n) {
            std::vector<zc> c(static_cast<size_t>(ldc * (nr + 1)), kSentinel);
            std::vector<zc> c0(c.size());
            zfill_random(c0, 99u);
            for (int64_t j = 0; j < n; ++j) {
              for (int64_t i = 0; i < m; ++i) {
                c[i + j * ldc] = beta == zc() ? zc(kNaN, kNaN) : c0[i + j * ldc];
              }
            }
            const auto want =
                zgemm_ref(0, 1, m, n, k, alpha, a.data(), mr, b.data(), nr, beta, c.data(), ldc);
            row().ukernel(m, n, k, dp(&alpha), dp(a.data()), dp(b.data()), dp(&beta), dp(c.data()),
                          ldc);
            const std::string bad = zgemm_mismatch(want, c.data(), ldc, m, n, k);
            ASSERT_TRUE(bad.empty()) << row().name << " m=" << m << " n=" << n << " k=" << k
                                     << " alpha=" << alpha << " beta=" << beta << ": " << bad;
            for (int64_t j = 0; j <= nr; ++j) {
              for (int64_t i = 0; i < ldc; ++i) {
                if (i < m && j < n) continue;
                ASSERT_EQ(c[i + j * ldc], kSentinel)
                    << row().name << " wrote outside the " << m << "x" << n << " corner at (" << i
                    << "," << j << ")";
              }
            }
          }
        }
      }
    }
  }
}

// Both packers, both source orders, with and without conjugation: exact
// copies in the documented layout, zero padding past the last line.
TEST_P(ZgemmRow, PackingLayout) {
  for (int which = 0; which < 2; ++which) {
    const zgemm_pack_fn pack = which == 0 ? row().pack_a : row().pack_b;
    const int64_t w = which == 0 ? row().mr : row().nr;
    // k = 3, 5, 8: a short tail only, whole blocks and a tail, whole blocks
    // only, for packers that work along k in blocks.
    for (int64_t rows : {int64_t{1}, w - 1, w, 2 * w + 1}) {
      for (int64_t k : {int64_t{3}, int64_t{5}, int64_t{8}}) {
        if (rows < 1) continue;
        const int64_t ld = (rows > k ? rows : k) + 2;
        std::vector<zc> x(static_cast<size_t>(ld * (rows > k ? rows : k)));
        zfill_random(x, 7u + static_cast<uint32_t>(rows));
        for (bool kcont : {false, true}) {
          for (bool conj : {false, true}) {
            const int64_t panels = (rows + w - 1) / w;
            std::vector<zc> dst(static_cast<size_t>(panels * w * k), kSentinel);
            pack(dp(x.data()), ld, rows, k, kcont, conj, dp(dst.data()));
            for (int64_t r = 0; r < panels * w; ++r) {
              for (int64_t p = 0; p < k; ++p) {
                zc want;
                if (r < rows) {
                  want = kcont ? x[p + r * ld] : x[r + p * ld];
                  if (conj) want = std::conj(want);
                }
                const zc got = dst[(r / w) * w * k + p * w + r % w];
                ASSERT_EQ(got, want)
                    << row().name << " pack width " << w << " rows=" << rows << " kcont=" << kcont
                    << " conj=" << conj << " k=" << k << " r=" << r << " p=" << p;
              }
            }
          }
        }
      }
    }
  }
}

// The small kernel with B read through both stride orders, conjugated or not,
// and a C with a larger leading dimension.
TEST_P(ZgemmRow, SmallKernel) {
  const int64_t top = row().small_max;
  for (int64_t m : {int64_t{1}, int64_t{3}, int64_t{5}, top}) {
    for (int64_t n : {int64_t{1}, int64_t{2}, int64_t{7}, top}) {
      for (int64_t k : {int64_t{1}, int64_t{4}, top}) {
        if (m > top || n > top || k > top) continue;
        const int64_t lda = m + 2, ldb = (k > n ? k : n) + 1, ldc = m + 1;
        std::vector<zc> a(static_cast<size_t>(lda * k)), b(static_cast<size_t>(ldb * ldb));
        std::vector<zc> c0(static_cast<size_t>(ldc * n));
        zfill_random(a, 31u);
        zfill_random(b, 37u);
        zfill_random(c0, 41u);
        for (int tb = 0; tb < 3; ++tb) {
          const zc alpha(2, -3), beta(0, 1);
          std::vector<zc> c = c0;
          const auto want =
              zgemm_ref(0, tb, m, n, k, alpha, a.data(), lda, b.data(), ldb, beta, c0.data(), ldc);
          const int64_t rsb = tb != 0 ? ldb : 1, csb = tb != 0 ? 1 : ldb;
          row().small(m, n, k, dp(&alpha), dp(a.data()), lda, dp(b.data()), rsb, csb, tb == 2,
                      dp(&beta), dp(c.data()), ldc);
          const std::string bad = zgemm_mismatch(want, c.data(), ldc, m, n, k);
          ASSERT_TRUE(bad.empty()) << row().name << " small m=" << m << " n=" << n << " k=" << k
                                   << " tb=" << tb << ": " << bad;
        }
      }
    }
  }
}

// The blocked loops on each row: several kc passes (k = 300), edge panels in
// both directions and all three transpositions of each operand.
TEST_P(ZgemmRow, BlockedLoops) {
  const int64_t m = 37, n = 29, k = 300;
  const int64_t lda = 305, ldb = 305, ldc = 41;
  std::vector<zc> a(static_cast<size_t>(lda * 305)), b(static_cast<size_t>(ldb * 305));
  std::vector<zc> c0(static_cast<size_t>(ldc * n));
  zfill_random(a, 51u);
  zfill_random(b, 53u);
  zfill_random(c0, 57u);
  const zc alpha(0.5, 1.5), beta(-1, 0.25);
  for (int ta = 0; ta < 3; ++ta) {
    for (int tb = 0; tb < 3; ++tb) {
      std::vector<zc> c = c0;
      const auto want =
          zgemm_ref(ta, tb, m, n, k, alpha, a.data(), lda, b.data(), ldb, beta, c0.data(), ldc);
      zgemm_blocked(row(), ta, tb, m, n, k, dp(&alpha), dp(a.data()), lda, dp(b.data()), ldb,
                    dp(&beta), dp(c.data()), ldc);
      const std::string bad = zgemm_mismatch(want, c.data(), ldc, m, n, k);
      ASSERT_TRUE(bad.empty()) << row().name << " ta=" << ta << " tb=" << tb << ": " << bad;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllRows, ZgemmRow, ::testing::ValuesIn(all_rows()),
                         [](const ::testing::TestParamInfo<const zgemm_variant*>& p) {
                           return std::string(p.param->name);
                         });

// The table has every slot filled, and no slot hands an FMA kernel to the AVX
// path (code path 8) or anything wider than the path's own folder.
TEST(ZgemmTable, SlotsMatchTheirCodePath) {
  for (int cp = 0; cp < dispatch::kCodePaths; ++cp) {
    const zgemm_variant* r = kZgemmTable[static_cast<size_t>(cp)];
    ASSERT_NE(r, nullptr) << "slot " << cp;
    EXPECT_LE(static_cast<int>(r->isa),
              static_cast<int>(dispatch::kIsaOfCodePath[static_cast<size_t>(cp)]))
        << "slot " << cp << " holds " << r->name;
  }
  EXPECT_EQ(kZgemmTable[8]->isa, dispatch::Isa::kSse2);
}

}  // namespace
}  // namespace zml::blas
