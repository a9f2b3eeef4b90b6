// SPDX-License-Identifier: BSD-3-Clause
// The parameter-error routine's reports, and the hook that replaces it (tested
// in child processes: once installed, a hook stays for the whole process).
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "service/service.h"
#include "tests/support/child.h"

using zml::test::capture_stdout;

namespace {

std::string xerbla_output(const char* name, int32_t info, int32_t length) {
  return capture_stdout([&] { zml_serv_xerbla(name, &info, length); });
}

std::string report(const std::string& text) { return "\n" + text + "\n"; }

}  // namespace

TEST(XerblaReport, ParameterNumberAndCondition) {
  EXPECT_EQ(xerbla_output("DGEMM ", 3, 6),
            report("Arvel ZML ERROR: Parameter 3 was incorrect on entry to DGEMM ."));
  EXPECT_EQ(xerbla_output("DGETRF", 0, 6),
            report("Arvel ZML INTERNAL ERROR: Condition 0 detected in function DGETRF."));
  EXPECT_EQ(xerbla_output("DGETRF", -3, 6),
            report("Arvel ZML INTERNAL ERROR: Condition 3 detected in function DGETRF."));
  EXPECT_EQ(xerbla_output("X", INT32_MIN, 1),
            report("Arvel ZML INTERNAL ERROR: Condition -2147483648 detected in function X."));
}

TEST(XerblaReport, CodesWithMessagesOfTheirOwn) {
  EXPECT_EQ(
      xerbla_output("DGEMM", 1000, 5),
      report("Arvel ZML INTERNAL ERROR: Insufficient workspace available in function DGEMM."));
  EXPECT_EQ(xerbla_output("DGEMM", 1001, 5),
            report("Arvel ZML ERROR: Incompatible optional parameters on entry to DGEMM."));
  EXPECT_EQ(xerbla_output("DGEMM", 1212, 5),
            report("Arvel ZML INTERNAL ERROR: Issue accessing coprocessor DGEMM."));
  EXPECT_EQ(xerbla_output("DGEMM", 1089, 5),
            report("Arvel ZML INTERNAL ERROR: Not enough work memory in function DGEMM"));
  EXPECT_EQ(xerbla_output("DGEMM", 1002, 5),
            report("Arvel ZML ERROR: Parameter 1002 was incorrect on entry to DGEMM."));
}

TEST(XerblaReport, NameIsCutToTwentyCharacters) {
  EXPECT_EQ(xerbla_output("ABCDEFGHIJKLMNOPQRSTUVWXYZ", 2, 26),
            report("Arvel ZML ERROR: Parameter 2 was incorrect on entry to ABCDEFGHIJKLMNOPQRST."));
  EXPECT_EQ(xerbla_output("DGEMM_BATCH", 2, 5),
            report("Arvel ZML ERROR: Parameter 2 was incorrect on entry to DGEMM."));
  // Names need not be terminated: only name_length characters are read.
  const char unterminated[6] = {'Z', 'T', 'R', 'S', 'M', ' '};
  EXPECT_EQ(xerbla_output(unterminated, 11, 6),
            report("Arvel ZML ERROR: Parameter 11 was incorrect on entry to ZTRSM ."));
  EXPECT_EQ(xerbla_output("", 1, 0),
            report("Arvel ZML ERROR: Parameter 1 was incorrect on entry to ."));
}

TEST(XerblaReport, MissingArgumentsPrintNothing) {
  const int32_t info = 2;
  EXPECT_EQ(capture_stdout([&] { zml_serv_xerbla(nullptr, &info, 5); }), "");
  EXPECT_EQ(capture_stdout([&] { zml_serv_xerbla("DGEMM", nullptr, 5); }), "");
  EXPECT_EQ(capture_stdout([&] { zml_serv_xerbla("DGEMM", &info, -1); }), "");
}

TEST(XerblaReport, StopFlushesAndReturns) {
  const std::string path = ::testing::TempDir() + "zml_stop_flush_test.txt";
  std::FILE* f = std::fopen(path.c_str(), "w");
  ASSERT_NE(f, nullptr);
  std::fputs("pending", f);  // still in the stream's buffer
  zml_serv_stop(1);          // returning at all is part of the contract
  // A second reader sees only what was flushed.
  std::ifstream in(path, std::ios::binary);
  const std::string seen((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::fclose(f);
  std::remove(path.c_str());
  EXPECT_EQ(seen, "pending");
}

// ---- hooks, in children ----

namespace {
std::atomic<int> g_hook_calls{0};
std::string g_hook_seen;

void record(const char* tag, const char* name, const int32_t* info, int32_t length) {
  g_hook_calls.fetch_add(1);
  g_hook_seen += std::string(tag) + ":" + std::string(name, static_cast<size_t>(length)) + ":" +
                 std::to_string(*info) + ":" + std::to_string(length) + ";";
}
void hook_a(const char* name, const int32_t* info, int32_t length) {
  record("a", name, info, length);
}
void hook_b(const char* name, const int32_t* info, int32_t length) {
  record("b", name, info, length);
}
}  // namespace

TEST(XerblaHook, DISABLED_ChildFirstInstallerWins) {
  zml_serv_set_xerbla(nullptr);  // ignored: does not count as an installation
  zml_serv_set_xerbla(hook_a);
  zml_serv_set_xerbla(hook_b);
  const std::string out = capture_stdout([] {
    const int32_t info = 4;
    zml_serv_xerbla_dispatch("DGEMV ", &info, 6);
    zml::serv::param_error("DGETRF", -2);
    zml_serv_report_memory(0, "ZGEMM");
    zml_serv_report_memory(1, "ZGEMM");
  });
  zml::test::emit("seen", g_hook_seen);
  zml::test::emit("printed", out.empty() ? "nothing" : "something");
}

TEST(XerblaHook, DISABLED_ChildLibraryRoutineInstalledFirst) {
  const std::string out = capture_stdout([] {
    zml::serv::param_error("DGETRF", 4);
    zml_serv_set_xerbla(hook_a);  // too late: param_error installed the library's routine
    const int32_t info = -1;
    zml_serv_xerbla_dispatch("DGEMV ", &info, 6);
    zml_serv_report_memory(0, "ZGEMM");
  });
  zml::test::emit("calls", g_hook_calls.load());
  std::printf("%s", out.c_str());
}

TEST(XerblaHook, DISABLED_ChildRacingInstallers) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([i] { zml_serv_set_xerbla(i % 2 ? hook_a : hook_b); });
  }
  for (auto& t : threads) t.join();
  for (int i = 0; i < 3; ++i) {
    const int32_t info = i + 1;
    zml_serv_xerbla_dispatch("X", &info, 1);
  }
  zml::test::emit("seen", g_hook_seen);
}

TEST(XerblaHook, HookTakesEveryReportAndNothingIsPrinted) {
  auto r = zml::test::run_child("XerblaHook.DISABLED_ChildFirstInstallerWins", {});
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(r.value("seen"), "a:DGEMV :4:6;a:DGETRF:-2:6;a:ZGEMM:1089:5;");
  EXPECT_EQ(r.value("printed"), "nothing");
}

TEST(XerblaHook, WithoutHookDispatchPrintsTheReports) {
  auto r = zml::test::run_child("XerblaHook.DISABLED_ChildLibraryRoutineInstalledFirst", {});
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(r.value("calls"), "0");
  const std::string want =
      report("Arvel ZML ERROR: Parameter 4 was incorrect on entry to DGETRF.") +
      report("Arvel ZML INTERNAL ERROR: Condition 1 detected in function DGEMV .") +
      report("Arvel ZML INTERNAL ERROR: Not enough work memory in function ZGEMM");
  std::string out = r.out;
  std::erase(out, '\r');  // text-mode output on Windows
  EXPECT_NE(out.find(want), std::string::npos) << out;
}

TEST(XerblaHook, OneOfRacingInstallersWinsForGood) {
  auto r = zml::test::run_child("XerblaHook.DISABLED_ChildRacingInstallers", {});
  ASSERT_EQ(r.exit_code, 0) << r.out;
  const std::string seen = r.value("seen");
  EXPECT_TRUE(seen == "a:X:1:1;a:X:2:1;a:X:3:1;" || seen == "b:X:1:1;b:X:2:1;b:X:3:1;") << seen;
}
