// SPDX-License-Identifier: BSD-3-Clause
// Under AddressSanitizer, blocks the manager keeps are poisoned: a use after
// zml_free and an overflow into the size-class slack are reported although
// neither block went back to the system. Other builds have nothing to check.
#include <gtest/gtest.h>

#include <cstddef>

#include "zml_service.h"

#if defined(__SANITIZE_ADDRESS__)

namespace {

volatile char* take(size_t bytes) {
  int alignment = 64;
  return static_cast<volatile char*>(zml_malloc(&bytes, &alignment));
}

}  // namespace

TEST(MemoryPoisonDeathTest, UseAfterFreeIsReported) {
  EXPECT_DEATH(
      {
        volatile char* p = take(100);
        void* q = const_cast<char*>(p);
        zml_free(&q);
        p[0] = 1;
      },
      "use-after-poison");
}

TEST(MemoryPoisonDeathTest, OverflowIntoSlackIsReported) {
  EXPECT_DEATH(
      {
        volatile char* p = take(100);
        p[100] = 1;
      },
      "use-after-poison");
}

TEST(MemoryPoison, BytesAskedForStayUsable) {
  volatile char* p = take(100);
  for (int i = 0; i < 100; ++i) p[i] = static_cast<char>(i);
  void* q = const_cast<char*>(p);
  zml_free(&q);
  volatile char* again = take(100);  // the cached block, unpoisoned again
  for (int i = 0; i < 100; ++i) again[i] = 0;
  q = const_cast<char*>(again);
  zml_free(&q);
  SUCCEED();
}

#endif
