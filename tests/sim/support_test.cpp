// SPDX-License-Identifier: Apache-2.0
//
// The tests' own tools.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <iostream>

#include "tests/support/device_test.h"

namespace {

using support::LogLine;

TEST(Captured, TakesWhatIsPrinted) {
  const std::string text = support::printed([] {
    std::cout << "one ";
    printf("two ");
    fflush(stdout);
    EXPECT_EQ(write(1, "three", 5), 5);
  });
  EXPECT_EQ(text, "one two three");
}

TEST(Captured, ParsesConsoleLines) {
  const auto lines = support::parse_console(
      "noise\n"
      "[1700000000:000042][fota_upi] [upi_x-17]: hello\n"
      "[1700000000:999999][fota_upi] [Odd-Name-3]: buff:a\n\n"
      "[1700000000:123456][fota_upi] [f-1]: \n"
      "[1700000000:12345][fota_upi] [f-1]: five digits\n");
  const std::vector<LogLine> expected = {
      {"upi_x", "hello"},
      {"Odd-Name", "buff:a\n"},
      {"f", "\n[1700000000:12345][fota_upi] [f-1]: five digits"}};
  EXPECT_EQ(lines, expected);
}

TEST(Captured, ParsesLogFiles) {
  const auto lines = support::parse_log_file(
      "[1:000001][fota_upi] [f-1]: one\n \n "
      "[1:000002][fota_upi] [g-2]: two\n\n \n "
      "[1:000003][fota_upi] [h-3]: three\n \n ");
  const std::vector<LogLine> expected = {{"f", "one"}, {"g", "two\n"}, {"h", "three"}};
  EXPECT_EQ(lines, expected);
}

TEST(Captured, CountsLines) {
  const std::vector<LogLine> lines = {{"f", "a"}, {"f", "b"}, {"f", "a"}};
  EXPECT_EQ(support::count_line(lines, {"f", "a"}), 2U);
  EXPECT_TRUE(support::has_line(lines, {"f", "b"}));
  EXPECT_FALSE(support::has_line(lines, {"g", "b"}));
  EXPECT_EQ(support::messages(lines), (std::vector<std::string>{"a", "b", "a"}));
}

TEST(InChild, TellsHowItEnded) {
  EXPECT_EQ(support::in_child([] { return 7; }).status, 7);
  EXPECT_TRUE(support::in_child([] { return 0; }).exited);
  const auto killed = support::in_child([] { return raise(SIGKILL); });
  EXPECT_FALSE(killed.exited);
  EXPECT_FALSE(killed.power_cut);
  EXPECT_EQ(killed.status, SIGKILL);
}

TEST(Pattern, DiffersFromSeedToSeed) {
  EXPECT_EQ(support::pattern(100, 1), support::pattern(100, 1));
  EXPECT_NE(support::pattern(100, 1), support::pattern(100, 2));
}

}  // namespace
