// SPDX-License-Identifier: BSD-3-Clause
// dtrsm and ztrsm through the CBLAS export beside the peer library, on one
// and two threads: side L lower untransposed and side R upper transposed.
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

#include "bench/support/peer.h"
#include "bench/support/random_fill.h"
#include "service/config/settings.h"
#include "zml_cblas.h"

namespace {

using zcomplex = std::complex<double>;

struct Case {
  const char* name;
  CBLAS_SIDE side;
  CBLAS_UPLO uplo;
  CBLAS_TRANSPOSE trans;
};

// A unit-sized diagonal and off-diagonal entries of 1e-3/n: every solve
// leaves B close to what it was, so repeated solves on the same B neither
// grow nor shrink into subnormal numbers, and no copy distorts the timing.
template <class T>
std::vector<T> near_identity(int n) {
  std::vector<T> a(static_cast<size_t>(n) * n);
  zml::bench::fill_random(a, 4u);
  for (int j = 0; j < n; ++j) {
    for (int i = 0; i < n; ++i) {
      T& e = a[static_cast<size_t>(i) + static_cast<size_t>(j) * n];
      e = i == j ? T(1.0) + e * 0.01 : e * (1e-3 / n);
    }
  }
  return a;
}

template <class T>
void run(const zml::bench::BlasPeer& peer, const Case& cs, int threads, int n) {
  constexpr bool real = std::is_same_v<T, double>;
  using Fn = void (*)(int, int, int, int, int, int, int, const void*, const void*, int, void*, int);
  using DFn = void (*)(int, int, int, int, int, int, int, double, const double*, int, double*, int);
  void* sym = peer.symbol(real ? "cblas_dtrsm" : "cblas_ztrsm");
  const std::vector<T> a = near_identity<T>(n);
  std::vector<T> b(static_cast<size_t>(n) * n);
  zml::bench::fill_random(b, 5u);
  const T alpha(1.0);
  auto ours = [&] {
    if constexpr (real) {
      cblas_dtrsm(CblasColMajor, cs.side, cs.uplo, cs.trans, CblasNonUnit, n, n, alpha, a.data(), n,
                  b.data(), n);
    } else {
      cblas_ztrsm(CblasColMajor, cs.side, cs.uplo, cs.trans, CblasNonUnit, n, n, &alpha, a.data(),
                  n, b.data(), n);
    }
  };
  std::function<void()> theirs;
  if (sym != nullptr) {
    theirs = [&] {
      if constexpr (real) {
        reinterpret_cast<DFn>(sym)(CblasColMajor, cs.side, cs.uplo, cs.trans, CblasNonUnit, n, n,
                                   alpha, a.data(), n, b.data(), n);
      } else {
        reinterpret_cast<Fn>(sym)(CblasColMajor, cs.side, cs.uplo, cs.trans, CblasNonUnit, n, n,
                                  &alpha, a.data(), n, b.data(), n);
      }
    };
  }
  const int batch = n <= 256 ? 20 : 1;
  auto batched = [batch](std::function<void()> fn) {
    return fn ? std::function<void()>([fn, batch] {
      for (int r = 0; r < batch; ++r) fn();
    })
              : fn;
  };
  const auto t = zml::bench::paired_median_seconds(batched(ours), batched(theirs), 5);
  const double flops = (real ? 1.0 : 4.0) * n * static_cast<double>(n) * n * batch;
  const double g_ours = flops / t.ours * 1e-9, g_peer = t.theirs > 0 ? flops / t.theirs * 1e-9 : 0;
  std::printf("%-6s %-8s %7d %6d %12.1f %12.1f %8.2f\n", real ? "dtrsm" : "ztrsm", cs.name, threads,
              n, g_ours, g_peer, g_peer > 0 ? g_ours / g_peer : 0.0);
  std::fflush(stdout);
}

}  // namespace

int main() {
  const zml::bench::BlasPeer peer = zml::bench::load_blas_peer();
  zml::bench::print_header("dtrsm / ztrsm through cblas_?trsm");
  std::printf("peer: %s\n\n", peer.lib ? peer.name.c_str() : "not installed");
  std::printf("%-6s %-8s %7s %6s %12s %12s %8s\n", "op", "case", "threads", "n", "ours GF/s",
              "peer GF/s", "ratio");
  const Case cases[] = {{"L,L,N", CblasLeft, CblasLower, CblasNoTrans},
                        {"R,U,T", CblasRight, CblasUpper, CblasTrans}};
  // ZML_BENCH_N=<n> runs that size alone.
  const char* only = std::getenv("ZML_BENCH_N");
  for (int threads : {1, 2}) {
    zml::serv::g_settings.domain_threads_blas.store(threads);
    peer.threads(threads);
    for (int n : {256, 1024, 2048}) {
      if (only && std::atoi(only) != n) continue;
      for (const Case& cs : cases) run<double>(peer, cs, threads, n);
      for (const Case& cs : cases) run<zcomplex>(peer, cs, threads, n);
    }
  }
  return 0;
}
