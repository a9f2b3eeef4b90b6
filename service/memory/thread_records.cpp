// SPDX-License-Identifier: BSD-3-Clause
// The directory of per-thread records: 22 levels made on demand, a free list
// of records given back by threads that ended, and the slot locks that guard
// each record against the walks of the statistics and the global release.
#include <atomic>
#include <bit>

#include "service/memory/memory.h"
#include "service/platform/platform.h"

namespace zml::serv::mem {

LockWord g_memory_lock{0};
LockWord g_pool_lock{0};

namespace {

// Each slot lock on its own cache line, so threads do not share lines.
struct alignas(64) PaddedLock {
  LockWord word{0};
};
PaddedLock g_slot_locks[kSlotLocks];

constexpr uint32_t kNoRecord = UINT32_MAX;

std::atomic<ThreadRecord*> g_levels[kLevels];
std::atomic<uint32_t> g_in_use{0};
uint32_t g_free_head = kNoRecord;  // guarded by g_pool_lock

platform::TlsKey g_key;
std::atomic<bool> g_key_made{false};

uint32_t level_size(int level) {
  return level == 0 ? kLevel0Records : kLevel0Records << (level - 1);
}

// A thread that ends returns its cached buffers and its record. The record
// keeps its allocated count and bytes: they describe blocks still in use, and
// the next thread to take the record carries them on.
void thread_exit(void* value) {
  auto* record = static_cast<ThreadRecord*>(value);
  release_cached(record);
  LockGuard guard(g_pool_lock);
  record->next_free = g_free_head;
  g_free_head = record->index;
}

// Under g_pool_lock: a record from the free list, else the next new one.
ThreadRecord* take_record() {
  if (g_free_head != kNoRecord) {
    ThreadRecord* r = record_at(g_free_head);
    g_free_head = r->next_free;
    r->next_free = kNoRecord;
    return r;
  }
  const uint32_t i = g_in_use.load(std::memory_order_relaxed);
  int level = 0;
  uint32_t offset = 0;
  directory_position(i, &level, &offset);
  if (level >= kLevels) return nullptr;
  ThreadRecord* base = g_levels[level].load(std::memory_order_relaxed);
  if (!base) {
    // Zero-filled memory is an empty record; the extra line pays for alignment.
    const size_t bytes = sizeof(ThreadRecord) * level_size(level) + alignof(ThreadRecord);
    void* raw = platform::private_heap_alloc(bytes);
    if (!raw) return nullptr;
    const uintptr_t line = alignof(ThreadRecord);
    base = reinterpret_cast<ThreadRecord*>((reinterpret_cast<uintptr_t>(raw) + line - 1) &
                                           ~(line - 1));
    g_levels[level].store(base, std::memory_order_release);
  }
  ThreadRecord* r = base + offset;
  r->index = i;
  r->next_free = kNoRecord;
  g_in_use.store(i + 1, std::memory_order_release);
  return r;
}

bool make_key() {
  if (g_key_made.load(std::memory_order_acquire)) return true;
  LockGuard guard(g_pool_lock);
  if (!g_key_made.load(std::memory_order_relaxed)) {
    if (!platform::tls_create(&g_key, thread_exit)) return false;
    g_key_made.store(true, std::memory_order_release);
  }
  return true;
}

}  // namespace

LockWord& slot_lock(uint32_t index) { return g_slot_locks[index % kSlotLocks].word; }

void directory_position(uint32_t i, int* level, uint32_t* offset) {
  if (i < kLevel0Records) {
    *level = 0;
    *offset = i;
    return;
  }
  const int k = std::bit_width(i / kLevel0Records);
  *level = k;
  *offset = i - (kLevel0Records << (k - 1));
}

uint32_t records_in_use() { return g_in_use.load(std::memory_order_acquire); }

ThreadRecord* record_at(uint32_t index) {
  int level = 0;
  uint32_t offset = 0;
  directory_position(index, &level, &offset);
  return g_levels[level].load(std::memory_order_acquire) + offset;
}

ThreadRecord* existing_record() {
  if (!g_key_made.load(std::memory_order_acquire)) return nullptr;
  return static_cast<ThreadRecord*>(platform::tls_get(g_key));
}

ThreadRecord* current_record() {
  if (!make_key()) return nullptr;
  if (auto* r = static_cast<ThreadRecord*>(platform::tls_get(g_key))) return r;
  ThreadRecord* r = nullptr;
  {
    LockGuard guard(g_pool_lock);
    r = take_record();
  }
  if (r) platform::tls_set(g_key, r);
  return r;
}

void release_cached(ThreadRecord* record) {
  void* out[kCacheEntries];
  size_t out_size[kCacheEntries];
  int n = 0;
  {
    LockGuard guard(slot_lock(record->index));
    n = record->cached;
    for (int i = 0; i < n; ++i) {
      out[i] = record->cached_base[i];
      out_size[i] = record->cached_size[i];
      record->cached_base[i] = nullptr;
      record->cached_size[i] = 0;
    }
    record->cached = 0;
  }
  for (int i = 0; i < n; ++i) release_block(out[i], out_size[i]);
}

}  // namespace zml::serv::mem
