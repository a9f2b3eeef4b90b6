// SPDX-License-Identifier: BSD-3-Clause
// Under AddressSanitizer, blocks the manager keeps are poisoned: a use after
// zml_free and an overflow into the size-class slack are reported although
// neither block went back to the system. Other builds have nothing to check.
#include <gtest/gtest.h>

#include <cstddef>

#include "tests/support/child.h"
#include "zml_service.h"

#if defined(__SANITIZE_ADDRESS__)

namespace {

volatile char* take(size_t bytes) {
  int alignment = 64;
  return static_cast<volatile char*>(zml_malloc(&bytes, &alignment));
}

// The report goes to standard output, where the parent reads it, and not to
// the report folder of the sanitizer job, which would count it as a finding.
zml::test::ChildResult run_faulting(const char* name) {
  return zml::test::run_child(name, {{"ASAN_OPTIONS", "log_path=stdout:detect_leaks=0"}});
}

}  // namespace

TEST(MemoryPoison, DISABLED_UseAfterFree) {
  volatile char* p = take(100);
  void* q = const_cast<char*>(p);
  zml_free(&q);
  p[0] = 1;
}

TEST(MemoryPoison, DISABLED_OverflowIntoSlack) {
  volatile char* p = take(100);
  p[100] = 1;
}

TEST(MemoryPoison, UseAfterFreeIsReported) {
  const auto r = run_faulting("MemoryPoison.DISABLED_UseAfterFree");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_NE(r.out.find("use-after-poison"), std::string::npos) << r.out;
}

TEST(MemoryPoison, OverflowIntoSlackIsReported) {
  const auto r = run_faulting("MemoryPoison.DISABLED_OverflowIntoSlack");
  EXPECT_NE(r.exit_code, 0);
  EXPECT_NE(r.out.find("use-after-poison"), std::string::npos) << r.out;
}

TEST(MemoryPoison, BytesAskedForStayUsable) {
  volatile char* p = take(100);
  for (int i = 0; i < 100; ++i) p[i] = static_cast<char>(i);
  void* q = const_cast<char*>(p);
  zml_free(&q);
  volatile char* again = take(100);  // the cached block, unpoisoned again
  for (int i = 0; i < 100; ++i) again[i] = 0;
  EXPECT_EQ(again[99], 0);
  q = const_cast<char*>(again);
  zml_free(&q);
}

#endif
