// SPDX-License-Identifier: BSD-3-Clause
// Verbose mode: the ZML_VERBOSE switch, the timer and the writer of one line
// per traced call (to ZML_VERBOSE_OUTPUT_FILE when it can be opened).
#include <cstdarg>
#include <cstdio>

#include "service/config/env_parse.h"
#include "service/config/settings.h"
#include "service/config/verbose_line.h"
#include "service/entry.h"
#include "service/error/host_runtime.h"
#include "service/lock.h"
#include "service/platform/platform.h"
#include "service/service.h"

namespace zml::serv {

namespace {

constexpr int32_t kVerboseBufferSize = 128;
constexpr int32_t kOutputFileBufferSize = 260;
// Room for the 200-byte call text and the settings that follow it.
constexpr size_t kLineSize = 384;

// Its own lock: the first verbose query may come from inside detection or
// threading code that already holds the other lock words.
LockWord g_verbose_mode_lock{0};
// Serialises whole lines, so concurrent traced calls never interleave.
LockWord g_verbose_output_lock{0};
// Written only under g_verbose_output_lock.
bool g_output_opened = false;
std::FILE* g_output_file = nullptr;

struct Unit {
  double scale;
  const char* name;
};
// Largest first; the last one also takes values below 1 ns.
constexpr Unit kUnits[] = {{1.0, "s"}, {1e3, "ms"}, {1e6, "us"}, {1e9, "ns"}};

}  // namespace

bool verbose_on() {
  int32_t mode = g_settings.verbose_mode.load(std::memory_order_acquire);
  if (mode == -1) {
    LockGuard guard(g_verbose_mode_lock);
    mode = g_settings.verbose_mode.load(std::memory_order_acquire);
    if (mode == -1) {
      char buf[kVerboseBufferSize];
      mode =
          zml_serv_getenv("ZML_VERBOSE", buf, kVerboseBufferSize) > 0 ? env::parse_verbose(buf) : 0;
      g_settings.verbose_mode.store(mode, std::memory_order_release);
    }
  }
  return mode == 1;
}

double seconds() { return platform::seconds(); }

void format_elapsed(double secs, char* buf, size_t size) {
  for (const Unit& unit : kUnits) {
    const double v = secs * unit.scale;
    if (v >= 1.0 || &unit == &kUnits[sizeof kUnits / sizeof kUnits[0] - 1]) {
      std::snprintf(buf, size, "%.2f%s", v, unit.name);
      return;
    }
  }
}

size_t format_verbose_line(char* buf, size_t size, const char* call_text, double elapsed,
                           const VerboseContext& ctx) {
  if (size == 0) return 0;
  char time[48];
  format_elapsed(elapsed, time, sizeof time);
  const int n =
      std::snprintf(buf, size, "ZML_VERBOSE %s %s threads:%d dynamic:%d fast_mm:%d code_path:%d\n",
                    call_text, time, ctx.threads, ctx.dynamic, ctx.fast_mm, ctx.code_path);
  if (n < 0) {
    buf[0] = '\0';
    return 0;
  }
  if (static_cast<size_t>(n) < size) return static_cast<size_t>(n);
  // Cut: keep the line break so the next line still starts on its own.
  buf[size - 2] = '\n';
  return size - 1;
}

uint64_t EntryWord::resolve() {
  if (installs_) zml_serv_set_xerbla(zml_serv_xerbla);
  return add(kResolved | (verbose_on() ? kVerbose : 0));
}

void format_call(char* buf, size_t size, const char* fmt, ...) {
  if (size == 0) return;
  va_list args;
  va_start(args, fmt);
  if (std::vsnprintf(buf, size, fmt, args) < 0) buf[0] = '\0';
  va_end(args);
}

void verbose_print(const char* call_text, double elapsed_seconds, Domain domain) {
  // Gathered before taking the output lock: these may do their own one-time work.
  VerboseContext ctx;
  ctx.threads = zml_serv_domain_get_max_threads(domain);
  ensure_threading_env();
  ctx.dynamic = g_settings.dynamic.load(std::memory_order_relaxed) == 0 ? 0 : 1;
  ctx.fast_mm = fast_mm_enabled() ? 1 : 0;
  ctx.code_path = zml_serv_get_code_path();

  char line[kLineSize];
  format_verbose_line(line, sizeof line, call_text ? call_text : "", elapsed_seconds, ctx);

  LockGuard guard(g_verbose_output_lock);
  if (!g_output_opened) {
    g_output_opened = true;
    char name[kOutputFileBufferSize];
    if (zml_serv_getenv("ZML_VERBOSE_OUTPUT_FILE", name, kOutputFileBufferSize) > 0) {
      g_output_file = std::fopen(name, "a");
    }
  }
  if (g_output_file != nullptr) {
    std::fputs(line, g_output_file);
    std::fflush(g_output_file);
  } else {
    host_print("%s", line);
    host_flush_all();
  }
}

}  // namespace zml::serv
