// SPDX-License-Identifier: BSD-3-Clause
// The parameter-error routine, its replaceable hook, and the other reports the
// families make through it. Nothing here ends the process.
#include <atomic>
#include <cstring>

#include "service/error/host_runtime.h"
#include "service/service.h"

namespace {

constexpr int32_t kNameLimit = 20;
constexpr int32_t kMemoryNameLimit = 4096;

// Codes with a message of their own; any other code is a parameter number
// (above 0) or an internal condition (0 or below).
constexpr int32_t kCodeWorkspace = 1000;
constexpr int32_t kCodeIncompatible = 1001;
constexpr int32_t kCodeCoprocessor = 1212;
constexpr int32_t kCodeMemory = 1089;

struct CodeMessage {
  int32_t code;
  int32_t message;
};
// Checked in this order before the sign of the code.
constexpr CodeMessage kCodeMessages[] = {
    {kCodeWorkspace, 8},
    {kCodeIncompatible, 9},
    {kCodeCoprocessor, 1212},
    {kCodeMemory, 1089},
};
constexpr int32_t kMessageParameter = 6;
constexpr int32_t kMessageCondition = 7;

// Empty until the first non-null installation, then fixed for the process.
std::atomic<zml_xerbla_fn> g_xerbla_hook{nullptr};

}  // namespace

void zml_serv_xerbla(const char* name, const int32_t* info, int32_t name_length) {
  if (name == nullptr || info == nullptr || name_length < 0) return;
  const int32_t length = name_length < kNameLimit ? name_length : kNameLimit;
  char routine[kNameLimit + 2];
  // The name need not be terminated; stop early only at a terminator inside it.
  int32_t i = 0;
  for (; i < length && name[i] != '\0'; ++i) routine[i] = name[i];
  routine[i] = '\0';

  zml_serv_print(0, 0, 0);
  const int32_t code = *info;
  for (const CodeMessage& cm : kCodeMessages) {
    if (code == cm.code) {
      zml_serv_print(0, cm.message, 1, routine);
      return;
    }
  }
  if (code > 0) {
    zml_serv_print(0, kMessageParameter, 2, code, routine);
  } else {
    // -INT32_MIN does not exist; computed in 64 bits and printed as the
    // 32-bit value the message format expects.
    zml_serv_print(0, kMessageCondition, 2, static_cast<int32_t>(-static_cast<int64_t>(code)),
                   routine);
  }
}

void zml_serv_set_xerbla(zml_xerbla_fn hook) {
  // Called at each entry's first call and before every report: once a routine
  // is in place a plain load settles it, sparing the locked exchange.
  if (hook == nullptr || g_xerbla_hook.load(std::memory_order_acquire) != nullptr) return;
  zml_xerbla_fn empty = nullptr;
  g_xerbla_hook.compare_exchange_strong(empty, hook, std::memory_order_acq_rel);
}

void zml_serv_xerbla_dispatch(const char* name, const int32_t* info, int32_t name_length) {
  zml_xerbla_fn hook = g_xerbla_hook.load(std::memory_order_acquire);
  if (hook != nullptr) {
    hook(name, info, name_length);
    return;
  }
  zml_serv_xerbla(name, info, name_length);
}

void zml_serv_report_memory(int32_t status, const char* name) {
  if (status != 0 || name == nullptr) return;
  int32_t length = 0;
  while (length < kMemoryNameLimit && name[length] != '\0') ++length;
  const int32_t code = kCodeMemory;
  zml_serv_xerbla_dispatch(name, &code, length);
}

void zml_serv_stop(int32_t /*code*/) { zml::serv::host_flush_all(); }

namespace zml::serv {

void param_error(const char* name, int32_t info) {
  zml_serv_set_xerbla(zml_serv_xerbla);
  zml_serv_xerbla_dispatch(name, &info,
                           name == nullptr ? 0 : static_cast<int32_t>(std::strlen(name)));
}

}  // namespace zml::serv
