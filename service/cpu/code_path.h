// SPDX-License-Identifier: BSD-3-Clause
// Processor types and code paths: the library-name table (one row per type),
// the type-to-code-path rule, and the detection internals that tests and
// zml-info look at.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "service/cpu/features.h"

namespace zml::cpu {

inline constexpr int32_t kProcessorTypes = 12;

// One row per processor type. A build split into per-processor libraries
// would load these files; this one carries every variant itself and uses the
// rows to decide whether a type is usable (a type without a core library is
// not) and for its messages. `level` is the highest instruction-set level the
// type's kernels may use (types 0-4 are all SSE2-level for our kernels).
struct ProcessorTypeRow {
  int32_t type;
  const char* instruction_set;
  const char* core_library;  // null: served by another type
  const char* vml_library;
  Level level;
};

inline constexpr std::array<ProcessorTypeRow, kProcessorTypes> kProcessorTypeTable = {{
    {0, "SSE2 (generic)", "zml_p4.dll", "zml_vml_p4.dll", Level::kSse2},
    {1, "SSE2, compatibility variant", "zml_p4.dll", "zml_vml_cmpt.dll", Level::kSse2},
    {2, "older SSE2/SSE3 level", "zml_p4.dll", "zml_vml_p4.dll", Level::kSse2},
    {3, "older SSE2/SSE3 level", "zml_p4.dll", "zml_vml_p4.dll", Level::kSse2},
    {4, "SSSE3", "zml_p4m.dll", "zml_vml_p4m.dll", Level::kSse2},
    {5, "SSE4.2", "zml_p4m3.dll", "zml_vml_p4m3.dll", Level::kSse42},
    {6, "AVX", "zml_avx.dll", "zml_vml_avx.dll", Level::kAvx},
    {7, "AVX2", "zml_avx2.dll", "zml_vml_avx2.dll", Level::kAvx2},
    {8, "AVX-512 many-core", nullptr, nullptr, Level::kAvx2},
    {9, "AVX-512", "zml_avx512.dll", "zml_vml_avx512.dll", Level::kAvx512},
    {10, "AVX-512 many-core E1", nullptr, nullptr, Level::kAvx2},
    {11, "AVX-512 with VNNI", "zml_avx512.dll", "zml_vml_avx512.dll", Level::kAvx512},
}};

// Types 8 and 10 are served by 7, and 11 by 9.
constexpr int32_t fold_type(int32_t t) {
  if (t == 8 || t == 10) return 7;
  if (t == 11) return 9;
  return t;
}

// Usable: inside the table with a core library.
constexpr bool type_has_library(int32_t t) {
  return t >= 0 && t < kProcessorTypes &&
         kProcessorTypeTable[static_cast<std::size_t>(t)].core_library;
}

// 0 and below stay; then +1, and +1 more above type 4, which leaves code
// paths 1, 6 and 10 to overrides (1 gives 2, 4 gives 5, 5 gives 7, 9 gives 11).
constexpr int32_t code_path_of_type(int32_t t) { return t <= 0 ? t : t + 1 + (t > 4 ? 1 : 0); }

static_assert(code_path_of_type(1) == 2 && code_path_of_type(4) == 5);
static_assert(code_path_of_type(5) == 7 && code_path_of_type(7) == 9);
static_assert(code_path_of_type(9) == 11);

// Every type detection can settle on (folded) has a library and a code path
// that is not one of the gaps left to overrides.
constexpr bool settled_types_are_served() {
  for (int32_t t = 0; t < kProcessorTypes; ++t) {
    const int32_t cp = code_path_of_type(fold_type(t));
    if (kProcessorTypeTable[static_cast<std::size_t>(t)].type != t ||
        !type_has_library(fold_type(t)) || cp == 1 || cp == 6 || cp == 10 || cp > 11) {
      return false;
    }
  }
  return !type_has_library(8) && !type_has_library(10);
}
static_assert(settled_types_are_served());

// Catalogue messages raised while the service lock is held, printed after it
// is released so the printer may take locks of its own.
class PendingMessages {
 public:
  void add(int32_t number, int32_t count, int32_t arg = 0);
  void print() const;

 private:
  struct Message {
    int32_t number, count, arg;
  };
  std::array<Message, 4> list_{};
  int32_t size_ = 0;
};

// Type of the running processor from its feature words, for reproducibility
// branches 1 (none) and 2 (auto). Without SSE2 it raises the two
// minimum-requirement messages, sets *failed to 1 and yields -1.
int32_t classify(FeatureSet f, int32_t vnni, int32_t* failed, PendingMessages* messages);

// Parses the code-path override value (len characters, as the environment
// reader returned them): the override, or -1 when rejected.
int32_t parse_code_path_override(const char* value, int32_t len);

// Detection with the service lock: runs the detection routine once per
// process and returns the detected code path (the override plays no part).
int32_t detected_code_path();

// ZML_ENABLE_INSTRUCTIONS keyword code (0..6), -1 for no keyword.
int32_t instruction_cap_code(const char* value);
// The keyword of a cap code, or "none".
const char* instruction_cap_name(int32_t code);
// The first ZML_CBWR keyword of a branch, or "none" (branch 1 and unknown).
const char* branch_name(int32_t branch);
// Reads ZML_ENABLE_INSTRUCTIONS unless already read, keeps its code and, when
// the processor can honour it, sets the isa_allowed flags it allows.
void read_instruction_cap();
// The kept cap code, -1 for none.
int32_t instruction_cap();
// The lowering of a detected type by the cap; see the definition.
int32_t lower_to_cap(int32_t type);
// Without an accepted cap, sets the isa_allowed flags to what the processor
// supports up to the level of the settled type.
void settle_isa_flags(int32_t type);

// How many times the detection routine has run in this process (0 or 1 in a
// correct process; tests check that racing threads do not run it twice).
int32_t detection_runs();

// The state detection left behind, for zml-info and tests.
struct DetectionState {
  int32_t processor_type;
  int32_t code_path;
  int32_t code_path_override;
  int32_t forced_type_present;
  int32_t forced_type;
  int32_t instruction_cap;
};
DetectionState detection_state();

}  // namespace zml::cpu
