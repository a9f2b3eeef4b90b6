// SPDX-License-Identifier: BSD-3-Clause
// The instruction cap from ZML_ENABLE_INSTRUCTIONS and the isa_allowed flags
// it sets, which kernels choosing their own variants and the dispatch tables
// read.
#include <array>
#include <atomic>
#include <cstring>

#include "service/cpu/code_path.h"
#include "service/service.h"

namespace zml::cpu {

namespace {

struct CapKeyword {
  const char* text;
  int32_t code;
};

// Compared in this order, each exactly (so "avx2" matches nothing).
constexpr std::array<CapKeyword, 7> kCapKeywords = {{
    {"AVX512_E1", 6},
    {"AVX512_MIC_E1", 5},
    {"AVX512_MIC", 3},
    {"AVX512", 4},
    {"AVX2", 2},
    {"AVX", 1},
    {"SSE4_2", 0},
}};

// What the processor must have for a cap code to be honoured, and how many
// isa_allowed flags (from SSE4.2 upwards) it then allows. The many-core codes
// 3 and 5 are never honoured; code 6 asks for the VNNI bit only.
struct CapRule {
  bool accepted;
  FeatureSet features;
  bool vnni;
  int32_t allows;
};

constexpr std::array<CapRule, 7> kCapRules = {{
    {true, mark(Level::kSse42), false, 1},   // 0 SSE4_2
    {true, mark(Level::kAvx), false, 2},     // 1 AVX
    {true, mark(Level::kAvx2), false, 3},    // 2 AVX2
    {false, {}, false, 0},                   // 3 AVX512_MIC
    {true, mark(Level::kAvx512), false, 4},  // 4 AVX512
    {false, {}, false, 0},                   // 5 AVX512_MIC_E1
    {true, {}, true, 5},                     // 6 AVX512_E1
}};

// Lowering reads the cap as a processor type 5..11; 8 and 10 never lower.
struct LowerRule {
  bool lowers;
  FeatureSet features;
  bool vnni;
};

constexpr std::array<LowerRule, 7> kLowerRules = {{
    {true, mark(Level::kSse42), false},   // 5
    {true, mark(Level::kAvx), false},     // 6
    {true, mark(Level::kAvx2), false},    // 7
    {false, {}, false},                   // 8
    {true, mark(Level::kAvx512), false},  // 9
    {false, {}, false},                   // 10
    {true, {}, true},                     // 11
}};

std::atomic<int32_t> g_cap{-1};
std::atomic<int32_t> g_cap_read{0};
std::atomic<int32_t> g_cap_accepted{0};
// SSE4.2, AVX, AVX2, AVX-512, AVX-512 with VNNI, and two that stay 0.
std::array<std::atomic<int32_t>, serv::kIsaCount> g_isa_allowed{};

void set_flags(int32_t allows) {
  for (int32_t i = 0; i < serv::kIsaCount; ++i) {
    g_isa_allowed[static_cast<size_t>(i)].store(i < allows ? 1 : 0, std::memory_order_relaxed);
  }
}

bool meets(FeatureSet f, bool vnni) { return has(f) && (!vnni || vnni_present() != 0); }

// Validates cap code c: sets the flags and answers 1 when honoured, else
// leaves them and answers 0.
int32_t validate(int32_t c) {
  if (c < 0 || c >= static_cast<int32_t>(kCapRules.size())) return 0;
  const CapRule& rule = kCapRules[static_cast<size_t>(c)];
  if (!rule.accepted || !meets(rule.features, rule.vnni)) return 0;
  set_flags(rule.allows);
  return 1;
}

}  // namespace

int32_t instruction_cap_code(const char* value) {
  for (const CapKeyword& k : kCapKeywords) {
    if (std::strcmp(value, k.text) == 0) return k.code;
  }
  return -1;
}

const char* instruction_cap_name(int32_t code) {
  for (const CapKeyword& k : kCapKeywords) {
    if (k.code == code) return k.text;
  }
  return "none";
}

void read_instruction_cap() {
  if (g_cap_read.load(std::memory_order_acquire)) return;
  char value[30];
  if (zml_serv_getenv("ZML_ENABLE_INSTRUCTIONS", value, sizeof value) > 0) {
    // The keyword's code is kept even when the processor refuses it: the
    // lowering below reads it again.
    const int32_t code = instruction_cap_code(value);
    g_cap.store(code, std::memory_order_relaxed);
    g_cap_accepted.store(validate(code), std::memory_order_relaxed);
  }
  g_cap_read.store(1, std::memory_order_release);
}

int32_t instruction_cap() { return g_cap.load(std::memory_order_relaxed); }

// Keyword codes and type numbers are different scales, so only codes 5 and 6
// ever lower a detected type (to 5 or 6); the other caps act through the
// flags alone. Kept so that caps written for earlier releases keep their effect.
int32_t lower_to_cap(int32_t type) {
  const int32_t cap = instruction_cap();
  if (cap < 0 || type <= cap || cap < 5 || cap > 11) return type;
  const LowerRule& rule = kLowerRules[static_cast<size_t>(cap - 5)];
  return rule.lowers && meets(rule.features, rule.vnni) ? cap : type;
}

// With no cap honoured the flags say what the processor supports, limited to
// the level of the settled type, so that a fixed reproducibility branch or a
// forced type also holds back kernels that choose by these flags.
void settle_isa_flags(int32_t type) {
  if (g_cap_accepted.load(std::memory_order_relaxed)) return;
  const Level top =
      type_has_library(type) ? kProcessorTypeTable[static_cast<size_t>(type)].level : Level::kSse2;
  int32_t allows = 0;
  for (Level l : {Level::kSse42, Level::kAvx, Level::kAvx2, Level::kAvx512}) {
    if (l <= top && has(group(l))) allows = static_cast<int32_t>(l);
  }
  if (allows == static_cast<int32_t>(Level::kAvx512) && vnni_present() != 0) ++allows;
  set_flags(allows);
}

}  // namespace zml::cpu

namespace zml::serv {

bool isa_allowed(IsaFlag which) {
  if (which < 0 || which >= kIsaCount) return false;
  cpu::detected_code_path();
  return cpu::g_isa_allowed[static_cast<size_t>(which)].load(std::memory_order_relaxed) != 0;
}

}  // namespace zml::serv
