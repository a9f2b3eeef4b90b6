// SPDX-License-Identifier: BSD-3-Clause
// A stand-in for the high-bandwidth memory library, for the manager's loader
// tests: its version, and whether it has the allocation entries, come from the
// build. Allocations come from the ordinary heap.
#include <cstddef>
#include <cstdlib>

#define STUB_API extern "C" __attribute__((visibility("default")))

STUB_API int memkind_get_version() { return ZML_STUB_VERSION; }

#if ZML_STUB_ENTRIES
STUB_API int hbw_posix_memalign_psize(void** out, size_t alignment, size_t bytes, int) {
  return posix_memalign(out, alignment, bytes);
}
STUB_API void hbw_free(void* p) { std::free(p); }
#endif
