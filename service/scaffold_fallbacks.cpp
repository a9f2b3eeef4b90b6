// SPDX-License-Identifier: BSD-3-Clause
// TEMPORARY scaffolding while the service layer is written in parallel: weak
// definitions that the real ones replace at link time. Removed before landing.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "service/config/settings.h"
#include "service/dispatch/code_path_table.h"
#include "service/platform/platform.h"
#include "service/service.h"

#define ZML_WEAK __attribute__((weak))

ZML_WEAK int32_t zml_serv_getenv(const char* name, char* buf, int32_t size) {
  return zml::platform::getenv(name, buf, size);
}
ZML_WEAK int32_t zml_serv_print(int32_t, int32_t, int32_t, ...) { return 0; }
ZML_WEAK const char* zml_serv_format(int32_t, int32_t, ...) { return ""; }
ZML_WEAK void zml_serv_xerbla(const char* name, const int32_t* info, int32_t len) {
  std::printf("\nArvel ZML ERROR: Parameter %d was incorrect on entry to %.*s.\n", *info, len,
              name);
}
ZML_WEAK void zml_serv_set_xerbla(zml_xerbla_fn) {}
ZML_WEAK void zml_serv_xerbla_dispatch(const char* name, const int32_t* info, int32_t len) {
  zml_serv_xerbla(name, info, len);
}
ZML_WEAK void zml_serv_report_memory(int32_t, const char*) {}
ZML_WEAK void zml_serv_stop(int32_t) {}
ZML_WEAK int32_t zml_serv_get_code_path() { return 11; }
ZML_WEAK int32_t zml_serv_cpu_detect(int32_t) { return 1; }
ZML_WEAK bool zml_serv_own_processor() { return false; }
ZML_WEAK int32_t zml_serv_domain_get_max_threads(int32_t) { return 2; }

namespace zml::serv {
ZML_WEAK Settings g_settings;
ZML_WEAK std::atomic<int32_t>& domain_slot(int32_t d) {
  switch (d) {
    case 1: return g_settings.domain_threads_blas;
    case 2: return g_settings.domain_threads_fft;
    case 3: return g_settings.domain_threads_vml;
    case 4: return g_settings.domain_threads_dirsol;
    default: return g_settings.num_threads;
  }
}
ZML_WEAK void read_threading_env() {}
ZML_WEAK int32_t num_stripes() { return -1; }
ZML_WEAK bool verbose_on() { return false; }
ZML_WEAK double seconds() { return platform::seconds(); }
ZML_WEAK void verbose_print(const char* text, double t) { std::printf("%s %g s\n", text, t); }
ZML_WEAK void param_error(const char* name, int32_t info) {
  zml_serv_xerbla_dispatch(name, &info, static_cast<int32_t>(std::strlen(name)));
}
ZML_WEAK int32_t processor_type() { return 9; }
ZML_WEAK bool isa_allowed(IsaFlag) { return true; }
ZML_WEAK uint32_t feature_word() { return 0x9c2001 | 0x10001 | 0x401 | 0x9000001; }
ZML_WEAK uint32_t feature_word2() { return 0x60; }
ZML_WEAK void* aligned_alloc(size_t size, size_t alignment) {
#ifdef _WIN32
  return _aligned_malloc(size, alignment);
#else
  return std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
#endif
}
#ifdef _WIN32
ZML_WEAK void aligned_free(void* p) { _aligned_free(p); }
#else
ZML_WEAK void aligned_free(void* p) { std::free(p); }
#endif
ZML_WEAK bool fast_mm_enabled() { return true; }
ZML_WEAK int32_t topology_answer() { return 0; }
}  // namespace zml::serv

namespace zml::dispatch {
ZML_WEAK bool isa_usable(Isa isa) {
  switch (isa) {
    case Isa::kAvx512:
      return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
             __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl");
    case Isa::kAvx2:
      return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    case Isa::kAvx:
      return __builtin_cpu_supports("avx");
    case Isa::kSse42:
      return __builtin_cpu_supports("sse4.2");
    default:
      return true;
  }
}
}  // namespace zml::dispatch
