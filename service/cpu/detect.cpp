// SPDX-License-Identifier: BSD-3-Clause
// Code-path dispatch: the public query with its override variable, detection
// run once under the service lock, and the answers derived from it
// (processor type, own-processor test).
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "service/cpu/code_path.h"
#include "service/lock.h"
#include "service/service.h"

namespace zml::cpu {

namespace {

// The override and forcing variables are not advertised, so their names are
// kept in the binary reversed and XORed, and spelled out on the stack only
// for the lookup. consteval keeps the plain text out of the object file.
constexpr char kScrambleKey = 0x5a;

template <size_t N>
struct HiddenName {
  std::array<char, N - 1> bytes;
};

template <size_t N>
consteval HiddenName<N> hide(const char (&plain)[N]) {
  HiddenName<N> h{};
  for (size_t i = 0; i + 1 < N; ++i)
    h.bytes[i] = static_cast<char>(plain[N - 2 - i] ^ kScrambleKey);
  return h;
}

template <size_t N>
void reveal(const HiddenName<N>& h, char (&out)[N]) {
  for (size_t i = 0; i + 1 < N; ++i) out[i] = static_cast<char>(h.bytes[N - 2 - i] ^ kScrambleKey);
  out[N - 1] = '\0';
}

constexpr auto kOverrideName = hide("ZML_CODE_PATH_OVERRIDE");
constexpr auto kForcingName = hide("ZML_DEBUG_CPU_TYPE");
static_assert(sizeof kOverrideName.bytes == 22 && sizeof kForcingName.bytes == 18);

constexpr char kOwnVendor[] = "GenuineArvel";

// Process-wide state, -1 until set. Plain values for readers that see them
// set; written under the service lock except the override, whose racing
// writers store the same value.
std::atomic<int32_t> g_code_path_override{-1};
std::atomic<int32_t> g_processor_type{-1};
std::atomic<int32_t> g_code_path{-1};
std::atomic<int32_t> g_forced_type_present{-1};
std::atomic<int32_t> g_forced_type{0};
std::atomic<int32_t> g_runs{0};
std::atomic<int32_t> g_own_processor{-1};

// Type for a fixed reproducibility branch; 1 (none) and 2 (auto) classify.
int32_t type_of_branch(int32_t r, int32_t* failed, PendingMessages* messages) {
  switch (r) {
    case 1:
    case 2:
      return classify(features(), vnni_present(), failed, messages);
    case 3:
      return 1;
    case 4:
    case 5:
      return 2;
    case 6:
    case 7:
      return 4;
    case 8:
      return 5;
    case 9:
      return 6;
    case 10:
      return 7;
    case 11:
      return 8;
    case 12:
      return 9;
    case 13:
      return 10;
    case 14:
      return 11;
    default:
      return -4;
  }
}

void read_forced_type() {
  if (g_forced_type_present.load(std::memory_order_relaxed) >= 0) return;
  char name[sizeof kForcingName.bytes + 1];
  reveal(kForcingName, name);
  char value[30];
  int32_t present = 0;
  if (zml_serv_getenv(name, value, sizeof value) > 0) {
    int t = 0;
    present = std::sscanf(value, "%i", &t) == 1 ? 1 : 0;
    if (present) g_forced_type.store(t, std::memory_order_relaxed);
  }
  g_forced_type_present.store(present, std::memory_order_relaxed);
}

void store_type(int32_t p) {
  settle_isa_flags(p);
  g_processor_type.store(p, std::memory_order_relaxed);
  g_code_path.store(code_path_of_type(p), std::memory_order_release);
}

// Runs once, under the service lock. Returns 0, or 1 when detection failed.
int32_t detection_routine(PendingMessages* messages) {
  g_runs.fetch_add(1, std::memory_order_relaxed);
  if (g_processor_type.load(std::memory_order_relaxed) != -1 &&
      g_code_path.load(std::memory_order_relaxed) != -1) {
    return 0;
  }
  const int32_t r = zml_serv_cpu_detect(1);
  read_forced_type();
  int32_t failed = 0;
  int32_t p;
  if (g_forced_type_present.load(std::memory_order_relaxed) == 1) {
    // A forced type replaces detection and skips the instruction cap.
    p = fold_type(g_forced_type.load(std::memory_order_relaxed));
    if (!type_has_library(p)) {
      messages->add(1213, 1, p);
      return 1;
    }
  } else {
    p = type_of_branch(r, &failed, messages);
    read_instruction_cap();
  }
  p = fold_type(p);
  if (!type_has_library(p)) {
    // The reproducibility warning doubles as the notice for an unusable type,
    // kept because hosts already watch for that one line. No kernel is chosen
    // for a negative type, so the process runs the generic SSE2 path rather
    // than stopping.
    messages->add(1209, 0);
    p = 0;
  }
  store_type(lower_to_cap(p));
  return failed;
}

}  // namespace

int32_t detected_code_path() {
  int32_t cp = g_code_path.load(std::memory_order_acquire);
  if (cp >= 0) return cp;
  PendingMessages messages;
  int32_t status = 0;
  {
    serv::LockGuard guard(serv::g_service_lock);
    if (g_code_path.load(std::memory_order_relaxed) < 0) {
      status = detection_routine(&messages);
      // A refused forced type leaves nothing set: fall back to the generic
      // path so the query never answers -1 and the process carries on.
      if (g_code_path.load(std::memory_order_relaxed) < 0) store_type(0);
    }
  }
  messages.print();
  if (status != 0) {
    // Reported as an internal condition (message 7) under our own name, not
    // through the installed hook, which expects parameter numbers.
    const int32_t info = -status;
    constexpr char kName[] = "ZML_SERV_CPU_DETECT";
    zml_serv_xerbla(kName, &info, static_cast<int32_t>(sizeof kName - 1));
  }
  return g_code_path.load(std::memory_order_acquire);
}

int32_t parse_code_path_override(const char* value, int32_t len) {
  auto digit = [](char c) { return c >= '0' && c <= '9'; };
  if (len < 1 || !digit(value[0])) return -1;
  int32_t n = value[0] - '0';
  if (len == 2) {
    if (!digit(value[1])) return -1;
    n = n * 10 + (value[1] - '0');
  }
  return n > 11 || n == 10 ? -1 : n;
}

int32_t detection_runs() { return g_runs.load(std::memory_order_relaxed); }

DetectionState detection_state() {
  return {g_processor_type.load(std::memory_order_acquire),
          g_code_path.load(std::memory_order_acquire),
          g_code_path_override.load(std::memory_order_acquire),
          g_forced_type_present.load(std::memory_order_relaxed),
          g_forced_type.load(std::memory_order_relaxed),
          instruction_cap()};
}

}  // namespace zml::cpu

// The override is looked at once: a rejected or absent value makes the
// override slot take the detected code path. No lock: racing first callers
// parse the same variable and store the same value.
int32_t zml_serv_get_code_path() {
  using namespace zml::cpu;
  const int32_t o = g_code_path_override.load(std::memory_order_acquire);
  if (o != -1) return o;
  char name[sizeof kOverrideName.bytes + 1];
  reveal(kOverrideName, name);
  char value[32];
  const int32_t len = zml_serv_getenv(name, value, sizeof value);
  int32_t cp = len > 0 ? parse_code_path_override(value, len) : -1;
  if (cp < 0) cp = detected_code_path();
  g_code_path_override.store(cp, std::memory_order_release);
  return cp;
}

// Our own processors get the threaded matrix-vector paths. A forced processor
// type counts too: it lets another vendor's processor run as one of ours, and
// lets tests reach those paths anywhere.
bool zml_serv_own_processor() {
  using namespace zml::cpu;
  int32_t own = g_own_processor.load(std::memory_order_relaxed);
  if (own < 0) {
    detected_code_path();
    own = g_forced_type_present.load(std::memory_order_relaxed) == 1 ||
          std::strcmp(vendor(), kOwnVendor) == 0;
    g_own_processor.store(own, std::memory_order_relaxed);
  }
  return own == 1;
}

namespace zml::serv {

int32_t processor_type() {
  cpu::detected_code_path();
  return cpu::g_processor_type.load(std::memory_order_acquire);
}

}  // namespace zml::serv
