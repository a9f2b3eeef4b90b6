// SPDX-License-Identifier: BSD-3-Clause
// Checked entries of dtrsm and ztrsm: the argument checks in their fixed
// order, reported under the six-character name, around the driver.
#include <type_traits>

#include "blas/api/checked_entry.h"

namespace zml::blas {

namespace {

using entry::max1;

bool either(const char* c, char x, char y) { return (c[0] & ~0x20) == x || (c[0] & ~0x20) == y; }

// The number of the first bad trsm argument, or 0.
int32_t check_trsm(const char* side, const char* uplo, const char* transa, const char* diag,
                   int32_t m, int32_t n, int32_t lda, int32_t ldb) {
  if (!either(side, 'L', 'R')) return 1;
  if (!either(uplo, 'U', 'L')) return 2;
  if (trans_code(transa) < 0) return 3;
  if (!either(diag, 'U', 'N')) return 4;
  if (m < 0) return 5;
  if (n < 0) return 6;
  if (lda < max1((side[0] & ~0x20) == 'L' ? m : n)) return 9;
  if (ldb < max1(m)) return 11;
  return 0;
}

const void* vp(const void* p) { return p; }

template <class T>
void trsm(const char* side, const char* uplo, const char* transa, const char* diag,
          const int32_t* m, const int32_t* n, const T* alpha, const T* a, const int32_t* lda, T* b,
          const int32_t* ldb) {
  constexpr bool real = std::is_same_v<T, double>;
  serv::checked_entry(
      serv::g_entry_word, serv::kDomainBlas, real ? "DTRSM " : "ZTRSM ",
      check_trsm(side, uplo, transa, diag, *m, *n, *lda, *ldb),
      [](uint64_t, auto... args) {
        if constexpr (real) {
          zml_blas_dtrsm(args...);
        } else {
          zml_blas_ztrsm(args...);
        }
      },
      [](char* buf, size_t size, const char* s, const char* u, const char* t, const char* d,
         const int32_t* m_, const int32_t* n_, const T* al, const T* a_, const int32_t* lda_, T* b_,
         const int32_t* ldb_) {
        serv::format_call(buf, size,
                          real ? "DTRSM(%c,%c,%c,%c,%d,%d,%p,%p,%d,%p,%d)"
                               : "ZTRSM(%c,%c,%c,%c,%d,%d,%p,%p,%d,%p,%d)",
                          s[0], u[0], t[0], d[0], *m_, *n_, vp(al), vp(a_), *lda_, vp(b_), *ldb_);
      },
      side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
}

}  // namespace

void dtrsm(const char* side, const char* uplo, const char* transa, const char* diag,
           const int32_t* m, const int32_t* n, const double* alpha, const double* a,
           const int32_t* lda, double* b, const int32_t* ldb, hidden_len, hidden_len, hidden_len,
           hidden_len) {
  trsm(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
}

void ztrsm(const char* side, const char* uplo, const char* transa, const char* diag,
           const int32_t* m, const int32_t* n, const zcomplex* alpha, const zcomplex* a,
           const int32_t* lda, zcomplex* b, const int32_t* ldb, hidden_len, hidden_len, hidden_len,
           hidden_len) {
  trsm(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
}

}  // namespace zml::blas
