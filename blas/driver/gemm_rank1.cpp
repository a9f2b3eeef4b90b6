// SPDX-License-Identifier: BSD-3-Clause
// The rank-1 update behind gemm's inner dimension 1: C := beta*C + alpha*x*y^T,
// column by column, with its own region that splits the columns of C.
#include "blas/driver/gemm_driver.h"
#include "service/service.h"
#include "service/threading/team.h"

namespace zml::blas {

namespace {

// Complex products written out: the library's complex multiply would check
// for infinities on every element.
struct Cx {
  double re, im;
};
inline Cx mul(Cx a, Cx b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }
inline Cx load(const zcomplex* p, bool conj) {
  const double* d = reinterpret_cast<const double*>(p);
  return {d[0], conj ? -d[1] : d[1]};
}
inline void store(zcomplex* p, Cx v) {
  double* d = reinterpret_cast<double*>(p);
  d[0] = v.re;
  d[1] = v.im;
}

// Columns [j0, j1) of the real update.
void dger_columns(int32_t m, int32_t j0, int32_t j1, double alpha, const double* x, int32_t incx,
                  const double* y, int32_t incy, double beta, double* c, int32_t ldc) {
  for (int64_t j = j0; j < j1; ++j) {
    double* cj = c + j * ldc;
    if (beta == 0.0) {
      for (int64_t i = 0; i < m; ++i) cj[i] = 0.0;
    } else if (beta != 1.0) {
      for (int64_t i = 0; i < m; ++i) cj[i] *= beta;
    }
    if (alpha == 0.0) continue;
    const double s = alpha * y[j * incy];
    if (incx == 1) {
      for (int64_t i = 0; i < m; ++i) cj[i] += s * x[i];
    } else {
      for (int64_t i = 0; i < m; ++i) cj[i] += s * x[i * incx];
    }
  }
}

void zger_columns(int32_t m, int32_t j0, int32_t j1, Cx alpha, const zcomplex* x, int32_t incx,
                  bool conj_x, const zcomplex* y, int32_t incy, bool conj_y, Cx beta, zcomplex* c,
                  int32_t ldc) {
  const bool beta_zero = beta.re == 0.0 && beta.im == 0.0;
  const bool beta_one = beta.re == 1.0 && beta.im == 0.0;
  const bool alpha_zero = alpha.re == 0.0 && alpha.im == 0.0;
  for (int64_t j = j0; j < j1; ++j) {
    zcomplex* cj = c + j * ldc;
    if (beta_zero) {
      for (int64_t i = 0; i < m; ++i) store(cj + i, {0.0, 0.0});
    } else if (!beta_one) {
      for (int64_t i = 0; i < m; ++i) store(cj + i, mul(beta, load(cj + i, false)));
    }
    if (alpha_zero) continue;
    const Cx s = mul(alpha, load(y + j * incy, conj_y));
    for (int64_t i = 0; i < m; ++i) {
      const Cx t = mul(s, load(x + i * incx, conj_x));
      const Cx old = load(cj + i, false);
      store(cj + i, {old.re + t.re, old.im + t.im});
    }
  }
}

int32_t threads_for(int32_t m, int32_t n, bool complex) {
  return rank1_thread_choice(serv::team_size(serv::kDomainBlas), m, n, complex);
}

}  // namespace

int32_t rank1_thread_choice(int32_t T, int32_t m, int32_t n, bool complex) {
  if (T <= 1 || n < 2) return 1;
  // The update streams C once; a member pays for its fork only when it gets
  // at least 256 KiB of C (a slice that is not already cache-resident).
  constexpr int64_t kBytesPerMember = 256 * 1024;
  const int64_t bytes = static_cast<int64_t>(m) * n * (complex ? 16 : 8);
  int64_t t = bytes / kBytesPerMember;
  if (t > n) t = n;
  if (t > T) t = T;
  return t < 2 ? 1 : static_cast<int32_t>(t);
}

void zml_blas_dgemmger_omp(int32_t threads, int32_t m, int32_t n, double alpha, const double* x,
                           int32_t incx, const double* y, int32_t incy, double beta, double* c,
                           int32_t ldc) {
  serv::run_team(threads, [&](int32_t team, int32_t id) {
    dger_columns(m, gemm_cut(n, team, id, 4), gemm_cut(n, team, id + 1, 4), alpha, x, incx, y, incy,
                 beta, c, ldc);
  });
}

void zml_blas_zgemmger_omp(int32_t threads, int32_t m, int32_t n, zcomplex alpha, const zcomplex* x,
                           int32_t incx, bool conj_x, const zcomplex* y, int32_t incy, bool conj_y,
                           zcomplex beta, zcomplex* c, int32_t ldc) {
  const Cx al{alpha.real(), alpha.imag()}, be{beta.real(), beta.imag()};
  serv::run_team(threads, [&](int32_t team, int32_t id) {
    zger_columns(m, gemm_cut(n, team, id, 4), gemm_cut(n, team, id + 1, 4), al, x, incx, conj_x, y,
                 incy, conj_y, be, c, ldc);
  });
}

void zml_blas_dgemmger(int32_t m, int32_t n, double alpha, const double* x, int32_t incx,
                       const double* y, int32_t incy, double beta, double* c, int32_t ldc) {
  if (m <= 0 || n <= 0) return;
  const int32_t t = threads_for(m, n, false);
  if (t > 1) {
    zml_blas_dgemmger_omp(t, m, n, alpha, x, incx, y, incy, beta, c, ldc);
  } else {
    dger_columns(m, 0, n, alpha, x, incx, y, incy, beta, c, ldc);
  }
}

void zml_blas_zgemmger(int32_t m, int32_t n, zcomplex alpha, const zcomplex* x, int32_t incx,
                       bool conj_x, const zcomplex* y, int32_t incy, bool conj_y, zcomplex beta,
                       zcomplex* c, int32_t ldc) {
  if (m <= 0 || n <= 0) return;
  const int32_t t = threads_for(m, n, true);
  if (t > 1) {
    zml_blas_zgemmger_omp(t, m, n, alpha, x, incx, conj_x, y, incy, conj_y, beta, c, ldc);
  } else {
    zger_columns(m, 0, n, {alpha.real(), alpha.imag()}, x, incx, conj_x, y, incy, conj_y,
                 {beta.real(), beta.imag()}, c, ldc);
  }
}

}  // namespace zml::blas
