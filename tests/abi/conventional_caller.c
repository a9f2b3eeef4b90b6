/* SPDX-License-Identifier: BSD-3-Clause */
/* Calls every export the way code written for the conventional interfaces
   does. Compiled only, never run: it proves the prototypes and names fit. */
#include <stddef.h>

#include "custom_zml.h"

void conventional_caller(void);

/* The values callers pass and test are fixed. */
_Static_assert(CblasRowMajor == 101 && CblasColMajor == 102 && CblasConjTrans == 113 &&
                   CblasLower == 122 && CblasUnit == 132 && CblasRight == 142,
               "CBLAS enumerations");
_Static_assert(LAPACK_ROW_MAJOR == 101 && LAPACK_TRANSPOSE_MEMORY_ERROR == -1011, "LAPACKE codes");
_Static_assert(DFTI_DESTROY_INPUT == 28 && DFTI_NUMBER_OF_USER_THREADS == 26 &&
                   DFTI_CCE_FORMAT == 57 && DFTI_1D_LENGTH_EXCEEDS_INT32 == 9,
               "DFTI values");
_Static_assert((VML_ERRMODE_DEFAULT | VML_HA) == 0x1A02 && VSL_BRNG_MCG31 == 0x100000 &&
                   VSL_BRNG_PHILOX4X32X10 == 0x1000000 && VSL_BRNG_IABSTRACT == 0xA00000 &&
                   VSL_RNG_METHOD_UNIFORM_STD_ACCURATE == 0x40000000,
               "vector math and random number values");
_Static_assert(TR_OUT_OF_MEMORY == 1503 && ZML_SPARSE_OPERATION_CONJUGATE_TRANSPOSE == 12 &&
                   ZML_DOMAIN_DIRSOL == 4,
               "solver, sparse and domain values");
_Static_assert(sizeof(lapack_complex_double) == 2 * sizeof(double) &&
                   sizeof(zml_complex16) == 2 * sizeof(double),
               "complex types are two doubles");

static void user_function(int* m, int* n, double* x, double* f) {
  (void)m;
  (void)n;
  f[0] = x[0];
}

void conventional_caller(void) {
  double a[16] = {0}, b[16] = {0}, c[16] = {0}, w[4] = {0}, s[4] = {0};
  double alpha = 1.0, beta = 0.0;
  double z[32] = {0}, zalpha[2] = {1, 0}, zbeta[2] = {0, 0};
  lapack_complex_double za[16], zw[4];
  lapack_int ipiv[4], rank, m_found, isuppz[8];
  int n = 4, nb = 0, dom = ZML_DOMAIN_BLAS, one = 1;
  size_t bytes = 64;
  void* p;

  /* service */
  p = zml_malloc(&bytes, &one);
  zml_free(&p);
  (void)zml_mem_stat(&nb);
  zml_free_buffers();
  zml_thread_free_buffers();
  (void)zml_disable_fast_mm();
  zml_set_num_threads(&n);
  (void)zml_get_max_threads();
  zml_set_dynamic(&one);
  (void)zml_get_dynamic();
  (void)zml_domain_set_num_threads(&n, &dom);
  (void)zml_domain_get_max_threads(&dom);

  /* CBLAS */
  cblas_dgemm(CblasRowMajor, CblasNoTrans, CblasTrans, 4, 4, 4, alpha, a, 4, b, 4, beta, c, 4);
  cblas_zgemm(CblasColMajor, CblasConjTrans, CblasNoTrans, 2, 2, 2, zalpha, z, 2, z, 2, zbeta, z,
              2);
  cblas_zgemm3m(CblasColMajor, CblasNoTrans, CblasNoTrans, 2, 2, 2, zalpha, z, 2, z, 2, zbeta, z,
                2);
  {
    CBLAS_TRANSPOSE ta = CblasNoTrans, tb = CblasNoTrans;
    int mm = 2, nn = 2, kk = 2, ld = 2, gs = 1;
    const double* ap[1] = {a};
    const double* bp[1] = {b};
    double* cp[1] = {c};
    const void* zap[1] = {z};
    void* zcp[1] = {z};
    cblas_dgemm_batch(CblasRowMajor, &ta, &tb, &mm, &nn, &kk, &alpha, ap, &ld, bp, &ld, &beta, cp,
                      &ld, 1, &gs);
    cblas_zgemm_batch(CblasRowMajor, &ta, &tb, &mm, &nn, &kk, zalpha, zap, &ld, zap, &ld, zbeta,
                      zcp, &ld, 1, &gs);
    cblas_zgemm3m_batch(CblasRowMajor, &ta, &tb, &mm, &nn, &kk, zalpha, zap, &ld, zap, &ld, zbeta,
                        zcp, &ld, 1, &gs);
  }
  cblas_dgemv(CblasRowMajor, CblasNoTrans, 4, 4, alpha, a, 4, b, 1, beta, c, 1);
  cblas_zgemv(CblasColMajor, CblasConjTrans, 2, 2, zalpha, z, 2, z, 1, zbeta, z, 1);
  cblas_dtrsv(CblasRowMajor, CblasUpper, CblasNoTrans, CblasNonUnit, 4, a, 4, b, 1);
  cblas_ztrsv(CblasColMajor, CblasLower, CblasConjTrans, CblasUnit, 2, z, 2, z, 1);
  cblas_dtrsm(CblasRowMajor, CblasLeft, CblasUpper, CblasNoTrans, CblasNonUnit, 4, 4, alpha, a, 4,
              b, 4);
  cblas_ztrsm(CblasColMajor, CblasRight, CblasLower, CblasConjTrans, CblasUnit, 2, 2, zalpha, z, 2,
              z, 2);
  cblas_dscal(4, alpha, a, 1);
  cblas_zscal(2, zalpha, z, 1);

  /* LAPACKE */
  (void)LAPACKE_dgetrf(LAPACK_ROW_MAJOR, 4, 4, a, 4, ipiv);
  (void)LAPACKE_dgetrs(LAPACK_ROW_MAJOR, 'N', 4, 1, a, 4, ipiv, b, 1);
  (void)LAPACKE_dgetri(LAPACK_ROW_MAJOR, 4, a, 4, ipiv);
  (void)LAPACKE_dpotrf(LAPACK_COL_MAJOR, 'U', 4, a, 4);
  (void)LAPACKE_dtrtri(LAPACK_COL_MAJOR, 'U', 'N', 4, a, 4);
  (void)LAPACKE_dgeev(LAPACK_COL_MAJOR, 'N', 'V', 4, a, 4, w, s, NULL, 1, b, 4);
  (void)LAPACKE_dsyevd(LAPACK_COL_MAJOR, 'V', 'U', 4, a, 4, w);
  (void)LAPACKE_dsyevr(LAPACK_COL_MAJOR, 'V', 'A', 'U', 4, a, 4, 0.0, 0.0, 0, 0, 0.0, &m_found, w,
                       b, 4, isuppz);
  (void)LAPACKE_dgesdd(LAPACK_COL_MAJOR, 'A', 4, 4, a, 4, s, b, 4, c, 4);
  (void)LAPACKE_dgelss(LAPACK_COL_MAJOR, 4, 4, 1, a, 4, b, 4, s, -1.0, &rank);
  (void)LAPACKE_zgetrf(LAPACK_COL_MAJOR, 4, 4, za, 4, ipiv);
  (void)LAPACKE_zgetrs(LAPACK_COL_MAJOR, 'C', 4, 1, za, 4, ipiv, zw, 4);
  (void)LAPACKE_zgetri(LAPACK_COL_MAJOR, 4, za, 4, ipiv);
  (void)LAPACKE_zpotrf(LAPACK_COL_MAJOR, 'L', 4, za, 4);
  (void)LAPACKE_ztrtri(LAPACK_COL_MAJOR, 'L', 'U', 4, za, 4);
  (void)LAPACKE_zgeev(LAPACK_COL_MAJOR, 'N', 'N', 4, za, 4, zw, NULL, 1, NULL, 1);
  (void)LAPACKE_zheevd(LAPACK_COL_MAJOR, 'N', 'L', 4, za, 4, w);
  (void)LAPACKE_zgesdd(LAPACK_COL_MAJOR, 'N', 4, 4, za, 4, s, NULL, 1, NULL, 1);
  (void)LAPACKE_zgelss(LAPACK_COL_MAJOR, 4, 4, 1, za, 4, zw, 4, s, -1.0, &rank);

  /* DFTI */
  {
    DFTI_DESCRIPTOR_HANDLE h = NULL, h2 = NULL;
    int32_t status = DftiCreateDescriptor(&h, DFTI_DOUBLE, DFTI_COMPLEX, 1, 64);
    char version[DFTI_VERSION_LENGTH];
    status = DftiSetValue(h, DFTI_PLACEMENT, DFTI_NOT_INPLACE);
    status = DftiSetValue(h, DFTI_BACKWARD_SCALE, 1.0 / 64);
    status = DftiGetValue(h, DFTI_VERSION, version);
    status = DftiCommitDescriptor(h);
    status = DftiComputeForward(h, z, z);
    status = DftiComputeBackward(h, z, z);
    status = DftiCopyDescriptor(h, &h2);
    if (!DftiErrorClass(status, DFTI_NO_ERROR)) (void)DftiErrorMessage(status);
    (void)DftiFreeDescriptor(&h2);
    (void)DftiFreeDescriptor(&h);
  }

  /* Vector math */
  vdAbs(4, a, c);
  vdAcos(4, a, c);
  vdAcosh(4, a, c);
  vdAsin(4, a, c);
  vdAsinh(4, a, c);
  vdAtan(4, a, c);
  vdAtanh(4, a, c);
  vdCos(4, a, c);
  vdCosh(4, a, c);
  vdExp(4, a, c);
  vdLn(4, a, c);
  vdLog10(4, a, c);
  vdSin(4, a, c);
  vdSinh(4, a, c);
  vdSqrt(4, a, c);
  vdTan(4, a, c);
  vdTanh(4, a, c);
  vdAdd(4, a, b, c);
  vdSub(4, a, b, c);
  vdMul(4, a, b, c);
  vdDiv(4, a, b, c);
  vdAtan2(4, a, b, c);
  vdPow(4, a, b, c);
  vdPowx(4, a, 2.0, c);

  /* Random numbers */
  {
    VSLStreamStatePtr stream;
    unsigned int words[2] = {1, 2};
    (void)vslNewStream(&stream, VSL_BRNG_MT19937, 777);
    (void)vdRngUniform(VSL_RNG_METHOD_UNIFORM_STD, stream, 4, c, 0.0, 1.0);
    (void)vdRngGaussian(VSL_RNG_METHOD_GAUSSIAN_ICDF, stream, 4, c, 0.0, 1.0);
    (void)vdRngGaussianMV(VSL_RNG_METHOD_GAUSSIANMV_BOXMULLER2, stream, 2, c, 2,
                          VSL_MATRIX_STORAGE_FULL, w, a);
    (void)vslDeleteStream(&stream);
    (void)vslNewStreamEx(&stream, VSL_BRNG_MCG59, 2, words);
    (void)vslDeleteStream(&stream);
  }

  /* Sparse */
  {
    int ia[3] = {0, 1, 2}, ja[2] = {0, 1}, rows = 2, info = 0, job[6] = {0};
    int ic[3], jc[4], nzmax = 4, request = 0, sort = 0, ldc = 2;
    zml_complex16 zv[2], zb = {1.0, 0.0}, zc[4];
    zml_sparse_matrix_t A = NULL, C = NULL;
    zml_sparse_index_base_t base;
    int r, cc, *rs, *re, *ci;
    double* vals;
    zml_dcsrmv("N", &rows, &rows, &alpha, "GLNC", a, ja, ia, ia + 1, b, &beta, c);
    zml_dcsrmm("N", &rows, &rows, &rows, &alpha, "GLNC", a, ja, ia, ia + 1, b, &ldc, &beta, c,
               &ldc);
    zml_dcsradd("N", &request, &sort, &rows, &rows, a, ja, ia, &beta, b, ja, ia, c, jc, ic, &nzmax,
                &info);
    zml_zcsradd("N", &request, &sort, &rows, &rows, zv, ja, ia, &zb, zv, ja, ia, zc, jc, ic, &nzmax,
                &info);
    zml_dcsrmultcsr("N", &request, &sort, &rows, &rows, &rows, a, ja, ia, b, ja, ia, c, jc, ic,
                    &nzmax, &info);
    zml_dcsrmultd("N", &rows, &rows, &rows, a, ja, ia, b, ja, ia, c, &ldc);
    zml_dcsrcsc(job, &rows, a, ja, ia, b, jc, ic, &info);
    (void)zml_sparse_d_create_csr(&A, ZML_SPARSE_INDEX_BASE_ZERO, 2, 2, ia, ia + 1, ja, a);
    (void)zml_sparse_d_export_csr(A, &base, &r, &cc, &rs, &re, &ci, &vals);
    (void)zml_sparse_order(A);
    (void)zml_sparse_syrk(ZML_SPARSE_OPERATION_TRANSPOSE, A, &C);
    (void)zml_sparse_d_syrkd(ZML_SPARSE_OPERATION_NON_TRANSPOSE, A, 1.0, 0.0, c,
                             ZML_SPARSE_LAYOUT_ROW_MAJOR, 2);
    (void)zml_sparse_destroy(C);
    (void)zml_sparse_destroy(A);
  }

  /* Nonlinear least squares and Jacobians */
  {
    _TRNSP_HANDLE_t h;
    _TRNSPBC_HANDLE_t hb;
    _JACOBIMATRIX_HANDLE_t hj;
    double x[2] = {0}, eps[6] = {1e-8, 1e-8, 1e-8, 1e-8, 1e-8, 1e-8}, lw[2] = {0}, up[2] = {1, 1};
    double fvec[2], fjac[4], rs = 0.0, r1, r2, jeps = 1e-6;
    int nn = 2, mm = 2, it1 = 100, it2 = 10, rci = 0, info6[6], iter, st;
    if (dtrnlsp_init(&h, &nn, &mm, x, eps, &it1, &it2, &rs) == TR_SUCCESS) {
      (void)dtrnlsp_check(&h, &nn, &mm, fjac, fvec, eps, info6);
      (void)dtrnlsp_solve(&h, fvec, fjac, &rci);
      (void)dtrnlsp_get(&h, &iter, &st, &r1, &r2);
      (void)dtrnlsp_delete(&h);
    }
    if (dtrnlspbc_init(&hb, &nn, &mm, x, lw, up, eps, &it1, &it2, &rs) == TR_SUCCESS) {
      (void)dtrnlspbc_check(&hb, &nn, &mm, fjac, fvec, lw, up, eps, info6);
      (void)dtrnlspbc_solve(&hb, fvec, fjac, &rci);
      (void)dtrnlspbc_get(&hb, &iter, &st, &r1, &r2);
      (void)dtrnlspbc_delete(&hb);
    }
    if (djacobi_init(&hj, &nn, &mm, x, fjac, &jeps) == TR_SUCCESS) {
      (void)djacobi_solve(&hj, fvec, fvec, &rci);
      (void)djacobi_delete(&hj);
    }
    (void)djacobi(user_function, &nn, &mm, fjac, x, &jeps);
  }
}
