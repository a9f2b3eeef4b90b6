// SPDX-License-Identifier: BSD-3-Clause
// Where a gemm goes: one-row and one-column products through gemv and inner
// dimension 1 through the rank-1 update (every transposition pair, real and
// complex), the contiguous copy of a strided x, and the driver generation and
// the kernel rows chosen from the code path (forced paths in child processes).
#include <gtest/gtest.h>

#include <complex>
#include <string>
#include <vector>

#include "blas/blas.h"
#include "blas/driver/gemm_driver.h"
#include "service/dispatch/code_path_table.h"
#include "service/service.h"
#include "tests/blas/gemm_check.h"
#include "tests/support/child.h"

namespace {

using zml::blas::zcomplex;

using zml::test::scalar;

void gemm(const char* ta, const char* tb, int32_t m, int32_t n, int32_t k, double alpha,
          const double* a, int32_t lda, const double* b, int32_t ldb, double beta, double* c,
          int32_t ldc) {
  zml::blas::dgemm(ta, tb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
}
void gemm(const char* ta, const char* tb, int32_t m, int32_t n, int32_t k, zcomplex alpha,
          const zcomplex* a, int32_t lda, const zcomplex* b, int32_t ldb, zcomplex beta,
          zcomplex* c, int32_t ldc) {
  zml::blas::zgemm(ta, tb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
}

// One column-major product with padded leading dimensions, checked against
// the naive loop; returns the failure text or success.
template <class T>
::testing::AssertionResult check_product(char ta, char tb, int32_t m, int32_t n, int32_t k, T alpha,
                                         T beta, int32_t pad, uint64_t seed) {
  zml::test::GemmCase<T> x(false, ta, tb, m, n, k, alpha, beta, pad, seed);
  gemm(x.sa().c_str(), x.sb().c_str(), m, n, k, alpha, x.pa(), x.lda, x.pb(), x.ldb, beta, x.pc(),
       x.ldc);
  return x.matches("");
}

const char kRealTrans[] = {'N', 'T'};
const char kComplexTrans[] = {'N', 'T', 'C'};

// m = 1 (gemv on op(B) transposed), n = 1 (gemv with transa), k = 1 (rank-1),
// and both m and n equal to 1; the long inner dimensions pass the chunked
// conjugation of the complex paths more than once. With a pad, the rows of C
// between the elements of a one-row product (increment ldc) must not move.
const int32_t kDegenerate[][3] = {{1, 9, 7}, {1, 3, 1100}, {9, 1, 7}, {3, 1, 1100},
                                  {9, 8, 1}, {70, 66, 1},  {1, 1, 5}, {1, 1, 1}};

TEST(GemmRouting, DegenerateShapesRealAllTranspositions) {
  for (const auto& s : kDegenerate) {
    for (char ta : kRealTrans) {
      for (char tb : kRealTrans) {
        for (int pad : {0, 3}) {
          EXPECT_TRUE(check_product<double>(ta, tb, s[0], s[1], s[2], 1.25, -0.5, pad, 21));
          EXPECT_TRUE(check_product<double>(ta, tb, s[0], s[1], s[2], -0.75, 0.0, pad, 22));
        }
      }
    }
  }
}

TEST(GemmRouting, DegenerateShapesComplexAllNinePairs) {
  for (const auto& s : kDegenerate) {
    for (char ta : kComplexTrans) {
      for (char tb : kComplexTrans) {
        for (int pad : {0, 2}) {
          EXPECT_TRUE(check_product<zcomplex>(ta, tb, s[0], s[1], s[2], zcomplex(0.5, -1.25),
                                              zcomplex(0.25, 0.75), pad, 31));
          EXPECT_TRUE(check_product<zcomplex>(ta, tb, s[0], s[1], s[2], zcomplex(1.0, 0.5),
                                              zcomplex(0.0, 0.0), pad, 32));
        }
      }
    }
  }
}

// ---- the contiguous copy of x for k = 1 -----------------------------------------

// Copies made by one k = 1 call with transa `ta`, lda 7, m rows, n 5.
template <class T>
int64_t copies_for(char ta, int32_t m, int32_t lda) {
  const int64_t before = zml::blas::gemm_rank1_copies_made();
  EXPECT_TRUE(
      check_product<T>(ta, 'N', m, 5, 1, scalar<T>(1.5, 0.5), scalar<T>(0.5, 0.0), lda - 1, 51));
  return zml::blas::gemm_rank1_copies_made() - before;
}

TEST(GemmRank1Copy, TransposedXOf65IsCopiedOf64IsNot) {
  // check_product pads lda by `pad` over k = 1, so lda - 1 gives lda = 7.
  EXPECT_EQ(copies_for<double>('T', 65, 7), 1);
  EXPECT_EQ(copies_for<double>('T', 64, 7), 0);
  EXPECT_EQ(copies_for<double>('N', 65, 7), 0);  // x is a column of A: increment 1
  EXPECT_EQ(copies_for<zcomplex>('T', 65, 7), 1);
  EXPECT_EQ(copies_for<zcomplex>('C', 65, 7), 1);  // the copy conjugates
  EXPECT_EQ(copies_for<zcomplex>('C', 64, 7), 0);  // conjugated on the fly
}

// ---- driver generation -------------------------------------------------------------

TEST(GemmGeneration, AnswerOfEveryCodePath) {
  const int32_t want[12] = {0, 1, 1, 0, 1, 1, 1, 2, 0, 2, 0, 0};
  for (int32_t cp = 0; cp < 12; ++cp) EXPECT_EQ(zml::blas::gemm_generation_for(cp), want[cp]) << cp;
  EXPECT_EQ(zml::blas::gemm_generation_for(-1), 0);
  EXPECT_EQ(zml::blas::gemm_generation_for(12), 0);
}

// Every table's row for code path cp on this processor, or with cp = -1 the
// row this process runs.
std::string table_rows(int32_t cp) {
  std::string rows;
  for (const zml::dispatch::TableBase* t : zml::dispatch::all_tables()) {
    rows += std::string(cp < 0 ? t->running().name : t->picked(cp).name) + " ";
  }
  return rows;
}

// Multiplies a few products (so the generation is asked several times) and
// reports the code path, the generation, the rows the tables run, what was
// printed and whether every result matched the naive loop.
TEST(GemmGeneration, DISABLED_Child) {
  bool ok = true;
  const std::string out = zml::test::capture_stdout([&] {
    ok = ok && check_product<double>('N', 'T', 200, 190, 180, 1.5, 0.5, 1, 61);
    ok = ok && check_product<double>('T', 'N', 40, 50, 60, 1.5, 0.0, 0, 62);
    ok = ok && check_product<zcomplex>('C', 'N', 90, 80, 70, zcomplex(1.0, 1.0), zcomplex(0.5, 0.0),
                                       1, 63);
  });
  zml::test::emit("cp", zml_serv_get_code_path());
  zml::test::emit("rows", table_rows(-1));
  zml::test::emit("generation", zml::blas::gemm_driver_generation());
  zml::test::emit("ok", ok ? 1 : 0);
  size_t count = 0;
  for (size_t p = out.find("is not supported"); p != std::string::npos;
       p = out.find("is not supported", p + 1)) {
    ++count;
  }
  zml::test::emit("messages", static_cast<long long>(count));
  const int32_t cp = zml_serv_get_code_path();
  const std::string text = "Arvel ZML ERROR: CPU " + std::to_string(cp) + " is not supported.\n";
  zml::test::emit("exact", out.find(text) != std::string::npos ? 1 : 0);
}

struct Forced {
  const char* override_value;  // "" leaves detection alone
  int generation;              // expected answer; -1: from the detected code path
};

TEST(GemmGeneration, ForcedCodePathsPickTheirDriverAndMessageAppearsOnce) {
  for (const Forced f : {Forced{"", -1}, Forced{"11", 0}, Forced{"9", 2}, Forced{"7", 2},
                         Forced{"5", 1}, Forced{"8", 0}, Forced{"3", 0}, Forced{"2", 1}}) {
    const auto r = zml::test::run_child("GemmGeneration.DISABLED_Child",
                                        {{"ZML_CODE_PATH_OVERRIDE", f.override_value}});
    ASSERT_EQ(r.exit_code, 0) << f.override_value << "\n" << r.out;
    const int cp = std::stoi(r.value("cp"));
    if (f.override_value[0] != '\0') {
      EXPECT_EQ(cp, std::stoi(f.override_value));
    } else {
      EXPECT_EQ(cp, zml_serv_get_code_path());
    }
    const int gen = f.generation >= 0 ? f.generation : zml::blas::gemm_generation_for(cp);
    EXPECT_EQ(r.value("generation"), std::to_string(gen)) << r.out;
    EXPECT_EQ(r.value("rows"), table_rows(cp)) << r.out;
    EXPECT_EQ(r.value("ok"), "1") << r.out;
    // Unserved paths print message 1213 with their number once per process.
    EXPECT_EQ(r.value("messages"), gen == 0 ? "1" : "0") << r.out;
    EXPECT_EQ(r.value("exact"), gen == 0 ? "1" : "0") << r.out;
  }
}

}  // namespace
