// SPDX-License-Identifier: BSD-3-Clause
// Single-thread gemv: beta is applied here, strided vectors are packed in
// chunks on the stack, and the kernels of the active code path accumulate.
#include "blas/driver/level2_driver.h"
#include "blas/kernels/level1_kernel.h"
#include "blas/kernels/level2_kernel.h"
#include "service/stride.h"

namespace zml::blas {

namespace {

// Elements of a strided vector packed at a time: the buffers stay on the stack
// (2 x 16 KB complex), so the serial path never allocates and cannot fail.
constexpr int64_t kChunk = 1024;

template <int W, class P>
P* element(P* base, int64_t len, int32_t inc, int64_t i) {
  return base + W * serv::element_offset(len, inc, i);
}

template <int W>
void pack(const double* base, int64_t len, int32_t inc, int64_t lo, int64_t hi, double* dst) {
  for (int64_t i = lo; i < hi; ++i) {
    const double* e = element<W>(base, len, inc, i);
    for (int k = 0; k < W; ++k) dst[W * (i - lo) + k] = e[k];
  }
}

template <int W>
void unpack(const double* src, double* base, int64_t len, int32_t inc, int64_t lo, int64_t hi) {
  for (int64_t i = lo; i < hi; ++i) {
    double* e = element<W>(base, len, inc, i);
    for (int k = 0; k < W; ++k) e[k] = src[W * (i - lo) + k];
  }
}

// y := beta*y, with beta = 0 overwriting (NaN in y must not survive). The
// order of the elements does not matter here, so y is walked from its base
// with |incy|; a step that does not fit the kernels' 32-bit increment (only
// |INT32_MIN|) is scaled one element at a time.
template <int W>
void apply_beta(const double* beta, double* y, int64_t len, int32_t inc) {
  const int64_t step_elems = serv::stride_magnitude(inc);
  const int64_t step = W * step_elems;
  const bool narrow = step_elems <= INT32_MAX;
  const auto count = static_cast<int32_t>(narrow ? len : 1);
  const auto kernel_inc = static_cast<int32_t>(narrow ? step_elems : 1);
  const int64_t calls = narrow ? 1 : len;
  if (W == 1) {
    if (beta[0] == 1.0) return;
    if (beta[0] == 0.0) {
      for (int64_t i = 0; i < len; ++i) y[i * step] = 0.0;
      return;
    }
    const auto scal = kDscalTable.get().kernel;
    for (int64_t c = 0; c < calls; ++c) scal(count, beta[0], y + c * step, kernel_inc);
  } else {
    if (beta[0] == 1.0 && beta[1] == 0.0) return;
    if (beta[0] == 0.0 && beta[1] == 0.0) {
      for (int64_t i = 0; i < len; ++i) y[i * step] = y[i * step + 1] = 0.0;
      return;
    }
    const auto scal = kZscalTable.get().kernel;
    for (int64_t c = 0; c < calls; ++c) scal(count, beta, y + c * step, kernel_inc);
  }
}

// y := beta*y + alpha*op(A)*x around a kernel call(rows, cols, a, x, y) that
// accumulates alpha*op(A)*x into contiguous y from contiguous x. For "N" the
// y index runs over rows of A and x over columns; for "T"/"C" the reverse.
template <int W, class Kernel>
void gemv_serial(bool transposed, int32_t m, int32_t n, bool alpha_zero, const double* a,
                 int64_t lda, const double* x, int32_t incx, const double* beta, double* y,
                 int32_t incy, Kernel&& kernel) {
  if (m <= 0 || n <= 0) return;
  const int64_t leny = transposed ? n : m;
  const int64_t lenx = transposed ? m : n;
  apply_beta<W>(beta, y, leny, incy);
  if (alpha_zero) return;
  auto call = [&](int64_t r0, int64_t r1, int64_t c0, int64_t c1, const double* xc, double* yc) {
    if (transposed) {
      kernel(static_cast<int32_t>(c1 - c0), static_cast<int32_t>(r1 - r0), a + W * (c0 + r0 * lda),
             xc, yc);
    } else {
      kernel(static_cast<int32_t>(r1 - r0), static_cast<int32_t>(c1 - c0), a + W * (r0 + c0 * lda),
             xc, yc);
    }
  };
  if (incx == 1 && incy == 1) {
    call(0, leny, 0, lenx, x, y);
    return;
  }
  double xbuf[W * kChunk];
  double ybuf[W * kChunk];
  const int64_t ystep = incy == 1 ? leny : kChunk;
  const int64_t xstep = incx == 1 ? lenx : kChunk;
  for (int64_t r0 = 0; r0 < leny; r0 += ystep) {
    const int64_t r1 = (leny - r0 < ystep) ? leny : r0 + ystep;
    double* yc = y + W * r0;
    if (incy != 1) {
      pack<W>(y, leny, incy, r0, r1, ybuf);
      yc = ybuf;
    }
    for (int64_t c0 = 0; c0 < lenx; c0 += xstep) {
      const int64_t c1 = (lenx - c0 < xstep) ? lenx : c0 + xstep;
      const double* xc = x + W * c0;
      if (incx != 1) {
        pack<W>(x, lenx, incx, c0, c1, xbuf);
        xc = xbuf;
      }
      call(r0, r1, c0, c1, xc, yc);
    }
    if (incy != 1) unpack<W>(ybuf, y, leny, incy, r0, r1);
  }
}

}  // namespace

void zml_blas_dgemv_serial(const char* trans, const int32_t* m, const int32_t* n,
                           const double* alpha, const double* a, const int32_t* lda,
                           const double* x, const int32_t* incx, const double* beta, double* y,
                           const int32_t* incy) {
  const bool transposed = trans_code(trans) > 0;
  const dgemv_variant& row = kDgemvTable.get();
  const dgemv_fn fn = transposed ? row.gemv_t : row.gemv_n;
  const double al = *alpha;
  const int64_t ld = *lda;
  gemv_serial<1>(transposed, *m, *n, al == 0.0, a, ld, x, *incx, beta, y, *incy,
                 [&](int32_t rows, int32_t cols, const double* ap, const double* xp, double* yp) {
                   fn(rows, cols, al, ap, ld, xp, yp, row.tune);
                 });
}

void zml_blas_zgemv_serial(const char* trans, const int32_t* m, const int32_t* n,
                           const zcomplex* alpha, const zcomplex* a, const int32_t* lda,
                           const zcomplex* x, const int32_t* incx, const zcomplex* beta,
                           zcomplex* y, const int32_t* incy) {
  const int32_t code = trans_code(trans);
  const zgemv_variant& row = kZgemvTable.get();
  const zgemv_fn fn = code == 2 ? row.gemv_c : code == 1 ? row.gemv_t : row.gemv_n;
  const double* al = reinterpret_cast<const double*>(alpha);
  const int64_t ld = *lda;
  gemv_serial<2>(code > 0, *m, *n, al[0] == 0.0 && al[1] == 0.0, reinterpret_cast<const double*>(a),
                 ld, reinterpret_cast<const double*>(x), *incx,
                 reinterpret_cast<const double*>(beta), reinterpret_cast<double*>(y), *incy,
                 [&](int32_t rows, int32_t cols, const double* ap, const double* xp, double* yp) {
                   fn(rows, cols, al, ap, ld, xp, yp, row.tune);
                 });
}

}  // namespace zml::blas
