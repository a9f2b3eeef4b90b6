// SPDX-License-Identifier: BSD-3-Clause
// Blocks of zml_malloc: alignment rules, the header words in front of the
// block, the whole size usable, refusals, poisoning under AddressSanitizer, and
// the size classes, own routines and record directory under them.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "service/memory/memory.h"
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
  for (size_t s : {SIZE_MAX, SIZE_MAX - 64 - mem::kHeaderBytes + 1,
                   SIZE_MAX - 64 - mem::kHeaderBytes, SIZE_MAX / 2}) {
    EXPECT_EQ(zmalloc(s, 64), nullptr) << s;
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

}  // namespace
