// SPDX-License-Identifier: BSD-3-Clause
// Parsing rules for the environment values. Malformed values are never
// reported: each rule falls back to a fixed answer instead.
#include "service/config/env_parse.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace zml::serv::env {

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_blank(char c) { return c == ' ' || c == '\t'; }
bool is_quote(char c) { return c == '"' || c == '\''; }
// What separates the entries of ZML_DOMAIN_NUM_THREADS.
bool is_list_separator(char c) {
  return is_blank(c) || c == ',' || c == ';' || c == ':' || is_quote(c);
}

// Domain names in domain-code order (0 all, 1 BLAS, 2 FFT, 3 VML, 4 DIRSOL).
constexpr const char* kDomainNames[] = {"ZML_DOMAIN_ALL", "ZML_DOMAIN_BLAS", "ZML_DOMAIN_FFT",
                                        "ZML_DOMAIN_VML", "ZML_DOMAIN_DIRSOL"};
static_assert(sizeof kDomainNames / sizeof kDomainNames[0] == 5);

int domain_code(const char* name, size_t length) {
  for (int d = 0; d < 5; ++d) {
    if (std::strlen(kDomainNames[d]) == length &&
        std::strncmp(name, kDomainNames[d], length) == 0) {
      return d;
    }
  }
  return -1;
}

// thread_count over the first `length` characters of s.
int32_t thread_count_of(const char* s, size_t length) {
  int64_t v = 0;
  if (length == 0) return 1;
  for (size_t i = 0; i < length; ++i) {
    if (!is_digit(s[i])) return 1;
    if (v <= INT32_MAX) v = v * 10 + (s[i] - '0');
  }
  return v > INT32_MAX ? INT32_MAX : static_cast<int32_t>(v);
}

}  // namespace

bool parse_digits(const char* s, int32_t* value) {
  if (s[0] == '\0') return false;
  for (const char* p = s; *p; ++p) {
    if (!is_digit(*p)) return false;
  }
  *value = thread_count_of(s, std::strlen(s));
  return true;
}

int32_t thread_count(const char* s) { return thread_count_of(s, std::strlen(s)); }

std::array<int32_t, 5> parse_domain_list(const char* s) {
  std::array<int32_t, 5> first{-1, -1, -1, -1, -1};
  const char* p = s;
  for (;;) {
    while (*p && is_list_separator(*p)) ++p;
    if (*p == '\0') break;
    const char* name = p;
    while (*p && *p != '=' && !is_list_separator(*p)) ++p;
    const size_t name_length = static_cast<size_t>(p - name);
    while (is_blank(*p) || *p == '=') ++p;
    const char* value = p;
    while (*p && !is_list_separator(*p)) ++p;
    const int d = domain_code(name, name_length);
    if (d < 0) continue;
    const int32_t n = thread_count_of(value, static_cast<size_t>(p - value));
    if (n >= 1 && first[d] == -1) first[d] = n;
  }
  return first;
}

int32_t parse_dynamic(const char* s) {
  const char* p = s;
  while (is_blank(*p) || is_quote(*p)) ++p;
  const char* word = p;
  while (*p && !is_blank(*p) && !is_quote(*p)) ++p;
  const size_t length = static_cast<size_t>(p - word);
  // Only these two spellings: "False" or "0" keep dynamic on, because hosts
  // already deployed with those values rely on dynamic staying on.
  if (length == 5 && (std::strncmp(word, "FALSE", 5) == 0 || std::strncmp(word, "false", 5) == 0)) {
    return 0;
  }
  return 1;
}

int32_t parse_ranks(const char* s, bool colon_ends) {
  char* end = nullptr;
  errno = 0;
  const long v = std::strtol(s, &end, 10);
  if (end == s || errno == ERANGE || v < 0 || v > INT32_MAX) return -1;
  if (colon_ends ? *end != ':' : *end != '\0') return -1;
  return static_cast<int32_t>(v);
}

int32_t parse_verbose(const char* s) {
  char* end = nullptr;
  errno = 0;
  const long v = std::strtol(s, &end, 0);
  if (end == s || *end != '\0' || errno == ERANGE) return 0;
  return v == 1 ? 1 : 0;
}

}  // namespace zml::serv::env
