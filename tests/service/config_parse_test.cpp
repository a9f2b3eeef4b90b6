// SPDX-License-Identifier: BSD-3-Clause
// The parsing rules of the environment values, the reader's result rules and
// the verbose line's text: the edge cases each hand-written rule can get wrong.
// Verbose mode, read once per process from ZML_VERBOSE, and where its lines go
// (in child processes).
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "service/config/env_parse.h"
#include "service/config/settings.h"
#include "service/config/verbose_line.h"
#include "service/platform/platform.h"
#include "service/service.h"
#include "tests/support/child.h"

namespace {

namespace env = zml::serv::env;

template <class R>
using Rows = std::vector<std::pair<const char*, R>>;

template <class R, class F>
void expect_rows(F parse, const Rows<R>& rows) {
  for (const auto& [text, want] : rows) EXPECT_EQ(parse(text), want) << '"' << text << '"';
}

using Domains = std::array<int32_t, 5>;  // ALL, BLAS, FFT, VML, DIRSOL

TEST(ConfigParse, NumbersAndWords) {
  // Any non-digit means one thread, not "unset"; long values saturate.
  const Rows<int32_t> threads = {
      {"4", 4}, {"4x", 1}, {" 4", 1}, {"", 1}, {"0", 0}, {"0012", 12}, {"99999999999", INT32_MAX}};
  expect_rows(env::thread_count, threads);
  const Rows<int32_t> dynamic = {
      {"FALSE", 0}, {"false", 0}, {"  'false'", 0}, {"\"FALSE\" and more", 0},
      {"False", 1}, {"0", 1},     {"falsey", 1},    {"''", 1}};
  expect_rows(env::parse_dynamic, dynamic);
  const Rows<int32_t> ranks = {{"4", 4},   {"0", 0}, {"4x", -1},
                               {"-2", -1}, {"", -1}, {"99999999999", -1}};
  expect_rows([](const char* s) { return env::parse_ranks(s, false); }, ranks);
  const Rows<int32_t> pin_map = {{"3:0,1,2", 3}, {"3:", 3}, {"3", -1}, {":3", -1}};
  expect_rows([](const char* s) { return env::parse_ranks(s, true); }, pin_map);
  // Any base, the whole text, and only the value one turns it on ("010" is 8).
  const Rows<int32_t> verbose = {{"1", 1},   {"0x1", 1}, {"0X1", 1}, {"01", 1}, {"2", 0},
                                 {"010", 0}, {"1x", 0},  {"-1", 0},  {"", 0}};
  expect_rows(env::parse_verbose, verbose);
}

TEST(ConfigParse, DigitsOnlyOrNothing) {
  int32_t v = -7;
  EXPECT_TRUE(env::parse_digits("12", &v));
  EXPECT_EQ(v, 12);
  v = -7;
  for (const char* bad : {"", "-1", "3 "}) EXPECT_FALSE(env::parse_digits(bad, &v)) << bad;
  EXPECT_EQ(v, -7) << "a rejected value leaves the target alone";
}

TEST(ConfigParse, DomainList) {
  // The first value of at least 1 per domain wins; empty or non-digit values
  // count as 1; names are compared exactly; any separator and gap is skipped.
  const Rows<Domains> rows = {
      {"ZML_DOMAIN_BLAS=2, ZML_DOMAIN_FFT 3;ZML_DOMAIN_BLAS=5", {-1, 2, 3, -1, -1}},
      {"ZML_DOMAIN_ALL=4:ZML_DOMAIN_VML=1 ZML_DOMAIN_DIRSOL=8", {4, -1, -1, 1, 8}},
      {"\"ZML_DOMAIN_BLAS=2\";'ZML_DOMAIN_FFT=4',,ZML_DOMAIN_VML\t6", {-1, 2, 4, 6, -1}},
      {"  ZML_DOMAIN_ALL = = 5  ", {5, -1, -1, -1, -1}},
      {"ZML_DOMAIN_FFT=x2", {-1, -1, 1, -1, -1}},
      {"ZML_DOMAIN_FFT=,ZML_DOMAIN_VML=3", {-1, -1, 1, 3, -1}},
      {"ZML_DOMAIN_BLAS=0 ZML_DOMAIN_BLAS=6", {-1, 6, -1, -1, -1}},
      {"zml_domain_blas=2 ZML_DOMAIN_BLASX=3 ZML_DOMAIN_GPU=7 ZML_DOMAIN_FFT=9",
       {-1, -1, 9, -1, -1}},
      {"=3 , ;", {-1, -1, -1, -1, -1}}};
  expect_rows(env::parse_domain_list, rows);
}

TEST(ConfigParse, ElapsedTimeAndVerboseLine) {
  // Elapsed seconds, written as text here, in the largest unit that keeps them at least 1.
  const Rows<std::string> elapsed = {{"1.5", "1.50s"},       {"0.01234", "12.34ms"},
                                     {"1e-3", "1.00ms"},     {"12.34e-6", "12.34us"},
                                     {"999e-9", "999.00ns"}, {"0", "0.00ns"}};
  expect_rows(
      [](const char* s) {
        char buf[48];
        zml::serv::format_elapsed(std::strtod(s, nullptr), buf, sizeof buf);
        return std::string(buf);
      },
      elapsed);
  zml::serv::VerboseContext ctx;
  ctx.threads = 4;
  ctx.dynamic = 0;
  ctx.code_path = 9;
  char line[200];
  std::string want = "ZML_VERBOSE DSCAL(3,%p,1) 2.50ms threads:4 dynamic:0 fast_mm:1 code_path:9\n";
  EXPECT_EQ(zml::serv::format_verbose_line(line, sizeof line, "DSCAL(3,%p,1)", 2.5e-3, ctx),
            want.size());
  EXPECT_EQ(std::string(line), want);
  // A cut line still ends the line.
  char cut[64];
  EXPECT_EQ(zml::serv::format_verbose_line(cut, sizeof cut, std::string(300, 'C').c_str(), 1, ctx),
            sizeof cut - 1);
  EXPECT_EQ(std::string(cut), "ZML_VERBOSE " + std::string(50, 'C') + "\n");
}

constexpr const char* kVar = "ZML_TEST_GETENV_VALUE";

// zml_serv_getenv into a buffer filled with 'x': the result and what the buffer holds.
std::pair<int32_t, std::string> read_into(int32_t size) {
  char buf[16];
  std::memset(buf, 'x', sizeof buf);
  const int32_t n = zml_serv_getenv(kVar, buf, size);
  return {n, std::string(buf, strnlen(buf, sizeof buf))};
}

TEST(ConfigGetenv, LengthOrNegatedRequiredSize) {
  using R = std::pair<int32_t, std::string>;
  zml::test::set_env(kVar, "1234567");
  EXPECT_EQ(read_into(8), R(7, "1234567"));
  // No room for the terminator: the negated size needed, and an emptied buffer.
  EXPECT_EQ(read_into(7), R(-8, ""));
  // A size below one only measures and leaves the buffer alone.
  EXPECT_EQ(read_into(0), R(-8, std::string(16, 'x')));
  EXPECT_EQ(read_into(-3), R(-8, std::string(16, 'x')));
  EXPECT_EQ(zml_serv_getenv(kVar, nullptr, 0), -8);
#ifndef _WIN32  // Windows cannot hold an empty variable
  zml::test::set_env(kVar, "");
  EXPECT_EQ(read_into(8), R(0, ""));
#endif
  zml::test::set_env(kVar, nullptr);
  EXPECT_EQ(read_into(8), R(0, "")) << "absent";
}

TEST(ConfigGetenv, RestrictedProcessReadsOnlyLoaderAndLocaleNames) {
  // The test program is not installed set-user-ID, so it reads every name.
  EXPECT_FALSE(zml::platform::restricted_process());
  zml::test::set_env(kVar, "abc");
  zml::test::set_env("ZMLROOT", "/opt/zml");
  char buf[32];
  std::memset(buf, 'x', sizeof buf);
  EXPECT_EQ(env::read(kVar, buf, sizeof buf, true), 0);
  EXPECT_EQ(buf[0], '\0');
  EXPECT_EQ(env::read("ZMLROOT", buf, sizeof buf, true), 8);
  EXPECT_STREQ(buf, "/opt/zml");
  EXPECT_EQ(env::read(kVar, buf, sizeof buf, false), 3);
  zml::test::set_env(kVar, nullptr);
  zml::test::set_env("ZMLROOT", nullptr);
}

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

// Text-mode files on Windows end lines with CR LF; the tests compare lines.
std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  std::string text = s.str();
  std::erase(text, '\r');
  return text;
}

// The argument part of the calls traced from several threads.
const std::string kLongArguments = std::string("(").append(100, 'x').append(")");

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

TEST(ConfigVerbose, LinesGoToStandardOutputWithTheSettingsOfTheCallersDomain) {
  auto r = verbose_child({{"ZML_VERBOSE", "1"},
                          {"ZML_DYNAMIC", "false"},
                          {"ZML_DOMAIN_NUM_THREADS", "ZML_DOMAIN_BLAS=5 ZML_DOMAIN_FFT=3"}});
  ASSERT_EQ(r.exit_code, 0) << r.out;
  ASSERT_EQ(r.value("on"), "1");
  EXPECT_EQ(r.value("on_again"), "1") << "read once per process";
  const std::string& out = r.out;  // run_child drops the carriage returns
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
  const std::string& out = r.out;
  EXPECT_NE(out.find(expected_line(r, "DSCAL(4,%p,1)", "12.34us", "blas")), std::string::npos);
  EXPECT_NE(out.find(expected_line(r, "DFT(2)", "1.50s", "fft")), std::string::npos) << out;
}

}  // namespace
