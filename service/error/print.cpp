// SPDX-License-Identifier: BSD-3-Clause
// Printing and formatting catalogue messages, with texts taken from the
// optional per-locale message module when it is present.
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "service/error/catalogue.h"
#include "service/error/host_runtime.h"
#include "service/platform/platform.h"
#include "service/service.h"

namespace zml::serv {

namespace {

constexpr int32_t kTextBufferSize = 512;
constexpr uint32_t kModuleMessageBase = 0x80000000u;
constexpr const char* kMessageModule = "zml_msg.dll";

// Message module state. Unlocked by design: reports are rare, and a thread
// that races the one attempt simply uses the built-in texts meanwhile.
std::atomic<bool> g_module_untried{true};
std::atomic<bool> g_use_builtin{true};
std::atomic<void*> g_module{nullptr};

// What zml_serv_format returns; shared and overwritten by the next call.
char g_format_buffer[kTextBufferSize];

// The one attempt per process to load "<locale>/zml_msg.dll".
void try_message_module() {
  if (!g_module_untried.exchange(false)) return;
  char path[kTextBufferSize];
  std::snprintf(path, sizeof path, "%lu/%s", static_cast<unsigned long>(platform::thread_locale()),
                kMessageModule);
  void* module = platform::load_module(path);
  if (module != nullptr) {
    g_module.store(module, std::memory_order_relaxed);
    g_use_builtin.store(false, std::memory_order_release);
  }
}

// The module's text for `number` (in scratch) when it has one, else the built-in text.
const char* message_text(int32_t number, const MessageRow& row, char (&scratch)[kTextBufferSize]) {
  if (!g_use_builtin.load(std::memory_order_acquire) &&
      platform::module_message(g_module.load(std::memory_order_relaxed),
                               kModuleMessageBase + static_cast<uint32_t>(number), scratch,
                               sizeof scratch)) {
    return scratch;
  }
  return row.text;
}

// Formats text into out (cut to fit). Without arguments the text is taken as
// it is, so a stray conversion cannot read arguments that are not there.
// Returns the length the whole message has, which may exceed the buffer.
int format_into(char (&out)[kTextBufferSize], const char* text, int32_t count, va_list args) {
  if (count < 1) {
    const size_t length = std::strlen(text);
    std::snprintf(out, sizeof out, "%s", text);
    return static_cast<int>(length);
  }
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int length = std::vsnprintf(out, sizeof out, text, args);
#pragma GCC diagnostic pop
  if (length < 0) {
    out[0] = '\0';
    return 0;
  }
  return length;
}

}  // namespace

}  // namespace zml::serv

int32_t zml_serv_print(int32_t /*reserved*/, int32_t number, int32_t count, ...) {
  using namespace zml::serv;
  const MessageRow* row = message_row(number);
  if (number != 0 && row != nullptr) {
    try_message_module();
    char module_text[kTextBufferSize];
    const char* text = message_text(number, *row, module_text);
    char message[kTextBufferSize];
    va_list args;
    va_start(args, count);
    const int length = format_into(message, text, count, args);
    va_end(args);
    // Reported, then still printed cut to the buffer.
    if (length > kTextBufferSize) {
      host_print("%s", "\nZML INTERNAL ERROR: message buffer overflow.");
      host_print("\n       Lenght: %d   Buffer size: %d\n", length, kTextBufferSize);
      host_flush_all();
    }
    host_print("%s", message);
    host_flush_all();
  }
  host_print("%s", "\n");
  return host_flush_all();
}

const char* zml_serv_format(int32_t number, int32_t count, ...) {
  using namespace zml::serv;
  const MessageRow* row = message_row(number);
  if (number == 0 || row == nullptr) return "";
  char module_text[kTextBufferSize];
  const bool from_module = message_text(number, *row, module_text) != row->text;
  if (count < 1 && !from_module) return row->text;
  va_list args;
  va_start(args, count);
  format_into(g_format_buffer, from_module ? module_text : row->text, count, args);
  va_end(args);
  return g_format_buffer;
}
