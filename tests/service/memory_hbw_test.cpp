// SPDX-License-Identifier: BSD-3-Clause
// High-bandwidth memory through a stand-in library, in child processes: the
// version rule and its verbose message, the entries needed, the fast-memory
// limit, and blocks of zml_malloc coming from it once it is available.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>

#include "service/memory/memory.h"
#include "service/service.h"
#include "tests/support/child.h"
#include "zml_service.h"

namespace {

namespace mem = zml::serv::mem;
using zml::test::emit;

constexpr const char* kMessage = "Minimal supported version of the memkind library is 1.1.0\n";

#ifdef ZML_MEMKIND_NEW

zml::test::ChildResult load_in_child(const char* library, const char* verbose,
                                     const char* limit = "") {
  return zml::test::run_child("MemoryHbw.DISABLED_ChildLoad", {{"ZML_TEST_MEMKIND", library},
                                                               {"ZML_VERBOSE", verbose},
                                                               {"ZML_FAST_MEMORY_LIMIT", limit},
                                                               {"ZML_DISABLE_FAST_MM", ""}});
}

TEST(MemoryHbw, DISABLED_ChildLoad) {
  mem::ensure_decided();
  const bool loaded = mem::hbw_load(std::getenv("ZML_TEST_MEMKIND"));
  emit("loaded", loaded ? 1 : 0);
  emit("available", mem::hbw_available() ? 1 : 0);
  if (!loaded) return;
  // Within a 1 MiB limit: one block of 600 KiB fits, a second does not.
  void* a = mem::hbw_allocate(600 << 10, 1);
  void* b = mem::hbw_allocate(600 << 10, 2);
  emit("first", a ? 1 : 0);
  emit("second", b ? 1 : 0);
  emit("released", mem::hbw_release(a) ? 1 : 0);
  void* c = mem::hbw_allocate(600 << 10, 3);
  emit("after_release", c ? 1 : 0);
  mem::hbw_release(c);
  // A mapped block, so that the words in front of it are readable.
  void* ordinary = mem::own_allocate(mem::kMapThreshold);
  emit("ordinary_is_not_hbw", mem::hbw_release(ordinary) ? 1 : 0);
  mem::own_free(ordinary);

  // zml_malloc's blocks now come from it: the underlying block carries the
  // inner record whose first word is its own address.
  size_t s = 1000;
  int al = 64;
  void* p = zml_malloc(&s, &al);
  const auto base = static_cast<const uintptr_t*>(p)[-static_cast<int>(mem::kHeaderWords)];
  const auto* inner = reinterpret_cast<const uintptr_t*>(base) - 4;
  const bool own = mem::own_block(reinterpret_cast<const void*>(base));
  emit("inner_self", !own && inner[0] == reinterpret_cast<uintptr_t>(inner) ? 1 : 0);
  zml_free(&p);
  zml_free_buffers();
  int n = -1;
  emit("bytes_after", zml_mem_stat(&n));
}

TEST(MemoryHbw, TooOldVersionIsRefusedWithAMessageInVerboseMode) {
  const auto r = load_in_child(ZML_MEMKIND_OLD, "1");
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(r.value("loaded"), "0");
  EXPECT_EQ(r.value("available"), "0");
  EXPECT_NE(r.out.find(kMessage), std::string::npos) << r.out;
  const auto quiet = load_in_child(ZML_MEMKIND_OLD, "0");
  EXPECT_EQ(quiet.value("loaded"), "0");
  EXPECT_EQ(quiet.out.find(kMessage), std::string::npos) << "silent without verbose mode";
}

TEST(MemoryHbw, MissingEntriesOrLibraryLeaveItSilentlyUnavailable) {
  for (const char* library : {ZML_MEMKIND_BARE, "/nonexistent/libmemkind.so.0"}) {
    const auto r = load_in_child(library, "1");
    ASSERT_EQ(r.exit_code, 0) << r.out;
    EXPECT_EQ(r.value("loaded"), "0") << library;
    EXPECT_EQ(r.out.find(kMessage), std::string::npos) << library;
  }
}

TEST(MemoryHbw, UsableVersionServesBlocksWithinTheLimit) {
  const auto r = load_in_child(ZML_MEMKIND_NEW, "0", "1");
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(r.value("loaded"), "1");
  EXPECT_EQ(r.value("available"), "1");
  EXPECT_EQ(r.value("first"), "1");
  EXPECT_EQ(r.value("second"), "0") << "past the limit: ordinary memory instead";
  EXPECT_EQ(r.value("released"), "1");
  EXPECT_EQ(r.value("after_release"), "1");
  EXPECT_EQ(r.value("ordinary_is_not_hbw"), "0");
  EXPECT_EQ(r.value("inner_self"), "1");
  EXPECT_EQ(r.value("bytes_after"), "0");
}

TEST(MemoryHbw, ZeroLimitKeepsItUnused) {
  const auto r = load_in_child(ZML_MEMKIND_NEW, "0", "4096");
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(r.value("loaded"), "1");
  EXPECT_EQ(r.value("first"), "0");
  EXPECT_EQ(r.value("inner_self"), "0");
}

#endif  // ZML_MEMKIND_NEW

TEST(MemoryHbw, ThisProcessorLineDecidesTheProbe) {
  // Off the many-core line nothing is loaded, whatever is installed.
  mem::ensure_decided();
  if ((zml::serv::feature_word() & 0x8000001) == 0x8000001 &&
      (zml::serv::feature_word2() & 0x7) == 0x7) {
    GTEST_SKIP() << "a many-core processor: availability depends on the library";
  }
  EXPECT_FALSE(mem::hbw_available());
}

}  // namespace
