// SPDX-License-Identifier: BSD-3-Clause
// Inside the memory manager: the system routines under it, the per-thread
// records with their buffer caches, and the entry points the exports use.
#pragma once

#include <cstddef>
#include <cstdint>

#include "service/lock.h"

namespace zml::serv::mem {

// ---- Block layout -----------------------------------------------------------
//
// zml_malloc(s, a) asks the system for t = s + a + H bytes at `base` and returns
// p = (base + a + H) rounded down to a multiple of a. The H bytes in front of p
// hold four words: base, t, state, a. A word is 32 bits on 32-bit builds
// (H = 16); on 64-bit builds the words widen to pointer size (H = 32), so that
// every address fits. Because p > base + H whatever the alignment of base, the
// header always lies inside the block, and p + s <= base + t.
//
// The state word is 0 for blocks of the switched-off manager. A block of the
// caches holds p ^ kLiveKey while it is handed out and p ^ kReleasedKey once
// zml_free has cached it, so a second release is caught before it could put
// the block into a cache twice. Mixing in p keeps a stale state word of a
// reused block, left at another place, from passing for this block's.
inline constexpr size_t kHeaderWords = 4;
inline constexpr size_t kHeaderBytes = kHeaderWords * sizeof(uintptr_t);
inline constexpr size_t kMinAlignment = 64;
inline constexpr uintptr_t kLiveKey = 0x4c697665u;
inline constexpr uintptr_t kReleasedKey = 0x52656c64u;

// ---- System routines (system_routines.cpp) ----------------------------------

// The four replaceable routines under the manager. They start out holding the
// runtime's own; when all four still do at the first use, the manager puts its
// own routines in their place, otherwise it uses the replacements as they are.
struct SystemRoutines {
  void* (*allocate)(size_t bytes);
  void* (*zero_allocate)(size_t count, size_t bytes);
  void* (*reallocate)(void* p, size_t bytes);
  void (*free)(void* p);
};
extern SystemRoutines g_system;
// Called once at first use; true when the manager's own routines are in place.
bool install_own_routines();
bool own_routines_active();

// The manager's own routines. Requests from kMapThreshold up are mapped from
// the system in whole pages (2 MiB granules from 2 MiB up, with a huge-page
// hint), smaller ones come from the runtime heap; a small tag in front of each
// block tells the release routine which was used.
inline constexpr size_t kPage = 4096;
inline constexpr size_t kHugePage = 2097152;
inline constexpr size_t kMapThreshold = 131072;
inline constexpr size_t kMapPrefix = 64;
void* own_allocate(size_t bytes);
void* own_zero_allocate(size_t count, size_t bytes);
void* own_reallocate(void* p, size_t bytes);
void own_free(void* p);
// True when p was handed out by own_allocate (its tag is intact).
bool own_block(const void* p);

// The capacity the caches deal in for a request of t bytes: requests of the
// same t always share a class, and a class fills its system block exactly
// (multiples of 64 up to 4 KiB; whole pages less the map prefix above that;
// whole 2 MiB granules less the prefix from 2 MiB up). Returns 0 on overflow.
size_t size_class(size_t t);

// ---- High-bandwidth memory (hbw.cpp) ----------------------------------------

// Probes the memkind library once (only on processors of the many-core line);
// later calls only answer.
void hbw_probe();
bool hbw_available();
// A block of `bytes` from high-bandwidth memory within the fast-memory limit,
// or null (the caller then uses ordinary memory).
void* hbw_allocate(size_t bytes, size_t requested);
// True (and the block released) when base came from hbw_allocate.
bool hbw_release(void* base);
// Loads the named module and checks its version and entries; exposed so tests
// can point it at a stand-in. Returns true when the entries are usable.
bool hbw_load(const char* module_name);

// ---- Thread records (thread_records.cpp) --------------------------------------

inline constexpr int kCacheEntries = 10;
inline constexpr int kSlotLocks = 1024;
inline constexpr int kLevels = 22;
inline constexpr uint32_t kLevel0Records = 1024;

// One thread's cache and counts. The fields are guarded by slot_lock(index);
// the allocated count and bytes are signed because a block freed by another
// thread than its allocator lowers the freeing thread's record (sums stay exact).
struct alignas(64) ThreadRecord {
  void* cached_base[kCacheEntries];
  size_t cached_size[kCacheEntries];
  int32_t cached;
  uint32_t index;
  int64_t allocated_count;
  int64_t allocated_bytes;
  uint32_t next_free;  // free list link, guarded by the pool lock
};

extern LockWord g_memory_lock;  // first-use decisions
extern LockWord g_pool_lock;    // the record directory
LockWord& slot_lock(uint32_t index);

// The calling thread's record, made on first need; null when the system
// refuses memory or a thread-local slot.
ThreadRecord* current_record();
// The calling thread's record if it has one.
ThreadRecord* existing_record();
// Records in use so far and the record of a directory index below that count.
uint32_t records_in_use();
ThreadRecord* record_at(uint32_t index);
// Level and offset of directory index i (level 0: 1,024 records; level k:
// 1024 * 2^(k-1)).
void directory_position(uint32_t i, int* level, uint32_t* offset);

// Takes the cached buffers of a record out under its slot lock and releases
// them after unlocking, so no system call runs under a spin lock.
void release_cached(ThreadRecord* record);

// ---- The manager (manager.cpp) ----------------------------------------------

// -1 until the first-use decisions, then 1.
extern std::atomic<int32_t> g_decision;
void ensure_decided();
bool disabled();
// The fast-memory limit: -1 none, else bytes (decided at first use).
int64_t fast_memory_limit();
// ZML_FAST_MEMORY_LIMIT's value as the limit: decimal megabytes as the runtime
// converts them; negative gives -1; else shifted left 20 in 32-bit arithmetic.
int64_t parse_fast_memory_limit(const char* text);

void* allocate(size_t size, size_t alignment);
void release(void* p);
// Returns an underlying block of `bytes` (its size class) to where it came
// from (HBW, own or replacement).
void release_block(void* base, size_t bytes);

// Under AddressSanitizer a cached block is poisoned except for the header in
// front of p (read by a second release to recognise it), so a use after
// zml_free is reported although the block never went back to the system;
// a block handed out is unpoisoned for its header and the bytes asked for
// only, so an overflow into the size-class slack is reported too.
void poison_cached(void* base, size_t bytes, void* p);
void unpoison_block(void* base, size_t bytes);
void unpoison_handed_out(void* base, size_t bytes, void* p, size_t size);
int32_t disable();
int64_t stat(int32_t* nbuffers);
void free_all_buffers();
void free_thread_buffers();

}  // namespace zml::serv::mem
