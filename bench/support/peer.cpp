// SPDX-License-Identifier: BSD-3-Clause
#include "bench/support/peer.h"

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "service/service.h"

namespace zml::bench {

void* load_peer(std::initializer_list<const char*> names, std::string* which) {
  for (const char* n : names) {
    if (void* h = dlopen(n, RTLD_NOW | RTLD_LOCAL)) {
      if (which) *which = n;
      return h;
    }
  }
  return nullptr;
}

void* peer_symbol(void* lib, const char* name) { return lib ? dlsym(lib, name) : nullptr; }

namespace {

// The kernel family the peer picks for this processor, asked in a child
// process: the peer chooses once, at load time, so the benchmark process must
// not load it before the choice is settled.
std::string peer_core_name(const char* lib_name) {
  int fd[2];
  if (pipe(fd) != 0) return "";
  const pid_t pid = fork();
  if (pid == 0) {
    close(fd[0]);
    std::string name = "?";
    if (void* h = dlopen(lib_name, RTLD_NOW | RTLD_LOCAL)) {
      if (auto f = reinterpret_cast<const char* (*)()>(dlsym(h, "openblas_get_corename"))) {
        name = f();
      }
    }
    const ssize_t w = write(fd[1], name.data(), name.size());
    _exit(w < 0 ? 1 : 0);
  }
  close(fd[1]);
  char buf[64] = {};
  const ssize_t got = pid > 0 ? read(fd[0], buf, sizeof buf - 1) : -1;
  close(fd[0]);
  if (pid > 0) waitpid(pid, nullptr, 0);
  return got > 0 ? std::string(buf, size_t(got)) : "";
}

}  // namespace

std::string prepare_blas_peer(const char* lib_name) {
  // The tuning variables a user may have set are cleared: the peer runs with
  // its own choices. A release of the peer that does not know this processor
  // falls back to its oldest generic kernels, which would make any ratio
  // meaningless; it then gets its strongest family the processor can run.
  unsetenv("OPENBLAS_CORETYPE");
  unsetenv("OPENBLAS_L2_SIZE");
  std::string core = peer_core_name(lib_name);
  if (core == "Prescott") {
    const char* best = __builtin_cpu_supports("avx512f") ? "SkylakeX"
                       : __builtin_cpu_supports("avx2")  ? "Haswell"
                                                         : nullptr;
    if (best) {
      setenv("OPENBLAS_CORETYPE", best, 1);
      core = std::string(best) + " (forced: the peer does not recognise this processor)";
    }
  }
  return core;
}

BlasPeer load_blas_peer() {
  const std::string core = prepare_blas_peer("libopenblas.so.0");
  BlasPeer peer;
  peer.lib = load_peer({"libopenblas.so.0"}, &peer.name);
  if (peer.lib) peer.name += ", kernels " + core;
  peer.set_threads = reinterpret_cast<void (*)(int)>(peer.symbol("openblas_set_num_threads"));
  peer.threads(1);
  return peer;
}

int batch_for(double flops, double min_flops) {
  return flops < min_flops ? static_cast<int>(min_flops / flops) + 1 : 1;
}

double median_seconds(const std::function<void()>& fn, int repeats) {
  return paired_median_seconds(fn, nullptr, repeats).ours;
}

namespace {

double seconds_of(const std::function<void()>& fn) {
  const auto a = std::chrono::steady_clock::now();
  fn();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - a).count();
}

double median_of(std::vector<double> t) {
  std::sort(t.begin(), t.end());
  return t[t.size() / 2];
}

}  // namespace

PairedSeconds paired_median_seconds(const std::function<void()>& ours,
                                    const std::function<void()>& theirs, int repeats) {
  ours();
  if (theirs) theirs();
  std::vector<double> t_ours, t_theirs;
  for (int i = 0; i < repeats; ++i) {
    t_ours.push_back(seconds_of(ours));
    if (theirs) t_theirs.push_back(seconds_of(theirs));
  }
  return {median_of(t_ours), theirs ? median_of(t_theirs) : 0.0};
}

void print_header(const char* title) {
#ifdef ZML_COMMIT
  const char* commit = ZML_COMMIT;
#else
  const char* commit = "unknown";
#endif
  std::printf("== %s ==\ncode path %d, BLAS threads %d, commit %s\n", title,
              zml_serv_get_code_path(), zml_serv_domain_get_max_threads(1), commit);
}

}  // namespace zml::bench
