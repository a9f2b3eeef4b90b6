// SPDX-License-Identifier: BSD-3-Clause
// How many threads a driver may use: the per-thread count, then the domain and
// general settings, then the OpenMP maximum, trimmed by the dynamic rules
// (cores, MPI processes sharing the node).
#include <omp.h>

#include <atomic>
#include <new>

#include "service/config/settings.h"
#include "service/lock.h"
#include "service/platform/platform.h"
#include "service/service.h"
#include "service/threading/threading.h"

namespace zml::serv {

namespace {

// The per-thread count lives in a small cell owned by the thread-local slot;
// the slot's clean-up routine frees it when the thread ends.
platform::TlsKey g_count_key;
std::atomic<bool> g_count_key_made{false};

TopologyRecord g_topology;
std::atomic<bool> g_topology_read{false};

void free_count_cell(void* cell) { delete static_cast<int32_t*>(cell); }

bool make_count_key() {
  if (g_count_key_made.load(std::memory_order_acquire)) return true;
  LockGuard guard(g_threading_lock);
  if (!g_count_key_made.load(std::memory_order_relaxed)) {
    if (!platform::tls_create(&g_count_key, free_count_cell)) return false;
    g_count_key_made.store(true, std::memory_order_release);
  }
  return true;
}

void read_topology_once() {
  if (g_topology_read.load(std::memory_order_acquire)) return;
  LockGuard guard(g_threading_lock);
  if (g_topology_read.load(std::memory_order_relaxed)) return;
  const platform::Topology t = platform::topology();
  g_topology.logical = t.logical > 0 ? t.logical : 1;
  g_topology.cores = t.cores > 0 ? t.cores : 1;
  g_topology.packages = t.packages > 0 ? t.packages : 1;
  g_topology.cores_per_package = g_topology.cores / g_topology.packages;
  if (g_topology.cores_per_package < 1) g_topology.cores_per_package = 1;
  g_topology.logical_differs = g_topology.logical != g_topology.cores ? 1 : 0;
  g_topology_read.store(true, std::memory_order_release);
}

int32_t load(const std::atomic<int32_t>& slot) { return slot.load(std::memory_order_relaxed); }

}  // namespace

const TopologyRecord& topology_record() {
  read_topology_once();
  return g_topology;
}

int32_t topology_answer() { return topology_record().logical_differs; }

int32_t thread_local_threads() {
  if (!g_count_key_made.load(std::memory_order_acquire)) return 0;
  const auto* cell = static_cast<const int32_t*>(platform::tls_get(g_count_key));
  return cell ? *cell : 0;
}

void set_thread_local_threads(int32_t n) {
  if (!make_count_key()) return;
  auto* cell = static_cast<int32_t*>(platform::tls_get(g_count_key));
  if (n <= 0) {
    if (cell) {
      platform::tls_set(g_count_key, nullptr);
      free_count_cell(cell);
    }
    return;
  }
  if (!cell) {
    cell = new (std::nothrow) int32_t(0);
    if (!cell) return;
    platform::tls_set(g_count_key, cell);
  }
  *cell = n;
}

}  // namespace zml::serv

int32_t zml_serv_domain_get_max_threads(int32_t domain) {
  using namespace zml::serv;
  make_count_key();
  if (const int32_t own = thread_local_threads(); own > 0) return own;

  // Both are test, lock, test-again on the threading lock, cheap once done.
  ensure_threading_env();
  read_topology_once();

  const bool dynamic = load(g_settings.dynamic) != 0;
  if (dynamic && omp_get_active_level() > 0) return 1;

  // A domain slot of 0 or below falls back to the general setting.
  int32_t count = domain >= kDomainBlas && domain <= kDomainDirsol ? load(domain_slot(domain)) : 0;
  if (count <= 0) count = load(g_settings.num_threads);
  const bool explicit_setting = count > 0;
  if (!explicit_setting) count = omp_get_max_threads();

  if (dynamic) {
    const int32_t cores = g_topology.cores;
    if (count > cores) count = cores;
    // Processes sharing the node share its cores, unless the user chose.
    const int32_t ranks = load(g_settings.mpi_ranks_per_node);
    if (!explicit_setting && load(g_settings.omp_num_threads) <= 0 && ranks > 0) {
      const int32_t share = cores / ranks;
      if (share > 0 && share < count) count = share;
    }
  }
  return count > 0 ? count : 1;
}
