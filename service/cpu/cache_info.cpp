// SPDX-License-Identifier: BSD-3-Clause
// Data-cache sizes from the processor's deterministic cache-parameter leaves,
// for blocking decisions. Read once; sane defaults when the leaves are absent.
#include <cpuid.h>

#include <atomic>

#include "service/service.h"

namespace zml::serv {

namespace {

// Walks one deterministic cache-parameter leaf (4 on some vendors, 0x8000001D
// on others); both share the register layout.
bool walk_cache_leaf(unsigned leaf, CacheSizes* out) {
  unsigned a, b, c, d;
  bool any = false;
  for (unsigned sub = 0; sub < 16; ++sub) {
    __cpuid_count(leaf, sub, a, b, c, d);
    unsigned type = a & 0x1f;
    if (type == 0) break;
    if (type == 2) continue;  // instruction cache
    unsigned level = (a >> 5) & 0x7;
    unsigned long long ways = ((b >> 22) & 0x3ff) + 1;
    unsigned long long parts = ((b >> 12) & 0x3ff) + 1;
    unsigned long long line = (b & 0xfff) + 1;
    unsigned long long sets = static_cast<unsigned long long>(c) + 1;
    unsigned long long bytes = ways * parts * line * sets;
    unsigned long long sharing = ((a >> 14) & 0xfff) + 1;
    if (level == 1) out->l1d = static_cast<int64_t>(bytes);
    if (level == 2) out->l2 = static_cast<int64_t>(bytes);
    if (level == 3) {
      out->l3 = static_cast<int64_t>(bytes);
      out->l3_sharing = static_cast<int32_t>(sharing);
    }
    any = true;
  }
  return any;
}

CacheSizes detect() {
  CacheSizes s;
  unsigned a, b, c, d;
  unsigned max_basic = __get_cpuid_max(0, nullptr);
  unsigned max_ext = __get_cpuid_max(0x80000000u, nullptr);
  bool found = false;
  if (max_ext >= 0x8000001Du) {
    __cpuid(0x80000001u, a, b, c, d);
    if (c & (1u << 22)) found = walk_cache_leaf(0x8000001Du, &s);  // topology extensions
  }
  if (!found && max_basic >= 4) walk_cache_leaf(4, &s);
  if (s.l1d < 8 * 1024) s.l1d = 32 * 1024;
  if (s.l2 < 64 * 1024) s.l2 = 1024 * 1024;
  if (s.l3 < s.l2) s.l3 = s.l2;
  if (s.l3_sharing < 1) s.l3_sharing = 1;
  return s;
}

}  // namespace

const CacheSizes& cache_sizes() {
  static const CacheSizes sizes = detect();
  return sizes;
}

}  // namespace zml::serv
