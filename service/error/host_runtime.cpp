// SPDX-License-Identifier: BSD-3-Clause
// Finds the host's runtime library for printed output. On Windows the library
// brings no runtime of its own for output, so it looks for the one the host
// loaded; elsewhere the C runtime is shared with the host and used directly.
#include "service/error/host_runtime.h"

#include <cstdio>

#if defined(_WIN32)
#include <atomic>

#include "service/lock.h"
#include "service/platform/platform.h"
#endif

namespace zml::serv {

#if defined(_WIN32)

namespace {

using OldVfprintfS = int (*)(void* stream, const char* format, va_list args);
using OldIobFunc = void* (*)();
using NewVfprintfS = int (*)(unsigned long long options, void* stream, const char* format,
                             void* locale, va_list args);
using NewIobFunc = void* (*)(unsigned index);
using Fflush = int (*)(void* stream);

// The old runtimes' stream record. Only its size matters: standard output is
// the second entry of the table that __iob_func returns.
struct OldRuntimeStream {
  char* ptr;
  int cnt;
  char* base;
  int flag;
  int file;
  int charbuf;
  int bufsiz;
  char* tmpfname;
};

struct RuntimeModule {
  const char* name;
  HostPrinter::Kind kind;
};

// Tried in this order, first among loaded modules, then by loading.
constexpr RuntimeModule kRuntimeModules[] = {
    {"APPCRT140.DLL", HostPrinter::kNewRuntime}, {"APPCRT140D.DLL", HostPrinter::kNewRuntime},
    {"UCRTBASE.DLL", HostPrinter::kNewRuntime},  {"UCRTBASED.DLL", HostPrinter::kNewRuntime},
    {"MSVCR120.DLL", HostPrinter::kOldRuntime},  {"MSVCR120D.DLL", HostPrinter::kOldRuntime},
    {"MSVCR110.DLL", HostPrinter::kOldRuntime},  {"MSVCR110D.DLL", HostPrinter::kOldRuntime},
    {"MSVCR100.DLL", HostPrinter::kOldRuntime},  {"MSVCR100D.DLL", HostPrinter::kOldRuntime},
    {"MSVCR90.DLL", HostPrinter::kOldRuntime},   {"MSVCR90D.DLL", HostPrinter::kOldRuntime},
    {"MSVCR80.DLL", HostPrinter::kOldRuntime},   {"MSVCR80D.DLL", HostPrinter::kOldRuntime},
    {"MSVCRT.DLL", HostPrinter::kOldRuntime},    {"MSVCRTD.DLL", HostPrinter::kOldRuntime},
};

// The entries the printer uses. The runtimes' scan and bounded-print entries
// are not needed: text is formatted into buffers by this library itself.
struct Entries {
  const char* print;
  const char* streams;
};
constexpr Entries kOldEntries{"vfprintf_s", "__iob_func"};
constexpr Entries kNewEntries{"__stdio_common_vfprintf_s", "__acrt_iob_func"};

// Written once under g_search_lock before g_state publishes them.
OldVfprintfS g_old_print = nullptr;
NewVfprintfS g_new_print = nullptr;
Fflush g_flush = nullptr;
void* g_stdout = nullptr;
HostPrinter g_printer{HostPrinter::kOldRuntime, nullptr, nullptr};

constexpr int32_t kNotSearched = -1;
constexpr int32_t kNone = 0;
std::atomic<int32_t> g_state{kNotSearched};
LockWord g_search_lock{0};

int old_vprint(const char* format, va_list args) { return g_old_print(g_stdout, format, args); }
int new_vprint(const char* format, va_list args) {
  return g_new_print(0, g_stdout, format, nullptr, args);
}
int flush_every_stream() { return g_flush(nullptr); }

template <class Fn>
Fn entry(void* module, const char* name) {
  return reinterpret_cast<Fn>(platform::module_symbol(module, name));
}

// Takes the runtime in `module` when it has every entry the printer needs.
bool take(void* module, HostPrinter::Kind kind) {
  const Entries& e = kind == HostPrinter::kNewRuntime ? kNewEntries : kOldEntries;
  auto flush = entry<Fflush>(module, "fflush");
  if (flush == nullptr) return false;
  if (kind == HostPrinter::kNewRuntime) {
    auto print = entry<NewVfprintfS>(module, e.print);
    auto streams = entry<NewIobFunc>(module, e.streams);
    if (print == nullptr || streams == nullptr) return false;
    g_new_print = print;
    g_stdout = streams(1);
    g_printer.vprint = new_vprint;
  } else {
    auto print = entry<OldVfprintfS>(module, e.print);
    auto streams = entry<OldIobFunc>(module, e.streams);
    if (print == nullptr || streams == nullptr) return false;
    g_old_print = print;
    g_stdout = static_cast<OldRuntimeStream*>(streams()) + 1;
    g_printer.vprint = old_vprint;
  }
  g_flush = flush;
  g_printer.flush_all = flush_every_stream;
  g_printer.kind = kind;
  return true;
}

int32_t search() {
  for (const RuntimeModule& rt : kRuntimeModules) {
    void* module = platform::find_module(rt.name);
    if (module != nullptr && take(module, rt.kind)) return rt.kind;
  }
  for (const RuntimeModule& rt : kRuntimeModules) {
    void* module = platform::load_module(rt.name);
    if (module == nullptr) continue;
    if (take(module, rt.kind)) return rt.kind;  // kept loaded for the life of the process
    platform::unload_module(module);
  }
  return kNone;
}

}  // namespace

const HostPrinter* host_printer() {
  int32_t state = g_state.load(std::memory_order_acquire);
  if (state == kNotSearched) {
    LockGuard guard(g_search_lock);
    state = g_state.load(std::memory_order_acquire);
    if (state == kNotSearched) {
      state = search();
      g_state.store(state, std::memory_order_release);
    }
  }
  return state == kNone ? nullptr : &g_printer;
}

#else  // the C runtime is the host's own

namespace {
int own_vprint(const char* format, va_list args) { return std::vfprintf(stdout, format, args); }
int own_flush_all() { return std::fflush(nullptr); }
constexpr HostPrinter kOwnPrinter{HostPrinter::kOwnRuntime, own_vprint, own_flush_all};
}  // namespace

const HostPrinter* host_printer() { return &kOwnPrinter; }

#endif

int host_print(const char* format, ...) {
  const HostPrinter* printer = host_printer();
  if (printer == nullptr) return -1;
  va_list args;
  va_start(args, format);
  const int n = printer->vprint(format, args);
  va_end(args);
  return n;
}

int host_flush_all() {
  const HostPrinter* printer = host_printer();
  return printer == nullptr ? -1 : printer->flush_all();
}

}  // namespace zml::serv
