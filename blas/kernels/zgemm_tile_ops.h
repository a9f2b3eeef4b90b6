// SPDX-License-Identifier: BSD-3-Clause
// The zgemm micro-kernel written once over an instruction set's vector ops
// (service/simd/<isa>/vec_ops.h): a tile of MV vectors of W/2 complex rows by
// NR columns. Each kernel folder instantiates the shapes its rows name.
#pragma once

#include <cstdint>

namespace zml::blas {

// What a tile fetches ahead of its loads.
enum class ZgemmPrefetch {
  kNone,  // the hardware prefetcher keeps up on its own
  kA,     // the A panel, eight steps ahead
  kAC,    // that, and the C tile during the last steps
};

// C := alpha*(re -+ swap(im)) + beta*C for the first `count` doubles of one
// vector (count >= W: all of it). re holds sum a*Re(b), im sum a*Im(b) with a
// interleaved, so the product is re - swap(im) in the real lanes and
// re + swap(im) in the imaginary ones. beta == 0 never loads C: NaN there
// must not reach the result.
template <class Ops>
inline void zgemm_store_ops(double* c, typename Ops::V re, typename Ops::V im, int64_t count,
                            const double* alpha, const double* beta, bool beta_zero) {
  using V = typename Ops::V;
  const V prod = Ops::addsub(re, Ops::swap(im));
  V v = Ops::cmul(prod, Ops::bcast(alpha[0]), Ops::bcast(alpha[1]));
  const V br = Ops::bcast(beta[0]), bi = Ops::bcast(beta[1]);
  if (count >= Ops::W) {
    if (!beta_zero) v = Ops::add(v, Ops::cmul(Ops::load(c), br, bi));
    Ops::store(c, v);
  } else {
    const int cnt = static_cast<int>(count);
    if (!beta_zero) v = Ops::add(v, Ops::cmul(Ops::load_partial(c, cnt), br, bi));
    Ops::store_partial(c, v, cnt);
  }
}

// Each k step broadcasts Re(b_j) and Im(b_j) and accumulates A*Re(b_j) and
// A*Im(b_j) into separate registers; the swap and sign fold happen once per
// tile in the store, so the loop is multiply-adds only. PV and PR are the
// panels' widths (vectors of A, columns of B per step); an edge tile may
// compute only its first MV <= PV vectors and NR <= PR columns.
template <class Ops, int MV, int NR, ZgemmPrefetch kFetch = ZgemmPrefetch::kNone, int PV = MV,
          int PR = NR>
inline void zgemm_tile_ops(int64_t m, int64_t n, int64_t k, const double* alpha, const double* a,
                           const double* b, const double* beta, double* c, int64_t ldc) {
  using V = typename Ops::V;
  constexpr int W = Ops::W;
  // Doubles per step of the A panel, and the cache lines of them this tile reads.
  constexpr int kStepA = W * PV, kLinesA = (MV * W + 7) / 8;
  V re[MV][NR], im[MV][NR];
#pragma GCC unroll 8
  for (int v = 0; v < MV; ++v) {
#pragma GCC unroll 8
    for (int j = 0; j < NR; ++j) re[v][j] = im[v][j] = Ops::zero();
  }
  auto step = [&] {
    V av[MV];
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) av[v] = Ops::load(a + W * v);
    if constexpr (kFetch != ZgemmPrefetch::kNone) {
#pragma GCC unroll 8
      for (int l = 0; l < kLinesA; ++l) Ops::prefetch(a + 8 * kStepA + 8 * l);
    }
#pragma GCC unroll 8
    for (int j = 0; j < NR; ++j) {
      const V br = Ops::bcast(b[2 * j]);
      const V bi = Ops::bcast(b[2 * j + 1]);
#pragma GCC unroll 8
      for (int v = 0; v < MV; ++v) {
        re[v][j] = Ops::madd(av[v], br, re[v][j]);
        im[v][j] = Ops::madd(av[v], bi, im[v][j]);
      }
    }
    a += kStepA;
    b += 2 * PR;
  };
  int64_t p = 0;
  if constexpr (kFetch == ZgemmPrefetch::kAC) {
    // The C tile (a column spans MV lines, plus one when unaligned) is fetched
    // during the last steps, one line every other step: issued together the
    // fetches would hold every fill buffer and stall the loads of A.
    constexpr int kCLines = MV * W / 8;
    static_assert(kCLines >= 1, "the C fetch plan assumes whole cache lines per column");
    constexpr int64_t kTail = 2 * NR * (kCLines + 1);
    for (; p < k - kTail; ++p) step();
    for (int j = 0; j < NR; ++j) {
      const char* cj = reinterpret_cast<const char*>(c + 2 * j * ldc);
      for (int l = 0; l <= kCLines; ++l) {
        Ops::prefetch(cj + (l < kCLines ? 64 * l : 64 * kCLines - 1));
        if (p < k) step(), ++p;
        if (p < k) step(), ++p;
      }
    }
  } else {
    for (; p < k; ++p) step();
  }
  const bool bz = beta[0] == 0.0 && beta[1] == 0.0;
#pragma GCC unroll 8
  for (int j = 0; j < NR; ++j) {
    if (j < n) {
      double* cj = c + 2 * j * ldc;
#pragma GCC unroll 8
      for (int v = 0; v < MV; ++v) {
        const int64_t rows = m - int64_t{v} * (W / 2);
        if (rows > 0)
          zgemm_store_ops<Ops>(cj + W * v, re[v][j], im[v][j], 2 * rows, alpha, beta, bz);
      }
    }
  }
}

}  // namespace zml::blas
