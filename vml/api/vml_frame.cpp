// SPDX-License-Identifier: BSD-3-Clause
// The per-thread words and the error-mode reactions.
#include "vml/api/vml_frame.h"

#include <cerrno>
#include <cfenv>
#include <cmath>
#include <cstdio>

#include "service/service.h"
#include "vml/kernels/vml_kernel.h"
#include "zml_vml.h"

namespace zml::vml {

namespace {
thread_local uint32_t t_mode = 0;
thread_local int32_t t_status = 0;

constexpr uint32_t kDefaultMode = VML_HA | VML_ERRMODE_DEFAULT;

const char* status_text(int32_t status) {
  switch (status) {
    case VML_STATUS_BADSIZE:
      return "Error (VML_STATUS_BADSIZE) in %s: array size %d is not positive.";
    case VML_STATUS_BADMEM:
      return "Error (VML_STATUS_BADMEM) in %s: NULL pointer is passed.";
    case VML_STATUS_ERRDOM:
      return "Error (VML_STATUS_ERRDOM) in %s: argument is out of domain.";
    case VML_STATUS_SING:
      return "Error (VML_STATUS_SING) in %s: argument caused singularity.";
    case VML_STATUS_OVERFLOW:
      return "Error (VML_STATUS_OVERFLOW) in %s: argument caused overflow.";
    case VML_STATUS_UNDERFLOW:
      return "Error (VML_STATUS_UNDERFLOW) in %s: argument caused underflow.";
    default:
      return nullptr;
  }
}
}  // namespace

uint32_t complete_mode(uint32_t configured) {
  uint32_t m = configured;
  if ((m & VML_ACCURACY_MASK) == 0) m |= VML_HA;
  if ((m & VML_ERRMODE_MASK) == 0) m |= VML_ERRMODE_DEFAULT;
  return m;
}

uint32_t current_mode() {
  if (__builtin_expect(t_mode != 0, 1)) return t_mode;
  uint32_t configured = 0;
  t_mode = serv::configured_vml_mode(&configured) ? complete_mode(configured) : kDefaultMode;
  return t_mode;
}

uint32_t set_mode(uint32_t mode) {
  const uint32_t old = t_mode;
  t_mode = mode;
  return old;
}

int32_t status() { return t_status; }
void set_status(int32_t status) { t_status = status; }
void report_status(int32_t status) { t_status = status; }

void classify_div(const double* a, const double* b, int count) {
  for (int k = 0; k < count; ++k) {
    if (b[k] != 0.0 || std::isnan(a[k]) || std::isinf(a[k])) continue;
    report_status(a[k] == 0.0 ? kErrDom : kSing);
  }
}

void react(const char* name, int32_t status, int32_t n) {
  const uint32_t em = current_mode() & VML_ERRMODE_MASK;
  if (status == 0 || (em & (VML_ERRMODE_NOERR | VML_ERRMODE_IGNORE)) != 0) return;
  // The callback mode calls nothing: no export installs a callback.
  if ((em & VML_ERRMODE_ERRNO) != 0 && status > 0) errno = status == kErrDom ? EDOM : ERANGE;
  if ((em & VML_ERRMODE_STDERR) != 0) {
    if (const char* text = status_text(status)) {
      std::fprintf(stderr, text, name, n);
      std::fputc('\n', stderr);
    }
  }
  if ((em & VML_ERRMODE_EXCEPT) != 0 && status > 0) {
    static constexpr int kExcept[] = {0, FE_INVALID, FE_DIVBYZERO, FE_OVERFLOW | FE_INEXACT,
                                      FE_UNDERFLOW | FE_INEXACT};
    std::feraiseexcept(kExcept[status]);
  }
}

void bad_argument(const char* name, int32_t param, int32_t status, int32_t n) {
  // The name's length is measured with a bound, as a caller's name may be a
  // buffer without a terminator.
  int32_t len = 0;
  while (len < 25 && name[len] != '\0') ++len;
  zml_serv_set_xerbla(zml_serv_xerbla);
  zml_serv_xerbla_dispatch(name, &param, len);
  t_status = status;
  react(name, status, n);
}

}  // namespace zml::vml
