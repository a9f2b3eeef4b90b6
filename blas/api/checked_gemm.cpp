// SPDX-License-Identifier: BSD-3-Clause
// Checked entries of dgemm and zgemm (bodies in checked_entry.h, which the
// CBLAS layer runs inline too), and the routing answers their words keep.
#include "blas/api/checked_entry.h"

namespace zml::blas {

namespace entry {

namespace {

// Asked in the order the driver asks them, so that the once-per-process
// message of an unserved code path appears at the same call as before.
uint64_t routing(serv::EntryWord& word, const dispatch::TableBase& table) {
  uint64_t bits = kRoutingKnown;
  if (serv::num_stripes() <= 0 && gemm_driver_generation() != 2) {
    bits |= kShortcutOpen | static_cast<uint64_t>(table.running_index()) << kRowIndexShift;
  }
  return word.add(bits);
}

}  // namespace

uint64_t dgemm_routing() { return routing(g_dgemm_word, kDgemmTable); }
uint64_t zgemm_routing() { return routing(g_zgemm_word, kZgemmTable); }

}  // namespace entry

void dgemm(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
           const int32_t* k, const double* alpha, const double* a, const int32_t* lda,
           const double* b, const int32_t* ldb, const double* beta, double* c, const int32_t* ldc,
           hidden_len, hidden_len) {
  entry::gemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc,
              entry::check_gemm(transa, transb, *m, *n, *k, *lda, *ldb, *ldc));
}

void zgemm(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
           const int32_t* k, const zcomplex* alpha, const zcomplex* a, const int32_t* lda,
           const zcomplex* b, const int32_t* ldb, const zcomplex* beta, zcomplex* c,
           const int32_t* ldc, hidden_len, hidden_len) {
  entry::gemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc,
              entry::check_gemm(transa, transb, *m, *n, *k, *lda, *ldb, *ldc));
}

}  // namespace zml::blas
