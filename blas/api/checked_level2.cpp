// SPDX-License-Identifier: BSD-3-Clause
// Checked entries of gemv and trsv: the argument checks in their fixed order,
// reported under the six-character name, around the driver.
#include <type_traits>

#include "blas/api/checked_entry.h"

namespace zml::blas {

namespace {

using entry::max1;

bool is_uplo(const char* c) { return (c[0] & ~0x20) == 'U' || (c[0] & ~0x20) == 'L'; }
bool is_diag(const char* c) { return (c[0] & ~0x20) == 'U' || (c[0] & ~0x20) == 'N'; }

// The number of the first bad gemv argument, or 0.
int32_t check_gemv(const char* trans, int32_t m, int32_t n, int32_t lda, int32_t incx,
                   int32_t incy) {
  if (trans_code(trans) < 0) return 1;
  if (m < 0) return 2;
  if (n < 0) return 3;
  if (lda < max1(m)) return 6;
  if (incx == 0) return 8;
  if (incy == 0) return 11;
  return 0;
}

// The number of the first bad trsv argument, or 0.
int32_t check_trsv(const char* uplo, const char* trans, const char* diag, int32_t n, int32_t lda,
                   int32_t incx) {
  if (!is_uplo(uplo)) return 1;
  if (trans_code(trans) < 0) return 2;
  if (!is_diag(diag)) return 3;
  if (n < 0) return 4;
  if (lda < max1(n)) return 6;
  if (incx == 0) return 8;
  return 0;
}

// Pointers as the verbose line's %p takes them.
const void* vp(const void* p) { return p; }

// The gemv entry of element type T (double or zcomplex).
template <class T>
void gemv(const char* trans, const int32_t* m, const int32_t* n, const T* alpha, const T* a,
          const int32_t* lda, const T* x, const int32_t* incx, const T* beta, T* y,
          const int32_t* incy) {
  constexpr bool real = std::is_same_v<T, double>;
  serv::checked_entry(
      serv::g_entry_word, serv::kDomainBlas, real ? "DGEMV " : "ZGEMV ",
      check_gemv(trans, *m, *n, *lda, *incx, *incy),
      [](uint64_t, auto... args) {
        if constexpr (real) {
          zml_blas_dgemv(args...);
        } else {
          zml_blas_zgemv(args...);
        }
      },
      [](char* buf, size_t size, const char* t, const int32_t* m_, const int32_t* n_, const T* al,
         const T* a_, const int32_t* lda_, const T* x_, const int32_t* incx_, const T* be, T* y_,
         const int32_t* incy_) {
        serv::format_call(buf, size,
                          real ? "DGEMV(%c,%d,%d,%p,%p,%d,%p,%d,%p,%p,%d)"
                               : "ZGEMV(%c,%d,%d,%p,%p,%d,%p,%d,%p,%p,%d)",
                          t[0], *m_, *n_, vp(al), vp(a_), *lda_, vp(x_), *incx_, vp(be), vp(y_),
                          *incy_);
      },
      trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
}

// The trsv entry of element type T.
template <class T>
void trsv(const char* uplo, const char* trans, const char* diag, const int32_t* n, const T* a,
          const int32_t* lda, T* x, const int32_t* incx) {
  constexpr bool real = std::is_same_v<T, double>;
  serv::checked_entry(
      serv::g_entry_word, serv::kDomainBlas, real ? "DTRSV " : "ZTRSV ",
      check_trsv(uplo, trans, diag, *n, *lda, *incx),
      [](uint64_t, auto... args) {
        if constexpr (real) {
          zml_blas_dtrsv(args...);
        } else {
          zml_blas_ztrsv(args...);
        }
      },
      [](char* buf, size_t size, const char* u, const char* t, const char* d, const int32_t* n_,
         const T* a_, const int32_t* lda_, T* x_, const int32_t* incx_) {
        serv::format_call(
            buf, size, real ? "DTRSV(%c,%c,%c,%d,%p,%d,%p,%d)" : "ZTRSV(%c,%c,%c,%d,%p,%d,%p,%d)",
            u[0], t[0], d[0], *n_, vp(a_), *lda_, vp(x_), *incx_);
      },
      uplo, trans, diag, n, a, lda, x, incx);
}

}  // namespace

void dgemv(const char* trans, const int32_t* m, const int32_t* n, const double* alpha,
           const double* a, const int32_t* lda, const double* x, const int32_t* incx,
           const double* beta, double* y, const int32_t* incy, hidden_len) {
  gemv(trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
}

void zgemv(const char* trans, const int32_t* m, const int32_t* n, const zcomplex* alpha,
           const zcomplex* a, const int32_t* lda, const zcomplex* x, const int32_t* incx,
           const zcomplex* beta, zcomplex* y, const int32_t* incy, hidden_len) {
  gemv(trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
}

void dtrsv(const char* uplo, const char* trans, const char* diag, const int32_t* n, const double* a,
           const int32_t* lda, double* x, const int32_t* incx, hidden_len, hidden_len, hidden_len) {
  trsv(uplo, trans, diag, n, a, lda, x, incx);
}

void ztrsv(const char* uplo, const char* trans, const char* diag, const int32_t* n,
           const zcomplex* a, const int32_t* lda, zcomplex* x, const int32_t* incx, hidden_len,
           hidden_len, hidden_len) {
  trsv(uplo, trans, diag, n, a, lda, x, incx);
}

}  // namespace zml::blas
