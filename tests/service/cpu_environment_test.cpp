// SPDX-License-Identifier: BSD-3-Clause
// How the environment steers the code path: the override, the forced
// processor type, the instruction cap and the reproducibility branch. Each is
// read once per process, so every case runs in a fresh child.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "service/cpu/code_path.h"
#include "service/dispatch/code_path_table.h"
#include "service/service.h"
#include "tests/support/child.h"

namespace {

using zml::dispatch::Isa;
using zml::test::emit;

// The variables this part of the library reads; each child starts with all
// of them unset so the parent's environment cannot leak in.
const char* const kVariables[] = {"ZML_CODE_PATH_OVERRIDE", "ZML_DEBUG_CPU_TYPE",
                                  "ZML_ENABLE_INSTRUCTIONS", "ZML_CBWR"};

struct Report {
  int code_path = -100;
  int runs_after_query = -100;
  int type = -100;
  int detected_code_path = -100;
  int branch = -100;
  int word = -100;
  int cap = -100;
  std::string isa_allowed;  // seven flags, "1" or "0" each
  std::string isa_usable;   // kRef .. kAvx512
  int own = -100;
  std::string out;  // everything the child printed, messages included
};

Report run(const std::map<std::string, std::string>& env) {
  std::map<std::string, std::string> full;
  for (const char* v : kVariables) full[v] = "";
  for (const auto& [k, v] : env) full[k] = v;
  const zml::test::ChildResult r = zml::test::run_child("CpuEnvChild.DISABLED_Report", full);
  EXPECT_EQ(r.exit_code, 0) << r.out;
  EXPECT_TRUE(r.has("code_path")) << r.out;
  Report rep;
  auto num = [&](const char* key) { return r.has(key) ? std::stoi(r.value(key)) : -100; };
  rep.code_path = num("code_path");
  rep.runs_after_query = num("runs_after_query");
  rep.type = num("type");
  rep.detected_code_path = num("detected_code_path");
  rep.branch = num("branch");
  rep.word = num("word");
  rep.cap = num("cap");
  rep.isa_allowed = r.value("isa_allowed");
  rep.isa_usable = r.value("isa_usable");
  rep.own = num("own");
  rep.out = r.out;
  return rep;
}

// The machine these expectations were written for: AVX-512 with VNNI, whose
// vendor string is not ours. Elsewhere the machine-specific cases skip.
bool avx512_vnni_machine() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512cd") &&
         __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512bw") &&
         __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vnni");
}

#define REQUIRE_AVX512_VNNI() \
  if (!avx512_vnni_machine()) GTEST_SKIP() << "needs an AVX-512 VNNI processor"

TEST(CpuEnvChild, DISABLED_Report) {
  // The query first, so the count shows whether it ran detection.
  emit("code_path", zml_serv_get_code_path());
  emit("runs_after_query", zml::cpu::detection_runs());
  emit("type", zml::serv::processor_type());
  const zml::cpu::DetectionState st = zml::cpu::detection_state();
  emit("detected_code_path", st.code_path);
  emit("cap", st.instruction_cap);
  emit("branch", zml_serv_cpu_detect(1));
  emit("word", zml_serv_cpu_detect(-1));
  std::string flags;
  for (int i = 0; i < zml::serv::kIsaCount; ++i) {
    flags += zml::serv::isa_allowed(static_cast<zml::serv::IsaFlag>(i)) ? '1' : '0';
  }
  emit("isa_allowed", flags);
  std::string usable;
  for (Isa isa : {Isa::kRef, Isa::kSse2, Isa::kSse42, Isa::kAvx, Isa::kAvx2, Isa::kAvx512}) {
    usable += zml::dispatch::isa_usable(isa) ? '1' : '0';
  }
  emit("isa_usable", usable);
  emit("own", zml_serv_own_processor() ? 1 : 0);
}

// ---- Nothing set: the processor decides. -------------------------------------

TEST(CpuDetection, UnsetEnvironmentDetectsThisProcessor) {
  REQUIRE_AVX512_VNNI();
  const Report r = run({});
  EXPECT_EQ(r.type, 9);  // 11 folded onto 9
  EXPECT_EQ(r.code_path, 11);
  EXPECT_EQ(r.detected_code_path, 11);
  EXPECT_EQ(r.runs_after_query, 1);
  EXPECT_EQ(r.branch, 1);
  EXPECT_EQ(r.word, 0);
  EXPECT_EQ(r.cap, -1);
  EXPECT_EQ(r.isa_allowed, "1111100");
  EXPECT_EQ(r.isa_usable, "111111");
  EXPECT_EQ(r.own, 0);
  EXPECT_EQ(r.out.find("Arvel ZML"), std::string::npos) << r.out;
}

// ---- The code-path override. -------------------------------------------------

TEST(CpuOverride, AcceptedValuesWinWithoutDetection) {
  struct Case {
    const char* value;
    int code_path;
  };
  for (const Case& c : {Case{"11", 11}, Case{"3", 3}, Case{"3abc", 3}, Case{"7x9", 7}, Case{"0", 0},
                        Case{"6", 6}, Case{"1", 1}}) {
    const Report r = run({{"ZML_CODE_PATH_OVERRIDE", c.value}});
    EXPECT_EQ(r.code_path, c.code_path) << c.value;
    EXPECT_EQ(r.runs_after_query, 0) << c.value;
    // The processor type and its flags are still detected when asked for.
    EXPECT_GE(r.type, 0) << c.value;
    EXPECT_EQ(r.detected_code_path, zml::cpu::code_path_of_type(r.type)) << c.value;
  }
}

TEST(CpuOverride, RejectedValuesFallThroughToDetection) {
  for (const char* value : {"10", "12", "1a", "", "x", "-1"}) {
    const Report r = run({{"ZML_CODE_PATH_OVERRIDE", value}});
    EXPECT_EQ(r.runs_after_query, 1) << '"' << value << '"';
    EXPECT_EQ(r.code_path, r.detected_code_path) << '"' << value << '"';
    EXPECT_EQ(r.out.find("Arvel ZML"), std::string::npos) << r.out;
  }
}

// ---- The forced processor type. ----------------------------------------------

TEST(CpuForcedType, ReplacesDetectionAndFoldsManyCoreTypes) {
  struct Case {
    const char* value;
    int type;
    int code_path;
  };
  const Case cases[] = {{"7", 7, 9},   {"5", 5, 7},   {"6", 6, 8},   {"8", 7, 9}, {"10", 7, 9},
                        {"11", 9, 11}, {"9", 9, 11},  {"1", 1, 2},   {"0", 0, 0}, {"4", 4, 5},
                        {"0x7", 7, 9}, {"010", 7, 9}, {"6abc", 6, 8}};
  for (const Case& c : cases) {
    const Report r = run({{"ZML_DEBUG_CPU_TYPE", c.value}});
    EXPECT_EQ(r.type, c.type) << c.value;
    EXPECT_EQ(r.code_path, c.code_path) << c.value;
    // A forced type also makes the processor count as ours.
    EXPECT_EQ(r.own, 1) << c.value;
    EXPECT_EQ(r.out.find("Arvel ZML"), std::string::npos) << r.out;
  }
}

TEST(CpuForcedType, FlagsFollowTheForcedType) {
  REQUIRE_AVX512_VNNI();
  EXPECT_EQ(run({{"ZML_DEBUG_CPU_TYPE", "7"}}).isa_allowed, "1110000");
  EXPECT_EQ(run({{"ZML_DEBUG_CPU_TYPE", "2"}}).isa_allowed, "0000000");
  const Report r = run({{"ZML_DEBUG_CPU_TYPE", "6"}});
  EXPECT_EQ(r.isa_allowed, "1100000");
  EXPECT_EQ(r.isa_usable, "111100");
}

TEST(CpuForcedType, UnsupportedTypesAreReportedAndRunGeneric) {
  for (const char* value : {"12", "-1", "0x10"}) {
    const Report r = run({{"ZML_DEBUG_CPU_TYPE", value}});
    const std::string number = std::to_string(std::stoi(value, nullptr, 0));
    EXPECT_NE(r.out.find("Arvel ZML ERROR: CPU " + number + " is not supported.\n"),
              std::string::npos)
        << r.out;
    EXPECT_EQ(r.type, 0) << value;
    EXPECT_EQ(r.code_path, 0) << value;
    EXPECT_EQ(r.isa_allowed, "0000000") << value;
    EXPECT_EQ(r.isa_usable.substr(0, 2), "11") << value;
  }
}

TEST(CpuForcedType, NonNumbersAreNotForced) {
  REQUIRE_AVX512_VNNI();
  for (const char* value : {"abc", "", " "}) {
    const Report r = run({{"ZML_DEBUG_CPU_TYPE", value}});
    EXPECT_EQ(r.type, 9) << '"' << value << '"';
    EXPECT_EQ(r.own, 0) << '"' << value << '"';
  }
}

TEST(CpuForcedType, SkipsTheInstructionCap) {
  const Report r = run({{"ZML_DEBUG_CPU_TYPE", "9"}, {"ZML_ENABLE_INSTRUCTIONS", "AVX512_E1"}});
  EXPECT_EQ(r.type, 9);
  EXPECT_EQ(r.cap, -1);
}

// ---- The instruction cap. ----------------------------------------------------

TEST(CpuInstructionCap, CapsBelowTheTypeOnlyClearFlags) {
  REQUIRE_AVX512_VNNI();
  struct Case {
    const char* value;
    int cap;
    const char* flags;
    const char* usable;
  };
  const Case cases[] = {{"AVX2", 2, "1110000", "111110"},
                        {"AVX", 1, "1100000", "111100"},
                        {"SSE4_2", 0, "1000000", "111000"},
                        {"AVX512", 4, "1111000", "111111"}};
  for (const Case& c : cases) {
    const Report r = run({{"ZML_ENABLE_INSTRUCTIONS", c.value}});
    EXPECT_EQ(r.type, 9) << c.value;
    EXPECT_EQ(r.code_path, 11) << c.value;
    EXPECT_EQ(r.cap, c.cap) << c.value;
    EXPECT_EQ(r.isa_allowed, c.flags) << c.value;
    EXPECT_EQ(r.isa_usable, c.usable) << c.value;
  }
}

TEST(CpuInstructionCap, OnlyCodesFiveAndSixLowerTheType) {
  REQUIRE_AVX512_VNNI();
  // AVX512_E1 is code 6: honoured (VNNI present), all five flags, and read as
  // type 6 it lowers type 9 to AVX.
  Report r = run({{"ZML_ENABLE_INSTRUCTIONS", "AVX512_E1"}});
  EXPECT_EQ(r.cap, 6);
  EXPECT_EQ(r.type, 6);
  EXPECT_EQ(r.code_path, 8);
  EXPECT_EQ(r.isa_allowed, "1111100");
  // AVX512_MIC_E1 is code 5: refused as a cap, but the code is kept and, read
  // as type 5, lowers to SSE4.2; without an honoured cap the flags follow it.
  r = run({{"ZML_ENABLE_INSTRUCTIONS", "AVX512_MIC_E1"}});
  EXPECT_EQ(r.cap, 5);
  EXPECT_EQ(r.type, 5);
  EXPECT_EQ(r.code_path, 7);
  EXPECT_EQ(r.isa_allowed, "1000000");
}

TEST(CpuInstructionCap, RefusedOrUnknownValuesChangeNothing) {
  REQUIRE_AVX512_VNNI();
  struct Case {
    const char* value;
    int cap;
  };
  for (const Case& c :
       {Case{"AVX512_MIC", 3}, Case{"avx2", -1}, Case{"AVX2 ", -1}, Case{"SSE4_1", -1}}) {
    const Report r = run({{"ZML_ENABLE_INSTRUCTIONS", c.value}});
    EXPECT_EQ(r.cap, c.cap) << c.value;
    EXPECT_EQ(r.type, 9) << c.value;
    EXPECT_EQ(r.code_path, 11) << c.value;
    EXPECT_EQ(r.isa_allowed, "1111100") << c.value;
    EXPECT_EQ(r.out.find("Arvel ZML"), std::string::npos) << r.out;
  }
}

TEST(CpuInstructionCap, CapAboveTheTypeLeavesTheType) {
  // The SSE4_2 branch gives type 5; cap code 6 lies above it.
  REQUIRE_AVX512_VNNI();
  const Report r = run({{"ZML_CBWR", "SSE4_2"}, {"ZML_ENABLE_INSTRUCTIONS", "AVX512_E1"}});
  EXPECT_EQ(r.type, 5);
  EXPECT_EQ(r.code_path, 7);
  EXPECT_EQ(r.isa_allowed, "1111100");
}

// ---- The reproducibility branch. ---------------------------------------------

TEST(CpuReproducibility, KeywordsFixTheCodePath) {
  REQUIRE_AVX512_VNNI();
  struct Case {
    const char* value;
    int branch;
    int type;
    int code_path;
    const char* flags;
  };
  const Case cases[] = {
      {"AUTO", 2, 9, 11, "1111100"},
      {"COMPATIBLE", 3, 1, 2, "0000000"},
      {"SSE2", 4, 2, 3, "0000000"},
      {"SSE3", 4, 2, 3, "0000000"},
      {"SSSE3", 6, 4, 5, "0000000"},
      {"SSE4_1", 7, 4, 5, "0000000"},
      {"SSE4_2", 8, 5, 7, "1000000"},
      {"AVX", 9, 6, 8, "1100000"},
      {"AVX2", 10, 7, 9, "1110000"},
      {"BRANCH=AVX2", 10, 7, 9, "1110000"},
      {"AVX512", 12, 9, 11, "1111100"},
      {"BRANCH=AVX512_E1", 14, 9, 11, "1111100"},
      {"bogus", 2, 9, 11, "1111100"},
      {"avx2", 2, 9, 11, "1111100"},
      {"branch=AVX2", 2, 9, 11, "1111100"},
      {"BRANCH=", 2, 9, 11, "1111100"},
      {"BRANCH=BRANCH=AVX", 2, 9, 11, "1111100"},
  };
  for (const Case& c : cases) {
    const Report r = run({{"ZML_CBWR", c.value}});
    EXPECT_EQ(r.branch, c.branch) << c.value;
    EXPECT_EQ(r.word, c.branch) << c.value;
    EXPECT_EQ(r.type, c.type) << c.value;
    EXPECT_EQ(r.code_path, c.code_path) << c.value;
    EXPECT_EQ(r.isa_allowed, c.flags) << c.value;
  }
}

TEST(CpuReproducibility, OtherLinesBranchesAreRefused) {
  REQUIRE_AVX512_VNNI();
  for (const char* value : {"AVX512_MIC", "AVX512_MIC_E1", "BRANCH=AVX512_MIC"}) {
    const Report r = run({{"ZML_CBWR", value}});
    EXPECT_EQ(r.branch, 2) << value;
    EXPECT_EQ(r.type, 9) << value;
    EXPECT_EQ(r.code_path, 11) << value;
  }
}

TEST(CpuReproducibility, FixedBranchWithAnOverrideKeepsTheOverride) {
  const Report r = run({{"ZML_CBWR", "AVX2"}, {"ZML_CODE_PATH_OVERRIDE", "5"}});
  EXPECT_EQ(r.code_path, 5);
  EXPECT_EQ(r.branch, 10);
}

}  // namespace
