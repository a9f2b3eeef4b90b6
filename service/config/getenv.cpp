// SPDX-License-Identifier: BSD-3-Clause
// The one environment reader of the library, with the restricted-environment
// rule applied on top of the platform's lookup.
#include <cstring>

#include "service/config/env_parse.h"
#include "service/platform/platform.h"
#include "service/service.h"

namespace zml::serv::env {

namespace {
// The only names a restricted process may look up.
constexpr const char* kRestrictedNames[] = {"MIC_LD_LIBRARY_PATH", "LD_LIBRARY_PATH", "ZMLROOT",
                                            "LANG"};

bool allowed_when_restricted(const char* name) {
  for (const char* allowed : kRestrictedNames) {
    if (std::strcmp(name, allowed) == 0) return true;
  }
  return false;
}
}  // namespace

int32_t read(const char* name, char* buf, int32_t size, bool restricted) {
  if (size < 1) buf = nullptr;
  if (name == nullptr || (restricted && !allowed_when_restricted(name))) {
    if (buf != nullptr) buf[0] = '\0';
    return 0;
  }
  return platform::getenv(name, buf, size < 1 ? 0 : size);
}

}  // namespace zml::serv::env

// The restricted-environment flag is ours to define: it is set while the
// process runs with privileges it did not start with (set-user-ID or
// set-group-ID, real and effective ids differ; never on Windows). Such a
// process must not let its caller's environment steer the library, so only
// the loader and locale names above are read; every setting keeps its default.
int32_t zml_serv_getenv(const char* name, char* buf, int32_t size) {
  return zml::serv::env::read(name, buf, size, zml::platform::restricted_process());
}
