// SPDX-License-Identifier: BSD-3-Clause
// Single-thread dgemm speed beside the peer library, with the measured FMA
// peak of one core as the yardstick.
#include <immintrin.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bench/support/operands.h"
#include "bench/support/peer.h"
#include "blas/blas.h"
#include "service/config/settings.h"
#include "zml_cblas.h"

namespace {

using cblas_dgemm_fn = void (*)(int, int, int, int, int, int, double, const double *, int,
                                const double *, int, double, double *, int);

constexpr int kColMajor = 102, kNoTrans = 111, kTrans = 112;

// Register-only FMA loop: 16 independent accumulators (more than pipes x
// latency), no memory traffic, so the rate is the core's FMA throughput.
__attribute__((target("avx512f,fma"))) double fma_peak_gflops() {
  const long iters = 20'000'000;
  __m512d acc[16];
  for (int i = 0; i < 16; ++i) acc[i] = _mm512_set1_pd(1.0 + i * 1e-3);
  const __m512d x = _mm512_set1_pd(0.999999), y = _mm512_set1_pd(1e-9);
  double best = 0;
  for (int rep = 0; rep < 3; ++rep) {
    const auto t0 = std::chrono::steady_clock::now();
    for (long it = 0; it < iters; ++it) {
#pragma GCC unroll 16
      for (int i = 0; i < 16; ++i) acc[i] = _mm512_fmadd_pd(acc[i], x, y);
    }
    const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    const double g = 2.0 * 8 * 16 * static_cast<double>(iters) / s * 1e-9;
    if (g > best) best = g;
  }
  double sink = 0;
  double lanes[8];
  for (int i = 0; i < 16; ++i) {
    _mm512_storeu_pd(lanes, acc[i]);
    sink += lanes[0];
  }
  if (sink == 42.0) std::printf(" ");
  return best;
}

struct Case {
  char ta, tb;
  int n;
};

}  // namespace

int main() {
  const zml::bench::BlasPeer peer = zml::bench::load_blas_peer();
  auto peer_gemm = reinterpret_cast<cblas_dgemm_fn>(peer.symbol("cblas_dgemm"));

  zml::bench::print_header("dgemm, 1 thread (zml_blas_dgemm_serial)");
  std::printf("peer: %s\n", peer_gemm ? peer.name.c_str() : "not installed");
  // ZML_BENCH_ENTRY=1 times only the cblas_dgemm table (the per-call cost).
  const bool entry_only = std::getenv("ZML_BENCH_ENTRY") != nullptr;
  const double peak = !entry_only && __builtin_cpu_supports("avx512f") ? fma_peak_gflops() : 0.0;
  std::printf("measured FMA peak of one core: %.1f GFLOPS\n\n", peak);
  std::printf("%-4s %6s %12s %12s %8s %8s\n", "op", "n", "ours GF/s", "peer GF/s", "ratio",
              "% peak");

  std::vector<Case> cases;
  for (int n : {8, 16, 32, 64, 256, 1024, 2048, 4000}) cases.push_back({'N', 'N', n});
  cases.push_back({'T', 'N', 2048});
  cases.push_back({'N', 'T', 2048});
  cases.push_back({'T', 'T', 2048});
  const char *only = std::getenv("ZML_BENCH_N");
  if (entry_only) cases.clear();
  for (const Case &cs : cases) {
    const int n = cs.n;
    if (only && std::atoi(only) != n) continue;
    zml::bench::SquareOperands<double> sq(n);
    auto &a = sq.a, &b = sq.b, &c = sq.c;
    const double flops = 2.0 * n * n * n;
    // Tiny sizes repeat the call in a batch so one sample lasts about a millisecond.
    const int batch = zml::bench::batch_for(flops, 1e7);
    const int repeats = n >= 4000 ? 3 : (n >= 1024 ? 5 : 11);
    const double alpha = 1.0, beta = 0.5;
    const char ta[2] = {cs.ta, 0}, tb[2] = {cs.tb, 0};
    const auto t = zml::bench::paired_median_seconds(
        [&] {
          for (int r = 0; r < batch; ++r) {
            zml::blas::zml_blas_dgemm_serial(ta, tb, &n, &n, &n, &alpha, a.data(), &n, b.data(), &n,
                                             &beta, c.data(), &n);
          }
        },
        peer_gemm ? std::function<void()>([&] {
          for (int r = 0; r < batch; ++r) {
            peer_gemm(kColMajor, cs.ta == 'T' ? kTrans : kNoTrans, cs.tb == 'T' ? kTrans : kNoTrans,
                      n, n, n, alpha, a.data(), n, b.data(), n, beta, c.data(), n);
          }
        })
                  : nullptr,
        repeats);
    const double ours = t.ours, theirs = t.theirs;
    const double g_ours = flops * batch / ours * 1e-9;
    const double g_peer = theirs > 0 ? flops * batch / theirs * 1e-9 : 0;
    std::printf("%c%c   %6d %12.1f %12.1f %8.2f %7.1f%%\n", cs.ta, cs.tb, n, g_ours, g_peer,
                g_peer > 0 ? g_ours / g_peer : 0.0, peak > 0 ? 100.0 * g_ours / peak : 0.0);
    std::fflush(stdout);
  }

  // What a caller of the exported entry sees for tiny and mid-sized products:
  // the layout and argument checks, the checked entry and the driver's routing
  // come on top of the small path (or, past it, the packed one), as the peer's
  // own interface does on its side.
  std::printf("\nthrough cblas_dgemm, 1 thread (NN)\n%4s %4s %4s %10s %10s %12s %12s %8s\n", "m",
              "n", "k", "ours ns", "peer ns", "ours GF/s", "peer GF/s", "ratio");
  zml::serv::g_settings.domain_threads_blas.store(1);
  // Squares, then shapes with 17 <= m <= 32, which the single-thread routing
  // of the threaded driver decides by the amount of work rather than by shape.
  const int shapes[][3] = {{2, 2, 2},       {4, 4, 4},    {8, 8, 8},    {16, 16, 16},
                           {32, 32, 32},    {64, 64, 64}, {80, 80, 80}, {100, 100, 100},
                           {128, 128, 128}, {17, 8, 8},   {20, 20, 20}, {24, 16, 32},
                           {32, 8, 16}};
  for (const auto &s : shapes) {
    const int m = s[0], n = s[1], k = s[2];
    if (only && std::atoi(only) != m) continue;
    zml::bench::SquareOperands<double> sq(m > n ? (m > k ? m : k) : (n > k ? n : k));
    auto &a = sq.a, &b = sq.b, &c = sq.c;
    const double flops = 2.0 * m * n * k;
    const int batch = zml::bench::batch_for(flops, 1e7);
    auto batch_of = [&](auto fn) {
      return std::function<void()>([&, fn] {
        for (int r = 0; r < batch; ++r) {
          fn(CblasColMajor, CblasNoTrans, CblasNoTrans, m, n, k, 1.0, a.data(), m, b.data(), k, 0.5,
             c.data(), m);
        }
      });
    };
    // The peer takes the same enumeration values as plain ints.
    const auto t = zml::bench::paired_median_seconds(
        batch_of(cblas_dgemm),
        peer_gemm ? batch_of(reinterpret_cast<decltype(&cblas_dgemm)>(peer_gemm)) : nullptr, 11);
    const double ours = t.ours / batch, theirs = t.theirs / batch;
    std::printf("%4d %4d %4d %10.1f %10.1f %12.1f %12.1f %8.2f\n", m, n, k, ours * 1e9,
                theirs * 1e9, flops / ours * 1e-9, theirs > 0 ? flops / theirs * 1e-9 : 0.0,
                theirs > 0 ? theirs / ours : 0.0);
    std::fflush(stdout);
  }

  std::printf("\nthrough zml::blas::dgemm (NN)\n%-8s %6s %12s %12s %8s\n", "threads", "n",
              "ours GF/s", "peer GF/s", "ratio");
  for (int threads : {1, 2}) {
    if (entry_only) break;
    zml::serv::g_settings.domain_threads_blas.store(threads);
    peer.threads(threads);
    for (int n : {256, 1024, 2048, 4000}) {
      if (only && std::atoi(only) != n) continue;
      zml::bench::SquareOperands<double> sq(n);
      auto &a = sq.a, &b = sq.b, &c = sq.c;
      const double alpha = 1.0, beta = 0.5;
      const int repeats = n >= 4000 ? 3 : 5;
      const auto t = zml::bench::paired_median_seconds(
          [&] {
            zml::blas::dgemm("N", "N", &n, &n, &n, &alpha, a.data(), &n, b.data(), &n, &beta,
                             c.data(), &n, 1, 1);
          },
          peer_gemm ? std::function<void()>([&] {
            peer_gemm(kColMajor, kNoTrans, kNoTrans, n, n, n, alpha, a.data(), n, b.data(), n, beta,
                      c.data(), n);
          })
                    : nullptr,
          repeats);
      const double ours = t.ours, theirs = t.theirs;
      const double flops = 2.0 * n * n * n;
      std::printf("%-8d %6d %12.1f %12.1f %8.2f\n", threads, n, flops / ours * 1e-9,
                  theirs > 0 ? flops / theirs * 1e-9 : 0.0, theirs > 0 ? theirs / ours : 0.0);
      std::fflush(stdout);
    }
  }
  return 0;
}
