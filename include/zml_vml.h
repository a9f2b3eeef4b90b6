/* SPDX-License-Identifier: BSD-3-Clause */
/* Vector math: element-wise functions on arrays of doubles. The outcome of a
   call is in the calling thread's status word. */
#ifndef ZML_VML_H
#define ZML_VML_H

#include "zml_export.h"

ZML_EXTERN_C_BEGIN

/* Accuracy (bits 0..3 of the mode word). */
#define VML_LA 0x00000001
#define VML_HA 0x00000002
#define VML_EP 0x00000003
#define VML_ACCURACY_MASK 0x0000000F
/* Error mode (bits 8..15); a thread whose mode was never set uses VML_HA
   with the default error mode. */
#define VML_ERRMODE_MASK 0x0000FF00
#define VML_ERRMODE_IGNORE 0x00000100   /* no reaction beyond the status word */
#define VML_ERRMODE_ERRNO 0x00000200    /* errno = EDOM or ERANGE */
#define VML_ERRMODE_STDERR 0x00000400   /* the status text on standard error */
#define VML_ERRMODE_EXCEPT 0x00000800   /* raise the floating-point exceptions */
#define VML_ERRMODE_CALLBACK 0x00001000 /* no callback can be installed: nothing */
#define VML_ERRMODE_NOERR 0x00002000    /* no reaction at all */
#define VML_ERRMODE_DEFAULT 0x00001A00

/* Status of the last call in this thread. The computational statuses are
   positive so that they never collide with the argument errors. */
#define VML_STATUS_OK 0
#define VML_STATUS_BADSIZE -1
#define VML_STATUS_BADMEM -2
#define VML_STATUS_ERRDOM 1
#define VML_STATUS_SING 2
#define VML_STATUS_OVERFLOW 3
#define VML_STATUS_UNDERFLOW 4

#define ZML_VML_UNARY(name) ZML_API void name(const int n, const double a[], double r[]);
#define ZML_VML_BINARY(name) \
  ZML_API void name(const int n, const double a[], const double b[], double r[]);

ZML_VML_UNARY(vdAbs)
ZML_VML_UNARY(vdAcos)
ZML_VML_UNARY(vdAcosh)
ZML_VML_UNARY(vdAsin)
ZML_VML_UNARY(vdAsinh)
ZML_VML_UNARY(vdAtan)
ZML_VML_UNARY(vdAtanh)
ZML_VML_UNARY(vdCos)
ZML_VML_UNARY(vdCosh)
ZML_VML_UNARY(vdExp)
ZML_VML_UNARY(vdLn)
ZML_VML_UNARY(vdLog10)
ZML_VML_UNARY(vdSin)
ZML_VML_UNARY(vdSinh)
ZML_VML_UNARY(vdSqrt)
ZML_VML_UNARY(vdTan)
ZML_VML_UNARY(vdTanh)
ZML_VML_BINARY(vdAdd)
ZML_VML_BINARY(vdSub)
ZML_VML_BINARY(vdMul)
ZML_VML_BINARY(vdDiv)
ZML_VML_BINARY(vdAtan2)
ZML_VML_BINARY(vdPow)
ZML_API void vdPowx(const int n, const double a[], const double b, double r[]);

#undef ZML_VML_UNARY
#undef ZML_VML_BINARY

ZML_EXTERN_C_END

#endif /* ZML_VML_H */
