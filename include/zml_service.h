/* SPDX-License-Identifier: BSD-3-Clause */
/* Service exports: memory manager and threading control. Every argument is
   passed by address; this calling form is part of the interface. */
#ifndef ZML_SERVICE_H
#define ZML_SERVICE_H

#include <stddef.h>
#include <stdint.h>

#include "zml_export.h"

ZML_EXTERN_C_BEGIN

/* Thread-count domains. */
#define ZML_DOMAIN_ALL 0
#define ZML_DOMAIN_BLAS 1
#define ZML_DOMAIN_FFT 2
#define ZML_DOMAIN_VML 3
#define ZML_DOMAIN_DIRSOL 4

/* Aligned allocation. An alignment below 64 or not a power of two becomes 64.
   In front of the returned address p lie four header words of pointer size
   (32 bits on 32-bit builds, 64 bits on 64-bit builds): the base of the
   underlying block, the size requested from the system (size + alignment +
   the 16 or 32 header bytes), 0, and the alignment.
   Returns NULL when the size wraps or the system refuses. */
ZML_API void* zml_malloc(const size_t* size, const int* alignment);
/* Releases a block from zml_malloc; NULL is harmless. */
ZML_API void zml_free(void* const* ptr);
/* Switches the caching manager off; 1 if this call did it, 0 if it was too late. */
ZML_API int zml_disable_fast_mm(void);
/* Bytes held by the manager; stores the number of buffers at *nbuffers when not NULL. */
ZML_API int64_t zml_mem_stat(int* nbuffers);
/* Returns the cached buffers of all threads / of the calling thread to the system. */
ZML_API void zml_free_buffers(void);
ZML_API void zml_thread_free_buffers(void);

ZML_API void zml_set_num_threads(const int* nthreads);
ZML_API int zml_domain_set_num_threads(const int* nthreads, const int* domain);
ZML_API void zml_set_dynamic(const int* flag);
ZML_API int zml_get_dynamic(void);
ZML_API int zml_domain_get_max_threads(const int* domain);
ZML_API int zml_get_max_threads(void);

ZML_EXTERN_C_END

#endif /* ZML_SERVICE_H */
