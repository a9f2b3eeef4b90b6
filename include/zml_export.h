/* SPDX-License-Identifier: BSD-3-Clause */
/* Export decoration shared by every public header of custom_zml. */
#ifndef ZML_EXPORT_H
#define ZML_EXPORT_H

#if defined(_WIN32)
#if defined(ZML_BUILDING_LIBRARY)
#define ZML_API __declspec(dllexport)
#else
#define ZML_API
#endif
#else
#define ZML_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#define ZML_EXTERN_C_BEGIN extern "C" {
#define ZML_EXTERN_C_END }
#else
#define ZML_EXTERN_C_BEGIN
#define ZML_EXTERN_C_END
#endif

#endif /* ZML_EXPORT_H */
