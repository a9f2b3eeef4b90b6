// SPDX-License-Identifier: BSD-3-Clause
// High-bandwidth memory for the manager's buffers, through the memkind library
// loaded at run time on processors of the many-core line; silently absent
// everywhere else.
#include <atomic>

#include "service/error/host_runtime.h"
#include "service/memory/memory.h"
#include "service/platform/platform.h"
#include "service/service.h"

namespace zml::serv::mem {

namespace {

#ifdef _WIN32
constexpr const char* kModuleName = "memkind.dll";
#else
constexpr const char* kModuleName = "libmemkind.so.0";
#endif
constexpr int kMinimalVersion = 1001000;
// The library's page-size choices for hbw_posix_memalign_psize.
constexpr int kPageSize4K = 1;
constexpr int kPageSize2M = 2;
// Feature-word masks of the many-core line (see service/cpu/features.h).
constexpr uint32_t kManyCoreMask1 = 0x8000001;
constexpr uint32_t kManyCoreMask2 = 0x7;

using VersionFn = int (*)();
using AllocFn = int (*)(void** out, size_t alignment, size_t bytes, int page_size);
using FreeFn = void (*)(void* p);

AllocFn g_hbw_alloc = nullptr;
FreeFn g_hbw_free = nullptr;
std::atomic<bool> g_available{false};

// Bytes taken from high-bandwidth memory, held against the fast-memory limit.
LockWord g_hbw_lock{0};
int64_t g_hbw_used = 0;

// In front of each high-bandwidth block: its own address (which marks the
// block as one of these), the caller's size, the bytes taken, the bytes the
// manager asked for.
struct InnerRecord {
  uintptr_t self;
  uintptr_t requested;
  uintptr_t taken;
  uintptr_t asked;
};

}  // namespace

bool hbw_load(const char* module_name) {
  void* module = platform::load_module(module_name);
  if (!module) return false;
  auto version =
      reinterpret_cast<VersionFn>(platform::module_symbol(module, "memkind_get_version"));
  if (!version || version() < kMinimalVersion) {
    if (verbose_on())
      host_print("%s\n", "Minimal supported version of the memkind library is 1.1.0");
    return false;
  }
  auto alloc =
      reinterpret_cast<AllocFn>(platform::module_symbol(module, "hbw_posix_memalign_psize"));
  auto release = reinterpret_cast<FreeFn>(platform::module_symbol(module, "hbw_free"));
  if (!alloc || !release) return false;
  g_hbw_alloc = alloc;
  g_hbw_free = release;
  g_available.store(true, std::memory_order_release);
  return true;
}

void hbw_probe() {
  if ((feature_word() & kManyCoreMask1) != kManyCoreMask1) return;
  if ((feature_word2() & kManyCoreMask2) != kManyCoreMask2) return;
  hbw_load(kModuleName);
}

bool hbw_available() { return g_available.load(std::memory_order_acquire); }

void* hbw_allocate(size_t bytes, size_t requested) {
  const int64_t limit = fast_memory_limit();
  if (!hbw_available() || limit == 0 || bytes > SIZE_MAX - sizeof(InnerRecord)) return nullptr;
  const size_t taken = bytes + sizeof(InnerRecord);
  {
    // Past the limit the manager falls back to ordinary memory.
    LockGuard guard(g_hbw_lock);
    if (limit != -1 && g_hbw_used + static_cast<int64_t>(taken) > limit) return nullptr;
    g_hbw_used += static_cast<int64_t>(taken);
  }
  void* m = nullptr;
  const int page = taken >= kHugePage ? kPageSize2M : kPageSize4K;
  if (g_hbw_alloc(&m, kMinAlignment, taken, page) != 0 || !m) {
    LockGuard guard(g_hbw_lock);
    g_hbw_used -= static_cast<int64_t>(taken);
    return nullptr;
  }
  auto* inner = static_cast<InnerRecord*>(m);
  *inner = InnerRecord{reinterpret_cast<uintptr_t>(m), requested, taken, bytes};
  return inner + 1;
}

bool hbw_release(void* base) {
  if (!hbw_available() || !base) return false;
  auto* inner = static_cast<InnerRecord*>(base) - 1;
  if (inner->self != reinterpret_cast<uintptr_t>(inner)) return false;
  const int64_t taken = static_cast<int64_t>(inner->taken);
  g_hbw_free(inner);
  LockGuard guard(g_hbw_lock);
  g_hbw_used -= taken;
  return true;
}

}  // namespace zml::serv::mem
