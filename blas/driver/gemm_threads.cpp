// SPDX-License-Identifier: BSD-3-Clause
// How many threads a second-generation gemm uses, and how C is cut between
// the members of a team: the grid of pieces and the piece boundaries.
#include "blas/driver/gemm_driver.h"

namespace zml::blas {

namespace {

// Large teams settle quickly: strides of 2 below 10 threads, 4 below 30, 8 above.
int32_t step_down(int32_t t) { return t < 10 ? 2 : (t < 30 ? 4 : 8); }

// Code path 8: which shapes may take a team at all.
bool cp8_gate(int32_t m, int32_t n, int32_t k) {
  if (m <= 32) return n <= 60 ? k > 32 : (k > 16 || n > 112);
  return k > 16 || m > 128 || n > 112;
}

int32_t cp8_choice(int32_t T, int32_t m, int32_t n, int32_t k) {
  if (!cp8_gate(m, n, k)) return 1;
  const double w = 2.0 * m * n * k / 3.2;
  int32_t t = 1;
  if (w >= 8000.0) {
    t = T;
    while (t > 1) {
      const double td = t;
      if ((td - 1.0) * w > td * (2500.0 * td + 3000.0)) break;
      t -= step_down(t);
    }
    if (t < 1) t = 1;
  }
  if (t > 1) return t;
  // A long inner dimension gets every thread even when its work is small.
  const int32_t longest = m > n ? m : n;
  return k / longest >= 4 ? T : 1;
}

}  // namespace

int32_t gemm_v2_thread_choice(int32_t code_path, int32_t T, int32_t m, int32_t n, int32_t k) {
  if (T <= 1) return 1;
  if (code_path == 8) return cp8_choice(T, m, n, k);
  // Work per product, in double so that 32-bit dimensions cannot overflow.
  const double w = code_path == 9 ? 2.0 * m * 0.03125 * n * k : 2.0 * m * 0.0625 * n * k;
  if (T <= 4) {
    if (w < 3000.0) return 1;
    int32_t t = T;
    while (t > 1 && !((t - 1.0) * w > 3000.0 * t)) --t;
    return t;
  }
  if (w < 5000.0) return 1;
  int32_t t = T;
  while (t > 1) {
    const double td = t;
    if ((td - 1.0) * w > td * (500.0 * td + 4000.0)) break;
    t -= step_down(t);
  }
  return t < 1 ? 1 : t;
}

GemmGrid gemm_grid(int32_t threads, int32_t m, int32_t n) {
  GemmGrid best{1, threads > 1 ? threads : 1};
  if (threads <= 1) return best;
  int64_t best_cost = -1;
  // Fewer rows first, so that on equal cost the grid with more columns wins.
  for (int32_t rows = 1; rows <= threads; ++rows) {
    if (threads % rows != 0) continue;
    const int32_t cols = threads / rows;
    // A dimension cut into more pieces than it has elements leaves members idle.
    if (rows > m || cols > n) continue;
    const int64_t cost = static_cast<int64_t>(rows) * n + static_cast<int64_t>(cols) * m;
    if (best_cost < 0 || cost < best_cost) {
      best_cost = cost;
      best = {rows, cols};
    }
  }
  if (best_cost < 0) {
    // Both dimensions are smaller than every factorisation needs: cut the
    // longer one, some members get nothing.
    best = m > n ? GemmGrid{threads, 1} : GemmGrid{1, threads};
  }
  return best;
}

int32_t gemm_cut(int32_t total, int32_t parts, int32_t i, int32_t unit) {
  if (i <= 0 || parts <= 0) return 0;
  if (i >= parts) return total;
  const int64_t exact = static_cast<int64_t>(total) * i / parts;
  if (unit <= 1 || static_cast<int64_t>(total) < static_cast<int64_t>(unit) * parts) {
    return static_cast<int32_t>(exact);
  }
  const int64_t rounded = (exact + unit / 2) / unit * unit;
  return static_cast<int32_t>(rounded < total ? rounded : total);
}

}  // namespace zml::blas
