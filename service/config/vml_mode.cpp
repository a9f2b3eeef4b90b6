// SPDX-License-Identifier: BSD-3-Clause
// The configured initial mode of the vector-math functions, ZML_VML_MODE:
// either a number in any base (decimal, 0x hexadecimal, leading-0 octal) that
// uses the whole value, or mode names joined by '|' (blanks around names
// allowed), e.g. "VML_LA | VML_ERRMODE_STDERR". Any other text counts as no
// configured mode, so a typo leaves the library's default rather than some
// guessed part of it.
#include <cctype>
#include <cstdlib>
#include <cstring>

#include "service/service.h"
#include "zml_vml.h"

namespace zml::serv {

namespace {
struct ModeName {
  const char* name;
  uint32_t value;
};
constexpr ModeName kModeNames[] = {
    {"VML_LA", VML_LA},
    {"VML_HA", VML_HA},
    {"VML_EP", VML_EP},
    {"VML_ERRMODE_IGNORE", VML_ERRMODE_IGNORE},
    {"VML_ERRMODE_ERRNO", VML_ERRMODE_ERRNO},
    {"VML_ERRMODE_STDERR", VML_ERRMODE_STDERR},
    {"VML_ERRMODE_EXCEPT", VML_ERRMODE_EXCEPT},
    {"VML_ERRMODE_CALLBACK", VML_ERRMODE_CALLBACK},
    {"VML_ERRMODE_NOERR", VML_ERRMODE_NOERR},
    {"VML_ERRMODE_DEFAULT", VML_ERRMODE_DEFAULT},
};

bool parse_names(const char* s, uint32_t* out) {
  uint32_t mode = 0;
  for (;;) {
    while (*s == ' ' || *s == '\t') ++s;
    const char* end = s;
    while (*end != '\0' && *end != '|' && *end != ' ' && *end != '\t') ++end;
    const size_t len = static_cast<size_t>(end - s);
    bool known = false;
    for (const ModeName& m : kModeNames) {
      if (std::strlen(m.name) == len && std::strncmp(m.name, s, len) == 0) {
        mode |= m.value;
        known = true;
      }
    }
    if (!known) return false;
    while (*end == ' ' || *end == '\t') ++end;
    if (*end == '\0') break;
    if (*end != '|') return false;
    s = end + 1;
  }
  *out = mode;
  return true;
}
}  // namespace

bool parse_vml_mode(const char* text, uint32_t* mode) {
  while (*text == ' ' || *text == '\t') ++text;
  if (std::isdigit(static_cast<unsigned char>(*text))) {
    char* end = nullptr;
    const unsigned long v = std::strtoul(text, &end, 0);
    while (*end == ' ' || *end == '\t') ++end;
    if (*end != '\0' || v > 0xFFFFFFFFul) return false;
    *mode = static_cast<uint32_t>(v);
    return true;
  }
  return parse_names(text, mode);
}

bool configured_vml_mode(uint32_t* mode) {
  char buf[256];
  if (zml_serv_getenv("ZML_VML_MODE", buf, sizeof buf) <= 0) return false;
  return parse_vml_mode(buf, mode);
}

}  // namespace zml::serv
