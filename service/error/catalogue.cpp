// SPDX-License-Identifier: BSD-3-Clause
// The built-in texts of the message catalogue, expanded at compile time into
// the full table so that every number keeps its row.
#include "service/error/catalogue.h"

#include <array>

namespace zml::serv {

namespace {

struct BuiltInText {
  int32_t number;
  const char* text;
};

// The messages the exported families can print.
constexpr BuiltInText kBuiltInTexts[] = {
    {0, "\n"},
    {1, "Arvel ZML FATAL ERROR: Cannot load %s."},
    {2, "Arvel ZML FATAL ERROR: Cannot load %s or %s."},
    {3, "Arvel ZML FATAL ERROR: Error on loading function %s."},
    {4, "Arvel ZML WARNING: CPU type %d is not suitable for this processor."},
    {5,
     "Arvel ZML WARNING: Library %s (ZML type %d) is not suitable for this processor (ZML "
     "type %d)."},
    {6, "Arvel ZML ERROR: Parameter %d was incorrect on entry to %s."},
    {7, "Arvel ZML INTERNAL ERROR: Condition %d detected in function %s."},
    {8, "Arvel ZML INTERNAL ERROR: Insufficient workspace available in function %s."},
    {9, "Arvel ZML ERROR: Incompatible optional parameters on entry to %s."},
    {1089, "Arvel ZML INTERNAL ERROR: Not enough work memory in function %s"},
    {1207, "Conditional numerical reproducibility mode is turned ON"},
    {1208, "Conditional numerical reproducibility mode is turned OFF"},
    {1209,
     "Arvel ZML WARNING: incorrect conditional numerical reproducibility mode, "
     "ZML_CBWR_AUTO is set"},
    {1210,
     "Arvel ZML FATAL ERROR: This system does not meet the minimum requirements for use "
     "of the Arvel(R) Zenmath Library."},
    {1211,
     "The processor must support the Arvel(R) Streaming SIMD 2 Extensions (Arvel(R) SSE2) "
     "instructions."},
    {1212, "Arvel ZML INTERNAL ERROR: Issue accessing coprocessor %s."},
    {1213, "Arvel ZML ERROR: CPU %d is not supported."},
};

// The class word of the rows this library prints.
constexpr int32_t kMessageKind = 4;

constexpr std::array<MessageRow, kMessageCount> build_catalogue() {
  std::array<MessageRow, kMessageCount> rows{};
  for (int32_t n = 0; n < kMessageCount; ++n) rows[n] = {"", n + 1, kMessageKind};
  for (const BuiltInText& t : kBuiltInTexts) rows[t.number].text = t.text;
  return rows;
}

constexpr std::array<MessageRow, kMessageCount> kCatalogue = build_catalogue();
static_assert(kCatalogue.size() == 1300 && kCatalogue[0].text[0] == '\n' &&
              kCatalogue[1299].id == 1300);

}  // namespace

const MessageRow* message_row(int32_t number) {
  if (number < 0 || number >= kMessageCount) return nullptr;
  return &kCatalogue[number];
}

}  // namespace zml::serv
