// SPDX-License-Identifier: BSD-3-Clause
// The threading exports. Every argument arrives by address; the slots are
// those of service/config/settings.h, the query is in service/threading/.
#include "service/config/settings.h"
#include "service/service.h"
#include "zml_service.h"

namespace serv = zml::serv;

extern "C" {

ZML_API void zml_set_num_threads(const int* nthreads) {
  if (nthreads && *nthreads > 0)
    serv::g_settings.num_threads.store(*nthreads, std::memory_order_relaxed);
}

ZML_API int zml_domain_set_num_threads(const int* nthreads, const int* domain) {
  if (!nthreads || !domain) return 0;
  const int n = *nthreads;
  const int d = *domain;
  // Domains compared unsigned: negative codes are out of range too.
  if (n < 0 || static_cast<unsigned>(d) > static_cast<unsigned>(serv::kDomainDirsol)) return 0;
  serv::domain_slot(d).store(n, std::memory_order_relaxed);
  return 1;
}

ZML_API void zml_set_dynamic(const int* flag) {
  if (flag) serv::g_settings.dynamic.store(*flag != 0 ? 1 : 0, std::memory_order_relaxed);
}

ZML_API int zml_get_dynamic(void) {
  serv::ensure_threading_env();
  return serv::g_settings.dynamic.load(std::memory_order_relaxed);
}

ZML_API int zml_domain_get_max_threads(const int* domain) {
  return zml_serv_domain_get_max_threads(domain ? *domain : serv::kDomainAll);
}

ZML_API int zml_get_max_threads(void) { return zml_serv_domain_get_max_threads(serv::kDomainAll); }

}  // extern "C"
