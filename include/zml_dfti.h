/* SPDX-License-Identifier: BSD-3-Clause */
/* Fourier transforms: descriptor handles, their configuration codes and
   status codes. Every entry returns a 32-bit status, 0 on success. */
#ifndef ZML_DFTI_H
#define ZML_DFTI_H

#include <stdint.h>

#include "zml_export.h"

ZML_EXTERN_C_BEGIN

typedef struct DftiDescriptor* DFTI_DESCRIPTOR_HANDLE;

/* Configuration parameters (the code after the handle in Set/GetValue). */
enum DFTI_CONFIG_PARAM {
  DFTI_FORWARD_DOMAIN = 0,
  DFTI_DIMENSION = 1,
  DFTI_LENGTHS = 2,
  DFTI_PRECISION = 3,
  DFTI_FORWARD_SCALE = 4,
  DFTI_BACKWARD_SCALE = 5,
  DFTI_NUMBER_OF_TRANSFORMS = 7,
  DFTI_COMPLEX_STORAGE = 8,
  DFTI_REAL_STORAGE = 9,
  DFTI_CONJUGATE_EVEN_STORAGE = 10,
  DFTI_PLACEMENT = 11,
  DFTI_INPUT_STRIDES = 12,
  DFTI_OUTPUT_STRIDES = 13,
  DFTI_INPUT_DISTANCE = 14,
  DFTI_OUTPUT_DISTANCE = 15,
  DFTI_WORKSPACE = 17,
  DFTI_ORDERING = 18,
  DFTI_TRANSPOSE = 19,
  DFTI_DESCRIPTOR_NAME = 20,
  DFTI_PACKED_FORMAT = 21,
  DFTI_COMMIT_STATUS = 22,
  DFTI_VERSION = 23,
  DFTI_NUMBER_OF_USER_THREADS = 26,
  DFTI_THREAD_LIMIT = 27,
  DFTI_DESTROY_INPUT = 28
};

/* Configuration values. Code 50 (forward-scrambled ordering) is refused. */
enum DFTI_CONFIG_VALUE {
  DFTI_COMMITTED = 30,
  DFTI_UNCOMMITTED = 31,
  DFTI_COMPLEX = 32,
  DFTI_REAL = 33,
  DFTI_SINGLE = 35,
  DFTI_DOUBLE = 36,
  DFTI_COMPLEX_COMPLEX = 39,
  DFTI_COMPLEX_REAL = 40,
  DFTI_REAL_COMPLEX = 41,
  DFTI_REAL_REAL = 42,
  DFTI_INPLACE = 43,
  DFTI_NOT_INPLACE = 44,
  DFTI_ORDERED = 48,
  DFTI_BACKWARD_SCRAMBLED = 49,
  DFTI_ALLOW = 51,
  DFTI_AVOID = 52,
  DFTI_CCS_FORMAT = 54,
  DFTI_PACK_FORMAT = 55,
  DFTI_PERM_FORMAT = 56,
  DFTI_CCE_FORMAT = 57
};

/* Status codes; DftiErrorMessage gives their texts. */
#define DFTI_NO_ERROR 0
#define DFTI_MEMORY_ERROR 1
#define DFTI_INVALID_CONFIGURATION 2
#define DFTI_INCONSISTENT_CONFIGURATION 3
#define DFTI_MULTITHREADED_ERROR 4
#define DFTI_BAD_DESCRIPTOR 5
#define DFTI_UNIMPLEMENTED 6
#define DFTI_ZML_INTERNAL_ERROR 7
#define DFTI_NUMBER_OF_THREADS_ERROR 8
#define DFTI_1D_LENGTH_EXCEEDS_INT32 9

/* Size of the buffer DftiGetValue(DFTI_VERSION) fills. */
#define DFTI_VERSION_LENGTH 198

/* One further argument: the length (a 32-bit integer) for dimension 1, else a
   pointer to `dimension` 32-bit lengths, first dimension first. */
ZML_API int32_t DftiCreateDescriptor(DFTI_DESCRIPTOR_HANDLE* handle, int32_t precision,
                                     int32_t domain, int32_t dimension, ...);
ZML_API int32_t DftiCopyDescriptor(DFTI_DESCRIPTOR_HANDLE source, DFTI_DESCRIPTOR_HANDLE* copy);
ZML_API int32_t DftiFreeDescriptor(DFTI_DESCRIPTOR_HANDLE* handle);
/* The value follows by value: an integer or code, a double for the scales, a
   pointer for strides and the name. */
ZML_API int32_t DftiSetValue(DFTI_DESCRIPTOR_HANDLE handle, int32_t parameter, ...);
/* A pointer to storage for the value follows. */
ZML_API int32_t DftiGetValue(DFTI_DESCRIPTOR_HANDLE handle, int32_t parameter, ...);
ZML_API int32_t DftiCommitDescriptor(DFTI_DESCRIPTOR_HANDLE handle);
/* In-place: the data array; out-of-place: input then output array. */
ZML_API int32_t DftiComputeForward(DFTI_DESCRIPTOR_HANDLE handle, void* data, ...);
ZML_API int32_t DftiComputeBackward(DFTI_DESCRIPTOR_HANDLE handle, void* data, ...);
ZML_API int32_t DftiErrorClass(int32_t status, int32_t error_class);
ZML_API char* DftiErrorMessage(int32_t status);

ZML_EXTERN_C_END

#endif /* ZML_DFTI_H */
