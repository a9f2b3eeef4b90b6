// SPDX-License-Identifier: BSD-3-Clause
// The checked entry that every family's exported routines go through: install
// the library's parameter-error routine, report the first bad argument, run
// the body, and in verbose mode write the call as one line. Tiny calls come in
// loops (short vectors, small matrices), so with verbose off an entry costs
// one load of a cached word and one well-predicted branch; the line is
// formatted only in verbose mode.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "service/service.h"

namespace zml::serv {

// Process-wide answers that an entry needs on every call, resolved at its
// first call and packed into one word, so the fast path reads them all with
// one load. Bits 0 and 1 are the service layer's (resolved, verbose); a
// family keeps answers of its own (a routing decision, a chosen kernel row)
// in the bits above, added with add() once it knows them.
class EntryWord {
 public:
  static constexpr uint64_t kResolved = 1;
  static constexpr uint64_t kVerbose = 2;
  static constexpr uint64_t kServiceBits = kResolved | kVerbose;

  // An entry whose arguments cannot be wrong installs no parameter-error
  // routine: that would keep a routine installed later by the caller out.
  enum Checks : bool { kNoChecks = false, kChecks = true };
  constexpr explicit EntryWord(Checks checks = kChecks) : installs_(checks) {}

  // At the first call of the entry: installs the library's parameter-error
  // routine (the first installation wins, so once is as good as at every
  // call) and reads the verbose mode, which is fixed for the process.
  uint64_t get() {
    const uint64_t w = word_.load(std::memory_order_acquire);
    if (__builtin_expect((w & kResolved) != 0, 1)) return w;
    return resolve();
  }
  // Callers racing here compute the same answers, so the store is idempotent.
  uint64_t add(uint64_t bits) { return word_.fetch_or(bits, std::memory_order_acq_rel) | bits; }

 private:
  uint64_t resolve();
  std::atomic<uint64_t> word_{0};
  bool installs_;
};

// The word of entries that keep no answers of their own.
inline EntryWord g_entry_word;

// The call part of a verbose line; entries whose calls print more (the batch
// ones list fifteen pointers) ask for a larger buffer.
inline constexpr size_t kVerboseLineSize = 200;

// Writes the call part of a verbose line, by printf rules, cut to size.
void format_call(char* buf, size_t size, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));

namespace entry_detail {

// Verbose mode: times the body and writes the line with the thread count of
// `domain`. Calls that failed their checks are written too, with the time of
// an empty interval.
template <size_t kLine, class Body, class Text, class... Args>
__attribute__((noinline, cold)) void run_traced(Domain domain, bool passed, uint64_t answers,
                                                Body body, Text text, Args... args) {
  const double t0 = seconds();
  if (passed) body(answers, args...);
  const double elapsed = passed ? seconds() - t0 : 0.0;
  char line[kLine];
  text(line, sizeof line, args...);
  verbose_print(line, elapsed, domain);
}

}  // namespace entry_detail

// The checked entry of a routine of `domain` called with `args`. `info` is
// the number of the first bad argument (0 when all pass; a caller that
// checked already passes a literal 0 and the test folds away); it is
// reported under `name`. body(answers, args...) does the work, answers being
// `word`'s bits; text(buf, size, args...) writes the call part of the
// verbose line and runs in verbose mode only. Both take everything as
// arguments and capture nothing: a closure would be built in memory before
// the verbose test, on every call.
template <size_t kLine = kVerboseLineSize, class Body, class Text, class... Args>
inline void checked_entry(EntryWord& word, Domain domain, const char* name, int32_t info, Body body,
                          Text text, Args... args) {
  static_assert(std::is_empty_v<Body> && std::is_empty_v<Text>, "body and text capture nothing");
  const uint64_t answers = word.get();
  if (info != 0) param_error(name, info);
  if (__builtin_expect((answers & EntryWord::kVerbose) == 0, 1)) {
    if (info == 0) body(answers, args...);
    return;
  }
  entry_detail::run_traced<kLine>(domain, info == 0, answers, body, text, args...);
}

}  // namespace zml::serv
