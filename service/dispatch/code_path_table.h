// SPDX-License-Identifier: BSD-3-Clause
// How every family picks its kernels. The instruction-set levels are listed
// once, in ZML_ISA_LEVELS; each operation gives its rows (one per kernel
// folder it has) to a Table, which hands every code path the row of that
// path's level, or of the next lower level that has one, and resolves this
// process's row once. Every table enters a registry that zml-info and the
// table test walk.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <vector>

#include "service/cpu/features.h"
#include "service/service.h"

namespace zml::dispatch {

inline constexpr int32_t kCodePaths = 12;
inline constexpr int32_t kNoCapFlag = -1;

#if defined(__x86_64__)
inline constexpr cpu::FeatureSet kSse2Needs = {};  // part of the architecture
#else
inline constexpr cpu::FeatureSet kSse2Needs = cpu::group(cpu::Level::kSse2);
#endif

// The instruction-set levels, lowest first, one kernel folder each:
//   X(folder and namespace, Isa enumerator, what the processor must have,
//     the isa_allowed flag through which the instruction cap forbids it,
//     the lowest code path it serves)
// A level serves the code paths from its own up to the next level's:
//   sse2    0-6: SSE3 and SSSE3 (paths 2-5) give these kernels nothing; 1 and
//           6 come from overrides only.
//   sse42   7: SSE4.2 adds string, CRC and population-count instructions,
//           nothing the BLAS loops use, so BLAS has no sse42 folder and
//           path 7 runs its SSE2 rows.
//   avx     8: 256-bit without FMA; the FMA kernels live in avx2 and up.
//   avx2    9-10: no processor is detected as 10 (the many-core types that
//           would give it run as type 7, path 9); an override naming 10 runs
//           what 9 runs.
//   avx512  11.
// ref is plain C++, the reference the other rows are tested against; it
// serves no code path of its own, only the levels below a table's first
// folder.
#define ZML_ISA_LEVELS(X)                                              \
  X(ref, kRef, cpu::FeatureSet{}, kNoCapFlag, -1)                      \
  X(sse2, kSse2, kSse2Needs, kNoCapFlag, 0)                            \
  X(sse42, kSse42, cpu::group(cpu::Level::kSse42), serv::kIsaSse42, 7) \
  X(avx, kAvx, cpu::group(cpu::Level::kAvx), serv::kIsaAvx, 8)         \
  X(avx2, kAvx2, cpu::group(cpu::Level::kAvx2), serv::kIsaAvx2, 9)     \
  X(avx512, kAvx512, cpu::group(cpu::Level::kAvx512), serv::kIsaAvx512, 11)

enum class Isa : int32_t {
#define ZML_ISA_ENUMERATOR(folder, isa, needs, cap_flag, first_path) isa,
  ZML_ISA_LEVELS(ZML_ISA_ENUMERATOR)
#undef ZML_ISA_ENUMERATOR
};

struct IsaLevel {
  Isa isa;
  cpu::FeatureSet needs;
  int32_t cap_flag;
  int32_t first_path;
};

inline constexpr IsaLevel kLevels[] = {
#define ZML_ISA_ENTRY(folder, isa, needs, cap_flag, first_path) \
  {Isa::isa, needs, cap_flag, first_path},
    ZML_ISA_LEVELS(ZML_ISA_ENTRY)
#undef ZML_ISA_ENTRY
};
inline constexpr int32_t kLevelCount = static_cast<int32_t>(std::size(kLevels));

// The level that serves code path cp (out-of-range paths run as path 0).
constexpr int32_t level_of_path(int32_t cp) {
  if (cp < 0 || cp >= kCodePaths) cp = 0;
  int32_t level = 0;
  for (int32_t l = 0; l < kLevelCount; ++l) {
    if (kLevels[l].first_path >= 0 && kLevels[l].first_path <= cp) level = l;
  }
  return level;
}
constexpr Isa isa_of_path(int32_t cp) { return kLevels[level_of_path(cp)].isa; }

static_assert(kLevels[0].isa == Isa::kRef && kLevels[1].first_path == 0);
static_assert(kLevels[kLevelCount - 1].first_path < kCodePaths);
static_assert(isa_of_path(7) == Isa::kSse42 && isa_of_path(8) == Isa::kAvx);
static_assert(isa_of_path(10) == Isa::kAvx2);

// True when the processor (with the operating system's register state) has
// everything `isa` needs and the instruction cap does not forbid it.
bool isa_usable(Isa isa);

// 32-bit x86 has 8 vector registers, x86-64 16 or 32: rows whose register
// tiles need more come with a narrow form, which 32-bit builds run.
inline constexpr bool kNarrowRegisters = sizeof(void*) == 4;

struct RowInfo {
  const char* name;
  Isa isa;
};

// What the registry sees of a table, whatever its row type.
class TableBase {
 public:
  static constexpr int32_t kMaxRows = 2 * kLevelCount;

  constexpr const char* name() const { return name_; }
  constexpr int32_t row_count() const { return count_; }
  constexpr RowInfo row(int32_t i) const { return info_[static_cast<size_t>(i)]; }
  // The row of code path cp's level, whatever this processor supports.
  constexpr RowInfo slot(int32_t cp) const { return row(level_row_[level_of_path(cp)]); }
  // The row pick(cp) runs here: the slot's row, or, when its instruction set
  // is unusable (an override may name a path above the hardware, a cap may
  // forbid it), the best usable row of the lower levels.
  RowInfo picked(int32_t cp) const { return row(pick_index(cp)); }
  // The row this process runs (resolving it if still unresolved).
  RowInfo running() const { return row(running_(*this)); }
  // Its index among the table's rows.
  int32_t running_index() const { return running_(*this); }

 protected:
  constexpr TableBase(const char* name, int32_t (*resolve_index)(const TableBase&))
      : name_(name), running_(resolve_index) {}

  constexpr void add(RowInfo info, bool narrow) {
    const int32_t level = static_cast<int32_t>(info.isa);
    if (count_ == kMaxRows || (narrow && level_row_[level] < 0) ||
        (!narrow && level_row_[level] >= 0)) {
      throw "one wide row per level, and a narrow row only beside a wide one";
    }
    info_[count_] = info;
    if (!narrow || kNarrowRegisters) level_row_[level] = static_cast<int8_t>(count_);
    ++count_;
  }
  // A level without a row of its own runs the next lower level's.
  constexpr void fill_levels() {
    if (level_row_[0] < 0) throw "every table needs its ref row";
    for (int32_t l = 1; l < kLevelCount; ++l) {
      if (level_row_[l] < 0) level_row_[l] = level_row_[l - 1];
    }
  }
  constexpr int32_t level_row(int32_t level) const { return level_row_[level]; }
  int32_t pick_index(int32_t cp) const;

 private:
  friend class Registration;
  friend std::vector<const TableBase*> all_tables();
  const char* name_;
  int32_t (*running_)(const TableBase&);
  std::array<RowInfo, kMaxRows> info_{};
  std::array<int8_t, kLevelCount> level_row_ = [] {
    std::array<int8_t, kLevelCount> none{};
    none.fill(-1);
    return none;
  }();
  int32_t count_ = 0;
  mutable const TableBase* next_ = nullptr;
};

// One operation's rows. `rows` holds the ref row and one row per kernel folder
// the operation has, each placed at its own level by its `isa` member;
// `narrow` holds rows that replace the row of their level in 32-bit builds
// (both kinds are built and tested everywhere). Tables are constexpr objects:
// only the resolved row changes at run time.
template <class Row>
class Table : public TableBase {
 public:
  constexpr Table(const char* name, std::initializer_list<const Row*> rows,
                  std::initializer_list<const Row*> narrow = {})
      : TableBase(name, &index_of_running) {
    for (const Row* r : rows) add_row(r, false);
    for (const Row* r : narrow) add_row(r, true);
    fill_levels();
  }

  // This process's row: the code path is fixed for the life of the process
  // and the store idempotent, so racing first calls need no lock.
  const Row& get() const {
    const Row* row = chosen_.load(std::memory_order_acquire);
    return row != nullptr ? *row : resolve();
  }
  // The row code path cp runs on this processor (see picked).
  const Row& pick(int32_t cp) const { return *rows_[static_cast<size_t>(pick_index(cp))]; }
  // The row a level runs when usable: its own, or the next lower level's.
  constexpr const Row& at(Isa level) const {
    return *rows_[static_cast<size_t>(level_row(static_cast<int32_t>(level)))];
  }
  constexpr std::span<const Row* const> rows() const {
    return {rows_.data(), static_cast<size_t>(row_count())};
  }

 private:
  constexpr void add_row(const Row* r, bool narrow) {
    rows_[static_cast<size_t>(row_count())] = r;
    add({r->name, r->isa}, narrow);
  }
  // Out of line, so the hot path keeps no registers for the first call's work.
  [[gnu::noinline, gnu::cold]] const Row& resolve() const {
    const Row* row = &pick(zml_serv_get_code_path());
    chosen_.store(row, std::memory_order_release);
    return *row;
  }
  static int32_t index_of_running(const TableBase& base) {
    const auto& table = static_cast<const Table&>(base);
    const Row* row = &table.get();
    int32_t i = 0;
    while (table.rows_[static_cast<size_t>(i)] != row) ++i;
    return i;
  }

  std::array<const Row*, kMaxRows> rows_{};
  mutable std::atomic<const Row*> chosen_{nullptr};
};

// Enters the tables of one file into the registry while the library's
// objects are initialised; the tables themselves need no initialisation.
class Registration {
 public:
  Registration(std::initializer_list<const TableBase*> tables);
};

// Every registered table, in order of name.
std::vector<const TableBase*> all_tables();

}  // namespace zml::dispatch
