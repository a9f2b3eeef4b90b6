// SPDX-License-Identifier: BSD-3-Clause
// The gemm entries, shared by the checked routines and the CBLAS layer: the
// checks, the route of a product the threaded driver would run on one thread
// straight to the single-thread multiply, and the verbose text. Inline, so
// that cblas_dgemm reaches the small kernel through one call: tiny products
// are called in loops, where every frame of the call chain shows.
#pragma once

#include <cstdint>
#include <type_traits>

#include "blas/api/cblas_layer.h"
#include "blas/blas.h"
#include "blas/driver/gemm_driver.h"
#include "blas/driver/zgemm_serial.h"
#include "service/entry.h"
#include "service/service.h"

namespace zml::blas::entry {

using cblas::max1;

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

// The gemm entry words hold, above the service bits, kRoutingKnown once the
// first product with m, n, k >= 2 has asked the routing questions (stripes,
// driver generation), then kShortcutOpen unless stripes or the second
// generation route every product through zml_blas_?gemm, and the index of the
// single-thread multiply's row among the table's rows from kRowIndexShift up.
inline serv::EntryWord g_dgemm_word;
inline serv::EntryWord g_zgemm_word;
inline constexpr uint64_t kRoutingKnown = 4;
inline constexpr uint64_t kShortcutOpen = 8;
inline constexpr int kRowIndexShift = 4;
static_assert(((kRoutingKnown | kShortcutOpen) & serv::EntryWord::kServiceBits) == 0);
static_assert(dispatch::TableBase::kMaxRows <= 16, "a row index fits in four bits");

template <class T>
const auto& gemm_table() {
  if constexpr (std::is_same_v<T, double>) {
    return kDgemmTable;
  } else {
    return kZgemmTable;
  }
}

// The row of the shortcut, or null when it is closed.
template <class Row>
const Row* shortcut_row(const dispatch::Table<Row>& table, uint64_t answers) {
  if ((answers & kShortcutOpen) == 0) return nullptr;
  return table.rows()[(answers >> kRowIndexShift) & 15];
}

// Ask the routing questions once and add the answers to the word.
uint64_t dgemm_routing();
uint64_t zgemm_routing();

// Whether the threaded driver runs an m x n x k product (m, n, k >= 2) on one
// thread whatever the thread count: its first routing keeps one thread, or
// the work would give a second member less than its minimum share.
inline bool gemm_one_thread(int32_t m, int32_t n, int32_t k, bool complex) {
  const int64_t work = int64_t{m} * n * k * (complex ? 4 : 1);
  return work < 2 * kGemmV1MinWork || gemm_v1_first_routing(m, n, k) == GemmV1Route::kSerial;
}

inline void serial_on_row(const dgemm_variant& row, const char* ta, const char* tb, int32_t m,
                          int32_t n, int32_t k, const double* alpha, const double* a, int32_t lda,
                          const double* b, int32_t ldb, const double* beta, double* c,
                          int32_t ldc) {
  dgemm_serial_row(row, trans_code(ta) != 0, trans_code(tb) != 0, m, n, k, *alpha, a, lda, b, ldb,
                   *beta, c, ldc);
}
inline void serial_on_row(const zgemm_variant& row, const char* ta, const char* tb, int32_t m,
                          int32_t n, int32_t k, const zcomplex* alpha, const zcomplex* a,
                          int32_t lda, const zcomplex* b, int32_t ldb, const zcomplex* beta,
                          zcomplex* c, int32_t ldc) {
  // std::complex<double> is layout-compatible with double[2] (real first).
  zgemm_serial_row(row, trans_code(ta), trans_code(tb), m, n, k,
                   reinterpret_cast<const double*>(alpha), reinterpret_cast<const double*>(a), lda,
                   reinterpret_cast<const double*>(b), ldb, reinterpret_cast<const double*>(beta),
                   reinterpret_cast<double*>(c), ldc);
}

// The gemm of element type T (double or zcomplex). `info` is the number of
// the first bad argument: check_gemm's for the checked routines, a literal 0
// from the CBLAS layer, whose own checks cover the same conditions.
template <class T>
inline void gemm(const char* transa, const char* transb, const int32_t* m, const int32_t* n,
                 const int32_t* k, const T* alpha, const T* a, const int32_t* lda, const T* b,
                 const int32_t* ldb, const T* beta, T* c, const int32_t* ldc, int32_t info) {
  constexpr bool real = std::is_same_v<T, double>;
  using Row = std::conditional_t<real, dgemm_variant, zgemm_variant>;
  serv::checked_entry(
      real ? g_dgemm_word : g_zgemm_word, serv::kDomainBlas, real ? "DGEMM " : "ZGEMM ", info,
      [](uint64_t answers, const char* ta, const char* tb, const int32_t* m_, const int32_t* n_,
         const int32_t* k_, const T* al, const T* a_, const int32_t* lda_, const T* b_,
         const int32_t* ldb_, const T* be, T* c_, const int32_t* ldc_) {
        const int32_t mm = *m_, nn = *n_, kk = *k_;
        if (mm > 1 && nn > 1 && kk > 1) {
          if ((answers & kRoutingKnown) == 0) answers = real ? dgemm_routing() : zgemm_routing();
          const Row* row = shortcut_row(gemm_table<T>(), answers);
          if (row != nullptr && gemm_one_thread(mm, nn, kk, !real)) {
            serial_on_row(*row, ta, tb, mm, nn, kk, al, a_, *lda_, b_, *ldb_, be, c_, *ldc_);
            return;
          }
        }
        if constexpr (real) {
          zml_blas_dgemm(ta, tb, m_, n_, k_, al, a_, lda_, b_, ldb_, be, c_, ldc_);
        } else {
          zml_blas_zgemm(ta, tb, m_, n_, k_, al, a_, lda_, b_, ldb_, be, c_, ldc_);
        }
      },
      [](char* buf, size_t size, const char* ta, const char* tb, const int32_t* m_,
         const int32_t* n_, const int32_t* k_, const T* al, const T* a_, const int32_t* lda_,
         const T* b_, const int32_t* ldb_, const T* be, T* c_, const int32_t* ldc_) {
        serv::format_call(buf, size,
                          real ? "DGEMM(%c,%c,%d,%d,%d,%p,%p,%d,%p,%d,%p,%p,%d)"
                               : "ZGEMM(%c,%c,%d,%d,%d,%p,%p,%d,%p,%d,%p,%p,%d)",
                          ta[0], tb[0], *m_, *n_, *k_, static_cast<const void*>(al),
                          static_cast<const void*>(a_), *lda_, static_cast<const void*>(b_), *ldb_,
                          static_cast<const void*>(be), static_cast<void*>(c_), *ldc_);
      },
      transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

}  // namespace zml::blas::entry
