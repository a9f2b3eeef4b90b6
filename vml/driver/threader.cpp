// SPDX-License-Identifier: BSD-3-Clause
// The threaders and the cost model of the vector-math functions.
#include "vml/driver/threader.h"

#include <atomic>
#include <cmath>

#include "service/service.h"
#include "service/threading/team.h"
#include "service/threading/threading.h"
#include "vml/api/vml_frame.h"
#include "zml_service.h"

namespace zml::vml {

namespace {

// Below this many elements a region costs more than it saves, whatever the
// function.
constexpr int32_t kSerialBelow = 100;

// Computed once per process; racing first callers store the same value.
std::atomic<float> g_factor{-1.0f};

float factor() {
  float f = g_factor.load(std::memory_order_relaxed);
  if (f < 0.0f) {
    const serv::TopologyRecord& t = serv::topology_record();
    const int32_t g1 = t.logical / t.cores > 0 ? t.logical / t.cores : 1;
    const int32_t g2 = g1 * t.cores_per_package;
    f = cost_factor(g1, g2, t.logical);
    g_factor.store(f, std::memory_order_relaxed);
  }
  return f;
}

// A member's view of an argument: arrays move to the member's first
// element, a scalar stays.
inline const double* at(const double* p, int64_t i) { return p + i; }
inline double* at(double* p, int64_t i) { return p + i; }
inline double at(double s, int64_t) { return s; }

template <class Fn, class... Args>
void threaded(Fn kernel, float cost, int32_t n, Args... args) {
  if (n < kSerialBelow) return kernel(n, args...);
  int32_t threads = serv::team_size(serv::kDomainVml);
  if (threads > 1 && zml_get_dynamic() != 0) threads = model_threads(threads, n, cost);
  if (threads <= 1) return kernel(n, args...);

  const uint32_t mode = current_mode();
  // Plain stores by the failing members: of several, any one may win, which
  // is as good as another since each is a status of this call.
  std::atomic<int32_t> shared{0};
  serv::run_team(threads, [&](int32_t team, int32_t id) {
    const uint32_t own = set_mode(mode);
    set_status(0);
    const serv::Share s = serv::share(n, team, id);
    if (s.end > s.begin) kernel(static_cast<int32_t>(s.end - s.begin), at(args, s.begin)...);
    if (const int32_t st = status(); st != 0) shared.store(st, std::memory_order_relaxed);
    // A worker takes the caller's mode for its share only.
    set_mode(own);
  });
  set_mode(mode);
  set_status(shared.load(std::memory_order_relaxed));
}

}  // namespace

float cost_factor(int32_t g1, int32_t g2, int32_t p) {
  if (p <= 1) return 0.0f;
  // Integer quotients on purpose: the counts describe whole groups.
  const float pm1 = static_cast<float>(p - 1);
  const float fp = static_cast<float>((g1 - 1) * (p / g1)) / pm1;
  const float fq = static_cast<float>((g2 / g1 - 1) * (p / g2)) / pm1;
  const float fr = static_cast<float>(p / g2 - 1) / pm1;
  return 2.0f / (9000.0f * fp + 60000.0f * fq + 500000.0f * fr);
}

int32_t model_threads(int32_t count, int32_t n, float cost) {
  const double want = std::nearbyint(static_cast<double>(n) * cost * factor());
  if (want < 1.0) return 1;
  return want >= count ? count : static_cast<int32_t>(want);
}

}  // namespace zml::vml

void zml_vml_serv_threader_d_1i_1o(zml::vml::unary_fn kernel, float cost, int32_t n,
                                   const double* a, double* y, int32_t) {
  zml::vml::threaded(kernel, cost, n, a, y);
}
void zml_vml_serv_threader_d_2i_1o(zml::vml::binary_fn kernel, float cost, int32_t n,
                                   const double* a, const double* b, double* y, int32_t) {
  zml::vml::threaded(kernel, cost, n, a, b, y);
}
void zml_vml_serv_threader_d_cd_2i_d_1o(zml::vml::scalar_fn kernel, float cost, int32_t n,
                                        const double* a, double b, double* y, int32_t) {
  zml::vml::threaded(kernel, cost, n, a, b, y);
}
