// SPDX-License-Identifier: BSD-3-Clause
// Vector math beside a scalar C library loop (and the C library's AVX-512
// vector exponential and logarithms, 4-ulp class, when they load): million elements per
// second and the ratio ours/peer, n = 1e3, 1e5, 1e6, on 1 and 2 threads.
#include <immintrin.h>
#include <omp.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <vector>

#include "bench/support/peer.h"
#include "service/threading/threading.h"
#include "vml/api/vml_frame.h"
#include "zml_vml.h"

namespace {

using vexp8_t = __m512d (*)(__m512d);

__attribute__((target("avx512f"))) void vector_peer(vexp8_t f, double (*tail)(double, double),
                                                    int n, const double* a, double* y,
                                                    int threads) {
#pragma omp parallel for num_threads(threads) schedule(static)
  for (int i = 0; i < n / 8; ++i) _mm512_storeu_pd(y + 8 * i, f(_mm512_loadu_pd(a + 8 * i)));
  for (int i = n / 8 * 8; i < n; ++i) y[i] = tail(a[i], 0.0);
}

struct Case {
  const char* name;
  int mode;  // 0: the class does not matter
  std::function<void(int, const double*, const double*, double*)> ours;
  double (*scalar)(double, double);
  const char* peer = nullptr;  // the C library's 8-wide vector function
  bool positive = false;       // arguments in [0.5, 600.5) rather than [-299.5, 300.5)
};

}  // namespace

int main() {
  std::string which;
  void* mvec = zml::bench::load_peer({"libmvec.so.1"}, &which);
  auto vector_fn = [&](const char* name) {
    return mvec != nullptr && name != nullptr && __builtin_cpu_supports("avx512f")
               ? reinterpret_cast<vexp8_t>(zml::bench::peer_symbol(mvec, name))
               : nullptr;
  };
  const bool any_peer = vector_fn("_ZGVeN8v_exp") != nullptr;
  const Case cases[] = {
      {"add", 0, [](int n, const double* a, const double* b, double* y) { vdAdd(n, a, b, y); },
       [](double x, double z) { return x + z; }},
      {"div", 0, [](int n, const double* a, const double* b, double* y) { vdDiv(n, a, b, y); },
       [](double x, double z) { return x / z; }},
      {"sqrt", 0, [](int n, const double* a, const double*, double* y) { vdSqrt(n, a, y); },
       [](double x, double) { return std::sqrt(x); }},
      {"exp LA", VML_LA, [](int n, const double* a, const double*, double* y) { vdExp(n, a, y); },
       [](double x, double) { return std::exp(x); }, "_ZGVeN8v_exp"},
      {"exp HA", VML_HA, [](int n, const double* a, const double*, double* y) { vdExp(n, a, y); },
       [](double x, double) { return std::exp(x); }, "_ZGVeN8v_exp"},
      {"exp EP", VML_EP, [](int n, const double* a, const double*, double* y) { vdExp(n, a, y); },
       [](double x, double) { return std::exp(x); }, "_ZGVeN8v_exp"},
      {"ln LA", VML_LA, [](int n, const double* a, const double*, double* y) { vdLn(n, a, y); },
       [](double x, double) { return std::log(x); }, "_ZGVeN8v_log", true},
      {"ln HA", VML_HA, [](int n, const double* a, const double*, double* y) { vdLn(n, a, y); },
       [](double x, double) { return std::log(x); }, "_ZGVeN8v_log", true},
      {"ln EP", VML_EP, [](int n, const double* a, const double*, double* y) { vdLn(n, a, y); },
       [](double x, double) { return std::log(x); }, "_ZGVeN8v_log", true},
      {"log10 LA", VML_LA,
       [](int n, const double* a, const double*, double* y) { vdLog10(n, a, y); },
       [](double x, double) { return std::log10(x); }, "_ZGVeN8v_log10", true},
      {"log10 HA", VML_HA,
       [](int n, const double* a, const double*, double* y) { vdLog10(n, a, y); },
       [](double x, double) { return std::log10(x); }, "_ZGVeN8v_log10", true},
      {"log10 EP", VML_EP,
       [](int n, const double* a, const double*, double* y) { vdLog10(n, a, y); },
       [](double x, double) { return std::log10(x); }, "_ZGVeN8v_log10", true},
  };
  std::printf("%-8s %8s %3s %10s %10s %7s %10s %7s\n", "func", "n", "thr", "ours Me/s", "C loop",
              "ratio", any_peer ? "libmvec" : "-", any_peer ? "ratio" : "");
  for (const Case& c : cases) {
    for (int n : {1000, 100000, 1000000}) {
      std::vector<double> a(n), b(n), y(n);
      for (int i = 0; i < n; ++i) {
        a[i] = 0.5 + 600.0 * i / n - (c.positive ? 0.0 : 300.0), b[i] = 1.0 + i % 7;
      }
      const vexp8_t vfn = vector_fn(c.peer);
      for (int threads : {1, 2}) {
        zml::serv::set_thread_local_threads(threads);
        zml::vml::set_mode(c.mode != 0 ? c.mode | VML_ERRMODE_NOERR : 0);
        // Short vectors are repeated so that each sample takes about 1 ms.
        const int reps = n < 100000 ? 100000 / n : 1;
        auto timed = [&](auto fn) {
          return zml::bench::paired_median_seconds(
              [&] {
                for (int r = 0; r < reps; ++r) fn();
              },
              {});
        };
        const double ours = timed([&] { c.ours(n, a.data(), b.data(), y.data()); }).ours / reps;
        const double loop = timed([&] {
                              const auto f = c.scalar;
#pragma omp parallel for num_threads(threads) schedule(static)
                              for (int i = 0; i < n; ++i) y[i] = f(a[i], b[i]);
                            }).ours /
                            reps;
        double peer = 0.0;
        if (vfn != nullptr) {
          peer = timed([&] { vector_peer(vfn, c.scalar, n, a.data(), y.data(), threads); }).ours /
                 reps;
        }
        std::printf("%-8s %8d %3d %10.1f %10.1f %7.2f", c.name, n, threads, n / ours * 1e-6,
                    n / loop * 1e-6, loop / ours);
        if (peer > 0) std::printf(" %10.1f %7.2f", n / peer * 1e-6, peer / ours);
        std::printf("\n");
      }
    }
  }
  zml::serv::set_thread_local_threads(0);
  return 0;
}
