// SPDX-License-Identifier: BSD-3-Clause
// The one parallel region of the library's drivers, and the team cap.
#include "service/threading/team.h"

#include <omp.h>

#include <atomic>

#include "service/threading/threading.h"

namespace zml::serv {

namespace {
// Neither the thread limit nor the processors change during the process: the
// cap is computed once (0 until then; racing first calls store the same value).
std::atomic<int32_t> g_cap{0};
}  // namespace

int32_t team_cap() {
  int32_t cap = g_cap.load(std::memory_order_relaxed);
  if (cap > 0) return cap;
  const int64_t by_processors = int64_t{kMembersPerProcessor} * topology_record().logical;
  const int64_t limit = omp_get_thread_limit();
  const int64_t bound = limit < by_processors ? limit : by_processors;
  cap = bound > 1 ? static_cast<int32_t>(bound) : 1;
  g_cap.store(cap, std::memory_order_relaxed);
  return cap;
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
