// SPDX-License-Identifier: BSD-3-Clause
// Verbose mode, read once per process from ZML_VERBOSE, and where its lines go.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "service/config/settings.h"
#include "service/service.h"
#include "tests/support/child.h"

namespace {

using Env = std::map<std::string, std::string>;

zml::test::ChildResult verbose_child(const Env& extra) {
  Env env = {{"ZML_VERBOSE", ""}, {"ZML_VERBOSE_OUTPUT_FILE", ""}, {"ZML_DYNAMIC", ""}};
  for (const auto& [k, v] : extra) env[k] = v;
  return zml::test::run_child("ConfigVerbose.DISABLED_ChildTrace", env);
}

// The line the child's two traced calls (of the BLAS and the FFT domain)
// should produce, from what it reported.
std::string expected_line(const zml::test::ChildResult& r, const std::string& call,
                          const std::string& time, const char* threads) {
  std::ostringstream line;
  line << "ZML_VERBOSE " << call << ' ' << time << " threads:" << r.value(threads)
       << " dynamic:" << r.value("dynamic") << " fast_mm:" << r.value("fast_mm")
       << " code_path:" << r.value("code_path") << '\n';
  return line.str();
}

// Text-mode streams on Windows end lines with CR LF; the tests compare lines.
std::string without_cr(std::string text) {
  std::erase(text, '\r');
  return text;
}

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return without_cr(s.str());
}

// The argument part of the calls traced from several threads.
const std::string kLongArguments = std::string("(").append(100, 'x').append(")");

}  // namespace

// ---- child body ----

TEST(ConfigVerbose, DISABLED_ChildTrace) {
  const bool on = zml::serv::verbose_on();
  // Read once: a later change of the variable has no effect.
  zml::test::set_env("ZML_VERBOSE", on ? "0" : "1");
  zml::test::emit("on_again", zml::serv::verbose_on() ? 1 : 0);
  zml::test::emit("on", on ? 1 : 0);
  if (!on) return;
  zml::test::emit("blas", zml_serv_domain_get_max_threads(zml::serv::kDomainBlas));
  zml::test::emit("fft", zml_serv_domain_get_max_threads(zml::serv::kDomainFft));
  zml::test::emit("fast_mm", zml::serv::fast_mm_enabled() ? 1 : 0);
  zml::test::emit("code_path", zml_serv_get_code_path());
  zml::serv::verbose_print("DSCAL(4,%p,1)", 12.34e-6, zml::serv::kDomainBlas);
  zml::serv::verbose_print("DFT(2)", 1.5, zml::serv::kDomainFft);
  zml::test::emit("dynamic", zml::serv::g_settings.dynamic.load());
}

TEST(ConfigVerbose, DISABLED_ChildConcurrentLines) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      const std::string call = std::string("T").append(std::to_string(t)).append(kLongArguments);
      for (int i = 0; i < 50; ++i) {
        zml::serv::verbose_print(call.c_str(), 1e-3, zml::serv::kDomainBlas);
      }
    });
  }
  for (auto& th : threads) th.join();
}

// ---- parents ----

// The value rules are in config_parse_test; here the child's single read.
TEST(ConfigVerbose, ReadOncePerProcess) {
  const std::pair<const char*, const char*> cases[] = {{"0x1", "1"}, {"010", "0"}};
  for (const auto& [value, want] : cases) {
    auto r = verbose_child({{"ZML_VERBOSE", value}});
    ASSERT_EQ(r.exit_code, 0) << r.out;
    EXPECT_EQ(r.value("on"), want) << "ZML_VERBOSE=\"" << value << "\"";
    EXPECT_EQ(r.value("on_again"), want) << "read once per process";
  }
}

TEST(ConfigVerbose, LinesGoToStandardOutputWithTheSettingsOfTheCallersDomain) {
  auto r = verbose_child({{"ZML_VERBOSE", "1"},
                          {"ZML_DYNAMIC", "false"},
                          {"ZML_DOMAIN_NUM_THREADS", "ZML_DOMAIN_BLAS=5 ZML_DOMAIN_FFT=3"}});
  ASSERT_EQ(r.exit_code, 0) << r.out;
  ASSERT_EQ(r.value("on"), "1");
  const std::string out = without_cr(r.out);
  const std::string first = expected_line(r, "DSCAL(4,%p,1)", "12.34us", "blas");
  EXPECT_NE(out.find(first), std::string::npos) << out;
  EXPECT_NE(out.find(expected_line(r, "DFT(2)", "1.50s", "fft")), std::string::npos) << out;
  EXPECT_NE(first.find(" threads:5 dynamic:0 "), std::string::npos) << first;
  EXPECT_NE(out.find("DFT(2) 1.50s threads:3 "), std::string::npos) << out;
}

TEST(ConfigVerbose, LinesAreAppendedToTheOutputFile) {
  const std::string path = ::testing::TempDir() + "zml_verbose_test.log";
  {
    std::ofstream out(path, std::ios::binary);
    out << "earlier line\n";
  }
  auto r = verbose_child({{"ZML_VERBOSE", "1"}, {"ZML_VERBOSE_OUTPUT_FILE", path}});
  ASSERT_EQ(r.exit_code, 0) << r.out;
  const std::string text = read_file(path);
  std::remove(path.c_str());
  EXPECT_EQ(text, "earlier line\n" + expected_line(r, "DSCAL(4,%p,1)", "12.34us", "blas") +
                      expected_line(r, "DFT(2)", "1.50s", "fft"));
  EXPECT_EQ(r.out.find("ZML_VERBOSE "), std::string::npos) << "nothing on standard output";
}

TEST(ConfigVerbose, ConcurrentLinesNeverInterleave) {
  const std::string path = ::testing::TempDir() + "zml_verbose_threads_test.log";
  std::remove(path.c_str());
  auto r = zml::test::run_child("ConfigVerbose.DISABLED_ChildConcurrentLines",
                                {{"ZML_VERBOSE", "1"}, {"ZML_VERBOSE_OUTPUT_FILE", path}});
  ASSERT_EQ(r.exit_code, 0) << r.out;
  std::istringstream lines(read_file(path));
  std::remove(path.c_str());
  int n = 0;
  for (std::string line; std::getline(lines, line); ++n) {
    ASSERT_EQ(line.rfind("ZML_VERBOSE T", 0), 0u) << line;
    const std::string call = line.substr(12, 3 + 100 + 1);
    EXPECT_EQ(call.substr(2), kLongArguments) << line;
    EXPECT_NE(line.find(") 1.00ms threads:"), std::string::npos) << line;
    EXPECT_NE(line.find(" code_path:"), std::string::npos) << line;
  }
  EXPECT_EQ(n, 200);
}

TEST(ConfigVerbose, UnopenableOutputFileFallsBackToStandardOutput) {
  auto r = verbose_child(
      {{"ZML_VERBOSE", "1"}, {"ZML_VERBOSE_OUTPUT_FILE", "/nonexistent-zml-dir/sub/verbose.log"}});
  ASSERT_EQ(r.exit_code, 0) << r.out;
  const std::string out = without_cr(r.out);
  EXPECT_NE(out.find(expected_line(r, "DSCAL(4,%p,1)", "12.34us", "blas")), std::string::npos);
  EXPECT_NE(out.find(expected_line(r, "DFT(2)", "1.50s", "fft")), std::string::npos) << out;
}
