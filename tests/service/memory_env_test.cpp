// SPDX-License-Identifier: BSD-3-Clause
// The manager's first-use decisions, each in a child process: switching it off
// by call (before and after first use) or by ZML_DISABLE_FAST_MM, the fast
// memory limit, replaced system routines, and high-bandwidth memory.
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
  emit("bytes_live", zml_mem_stat(&n));
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
  emit("system_calls", std::to_string(g_allocations) + " " + std::to_string(g_frees));
}

// The disabled manager counts its blocks but holds no bytes and keeps nothing;
// a ZML_DISABLE_FAST_MM of any value, "0" included, switches it off; a limit
// (in megabytes) does not; zml_disable_fast_mm works only before the first
// use; replaced system routines are used as they are, a cache hit calling
// none and the global release returning the cached block.
TEST(MemoryEnv, FirstUseDecisions) {
  const struct {
    Env env;
    const char* first_disable;
    bool enabled;
    const char* limit;
    const char* system_calls;
  } cases[] = {{{}, "", true, "-1", "0 0"},
               {{{"ZML_DISABLE_FAST_MM", "0"}}, "", false, "-1", "0 0"},
               {{{"ZML_DISABLE_FAST_MM", "FALSE"}}, "", false, "-1", "0 0"},
               {{{"ZML_FAST_MEMORY_LIMIT", "4097"}}, "", true, "1048576", "0 0"},
               {{{"ZML_TEST_FIRST", "disable"}}, "1", false, "-1", "0 0"},
               {{{"ZML_TEST_FIRST", "use"}}, "0", true, "-1", "0 0"},
               {{{"ZML_TEST_FIRST", "replace"}}, "", true, "-1", "1 1"}};
  for (const auto& c : cases) {
    Env env = {{"ZML_DISABLE_FAST_MM", ""}, {"ZML_FAST_MEMORY_LIMIT", ""}, {"ZML_TEST_FIRST", ""}};
    for (const auto& [k, v] : c.env) env[k] = v;
    const auto r = zml::test::run_child("MemoryEnv.DISABLED_Cycle", env);
    const std::string& where = r.out;
    ASSERT_EQ(r.exit_code, 0) << where;
    EXPECT_EQ(r.value("first_disable"), c.first_disable) << where;
    EXPECT_EQ(r.value("enabled"), c.enabled ? "1" : "0") << where;
    EXPECT_EQ(r.value("count_live"), "1") << where;
    EXPECT_EQ(r.value("bytes_live") != "0", c.enabled) << where;
    EXPECT_EQ(r.value("count_freed"), c.enabled ? "1" : "0") << where;
    EXPECT_TRUE(!c.enabled || r.value("reused") == "1") << where;
    EXPECT_EQ(r.value("disable"), "0") << "decided already: " << where;
    EXPECT_EQ(r.value("limit"), c.limit) << where;
    EXPECT_EQ(r.value("system_calls"), c.system_calls) << where;
    EXPECT_TRUE(std::string(c.system_calls) == "0 0" || r.value("own") == "0") << where;
  }
}

// The runtime's decimal conversion, then megabytes to bytes in 32 bits.
TEST(MemoryLimit, ParsesLikeTheRuntimeDecimalConversion) {
  const std::map<std::string, int64_t> cases = {{"", 0},
                                                {"\t 3", 3 << 20},
                                                {"  12abc", 12 << 20},
                                                {"+7", 7 << 20},
                                                {"-0", 0},
                                                {"-5", -1},
                                                {"abc", 0},
                                                {"2048", int64_t{1} << 31},
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
  const struct {
    const char* library;
    const char* verbose;
    const char* limit;
    bool message;
    const char* available;
    const char* used;  // blocks come from it
  } cases[] = {{ZML_MEMKIND_OLD, "1", "1", true, "", ""},
               {ZML_MEMKIND_OLD, "0", "1", false, "", ""},
               {ZML_MEMKIND_BARE, "1", "1", false, "", ""},
               {"/nonexistent/libmemkind.so.0", "1", "1", false, "", ""},
               {ZML_MEMKIND_NEW, "0", "1", false, "1", "1"},
               // 4096 MiB wraps to a zero limit, which keeps it unused.
               {ZML_MEMKIND_NEW, "0", "4096", false, "1", "0"}};
  for (const auto& c : cases) {
    const auto r =
        zml::test::run_child("MemoryHbw.DISABLED_ChildLoad", {{"ZML_TEST_MEMKIND", c.library},
                                                              {"ZML_VERBOSE", c.verbose},
                                                              {"ZML_FAST_MEMORY_LIMIT", c.limit},
                                                              {"ZML_DISABLE_FAST_MM", ""}});
    const std::string where = std::string(c.library) + " " + c.limit + "\n" + r.out;
    ASSERT_EQ(r.exit_code, 0) << where;
    EXPECT_EQ(r.out.find(kMessage) != std::string::npos, c.message) << where;
    EXPECT_EQ(r.value("available"), c.available) << where;
    EXPECT_EQ(r.value("inner_self"), c.used) << where;
    if (*c.available) {
      EXPECT_EQ(r.value("limit_kept"), c.used) << where;
      EXPECT_EQ(r.value("ordinary_is_hbw"), "0") << where;
      EXPECT_EQ(r.value("bytes_after"), "0") << where;
    }
  }
}

#endif  // ZML_MEMKIND_NEW

}  // namespace
