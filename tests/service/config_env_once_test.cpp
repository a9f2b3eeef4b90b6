// SPDX-License-Identifier: BSD-3-Clause
// The threading variables, read once per process into the setting slots:
// each case runs in a child process with its own environment.
#include <gtest/gtest.h>

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

}  // namespace

// The first need of the stripe count reads every variable.
TEST(ConfigEnvOnce, DISABLED_ChildReadsOnce) {
  zml::test::emit("stripes", zml::serv::num_stripes());
  emit_slots();
}

// What zml_set_num_threads and zml_set_dynamic do before the first read, then
// the variables changed and read again.
TEST(ConfigEnvOnce, DISABLED_ChildServiceCallsAndLaterReads) {
  g_settings.num_threads.store(9);
  g_settings.dynamic.store(0);
  zml::serv::ensure_threading_env();
  zml::test::set_env("ZML_NUM_THREADS", "7");
  zml::test::set_env("OMP_NUM_THREADS", "5");
  zml::test::set_env("ZML_MPI_PPN", "8");
  zml::serv::ensure_threading_env();  // already done: no effect
  zml::test::emit("omp_after_ensure", g_settings.omp_num_threads.load());
  zml::serv::read_threading_env();  // a second read refreshes OMP_NUM_THREADS only
  emit_slots();
}

TEST(ConfigEnvOnce, EachVariableReachesItsSlot) {
  const std::string all = "ZML_DOMAIN_ALL=5 ZML_DOMAIN_VML=2";
  const struct {
    Env env;
    const char* expect;
  } cases[] = {
      {{},
       "num_threads=-1 num_stripes=-1 stripes=-1 blas=-1 fft=-1 vml=-1 dirsol=-1 omp=-1 "
       "dynamic=1 mpi=-1"},
      {{{"ZML_NUM_THREADS", "6"}}, "num_threads=6"},
      // Longer than the reader's 256-byte buffer: not set at all.
      {{{"ZML_NUM_THREADS", std::string(300, '4')}}, "num_threads=-1"},
      {{{"ZML_NUM_STRIPES", "3"}}, "num_stripes=3 stripes=3"},
      {{{"ZML_NUM_STRIPES", "0"}}, "num_stripes=0"},
      {{{"ZML_DOMAIN_NUM_THREADS", "ZML_DOMAIN_BLAS=2, ZML_DOMAIN_FFT 3;ZML_DOMAIN_BLAS=5"}},
       "blas=2 fft=3 vml=-1 dirsol=-1 num_threads=-1"},
      // A valid ZML_NUM_THREADS wins over ZML_DOMAIN_ALL; zero is not valid.
      {{{"ZML_NUM_THREADS", "3"}, {"ZML_DOMAIN_NUM_THREADS", all}}, "num_threads=3 vml=2"},
      {{{"ZML_NUM_THREADS", "0"}, {"ZML_DOMAIN_NUM_THREADS", all}}, "num_threads=5"},
      {{{"ZML_DYNAMIC", "false"}}, "dynamic=0"},
      {{{"OMP_NUM_THREADS", "3"}}, "omp=3"},
      {{{"OMP_NUM_THREADS", "0"}}, "omp=-1"},
      // MPI ranks: the first variable, in the launchers' order, that gives at least 1.
      {{{"ZML_MPI_PPN", "4"}, {"MPI_LOCALNRANKS", "6"}}, "mpi=4"},
      {{{"A_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", "5"}, {"OMPI_COMM_WORLD_LOCAL_SIZE", "2"}},
       "mpi=5"},
      {{{"A_MPI_PIN_MAPPING", "3:0,1,2"}}, "mpi=3"},
      {{{"ZML_MPI_PPN", "0"}, {"OMPI_COMM_WORLD_LOCAL_SIZE", "2"}}, "mpi=2"},
      {{{"ZML_MPI_PPN", "x"}, {"A_MPI_PIN_MAPPING", "3"}, {"MPI_LOCALNRANKS", "6"}}, "mpi=6"},
      {{{"ZML_MPI_PPN", "-4"}}, "mpi=-1"},
  };
  for (const auto& c : cases) {
    std::string what;
    for (const auto& [k, v] : c.env) what += k + "=\"" + v.substr(0, 40) + "\" ";
    const auto r =
        zml::test::run_child("ConfigEnvOnce.DISABLED_ChildReadsOnce", threading_env(c.env));
    ASSERT_EQ(r.exit_code, 0) << r.out;
    EXPECT_EQ(r.mismatches(c.expect), "") << what;
  }
}

TEST(ConfigEnvOnce, ServiceCallsWinAndLaterReadsRefreshOnlyOmpNumThreads) {
  auto r = zml::test::run_child("ConfigEnvOnce.DISABLED_ChildServiceCallsAndLaterReads",
                                threading_env({{"ZML_NUM_THREADS", "4"},
                                               {"ZML_DYNAMIC", "true"},
                                               {"ZML_DOMAIN_NUM_THREADS", "ZML_DOMAIN_ALL=6"},
                                               {"OMP_NUM_THREADS", "3"},
                                               {"ZML_MPI_PPN", "4"}}));
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(r.mismatches("num_threads=9 dynamic=0 omp_after_ensure=3 omp=5 mpi=4"), "");
}
