// SPDX-License-Identifier: BSD-3-Clause
// Many threads asking for the code path at once, in a fresh process: all see
// one value and detection runs once.
#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "service/cpu/code_path.h"
#include "service/dispatch/code_path_table.h"
#include "service/service.h"
#include "tests/support/child.h"

namespace {

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
      switch (i % 4) {
        case 0:
          code_paths[i] = zml_serv_get_code_path();
          break;
        case 1:
          types[i] = zml::serv::processor_type();
          break;
        case 2:
          usable[i] = zml::dispatch::isa_usable(zml::dispatch::Isa::kAvx2);
          break;
        default:
          usable[i] = zml_serv_own_processor();
          break;
      }
      if (i % 4 != 0) code_paths[i] = zml_serv_get_code_path();
      if (i % 4 != 1) types[i] = zml::serv::processor_type();
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
