// SPDX-License-Identifier: BSD-3-Clause
// How the environment steers the code path: the override, the forced
// processor type, the instruction cap and the reproducibility branch. Each is
// read once per process, so every case runs in a fresh child; and racing
// first calls, which must agree and detect once.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "service/cpu/code_path.h"
#include "service/dispatch/code_path_table.h"
#include "service/service.h"
#include "tests/support/child.h"

namespace {

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

// The machine the `on_vnni` expectations were written for: AVX-512 with
// VNNI, whose vendor string is not ours.
bool avx512_vnni_machine() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512cd") &&
         __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512bw") &&
         __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vnni");
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
  const bool vnni = avx512_vnni_machine();
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
  const char* const detected = "type=9 code_path=11";
  check({
      {{},
       "runs=1 branch=1 word=0 cap=-1",
       "own=0 type=9 code_path=11 allowed=1111100 usable=111111"},
      {{{"ZML_CODE_PATH_OVERRIDE", "11"}}, "code_path=11 runs=0", "type=9"},
      {{{"ZML_CODE_PATH_OVERRIDE", "6"}}, "code_path=6 runs=0", "type=9"},
      {{{"ZML_CODE_PATH_OVERRIDE", "10"}}, "runs=1", detected},
      {{{"ZML_CODE_PATH_OVERRIDE", ""}}, "runs=1", detected},
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
