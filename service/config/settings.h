// SPDX-License-Identifier: BSD-3-Clause
// Process-wide setting slots. Each holds -1 while unset (mpi_ranks_per_node: 0
// until looked at, -1 when unknown). They are plain 32-bit values written
// without locks; atomics with relaxed order make that explicit, a reader sees
// either the old or the new value.
#pragma once

#include <atomic>
#include <cstdint>

namespace zml::serv {

struct Settings {
  std::atomic<int32_t> num_threads{-1};
  std::atomic<int32_t> num_stripes{-1};
  std::atomic<int32_t> domain_threads_blas{-1};
  std::atomic<int32_t> domain_threads_fft{-1};
  std::atomic<int32_t> domain_threads_vml{-1};
  std::atomic<int32_t> domain_threads_dirsol{-1};
  std::atomic<int32_t> dynamic{-1};
  std::atomic<int32_t> omp_num_threads{-1};
  std::atomic<int32_t> mpi_ranks_per_node{0};
  std::atomic<int32_t> verbose_mode{-1};
};

extern Settings g_settings;

// The slot of a domain 1..4 (BLAS, FFT, VML, DIRSOL); domain 0 is num_threads.
std::atomic<int32_t>& domain_slot(int32_t domain);

// Reads the threading variables in their fixed order (ZML_NUM_THREADS,
// ZML_NUM_STRIPES, ZML_DOMAIN_NUM_THREADS, ZML_DYNAMIC, OMP_NUM_THREADS, the
// MPI processes per node), filling only the slots that are still unset
// (OMP_NUM_THREADS is refreshed every time). The threading control calls this
// once per process under its lock.
void read_threading_env();

// Makes sure read_threading_env() has run once in this process: test, take
// g_threading_lock, test again. Cheap once done. Must not be called while
// holding g_threading_lock (the lock word is not recursive).
void ensure_threading_env();

}  // namespace zml::serv
