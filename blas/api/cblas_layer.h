// SPDX-License-Identifier: BSD-3-Clause
// Shared pieces of the CBLAS layer: the option-letter tables (one direct and
// one reversed per option, the reversed one serving row-major calls), the
// argument checks as pure functions returning the CBLAS parameter number of
// the first bad argument (0 when all pass), and the CBLAS error routine.
#pragma once

#include <cstdint>

namespace zml::blas::cblas {

inline constexpr int32_t kRowMajor = 101;
inline constexpr int32_t kColMajor = 102;
inline constexpr int32_t kNoTrans = 111;
inline constexpr int32_t kTrans = 112;
inline constexpr int32_t kConjTrans = 113;
inline constexpr int32_t kUpper = 121;
inline constexpr int32_t kLower = 122;
inline constexpr int32_t kNonUnit = 131;
inline constexpr int32_t kUnit = 132;
inline constexpr int32_t kLeft = 141;
inline constexpr int32_t kRight = 142;

// Indexed by value - 111, - 121, - 131, - 141. Row-major calls see the
// transposed matrix, so the real routines' reversed transpose table turns
// "no transpose" into "T" and both transposes into "N"; uplo and side swap.
// diag has no reversed table: a transposition keeps the diagonal.
inline constexpr const char* kTransDirect[3] = {"N", "T", "C"};
inline constexpr const char* kTransReversed[3] = {"T", "N", "N"};
inline constexpr const char* kUploDirect[2] = {"U", "L"};
inline constexpr const char* kUploReversed[2] = {"L", "U"};
inline constexpr const char* kDiagDirect[2] = {"N", "U"};
inline constexpr const char* kSideDirect[2] = {"L", "R"};
inline constexpr const char* kSideReversed[2] = {"R", "L"};

inline bool valid_layout(int32_t v) { return v == kRowMajor || v == kColMajor; }
inline bool valid_trans(int32_t v) { return v >= kNoTrans && v <= kConjTrans; }
inline bool valid_uplo(int32_t v) { return v == kUpper || v == kLower; }
inline bool valid_diag(int32_t v) { return v == kNonUnit || v == kUnit; }
inline bool valid_side(int32_t v) { return v == kLeft || v == kRight; }

inline int32_t max1(int32_t v) { return v > 1 ? v : 1; }

// gemm, zgemm, zgemm3m: transa 2, transb 3, m 4, n 5, k 6, then layout 1, then
// lda 9, ldb 11, ldc 14 by the layout's rules. Inline: cblas_dgemm is called
// in loops on tiny products, where a call more shows.
inline int32_t check_gemm(int32_t layout, int32_t transa, int32_t transb, int32_t m, int32_t n,
                          int32_t k, int32_t lda, int32_t ldb, int32_t ldc) {
  if (!valid_trans(transa)) return 2;
  if (!valid_trans(transb)) return 3;
  if (m < 0) return 4;
  if (n < 0) return 5;
  if (k < 0) return 6;
  // The layout is tested after the dimensions, so callers written against
  // the established numbering see the number they expect.
  if (!valid_layout(layout)) return 1;
  const bool na = transa == kNoTrans, nb = transb == kNoTrans;
  if (layout == kColMajor) {
    if (lda < max1(na ? m : k)) return 9;
    if (ldb < max1(nb ? k : n)) return 11;
    if (ldc < max1(m)) return 14;
  } else {
    if (lda < max1(na ? k : m)) return 9;
    if (ldb < max1(nb ? n : k)) return 11;
    if (ldc < max1(n)) return 14;
  }
  return 0;
}
// The batch functions: group_count below 0 is 15; then group by group, the
// cblas_dgemm checks with the group's values, and a group size below 0 is 16
// (the position of group_size in the call). Groups before a bad one are not
// computed: the whole call is checked first.
int32_t check_gemm_batch(int32_t layout, const int32_t* transa, const int32_t* transb,
                         const int32_t* m, const int32_t* n, const int32_t* k, const int32_t* lda,
                         const int32_t* ldb, const int32_t* ldc, int32_t group_count,
                         const int32_t* group_size);
// trsm: side 2, uplo 3, transa 4, diag 5, m 6, n 7, layout 1, lda 10, ldb 12.
int32_t check_trsm(int32_t layout, int32_t side, int32_t uplo, int32_t transa, int32_t diag,
                   int32_t m, int32_t n, int32_t lda, int32_t ldb);
// gemv: layout 1 first, trans 2, m 3, n 4, lda 7, incx 9, incy 12.
int32_t check_gemv(int32_t layout, int32_t trans, int32_t m, int32_t n, int32_t lda, int32_t incx,
                   int32_t incy);
// trsv: layout 1 first, uplo 2, trans 3, diag 4, n 5, lda 7, incx 9.
int32_t check_trsv(int32_t layout, int32_t uplo, int32_t trans, int32_t diag, int32_t n,
                   int32_t lda, int32_t incx);

// The CBLAS error routine: installs the CBLAS replacement parameter-error
// routine (first installer wins) and reports parameter `param` of the
// exported function `name` through the service layer's routine.
void cblas_xerbla(const char* name, int32_t param);

// Conjugates n complex elements (pairs of doubles) spaced |inc| apart from
// base, in place; the order of the elements does not matter here.
void conjugate(int32_t n, double* base, int32_t inc);

}  // namespace zml::blas::cblas
