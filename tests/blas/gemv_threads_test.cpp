// SPDX-License-Identifier: BSD-3-Clause
// The gemv thread choice against every example of its rules, and the
// parallel regions: each team size computes the same product as the naive
// loop, for both splits, every transpose and negative increments.
#include <gtest/gtest.h>

#include <complex>
#include <cstdio>
#include <string>
#include <utility>

#include "blas/driver/level2_driver.h"
#include "service/config/settings.h"
#include "service/service.h"
#include "tests/blas/level2_check.h"
#include "tests/support/child.h"
#include "zml_cblas.h"

namespace {

using zml::blas::gemv_thread_choice;
using zml::test::GemvCase;
using zml::test::scalar;
using zcomplex = std::complex<double>;

// Real, own processor, AVX2 code path, no extra topology unless stated.
int32_t real_n(int m, int n, int T, int topo = 0) {
  return gemv_thread_choice(false, false, m, n, T, true, 9, topo);
}
int32_t real_t(int m, int n, int T, int topo = 0) {
  return gemv_thread_choice(false, true, m, n, T, true, 9, topo);
}
int32_t cplx_n(int m, int n, int T, int topo = 0) {
  return gemv_thread_choice(true, false, m, n, T, true, 9, topo);
}
int32_t cplx_t(int m, int n, int T, int topo = 0) {
  return gemv_thread_choice(true, true, m, n, T, true, 9, topo);
}

TEST(GemvThreadChoice, ExamplesOfTheRules) {
  EXPECT_EQ(real_n(1000, 256, 4), 4);   // r = 250 < 501 and n >= 64*4
  EXPECT_EQ(real_t(20000, 100, 4), 4);  // transposed shortcut
  EXPECT_EQ(real_n(63, 63, 4), 1);      // both below 64
  EXPECT_EQ(real_t(63, 63, 16), 1);
}

TEST(GemvThreadChoice, SerialOffOwnProcessorOrBelowCodePath4OrOneThread) {
  EXPECT_EQ(gemv_thread_choice(false, false, 1000, 256, 4, false, 9, 0), 1);
  EXPECT_EQ(gemv_thread_choice(false, true, 20000, 100, 4, false, 11, 1), 1);
  EXPECT_EQ(gemv_thread_choice(false, false, 1000, 256, 4, true, 3, 0), 1);
  EXPECT_EQ(gemv_thread_choice(true, false, 1000, 256, 4, true, 0, 0), 1);
  EXPECT_EQ(gemv_thread_choice(false, false, 1000, 256, 4, true, 4, 0), 4);
  EXPECT_EQ(real_n(100000, 1000, 1), 1);
  EXPECT_EQ(real_n(0, 1000, 8), 1);
}

TEST(GemvThreadChoice, SixtyFourByOneGoesOnToTheChoice) {
  // m = 64, n = 1, T = 2: r = 32, n < 128; r8 = 32 < 64, r8*n = 32 < 1536: serial.
  EXPECT_EQ(real_n(64, 1, 2), 1);
  // m = 64, n = 100, T = 2: n < 128, r8 = 32, 32*100 = 3200 >= 1536: two threads.
  EXPECT_EQ(real_n(64, 100, 2), 2);
}

TEST(GemvThreadChoice, RealUntransposedFewThreads) {
  // r = 2000/4 = 500 < 501 but n = 100 < 256; r8 = 496 >= 64: 496*100 >= 3072.
  EXPECT_EQ(real_n(2000, 100, 4), 4);
  // r = 4000/4 = 1000: r8 = 1000, 1000*3 = 3000 < 3072: serial; n = 4 gives 4000.
  EXPECT_EQ(real_n(4000, 3, 4), 1);
  EXPECT_EQ(real_n(4000, 4, 4), 4);
  // r8 below 64: m = 200, T = 4: r = 50, r8 = 48; bound 1536: n = 32 gives 1536.
  EXPECT_EQ(real_n(200, 32, 4), 4);
  EXPECT_EQ(real_n(200, 31, 4), 1);
}

TEST(GemvThreadChoice, RealTransposedFewThreads) {
  // c = n/T unrounded: n = 256, T = 4: c = 64 >= 64, w = m*64 >= 4096 needs m >= 64.
  EXPECT_EQ(real_t(64, 256, 4), 4);
  EXPECT_EQ(real_t(63, 256, 4), 1);
  // c = 63 < 64: w = m*63 >= 2048 needs m >= 33.
  EXPECT_EQ(real_t(33, 252, 4), 4);
  EXPECT_EQ(real_t(32, 252, 4), 1);
  // Shortcut needs m >= 10000 and n < 101.
  EXPECT_EQ(real_t(10000, 100, 8), 8);
  EXPECT_EQ(real_t(9999, 1, 8), 1);  // c = 0
}

TEST(GemvThreadChoice, ManyThreadsAndTheReducedTeam) {
  // T = 16: r = m/16. m = 1600, n = 41: r = 100 < 501, n < 1024; n*r = 4100 >= 4096.
  EXPECT_EQ(real_n(1600, 41, 16), 16);
  // n*r = 100*40 = 4000 < 4096: topology 0 gives serial, 1 the reduced team
  // max(1, 1600*40/3072) = 20, capped at 16... 64000/3072 = 20 -> 16.
  EXPECT_EQ(real_n(1600, 40, 16, 0), 1);
  EXPECT_EQ(real_n(1600, 40, 16, 1), 16);
  // m = 320, n = 12: r = 20, n*r = 240: reduced team 320*12/3072 = 1.
  EXPECT_EQ(real_n(320, 12, 16, 1), 1);
  // m = 640, n = 60, T = 16: r = 40, 2400 < 4096: team 640*60/3072 = 12.
  EXPECT_EQ(real_n(640, 60, 16, 1), 12);
  // r = 0 never takes the reduced team.
  EXPECT_EQ(real_n(15, 900, 16, 1), 1);
  // Transposed, T = 13: c = n/13; m = 100, n = 520: c = 40, w = 4000 < 4096.
  EXPECT_EQ(real_t(100, 520, 13, 0), 1);
  EXPECT_EQ(real_t(100, 520, 13, 1), 13);  // 52000/3072 = 16 -> 13
  EXPECT_EQ(real_t(100, 533, 13, 1), 13);  // c = 41, w = 4100 >= 4096
  EXPECT_EQ(real_t(64, 100, 13, 1), 2);    // c = 7, w = 448; 6400/3072 = 2
  EXPECT_EQ(real_t(64, 12, 13, 1), 1);     // c = 0
}

TEST(GemvThreadChoice, ComplexShortcuts) {
  // "N": n >= 5000 and m < 51, tested before r is formed (here r8 = 0).
  EXPECT_EQ(cplx_n(31, 5000, 4), 4);
  EXPECT_EQ(cplx_n(31, 4999, 4), 1);
  // "T"/"C": m >= 5000 and n < 51 (here c = 0).
  EXPECT_EQ(cplx_t(5000, 3, 4), 4);
  EXPECT_EQ(cplx_t(4999, 3, 4), 1);
}

TEST(GemvThreadChoice, ComplexSplitsAndBounds) {
  // "N", T = 4: r8 split 32, bounds 1024 above and 512 below.
  EXPECT_EQ(cplx_n(128, 32, 4), 4);  // r8 = 32: 1024
  EXPECT_EQ(cplx_n(128, 31, 4), 1);  // 992
  EXPECT_EQ(cplx_n(124, 22, 4), 4);  // r8 = 24: 528
  EXPECT_EQ(cplx_n(124, 21, 4), 1);  // 504
  // "T", T = 4: c split 32, bounds 1024 and 512.
  EXPECT_EQ(cplx_t(32, 128, 4), 4);  // c = 32: 1024
  EXPECT_EQ(cplx_t(31, 128, 4), 1);
  EXPECT_EQ(cplx_t(17, 124, 4), 4);  // c = 31: 527
  EXPECT_EQ(cplx_t(16, 124, 4), 1);  // 496
  // T = 16: bound 1024, reduced team by m*n/1024.
  EXPECT_EQ(cplx_n(160, 103, 16), 16);     // r = 10: 1030
  EXPECT_EQ(cplx_n(160, 102, 16, 0), 1);   // 1020
  EXPECT_EQ(cplx_n(160, 102, 16, 1), 15);  // 16320/1024 = 15
  EXPECT_EQ(cplx_t(100, 160, 16, 1), 15);  // c = 10, w = 1000; 16000/1024 = 15
}

// One product through the parallel region of `threads` members.
template <class T>
void region_case(char trans, int m, int n, int incx, int incy, T beta, int threads, uint64_t seed) {
  GemvCase<T> c(false, trans, m, n, scalar<T>(1.25, 0.5), beta, 1, incx, incy, seed);
  const char tr[2] = {trans, 0};
  if constexpr (zml::test::is_complex<T>::value) {
    zml::blas::zml_blas_zgemv_omp(threads, tr, &c.m, &c.n, &c.alpha, c.pa(), &c.lda, c.x.p(),
                                  &c.x.inc, &c.beta, c.y.p(), &c.y.inc);
  } else {
    zml::blas::zml_blas_dgemv_omp(threads, tr, &c.m, &c.n, &c.alpha, c.pa(), &c.lda, c.x.p(),
                                  &c.x.inc, &c.beta, c.y.p(), &c.y.inc);
  }
  ASSERT_TRUE(c.matches("threads " + std::to_string(threads)));
}

// Each member scales and updates only its own slice of y: beta = 0 (NaN in
// y) rides on the negative increments.
TEST(GemvRegions, EveryTeamSizeSplitsCorrectly) {
  uint64_t seed = 9000;
  for (int threads : {1, 2, 3, 4, 7}) {
    for (char tr : {'N', 'T', 'C'}) {
      for (auto [m, n] : {std::pair{1, 1}, std::pair{5, 300}, std::pair{300, 5}, std::pair{129, 67},
                          std::pair{1000, 64}}) {
        for (auto [incx, incy] : {std::pair{1, 1}, std::pair{-1, -1}, std::pair{2, -3}}) {
          const bool zero = incx == -1;
          // Real "C" is "T" on the same path.
          if (tr != 'C')
            region_case<double>(tr, m, n, incx, incy, zero ? 0.0 : -0.5, threads, ++seed);
          region_case<zcomplex>(tr, m, n, incx, incy, zero ? zcomplex(0) : zcomplex(-0.5, 0.25),
                                threads, ++seed);
        }
      }
    }
  }
}

// In the child: a forced processor type makes this one of the library's own
// processors, so with two BLAS threads the driver takes the parallel region.
TEST(GemvDriverThreads, DISABLED_Child) {
  zml::serv::g_settings.domain_threads_blas.store(2);
  const int m = 1000, n = 256;
  zml::test::emit("own", zml_serv_own_processor() ? 1 : 0);
  zml::test::emit("team",
                  gemv_thread_choice(false, false, m, n, zml_serv_domain_get_max_threads(1),
                                     zml_serv_own_processor(), zml_serv_get_code_path(), 0));
  GemvCase<double> c(false, 'N', m, n, 0.5, 2.0, 0, 1, -2, 41);
  zml::test::call_cblas(c);
  const auto r = c.matches("cblas");
  if (!r) std::printf("%s\n", r.message());
  zml::test::emit("correct", r ? 1 : 0);
}

TEST(GemvDriverThreads, ForcedOwnProcessorThreadsCorrectly) {
  const auto r =
      zml::test::run_child("GemvDriverThreads.DISABLED_Child", {{"ZML_DEBUG_CPU_TYPE", "9"}});
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(r.value("own"), "1") << r.out;
  EXPECT_EQ(r.value("team"), "2") << r.out;
  EXPECT_EQ(r.value("correct"), "1") << r.out;
}

}  // namespace
