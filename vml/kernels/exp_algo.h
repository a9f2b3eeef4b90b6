// SPDX-License-Identifier: BSD-3-Clause
// The exponential, one element at a time: the kernel of the folders without
// a vector exponential of their own, and the path of the vector kernels for
// the arguments near and beyond the ends of the range. Templated on the
// folder's ops as a tag so that each folder's instance is its own function.
//
// exp(x) = 2^m * 2^(j/16) * exp(r) with k = 16m + j the integer nearest
// x * 16 / ln 2 and |r| <= ln 2 / 32; exp(r) - 1 by its Taylor polynomial of
// degree 7 (truncation below 1.2e-18), 2^(j/16) as a leading double and a
// remainder (tools/vml_exp_table.py), so the sum is rounded once.
#pragma once

#include <cstdint>
#include <cstring>
#include <limits>

#include "vml/kernels/vml_kernel.h"

namespace zml::vml::algo {

inline constexpr double kExpTable[16][2] = {
    {0x1.0000000000000p+0, 0x0.0p+0},
    {0x1.0b5586cf9890fp+0, 0x1.8a62e4adc610bp-54},
    {0x1.172b83c7d517bp+0, -0x1.19041b9d78a76p-55},
    {0x1.2387a6e756238p+0, 0x1.9b07eb6c70573p-54},
    {0x1.306fe0a31b715p+0, 0x1.6f46ad23182e4p-55},
    {0x1.3dea64c123422p+0, 0x1.ada0911f09ebcp-55},
    {0x1.4bfdad5362a27p+0, 0x1.d4397afec42e2p-56},
    {0x1.5ab07dd485429p+0, 0x1.6324c054647adp-54},
    {0x1.6a09e667f3bcdp+0, -0x1.bdd3413b26456p-54},
    {0x1.7a11473eb0187p+0, -0x1.41577ee04992fp-55},
    {0x1.8ace5422aa0dbp+0, 0x1.6e9f156864b27p-54},
    {0x1.9c49182a3f090p+0, 0x1.c7c46b071f2bep-56},
    {0x1.ae89f995ad3adp+0, 0x1.7a1cd345dcc81p-54},
    {0x1.c199bdd85529cp+0, 0x1.11065895048ddp-55},
    {0x1.d5818dcfba487p+0, 0x1.2ed02d75b3707p-55},
    {0x1.ea4afa2a490dap+0, -0x1.e9c23179c2893p-54},
};
inline constexpr double kInvLn2x16 = 0x1.71547652b82fep+4;
// ln 2 / 16 in two parts; the leading one has 32 significant bits, so its
// product with any k of the range (|k| < 2^15) is exact.
inline constexpr double kLn2d16Hi = 0x1.62e42ff000000p-5;
inline constexpr double kLn2d16Lo = -0x1.718432a1b0e26p-39;
// Adding 1.5 * 2^52 rounds to an integer and leaves it in the low bits.
inline constexpr double kRoundShift = 0x1.8p52;
// exp overflows above this (the double nearest ln of the largest double
// still rounds to it) and is below the smallest normal below kExpTiny.
inline constexpr double kExpMax = 0x1.62e42fefa39efp+9;
inline constexpr double kExpTiny = -0x1.6232bdd7abcd2p+9;
inline constexpr double kExpZero = -0x1.74910d52d3052p+9;  // below: rounds to 0

inline double pow2(int32_t m) {
  const uint64_t bits = static_cast<uint64_t>(m + 1023) << 52;
  double d;
  std::memcpy(&d, &bits, sizeof d);
  return d;
}

template <class Tag>
double exp_one(double x) {
  if (!(x <= kExpMax)) {  // NaN, +Inf, overflow
    if (x != x || x == std::numeric_limits<double>::infinity()) return x + x;
    report_status(kOverflow);
    return std::numeric_limits<double>::infinity();
  }
  if (x < kExpZero) {
    if (x == -std::numeric_limits<double>::infinity()) return 0.0;
    report_status(kUnderflow);
    return 0.0;
  }
  const double t = x * kInvLn2x16 + kRoundShift;
  const double kf = t - kRoundShift;
  const int32_t k = static_cast<int32_t>(kf);
  const double r = (x - kf * kLn2d16Hi) - kf * kLn2d16Lo;
  const double p =
      r + r * r *
              (0.5 + r * (1.0 / 6 +
                          r * (1.0 / 24 + r * (1.0 / 120 + r * (1.0 / 720 + r * (1.0 / 5040))))));
  const double* tj = kExpTable[k & 15];
  const double y = tj[0] + (tj[1] + tj[0] * p);
  const int32_t m = k >> 4;  // floor division: k & 15 is the positive remainder
  // Two factors keep each power of two normal; only a result below the
  // normal range rounds a second time.
  const int32_t m1 = m / 2;
  const double e = y * pow2(m1) * pow2(m - m1);
  if (x < kExpTiny) report_status(kUnderflow);
  return e;
}

template <class Tag>
void exp_loop(int32_t n, const double* a, double* y) {
  for (int32_t i = 0; i < n; ++i) y[i] = exp_one<Tag>(a[i]);
}

}  // namespace zml::vml::algo
