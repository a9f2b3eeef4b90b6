// SPDX-License-Identifier: BSD-3-Clause
// The 3M complex multiply on the real multiply's kernels. With
// op(A) = Ar + i*Ai and op(B) = Br + i*Bi,
//   P1 = Ar*Br, P2 = Ai*Bi, P3 = (Ar + Ai)*(Br + Bi),
//   op(A)*op(B) = (P1 - P2) + i*(P3 - P1 - P2):
// three real products instead of the four a complex product costs. The
// blocked loops pack the real parts, the imaginary parts and their sums of
// each block into real micro-panels, run the real micro-kernel once per
// product over a strip of C into three scratch strips, and fold the strips
// into C with alpha and beta. The price is accuracy: the imaginary part is a
// difference of sums of |Ar + Ai| |Br + Bi| size, so its error bound grows
// with the operands' magnitudes, not the result's (see README).
#include <algorithm>

#include "blas/driver/gemm_batch.h"
#include "blas/driver/gemm_blocked.h"
#include "blas/driver/gemm_driver.h"
#include "blas/driver/zgemm_serial.h"
#include "blas/kernels/zgemm3m_kernel.h"
#include "service/threading/team.h"

namespace zml::blas {

namespace {

// kc as the real multiply takes it: the three products run one after another
// over a strip, so one B micro-panel at a time is live in L1, as for dgemm.
// The three A blocks share the L2 share and the three B panels the L3 share.
gemm_blocked::Blocking blocking_3m(const dgemm_variant& row, int64_t m, int64_t n, int64_t k) {
  using gemm_blocked::balanced;
  using gemm_blocked::clamp64;
  const gemm_blocked::Blocking real = gemm_blocked::blocking_for(row, m, n, k, 8);
  const serv::CacheSizes& cs = serv::cache_sizes();
  const int64_t l2 = cs.l2 > 0 ? cs.l2 : 256 * 1024;
  const int64_t l3 = cs.l3 > 0 ? cs.l3 : 4 * 1024 * 1024;
  const int64_t kc = real.kc, mr = row.mr, nr = row.nr;
  int64_t mc = static_cast<int64_t>(row.l2_share * static_cast<double>(l2)) / (kc * 24);
  mc = balanced(m, clamp64(mc / mr * mr, mr, row.mc_max / mr * mr), mr);
  int64_t nc = static_cast<int64_t>(row.l3_share * static_cast<double>(l3)) / (kc * 24);
  nc = balanced(n, clamp64(nc / nr * nr, nr, row.nc_max / nr * nr), nr);
  return {kc, mc, nc};
}

int64_t round_up(int64_t v, int64_t unit) { return (v + unit - 1) / unit * unit; }

// Doubles of one packed A block, one packed B panel and one scratch strip,
// each rounded to whole cache lines.
struct Layout3m {
  int64_t a, b, strip;
};
Layout3m layout_3m(const dgemm_variant& row, const gemm_blocked::Blocking& bl) {
  const int64_t mcp = round_up(bl.mc, row.mr), ncp = round_up(bl.nc, row.nr);
  return {round_up(mcp * bl.kc, 8), round_up(ncp * bl.kc, 8), round_up(mcp * row.nr, 8)};
}

// Rows [r0, r0 + rows) of the first n columns of complex C into L2.
void prefetch_rows(const double* c, int64_t ldc, int64_t r0, int64_t rows, int64_t n) {
  for (int64_t j = 0; j < n; ++j) {
    const double* col = c + 2 * (r0 + j * ldc);
    for (int64_t d = 0; d < 2 * rows; d += 8) __builtin_prefetch(col + d, 1, 2);
    __builtin_prefetch(col + 2 * rows - 1, 1, 2);
  }
}

void loops_3m(const dgemm_variant& row, const gemm_blocked::Blocking& bl, int32_t ta, int32_t tb,
              int64_t m, int64_t n, int64_t k, const double* alpha, const double* a, int64_t lda,
              const double* b, int64_t ldb, const double* beta, double* c, int64_t ldc,
              double* work) {
  const zgemm3m_variant& k3 = kZgemm3mTable.get();
  const Layout3m lay = layout_3m(row, bl);
  double* pa[3] = {work, work + lay.a, work + 2 * lay.a};
  double* pb[3] = {pa[2] + lay.a, pa[2] + lay.a + lay.b, pa[2] + lay.a + 2 * lay.b};
  double* st[3] = {pb[2] + lay.b, pb[2] + lay.b + lay.strip, pb[2] + lay.b + 2 * lay.strip};
  const int64_t mr = row.mr, nr = row.nr;
  const Zgemm3mBeta first = beta[0] == 0.0 && beta[1] == 0.0   ? Zgemm3mBeta::kZero
                            : beta[0] == 1.0 && beta[1] == 0.0 ? Zgemm3mBeta::kOne
                                                               : Zgemm3mBeta::kGeneral;
  for (int64_t jc = 0; jc < n; jc += bl.nc) {
    const int64_t nb = std::min(bl.nc, n - jc);
    for (int64_t pc = 0; pc < k; pc += bl.kc) {
      const int64_t kb = std::min(bl.kc, k - pc);
      const double* bsrc = tb != 0 ? b + 2 * (jc + pc * ldb) : b + 2 * (pc + jc * ldb);
      k3.pack(bsrc, ldb, nb, kb, tb == 0, tb == 2, nr, pb[0], pb[1], pb[2]);
      // beta is applied by the first pass over k only; later passes accumulate.
      const Zgemm3mBeta mode = pc == 0 ? first : Zgemm3mBeta::kOne;
      for (int64_t ic = 0; ic < m; ic += bl.mc) {
        const int64_t mb = std::min(bl.mc, m - ic);
        const int64_t ldt = round_up(mb, mr);
        const double* asrc = ta != 0 ? a + 2 * (pc + ic * lda) : a + 2 * (ic + pc * lda);
        k3.pack(asrc, lda, mb, kb, ta != 0, ta == 2, mr, pa[0], pa[1], pa[2]);
        for (int64_t jr = 0; jr < nb; jr += nr) {
          const int64_t nn = std::min(nr, nb - jr);
          double* cs = c + 2 * (ic + (jc + jr) * ldc);
          // Whole tiles into the padded strips: the kernels' fastest case.
          for (int t = 0; t < 3; ++t) {
            for (int64_t ir = 0; ir < mb; ir += mr) {
              row.ukernel(mr, nr, kb, 1.0, pa[t] + ir * kb, pb[t] + jr * kb, 0.0, st[t] + ir, ldt);
              // C has left the caches since the last pass over k: fetch the
              // strip's part of it beside the kernels, so the fold finds it.
              if (t == 0) prefetch_rows(cs, ldc, ir, std::min(mr, mb - ir), nn);
            }
          }
          k3.fold(mb, nn, alpha, beta, mode, st[0], st[1], st[2], ldt, cs, ldc);
        }
      }
    }
  }
}

}  // namespace

int64_t zgemm3m_work_doubles(const dgemm_variant& row, int64_t m, int64_t n, int64_t k) {
  const Layout3m lay = layout_3m(row, blocking_3m(row, m, n, k));
  return 3 * (lay.a + lay.b + lay.strip);
}

void zgemm3m_serial(const dgemm_variant& row, int32_t ta, int32_t tb, int64_t m, int64_t n,
                    int64_t k, const double* alpha, const double* a, int64_t lda, const double* b,
                    int64_t ldb, const double* beta, double* c, int64_t ldc, double* work) {
  if (m <= 0 || n <= 0) return;
  if (k <= 0 || (alpha[0] == 0.0 && alpha[1] == 0.0)) {
    zgemm_scale_c(m, n, beta, c, ldc);
    return;
  }
  const gemm_blocked::Blocking bl = blocking_3m(row, m, n, k);
  double* own = nullptr;
  if (work == nullptr) {
    const int64_t doubles = zgemm3m_work_doubles(row, m, n, k);
    own = static_cast<double*>(serv::aligned_alloc(static_cast<size_t>(doubles) * 8, 4096));
    if (own == nullptr) {
      // No work space: the ordinary multiply needs less of it.
      zgemm_serial_row(zgemm_active_variant(), ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c,
                       ldc);
      return;
    }
    work = own;
  }
  loops_3m(row, bl, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, work);
  serv::aligned_free(own);
}

void _zml_blas_zgemm3m(int32_t threads, int32_t ta, int32_t tb, int32_t m, int32_t n, int32_t k,
                       const zcomplex* alpha, const zcomplex* a, int32_t lda, const zcomplex* b,
                       int32_t ldb, const zcomplex* beta, zcomplex* c, int32_t ldc) {
  const dgemm_variant& row = dgemm_active_variant();
  const GemmUnits u = dgemm_split_units();
  const auto* al = reinterpret_cast<const double*>(alpha);
  const auto* be = reinterpret_cast<const double*>(beta);
  serv::run_team(threads, [&](int32_t team, int32_t id) {
    const GemmGrid grid = gemm_grid(team, m, n);
    if (id >= grid.rows * grid.cols) return;
    const int32_t ir = id % grid.rows, jc = id / grid.rows;
    const int32_t i0 = gemm_cut(m, grid.rows, ir, u.rows),
                  i1 = gemm_cut(m, grid.rows, ir + 1, u.rows);
    const int32_t j0 = gemm_cut(n, grid.cols, jc, u.cols),
                  j1 = gemm_cut(n, grid.cols, jc + 1, u.cols);
    if (i1 <= i0 || j1 <= j0) return;
    zgemm3m_serial(row, ta, tb, i1 - i0, j1 - j0, k, al,
                   reinterpret_cast<const double*>(op_block(a, lda, ta, i0, 0)), lda,
                   reinterpret_cast<const double*>(op_block(b, ldb, tb, 0, j0)), ldb, be,
                   reinterpret_cast<double*>(c + i0 + static_cast<int64_t>(j0) * ldc), ldc,
                   nullptr);
  });
}

void zml_blas_zgemm3m(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
                      const int32_t* k, const zcomplex* alpha, const zcomplex* a,
                      const int32_t* lda, const zcomplex* b, const int32_t* ldb,
                      const zcomplex* beta, zcomplex* c, const int32_t* ldc, hidden_len,
                      hidden_len) {
  const int32_t mm = *m, nn = *n, kk = *k;
  if (mm <= 0 || nn <= 0) return;
  const int32_t ta = trans_code(transa), tb = trans_code(transb);
  const auto* al = reinterpret_cast<const double*>(alpha);
  const auto* be = reinterpret_cast<const double*>(beta);
  if (mm > kZgemm3mMin && nn > kZgemm3mMin && kk > kZgemm3mMin) {
    const int32_t T = serv::team_size(serv::kDomainBlas);
    if (T <= 1) {
      zgemm3m_serial(dgemm_active_variant(), ta, tb, mm, nn, kk, al,
                     reinterpret_cast<const double*>(a), *lda, reinterpret_cast<const double*>(b),
                     *ldb, be, reinterpret_cast<double*>(c), *ldc, nullptr);
    } else {
      _zml_blas_zgemm3m(T, ta, tb, mm, nn, kk, alpha, a, *lda, b, *ldb, beta, c, *ldc);
    }
    return;
  }
  // Too small for three products to pay: the ordinary multiply, on one
  // thread whatever the thread count.
  zgemm_serial_row(zgemm_active_variant(), ta, tb, mm, nn, kk, al,
                   reinterpret_cast<const double*>(a), *lda, reinterpret_cast<const double*>(b),
                   *ldb, be, reinterpret_cast<double*>(c), *ldc);
}

}  // namespace zml::blas
