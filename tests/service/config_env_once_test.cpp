// SPDX-License-Identifier: BSD-3-Clause
// The threading variables, read once per process into the setting slots:
// each case runs in a child process with its own environment.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>

#include "service/config/settings.h"
#include "service/service.h"
#include "tests/support/child.h"

namespace {

using zml::serv::g_settings;
using Env = std::map<std::string, std::string>;

// Every variable the threading read looks at, unset, so that the environment
// the tests run in cannot leak into a case; `extra` is laid over it.
Env threading_env(const Env& extra) {
  Env env = {{"ZML_NUM_THREADS", ""},
             {"ZML_NUM_STRIPES", ""},
             {"ZML_DOMAIN_NUM_THREADS", ""},
             {"ZML_DYNAMIC", ""},
             {"OMP_NUM_THREADS", ""},
             {"ZML_MPI_PPN", ""},
             {"A_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", ""},
             {"A_MPI_PIN_MAPPING", ""},
             {"OMPI_COMM_WORLD_LOCAL_SIZE", ""},
             {"MPI_LOCALNRANKS", ""}};
  for (const auto& [k, v] : extra) env[k] = v;
  return env;
}

void set_env(const char* name, const char* value) {
#ifdef _WIN32
  _putenv_s(name, value);
#else
  setenv(name, value, 1);
#endif
}

void emit_slots() {
  using zml::test::emit;
  emit("num_threads", g_settings.num_threads.load());
  emit("num_stripes", g_settings.num_stripes.load());
  emit("blas", g_settings.domain_threads_blas.load());
  emit("fft", g_settings.domain_threads_fft.load());
  emit("vml", g_settings.domain_threads_vml.load());
  emit("dirsol", g_settings.domain_threads_dirsol.load());
  emit("dynamic", g_settings.dynamic.load());
  emit("omp", g_settings.omp_num_threads.load());
  emit("mpi", g_settings.mpi_ranks_per_node.load());
}

zml::test::ChildResult read_with(const Env& extra) {
  return zml::test::run_child("ConfigEnvOnce.DISABLED_ChildReadsOnce", threading_env(extra));
}

}  // namespace

// ---- child bodies ----

TEST(ConfigEnvOnce, DISABLED_ChildReadsOnce) {
  zml::serv::ensure_threading_env();
  emit_slots();
}

TEST(ConfigEnvOnce, DISABLED_ChildStripesOnFirstNeed) {
  zml::test::emit("stripes", zml::serv::num_stripes());
}

TEST(ConfigEnvOnce, DISABLED_ChildServiceCallWins) {
  // What zml_set_num_threads and zml_set_dynamic do before the first read.
  g_settings.num_threads.store(9);
  g_settings.dynamic.store(0);
  zml::serv::ensure_threading_env();
  emit_slots();
}

TEST(ConfigEnvOnce, DISABLED_ChildReadAgain) {
  zml::serv::ensure_threading_env();
  set_env("ZML_NUM_THREADS", "7");
  set_env("OMP_NUM_THREADS", "5");
  set_env("ZML_MPI_PPN", "8");
  zml::serv::ensure_threading_env();  // already done: no effect
  zml::test::emit("omp_after_ensure", g_settings.omp_num_threads.load());
  zml::serv::read_threading_env();  // a second read refreshes OMP_NUM_THREADS only
  emit_slots();
}

// ---- parents ----

TEST(ConfigEnvOnce, NothingSetLeavesSlotsUnsetDynamicOnAndRanksUnknown) {
  auto r = read_with({});
  ASSERT_EQ(r.exit_code, 0) << r.out;
  for (const char* slot : {"num_threads", "num_stripes", "blas", "fft", "vml", "dirsol", "omp"}) {
    EXPECT_EQ(r.value(slot), "-1") << slot;
  }
  EXPECT_EQ(r.value("dynamic"), "1");
  EXPECT_EQ(r.value("mpi"), "-1");
}

TEST(ConfigEnvOnce, NumThreadsMalformedMeansOneAndZeroLeavesUnset) {
  EXPECT_EQ(read_with({{"ZML_NUM_THREADS", "6"}}).value("num_threads"), "6");
  EXPECT_EQ(read_with({{"ZML_NUM_THREADS", "4x"}}).value("num_threads"), "1");
  EXPECT_EQ(read_with({{"ZML_NUM_THREADS", "0"}}).value("num_threads"), "-1");
  // Longer than the 256-byte buffer: not set at all.
  EXPECT_EQ(read_with({{"ZML_NUM_THREADS", std::string(300, '4')}}).value("num_threads"), "-1");
}

TEST(ConfigEnvOnce, NumStripesDigitsOnly) {
  EXPECT_EQ(read_with({{"ZML_NUM_STRIPES", "7"}}).value("num_stripes"), "7");
  EXPECT_EQ(read_with({{"ZML_NUM_STRIPES", "0"}}).value("num_stripes"), "0");
  EXPECT_EQ(read_with({{"ZML_NUM_STRIPES", "7a"}}).value("num_stripes"), "-1");
}

TEST(ConfigEnvOnce, NumStripesReadsTheVariablesOnFirstNeed) {
  auto r = zml::test::run_child("ConfigEnvOnce.DISABLED_ChildStripesOnFirstNeed",
                                threading_env({{"ZML_NUM_STRIPES", "3"}}));
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(r.value("stripes"), "3");
}

TEST(ConfigEnvOnce, DomainListFillsDomainSlots) {
  auto r = read_with(
      {{"ZML_DOMAIN_NUM_THREADS", "ZML_DOMAIN_BLAS=2, ZML_DOMAIN_FFT 3;ZML_DOMAIN_BLAS=5"}});
  EXPECT_EQ(r.value("blas"), "2");
  EXPECT_EQ(r.value("fft"), "3");
  EXPECT_EQ(r.value("vml"), "-1");
  EXPECT_EQ(r.value("dirsol"), "-1");
  EXPECT_EQ(r.value("num_threads"), "-1");
}

TEST(ConfigEnvOnce, ValidNumThreadsWinsOverDomainAll) {
  const std::string all = "ZML_DOMAIN_ALL=5 ZML_DOMAIN_VML=2";
  auto r = read_with({{"ZML_NUM_THREADS", "3"}, {"ZML_DOMAIN_NUM_THREADS", all}});
  EXPECT_EQ(r.value("num_threads"), "3");
  EXPECT_EQ(r.value("vml"), "2");
  EXPECT_EQ(read_with({{"ZML_DOMAIN_NUM_THREADS", all}}).value("num_threads"), "5");
  EXPECT_EQ(
      read_with({{"ZML_NUM_THREADS", "0"}, {"ZML_DOMAIN_NUM_THREADS", all}}).value("num_threads"),
      "5");
}

TEST(ConfigEnvOnce, DynamicWords) {
  EXPECT_EQ(read_with({{"ZML_DYNAMIC", "false"}}).value("dynamic"), "0");
  EXPECT_EQ(read_with({{"ZML_DYNAMIC", "'FALSE'"}}).value("dynamic"), "0");
  EXPECT_EQ(read_with({{"ZML_DYNAMIC", "False"}}).value("dynamic"), "1");
  EXPECT_EQ(read_with({{"ZML_DYNAMIC", "0"}}).value("dynamic"), "1");
}

TEST(ConfigEnvOnce, OmpNumThreads) {
  EXPECT_EQ(read_with({{"OMP_NUM_THREADS", "3"}}).value("omp"), "3");
  EXPECT_EQ(read_with({{"OMP_NUM_THREADS", "4,2"}}).value("omp"), "1");
  EXPECT_EQ(read_with({{"OMP_NUM_THREADS", "0"}}).value("omp"), "-1");
}

TEST(ConfigEnvOnce, ServiceCallsMadeBeforeTheReadWin) {
  auto r = zml::test::run_child("ConfigEnvOnce.DISABLED_ChildServiceCallWins",
                                threading_env({{"ZML_NUM_THREADS", "4"},
                                               {"ZML_DYNAMIC", "true"},
                                               {"ZML_DOMAIN_NUM_THREADS", "ZML_DOMAIN_ALL=6"}}));
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(r.value("num_threads"), "9");
  EXPECT_EQ(r.value("dynamic"), "0");
}

TEST(ConfigEnvOnce, LaterReadsRefreshOnlyOmpNumThreads) {
  auto r = zml::test::run_child(
      "ConfigEnvOnce.DISABLED_ChildReadAgain",
      threading_env({{"ZML_NUM_THREADS", "2"}, {"OMP_NUM_THREADS", "3"}, {"ZML_MPI_PPN", "4"}}));
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(r.value("omp_after_ensure"), "3") << "ensure_threading_env reads only once";
  EXPECT_EQ(r.value("omp"), "5");
  EXPECT_EQ(r.value("num_threads"), "2");
  EXPECT_EQ(r.value("mpi"), "4");
}

TEST(ConfigEnvOnce, MpiRanksFromTheFirstUsableVariable) {
  EXPECT_EQ(read_with({{"ZML_MPI_PPN", "4"}, {"MPI_LOCALNRANKS", "6"}}).value("mpi"), "4");
  EXPECT_EQ(read_with({{"A_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", "5"},
                       {"OMPI_COMM_WORLD_LOCAL_SIZE", "2"}})
                .value("mpi"),
            "5");
  EXPECT_EQ(read_with({{"A_MPI_PIN_MAPPING", "3:0,1,2"}}).value("mpi"), "3");
  EXPECT_EQ(read_with({{"MPI_LOCALNRANKS", "6"}}).value("mpi"), "6");
}

TEST(ConfigEnvOnce, MpiRanksSkipZeroAndMalformedValues) {
  EXPECT_EQ(read_with({{"ZML_MPI_PPN", "0"}, {"OMPI_COMM_WORLD_LOCAL_SIZE", "2"}}).value("mpi"),
            "2");
  EXPECT_EQ(read_with({{"ZML_MPI_PPN", "x"}, {"A_MPI_PIN_MAPPING", "3"}, {"MPI_LOCALNRANKS", "6"}})
                .value("mpi"),
            "6");
  EXPECT_EQ(read_with({{"ZML_MPI_PPN", "-4"}}).value("mpi"), "-1");
}
