// SPDX-License-Identifier: BSD-3-Clause
#include "tests/support/child.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#ifdef _WIN32
#include <io.h>
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace zml::test {

std::string ChildResult::value(const std::string& key) const {
  const std::string tag = "\n@@ " + key + " ", text = "\n" + out;
  const size_t pos = text.find(tag);
  if (pos == std::string::npos) return "";
  const size_t start = pos + tag.size(), end = text.find('\n', start);
  std::string v = text.substr(start, end == std::string::npos ? end : end - start);
  if (!v.empty() && v.back() == '\r') v.pop_back();
  return v;
}

std::string ChildResult::mismatches(const std::string& expected) const {
  std::istringstream in(expected);
  std::string word, wrong;
  while (in >> word) {
    const size_t eq = word.find('=');
    const std::string key = word.substr(0, eq), got = value(key);
    if (got != word.substr(eq + 1)) wrong += key + "=<" + got + "> ";
  }
  return wrong;
}

void set_env(const char* name, const char* value) {
#ifdef _WIN32
  _putenv_s(name, value ? value : "");  // an empty value removes it there
#else
  if (value) {
    setenv(name, value, 1);
  } else {
    unsetenv(name);
  }
#endif
}

void emit(const std::string& key, const std::string& value) {
  std::printf("\n@@ %s %s\n", key.c_str(), value.c_str());
  std::fflush(stdout);
}

void emit(const std::string& key, long long value) { emit(key, std::to_string(value)); }

namespace {
std::string self_path() {
#ifdef _WIN32
  char buf[4096];
  DWORD n = GetModuleFileNameA(nullptr, buf, sizeof buf);
  return std::string(buf, n);
#else
  char buf[4096];
  ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
  return n > 0 ? std::string(buf, static_cast<size_t>(n)) : std::string();
#endif
}

std::string read_all(FILE* f) {
  std::string s;
  char buf[4096];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) s.append(buf, n);
  return s;
}
}  // namespace

ChildResult run_child(const std::string& name, const std::map<std::string, std::string>& env) {
  ChildResult r;
  const std::string exe = self_path();
  const std::string filter = "--gtest_filter=" + name;
#ifdef _WIN32
  // The child inherits the environment: set, spawn, restore.
  std::map<std::string, std::string> saved;
  for (auto& [k, v] : env) {
    const char* old = std::getenv(k.c_str());
    saved[k] = old ? old : "";
    _putenv_s(k.c_str(), v.c_str());
  }
  // Started directly, not through the command interpreter: its quoting and
  // program search differ between Windows and Wine's version of it.
  std::string cmd = "\"" + exe + "\" " + filter + " --gtest_also_run_disabled_tests";
  SECURITY_ATTRIBUTES sa{sizeof sa, nullptr, TRUE};
  HANDLE rd = nullptr, wr = nullptr;
  if (CreatePipe(&rd, &wr, &sa, 0)) {
    SetHandleInformation(rd, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOA si{};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdOutput = wr;
    si.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    si.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    PROCESS_INFORMATION pi{};
    // Starting a process can fail now and then under Wine when other test
    // programs start at the same moment; a start (never a result) is retried.
    BOOL started = FALSE;
    for (int attempt = 0; attempt < 3 && !started; ++attempt) {
      if (attempt > 0) Sleep(200);
      started = CreateProcessA(exe.c_str(), cmd.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                               &si, &pi);
    }
    if (!started) r.out = "CreateProcess failed: error " + std::to_string(GetLastError());
    CloseHandle(wr);
    if (started) {
      char buf[4096];
      DWORD n = 0;
      while (ReadFile(rd, buf, sizeof buf, &n, nullptr) && n > 0) r.out.append(buf, n);
      WaitForSingleObject(pi.hProcess, INFINITE);
      DWORD code = 0;
      GetExitCodeProcess(pi.hProcess, &code);
      r.exit_code = static_cast<int>(code);
      CloseHandle(pi.hProcess);
      CloseHandle(pi.hThread);
    }
    CloseHandle(rd);
  }
  for (auto& [k, v] : saved) _putenv_s(k.c_str(), v.c_str());
  // The child's standard output is a text stream: compare its lines as on POSIX.
  std::erase(r.out, '\r');
#else
  int fds[2];
  if (pipe(fds) != 0) return r;
  pid_t pid = fork();
  if (pid == 0) {
    dup2(fds[1], 1);
    close(fds[0]);
    close(fds[1]);
    for (auto& [k, v] : env) {
      if (v.empty()) {
        unsetenv(k.c_str());
      } else {
        setenv(k.c_str(), v.c_str(), 1);
      }
    }
#ifdef ZML_TEST_EMULATOR
    // A program of another architecture: the kernel cannot start it, its emulator can.
    const char* argv[] = {ZML_TEST_EMULATOR, exe.c_str(), filter.c_str(),
                          "--gtest_also_run_disabled_tests", nullptr};
#else
    const char* argv[] = {exe.c_str(), filter.c_str(), "--gtest_also_run_disabled_tests", nullptr};
#endif
    execvp(argv[0], const_cast<char* const*>(argv));
    _exit(127);
  }
  close(fds[1]);
  FILE* f = fdopen(fds[0], "r");
  r.out = read_all(f);
  std::fclose(f);
  int status = 0;
  waitpid(pid, &status, 0);
  r.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
#endif
  return r;
}

std::string capture_stdout_begin_end(void (*fn)(void*), void* ctx) {
  std::fflush(stdout);
  std::FILE* tmp = std::tmpfile();
  if (!tmp) {
    fn(ctx);
    return "";
  }
#ifdef _WIN32
  int saved = _dup(1);
  _dup2(_fileno(tmp), 1);
#else
  int saved = dup(1);
  dup2(fileno(tmp), 1);
#endif
  fn(ctx);
  std::fflush(stdout);
#ifdef _WIN32
  _dup2(saved, 1);
  _close(saved);
#else
  dup2(saved, 1);
  close(saved);
#endif
  std::rewind(tmp);
  std::string s = read_all(tmp);
  std::fclose(tmp);
  return s;
}

}  // namespace zml::test
