// SPDX-License-Identifier: BSD-3-Clause
// The library's summary of the processor's feature bits: the bit layout of the
// two feature words, the named feature groups built on each other, and the
// raw queries (vendor string, VNNI bit) that detection needs besides.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace zml::cpu {

// A set of feature bits, one mask per feature word.
struct FeatureSet {
  uint32_t word1 = 0;
  uint32_t word2 = 0;

  constexpr FeatureSet operator|(FeatureSet o) const { return {word1 | o.word1, word2 | o.word2}; }
  constexpr bool contains(FeatureSet o) const {
    return (word1 & o.word1) == o.word1 && (word2 & o.word2) == o.word2;
  }
  constexpr bool operator==(const FeatureSet&) const = default;
};

// Bits of the feature words. Every bit that names a vector extension is set
// only when the operating system also saves that extension's registers
// (XGETBV), so a set bit means "usable", not merely "present".
//
//  word 1                                       word 2
//  bit  0  SSE2 (with SSE, FXSR)                bit 0  AVX-512 PF (many-core line)
//  bit  1  SSE3                                 bit 1  AVX-512 ER (many-core line)
//  bit  2  SSSE3                                bit 2  PREFETCHWT1 (many-core line)
//  bit  3  SSE4.1                               bit 3  AVX-512 4FMAPS + 4VNNIW (many-core E1)
//  bit  4  SSE4.2                               bit 5  AVX-512 DQ + BW, OS ZMM state
//  bit  5  POPCNT                               bit 6  AVX-512 VL, OS ZMM state
//  bit 10  SSE4.2 level: bits 1-5 all present   bit 7  AVX-512 VNNI, OS ZMM state
//  bit 13  AVX2, OS YMM state
//  bit 16  AVX, OS YMM state
//  bit 18  FMA, OS YMM state
//  bit 19  BMI1
//  bit 20  BMI2
//  bit 23  F16C + LZCNT + MOVBE, OS YMM state
//  bit 24  AVX-512 CD, OS ZMM state
//  bit 27  AVX-512 F, OS ZMM and opmask state
//  bit 31  always set once filled               bit 31  always set once filled
//
// Bit 31 keeps a filled word from reading 0, since a zero word is what asks
// for detection (word 2 would otherwise stay 0 on most processors).
//
// The masks the rest of the library tests follow from it: 0x401 SSE4.2,
// 0x10001 AVX, 0x9c2001 AVX2 with its companions, 0x9000001 + 0x60 AVX-512
// F/CD/DQ/BW/VL, 0x8000001 + 0x7 the many-core AVX-512 line.
namespace bit {
inline constexpr uint32_t kSse2 = 1u << 0;
inline constexpr uint32_t kSse3 = 1u << 1;
inline constexpr uint32_t kSsse3 = 1u << 2;
inline constexpr uint32_t kSse41 = 1u << 3;
inline constexpr uint32_t kSse42 = 1u << 4;
inline constexpr uint32_t kPopcnt = 1u << 5;
inline constexpr uint32_t kSse42Level = 1u << 10;
inline constexpr uint32_t kAvx2 = 1u << 13;
inline constexpr uint32_t kAvx = 1u << 16;
inline constexpr uint32_t kFma = 1u << 18;
inline constexpr uint32_t kBmi1 = 1u << 19;
inline constexpr uint32_t kBmi2 = 1u << 20;
inline constexpr uint32_t kF16cLzcntMovbe = 1u << 23;
inline constexpr uint32_t kAvx512Cd = 1u << 24;
inline constexpr uint32_t kAvx512F = 1u << 27;
inline constexpr uint32_t kFilled = 1u << 31;  // both words
// word 2
inline constexpr uint32_t kAvx512Pf = 1u << 0;
inline constexpr uint32_t kAvx512Er = 1u << 1;
inline constexpr uint32_t kPrefetchWt1 = 1u << 2;
inline constexpr uint32_t kAvx512ManyCoreE1 = 1u << 3;
inline constexpr uint32_t kAvx512DqBw = 1u << 5;
inline constexpr uint32_t kAvx512Vl = 1u << 6;
inline constexpr uint32_t kAvx512Vnni = 1u << 7;
}  // namespace bit

// Instruction-set levels, each built on the one below.
enum class Level : int32_t { kSse2 = 0, kSse42, kAvx, kAvx2, kAvx512, kCount };

// What each level adds over the one below. A level's group is its own bits
// and every lower level's; its mark (what a cap or a lowering tests) is the
// SSE2 baseline plus its own bits, since on real processors a level's own
// bits never come without the lower ones.
struct LevelRow {
  Level level;
  const char* name;
  FeatureSet own;
};

inline constexpr std::array<LevelRow, static_cast<std::size_t>(Level::kCount)> kLevels = {{
    {Level::kSse2, "SSE2", {bit::kSse2, 0}},
    {Level::kSse42, "SSE4.2", {bit::kSse42Level, 0}},
    {Level::kAvx, "AVX", {bit::kAvx, 0}},
    {Level::kAvx2,
     "AVX2",
     {bit::kAvx2 | bit::kFma | bit::kBmi1 | bit::kBmi2 | bit::kF16cLzcntMovbe, 0}},
    {Level::kAvx512,
     "AVX-512",
     {bit::kAvx512F | bit::kAvx512Cd, bit::kAvx512DqBw | bit::kAvx512Vl}},
}};

constexpr FeatureSet group(Level level) {
  FeatureSet s;
  for (const LevelRow& row : kLevels) {
    if (row.level <= level) s = s | row.own;
  }
  return s;
}

constexpr FeatureSet mark(Level level) {
  return kLevels[0].own | kLevels[static_cast<std::size_t>(level)].own;
}

static_assert(mark(Level::kSse42) == FeatureSet{0x401, 0});
static_assert(mark(Level::kAvx) == FeatureSet{0x10001, 0});
static_assert(mark(Level::kAvx2) == FeatureSet{0x9c2001, 0});
static_assert(mark(Level::kAvx512) == FeatureSet{0x9000001, 0x60});

// The SSE2 baseline with some word-1 bits, for sets below the SSE4.2 level.
constexpr FeatureSet sse2_with(uint32_t word1_bits) { return {bit::kSse2 | word1_bits, 0}; }

// The many-core AVX-512 line: foundation plus its prefetch and exponential
// extensions. It is not part of the chain above (it lacks DQ, BW and VL).
inline constexpr FeatureSet kManyCore = {bit::kSse2 | bit::kAvx512F,
                                         bit::kAvx512Pf | bit::kAvx512Er | bit::kPrefetchWt1};
static_assert(kManyCore == FeatureSet{0x8000001, 0x7});
inline constexpr FeatureSet kManyCoreE1 = kManyCore | FeatureSet{0, bit::kAvx512ManyCoreE1};

// Both feature words of this processor (filled on first need).
FeatureSet features();
bool has(FeatureSet required);

// CPUID leaf 7 ECX bit 11 as it stands (0x800) or 0; looked at once.
int32_t vnni_present();

// The 12-character vendor string of leaf 0 (empty when CPUID is absent).
const char* vendor();

// Computes the feature words from raw CPUID registers and XCR0; split out so
// the layout can be checked without the processor at hand.
struct CpuidRegs {
  uint32_t max_leaf = 0;
  uint32_t l1_ecx = 0, l1_edx = 0;              // leaf 1
  uint32_t l7_ebx = 0, l7_ecx = 0, l7_edx = 0;  // leaf 7, subleaf 0
  uint32_t e1_ecx = 0;                          // leaf 0x80000001
  uint64_t xcr0 = 0;                            // valid only with OSXSAVE
};
FeatureSet features_from(const CpuidRegs& r);

}  // namespace zml::cpu
