// SPDX-License-Identifier: BSD-3-Clause
// How many threads a gemv gets, and the parallel regions that split it. A
// matrix-vector product is memory-bound, so threads are used only where each
// one gets enough rows (or columns) to stream.
#include "blas/driver/level2_driver.h"
#include "service/threading/team.h"

namespace zml::blas {

namespace {

// The size bounds of the choice; the complex ones are lower because each
// complex element carries four times the arithmetic.
struct GemvBounds {
  int32_t r8_split;  // "N", up to 12 threads: rows per member (a multiple of 8)
  int64_t n_above;   // where the work bound changes, and the bound at or above
  int64_t n_below;   // and below it
  int64_t n_many;    // "N", 13 threads or more
  int32_t c_split;   // "T"/"C", up to 12 threads: columns per member
  int64_t t_above;   // where the work bound changes, and the bounds
  int64_t t_below;
  int64_t t_many;       // "T"/"C", 13 threads or more
  int64_t reduced_div;  // work per member of the reduced team, as a divisor of m*n
};
constexpr GemvBounds kRealBounds{64, 3072, 1536, 4096, 64, 4096, 2048, 4096, 3072};
constexpr GemvBounds kComplexBounds{32, 1024, 512, 1024, 32, 1024, 512, 1024, 1024};

// A team sized by the total work, for large machines with more
// logical processors than cores.
int32_t reduced_team(int64_t m, int64_t n, int32_t threads, const GemvBounds& b) {
  int64_t t = m * n / b.reduced_div;
  if (t < 1) t = 1;
  return t < threads ? static_cast<int32_t>(t) : threads;
}

}  // namespace

int32_t gemv_thread_choice(bool complex, bool transposed, int32_t m, int32_t n, int32_t threads,
                           bool own_processor, int32_t code_path, int32_t topology) {
  if (m < 1 || n < 1) return 1;
  if (m < 64 && n < 64) return 1;
  // Threads only on the library's own processors: the bounds below were measured
  // there, and elsewhere one thread is the choice that cannot lose.
  if (!own_processor || code_path < 4) return 1;
  const int32_t T = threads;
  if (T <= 1) return 1;
  const bool few = T < 13;
  const GemvBounds& b = complex ? kComplexBounds : kRealBounds;
  const int64_t M = m, N = n;
  if (!transposed) {
    if (complex) {
      if (n >= 5000 && m < 51) return T;
    }
    const int64_t r = M / T;
    if (!complex && r < 501 && N >= 64 * static_cast<int64_t>(T)) return T;
    if (few) {
      const int64_t r8 = r / 8 * 8;
      const int64_t bound = r8 >= b.r8_split ? b.n_above : b.n_below;
      return r8 * N >= bound ? T : 1;
    }
    if (N * r >= b.n_many) return T;
    if (r == 0 || topology != 1) return 1;
    return reduced_team(M, N, T, b);
  }
  if (complex ? (m >= 5000 && n < 51) : (m >= 10000 && n < 101)) return T;
  // The transposed case keeps c unrounded, unlike r8 above: the bounds below
  // were measured that way, and rounding would move every boundary.
  const int64_t c = N / T;
  const int64_t w = M * c;
  if (few) {
    const int64_t bound = c >= b.c_split ? b.t_above : b.t_below;
    return w >= bound ? T : 1;
  }
  if (w >= b.t_many) return T;
  if (c == 0 || topology != 1) return 1;
  return reduced_team(M, N, T, b);
}

namespace {

// Each member takes a contiguous slice of y: rows of A for "N", columns for
// "T"/"C". Slices are rounded to 8 elements so that, with unit increments,
// neighbouring members do not share the cache lines of y.
template <class Elem, class Serial>
void gemv_region(int32_t threads, const char* trans, const int32_t* m, const int32_t* n,
                 const Elem* alpha, const Elem* a, const int32_t* lda, const Elem* x,
                 const int32_t* incx, const Elem* beta, Elem* y, const int32_t* incy,
                 Serial serial) {
  const bool transposed = trans_code(trans) > 0;
  const int64_t len = transposed ? *n : *m;
  const int64_t ld = *lda;
  serv::run_team(threads, [&](int64_t team, int64_t id) {
    const int64_t share = ((len + team - 1) / team + 7) / 8 * 8;
    const int64_t lo = id * share < len ? id * share : len;
    const int64_t hi = lo + share < len ? lo + share : len;
    if (hi <= lo) return;
    const int32_t count = static_cast<int32_t>(hi - lo);
    Elem* ys = y + subvector_offset(len, *incy, lo, hi);
    if (transposed) {
      serial(trans, m, &count, alpha, a + lo * ld, lda, x, incx, beta, ys, incy);
    } else {
      serial(trans, &count, n, alpha, a + lo, lda, x, incx, beta, ys, incy);
    }
  });
}

}  // namespace

void zml_blas_dgemv_omp(int32_t threads, const char* trans, const int32_t* m, const int32_t* n,
                        const double* alpha, const double* a, const int32_t* lda, const double* x,
                        const int32_t* incx, const double* beta, double* y, const int32_t* incy) {
  gemv_region(threads, trans, m, n, alpha, a, lda, x, incx, beta, y, incy, zml_blas_dgemv_serial);
}

void zml_blas_zgemv_omp(int32_t threads, const char* trans, const int32_t* m, const int32_t* n,
                        const zcomplex* alpha, const zcomplex* a, const int32_t* lda,
                        const zcomplex* x, const int32_t* incx, const zcomplex* beta, zcomplex* y,
                        const int32_t* incy) {
  gemv_region(threads, trans, m, n, alpha, a, lda, x, incx, beta, y, incy, zml_blas_zgemv_serial);
}

}  // namespace zml::blas
