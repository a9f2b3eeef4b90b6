// SPDX-License-Identifier: BSD-3-Clause
// The single-thread triangular solve with many right-hand sides, written once
// for real and complex elements. The triangle is split in halves recursively:
// the first half is solved, the second is updated by a packed gemm product
// with it, then solved; the halves stop at the leaf size, where the code
// path's leaf kernel solves packed groups of right-hand sides. Nearly all of
// the arithmetic is in the gemm updates.
#include <cmath>
#include <cstring>

#include "blas/driver/dgemm_serial.h"
#include "blas/driver/gemm_blocked.h"
#include "blas/driver/trsm_driver.h"
#include "blas/driver/zgemm_serial.h"
#include "blas/kernels/trsm_kernel.h"
#include "service/service.h"

namespace zml::blas {

namespace {

// The traits of gemm_blocked (the row, how alpha and beta travel, packing)
// and what the solve adds for each element type.
struct Real : gemm_blocked::RealElem {
  static const Row& gemm_row() { return dgemm_active_variant(); }
  static const trsm_variant& leaf_row() { return kDtrsmTable.get(); }
  static void gemm_alone(int32_t ta, int32_t tb, int64_t m, int64_t n, int64_t k, const double* a,
                         int64_t lda, const double* b, int64_t ldb, double* c, int64_t ldc) {
    dgemm_blocked(gemm_row(), ta != 0, tb != 0, m, n, k, -1.0, a, lda, b, ldb, 1.0, c, ldc);
  }
  static void set(double* d, const double* s, bool neg, bool /*conj*/) {
    d[0] = neg ? -s[0] : s[0];
  }
  static void reciprocal(double* d, const double* s, bool /*conj*/) { d[0] = 1.0 / s[0]; }
  static void one(double* d) { d[0] = 1.0; }
  static void scale(double* x, const double* alpha) { x[0] *= alpha[0]; }
  static bool is_one(const double* alpha) { return alpha[0] == 1.0; }
};

struct Complex : gemm_blocked::ComplexElem {
  static const Row& gemm_row() { return zgemm_active_variant(); }
  static const trsm_variant& leaf_row() { return kZtrsmTable.get(); }
  static void gemm_alone(int32_t ta, int32_t tb, int64_t m, int64_t n, int64_t k, const double* a,
                         int64_t lda, const double* b, int64_t ldb, double* c, int64_t ldc) {
    zgemm_blocked(gemm_row(), ta, tb, m, n, k, kMinusOne, a, lda, b, ldb, kOne, c, ldc);
  }
  static void set(double* d, const double* s, bool neg, bool conj) {
    d[0] = neg ? -s[0] : s[0];
    d[1] = neg != conj ? -s[1] : s[1];
  }
  // 1/(re + i im) scaled by the larger part, so that neither square can
  // overflow or underflow where the quotient itself is representable.
  static void reciprocal(double* d, const double* s, bool conj) {
    const double re = s[0], im = conj ? -s[1] : s[1];
    if (std::fabs(re) >= std::fabs(im)) {
      const double r = im / re, den = re + im * r;
      d[0] = 1.0 / den;
      d[1] = -r / den;
    } else {
      const double r = re / im, den = im + re * r;
      d[0] = r / den;
      d[1] = -1.0 / den;
    }
  }
  static void one(double* d) { d[0] = 1.0, d[1] = 0.0; }
  static void scale(double* x, const double* alpha) {
    const double xr = x[0], xi = x[1];
    x[0] = alpha[0] * xr - alpha[1] * xi;
    x[1] = alpha[0] * xi + alpha[1] * xr;
  }
  static bool is_one(const double* alpha) { return alpha[0] == 1.0 && alpha[1] == 0.0; }
};

// Triangles of at most this many bytes per right-hand side (256 real, 128
// complex unknowns) are solved a chunk of right-hand sides at a time, the
// chunk taking half of L2, so the deeper halves' updates, which sweep it once
// per level, find it there. Larger halves update every right-hand side at
// once: their products are large enough for the gemm's own blocking, and
// each repacks its part of A once per panel of B rather than once per chunk.
constexpr int64_t kChunkedBytes = 2048;

int64_t chunk_width(int64_t tri, int64_t elem_bytes, int64_t lanes) {
  const serv::CacheSizes& cs = serv::cache_sizes();
  const int64_t l2 = cs.l2 > 0 ? cs.l2 : 256 * 1024;
  const int64_t w = l2 / 2 / (tri * elem_bytes) / lanes * lanes;
  return w > lanes ? w : lanes;
}

template <class E>
class Solver {
 public:
  static constexpr int64_t w = E::kWords;

  explicit Solver(const TrsmProblem& p)
      : p_(p),
        row_(E::leaf_row()),
        // The solve runs on M = op(A) for side L and op(A)^T for side R (the
        // rows of X solve op(A)^T x = b); M(i, j) is A(j, i) when mt_.
        mt_(p.left ? p.ta != 0 : p.ta == 0),
        forward_(p.upper == mt_),
        ts_(p.left ? 1 : p.ldb),
        rs_(p.left ? p.ldb : 1) {}

  ~Solver() { serv::aligned_free(work_); }
  Solver(const Solver&) = delete;
  Solver& operator=(const Solver&) = delete;

  void run(const double* alpha, int64_t r0, int64_t r1) {
    const int64_t tri = p_.left ? p_.m : p_.n;
    double* bc = p_.b + w * r0 * rs_;
    if (!E::is_one(alpha)) scale(bc, tri, r1 - r0, alpha);
    solve(0, tri, bc, r1 - r0);
  }

 private:
  // Element (i, j) of B relative to bc: triangle index i, right-hand side j.
  double* at(double* bc, int64_t i, int64_t j) const { return bc + w * (i * ts_ + j * rs_); }
  const double* a_at(int64_t i, int64_t j) const { return p_.a + w * (i + j * p_.lda); }
  // op(A)(i, j).
  const double* op_at(int64_t i, int64_t j) const { return p_.ta == 0 ? a_at(i, j) : a_at(j, i); }

  void scale(double* bc, int64_t tri, int64_t cnt, const double* alpha) const {
    move(tri, cnt, [&](int64_t i, int64_t j) { E::scale(at(bc, i, j), alpha); });
  }

  void solve(int64_t lo, int64_t hi, double* bc, int64_t cnt) {
    const int64_t len = hi - lo;
    if (len * 8 * w <= kChunkedBytes) {
      const int64_t cw = chunk_width(len, 8 * w, row_.lanes);
      if (cw < cnt) {
        for (int64_t c0 = 0; c0 < cnt; c0 += cw) {
          solve(lo, hi, at(bc, 0, c0), cnt - c0 < cw ? cnt - c0 : cw);
        }
        return;
      }
    }
    if (len <= row_.leaf_max) {
      leaf(lo, hi, bc, cnt);
      return;
    }
    // The first half a multiple of the gemm tile's rows, so the updates'
    // row blocks fill whole tiles, or of half a leaf where that is larger.
    const int64_t half_leaf = row_.leaf_max > 1 ? row_.leaf_max / 2 : 1;
    const int64_t mr = E::gemm_row().mr <= row_.leaf_max ? E::gemm_row().mr : 1;
    const int64_t unit = mr > half_leaf ? mr : half_leaf;
    const int64_t h = ((len + 1) / 2 + unit - 1) / unit * unit;
    const int64_t f0 = forward_ ? lo : hi - h, f1 = f0 + h;
    const int64_t s0 = forward_ ? f1 : lo, s1 = forward_ ? hi : f0;
    solve(f0, f1, bc, cnt);
    update(s0, s1, f0, f1, bc, cnt);
    solve(s0, s1, bc, cnt);
  }

  // C -= op(A) op(B) through the blocked loops on this solve's packing
  // buffers, grown as the products need and kept across them: every update
  // has another shape, so buffers per product would miss the memory
  // manager's cache and map fresh pages each time. The updates take the
  // blocked loops even where they are small, since the small kernels round
  // differently, and which one a product took would then depend on how many
  // right-hand sides share it.
  void gemm(int32_t ta, int32_t tb, int64_t m, int64_t n, int64_t k, const double* a, int64_t lda,
            const double* b, int64_t ldb, double* c, int64_t ldc) {
    const typename E::Row& row = E::gemm_row();
    const gemm_blocked::Blocking bl = gemm_blocked::blocking_for(row, m, n, k, 8 * w);
    const int64_t a_doubles = (bl.mc + row.mr - 1) / row.mr * row.mr * bl.kc * w;
    const int64_t b_doubles = (bl.nc + row.nr - 1) / row.nr * row.nr * bl.kc * w;
    if (a_doubles > a_cap_ || b_doubles > b_cap_) {
      serv::aligned_free(work_);
      a_cap_ = (a_doubles + 511) / 512 * 512;
      b_cap_ = b_doubles;
      work_ = static_cast<double*>(serv::aligned_alloc(sizeof(double) * (a_cap_ + b_cap_), 4096));
      if (work_ == nullptr) a_cap_ = b_cap_ = 0;
    }
    if (work_ == nullptr) {
      E::gemm_alone(ta, tb, m, n, k, a, lda, b, ldb, c, ldc);
      return;
    }
    gemm_blocked::loops<E>(row, bl, ta, tb, m, n, k, E::kMinusOne, a, lda, b, ldb, E::kOne, c, ldc,
                           work_, work_ + a_cap_);
  }

  // B[t0, t1) -= op(A)(t, s) X[s0, s1) for side L; B[:, t] -= X[:, s] op(A)(s, t) for R.
  void update(int64_t t0, int64_t t1, int64_t s0, int64_t s1, double* bc, int64_t cnt) {
    if (p_.left) {
      gemm(p_.ta, 0, t1 - t0, cnt, s1 - s0, op_at(t0, s0), p_.lda, at(bc, s0, 0), p_.ldb,
           at(bc, t0, 0), p_.ldb);
    } else {
      gemm(0, p_.ta, cnt, t1 - t0, s1 - s0, at(bc, s0, 0), p_.ldb, op_at(s0, t0), p_.lda,
           at(bc, t0, 0), p_.ldb);
    }
  }

  // The leaf [lo, hi): its triangle packed as trsm_kernel.h states, in solve
  // order (reversed for a backward solve, which makes M lower), then every
  // group of right-hand sides through the kernel.
  void leaf(int64_t lo, int64_t hi, double* bc, int64_t cnt) {
    const int64_t len = hi - lo, lanes = row_.lanes;
    auto idx = [&](int64_t q) { return forward_ ? lo + q : hi - 1 - q; };
    const bool conj = p_.ta == 2;
    for (int64_t q = 0; q < len; ++q) {
      double* tq = t_ + w * q * (q + 1) / 2;
      const int64_t i = idx(q);
      for (int64_t c = 0; c < q; ++c) {
        const int64_t j = idx(c);
        E::set(tq + w * c, mt_ ? a_at(j, i) : a_at(i, j), true, conj);
      }
      // A unit diagonal is never read.
      if (p_.unit) {
        E::one(tq + w * q);
      } else {
        E::reciprocal(tq + w * q, a_at(i, i), conj);
      }
    }
    for (int64_t g = 0; g < cnt; g += lanes) {
      const int64_t k = cnt - g < lanes ? cnt - g : lanes;
      if (k < lanes) std::memset(x_, 0, sizeof(double) * w * lanes * len);
      transfer<true>(len, k, lanes, idx, at(bc, 0, g));
      row_.leaf(len, t_, x_, w * lanes);
      transfer<false>(len, k, lanes, idx, at(bc, 0, g));
    }
  }

  // Copies the group's k right-hand sides at bg into the slices of x_ (kIn)
  // or back. Side L reads four columns of B side by side, so each slice
  // gets four consecutive elements per pass and every column is walked
  // along its unit stride.
  template <bool kIn, class Idx>
  void transfer(int64_t len, int64_t k, int64_t lanes, const Idx& idx, double* bg) {
    auto one = [&](int64_t q, int64_t s) {
      double* x = x_ + w * (q * lanes + s);
      double* b = at(bg, idx(q), s);
      kIn ? copy(x, b) : copy(b, x);
    };
    int64_t s0 = 0;
    if (p_.left) {
      for (; s0 + 4 <= k; s0 += 4) {
        for (int64_t q = 0; q < len; ++q) {
          for (int64_t s = s0; s < s0 + 4; ++s) one(q, s);
        }
      }
    }
    for (int64_t q = 0; q < len; ++q) {
      for (int64_t s = s0; s < k; ++s) one(q, s);
    }
  }

  static void copy(double* d, const double* s) {
    d[0] = s[0];
    if constexpr (w == 2) d[1] = s[1];
  }
  // Visits (q, s) for q < len, s < k with the inner loop along B's unit
  // stride: the unknowns of a column for side L, the right-hand sides for R.
  template <class F>
  void move(int64_t len, int64_t k, F&& f) const {
    if (p_.left) {
      for (int64_t s = 0; s < k; ++s) {
        for (int64_t q = 0; q < len; ++q) f(q, s);
      }
    } else {
      for (int64_t q = 0; q < len; ++q) {
        for (int64_t s = 0; s < k; ++s) f(q, s);
      }
    }
  }

  const TrsmProblem& p_;
  double* work_ = nullptr;
  int64_t a_cap_ = 0, b_cap_ = 0;
  const trsm_variant& row_;
  const bool mt_, forward_;
  const int64_t ts_, rs_;
  double t_[kTrsmLeafCap * (kTrsmLeafCap + 1)];
  double x_[kTrsmLeafCap * kTrsmLaneDoublesCap];
};

}  // namespace

void dtrsm_solve_range(const TrsmProblem& p, const double* alpha, int64_t r0, int64_t r1) {
  Solver<Real>(p).run(alpha, r0, r1);
}

void ztrsm_solve_range(const TrsmProblem& p, const double* alpha, int64_t r0, int64_t r1) {
  Solver<Complex>(p).run(alpha, r0, r1);
}

}  // namespace zml::blas
