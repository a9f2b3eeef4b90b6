// SPDX-License-Identifier: BSD-3-Clause
// trsm through the CBLAS layer and the checked entries: every option
// combination in both layouts and precisions against a long double
// substitution, the trsv shortcuts and the clear for alpha = 0, independence
// from the thread count, and every argument check leaving B alone.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "blas/blas.h"
#include "blas/driver/trsm_driver.h"
#include "blas/kernels/trsm_kernel.h"
#include "tests/support/blas_ref.h"
#include "tests/support/child.h"
#include "zml_cblas.h"

namespace {

using zml::blas::zcomplex;
using namespace zml::test;

template <class T>
void cblas_trsm(int layout, int side, int uplo, int tr, int diag, int m, int n, T alpha, const T* a,
                int lda, T* b, int ldb) {
  if constexpr (is_complex<T>::value) {
    cblas_ztrsm(CBLAS_LAYOUT(layout), CBLAS_SIDE(side), CBLAS_UPLO(uplo), CBLAS_TRANSPOSE(tr),
                CBLAS_DIAG(diag), m, n, &alpha, a, lda, b, ldb);
  } else {
    cblas_dtrsm(CBLAS_LAYOUT(layout), CBLAS_SIDE(side), CBLAS_UPLO(uplo), CBLAS_TRANSPOSE(tr),
                CBLAS_DIAG(diag), m, n, alpha, a, lda, b, ldb);
  }
}

// A random triangle of order k: off-diagonal entries below 1/k in magnitude
// and a diagonal of at least 1, so the solve is well conditioned; NaN in the
// other triangle, and on the diagonal when it is unit, which must not be read.
template <class T>
std::vector<T> triangle(int k, int ld, bool upper, bool unit, uint64_t seed) {
  std::vector<T> a = random_vector<T>(static_cast<size_t>(ld) * k, seed);
  for (int j = 0; j < k; ++j) {
    for (int i = 0; i < ld; ++i) {
      T& e = a[static_cast<size_t>(i + j * ld)];
      if (i == j) {
        e = unit ? nan_value<T>() : e + T(1.5 * (std::real(e) < 0 ? -1 : 1));
      } else if (i < k && (i < j) == upper) {
        e = e * T(1.0 / k);
      } else {
        e = nan_value<T>();
      }
    }
  }
  return a;
}

// One solve through the CBLAS layer against ref_trsv on every right-hand
// side (a row x of a side-R solve satisfies op(A)^T x = b). Row-major data
// is the column-major transpose of the same array, so the stored triangle of
// a row-major call is read through the transposed accessor.
template <class T>
void check_solve(int layout, int side, int uplo, int trans, int diag, int m, int n, T alpha) {
  const bool row = layout == CblasRowMajor, left = side == CblasLeft;
  const bool upper = uplo == CblasUpper, unit = diag == CblasUnit;
  const int k = left ? m : n, lda = k + 3, ldb = (row ? n : m) + 2;
  // The stored triangle is upper in the storage's own column-major view when
  // it is upper and column-major, or lower and row-major.
  const std::vector<T> a = triangle<T>(k, lda, upper != row, unit, 7 + k);
  std::vector<T> b = random_vector<T>(static_cast<size_t>(ldb) * (row ? m : n), 11 + m);
  std::vector<T> want = b;
  // Side R with "C": op(A)^T is conj(A), untransposed.
  const char t = "NTC"[trans - CblasNoTrans], t_r = t == 'N' ? 'T' : 'N';
  auto A = [&](int i, int j) { return conj_if(a[at(row, lda, i, j)], !left && t == 'C'); };
  for (int r = 0; r < (left ? n : m); ++r) {
    T* x = &want[left ? at(row, ldb, 0, r) : at(row, ldb, r, 0)];
    const int inc = static_cast<int>(left ? at(row, ldb, 1, 0) : at(row, ldb, 0, 1));
    for (int i = 0; i < k; ++i) x[i * inc] *= alpha;
    ref_trsv(upper, left ? t : t_r, unit, k, A, x, inc);
  }
  cblas_trsm(layout, side, uplo, trans, diag, m, n, alpha, a.data(), lda, b.data(), ldb);
  int bad = 0;
  for (size_t i = 0; i < b.size(); ++i) {
    if (!(std::abs(b[i] - want[i]) <= 64 * sum_tolerance(k) * (1 + std::abs(want[i])))) ++bad;
  }
  EXPECT_EQ(bad, 0) << "layout " << layout << " side " << side << " uplo " << uplo << " trans " << t
                    << " diag " << diag << " m " << m << " n " << n;
}

template <class T>
void all_combinations() {
  // Around the leaf (32 unknowns, halves of 16) and a complex and real group
  // of right-hand sides (16 and 32 on the widest rows).
  const int sizes[][2] = {{1, 3}, {16, 33}, {33, 17}, {65, 31}, {97, 40}};
  for (int layout : {CblasRowMajor, CblasColMajor}) {
    for (int side : {CblasLeft, CblasRight}) {
      for (int uplo : {CblasUpper, CblasLower}) {
        for (int trans : {CblasNoTrans, CblasTrans, CblasConjTrans}) {
          for (int diag : {CblasNonUnit, CblasUnit}) {
            for (const auto& s : sizes) {
              check_solve<T>(layout, side, uplo, trans, diag, s[0], s[1], scalar<T>(1.5, -0.5));
            }
          }
        }
      }
    }
  }
}

TEST(Trsm, EveryCombinationAgainstSubstitution) {
  all_combinations<double>();
  all_combinations<zcomplex>();
  // Halves of 256 real or 128 complex unknowns are solved in chunks of
  // right-hand sides sized to L2: wide enough B to need several.
  for (int side : {CblasLeft, CblasRight}) {
    const bool left = side == CblasLeft;
    check_solve<double>(CblasColMajor, side, CblasUpper, CblasTrans, CblasNonUnit,
                        left ? 256 : 1100, left ? 1100 : 256, 0.5);
    check_solve<zcomplex>(CblasRowMajor, side, CblasLower, CblasConjTrans, CblasUnit,
                          left ? 128 : 600, left ? 600 : 128, zcomplex(0.5, 1));
  }
}

template <class T>
void shortcuts() {
  const int m = 40, ld = 41;
  const std::vector<T> a = triangle<T>(m, ld, false, false, 3);
  const std::vector<T> b0 = random_vector<T>(static_cast<size_t>(ld) * m, 5);
  const T one(1.0), two(2.0);
  auto trsv = [&](const char* tr, int n, T* x, int inc) {
    if constexpr (is_complex<T>::value) {
      zml::blas::ztrsv("L", tr, "N", &n, a.data(), &ld, x, &inc);
    } else {
      zml::blas::dtrsv("L", tr, "N", &n, a.data(), &ld, x, &inc);
    }
  };
  auto trsm = [&](const char* side, const char* tr, int mm, int nn, const T* alpha, T* b,
                  const T* pa = nullptr) {
    if constexpr (is_complex<T>::value) {
      zml::blas::ztrsm(side, "L", tr, "N", &mm, &nn, alpha, pa ? pa : a.data(), &ld, b, &ld);
    } else {
      zml::blas::dtrsm(side, "L", tr, "N", &mm, &nn, alpha, pa ? pa : a.data(), &ld, b, &ld);
    }
  };
  // alpha 1, one column: the trsv of that column, bit for bit.
  std::vector<T> x = b0, y = b0;
  trsm("L", "T", m, 1, &one, x.data());
  trsv("T", m, y.data(), 1);
  EXPECT_EQ(0, std::memcmp(x.data(), y.data(), sizeof(T) * x.size()));
  // alpha 2, one column: the general path, solving 2b.
  x = b0, y = b0;
  for (int i = 0; i < m; ++i) y[i] *= two;
  trsm("L", "N", m, 1, &two, x.data());
  ref_trsv(
      false, 'N', false, m, [&](int i, int j) { return a[at(false, ld, i, j)]; }, y.data(), 1);
  for (int i = 0; i < m; ++i) EXPECT_NEAR(std::abs(x[i] - y[i]), 0.0, 1e-13) << i;
  // alpha 1, one row on side R with "T": the trsv "N" of the row (increment ld).
  x = b0, y = b0;
  trsm("R", "T", 1, m, &one, x.data());
  trsv("N", m, y.data(), ld);
  EXPECT_EQ(0, std::memcmp(x.data(), y.data(), sizeof(T) * x.size()));
  // alpha 0: zeros, A (all NaN) never read; m or n of 0: B untouched.
  const std::vector<T> nan_a(a.size(), nan_value<T>());
  const T zero(0.0);
  for (int rows : {5, 13}) {
    x = b0;
    trsm("L", "N", rows, 3, &zero, x.data(), nan_a.data());
    for (int j = 0; j < 3; ++j) {
      for (int i = 0; i < ld; ++i) EXPECT_EQ(x[i + j * ld], i < rows ? zero : b0[i + j * ld]);
    }
  }
  x = b0;
  trsm("R", "C", 0, 3, &two, x.data(), nan_a.data());
  trsm("L", "C", 3, 0, &two, x.data(), nan_a.data());
  EXPECT_EQ(0, std::memcmp(x.data(), b0.data(), sizeof(T) * x.size()));
}

TEST(Trsm, ShortcutsAndQuickReturns) {
  shortcuts<double>();
  shortcuts<zcomplex>();
}

// Teams of 1, 2 and 3 members give the same bits, on both sides; 150 right-
// hand sides split mid-group.
template <class T>
void thread_counts() {
  const int k = 130, rhs = 150, ld = 151;
  const std::vector<T> a = triangle<T>(k, ld, true, false, 9);
  const std::vector<T> b0 = random_vector<T>(static_cast<size_t>(ld) * rhs, 10);
  const T alpha = scalar<T>(0.75, 0.25);
  const auto* pa = reinterpret_cast<const double*>(a.data());
  auto pb = [](std::vector<T>& v) { return reinterpret_cast<double*>(v.data()); };
  for (bool left : {true, false}) {
    std::vector<T> first;
    for (int32_t threads : {1, 2, 3}) {
      std::vector<T> b = b0;
      const int m = left ? k : rhs, n = left ? rhs : k;
      const zml::blas::TrsmProblem p{left, true, 2 - left, false, m, n, pa, ld, pb(b), ld};
      if constexpr (is_complex<T>::value) {
        zml::blas::ztrsm_team(threads, p, reinterpret_cast<const double*>(&alpha));
      } else {
        zml::blas::dtrsm_team(threads, p, &alpha);
      }
      if (threads == 1) first = b;
      EXPECT_EQ(0, std::memcmp(b.data(), first.data(), sizeof(T) * b.size())) << threads;
    }
  }
}

TEST(Trsm, ResultsDoNotDependOnTheThreadCount) {
  thread_counts<double>();
  thread_counts<zcomplex>();
  EXPECT_EQ(zml::blas::trsm_v1_thread_choice(false, 2, 256, 256, true), 2);
  EXPECT_EQ(zml::blas::trsm_v1_thread_choice(false, 2, 256, 8, true), 1);
}

// Every leaf row the processor can run, on a packed triangle of odd and full
// size, against the same recurrence in long double.
template <class T>
void leaf_rows(const zml::dispatch::Table<zml::blas::trsm_variant>& table) {
  for (const zml::blas::trsm_variant* row : table.rows()) {
    if (!zml::dispatch::isa_usable(row->isa)) continue;
    for (int l : {7, row->leaf_max}) {
      const int lanes = row->lanes;
      std::vector<T> t = random_vector<T>(static_cast<size_t>(l) * (l + 1) / 2, 21);
      std::vector<T> x = random_vector<T>(static_cast<size_t>(l) * lanes, 22), want = x;
      auto tr = [&](int r, int c) -> T& { return t[static_cast<size_t>(r * (r + 1) / 2 + c)]; };
      auto w_at = [&](int r, int s) -> T& { return want[static_cast<size_t>(r * lanes + s)]; };
      for (int r = 0; r < l; ++r) {
        // Coefficients below 1/l and reciprocals near 1 keep the unknowns of order 1.
        for (int c = 0; c <= r; ++c)
          tr(r, c) = c < r ? tr(r, c) * T(1.0 / l) : T(1) + tr(r, c) * T(0.5);
        for (int s = 0; s < lanes; ++s) {
          wide_t<T> v = widen(w_at(r, s));
          for (int c = 0; c < r; ++c) v += widen(tr(r, c)) * widen(w_at(c, s));
          w_at(r, s) = narrow<T>(v * widen(tr(r, r)));
        }
      }
      constexpr int w = is_complex<T>::value ? 2 : 1;
      row->leaf(l, reinterpret_cast<const double*>(t.data()), reinterpret_cast<double*>(x.data()),
                w * row->lanes);
      for (size_t i = 0; i < x.size(); ++i) {
        EXPECT_LE(std::abs(x[i] - want[i]), 1e-12 * (1 + std::abs(want[i]))) << row->name << i;
      }
    }
  }
}

TEST(Trsm, LeafRowsOfEveryInstructionSet) {
  leaf_rows<double>(zml::blas::kDtrsmTable);
  leaf_rows<zcomplex>(zml::blas::kZtrsmTable);
}

// A rejected call prints its number and leaves B as it was.
template <class Call>
void expect_report(int p, const char* name, std::vector<double>& b, Call call) {
  b.assign(64, 7.0);
  const std::string printed = capture_stdout(std::move(call));
  if (p) {
    EXPECT_EQ(printed, "\nArvel ZML ERROR: Parameter " + std::to_string(p) +
                           " was incorrect on entry to " + name + ".\n");
    EXPECT_EQ(b, std::vector<double>(64, 7.0)) << name;
  } else {
    EXPECT_EQ(printed.find("incorrect on entry"), std::string::npos) << name << printed;
  }
}

TEST(Trsm, EveryCheckNumber) {
  std::vector<double> a(64, 1.0), b;
  const zcomplex one(1.0), *za = reinterpret_cast<const zcomplex*>(a.data());
  auto zb = [&] { return reinterpret_cast<zcomplex*>(b.data()); };
  const struct {
    int layout, side, uplo, trans, diag, m, n, lda, ldb, p;
  } cblas[] = {
      {0, 0, 0, 0, 0, -1, -1, 0, 0, 2},          {0, 141, 0, 0, 0, -1, -1, 0, 0, 3},
      {0, 142, 122, 0, 0, -1, -1, 0, 0, 4},      {0, 142, 122, 113, 0, -1, -1, 0, 0, 5},
      {0, 142, 122, 113, 132, -1, -1, 0, 0, 6},  {0, 142, 122, 113, 132, 2, -1, 0, 0, 7},
      {0, 142, 122, 113, 132, 2, 3, 0, 0, 1},    {102, 141, 121, 111, 131, 4, 2, 3, 4, 10},
      {101, 142, 121, 111, 131, 4, 2, 1, 2, 10}, {102, 142, 121, 111, 131, 4, 2, 2, 3, 12},
      {101, 141, 121, 112, 131, 4, 2, 4, 1, 12}, {101, 141, 122, 112, 132, 4, 2, 4, 2, 0},
  };
  for (const auto& c : cblas) {
    expect_report(c.p, "cblas_dtrsm", b, [&] {
      cblas_trsm<double>(c.layout, c.side, c.uplo, c.trans, c.diag, c.m, c.n, 1.0, a.data(), c.lda,
                         b.data(), c.ldb);
    });
    expect_report(c.p, "cblas_ztrsm", b, [&] {
      cblas_trsm<zcomplex>(c.layout, c.side, c.uplo, c.trans, c.diag, c.m, c.n, one, za, c.lda,
                           zb(), c.ldb);
    });
  }
  const struct {
    const char *side, *uplo, *trans, *diag;
    int32_t m, n, lda, ldb, p;
  } letters[] = {{"x", "U", "N", "N", 2, 2, 2, 2, 1},  {"l", "x", "N", "N", 2, 2, 2, 2, 2},
                 {"r", "u", "x", "N", 2, 2, 2, 2, 3},  {"L", "L", "c", "x", 2, 2, 2, 2, 4},
                 {"L", "L", "T", "u", -1, 2, 2, 2, 5}, {"R", "U", "N", "n", 2, -1, 2, 2, 6},
                 {"L", "U", "N", "N", 3, 2, 2, 3, 9},  {"R", "U", "N", "N", 3, 2, 1, 3, 9},
                 {"R", "U", "N", "N", 3, 2, 2, 2, 11}, {"R", "L", "C", "U", 3, 2, 2, 3, 0}};
  for (const auto& c : letters) {
    expect_report(c.p, "DTRSM ", b, [&] {
      const double alpha = 1.0;
      zml::blas::dtrsm(c.side, c.uplo, c.trans, c.diag, &c.m, &c.n, &alpha, a.data(), &c.lda,
                       b.data(), &c.ldb);
    });
    expect_report(c.p, "ZTRSM ", b, [&] {
      zml::blas::ztrsm(c.side, c.uplo, c.trans, c.diag, &c.m, &c.n, &one, za, &c.lda, zb(), &c.ldb);
    });
  }
}

}  // namespace
