// SPDX-License-Identifier: BSD-3-Clause
// dgemv and zgemv beside the peer library, 1 and 2 threads: GB/s of A
// streamed, GFLOPS and the speed ratio ours/peer, plus the machine's measured
// read bandwidth and the share of it that dgemv "N" reaches at n = 4096.
#include <immintrin.h>
#include <omp.h>

#include <algorithm>
#include <chrono>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/support/peer.h"
#include "service/config/settings.h"
#include "service/service.h"
#include "zml_cblas.h"

namespace {

using zcomplex = std::complex<double>;
using dgemv_t = void (*)(int, int, int, int, double, const double*, int, const double*, int, double,
                         double*, int);
using zgemv_t = void (*)(int, int, int, int, const void*, const void*, int, const void*, int,
                         const void*, void*, int);
using set_threads_t = void (*)(int);

// Best of three medians (5 samples each after a warm-up), so bursts of other
// load on a shared machine count less.
constexpr int kRounds = 3;

// Streaming read of 1 GiB with `threads` threads, GB/s. One sequential stream
// per core is limited by how many misses the core keeps in flight, not by
// memory, so each thread walks its part as eight interleaved streams (as a
// matrix-vector product walks eight columns), summing into eight independent
// vector accumulators.
double read_bandwidth(int threads) {
  const size_t count = size_t(1) << 27;
  std::vector<double> buf(count, 1.0);
  double sink = 0;
  auto pass = [&] {
    double total = 0;
#pragma omp parallel num_threads(threads) reduction(+ : total)
    {
      constexpr int kStreams = 8;
      const size_t per = count / size_t(omp_get_num_threads());
      const size_t len = per / kStreams / 8 * 8;
      const double* p = buf.data() + per * size_t(omp_get_thread_num());
      __m128d s[kStreams];
      for (auto& v : s) v = _mm_setzero_pd();
      for (size_t i = 0; i < len; i += 8) {
        for (int k = 0; k < kStreams; ++k) {
          const double* q = p + size_t(k) * len + i;
          s[k] = _mm_add_pd(s[k], _mm_add_pd(_mm_add_pd(_mm_loadu_pd(q), _mm_loadu_pd(q + 2)),
                                             _mm_add_pd(_mm_loadu_pd(q + 4), _mm_loadu_pd(q + 6))));
        }
      }
      for (int k = 1; k < kStreams; ++k) s[0] = _mm_add_pd(s[0], s[k]);
      total += _mm_cvtsd_f64(s[0]);
    }
    sink += total;
  };
  double best = 1e30;
  for (int round = 0; round < kRounds; ++round) {
    best = std::min(best, zml::bench::median_seconds(pass, 5));
  }
  if (sink < 0) std::printf("%g\n", sink);
  return double(count) * 8.0 / best * 1e-9;
}

// Repeats per timed sample so each sample takes a few milliseconds.
int reps_for(double bytes) { return bytes > 3e7 ? 1 : int(3e7 / bytes) + 1; }

struct Case {
  bool complex;
  CBLAS_TRANSPOSE trans;
  int n, threads;
  double seconds[2];  // ours, peer (0 when no peer)
  double bytes() const { return (complex ? 16.0 : 8.0) * n * n; }
  double flops() const { return (complex ? 8.0 : 2.0) * n * n; }
};

struct Peer {
  dgemv_t dgemv = nullptr;
  zgemv_t zgemv = nullptr;
};

// Seconds per call of one case, ours (peer == nullptr) or the peer's.
double time_case(const Case& c, const Peer* peer) {
  const int n = c.n;
  std::vector<zcomplex> za, zx, zy;
  std::vector<double> a, x, y;
  if (c.complex) {
    za.assign(size_t(n) * n, zcomplex(0.5, 0.25));
    zx.assign(n, 1.0);
    zy.assign(n, 0.0);
  } else {
    a.assign(size_t(n) * n, 0.5);
    x.assign(n, 1.0);
    y.assign(n, 0.0);
  }
  const zcomplex alpha(1.0, 0.0), beta(0.0, 0.0);
  const int reps = reps_for(c.bytes());
  auto call = [&] {
    for (int r = 0; r < reps; ++r) {
      if (c.complex && !peer) {
        cblas_zgemv(CblasColMajor, c.trans, n, n, &alpha, za.data(), n, zx.data(), 1, &beta,
                    zy.data(), 1);
      } else if (c.complex) {
        peer->zgemv(CblasColMajor, c.trans, n, n, &alpha, za.data(), n, zx.data(), 1, &beta,
                    zy.data(), 1);
      } else if (!peer) {
        cblas_dgemv(CblasColMajor, c.trans, n, n, 1.0, a.data(), n, x.data(), 1, 0.0, y.data(), 1);
      } else {
        peer->dgemv(CblasColMajor, c.trans, n, n, 1.0, a.data(), n, x.data(), 1, 0.0, y.data(), 1);
      }
    }
  };
  double best = 1e30;
  for (int round = 0; round < kRounds; ++round) {
    best = std::min(best, zml::bench::median_seconds(call, 5));
  }
  return best / reps;
}

}  // namespace

int main() {
  // The peer reads its tuning at load time, so this comes first.
  const std::string peer_core = zml::bench::prepare_blas_peer("libopenblas.so.0");

  zml::bench::print_header("gemv");
  std::printf("own processor (threaded gemv allowed): %s\n",
              zml_serv_own_processor() ? "yes" : "no");
  const double bw1 = read_bandwidth(1), bw2 = read_bandwidth(2);
  std::printf("measured read bandwidth: %.2f GB/s (1 thread), %.2f GB/s (2 threads)\n", bw1, bw2);

  std::vector<Case> cases;
  for (int threads : {1, 2}) {
    for (CBLAS_TRANSPOSE t : {CblasNoTrans, CblasTrans}) {
      for (int n : {256, 1024, 4096}) cases.push_back({false, t, n, threads, {0, 0}});
    }
    for (CBLAS_TRANSPOSE t : {CblasNoTrans, CblasConjTrans}) {
      cases.push_back({true, t, 1024, threads, {0, 0}});
    }
  }
  // Ours first, before the peer is loaded: the peer starts its own worker
  // threads at load time, and on a machine with few cores their waiting would
  // take the cores our parallel regions need (and the other way round). Both
  // sides are timed in the same run, each without the other's workers around.
  for (Case& c : cases) {
    zml::serv::g_settings.domain_threads_blas.store(c.threads);
    c.seconds[0] = time_case(c, nullptr);
  }
  std::string which;
  void* lib = zml::bench::load_peer(
      {"libopenblas.so.0", "/usr/lib/x86_64-linux-gnu/openblas-pthread/libopenblas.so.0"}, &which);
  Peer peer;
  peer.dgemv = reinterpret_cast<dgemv_t>(zml::bench::peer_symbol(lib, "cblas_dgemv"));
  peer.zgemv = reinterpret_cast<zgemv_t>(zml::bench::peer_symbol(lib, "cblas_zgemv"));
  auto peer_threads =
      reinterpret_cast<set_threads_t>(zml::bench::peer_symbol(lib, "openblas_set_num_threads"));
  std::printf("peer: %s%s%s\n\n", lib ? which.c_str() : "none", lib ? ", kernels " : "",
              lib ? peer_core.c_str() : "");
  if (peer.dgemv && peer.zgemv) {
    for (Case& c : cases) {
      if (peer_threads) peer_threads(c.threads);
      c.seconds[1] = time_case(c, &peer);
    }
  }

  std::printf("op     tr     n thr |  ours GB/s  GFLOPS |  peer GB/s  GFLOPS | ours/peer\n");
  double n4096_gbs[3] = {0, 0, 0};
  for (const Case& c : cases) {
    const double ours = c.seconds[0], theirs = c.seconds[1];
    const char* tr = c.trans == CblasNoTrans ? "N" : c.complex ? "C" : "T";
    std::printf("%-6s %-2s %5d %3d | %8.2f %8.2f | %8.2f %8.2f | %6.3f\n",
                c.complex ? "zgemv" : "dgemv", tr, c.n, c.threads, c.bytes() / ours * 1e-9,
                c.flops() / ours * 1e-9, theirs > 0 ? c.bytes() / theirs * 1e-9 : 0,
                theirs > 0 ? c.flops() / theirs * 1e-9 : 0, theirs > 0 ? theirs / ours : 0);
    if (!c.complex && c.trans == CblasNoTrans && c.n == 4096) {
      n4096_gbs[c.threads] = c.bytes() / ours * 1e-9;
    }
  }
  std::printf(
      "\ndgemv N n=4096 reaches %.0f%% (1 thread) and %.0f%% (2 threads) of the "
      "measured read bandwidth\n",
      100.0 * n4096_gbs[1] / bw1, 100.0 * n4096_gbs[2] / bw2);
  // The bandwidth is measured over 1 GiB; a 4096 x 4096 matrix that fits in
  // the last-level cache is read from there, and the share says little.
  const int64_t a_bytes = int64_t{4096} * 4096 * 8;
  if (zml::serv::cache_sizes().l3 >= a_bytes) {
    std::printf("(A at n=4096, %lld MiB, fits in this processor's %lld MiB L3)\n",
                static_cast<long long>(a_bytes >> 20),
                static_cast<long long>(zml::serv::cache_sizes().l3 >> 20));
  }
  return 0;
}
