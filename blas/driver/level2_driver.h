// SPDX-License-Identifier: BSD-3-Clause
// Internal pieces of the matrix-vector and triangular-solve drivers that tests
// and the gemv regions reach: the thread choice, the parallel regions and the
// single-thread computations of the active code path.
#pragma once

#include <cstdint>

#include "blas/blas.h"
#include "service/stride.h"

namespace zml::blas {

// The team size for a gemv of m x n (m, n >= 1) given the BLAS-domain thread
// count `threads`, the own-processor answer, the code path and the topology
// answer (only looked at when threads >= 13). 1 means serial.
int32_t gemv_thread_choice(bool complex, bool transposed, int32_t m, int32_t n, int32_t threads,
                           bool own_processor, int32_t code_path, int32_t topology);

// Parallel regions: `threads` members, each computing its own slice of y
// (rows of A for "N", columns for "T"/"C") with the serial routine.
void zml_blas_dgemv_omp(int32_t threads, const char* trans, const int32_t* m, const int32_t* n,
                        const double* alpha, const double* a, const int32_t* lda, const double* x,
                        const int32_t* incx, const double* beta, double* y, const int32_t* incy);
void zml_blas_zgemv_omp(int32_t threads, const char* trans, const int32_t* m, const int32_t* n,
                        const zcomplex* alpha, const zcomplex* a, const int32_t* lda,
                        const zcomplex* x, const int32_t* incx, const zcomplex* beta, zcomplex* y,
                        const int32_t* incy);

// Single-thread computations with the kernels of the active code path.
void zml_blas_dgemv_serial(const char* trans, const int32_t* m, const int32_t* n,
                           const double* alpha, const double* a, const int32_t* lda,
                           const double* x, const int32_t* incx, const double* beta, double* y,
                           const int32_t* incy);
void zml_blas_zgemv_serial(const char* trans, const int32_t* m, const int32_t* n,
                           const zcomplex* alpha, const zcomplex* a, const int32_t* lda,
                           const zcomplex* x, const int32_t* incx, const zcomplex* beta,
                           zcomplex* y, const int32_t* incy);
void zml_blas_dtrsv_serial(const char* uplo, const char* trans, const char* diag, const int32_t* n,
                           const double* a, const int32_t* lda, double* x, const int32_t* incx,
                           hidden_len lu = 1, hidden_len lt = 1, hidden_len ld = 1);
void zml_blas_ztrsv_serial(const char* uplo, const char* trans, const char* diag, const int32_t* n,
                           const zcomplex* a, const int32_t* lda, zcomplex* x, const int32_t* incx,
                           hidden_len lu = 1, hidden_len lt = 1, hidden_len ld = 1);

// Offset (in elements) of logical element `first` of a vector of `len`
// elements with increment inc, as the base of a sub-vector of the same
// increment that ends at logical element `last` (exclusive). A negative
// increment walks from the far end, so the sub-vector's base is where its
// last element lies.
inline int64_t subvector_offset(int64_t len, int32_t inc, int64_t first, int64_t last) {
  return serv::element_offset(len, inc, inc < 0 ? last - 1 : first);
}

}  // namespace zml::blas
