// SPDX-License-Identifier: BSD-3-Clause
// The CBLAS argument checks, in the fixed orders of the layer. Pure functions,
// so each family's export only adds the call and the driver behind it.
#include "blas/api/cblas_layer.h"
#include "service/stride.h"

namespace zml::blas::cblas {

int32_t check_gemm_batch(int32_t layout, const int32_t* transa, const int32_t* transb,
                         const int32_t* m, const int32_t* n, const int32_t* k, const int32_t* lda,
                         const int32_t* ldb, const int32_t* ldc, int32_t group_count,
                         const int32_t* group_size) {
  if (group_count < 0) return 15;
  for (int32_t g = 0; g < group_count; ++g) {
    const int32_t p =
        check_gemm(layout, transa[g], transb[g], m[g], n[g], k[g], lda[g], ldb[g], ldc[g]);
    if (p != 0) return p;
    if (group_size[g] < 0) return 16;
  }
  return 0;
}

int32_t check_trsm(int32_t layout, int32_t side, int32_t uplo, int32_t transa, int32_t diag,
                   int32_t m, int32_t n, int32_t lda, int32_t ldb) {
  if (!valid_side(side)) return 2;
  if (!valid_uplo(uplo)) return 3;
  if (!valid_trans(transa)) return 4;
  if (!valid_diag(diag)) return 5;
  if (m < 0) return 6;
  if (n < 0) return 7;
  if (!valid_layout(layout)) return 1;
  if (lda < max1(side == kLeft ? m : n)) return 10;
  if (ldb < max1(layout == kColMajor ? m : n)) return 12;
  return 0;
}

int32_t check_gemv(int32_t layout, int32_t trans, int32_t m, int32_t n, int32_t lda, int32_t incx,
                   int32_t incy) {
  if (!valid_layout(layout)) return 1;
  if (!valid_trans(trans)) return 2;
  if (m < 0) return 3;
  if (n < 0) return 4;
  if (lda < max1(layout == kColMajor ? m : n)) return 7;
  if (incx == 0) return 9;
  if (incy == 0) return 12;
  return 0;
}

int32_t check_trsv(int32_t layout, int32_t uplo, int32_t trans, int32_t diag, int32_t n,
                   int32_t lda, int32_t incx) {
  if (!valid_layout(layout)) return 1;
  if (!valid_uplo(uplo)) return 2;
  if (!valid_trans(trans)) return 3;
  if (!valid_diag(diag)) return 4;
  if (n < 0) return 5;
  if (lda < max1(n)) return 7;
  if (incx == 0) return 9;
  return 0;
}

void conjugate(int32_t n, double* base, int32_t inc) {
  const int64_t step = 2 * serv::stride_magnitude(inc);
  for (int64_t i = 0; i < n; ++i) base[i * step + 1] = -base[i * step + 1];
}

}  // namespace zml::blas::cblas
