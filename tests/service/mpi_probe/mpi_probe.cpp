// SPDX-License-Identifier: BSD-3-Clause
// Started as several ranks by an MPI launcher: each rank turns dynamic
// adjustment on and reports its thread count, with the launcher's rank.
#include <cstdio>
#include <cstdlib>

#include "service/threading/threading.h"
#include "zml_service.h"

int main() {
  const int one = 1;
  zml_set_dynamic(&one);
  const char* rank = std::getenv("OMPI_COMM_WORLD_RANK");
  std::printf("rank %s threads %d cores %d\n", rank ? rank : "?", zml_get_max_threads(),
              zml::serv::topology_record().cores);
  return 0;
}
