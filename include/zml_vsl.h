/* SPDX-License-Identifier: BSD-3-Clause */
/* Random numbers: streams of basic generators and the distributions drawn
   from them. Every entry returns a status, 0 on success. */
#ifndef ZML_VSL_H
#define ZML_VSL_H

#include "zml_export.h"

ZML_EXTERN_C_BEGIN

typedef void* VSLStreamStatePtr;

/* Basic generators: ((row + 1) << 20) | member. */
#define VSL_BRNG_SHIFT 20
#define VSL_BRNG_INC (1 << VSL_BRNG_SHIFT)
#define VSL_BRNG_MCG31 (1 * VSL_BRNG_INC)
#define VSL_BRNG_R250 (2 * VSL_BRNG_INC)
#define VSL_BRNG_MRG32K3A (3 * VSL_BRNG_INC)
#define VSL_BRNG_MCG59 (4 * VSL_BRNG_INC)
#define VSL_BRNG_WH (5 * VSL_BRNG_INC) /* 273 members: VSL_BRNG_WH + m */
#define VSL_BRNG_SOBOL (6 * VSL_BRNG_INC)
#define VSL_BRNG_NIEDERR (7 * VSL_BRNG_INC)
#define VSL_BRNG_MT19937 (8 * VSL_BRNG_INC)
#define VSL_BRNG_MT2203 (9 * VSL_BRNG_INC) /* 6024 members: VSL_BRNG_MT2203 + m */
#define VSL_BRNG_IABSTRACT (10 * VSL_BRNG_INC)
#define VSL_BRNG_DABSTRACT (11 * VSL_BRNG_INC)
#define VSL_BRNG_SABSTRACT (12 * VSL_BRNG_INC)
#define VSL_BRNG_SFMT19937 (13 * VSL_BRNG_INC)
#define VSL_BRNG_NONDETERM (14 * VSL_BRNG_INC)
#define VSL_BRNG_ARS5 (15 * VSL_BRNG_INC)
#define VSL_BRNG_PHILOX4X32X10 (16 * VSL_BRNG_INC)

/* Distribution methods. */
#define VSL_RNG_METHOD_UNIFORM_STD 0
#define VSL_RNG_METHOD_UNIFORM_STD_ACCURATE 0x40000000
#define VSL_RNG_METHOD_GAUSSIAN_BOXMULLER 0
#define VSL_RNG_METHOD_GAUSSIAN_BOXMULLER2 1
#define VSL_RNG_METHOD_GAUSSIAN_ICDF 2
#define VSL_RNG_METHOD_GAUSSIANMV_BOXMULLER 0
#define VSL_RNG_METHOD_GAUSSIANMV_BOXMULLER2 1
#define VSL_RNG_METHOD_GAUSSIANMV_ICDF 2

/* Storage of the factor of vdRngGaussianMV. */
#define VSL_MATRIX_STORAGE_FULL 0
#define VSL_MATRIX_STORAGE_PACKED 1
#define VSL_MATRIX_STORAGE_DIAGONAL 2

/* Status codes. */
#define VSL_ERROR_OK 0
#define VSL_STATUS_OK 0
#define VSL_ERROR_BADARGS -3
#define VSL_ERROR_MEM_FAILURE -4
#define VSL_ERROR_NULL_PTR -5
#define VSL_RNG_ERROR_INVALID_BRNG_INDEX -1000
#define VSL_RNG_ERROR_BAD_STREAM -1006
#define VSL_RNG_ERROR_QRNG_PERIOD_ELAPSED -1012
#define VSL_RNG_ERROR_NONDETERM_NOT_SUPPORTED -1130
#define VSL_RNG_ERROR_NONDETERM_NRETRIES_EXCEEDED -1131

ZML_API int vslNewStream(VSLStreamStatePtr* stream, const int brng, const unsigned int seed);
ZML_API int vslNewStreamEx(VSLStreamStatePtr* stream, const int brng, const int n,
                           const unsigned int params[]);
ZML_API int vslDeleteStream(VSLStreamStatePtr* stream);
ZML_API int vdRngUniform(const int method, VSLStreamStatePtr stream, const int n, double r[],
                         const double a, const double b);
ZML_API int vdRngGaussian(const int method, VSLStreamStatePtr stream, const int n, double r[],
                          const double a, const double sigma);
ZML_API int vdRngGaussianMV(const int method, VSLStreamStatePtr stream, const int n, double r[],
                            const int dimen, const int mstorage, const double* a, const double* t);

ZML_EXTERN_C_END

#endif /* ZML_VSL_H */
