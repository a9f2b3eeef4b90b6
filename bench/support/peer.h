// SPDX-License-Identifier: BSD-3-Clause
// Loading a peer library at run time for side-by-side timing, and the timing
// helpers every benchmark shares (median of repeats after a warm-up).
#pragma once

#include <functional>
#include <initializer_list>
#include <string>

namespace zml::bench {

// dlopen the first of `names` that loads; null when none is installed.
void* load_peer(std::initializer_list<const char*> names, std::string* which = nullptr);
void* peer_symbol(void* lib, const char* name);

// Median wall time in seconds of `repeats` runs of fn after one warm-up run.
double median_seconds(const std::function<void()>& fn, int repeats = 5);

// Medians of ours and theirs timed in alternation (one sample of each in
// turn, after one warm-up run of each), so that a clock that drifts during
// the run, as on a shared virtual machine, moves both figures alike. theirs
// may be empty: its median is then 0.
struct PairedSeconds {
  double ours, theirs;
};
PairedSeconds paired_median_seconds(const std::function<void()>& ours,
                                    const std::function<void()>& theirs, int repeats = 5);

// The BLAS peer, loaded with its own processor detection (the tuning
// variables a user may have set are cleared) and held to one thread until a
// benchmark asks for more.
struct BlasPeer {
  void* lib = nullptr;
  std::string name;  // the library that loaded
  void (*set_threads)(int) = nullptr;
  void* symbol(const char* sym) const { return peer_symbol(lib, sym); }
  void threads(int n) const {
    if (set_threads) set_threads(n);
  }
};
BlasPeer load_blas_peer();
// Clears the user's tuning variables for the BLAS peer and, when the peer
// would not recognise this processor, names its best kernels for it; returns
// the kernel family the peer will use. Call before the peer is loaded.
std::string prepare_blas_peer(const char* lib_name);

// Calls per timed sample, so that a sample of `flops` work does at least
// `min_flops` and lasts long enough for the clock.
int batch_for(double flops, double min_flops);

// Prints the common header: code path, threads, commit.
void print_header(const char* title);

}  // namespace zml::bench
