// SPDX-License-Identifier: BSD-3-Clause
// The one parallel region of the library's drivers, and the team cap.
#include "service/threading/team.h"

#include <omp.h>

#include "service/threading/threading.h"

namespace zml::serv {

int32_t team_cap() {
  const int64_t by_processors = int64_t{kTeamsPerProcessor} * topology_record().logical;
  const int64_t limit = omp_get_thread_limit();
  const int64_t cap = limit < by_processors ? limit : by_processors;
  return cap > 1 ? static_cast<int32_t>(cap) : 1;
}

int32_t team_size(Domain domain) {
  const int32_t want = zml_serv_domain_get_max_threads(domain);
  if (want <= 1) return 1;
  const int32_t cap = team_cap();
  return want < cap ? want : cap;
}

namespace detail {

void run_team(int32_t threads, TeamBody call, void* body) {
  int32_t want = threads;
  if (want > 1) {
    const int32_t cap = team_cap();
    if (want > cap) want = cap;
  }
  // One member outside any active region needs no region at all. Inside an
  // active region a serialised region is still opened: a barrier in the body
  // must bind to this one-member team, not to the enclosing one.
  if (want <= 1 && omp_get_active_level() == 0) {
    call(body, 1, 0);
    return;
  }
#pragma omp parallel num_threads(want > 1 ? want : 1)
  call(body, omp_get_num_threads(), omp_get_thread_num());
}

}  // namespace detail

}  // namespace zml::serv
