// SPDX-License-Identifier: BSD-3-Clause
// zgemm speed beside the peer library: one thread through the single-thread
// multiply, then 1 and 2 threads through the threaded entry once it exists.
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench/support/operands.h"
#include "bench/support/peer.h"
#include "blas/blas.h"
#include "service/config/settings.h"

namespace {

using zml::blas::zcomplex;
using cblas_zgemm_fn = void (*)(int, int, int, int, int, int, const void*, const void*, int,
                                const void*, int, const void*, void*, int);

constexpr int kColMajor = 102;

int cblas_trans(char t) { return t == 'N' ? 111 : (t == 'T' ? 112 : 113); }

struct Case {
  char ta, tb;
  int n;
};

const zcomplex kAlpha(1.0, 0.5), kBeta(0.5, -0.25);

// Times ours (through `entry`: 0 the single-thread multiply, 1 the threaded
// entry) and the peer on one case and prints a row.
void run_case(const Case& cs, int threads, int entry, cblas_zgemm_fn peer_gemm) {
  const int n = cs.n;
  zml::bench::SquareOperands<zcomplex> op(n);
  const double flops = 8.0 * n * n * n;
  // Small sizes repeat the call in a batch so one sample lasts about a millisecond.
  const int batch = zml::bench::batch_for(flops, 2e7);
  const int repeats = n >= 2048 ? 3 : (n >= 1024 ? 5 : 11);
  const char ta[2] = {cs.ta, 0}, tb[2] = {cs.tb, 0};
  const auto t = zml::bench::paired_median_seconds(
      [&] {
        for (int r = 0; r < batch; ++r) {
          if (entry == 0) {
            zml::blas::zml_blas_zgemm_serial(ta, tb, &n, &n, &n, &kAlpha, op.a.data(), &n,
                                             op.b.data(), &n, &kBeta, op.c.data(), &n);
          } else {
            zml::blas::zgemm(ta, tb, &n, &n, &n, &kAlpha, op.a.data(), &n, op.b.data(), &n, &kBeta,
                             op.c.data(), &n, 1, 1);
          }
        }
      },
      peer_gemm ? std::function<void()>([&] {
        for (int r = 0; r < batch; ++r) {
          peer_gemm(kColMajor, cblas_trans(cs.ta), cblas_trans(cs.tb), n, n, n, &kAlpha,
                    op.a.data(), n, op.b.data(), n, &kBeta, op.c.data(), n);
        }
      })
                : nullptr,
      repeats);
  const double ours = t.ours, theirs = t.theirs;
  const double g_ours = flops * batch / ours * 1e-9;
  const double g_peer = theirs > 0 ? flops * batch / theirs * 1e-9 : 0;
  std::printf("%-8s %7d %c%c   %6d %12.1f %12.1f %8.2f\n", entry == 0 ? "serial" : "zgemm", threads,
              cs.ta, cs.tb, n, g_ours, g_peer, g_peer > 0 ? g_ours / g_peer : 0.0);
  std::fflush(stdout);
}

}  // namespace

int main() {
  const zml::bench::BlasPeer peer = zml::bench::load_blas_peer();
  auto peer_gemm = reinterpret_cast<cblas_zgemm_fn>(peer.symbol("cblas_zgemm"));

  zml::bench::print_header("zgemm (8*m*n*k flops), ours beside the peer; ratio = ours/peer");
  std::printf("peer: %s\n\n", peer_gemm ? peer.name.c_str() : "not installed");
  std::printf("%-8s %7s %-4s %6s %12s %12s %8s\n", "entry", "threads", "op", "n", "ours GF/s",
              "peer GF/s", "ratio");

  // ZML_BENCH_N limits the run to one size.
  const char* only = std::getenv("ZML_BENCH_N");
  auto wanted = [&](int n) { return only == nullptr || std::atoi(only) == n; };

  std::vector<Case> cases;
  for (int n : {16, 64, 256, 1024, 2048}) cases.push_back({'N', 'N', n});
  for (int n : {256, 1024}) {
    cases.push_back({'C', 'N', n});
    cases.push_back({'N', 'C', n});
    cases.push_back({'C', 'C', n});
  }
  for (const Case& cs : cases) {
    if (wanted(cs.n)) run_case(cs, 1, 0, peer_gemm);
  }

  std::printf("\n");
  for (int threads : {1, 2}) {
    zml::serv::g_settings.domain_threads_blas.store(threads);
    peer.threads(threads);
    for (int n : {256, 1024, 2048}) {
      if (wanted(n)) run_case({'N', 'N', n}, threads, 1, peer_gemm);
    }
    if (wanted(1024)) run_case({'C', 'N', 1024}, threads, 1, peer_gemm);
  }
  return 0;
}
