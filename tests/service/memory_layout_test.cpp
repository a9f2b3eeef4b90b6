// SPDX-License-Identifier: BSD-3-Clause
// Blocks of zml_malloc: alignment rules, the four header words in front of the
// block, the whole size usable, refusals, and the size classes under them.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "service/memory/memory.h"
#include "service/service.h"
#include "zml_service.h"

namespace {

namespace mem = zml::serv::mem;

struct Header {
  uintptr_t base, t, zero, alignment;
};

Header header_of(const void* p) {
  const auto* h = static_cast<const uintptr_t*>(p) - mem::kHeaderWords;
  return {h[0], h[1], h[2], h[3]};
}

void* zmalloc(size_t s, int a) { return zml_malloc(&s, &a); }
void zfree(void* p) { zml_free(&p); }

// Checks everything a block promises: alignment, header words, and that the
// whole size lies inside the underlying block (written end to end).
void check_block(void* p, size_t s, size_t want_alignment) {
  ASSERT_NE(p, nullptr) << "s=" << s << " a=" << want_alignment;
  const auto addr = reinterpret_cast<uintptr_t>(p);
  EXPECT_EQ(addr % want_alignment, 0u) << "s=" << s;
  const Header h = header_of(p);
  EXPECT_EQ(h.t, s + want_alignment + mem::kHeaderBytes);
  EXPECT_EQ(h.zero, 0u);
  EXPECT_EQ(h.alignment, want_alignment);
  EXPECT_EQ(addr, (h.base + want_alignment + mem::kHeaderBytes) & ~(want_alignment - 1));
  EXPECT_GE(addr - mem::kHeaderBytes, h.base) << "header must lie inside the block";
  EXPECT_LE(addr + s, h.base + h.t) << "block must hold the whole size";
  if (s > 0) {
    std::memset(p, 0xa5, s);
    EXPECT_EQ(static_cast<unsigned char*>(p)[s - 1], 0xa5);
  }
}

TEST(MemoryLayout, HeaderWordsArePointerSized) {
  EXPECT_EQ(mem::kHeaderBytes, sizeof(void*) == 4 ? 16u : 32u);
}

TEST(MemoryLayout, SmallOrNonPowerOfTwoAlignmentBecomes64) {
  for (int a : {-4096, -64, -1, 0, 1, 2, 8, 16, 32, 63, 96, 100, 192, 1000, 4095}) {
    for (size_t s : {size_t{0}, size_t{1}, size_t{63}, size_t{1000}}) {
      void* p = zmalloc(s, a);
      check_block(p, s, 64);
      zfree(p);
    }
  }
}

TEST(MemoryLayout, PowerOfTwoAlignmentsFrom64AreKept) {
  for (int a : {64, 128, 256, 4096, 65536, 2097152}) {
    for (size_t s : {size_t{1}, size_t{4097}, size_t{3} << 20}) {
      void* p = zmalloc(s, a);
      check_block(p, s, static_cast<size_t>(a));
      zfree(p);
    }
  }
}

TEST(MemoryLayout, NullAlignmentPointerMeans64AndNullSizePointerRefuses) {
  size_t s = 100;
  void* p = zml_malloc(&s, nullptr);
  check_block(p, s, 64);
  zfree(p);
  int a = 128;
  EXPECT_EQ(zml_malloc(nullptr, &a), nullptr);
}

TEST(MemoryLayout, ManyLiveBlocksDoNotOverlap) {
  std::vector<std::pair<unsigned char*, size_t>> blocks;
  for (int i = 0; i < 64; ++i) {
    const size_t s = 1 + static_cast<size_t>(i) * 977;
    auto* p = static_cast<unsigned char*>(zmalloc(s, 64 << (i % 4)));
    ASSERT_NE(p, nullptr);
    std::memset(p, i, s);
    blocks.emplace_back(p, s);
  }
  for (size_t i = 0; i < blocks.size(); ++i) {
    const auto [p, s] = blocks[i];
    for (size_t k = 0; k < s; k += 97) ASSERT_EQ(p[k], static_cast<unsigned char>(i)) << i;
  }
  for (auto& b : blocks) zfree(b.first);
}

TEST(MemoryLayout, SizeThatWrapsGivesNull) {
  // t = s + a + header wraps around: null, nothing taken.
  EXPECT_EQ(zmalloc(SIZE_MAX, 64), nullptr);
  EXPECT_EQ(zmalloc(SIZE_MAX - 64 - mem::kHeaderBytes + 1, 64), nullptr);
  EXPECT_EQ(zmalloc(SIZE_MAX - 100, 4096), nullptr);
}

TEST(MemoryLayout, SystemRefusalGivesNull) {
  // No wrap, but far more than any address space offers.
  EXPECT_EQ(zmalloc(SIZE_MAX - 64 - mem::kHeaderBytes, 64), nullptr);
  EXPECT_EQ(zmalloc(SIZE_MAX / 2, 64), nullptr);
}

TEST(MemoryLayout, FreeOfNullIsHarmless) {
  void* null_block = nullptr;
  zml_free(&null_block);
  zml_free(nullptr);
  zml::serv::aligned_free(nullptr);
  SUCCEED();
}

TEST(MemoryLayout, InternalAllocationUsesTheSameBlocks) {
  void* p = zml::serv::aligned_alloc(1000, 128);
  check_block(p, 1000, 128);
  // A block from the internal entry may be released through the export.
  zfree(p);
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

TEST(MemorySizeClass, OwnRoutinesTagAndReleaseBothKinds) {
  for (size_t n : {size_t{1}, size_t{4000}, mem::kMapThreshold, size_t{5} << 20}) {
    void* p = mem::own_allocate(n);
    ASSERT_NE(p, nullptr);
    EXPECT_TRUE(mem::own_block(p));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
    std::memset(p, 1, n);
    void* q = mem::own_reallocate(p, n + 100);
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(static_cast<unsigned char*>(q)[n - 1], 1);
    mem::own_free(q);
  }
  auto* z = static_cast<unsigned char*>(mem::own_zero_allocate(1000, 3));
  ASSERT_NE(z, nullptr);
  for (size_t i = 0; i < 3000; ++i) ASSERT_EQ(z[i], 0);
  mem::own_free(z);
  EXPECT_EQ(mem::own_zero_allocate(SIZE_MAX / 2, 4), nullptr);
}

TEST(MemoryDirectory, LevelsDoubleFrom1024) {
  int level = -1;
  uint32_t offset = 0;
  const struct {
    uint32_t index;
    int level;
    uint32_t offset;
  } cases[] = {{0, 0, 0},         {1023, 0, 1023},
               {1024, 1, 0},      {2047, 1, 1023},
               {2048, 2, 0},      {4095, 2, 2047},
               {4096, 3, 0},      {(1u << 30) - 1, 20, (1u << 29) - 1},
               {1u << 30, 21, 0}, {(1u << 31) - 1, 21, (1u << 30) - 1}};
  for (const auto& c : cases) {
    mem::directory_position(c.index, &level, &offset);
    EXPECT_EQ(level, c.level) << c.index;
    EXPECT_EQ(offset, c.offset) << c.index;
  }
}

}  // namespace
