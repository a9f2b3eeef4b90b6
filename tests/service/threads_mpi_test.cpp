// SPDX-License-Identifier: BSD-3-Clause
// Under a real MPI launcher with two ranks on this node and dynamic adjustment
// on, each rank gets half the cores (at least one).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>

#include "service/threading/threading.h"

namespace {

#ifndef _WIN32
bool have_mpirun() { return std::system("command -v mpirun > /dev/null 2>&1") == 0; }

std::string run(const std::string& command) {
  std::string out;
  FILE* f = popen(command.c_str(), "r");
  if (!f) return out;
  char buf[512];
  while (std::fgets(buf, sizeof buf, f)) out += buf;
  pclose(f);
  return out;
}
#endif

TEST(ThreadsMpi, TwoRanksShareTheCores) {
#ifdef _WIN32
  GTEST_SKIP() << "no MPI launcher on this platform";
#else
  if (!have_mpirun()) GTEST_SKIP() << "mpirun is not installed";
  // Binding would give each rank one core; the rule under test needs the
  // whole node visible to both ranks.
  const std::string command =
      "env -u OMP_NUM_THREADS -u ZML_NUM_THREADS -u ZML_DOMAIN_NUM_THREADS -u ZML_DYNAMIC "
      "-u ZML_MPI_PPN -u MPI_LOCALNRANKS -u A_MPI_PIN_MAPPING "
      "-u A_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE "
      "mpirun -np 2 --oversubscribe --allow-run-as-root --bind-to none " ZML_MPI_PROBE " 2>&1";
  const std::string out = run(command);
  const int cores = zml::serv::topology_record().cores;
  const int expected = cores / 2 > 0 ? cores / 2 : 1;
  std::istringstream lines(out);
  std::string word, rank;
  int threads = 0, rank_cores = 0;
  std::set<std::string> ranks;
  while (lines >> word) {
    if (word != "rank") continue;
    lines >> rank >> word >> threads >> word >> rank_cores;
    ranks.insert(rank);
    EXPECT_EQ(rank_cores, cores) << "rank " << rank << " sees another node";
    EXPECT_EQ(threads, expected) << "rank " << rank << "\n" << out;
  }
  EXPECT_EQ(ranks, (std::set<std::string>{"0", "1"})) << out;
#endif
}

}  // namespace
