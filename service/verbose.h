// SPDX-License-Identifier: BSD-3-Clause
// The tracing wrapper of every checked entry: in verbose mode the call is
// timed and written as one line, formatted into a 200-byte buffer. Calls that
// failed their checks are written too, with the time of an empty interval.
#pragma once

#include <cstdio>

#include "service/service.h"

namespace zml::serv {

inline constexpr int kVerboseLineSize = 200;

// Runs call() when `checks_passed`, and in verbose mode writes the line made
// from fmt and args with the elapsed seconds.
template <class Call, class... Args>
void run_traced(bool checks_passed, Call&& call, const char* fmt, Args... args) {
  if (!verbose_on()) {
    if (checks_passed) call();
    return;
  }
  double t0 = seconds();
  if (checks_passed) call();
  double elapsed = checks_passed ? seconds() - t0 : 0.0;
  char line[kVerboseLineSize];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  std::snprintf(line, sizeof line, fmt, args...);
#pragma GCC diagnostic pop
  verbose_print(line, elapsed);
}

}  // namespace zml::serv
