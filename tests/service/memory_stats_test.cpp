// SPDX-License-Identifier: BSD-3-Clause
// What the manager holds, as zml_mem_stat reports it, across allocation, the
// per-thread cache, cache overflow and the two release calls; and the locks
// the statistics and the fast path take.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <set>
#include <thread>
#include <vector>

#include "service/lock.h"
#include "service/memory/memory.h"
#include "zml_service.h"

namespace {

namespace mem = zml::serv::mem;

void* zmalloc(size_t s, int a) { return zml_malloc(&s, &a); }
void zfree(void* p) { zml_free(&p); }

struct Stat {
  int64_t bytes;
  int count;
};
Stat stat_now() {
  int n = -1;
  const int64_t b = zml_mem_stat(&n);
  return {b, n};
}

// What one block of s bytes at alignment a holds in the manager.
int64_t held(size_t s, size_t a) {
  return static_cast<int64_t>(mem::size_class(s + a + mem::kHeaderBytes));
}

class MemoryStats : public ::testing::Test {
 protected:
  // Empty caches everywhere, so that the counts below are exact differences.
  void SetUp() override {
    mem::ensure_decided();
    if (mem::disabled()) GTEST_SKIP() << "caching switched off in this environment";
    zml_free_buffers();
    base_ = stat_now();
  }
  void expect_delta(int count, int64_t bytes, const char* where) {
    const Stat now = stat_now();
    EXPECT_EQ(now.count - base_.count, count) << where;
    EXPECT_EQ(now.bytes - base_.bytes, bytes) << where;
  }
  Stat base_{};
};

TEST_F(MemoryStats, AllocationCountsUntilTheCacheIsReleased) {
  void* p = zmalloc(1000, 64);
  ASSERT_NE(p, nullptr);
  expect_delta(1, held(1000, 64), "allocated");
  zfree(p);
  expect_delta(1, held(1000, 64), "cached after free");
  void* q = zmalloc(1000, 64);
  EXPECT_EQ(q, p) << "the same size is served from the cache";
  expect_delta(1, held(1000, 64), "cache hit");
  zfree(q);
  zml_thread_free_buffers();
  expect_delta(0, 0, "thread buffers released");
}

TEST_F(MemoryStats, OutputPointerMayBeNull) {
  void* p = zmalloc(5000, 64);
  EXPECT_EQ(zml_mem_stat(nullptr) - base_.bytes, held(5000, 64));
  zfree(p);
}

TEST_F(MemoryStats, CacheKeepsTenBuffersAndGivesUpTheOldest) {
  std::vector<void*> blocks;
  int64_t all = 0;
  for (int i = 0; i < 12; ++i) {
    const size_t s = 10000 * static_cast<size_t>(i + 1);
    blocks.push_back(zmalloc(s, 64));
    all += held(s, 64);
  }
  expect_delta(12, all, "twelve live blocks");
  for (void* p : blocks) zfree(p);
  // The two freed first were pushed out by the later ones.
  expect_delta(10, all - held(10000, 64) - held(20000, 64), "ten cached");
  // The oldest surviving entry is still there to be found.
  void* again = zmalloc(30000, 64);
  EXPECT_EQ(again, blocks[2]);
  zfree(again);
  zml_free_buffers();
  expect_delta(0, 0, "released");
}

TEST_F(MemoryStats, DifferentAlignmentOfTheSameSizeIsAnotherClass) {
  void* p = zmalloc(100000, 64);
  zfree(p);
  void* q = zmalloc(100000, 2097152);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(q) % 2097152, 0u);
  expect_delta(2, held(100000, 64) + held(100000, 2097152), "one cached, one live");
  zfree(q);
  zml_thread_free_buffers();
  expect_delta(0, 0, "released");
}

TEST_F(MemoryStats, FreeBuffersReleasesOtherThreadsCaches) {
  std::atomic<int> phase{0};
  std::thread worker([&] {
    void* p = zmalloc(70000, 64);
    zfree(p);
    phase.store(1);
    while (phase.load() != 2) std::this_thread::yield();
  });
  while (phase.load() != 1) std::this_thread::yield();
  expect_delta(1, held(70000, 64), "cached in the worker");
  zml_thread_free_buffers();
  expect_delta(1, held(70000, 64), "the caller's release leaves the worker's cache");
  zml_free_buffers();
  expect_delta(0, 0, "global release empties the worker's cache");
  phase.store(2);
  worker.join();
}

TEST_F(MemoryStats, BlockFreedByAnotherThreadKeepsSumsExact) {
  void* p = zmalloc(3000, 128);
  std::thread([p] { zfree(p); }).join();
  // The worker's cache went with it when it ended.
  expect_delta(0, 0, "freed elsewhere, cache returned at thread exit");
}

// ---- locks ----

std::atomic<int> g_acquired{0};
std::atomic<int> g_released{0};
std::atomic<int> g_global_taken{0};

void count_locks(const zml::serv::LockWord* word, zml::serv::LockEvent event) {
  if (event == zml::serv::LockEvent::kAcquire) {
    g_acquired.fetch_add(1);
    if (word == &mem::g_pool_lock || word == &mem::g_memory_lock) g_global_taken.fetch_add(1);
  } else {
    g_released.fetch_add(1);
  }
}

class MemoryLocks : public ::testing::Test {
 protected:
  void SetUp() override { g_acquired = g_released = g_global_taken = 0; }
  void TearDown() override { zml::serv::set_lock_hook(nullptr); }
};

TEST_F(MemoryLocks, StatisticsTakePoolLockAndEverySlotLock) {
  zml_mem_stat(nullptr);  // first use done before counting
  zml::serv::set_lock_hook(count_locks);
  zml_mem_stat(nullptr);
  zml::serv::set_lock_hook(nullptr);
  EXPECT_EQ(g_acquired.load(), 1 + mem::kSlotLocks);
  EXPECT_EQ(g_released.load(), g_acquired.load());
  EXPECT_EQ(g_global_taken.load(), 1);
}

TEST_F(MemoryLocks, CacheHitTakesNoGlobalLock) {
  void* p = zmalloc(8192, 64);
  zfree(p);
  zml::serv::set_lock_hook(count_locks);
  void* q = zmalloc(8192, 64);
  zfree(q);
  zml::serv::set_lock_hook(nullptr);
  EXPECT_EQ(q, p);
  EXPECT_EQ(g_global_taken.load(), 0);
  EXPECT_EQ(g_acquired.load(), 2) << "one slot lock for the hit, one for the free";
  EXPECT_EQ(g_released.load(), 2);
}

TEST(MemorySlotLocks, EachOnItsOwnLine) {
  std::set<uintptr_t> lines;
  for (uint32_t i = 0; i < mem::kSlotLocks; ++i) {
    lines.insert(reinterpret_cast<uintptr_t>(&mem::slot_lock(i)) / 64);
  }
  EXPECT_EQ(lines.size(), static_cast<size_t>(mem::kSlotLocks));
  EXPECT_EQ(&mem::slot_lock(5), &mem::slot_lock(5 + mem::kSlotLocks));
}

}  // namespace
