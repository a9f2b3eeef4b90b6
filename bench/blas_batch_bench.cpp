// SPDX-License-Identifier: BSD-3-Clause
// Batched multiply and the 3M complex multiply beside the peer library.
// Batch: 10,000 products of one size in one group, against a loop of the
// peer's single multiply over the same products. 3M: zgemm3m against our own
// zgemm and the peer's zgemm on the same operands.
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "bench/support/operands.h"
#include "bench/support/peer.h"
#include "bench/support/random_fill.h"
#include "service/config/settings.h"
#include "zml_cblas.h"

namespace {

using zcomplex = std::complex<double>;
using dgemm_fn = void (*)(int, int, int, int, int, int, double, const double*, int, const double*,
                          int, double, double*, int);
using zgemm_fn = void (*)(int, int, int, int, int, int, const void*, const void*, int, const void*,
                          int, const void*, void*, int);

constexpr int kProducts = 10000;

void set_threads(const zml::bench::BlasPeer& peer, int threads) {
  zml::serv::g_settings.domain_threads_blas.store(threads);
  peer.threads(threads);
}

// One row: kProducts n x n x n products (alpha 1, beta 0.5), every product
// with its own A, B and C.
template <class T>
void batch_row(int n, int threads, void* peer_fn) {
  constexpr bool real = std::is_same_v<T, double>;
  const size_t sq = static_cast<size_t>(n) * n;
  std::vector<T> a(sq * kProducts), b(a.size()), c(a.size());
  zml::bench::fill_random(a, 1u);
  zml::bench::fill_random(b, 2u);
  zml::bench::fill_random(c, 3u);
  std::vector<const T*> pa(kProducts), pb(kProducts);
  std::vector<T*> pc(kProducts);
  for (size_t i = 0; i < kProducts; ++i) {
    pa[i] = a.data() + i * sq;
    pb[i] = b.data() + i * sq;
    pc[i] = c.data() + i * sq;
  }
  const T alpha = T(1), beta = T(0.5);
  const CBLAS_TRANSPOSE t = CblasNoTrans;
  const int size = kProducts;
  const auto t2 = zml::bench::paired_median_seconds(
      [&] {
        if constexpr (real) {
          cblas_dgemm_batch(CblasColMajor, &t, &t, &n, &n, &n, &alpha, pa.data(), &n, pb.data(), &n,
                            &beta, pc.data(), &n, 1, &size);
        } else {
          cblas_zgemm_batch(CblasColMajor, &t, &t, &n, &n, &n, &alpha,
                            reinterpret_cast<const void**>(pa.data()), &n,
                            reinterpret_cast<const void**>(pb.data()), &n, &beta,
                            reinterpret_cast<void**>(pc.data()), &n, 1, &size);
        }
      },
      peer_fn ? std::function<void()>([&] {
        for (int i = 0; i < kProducts; ++i) {
          if constexpr (real) {
            reinterpret_cast<dgemm_fn>(peer_fn)(102, 111, 111, n, n, n, 1.0, pa[i], n, pb[i], n,
                                                0.5, pc[i], n);
          } else {
            reinterpret_cast<zgemm_fn>(peer_fn)(102, 111, 111, n, n, n, &alpha, pa[i], n, pb[i], n,
                                                &beta, pc[i], n);
          }
        }
      })
              : nullptr,
      7);
  const double flops = (real ? 2.0 : 8.0) * n * n * n * kProducts;
  const double ours = flops / t2.ours * 1e-9, theirs = t2.theirs > 0 ? flops / t2.theirs * 1e-9 : 0;
  std::printf("%-12s %7d %4d %12.2f %12.2f %8.2f\n", real ? "dgemm_batch" : "zgemm_batch", threads,
              n, ours, theirs, theirs > 0 ? ours / theirs : 0.0);
  std::fflush(stdout);
}

void zgemm3m_row(int n, int threads, zgemm_fn peer) {
  zml::bench::SquareOperands<zcomplex> op(n);
  const zcomplex alpha(1.0, 0.5), beta(0.5, -0.25);
  const int repeats = n >= 2048 ? 3 : 5;
  auto run = [&](auto fn) {
    return [&, fn] {
      fn(CblasColMajor, CblasNoTrans, CblasNoTrans, n, n, n, &alpha, op.a.data(), n, op.b.data(), n,
         &beta, op.c.data(), n);
    };
  };
  const auto mine =
      zml::bench::paired_median_seconds(run(cblas_zgemm3m), run(cblas_zgemm), repeats);
  const double peer_s = peer != nullptr ? zml::bench::median_seconds(
                                              [&] {
                                                peer(102, 111, 111, n, n, n, &alpha, op.a.data(), n,
                                                     op.b.data(), n, &beta, op.c.data(), n);
                                              },
                                              repeats)
                                        : 0.0;
  const double flops = 8.0 * n * n * n;
  const double g3 = flops / mine.ours * 1e-9, gz = flops / mine.theirs * 1e-9;
  const double gp = peer_s > 0 ? flops / peer_s * 1e-9 : 0.0;
  std::printf("%-7d %5d %14.1f %14.1f %14.1f %10.2f %10.2f\n", threads, n, g3, gz, gp, g3 / gz,
              gp > 0 ? g3 / gp : 0.0);
  std::fflush(stdout);
}

}  // namespace

int main() {
  const zml::bench::BlasPeer peer = zml::bench::load_blas_peer();
  void* peer_d = peer.symbol("cblas_dgemm");
  void* peer_z = peer.symbol("cblas_zgemm");
  zml::bench::print_header("batched gemm and zgemm3m beside the peer library");
  std::printf("peer: %s\n\n", peer_d ? peer.name.c_str() : "not installed");

  // ZML_BENCH_PART=batch or 3m runs one half.
  const char* part = std::getenv("ZML_BENCH_PART");
  const auto want = [&](const char* p) { return part == nullptr || std::string(part) == p; };
  if (want("batch")) {
    std::printf("%d products per batch; GF/s of useful flops; ratio = ours/peer loop\n", kProducts);
    std::printf("%-12s %7s %4s %12s %12s %8s\n", "entry", "threads", "n", "ours GF/s", "peer GF/s",
                "ratio");
    for (const int threads : {1, 2}) {
      set_threads(peer, threads);
      for (const int n : {4, 8, 16, 32}) batch_row<double>(n, threads, peer_d);
      for (const int n : {4, 8, 16, 32}) batch_row<zcomplex>(n, threads, peer_z);
    }
  }
  if (want("3m")) {
    std::printf("\nzgemm3m (GF/s counted as 8n^3 for all three)\n");
    std::printf("%-7s %5s %14s %14s %14s %10s %10s\n", "threads", "n", "zgemm3m", "our zgemm",
                "peer zgemm", "3m/zgemm", "3m/peer");
    for (const int threads : {1, 2}) {
      set_threads(peer, threads);
      for (const int n : {1024, 2048}) zgemm3m_row(n, threads, reinterpret_cast<zgemm_fn>(peer_z));
    }
  }
  return 0;
}
