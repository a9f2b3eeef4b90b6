// SPDX-License-Identifier: BSD-3-Clause
// Feature words and classification, checked in this process against the
// compiler's own processor probe and against register sets of processors we
// do not have; and the value parsers of the code-path variables. How the
// environment steers the code path: the override, the forced processor type,
// the instruction cap and the reproducibility branch. Each is read once per
// process, so every case runs in a fresh child; and racing first calls, which
// must agree and detect once.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "service/cpu/code_path.h"
#include "service/cpu/features.h"
#include "service/dispatch/code_path_table.h"
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

// The processor has the AVX-512 group this library asks for (F CD DQ BW VL).
bool avx512_machine() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512cd") &&
         __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512bw") &&
         __builtin_cpu_supports("avx512vl");
}

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
  if (avx512_machine()) {
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

using zml::dispatch::Isa;
using zml::test::emit;

TEST(CpuEnvChild, DISABLED_Report) {
  // The query first, so the count shows whether it ran detection.
  emit("code_path", zml_serv_get_code_path());
  emit("runs", zml::cpu::detection_runs());
  emit("type", zml::serv::processor_type());
  emit("cap", zml::cpu::detection_state().instruction_cap);
  emit("branch", zml_serv_cpu_detect(1));
  emit("word", zml_serv_cpu_detect(-1));
  std::string flags;
  for (int i = 0; i < zml::serv::kIsaCount; ++i) {
    flags += zml::serv::isa_allowed(static_cast<zml::serv::IsaFlag>(i)) ? '1' : '0';
  }
  emit("allowed", flags);
  std::string usable;
  for (Isa isa : {Isa::kRef, Isa::kSse2, Isa::kSse42, Isa::kAvx, Isa::kAvx2, Isa::kAvx512}) {
    usable += zml::dispatch::isa_usable(isa) ? '1' : '0';
  }
  emit("usable", usable);
  emit("own", zml_serv_own_processor() ? 1 : 0);
}

// One child per row, all four variables unset but those the row sets.
// Expectations are "key=value" words: `expect` on any machine, `on_vnni` only
// on the machine above. `message` is the one message the child may print.
struct Row {
  std::map<std::string, std::string> env;
  const char* expect = "";
  const char* on_vnni = "";
  const char* message = nullptr;
};

void check(const std::vector<Row>& rows) {
  // The machine the `on_vnni` expectations were written for: AVX-512 with
  // VNNI, whose vendor string is not ours.
  const bool vnni = avx512_machine() && __builtin_cpu_supports("avx512vnni");
  for (const Row& row : rows) {
    std::map<std::string, std::string> env = {{"ZML_CODE_PATH_OVERRIDE", ""},
                                              {"ZML_DEBUG_CPU_TYPE", ""},
                                              {"ZML_ENABLE_INSTRUCTIONS", ""},
                                              {"ZML_CBWR", ""}};
    std::string what;
    for (const auto& [k, v] : row.env) {
      env[k] = v;
      what += k + "=\"" + v + "\" ";
    }
    const zml::test::ChildResult r = zml::test::run_child("CpuEnvChild.DISABLED_Report", env);
    ASSERT_EQ(r.exit_code, 0) << what << r.out;
    EXPECT_EQ(r.mismatches(std::string(row.expect) + " " + (vnni ? row.on_vnni : "")), "") << what;
    if (row.message) {
      EXPECT_NE(r.out.find(std::string("Arvel ZML ") + row.message + "\n"), std::string::npos)
          << what << r.out;
    } else {
      EXPECT_EQ(r.out.find("Arvel ZML"), std::string::npos) << what << r.out;
    }
  }
}

TEST(CpuEnvironment, CodePathOverride) {
  // Nothing set: this processor is detected. An accepted override wins
  // without detection, even a path no type maps to, and the type is still
  // detected when asked for; a rejected one detects.
  check({
      {{},
       "runs=1 branch=1 word=0 cap=-1",
       "own=0 type=9 code_path=11 allowed=1111100 usable=111111"},
      {{{"ZML_CODE_PATH_OVERRIDE", "11"}}, "code_path=11 runs=0", "type=9"},
      {{{"ZML_CODE_PATH_OVERRIDE", "6"}}, "code_path=6 runs=0", "type=9"},
      {{{"ZML_CODE_PATH_OVERRIDE", "10"}}, "runs=1", "type=9 code_path=11"},
      // A fixed reproducibility branch does not displace the override.
      {{{"ZML_CBWR", "AVX2"}, {"ZML_CODE_PATH_OVERRIDE", "5"}}, "code_path=5 branch=10"},
  });
}

TEST(CpuEnvironment, ForcedProcessorType) {
  // A forced type replaces detection (many-core types fold), is read in any
  // base, makes the processor count as ours and skips the instruction cap.
  check({
      {{{"ZML_DEBUG_CPU_TYPE", "8"}}, "type=7 code_path=9 own=1", "allowed=1110000"},
      {{{"ZML_DEBUG_CPU_TYPE", "010"}}, "type=7 code_path=9"},
      {{{"ZML_DEBUG_CPU_TYPE", "0x6"}}, "type=6 code_path=8", "allowed=1100000 usable=111100"},
      {{{"ZML_DEBUG_CPU_TYPE", "4abc"}}, "type=4 code_path=5 own=1"},
      {{{"ZML_DEBUG_CPU_TYPE", "2"}}, "type=2 code_path=3", "allowed=0000000"},
      {{{"ZML_DEBUG_CPU_TYPE", "abc"}}, "", "type=9 own=0"},
      {{{"ZML_DEBUG_CPU_TYPE", "9"}, {"ZML_ENABLE_INSTRUCTIONS", "AVX512_E1"}}, "type=9 cap=-1"},
      // Unsupported types are reported and run the generic path.
      {{{"ZML_DEBUG_CPU_TYPE", "12"}},
       "type=0 code_path=0 allowed=0000000",
       "",
       "ERROR: CPU 12 is not supported."},
      {{{"ZML_DEBUG_CPU_TYPE", "-1"}}, "type=0 code_path=0", "", "ERROR: CPU -1 is not supported."},
      {{{"ZML_DEBUG_CPU_TYPE", "0x10"}}, "type=0", "", "ERROR: CPU 16 is not supported."},
  });
}

TEST(CpuEnvironment, InstructionCap) {
  // Caps below the type only clear flags. The E1 keywords (codes 5 and 6)
  // also lower the type; the many-core ones (3 and 5) are kept but not
  // honoured as caps, so the flags follow the type.
  check({
      {{{"ZML_ENABLE_INSTRUCTIONS", "AVX2"}},
       "",
       "cap=2 type=9 code_path=11 allowed=1110000 usable=111110"},
      {{{"ZML_ENABLE_INSTRUCTIONS", "AVX"}}, "", "cap=1 allowed=1100000 usable=111100"},
      {{{"ZML_ENABLE_INSTRUCTIONS", "SSE4_2"}}, "", "cap=0 allowed=1000000 usable=111000"},
      {{{"ZML_ENABLE_INSTRUCTIONS", "AVX512"}}, "", "cap=4 allowed=1111000 usable=111111"},
      {{{"ZML_ENABLE_INSTRUCTIONS", "AVX512_E1"}}, "", "cap=6 type=6 code_path=8 allowed=1111100"},
      {{{"ZML_ENABLE_INSTRUCTIONS", "AVX512_MIC_E1"}},
       "",
       "cap=5 type=5 code_path=7 allowed=1000000"},
      {{{"ZML_ENABLE_INSTRUCTIONS", "AVX512_MIC"}}, "", "cap=3 type=9 allowed=1111100"},
      {{{"ZML_ENABLE_INSTRUCTIONS", "avx2"}}, "cap=-1", "type=9 allowed=1111100"},
      // A cap above the type leaves the type (the SSE4_2 branch gives type 5).
      {{{"ZML_CBWR", "SSE4_2"}, {"ZML_ENABLE_INSTRUCTIONS", "AVX512_E1"}},
       "",
       "type=5 code_path=7 allowed=1111100"},
  });
}

TEST(CpuEnvironment, ReproducibilityBranch) {
  // A keyword, alone or after one "BRANCH=", fixes the branch and the type;
  // anything else, and the other AVX-512 line's branches, mean auto.
  const char* const auto_branch = "branch=2 word=2 type=9 code_path=11";
  check({
      {{{"ZML_CBWR", "AUTO"}}, "", auto_branch},
      {{{"ZML_CBWR", "COMPATIBLE"}}, "", "branch=3 type=1 code_path=2 allowed=0000000"},
      {{{"ZML_CBWR", "SSE3"}}, "", "branch=4 type=2 code_path=3"},
      {{{"ZML_CBWR", "SSE4_1"}}, "", "branch=7 type=4 code_path=5"},
      {{{"ZML_CBWR", "SSE4_2"}}, "", "branch=8 type=5 code_path=7 allowed=1000000"},
      {{{"ZML_CBWR", "BRANCH=AVX2"}}, "", "branch=10 word=10 type=7 code_path=9"},
      {{{"ZML_CBWR", "BRANCH=AVX512_E1"}}, "", "branch=14 type=9 code_path=11"},
      {{{"ZML_CBWR", "branch=AVX2"}}, "branch=2"},
      {{{"ZML_CBWR", "BRANCH=BRANCH=AVX"}}, "branch=2"},
      {{{"ZML_CBWR", "BRANCH="}}, "branch=2"},
      {{{"ZML_CBWR", "AVX512_MIC"}}, "", auto_branch},
      {{{"ZML_CBWR", "BRANCH=AVX512_MIC_E1"}}, "", auto_branch},
  });
}

// Many threads asking for the code path at once, in a fresh process: all see
// one value and detection runs once.
constexpr int kThreads = 32;

// Each thread waits at a start line, then asks one of the questions that
// trigger detection, so first calls really overlap.
TEST(CpuDetectOnceChild, DISABLED_RacingThreads) {
  std::atomic<int> ready{0};
  std::atomic<bool> go{false};
  std::vector<int32_t> code_paths(kThreads), types(kThreads), usable(kThreads);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      ready.fetch_add(1);
      while (!go.load()) std::this_thread::yield();
      if (i % 4 == 2) usable[i] = zml::dispatch::isa_usable(zml::dispatch::Isa::kAvx2);
      if (i % 4 == 3) usable[i] = zml_serv_own_processor();
      if (i % 4 == 1) types[i] = zml::serv::processor_type();
      code_paths[i] = zml_serv_get_code_path();
      types[i] = zml::serv::processor_type();
    });
  }
  while (ready.load() < kThreads) std::this_thread::yield();
  go.store(true);
  for (std::thread& t : threads) t.join();
  zml::test::emit(
      "distinct_code_paths",
      static_cast<long long>(std::set<int32_t>(code_paths.begin(), code_paths.end()).size()));
  zml::test::emit("distinct_types",
                  static_cast<long long>(std::set<int32_t>(types.begin(), types.end()).size()));
  zml::test::emit("code_path", code_paths[0]);
  zml::test::emit("type", types[0]);
  zml::test::emit("runs", zml::cpu::detection_runs());
}

TEST(CpuDetectOnce, RacingFirstCallsAgreeAndDetectOnce) {
  // Three rounds of detection, then one with a forced type (type 6, path 8).
  for (const char* forced : {"", "", "", "6"}) {
    const zml::test::ChildResult r = zml::test::run_child(
        "CpuDetectOnceChild.DISABLED_RacingThreads", {{"ZML_CODE_PATH_OVERRIDE", ""},
                                                      {"ZML_DEBUG_CPU_TYPE", forced},
                                                      {"ZML_ENABLE_INSTRUCTIONS", ""},
                                                      {"ZML_CBWR", ""}});
    ASSERT_EQ(r.exit_code, 0) << r.out;
    EXPECT_EQ(r.value("distinct_code_paths"), "1") << r.out;
    EXPECT_EQ(r.value("distinct_types"), "1") << r.out;
    EXPECT_EQ(r.value("runs"), "1") << r.out;
    const int type = std::stoi(r.value("type"));
    EXPECT_EQ(std::stoi(r.value("code_path")), zml::cpu::code_path_of_type(type)) << r.out;
    if (*forced) {
      EXPECT_EQ(r.value("code_path"), "8") << r.out;
    }
  }
}

}  // namespace
