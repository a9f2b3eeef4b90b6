// SPDX-License-Identifier: BSD-3-Clause
// The message printer: exact texts, the line break after every message,
// formatting without printing, and the overflow report.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "service/service.h"
#include "tests/support/child.h"

using zml::test::capture_stdout;

TEST(MessagesPrint, ExactTexts) {
  int32_t flushed = -1;
  const struct {
    std::function<void()> print;
    const char* want;
  } cases[] = {
      {[] { zml_serv_print(0, 6, 2, 3, "DGEMM "); },
       "Arvel ZML ERROR: Parameter 3 was incorrect on entry to DGEMM .\n"},
      {[] { zml_serv_print(0, 2, 2, "a.dll", "b.dll"); },
       "Arvel ZML FATAL ERROR: Cannot load a.dll or b.dll.\n"},
      {[] { zml_serv_print(0, 1207, 0); },
       "Conditional numerical reproducibility mode is turned ON\n"},
      {[&] { flushed = zml_serv_print(0, 1213, 1, 12); },
       "Arvel ZML ERROR: CPU 12 is not supported.\n"},
      // Without arguments the text is printed as it is.
      {[] { zml_serv_print(0, 1, 0); }, "Arvel ZML FATAL ERROR: Cannot load %s.\n"},
      // Number zero, rows this library leaves empty and unknown numbers.
      {[] { zml_serv_print(0, 0, 0); }, "\n"},
      {[] { zml_serv_print(0, 500, 1, "x"); }, "\n"},
      {[] { zml_serv_print(0, 1300, 0); }, "\n"},
      {[] { zml_serv_print(0, -4, 0); }, "\n"},
  };
  for (const auto& c : cases) EXPECT_EQ(capture_stdout([&] { c.print(); }), c.want);
  EXPECT_EQ(flushed, 0) << "the flush result";
  std::string formatted;
  EXPECT_EQ(capture_stdout([&] { formatted = zml_serv_format(6, 2, 4, "ZGEMV "); }), "");
  EXPECT_EQ(formatted, "Arvel ZML ERROR: Parameter 4 was incorrect on entry to ZGEMV .");
  EXPECT_STREQ(zml_serv_format(7, 0),
               "Arvel ZML INTERNAL ERROR: Condition %d detected in function %s.");
  EXPECT_STREQ(zml_serv_format(0, 1, "x"), "");
  EXPECT_STREQ(zml_serv_format(1300, 0), "");
}

TEST(MessagesPrint, OverflowIsReportedOnlyAboveTheBufferSize) {
  auto overflow_report = [](size_t length) {
    char buf[160];
    std::snprintf(buf, sizeof buf,
                  "\nZML INTERNAL ERROR: message buffer overflow.\n       Lenght: %d   Buffer "
                  "size: 512\n",
                  static_cast<int>(length));
    return std::string(buf);
  };
  const std::string prefix = "Arvel ZML FATAL ERROR: Cannot load ";
  // 512 characters: cut by one to fit the terminator, but not longer than the
  // buffer, so no report; one more is reported, and the message printed cut.
  for (size_t length : {512, 513, 637}) {
    const std::string arg(length - prefix.size() - 1, 'b');
    const std::string full = prefix + arg + ".";
    EXPECT_EQ(capture_stdout([&] { zml_serv_print(0, 1, 1, arg.c_str()); }),
              (length > 512 ? overflow_report(length) : "") + full.substr(0, 511) + "\n");
  }
}

TEST(MessagesPrint, FormatBufferIsSharedAndCutAt512) {
  const char* first = zml_serv_format(1213, 1, 3);
  EXPECT_STREQ(first, "Arvel ZML ERROR: CPU 3 is not supported.");
  const std::string arg(700, 'c');
  const char* second = zml_serv_format(1212, 1, arg.c_str());
  EXPECT_EQ(first, second) << "one shared return buffer";
  EXPECT_EQ(std::strlen(second), 511u);
  EXPECT_EQ(std::string(second, 39), "Arvel ZML INTERNAL ERROR: Issue accessi");
}
