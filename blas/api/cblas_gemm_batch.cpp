// SPDX-License-Identifier: BSD-3-Clause
// cblas_dgemm_batch, cblas_zgemm_batch, cblas_zgemm3m_batch: the layer's
// checks group by group, then the batch entry with one option letter per
// group. A row-major batch maps as cblas_dgemm does, for every group at once:
// the operand arrays, their dimensions and leading dimensions exchange.
#include "blas/api/cblas_layer.h"
#include "blas/api/gemm_batch_entry.h"
#include "service/service.h"
#include "zml_cblas.h"

namespace zml::blas::cblas {
namespace {

template <class T>
void cblas_gemm_batch(const char* name, BatchKind kind, int32_t layout, const int32_t* transa,
                      const int32_t* transb, const int32_t* m, const int32_t* n, const int32_t* k,
                      const T* alpha, const T* const* a, const int32_t* lda, const T* const* b,
                      const int32_t* ldb, const T* beta, T* const* c, const int32_t* ldc,
                      int32_t group_count, const int32_t* group_size) {
  if (const int32_t p = check_gemm_batch(layout, transa, transb, m, n, k, lda, ldb, ldc,
                                         group_count, group_size)) {
    cblas_xerbla(name, p);
    return;
  }
  // Letters of transa then transb, on the stack for the usual few groups.
  constexpr int32_t kOnStack = 128;
  char stack[2 * kOnStack];
  char* letters = stack;
  if (group_count > kOnStack) {
    letters = static_cast<char*>(serv::aligned_alloc(2 * static_cast<size_t>(group_count), 64));
  }
  const bool col = layout == kColMajor;
  if (letters == nullptr) {
    // No memory for the letters: one group per call, which keeps every
    // product and loses only threading across groups.
    const T* const* ga = a;
    const T* const* gb = b;
    T* const* gc = c;
    for (int32_t g = 0; g < group_count; ++g) {
      const int32_t one = 1;
      cblas_gemm_batch(name, kind, layout, transa + g, transb + g, m + g, n + g, k + g, alpha + g,
                       ga, lda + g, gb, ldb + g, beta + g, gc, ldc + g, one, group_size + g);
      ga += group_size[g];
      gb += group_size[g];
      gc += group_size[g];
    }
    return;
  }
  char* ta = letters;
  char* tb = letters + group_count;
  for (int32_t g = 0; g < group_count; ++g) {
    ta[g] = kTransDirect[transa[g] - kNoTrans][0];
    tb[g] = kTransDirect[transb[g] - kNoTrans][0];
  }
  if (col) {
    entry::gemm_batch(kind, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, &group_count,
                      group_size, 0);
  } else {
    entry::gemm_batch(kind, tb, ta, n, m, k, alpha, b, ldb, a, lda, beta, c, ldc, &group_count,
                      group_size, 0);
  }
  if (letters != stack) serv::aligned_free(letters);
}

}  // namespace
}  // namespace zml::blas::cblas

extern "C" {

void cblas_dgemm_batch(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE* TransA_Array,
                       const CBLAS_TRANSPOSE* TransB_Array, const int* M_Array, const int* N_Array,
                       const int* K_Array, const double* alpha_Array, const double** A_Array,
                       const int* lda_Array, const double** B_Array, const int* ldb_Array,
                       const double* beta_Array, double** C_Array, const int* ldc_Array,
                       const int group_count, const int* group_size) {
  static_assert(sizeof(CBLAS_TRANSPOSE) == sizeof(int32_t));
  zml::blas::cblas::cblas_gemm_batch<double>("cblas_dgemm_batch", zml::blas::BatchKind::kReal,
                                             Layout, reinterpret_cast<const int32_t*>(TransA_Array),
                                             reinterpret_cast<const int32_t*>(TransB_Array),
                                             M_Array, N_Array, K_Array, alpha_Array, A_Array,
                                             lda_Array, B_Array, ldb_Array, beta_Array, C_Array,
                                             ldc_Array, group_count, group_size);
}

}  // extern "C"

namespace {

using zml::blas::zcomplex;

void complex_batch(const char* name, zml::blas::BatchKind kind, CBLAS_LAYOUT layout,
                   const CBLAS_TRANSPOSE* ta, const CBLAS_TRANSPOSE* tb, const int* m, const int* n,
                   const int* k, const void* alpha, const void** a, const int* lda, const void** b,
                   const int* ldb, const void* beta, void** c, const int* ldc, int group_count,
                   const int* group_size) {
  zml::blas::cblas::cblas_gemm_batch<zcomplex>(
      name, kind, layout, reinterpret_cast<const int32_t*>(ta),
      reinterpret_cast<const int32_t*>(tb), m, n, k, static_cast<const zcomplex*>(alpha),
      reinterpret_cast<const zcomplex* const*>(a), lda, reinterpret_cast<const zcomplex* const*>(b),
      ldb, static_cast<const zcomplex*>(beta), reinterpret_cast<zcomplex* const*>(c), ldc,
      group_count, group_size);
}

}  // namespace

extern "C" {

void cblas_zgemm_batch(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE* TransA_Array,
                       const CBLAS_TRANSPOSE* TransB_Array, const int* M_Array, const int* N_Array,
                       const int* K_Array, const void* alpha_Array, const void** A_Array,
                       const int* lda_Array, const void** B_Array, const int* ldb_Array,
                       const void* beta_Array, void** C_Array, const int* ldc_Array,
                       const int group_count, const int* group_size) {
  complex_batch("cblas_zgemm_batch", zml::blas::BatchKind::kComplex, Layout, TransA_Array,
                TransB_Array, M_Array, N_Array, K_Array, alpha_Array, A_Array, lda_Array, B_Array,
                ldb_Array, beta_Array, C_Array, ldc_Array, group_count, group_size);
}

void cblas_zgemm3m_batch(const CBLAS_LAYOUT Layout, const CBLAS_TRANSPOSE* TransA_Array,
                         const CBLAS_TRANSPOSE* TransB_Array, const int* M_Array,
                         const int* N_Array, const int* K_Array, const void* alpha_Array,
                         const void** A_Array, const int* lda_Array, const void** B_Array,
                         const int* ldb_Array, const void* beta_Array, void** C_Array,
                         const int* ldc_Array, const int group_count, const int* group_size) {
  complex_batch("cblas_zgemm3m_batch", zml::blas::BatchKind::kComplex3m, Layout, TransA_Array,
                TransB_Array, M_Array, N_Array, K_Array, alpha_Array, A_Array, lda_Array, B_Array,
                ldb_Array, beta_Array, C_Array, ldc_Array, group_count, group_size);
}

}  // extern "C"
