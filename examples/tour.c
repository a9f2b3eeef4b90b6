/* SPDX-License-Identifier: BSD-3-Clause */
/* A tour of the library through its public interface only: settings, the
   memory manager, the BLAS family and vector math. Each step checks its own result. */
#if !defined(_WIN32)
#define _POSIX_C_SOURCE 199309L
#endif
#include <errno.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#if defined(_WIN32)
#include <windows.h>
#endif

#include "custom_zml.h"

static int failures = 0;

static void check(int ok, const char* what) {
  printf("  %-58s %s\n", what, ok ? "ok" : "FAILED");
  if (!ok) ++failures;
}

static double now_seconds(void) {
#if defined(_WIN32)
  LARGE_INTEGER f, c;
  QueryPerformanceFrequency(&f);
  QueryPerformanceCounter(&c);
  return (double)c.QuadPart / (double)f.QuadPart;
#else
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return (double)ts.tv_sec + 1e-9 * (double)ts.tv_nsec;
#endif
}

static void tour_settings(void) {
  int blas = ZML_DOMAIN_BLAS, two = 2, zero = 0;
  printf("Settings\n");
  printf("  threads: all %d, BLAS %d; dynamic %d\n", zml_get_max_threads(),
         zml_domain_get_max_threads(&blas), zml_get_dynamic());
  check(zml_domain_set_num_threads(&two, &blas) == 1, "BLAS domain set to 2 threads");
  check(zml_domain_get_max_threads(&blas) >= 1, "BLAS domain answers a usable count");
  zml_set_num_threads(&zero); /* ignored: a count must be positive */
  check(zml_get_max_threads() >= 1, "a zero thread count is ignored");
}

static void tour_memory(void) {
  size_t size = 1 << 20;
  int align = 4096, nbuf = -1;
  void* p;
  long long held;
  printf("Memory manager\n");
  p = zml_malloc(&size, &align);
  check(p != NULL && ((size_t)p % 4096) == 0, "1 MiB block aligned to 4096 bytes");
  held = (long long)zml_mem_stat(&nbuf);
  printf("  held after allocation: %lld bytes in %d buffers\n", held, nbuf);
  zml_free(&p);
  zml_free_buffers();
  held = (long long)zml_mem_stat(&nbuf);
  printf("  held after release:    %lld bytes in %d buffers\n", held, nbuf);
  check(nbuf == 0, "every buffer returned after zml_free_buffers");
}

static void tour_blas(void) {
  enum { N = 3 };
  /* Row-major A = [4 1 0; 1 3 1; 0 1 2], x = [1 2 3]. */
  double a[N * N] = {4, 1, 0, 1, 3, 1, 0, 1, 2};
  double x[N] = {1, 2, 3}, y[N] = {0, 0, 0}, b[N];
  double z[4] = {1, 2, 3, 4}, zalpha[2] = {0, 1};
  int i, ok = 1;
  printf("BLAS\n");
  cblas_dscal(N, 2.0, x, 1);
  check(x[0] == 2 && x[1] == 4 && x[2] == 6, "dscal doubles a vector");
  cblas_zscal(2, zalpha, z, 1); /* multiply by i: (1+2i) -> (-2+i) */
  check(z[0] == -2 && z[1] == 1 && z[2] == -4 && z[3] == 3, "zscal multiplies by i");
  cblas_dgemv(CblasRowMajor, CblasNoTrans, N, N, 1.0, a, N, x, 1, 0.0, y, 1);
  check(y[0] == 12 && y[1] == 20 && y[2] == 16, "dgemv computes A*x");
  for (i = 0; i < N; ++i) b[i] = y[i];
  /* Solve with the upper triangle of A: the result is not x, so compare
     against back substitution done here. */
  cblas_dtrsv(CblasRowMajor, CblasUpper, CblasNoTrans, CblasNonUnit, N, a, N, b, 1);
  {
    double r2 = y[2] / 2.0, r1 = (y[1] - 1.0 * r2) / 3.0, r0 = (y[0] - 1.0 * r1) / 4.0;
    ok = fabs(b[0] - r0) < 1e-14 && fabs(b[1] - r1) < 1e-14 && fabs(b[2] - r2) < 1e-14;
  }
  check(ok, "dtrsv solves with the upper triangle");
  {
    /* Two right-hand sides at once with the lower triangle of A and alpha 2:
       L X = 2 B has the solution X = [1 2; 1 0; 2 1] (row-major, 3 x 2). */
    double bb[6] = {2, 4, 2, 1, 2.5, 1}, want[6] = {1, 2, 1, 0, 2, 1};
    cblas_dtrsm(CblasRowMajor, CblasLeft, CblasLower, CblasNoTrans, CblasNonUnit, N, 2, 2.0, a, N,
                bb, 2);
    for (i = 0, ok = 1; i < 6; ++i) ok = ok && fabs(bb[i] - want[i]) < 1e-14;
    check(ok, "dtrsm solves for two right-hand sides");
  }
}

static void tour_gemm(void) {
  int n = 1000, i, reps = 3;
  double *a = malloc(sizeof(double) * n * n), *b = malloc(sizeof(double) * n * n),
         *c = malloc(sizeof(double) * n * n);
  double t0, t, best = 1e30, err = 0;
  printf("Matrix multiply\n");
  if (!a || !b || !c) {
    check(0, "allocate the operands");
    return;
  }
  for (i = 0; i < n * n; ++i) {
    a[i] = (double)(i % 7) - 3.0;
    b[i] = (double)(i % 5) - 2.0;
  }
  for (i = 0; i < reps; ++i) {
    t0 = now_seconds();
    cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, n, n, 1.0, a, n, b, n, 0.0, c, n);
    t = now_seconds() - t0;
    if (t < best) best = t;
  }
  /* Spot-check a few entries against a plain dot product (exact in integers). */
  for (i = 0; i < 5; ++i) {
    int r = (i * 197) % n, col = (i * 331) % n, k;
    double s = 0;
    for (k = 0; k < n; ++k) s += a[r + (size_t)k * n] * b[k + (size_t)col * n];
    err += fabs(s - c[r + (size_t)col * n]);
  }
  check(err == 0, "dgemm 1000x1000 matches dot products");
  printf("  dgemm n=%d: %.1f GFLOPS\n", n, 2.0 * n * n * (double)n / best * 1e-9);
  free(a);
  free(b);
  free(c);
}

/* A batch of 100 small products in one call, and the 3M complex multiply
   beside zgemm (the same product with three real multiplies instead of four). */
static void tour_batch(void) {
  enum { kCount = 100, kN = 3, kZ = 40 };
  static double a[kCount][kN * kN], c[kCount][kN * kN], z[3][2 * kZ * kZ];
  const double* pa[kCount];
  double* pc[kCount];
  const CBLAS_TRANSPOSE t = CblasNoTrans;
  const int n = kN, size = kCount, zn = kZ;
  const double one = 1.0, zero = 0.0, zone[2] = {1, 0}, zzero[2] = {0, 0};
  double err = 0;
  int i, j;
  printf("Batched and 3M multiply\n");
  for (i = 0; i < kCount; ++i) {
    for (j = 0; j < kN * kN; ++j) a[i][j] = (double)((i + j) % 5) - 2.0;
    pa[i] = a[i];
    pc[i] = c[i];
  }
  cblas_dgemm_batch(CblasColMajor, &t, &t, &n, &n, &n, &one, pa, &n, pa, &n, &zero, pc, &n, 1,
                    &size);
  for (i = 0; i < kCount; ++i) {
    double s = 0;
    for (j = 0; j < kN; ++j) s += a[i][1 + j * kN] * a[i][j + 2 * kN];
    err += fabs(s - c[i][1 + 2 * kN]);
  }
  check(err == 0, "dgemm_batch of 100 products matches dot products");
  for (i = 0; i < 2 * kZ * kZ; ++i) z[0][i] = (double)(i % 11) / 11.0 - 0.5;
  cblas_zgemm(CblasColMajor, CblasNoTrans, CblasConjTrans, kZ, kZ, kZ, zone, z[0], zn, z[0], zn,
              zzero, z[1], zn);
  cblas_zgemm3m(CblasColMajor, CblasNoTrans, CblasConjTrans, kZ, kZ, kZ, zone, z[0], zn, z[0], zn,
                zzero, z[2], zn);
  for (err = 0, i = 0; i < 2 * kZ * kZ; ++i) {
    if (fabs(z[1][i] - z[2][i]) > err) err = fabs(z[1][i] - z[2][i]);
  }
  check(err < 1e-12, "zgemm3m agrees with zgemm at 40x40");
}

/* The exports carry no status query, so the tour reads the default error
   mode's errno: EDOM for a domain error, ERANGE for a pole or overflow. */
static const char* errno_name(void) {
  return errno == EDOM ? "EDOM" : errno == ERANGE ? "ERANGE" : "0";
}

static void tour_vml(void) {
  double a[4] = {1.0, 4.0, -9.0, 0.5}, b[4] = {2.0, 0.0, 3.0, 0.25}, y[4];
  printf("Vector math\n");
  vdAdd(4, a, b, y);
  check(y[0] == 3.0 && y[1] == 4.0 && y[2] == -6.0 && y[3] == 0.75, "vdAdd");
  errno = 0;
  vdSqrt(2, a, y);
  check(y[0] == 1.0 && y[1] == 2.0, "vdSqrt of 1 and 4");
  printf("  vdSqrt of 1 and 4: errno %s\n", errno_name());
  vdSqrt(4, a, y);
  check(isnan(y[2]) && errno == EDOM, "vdSqrt of -9 is NaN with a domain error");
  printf("  vdSqrt of -9: %g, errno %s\n", y[2], errno_name());
  errno = 0;
  vdDiv(2, a, b, y);
  check(y[0] == 0.5 && isinf(y[1]) && errno == ERANGE, "vdDiv 4/0 is Inf with a pole error");
  printf("  vdDiv 4/0: %g, errno %s\n", y[1], errno_name());
  a[0] = 710.0;
  errno = 0;
  vdExp(4, a, y);
  check(isinf(y[0]) && fabs(y[1] / exp(4.0) - 1) < 1e-15 && errno == ERANGE,
        "vdExp(710) overflows, exp(4) within 1e-15");
  printf("  vdExp(710): %g, errno %s\n", y[0], errno_name());
}

int main(void) {
  printf("custom_zml tour\n");
  tour_settings();
  tour_memory();
  tour_blas();
  tour_gemm();
  tour_batch();
  tour_vml();
  printf("%s\n", failures ? "tour FAILED" : "tour done");
  return failures ? 1 : 0;
}
