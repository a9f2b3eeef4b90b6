// SPDX-License-Identifier: BSD-3-Clause
// Element offsets in strided vectors, computed in 64 bits. Increments are
// 32-bit and INT32_MIN has no 32-bit negation, so every family takes the
// magnitude and the offsets from here instead of negating an increment.
#pragma once

#include <cstdint>

namespace zml::serv {

// |inc| as a 64-bit count of elements.
constexpr int64_t stride_magnitude(int32_t inc) {
  return inc < 0 ? -static_cast<int64_t>(inc) : static_cast<int64_t>(inc);
}

// Offset, in elements, of logical element i of a vector of len elements with
// increment inc. A negative increment starts at the far end: logical element
// 0 lies (len - 1) * |inc| elements past the base.
constexpr int64_t element_offset(int64_t len, int32_t inc, int64_t i) {
  return inc < 0 ? (len - 1 - i) * stride_magnitude(inc) : i * static_cast<int64_t>(inc);
}

static_assert(element_offset(3, INT32_MIN, 0) == int64_t{2} << 31 &&
              element_offset(3, INT32_MIN, 2) == 0 && element_offset(3, -2, 1) == 2 &&
              element_offset(3, 4, 2) == 8);

}  // namespace zml::serv
