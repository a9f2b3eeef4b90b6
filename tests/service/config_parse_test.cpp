// SPDX-License-Identifier: BSD-3-Clause
// The parsing rules of the environment values, and the verbose line's text.
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <string>

#include "service/config/env_parse.h"
#include "service/config/verbose_line.h"

namespace env = zml::serv::env;

TEST(ConfigParse, ThreadCountTakesAnyNonDigitAsOneThread) {
  EXPECT_EQ(env::thread_count("4"), 4);
  EXPECT_EQ(env::thread_count("4x"), 1);
  EXPECT_EQ(env::thread_count("-2"), 1);
  EXPECT_EQ(env::thread_count(" 4"), 1);
  EXPECT_EQ(env::thread_count(""), 1);
  EXPECT_EQ(env::thread_count("0"), 0);
  EXPECT_EQ(env::thread_count("0012"), 12);
  EXPECT_EQ(env::thread_count("99999999999"), INT32_MAX);
}

TEST(ConfigParse, DigitsOnlyOrNothing) {
  int32_t v = -7;
  EXPECT_TRUE(env::parse_digits("12", &v));
  EXPECT_EQ(v, 12);
  EXPECT_TRUE(env::parse_digits("0", &v));
  EXPECT_EQ(v, 0);
  v = -7;
  EXPECT_FALSE(env::parse_digits("", &v));
  EXPECT_FALSE(env::parse_digits("-1", &v));
  EXPECT_FALSE(env::parse_digits("3 ", &v));
  EXPECT_EQ(v, -7);
}

using Domains = std::array<int32_t, 5>;  // ALL, BLAS, FFT, VML, DIRSOL

TEST(ConfigParse, DomainListFirstValueOfEachDomainWins) {
  EXPECT_EQ(env::parse_domain_list("ZML_DOMAIN_BLAS=2, ZML_DOMAIN_FFT 3;ZML_DOMAIN_BLAS=5"),
            (Domains{-1, 2, 3, -1, -1}));
  EXPECT_EQ(env::parse_domain_list("ZML_DOMAIN_ALL=4:ZML_DOMAIN_VML=1 ZML_DOMAIN_DIRSOL=8"),
            (Domains{4, -1, -1, 1, 8}));
}

TEST(ConfigParse, DomainListSeparatorsAndNameValueGaps) {
  EXPECT_EQ(env::parse_domain_list("\"ZML_DOMAIN_BLAS=2\";'ZML_DOMAIN_FFT=4',,ZML_DOMAIN_VML\t6"),
            (Domains{-1, 2, 4, 6, -1}));
  EXPECT_EQ(env::parse_domain_list("  ZML_DOMAIN_ALL = = 5  "), (Domains{5, -1, -1, -1, -1}));
}

TEST(ConfigParse, DomainListMalformedValues) {
  // Empty or non-digit values count as 1; values below 1 are ignored, so a
  // later entry for the same domain still counts.
  EXPECT_EQ(env::parse_domain_list("ZML_DOMAIN_FFT=x2"), (Domains{-1, -1, 1, -1, -1}));
  EXPECT_EQ(env::parse_domain_list("ZML_DOMAIN_FFT=,ZML_DOMAIN_VML=3"),
            (Domains{-1, -1, 1, 3, -1}));
  EXPECT_EQ(env::parse_domain_list("ZML_DOMAIN_BLAS=0 ZML_DOMAIN_BLAS=6"),
            (Domains{-1, 6, -1, -1, -1}));
}

TEST(ConfigParse, DomainListNamesAreComparedExactly) {
  EXPECT_EQ(env::parse_domain_list("zml_domain_blas=2 ZML_DOMAIN_BLASX=3 ZML_DOMAIN_GPU=7 "
                                   "ZML_DOMAIN_FFT=9"),
            (Domains{-1, -1, 9, -1, -1}));
  EXPECT_EQ(env::parse_domain_list(""), (Domains{-1, -1, -1, -1, -1}));
  EXPECT_EQ(env::parse_domain_list("=3 , ;"), (Domains{-1, -1, -1, -1, -1}));
}

TEST(ConfigParse, DynamicIsOffOnlyForTwoSpellingsOfFalse) {
  EXPECT_EQ(env::parse_dynamic("FALSE"), 0);
  EXPECT_EQ(env::parse_dynamic("false"), 0);
  EXPECT_EQ(env::parse_dynamic("  'false'"), 0);
  EXPECT_EQ(env::parse_dynamic("\"FALSE\" and more"), 0);
  EXPECT_EQ(env::parse_dynamic("False"), 1);
  EXPECT_EQ(env::parse_dynamic("0"), 1);
  EXPECT_EQ(env::parse_dynamic("falsey"), 1);
  EXPECT_EQ(env::parse_dynamic("true"), 1);
  EXPECT_EQ(env::parse_dynamic("''"), 1);
}

TEST(ConfigParse, MpiRanksUseTheWholeValue) {
  EXPECT_EQ(env::parse_ranks("4", false), 4);
  EXPECT_EQ(env::parse_ranks("0", false), 0);
  EXPECT_EQ(env::parse_ranks("4x", false), -1);
  EXPECT_EQ(env::parse_ranks("-2", false), -1);
  EXPECT_EQ(env::parse_ranks("", false), -1);
  EXPECT_EQ(env::parse_ranks("99999999999", false), -1);
}

TEST(ConfigParse, PinMappingNumberMustBeFollowedByColon) {
  EXPECT_EQ(env::parse_ranks("3:0,1,2", true), 3);
  EXPECT_EQ(env::parse_ranks("3:", true), 3);
  EXPECT_EQ(env::parse_ranks("3", true), -1);
  EXPECT_EQ(env::parse_ranks(":3", true), -1);
  EXPECT_EQ(env::parse_ranks("3:0", false), -1);
}

TEST(ConfigParse, VerboseIsANumberInAnyBaseThatMustBeOne) {
  EXPECT_EQ(env::parse_verbose("1"), 1);
  EXPECT_EQ(env::parse_verbose("0x1"), 1);
  EXPECT_EQ(env::parse_verbose("0X1"), 1);
  EXPECT_EQ(env::parse_verbose("01"), 1);
  EXPECT_EQ(env::parse_verbose("0"), 0);
  EXPECT_EQ(env::parse_verbose("2"), 0);
  EXPECT_EQ(env::parse_verbose("010"), 0) << "octal 8";
  EXPECT_EQ(env::parse_verbose("1x"), 0);
  EXPECT_EQ(env::parse_verbose("-1"), 0);
  EXPECT_EQ(env::parse_verbose(""), 0);
}

namespace {
std::string elapsed(double s) {
  char buf[48];
  zml::serv::format_elapsed(s, buf, sizeof buf);
  return buf;
}
}  // namespace

TEST(ConfigParse, ElapsedTimeUsesTheLargestUnitAtLeastOne) {
  EXPECT_EQ(elapsed(1.5), "1.50s");
  EXPECT_EQ(elapsed(120.0), "120.00s");
  EXPECT_EQ(elapsed(0.01234), "12.34ms");
  EXPECT_EQ(elapsed(1e-3), "1.00ms");
  EXPECT_EQ(elapsed(12.34e-6), "12.34us");
  EXPECT_EQ(elapsed(999e-9), "999.00ns");
  EXPECT_EQ(elapsed(5e-9), "5.00ns");
  EXPECT_EQ(elapsed(0.0), "0.00ns");
}

TEST(ConfigParse, VerboseLineCarriesCallTimeAndSettings) {
  zml::serv::VerboseContext ctx;
  ctx.threads = 4;
  ctx.dynamic = 0;
  ctx.fast_mm = 1;
  ctx.code_path = 9;
  char line[200];
  const size_t n = zml::serv::format_verbose_line(line, sizeof line, "DSCAL(3,%p,1)", 2.5e-3, ctx);
  const std::string want =
      "ZML_VERBOSE DSCAL(3,%p,1) 2.50ms threads:4 dynamic:0 fast_mm:1 code_path:9\n";
  EXPECT_EQ(std::string(line), want);
  EXPECT_EQ(n, want.size());
}

TEST(ConfigParse, CutVerboseLineStillEndsTheLine) {
  zml::serv::VerboseContext ctx;
  const std::string call(300, 'C');
  char line[64];
  const size_t n = zml::serv::format_verbose_line(line, sizeof line, call.c_str(), 1.0, ctx);
  EXPECT_EQ(n, sizeof line - 1);
  EXPECT_EQ(std::string(line), "ZML_VERBOSE " + std::string(50, 'C') + "\n");
}
