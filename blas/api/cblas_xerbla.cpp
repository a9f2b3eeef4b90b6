// SPDX-License-Identifier: BSD-3-Clause
// The CBLAS error routine and the replacement parameter-error routine it
// installs for the process (the first installer wins).
#include <cstring>

#include "blas/api/cblas_layer.h"
#include "service/service.h"

namespace zml::blas::cblas {

namespace {

// The CBLAS replacement routine: same three arguments as the service
// routine and the same message, so reports read alike whoever installed first.
void cblas_error_routine(const char* name, const int32_t* info, int32_t name_length) {
  zml_serv_xerbla(name, info, name_length);
}

constexpr size_t kNameLimit = 4096;

}  // namespace

void cblas_xerbla(const char* name, int32_t param) {
  zml_serv_set_xerbla(cblas_error_routine);
  const auto length = static_cast<int32_t>(strnlen(name, kNameLimit));
  zml_serv_xerbla(name, &param, length);
}

}  // namespace zml::blas::cblas
