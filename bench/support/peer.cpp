// SPDX-License-Identifier: BSD-3-Clause
#include "bench/support/peer.h"

#include <dlfcn.h>

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

BlasPeer load_blas_peer() {
  unsetenv("OPENBLAS_CORETYPE");
  unsetenv("OPENBLAS_L2_SIZE");
  BlasPeer peer;
  peer.lib = load_peer({"libopenblas.so.0"}, &peer.name);
  peer.set_threads = reinterpret_cast<void (*)(int)>(peer.symbol("openblas_set_num_threads"));
  peer.threads(1);
  return peer;
}

int batch_for(double flops, double min_flops) {
  return flops < min_flops ? static_cast<int>(min_flops / flops) + 1 : 1;
}

double median_seconds(const std::function<void()>& fn, int repeats) {
  fn();
  std::vector<double> t;
  for (int i = 0; i < repeats; ++i) {
    auto a = std::chrono::steady_clock::now();
    fn();
    auto b = std::chrono::steady_clock::now();
    t.push_back(std::chrono::duration<double>(b - a).count());
  }
  std::sort(t.begin(), t.end());
  return t[t.size() / 2];
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
