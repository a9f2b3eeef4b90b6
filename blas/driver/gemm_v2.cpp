// SPDX-License-Identifier: BSD-3-Clause
// The second-generation threaded gemm: three multiply descriptors carry the
// operands of either precision, and a team splits C on a grid, each member
// multiplying its block with the single-thread multiply.
#include "blas/driver/gemm_driver.h"
#include "service/threading/team.h"

namespace zml::blas {

const void* gemm_locate_direct(const gemm_desc& d, int32_t i, int32_t j) {
  const int64_t off = (i + static_cast<int64_t>(j) * d.ld) * d.elem_size;
  return static_cast<const char*>(d.ptr) + off;
}

const void* gemm_locate_transposed(const gemm_desc& d, int32_t i, int32_t j) {
  const int64_t off = (j + static_cast<int64_t>(i) * d.ld) * d.elem_size;
  return static_cast<const char*>(d.ptr) + off;
}

gemm_desc gemm_make_desc(const void* ptr, int32_t rows, int32_t cols, int32_t ld, int32_t elem_size,
                         int32_t trans) {
  const int32_t op = trans == 0 ? 1 : trans == 1 ? 2 : trans == 2 ? 4 : 0;
  // "N" and C itself are addressed as stored; every other operation swaps.
  const gemm_locate_fn locate = (op == 1 || op == 0) ? gemm_locate_direct : gemm_locate_transposed;
  return {ptr, rows, cols, ld, elem_size, op, locate};
}

namespace {

// One member's block: rows [i0, i1), columns [j0, j1) of C, all of k.
template <class T>
void v2_block(const gemm_desc& a, const gemm_desc& b, const gemm_desc& c, int32_t transa,
              int32_t transb, int32_t k, const T& alpha, const T& beta, int32_t i0, int32_t i1,
              int32_t j0, int32_t j1) {
  const int32_t mm = i1 - i0, nn = j1 - j0;
  if (mm <= 0 || nn <= 0) return;
  const T* pa = static_cast<const T*>(a.locate(a, i0, 0));
  const T* pb = static_cast<const T*>(b.locate(b, 0, j0));
  T* pc = static_cast<T*>(const_cast<void*>(c.locate(c, i0, j0)));
  gemm_serial(trans_letter(transa), trans_letter(transb), &mm, &nn, &k, &alpha, pa, &a.ld, pb,
              &b.ld, &beta, pc, &c.ld);
}

}  // namespace

void gemm_omp_driver_v2(int32_t threads, gemm_desc a, gemm_desc b, gemm_desc c, int32_t transa,
                        int32_t transb, gemm_scalar alpha, gemm_scalar beta) {
  const int32_t m = c.rows, n = c.cols;
  // The inner dimension is the column count of op(A).
  const int32_t k = transa == 0 ? a.cols : a.rows;
  const bool complex = c.elem_size == 16;
  const GemmUnits u = complex ? zgemm_split_units() : dgemm_split_units();
  serv::run_team(threads, [&](int32_t team, int32_t id) {
    const GemmGrid g = gemm_grid(team, m, n);
    if (id >= g.rows * g.cols) return;
    const int32_t ir = id % g.rows, jc = id / g.rows;
    const int32_t i0 = gemm_cut(m, g.rows, ir, u.rows), i1 = gemm_cut(m, g.rows, ir + 1, u.rows);
    const int32_t j0 = gemm_cut(n, g.cols, jc, u.cols), j1 = gemm_cut(n, g.cols, jc + 1, u.cols);
    if (complex) {
      v2_block<zcomplex>(a, b, c, transa, transb, k, zcomplex(alpha.re, alpha.im),
                         zcomplex(beta.re, beta.im), i0, i1, j0, j1);
    } else {
      v2_block<double>(a, b, c, transa, transb, k, alpha.re, beta.re, i0, i1, j0, j1);
    }
  });
}

}  // namespace zml::blas
