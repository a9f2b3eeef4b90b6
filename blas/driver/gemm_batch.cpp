// SPDX-License-Identifier: BSD-3-Clause
// The batched multiply. Batches are mostly many small products, so threads
// take whole products (never parts of one), each member reuses one packing
// buffer for all of its products, and every product goes straight to the
// single-thread multiply of the active code path (its small path when it
// fits). A batch of a few large products instead gives each product the
// whole team in turn.
#include "blas/driver/gemm_batch.h"

#include <algorithm>
#include <atomic>

#include "blas/driver/dgemm_serial.h"
#include "blas/driver/gemm_blocked.h"
#include "blas/driver/gemm_driver.h"
#include "blas/driver/zgemm_serial.h"
#include "service/threading/team.h"

namespace zml::blas {

namespace {

using gemm_blocked::ComplexElem;
using gemm_blocked::RealElem;

// A member's packing buffer: grown to the largest product it meets, kept
// for all of them, released when the member is done.
class PackBuffer {
 public:
  PackBuffer() = default;
  PackBuffer(const PackBuffer&) = delete;
  PackBuffer& operator=(const PackBuffer&) = delete;
  ~PackBuffer() { serv::aligned_free(p_); }
  double* get(int64_t doubles) {
    if (doubles > cap_) {
      serv::aligned_free(p_);
      p_ = static_cast<double*>(serv::aligned_alloc(static_cast<size_t>(doubles) * 8, 4096));
      cap_ = p_ != nullptr ? doubles : 0;
    }
    return p_;
  }

 private:
  double* p_ = nullptr;
  int64_t cap_ = 0;
};

// The blocked loops on the member's buffer, with the blocking the
// single-thread multiply takes, so a product gives the bits it gives alone.
template <class E>
void blocked_in(PackBuffer& buf, const typename E::Row& row, int32_t ta, int32_t tb, int64_t m,
                int64_t n, int64_t k, typename E::Scalar alpha, const double* a, int64_t lda,
                const double* b, int64_t ldb, typename E::Scalar beta, double* c, int64_t ldc) {
  constexpr int64_t w = E::kWords;
  const gemm_blocked::Blocking bl = gemm_blocked::blocking_for(row, m, n, k, 8 * w);
  const int64_t a_doubles = ((bl.mc + row.mr - 1) / row.mr * row.mr * bl.kc * w + 511) / 512 * 512;
  const int64_t b_doubles = (bl.nc + row.nr - 1) / row.nr * row.nr * bl.kc * w;
  double* p = buf.get(a_doubles + b_doubles);
  if (p == nullptr) {
    gemm_blocked::run<E>(row, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    return;
  }
  gemm_blocked::loops<E>(row, bl, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, p,
                         p + a_doubles);
}

// The complex product of the ordinary method on the member's buffer.
void complex_product(PackBuffer& buf, const zgemm_variant& row, int32_t ta, int32_t tb, int32_t m,
                     int32_t n, int32_t k, const zcomplex* alpha, const zcomplex* a, int32_t lda,
                     const zcomplex* b, int32_t ldb, const zcomplex* beta, zcomplex* c,
                     int32_t ldc) {
  const auto* al = reinterpret_cast<const double*>(alpha);
  const auto* be = reinterpret_cast<const double*>(beta);
  const int32_t small = std::min<int32_t>(row.small_max, kZgemmSmallMax);
  if (k == 0 || *alpha == 0.0 || (m <= small && n <= small && k <= small)) {
    zgemm_serial_row(row, ta, tb, m, n, k, al, reinterpret_cast<const double*>(a), lda,
                     reinterpret_cast<const double*>(b), ldb, be, reinterpret_cast<double*>(c),
                     ldc);
    return;
  }
  blocked_in<ComplexElem>(buf, row, ta, tb, m, n, k, al, reinterpret_cast<const double*>(a), lda,
                          reinterpret_cast<const double*>(b), ldb, be, reinterpret_cast<double*>(c),
                          ldc);
}

// What each kind does with one product (m, n >= 1) in a member, and with one
// product given the whole team.
struct RealKind {
  using T = double;
  struct Rows {
    const dgemm_variant& d;
  };
  static constexpr double kWorkFactor = 1.0;
  static Rows rows() { return {dgemm_active_variant()}; }
  static void product(PackBuffer& buf, Rows r, int32_t ta, int32_t tb, int32_t m, int32_t n,
                      int32_t k, const T* alpha, const T* a, int32_t lda, const T* b, int32_t ldb,
                      const T* beta, T* c, int32_t ldc) {
    if (k == 0 || *alpha == 0.0) {
      dgemm_scale_c(m, n, *beta, c, ldc);
    } else if (m <= r.d.small_max && n <= r.d.small_max && k <= r.d.small_max) {
      dgemm_serial_row(r.d, ta != 0, tb != 0, m, n, k, *alpha, a, lda, b, ldb, *beta, c, ldc);
    } else {
      blocked_in<RealElem>(buf, r.d, ta, tb, m, n, k, *alpha, a, lda, b, ldb, *beta, c, ldc);
    }
  }
  static void whole_team(const char* ta, const char* tb, const int32_t* m, const int32_t* n,
                         const int32_t* k, const T* alpha, const T* a, const int32_t* lda,
                         const T* b, const int32_t* ldb, const T* beta, T* c, const int32_t* ldc) {
    zml_blas_dgemm(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  }
};

struct ComplexKind {
  using T = zcomplex;
  struct Rows {
    const zgemm_variant& z;
  };
  static constexpr double kWorkFactor = 4.0;
  static Rows rows() { return {zgemm_active_variant()}; }
  static void product(PackBuffer& buf, Rows r, int32_t ta, int32_t tb, int32_t m, int32_t n,
                      int32_t k, const T* alpha, const T* a, int32_t lda, const T* b, int32_t ldb,
                      const T* beta, T* c, int32_t ldc) {
    complex_product(buf, r.z, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  }
  static void whole_team(const char* ta, const char* tb, const int32_t* m, const int32_t* n,
                         const int32_t* k, const T* alpha, const T* a, const int32_t* lda,
                         const T* b, const int32_t* ldb, const T* beta, T* c, const int32_t* ldc) {
    zml_blas_zgemm(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  }
};

struct Complex3mKind {
  using T = zcomplex;
  struct Rows {
    const dgemm_variant& d;
    const zgemm_variant& z;
  };
  static constexpr double kWorkFactor = 3.0;
  static Rows rows() { return {dgemm_active_variant(), zgemm_active_variant()}; }
  static void product(PackBuffer& buf, Rows r, int32_t ta, int32_t tb, int32_t m, int32_t n,
                      int32_t k, const T* alpha, const T* a, int32_t lda, const T* b, int32_t ldb,
                      const T* beta, T* c, int32_t ldc) {
    if (m <= kZgemm3mMin || n <= kZgemm3mMin || k <= kZgemm3mMin) {
      complex_product(buf, r.z, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
      return;
    }
    zgemm3m_serial(r.d, ta, tb, m, n, k, reinterpret_cast<const double*>(alpha),
                   reinterpret_cast<const double*>(a), lda, reinterpret_cast<const double*>(b), ldb,
                   reinterpret_cast<const double*>(beta), reinterpret_cast<double*>(c), ldc,
                   buf.get(zgemm3m_work_doubles(r.d, m, n, k)));
  }
  static void whole_team(const char* ta, const char* tb, const int32_t* m, const int32_t* n,
                         const int32_t* k, const T* alpha, const T* a, const int32_t* lda,
                         const T* b, const int32_t* ldb, const T* beta, T* c, const int32_t* ldc) {
    zml_blas_zgemm3m(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  }
};

// Where a member stands in the groups: group g starts at product `start`.
// A member claims ranges in increasing order, so the cursor only moves on.
template <class I>
struct Cursor {
  int32_t g = 0;
  I start = 0;
};

// Products [begin, end) in the calling member.
template <class Kind, class I>
void run_range(const BatchArgs& x, typename Kind::Rows rows, I begin, I end, Cursor<I>& cur,
               PackBuffer& buf) {
  using T = typename Kind::T;
  const auto* alpha = static_cast<const T*>(x.alpha);
  const auto* beta = static_cast<const T*>(x.beta);
  I i = begin;
  while (i < end) {
    while (i - cur.start >= x.group_size[cur.g]) {
      cur.start += x.group_size[cur.g];
      ++cur.g;
    }
    const int32_t g = cur.g;
    const I stop = static_cast<I>(std::min<int64_t>(end, int64_t{cur.start} + x.group_size[g]));
    const int32_t m = x.m[g], n = x.n[g], k = x.k[g];
    // An empty C is never touched; with k == 0 A and B are never read (only
    // C is scaled), so their pointers may be null.
    if (m > 0 && n > 0) {
      const int32_t ta = trans_code(x.transa + g), tb = trans_code(x.transb + g);
      for (; i < stop; ++i) {
        Kind::product(buf, rows, ta, tb, m, n, k, alpha + g, static_cast<const T*>(x.a[i]),
                      x.lda[g], static_cast<const T*>(x.b[i]), x.ldb[g], beta + g,
                      static_cast<T*>(x.c[i]), x.ldc[g]);
      }
    }
    i = stop;
  }
}

// Every product through the whole-team driver, one after another.
template <class Kind, class I>
void run_each_with_team(const BatchArgs& x) {
  using T = typename Kind::T;
  I i = 0;
  for (int32_t g = 0; g < x.group_count; ++g) {
    const char ta[2] = {x.transa[g], 0}, tb[2] = {x.transb[g], 0};
    for (int32_t s = 0; s < x.group_size[g]; ++s, ++i) {
      Kind::whole_team(ta, tb, x.m + g, x.n + g, x.k + g, static_cast<const T*>(x.alpha) + g,
                       static_cast<const T*>(x.a[i]), x.lda + g, static_cast<const T*>(x.b[i]),
                       x.ldb + g, static_cast<const T*>(x.beta) + g, static_cast<T*>(x.c[i]),
                       x.ldc + g);
    }
  }
}

// The batch with product numbers of type I. Members claim ranges of products
// from a shared counter, so products of unequal size even out; which member
// computes a product does not change its result.
template <class Kind, class I>
void gemm_batch_internal(const BatchArgs& x, int64_t total, double work) {
  const int32_t team = gemm_batch_team(serv::team_size(serv::kDomainBlas), total, work);
  if (team == 0) {
    run_each_with_team<Kind, I>(x);
    return;
  }
  const typename Kind::Rows rows = Kind::rows();
  if (team == 1) {
    PackBuffer buf;
    Cursor<I> cur;
    run_range<Kind, I>(x, rows, I{0}, static_cast<I>(total), cur, buf);
    return;
  }
  // Ranges small enough to balance products of unequal cost, large enough
  // that claiming one costs little beside the products in it.
  const int64_t chunk = std::max<int64_t>(1, std::min<int64_t>(64, total / (int64_t{team} * 16)));
  std::atomic<int64_t> next{0};
  serv::run_team(team, [&](int32_t, int32_t) {
    PackBuffer buf;
    Cursor<I> cur;
    for (;;) {
      const int64_t b = next.fetch_add(chunk, std::memory_order_relaxed);
      if (b >= total) break;
      run_range<Kind, I>(x, rows, static_cast<I>(b), static_cast<I>(std::min(total, b + chunk)),
                         cur, buf);
    }
  });
}

template <class Kind>
void gemm_batch_internal32(const BatchArgs& x, int64_t total, double work) {
  gemm_batch_internal<Kind, int32_t>(x, total, work);
}

template <class Kind>
void gemm_batch_internal64(const BatchArgs& x, int64_t total, double work) {
  gemm_batch_internal<Kind, int64_t>(x, total, work);
}

template <class Kind>
void run_kind(bool wide, const BatchArgs& x) {
  int64_t total = 0;
  double work = 0.0;
  for (int32_t g = 0; g < x.group_count; ++g) {
    total += x.group_size[g];
    work += Kind::kWorkFactor * x.group_size[g] * static_cast<double>(x.m[g]) * x.n[g] * x.k[g];
  }
  if (total == 0) return;
  if (wide) {
    gemm_batch_internal64<Kind>(x, total, work);
  } else {
    gemm_batch_internal32<Kind>(x, total, work);
  }
}

}  // namespace

int64_t gemm_batch_products(const BatchArgs& args) {
  int64_t total = 0;
  for (int32_t g = 0; g < args.group_count; ++g) total += args.group_size[g];
  return total;
}

int32_t gemm_batch_team(int32_t T, int64_t products, double work) {
  const double min_work = static_cast<double>(kGemmV1MinWork);
  if (T <= 1 || work < 2.0 * min_work) return 1;
  if (products < T) return 0;
  return static_cast<int32_t>(std::min<double>(T, work / min_work));
}

void zml_blas_gemm_batch(BatchKind kind, bool wide, const BatchArgs& args) {
  switch (kind) {
    case BatchKind::kReal:
      run_kind<RealKind>(wide, args);
      break;
    case BatchKind::kComplex:
      run_kind<ComplexKind>(wide, args);
      break;
    case BatchKind::kComplex3m:
      run_kind<Complex3mKind>(wide, args);
      break;
  }
}

}  // namespace zml::blas
