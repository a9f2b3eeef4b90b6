// SPDX-License-Identifier: BSD-3-Clause
// End-to-end gemm against the naive loop: every transposition, odd and
// degenerate sizes, through the internal column-major entries (zero sizes
// through cblas_dgemm / cblas_zgemm), on one and on two threads. On one thread
// every shape but the degenerate ones ends whole in the single-thread
// multiply, on two most of them in pieces of C.
#include <gtest/gtest.h>

#include <array>
#include <complex>
#include <string>
#include <utility>
#include <vector>

#include "blas/blas.h"
#include "service/config/settings.h"
#include "tests/blas/gemm_check.h"
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

}  // namespace
