// SPDX-License-Identifier: BSD-3-Clause
// What the checked entries share: installing the library's parameter-error
// routine, reporting the first bad argument under the six-character name, and
// the gemm entries themselves. The gemm bodies are inline so that the CBLAS
// layer runs them without one more call in between: tiny products are called
// in loops, where every frame of the call chain shows.
#pragma once

#include <type_traits>

#include "blas/blas.h"
#include "blas/driver/gemm_driver.h"
#include "service/service.h"
#include "service/verbose.h"

namespace zml::blas::entry {

inline int32_t max1(int32_t v) { return v > 1 ? v : 1; }

// Installs the library's parameter-error routine first (the first installer
// wins), then reports `info` when it is not 0. Returns whether checks passed.
inline bool checked(const char* name, int32_t info) {
  zml_serv_set_xerbla(zml_serv_xerbla);
  if (info == 0) return true;
  serv::param_error(name, info);
  return false;
}

// The number of the first bad gemm argument, or 0.
inline int32_t check_gemm(const char* transa, const char* transb, int32_t m, int32_t n, int32_t k,
                          int32_t lda, int32_t ldb, int32_t ldc) {
  const int32_t ta = trans_code(transa), tb = trans_code(transb);
  if (ta < 0) return 1;
  if (tb < 0) return 2;
  if (m < 0) return 3;
  if (n < 0) return 4;
  if (k < 0) return 5;
  if (lda < max1(ta == 0 ? m : k)) return 8;
  if (ldb < max1(tb == 0 ? k : n)) return 10;
  if (ldc < max1(m)) return 13;
  return 0;
}

// The checked gemm of element type T (double or zcomplex): checks, then the
// driver, with the verbose line written for failed calls too.
template <class T>
inline void gemm(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
                 const int32_t* k, const T* alpha, const T* a, const int32_t* lda, const T* b,
                 const int32_t* ldb, const T* beta, T* c, const int32_t* ldc) {
  constexpr bool real = std::is_same_v<T, double>;
  const bool ok =
      checked(real ? "DGEMM " : "ZGEMM ", check_gemm(transa, transb, *m, *n, *k, *lda, *ldb, *ldc));
  serv::run_traced(
      ok,
      [&] {
        if (gemm_goes_serial(*m, *n, *k)) {
          gemm_serial(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
        } else if constexpr (real) {
          zml_blas_dgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
        } else {
          zml_blas_zgemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
        }
      },
      real ? "DGEMM(%c,%c,%d,%d,%d,%p,%p,%d,%p,%d,%p,%p,%d)"
           : "ZGEMM(%c,%c,%d,%d,%d,%p,%p,%d,%p,%d,%p,%p,%d)",
      transa[0], transb[0], *m, *n, *k, static_cast<const void*>(alpha),
      static_cast<const void*>(a), *lda, static_cast<const void*>(b), *ldb,
      static_cast<const void*>(beta), static_cast<void*>(c), *ldc);
}

}  // namespace zml::blas::entry
