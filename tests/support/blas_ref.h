// SPDX-License-Identifier: BSD-3-Clause
// Numerical oracles shared by the BLAS tests: seeded random data, edge-case
// values, strided vector indexing, operands placed inside larger arrays, and
// naive gemv and triangular solve in long double (real and complex alike).
// The gemm oracle is in tests/blas/gemm_check.h, the level-2 cases and their
// comparison in tests/blas/level2_check.h.
#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

namespace zml::test {

template <class T>
struct is_complex : std::false_type {};
template <class R>
struct is_complex<std::complex<R>> : std::true_type {};

// The long double counterpart of T (double or std::complex<double>).
template <class T>
using wide_t = std::conditional_t<is_complex<T>::value, std::complex<long double>, long double>;

template <class T>
wide_t<T> widen(T v) {
  if constexpr (is_complex<T>::value) {
    return {static_cast<long double>(v.real()), static_cast<long double>(v.imag())};
  } else {
    return static_cast<long double>(v);
  }
}

template <class T>
T narrow(wide_t<T> v) {
  if constexpr (is_complex<T>::value) {
    return {static_cast<double>(v.real()), static_cast<double>(v.imag())};
  } else {
    return static_cast<T>(v);
  }
}

template <class W>
W conj_if(W v, bool c) {
  if constexpr (is_complex<W>::value) {
    return c ? std::conj(v) : v;
  } else {
    (void)c;
    return v;
  }
}

// A scalar of the element type (the imaginary part is dropped for real data).
template <class T>
T scalar(double re, double im) {
  if constexpr (is_complex<T>::value) {
    return T(re, im);
  } else {
    (void)im;
    return re;
  }
}

// NaN in every part.
template <class T>
T nan_value() {
  const double q = std::numeric_limits<double>::quiet_NaN();
  return scalar<T>(q, q);
}

// Element (i, j) of a matrix stored with leading dimension ld.
inline size_t at(bool row_major, int64_t ld, int64_t i, int64_t j) {
  return static_cast<size_t>(row_major ? i * ld + j : i + j * ld);
}

// Uniform values in [-1, 1) (both parts for complex) from a fixed seed.
template <class T>
std::vector<T> random_vector(size_t count, uint64_t seed) {
  std::mt19937_64 gen(seed);
  std::uniform_real_distribution<double> dist(-1.0, 1.0);
  std::vector<T> v(count);
  for (auto& e : v) {
    if constexpr (is_complex<T>::value) {
      const double re = dist(gen);
      e = T(re, dist(gen));
    } else {
      e = dist(gen);
    }
  }
  return v;
}

// Storage of a vector of n elements with increment inc, and the position of
// its logical element i (a negative increment starts at the far end).
inline size_t vec_storage(int64_t n, int inc) {
  return n <= 0 ? 1 : static_cast<size_t>(1 + (n - 1) * std::llabs(inc));
}
inline size_t vec_index(int64_t i, int64_t n, int inc) {
  return static_cast<size_t>(inc > 0 ? i * inc : (n - 1 - i) * static_cast<int64_t>(-inc));
}

// Fills *v with a random array holding a rows x cols operand and returns its
// first element: a spare line before and after it and, when pad > 0, a spare
// element before it in every line; *ld is the stored line length plus pad.
template <class T>
size_t place_operand(bool row_major, int32_t rows, int32_t cols, int32_t pad, uint64_t seed,
                     int32_t* ld, std::vector<T>* v) {
  const int32_t len = row_major ? cols : rows, lines = row_major ? rows : cols;
  *ld = std::max(1, len) + pad;
  *v = random_vector<T>(static_cast<size_t>(*ld) * (lines + 2), seed);
  return static_cast<size_t>(*ld) + (pad > 0 ? 1 : 0);
}

// y := alpha*op(A)*x + beta*y for an m x n matrix given by the accessor
// A(i, j); trans 'N', 'T' or 'C'. alpha == 0 reads neither A nor x and
// beta == 0 overwrites y (NaN there does not come through). Sums in long double;
// `scale` receives, per element of y, the sum of the magnitudes of the terms,
// which bounds the rounding error of any summation order.
template <class T, class Acc>
void ref_gemv(char trans, int m, int n, T alpha, Acc A, const T* x, int incx, T beta, T* y,
              int incy, std::vector<double>* scale) {
  const bool tr = trans != 'N';
  const bool cj = trans == 'C';
  const int leny = tr ? n : m, lenx = tr ? m : n;
  scale->assign(static_cast<size_t>(leny > 0 ? leny : 0), 0.0);
  if (m <= 0 || n <= 0) return;
  for (int i = 0; i < leny; ++i) {
    wide_t<T> s = 0, mag = 0;
    for (int k = 0; alpha != T(0) && k < lenx; ++k) {
      const wide_t<T> a = conj_if(widen(tr ? A(k, i) : A(i, k)), cj);
      const wide_t<T> t = a * widen(x[vec_index(k, lenx, incx)]);
      s += t;
      mag += std::abs(t);
    }
    T& yi = y[vec_index(i, leny, incy)];
    const wide_t<T> old = beta == T(0) ? wide_t<T>(0) : widen(beta) * widen(yi);
    const wide_t<T> res = widen(alpha) * s + old;
    (*scale)[static_cast<size_t>(i)] =
        static_cast<double>(std::abs(widen(alpha)) * std::abs(mag) + std::abs(old) + 1e-300L);
    yi = narrow<T>(res);
  }
}

// Solves op(A) x = b in place by substitution in long double; A(i, j) gives
// the matrix, upper/unit select the triangle and the implicit unit diagonal.
template <class T, class Acc>
void ref_trsv(bool upper, char trans, bool unit, int n, Acc A, T* x, int incx) {
  if (n <= 0) return;
  const bool tr = trans != 'N';
  const bool cj = trans == 'C';
  std::vector<wide_t<T>> w(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) w[static_cast<size_t>(i)] = widen(x[vec_index(i, n, incx)]);
  auto op = [&](int i, int j) { return conj_if(widen(tr ? A(j, i) : A(i, j)), cj); };
  // op(A) is upper when exactly one of upper/transposed holds: back substitution.
  const bool back = upper != tr;
  for (int s = 0; s < n; ++s) {
    const int i = back ? n - 1 - s : s;
    wide_t<T> t = w[static_cast<size_t>(i)];
    const int lo = back ? i + 1 : 0, hi = back ? n : i;
    for (int j = lo; j < hi; ++j) t -= op(i, j) * w[static_cast<size_t>(j)];
    w[static_cast<size_t>(i)] = unit ? t : t / op(i, i);
  }
  for (int i = 0; i < n; ++i) x[vec_index(i, n, incx)] = narrow<T>(w[static_cast<size_t>(i)]);
}

// A bound for sums of k terms: a few units of k ulps.
inline double sum_tolerance(int64_t k) {
  return 4.0 * static_cast<double>(k + 2) * std::numeric_limits<double>::epsilon();
}

}  // namespace zml::test
