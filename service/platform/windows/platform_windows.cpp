// SPDX-License-Identifier: BSD-3-Clause
// Windows side of the platform layer: kernel services only, no C runtime
// assumptions beyond what the compiler brings.
#include <windows.h>

#include <cstring>

#include "service/platform/platform.h"

namespace zml::platform {

int32_t getenv(const char* name, char* buf, int32_t size) {
  if (size >= 1) buf[0] = '\0';
  DWORD cap = size < 1 ? 0 : static_cast<DWORD>(size);
  DWORD r = GetEnvironmentVariableA(name, size < 1 ? nullptr : buf, cap);
  if (r == 0) {
    if (size >= 1) buf[0] = '\0';
    return 0;
  }
  if (r >= cap) {  // r is then the required size, terminator included
    if (size >= 1) buf[0] = '\0';
    return -static_cast<int32_t>(r);
  }
  return static_cast<int32_t>(r);
}

bool restricted_process() { return false; }

// Windows TLS has no destructor; thread exit is seen through the loader's
// notification (see dll_main.cpp), which calls run_tls_destructors().
namespace {
constexpr int kMaxKeys = 16;
struct KeyDtor {
  DWORD index;
  void (*dtor)(void*);
};
KeyDtor g_dtors[kMaxKeys];
volatile LONG g_ndtors = 0;
}  // namespace

bool tls_create(TlsKey* key, void (*destructor)(void*)) {
  DWORD idx = TlsAlloc();
  if (idx == TLS_OUT_OF_INDEXES) return false;
  key->value = idx;
  key->valid = true;
  if (destructor) {
    LONG slot = InterlockedIncrement(&g_ndtors) - 1;
    if (slot < kMaxKeys) {
      g_dtors[slot].index = idx;
      MemoryBarrier();
      g_dtors[slot].dtor = destructor;
    }
  }
  return true;
}

void run_tls_destructors() {
  LONG n = g_ndtors < kMaxKeys ? g_ndtors : kMaxKeys;
  for (LONG i = 0; i < n; ++i) {
    if (!g_dtors[i].dtor) continue;
    void* v = TlsGetValue(g_dtors[i].index);
    if (v) {
      TlsSetValue(g_dtors[i].index, nullptr);
      g_dtors[i].dtor(v);
    }
  }
}

// A program linked with the library's objects (not the DLL) gets no loader
// notification through DllMain, so thread exit is also seen through a TLS
// callback, which the loader calls for programs and DLLs alike. In the DLL
// both run; the second finds the values already cleared and does nothing.
namespace {
void NTAPI thread_exit_callback(PVOID, DWORD reason, PVOID) {
  if (reason == DLL_THREAD_DETACH) run_tls_destructors();
}
}  // namespace
extern "C" __attribute__((section(".CRT$XLF"), used))
const PIMAGE_TLS_CALLBACK zml_thread_exit_callback = thread_exit_callback;

void* tls_get(const TlsKey& key) {
  return key.valid ? TlsGetValue(static_cast<DWORD>(key.value)) : nullptr;
}

void tls_set(const TlsKey& key, void* value) {
  if (key.valid) TlsSetValue(static_cast<DWORD>(key.value), value);
}

void tls_destroy(TlsKey* key) {
  if (key->valid) TlsFree(static_cast<DWORD>(key->value));
  key->valid = false;
}

void* find_module(const char* name) { return reinterpret_cast<void*>(GetModuleHandleA(name)); }
void* load_module(const char* name) { return reinterpret_cast<void*>(LoadLibraryA(name)); }
void* module_symbol(void* module, const char* symbol) {
  if (!module) return nullptr;
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), symbol));
}
void unload_module(void* module) {
  if (module) FreeLibrary(static_cast<HMODULE>(module));
}

void yield() { SwitchToThread(); }
void cpu_relax() { YieldProcessor(); }
void sleep_ms(uint32_t ms) { Sleep(ms); }

// The memory manager's system routine is LocalAlloc; Windows has no 2 MiB page
// hint without privileges, so advise_huge_pages does nothing.
void* pages_alloc(size_t bytes) { return reinterpret_cast<void*>(LocalAlloc(LMEM_FIXED, bytes)); }

void pages_free(void* p, size_t) {
  if (p) LocalFree(reinterpret_cast<HLOCAL>(p));
}

void advise_huge_pages(void*, size_t) {}

namespace {
// Created on first use; callers serialise that first call (the memory
// manager's pool lock), and the heap lives as long as the process.
HANDLE g_private_heap = nullptr;
}  // namespace

void* private_heap_alloc(size_t bytes) {
  if (!g_private_heap) g_private_heap = HeapCreate(0, 0, 0);
  return g_private_heap ? HeapAlloc(g_private_heap, HEAP_ZERO_MEMORY, bytes) : nullptr;
}

double seconds() {
  LARGE_INTEGER f, c;
  QueryPerformanceFrequency(&f);
  QueryPerformanceCounter(&c);
  return static_cast<double>(c.QuadPart) / static_cast<double>(f.QuadPart);
}

Topology topology() {
  Topology t;
  DWORD_PTR proc = 0, sys = 0;
  if (GetProcessAffinityMask(GetCurrentProcess(), &proc, &sys) && proc) {
    int n = 0;
    for (DWORD_PTR m = proc; m; m &= m - 1) ++n;
    t.logical = n;
  }
  t.cores = t.logical;
  DWORD len = 0;
  GetLogicalProcessorInformation(nullptr, &len);
  if (len > 0) {
    auto* info =
        static_cast<SYSTEM_LOGICAL_PROCESSOR_INFORMATION*>(HeapAlloc(GetProcessHeap(), 0, len));
    if (info && GetLogicalProcessorInformation(info, &len)) {
      int cores = 0, packages = 0;
      for (DWORD i = 0; i < len / sizeof(*info); ++i) {
        if ((info[i].ProcessorMask & proc) == 0) continue;
        if (info[i].Relationship == RelationProcessorCore) ++cores;
        if (info[i].Relationship == RelationProcessorPackage) ++packages;
      }
      if (cores > 0) t.cores = cores;
      if (packages > 0) t.packages = packages;
    }
    if (info) HeapFree(GetProcessHeap(), 0, info);
  }
  return t;
}

uint32_t thread_locale() { return static_cast<uint32_t>(GetThreadLocale()); }

bool module_message(void* module, uint32_t id, char* buf, size_t size) {
  if (!module || size == 0) return false;
  char* text = nullptr;
  DWORD n = FormatMessageA(0x900, module, id, 1033, reinterpret_cast<char*>(&text), 0, nullptr);
  bool ok = false;
  if (n > 1 && text && text[n - 2] == '\r' && text[n - 1] == '\n') {
    size_t keep = n - 2 < size - 1 ? n - 2 : size - 1;
    std::memcpy(buf, text, keep);
    buf[keep] = '\0';
    ok = true;
  }
  if (text) LocalFree(text);
  return ok;
}

}  // namespace zml::platform
