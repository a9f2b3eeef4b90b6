// SPDX-License-Identifier: BSD-3-Clause
// The only door to the operating system. Everything outside service/platform/
// calls these functions and never includes an OS header; posix/ and windows/
// each implement the whole interface.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zml::platform {

// Environment. Copies the value of `name` into buf (size bytes, terminated) and
// returns its length; 0 when the variable is absent or empty; the negated
// required size (length + 1) when it does not fit. buf is emptied whenever the
// result is not positive and size >= 1.
int32_t getenv(const char* name, char* buf, int32_t size);

// True when the process runs with privileges it did not start with (a
// set-user-ID or set-group-ID program: real and effective user or group ids
// differ). Windows has no such state and always answers false.
bool restricted_process();

// Thread-local slots holding one pointer each. The destructor, if any, runs at
// thread exit for threads whose value is non-null. Returns false when the
// system refuses a slot.
struct TlsKey {
  uintptr_t value = 0;
  bool valid = false;
};
bool tls_create(TlsKey* key, void (*destructor)(void*));
void* tls_get(const TlsKey& key);
void tls_set(const TlsKey& key, void* value);
void tls_destroy(TlsKey* key);

// Dynamic loading. find_module returns a library already in the process (or
// null) without loading anything; load_module loads it.
void* find_module(const char* name);
void* load_module(const char* name);
void* module_symbol(void* module, const char* symbol);
void unload_module(void* module);

// Gives up the rest of the time slice (spin-lock waits past the spin limit).
void yield();
// Processor pause inside a spin loop.
void cpu_relax();
// Sleeps for the given milliseconds.
void sleep_ms(uint32_t ms);

// Memory straight from the system, for the memory manager's large blocks:
// at least 16-byte aligned (page-aligned on POSIX), contents unspecified, null
// when refused. pages_free takes back the same length. advise_huge_pages hints
// that a region may use 2 MiB pages; it does nothing where that is unsupported.
void* pages_alloc(size_t bytes);
void pages_free(void* p, size_t bytes);
void advise_huge_pages(void* p, size_t bytes);

// A private heap for small long-lived records (the memory manager's thread
// records): zero-filled, at least 16-byte aligned, null when refused.
void* private_heap_alloc(size_t bytes);

// Monotonic time in seconds, for verbose timing.
double seconds();

// Processor topology of the processors this process may run on.
struct Topology {
  int32_t logical = 1;   // logical processors in the affinity mask
  int32_t cores = 1;     // physical cores among them
  int32_t packages = 1;  // processor packages among them
};
Topology topology();

// The calling thread's locale number (LCID on Windows; derived from LANG on
// POSIX systems, 1033 for English or when unknown). Names the message module's folder.
uint32_t thread_locale();

// Message text `id` from a loaded message module in language 1033, with the
// trailing CR LF removed, copied into buf (size bytes). False when the module
// has no such text. POSIX systems have no message modules and always answer false.
bool module_message(void* module, uint32_t id, char* buf, size_t size);

}  // namespace zml::platform
