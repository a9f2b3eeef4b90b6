// SPDX-License-Identifier: BSD-3-Clause
// The manager's first-use decisions, each in a child process: switching it off
// by call (before and after first use) or by ZML_DISABLE_FAST_MM, the fast
// memory limit, and replaced system routines.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <map>
#include <string>

#include "service/memory/memory.h"
#include "service/service.h"
#include "tests/support/child.h"
#include "zml_service.h"

namespace {

namespace mem = zml::serv::mem;
using Env = std::map<std::string, std::string>;
using zml::test::emit;

void* zmalloc(size_t s, int a) { return zml_malloc(&s, &a); }
void zfree(void* p) { zml_free(&p); }

Env memory_env(const Env& extra) {
  Env env = {{"ZML_DISABLE_FAST_MM", ""}, {"ZML_FAST_MEMORY_LIMIT", ""}};
  for (const auto& [k, v] : extra) env[k] = v;
  return env;
}

// Allocates, frees and allocates the same size again, and reports what the
// manager says about it.
void emit_cycle() {
  emit("enabled", zml::serv::fast_mm_enabled() ? 1 : 0);
  void* p = zmalloc(10000, 64);
  int n = -1;
  emit("bytes_live", zml_mem_stat(&n));
  emit("count_live", n);
  zfree(p);
  emit("bytes_freed", zml_mem_stat(&n));
  emit("count_freed", n);
  void* q = zmalloc(10000, 64);
  emit("reused", q == p ? 1 : 0);
  emit("aligned", reinterpret_cast<uintptr_t>(q) % 64 == 0 ? 1 : 0);
  zfree(q);
  emit("enabled_after", zml::serv::fast_mm_enabled() ? 1 : 0);
}

// ---- child bodies ----

TEST(MemoryEnv, DISABLED_ChildDisableBeforeUse) {
  emit("disable", zml_disable_fast_mm());
  emit("disable_again", zml_disable_fast_mm());
  emit_cycle();
}

TEST(MemoryEnv, DISABLED_ChildDisableAfterUse) {
  zfree(zmalloc(64, 64));
  emit("disable", zml_disable_fast_mm());
  emit_cycle();
}

TEST(MemoryEnv, DISABLED_ChildCycle) {
  emit_cycle();
  emit("disable", zml_disable_fast_mm());
  emit("limit", mem::fast_memory_limit());
}

std::atomic<int> g_allocations{0};
std::atomic<int> g_frees{0};
void* counting_allocate(size_t n) {
  g_allocations.fetch_add(1);
  return std::malloc(n);
}
void counting_free(void* p) {
  g_frees.fetch_add(1);
  std::free(p);
}

TEST(MemoryEnv, DISABLED_ChildReplacedRoutines) {
  mem::g_system.allocate = counting_allocate;
  mem::g_system.free = counting_free;
  void* p = zmalloc(5000, 256);
  zfree(p);
  void* q = zmalloc(5000, 256);
  emit("own", mem::own_routines_active() ? 1 : 0);
  emit("reused", q == p ? 1 : 0);
  emit("allocations", g_allocations.load());
  zfree(q);
  zml_free_buffers();
  emit("frees", g_frees.load());
}

// ---- parent checks ----

TEST(MemoryEnv, DisableBeforeFirstUseSendsEverythingToTheSystemHeap) {
  const auto r = zml::test::run_child("MemoryEnv.DISABLED_ChildDisableBeforeUse", memory_env({}));
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(r.value("disable"), "1");
  EXPECT_EQ(r.value("disable_again"), "0");
  EXPECT_EQ(r.value("enabled"), "0");
  // Blocks outside the caches are counted; the manager holds no bytes of them.
  EXPECT_EQ(r.value("count_live"), "1");
  EXPECT_EQ(r.value("bytes_live"), "0");
  EXPECT_EQ(r.value("count_freed"), "0");
  EXPECT_EQ(r.value("aligned"), "1");
}

TEST(MemoryEnv, DisableAfterFirstUseIsTooLate) {
  const auto r = zml::test::run_child("MemoryEnv.DISABLED_ChildDisableAfterUse", memory_env({}));
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(r.value("disable"), "0");
  EXPECT_EQ(r.value("enabled"), "1");
  EXPECT_EQ(r.value("count_freed"), r.value("count_live")) << "the freed block stays cached";
  EXPECT_EQ(r.value("reused"), "1");
}

TEST(MemoryEnv, DisableVariableIsASwitchByPresence) {
  for (const char* value : {"1", "0", "no", "FALSE"}) {
    const auto r = zml::test::run_child("MemoryEnv.DISABLED_ChildCycle",
                                        memory_env({{"ZML_DISABLE_FAST_MM", value}}));
    ASSERT_EQ(r.exit_code, 0) << r.out;
    EXPECT_EQ(r.value("enabled"), "0") << value;
    EXPECT_EQ(r.value("enabled_after"), "0") << value;
    EXPECT_EQ(r.value("bytes_live"), "0") << value;
    EXPECT_EQ(r.value("count_live"), "1") << value;
    EXPECT_EQ(r.value("count_freed"), "0") << value;
    EXPECT_EQ(r.value("disable"), "0") << value << ": decided already";
  }
}

TEST(MemoryEnv, UnsetVariableLeavesCachingOn) {
  const auto r = zml::test::run_child("MemoryEnv.DISABLED_ChildCycle", memory_env({}));
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(r.value("enabled"), "1");
  EXPECT_EQ(r.value("count_live"), "1");
  EXPECT_NE(r.value("bytes_live"), "0");
  EXPECT_EQ(r.value("count_freed"), "1");
  EXPECT_EQ(r.value("reused"), "1");
  EXPECT_EQ(r.value("limit"), "-1");
}

TEST(MemoryEnv, FastMemoryLimitIsReadInMegabytesWithItsWrap) {
  const std::map<std::string, std::string> cases = {
      {"1", "1048576"},       {"  12abc", "12582912"},
      {"-5", "-1"},           {"0", "0"},
      {"4095", "4293918720"}, {"4096", "0"},
      {"4097", "1048576"},    {"abc", "0"},
      {"+7", "7340032"},      {"99999999999", "4293918720"}};
  for (const auto& [value, limit] : cases) {
    const auto r = zml::test::run_child("MemoryEnv.DISABLED_ChildCycle",
                                        memory_env({{"ZML_FAST_MEMORY_LIMIT", value}}));
    ASSERT_EQ(r.exit_code, 0) << r.out;
    EXPECT_EQ(r.value("limit"), limit) << "ZML_FAST_MEMORY_LIMIT=" << value;
    EXPECT_EQ(r.value("enabled"), "1") << "a limit does not switch caching off";
  }
}

TEST(MemoryEnv, ReplacedRoutinesAreUsedAsTheyAre) {
  const auto r = zml::test::run_child("MemoryEnv.DISABLED_ChildReplacedRoutines", memory_env({}));
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(r.value("own"), "0");
  EXPECT_EQ(r.value("reused"), "1");
  EXPECT_EQ(r.value("allocations"), "1") << "the cache hit calls no system routine";
  EXPECT_EQ(r.value("frees"), "1") << "the global release returns the cached block";
}

TEST(MemoryLimit, ParsesLikeTheRuntimeDecimalConversion) {
  EXPECT_EQ(mem::parse_fast_memory_limit(""), 0);
  EXPECT_EQ(mem::parse_fast_memory_limit("\t 3"), 3 << 20);
  EXPECT_EQ(mem::parse_fast_memory_limit("-0"), 0);
  EXPECT_EQ(mem::parse_fast_memory_limit("-1"), -1);
  EXPECT_EQ(mem::parse_fast_memory_limit("2048"), int64_t{1} << 31);
  EXPECT_EQ(mem::parse_fast_memory_limit("8192"), 0);
  EXPECT_EQ(mem::parse_fast_memory_limit("-99999999999"), -1);
}

}  // namespace
