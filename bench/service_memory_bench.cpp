// SPDX-License-Identifier: BSD-3-Clause
// Allocate/free cycles of one size, 64 B to 8 MiB, from 1 and 2 threads:
// zml_malloc/zml_free (the cache-hit path after the first cycle) beside the C
// library's aligned_alloc/free, nanoseconds per cycle and the speed ratio.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "bench/support/peer.h"
#include "zml_service.h"

namespace {

constexpr int kAlignment = 64;
constexpr int kRounds = 3;

// One cycle: take a block, write its first and last byte (so both sides pay
// for any page the system hands out again), give it back.
void ours_cycles(size_t size, long cycles) {
  const int a = kAlignment;
  for (long i = 0; i < cycles; ++i) {
    auto* p = static_cast<volatile char*>(zml_malloc(&size, &a));
    p[0] = 1;
    p[size - 1] = 2;
    void* q = const_cast<char*>(p);
    zml_free(&q);
  }
}

void peer_cycles(size_t size, long cycles) {
  // aligned_alloc wants a multiple of the alignment.
  const size_t rounded = (size + kAlignment - 1) / kAlignment * kAlignment;
  for (long i = 0; i < cycles; ++i) {
    auto* p = static_cast<volatile char*>(std::aligned_alloc(kAlignment, rounded));
    p[0] = 1;
    p[size - 1] = 2;
    std::free(const_cast<char*>(p));
  }
}

// Nanoseconds per cycle with `threads` threads each running `cycles` cycles at
// once (the wall time of the slowest, divided by the cycles of one).
double ns_per_cycle(void (*body)(size_t, long), size_t size, long cycles, int threads) {
  const double seconds = zml::bench::median_seconds([&] {
    if (threads == 1) {
      body(size, cycles);
      return;
    }
    std::atomic<int> ready{0};
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) {
      pool.emplace_back([&] {
        ready.fetch_add(1);
        while (ready.load() < threads) {
        }
        body(size, cycles);
      });
    }
    for (auto& th : pool) th.join();
  });
  return seconds * 1e9 / static_cast<double>(cycles);
}

}  // namespace

int main() {
  zml::bench::print_header("zml_malloc/zml_free against the C library's aligned_alloc/free");
  std::printf(
      "alignment %d; one size per row, a cycle is allocate + write 2 bytes + free;\n"
      "best of 3 alternating medians of 5 after a warm-up; ratio = C library time / ours (above 1: "
      "ours faster)\n\n",
      kAlignment);
  std::printf("%8s %10s %12s %12s %8s\n", "threads", "size", "ours ns", "libc ns", "ratio");
  const size_t sizes[] = {64, 256, 1024, 4096, 16384, 65536, 262144, 1048576, 4194304, 8388608};
  for (int threads : {1, 2}) {
    for (size_t size : sizes) {
      const long cycles = size >= 1048576 ? 100000 : 400000;
      // Alternating rounds, best median of each side: a burst of other load on
      // the machine then hits both sides instead of one.
      double ours = 1e30, peer = 1e30;
      for (int round = 0; round < kRounds; ++round) {
        ours = std::min(ours, ns_per_cycle(ours_cycles, size, cycles, threads));
        peer = std::min(peer, ns_per_cycle(peer_cycles, size, cycles, threads));
      }
      std::printf("%8d %10zu %12.1f %12.1f %8.2f\n", threads, size, ours, peer, peer / ours);
      std::fflush(stdout);
    }
  }
  int buffers = 0;
  const long long held = zml_mem_stat(&buffers);
  std::printf("\nheld by the manager after the run: %d buffers, %lld bytes\n", buffers, held);
  zml_free_buffers();
  return 0;
}
