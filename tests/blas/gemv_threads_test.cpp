// SPDX-License-Identifier: BSD-3-Clause
// The gemv thread choice at one boundary of each rule, and the
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

// One boundary of each rule, on an own processor at code path 9: both sides
// of every bound and split point, the shortcuts, and the reduced team of
// large machines (topology 1).
TEST(GemvThreadChoice, OneBoundaryPerRule) {
  struct Row {
    bool cx, tr;
    int m, n, T, topo, want;
  };
  const Row rows[] = {
      {false, false, 63, 63, 4, 0, 1},    {false, false, 1000, 256, 4, 0, 4},  // r < 501
      {false, false, 4000, 3, 4, 0, 1},   {false, false, 4000, 4, 4, 0, 4},    // r8 >= 64: 3072
      {false, false, 200, 31, 4, 0, 1},   {false, false, 200, 32, 4, 0, 4},    // r8 < 64: 1536
      {false, true, 63, 256, 4, 0, 1},    {false, true, 64, 256, 4, 0, 4},     // c >= 64: 4096
      {false, true, 32, 252, 4, 0, 1},    {false, true, 33, 252, 4, 0, 4},     // c < 64: 2048
      {false, true, 9999, 1, 8, 0, 1},    {false, true, 10000, 100, 8, 0, 8},
      {false, false, 1600, 40, 16, 0, 1}, {false, false, 1600, 41, 16, 0, 16},  // 4096
      {false, false, 640, 60, 16, 1, 12}, {false, false, 15, 900, 16, 1, 1},    // r = 0
      {false, true, 100, 520, 13, 0, 1},  {false, true, 100, 533, 13, 1, 13},
      {false, true, 64, 100, 13, 1, 2},   {true, false, 31, 4999, 4, 0, 1},
      {true, false, 31, 5000, 4, 0, 4},   {true, true, 4999, 3, 4, 0, 1},
      {true, true, 5000, 3, 4, 0, 4},     {true, false, 128, 31, 4, 0, 1},
      {true, false, 128, 32, 4, 0, 4},    {true, true, 16, 124, 4, 0, 1},
      {true, true, 17, 124, 4, 0, 4},     {true, false, 160, 102, 16, 1, 15},
  };
  for (const Row& r : rows) {
    EXPECT_EQ(gemv_thread_choice(r.cx, r.tr, r.m, r.n, r.T, true, 9, r.topo), r.want)
        << r.cx << r.tr << " " << r.m << "x" << r.n << " T " << r.T << " topo " << r.topo;
  }
  // Serial off the own processors, below code path 4, or with one thread.
  EXPECT_EQ(gemv_thread_choice(false, false, 1000, 256, 4, false, 9, 0), 1);
  EXPECT_EQ(gemv_thread_choice(false, false, 1000, 256, 4, true, 3, 0), 1);
  EXPECT_EQ(gemv_thread_choice(false, false, 1000, 256, 4, true, 4, 0), 4);
  EXPECT_EQ(gemv_thread_choice(false, false, 100000, 1000, 1, true, 9, 0), 1);
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
