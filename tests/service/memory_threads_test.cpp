// SPDX-License-Identifier: BSD-3-Clause
// The manager under many threads: mixed sizes allocated, written, handed
// across threads and freed while statistics and global releases run; the sums
// exact afterwards, once the caches of ended threads are returned. Plain
// std::thread, so that the thread sanitizer sees every synchronisation.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "service/memory/memory.h"
#include "zml_service.h"

namespace {

namespace mem = zml::serv::mem;

void* zmalloc(size_t s, int a) { return zml_malloc(&s, &a); }
void zfree(void* p) { zml_free(&p); }

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

TEST(MemoryThreads, MixedSizesFromEightThreadsLeaveExactSums) {
  mem::ensure_decided();
  if (mem::disabled()) GTEST_SKIP() << "caching switched off in this environment";
  zml_free_buffers();
  int base_count = 0;
  const int64_t base_bytes = zml_mem_stat(&base_count);

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
  int count = -1;
  EXPECT_EQ(zml_mem_stat(&count), base_bytes);
  EXPECT_EQ(count, base_count);
}

}  // namespace
