// SPDX-License-Identifier: BSD-3-Clause
// The small hand-written rules that turn environment values into settings,
// kept as pure functions over the value text so each rule is testable alone.
#pragma once

#include <array>
#include <cstdint>

namespace zml::serv::env {

// zml_serv_getenv with the restricted-environment flag passed in.
int32_t read(const char* name, char* buf, int32_t size, bool restricted);

// Decimal digits only, at least one; values past INT32_MAX saturate. False
// for anything else (the value is then left alone).
bool parse_digits(const char* s, int32_t* value);

// The thread-count rule of ZML_NUM_THREADS, OMP_NUM_THREADS and the domain
// list: any non-digit (or no digit at all) means 1, not "unset".
int32_t thread_count(const char* s);

// ZML_DOMAIN_NUM_THREADS: for each domain code 0..4 (0 = ZML_DOMAIN_ALL) the
// first value of at least 1 in the list, -1 where there is none.
std::array<int32_t, 5> parse_domain_list(const char* s);

// ZML_DYNAMIC, set and not empty: 0 only for the words FALSE and false.
int32_t parse_dynamic(const char* s);

// An MPI processes-per-node value: a decimal number using the whole text (or,
// with `colon_ends`, followed by ':') and at least 0; -1 when malformed.
int32_t parse_ranks(const char* s, bool colon_ends);

// ZML_VERBOSE: a number in any base (0x.., 0..) using the whole text; 1 only
// when it is 1, 0 for everything else.
int32_t parse_verbose(const char* s);

}  // namespace zml::serv::env
