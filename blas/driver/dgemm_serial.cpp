// SPDX-License-Identifier: BSD-3-Clause
// Single-thread dgemm: quick returns, then the small path or the blocked
// multiply (nc -> kc -> mc -> micro-tiles) around the code path's kernels.
#include "blas/driver/dgemm_serial.h"

#include <atomic>

#include "blas/blas.h"
#include "service/service.h"

namespace zml::blas {

namespace {

int64_t clamp64(int64_t v, int64_t lo, int64_t hi) { return v < lo ? lo : (v > hi ? hi : v); }

// Splits `total` into the fewest pieces of at most `most`, all of nearly equal
// size rounded up to a multiple of `unit`, so the last pass is never a sliver.
int64_t balanced(int64_t total, int64_t most, int64_t unit) {
  const int64_t pieces = (total + most - 1) / most;
  int64_t size = (total + pieces - 1) / pieces;
  size = (size + unit - 1) / unit * unit;
  return size < most ? size : most;
}

struct Blocking {
  int64_t kc, mc, nc;
};

Blocking blocking_for(const dgemm_variant& row, int64_t m, int64_t n, int64_t k) {
  const serv::CacheSizes& cs = serv::cache_sizes();
  const int64_t l1 = cs.l1d > 0 ? cs.l1d : 32 * 1024;
  const int64_t l2 = cs.l2 > 0 ? cs.l2 : 256 * 1024;
  const int64_t l3 = cs.l3 > 0 ? cs.l3 : 4 * 1024 * 1024;
  const int64_t mr = row.mr, nr = row.nr;
  int64_t kc = static_cast<int64_t>(row.l1_share * static_cast<double>(l1)) / (nr * 8);
  kc = clamp64(kc / 8 * 8, 16, row.kc_max);
  kc = balanced(k, kc, 8);
  int64_t mc = static_cast<int64_t>(row.l2_share * static_cast<double>(l2)) / (kc * 8);
  mc = clamp64(mc / mr * mr, mr, row.mc_max / mr * mr);
  mc = balanced(m, mc, mr);
  int64_t nc = static_cast<int64_t>(row.l3_share * static_cast<double>(l3)) / (kc * 8);
  nc = clamp64(nc / nr * nr, nr, row.nc_max / nr * nr);
  nc = balanced(n, nc, nr);
  return {kc, mc, nc};
}

// The loops proper, on buffers sized for `bl`.
void blocked_loops(const dgemm_variant& row, const Blocking& bl, bool trans_a, bool trans_b,
                   int64_t m, int64_t n, int64_t k, double alpha, const double* a, int64_t lda,
                   const double* b, int64_t ldb, double beta, double* c, int64_t ldc, double* pa,
                   double* pb) {
  const int64_t mr = row.mr, nr = row.nr;
  for (int64_t jc = 0; jc < n; jc += bl.nc) {
    const int64_t nb = n - jc < bl.nc ? n - jc : bl.nc;
    for (int64_t pc = 0; pc < k; pc += bl.kc) {
      const int64_t kb = k - pc < bl.kc ? k - pc : bl.kc;
      // op(B)(p, j) is b[p + j*ldb] ('N': k runs contiguously along a column)
      // or b[j + p*ldb] ('T').
      const double* bsrc = trans_b ? b + jc + pc * ldb : b + pc + jc * ldb;
      row.pack_b(bsrc, ldb, nb, kb, !trans_b, pb);
      // beta is applied by the first rank-kc update only; later ones accumulate.
      const double beta_pass = pc == 0 ? beta : 1.0;
      for (int64_t ic = 0; ic < m; ic += bl.mc) {
        const int64_t mb = m - ic < bl.mc ? m - ic : bl.mc;
        const double* asrc = trans_a ? a + pc + ic * lda : a + ic + pc * lda;
        row.pack_a(asrc, lda, mb, kb, trans_a, pa);
        for (int64_t jr = 0; jr < nb; jr += nr) {
          const int64_t nn = nb - jr < nr ? nb - jr : nr;
          const double* bp = pb + jr * kb;
          double* cc = c + ic + (jc + jr) * ldc;
          for (int64_t ir = 0; ir < mb; ir += mr) {
            const int64_t mm = mb - ir < mr ? mb - ir : mr;
            row.ukernel(mm, nn, kb, alpha, pa + ir * kb, bp, beta_pass, cc + ir, ldc);
          }
        }
      }
    }
  }
}

}  // namespace

const dgemm_variant& dgemm_active_variant() {
  // The code path is fixed for the life of the process, so the pick is made
  // once; the store is idempotent and needs no lock.
  static std::atomic<const dgemm_variant*> chosen{nullptr};
  const dgemm_variant* row = chosen.load(std::memory_order_acquire);
  if (row == nullptr) {
    row = &dispatch::pick(kDgemmTable);
    chosen.store(row, std::memory_order_release);
  }
  return *row;
}

void dgemm_scale_c(int64_t m, int64_t n, double beta, double* c, int64_t ldc) {
  if (beta == 1.0) return;
  for (int64_t j = 0; j < n; ++j) {
    double* cj = c + j * ldc;
    if (beta == 0.0) {
      for (int64_t i = 0; i < m; ++i) cj[i] = 0.0;
    } else {
      for (int64_t i = 0; i < m; ++i) cj[i] *= beta;
    }
  }
}

void dgemm_blocked(const dgemm_variant& row, bool trans_a, bool trans_b, int64_t m, int64_t n,
                   int64_t k, double alpha, const double* a, int64_t lda, const double* b,
                   int64_t ldb, double beta, double* c, int64_t ldc) {
  const Blocking bl = blocking_for(row, m, n, k);
  const int64_t mr = row.mr, nr = row.nr;
  // Both packing buffers in one allocation, once per call; the memory
  // manager's per-thread cache makes repeated same-size requests cheap.
  const int64_t a_elems = (bl.mc + mr - 1) / mr * mr * bl.kc;
  const int64_t b_elems = (bl.nc + nr - 1) / nr * nr * bl.kc;
  const int64_t a_bytes = (a_elems * 8 + 4095) / 4096 * 4096;
  auto* buf =
      static_cast<double*>(serv::aligned_alloc(static_cast<size_t>(a_bytes + b_elems * 8), 4096));
  if (buf != nullptr) {
    blocked_loops(row, bl, trans_a, trans_b, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, buf,
                  buf + a_bytes / 8);
    serv::aligned_free(buf);
    return;
  }
  dgemm_blocked_on_stack(row, trans_a, trans_b, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

void dgemm_blocked_on_stack(const dgemm_variant& row, bool trans_a, bool trans_b, int64_t m,
                            int64_t n, int64_t k, double alpha, const double* a, int64_t lda,
                            const double* b, int64_t ldb, double beta, double* c, int64_t ldc) {
  // Rows are at most 32 wide (the kernel tests check it), so one micro-panel
  // of each operand at kc = 64 fits these buffers.
  constexpr int64_t kStackK = 64, kStackW = 32;
  double sa[kStackK * kStackW];
  double sb[kStackK * kStackW];
  if (row.mr > kStackW || row.nr > kStackW) return;
  const Blocking bl = {kStackK, row.mr, row.nr};
  blocked_loops(row, bl, trans_a, trans_b, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, sa, sb);
}

void zml_blas_dgemm_serial(const char* transa, const char* transb, const int32_t* m,
                           const int32_t* n, const int32_t* k, const double* alpha, const double* a,
                           const int32_t* lda, const double* b, const int32_t* ldb,
                           const double* beta, double* c, const int32_t* ldc) {
  const int64_t mm = *m, nn = *n, kk = *k;
  if (mm <= 0 || nn <= 0) return;
  const double al = *alpha, be = *beta;
  if (kk <= 0 || al == 0.0) {
    dgemm_scale_c(mm, nn, be, c, *ldc);
    return;
  }
  const dgemm_variant& row = dgemm_active_variant();
  const bool ta = trans_code(transa) != 0;
  const bool tb = trans_code(transb) != 0;
  if (mm <= row.small_max && nn <= row.small_max && kk <= row.small_max) {
    dgemm_small(row, ta, tb, mm, nn, kk, al, a, *lda, b, *ldb, be, c, *ldc);
    return;
  }
  dgemm_blocked(row, ta, tb, mm, nn, kk, al, a, *lda, b, *ldb, be, c, *ldc);
}

}  // namespace zml::blas
