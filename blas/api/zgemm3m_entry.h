// SPDX-License-Identifier: BSD-3-Clause
// The zgemm3m entry, shared by the checked routine and the CBLAS layer.
#pragma once

#include <cstdint>

#include "blas/blas.h"
#include "service/entry.h"

namespace zml::blas::entry {

inline void zgemm3m(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
                    const int32_t* k, const zcomplex* alpha, const zcomplex* a, const int32_t* lda,
                    const zcomplex* b, const int32_t* ldb, const zcomplex* beta, zcomplex* c,
                    const int32_t* ldc, int32_t info) {
  serv::checked_entry(
      serv::g_entry_word, serv::kDomainBlas, "ZGEMM3M ", info,
      [](uint64_t, const char* ta, const char* tb, const int32_t* m_, const int32_t* n_,
         const int32_t* k_, const zcomplex* al, const zcomplex* a_, const int32_t* lda_,
         const zcomplex* b_, const int32_t* ldb_, const zcomplex* be, zcomplex* c_,
         const int32_t* ldc_) {
        zml_blas_zgemm3m(ta, tb, m_, n_, k_, al, a_, lda_, b_, ldb_, be, c_, ldc_);
      },
      [](char* buf, size_t size, const char* ta, const char* tb, const int32_t* m_,
         const int32_t* n_, const int32_t* k_, const zcomplex* al, const zcomplex* a_,
         const int32_t* lda_, const zcomplex* b_, const int32_t* ldb_, const zcomplex* be,
         zcomplex* c_, const int32_t* ldc_) {
        serv::format_call(buf, size, "ZGEMM3M(%c,%c,%d,%d,%d,%p,%p,%d,%p,%d,%p,%p,%d)", ta[0],
                          tb[0], *m_, *n_, *k_, static_cast<const void*>(al),
                          static_cast<const void*>(a_), *lda_, static_cast<const void*>(b_), *ldb_,
                          static_cast<const void*>(be), static_cast<void*>(c_), *ldc_);
      },
      transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

}  // namespace zml::blas::entry
