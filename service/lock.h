// SPDX-License-Identifier: BSD-3-Clause
// Service-layer lock words: one 32-bit word, 0 when free. Taking it spins with
// a processor pause up to the spin limit, then yields on every further try;
// the counter is kept across failed attempts so a long wait keeps yielding.
#pragma once

#include <atomic>
#include <cstdint>

#include "service/platform/platform.h"

namespace zml::serv {

inline constexpr int32_t kSpinLimit = 5000;

using LockWord = std::atomic<int32_t>;

// Optional profiling hook, called before each acquisition and after each
// release of any lock word. Null (the default) costs one load per lock.
enum class LockEvent : int32_t { kAcquire = 0, kRelease = 1 };
using LockHook = void (*)(const LockWord* word, LockEvent event);
extern std::atomic<LockHook> g_lock_hook;
inline void set_lock_hook(LockHook hook) { g_lock_hook.store(hook, std::memory_order_release); }

inline void lock(LockWord& word) {
  if (LockHook hook = g_lock_hook.load(std::memory_order_acquire)) hook(&word, LockEvent::kAcquire);
  int32_t spins = 0;
  for (;;) {
    int32_t expected = 0;
    if (word.load(std::memory_order_relaxed) == 0 &&
        word.compare_exchange_strong(expected, 1, std::memory_order_acquire)) {
      return;
    }
    if (spins < kSpinLimit) {
      ++spins;
      platform::cpu_relax();
    } else {
      platform::yield();
    }
  }
}

inline void unlock(LockWord& word) {
  word.store(0, std::memory_order_release);
  if (LockHook hook = g_lock_hook.load(std::memory_order_acquire)) hook(&word, LockEvent::kRelease);
}

// Scoped holder for the lock words above.
class LockGuard {
 public:
  explicit LockGuard(LockWord& w) : word_(w) { lock(word_); }
  ~LockGuard() { unlock(word_); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 private:
  LockWord& word_;
};

// The global service lock (one-time detection work) and the threading lock.
extern LockWord g_service_lock;
extern LockWord g_threading_lock;

}  // namespace zml::serv
