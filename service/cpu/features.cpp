// SPDX-License-Identifier: BSD-3-Clause
// Feature detection: CPUID leaves 0, 1, 7 and 0x80000001 plus XCR0, folded into
// the two feature words laid out in features.h. Works the same on 32-bit x86,
// where CPUID itself may be absent.
#include "service/cpu/features.h"

#include <cpuid.h>

#include <atomic>
#include <cstring>

#include "service/service.h"

namespace zml::cpu {

namespace {

std::atomic<uint32_t> g_word1{0};
std::atomic<uint32_t> g_word2{0};
std::atomic<int32_t> g_vnni{-1};

// Register bits, named after the vendor-neutral instruction-set manuals.
namespace leaf1 {
constexpr uint32_t kEdxFxsr = 1u << 24, kEdxSse = 1u << 25, kEdxSse2 = 1u << 26;
constexpr uint32_t kEcxSse3 = 1u << 0, kEcxSsse3 = 1u << 9, kEcxFma = 1u << 12;
constexpr uint32_t kEcxSse41 = 1u << 19, kEcxSse42 = 1u << 20, kEcxMovbe = 1u << 22;
constexpr uint32_t kEcxPopcnt = 1u << 23, kEcxOsxsave = 1u << 27, kEcxAvx = 1u << 28;
constexpr uint32_t kEcxF16c = 1u << 29;
}  // namespace leaf1
namespace leaf7 {
constexpr uint32_t kEbxBmi1 = 1u << 3, kEbxAvx2 = 1u << 5, kEbxBmi2 = 1u << 8;
constexpr uint32_t kEbxAvx512F = 1u << 16, kEbxAvx512Dq = 1u << 17, kEbxAvx512Pf = 1u << 26;
constexpr uint32_t kEbxAvx512Er = 1u << 27, kEbxAvx512Cd = 1u << 28, kEbxAvx512Bw = 1u << 30;
constexpr uint32_t kEbxAvx512Vl = 1u << 31;
constexpr uint32_t kEcxPrefetchWt1 = 1u << 0, kEcxAvx512Vnni = 1u << 11;
constexpr uint32_t kEdx4Vnniw = 1u << 2, kEdx4Fmaps = 1u << 3;
}  // namespace leaf7
constexpr uint32_t kExtEcxLzcnt = 1u << 5;
// XCR0: SSE and YMM upper halves; opmask, ZMM upper halves and ZMM16-31.
constexpr uint64_t kXcr0Ymm = 0x6;
constexpr uint64_t kXcr0Zmm = 0xe6;

bool all(uint32_t reg, uint32_t bits) { return (reg & bits) == bits; }

bool cpuid(uint32_t leaf, uint32_t sub, uint32_t* a, uint32_t* b, uint32_t* c, uint32_t* d) {
#if defined(__i386__) || defined(__x86_64__)
  // __get_cpuid_max also checks, on 32-bit, that the CPUID instruction exists.
  if (__get_cpuid_max(leaf & 0x80000000u, nullptr) < leaf) return false;
  __cpuid_count(leaf, sub, *a, *b, *c, *d);
  return true;
#else
  (void)leaf, (void)sub, (void)a, (void)b, (void)c, (void)d;
  return false;
#endif
}

// Only called when CPUID reports OSXSAVE, so the instruction exists and is
// enabled; written as an encoding-free mnemonic so no target flag is needed.
uint64_t read_xcr0() {
#if defined(__i386__) || defined(__x86_64__)
  uint32_t lo = 0, hi = 0;
  __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0u));
  return (static_cast<uint64_t>(hi) << 32) | lo;
#else
  return 0;
#endif
}

CpuidRegs read_regs() {
  CpuidRegs r;
  uint32_t a = 0, b = 0, c = 0, d = 0;
  if (!cpuid(0, 0, &a, &b, &c, &d)) return r;
  r.max_leaf = a;
  if (cpuid(1, 0, &a, &b, &c, &d)) {
    r.l1_ecx = c;
    r.l1_edx = d;
  }
  if (cpuid(7, 0, &a, &b, &c, &d)) {
    r.l7_ebx = b;
    r.l7_ecx = c;
    r.l7_edx = d;
  }
  if (cpuid(0x80000001u, 0, &a, &b, &c, &d)) r.e1_ecx = c;
  if (r.l1_ecx & leaf1::kEcxOsxsave) r.xcr0 = read_xcr0();
  return r;
}

void fill() {
  const FeatureSet f = features_from(read_regs());
  g_word2.store(f.word2, std::memory_order_relaxed);
  g_word1.store(f.word1, std::memory_order_release);
}

}  // namespace

FeatureSet features_from(const CpuidRegs& r) {
  using namespace leaf1;
  using namespace leaf7;
  FeatureSet f{bit::kFilled, bit::kFilled};
  const bool os_ymm = (r.l1_ecx & kEcxOsxsave) && (r.xcr0 & kXcr0Ymm) == kXcr0Ymm;
  const bool os_zmm = os_ymm && (r.xcr0 & kXcr0Zmm) == kXcr0Zmm;
  auto set = [](uint32_t* word, uint32_t b, bool on) {
    if (on) *word |= b;
  };
  set(&f.word1, bit::kSse2, all(r.l1_edx, kEdxFxsr | kEdxSse | kEdxSse2));
  set(&f.word1, bit::kSse3, all(r.l1_ecx, kEcxSse3));
  set(&f.word1, bit::kSsse3, all(r.l1_ecx, kEcxSsse3));
  set(&f.word1, bit::kSse41, all(r.l1_ecx, kEcxSse41));
  set(&f.word1, bit::kSse42, all(r.l1_ecx, kEcxSse42));
  set(&f.word1, bit::kPopcnt, all(r.l1_ecx, kEcxPopcnt));
  constexpr uint32_t kSse42LevelParts =
      bit::kSse3 | bit::kSsse3 | bit::kSse41 | bit::kSse42 | bit::kPopcnt;
  set(&f.word1, bit::kSse42Level, all(f.word1, kSse42LevelParts));
  set(&f.word1, bit::kAvx, os_ymm && all(r.l1_ecx, kEcxAvx));
  set(&f.word1, bit::kFma, os_ymm && all(r.l1_ecx, kEcxFma));
  set(&f.word1, bit::kF16cLzcntMovbe,
      os_ymm && all(r.l1_ecx, kEcxF16c | kEcxMovbe) && all(r.e1_ecx, kExtEcxLzcnt));
  if (r.max_leaf >= 7) {
    set(&f.word1, bit::kAvx2, os_ymm && all(r.l7_ebx, kEbxAvx2));
    set(&f.word1, bit::kBmi1, all(r.l7_ebx, kEbxBmi1));
    set(&f.word1, bit::kBmi2, all(r.l7_ebx, kEbxBmi2));
    set(&f.word1, bit::kAvx512F, os_zmm && all(r.l7_ebx, kEbxAvx512F));
    set(&f.word1, bit::kAvx512Cd, os_zmm && all(r.l7_ebx, kEbxAvx512Cd));
    set(&f.word2, bit::kAvx512Pf, os_zmm && all(r.l7_ebx, kEbxAvx512Pf));
    set(&f.word2, bit::kAvx512Er, os_zmm && all(r.l7_ebx, kEbxAvx512Er));
    set(&f.word2, bit::kPrefetchWt1, all(r.l7_ecx, kEcxPrefetchWt1));
    set(&f.word2, bit::kAvx512ManyCoreE1, os_zmm && all(r.l7_edx, kEdx4Vnniw | kEdx4Fmaps));
    set(&f.word2, bit::kAvx512DqBw, os_zmm && all(r.l7_ebx, kEbxAvx512Dq | kEbxAvx512Bw));
    set(&f.word2, bit::kAvx512Vl, os_zmm && all(r.l7_ebx, kEbxAvx512Vl));
    set(&f.word2, bit::kAvx512Vnni, os_zmm && all(r.l7_ecx, kEcxAvx512Vnni));
  }
  return f;
}

FeatureSet features() {
  if (g_word1.load(std::memory_order_acquire) == 0 ||
      g_word2.load(std::memory_order_relaxed) == 0) {
    fill();
  }
  return {g_word1.load(std::memory_order_acquire), g_word2.load(std::memory_order_relaxed)};
}

bool has(FeatureSet required) { return features().contains(required); }

int32_t vnni_present() {
  int32_t v = g_vnni.load(std::memory_order_relaxed);
  if (v < 0) {
    uint32_t a = 0, b = 0, c = 0, d = 0;
    v = cpuid(7, 0, &a, &b, &c, &d) ? static_cast<int32_t>(c & leaf7::kEcxAvx512Vnni) : 0;
    g_vnni.store(v, std::memory_order_relaxed);
  }
  return v;
}

const char* vendor() {
  struct Name {
    char text[13] = {};
  };
  static const Name name = [] {
    Name n;
    uint32_t a = 0, regs[3] = {0, 0, 0};  // EBX, EDX, ECX spell the name in that order
    if (cpuid(0, 0, &a, &regs[0], &regs[2], &regs[1])) std::memcpy(n.text, regs, 12);
    return n;
  }();
  return name.text;
}

}  // namespace zml::cpu

namespace zml::serv {

uint32_t feature_word() { return cpu::features().word1; }
uint32_t feature_word2() { return cpu::features().word2; }

}  // namespace zml::serv
