// SPDX-License-Identifier: BSD-3-Clause
// What every family uses from the service layer: settings, verbose tracing,
// messages and parameter errors, the code path, work memory and thread counts.
// The contracts are stated here once; the implementations live in the
// folders named on each group.
#pragma once

#include <cstddef>
#include <cstdint>

// ---- Environment and settings (service/config/) ----------------------------

// Reads an environment variable into buf (size bytes). Returns the value's
// length when it fits and is not empty; 0 with an emptied buffer when absent
// or empty; the negated required size with an emptied buffer when too long.
// Under the restricted-environment flag only a few names are looked up.
int32_t zml_serv_getenv(const char* name, char* buf, int32_t size);

namespace zml::serv {

// Thread-count domains.
enum Domain : int32_t {
  kDomainAll = 0,
  kDomainBlas = 1,
  kDomainFft = 2,
  kDomainVml = 3,
  kDomainDirsol = 4,
};

// The ZML_NUM_STRIPES setting, reading the threading variables on first need;
// negative when unset.
int32_t num_stripes();

// Verbose mode: false until ZML_VERBOSE says 1 (read once, on first call).
bool verbose_on();
// Seconds from a monotonic clock, for verbose timing.
double seconds();
// Writes one verbose line: the call text, the elapsed time with its unit and
// the settings that shaped the call (the threads of the caller's domain,
// dynamic, memory manager, code path).
void verbose_print(const char* call_text, double elapsed_seconds, Domain domain);

// The configured initial mode of the vector-math functions (ZML_VML_MODE, read
// at each call, so each thread's first call sees the current value): true with
// the mode when one is configured and readable, false when none is set.
bool configured_vml_mode(uint32_t* mode);
// Its text rules, for the tests: a number in any base, or names joined by '|'.
bool parse_vml_mode(const char* text, uint32_t* mode);

}  // namespace zml::serv

// ---- Messages and parameter errors (service/error/) -------------------------

using zml_xerbla_fn = void (*)(const char* name, const int32_t* info, int32_t name_length);

// Prints catalogue message `number` with `count` arguments (0, 1 or 2), then a
// line break, on the host runtime's standard output. Returns the flush result.
int32_t zml_serv_print(int32_t reserved, int32_t number, int32_t count, ...);
// The text of message `number`, formatted when count >= 1 (returned buffer is
// shared and overwritten by the next call).
const char* zml_serv_format(int32_t number, int32_t count, ...);
// The parameter-error routine: prints an empty line, then the message for the
// code *info about routine `name` (cut to 20 characters).
void zml_serv_xerbla(const char* name, const int32_t* info, int32_t name_length);
// Installs a replacement parameter-error routine; the first non-null one wins.
void zml_serv_set_xerbla(zml_xerbla_fn hook);
// As zml_serv_xerbla, but hands the report to the installed hook if any.
void zml_serv_xerbla_dispatch(const char* name, const int32_t* info, int32_t name_length);
// Status 0 reports code 1089 (not enough work memory) for `name`.
void zml_serv_report_memory(int32_t status, const char* name);
// The service layer's stop call, used where a code path cannot be served. It
// flushes output and returns: the library never ends the host process.
void zml_serv_stop(int32_t code);

namespace zml::serv {
// What the checked entries of every family do on a bad argument: install the
// library's parameter-error routine (first installer wins) and report
// parameter `info` of routine `name` through the dispatching routine.
void param_error(const char* name, int32_t info);
}  // namespace zml::serv

// ---- Processor detection and code path (service/cpu/) -----------------------

// The code-path number of this process, 0..11 (see the table in
// service/cpu/code_path.h). Never fails; detection runs once.
int32_t zml_serv_get_code_path();
// Reproducibility branch: argument 1 gives the branch (1 none, 2 auto, 3..14),
// -1 the cached word, anything else -2.
int32_t zml_serv_cpu_detect(int32_t what);
// True on processors for which the library uses threaded matrix-vector paths.
bool zml_serv_own_processor();

namespace zml::serv {
// The detected (or capped or forced) processor type, 0..11.
int32_t processor_type();
// Flags of the instruction-set extensions the cap allows, in the order SSE4.2,
// AVX, AVX2, AVX-512, AVX-512 with VNNI, and two reserved entries (always 0).
enum IsaFlag : int { kIsaSse42 = 0, kIsaAvx, kIsaAvx2, kIsaAvx512, kIsaAvx512Vnni, kIsaCount = 7 };
bool isa_allowed(IsaFlag which);
// The library's summary of the processor's feature bits (filled on first call;
// the bit layout is documented at the definition in service/cpu/).
uint32_t feature_word();
uint32_t feature_word2();

// Data-cache sizes in bytes, for blocking (read once).
struct CacheSizes {
  int64_t l1d = 0;
  int64_t l2 = 0;
  int64_t l3 = 0;
  int32_t l3_sharing = 0;  // logical processors sharing one L3
};
const CacheSizes& cache_sizes();
}  // namespace zml::serv

// ---- Memory (service/memory/) -----------------------------------------------

namespace zml::serv {
// Aligned work memory for the library's own use, from the same manager as
// zml_malloc (alignment 64 or 128 in practice). Null when refused.
void* aligned_alloc(size_t size, size_t alignment);
void aligned_free(void* p);
// Whether the caching manager is on (false once switched off); for verbose lines.
bool fast_mm_enabled();
}  // namespace zml::serv

// ---- Threading (service/threading/) -------------------------------------------

// How many threads a driver of `domain` may use now (always at least 1).
// Drivers open their teams through service/threading/team.h, which caps this
// count at what the OpenMP runtime can start.
int32_t zml_serv_domain_get_max_threads(int32_t domain);

namespace zml::serv {
// The topology answer: 1 when the processors this process may use have more
// logical processors than cores, else 0.
int32_t topology_answer();
}  // namespace zml::serv
