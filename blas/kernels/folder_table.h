// SPDX-License-Identifier: BSD-3-Clause
// The slot assignment shared by the kernel tables, written once: which kernel
// folder's row serves each code path.
#pragma once

#include "service/dispatch/code_path_table.h"

namespace zml::blas {

// Slot 7 runs the SSE2 row: SSE4.2 adds nothing these loops can use, so there
// is no sse42 row; slot 8 runs the AVX row (256-bit, no FMA).
template <class Row>
constexpr dispatch::Table<Row> table_by_folder(const Row* sse2, const Row* avx, const Row* avx2,
                                               const Row* avx512) {
  return {
      sse2,    // 0 baseline
      sse2,    // 1 (override only)
      sse2,    // 2
      sse2,    // 3
      sse2,    // 4
      sse2,    // 5
      sse2,    // 6 (override only)
      sse2,    // 7 SSE4.2
      avx,     // 8 AVX
      avx2,    // 9 AVX2
      avx2,    // 10 never occurs
      avx512,  // 11 AVX-512
  };
}

// 32-bit x86 has 8 vector registers, x86-64 16 or 32: rows whose register
// tiles need more come in a narrow form, which 32-bit builds take.
inline constexpr bool kNarrowRegisters = sizeof(void*) == 4;

template <class Row>
constexpr const Row* by_registers(const Row& wide, const Row& narrow) {
  return kNarrowRegisters ? &narrow : &wide;
}

}  // namespace zml::blas
