// SPDX-License-Identifier: Apache-2.0
//
// Which system runs, and which is the target.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "tests/support/device_test.h"
#include "upi_public.h"

namespace {

using support::logged;
using support::LogLine;
using Lines = std::vector<LogLine>;

constexpr char kCmdline[] = "/proc/cmdline";

LogLine said(const std::string& message) {
  return {"upi_get_current_system", message};
}
const LogLine kBegin = said("upi_get_current_system func begin!");
const LogLine kEnd = said("upi_get_current_system func end!");
// With whatever error text: "nothing found" leaves errno alone.
const std::string kNothingFound = "get info from /proc/cmdline error:";

class SystemTest : public support::DeviceTest {
 protected:
  void cmdline(const std::string& text) { device().write_file(kCmdline, text); }
  int current() {
    lines_ = logged([this] { result_ = upi_get_current_system(); });
    return result_;
  }
  // Replaces the error text of "nothing found", which is whatever errno held.
  Lines lines() {
    Lines out = lines_;
    for (LogLine& line : out) {
      if (line.message.substr(0, kNothingFound.size()) == kNothingFound) {
        line.message = kNothingFound;
      }
    }
    return out;
  }

 private:
  int result_ = 0;
  Lines lines_;
};

// --- The running system. ------------------------------------------------------------------------

TEST_F(SystemTest, FindsTheParameterAmongOthers) {
  cmdline("console=ttyS0 system=system_b rootwait\n");
  EXPECT_EQ(current(), 2);
  EXPECT_EQ(lines(), (Lines{kBegin, said("buff:console=ttyS0 system=system_b rootwait\n"),
                            said("para:console=ttyS0"), said("para:system=system_b"), kEnd}));
}

TEST_F(SystemTest, FindsSystemA) {
  cmdline("system=system_a console=ttyS0\n");
  EXPECT_EQ(current(), 1);
  EXPECT_EQ(lines(), (Lines{kBegin, said("buff:system=system_a console=ttyS0\n"),
                            said("para:system=system_a"), kEnd}));
}

TEST_F(SystemTest, FindsTheLastParameterWithItsLineFeed) {
  cmdline("console=ttyS0 system=system_a\n");
  EXPECT_EQ(current(), 1);
  EXPECT_EQ(lines().at(3), said("para:system=system_a\n"));
}

TEST_F(SystemTest, FindsTheLastParameterWithoutALineFeed) {
  cmdline("console=ttyS0 system=system_b");
  EXPECT_EQ(current(), 2);
}

TEST_F(SystemTest, FirstMatchWins) {
  cmdline("system=system_b quiet system=system_a\n");
  EXPECT_EQ(current(), 2);
  EXPECT_EQ(lines().size(), 4U);
  cmdline("system=system_a quiet system=system_b\n");
  EXPECT_EQ(current(), 1);
}

TEST_F(SystemTest, ComparesThePrefixOnly) {
  cmdline("system=system_a1 system=system_b\n");
  EXPECT_EQ(current(), 1);
  cmdline("system=system_bcd\n");
  EXPECT_EQ(current(), 2);
}

TEST_F(SystemTest, TakesNoOtherSpelling) {
  for (const char* const text :
       {"system=system_c\n", "System=system_a\n", "system=system_\n", "system=SYSTEM_A\n",
        "xsystem=system_a\n", "system= system_a\n", "system=system_\na\n"}) {
    cmdline(text);
    EXPECT_EQ(current(), -1) << text;
  }
}

TEST_F(SystemTest, RunsOfBlanksMakeNoEmptyParameter) {
  cmdline("  console=ttyS0   quiet  system=system_a   rootwait\n");
  EXPECT_EQ(current(), 1);
  EXPECT_EQ(
      lines(),
      (Lines{kBegin, said("buff:  console=ttyS0   quiet  system=system_a   rootwait\n"),
             said("para:console=ttyS0"), said("para:quiet"), said("para:system=system_a"), kEnd}));
}

TEST_F(SystemTest, TabSeparatesNothing) {
  cmdline("quiet\tsystem=system_a\n");
  EXPECT_EQ(current(), -1);
  EXPECT_EQ(lines(), (Lines{kBegin, said("buff:quiet\tsystem=system_a\n"),
                            said("para:quiet\tsystem=system_a\n"), said(kNothingFound), kEnd}));
  cmdline("console=ttyS0 root=/dev/a quiet\tsystem=system_a\n");
  EXPECT_EQ(current(), -1);
  cmdline("system=system_b\tquiet\n");
  EXPECT_EQ(current(), 2);
}

TEST_F(SystemTest, NoParameterIsToldAfterASecondRead) {
  cmdline("console=ttyS0 rootwait\n");
  EXPECT_EQ(current(), -1);
  EXPECT_EQ(lines(),
            (Lines{kBegin, said("buff:console=ttyS0 rootwait\n"), said("para:console=ttyS0"),
                   said("para:rootwait\n"), said(kNothingFound), kEnd}));
}

// The end is seen together with the only line, so no second read is made.
TEST_F(SystemTest, NoParameterInALineWithoutLineFeedIsNotToldAsAnError) {
  cmdline("console=ttyS0 rootwait");
  EXPECT_EQ(current(), -1);
  EXPECT_EQ(lines(), (Lines{kBegin, said("buff:console=ttyS0 rootwait"), said("para:console=ttyS0"),
                            said("para:rootwait"), kEnd}));
}

TEST_F(SystemTest, EmptyFileIsUnknown) {
  cmdline("");
  EXPECT_EQ(current(), -1);
  EXPECT_EQ(lines(), (Lines{kBegin, said(kNothingFound), kEnd}));
}

TEST_F(SystemTest, BlankLineHasNoParameterButItsLineFeed) {
  cmdline("   \n");
  EXPECT_EQ(current(), -1);
  EXPECT_EQ(lines(),
            (Lines{kBegin, said("buff:   \n"), said("para:\n"), said(kNothingFound), kEnd}));
}

TEST_F(SystemTest, LaterLinesAreSearchedToo) {
  cmdline("console=ttyS0\nsystem=system_b quiet\n");
  EXPECT_EQ(current(), 2);
  EXPECT_EQ(lines(),
            (Lines{kBegin, said("buff:console=ttyS0\n"), said("para:console=ttyS0\n"),
                   said("buff:system=system_b quiet\n"), said("para:system=system_b"), kEnd}));
}

// --- Lines longer than the buffer: read in pieces of 1023 characters. ---------------------------

TEST_F(SystemTest, LongLineIsSearchedPieceByPiece) {
  cmdline(std::string(1023, 'x') + "yyyy system=system_b\n");
  EXPECT_EQ(current(), 2);
  EXPECT_EQ(lines(),
            (Lines{kBegin, said("buff:" + std::string(1023, 'x')),
                   said("para:" + std::string(1023, 'x')), said("buff:yyyy system=system_b\n"),
                   said("para:yyyy"), said("para:system=system_b\n"), kEnd}));
}

TEST_F(SystemTest, ParameterAtTheEndOfAPieceIsFound) {
  cmdline(std::string(1023 - 16, 'x') + " system=system_a and more\n");
  EXPECT_EQ(current(), 1);
}

TEST_F(SystemTest, ParameterAcrossTwoPiecesIsNotFound) {
  cmdline(std::string(1023 - 15, 'x') + " system=system_a and more\n");
  EXPECT_EQ(current(), -1);
}

TEST_F(SystemTest, PieceThatBeginsWithTheTextCountsAsAParameter) {
  cmdline(std::string(1023, 'x') + "system=system_a\n");
  EXPECT_EQ(current(), 1);
}

// --- What cannot be read. -----------------------------------------------------------------------

TEST_F(SystemTest, MissingFileIsTold) {
  device().remove_file(kCmdline);
  EXPECT_EQ(current(), -1);
  EXPECT_EQ(
      lines(),
      (Lines{kBegin, said("Open file /proc/cmdline error, error:No such file or directory")}));
}

TEST_F(SystemTest, FileThatCannotBeOpenedIsTold) {
  device().faults().add({sim::Op::fopen, kCmdline, 1, EACCES});
  EXPECT_EQ(current(), -1);
  EXPECT_EQ(lines(),
            (Lines{kBegin, said("Open file /proc/cmdline error, error:Permission denied")}));
}

TEST_F(SystemTest, ReadErrorIsToldOnceAndEndsTheSearch) {
  device().faults().add({sim::Op::stream_read, kCmdline, 1, EIO, true});
  Lines lines;
  int result = 0;
  lines = logged([&] { result = upi_get_current_system(); });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(lines, (Lines{kBegin, said(kNothingFound + "Input/output error"), kEnd}));
}

TEST_F(SystemTest, FileIsOpenedOnceForReadingAndClosed) {
  cmdline("console=ttyS0 rootwait\n");
  const sim::Recording recording;
  current();
  const auto opened = recording.calls(sim::Op::fopen, kCmdline);
  ASSERT_EQ(opened.size(), 1U);
  EXPECT_EQ(opened[0].text, "r");
  EXPECT_EQ(recording.calls(sim::Op::fclose, kCmdline).size(), 1U);
}

TEST_F(SystemTest, FileIsReadAfreshEachTime) {
  cmdline("system=system_a\n");
  EXPECT_EQ(current(), 1);
  cmdline("system=system_b\n");
  EXPECT_EQ(current(), 2);
}

// --- Targets. -----------------------------------------------------------------------------------

TEST_F(SystemTest, UpgradeTargetIsTheOtherSystem) {
  int target = 0;
  cmdline("system=system_a\n");
  Lines lines = logged([&] { target = upi_get_target_upgrade_system(); });
  EXPECT_EQ(target, 2);
  EXPECT_EQ(lines,
            (Lines{kBegin, said("buff:system=system_a\n"), said("para:system=system_a\n"), kEnd}));
  cmdline("system=system_b\n");
  EXPECT_EQ(upi_get_target_upgrade_system(), 1);
}

TEST_F(SystemTest, NoUpgradeTargetWhenTheRunningSystemIsUnknown) {
  cmdline("console=ttyS0\n");
  const Lines lines = logged([] { EXPECT_EQ(upi_get_target_upgrade_system(), -1); });
  EXPECT_EQ(lines.back(), (LogLine{"upi_get_target_upgrade_system", "Get target system fail!"}));
  EXPECT_EQ(lines.at(lines.size() - 2), kEnd);
}

TEST_F(SystemTest, SyncTargetIsTheOtherSystemsNumberAndCode) {
  int number = 0;
  int code = 0;
  cmdline("system=system_a\n");
  const Lines lines = logged([&] { EXPECT_EQ(upi_get_target_sync_system(&number, &code), 0); });
  EXPECT_EQ(number, 2);
  EXPECT_EQ(code, 39019);
  EXPECT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines.back(), kEnd);
  cmdline("system=system_b\n");
  EXPECT_EQ(upi_get_target_sync_system(&number, &code), 0);
  EXPECT_EQ(number, 1);
  EXPECT_EQ(code, 34650);
}

TEST_F(SystemTest, NoSyncTargetLeavesTheOutputsAloneAndSaysNothing) {
  cmdline("console=ttyS0\n");
  int number = 77;
  int code = 88;
  const Lines lines = logged([&] { EXPECT_EQ(upi_get_target_sync_system(&number, &code), -1); });
  EXPECT_EQ(number, 77);
  EXPECT_EQ(code, 88);
  EXPECT_EQ(lines.back(), kEnd);
}

}  // namespace
