// SPDX-License-Identifier: BSD-3-Clause
// Feature words and classification, checked in this process against the
// compiler's own processor probe and against register sets of processors we
// do not have; and the value parsers of the code-path variables.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "service/cpu/code_path.h"
#include "service/cpu/features.h"
#include "service/service.h"
#include "tests/support/child.h"

namespace {

using namespace zml::cpu;

// Leaf 1 / leaf 7 register images of a few processor generations.
constexpr uint32_t kEdxSse2 = (1u << 24) | (1u << 25) | (1u << 26);
constexpr uint32_t kEcxSse3 = 1u << 0, kEcxSsse3 = 1u << 9, kEcxFma = 1u << 12;
constexpr uint32_t kEcxSse41 = 1u << 19, kEcxSse42 = 1u << 20, kEcxMovbe = 1u << 22;
constexpr uint32_t kEcxPopcnt = 1u << 23, kEcxOsxsave = 1u << 27, kEcxAvx = 1u << 28;
constexpr uint32_t kEcxF16c = 1u << 29;
constexpr uint32_t kSse42Ecx = kEcxSse3 | kEcxSsse3 | kEcxSse41 | kEcxSse42 | kEcxPopcnt;
constexpr uint32_t kAvx2Ecx = kSse42Ecx | kEcxFma | kEcxMovbe | kEcxOsxsave | kEcxAvx | kEcxF16c;
constexpr uint32_t kL7Avx2 = (1u << 3) | (1u << 5) | (1u << 8);  // BMI1 AVX2 BMI2
constexpr uint32_t kL7Avx512 =
    kL7Avx2 | (1u << 16) | (1u << 17) | (1u << 28) | (1u << 30) | (1u << 31);  // F DQ CD BW VL
constexpr uint32_t kL7ManyCore = kL7Avx2 | (1u << 16) | (1u << 26) | (1u << 27) | (1u << 28);
constexpr uint32_t kExtLzcnt = 1u << 5;
constexpr uint32_t kL7EcxVnni = 1u << 11, kL7EcxPrefetchWt1 = 1u << 0;

CpuidRegs regs(uint32_t ecx, uint32_t l7_ebx = 0, uint32_t l7_ecx = 0, uint64_t xcr0 = 0xe7) {
  CpuidRegs r;
  r.max_leaf = 0xd;
  r.l1_edx = kEdxSse2;
  r.l1_ecx = ecx;
  r.l7_ebx = l7_ebx;
  r.l7_ecx = l7_ecx;
  r.e1_ecx = kExtLzcnt;
  r.xcr0 = xcr0;
  return r;
}

int32_t classify_quiet(FeatureSet f, int32_t vnni) {
  int32_t failed = 0;
  PendingMessages messages;
  const int32_t t = classify(f, vnni, &failed, &messages);
  EXPECT_EQ(failed, t < 0 ? 1 : 0);
  return t;
}

TEST(CpuFeatureWords, ThisProcessorAgreesWithTheCompilersProbe) {
  __builtin_cpu_init();
  const FeatureSet f = features();
  auto w1 = [&](uint32_t b) { return (f.word1 & b) != 0; };
  auto w2 = [&](uint32_t b) { return (f.word2 & b) != 0; };
  const bool avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512cd") &&
                      __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512bw") &&
                      __builtin_cpu_supports("avx512vl");
  const struct {
    const char* name;
    bool ours, probe;
  } cases[] = {
      {"sse2", w1(bit::kSse2), __builtin_cpu_supports("sse2") != 0},
      {"sse3", w1(bit::kSse3), __builtin_cpu_supports("sse3") != 0},
      {"ssse3", w1(bit::kSsse3), __builtin_cpu_supports("ssse3") != 0},
      {"sse4.1", w1(bit::kSse41), __builtin_cpu_supports("sse4.1") != 0},
      {"sse4.2", w1(bit::kSse42), __builtin_cpu_supports("sse4.2") != 0},
      {"popcnt", w1(bit::kPopcnt), __builtin_cpu_supports("popcnt") != 0},
      {"avx", w1(bit::kAvx), __builtin_cpu_supports("avx") != 0},
      {"avx2", w1(bit::kAvx2), __builtin_cpu_supports("avx2") != 0},
      {"fma", w1(bit::kFma), __builtin_cpu_supports("fma") != 0},
      {"bmi", w1(bit::kBmi1), __builtin_cpu_supports("bmi") != 0},
      {"bmi2", w1(bit::kBmi2), __builtin_cpu_supports("bmi2") != 0},
      {"avx512f", w1(bit::kAvx512F), __builtin_cpu_supports("avx512f") != 0},
      {"avx512cd", w1(bit::kAvx512Cd), __builtin_cpu_supports("avx512cd") != 0},
      {"avx512dq+bw", w2(bit::kAvx512DqBw),
       __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512bw")},
      {"avx512vl", w2(bit::kAvx512Vl), __builtin_cpu_supports("avx512vl") != 0},
      {"avx512vnni", w2(bit::kAvx512Vnni), __builtin_cpu_supports("avx512vnni") != 0},
  };
  for (const auto& c : cases) EXPECT_EQ(c.ours, c.probe) << c.name;
  EXPECT_EQ(zml::serv::feature_word(), f.word1);
  EXPECT_EQ(zml::serv::feature_word2(), f.word2);
  // The VNNI answer keeps CPUID's bit value; the feature bit also needs OS state.
  const int32_t vnni = vnni_present();
  EXPECT_TRUE(vnni == 0 || vnni == 0x800) << vnni;
  if (w2(bit::kAvx512Vnni)) {
    EXPECT_EQ(vnni, 0x800);
  }
  const int32_t type = classify_quiet(f, vnni);
  if (avx512) {
    EXPECT_EQ(type, __builtin_cpu_supports("avx512vnni") ? 11 : 9);
  } else if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) {
    EXPECT_EQ(type, 7);
  } else {
    EXPECT_LE(type, 6);
  }
}

TEST(CpuFeatureWords, VectorBitsNeedTheOperatingSystemsState) {
  const uint32_t l7 = kL7Avx512;
  // No OSXSAVE at all: AVX and beyond are unusable, SSE4.2 is not affected.
  FeatureSet f = features_from(regs(kAvx2Ecx & ~kEcxOsxsave, l7, kL7EcxVnni, 0xe7));
  EXPECT_TRUE(f.contains(group(Level::kSse42)));
  EXPECT_FALSE(f.contains(mark(Level::kAvx)));
  EXPECT_FALSE(f.contains(mark(Level::kAvx2)));
  // The OS saves YMM but not the AVX-512 state.
  f = features_from(regs(kAvx2Ecx, l7, kL7EcxVnni, 0x7));
  EXPECT_TRUE(f.contains(group(Level::kAvx2)));
  EXPECT_FALSE(f.contains(mark(Level::kAvx512)));
  EXPECT_EQ(f.word2 & bit::kAvx512Vnni, 0u);
  // Opmask saved but not the upper ZMM registers.
  f = features_from(regs(kAvx2Ecx, l7, kL7EcxVnni, 0x27));
  EXPECT_FALSE(f.contains(mark(Level::kAvx512)));
  // Everything saved.
  f = features_from(regs(kAvx2Ecx, l7, kL7EcxVnni, 0xe7));
  EXPECT_TRUE(f.contains(group(Level::kAvx512)));
  EXPECT_NE(f.word2 & bit::kAvx512Vnni, 0u);
}

TEST(CpuFeatureWords, MasksNeedEveryCompanion) {
  // SSE4.2 level needs POPCNT; AVX2 needs FMA, BMI1/2 and F16C+LZCNT+MOVBE;
  // AVX-512 needs CD, DQ, BW and VL besides F.
  EXPECT_FALSE(features_from(regs(kSse42Ecx & ~kEcxPopcnt)).contains(mark(Level::kSse42)));
  EXPECT_FALSE(features_from(regs(kAvx2Ecx & ~kEcxFma, kL7Avx2)).contains(mark(Level::kAvx2)));
  EXPECT_FALSE(features_from(regs(kAvx2Ecx, kL7Avx2 & ~(1u << 8))).contains(mark(Level::kAvx2)));
  CpuidRegs no_lzcnt = regs(kAvx2Ecx, kL7Avx2);
  no_lzcnt.e1_ecx = 0;
  EXPECT_FALSE(features_from(no_lzcnt).contains(mark(Level::kAvx2)));
  EXPECT_TRUE(features_from(regs(kAvx2Ecx, kL7Avx2)).contains(mark(Level::kAvx2)));
  for (uint32_t missing : {1u << 17, 1u << 28, 1u << 30, 1u << 31}) {
    EXPECT_FALSE(features_from(regs(kAvx2Ecx, kL7Avx512 & ~missing)).contains(mark(Level::kAvx512)))
        << std::hex << missing;
  }
  // Leaf 7 reported beyond the maximum leaf is not believed.
  CpuidRegs old = regs(kAvx2Ecx, kL7Avx512);
  old.max_leaf = 6;
  EXPECT_FALSE(features_from(old).contains(mark(Level::kAvx2)));
  // The many-core AVX-512 line is apart from the core line.
  const FeatureSet many = features_from(regs(kAvx2Ecx, kL7ManyCore, kL7EcxPrefetchWt1));
  EXPECT_TRUE(many.contains(kManyCore));
  EXPECT_FALSE(many.contains(mark(Level::kAvx512)));
  EXPECT_FALSE(features_from(regs(kAvx2Ecx, kL7Avx512, kL7EcxVnni)).contains(kManyCore));
}

TEST(CpuClassification, EachGenerationGetsItsType) {
  EXPECT_EQ(classify_quiet(features_from(regs(kAvx2Ecx, kL7Avx512, kL7EcxVnni)), 0x800), 11);
  EXPECT_EQ(classify_quiet(features_from(regs(kAvx2Ecx, kL7Avx512)), 0), 9);
  // VNNI reported by CPUID without the AVX-512 group does not make type 11.
  EXPECT_EQ(classify_quiet(features_from(regs(kAvx2Ecx, kL7Avx2, kL7EcxVnni)), 0x800), 7);
  EXPECT_EQ(classify_quiet(features_from(regs(kAvx2Ecx, kL7ManyCore, kL7EcxPrefetchWt1)), 0), 7);
  EXPECT_EQ(classify_quiet(features_from(regs(kAvx2Ecx, kL7Avx2)), 0), 7);
  EXPECT_EQ(classify_quiet(features_from(regs(kSse42Ecx | kEcxOsxsave | kEcxAvx)), 0), 6);
  EXPECT_EQ(classify_quiet(features_from(regs(kSse42Ecx)), 0), 5);
  EXPECT_EQ(classify_quiet(features_from(regs(kEcxSse3 | kEcxSsse3 | kEcxSse41)), 0), 4);
  EXPECT_EQ(classify_quiet(features_from(regs(kEcxSse3)), 0), 3);
  EXPECT_EQ(classify_quiet(features_from(regs(0)), 0), 0);
}

TEST(CpuClassification, NoSse2FailsWithTheMinimumRequirementMessages) {
  // A zero word asks for detection again, so even a processor with nothing
  // must leave both words non-zero once filled.
  const FeatureSet bare = features_from(CpuidRegs{});
  EXPECT_NE(bare.word1, 0u);
  EXPECT_NE(bare.word2, 0u);
  int32_t failed = 0;
  PendingMessages messages;
  EXPECT_EQ(classify(bare, 0, &failed, &messages), -1);
  EXPECT_EQ(failed, 1);
  const std::string out = zml::test::capture_stdout([&] { messages.print(); });
  EXPECT_EQ(out,
            "Arvel ZML FATAL ERROR: This system does not meet the minimum requirements for use of "
            "the Arvel(R) Zenmath Library.\n"
            "The processor must support the Arvel(R) Streaming SIMD 2 Extensions (Arvel(R) SSE2) "
            "instructions.\n");
}

TEST(CpuParse, OverrideAndCapKeywordsAndDetectArguments) {
  // A two-character override is a two-digit number; any other length reads
  // only the first digit. Paths 10 and above 11 are refused.
  const std::pair<const char*, int32_t> overrides[] = {
      {"11", 11}, {"10", -1}, {"12", -1}, {"1a", -1}, {"3abc", 3}, {"7x9", 7}, {"0", 0},
      {"09", 9},  {"99", -1}, {"123", 1}, {"a1", -1}, {" 3", -1},  {"-1", -1}, {"", -1}};
  for (const auto& [text, want] : overrides) {
    EXPECT_EQ(parse_code_path_override(text, static_cast<int32_t>(std::strlen(text))), want)
        << '"' << text << '"';
  }
  // Cap keywords match exactly (their codes are checked in cpu_environment_test).
  for (const char* bad : {"avx2", "AVX2 ", "AVX5", "SSE4_1", "", "AVX512_E"}) {
    EXPECT_EQ(instruction_cap_code(bad), -1) << '"' << bad << '"';
  }
  // Only 1 (read) and -1 (the word) are answered.
  for (int32_t what : {0, 2, -2}) EXPECT_EQ(zml_serv_cpu_detect(what), -2) << what;
}

}  // namespace
