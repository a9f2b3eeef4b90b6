// SPDX-License-Identifier: BSD-3-Clause
// The argument checks of the exported calls: every parameter number each
// check can report is reached through the export (both element types), at the
// bounds of the rules that pick it, and a rejected call writes nothing. The
// layer's batch and trsm checks are also run as the pure functions they are,
// at the bounds their exports' tests do not reach. The checked
// gemm entries: the checks in their order with the exact reports, rejected
// calls leaving C alone, and the quick returns and zero-or-one scalars of the
// driver.
#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <string>
#include <utility>
#include <vector>

#include "blas/api/cblas_layer.h"
#include "blas/blas.h"
#include "blas/driver/gemm_driver.h"
#include "tests/blas/gemm_check.h"
#include "tests/support/child.h"
#include "zml_cblas.h"

namespace {

using namespace zml::blas::cblas;
using zml::blas::zcomplex;

std::string report(int p, const char* name) {
  return "\nArvel ZML ERROR: Parameter " + std::to_string(p) + " was incorrect on entry to " +
         name + ".\n";
}

// Inputs of ones, an output of sevens: a rejected call (p > 0) prints its
// report and leaves the output as it was; an accepted one (p == 0) reports
// nothing (the processor notice a first large multiply may print aside).
struct Buffers {
  std::vector<double> a = std::vector<double>(128, 1.0), b = a, out;
  const double one[2] = {1, 0}, zero[2] = {0, 0};

  template <class Call>
  void expect(int p, const char* name, Call call) {
    out.assign(128, 7.0);
    const std::string printed = zml::test::capture_stdout(std::move(call));
    if (p) {
      EXPECT_EQ(printed, report(p, name));
      EXPECT_EQ(out, std::vector<double>(128, 7.0)) << name;
    } else {
      EXPECT_EQ(printed.find("incorrect on entry"), std::string::npos) << name << printed;
    }
  }
};

TEST(CblasChecks, Gemm) {
  // Layout 0 and transa 0 give 2: transa, transb and the dimensions come
  // before the layout, the layout before the leading dimensions.
  const struct {
    int layout, ta, tb, m, n, k, lda, ldb, ldc, p;
  } rows[] = {
      {0, 0, 111, 1, 1, 1, 1, 1, 1, 2},
      {0, 111, 0, 1, 1, 1, 1, 1, 1, 3},
      {0, 111, 111, -1, -1, -1, 0, 0, 0, 4},
      {0, 111, 111, 1, -1, -1, 0, 0, 0, 5},
      {0, 111, 111, 1, 1, -1, 0, 0, 0, 6},
      {103, 111, 111, 1, 1, 1, 0, 0, 0, 1},
      {102, 113, 112, 4, 5, 6, 6, 5, 4, 0},
      // Column-major: lda >= m (never below 1), ldb >= k for "N", n otherwise; ldc >= m.
      {102, 111, 111, 0, 1, 1, 0, 1, 1, 9},
      {102, 111, 111, 2, 3, 4, 2, 3, 2, 11},
      {102, 111, 112, 2, 3, 4, 2, 2, 2, 11},
      {102, 111, 112, 2, 3, 4, 2, 3, 1, 14},
      // Row-major: lda >= k for "N", m otherwise; ldb >= n for "N", k otherwise; ldc >= n.
      {101, 111, 111, 3, 2, 5, 4, 2, 2, 9},
      {101, 111, 111, 3, 2, 5, 5, 2, 2, 0},
      {101, 112, 111, 3, 2, 5, 2, 2, 2, 9},
      {101, 112, 111, 3, 2, 5, 3, 1, 2, 11},
      {101, 112, 112, 3, 2, 5, 3, 4, 2, 11},
      {101, 112, 112, 3, 2, 5, 3, 5, 1, 14},
  };
  Buffers x;
  for (const auto& r : rows) {
    SCOPED_TRACE("row " + std::to_string(&r - rows));
    const auto layout = static_cast<CBLAS_LAYOUT>(r.layout);
    const auto ta = static_cast<CBLAS_TRANSPOSE>(r.ta), tb = static_cast<CBLAS_TRANSPOSE>(r.tb);
    x.expect(r.p, "cblas_dgemm", [&] {
      cblas_dgemm(layout, ta, tb, r.m, r.n, r.k, 1.0, x.a.data(), r.lda, x.b.data(), r.ldb, 0.0,
                  x.out.data(), r.ldc);
    });
    x.expect(r.p, "cblas_zgemm", [&] {
      cblas_zgemm(layout, ta, tb, r.m, r.n, r.k, x.one, x.a.data(), r.lda, x.b.data(), r.ldb,
                  x.zero, x.out.data(), r.ldc);
    });
  }
}

TEST(CblasChecks, GemvAndTrsv) {
  // The layout first: col-major lda >= m, row-major lda >= n.
  const struct {
    int layout, trans, m, n, lda, incx, incy, p;
  } gemv[] = {
      {0, 0, -1, -1, 0, 0, 0, 1},    {101, 110, -1, -1, 0, 0, 0, 2}, {101, 113, -1, -1, 0, 0, 0, 3},
      {101, 113, 1, -1, 0, 0, 0, 4}, {102, 111, 5, 3, 4, 0, 0, 7},   {101, 111, 5, 3, 3, 0, 0, 9},
      {101, 111, 5, 3, 2, 1, 1, 7},  {102, 111, 0, 0, 1, 1, 0, 12},  {102, 111, 0, 0, 1, -1, -1, 0},
  };
  Buffers x;
  for (const auto& r : gemv) {
    SCOPED_TRACE("gemv row " + std::to_string(&r - gemv));
    const auto layout = static_cast<CBLAS_LAYOUT>(r.layout);
    const auto trans = static_cast<CBLAS_TRANSPOSE>(r.trans);
    x.expect(r.p, "cblas_dgemv", [&] {
      cblas_dgemv(layout, trans, r.m, r.n, 1.0, x.a.data(), r.lda, x.b.data(), r.incx, 0.0,
                  x.out.data(), r.incy);
    });
    x.expect(r.p, "cblas_zgemv", [&] {
      cblas_zgemv(layout, trans, r.m, r.n, x.one, x.a.data(), r.lda, x.b.data(), r.incx, x.zero,
                  x.out.data(), r.incy);
    });
  }
  // The layout before uplo.
  const struct {
    int layout, uplo, trans, diag, n, lda, incx, p;
  } trsv[] = {
      {103, 0, 0, 0, -1, 0, 0, 1},       {101, 0, 0, 0, -1, 0, 0, 2},
      {101, 122, 0, 0, -1, 0, 0, 3},     {101, 122, 112, 0, -1, 0, 0, 4},
      {101, 122, 112, 132, -1, 0, 0, 5}, {101, 122, 112, 132, 0, 0, 0, 7},
      {101, 122, 112, 132, 4, 4, 0, 9},  {102, 121, 111, 131, 4, 4, -2, 0},
  };
  for (const auto& r : trsv) {
    SCOPED_TRACE("trsv row " + std::to_string(&r - trsv));
    const auto layout = static_cast<CBLAS_LAYOUT>(r.layout);
    const auto uplo = static_cast<CBLAS_UPLO>(r.uplo);
    const auto trans = static_cast<CBLAS_TRANSPOSE>(r.trans);
    const auto diag = static_cast<CBLAS_DIAG>(r.diag);
    x.expect(r.p, "cblas_dtrsv", [&] {
      cblas_dtrsv(layout, uplo, trans, diag, r.n, x.a.data(), r.lda, x.out.data(), r.incx);
    });
    x.expect(r.p, "cblas_ztrsv", [&] {
      cblas_ztrsv(layout, uplo, trans, diag, r.n, x.a.data(), r.lda, x.out.data(), r.incx);
    });
  }
  // Names are cut to twenty characters.
  EXPECT_EQ(zml::test::capture_stdout([] { cblas_xerbla("cblas_a_name_longer_than_twenty", 3); }),
            report(3, "cblas_a_name_longer_"));
}

// The entries with option letters number their parameters their own way and
// report under the six-character name.
TEST(CblasChecks, LetterEntries) {
  Buffers x;
  const auto* za = reinterpret_cast<const zcomplex*>(x.a.data());
  const auto* zone = reinterpret_cast<const zcomplex*>(x.one);
  const auto* zzero = reinterpret_cast<const zcomplex*>(x.zero);
  auto zout = [&] { return reinterpret_cast<zcomplex*>(x.out.data()); };
  const struct {
    const char* trans;
    int32_t m, n, lda, incx, incy, p;
  } gemv[] = {{"x", 2, 2, 2, 1, 1, 1}, {"N", -1, 2, 2, 1, 1, 2}, {"T", 2, -1, 2, 1, 1, 3},
              {"C", 2, 2, 1, 1, 1, 6}, {"N", 2, 2, 2, 0, 1, 8},  {"N", 2, 2, 2, 1, 0, 11}};
  // gemm: earlier checks win, and a leading dimension is never allowed below 1.
  const struct {
    const char *ta, *tb;
    int32_t m, n, k, lda, ldb, ldc, p;
  } gemm[] = {{"x", "N", 2, 3, 4, 2, 4, 2, 1},  {"N", "?", 2, 3, 4, 2, 4, 2, 2},
              {"N", "N", -1, 3, 4, 2, 4, 2, 3}, {"N", "N", 2, -1, 4, 2, 4, 2, 4},
              {"N", "N", 2, 3, -1, 2, 4, 2, 5}, {"N", "N", 2, 3, 4, 1, 4, 2, 8},
              {"T", "N", 2, 3, 4, 3, 4, 2, 8},  {"N", "N", 2, 3, 4, 2, 3, 2, 10},
              {"N", "c", 2, 3, 4, 2, 2, 2, 10}, {"N", "N", 2, 3, 4, 2, 4, 1, 13},
              {"Q", "N", -5, 3, 4, 2, 4, 2, 1}, {"N", "N", -5, 3, 4, 0, 4, 2, 3},
              {"N", "N", 0, 3, 4, 0, 4, 1, 8},  {"N", "N", 0, 3, 4, 2, 4, 0, 13},
              {"n", "t", 0, 0, 0, 1, 1, 1, 0}};
  for (const auto& c : gemm) {
    x.expect(c.p, "DGEMM ", [&] {
      zml::blas::dgemm(c.ta, c.tb, &c.m, &c.n, &c.k, x.one, x.a.data(), &c.lda, x.b.data(), &c.ldb,
                       x.zero, x.out.data(), &c.ldc);
    });
    x.expect(c.p, "ZGEMM ", [&] {
      zml::blas::zgemm(c.ta, c.tb, &c.m, &c.n, &c.k, zone, za, &c.lda, za, &c.ldb, zzero, zout(),
                       &c.ldc);
    });
  }
  for (const auto& c : gemv) {
    x.expect(c.p, "DGEMV ", [&] {
      zml::blas::dgemv(c.trans, &c.m, &c.n, x.one, x.a.data(), &c.lda, x.b.data(), &c.incx, x.zero,
                       x.out.data(), &c.incy);
    });
    x.expect(c.p, "ZGEMV ", [&] {
      zml::blas::zgemv(c.trans, &c.m, &c.n, zone, za, &c.lda, za, &c.incx, zzero, zout(), &c.incy);
    });
  }
  const struct {
    const char *uplo, *trans, *diag;
    int32_t n, lda, incx, p;
  } trsv[] = {{"x", "N", "N", 2, 2, 1, 1}, {"U", "x", "N", 2, 2, 1, 2},
              {"L", "T", "x", 2, 2, 1, 3}, {"U", "C", "U", -1, 2, 1, 4},
              {"L", "N", "N", 2, 1, 1, 6}, {"U", "N", "N", 2, 2, 0, 8}};
  for (const auto& c : trsv) {
    x.expect(c.p, "DTRSV ", [&] {
      zml::blas::dtrsv(c.uplo, c.trans, c.diag, &c.n, x.a.data(), &c.lda, x.out.data(), &c.incx);
    });
    x.expect(c.p, "ZTRSV ",
             [&] { zml::blas::ztrsv(c.uplo, c.trans, c.diag, &c.n, za, &c.lda, zout(), &c.incx); });
  }
}

TEST(CblasChecks, BatchAndTrsmLayerBounds) {
  // Group by group with cblas_dgemm's numbers; group_count 15, a group size 16.
  const int32_t ta[2] = {111, 111}, tb[2] = {111, 111};
  const int32_t m[2] = {2, -1}, n[2] = {2, 2}, k[2] = {2, 2};
  const int32_t ld[2] = {2, 2}, size[2] = {3, 1}, bad_size[2] = {-1, 1};
  EXPECT_EQ(check_gemm_batch(102, ta, tb, m, n, k, ld, ld, ld, -1, size), 15);
  EXPECT_EQ(check_gemm_batch(102, ta, tb, m, n, k, ld, ld, ld, 0, size), 0);
  EXPECT_EQ(check_gemm_batch(102, ta, tb, m, n, k, ld, ld, ld, 1, size), 0);
  EXPECT_EQ(check_gemm_batch(102, ta, tb, m, n, k, ld, ld, ld, 2, size), 4);
  EXPECT_EQ(check_gemm_batch(102, ta, tb, m, n, k, ld, ld, ld, 1, bad_size), 16);
  EXPECT_EQ(check_gemm_batch(0, ta, tb, m, n, k, ld, ld, ld, 1, size), 1);
  EXPECT_EQ(check_trsm(0, 141, 121, 113, 132, 1, 1, 0, 0), 1);     // the layout after the sizes
  EXPECT_EQ(check_trsm(102, 141, 121, 111, 131, 4, 2, 3, 4), 10);  // left: lda >= m
  EXPECT_EQ(check_trsm(102, 142, 121, 111, 131, 4, 2, 2, 4), 0);   // right: lda >= n
  EXPECT_EQ(check_trsm(102, 142, 121, 111, 131, 4, 2, 2, 3), 12);  // col-major ldb >= m
  EXPECT_EQ(check_trsm(101, 142, 121, 111, 131, 4, 2, 2, 2), 0);   // row-major ldb >= n
  EXPECT_EQ(check_trsm(101, 142, 121, 111, 131, 4, 2, 2, 1), 12);
}

// In the child (verbose mode on): rejected calls are still traced, with the
// characters and integers as values and the rest as pointers, and a scaling
// from the CBLAS layer is traced under its entry's name.
TEST(CblasReports, DISABLED_ChildVerboseTrace) {
  double a[8] = {}, x[2] = {}, y[2] = {};
  const int32_t m = 2, n = 2, lda = 2, zero = 0, one = 1;
  const double alpha = 1, beta = 0;
  const std::string out = zml::test::capture_stdout([&] {
    zml::blas::dgemv("T", &m, &n, &alpha, a, &lda, x, &one, &beta, y, &zero);
    zml::blas::dgemm("x", "N", &m, &n, &one, &alpha, a, &lda, a, &lda, &beta, y, &lda);
    auto* z = reinterpret_cast<zml::blas::zcomplex*>(a);
    zml::blas::zgemm("N", "y", &m, &n, &one, z, z, &lda, z, &lda, z, z + 2, &lda);
    zml::blas::dtrsv("L", "N", "U", &n, a, &lda, x, &one);
    cblas_dscal(2, 2.0, x, 1);
  });
  char dgemv_line[200], dtrsv_line[200];
  std::snprintf(dgemv_line, sizeof dgemv_line, "DGEMV(T,2,2,%p,%p,2,%p,1,%p,%p,0)",
                static_cast<const void*>(&alpha), static_cast<void*>(a), static_cast<void*>(x),
                static_cast<const void*>(&beta), static_cast<void*>(y));
  std::snprintf(dtrsv_line, sizeof dtrsv_line, "DTRSV(L,N,U,2,%p,2,%p,1)", static_cast<void*>(a),
                static_cast<void*>(x));
  zml::test::emit("dgemv", out.find(dgemv_line) != std::string::npos ? 1 : 0);
  zml::test::emit("dtrsv", out.find(dtrsv_line) != std::string::npos ? 1 : 0);
  zml::test::emit("dscal", out.find("DSCAL(2,") != std::string::npos ? 1 : 0);
  // One line per call.
  const size_t d = out.find("DGEMM(x,N,2,2,1,"), z = out.find("ZGEMM(N,y,2,2,1,");
  zml::test::emit("gemm", d != std::string::npos && z != std::string::npos &&
                                  d == out.rfind("DGEMM(") && z == out.rfind("ZGEMM(")
                              ? 1
                              : 0);
}

TEST(CblasReports, VerboseModeTracesFailedCallsToo) {
  const auto r = zml::test::run_child("CblasReports.DISABLED_ChildVerboseTrace",
                                      {{"ZML_VERBOSE", "1"}, {"ZML_VERBOSE_OUTPUT_FILE", ""}});
  EXPECT_EQ(r.value("dgemv"), "1") << r.out;
  EXPECT_EQ(r.value("dtrsv"), "1") << r.out;
  EXPECT_EQ(r.value("dscal"), "1") << r.out;
  EXPECT_EQ(r.value("gemm"), "1") << r.out;
}

// ---- quick returns and zero-or-one scalars, through the checked entry -----------

// Shapes that reach every path of the driver: general, one row, one column,
// inner dimension 1, and a large one that takes threads. The general shapes
// end in the single-thread multiply, whole or in pieces: 7 x 9 x 5 on its
// small path and k = 130 (above every row's small_max) on the blocked one, so
// these cases stand for that multiply's own alpha and beta rules as well.
const int32_t kShapes[][3] = {{7, 9, 5}, {1, 9, 5}, {7, 1, 5}, {7, 9, 1}, {150, 140, 130}};

using zml::test::GemmCase;
using zml::test::scalar;

// Multiplies x in place with operands a and b (null or x's own).
void call(GemmCase<double>& x, const double* a, const double* b) {
  zml::blas::dgemm(x.sa().c_str(), x.sb().c_str(), &x.m, &x.n, &x.k, &x.alpha, a, &x.lda, b, &x.ldb,
                   &x.beta, x.pc(), &x.ldc);
}
void call(GemmCase<zcomplex>& x, const zcomplex* a, const zcomplex* b) {
  zml::blas::zgemm(x.sa().c_str(), x.sb().c_str(), &x.m, &x.n, &x.k, &x.alpha, a, &x.lda, b, &x.ldb,
                   &x.beta, x.pc(), &x.ldc);
}

// Every quick return and zero-or-one scalar rule, for one element type.
template <class T>
void quick_returns() {
  // matches() names the shape and letters, this the element type.
  const std::string type = zml::test::is_complex<T>::value ? "z " : "d ";
  for (auto [m, n] : {std::pair{0, 5}, std::pair{5, 0}, std::pair{0, 0}}) {
    GemmCase<T> x(false, 'N', 'N', m, n, 4, T(2.0), T(3.0), 1, 10);
    call(x, x.pa(), x.pb());
    EXPECT_TRUE(x.matches(type + "empty C untouched"));
  }
  for (const auto& s : kShapes) {
    // The three kinds of beta: 0 (C holds NaN and must come out as exact
    // zeros), 1 (C as it was) and any other.
    for (const T beta : {T(0.0), T(1.0), scalar<T>(-2.0, 0.5)}) {
      // k = 0 gives beta times C; A and B are null, there is nothing to read.
      GemmCase<T> k0(false, 'T', 'C', s[0], s[1], 0, T(2.0), beta, 1, 20);
      call(k0, nullptr, nullptr);
      EXPECT_TRUE(k0.matches(type + "k = 0"));
      // alpha = 0: A and B hold NaN, and then are null; neither may be read.
      GemmCase<T> x(false, 'N', 'T', s[0], s[1], s[2], T(0.0), beta, 1, 40);
      const std::vector<T> c = x.c;
      std::fill(x.a.begin(), x.a.end(), zml::test::nan_value<T>());
      std::fill(x.b.begin(), x.b.end(), zml::test::nan_value<T>());
      call(x, x.pa(), x.pb());
      EXPECT_TRUE(x.matches(type + "NaN operands"));
      x.c = c;
      call(x, nullptr, nullptr);
      EXPECT_TRUE(x.matches(type + "null operands"));
    }
    // beta = 0 overwrites the NaN in C.
    for (auto [ta, tb] : {std::pair{'N', 'N'}, std::pair{'T', 'C'}}) {
      GemmCase<T> x(false, ta, tb, s[0], s[1], s[2], scalar<T>(1.5, -0.5), T(0.0), 1, 30);
      call(x, x.pa(), x.pb());
      EXPECT_TRUE(x.matches(type + "beta 0"));
    }
  }
}

TEST(GemmDriverQuick, QuickReturnsAndZeroOrOneScalars) {
  quick_returns<double>();
  quick_returns<zcomplex>();
}

}  // namespace
