// SPDX-License-Identifier: BSD-3-Clause
// Child-process runner for settings the library reads once per process: the
// parent starts this same test program again with extra environment and a
// filter naming one DISABLED_ test, and looks at what the child printed.
#pragma once

#include <map>
#include <string>

namespace zml::test {

struct ChildResult {
  int exit_code = -1;
  std::string out;  // the child's standard output

  // Value of the child's line "@@ key value" (see emit), or "" when absent.
  std::string value(const std::string& key) const;
  // The words "key=value" of `expected` that the child did not emit as such,
  // each written "key=<what it emitted>"; empty when all match.
  std::string mismatches(const std::string& expected) const;
};

// Sets a variable of this process; a null value removes it.
void set_env(const char* name, const char* value);

// Runs test `name` (e.g. "EnvOnce.DISABLED_ChildNumThreads") of the current
// program in a child with `env` added to the environment; an empty value unsets
// the variable.
ChildResult run_child(const std::string& name, const std::map<std::string, std::string>& env);

// Prints "@@ key value" on its own line and flushes; read back with value().
void emit(const std::string& key, const std::string& value);
void emit(const std::string& key, long long value);

// Runs fn with the process's standard output captured; returns what it wrote.
template <class Fn>
std::string capture_stdout(Fn&& fn);

std::string capture_stdout_begin_end(void (*fn)(void*), void* ctx);

template <class Fn>
std::string capture_stdout(Fn&& fn) {
  return capture_stdout_begin_end([](void* c) { (*static_cast<Fn*>(c))(); }, &fn);
}

}  // namespace zml::test
