// SPDX-License-Identifier: BSD-3-Clause
// The questions every dispatch table asks of the processor, and the registry.
#include "service/dispatch/code_path_table.h"

#include <algorithm>
#include <cstring>

#include "service/cpu/code_path.h"

namespace zml::dispatch {

namespace {

// Each detected processor type's code path is served by the highest level its
// instruction set reaches, so the levels and the detection cannot disagree.
constexpr bool levels_match_detection() {
  for (const cpu::ProcessorTypeRow& type : cpu::kProcessorTypeTable) {
    if (!cpu::type_has_library(type.type)) continue;
    const cpu::FeatureSet has = cpu::group(type.level);
    const int32_t level = level_of_path(cpu::code_path_of_type(cpu::fold_type(type.type)));
    if (!has.contains(kLevels[level].needs)) return false;
    if (level + 1 < kLevelCount && has.contains(kLevels[level + 1].needs)) return false;
  }
  return true;
}
static_assert(levels_match_detection());

constinit const TableBase* g_first = nullptr;

}  // namespace

// The flags answer for the instruction cap and for the level of a forced or
// fixed processor type: a cap of AVX2 on an AVX-512 processor leaves kAvx2
// usable and makes kAvx512 unusable.
bool isa_usable(Isa isa) {
  const IsaLevel& level = kLevels[static_cast<size_t>(isa)];
  if (!(level.needs == cpu::FeatureSet{}) && !cpu::has(level.needs)) return false;
  return level.cap_flag == kNoCapFlag ||
         serv::isa_allowed(static_cast<serv::IsaFlag>(level.cap_flag));
}

int32_t TableBase::pick_index(int32_t cp) const {
  const int32_t baseline = level_of_path(0);
  for (int32_t l = level_of_path(cp); l > baseline; --l) {
    if (isa_usable(info_[static_cast<size_t>(level_row_[l])].isa)) return level_row_[l];
  }
  return level_row_[baseline];
}

Registration::Registration(std::initializer_list<const TableBase*> tables) {
  for (const TableBase* t : tables) {
    t->next_ = g_first;
    g_first = t;
  }
}

std::vector<const TableBase*> all_tables() {
  std::vector<const TableBase*> list;
  for (const TableBase* t = g_first; t != nullptr; t = t->next_) list.push_back(t);
  std::sort(list.begin(), list.end(), [](const TableBase* a, const TableBase* b) {
    return std::strcmp(a->name(), b->name()) < 0;
  });
  return list;
}

}  // namespace zml::dispatch
