// SPDX-License-Identifier: BSD-3-Clause
// Single-thread zgemm: quick returns, then the small path or the blocked
// multiply (nc -> kc -> mc -> micro-tiles) around the code path's complex
// kernels. Conjugation is folded into packing.
#include "blas/driver/zgemm_serial.h"

#include <atomic>

#include "blas/blas.h"
#include "service/service.h"

namespace zml::blas {

namespace {

int64_t clamp64(int64_t v, int64_t lo, int64_t hi) { return v < lo ? lo : (v > hi ? hi : v); }

// Splits `total` into the fewest pieces of at most `most`, of nearly equal
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

constexpr int64_t kZBytes = 16;  // one complex double

Blocking blocking_for(const zgemm_variant& row, int64_t m, int64_t n, int64_t k) {
  const serv::CacheSizes& cs = serv::cache_sizes();
  const int64_t l1 = cs.l1d > 0 ? cs.l1d : 32 * 1024;
  const int64_t l2 = cs.l2 > 0 ? cs.l2 : 256 * 1024;
  const int64_t l3 = cs.l3 > 0 ? cs.l3 : 4 * 1024 * 1024;
  const int64_t mr = row.mr, nr = row.nr;
  int64_t kc = static_cast<int64_t>(row.l1_share * static_cast<double>(l1)) / (nr * kZBytes);
  kc = clamp64(kc / 8 * 8, 16, row.kc_max);
  kc = balanced(k, kc, 8);
  int64_t mc = static_cast<int64_t>(row.l2_share * static_cast<double>(l2)) / (kc * kZBytes);
  mc = clamp64(mc / mr * mr, mr, row.mc_max / mr * mr);
  mc = balanced(m, mc, mr);
  int64_t nc = static_cast<int64_t>(row.l3_share * static_cast<double>(l3)) / (kc * kZBytes);
  nc = clamp64(nc / nr * nr, nr, row.nc_max / nr * nr);
  nc = balanced(n, nc, nr);
  return {kc, mc, nc};
}

// The loops proper, on buffers sized for `bl`. Pointers are to doubles, so
// every complex offset is doubled.
void blocked_loops(const zgemm_variant& row, const Blocking& bl, int32_t ta, int32_t tb, int64_t m,
                   int64_t n, int64_t k, const double* alpha, const double* a, int64_t lda,
                   const double* b, int64_t ldb, const double* beta, double* c, int64_t ldc,
                   double* pa, double* pb) {
  const int64_t mr = row.mr, nr = row.nr;
  static constexpr double kOne[2] = {1.0, 0.0};
  for (int64_t jc = 0; jc < n; jc += bl.nc) {
    const int64_t nb = n - jc < bl.nc ? n - jc : bl.nc;
    for (int64_t pc = 0; pc < k; pc += bl.kc) {
      const int64_t kb = k - pc < bl.kc ? k - pc : bl.kc;
      // op(B)(p, j) is b[p + j*ldb] for 'N' (k runs along a column) and
      // b[j + p*ldb] for 'T' and 'C'.
      const double* bsrc = tb != 0 ? b + 2 * (jc + pc * ldb) : b + 2 * (pc + jc * ldb);
      row.pack_b(bsrc, ldb, nb, kb, tb == 0, tb == 2, pb);
      // beta is applied by the first rank-kc update only; later ones accumulate.
      const double* beta_pass = pc == 0 ? beta : kOne;
      for (int64_t ic = 0; ic < m; ic += bl.mc) {
        const int64_t mb = m - ic < bl.mc ? m - ic : bl.mc;
        const double* asrc = ta != 0 ? a + 2 * (pc + ic * lda) : a + 2 * (ic + pc * lda);
        row.pack_a(asrc, lda, mb, kb, ta != 0, ta == 2, pa);
        for (int64_t jr = 0; jr < nb; jr += nr) {
          const int64_t nn = nb - jr < nr ? nb - jr : nr;
          const double* bp = pb + 2 * jr * kb;
          double* cc = c + 2 * (ic + (jc + jr) * ldc);
          for (int64_t ir = 0; ir < mb; ir += mr) {
            const int64_t mm = mb - ir < mr ? mb - ir : mr;
            row.ukernel(mm, nn, kb, alpha, pa + 2 * ir * kb, bp, beta_pass, cc + 2 * ir, ldc);
          }
        }
      }
    }
  }
}

}  // namespace

const zgemm_variant& zgemm_active_variant() {
  // The code path is fixed for the life of the process, so the pick is made
  // once; the store is idempotent and needs no lock.
  static std::atomic<const zgemm_variant*> chosen{nullptr};
  const zgemm_variant* row = chosen.load(std::memory_order_acquire);
  if (row == nullptr) {
    row = &dispatch::pick(kZgemmTable);
    chosen.store(row, std::memory_order_release);
  }
  return *row;
}

void zgemm_scale_c(int64_t m, int64_t n, const double* beta, double* c, int64_t ldc) {
  const double br = beta[0], bi = beta[1];
  if (br == 1.0 && bi == 0.0) return;
  const bool zero = br == 0.0 && bi == 0.0;
  for (int64_t j = 0; j < n; ++j) {
    double* cj = c + 2 * j * ldc;
    for (int64_t i = 0; i < 2 * m; i += 2) {
      if (zero) {
        cj[i] = cj[i + 1] = 0.0;
      } else {
        const double cr = cj[i], ci = cj[i + 1];
        cj[i] = br * cr - bi * ci;
        cj[i + 1] = br * ci + bi * cr;
      }
    }
  }
}

void zgemm_blocked(const zgemm_variant& row, int32_t ta, int32_t tb, int64_t m, int64_t n,
                   int64_t k, const double* alpha, const double* a, int64_t lda, const double* b,
                   int64_t ldb, const double* beta, double* c, int64_t ldc) {
  Blocking bl = blocking_for(row, m, n, k);
  const int64_t mr = row.mr, nr = row.nr;
  // Both packing buffers in one allocation, once per call; the memory
  // manager's per-thread cache makes repeated same-size requests cheap.
  const int64_t a_doubles = (bl.mc + mr - 1) / mr * mr * bl.kc * 2;
  const int64_t b_doubles = (bl.nc + nr - 1) / nr * nr * bl.kc * 2;
  const int64_t a_bytes = (a_doubles * 8 + 4095) / 4096 * 4096;
  auto* buf =
      static_cast<double*>(serv::aligned_alloc(static_cast<size_t>(a_bytes + b_doubles * 8), 4096));
  if (buf != nullptr) {
    blocked_loops(row, bl, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, buf,
                  buf + a_bytes / 8);
    serv::aligned_free(buf);
    return;
  }
  // Work memory refused: the same loops with one micro-panel of each operand
  // on the stack. Slow, but the result is still computed.
  constexpr int64_t kStackK = 64, kStackW = 16;
  double sa[2 * kStackK * kStackW];
  double sb[2 * kStackK * kStackW];
  if (mr > kStackW || nr > kStackW) return;
  bl = {kStackK, mr, nr};
  blocked_loops(row, bl, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, sa, sb);
}

void zgemm_small(const zgemm_variant& row, int32_t ta, int32_t tb, int64_t m, int64_t n, int64_t k,
                 const double* alpha, const double* a, int64_t lda, const double* b, int64_t ldb,
                 const double* beta, double* c, int64_t ldc) {
  // op(B)(p, j) is b[p + j*ldb] untransposed and b[j + p*ldb] otherwise; the
  // small kernels read B through both strides and conjugate on the fly.
  const int64_t rsb = tb != 0 ? ldb : 1;
  const int64_t csb = tb != 0 ? 1 : ldb;
  if (ta == 0) {
    row.small(m, n, k, alpha, a, lda, b, rsb, csb, tb == 2, beta, c, ldc);
    return;
  }
  // The kernels load columns of A as vectors: transpose (and conjugate) A once
  // into a column-major copy of at most 16 x 16 complex numbers on the stack.
  double at[2 * kZgemmSmallMax * kZgemmSmallMax];
  const double s = ta == 2 ? -1.0 : 1.0;
  for (int64_t i = 0; i < m; ++i) {
    const double* src = a + 2 * i * lda;
    for (int64_t p = 0; p < k; ++p) {
      at[2 * (i + p * m)] = src[2 * p];
      at[2 * (i + p * m) + 1] = s * src[2 * p + 1];
    }
  }
  row.small(m, n, k, alpha, at, m, b, rsb, csb, tb == 2, beta, c, ldc);
}

void zgemm_serial_row(const zgemm_variant& row, int32_t ta, int32_t tb, int64_t m, int64_t n,
                      int64_t k, const double* alpha, const double* a, int64_t lda, const double* b,
                      int64_t ldb, const double* beta, double* c, int64_t ldc) {
  if (m <= 0 || n <= 0) return;
  if (k <= 0 || (alpha[0] == 0.0 && alpha[1] == 0.0)) {
    zgemm_scale_c(m, n, beta, c, ldc);
    return;
  }
  const int64_t small_max = row.small_max < kZgemmSmallMax ? row.small_max : kZgemmSmallMax;
  if (m <= small_max && n <= small_max && k <= small_max) {
    zgemm_small(row, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    return;
  }
  zgemm_blocked(row, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

void zml_blas_zgemm_serial(const char* transa, const char* transb, const int32_t* m,
                           const int32_t* n, const int32_t* k, const zcomplex* alpha,
                           const zcomplex* a, const int32_t* lda, const zcomplex* b,
                           const int32_t* ldb, const zcomplex* beta, zcomplex* c,
                           const int32_t* ldc) {
  if (*m <= 0 || *n <= 0) return;
  // std::complex<double> is layout-compatible with double[2] (real first).
  const double al[2] = {alpha->real(), alpha->imag()};
  const double be[2] = {beta->real(), beta->imag()};
  zgemm_serial_row(zgemm_active_variant(), trans_code(transa), trans_code(transb), *m, *n, *k, al,
                   reinterpret_cast<const double*>(a), *lda, reinterpret_cast<const double*>(b),
                   *ldb, be, reinterpret_cast<double*>(c), *ldc);
}

}  // namespace zml::blas
