// SPDX-License-Identifier: BSD-3-Clause
// The batched gemm entries, shared by the checked routines and the CBLAS
// layer: the checks across all groups, the verbose text and the call of the
// batch driver.
#pragma once

#include <climits>
#include <cstdint>

#include "blas/api/cblas_layer.h"
#include "blas/blas.h"
#include "blas/driver/gemm_batch.h"
#include "service/entry.h"

namespace zml::blas::entry {

// The number of the first bad batch argument, or 0. The checks run argument
// by argument across all groups (every transa, then every transb, ...), so
// the reported number does not depend on which group is bad first.
inline int32_t check_gemm_batch(const char* transa, const char* transb, const int32_t* m,
                                const int32_t* n, const int32_t* k, const int32_t* lda,
                                const int32_t* ldb, const int32_t* ldc, int32_t group_count,
                                const int32_t* group_size) {
  using cblas::max1;
  if (group_count < 0) return 14;
  const auto any = [group_count](auto bad) {
    for (int32_t g = 0; g < group_count; ++g) {
      if (bad(g)) return true;
    }
    return false;
  };
  if (any([&](int32_t g) { return trans_code(transa + g) < 0; })) return 1;
  if (any([&](int32_t g) { return trans_code(transb + g) < 0; })) return 2;
  if (any([&](int32_t g) { return m[g] < 0; })) return 3;
  if (any([&](int32_t g) { return n[g] < 0; })) return 4;
  if (any([&](int32_t g) { return k[g] < 0; })) return 5;
  if (any([&](int32_t g) { return lda[g] < max1(trans_code(transa + g) == 0 ? m[g] : k[g]); })) {
    return 8;
  }
  if (any([&](int32_t g) { return ldb[g] < max1(trans_code(transb + g) == 0 ? k[g] : n[g]); })) {
    return 10;
  }
  if (any([&](int32_t g) { return ldc[g] < max1(m[g]); })) return 13;
  if (any([&](int32_t g) { return group_size[g] < 0; })) return 15;
  return 0;
}

// The batch entry of element type T computing `kind` products. `info` is
// check_gemm_batch's number for the checked routines, a literal 0 from the
// CBLAS layer, whose own checks cover the same conditions.
template <class T>
void gemm_batch(BatchKind kind, const char* transa, const char* transb, const int32_t* m,
                const int32_t* n, const int32_t* k, const T* alpha, const T* const* a,
                const int32_t* lda, const T* const* b, const int32_t* ldb, const T* beta,
                T* const* c, const int32_t* ldc, const int32_t* group_count,
                const int32_t* group_size, int32_t info) {
  const char* name = kind == BatchKind::kReal      ? "DGEMM_BATCH "
                     : kind == BatchKind::kComplex ? "ZGEMM_BATCH "
                                                   : "ZGEMM3M_BATCH ";
  // Fifteen pointers do not fit the usual 200 bytes.
  constexpr size_t kBatchLine = 320;
  serv::checked_entry<kBatchLine>(
      serv::g_entry_word, serv::kDomainBlas, name, info,
      [](uint64_t, BatchKind kd, const char* ta, const char* tb, const int32_t* m_,
         const int32_t* n_, const int32_t* k_, const T* al, const T* const* a_, const int32_t* lda_,
         const T* const* b_, const int32_t* ldb_, const T* be, T* const* c_, const int32_t* ldc_,
         const int32_t* gc, const int32_t* gs) {
        const BatchArgs args{ta,
                             tb,
                             m_,
                             n_,
                             k_,
                             al,
                             reinterpret_cast<const void* const*>(a_),
                             lda_,
                             reinterpret_cast<const void* const*>(b_),
                             ldb_,
                             be,
                             reinterpret_cast<void* const*>(c_),
                             ldc_,
                             *gc,
                             gs};
        // group_count 0 is no error: nothing to compute.
        if (*gc <= 0) return;
        zml_blas_gemm_batch(kd, gemm_batch_products(args) > INT32_MAX, args);
      },
      [](char* buf, size_t size, BatchKind kd, const char* ta, const char* tb, const int32_t* m_,
         const int32_t* n_, const int32_t* k_, const T* al, const T* const* a_, const int32_t* lda_,
         const T* const* b_, const int32_t* ldb_, const T* be, T* const* c_, const int32_t* ldc_,
         const int32_t* gc, const int32_t* gs) {
        const char* fmt =
            kd == BatchKind::kReal
                ? "DGEMM_BATCH(%c,%c,%p,%p,%p,%p,%p,%p,%p,%p,%p,%p,%p,%p,%p)"
                : (kd == BatchKind::kComplex
                       ? "ZGEMM_BATCH(%c,%c,%p,%p,%p,%p,%p,%p,%p,%p,%p,%p,%p,%p,%p)"
                       : "ZGEMM3M_BATCH(%c,%c,%p,%p,%p,%p,%p,%p,%p,%p,%p,%p,%p,%p,%p)");
        // Without a group there is no first letter to show.
        const bool some = *gc > 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        serv::format_call(buf, size, fmt, some ? ta[0] : '-', some ? tb[0] : '-',
                          static_cast<const void*>(m_), static_cast<const void*>(n_),
                          static_cast<const void*>(k_), static_cast<const void*>(al),
                          static_cast<const void*>(a_), static_cast<const void*>(lda_),
                          static_cast<const void*>(b_), static_cast<const void*>(ldb_),
                          static_cast<const void*>(be), static_cast<const void*>(c_),
                          static_cast<const void*>(ldc_), static_cast<const void*>(gc),
                          static_cast<const void*>(gs));
#pragma GCC diagnostic pop
      },
      kind, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, group_count, group_size);
}

}  // namespace zml::blas::entry
