// SPDX-License-Identifier: BSD-3-Clause
// zml_blas_dgemm_serial on the active code path: every transposition, odd and
// degenerate shapes, padded leading dimensions, special alpha and beta, and
// calls on sub-blocks of a larger matrix.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "blas/blas.h"
#include "tests/support/gemm_ref.h"

namespace zml::blas {
namespace {

using test::fill_random;
using test::gemm_ref;
using test::gemm_tolerance;

const char* kTrans[] = {"N", "T", "c", "t"};  // 'C' means 'T' for real data; case is ignored

void call(const char* ta, const char* tb, int32_t m, int32_t n, int32_t k, double alpha,
          const double* a, int32_t lda, const double* b, int32_t ldb, double beta, double* c,
          int32_t ldc) {
  zml_blas_dgemm_serial(ta, tb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
}

// One product with padded leading dimensions; checks C against the oracle and
// that the padding rows of C are untouched.
void check(const char* ta, const char* tb, int32_t m, int32_t n, int32_t k, double alpha,
           double beta, int32_t pad = 3) {
  const bool at = trans_code(ta) != 0, bt = trans_code(tb) != 0;
  const int32_t lda = (at ? k : m) + pad, ldb = (bt ? n : k) + pad, ldc = m + pad;
  std::vector<double> a(static_cast<size_t>(lda) * (at ? m : k));
  std::vector<double> b(static_cast<size_t>(ldb) * (bt ? k : n));
  std::vector<double> c(static_cast<size_t>(ldc) * n);
  fill_random(a, 100u + static_cast<uint32_t>(m));
  fill_random(b, 200u + static_cast<uint32_t>(n));
  fill_random(c, 300u + static_cast<uint32_t>(k));
  if (beta == 0.0) {
    for (int32_t j = 0; j < n; ++j) {
      for (int32_t i = 0; i < m; ++i) c[i + static_cast<size_t>(j) * ldc] = NAN;
    }
  }
  const auto ref =
      gemm_ref(at, bt, m, n, k, alpha, a.data(), lda, b.data(), ldb, beta, c.data(), ldc);
  const std::vector<double> before = c;
  call(ta, tb, m, n, k, alpha, a.data(), lda, b.data(), ldb, beta, c.data(), ldc);
  for (int32_t j = 0; j < n; ++j) {
    for (int32_t i = 0; i < ldc; ++i) {
      const size_t at_c = i + static_cast<size_t>(j) * ldc;
      if (i < m) {
        const size_t at_r = i + static_cast<size_t>(j) * m;
        ASSERT_LE(std::fabs(c[at_c] - ref.c[at_r]), gemm_tolerance(k, ref.mag[at_r]))
            << ta << tb << " m=" << m << " n=" << n << " k=" << k << " alpha=" << alpha
            << " beta=" << beta << " at " << i << "," << j;
      } else {
        ASSERT_EQ(c[at_c], before[at_c]) << "padding row " << i << " written";
      }
    }
  }
}

TEST(DgemmSerial, SquareOddAndDegenerateSizesAllTransposes) {
  for (int32_t s : {1, 2, 3, 15, 16, 17, 31, 33, 64, 65, 127, 129}) {
    for (const char* ta : kTrans) {
      for (const char* tb : kTrans) check(ta, tb, s, s, s, 1.0, 1.0);
    }
  }
}

TEST(DgemmSerial, Size500AllTransposes) {
  for (const char* ta : {"N", "T"}) {
    for (const char* tb : {"N", "T"}) check(ta, tb, 500, 500, 500, -1.0, 2.5);
  }
}

TEST(DgemmSerial, MixedShapes) {
  const int32_t sizes[] = {1, 2, 3, 16, 17, 33, 65, 129};
  for (int32_t m : sizes) {
    for (int32_t n : sizes) {
      for (int32_t k : {1, 2, 3, 31, 33, 300}) {
        check(m % 2 ? "N" : "T", n % 3 ? "N" : "T", m, n, k, 2.5, -1.0);
      }
    }
  }
}

TEST(DgemmSerial, AlphaBetaValues) {
  for (double alpha : {1.0, -1.0, 2.5}) {
    for (double beta : {0.0, 1.0, -1.0, 2.5}) {
      check("N", "N", 37, 29, 41, alpha, beta);      // small path
      check("T", "N", 70, 45, 300, alpha, beta);     // blocked, two kc passes
      check("N", "T", 20, 20, 20, alpha, beta, 40);  // much larger leading dimensions
    }
  }
}

TEST(DgemmSerial, BetaZeroIgnoresNanInC) {
  for (int32_t s : {5, 30, 100}) {
    const int32_t ld = s + 1;
    std::vector<double> a(static_cast<size_t>(ld) * s, 1.0), b(a), c(a.size(), NAN);
    call("N", "N", s, s, s, 1.0, a.data(), ld, b.data(), ld, 0.0, c.data(), ld);
    for (int32_t j = 0; j < s; ++j) {
      for (int32_t i = 0; i < s; ++i) ASSERT_EQ(c[i + static_cast<size_t>(j) * ld], s);
    }
  }
}

TEST(DgemmSerial, AlphaZeroDoesNotReadAOrB) {
  for (int32_t s : {4, 100}) {
    std::vector<double> a(static_cast<size_t>(s) * s, NAN), b(a), c(a.size(), 3.0);
    call("N", "T", s, s, s, 0.0, a.data(), s, b.data(), s, 2.0, c.data(), s);
    for (double x : c) ASSERT_EQ(x, 6.0);
    call("T", "N", s, s, s, 0.0, a.data(), s, b.data(), s, 0.0, c.data(), s);
    for (double x : c) ASSERT_EQ(x, 0.0);
  }
  // Null operands are never touched either.
  std::vector<double> c(9, NAN);
  call("N", "N", 3, 3, 3, 0.0, nullptr, 3, nullptr, 3, 0.0, c.data(), 3);
  for (double x : c) ASSERT_EQ(x, 0.0);
}

TEST(DgemmSerial, KZeroScalesC) {
  std::vector<double> c(12, 2.0);
  call("N", "N", 3, 4, 0, 1.0, nullptr, 3, nullptr, 1, -1.5, c.data(), 3);
  for (double x : c) ASSERT_EQ(x, -3.0);
  std::fill(c.begin(), c.end(), NAN);
  call("N", "N", 3, 4, 0, 1.0, nullptr, 3, nullptr, 1, 0.0, c.data(), 3);
  for (double x : c) ASSERT_EQ(x, 0.0);
}

TEST(DgemmSerial, EmptyCUntouched) {
  std::vector<double> c(4, 7.0);
  call("N", "N", 0, 2, 2, 1.0, nullptr, 1, nullptr, 2, 0.0, c.data(), 1);
  call("N", "N", 2, 0, 2, 1.0, nullptr, 2, nullptr, 2, 0.0, c.data(), 2);
  call("N", "N", -1, 2, 2, 1.0, nullptr, 1, nullptr, 2, 0.0, c.data(), 1);
  for (double x : c) ASSERT_EQ(x, 7.0);
}

// The threaded drivers multiply pieces of C in place: pointers inside a big
// matrix with its full leading dimension, while the rest of C stays as it was.
TEST(DgemmSerial, SubBlocksOfLargeMatrix) {
  const int32_t big = 700;
  std::vector<double> a(static_cast<size_t>(big) * big), b(a.size()), c(a.size());
  fill_random(a, 5u);
  fill_random(b, 6u);
  fill_random(c, 7u);
  struct Piece {
    int32_t i0, j0, m, n, k;
  };
  for (Piece p : {Piece{13, 7, 100, 60, 250}, Piece{301, 450, 333, 41, 640}, Piece{0, 0, 9, 9, 9},
                  Piece{690, 1, 10, 699, 17}}) {
    for (int t = 0; t < 4; ++t) {
      const bool ta = t & 1, tb = t & 2;
      const double* ap = ta ? a.data() + p.i0 * static_cast<size_t>(big) : a.data() + p.i0;
      const double* bp = tb ? b.data() + p.j0 : b.data() + p.j0 * static_cast<size_t>(big);
      double* cp = c.data() + p.i0 + p.j0 * static_cast<size_t>(big);
      const auto ref = gemm_ref(ta, tb, p.m, p.n, p.k, 1.5, ap, big, bp, big, 0.5, cp, big);
      const std::vector<double> before = c;
      call(ta ? "T" : "N", tb ? "T" : "N", p.m, p.n, p.k, 1.5, ap, big, bp, big, 0.5, cp, big);
      for (int32_t j = 0; j < big; ++j) {
        for (int32_t i = 0; i < big; ++i) {
          const size_t at = i + static_cast<size_t>(j) * big;
          const bool inside = i >= p.i0 && i < p.i0 + p.m && j >= p.j0 && j < p.j0 + p.n;
          if (!inside) {
            ASSERT_EQ(c[at], before[at]) << "outside the piece at " << i << "," << j;
            continue;
          }
          const size_t r = (i - p.i0) + static_cast<size_t>(j - p.j0) * p.m;
          ASSERT_LE(std::fabs(c[at] - ref.c[r]), gemm_tolerance(p.k, ref.mag[r]))
              << "piece at " << p.i0 << "," << p.j0 << " t=" << t;
        }
      }
    }
  }
}

}  // namespace
}  // namespace zml::blas
