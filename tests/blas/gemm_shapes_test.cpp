// SPDX-License-Identifier: BSD-3-Clause
// End-to-end gemm against the naive loop: every transposition, both layouts,
// odd and degenerate sizes, through cblas_dgemm / cblas_zgemm and the
// internal column-major entries, on one and on two threads.
#include <gtest/gtest.h>

#include <algorithm>
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

CBLAS_TRANSPOSE cblas_trans(char t) {
  return t == 'N' ? CblasNoTrans : t == 'T' ? CblasTrans : CblasConjTrans;
}

enum class Via { kCblas, kInternal };

// One product through `via` in `layout`, checked against the naive loop.
template <class T>
::testing::AssertionResult run_case(Via via, bool row_major, char ta, char tb, int32_t m, int32_t n,
                                    int32_t k, uint64_t seed) {
  using zml::test::mat_storage;
  const int32_t ar = ta == 'N' ? m : k, ac = ta == 'N' ? k : m;
  const int32_t br = tb == 'N' ? k : n, bc = tb == 'N' ? n : k;
  // Leading dimensions with a little padding: the stored line length + 1.
  const int32_t lda = std::max(1, row_major ? ac : ar) + 1;
  const int32_t ldb = std::max(1, row_major ? bc : br) + 1;
  const int32_t ldc = std::max(1, row_major ? n : m) + 1;
  const auto a = zml::test::random_vector<T>(mat_storage(row_major, ar, ac, lda), seed);
  const auto b = zml::test::random_vector<T>(mat_storage(row_major, br, bc, ldb), seed + 1);
  auto c = zml::test::random_vector<T>(mat_storage(row_major, m, n, ldc), seed + 2);
  T alpha, beta;
  if constexpr (zml::test::is_complex<T>::value) {
    alpha = T(0.75, -0.5);
    beta = T(-0.25, 1.0);
  } else {
    alpha = 0.75;
    beta = -0.25;
  }
  std::vector<double> scale;
  const auto want = zml::test::naive_gemm<T>(row_major, ta, tb, m, n, k, alpha, a.data(), lda,
                                             b.data(), ldb, beta, c, ldc, &scale);
  const char sa[2] = {ta, 0}, sb[2] = {tb, 0};
  if constexpr (zml::test::is_complex<T>::value) {
    if (via == Via::kCblas) {
      cblas_zgemm(row_major ? CblasRowMajor : CblasColMajor, cblas_trans(ta), cblas_trans(tb), m, n,
                  k, &alpha, a.data(), lda, b.data(), ldb, &beta, c.data(), ldc);
    } else {
      zml::blas::zgemm(sa, sb, &m, &n, &k, &alpha, a.data(), &lda, b.data(), &ldb, &beta, c.data(),
                       &ldc);
    }
  } else {
    if (via == Via::kCblas) {
      cblas_dgemm(row_major ? CblasRowMajor : CblasColMajor, cblas_trans(ta), cblas_trans(tb), m, n,
                  k, alpha, a.data(), lda, b.data(), ldb, beta, c.data(), ldc);
    } else {
      zml::blas::dgemm(sa, sb, &m, &n, &k, &alpha, a.data(), &lda, b.data(), &ldb, &beta, c.data(),
                       &ldc);
    }
  }
  return zml::test::same_c(row_major, m, n, k, c, want, ldc, scale,
                           std::string(row_major ? "row " : "col ") + sa + sb + " " +
                               std::to_string(m) + "x" + std::to_string(n) + "x" +
                               std::to_string(k));
}

// All transposition pairs for small products; larger ones keep two pairs per
// layout and the largest one pair, so the naive loop stays affordable.
template <class T>
std::vector<std::pair<char, char>> pairs_for(int64_t work, bool row_major) {
  const bool complex = zml::test::is_complex<T>::value;
  const std::vector<char> letters =
      complex ? std::vector<char>{'N', 'T', 'C'} : std::vector<char>{'N', 'T'};
  const int64_t all_limit = complex ? 400000 : 2200000;
  const int64_t two_limit = complex ? 5000000 : 40000000;
  std::vector<std::pair<char, char>> v;
  if (work <= all_limit) {
    for (char ta : letters) {
      for (char tb : letters) v.push_back({ta, tb});
    }
  } else if (work <= two_limit) {
    v = row_major ? std::vector<std::pair<char, char>>{{'T', 'N'}, {complex ? 'C' : 'N', 'T'}}
                  : std::vector<std::pair<char, char>>{{'N', 'N'}, {'T', complex ? 'C' : 'T'}};
  } else {
    v = {{row_major ? 'N' : 'T', complex ? 'C' : 'N'}};
  }
  return v;
}

template <class T>
void all_shapes(Via via) {
  uint64_t seed = 1000;
  for (const auto& s : shapes()) {
    const int64_t work = static_cast<int64_t>(s[0]) * s[1] * s[2];
    for (bool row_major : {false, true}) {
      if (via == Via::kInternal && row_major) continue;  // the internal entry is column-major
      for (const auto& [ta, tb] : pairs_for<T>(work, row_major)) {
        EXPECT_TRUE(run_case<T>(via, row_major, ta, tb, s[0], s[1], s[2], seed += 3));
      }
    }
  }
}

TEST_P(GemmShapes, CblasDgemm) { all_shapes<double>(Via::kCblas); }
TEST_P(GemmShapes, CblasZgemm) { all_shapes<zcomplex>(Via::kCblas); }
TEST_P(GemmShapes, InternalDgemm) { all_shapes<double>(Via::kInternal); }
TEST_P(GemmShapes, InternalZgemm) { all_shapes<zcomplex>(Via::kInternal); }

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
