// SPDX-License-Identifier: BSD-3-Clause
// The vector-math frame: argument checks and statuses, the per-thread mode,
// the share and statuses of threaded calls, the cost model.
#include "vml/api/vml_frame.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "service/service.h"
#include "service/threading/threading.h"
#include "tests/support/child.h"
#include "vml/driver/threader.h"
#include "zml_service.h"
#include "zml_vml.h"

namespace {

using zml::test::capture_stdout;

std::string report(int param, const char* name) {
  return "Parameter " + std::to_string(param) + " was incorrect on entry to " + name;
}

TEST(VmlEntry, BadArgumentsEmptyCallsAndStatuses) {
  double a[4] = {1, 0, -4, 9}, b[4] = {0, 0, 2, 3}, y[4] = {};
  struct Case {
    std::string out;
    int param;
    const char* name;
    int status;
  } cases[] = {
      {capture_stdout([&] { vdSqrt(-1, a, y); }), 1, "vdSqrt", VML_STATUS_BADSIZE},
      {capture_stdout([&] { vdSqrt(4, nullptr, y); }), 2, "vdSqrt", VML_STATUS_BADMEM},
      {capture_stdout([&] { vdAbs(4, a, nullptr); }), 3, "vdAbs", VML_STATUS_BADMEM},
      {capture_stdout([&] { vdAdd(4, a, nullptr, y); }), 3, "vdAdd", VML_STATUS_BADMEM},
      {capture_stdout([&] { vdAdd(4, a, b, nullptr); }), 4, "vdAdd", VML_STATUS_BADMEM},
  };
  for (const Case& c : cases) EXPECT_NE(c.out.find(report(c.param, c.name)), std::string::npos);
  // The last status stays through an empty call, which reports nothing.
  EXPECT_EQ(zml::vml::status(), VML_STATUS_BADMEM);
  EXPECT_EQ(capture_stdout([] { vdAdd(0, nullptr, nullptr, nullptr); }), "");
  EXPECT_EQ(zml::vml::status(), VML_STATUS_BADMEM);
  EXPECT_EQ(y[0], 0.0);  // nothing written by the failed calls

  errno = 0;
  vdDiv(4, a, b, y);  // 1/0 then 0/0: the last condition met stays
  EXPECT_EQ(zml::vml::status(), VML_STATUS_ERRDOM);
  EXPECT_EQ(errno, EDOM);  // the default error mode sets errno
  vdDiv(1, a, b, y);
  EXPECT_EQ(zml::vml::status(), VML_STATUS_SING);
  EXPECT_TRUE(std::isinf(y[0]));
  vdSqrt(4, a, y);
  EXPECT_EQ(zml::vml::status(), VML_STATUS_ERRDOM);
  vdSqrt(2, a, y);
  EXPECT_EQ(zml::vml::status(), VML_STATUS_OK);
  // With no reactions, the status is still set but errno is left alone.
  zml::vml::set_mode(VML_HA | VML_ERRMODE_NOERR);
  errno = 0;
  vdDiv(1, a, b, y);
  EXPECT_EQ(zml::vml::status(), VML_STATUS_SING);
  EXPECT_EQ(errno, 0);
  zml::vml::set_mode(0);
  // Quiet cases: NaN / 0, Inf / 0, sqrt(-0).
  double q[3] = {NAN, INFINITY, -0.0}, z[3] = {0, 0, 1};
  vdDiv(2, q, z, y);
  vdSqrt(1, q + 2, y + 2);
  EXPECT_EQ(zml::vml::status(), VML_STATUS_OK);
}

TEST(VmlMode, DefaultsNamesAndNumbers) {
  EXPECT_EQ(zml::vml::complete_mode(1), 0x1A01u);
  EXPECT_EQ(zml::vml::complete_mode(0x2003), 0x2003u);
  EXPECT_EQ(zml::vml::complete_mode(0x400), 0x402u);
  uint32_t m = 0;
  EXPECT_TRUE(zml::serv::parse_vml_mode(" VML_EP | VML_ERRMODE_NOERR", &m));
  EXPECT_EQ(m, 0x2003u);
  EXPECT_TRUE(zml::serv::parse_vml_mode("010", &m));
  EXPECT_EQ(m, 8u);
  EXPECT_TRUE(zml::serv::parse_vml_mode("0x201", &m));
  EXPECT_EQ(m, 0x201u);
  for (const char* bad : {"VML_XX", "VML_LA|", "12z", ""}) {
    EXPECT_FALSE(zml::serv::parse_vml_mode(bad, &m)) << bad;
  }
}

TEST(VmlMode, DISABLED_ChildThreadModes) {
  zml::test::emit("main", zml::vml::current_mode());
  zml::vml::set_mode(VML_EP | VML_ERRMODE_NOERR);
  uint32_t other = 0;
  std::thread([&] { other = zml::vml::current_mode(); }).join();
  zml::test::emit("other", other);
  zml::test::emit("main_after", zml::vml::current_mode());
}

TEST(VmlMode, ConfiguredPerThread) {
  const std::string none = std::to_string(0x1A02), la = std::to_string(0x1A01);
  const std::string after = std::to_string(VML_EP | VML_ERRMODE_NOERR);
  struct {
    const char* env;
    std::string want;
  } cases[] = {{"", none}, {"garbage", none}, {"1", la}, {"VML_LA|VML_ERRMODE_ERRNO", "513"}};
  for (const auto& c : cases) {
    const auto r =
        zml::test::run_child("VmlMode.DISABLED_ChildThreadModes", {{"ZML_VML_MODE", c.env}});
    EXPECT_EQ(r.mismatches("main=" + c.want + " other=" + c.want + " main_after=" + after), "")
        << c.env;
  }
}

// A kernel that records each member's range and mode, and fails on the
// member that starts at element 67.
std::mutex g_lock;
std::vector<std::pair<long, long>> g_parts;
std::vector<uint32_t> g_modes;
const double* g_base = nullptr;
void recording_kernel(int32_t n, const double* a, double*) {
  std::lock_guard<std::mutex> hold(g_lock);
  g_parts.push_back({a - g_base, n});
  g_modes.push_back(zml::vml::current_mode());
  if (a - g_base == 67) zml::vml::report_status(VML_STATUS_OVERFLOW);
}

TEST(VmlThreader, ShareModeAndStatus) {
  std::vector<double> a(100), y(100);
  g_base = a.data();
  const int off = 0;
  zml_set_dynamic(&off);
  zml::serv::set_thread_local_threads(3);
  zml::vml::set_mode(VML_LA | VML_ERRMODE_NOERR);
  zml_vml_serv_threader_d_1i_1o(recording_kernel, 1.0f, 100, a.data(), y.data(), 0);
  std::sort(g_parts.begin(), g_parts.end());
  EXPECT_EQ(g_parts, (std::vector<std::pair<long, long>>{{0, 34}, {34, 33}, {67, 33}}));
  for (uint32_t m : g_modes) EXPECT_EQ(m, uint32_t{VML_LA | VML_ERRMODE_NOERR});
  EXPECT_EQ(zml::vml::status(), VML_STATUS_OVERFLOW);
  // 99 elements stay in the calling thread.
  g_parts.clear();
  zml_vml_serv_threader_d_1i_1o(recording_kernel, 1.0f, 99, a.data(), y.data(), 0);
  EXPECT_EQ(g_parts, (std::vector<std::pair<long, long>>{{0, 99}}));
  zml::serv::set_thread_local_threads(0);
  zml::vml::set_mode(0);
}

TEST(VmlThreader, CostModel) {
  EXPECT_EQ(zml::vml::cost_factor(1, 1, 1), 0.0f);
  // Two logical processors per core, one package of 16: p = 8/15, q = 7/15.
  EXPECT_FLOAT_EQ(zml::vml::cost_factor(2, 16, 16), 2.0f / (4800.0f + 28000.0f));
  // One processor per core, two packages of 8: q = 7*2/15, r = 1/15.
  EXPECT_FLOAT_EQ(zml::vml::cost_factor(1, 8, 16), 2.0f / (56000.0f + 500000.0f / 15.0f));
  EXPECT_EQ(zml::vml::model_threads(8, 1000, 0.0f), 1);
  EXPECT_LE(zml::vml::model_threads(8, 1 << 30, 1000.0f), 8);
}

}  // namespace
