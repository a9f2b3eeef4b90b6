// SPDX-License-Identifier: BSD-3-Clause
// Thread counts per domain: the precedence of the per-thread, domain, general
// and OpenMP counts, the dynamic rules (parallel regions, cores, MPI processes
// per node), and the setting exports. Environment cases run in child processes.
#include <gtest/gtest.h>
#include <omp.h>

#include <map>
#include <string>
#include <thread>

#include "service/config/settings.h"
#include "service/service.h"
#include "service/threading/threading.h"
#include "tests/support/child.h"
#include "zml_service.h"

namespace {

using zml::serv::g_settings;
using zml::test::emit;
using Env = std::map<std::string, std::string>;

int max_threads(int domain) { return zml_domain_get_max_threads(&domain); }

Env threading_env(const Env& extra) {
  Env env = {{"ZML_NUM_THREADS", ""},   {"ZML_DOMAIN_NUM_THREADS", ""},
             {"ZML_DYNAMIC", ""},       {"OMP_NUM_THREADS", ""},
             {"ZML_MPI_PPN", ""},       {"A_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", ""},
             {"A_MPI_PIN_MAPPING", ""}, {"OMPI_COMM_WORLD_LOCAL_SIZE", ""},
             {"MPI_LOCALNRANKS", ""}};
  for (const auto& [k, v] : extra) env[k] = v;
  return env;
}

// The answers of one child, with what the rules are computed from.
struct Answers {
  int all, blas, fft, vml, dirsol, dynamic, omp_max, cores;
};

Answers query(const Env& extra, const char* child = "ThreadsCount.DISABLED_ChildQuery") {
  const auto r = zml::test::run_child(child, threading_env(extra));
  EXPECT_EQ(r.exit_code, 0) << r.out;
  auto get = [&](const char* key) { return std::atoi(r.value(key).c_str()); };
  return {get("all"),    get("blas"),    get("fft"),     get("vml"),
          get("dirsol"), get("dynamic"), get("omp_max"), get("cores")};
}

// Saves and restores the slots that in-process tests change.
class ThreadsSlots : public ::testing::Test {
 protected:
  void SetUp() override {
    zml::serv::ensure_threading_env();
    saved_num_ = g_settings.num_threads.load();
    saved_dynamic_ = g_settings.dynamic.load();
    for (int d = 1; d <= 4; ++d) saved_domain_[d] = zml::serv::domain_slot(d).load();
  }
  void TearDown() override {
    g_settings.num_threads.store(saved_num_);
    g_settings.dynamic.store(saved_dynamic_);
    for (int d = 1; d <= 4; ++d) zml::serv::domain_slot(d).store(saved_domain_[d]);
  }
  int32_t saved_num_ = -1, saved_dynamic_ = -1, saved_domain_[5] = {};
};

// ---- child bodies ----

void emit_answers() {
  emit("all", zml_get_max_threads());
  emit("blas", max_threads(ZML_DOMAIN_BLAS));
  emit("fft", max_threads(ZML_DOMAIN_FFT));
  emit("vml", max_threads(ZML_DOMAIN_VML));
  emit("dirsol", max_threads(ZML_DOMAIN_DIRSOL));
  emit("dynamic", zml_get_dynamic());
  emit("omp_max", omp_get_max_threads());
  emit("cores", zml::serv::topology_record().cores);
}

TEST(ThreadsCount, DISABLED_ChildQuery) { emit_answers(); }

// Service calls made before the environment is read win over it.
TEST(ThreadsCount, DISABLED_ChildCallsFirst) {
  const int five = 5, zero = 0, blas = ZML_DOMAIN_BLAS;
  zml_set_num_threads(&five);
  zml_set_dynamic(&zero);
  zml_domain_set_num_threads(&zero, &blas);
  emit_answers();
}

// ---- parent checks ----

TEST(ThreadsCount, WithoutSettingsTheOpenMpMaximumIsUsed) {
  const Answers a = query({{"ZML_DYNAMIC", "false"}});
  EXPECT_EQ(a.dynamic, 0);
  EXPECT_EQ(a.all, a.omp_max);
  EXPECT_EQ(a.blas, a.omp_max);
  EXPECT_EQ(a.dirsol, a.omp_max);
}

TEST(ThreadsCount, GeneralSettingComesFromZmlNumThreads) {
  const Answers a =
      query({{"ZML_DYNAMIC", "false"}, {"ZML_NUM_THREADS", "3"}, {"OMP_NUM_THREADS", "6"}});
  EXPECT_EQ(a.all, 3);
  EXPECT_EQ(a.blas, 3);
  EXPECT_EQ(a.vml, 3);
}

TEST(ThreadsCount, DomainSettingWinsOverGeneralSetting) {
  const Answers a = query({{"ZML_DYNAMIC", "false"},
                           {"ZML_NUM_THREADS", "3"},
                           {"ZML_DOMAIN_NUM_THREADS", "ZML_DOMAIN_BLAS=2, ZML_DOMAIN_FFT 5"}});
  EXPECT_EQ(a.blas, 2);
  EXPECT_EQ(a.fft, 5);
  EXPECT_EQ(a.vml, 3);
  EXPECT_EQ(a.dirsol, 3);
  EXPECT_EQ(a.all, 3);
}

TEST(ThreadsCount, OmpNumThreadsIsTheFallback) {
  const Answers a = query({{"ZML_DYNAMIC", "false"}, {"OMP_NUM_THREADS", "6"}});
  EXPECT_EQ(a.omp_max, 6);
  EXPECT_EQ(a.all, 6);
  EXPECT_EQ(a.fft, 6);
}

TEST(ThreadsCount, ServiceCallsBeforeTheFirstQueryWinOverTheEnvironment) {
  const Answers a = query({{"ZML_NUM_THREADS", "3"},
                           {"ZML_DYNAMIC", "true"},
                           {"ZML_DOMAIN_NUM_THREADS", "ZML_DOMAIN_BLAS=2"}},
                          "ThreadsCount.DISABLED_ChildCallsFirst");
  EXPECT_EQ(a.dynamic, 0);
  EXPECT_EQ(a.all, 5);
  EXPECT_EQ(a.blas, 5) << "a BLAS slot of 0 falls back to the general setting";
}

TEST(ThreadsCount, DynamicCapsAtTheCores) {
  const Answers a = query({{"ZML_NUM_THREADS", "100000"}});
  EXPECT_EQ(a.dynamic, 1);
  EXPECT_EQ(a.all, a.cores);
  const Answers off = query({{"ZML_NUM_THREADS", "100000"}, {"ZML_DYNAMIC", "FALSE"}});
  EXPECT_EQ(off.all, 100000);
}

// cores / ranks when that is smaller and above 0, from the OpenMP maximum capped at the cores.
int mpi_share(const Answers& a, int ranks) {
  int count = a.omp_max < a.cores ? a.omp_max : a.cores;
  const int share = a.cores / ranks;
  if (share > 0 && share < count) count = share;
  return count;
}

TEST(ThreadsCount, MpiProcessesPerNodeShareTheCores) {
  for (const char* var : {"OMPI_COMM_WORLD_LOCAL_SIZE", "MPI_LOCALNRANKS", "ZML_MPI_PPN"}) {
    const Answers a = query({{var, "2"}});
    EXPECT_EQ(a.all, mpi_share(a, 2)) << var;
    EXPECT_EQ(a.blas, mpi_share(a, 2)) << var;
  }
  const Answers pin = query({{"A_MPI_PIN_MAPPING", "4:0 0,1 2,2 4,3 6"}});
  EXPECT_EQ(pin.all, mpi_share(pin, 4));
  // More processes than cores: the share would be 0, so the count stays.
  const Answers crowded = query({{"ZML_MPI_PPN", "100000"}});
  EXPECT_EQ(crowded.all, crowded.omp_max < crowded.cores ? crowded.omp_max : crowded.cores);
}

TEST(ThreadsCount, MpiShareNeedsNoExplicitCountAndNoOmpNumThreads) {
  const Answers omp = query({{"OMPI_COMM_WORLD_LOCAL_SIZE", "2"}, {"OMP_NUM_THREADS", "1000"}});
  EXPECT_EQ(omp.all, omp.cores) << "OMP_NUM_THREADS set: only the cap at the cores";
  const Answers own = query({{"OMPI_COMM_WORLD_LOCAL_SIZE", "2"}, {"ZML_NUM_THREADS", "1000"}});
  EXPECT_EQ(own.all, own.cores) << "explicit count: only the cap at the cores";
  const Answers off = query({{"OMPI_COMM_WORLD_LOCAL_SIZE", "2"}, {"ZML_DYNAMIC", "false"}});
  EXPECT_EQ(off.all, off.omp_max) << "dynamic off: no MPI rule";
}

TEST_F(ThreadsSlots, PerThreadCountWinsAndStaysWithItsThread) {
  const int three = 3, zero = 0;
  zml_set_num_threads(&three);
  zml_set_dynamic(&zero);
  int in_thread = 0, in_thread_blas = 0, after_clear = 0;
  std::thread([&] {
    zml::serv::set_thread_local_threads(7);
    in_thread = zml_get_max_threads();
    in_thread_blas = max_threads(ZML_DOMAIN_BLAS);
    zml::serv::set_thread_local_threads(0);
    after_clear = zml_get_max_threads();
  }).join();
  EXPECT_EQ(in_thread, 7);
  EXPECT_EQ(in_thread_blas, 7);
  EXPECT_EQ(after_clear, 3);
  EXPECT_EQ(zml::serv::thread_local_threads(), 0) << "another thread's count is not ours";
  EXPECT_EQ(zml_get_max_threads(), 3);
}

TEST_F(ThreadsSlots, DynamicInsideAParallelRegionGivesOne) {
  const int one = 1, zero = 0, four = 4;
  zml_set_num_threads(&four);
  zml_set_dynamic(&one);
  int inside_on[2] = {0, 0};
  int active = 0;
#pragma omp parallel num_threads(2)
  {
    const int me = omp_get_thread_num();
    if (me < 2) inside_on[me] = zml_get_max_threads();
    if (me == 0) active = omp_get_active_level();
  }
  if (active == 0) GTEST_SKIP() << "the OpenMP runtime did not fork";
  EXPECT_EQ(inside_on[0], 1);
  EXPECT_EQ(inside_on[1], 1);
  zml_set_dynamic(&zero);
  int inside_off = 0;
#pragma omp parallel num_threads(2)
  {
    if (omp_get_thread_num() == 0) inside_off = zml_get_max_threads();
  }
  EXPECT_EQ(inside_off, 4) << "dynamic off: the setting holds inside regions";
}

TEST_F(ThreadsSlots, DomainSetChecksItsArguments) {
  const int two = 2, zero = 0, minus = -1, five = 5, big = 1 << 30;
  const int blas = ZML_DOMAIN_BLAS, all = ZML_DOMAIN_ALL, dirsol = ZML_DOMAIN_DIRSOL;
  zml_set_dynamic(&zero);
  const int general = 3;
  zml_set_num_threads(&general);
  EXPECT_EQ(zml_domain_set_num_threads(&two, &blas), 1);
  EXPECT_EQ(max_threads(ZML_DOMAIN_BLAS), 2);
  // Domain 5 and negative domains are out of range: nothing changes.
  EXPECT_EQ(zml_domain_set_num_threads(&big, &five), 0);
  EXPECT_EQ(zml_domain_set_num_threads(&big, &minus), 0);
  EXPECT_EQ(zml_domain_set_num_threads(&minus, &blas), 0);
  EXPECT_EQ(max_threads(ZML_DOMAIN_BLAS), 2);
  EXPECT_EQ(zml_get_max_threads(), 3);
  // n = 0 is stored, and the domain falls back to the general setting.
  EXPECT_EQ(zml_domain_set_num_threads(&zero, &blas), 1);
  EXPECT_EQ(max_threads(ZML_DOMAIN_BLAS), 3);
  EXPECT_EQ(zml_domain_set_num_threads(&two, &dirsol), 1);
  EXPECT_EQ(max_threads(ZML_DOMAIN_DIRSOL), 2);
  // Domain 0 is the general setting; 0 there falls back to OpenMP.
  EXPECT_EQ(zml_domain_set_num_threads(&zero, &all), 1);
  EXPECT_EQ(zml_get_max_threads(), omp_get_max_threads());
  EXPECT_EQ(max_threads(ZML_DOMAIN_DIRSOL), 2);
  EXPECT_GE(max_threads(7), 1) << "unknown domains are asked as the general one";
}

TEST_F(ThreadsSlots, SetNumThreadsIgnoresZeroAndNegative) {
  const int zero = 0, four = 4, minus = -3;
  zml_set_dynamic(&zero);
  zml_set_num_threads(&four);
  zml_set_num_threads(&zero);
  EXPECT_EQ(zml_get_max_threads(), 4);
  zml_set_num_threads(&minus);
  EXPECT_EQ(zml_get_max_threads(), 4);
  zml_set_num_threads(nullptr);
  EXPECT_EQ(g_settings.num_threads.load(), 4);
}

TEST_F(ThreadsSlots, SetDynamicStoresZeroOrOne) {
  const int seven = 7, zero = 0;
  zml_set_dynamic(&seven);
  EXPECT_EQ(zml_get_dynamic(), 1);
  zml_set_dynamic(&zero);
  EXPECT_EQ(zml_get_dynamic(), 0);
}

TEST_F(ThreadsSlots, ResultIsNeverBelowOne) {
  const int zero = 0, all = ZML_DOMAIN_ALL;
  zml_domain_set_num_threads(&zero, &all);
  zml::serv::set_thread_local_threads(-5);
  for (int d = 0; d <= 4; ++d) EXPECT_GE(max_threads(d), 1) << d;
}

TEST(ThreadsTopology, AnswerFollowsTheRecord) {
  const auto& t = zml::serv::topology_record();
  EXPECT_GE(t.logical, t.cores);
  EXPECT_GE(t.cores, 1);
  EXPECT_GE(t.packages, 1);
  EXPECT_EQ(t.cores_per_package, t.cores / t.packages > 0 ? t.cores / t.packages : 1);
  EXPECT_EQ(zml::serv::topology_answer(), t.logical != t.cores ? 1 : 0);
}

}  // namespace
