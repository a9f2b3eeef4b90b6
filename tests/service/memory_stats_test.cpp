// SPDX-License-Identifier: BSD-3-Clause
// What the manager holds, as zml_mem_stat reports it, across allocation, the
// per-thread cache, cache overflow, a second release of one block, other
// threads' caches and records, and the two release calls; and the manager
// under many threads: mixed sizes allocated, written, handed across threads
// and freed while statistics and global releases run, the sums exact
// afterwards. Plain std::thread, so that the thread sanitizer sees every
// synchronisation.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "service/memory/memory.h"
#include "tests/support/child.h"
#include "zml_service.h"

namespace {

namespace mem = zml::serv::mem;

void* zmalloc(size_t s, int a) { return zml_malloc(&s, &a); }
void zfree(void* p) { zml_free(&p); }

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
    base_bytes_ = zml_mem_stat(&base_count_);
  }
  void expect_delta(int count, int64_t bytes, const char* where) {
    int n = -1;
    EXPECT_EQ(zml_mem_stat(&n) - base_bytes_, bytes) << where;
    EXPECT_EQ(n - base_count_, count) << where;
  }
  int64_t base_bytes_ = 0;
  int base_count_ = 0;
};

TEST_F(MemoryStats, CacheHitAndSecondRelease) {
  void* p = zmalloc(1000, 64);
  ASSERT_NE(p, nullptr);
  expect_delta(1, held(1000, 64), "allocated");
  EXPECT_EQ(zml_mem_stat(nullptr) - base_bytes_, held(1000, 64));
  zfree(p);
  expect_delta(1, held(1000, 64), "cached after free");
  EXPECT_EQ(zml::test::capture_stdout([&] { zfree(p); }),
            "\nArvel ZML ERROR: Parameter 1 was incorrect on entry to ZML_FREE.\n");
  expect_delta(1, held(1000, 64), "a second release leaves it cached once");
  void* q = zmalloc(1000, 64);
  void* other_class = zmalloc(1000, 4096);
  void* r = zmalloc(1000, 64);
  EXPECT_EQ(q, p) << "the same size is served from the cache";
  EXPECT_TRUE(r != q && other_class != q) << "the cached block was handed out twice";
  expect_delta(3, 2 * held(1000, 64) + held(1000, 4096), "three live");
  for (void* block : {q, other_class, r}) zfree(block);
  zml_thread_free_buffers();
  expect_delta(0, 0, "thread buffers released");
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
  void* again = zmalloc(30000, 64);
  EXPECT_EQ(again, blocks[2]) << "the oldest surviving entry is found";
  zfree(again);
  zml_free_buffers();
  expect_delta(0, 0, "released");
}

TEST_F(MemoryStats, OtherThreadsCachesAndRecords) {
  std::atomic<int> phase{0};
  std::thread worker([&] {
    zfree(zmalloc(70000, 64));
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
  // A block freed by a thread that then ends: its cache goes with it, and
  // its record is taken again by the next thread.
  void* p = zmalloc(3000, 128);
  std::thread([p] { zfree(p); }).join();
  expect_delta(0, 0, "freed elsewhere, cache returned at thread exit");
  const uint32_t records = mem::records_in_use();
  std::thread([] { zfree(zmalloc(100, 64)); }).join();
  EXPECT_EQ(mem::records_in_use(), records);
}

// ---- many threads ----

constexpr size_t kSizes[] = {1, 64, 1000, 4096, 10000, 65536, 200000, 1 << 20, 3 << 20};
constexpr int kAlignments[] = {0, 64, 128, 4096};

struct Block {
  unsigned char* p;
  size_t size;
  unsigned char fill;
};

// Blocks handed from one thread to be freed by another, and the faults seen.
struct Shared {
  std::mutex lock;
  std::vector<Block> exchange;
  std::atomic<int> failures{0};

  // Checks the pattern before freeing, so a block handed out twice shows.
  void release(const Block& b) {
    for (size_t k = 0; k < b.size; k += 512) failures += b.p[k] != b.fill;
    failures += b.p[b.size - 1] != b.fill;
    zfree(b.p);
  }
};

// Keeps up to 16 blocks live, each filled with its own pattern; every fifth
// round a block goes to the exchange, every seventh the exchange is freed.
void churn(unsigned seed, Shared* shared) {
  std::mt19937 rng(seed);
  std::vector<Block> live;
  for (int round = 0; round < 3000; ++round) {
    if (live.size() < 16 && rng() % 3 != 0) {
      const size_t s = kSizes[rng() % std::size(kSizes)];
      auto* p = static_cast<unsigned char*>(zmalloc(s, kAlignments[rng() % 4]));
      if (!p) {
        ++shared->failures;
        continue;
      }
      const auto fill = static_cast<unsigned char>(rng());
      std::memset(p, fill, s);
      live.push_back({p, s, fill});
    } else if (!live.empty()) {
      const auto i = static_cast<std::ptrdiff_t>(rng() % live.size());
      const Block b = live[i];
      live.erase(live.begin() + i);
      if (round % 5 == 0) {
        std::lock_guard guard(shared->lock);
        shared->exchange.push_back(b);
      } else {
        shared->release(b);
      }
    }
    if (round % 7 == 0) {
      std::vector<Block> taken;
      {
        std::lock_guard guard(shared->lock);
        taken.swap(shared->exchange);
      }
      for (const Block& b : taken) shared->release(b);
    }
    if (round % 500 == 0) zml_thread_free_buffers();
  }
  for (const Block& b : live) shared->release(b);
}

TEST_F(MemoryStats, MixedSizesFromEightThreadsLeaveExactSums) {
  Shared shared;
  std::atomic<bool> done{false};
  // Statistics and global releases run alongside the workers.
  std::thread observer([&] {
    while (!done.load()) {
      int n = 0;
      shared.failures += zml_mem_stat(&n) < 0 || n < 0;
      zml_free_buffers();
      std::this_thread::yield();
    }
  });
  std::vector<std::thread> workers;
  for (unsigned t = 0; t < 8; ++t) workers.emplace_back(churn, 1234u + t, &shared);
  for (auto& w : workers) w.join();
  done.store(true);
  observer.join();
  for (const Block& b : shared.exchange) zfree(b.p);

  EXPECT_EQ(shared.failures.load(), 0) << "seeds 1234..1241";
  // Every worker has ended, so its cache is gone; the main thread's cache
  // holds what the last exchange left it.
  zml_thread_free_buffers();
  expect_delta(0, 0, "after the threads");
}

}  // namespace
