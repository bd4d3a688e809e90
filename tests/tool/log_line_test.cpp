// SPDX-License-Identifier: Apache-2.0
#include "zozale/log_line.h"

#include <gtest/gtest.h>

namespace zozale::tool {
namespace {

std::optional<LogLine> parsed(std::string_view message) {
  static std::string line;
  line = "[1700000000:000123][fota_upi] [upi_update-77]: " + std::string(message);
  return parse_log_line(line);
}

TEST(LogLineTest, HasAFunctionAndAMessage) {
  const auto line = parse_log_line("[1:000002][fota_upi] [mtd_find-42]: o_mtd_path=[/dev/mtd3]");
  ASSERT_TRUE(line);
  EXPECT_EQ(line->function, "mtd_find");
  EXPECT_EQ(line->message, "o_mtd_path=[/dev/mtd3]");
}

TEST(LogLineTest, MayHaveAnEmptyMessageAndBracketsInIt) {
  EXPECT_EQ(parsed("")->message, "");
  EXPECT_EQ(parsed("a ]: b [c-d]: e")->message, "a ]: b [c-d]: e");
}

TEST(LogLineTest, IsNothingElse) {
  for (const char* text : {"", "plain", "[", "[1:2][fota_upi] [", "[1:2][fota_upi] [f]: m",
                           "[1:2][fota_upi] [f-1] m", "x[1:2][fota_upi] [f-1]: m"}) {
    EXPECT_FALSE(parse_log_line(text)) << text;
  }
}

TEST(LogLineTest, YieldsTheTextBetween) {
  EXPECT_EQ(between("Partition [kernel] already updated!", "Partition [", "] already updated!"),
            "kernel");
  EXPECT_EQ(between("ab", "a", "b"), "");
  EXPECT_FALSE(between("a", "a", "a"));
  EXPECT_FALSE(between("xab", "a", "b"));
}

TEST(LogLineTest, YieldsANumber) {
  EXPECT_EQ(number_after("Need len:2048, real read len:2048", "Need len:"), 2048);
  EXPECT_EQ(number_after("x:-1", "x:"), -1);
  EXPECT_FALSE(number_after("x:y", "x:"));
  EXPECT_FALSE(number_after("y:1", "x:"));
}

TEST(FailureTrailTest, KeepsWhatTellsOfFailure) {
  FailureTrail trail;
  for (const char* message :
       {"upi_update func begin!", "<<<<<<<<<<<<Fail  Upgrade >>>>>>>>>>>>>",
        "Mtd, not erasing bad block at 0x800", "There is no extra file in upgrade package file!",
        "Partition file description:5, BAD address [0], errno no:0[Success]",
        "Set syste [0x0000986B] status [1] error!", "There is no [kernel] partition!"}) {
    trail.add(*parsed(message));
  }
  EXPECT_EQ(trail.lines(), std::vector<std::string>{"upi_update: There is no [kernel] partition!"});
  EXPECT_TRUE(trail.mentions("[kernel]"));
  EXPECT_FALSE(trail.mentions("[rootfs]"));
}

TEST(FailureTrailTest, KeepsTheLastOnes) {
  FailureTrail trail;
  for (int i = 0; i < 100; ++i) {
    trail.add(*parsed("error " + std::to_string(i)));
  }
  EXPECT_EQ(trail.lines().size(), 8U);
  EXPECT_EQ(trail.lines().back(), "upi_update: error 99");
}

TEST(FailureTrailTest, KeepsControlCharactersFromTheTerminal) {
  FailureTrail trail;
  trail.add(*parsed("There is no [\x1b[2J] partition!"));
  EXPECT_EQ(trail.lines().front().find('\x1b'), std::string::npos);
}

}  // namespace
}  // namespace zozale::tool
