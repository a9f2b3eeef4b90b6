// SPDX-License-Identifier: BSD-3-Clause
// Where printed output goes: the standard output of the runtime library the
// host process uses, found at run time, never one linked into this library.
#pragma once

#include <cstdarg>
#include <cstdint>

namespace zml::serv {

struct HostPrinter {
  enum Kind : int32_t { kOldRuntime = 1, kNewRuntime = 2, kOwnRuntime = 3 };
  Kind kind;
  // Formatted print to the runtime's standard output.
  int (*vprint)(const char* format, va_list args);
  // Flushes every output stream of the runtime; its result is the print result.
  int (*flush_all)();
};

// The printer, looked for once per process and cached. On Windows it is the
// first runtime module found among those already loaded, then by loading;
// null when none is found (output is then suppressed). Elsewhere it is the
// C runtime this library runs on.
const HostPrinter* host_printer();

// Formatted print through host_printer(); -1 and nothing printed when none.
int host_print(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Flush of all streams through host_printer(); -1 when none.
int host_flush_all();

}  // namespace zml::serv
