// SPDX-License-Identifier: BSD-3-Clause
// The reproducibility branch from ZML_CBWR: a keyword naming an instruction-set
// level that every machine then runs, so results match across processors.
// Branches the running processor cannot honour fall back to auto.
#include <array>
#include <atomic>
#include <cstring>

#include "service/cpu/code_path.h"
#include "service/service.h"

namespace zml::cpu {

namespace {

constexpr int32_t kBranchNone = 1;
constexpr int32_t kBranchAuto = 2;
constexpr int32_t kBranchMask = 0x3f;

struct Keyword {
  const char* text;
  int32_t branch;
};

// "SSE3" shares branch 4 with "SSE2" and no keyword gives 5: the branch numbers
// are the ones hosts store and compare, so they stay as published.
constexpr std::array<Keyword, 13> kKeywords = {{
    {"AUTO", 2},
    {"COMPATIBLE", 3},
    {"SSE2", 4},
    {"SSE3", 4},
    {"SSSE3", 6},
    {"SSE4_1", 7},
    {"SSE4_2", 8},
    {"AVX", 9},
    {"AVX2", 10},
    {"AVX512_MIC", 11},
    {"AVX512", 12},
    {"AVX512_MIC_E1", 13},
    {"AVX512_E1", 14},
}};

enum class Line { kAny, kCore, kManyCore };

struct BranchNeeds {
  FeatureSet features;
  bool vnni;
  Line line;
};

// What a named branch needs of the processor, indexed by branch 0..14
// (0..2 and 5 are never tested).
constexpr std::array<BranchNeeds, 15> kNeeds = {{
    {},                                                         // 0
    {},                                                         // 1 none
    {},                                                         // 2 auto
    {sse2_with(0), false, Line::kAny},                          // 3 COMPATIBLE
    {sse2_with(0), false, Line::kAny},                          // 4 SSE2, SSE3
    {sse2_with(0), false, Line::kAny},                          // 5 (no keyword)
    {sse2_with(bit::kSsse3), false, Line::kAny},                // 6 SSSE3
    {sse2_with(bit::kSsse3 | bit::kSse41), false, Line::kAny},  // 7 SSE4_1
    {group(Level::kSse42), false, Line::kAny},                  // 8 SSE4_2
    {group(Level::kAvx), false, Line::kAny},                    // 9 AVX
    {group(Level::kAvx2), false, Line::kAny},                   // 10 AVX2
    {kManyCore, false, Line::kManyCore},                        // 11 AVX512_MIC
    {group(Level::kAvx512), false, Line::kCore},                // 12 AVX512
    {kManyCoreE1, false, Line::kManyCore},                      // 13 AVX512_MIC_E1
    {group(Level::kAvx512), true, Line::kCore},                 // 14 AVX512_E1
}};

int32_t branch_of(const char* value) {
  constexpr char kPrefix[] = "BRANCH=";
  if (std::strncmp(value, kPrefix, sizeof kPrefix - 1) == 0) value += sizeof kPrefix - 1;
  for (const Keyword& k : kKeywords) {
    if (std::strcmp(value, k.text) == 0) return k.branch;
  }
  return kBranchAuto;
}

bool processor_serves(int32_t branch) {
  if (branch <= kBranchAuto || branch >= static_cast<int32_t>(kNeeds.size())) return true;
  const BranchNeeds& need = kNeeds[static_cast<size_t>(branch)];
  const FeatureSet f = features();
  // A processor of one AVX-512 line never runs the other line's branch.
  const bool core = f.contains(group(Level::kAvx512));
  const bool many = f.contains(kManyCore);
  if (need.line == Line::kManyCore && core) return false;
  if (need.line == Line::kCore && many && !core) return false;
  return f.contains(need.features) && (!need.vnni || vnni_present() != 0);
}

std::atomic<int32_t> g_word{0};
std::atomic<int32_t> g_read{0};

int32_t read_branch_word() {
  char value[128];
  if (zml_serv_getenv("ZML_CBWR", value, sizeof value) <= 0) return 0;
  const int32_t branch = branch_of(value);
  return processor_serves(branch) ? branch : kBranchAuto;
}

}  // namespace

const char* branch_name(int32_t branch) {
  for (const Keyword& k : kKeywords) {
    if (k.branch == branch) return k.text;
  }
  return "none";
}

}  // namespace zml::cpu

// Racing first calls parse the same variable and store the same word.
int32_t zml_serv_cpu_detect(int32_t what) {
  using namespace zml::cpu;
  if (what == -1) return g_word.load(std::memory_order_acquire);
  if (what != 1) return -2;
  if (g_read.load(std::memory_order_acquire) == 0) {
    g_word.store(read_branch_word(), std::memory_order_relaxed);
    g_read.store(1, std::memory_order_release);
  }
  const int32_t word = g_word.load(std::memory_order_relaxed);
  return word == 0 ? kBranchNone : (word & kBranchMask);
}
