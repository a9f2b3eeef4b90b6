// SPDX-License-Identifier: BSD-3-Clause
// Thread counts per domain: the precedence of the per-thread, domain, general
// and OpenMP counts, the dynamic rules (parallel regions, cores, MPI processes
// per node), the setting exports, and the thread teams of the drivers.
// Environment cases run in child processes.
#include <gtest/gtest.h>
#include <omp.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

#include "service/config/settings.h"
#include "service/service.h"
#include "service/threading/team.h"
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

TEST(ThreadsCount, PrecedenceOfTheEnvironmentSettings) {
  Answers a = query({{"ZML_DYNAMIC", "false"}});
  EXPECT_EQ(a.dynamic, 0);
  EXPECT_EQ(a.all, a.omp_max);
  EXPECT_EQ(a.dirsol, a.omp_max);
  a = query({{"ZML_DYNAMIC", "false"},
             {"ZML_NUM_THREADS", "3"},
             {"OMP_NUM_THREADS", "6"},
             {"ZML_DOMAIN_NUM_THREADS", "ZML_DOMAIN_BLAS=2, ZML_DOMAIN_FFT 5"}});
  EXPECT_EQ(a.all, 3);
  EXPECT_EQ(a.vml, 3);
  EXPECT_EQ(a.blas, 2);
  EXPECT_EQ(a.fft, 5);
  a = query({{"ZML_DYNAMIC", "false"}, {"OMP_NUM_THREADS", "6"}});
  EXPECT_EQ(a.all, 6);
  EXPECT_EQ(a.fft, 6);
  a = query({{"ZML_NUM_THREADS", "3"},
             {"ZML_DYNAMIC", "true"},
             {"ZML_DOMAIN_NUM_THREADS", "ZML_DOMAIN_BLAS=2"}},
            "ThreadsCount.DISABLED_ChildCallsFirst");
  EXPECT_EQ(a.dynamic, 0) << "service calls before the first query win";
  EXPECT_EQ(a.all, 5);
  EXPECT_EQ(a.blas, 5) << "a BLAS slot of 0 falls back to the general setting";
}

// cores / ranks when that is smaller and above 0, from the OpenMP maximum capped at the cores.
int mpi_share(const Answers& a, int ranks) {
  int count = a.omp_max < a.cores ? a.omp_max : a.cores;
  const int share = a.cores / ranks;
  if (share > 0 && share < count) count = share;
  return count;
}

TEST(ThreadsCount, DynamicCapsAtTheCoresAndSharesThemBetweenMpiProcesses) {
  Answers a = query({{"ZML_NUM_THREADS", "100000"}});
  EXPECT_EQ(a.dynamic, 1);
  EXPECT_EQ(a.all, a.cores);
  EXPECT_EQ(query({{"ZML_NUM_THREADS", "100000"}, {"ZML_DYNAMIC", "FALSE"}}).all, 100000);
  for (const char* var : {"OMPI_COMM_WORLD_LOCAL_SIZE", "MPI_LOCALNRANKS", "ZML_MPI_PPN"}) {
    a = query({{var, "2"}});
    EXPECT_EQ(a.blas, mpi_share(a, 2)) << var;
  }
  a = query({{"A_MPI_PIN_MAPPING", "4:0 0,1 2,2 4,3 6"}});
  EXPECT_EQ(a.all, mpi_share(a, 4));
  a = query({{"ZML_MPI_PPN", "100000"}});
  EXPECT_EQ(a.all, a.omp_max < a.cores ? a.omp_max : a.cores) << "a share of 0 is ignored";
  // The share applies only without an explicit count, OMP_NUM_THREADS or dynamic off.
  a = query({{"OMPI_COMM_WORLD_LOCAL_SIZE", "2"}, {"OMP_NUM_THREADS", "1000"}});
  EXPECT_EQ(a.all, a.cores);
  a = query({{"OMPI_COMM_WORLD_LOCAL_SIZE", "2"}, {"ZML_NUM_THREADS", "1000"}});
  EXPECT_EQ(a.all, a.cores);
  a = query({{"OMPI_COMM_WORLD_LOCAL_SIZE", "2"}, {"ZML_DYNAMIC", "false"}});
  EXPECT_EQ(a.all, a.omp_max);
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
  int on = 0, off = 0;
  for (const int* flag : {&one, &zero}) {
    zml_set_dynamic(flag);
#pragma omp parallel num_threads(2)
    if (omp_get_thread_num() == 1) (*flag ? on : off) = zml_get_max_threads();
  }
  if (on == 0) GTEST_SKIP() << "the OpenMP runtime did not fork";
  EXPECT_EQ(on, 1);
  EXPECT_EQ(off, 4) << "dynamic off: the setting holds inside regions";
}

TEST_F(ThreadsSlots, SetCallsCheckTheirArguments) {
  const int two = 2, zero = 0, minus = -1, five = 5, three = 3, seven = 7;
  const int blas = ZML_DOMAIN_BLAS, all = ZML_DOMAIN_ALL;
  zml_set_dynamic(&seven);
  EXPECT_EQ(zml_get_dynamic(), 1);
  zml_set_dynamic(&zero);
  EXPECT_EQ(zml_get_dynamic(), 0);
  zml_set_num_threads(&three);
  zml_set_num_threads(&zero);
  zml_set_num_threads(&minus);
  zml_set_num_threads(nullptr);
  EXPECT_EQ(zml_get_max_threads(), 3) << "0, negative and null change nothing";
  EXPECT_EQ(zml_domain_set_num_threads(&two, &blas), 1);
  EXPECT_EQ(zml_domain_set_num_threads(&two, &five), 0);
  EXPECT_EQ(zml_domain_set_num_threads(&two, &minus), 0);
  EXPECT_EQ(zml_domain_set_num_threads(&minus, &blas), 0);
  EXPECT_EQ(max_threads(ZML_DOMAIN_BLAS), 2);
  EXPECT_EQ(zml_domain_set_num_threads(&zero, &blas), 1) << "n = 0 is stored";
  EXPECT_EQ(max_threads(ZML_DOMAIN_BLAS), 3);
  EXPECT_EQ(zml_domain_set_num_threads(&zero, &all), 1);
  EXPECT_EQ(zml_get_max_threads(), omp_get_max_threads());
  zml::serv::set_thread_local_threads(-5);
  for (int d = 0; d <= 7; ++d) EXPECT_GE(max_threads(d), 1) << d;
}

// ---- thread teams ----

TEST(ThreadsTeam, ShareGivesTheFirstRemainderMembersOneMore) {
  for (int64_t n : {0, 1, 7, 100}) {
    for (int32_t team : {1, 2, 3, 8}) {
      int64_t next = 0;
      for (int32_t id = 0; id < team; ++id) {
        const zml::serv::Share s = zml::serv::share(n, team, id);
        EXPECT_EQ(s.begin, next);
        EXPECT_EQ(s.end - s.begin, n / team + (id < n % team ? 1 : 0));
        next = s.end;
      }
      EXPECT_EQ(next, n);
    }
  }
}

TEST(ThreadsTeam, EveryMemberRunsOnceWithinTheCap) {
  const int32_t cap = zml::serv::team_cap();
  EXPECT_LE(cap, omp_get_thread_limit());
  EXPECT_LE(cap, zml::serv::kTeamsPerProcessor * zml::serv::topology_record().logical);
  for (int32_t want : {1, 3, 1 << 30}) {
    std::vector<int> runs(static_cast<size_t>(cap), 0);
    int team = 0;
    zml::serv::run_team(want, [&](int32_t t, int32_t id) {
      ++runs[static_cast<size_t>(id)];  // each member touches only its own entry
      if (id == 0) team = t;
    });
    EXPECT_TRUE(team >= 1 && team <= (want < cap ? want : cap)) << want << " " << team;
    for (int i = 0; i < cap; ++i) EXPECT_EQ(runs[i], i < team ? 1 : 0) << want << " " << i;
  }
}

// Only the first outer thread enters the team, so a body barrier bound to
// the outer team instead of the serialised one would be mismatched.
TEST(ThreadsTeam, NestedTeamRunsSerialisedWithItsOwnBarrier) {
  if (omp_get_max_active_levels() > 1) GTEST_SKIP() << "nested regions may fork here";
  int outer = 0, inner = 0;
#pragma omp parallel num_threads(2)
  {
    if (omp_get_thread_num() == 0) {
      outer = omp_get_num_threads();
      zml::serv::run_team(4, [&](int32_t team, int32_t) {
#pragma omp barrier
        inner = team;
      });
    }
  }
  if (outer < 2) GTEST_SKIP() << "the OpenMP runtime did not fork";
  EXPECT_EQ(inner, 1);
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
