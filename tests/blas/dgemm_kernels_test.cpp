// SPDX-License-Identifier: BSD-3-Clause
// Every dgemm variant row the processor supports, called directly: micro-kernel
// on full and edge tiles, packing layouts, the small path and the blocked loops.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "blas/driver/dgemm_serial.h"
#include "blas/kernels/gemm_kernel.h"
#include "tests/support/gemm_ref.h"

namespace zml::blas {
namespace {

using test::fill_random;
using test::gemm_ref;
using test::gemm_tolerance;

std::vector<const dgemm_variant*> all_rows() {
  std::vector<const dgemm_variant*> rows;
  for (const dgemm_variant* const* r = kDgemmRows; *r != nullptr; ++r) rows.push_back(*r);
  return rows;
}

class DgemmRow : public ::testing::TestWithParam<const dgemm_variant*> {
 protected:
  void SetUp() override {
    if (!dispatch::isa_usable(GetParam()->isa)) {
      GTEST_SKIP() << "row " << GetParam()->name << " needs an instruction set this CPU lacks";
    }
  }
  const dgemm_variant& row() const { return *GetParam(); }
};

constexpr double kSentinel = 12345.0;

TEST_P(DgemmRow, ShapeFieldsAreConsistent) {
  EXPECT_GE(row().mr, 1);
  EXPECT_GE(row().nr, 1);
  EXPECT_LE(row().mr, 32);  // the small path packs into 32 spare lines on the stack
  EXPECT_LE(row().nr, 32);
  EXPECT_GE(row().small_max, 1);
  EXPECT_LE(row().small_max, kSmallMax);
  EXPECT_GE(row().kc_max, 16);
  EXPECT_GE(row().mc_max, row().mr);
  EXPECT_GE(row().nc_max, row().nr);
}

// The micro-kernel against the long-double product of the same packed panels,
// for every corner m x n of the tile, several k, and the alpha/beta cases.
TEST_P(DgemmRow, MicroKernelFullAndEdgeTiles) {
  const int64_t mr = row().mr, nr = row().nr, ldc = mr + 3;
  for (int64_t k : {1, 2, 3, 7, 64, 100}) {
    std::vector<double> a(static_cast<size_t>(mr * k)), b(static_cast<size_t>(nr * k));
    fill_random(a, 11u + static_cast<uint32_t>(k));
    fill_random(b, 23u + static_cast<uint32_t>(k));
    for (double alpha : {1.0, -1.0, 2.5}) {
      for (double beta : {0.0, 1.0, -1.0, 2.5}) {
        for (int64_t m = 1; m <= mr; ++m) {
          for (int64_t n = 1; n <= nr; ++n) {
            std::vector<double> c(static_cast<size_t>(ldc * (nr + 1)), kSentinel);
            std::vector<double> c0(static_cast<size_t>(ldc * n));
            fill_random(c0, 7u);
            for (int64_t j = 0; j < n; ++j) {
              for (int64_t i = 0; i < m; ++i) {
                c[i + j * ldc] = beta == 0.0 ? NAN : c0[i + j * ldc];
              }
            }
            // Packed panels: slice p of A holds mr doubles, of B nr doubles.
            std::vector<double> c0m(c.begin(), c.end());
            const auto ref = gemm_ref(false, true, m, n, k, alpha, a.data(), mr, b.data(), nr, beta,
                                      c0m.data(), ldc);
            row().ukernel(m, n, k, alpha, a.data(), b.data(), beta, c.data(), ldc);
            for (int64_t j = 0; j <= nr; ++j) {
              for (int64_t i = 0; i < ldc; ++i) {
                const double got = c[i + j * ldc];
                if (i < m && j < n) {
                  const double want = ref.c[i + j * m];
                  ASSERT_LE(std::fabs(got - want), gemm_tolerance(k, ref.mag[i + j * m]))
                      << row().name << " m=" << m << " n=" << n << " k=" << k << " alpha=" << alpha
                      << " beta=" << beta << " at " << i << "," << j;
                } else {
                  ASSERT_EQ(got, kSentinel) << row().name << " wrote outside the " << m << "x" << n
                                            << " corner at " << i << "," << j;
                }
              }
            }
          }
        }
      }
    }
  }
}

// Packing: exact layout and zero padding, both source orders, odd sizes.
TEST_P(DgemmRow, PackLayout) {
  for (int which = 0; which < 2; ++which) {
    const dgemm_pack_fn pack = which == 0 ? row().pack_a : row().pack_b;
    const int64_t w = which == 0 ? row().mr : row().nr;
    for (int64_t rows : {int64_t{1}, w - 1, w, w + 1, 2 * w + 3}) {
      if (rows < 1) continue;
      for (int64_t k : {1, 2, 7, 8, 9, 17}) {
        for (bool kcont : {false, true}) {
          const int64_t ld = (kcont ? k : rows) + 5;
          std::vector<double> x(static_cast<size_t>(ld * (kcont ? rows : k)));
          fill_random(x, 99u);
          const int64_t panels = (rows + w - 1) / w;
          std::vector<double> dst(static_cast<size_t>(panels * w * k), kSentinel);
          pack(x.data(), ld, rows, k, kcont, dst.data());
          for (int64_t q = 0; q < panels; ++q) {
            for (int64_t p = 0; p < k; ++p) {
              for (int64_t r = 0; r < w; ++r) {
                const int64_t line = q * w + r;
                const double want =
                    line < rows ? (kcont ? x[p + line * ld] : x[line + p * ld]) : 0.0;
                ASSERT_EQ(dst[q * w * k + p * w + r], want)
                    << row().name << (which == 0 ? " pack_a" : " pack_b") << " rows=" << rows
                    << " k=" << k << " k_contiguous=" << kcont << " line=" << line << " p=" << p;
              }
            }
          }
        }
      }
    }
  }
}

// Runs one multiply through `fn` on operands inside larger arrays (leading
// dimensions bigger than needed) and compares with the long-double loop.
template <class Fn>
void check_product(const char* what, const dgemm_variant& r, bool ta, bool tb, int64_t m, int64_t n,
                   int64_t k, double alpha, double beta, Fn fn) {
  const int64_t lda = (ta ? k : m) + 3, ldb = (tb ? n : k) + 2, ldc = m + 5;
  std::vector<double> a(static_cast<size_t>(lda * (ta ? m : k)));
  std::vector<double> b(static_cast<size_t>(ldb * (tb ? k : n)));
  std::vector<double> c(static_cast<size_t>(ldc * n));
  fill_random(a, 1u);
  fill_random(b, 2u);
  fill_random(c, 3u);
  if (beta == 0.0) {
    for (double& x : c) x = NAN;
  }
  const auto ref =
      gemm_ref(ta, tb, m, n, k, alpha, a.data(), lda, b.data(), ldb, beta, c.data(), ldc);
  const std::vector<double> before = c;
  fn(ta, tb, m, n, k, alpha, a.data(), lda, b.data(), ldb, beta, c.data(), ldc);
  for (int64_t j = 0; j < n; ++j) {
    for (int64_t i = 0; i < m; ++i) {
      ASSERT_LE(std::fabs(c[i + j * ldc] - ref.c[i + j * m]), gemm_tolerance(k, ref.mag[i + j * m]))
          << what << " " << r.name << " ta=" << ta << " tb=" << tb << " m=" << m << " n=" << n
          << " k=" << k << " alpha=" << alpha << " beta=" << beta << " at " << i << "," << j;
    }
    for (int64_t i = m; i < ldc; ++i) {
      const double now = c[i + j * ldc], was = before[i + j * ldc];
      ASSERT_TRUE(now == was || (std::isnan(now) && std::isnan(was)))
          << what << " " << r.name << " wrote row " << i << " past m=" << m;
    }
  }
}

TEST_P(DgemmRow, SmallPathAllTransposes) {
  const dgemm_variant& r = row();
  auto small = [&r](bool ta, bool tb, int64_t m, int64_t n, int64_t k, double al, const double* a,
                    int64_t lda, const double* b, int64_t ldb, double be, double* c, int64_t ldc) {
    dgemm_small(r, ta, tb, m, n, k, al, a, lda, b, ldb, be, c, ldc);
  };
  const int64_t most = r.small_max;
  for (int t = 0; t < 4; ++t) {
    for (int64_t m :
         {1, 2, 3, 7, 8, 9, 15, 16, 17, 24, 25, 31, 32, 33, 47, 49, 63, 64, 65, 96, 112}) {
      for (int64_t n : {1, 3, 8, 9, 13, 32, 41, 64, 112}) {
        for (int64_t k : {1, 2, 5, 32, 57, 64, 112}) {
          if (m > most || n > most || k > most) continue;
          check_product("small", r, t & 1, t & 2, m, n, k, 1.5, t == 3 ? 0.0 : -0.5, small);
        }
      }
    }
  }
}

TEST_P(DgemmRow, BlockedLoopsAllTransposes) {
  const dgemm_variant& r = row();
  auto blocked = [&r](bool ta, bool tb, int64_t m, int64_t n, int64_t k, double al, const double* a,
                      int64_t lda, const double* b, int64_t ldb, double be, double* c,
                      int64_t ldc) {
    dgemm_blocked(r, ta, tb, m, n, k, al, a, lda, b, ldb, be, c, ldc);
  };
  struct Shape {
    int64_t m, n, k;
  };
  // k = 300 and 600 cross one and two kc passes; m = 517 crosses mc blocks.
  for (Shape s : {Shape{1, 1, 1}, Shape{33, 17, 2}, Shape{65, 31, 300}, Shape{127, 129, 65},
                  Shape{517, 37, 600}, Shape{40, 300, 257}}) {
    for (int t = 0; t < 4; ++t) {
      check_product("blocked", r, t & 1, t & 2, s.m, s.n, s.k, 2.5, t == 1 ? 0.0 : 1.0, blocked);
    }
  }
}

// The fallback used when work memory is refused gives the same products.
TEST_P(DgemmRow, BlockedOnStackAllTransposes) {
  const dgemm_variant& r = row();
  auto on_stack = [&r](bool ta, bool tb, int64_t m, int64_t n, int64_t k, double al,
                       const double* a, int64_t lda, const double* b, int64_t ldb, double be,
                       double* c, int64_t ldc) {
    dgemm_blocked_on_stack(r, ta, tb, m, n, k, al, a, lda, b, ldb, be, c, ldc);
  };
  for (int t = 0; t < 4; ++t) {
    check_product("on stack", r, t & 1, t & 2, 67, 45, 150, -1.0, t == 2 ? 0.0 : 2.5, on_stack);
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, DgemmRow, ::testing::ValuesIn(all_rows()),
                         [](const ::testing::TestParamInfo<const dgemm_variant*>& param_info) {
                           return std::string(param_info.param->name);
                         });

TEST(DgemmTable, EverySlotFilledAndPickUsable) {
  for (int cp = 0; cp < dispatch::kCodePaths; ++cp) {
    ASSERT_NE(kDgemmTable[static_cast<size_t>(cp)], nullptr) << "slot " << cp;
    const dgemm_variant& r = dispatch::pick(kDgemmTable, cp);
    EXPECT_TRUE(dispatch::isa_usable(r.isa)) << "slot " << cp << " picked " << r.name;
  }
  // AVX without FMA must never reach an FMA kernel.
  EXPECT_LT(static_cast<int>(kDgemmTable[8]->isa), static_cast<int>(dispatch::Isa::kAvx2));
}

}  // namespace
}  // namespace zml::blas
