// SPDX-License-Identifier: BSD-3-Clause
// The per-thread words of the vector-math functions and what a call does with
// them: the mode (accuracy and error mode), the status of the last call, and
// the reactions the error mode asks for.
#pragma once

#include <cstdint>

namespace zml::vml {

// The calling thread's mode word, computed at its first call: the configured
// mode (ZML_VML_MODE) with high accuracy and the default error mode filling
// whichever part it leaves 0, or VML_HA | VML_ERRMODE_DEFAULT without one.
uint32_t current_mode();
// Sets the thread's mode word as it stands (0 makes the next call compute it
// again); returns the previous word.
uint32_t set_mode(uint32_t mode);
int32_t status();
void set_status(int32_t status);

// The mode a configured value turns into.
uint32_t complete_mode(uint32_t configured);

// The table row of an accuracy: 0, 1, 2 for VML_LA, VML_HA, VML_EP. Accuracy
// bits outside 1..3 (a number configured by hand) compute in high accuracy.
inline int32_t accuracy_row(uint32_t mode) {
  const uint32_t a = mode & 15u;
  return a >= 1 && a <= 3 ? static_cast<int32_t>(a) - 1 : 1;
}

// Reports bad argument `param` of `name` through the parameter-error routine
// and leaves `status` (-1 or -2) with the error mode's reactions.
void bad_argument(const char* name, int32_t param, int32_t status, int32_t n);
// The error mode's reactions to a nonzero status left by a call of `name`.
void react(const char* name, int32_t status, int32_t n);

}  // namespace zml::vml
