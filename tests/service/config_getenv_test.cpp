// SPDX-License-Identifier: BSD-3-Clause
// The environment reader's result rules and the restricted-environment rule.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "service/config/env_parse.h"
#include "service/platform/platform.h"
#include "service/service.h"

namespace {

void set_env(const char* name, const char* value) {
#ifdef _WIN32
  _putenv_s(name, value);
#else
  setenv(name, value, 1);
#endif
}

void unset_env(const char* name) {
#ifdef _WIN32
  _putenv_s(name, "");
#else
  unsetenv(name);
#endif
}

// Sets a variable for the lifetime of one test.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) { set_env(name, value); }
  ~ScopedEnv() { unset_env(name_); }

 private:
  const char* name_;
};

constexpr const char* kVar = "ZML_TEST_GETENV_VALUE";

}  // namespace

TEST(ConfigGetenv, ValueThatFitsIsCopiedAndItsLengthReturned) {
  ScopedEnv env(kVar, "abc");
  char buf[8];
  EXPECT_EQ(zml_serv_getenv(kVar, buf, sizeof buf), 3);
  EXPECT_STREQ(buf, "abc");
}

TEST(ConfigGetenv, ValueMustLeaveRoomForTheTerminator) {
  ScopedEnv env(kVar, "1234567");
  char buf[8];
  EXPECT_EQ(zml_serv_getenv(kVar, buf, 8), 7);
  EXPECT_STREQ(buf, "1234567");
  std::memset(buf, 'x', sizeof buf);
  EXPECT_EQ(zml_serv_getenv(kVar, buf, 7), -8) << "negated required size, terminator included";
  EXPECT_EQ(buf[0], '\0') << "buffer emptied when the value does not fit";
}

TEST(ConfigGetenv, AbsentAndEmptyGiveZeroAndAnEmptyBuffer) {
  unset_env(kVar);
  char buf[8];
  std::memset(buf, 'x', sizeof buf);
  EXPECT_EQ(zml_serv_getenv(kVar, buf, sizeof buf), 0);
  EXPECT_EQ(buf[0], '\0');
#ifndef _WIN32  // Windows cannot hold an empty variable
  ScopedEnv env(kVar, "");
  std::memset(buf, 'x', sizeof buf);
  EXPECT_EQ(zml_serv_getenv(kVar, buf, sizeof buf), 0);
  EXPECT_EQ(buf[0], '\0');
#endif
}

TEST(ConfigGetenv, SizeBelowOneOnlyMeasuresAndLeavesTheBufferAlone) {
  ScopedEnv env(kVar, "abcd");
  char buf[4] = {'x', 'x', 'x', 'x'};
  EXPECT_EQ(zml_serv_getenv(kVar, buf, 0), -5);
  EXPECT_EQ(zml_serv_getenv(kVar, buf, -3), -5);
  EXPECT_EQ(buf[0], 'x');
  EXPECT_EQ(zml_serv_getenv(kVar, nullptr, 0), -5);
}

TEST(ConfigGetenv, RestrictedProcessReadsOnlyLoaderAndLocaleNames) {
  ScopedEnv other(kVar, "abc");
  ScopedEnv root("ZMLROOT", "/opt/zml");
  char buf[32];
  std::memset(buf, 'x', sizeof buf);
  EXPECT_EQ(zml::serv::env::read(kVar, buf, sizeof buf, true), 0);
  EXPECT_EQ(buf[0], '\0');
  EXPECT_EQ(zml::serv::env::read("ZMLROOT", buf, sizeof buf, true), 8);
  EXPECT_STREQ(buf, "/opt/zml");
  EXPECT_EQ(zml::serv::env::read(kVar, buf, sizeof buf, false), 3);
}

TEST(ConfigGetenv, TestProgramIsNotRestricted) {
  // The test program is not installed set-user-ID, so every name is readable.
  EXPECT_FALSE(zml::platform::restricted_process());
  ScopedEnv env(kVar, "on");
  char buf[8];
  EXPECT_EQ(zml_serv_getenv(kVar, buf, sizeof buf), 2);
}
