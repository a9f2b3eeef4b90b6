// SPDX-License-Identifier: BSD-3-Clause
// The manager under many threads: mixed sizes allocated, written, handed
// across threads and freed while statistics run; the sums exact afterwards,
// and the caches of ended threads returned. Plain std::thread, so that the
// thread sanitizer sees every synchronisation.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "service/memory/memory.h"
#include "zml_service.h"

namespace {

namespace mem = zml::serv::mem;

void* zmalloc(size_t s, int a) { return zml_malloc(&s, &a); }
void zfree(void* p) { zml_free(&p); }

constexpr int kThreads = 8;
constexpr int kRounds = 3000;
constexpr size_t kSizes[] = {1, 64, 1000, 4096, 10000, 65536, 200000, 1 << 20, 3 << 20};
constexpr int kAlignments[] = {0, 64, 128, 4096};

struct Block {
  unsigned char* p;
  size_t size;
  unsigned char fill;
};

// Each thread keeps up to 16 blocks live, writes a pattern into each and checks
// it before freeing, so blocks handed out twice would show. Every fifth round
// a block goes to the shared exchange, to be freed by another thread.
void churn(unsigned seed, std::vector<Block>* exchange, std::atomic<int>* exchange_lock,
           std::atomic<int>* failures) {
  std::mt19937 rng(seed);
  std::vector<Block> live;
  auto release = [&](const Block& b) {
    for (size_t k = 0; k < b.size; k += 512) {
      if (b.p[k] != b.fill) failures->fetch_add(1);
    }
    if (b.p[b.size - 1] != b.fill) failures->fetch_add(1);
    zfree(b.p);
  };
  for (int round = 0; round < kRounds; ++round) {
    if (live.size() < 16 && rng() % 3 != 0) {
      const size_t s = kSizes[rng() % std::size(kSizes)];
      const int a = kAlignments[rng() % std::size(kAlignments)];
      auto* p = static_cast<unsigned char*>(zmalloc(s, a));
      if (!p) {
        failures->fetch_add(1);
        continue;
      }
      const auto fill = static_cast<unsigned char>(rng());
      std::memset(p, fill, s);
      live.push_back({p, s, fill});
    } else if (!live.empty()) {
      const size_t i = rng() % live.size();
      Block b = live[i];
      live.erase(live.begin() + static_cast<std::ptrdiff_t>(i));
      if (round % 5 == 0) {
        int expected = 0;
        while (!exchange_lock->compare_exchange_weak(expected, 1)) expected = 0;
        exchange->push_back(b);
        exchange_lock->store(0);
      } else {
        release(b);
      }
    }
    if (round % 7 == 0) {
      int expected = 0;
      while (!exchange_lock->compare_exchange_weak(expected, 1)) expected = 0;
      std::vector<Block> taken;
      taken.swap(*exchange);
      exchange_lock->store(0);
      for (const Block& b : taken) release(b);
    }
    if (round % 500 == 0) zml_thread_free_buffers();
  }
  for (const Block& b : live) release(b);
}

TEST(MemoryThreads, MixedSizesFromEightThreadsLeaveExactSums) {
  mem::ensure_decided();
  if (mem::disabled()) GTEST_SKIP() << "caching switched off in this environment";
  zml_free_buffers();
  int base_count = 0;
  const int64_t base_bytes = zml_mem_stat(&base_count);

  std::vector<Block> exchange;
  std::atomic<int> exchange_lock{0};
  std::atomic<int> failures{0};
  std::atomic<bool> done{false};
  // Statistics and global releases run alongside the workers.
  std::thread observer([&] {
    while (!done.load()) {
      int n = 0;
      const int64_t b = zml_mem_stat(&n);
      if (b < 0 || n < 0) failures.fetch_add(1);
      zml_free_buffers();
      std::this_thread::yield();
    }
  });
  std::vector<std::thread> workers;
  for (int t = 0; t < kThreads; ++t) {
    workers.emplace_back(churn, 1234u + static_cast<unsigned>(t), &exchange, &exchange_lock,
                         &failures);
  }
  for (auto& w : workers) w.join();
  done.store(true);
  observer.join();
  for (const Block& b : exchange) zfree(b.p);
  exchange.clear();

  EXPECT_EQ(failures.load(), 0) << "seeds 1234..1241";
  // Every worker has ended, so its cache is gone; the main thread's cache
  // holds what the last exchange left it.
  zml_thread_free_buffers();
  int count = -1;
  const int64_t bytes = zml_mem_stat(&count);
  EXPECT_EQ(count, base_count);
  EXPECT_EQ(bytes, base_bytes);
}

TEST(MemoryThreads, EndedThreadsReturnTheirCachesAndRecords) {
  mem::ensure_decided();
  if (mem::disabled()) GTEST_SKIP() << "caching switched off in this environment";
  zml_free_buffers();
  int base_count = 0;
  const int64_t base_bytes = zml_mem_stat(&base_count);
  const uint32_t records_before = mem::records_in_use();
  for (int generation = 0; generation < 3; ++generation) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([] {
        for (size_t s : {size_t{100}, size_t{5000}, size_t{300000}}) zfree(zmalloc(s, 64));
        int n = 0;
        zml_mem_stat(&n);
      });
    }
    for (auto& th : threads) th.join();
    int count = -1;
    EXPECT_EQ(zml_mem_stat(&count), base_bytes) << "generation " << generation;
    EXPECT_EQ(count, base_count) << "generation " << generation;
  }
  // Records of ended threads are taken again by new ones.
  EXPECT_LE(mem::records_in_use(), records_before + 4);
}

}  // namespace
