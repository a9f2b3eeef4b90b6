// SPDX-License-Identifier: BSD-3-Clause
// The shape every family uses to pick kernels: one table per operation with a
// slot for each code path 0..11, gaps included, each slot pointing at the row
// of the variant it runs. Rows carry the instruction set they need, so a slot
// whose instruction set the processor lacks or the cap forbids (an override
// can name a code path above the hardware) falls back to the best usable row
// among the lower detection paths.
#pragma once

#include <array>
#include <cstdint>

#include "service/service.h"

namespace zml::dispatch {

// Kernel folders, in increasing order of what they need.
enum class Isa : int32_t { kRef = 0, kSse2, kSse42, kAvx, kAvx2, kAvx512 };

inline constexpr int kCodePaths = 12;

// The kernel folder that serves each code path when nothing caps it:
// 0..6 are SSE2-level paths (SSSE3 gains nothing for these kernels),
// 7 SSE4.2, 8 AVX, 9 AVX2, 10 never occurs, 11 AVX-512.
inline constexpr std::array<Isa, kCodePaths> kIsaOfCodePath = {
    Isa::kSse2, Isa::kSse2,  Isa::kSse2, Isa::kSse2, Isa::kSse2, Isa::kSse2,
    Isa::kSse2, Isa::kSse42, Isa::kAvx,  Isa::kAvx2, Isa::kAvx2, Isa::kAvx512};

// True when the running processor and operating system support `isa` and the
// instruction cap allows it. Answered from the detection of service/cpu/.
bool isa_usable(Isa isa);

// One table of rows per operation. Every slot must be filled.
template <class Row>
using Table = std::array<const Row*, kCodePaths>;

// The row for code path `cp`, stepping down the detection paths (11, 9, 8, 7, 0)
// until the row's instruction set is usable. Row needs a member `Isa isa`.
template <class Row>
const Row& pick(const Table<Row>& table, int32_t cp) {
  if (cp < 0 || cp >= kCodePaths) cp = 0;
  const Row* row = table[static_cast<size_t>(cp)];
  if (isa_usable(row->isa)) return *row;
  for (int32_t lower : {11, 9, 8, 7}) {
    if (lower < cp && isa_usable(table[static_cast<size_t>(lower)]->isa)) {
      return *table[static_cast<size_t>(lower)];
    }
  }
  return *table[0];
}

// The row for this process's code path.
template <class Row>
const Row& pick(const Table<Row>& table) {
  return pick(table, zml_serv_get_code_path());
}

}  // namespace zml::dispatch
