// SPDX-License-Identifier: BSD-3-Clause
// The process-wide setting slots and the one reading of the threading
// variables that fills them.
#include "service/config/settings.h"

#include "service/config/env_parse.h"
#include "service/lock.h"
#include "service/service.h"

namespace zml::serv {

Settings g_settings;

std::atomic<int32_t>& domain_slot(int32_t domain) {
  switch (domain) {
    case kDomainBlas:
      return g_settings.domain_threads_blas;
    case kDomainFft:
      return g_settings.domain_threads_fft;
    case kDomainVml:
      return g_settings.domain_threads_vml;
    case kDomainDirsol:
      return g_settings.domain_threads_dirsol;
    default:
      return g_settings.num_threads;
  }
}

namespace {

constexpr int32_t kThreadingBufferSize = 256;

// Set once read_threading_env() has run, for ensure_threading_env().
std::atomic<bool> g_threading_env_read{false};

// The MPI launchers' processes-per-node variables, in the order they are tried.
struct MpiVariable {
  const char* name;
  bool colon_ends;  // the number is followed by ':' (a pinning map)
};
constexpr MpiVariable kMpiVariables[] = {
    {"ZML_MPI_PPN", false},      {"A_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", false},
    {"A_MPI_PIN_MAPPING", true}, {"OMPI_COMM_WORLD_LOCAL_SIZE", false},
    {"MPI_LOCALNRANKS", false},
};

// Stores v only while the slot is unset, so a service call made earlier wins.
void fill_if_unset(std::atomic<int32_t>& slot, int32_t v) {
  int32_t unset = -1;
  slot.compare_exchange_strong(unset, v, std::memory_order_relaxed);
}

// Reads `name` into buf; true when it is set and not empty.
bool read_var(const char* name, char (&buf)[kThreadingBufferSize]) {
  return zml_serv_getenv(name, buf, kThreadingBufferSize) > 0;
}

int32_t mpi_ranks_from_env() {
  char buf[kThreadingBufferSize];
  for (const MpiVariable& var : kMpiVariables) {
    if (!read_var(var.name, buf)) continue;
    const int32_t n = env::parse_ranks(buf, var.colon_ends);
    if (n > 0) return n;
  }
  return -1;
}

}  // namespace

void read_threading_env() {
  char buf[kThreadingBufferSize];
  int32_t n = 0;

  // A malformed count means one thread, not the default: a typo must not
  // spread the host over every core unnoticed.
  if (read_var("ZML_NUM_THREADS", buf) && (n = env::thread_count(buf)) > 0) {
    fill_if_unset(g_settings.num_threads, n);
  }

  if (read_var("ZML_NUM_STRIPES", buf) && env::parse_digits(buf, &n)) {
    fill_if_unset(g_settings.num_stripes, n);
  }

  if (read_var("ZML_DOMAIN_NUM_THREADS", buf)) {
    const auto values = env::parse_domain_list(buf);
    for (int32_t d = kDomainAll; d <= kDomainDirsol; ++d) {
      if (values[d] >= 1) fill_if_unset(domain_slot(d), values[d]);
    }
  }

  if (g_settings.dynamic.load(std::memory_order_relaxed) == -1) {
    fill_if_unset(g_settings.dynamic, read_var("ZML_DYNAMIC", buf) ? env::parse_dynamic(buf) : 1);
  }

  if (read_var("OMP_NUM_THREADS", buf) && (n = env::thread_count(buf)) > 0) {
    g_settings.omp_num_threads.store(n, std::memory_order_relaxed);
  }

  if (g_settings.mpi_ranks_per_node.load(std::memory_order_relaxed) == 0) {
    int32_t unknown = 0;
    g_settings.mpi_ranks_per_node.compare_exchange_strong(unknown, mpi_ranks_from_env(),
                                                          std::memory_order_relaxed);
  }

  g_threading_env_read.store(true, std::memory_order_release);
}

void ensure_threading_env() {
  if (g_threading_env_read.load(std::memory_order_acquire)) return;
  LockGuard guard(g_threading_lock);
  if (!g_threading_env_read.load(std::memory_order_acquire)) read_threading_env();
}

int32_t num_stripes() {
  ensure_threading_env();
  return g_settings.num_stripes.load(std::memory_order_relaxed);
}

}  // namespace zml::serv
