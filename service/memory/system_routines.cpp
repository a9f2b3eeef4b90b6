// SPDX-License-Identifier: BSD-3-Clause
// The routines under the memory manager: the four replaceable pointers, the
// manager's own page-granular routines, and the size classes that fit them.
#include <cstdlib>
#include <cstring>

#include "service/memory/memory.h"
#include "service/platform/platform.h"

namespace zml::serv::mem {

SystemRoutines g_system = {std::malloc, std::calloc, std::realloc, std::free};

namespace {

bool g_own_active = false;

// The tag just in front of every block of own_allocate: its length (the whole
// mapping, or the heap request) and a check word that also says which kind.
struct Tag {
  uintptr_t length;
  uintptr_t check;
};
constexpr uintptr_t kMappedKey = static_cast<uintptr_t>(0x5a4d4d50u);  // mapped pages
constexpr uintptr_t kHeapKey = static_cast<uintptr_t>(0x5a4d4850u);    // runtime heap
// The heap prefix keeps blocks 16-byte aligned.
constexpr size_t kHeapPrefix = 16;
static_assert(sizeof(Tag) <= kHeapPrefix && sizeof(Tag) <= kMapPrefix);

Tag* tag_of(uintptr_t block) { return reinterpret_cast<Tag*>(block - sizeof(Tag)); }
Tag* tag_of(const void* p) { return tag_of(reinterpret_cast<uintptr_t>(p)); }

// Granules are powers of two; a mask keeps division off the fast path.
size_t round_up(size_t n, size_t granule) { return (n + granule - 1) & ~(granule - 1); }

// Usable bytes of an own block (for reallocation).
size_t own_capacity(const void* p) {
  const Tag* tag = tag_of(p);
  return (tag->check ^ tag->length) == kMappedKey ? tag->length - kMapPrefix : tag->length;
}

}  // namespace

size_t size_class(size_t t) {
  if (t <= kPage) return round_up(t, 64);
  const size_t granule = t + kMapPrefix > kHugePage ? kHugePage : kPage;
  if (t > SIZE_MAX - kMapPrefix - granule) return 0;
  return round_up(t + kMapPrefix, granule) - kMapPrefix;
}

void* own_allocate(size_t bytes) {
  if (bytes >= kMapThreshold) {
    if (bytes > SIZE_MAX - kMapPrefix - kHugePage) return nullptr;
    const size_t granule = bytes + kMapPrefix > kHugePage ? kHugePage : kPage;
    const size_t length = round_up(bytes + kMapPrefix, granule);
    void* m = platform::pages_alloc(length);
    if (!m) return nullptr;
    if (granule == kHugePage) platform::advise_huge_pages(m, length);
    const uintptr_t p = reinterpret_cast<uintptr_t>(m) + kMapPrefix;
    *tag_of(p) = Tag{length, length ^ kMappedKey};
    return reinterpret_cast<void*>(p);
  }
  void* m = std::malloc(bytes + kHeapPrefix);
  if (!m) return nullptr;
  const uintptr_t p = reinterpret_cast<uintptr_t>(m) + kHeapPrefix;
  *tag_of(p) = Tag{bytes, bytes ^ kHeapKey};
  return reinterpret_cast<void*>(p);
}

bool own_block(const void* p) {
  if (!p) return false;
  const Tag* tag = tag_of(p);
  const uintptr_t key = tag->check ^ tag->length;
  return key == kMappedKey || key == kHeapKey;
}

void own_free(void* p) {
  if (!p) return;
  const Tag* tag = tag_of(p);
  const uintptr_t key = tag->check ^ tag->length;
  if (key == kMappedKey) {
    platform::pages_free(static_cast<char*>(p) - kMapPrefix, tag->length);
  } else if (key == kHeapKey) {
    std::free(static_cast<char*>(p) - kHeapPrefix);
  }
  // Anything else is not ours: leaving it alone is safer than guessing.
}

void* own_zero_allocate(size_t count, size_t bytes) {
  if (bytes != 0 && count > SIZE_MAX / bytes) return nullptr;
  const size_t n = count * bytes;
  void* p = own_allocate(n);
  // Mapped pages arrive zeroed on POSIX but not from LocalAlloc: clear always.
  if (p) std::memset(p, 0, n);
  return p;
}

void* own_reallocate(void* p, size_t bytes) {
  if (!p) return own_allocate(bytes);
  void* q = own_allocate(bytes);
  if (!q) return nullptr;
  const size_t keep = own_capacity(p);
  std::memcpy(q, p, keep < bytes ? keep : bytes);
  own_free(p);
  return q;
}

bool install_own_routines() {
  if (g_system.allocate == std::malloc && g_system.zero_allocate == std::calloc &&
      g_system.reallocate == std::realloc && g_system.free == std::free) {
    g_system = {own_allocate, own_zero_allocate, own_reallocate, own_free};
    g_own_active = true;
  }
  return g_own_active;
}

bool own_routines_active() { return g_own_active; }

}  // namespace zml::serv::mem
