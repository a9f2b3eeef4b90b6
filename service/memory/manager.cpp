// SPDX-License-Identifier: BSD-3-Clause
// The memory manager: first-use decisions, aligned blocks with their header,
// the per-thread cache fast path, statistics and the release of caches.
#include <atomic>

#include "service/memory/memory.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif
#include "service/service.h"

namespace zml::serv::mem {

std::atomic<int32_t> g_decision{-1};

namespace {

constexpr int32_t kEnvBufferSize = 32;

std::atomic<int32_t> g_disabled{0};
int64_t g_limit = -1;  // written before g_decision is published

// Blocks the switched-off manager took straight from the system heap.
std::atomic<int64_t> g_outside_count{0};
// Frees that found no record to charge (the system refused one): kept apart
// so that the sums of zml_mem_stat stay exact.
std::atomic<int64_t> g_unrecorded_count{0};
std::atomic<int64_t> g_unrecorded_bytes{0};

// Lays the header in front of the aligned address; see memory.h.
void* place(void* base, size_t t, size_t a, bool cached) {
  const uintptr_t b = reinterpret_cast<uintptr_t>(base);
  const uintptr_t p = (b + a + kHeaderBytes) & ~(uintptr_t{a} - 1);
  auto* header = reinterpret_cast<uintptr_t*>(p) - kHeaderWords;
  header[0] = b;
  header[1] = t;
  header[2] = cached ? p ^ kLiveKey : 0;
  header[3] = a;
  return reinterpret_cast<void*>(p);
}

// A second release of a cached block is the caller's error in argument 1 of
// zml_free, reported like every other bad argument.
void report_double_release() {
  const int32_t parameter = 1;
  zml_serv_xerbla_dispatch("ZML_FREE", &parameter, 8);
}

void* obtain_block(size_t bytes, size_t requested) {
  if (own_routines_active() && hbw_available()) {
    if (void* m = hbw_allocate(bytes, requested)) return m;
  }
  return g_system.allocate(bytes);
}

void count_out(ThreadRecord* r, size_t bytes) {
  r->allocated_count += 1;
  r->allocated_bytes += static_cast<int64_t>(bytes);
}

}  // namespace

int64_t parse_fast_memory_limit(const char* text) {
  // The runtime's decimal conversion: blanks, a sign, digits up to the first
  // other character; out-of-range values saturate.
  const char* s = text;
  while (*s == ' ' || (*s >= '\t' && *s <= '\r')) ++s;
  bool negative = false;
  if (*s == '+' || *s == '-') negative = *s++ == '-';
  int64_t v = 0;
  for (; *s >= '0' && *s <= '9'; ++s) {
    v = v * 10 + (*s - '0');
    if (v > int64_t{INT32_MAX} + 1) v = int64_t{INT32_MAX} + 1;
  }
  if (negative) v = -v;
  if (v > INT32_MAX) v = INT32_MAX;
  if (v < 0) return -1;
  // Megabytes to bytes in 32-bit arithmetic, so 4096 and more wrap (4096 gives a zero
  // limit); kept because hosts have set their limits against this arithmetic.
  return static_cast<int64_t>(static_cast<uint32_t>(v) << 20);
}

void ensure_decided() {
  if (g_decision.load(std::memory_order_acquire) == 1) return;
  LockGuard guard(g_memory_lock);
  if (g_decision.load(std::memory_order_relaxed) != -1) return;
  char buf[kEnvBufferSize];
  // A switch by presence: any non-empty value, "0" included, turns caching off.
  g_disabled.store(zml_serv_getenv("ZML_DISABLE_FAST_MM", buf, kEnvBufferSize) > 0 ? 1 : 0,
                   std::memory_order_relaxed);
  if (zml_serv_getenv("ZML_FAST_MEMORY_LIMIT", buf, kEnvBufferSize) > 0) {
    g_limit = parse_fast_memory_limit(buf);
  }
  install_own_routines();
  if (!g_disabled.load(std::memory_order_relaxed) && own_routines_active()) hbw_probe();
  g_decision.store(1, std::memory_order_release);
}

bool disabled() { return g_disabled.load(std::memory_order_relaxed) != 0; }

int64_t fast_memory_limit() { return g_limit; }

int32_t disable() {
  if (g_decision.load(std::memory_order_acquire) != -1) return 0;
  LockGuard guard(g_memory_lock);
  if (g_decision.load(std::memory_order_relaxed) != -1) return 0;
  g_disabled.store(1, std::memory_order_relaxed);
  g_decision.store(1, std::memory_order_release);
  return 1;
}

void* allocate(size_t size, size_t alignment) {
  if (alignment < kMinAlignment || (alignment & (alignment - 1)) != 0) alignment = kMinAlignment;
  const size_t t = size + alignment + kHeaderBytes;
  if (t < size) return nullptr;
  ensure_decided();

  if (disabled()) {
    void* base = g_system.allocate(t);
    if (!base) return nullptr;
    g_outside_count.fetch_add(1, std::memory_order_relaxed);
    return place(base, t, alignment, false);
  }

  const size_t c = size_class(t);
  ThreadRecord* r = c ? current_record() : nullptr;
  if (!r) return nullptr;
  void* base = nullptr;
  {
    // Most recent entries first: a thread repeating one size finds it at the end.
    LockGuard guard(slot_lock(r->index));
    for (int i = r->cached - 1; i >= 0; --i) {
      if (r->cached_size[i] != c) continue;
      base = r->cached_base[i];
      for (int j = i + 1; j < r->cached; ++j) {
        r->cached_base[j - 1] = r->cached_base[j];
        r->cached_size[j - 1] = r->cached_size[j];
      }
      --r->cached;
      r->cached_base[r->cached] = nullptr;
      r->cached_size[r->cached] = 0;
      count_out(r, c);
      break;
    }
  }
  if (!base) {
    base = obtain_block(c, size);
    if (!base) return nullptr;
    LockGuard guard(slot_lock(r->index));
    count_out(r, c);
  }
  unpoison_block(base, c);
  void* p = place(base, t, alignment, true);
  unpoison_handed_out(base, c, p, size);
  return p;
}

#if defined(__SANITIZE_ADDRESS__)
void poison_cached(void* base, size_t bytes, void* p) {
  ASAN_POISON_MEMORY_REGION(base, bytes);
  ASAN_UNPOISON_MEMORY_REGION(static_cast<char*>(p) - kHeaderBytes, kHeaderBytes);
}
void unpoison_block(void* base, size_t bytes) { ASAN_UNPOISON_MEMORY_REGION(base, bytes); }
void unpoison_handed_out(void* base, size_t bytes, void* p, size_t size) {
  ASAN_POISON_MEMORY_REGION(base, bytes);
  auto* header = static_cast<char*>(p) - kHeaderBytes;
  ASAN_UNPOISON_MEMORY_REGION(header, kHeaderBytes + size);
}
#else
void poison_cached(void*, size_t, void*) {}
void unpoison_block(void*, size_t) {}
void unpoison_handed_out(void*, size_t, void*, size_t) {}
#endif

void release_block(void* base, size_t bytes) {
  unpoison_block(base, bytes);
  if (!own_routines_active()) {
    g_system.free(base);
    return;
  }
  if (own_block(base)) {
    own_free(base);
    return;
  }
  hbw_release(base);
}

void release(void* p) {
  if (!p) return;
  auto* header = static_cast<uintptr_t*>(p) - kHeaderWords;
  const uintptr_t self = reinterpret_cast<uintptr_t>(p);
  void* base = reinterpret_cast<void*>(header[0]);
  const size_t t = header[1];
  const size_t a = header[3];
  // Not a block of ours: leave it alone rather than corrupt the caches.
  if (a < kMinAlignment || (a & (a - 1)) != 0 || header[0] >= self) return;
  ensure_decided();

  if (disabled()) {
    if (header[2] != 0) return;
    g_system.free(base);
    g_outside_count.fetch_sub(1, std::memory_order_relaxed);
    return;
  }
  // A plain load and store, not a locked exchange, so the release costs what
  // it did: a release after the first has returned is caught while the block
  // is still cached (one handed back to the system cannot be read again); two
  // that race on two threads are the caller's data race and may both pass.
  std::atomic_ref<uintptr_t> state(header[2]);
  const uintptr_t seen = state.load(std::memory_order_relaxed);
  if (seen != (self ^ kLiveKey)) {
    if (seen == (self ^ kReleasedKey)) report_double_release();
    return;
  }
  state.store(self ^ kReleasedKey, std::memory_order_relaxed);

  const size_t c = size_class(t);
  ThreadRecord* r = current_record();
  if (!r) {
    release_block(base, c);
    g_unrecorded_count.fetch_sub(1, std::memory_order_relaxed);
    g_unrecorded_bytes.fetch_sub(static_cast<int64_t>(c), std::memory_order_relaxed);
    return;
  }
  void* evicted = nullptr;
  size_t evicted_size = 0;
  {
    LockGuard guard(slot_lock(r->index));
    r->allocated_count -= 1;
    r->allocated_bytes -= static_cast<int64_t>(c);
    // A full cache gives up its oldest entry.
    if (r->cached == kCacheEntries) {
      evicted = r->cached_base[0];
      evicted_size = r->cached_size[0];
      for (int j = 1; j < kCacheEntries; ++j) {
        r->cached_base[j - 1] = r->cached_base[j];
        r->cached_size[j - 1] = r->cached_size[j];
      }
      --r->cached;
    }
    r->cached_base[r->cached] = base;
    r->cached_size[r->cached] = c;
    ++r->cached;
    poison_cached(base, c, p);
  }
  if (evicted) release_block(evicted, evicted_size);
}

int64_t stat(int32_t* nbuffers) {
  int64_t count = 0;
  int64_t bytes = 0;
  {
    LockGuard pool(g_pool_lock);
    for (uint32_t i = 0; i < kSlotLocks; ++i) lock(slot_lock(i));
    const uint32_t n = records_in_use();
    for (uint32_t i = 0; i < n; ++i) {
      const ThreadRecord* r = record_at(i);
      count += r->allocated_count;
      bytes += r->allocated_bytes;
      for (int j = 0; j < r->cached; ++j) {
        if (!r->cached_base[j]) continue;
        count += 1;
        bytes += static_cast<int64_t>(r->cached_size[j]);
      }
    }
    for (uint32_t i = 0; i < kSlotLocks; ++i) unlock(slot_lock(i));
  }
  count += g_unrecorded_count.load(std::memory_order_relaxed);
  bytes += g_unrecorded_bytes.load(std::memory_order_relaxed);
  if (nbuffers) {
    *nbuffers = static_cast<int32_t>(count + g_outside_count.load(std::memory_order_relaxed));
  }
  return bytes;
}

void free_all_buffers() {
  LockGuard pool(g_pool_lock);
  const uint32_t n = records_in_use();
  for (uint32_t i = 0; i < n; ++i) release_cached(record_at(i));
}

void free_thread_buffers() {
  if (ThreadRecord* r = existing_record()) release_cached(r);
}

}  // namespace zml::serv::mem

namespace zml::serv {

void* aligned_alloc(size_t size, size_t alignment) { return mem::allocate(size, alignment); }

void aligned_free(void* p) { mem::release(p); }

bool fast_mm_enabled() {
  if (mem::g_decision.load(std::memory_order_acquire) == 1) return !mem::disabled();
  // Not decided yet: answer as the decision would, without making it.
  char buf[32];
  return zml_serv_getenv("ZML_DISABLE_FAST_MM", buf, sizeof buf) <= 0;
}

}  // namespace zml::serv
