// SPDX-License-Identifier: BSD-3-Clause
// Vendor-neutral classification of the running processor into a processor
// type, by the feature groups alone (no family or model tables to go stale).
#include <array>

#include "service/cpu/code_path.h"
#include "service/service.h"

namespace zml::cpu {

namespace {

struct ClassRow {
  FeatureSet required;
  bool needs_vnni;
  int32_t type;
};

// First match wins. SSE3 without SSSE3 takes type 3, the later of the two
// older SSE2/SSE3 rows; type 2 is reached only through the SSE2 and SSE3
// reproducibility branches. Many-core AVX-512 processors lack DQ/BW/VL and
// land on type 7, which is where types 8 and 10 are folded anyway.
constexpr std::array<ClassRow, 8> kClasses = {{
    {group(Level::kAvx512), true, 11},
    {group(Level::kAvx512), false, 9},
    {group(Level::kAvx2), false, 7},
    {group(Level::kAvx), false, 6},
    {group(Level::kSse42), false, 5},
    {sse2_with(bit::kSsse3), false, 4},
    {sse2_with(bit::kSse3), false, 3},
    {sse2_with(0), false, 0},
}};

}  // namespace

void PendingMessages::add(int32_t number, int32_t count, int32_t arg) {
  if (size_ < static_cast<int32_t>(list_.size()))
    list_[static_cast<size_t>(size_++)] = {number, count, arg};
}

void PendingMessages::print() const {
  for (int32_t i = 0; i < size_; ++i) {
    const Message& m = list_[static_cast<size_t>(i)];
    if (m.count > 0) {
      zml_serv_print(0, m.number, m.count, m.arg);
    } else {
      zml_serv_print(0, m.number, 0);
    }
  }
}

int32_t classify(FeatureSet f, int32_t vnni, int32_t* failed, PendingMessages* messages) {
  for (const ClassRow& row : kClasses) {
    if (f.contains(row.required) && (!row.needs_vnni || vnni != 0)) return row.type;
  }
  messages->add(1210, 0);
  messages->add(1211, 0);
  *failed = 1;
  return -1;
}

}  // namespace zml::cpu
