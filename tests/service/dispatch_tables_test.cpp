// SPDX-License-Identifier: BSD-3-Clause
// Every registered dispatch table under every code path, through its pick:
// every slot filled, no slot wider than its path's level (so code path 8
// never reaches an FMA kernel), slots ordered, and what runs usable here.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "service/dispatch/code_path_table.h"
#include "service/service.h"

namespace zml::dispatch {
namespace {

struct TestRow {
  Isa isa;
  const char* name;
};
constexpr TestRow kRef{Isa::kRef, "ref"}, kAvx2{Isa::kAvx2, "avx2"}, kAvx2x32{Isa::kAvx2, "x32"};
constexpr Table<TestRow> kSparse{"sparse", {&kRef, &kAvx2}, {&kAvx2x32}};
// Levels without a row run the next lower level's; the narrow row only where
// registers are few.
static_assert(kSparse.slot(0).isa == Isa::kRef && kSparse.slot(8).isa == Isa::kRef);
static_assert(&kSparse.at(Isa::kAvx2) == (kNarrowRegisters ? &kAvx2x32 : &kAvx2));
static_assert(kSparse.slot(11).isa == Isa::kAvx2 && kSparse.rows().size() == 3);

int32_t order(Isa isa) { return static_cast<int32_t>(isa); }

TEST(DispatchTables, EveryCodePathOverEveryTable) {
  const std::vector<const TableBase*> tables = all_tables();
  ASSERT_FALSE(tables.empty());
  std::set<std::string> names;
  for (const TableBase* t : tables) {
    SCOPED_TRACE(t->name());
    EXPECT_TRUE(names.insert(t->name()).second);
    std::set<std::string> rows;
    for (int32_t i = 0; i < t->row_count(); ++i) EXPECT_TRUE(rows.insert(t->row(i).name).second);
    for (int32_t cp = 0; cp < kCodePaths; ++cp) {
      SCOPED_TRACE("code path " + std::to_string(cp));
      const RowInfo slot = t->slot(cp), picked = t->picked(cp);
      ASSERT_NE(slot.name, nullptr);
      EXPECT_LE(order(slot.isa), order(isa_of_path(cp)));
      EXPECT_GE(order(slot.isa), order(t->slot(cp > 0 ? cp - 1 : 0).isa));
      EXPECT_TRUE(isa_usable(picked.isa)) << picked.name;
      EXPECT_LE(order(picked.isa), order(slot.isa));
      EXPECT_TRUE(!isa_usable(slot.isa) || picked.name == slot.name) << picked.name;
    }
    EXPECT_STREQ(t->running().name, t->picked(zml_serv_get_code_path()).name);
  }
}

}  // namespace
}  // namespace zml::dispatch
