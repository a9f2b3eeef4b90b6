// SPDX-License-Identifier: BSD-3-Clause
// Thread teams for the drivers of every family: the team size of a domain,
// the cap that keeps any setting within what the OpenMP runtime can start,
// the parallel region itself, and a member's share of a range.
#pragma once

#include <cstdint>
#include <type_traits>
#include <utility>

#include "service/service.h"

namespace zml::serv {

// The largest team a region asks for: the runtime's thread limit, and
// kMembersPerProcessor members per logical processor this process may use.
// Four leaves room for teams larger than the machine (the tests split work 3
// or 7 ways on two processors, as a larger machine would) while staying far
// below the counts at which the runtime cannot create its threads and ends
// the process (a setting of 100000 did); beyond a few members per processor
// a team only adds context switches.
inline constexpr int32_t kMembersPerProcessor = 4;
int32_t team_cap();

// The domain's thread count (zml_serv_domain_get_max_threads), capped.
int32_t team_size(Domain domain);

// Member `id`'s part of [0, n) in a team of `team`: q = n / team elements
// each, and the first n % team members one more, in member order.
struct Share {
  int64_t begin;
  int64_t end;
};
inline Share share(int64_t n, int32_t team, int32_t id) {
  if (team <= 1) return {0, n};
  const int64_t q = n / team, r = n % team;
  const int64_t begin = id * q + (id < r ? id : r);
  return {begin, begin + q + (id < r ? 1 : 0)};
}

namespace detail {
using TeamBody = void (*)(void* body, int32_t team, int32_t id);
void run_team(int32_t threads, TeamBody call, void* body);
}  // namespace detail

// Runs body(team, id) on every member of a team of at most `threads` (capped
// by team_cap()); `team` is the number of members the runtime started, so a
// body that splits by it covers all of the work whatever the runtime grants.
// Where the runtime refuses to fork (a nested region, dynamic adjustment) the
// body runs serialised in the calling thread as body(1, 0). Bodies may use a
// team barrier.
template <class Body>
void run_team(int32_t threads, Body&& body) {
  using B = std::remove_reference_t<Body>;
  detail::run_team(
      threads, [](void* b, int32_t team, int32_t id) { (*static_cast<B*>(b))(team, id); },
      const_cast<void*>(static_cast<const void*>(&body)));
}

// The same with the team size of `domain`.
template <class Body>
void run_team(Domain domain, Body&& body) {
  run_team(team_size(domain), std::forward<Body>(body));
}

}  // namespace zml::serv
