// SPDX-License-Identifier: BSD-3-Clause
// Internal pieces of the trsm drivers that tests and the regions reach: the
// decoded problem, the single-thread solve of a range of right-hand sides,
// the thread choices and the team that splits the right-hand sides.
#pragma once

#include <cstdint>

#include "blas/blas.h"

namespace zml::blas {

// op(A) X = alpha B (left) or X op(A) = alpha B (right), B m x n in place.
// Pointers are to doubles; strides count elements (complex: pairs).
struct TrsmProblem {
  bool left;
  bool upper;
  int32_t ta;  // 0 'N', 1 'T', 2 'C'
  bool unit;
  int64_t m, n;
  const double* a;
  int64_t lda;
  double* b;
  int64_t ldb;
  // The independent right-hand sides: columns of B for side L, rows for R.
  int64_t rhs() const { return left ? n : m; }
};

// Scales right-hand sides [r0, r1) by alpha (real: alpha[0]; complex: the
// pair) and solves them, in the calling thread. Every right-hand side gets
// the same arithmetic whichever range it is solved in, so results do not
// depend on how a team splits them.
void dtrsm_solve_range(const TrsmProblem& p, const double* alpha, int64_t r0, int64_t r1);
void ztrsm_solve_range(const TrsmProblem& p, const double* alpha, int64_t r0, int64_t r1);

// Team sizes (1: the calling thread alone). T is the BLAS-domain count.
int32_t trsm_v1_thread_choice(bool complex, int32_t T, int32_t m, int32_t n, bool left);
int32_t trsm_v2_thread_choice(int32_t code_path, bool complex, int32_t T, int32_t m, int32_t n,
                              bool left);

// A team of `threads` (at most) splitting the right-hand sides in contiguous
// shares of whole leaf groups.
void dtrsm_team(int32_t threads, const TrsmProblem& p, const double* alpha);
void ztrsm_team(int32_t threads, const TrsmProblem& p, const double* alpha);

}  // namespace zml::blas
