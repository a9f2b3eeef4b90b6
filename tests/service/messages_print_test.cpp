// SPDX-License-Identifier: BSD-3-Clause
// The message printer (exact texts, the line break after every message,
// formatting without printing, the overflow report), the parameter-error
// routine's reports, and the hook that replaces it (tested in child processes:
// once installed, a hook stays for the whole process).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "service/service.h"
#include "tests/support/child.h"

using zml::test::capture_stdout;

TEST(MessagesPrint, ExactTexts) {
  int32_t flushed = -1;
  const struct {
    std::function<void()> print;
    const char* want;
  } cases[] = {
      {[] { zml_serv_print(0, 6, 2, 3, "DGEMM "); },
       "Arvel ZML ERROR: Parameter 3 was incorrect on entry to DGEMM .\n"},
      {[] { zml_serv_print(0, 2, 2, "a.dll", "b.dll"); },
       "Arvel ZML FATAL ERROR: Cannot load a.dll or b.dll.\n"},
      {[] { zml_serv_print(0, 1207, 0); },
       "Conditional numerical reproducibility mode is turned ON\n"},
      {[&] { flushed = zml_serv_print(0, 1213, 1, 12); },
       "Arvel ZML ERROR: CPU 12 is not supported.\n"},
      // Without arguments the text is printed as it is.
      {[] { zml_serv_print(0, 1, 0); }, "Arvel ZML FATAL ERROR: Cannot load %s.\n"},
      // Number zero, rows this library leaves empty and unknown numbers.
      {[] { zml_serv_print(0, 0, 0); }, "\n"},
      {[] { zml_serv_print(0, 500, 1, "x"); }, "\n"},
      {[] { zml_serv_print(0, 1300, 0); }, "\n"},
      {[] { zml_serv_print(0, -4, 0); }, "\n"},
  };
  for (const auto& c : cases) EXPECT_EQ(capture_stdout([&] { c.print(); }), c.want);
  EXPECT_EQ(flushed, 0) << "the flush result";
  std::string formatted;
  EXPECT_EQ(capture_stdout([&] { formatted = zml_serv_format(6, 2, 4, "ZGEMV "); }), "");
  EXPECT_EQ(formatted, "Arvel ZML ERROR: Parameter 4 was incorrect on entry to ZGEMV .");
  EXPECT_STREQ(zml_serv_format(7, 0),
               "Arvel ZML INTERNAL ERROR: Condition %d detected in function %s.");
  EXPECT_STREQ(zml_serv_format(0, 1, "x"), "");
  EXPECT_STREQ(zml_serv_format(1300, 0), "");
}

TEST(MessagesPrint, OverflowIsReportedOnlyAboveTheBufferSize) {
  auto overflow_report = [](size_t length) {
    char buf[160];
    std::snprintf(buf, sizeof buf,
                  "\nZML INTERNAL ERROR: message buffer overflow.\n       Lenght: %d   Buffer "
                  "size: 512\n",
                  static_cast<int>(length));
    return std::string(buf);
  };
  const std::string prefix = "Arvel ZML FATAL ERROR: Cannot load ";
  // 512 characters: cut by one to fit the terminator, but not longer than the
  // buffer, so no report; one more is reported, and the message printed cut.
  for (size_t length : {512, 513, 637}) {
    const std::string arg(length - prefix.size() - 1, 'b');
    const std::string full = prefix + arg + ".";
    EXPECT_EQ(capture_stdout([&] { zml_serv_print(0, 1, 1, arg.c_str()); }),
              (length > 512 ? overflow_report(length) : "") + full.substr(0, 511) + "\n");
  }
}

TEST(MessagesPrint, FormatBufferIsSharedAndCutAt512) {
  const char* first = zml_serv_format(1213, 1, 3);
  EXPECT_STREQ(first, "Arvel ZML ERROR: CPU 3 is not supported.");
  const std::string arg(700, 'c');
  const char* second = zml_serv_format(1212, 1, arg.c_str());
  EXPECT_EQ(first, second) << "one shared return buffer";
  EXPECT_EQ(std::strlen(second), 511u);
  EXPECT_EQ(std::string(second, 39), "Arvel ZML INTERNAL ERROR: Issue accessi");
}

namespace {

std::string xerbla_output(const char* name, int32_t info, int32_t length) {
  return capture_stdout([&] { zml_serv_xerbla(name, &info, length); });
}

std::string report(const std::string& text) { return "\n" + text + "\n"; }

}  // namespace

TEST(XerblaReport, ExactTextsAndTheTwentyCharacterCut) {
  const char unterminated[6] = {'Z', 'T', 'R', 'S', 'M', ' '};  // only name_length is read
  const struct {
    const char* name;
    int32_t info, length;
    const char* want;
  } cases[] = {
      {"DGEMM ", 3, 6, "Arvel ZML ERROR: Parameter 3 was incorrect on entry to DGEMM ."},
      {"DGETRF", 0, 6, "Arvel ZML INTERNAL ERROR: Condition 0 detected in function DGETRF."},
      {"DGETRF", -3, 6, "Arvel ZML INTERNAL ERROR: Condition 3 detected in function DGETRF."},
      {"X", INT32_MIN, 1,
       "Arvel ZML INTERNAL ERROR: Condition -2147483648 detected in function X."},
      {"DGEMM", 1000, 5,
       "Arvel ZML INTERNAL ERROR: Insufficient workspace available in function DGEMM."},
      {"DGEMM", 1001, 5, "Arvel ZML ERROR: Incompatible optional parameters on entry to DGEMM."},
      {"DGEMM", 1212, 5, "Arvel ZML INTERNAL ERROR: Issue accessing coprocessor DGEMM."},
      {"DGEMM", 1089, 5, "Arvel ZML INTERNAL ERROR: Not enough work memory in function DGEMM"},
      {"DGEMM", 1002, 5, "Arvel ZML ERROR: Parameter 1002 was incorrect on entry to DGEMM."},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZ", 2, 26,
       "Arvel ZML ERROR: Parameter 2 was incorrect on entry to ABCDEFGHIJKLMNOPQRST."},
      {"DGEMM_BATCH", 2, 5, "Arvel ZML ERROR: Parameter 2 was incorrect on entry to DGEMM."},
      {unterminated, 11, 6, "Arvel ZML ERROR: Parameter 11 was incorrect on entry to ZTRSM ."},
      {"", 1, 0, "Arvel ZML ERROR: Parameter 1 was incorrect on entry to ."},
  };
  for (const auto& c : cases) EXPECT_EQ(xerbla_output(c.name, c.info, c.length), report(c.want));
  // Missing arguments print nothing.
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
std::string g_hook_seen;

template <char kTag>
void hook(const char* name, const int32_t* info, int32_t length) {
  g_hook_seen += std::string(1, kTag) + ":" + std::string(name, static_cast<size_t>(length)) + ":" +
                 std::to_string(*info) + ":" + std::to_string(length) + ";";
}
}  // namespace

// Racing first installers: one wins for good, a later installation (null
// included) changes nothing, and the hook takes every report.
TEST(XerblaHook, DISABLED_ChildFirstInstallerWins) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([i] { zml_serv_set_xerbla(i % 2 ? hook<'a'> : hook<'b'>); });
  }
  for (auto& t : threads) t.join();
  const int32_t one = 1;
  zml_serv_xerbla_dispatch("X", &one, 1);
  zml_serv_set_xerbla(nullptr);
  zml_serv_set_xerbla(g_hook_seen[0] == 'a' ? hook<'b'> : hook<'a'>);
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
    zml_serv_set_xerbla(hook<'a'>);  // too late: param_error installed the library's routine
    const int32_t info = -1;
    zml_serv_xerbla_dispatch("DGEMV ", &info, 6);
    zml_serv_report_memory(0, "ZGEMM");
  });
  zml::test::emit("hook", g_hook_seen.empty() ? "unused" : g_hook_seen);
  std::printf("%s", out.c_str());
}

TEST(XerblaHook, FirstInstallerWinsAndTakesEveryReport) {
  auto r = zml::test::run_child("XerblaHook.DISABLED_ChildFirstInstallerWins", {});
  ASSERT_EQ(r.exit_code, 0) << r.out;
  const std::string seen = r.value("seen");
  const std::string hook = seen.substr(0, 1);
  EXPECT_TRUE(hook == "a" || hook == "b") << seen;
  EXPECT_EQ(seen, hook + ":X:1:1;" + hook + ":DGEMV :4:6;" + hook + ":DGETRF:-2:6;" + hook +
                      ":ZGEMM:1089:5;");
  EXPECT_EQ(r.value("printed"), "nothing");
}

TEST(XerblaHook, WithoutHookDispatchPrintsTheReports) {
  auto r = zml::test::run_child("XerblaHook.DISABLED_ChildLibraryRoutineInstalledFirst", {});
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(r.value("hook"), "unused");
  const std::string want =
      report("Arvel ZML ERROR: Parameter 4 was incorrect on entry to DGETRF.") +
      report("Arvel ZML INTERNAL ERROR: Condition 1 detected in function DGEMV .") +
      report("Arvel ZML INTERNAL ERROR: Not enough work memory in function ZGEMM");
  EXPECT_NE(r.out.find(want), std::string::npos) << r.out;
}
