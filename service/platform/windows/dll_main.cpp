// SPDX-License-Identifier: BSD-3-Clause
// Loader notifications: a thread that ends gives back its per-thread records.
#include <windows.h>

namespace zml::platform {
void run_tls_destructors();
}

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  if (reason == DLL_THREAD_DETACH || reason == DLL_PROCESS_DETACH) {
    zml::platform::run_tls_destructors();
  }
  return TRUE;
}
