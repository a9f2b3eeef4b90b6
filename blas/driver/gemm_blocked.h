// SPDX-License-Identifier: BSD-3-Clause
// The single-thread blocked multiply (nc -> kc -> mc -> micro-tiles), written
// once for real and complex elements, through a traits type (RealElem and
// ComplexElem below; a driver may extend them):
//   Row      the variant row (ukernel, mr, nr, pack_a, pack_b, cache shares);
//   Scalar   how alpha and beta travel (double, or a pointer to a (re, im) pair);
//   kWords   doubles per element (1 or 2);
//   kOne     the Scalar that means beta = 1;
//   pack(fn, x, ld, rows, k, k_contiguous, conj, dst) calls one packing entry.
// Pointers are to doubles and strides count elements, so every element offset
// is scaled by kWords.
#pragma once

#include <cstdint>

#include "blas/kernels/gemm_kernel.h"
#include "blas/kernels/zgemm_kernel.h"
#include "service/service.h"

namespace zml::blas::gemm_blocked {

// The two element types' traits, for every driver that runs these loops.
struct RealElem {
  using Row = dgemm_variant;
  using Scalar = double;
  static constexpr int64_t kWords = 1;
  static constexpr double kOne = 1.0, kMinusOne = -1.0;
  static void pack(dgemm_pack_fn fn, const double* x, int64_t ld, int64_t rows, int64_t k,
                   bool k_contiguous, bool /*conj*/, double* dst) {
    fn(x, ld, rows, k, k_contiguous, dst);
  }
};

struct ComplexElem {
  using Row = zgemm_variant;
  using Scalar = const double*;
  static constexpr int64_t kWords = 2;
  static constexpr double kOneValue[2] = {1.0, 0.0}, kMinusOneValue[2] = {-1.0, 0.0};
  static constexpr const double* kOne = kOneValue;
  static constexpr const double* kMinusOne = kMinusOneValue;
  static void pack(zgemm_pack_fn fn, const double* x, int64_t ld, int64_t rows, int64_t k,
                   bool k_contiguous, bool conj, double* dst) {
    fn(x, ld, rows, k, k_contiguous, conj, dst);
  }
};

inline int64_t clamp64(int64_t v, int64_t lo, int64_t hi) {
  return v < lo ? lo : (v > hi ? hi : v);
}

// Splits `total` into the fewest pieces of at most `most`, all of nearly equal
// size rounded up to a multiple of `unit`, so the last pass is never a sliver.
inline int64_t balanced(int64_t total, int64_t most, int64_t unit) {
  const int64_t pieces = (total + most - 1) / most;
  int64_t size = (total + pieces - 1) / pieces;
  size = (size + unit - 1) / unit * unit;
  return size < most ? size : most;
}

struct Blocking {
  int64_t kc, mc, nc;
};

template <class Row>
Blocking blocking_for(const Row& row, int64_t m, int64_t n, int64_t k, int64_t elem_bytes) {
  const serv::CacheSizes& cs = serv::cache_sizes();
  const int64_t l1 = cs.l1d > 0 ? cs.l1d : 32 * 1024;
  const int64_t l2 = cs.l2 > 0 ? cs.l2 : 256 * 1024;
  const int64_t l3 = cs.l3 > 0 ? cs.l3 : 4 * 1024 * 1024;
  const int64_t mr = row.mr, nr = row.nr;
  int64_t kc = static_cast<int64_t>(row.l1_share * static_cast<double>(l1)) / (nr * elem_bytes);
  kc = clamp64(kc / 8 * 8, 16, row.kc_max);
  kc = balanced(k, kc, 8);
  int64_t mc = static_cast<int64_t>(row.l2_share * static_cast<double>(l2)) / (kc * elem_bytes);
  mc = clamp64(mc / mr * mr, mr, row.mc_max / mr * mr);
  mc = balanced(m, mc, mr);
  int64_t nc = static_cast<int64_t>(row.l3_share * static_cast<double>(l3)) / (kc * elem_bytes);
  nc = clamp64(nc / nr * nr, nr, row.nc_max / nr * nr);
  nc = balanced(n, nc, nr);
  return {kc, mc, nc};
}

// The loops proper, on buffers sized for `bl`. ta / tb are transposition
// codes: 0 'N', 1 'T', 2 'C' (conjugation is folded into packing).
template <class T>
void loops(const typename T::Row& row, const Blocking& bl, int32_t ta, int32_t tb, int64_t m,
           int64_t n, int64_t k, typename T::Scalar alpha, const double* a, int64_t lda,
           const double* b, int64_t ldb, typename T::Scalar beta, double* c, int64_t ldc,
           double* pa, double* pb) {
  constexpr int64_t w = T::kWords;
  const int64_t mr = row.mr, nr = row.nr;
  for (int64_t jc = 0; jc < n; jc += bl.nc) {
    const int64_t nb = n - jc < bl.nc ? n - jc : bl.nc;
    for (int64_t pc = 0; pc < k; pc += bl.kc) {
      const int64_t kb = k - pc < bl.kc ? k - pc : bl.kc;
      // op(B)(p, j) is b[p + j*ldb] for 'N' (k runs along a column) and
      // b[j + p*ldb] for 'T' and 'C'.
      const double* bsrc = tb != 0 ? b + w * (jc + pc * ldb) : b + w * (pc + jc * ldb);
      T::pack(row.pack_b, bsrc, ldb, nb, kb, tb == 0, tb == 2, pb);
      // beta is applied by the first rank-kc update only; later ones accumulate.
      const typename T::Scalar beta_pass = pc == 0 ? beta : T::kOne;
      for (int64_t ic = 0; ic < m; ic += bl.mc) {
        const int64_t mb = m - ic < bl.mc ? m - ic : bl.mc;
        const double* asrc = ta != 0 ? a + w * (pc + ic * lda) : a + w * (ic + pc * lda);
        T::pack(row.pack_a, asrc, lda, mb, kb, ta != 0, ta == 2, pa);
        for (int64_t jr = 0; jr < nb; jr += nr) {
          const int64_t nn = nb - jr < nr ? nb - jr : nr;
          const double* bp = pb + w * jr * kb;
          double* cc = c + w * (ic + (jc + jr) * ldc);
          for (int64_t ir = 0; ir < mb; ir += mr) {
            const int64_t mm = mb - ir < mr ? mb - ir : mr;
            row.ukernel(mm, nn, kb, alpha, pa + w * ir * kb, bp, beta_pass, cc + w * ir, ldc);
          }
        }
      }
    }
  }
}

// The loops with one micro-panel of each operand on the stack: the fallback
// when work memory is refused. Slow but complete. Rows are at most 32 doubles
// wide per line (the tables check it), so one micro-panel at kc = 64
// fits; a wider row computes nothing rather than overrun the buffers.
template <class T>
void on_stack(const typename T::Row& row, int32_t ta, int32_t tb, int64_t m, int64_t n, int64_t k,
              typename T::Scalar alpha, const double* a, int64_t lda, const double* b, int64_t ldb,
              typename T::Scalar beta, double* c, int64_t ldc) {
  constexpr int64_t kStackK = 64, kStackDoubles = 32;
  constexpr int64_t kStackW = kStackDoubles / T::kWords;
  double sa[kStackK * kStackDoubles];
  double sb[kStackK * kStackDoubles];
  if (row.mr > kStackW || row.nr > kStackW) return;
  const Blocking bl = {kStackK, row.mr, row.nr};
  loops<T>(row, bl, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, sa, sb);
}

// C := alpha*op(A)*op(B) + beta*C with k >= 1, m, n >= 1, blocked to the
// row's cache shares.
template <class T>
void run(const typename T::Row& row, int32_t ta, int32_t tb, int64_t m, int64_t n, int64_t k,
         typename T::Scalar alpha, const double* a, int64_t lda, const double* b, int64_t ldb,
         typename T::Scalar beta, double* c, int64_t ldc) {
  constexpr int64_t w = T::kWords;
  const Blocking bl = blocking_for(row, m, n, k, 8 * w);
  const int64_t mr = row.mr, nr = row.nr;
  // Both packing buffers in one allocation, once per call; the memory
  // manager's per-thread cache makes repeated same-size requests cheap.
  const int64_t a_doubles = (bl.mc + mr - 1) / mr * mr * bl.kc * w;
  const int64_t b_doubles = (bl.nc + nr - 1) / nr * nr * bl.kc * w;
  const int64_t a_bytes = (a_doubles * 8 + 4095) / 4096 * 4096;
  auto* buf =
      static_cast<double*>(serv::aligned_alloc(static_cast<size_t>(a_bytes + b_doubles * 8), 4096));
  if (buf != nullptr) {
    loops<T>(row, bl, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, buf, buf + a_bytes / 8);
    serv::aligned_free(buf);
    return;
  }
  on_stack<T>(row, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

}  // namespace zml::blas::gemm_blocked
