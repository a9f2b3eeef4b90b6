// SPDX-License-Identifier: BSD-3-Clause
// The gemv drivers: quick return for an empty product, then the thread choice
// decides between the parallel region and the single-thread computation.
#include "blas/driver/level2_driver.h"
#include "service/service.h"
#include "service/threading/team.h"

namespace zml::blas {

namespace {

int32_t choose_threads(bool complex, const char* trans, int32_t m, int32_t n) {
  const int32_t threads = serv::team_size(serv::kDomainBlas);
  // The topology probe is only consulted by large teams; skip it otherwise.
  const int32_t topology = threads >= 13 ? serv::topology_answer() : 0;
  return gemv_thread_choice(complex, trans_code(trans) > 0, m, n, threads, zml_serv_own_processor(),
                            zml_serv_get_code_path(), topology);
}

}  // namespace

void zml_blas_dgemv(const char* trans, const int32_t* m, const int32_t* n, const double* alpha,
                    const double* a, const int32_t* lda, const double* x, const int32_t* incx,
                    const double* beta, double* y, const int32_t* incy) {
  if (*m < 1 || *n < 1) return;
  const int32_t t = choose_threads(false, trans, *m, *n);
  if (t > 1) {
    zml_blas_dgemv_omp(t, trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
  } else {
    zml_blas_dgemv_serial(trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
  }
}

void zml_blas_zgemv(const char* trans, const int32_t* m, const int32_t* n, const zcomplex* alpha,
                    const zcomplex* a, const int32_t* lda, const zcomplex* x, const int32_t* incx,
                    const zcomplex* beta, zcomplex* y, const int32_t* incy) {
  if (*m < 1 || *n < 1) return;
  const int32_t t = choose_threads(true, trans, *m, *n);
  if (t > 1) {
    zml_blas_zgemv_omp(t, trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
  } else {
    zml_blas_zgemv_serial(trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
  }
}

}  // namespace zml::blas
