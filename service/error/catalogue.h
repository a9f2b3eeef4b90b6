// SPDX-License-Identifier: BSD-3-Clause
// The numbered message catalogue: 1,300 rows with built-in English texts
// (printf formats). Numbers are fixed; rows of families this library does not
// carry keep their place with an empty text.
#pragma once

#include <cstdint>

namespace zml::serv {

inline constexpr int32_t kMessageCount = 1300;

struct MessageRow {
  const char* text;  // built-in format, never null
  int32_t id;        // message number + 1
  int32_t kind;      // class word
};

// The row of message `number`, or null outside 0..1299.
const MessageRow* message_row(int32_t number);

}  // namespace zml::serv
