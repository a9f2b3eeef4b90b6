// SPDX-License-Identifier: BSD-3-Clause
#include "service/lock.h"

namespace zml::serv {

LockWord g_service_lock{0};
LockWord g_threading_lock{0};
std::atomic<LockHook> g_lock_hook{nullptr};

}  // namespace zml::serv
