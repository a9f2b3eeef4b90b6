// SPDX-License-Identifier: BSD-3-Clause
// The text of one verbose line, apart from where it is written, so the format
// can be checked without the environment.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zml::serv {

// What a verbose line reports besides the call itself.
struct VerboseContext {
  int32_t threads = 1;
  int32_t dynamic = 1;
  int32_t fast_mm = 1;
  int32_t code_path = 0;
};

// Elapsed seconds with 2 decimals in the largest of s, ms, us, ns that keeps
// the value at least 1 (ns below that): "12.34us", "0.00ns".
void format_elapsed(double seconds, char* buf, size_t size);

// "ZML_VERBOSE <call> <time> threads:<n> dynamic:<d> fast_mm:<f> code_path:<cp>\n",
// cut to fit buf. Returns the length written.
size_t format_verbose_line(char* buf, size_t size, const char* call_text, double elapsed,
                           const VerboseContext& ctx);

}  // namespace zml::serv
