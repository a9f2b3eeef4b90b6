// SPDX-License-Identifier: BSD-3-Clause
// Every dgemm and zgemm variant row the processor supports, called directly:
// the micro-kernel on full and edge tiles, the packing layouts (conjugated
// too for complex data), and the single-thread multiply's two paths, the
// small one and the blocked loops, each on every transposition pair against
// the long-double loop. The entries above them (quick returns, the choice of
// path, threads) are tested through the checked entry in gemm_entry_test and
// gemm_shapes_test.
#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <string>
#include <vector>

#include "blas/driver/dgemm_serial.h"
#include "blas/driver/zgemm_serial.h"
#include "blas/kernels/gemm_kernel.h"
#include "blas/kernels/zgemm_kernel.h"
#include "tests/blas/gemm_check.h"

namespace zml::blas {
namespace {

using test::GemmCase;
using test::scalar;

const double* dp(const zcomplex* x) { return reinterpret_cast<const double*>(x); }
double* dp(zcomplex* x) { return reinterpret_cast<double*>(x); }

int code(char t) { return t == 'N' ? 0 : t == 'T' ? 1 : 2; }

// What differs between the element types: the row type, the letters and the
// calling conventions of the pieces under test.
template <class T>
struct Kind;

template <>
struct Kind<double> {
  using Row = dgemm_variant;
  static constexpr const char* kLetters = "NT";
  static void ukernel(const Row& r, int64_t m, int64_t n, int64_t k, double alpha, const double* a,
                      const double* b, double beta, double* c, int64_t ldc) {
    r.ukernel(m, n, k, alpha, a, b, beta, c, ldc);
  }
  static void pack(const Row& r, bool b_side, const double* x, int64_t ld, int64_t lines, int64_t k,
                   bool kcont, bool /*conj*/, double* dst) {
    (b_side ? r.pack_b : r.pack_a)(x, ld, lines, k, kcont, dst);
  }
  static void small(const Row& r, GemmCase<double>& x) {
    dgemm_small(r, x.ta != 'N', x.tb != 'N', x.m, x.n, x.k, x.alpha, x.pa(), x.lda, x.pb(), x.ldb,
                x.beta, x.pc(), x.ldc);
  }
  static void blocked(const Row& r, GemmCase<double>& x) {
    dgemm_blocked(r, x.ta != 'N', x.tb != 'N', x.m, x.n, x.k, x.alpha, x.pa(), x.lda, x.pb(), x.ldb,
                  x.beta, x.pc(), x.ldc);
  }
};

template <>
struct Kind<zcomplex> {
  using Row = zgemm_variant;
  static constexpr const char* kLetters = "NTC";
  static void ukernel(const Row& r, int64_t m, int64_t n, int64_t k, zcomplex alpha,
                      const zcomplex* a, const zcomplex* b, zcomplex beta, zcomplex* c,
                      int64_t ldc) {
    r.ukernel(m, n, k, dp(&alpha), dp(a), dp(b), dp(&beta), dp(c), ldc);
  }
  static void pack(const Row& r, bool b_side, const zcomplex* x, int64_t ld, int64_t lines,
                   int64_t k, bool kcont, bool conj, zcomplex* dst) {
    (b_side ? r.pack_b : r.pack_a)(dp(x), ld, lines, k, kcont, conj, dp(dst));
  }
  static void small(const Row& r, GemmCase<zcomplex>& x) {
    zgemm_small(r, code(x.ta), code(x.tb), x.m, x.n, x.k, dp(&x.alpha), dp(x.pa()), x.lda,
                dp(x.pb()), x.ldb, dp(&x.beta), dp(x.pc()), x.ldc);
  }
  static void blocked(const Row& r, GemmCase<zcomplex>& x) {
    zgemm_blocked(r, code(x.ta), code(x.tb), x.m, x.n, x.k, dp(&x.alpha), dp(x.pa()), x.lda,
                  dp(x.pb()), x.ldb, dp(&x.beta), dp(x.pc()), x.ldc);
  }
};

template <class T>
using Row = typename Kind<T>::Row;

template <class T>
class RowTest : public ::testing::TestWithParam<const Row<T>*> {
 protected:
  void SetUp() override {
    if (!dispatch::isa_usable(row().isa)) {
      GTEST_SKIP() << "row " << row().name << " needs an instruction set this CPU lacks";
    }
  }
  const Row<T>& row() const { return *this->GetParam(); }
};

// The micro-kernel on packed panels (A(i, p) = a[i + p*mr], B(p, j) =
// b[j + p*nr]) for every corner m x n of the tile, several k and the
// alpha/beta cases; C outside the corner keeps its sentinel, and beta = 0
// ignores NaN in C.
template <class T>
void micro_kernel_tiles(const Row<T>& r) {
  const int64_t mr = r.mr, nr = r.nr, ldc = mr + 3;
  const T sentinel = scalar<T>(12345.0, -678.0);
  for (int64_t k : {1, 2, 3, 7, 64, 100}) {
    const auto a = test::random_vector<T>(static_cast<size_t>(mr * k), 11 + k);
    const auto b = test::random_vector<T>(static_cast<size_t>(nr * k), 23 + k);
    const auto c0 = test::random_vector<T>(static_cast<size_t>(ldc * nr), 7);
    for (const T alpha : {T(1.0), scalar<T>(-1.0, 1.0), scalar<T>(2.5, -3.0)}) {
      for (const T beta : {T(0.0), T(1.0), scalar<T>(-1.0, 0.5), scalar<T>(2.5, -3.0)}) {
        for (int64_t m = 1; m <= mr; ++m) {
          for (int64_t n = 1; n <= nr; ++n) {
            std::vector<T> c(static_cast<size_t>(ldc * (nr + 1)), sentinel);
            for (int64_t j = 0; j < n; ++j) {
              for (int64_t i = 0; i < m; ++i) {
                c[i + j * ldc] = beta == T(0.0) ? test::nan_value<T>() : c0[i + j * ldc];
              }
            }
            std::vector<T> want = c;
            std::vector<double> scale;
            test::naive_gemm<T>(false, 'N', 'T', m, n, k, alpha, a.data(), mr, b.data(), nr, beta,
                                want.data(), ldc, &scale);
            Kind<T>::ukernel(r, m, n, k, alpha, a.data(), b.data(), beta, c.data(), ldc);
            ASSERT_TRUE(test::same_c(false, m, n, k, c, want, 0, ldc, scale,
                                     std::string(r.name) + " tile " + std::to_string(m) + "x" +
                                         std::to_string(n) + " k=" + std::to_string(k)))
                << "alpha=" << alpha << " beta=" << beta;
          }
        }
      }
    }
  }
}

// Both packers, both source orders (and with and without conjugation for
// complex data): exact copies in the documented layout, zero padding past the
// last line. k = 3, 5, 8, 9, 17 give a short tail only, whole blocks and a
// tail, and whole blocks only, for packers that work along k in blocks.
template <class T>
void packing_layout(const Row<T>& r) {
  const T sentinel = scalar<T>(12345.0, -678.0);
  const bool complex = test::is_complex<T>::value;
  for (bool b_side : {false, true}) {
    const int64_t w = b_side ? r.nr : r.mr;
    for (int64_t lines : {int64_t{1}, w - 1, w, w + 1, 2 * w + 3}) {
      if (lines < 1) continue;
      for (int64_t k : {1, 2, 3, 5, 7, 8, 9, 17}) {
        for (bool kcont : {false, true}) {
          const int64_t ld = (kcont ? k : lines) + 5;
          const auto x = test::random_vector<T>(static_cast<size_t>(ld * (kcont ? lines : k)), 99);
          for (bool conj : {false, complex}) {
            const int64_t panels = (lines + w - 1) / w;
            std::vector<T> dst(static_cast<size_t>(panels * w * k), sentinel);
            Kind<T>::pack(r, b_side, x.data(), ld, lines, k, kcont, conj, dst.data());
            for (int64_t l = 0; l < panels * w; ++l) {
              for (int64_t p = 0; p < k; ++p) {
                T want = T(0.0);
                if (l < lines) want = test::conj_if(kcont ? x[p + l * ld] : x[l + p * ld], conj);
                ASSERT_EQ(dst[(l / w) * w * k + p * w + l % w], want)
                    << r.name << (b_side ? " pack_b" : " pack_a") << " lines=" << lines
                    << " k=" << k << " k_contiguous=" << kcont << " conj=" << conj << " line=" << l
                    << " p=" << p;
              }
            }
          }
        }
      }
    }
  }
}

// The small path on every transposition pair: sizes around the register
// tiles, the transposed-A copy limit and the row's small_max. One pair per
// shape has beta = 0 (C full of NaN).
template <class T>
void small_path(const Row<T>& r) {
  const int64_t top = r.small_max;
  auto upto_top = [top](std::vector<int64_t> v) {
    v.push_back(top - 1);
    v.push_back(top);
    std::sort(v.begin(), v.end());
    v.erase(std::unique(v.begin(), v.end()), v.end());
    v.erase(std::remove_if(v.begin(), v.end(), [top](int64_t s) { return s < 1 || s > top; }),
            v.end());
    return v;
  };
  const std::string letters = Kind<T>::kLetters;
  uint64_t seed = 100;
  for (int64_t m : upto_top({1, 2, 3, 7, 8, 9, 15, 16, 17, 24, 25, 31, 32, 33, 47, 63, 64, 65})) {
    for (int64_t n : upto_top({1, 3, 8, 9, 13, 32, 41, 64})) {
      for (int64_t k : upto_top({1, 2, 5, 32, 57, 64, 65})) {
        int pair = 0;
        for (char ta : letters) {
          for (char tb : letters) {
            const T beta = ++pair == 3 ? T(0.0) : scalar<T>(-0.5, 1.0);
            GemmCase<T> x(false, ta, tb, m, n, k, scalar<T>(1.5, -0.5), beta, 1, seed++);
            Kind<T>::small(r, x);
            ASSERT_TRUE(x.matches(std::string(r.name) + " small"));
          }
        }
      }
    }
  }
}

// The blocked loops: k = 300 and 600 cross one and two kc passes, m = 517
// crosses mc blocks, edge panels in both directions, and the degenerate
// shapes (one row, one column, k = 1) that reach these loops when the driver
// cuts C into pieces. Large complex products keep three pairs, which still
// put every letter on both operands.
template <class T>
void blocked_loops(const Row<T>& r) {
  const bool complex = test::is_complex<T>::value;
  const std::string letters = Kind<T>::kLetters;
  struct Shape {
    int32_t m, n, k, pad;
  };
  uint64_t seed = 200;
  for (Shape s :
       {Shape{1, 1, 1, 0}, Shape{33, 17, 2, 1}, Shape{1, 129, 65, 2}, Shape{65, 1, 127, 3},
        Shape{129, 127, 1, 1}, Shape{65, 31, 300, 40}, Shape{127, 129, 65, 1},
        Shape{517, 37, complex ? 300 : 600, 1}, Shape{40, 300, 257, 2}}) {
    const bool few = complex && static_cast<int64_t>(s.m) * s.n * s.k > 2000000;
    int pair = 0;
    for (char ta : letters) {
      for (char tb : letters) {
        if (few && tb != letters[(letters.find(ta) + 1) % letters.size()]) continue;
        const T beta = ++pair == 2 ? T(0.0) : T(1.0);
        GemmCase<T> x(false, ta, tb, s.m, s.n, s.k, scalar<T>(2.5, 0.5), beta, s.pad, seed++);
        Kind<T>::blocked(r, x);
        ASSERT_TRUE(x.matches(std::string(r.name) + " blocked"));
      }
    }
  }
}

using DgemmRow = RowTest<double>;
using ZgemmRow = RowTest<zcomplex>;

TEST_P(DgemmRow, MicroKernelFullAndEdgeTiles) { micro_kernel_tiles<double>(row()); }
TEST_P(ZgemmRow, MicroKernelFullAndEdgeTiles) { micro_kernel_tiles<zcomplex>(row()); }
TEST_P(DgemmRow, PackingLayout) { packing_layout<double>(row()); }
TEST_P(ZgemmRow, PackingLayout) { packing_layout<zcomplex>(row()); }
TEST_P(DgemmRow, SmallPathAllTransposes) { small_path<double>(row()); }
TEST_P(ZgemmRow, SmallPathAllTransposes) { small_path<zcomplex>(row()); }
TEST_P(DgemmRow, BlockedLoopsAllTransposes) { blocked_loops<double>(row()); }
TEST_P(ZgemmRow, BlockedLoopsAllTransposes) { blocked_loops<zcomplex>(row()); }

// The fallback used when work memory is refused gives the same products.
TEST_P(DgemmRow, BlockedOnStackAllTransposes) {
  int pair = 0;
  for (char ta : {'N', 'T'}) {
    for (char tb : {'N', 'T'}) {
      GemmCase<double> x(false, ta, tb, 67, 45, 150, -1.0, ++pair == 3 ? 0.0 : 2.5, 2, 300);
      dgemm_blocked_on_stack(row(), ta != 'N', tb != 'N', x.m, x.n, x.k, x.alpha, x.pa(), x.lda,
                             x.pb(), x.ldb, x.beta, x.pc(), x.ldc);
      ASSERT_TRUE(x.matches(std::string(row().name) + " on stack"));
    }
  }
}

template <class T>
std::string row_name(const ::testing::TestParamInfo<const Row<T>*>& p) {
  return p.param->name;
}
INSTANTIATE_TEST_SUITE_P(Rows, DgemmRow, ::testing::ValuesIn(kDgemmTable.rows()), row_name<double>);
INSTANTIATE_TEST_SUITE_P(AllRows, ZgemmRow, ::testing::ValuesIn(kZgemmTable.rows()),
                         row_name<zcomplex>);

}  // namespace
}  // namespace zml::blas
