// SPDX-License-Identifier: BSD-3-Clause
// The batched multiplies: mixed groups against one call per product (bitwise,
// since each product takes the path it takes alone), every check number with
// a bad second group computing nothing of the first, and the verbose lines.
#include <gtest/gtest.h>

#include <complex>
#include <cstring>
#include <string>
#include <vector>

#include "blas/blas.h"
#include "tests/blas/gemm_check.h"
#include "tests/support/child.h"
#include "zml_cblas.h"

namespace {

using zml::blas::zcomplex;
using zml::test::GemmCase;
using zml::test::scalar;

// Kind 0 dgemm, 1 zgemm, 2 zgemm3m: the batch and the single call.
template <int kKind>
struct Api {
  using T = std::conditional_t<kKind == 0, double, zcomplex>;
  static constexpr bool kNaive = kKind != 2;  // 3M accuracy is zgemm3m_test's
  static void batch(CBLAS_LAYOUT l, const CBLAS_TRANSPOSE* ta, const CBLAS_TRANSPOSE* tb,
                    const int* m, const int* n, const int* k, const T* al, const void** a,
                    const int* lda, const void** b, const int* ldb, const T* be, void** c,
                    const int* ldc, int gc, const int* gs) {
    if constexpr (kKind == 0) {
      cblas_dgemm_batch(l, ta, tb, m, n, k, al, reinterpret_cast<const double**>(a), lda,
                        reinterpret_cast<const double**>(b), ldb, be, reinterpret_cast<double**>(c),
                        ldc, gc, gs);
    } else {
      (kKind == 1 ? cblas_zgemm_batch : cblas_zgemm3m_batch)(l, ta, tb, m, n, k, al, a, lda, b, ldb,
                                                             be, c, ldc, gc, gs);
    }
  }
  static void one(CBLAS_LAYOUT l, CBLAS_TRANSPOSE ta, CBLAS_TRANSPOSE tb, int m, int n, int k,
                  const T* al, const T* a, int lda, const T* b, int ldb, const T* be, T* c,
                  int ldc) {
    if constexpr (kKind == 0) {
      cblas_dgemm(l, ta, tb, m, n, k, *al, a, lda, b, ldb, *be, c, ldc);
    } else {
      (kKind == 1 ? cblas_zgemm : cblas_zgemm3m)(l, ta, tb, m, n, k, al, a, lda, b, ldb, be, c,
                                                 ldc);
    }
  }
};

template <class K>
class GemmBatch : public ::testing::Test {};
using Kinds = ::testing::Types<Api<0>, Api<1>, Api<2>>;
TYPED_TEST_SUITE(GemmBatch, Kinds);

// Groups of mixed shapes and transposes (small path, blocked path, 3M and
// not), an empty C and k = 0 with null pointers, beta = 0 over NaN, and an
// empty group, in both layouts.
TYPED_TEST(GemmBatch, MatchesOneCallPerProduct) {
  using T = typename TypeParam::T;
  const bool cplx = !std::is_same_v<T, double>;
  const char last = cplx ? 'C' : 'T';
  const struct {
    char ta, tb;
    int m, n, k, size;
    double beta;
  } groups[] = {{'N', 'N', 5, 7, 3, 3, 0.5},       {'T', 'N', 20, 19, 21, 2, 0.0},
                {'N', last, 40, 130, 120, 1, 1.0}, {last, 'T', 0, 5, 4, 2, 2.0},
                {'N', 'N', 6, 5, 0, 2, 2.0},       {'N', 'N', 3, 3, 3, 0, 1.0}};
  const auto cb = [](char t) {
    return t == 'N' ? CblasNoTrans : t == 'T' ? CblasTrans : CblasConjTrans;
  };
  for (const bool row : {false, true}) {
    std::vector<CBLAS_TRANSPOSE> ta, tb;
    std::vector<int> m, n, k, lda, ldb, ldc, gs;
    std::vector<T> alpha, beta;
    std::vector<GemmCase<T>> cases;
    std::vector<const void*> pa, pb;
    std::vector<void*> pc;
    uint64_t seed = 100;
    for (const auto& g : groups) {
      ta.push_back(cb(g.ta));
      tb.push_back(cb(g.tb));
      m.push_back(g.m), n.push_back(g.n), k.push_back(g.k), gs.push_back(g.size);
      alpha.push_back(scalar<T>(1.5, -0.5));
      beta.push_back(scalar<T>(g.beta, g.beta > 0 ? 0.25 : 0.0));
      for (int s = 0; s < g.size; ++s) {
        cases.emplace_back(row, g.ta, g.tb, g.m, g.n, g.k, alpha.back(), beta.back(), 1, seed += 3);
      }
      // An empty group keeps leading dimensions that are valid on their own.
      lda.push_back(g.size ? cases.back().lda : 9), ldb.push_back(g.size ? cases.back().ldb : 9);
      ldc.push_back(g.size ? cases.back().ldc : 9);
      for (int s = 0; s < g.size; ++s) {
        auto& cs = cases[cases.size() - g.size + s];
        // A product with nothing to multiply never reads its null operands.
        const bool empty = g.m == 0 || g.k == 0;
        pa.push_back(empty ? nullptr : cs.pa());
        pb.push_back(empty ? nullptr : cs.pb());
        pc.push_back(g.m == 0 ? nullptr : cs.pc());
      }
    }
    std::vector<std::vector<T>> single;
    size_t i = 0;
    for (size_t g = 0; g < std::size(groups); ++g) {
      for (int s = 0; s < gs[g]; ++s, ++i) {
        GemmCase<T> copy = cases[i];
        TypeParam::one(row ? CblasRowMajor : CblasColMajor, ta[g], tb[g], m[g], n[g], k[g],
                       &alpha[g], copy.pa(), lda[g], copy.pb(), ldb[g], &beta[g], copy.pc(),
                       ldc[g]);
        single.push_back(copy.c);
      }
    }
    TypeParam::batch(row ? CblasRowMajor : CblasColMajor, ta.data(), tb.data(), m.data(), n.data(),
                     k.data(), alpha.data(), pa.data(), lda.data(), pb.data(), ldb.data(),
                     beta.data(), pc.data(), ldc.data(), static_cast<int>(std::size(groups)),
                     gs.data());
    for (i = 0; i < cases.size(); ++i) {
      const std::string what = "product " + std::to_string(i) + (row ? " row" : " col");
      EXPECT_EQ(0, std::memcmp(cases[i].c.data(), single[i].data(), single[i].size() * sizeof(T)))
          << what;
      if (TypeParam::kNaive) {
        EXPECT_TRUE(cases[i].matches(what));
      }
    }
  }
}

std::string reported(int p, const char* name) {
  return "Parameter " + std::to_string(p) + " was incorrect on entry to " + name;
}

// Two groups of one 2 x 2 x 2 product each; every check number is reached
// through the second group (group_count and group_size aside), and the first
// group's C must stay as it was.
TEST(GemmBatchChecks, EveryNumberAndNothingComputed) {
  struct Args {
    char ta[2] = {'N', 'N'}, tb[2] = {'T', 'T'};
    int32_t m[2] = {2, 2}, n[2] = {2, 2}, k[2] = {2, 2}, lda[2] = {2, 2}, ldb[2] = {2, 2},
            ldc[2] = {2, 2}, gc = 2, gs[2] = {1, 1};
  };
  const struct {
    int p;
    void (*bad)(Args&);
  } rows[] = {
      {14, [](Args& x) { x.gc = -1; }},
      {1, [](Args& x) { x.ta[1] = 'x'; }},
      {2, [](Args& x) { x.tb[1] = 'y'; }},
      {3, [](Args& x) { x.m[1] = -1; }},
      {4, [](Args& x) { x.n[1] = -1; }},
      {5, [](Args& x) { x.k[1] = -1; }},
      {8, [](Args& x) { x.lda[1] = 1; }},
      {10, [](Args& x) { x.ldb[1] = 1; }},
      {13, [](Args& x) { x.ldc[1] = 1; }},
      {15, [](Args& x) { x.gs[1] = -1; }},
      // Argument by argument across groups: the second group's transb comes
      // before the first group's m, its transa before the first's lda.
      {2, [](Args& x) { x.m[0] = -1, x.tb[1] = 'q'; }},
      {1, [](Args& x) { x.lda[0] = 1, x.ta[1] = 'q'; }},
      {0, [](Args& x) { x.gc = 0; }},
  };
  for (int kind = 0; kind < 3; ++kind) {
    const char* name = kind == 0 ? "DGEMM_BATCH" : kind == 1 ? "ZGEMM_BATCH" : "ZGEMM3M_BATCH";
    for (const auto& r : rows) {
      Args x;
      r.bad(x);
      std::vector<zcomplex> a(4, 1.0), b(4, 1.0), c0(4, 7.0), c1(4, 7.0);
      const zcomplex al[2] = {1.0, 1.0}, be[2] = {0.0, 0.0};
      const zcomplex* pa[2] = {a.data(), a.data()};
      const zcomplex* pb[2] = {b.data(), b.data()};
      zcomplex* pc[2] = {c0.data(), c1.data()};
      const std::string out = zml::test::capture_stdout([&] {
        if (kind == 0) {
          const auto* ad = reinterpret_cast<const double*>(a.data());
          const double* da[2] = {ad, ad};
          double* dc[2] = {reinterpret_cast<double*>(c0.data()),
                           reinterpret_cast<double*>(c1.data())};
          const double dal[2] = {1, 1}, dbe[2] = {0, 0};
          zml::blas::dgemm_batch(x.ta, x.tb, x.m, x.n, x.k, dal, da, x.lda, da, x.ldb, dbe, dc,
                                 x.ldc, &x.gc, x.gs);
        } else {
          (kind == 1 ? zml::blas::zgemm_batch : zml::blas::zgemm3m_batch)(
              x.ta, x.tb, x.m, x.n, x.k, al, pa, x.lda, pb, x.ldb, be, pc, x.ldc, &x.gc, x.gs, 1,
              1);
        }
      });
      EXPECT_EQ(out.find("incorrect on entry") != std::string::npos, r.p != 0) << out;
      if (r.p != 0) {
        EXPECT_NE(out.find(reported(r.p, name)), std::string::npos) << out;
      }
      EXPECT_EQ(c0, std::vector<zcomplex>(4, 7.0)) << name << " " << r.p;
    }
  }
  // The CBLAS layer checks group by group with cblas_dgemm's numbers, a bad
  // group_count as 15, and maps the row-major leading dimension of C onto n.
  const CBLAS_TRANSPOSE t[2] = {CblasNoTrans, CblasNoTrans};
  const int two[2] = {2, 2}, n3[2] = {2, 3}, one[2] = {1, 1};
  const double al[2] = {1, 1};
  const std::string out = zml::test::capture_stdout([&] {
    cblas_dgemm_batch(CblasColMajor, t, t, two, two, two, al, nullptr, two, nullptr, two, al,
                      nullptr, two, -1, one);
    cblas_zgemm3m_batch(CblasRowMajor, t, t, two, n3, two, al, nullptr, n3, nullptr, n3, al,
                        nullptr, two, 2, one);
  });
  EXPECT_NE(out.find(reported(15, "cblas_dgemm_batch")), std::string::npos) << out;
  EXPECT_NE(out.find(reported(14, "cblas_zgemm3m_batch")), std::string::npos) << out;
}

// In the child (verbose mode on): one line per call, failed calls included,
// with the first group's letters and the arrays as pointers.
TEST(GemmBatchReports, DISABLED_ChildVerbose) {
  const char ta[1] = {'N'}, tb[1] = {'T'};
  const int32_t nine[1] = {9}, gc = 1, bad = -1, size[1] = {1};
  std::vector<zcomplex> a(81, 1.0), c(81);
  const zcomplex* pa[1] = {a.data()};
  zcomplex* pc[1] = {c.data()};
  const zcomplex al[1] = {1.0};
  const std::string out = zml::test::capture_stdout([&] {
    zml::blas::zgemm_batch(ta, tb, nine, nine, nine, al, pa, nine, pa, nine, al, pc, nine, &gc,
                           size);
    zml::blas::zgemm3m_batch(ta, tb, nine, nine, nine, al, pa, nine, pa, nine, al, pc, nine, &bad,
                             size);
    zml::blas::zgemm3m("C", "N", nine, nine, nine, al, a.data(), nine, a.data(), nine, al, c.data(),
                       nine);
  });
  // Every array as a pointer, up to the closing parenthesis.
  char whole[400];
  const void* p[13] = {nine, nine, nine, al, pa, nine, pa, nine, al, pc, nine, &gc, size};
  std::snprintf(whole, sizeof whole, "ZGEMM_BATCH(N,T,%p,%p,%p,%p,%p,%p,%p,%p,%p,%p,%p,%p,%p)",
                p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], p[8], p[9], p[10], p[11], p[12]);
  zml::test::emit("batch", out.find(whole) != std::string::npos);
  zml::test::emit("failed", out.find("ZGEMM3M_BATCH(-,-,") != std::string::npos);
  zml::test::emit("3m", out.find("ZGEMM3M(C,N,9,9,9,") != std::string::npos);
}

TEST(GemmBatchReports, VerboseLines) {
  const auto r = zml::test::run_child("GemmBatchReports.DISABLED_ChildVerbose",
                                      {{"ZML_VERBOSE", "1"}, {"ZML_VERBOSE_OUTPUT_FILE", ""}});
  EXPECT_EQ(r.mismatches("batch=1 failed=1 3m=1"), "") << r.out;
}

}  // namespace
