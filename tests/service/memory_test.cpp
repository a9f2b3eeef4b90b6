// SPDX-License-Identifier: BSD-3-Clause
// Blocks of zml_malloc: alignment rules, the header words in front of the
// block, the whole size usable, refusals, poisoning under AddressSanitizer, and
// the size classes, own routines and record directory under them. The
// manager's first-use decisions, each in a child process: switching it off by
// call (before and after first use) or by ZML_DISABLE_FAST_MM, the fast memory
// limit, replaced system routines, and high-bandwidth memory. What the manager
// holds, as zml_mem_stat reports it, across allocation, the per-thread cache,
// cache overflow, a second release of one block, other threads' caches and
// records, and the two release calls; and the manager under many threads:
// mixed sizes allocated, written, handed across threads and freed while
// statistics and global releases run, the sums exact afterwards. Plain
// std::thread, so that the thread sanitizer sees every synchronisation.
#include "service/memory/memory.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "service/service.h"
#include "tests/support/child.h"
#include "zml_service.h"

namespace {

namespace mem = zml::serv::mem;

void* zmalloc(size_t s, int a) { return zml_malloc(&s, &a); }
void zfree(void* p) { zml_free(&p); }

// Checks everything a block promises: alignment, header words, and that the
// whole size lies inside the underlying block (written end to end).
void check_block(void* p, size_t s, size_t want_alignment) {
  ASSERT_NE(p, nullptr) << "s=" << s << " a=" << want_alignment;
  const auto addr = reinterpret_cast<uintptr_t>(p);
  EXPECT_EQ(addr % want_alignment, 0u) << "s=" << s;
  const auto* h = static_cast<const uintptr_t*>(p) - mem::kHeaderWords;
  EXPECT_EQ(h[1], s + want_alignment + mem::kHeaderBytes);
  EXPECT_EQ(h[2], mem::disabled() ? uintptr_t{0} : addr ^ mem::kLiveKey);
  EXPECT_EQ(h[3], want_alignment);
  EXPECT_EQ(addr, (h[0] + want_alignment + mem::kHeaderBytes) & ~(want_alignment - 1));
  EXPECT_GE(addr - mem::kHeaderBytes, h[0]) << "header must lie inside the block";
  EXPECT_LE(addr + s, h[0] + h[1]) << "block must hold the whole size";
  if (s > 0) std::memset(p, 0xa5, s);
}

TEST(MemoryLayout, AlignmentRulesAndHeader) {
  // Small, negative or non-power-of-two alignments become 64; powers of two
  // from 64 are kept.
  for (int a : {-64, 0, 1, 32, 63, 96, 1000, 64, 128, 4096, 2097152}) {
    const size_t want = a >= 64 && (a & (a - 1)) == 0 ? static_cast<size_t>(a) : 64;
    for (size_t s : {size_t{0}, size_t{1}, size_t{4097}, size_t{3} << 20}) {
      void* p = zmalloc(s, a);
      check_block(p, s, want);
      zfree(p);
    }
  }
  size_t s = 100;
  void* p = zml_malloc(&s, nullptr);
  check_block(p, s, 64);
  zfree(p);
  // A block from the internal entry may be released through the export.
  p = zml::serv::aligned_alloc(1000, 128);
  check_block(p, 1000, 128);
  zfree(p);
}

TEST(MemoryLayout, RefusalsGiveNull) {
  // t = s + a + header wraps around, or no address space offers that much.
  for (size_t s :
       {SIZE_MAX, SIZE_MAX - 64 - mem::kHeaderBytes + 1, SIZE_MAX - 64 - mem::kHeaderBytes}) {
    EXPECT_EQ(zmalloc(s, 64), nullptr) << s;
  }
  // Half of a 32-bit address space can be free; half of a 64-bit one never is.
  if (sizeof(size_t) == 8) {
    EXPECT_EQ(zmalloc(SIZE_MAX / 2, 64), nullptr);
  }
  EXPECT_EQ(zmalloc(SIZE_MAX - 100, 4096), nullptr);
  int a = 128;
  EXPECT_EQ(zml_malloc(nullptr, &a), nullptr);
  void* null_block = nullptr;
  zml_free(&null_block);
  zml_free(nullptr);
}

TEST(MemorySizeClass, ClassesHoldTheRequestAndFillWholeGranules) {
  for (size_t t = 80; t < (size_t{20} << 20); t += t / 3 + 17) {
    const size_t c = mem::size_class(t);
    ASSERT_GE(c, t);
    EXPECT_EQ(mem::size_class(c), c) << "a class is its own class";
    if (t <= mem::kPage) {
      EXPECT_EQ(c % 64, 0u);
    } else {
      const size_t granule = c + mem::kMapPrefix > mem::kHugePage ? mem::kHugePage : mem::kPage;
      EXPECT_EQ((c + mem::kMapPrefix) % granule, 0u) << t;
      EXPECT_LT(c - t, granule) << t;
    }
  }
  EXPECT_EQ(mem::size_class(SIZE_MAX - 10), 0u);
}

// The manager's own system routines: heap and mapped blocks, both tagged.
TEST(MemorySizeClass, OwnRoutinesTagAndReleaseBothKinds) {
  for (size_t n : {size_t{1}, size_t{4000}, mem::kMapThreshold, size_t{5} << 20}) {
    auto* p = static_cast<unsigned char*>(mem::own_zero_allocate(n, 1));
    ASSERT_TRUE(p != nullptr && mem::own_block(p) && reinterpret_cast<uintptr_t>(p) % 16 == 0);
    EXPECT_EQ(p[0] + p[n - 1], 0) << n;
    p[n - 1] = 1;
    auto* q = static_cast<unsigned char*>(mem::own_reallocate(p, n + 100));
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(q[n - 1], 1);
    mem::own_free(q);
  }
  EXPECT_EQ(mem::own_zero_allocate(SIZE_MAX / 2, 4), nullptr);
}

TEST(MemoryDirectory, LevelsDoubleFrom1024WithoutGaps) {
  uint32_t first = 0;
  for (int k = 0; k < mem::kLevels; ++k) {
    const uint32_t size = k == 0 ? 1024 : 1024u << (k - 1);
    for (uint32_t offset : {0u, size - 1}) {
      int level = -1;
      uint32_t at = 0;
      mem::directory_position(first + offset, &level, &at);
      EXPECT_EQ(level, k) << first + offset;
      EXPECT_EQ(at, offset) << first + offset;
    }
    first += size;
  }
}

#if defined(__SANITIZE_ADDRESS__)
// Blocks the manager keeps are poisoned: a use after zml_free and an overflow
// into the size-class slack are reported although neither block went back to
// the system.
TEST(MemoryPoison, DISABLED_UseAfterFree) {
  auto* p = static_cast<volatile char*>(zmalloc(100, 64));
  zfree(const_cast<char*>(p));
  p[0] = 1;
}

TEST(MemoryPoison, DISABLED_OverflowIntoSlack) {
  static_cast<volatile char*>(zmalloc(100, 64))[100] = 1;
}

TEST(MemoryPoison, FaultsAreReportedAndTheBytesAskedForStayUsable) {
  for (const char* name : {"UseAfterFree", "OverflowIntoSlack"}) {
    // The report goes to standard output, where the parent reads it, and not
    // to the report folder of the sanitizer job, which would count it as a
    // finding.
    const auto r = zml::test::run_child(std::string("MemoryPoison.DISABLED_") + name,
                                        {{"ASAN_OPTIONS", "log_path=stdout:detect_leaks=0"}});
    EXPECT_NE(r.exit_code, 0) << name;
    EXPECT_NE(r.out.find("use-after-poison"), std::string::npos) << r.out;
  }
  zfree(zmalloc(100, 64));
  // The cached block, unpoisoned again up to the size asked for.
  auto* p = static_cast<volatile char*>(zmalloc(100, 64));
  for (int i = 0; i < 100; ++i) p[i] = static_cast<char>(i);
  EXPECT_EQ(p[99], 99);
  zfree(const_cast<char*>(p));
}
#endif

using Env = std::map<std::string, std::string>;
using zml::test::emit;

std::atomic<int> g_allocations{0};
std::atomic<int> g_frees{0};
void* counting_allocate(size_t n) {
  ++g_allocations;
  return std::malloc(n);
}
void counting_free(void* p) {
  ++g_frees;
  std::free(p);
}

// After the step named by ZML_TEST_FIRST: allocates, frees and allocates the
// same size again, and reports what the manager says about it.
TEST(MemoryEnv, DISABLED_Cycle) {
  const char* env_first = std::getenv("ZML_TEST_FIRST");
  const std::string first = env_first ? env_first : "";
  if (first == "replace") {
    mem::g_system.allocate = counting_allocate;
    mem::g_system.free = counting_free;
  }
  if (first == "use") {
    zfree(zmalloc(64, 64));
    zml_free_buffers();
  }
  if (first == "use" || first == "disable") emit("first_disable", zml_disable_fast_mm());
  emit("enabled", zml::serv::fast_mm_enabled() ? 1 : 0);
  void* p = zmalloc(10000, 64);
  int n = -1;
  emit("held", zml_mem_stat(&n) != 0 ? 1 : 0);
  emit("count_live", n);
  zfree(p);
  zml_mem_stat(&n);
  emit("count_freed", n);
  void* q = zmalloc(10000, 64);
  emit("reused", q == p ? 1 : 0);
  zfree(q);
  emit("disable", zml_disable_fast_mm());
  emit("limit", mem::fast_memory_limit());
  emit("own", mem::own_routines_active() ? 1 : 0);
  zml_free_buffers();
  emit("system_calls", std::to_string(g_allocations) + "," + std::to_string(g_frees));
}

// The disabled manager counts its blocks but holds no bytes and keeps nothing;
// a ZML_DISABLE_FAST_MM of any value, "0" included, switches it off; a limit
// (in megabytes) does not; zml_disable_fast_mm works only before the first
// use; replaced system routines are used as they are, a cache hit calling
// none and the global release returning the cached block.
TEST(MemoryEnv, FirstUseDecisions) {
  const std::string on = "enabled=1 held=1 count_freed=1 reused=1 ";
  const std::string off = "enabled=0 held=0 count_freed=0 ", plain = "limit=-1 system_calls=0,0 ";
  const std::pair<Env, std::string> cases[] = {
      {{}, on + plain},
      {{{"ZML_DISABLE_FAST_MM", "0"}}, off + plain},
      {{{"ZML_DISABLE_FAST_MM", "FALSE"}}, off + plain},
      {{{"ZML_FAST_MEMORY_LIMIT", "4097"}}, on + "limit=1048576 system_calls=0,0"},
      {{{"ZML_TEST_FIRST", "disable"}}, off + plain + "first_disable=1"},
      {{{"ZML_TEST_FIRST", "use"}}, on + plain + "first_disable=0"},
      {{{"ZML_TEST_FIRST", "replace"}}, on + "limit=-1 system_calls=1,1 own=0"}};
  for (const auto& [extra, expect] : cases) {
    Env env = {{"ZML_DISABLE_FAST_MM", ""}, {"ZML_FAST_MEMORY_LIMIT", ""}, {"ZML_TEST_FIRST", ""}};
    for (const auto& [k, v] : extra) env[k] = v;
    const auto r = zml::test::run_child("MemoryEnv.DISABLED_Cycle", env);
    ASSERT_EQ(r.exit_code, 0) << r.out;
    // Once decided, zml_disable_fast_mm answers 0.
    EXPECT_EQ(r.mismatches(expect + " count_live=1 disable=0"), "") << r.out;
  }
}

// The runtime's decimal conversion, then megabytes to bytes in 32 bits.
TEST(MemoryLimit, ParsesLikeTheRuntimeDecimalConversion) {
  const std::map<std::string, int64_t> cases = {{"\t 3", 3 << 20},
                                                {"  12abc", 12 << 20},
                                                {"abc", 0},
                                                {"-5", -1},
                                                {"4095", 4293918720},
                                                {"4096", 0},
                                                {"99999999999", 4293918720},
                                                {"-99999999999", -1}};
  for (const auto& [text, limit] : cases) {
    EXPECT_EQ(mem::parse_fast_memory_limit(text.c_str()), limit) << '"' << text << '"';
  }
}

#ifdef ZML_MEMKIND_NEW
// High-bandwidth memory through a stand-in library: the version rule and its
// verbose message, the entries needed, the fast-memory limit, and blocks of
// zml_malloc coming from it once it is available.

TEST(MemoryHbw, DISABLED_ChildLoad) {
  mem::ensure_decided();
  if (!mem::hbw_load(std::getenv("ZML_TEST_MEMKIND"))) return;
  emit("available", mem::hbw_available() ? 1 : 0);
  // Within a 1 MiB limit: one block of 600 KiB fits, a second does not until
  // the first is released.
  void* a = mem::hbw_allocate(600 << 10, 1);
  void* b = mem::hbw_allocate(600 << 10, 2);
  const bool released = mem::hbw_release(a);
  void* c = mem::hbw_allocate(600 << 10, 3);
  emit("limit_kept", a && !b && released && c ? 1 : 0);
  mem::hbw_release(c);
  // A mapped block, so that the words in front of it are readable.
  void* ordinary = mem::own_allocate(mem::kMapThreshold);
  emit("ordinary_is_hbw", mem::hbw_release(ordinary) ? 1 : 0);
  mem::own_free(ordinary);
  // zml_malloc's blocks come from it: the underlying block carries the inner
  // record whose first word is its own address.
  void* p = zml::serv::aligned_alloc(1000, 64);
  const auto base = static_cast<const uintptr_t*>(p)[-static_cast<int>(mem::kHeaderWords)];
  const auto* inner = reinterpret_cast<const uintptr_t*>(base) - 4;
  const bool own = mem::own_block(reinterpret_cast<const void*>(base));
  emit("inner_self", !own && inner[0] == reinterpret_cast<uintptr_t>(inner) ? 1 : 0);
  zml::serv::aligned_free(p);
  zml_free_buffers();
  emit("bytes_after", zml_mem_stat(nullptr));
}

TEST(MemoryHbw, StandInLibraries) {
  constexpr const char* kMessage = "Minimal supported version of the memkind library is 1.1.0\n";
  const std::string unused = "available= inner_self=", kept = " ordinary_is_hbw=0 bytes_after=0";
  const struct {
    const char *library, *verbose, *limit;
    bool message;
    std::string expect;  // inner_self: blocks come from it
  } cases[] = {
      {ZML_MEMKIND_OLD, "1", "1", true, unused},
      {ZML_MEMKIND_OLD, "0", "1", false, unused},
      {ZML_MEMKIND_BARE, "1", "1", false, unused},
      {"/nonexistent/libmemkind.so.0", "1", "1", false, unused},
      {ZML_MEMKIND_NEW, "0", "1", false, "available=1 inner_self=1 limit_kept=1" + kept},
      // 4096 MiB wraps to a zero limit, which keeps it unused.
      {ZML_MEMKIND_NEW, "0", "4096", false, "available=1 inner_self=0 limit_kept=0" + kept}};
  for (const auto& c : cases) {
    const auto r =
        zml::test::run_child("MemoryHbw.DISABLED_ChildLoad", {{"ZML_TEST_MEMKIND", c.library},
                                                              {"ZML_VERBOSE", c.verbose},
                                                              {"ZML_FAST_MEMORY_LIMIT", c.limit},
                                                              {"ZML_DISABLE_FAST_MM", ""}});
    ASSERT_EQ(r.exit_code, 0) << c.library << r.out;
    EXPECT_EQ(r.out.find(kMessage) != std::string::npos, c.message) << c.library << r.out;
    EXPECT_EQ(r.mismatches(c.expect), "") << c.library << " " << c.limit;
  }
}

#endif  // ZML_MEMKIND_NEW

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
