// SPDX-License-Identifier: BSD-3-Clause
// POSIX side of the platform layer (Linux first; nothing here is Linux-only
// except the sysfs topology probe, which falls back to the affinity count).
#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <utility>

#include "service/platform/platform.h"

namespace zml::platform {

int32_t getenv(const char* name, char* buf, int32_t size) {
  if (size >= 1) buf[0] = '\0';
  const char* v = ::getenv(name);
  if (v == nullptr || v[0] == '\0') return 0;
  size_t len = std::strlen(v);
  if (size < 1 || len >= static_cast<size_t>(size)) {
    return len >= 0x7fffffff ? INT32_MIN + 1 : -static_cast<int32_t>(len + 1);
  }
  std::memcpy(buf, v, len + 1);
  return static_cast<int32_t>(len);
}

bool restricted_process() { return getuid() != geteuid() || getgid() != getegid(); }

bool tls_create(TlsKey* key, void (*destructor)(void*)) {
  pthread_key_t k;
  if (pthread_key_create(&k, destructor) != 0) return false;
  key->value = static_cast<uintptr_t>(k);
  key->valid = true;
  return true;
}

void* tls_get(const TlsKey& key) {
  return key.valid ? pthread_getspecific(static_cast<pthread_key_t>(key.value)) : nullptr;
}

void tls_set(const TlsKey& key, void* value) {
  if (key.valid) pthread_setspecific(static_cast<pthread_key_t>(key.value), value);
}

void tls_destroy(TlsKey* key) {
  if (key->valid) pthread_key_delete(static_cast<pthread_key_t>(key->value));
  key->valid = false;
}

void* find_module(const char* name) { return dlopen(name, RTLD_NOW | RTLD_NOLOAD); }
void* load_module(const char* name) { return dlopen(name, RTLD_NOW | RTLD_LOCAL); }
void* module_symbol(void* module, const char* symbol) {
  return module ? dlsym(module, symbol) : nullptr;
}
void unload_module(void* module) {
  if (module) dlclose(module);
}

void yield() { sched_yield(); }

void cpu_relax() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#endif
}

void sleep_ms(uint32_t ms) {
  timespec ts{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
  nanosleep(&ts, nullptr);
}

void* pages_alloc(size_t bytes) {
  void* p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return p == MAP_FAILED ? nullptr : p;
}

void pages_free(void* p, size_t bytes) {
  if (p) munmap(p, bytes);
}

void advise_huge_pages([[maybe_unused]] void* p, [[maybe_unused]] size_t bytes) {
#ifdef MADV_HUGEPAGE
  madvise(p, bytes, MADV_HUGEPAGE);
#endif
}

void* private_heap_alloc(size_t bytes) { return std::calloc(1, bytes); }

double seconds() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

namespace {
// Reads one small integer from a sysfs file; -1 when unreadable.
long read_sysfs_int(const char* path) {
  FILE* f = std::fopen(path, "r");
  if (!f) return -1;
  long v = -1;
  if (std::fscanf(f, "%ld", &v) != 1) v = -1;
  std::fclose(f);
  return v;
}
}  // namespace

Topology topology() {
  Topology t;
  cpu_set_t mask;
  CPU_ZERO(&mask);
  if (sched_getaffinity(0, sizeof(mask), &mask) != 0) {
    long n = sysconf(_SC_NPROCESSORS_ONLN);
    t.logical = t.cores = n > 0 ? static_cast<int32_t>(n) : 1;
    return t;
  }
  std::set<std::pair<long, long>> cores;
  std::set<long> packages;
  int logical = 0;
  for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (!CPU_ISSET(cpu, &mask)) continue;
    ++logical;
    char path[128];
    std::snprintf(path, sizeof path, "/sys/devices/system/cpu/cpu%d/topology/physical_package_id",
                  cpu);
    long pkg = read_sysfs_int(path);
    std::snprintf(path, sizeof path, "/sys/devices/system/cpu/cpu%d/topology/core_id", cpu);
    long core = read_sysfs_int(path);
    // Without sysfs every logical processor counts as its own core.
    if (pkg < 0 || core < 0) {
      pkg = 0;
      core = cpu;
    }
    packages.insert(pkg);
    cores.insert({pkg, core});
  }
  t.logical = logical > 0 ? logical : 1;
  t.cores = cores.empty() ? t.logical : static_cast<int32_t>(cores.size());
  t.packages = packages.empty() ? 1 : static_cast<int32_t>(packages.size());
  return t;
}

uint32_t thread_locale() { return 1033; }

bool module_message(void*, uint32_t, char*, size_t) { return false; }

}  // namespace zml::platform
