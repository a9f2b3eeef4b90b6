// SPDX-License-Identifier: BSD-3-Clause
// The message catalogue and its printer: exact texts, the line break after
// every message, formatting without printing, and the overflow report.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "service/error/catalogue.h"
#include "service/service.h"
#include "tests/support/child.h"

using zml::test::capture_stdout;

TEST(MessagesCatalogue, EveryNumberKeepsItsRow) {
  for (int32_t n = 0; n < zml::serv::kMessageCount; ++n) {
    const zml::serv::MessageRow* row = zml::serv::message_row(n);
    ASSERT_NE(row, nullptr) << n;
    ASSERT_NE(row->text, nullptr) << n;
    EXPECT_EQ(row->id, n + 1);
    EXPECT_EQ(row->kind, 4);
  }
  EXPECT_EQ(zml::serv::message_row(-1), nullptr);
  EXPECT_EQ(zml::serv::message_row(1300), nullptr);
  EXPECT_STREQ(zml::serv::message_row(0)->text, "\n");
  // Rows of families this library does not carry are empty but present.
  EXPECT_STREQ(zml::serv::message_row(10)->text, "");
  EXPECT_STREQ(zml::serv::message_row(1299)->text, "");
}

TEST(MessagesPrint, MessageIsFollowedByALineBreak) {
  EXPECT_EQ(capture_stdout([] { zml_serv_print(0, 6, 2, 3, "DGEMM "); }),
            "Arvel ZML ERROR: Parameter 3 was incorrect on entry to DGEMM .\n");
  EXPECT_EQ(capture_stdout([] { zml_serv_print(0, 2, 2, "a.dll", "b.dll"); }),
            "Arvel ZML FATAL ERROR: Cannot load a.dll or b.dll.\n");
  EXPECT_EQ(capture_stdout([] { zml_serv_print(0, 5, 2, "lib_x", 7); }).substr(0, 40),
            "Arvel ZML WARNING: Library lib_x (ZML ty");
  EXPECT_EQ(capture_stdout([] { zml_serv_print(0, 1207, 0); }),
            "Conditional numerical reproducibility mode is turned ON\n");
  EXPECT_EQ(capture_stdout([] { zml_serv_print(0, 1213, 1, 12); }),
            "Arvel ZML ERROR: CPU 12 is not supported.\n");
}

TEST(MessagesPrint, NumberZeroAndUnknownNumbersPrintOnlyTheLineBreak) {
  EXPECT_EQ(capture_stdout([] { zml_serv_print(0, 0, 0); }), "\n");
  EXPECT_EQ(capture_stdout([] { zml_serv_print(0, 500, 1, "x"); }), "\n");
  EXPECT_EQ(capture_stdout([] { zml_serv_print(0, 1300, 0); }), "\n");
  EXPECT_EQ(capture_stdout([] { zml_serv_print(0, -4, 0); }), "\n");
}

TEST(MessagesPrint, WithoutArgumentsTheTextIsPrintedAsItIs) {
  EXPECT_EQ(capture_stdout([] { zml_serv_print(0, 1, 0); }),
            "Arvel ZML FATAL ERROR: Cannot load %s.\n");
}

TEST(MessagesPrint, ReturnsTheFlushResult) {
  int32_t result = -1;
  capture_stdout([&] { result = zml_serv_print(0, 8, 1, "DGETRF"); });
  EXPECT_EQ(result, 0);
}

namespace {
const char kOverflowText[] =
    "\nZML INTERNAL ERROR: message buffer overflow.\n       Lenght: %d   Buffer size: 512\n";

std::string overflow_report(size_t length) {
  char buf[160];
  std::snprintf(buf, sizeof buf, kOverflowText, static_cast<int>(length));
  return buf;
}
}  // namespace

TEST(MessagesPrint, OverlongMessageIsReportedThenPrintedCut) {
  const std::string arg(600, 'a');
  const std::string full = "Arvel ZML FATAL ERROR: Cannot load " + arg + ".";
  const std::string out = capture_stdout([&] { zml_serv_print(0, 1, 1, arg.c_str()); });
  EXPECT_EQ(out, overflow_report(full.size()) + full.substr(0, 511) + "\n");
}

TEST(MessagesPrint, OverflowIsReportedOnlyAboveTheBufferSize) {
  const std::string prefix = "Arvel ZML FATAL ERROR: Cannot load ";
  // 512 characters: cut by one to fit the terminator, but not longer than
  // the buffer, so no report.
  const std::string arg512(512 - prefix.size() - 1, 'b');
  std::string out = capture_stdout([&] { zml_serv_print(0, 1, 1, arg512.c_str()); });
  EXPECT_EQ(out, (prefix + arg512 + ".").substr(0, 511) + "\n");
  const std::string arg513 = arg512 + "b";
  out = capture_stdout([&] { zml_serv_print(0, 1, 1, arg513.c_str()); });
  EXPECT_EQ(out, overflow_report(513) + (prefix + arg513).substr(0, 511) + "\n");
}

TEST(MessagesFormat, ReturnsTextInsteadOfPrinting) {
  std::string formatted;
  const std::string out = capture_stdout([&] { formatted = zml_serv_format(6, 2, 4, "ZGEMV "); });
  EXPECT_EQ(out, "");
  EXPECT_EQ(formatted, "Arvel ZML ERROR: Parameter 4 was incorrect on entry to ZGEMV .");
}

TEST(MessagesFormat, WithoutArgumentsGivesTheUnformattedText) {
  EXPECT_STREQ(zml_serv_format(7, 0),
               "Arvel ZML INTERNAL ERROR: Condition %d detected in function %s.");
  EXPECT_STREQ(zml_serv_format(0, 0), "");
  EXPECT_STREQ(zml_serv_format(0, 1, "x"), "");
  EXPECT_STREQ(zml_serv_format(1300, 0), "");
}

TEST(MessagesFormat, BufferIsSharedAndCutAt512) {
  const char* first = zml_serv_format(1213, 1, 3);
  EXPECT_STREQ(first, "Arvel ZML ERROR: CPU 3 is not supported.");
  const std::string arg(700, 'c');
  const char* second = zml_serv_format(1212, 1, arg.c_str());
  EXPECT_EQ(first, second) << "one shared return buffer";
  EXPECT_EQ(std::strlen(second), 511u);
  EXPECT_EQ(std::string(second, 39), "Arvel ZML INTERNAL ERROR: Issue accessi");
}
