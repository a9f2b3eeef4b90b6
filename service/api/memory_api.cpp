// SPDX-License-Identifier: BSD-3-Clause
// The memory exports. Every argument arrives by address; the work is done by
// the manager in service/memory/.
#include "service/memory/memory.h"
#include "zml_service.h"

namespace mem = zml::serv::mem;

extern "C" {

ZML_API void* zml_malloc(const size_t* size, const int* alignment) {
  if (!size) return nullptr;
  // Negative alignments are invalid like small ones; the manager makes them 64.
  const int a = alignment ? *alignment : 0;
  return mem::allocate(*size, a > 0 ? static_cast<size_t>(a) : 0);
}

ZML_API void zml_free(void* const* ptr) {
  if (ptr) mem::release(*ptr);
}

ZML_API int zml_disable_fast_mm(void) { return mem::disable(); }

ZML_API int64_t zml_mem_stat(int* nbuffers) {
  int32_t n = 0;
  const int64_t bytes = mem::stat(&n);
  if (nbuffers) *nbuffers = n;
  return bytes;
}

ZML_API void zml_free_buffers(void) { mem::free_all_buffers(); }

ZML_API void zml_thread_free_buffers(void) { mem::free_thread_buffers(); }

}  // extern "C"
