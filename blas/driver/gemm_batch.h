// SPDX-License-Identifier: BSD-3-Clause
// Drivers of the batched multiply and of the 3M complex multiply, and the
// pieces tests reach: the single-thread 3M product and its work space.
#pragma once

#include <cstdint>

#include "blas/blas.h"
#include "blas/kernels/gemm_kernel.h"

namespace zml::blas {

// ---- 3M complex multiply ----------------------------------------------------

// Products with m, n and k all above this use three real products; smaller
// ones are not worth the packing and take the ordinary complex multiply.
inline constexpr int32_t kZgemm3mMin = 8;

// Doubles of work space zgemm3m_serial needs for an m x n x k product on `row`.
int64_t zgemm3m_work_doubles(const dgemm_variant& row, int64_t m, int64_t n, int64_t k);

// C := alpha*op(A)*op(B) + beta*C (complex, (re, im) pairs, strides in complex
// elements; ta / tb transposition codes 0 'N', 1 'T', 2 'C') in the calling
// thread with three real products on `row`'s kernels, m, n >= 1. `work`
// holds zgemm3m_work_doubles(...) doubles, or is null to allocate it here.
void zgemm3m_serial(const dgemm_variant& row, int32_t ta, int32_t tb, int64_t m, int64_t n,
                    int64_t k, const double* alpha, const double* a, int64_t lda, const double* b,
                    int64_t ldb, const double* beta, double* c, int64_t ldc, double* work);

// The region of zml_blas_zgemm3m: `threads` members on a grid over C, each
// running the single-thread 3M product on its piece.
void _zml_blas_zgemm3m(int32_t threads, int32_t ta, int32_t tb, int32_t m, int32_t n, int32_t k,
                       const zcomplex* alpha, const zcomplex* a, int32_t lda, const zcomplex* b,
                       int32_t ldb, const zcomplex* beta, zcomplex* c, int32_t ldc);

// ---- batched multiply -------------------------------------------------------

// The kind of product every entry of a batch computes.
enum class BatchKind : int32_t { kReal, kComplex, kComplex3m };

// One batch call, arguments as the checked entries take them (already
// checked; pointers of complex kinds point at zcomplex).
struct BatchArgs {
  const char* transa;
  const char* transb;
  const int32_t* m;
  const int32_t* n;
  const int32_t* k;
  const void* alpha;
  const void* const* a;
  const int32_t* lda;
  const void* const* b;
  const int32_t* ldb;
  const void* beta;
  void* const* c;
  const int32_t* ldc;
  int32_t group_count;
  const int32_t* group_size;
};

// Products of the whole batch (the sum of the group sizes, which may exceed
// the 32-bit range).
int64_t gemm_batch_products(const BatchArgs& args);

// The driver: runs every product of the batch. `wide` selects the variant:
// false runs gemm_batch_internal32, which numbers products and pointer
// offsets with 32-bit integers and serves every batch of at most 2^31 - 1
// products; true runs gemm_batch_internal64, the same work with 64-bit
// numbering for larger batches. The entries pass
// gemm_batch_products(args) > INT32_MAX.
void zml_blas_gemm_batch(BatchKind kind, bool wide, const BatchArgs& args);

// How a batch is spread over a team of T: the number of members that take
// whole products (1 runs them in the calling thread), or 0 when the batch has
// fewer products than members and enough work that each product is better
// given the whole team, one after another. `work` counts multiply-adds (a
// complex one counts 4).
int32_t gemm_batch_team(int32_t T, int64_t products, double work);

}  // namespace zml::blas
