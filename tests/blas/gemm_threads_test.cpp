// SPDX-License-Identifier: BSD-3-Clause
// Thread choices and splits of C: the second-generation choice against every
// worked example and its boundaries, the grid and the cuts, the first
// generation's routing and tree, and every region and team size computing
// the naive product (the striped mode in a child process).
#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <limits>
#include <string>
#include <vector>

#include "blas/blas.h"
#include "blas/driver/gemm_driver.h"
#include "service/config/settings.h"
#include "service/service.h"
#include "tests/blas/gemm_check.h"
#include "tests/support/child.h"

namespace {

using zml::blas::gemm_v2_thread_choice;
using zml::blas::GemmV1Route;
using zml::blas::zcomplex;

TEST(GemmV2ThreadChoice, WorkedExamples) {
  // Code path 8, T = 8.
  EXPECT_EQ(gemm_v2_thread_choice(8, 8, 20, 20, 20), 1);  // gate fails
  EXPECT_EQ(gemm_v2_thread_choice(8, 8, 4, 4, 40), 8);    // W = 400, k/max = 10
  EXPECT_EQ(gemm_v2_thread_choice(8, 8, 10, 10, 36), 1);  // W = 2250, k/max = 3
  // Code path 9, T = 4: W = 4000 fails at t = 4, 3 and 2.
  EXPECT_EQ(gemm_v2_thread_choice(9, 4, 40, 40, 40), 1);
}

TEST(GemmV2ThreadChoice, OneThreadAvailable) {
  for (int32_t cp : {7, 8, 9, 11}) {
    EXPECT_EQ(gemm_v2_thread_choice(cp, 1, 4000, 4000, 4000), 1);
    EXPECT_EQ(gemm_v2_thread_choice(cp, 0, 4000, 4000, 4000), 1);
  }
}

TEST(GemmV2ThreadChoice, CodePath9UpToFourThreads) {
  // W = m*n*k/16. T = 4, t = 4 needs 3W > 12000.
  EXPECT_EQ(gemm_v2_thread_choice(9, 4, 16, 16, 251), 4);  // W = 4016
  EXPECT_EQ(gemm_v2_thread_choice(9, 4, 20, 20, 20), 1);   // W = 500 < 3000
  // T = 2: W > 6000.
  EXPECT_EQ(gemm_v2_thread_choice(9, 2, 40, 40, 60), 1);  // W = 6000
  EXPECT_EQ(gemm_v2_thread_choice(9, 2, 40, 40, 61), 2);  // W = 6100
}

TEST(GemmV2ThreadChoice, OtherCodePathsUpToFourThreads) {
  // W = m*n*k/8. T = 3: t = 3 needs W > 4500, t = 2 needs W > 6000.
  EXPECT_EQ(gemm_v2_thread_choice(7, 3, 20, 20, 100), 3);  // W = 5000
  EXPECT_EQ(gemm_v2_thread_choice(7, 3, 20, 20, 90), 1);   // W = 4500
  EXPECT_EQ(gemm_v2_thread_choice(7, 2, 20, 20, 100), 1);  // W = 5000 <= 6000
  EXPECT_EQ(gemm_v2_thread_choice(7, 2, 20, 20, 121), 2);  // W = 6050
  EXPECT_EQ(gemm_v2_thread_choice(11, 4, 20, 20, 59), 1);  // W = 2950 < 3000
}

TEST(GemmV2ThreadChoice, MoreThanFourThreadsStepDown) {
  // W = m*n*k/8, T = 8: t = 8 needs W > 9142.9, 6 needs W > 8400, 4 needs
  // W > 8000, 2 needs W > 10000.
  EXPECT_EQ(gemm_v2_thread_choice(7, 8, 20, 20, 200), 8);  // W = 10000
  EXPECT_EQ(gemm_v2_thread_choice(7, 8, 20, 20, 176), 6);  // W = 8800
  EXPECT_EQ(gemm_v2_thread_choice(7, 8, 20, 20, 164), 4);  // W = 8200
  EXPECT_EQ(gemm_v2_thread_choice(7, 8, 20, 20, 150), 1);  // W = 7500: every step fails
  EXPECT_EQ(gemm_v2_thread_choice(7, 8, 20, 20, 124), 1);  // W = 4960 < 5000
  // T = 12 steps by 4 first: 12 needs W > 10909, then 8.
  EXPECT_EQ(gemm_v2_thread_choice(7, 12, 20, 20, 240), 12);  // W = 12000
  EXPECT_EQ(gemm_v2_thread_choice(7, 12, 20, 20, 200), 8);   // W = 10000
  // Code path 9 halves W: the same shape with twice the k.
  EXPECT_EQ(gemm_v2_thread_choice(9, 8, 20, 20, 400), 8);
}

TEST(GemmV2ThreadChoice, CodePath8GateWorkAndFallback) {
  // Gate: m <= 32 and n <= 60 needs k > 32.
  EXPECT_EQ(gemm_v2_thread_choice(8, 8, 32, 60, 32), 1);
  // m <= 32, n > 60: k > 16 or n > 112.
  EXPECT_EQ(gemm_v2_thread_choice(8, 8, 8, 113, 4), 1);   // passes, W = 2260, 4/113 = 0
  EXPECT_EQ(gemm_v2_thread_choice(8, 8, 8, 100, 16), 1);  // gate fails
  // m > 32 and k > 16: W = 2*40*40*20/3.2 = 20000 accepts t = 4.
  EXPECT_EQ(gemm_v2_thread_choice(8, 8, 40, 40, 20), 4);
  // W = 17000: t = 8, 6, 4 fail, t = 2 needs W > 16000.
  EXPECT_EQ(gemm_v2_thread_choice(8, 8, 40, 40, 17), 2);
  // Large: W = 163840 accepts all 8.
  EXPECT_EQ(gemm_v2_thread_choice(8, 8, 64, 64, 64), 8);
  // W = 12500 >= 8000 but no t accepted: the fallback sees k/max = 20.
  EXPECT_EQ(gemm_v2_thread_choice(8, 8, 10, 10, 200), 8);
  // W = 11570.6, no t accepted, k/max = 0.
  EXPECT_EQ(gemm_v2_thread_choice(8, 8, 33, 33, 17), 1);
  // Odd T steps 7, 5, 3, 1: W = 20000 fails 7 (120000 <= 143500) and accepts
  // 5 (80000 > 77500); W = 17000 fails 7 and 5 (68000 <= 77500) and accepts 3
  // (34000 > 31500).
  EXPECT_EQ(gemm_v2_thread_choice(8, 7, 40, 40, 20), 5);
  EXPECT_EQ(gemm_v2_thread_choice(8, 7, 40, 40, 17), 3);
}

TEST(GemmGrid, LeastDuplicatedPacking) {
  auto g = zml::blas::gemm_grid(2, 2048, 2048);
  EXPECT_EQ(g.rows, 1);  // tie: columns
  EXPECT_EQ(g.cols, 2);
  g = zml::blas::gemm_grid(2, 2048, 100);
  EXPECT_EQ(g.rows, 2);
  g = zml::blas::gemm_grid(4, 1000, 1000);
  EXPECT_EQ(g.rows, 2);
  EXPECT_EQ(g.cols, 2);
  g = zml::blas::gemm_grid(6, 600, 200);  // costs 3800, 2200, 1800, 1800
  EXPECT_EQ(g.rows, 3);
  EXPECT_EQ(g.cols, 2);
  g = zml::blas::gemm_grid(3, 2, 1000);
  EXPECT_EQ(g.rows, 1);
  EXPECT_EQ(g.cols, 3);
  g = zml::blas::gemm_grid(4, 1, 1);  // nothing fits: the longer side (columns on a tie)
  EXPECT_EQ(g.rows * g.cols, 4);
  g = zml::blas::gemm_grid(1, 50, 50);
  EXPECT_EQ(g.rows * g.cols, 1);
}

TEST(GemmCut, CoversInOrderOnUnitsWherePossible) {
  for (int32_t total : {0, 1, 7, 23, 24, 100, 129, 2048}) {
    for (int32_t parts = 1; parts <= 7; ++parts) {
      for (int32_t unit : {1, 4, 8, 24}) {
        EXPECT_EQ(zml::blas::gemm_cut(total, parts, 0, unit), 0);
        EXPECT_EQ(zml::blas::gemm_cut(total, parts, parts, unit), total);
        for (int32_t i = 0; i < parts; ++i) {
          const int32_t lo = zml::blas::gemm_cut(total, parts, i, unit);
          const int32_t hi = zml::blas::gemm_cut(total, parts, i + 1, unit);
          EXPECT_LE(lo, hi);
          if (total >= unit * parts && i + 1 < parts) {
            EXPECT_EQ(hi % unit, 0);
          }
          // Pieces stay within a unit of the even share.
          EXPECT_LE(hi - lo, total / parts + unit + 1);
        }
      }
    }
  }
  EXPECT_EQ(zml::blas::gemm_cut(2048, 2, 1, 24), 1032);
  EXPECT_EQ(zml::blas::gemm_cut(100, 3, 1, 8), 32);
}

TEST(GemmV1Routing, FirstRoutingSteps) {
  using zml::blas::gemm_v1_first_routing;
  EXPECT_EQ(gemm_v1_first_routing(1, 50, 50), GemmV1Route::kRowGemv);
  EXPECT_EQ(gemm_v1_first_routing(50, 1, 50), GemmV1Route::kColGemv);
  // k = 0 is not a gemv shape: n < 16 one thread; m <= 16 goes to step 3, n > 16.
  EXPECT_EQ(gemm_v1_first_routing(1, 10, 0), GemmV1Route::kSerial);
  EXPECT_EQ(gemm_v1_first_routing(1, 50, 0), GemmV1Route::kGeneral);
  // k > 4: m > 32 considers threads.
  EXPECT_EQ(gemm_v1_first_routing(33, 2, 5), GemmV1Route::kGeneral);
  // k > 4, m <= 16 -> step 3: n > 16 threads; else k <= 16 one thread; else step 4.
  EXPECT_EQ(gemm_v1_first_routing(16, 17, 5), GemmV1Route::kGeneral);
  EXPECT_EQ(gemm_v1_first_routing(16, 16, 16), GemmV1Route::kSerial);
  EXPECT_EQ(gemm_v1_first_routing(16, 16, 17), GemmV1Route::kGeneral);
  EXPECT_EQ(gemm_v1_first_routing(16, 4, 17), GemmV1Route::kSerial);
  // k > 4, 16 < m <= 32 -> step 4: n <= 4 one thread.
  EXPECT_EQ(gemm_v1_first_routing(32, 4, 100), GemmV1Route::kSerial);
  EXPECT_EQ(gemm_v1_first_routing(17, 5, 5), GemmV1Route::kGeneral);
  // k <= 4: n < 16 one thread; m > 16 threads; else step 3.
  EXPECT_EQ(gemm_v1_first_routing(100, 15, 4), GemmV1Route::kSerial);
  EXPECT_EQ(gemm_v1_first_routing(17, 16, 4), GemmV1Route::kGeneral);
  EXPECT_EQ(gemm_v1_first_routing(16, 16, 0), GemmV1Route::kSerial);  // step 3: k <= 16
  EXPECT_EQ(gemm_v1_first_routing(16, 17, 0), GemmV1Route::kGeneral);
}

TEST(GemmV1Routing, TreeBetweenGeneralAndOneDimensionalRegions) {
  using zml::blas::gemm_v1_choice;
  auto route = [](bool cx, int32_t cp, int32_t T, int32_t m, int32_t n, int32_t k, int32_t ta,
                  int32_t tb, bool copies = true, int64_t llc = int64_t{32} << 20) {
    return gemm_v1_choice(cx, cp, T, m, n, k, ta, tb, copies, llc);
  };
  // One thread available, or too little work per member.
  EXPECT_EQ(route(false, 11, 1, 2048, 2048, 2048, 0, 0).route, GemmV1Route::kSerial);
  EXPECT_EQ(route(false, 11, 2, 40, 40, 40, 0, 0).route, GemmV1Route::kSerial);
  const auto big = route(false, 11, 2, 2048, 2048, 2048, 0, 0);
  EXPECT_EQ(big.route, GemmV1Route::kGeneral);
  EXPECT_EQ(big.threads, 2);
  // The team never exceeds T, and shrinks with the work (2^18 per member).
  EXPECT_EQ(route(false, 11, 8, 64, 64, 128, 0, 0).threads, 2);
  EXPECT_EQ(route(false, 11, 8, 2048, 2048, 2048, 0, 0).threads, 8);
  // Code paths 4 to 7: one-dimensional along the longer side.
  EXPECT_EQ(route(false, 5, 2, 800, 400, 300, 0, 0).route, GemmV1Route::kRow);
  EXPECT_EQ(route(false, 7, 2, 400, 800, 300, 0, 0).route, GemmV1Route::kCol);
  // Tall C: rows; a transposed op(B) with k >= 100 is copied once.
  EXPECT_EQ(route(false, 11, 2, 4000, 50, 300, 0, 0).route, GemmV1Route::kRow);
  EXPECT_EQ(route(false, 11, 2, 4000, 50, 300, 0, 1).route, GemmV1Route::kBcopy);
  EXPECT_EQ(route(false, 11, 2, 4000, 50, 99, 0, 1).route, GemmV1Route::kRow);
  // Wide C: columns; a transposed op(A) with k >= 100 is copied once.
  EXPECT_EQ(route(false, 11, 2, 50, 4000, 300, 0, 0).route, GemmV1Route::kCol);
  EXPECT_EQ(route(false, 11, 2, 50, 4000, 300, 1, 0).route, GemmV1Route::kAcopy);
  // No copies for complex data, when refused, or when too big for the cache.
  EXPECT_EQ(route(true, 11, 2, 50, 4000, 300, 2, 0).route, GemmV1Route::kCol);
  EXPECT_EQ(route(false, 11, 2, 50, 4000, 300, 1, 0, false).route, GemmV1Route::kCol);
  EXPECT_EQ(route(false, 11, 2, 50, 4000, 300, 1, 0, true, 200000).route, GemmV1Route::kCol);
  // Code path 4 copies only with a last-level cache of at least 3 MiB.
  EXPECT_EQ(route(false, 4, 2, 4000, 50, 300, 0, 1, true, 3145727).route, GemmV1Route::kRow);
  EXPECT_EQ(route(false, 4, 2, 4000, 50, 300, 0, 1, true, 3145728).route, GemmV1Route::kBcopy);
  EXPECT_EQ(route(false, 5, 2, 4000, 50, 300, 0, 1, true, 3145727).route, GemmV1Route::kBcopy);
}

TEST(GemmgerThreadChoice, ColumnsSplitOnceCIsLarge) {
  using zml::blas::gemmger_thread_choice;
  EXPECT_EQ(gemmger_thread_choice(1, 4000, 4000, false), 1);
  EXPECT_EQ(gemmger_thread_choice(4, 4000, 1, false), 1);
  EXPECT_EQ(gemmger_thread_choice(4, 100, 100, false), 1);  // 80 KB
  EXPECT_EQ(gemmger_thread_choice(4, 256, 256, false), 2);  // 512 KiB
  EXPECT_EQ(gemmger_thread_choice(4, 4000, 4000, false), 4);
  EXPECT_EQ(gemmger_thread_choice(4, 256, 128, true), 2);
  EXPECT_EQ(gemmger_thread_choice(64, 100000, 3, false), 3);  // never more than n
}

// ---- every region and team size computes the naive product -----------------

using zml::test::scalar;

// One column-major product with padded leading dimensions, inside larger arrays.
template <class T>
zml::test::GemmCase<T> make_case(char ta, char tb, int32_t m, int32_t n, int32_t k, uint64_t seed) {
  return {false, ta, tb, m, n, k, scalar<T>(1.25, -0.5), scalar<T>(-0.5, 0.25), 2, seed};
}

const int32_t kRegionShapes[][3] = {{130, 57, 120}, {57, 130, 120}, {200, 190, 33}, {9, 300, 4}};

TEST(GemmRegions, RealRegionsEveryTeamSize) {
  for (const auto& s : kRegionShapes) {
    for (char ta : {'N', 'T'}) {
      for (char tb : {'N', 'T'}) {
        for (int32_t t : {1, 2, 3}) {
          const char sa[2] = {ta, 0}, sb[2] = {tb, 0};
          auto r = make_case<double>(ta, tb, s[0], s[1], s[2], 71);
          zml::blas::zml_blas_dgemm_1D_row(t, sa, sb, r.m, r.n, r.k, &r.alpha, r.pa(), r.lda,
                                           r.pb(), r.ldb, &r.beta, r.pc(), r.ldc);
          EXPECT_TRUE(r.matches("1D_row t=" + std::to_string(t)));
          auto c = make_case<double>(ta, tb, s[0], s[1], s[2], 72);
          zml::blas::zml_blas_dgemm_1D_col(t, sa, sb, c.m, c.n, c.k, &c.alpha, c.pa(), c.lda,
                                           c.pb(), c.ldb, &c.beta, c.pc(), c.ldc);
          EXPECT_TRUE(c.matches("1D_col t=" + std::to_string(t)));
          auto bc = make_case<double>(ta, tb, s[0], s[1], s[2], 73);
          EXPECT_TRUE(zml::blas::zml_blas_dgemm_1D_bcopy(t, sa, sb, bc.m, bc.n, bc.k, &bc.alpha,
                                                         bc.pa(), bc.lda, bc.pb(), bc.ldb, &bc.beta,
                                                         bc.pc(), bc.ldc));
          EXPECT_TRUE(bc.matches("1D_bcopy t=" + std::to_string(t)));
          auto ac = make_case<double>(ta, tb, s[0], s[1], s[2], 74);
          EXPECT_TRUE(zml::blas::zml_blas_dgemm_1D_acopy(t, sa, sb, ac.m, ac.n, ac.k, &ac.alpha,
                                                         ac.pa(), ac.lda, ac.pb(), ac.ldb, &ac.beta,
                                                         ac.pc(), ac.ldc));
          EXPECT_TRUE(ac.matches("1D_acopy t=" + std::to_string(t)));
        }
      }
    }
  }
}

TEST(GemmRegions, ComplexRegionsEveryTeamSize) {
  for (const auto& s : kRegionShapes) {
    for (char ta : {'N', 'T', 'C'}) {
      for (char tb : {'N', 'C'}) {
        for (int32_t t : {1, 2, 3}) {
          const char sa[2] = {ta, 0}, sb[2] = {tb, 0};
          auto r = make_case<zcomplex>(ta, tb, s[0], s[1], s[2] / 3, 81);
          zml::blas::zml_blas_zgemm_1D_row(t, sa, sb, r.m, r.n, r.k, &r.alpha, r.pa(), r.lda,
                                           r.pb(), r.ldb, &r.beta, r.pc(), r.ldc);
          EXPECT_TRUE(r.matches("z 1D_row t=" + std::to_string(t)));
          auto c = make_case<zcomplex>(ta, tb, s[0], s[1], s[2] / 3, 82);
          zml::blas::zml_blas_zgemm_1D_col(t, sa, sb, c.m, c.n, c.k, &c.alpha, c.pa(), c.lda,
                                           c.pb(), c.ldb, &c.beta, c.pc(), c.ldc);
          EXPECT_TRUE(c.matches("z 1D_col t=" + std::to_string(t)));
        }
      }
    }
  }
}

template <class T>
void v2_case(char ta, char tb, int32_t m, int32_t n, int32_t k, int32_t t, uint64_t seed) {
  using namespace zml::blas;
  auto x = make_case<T>(ta, tb, m, n, k, seed);
  const int32_t es = sizeof(T);
  const char sa[2] = {ta, 0}, sb[2] = {tb, 0};
  const int32_t ca = trans_code(sa), cb = trans_code(sb);
  const gemm_desc da = gemm_make_desc(x.pa(), ta == 'N' ? m : k, ta == 'N' ? k : m, x.lda, es, ca);
  const gemm_desc db = gemm_make_desc(x.pb(), tb == 'N' ? k : n, tb == 'N' ? n : k, x.ldb, es, cb);
  const gemm_desc dc = gemm_make_desc(x.pc(), m, n, x.ldc, es, -1);
  EXPECT_EQ(da.op, ta == 'N' ? 1 : ta == 'T' ? 2 : 4);
  EXPECT_EQ(dc.op, 0);
  EXPECT_EQ(da.locate, ta == 'N' ? &gemm_locate_direct : &gemm_locate_transposed);
  EXPECT_EQ(dc.locate, &gemm_locate_direct);
  const std::complex<double> al(x.alpha), be(x.beta);
  gemm_omp_driver_v2(t, da, db, dc, ca, cb, {al.real(), al.imag()}, {be.real(), be.imag()});
  EXPECT_TRUE(x.matches("v2 t=" + std::to_string(t)));
}

TEST(GemmRegions, SecondGenerationBothPrecisionsEveryTeamSize) {
  for (int32_t t : {1, 2, 3, 4}) {
    for (char ta : {'N', 'T'}) {
      for (char tb : {'N', 'T'}) {
        v2_case<double>(ta, tb, 131, 67, 50, t, 91);
        v2_case<double>(ta, tb, 20, 150, 50, t, 92);
      }
    }
    for (char ta : {'N', 'C'}) {
      for (char tb : {'T', 'C'}) v2_case<zcomplex>(ta, tb, 45, 37, 20, t, 93);
    }
  }
}

template <class T>
void ger_case(int32_t t, int32_t m, int32_t n, int32_t incx, int32_t incy, bool cx, bool cy,
              T beta) {
  const auto x = zml::test::random_vector<T>(static_cast<size_t>(m) * incx, 101);
  const auto y = zml::test::random_vector<T>(static_cast<size_t>(n) * incy, 102);
  const int32_t ldc = m + 2;
  auto c = zml::test::random_vector<T>(static_cast<size_t>(ldc) * n, 103);
  if (beta == T(0)) std::fill(c.begin(), c.end(), zml::test::nan_value<T>());
  const T alpha = scalar<T>(0.75, -1.5);
  // The naive update: a k = 1 product with x as the column of A and y as the row of B.
  auto element = [](const std::vector<T>& v, int64_t i, int32_t inc, bool conj) {
    return zml::test::narrow<T>(zml::test::conj_if(zml::test::widen(v[i * inc]), conj));
  };
  std::vector<T> a(static_cast<size_t>(m)), b(static_cast<size_t>(n));
  for (int32_t i = 0; i < m; ++i) a[i] = element(x, i, incx, cx);
  for (int32_t j = 0; j < n; ++j) b[j] = element(y, j, incy, cy);
  std::vector<double> scale;
  std::vector<T> want = c;
  zml::test::naive_gemm<T>(false, 'N', 'N', m, n, 1, alpha, a.data(), m, b.data(), 1, beta,
                           want.data(), ldc, &scale);
  if constexpr (zml::test::is_complex<T>::value) {
    zml::blas::zml_blas_zgemmger_omp(t, m, n, alpha, x.data(), incx, cx, y.data(), incy, cy, beta,
                                     c.data(), ldc);
  } else {
    zml::blas::zml_blas_dgemmger_omp(t, m, n, alpha, x.data(), incx, y.data(), incy, beta, c.data(),
                                     ldc);
  }
  EXPECT_TRUE(
      zml::test::same_c(false, m, n, 1, c, want, 0, ldc, scale, "ger t=" + std::to_string(t)));
}

TEST(GemmRegions, RankOneUpdateEveryTeamSize) {
  for (int32_t t : {1, 2, 3}) {
    ger_case<double>(t, 70, 33, 1, 3, false, false, 0.5);
    ger_case<double>(t, 70, 33, 4, 1, false, false, 0.0);  // NaN in C is overwritten
    ger_case<zcomplex>(t, 30, 17, 2, 1, true, false, zcomplex(0.5, 1.0));
    ger_case<zcomplex>(t, 30, 17, 1, 5, false, true, zcomplex(0.0, 0.0));
    ger_case<zcomplex>(t, 30, 17, 3, 2, true, true, zcomplex(1.0, 0.0));
  }
}

// ---- the striped mode ----------------------------------------------------------------

TEST(GemmStriped, DISABLED_Child) {
  zml::test::emit("stripes", zml::serv::num_stripes());
  bool ok = true;
  for (int32_t t : {1, 2, 3}) {
    zml::serv::g_settings.domain_threads_blas.store(t);
    for (char ta : {'N', 'T'}) {
      for (char tb : {'N', 'T'}) {
        for (const auto& s : kRegionShapes) {
          auto x = make_case<double>(ta, tb, s[0], s[1], s[2], 111);
          const char sa[2] = {ta, 0}, sb[2] = {tb, 0};
          zml::blas::dgemm(sa, sb, &x.m, &x.n, &x.k, &x.alpha, x.pa(), &x.lda, x.pb(), &x.ldb,
                           &x.beta, x.pc(), &x.ldc);
          ok = ok && x.matches("striped");
        }
      }
    }
    for (char ta : {'N', 'C'}) {
      auto z = make_case<zcomplex>(ta, 'T', 40, 33, 12, 112);
      const char sa[2] = {ta, 0};
      zml::blas::zgemm(sa, "T", &z.m, &z.n, &z.k, &z.alpha, z.pa(), &z.lda, z.pb(), &z.ldb, &z.beta,
                       z.pc(), &z.ldc);
      ok = ok && z.matches("striped z");
    }
    // k = 0 also takes the striped region.
    auto k0 = make_case<double>('N', 'N', 50, 40, 0, 113);
    zml::blas::dgemm("N", "N", &k0.m, &k0.n, &k0.k, &k0.alpha, k0.pa(), &k0.lda, k0.pb(), &k0.ldb,
                     &k0.beta, k0.pc(), &k0.ldc);
    ok = ok && k0.matches("striped k=0");
  }
  zml::test::emit("ok", ok ? 1 : 0);
}

TEST(GemmStriped, StripeCountSetGivesTheNaiveProduct) {
  const auto r = zml::test::run_child("GemmStriped.DISABLED_Child", {{"ZML_NUM_STRIPES", "3"}});
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(r.value("stripes"), "3") << r.out;
  EXPECT_EQ(r.value("ok"), "1") << r.out;
}

}  // namespace
