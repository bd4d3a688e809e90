// SPDX-License-Identifier: Apache-2.0
#include "zozale/display.h"

#include <gtest/gtest.h>

#include "tests/support/captured.h"

namespace zozale::tool {
namespace {

MeterReading sample() {
  MeterReading reading;
  reading.stage = "writing";
  reading.partition = "rootfs2";
  reading.bytes_done = 12 * 1024 * 1024;
  reading.bytes_total = 33030144;
  reading.bad_blocks_skipped = 2;
  reading.percent = 45;
  reading.seconds_left = 83;
  return reading;
}

TEST(DisplayTest, DescribesStagePartitionBytesBadBlocksAndTimeLeft) {
  EXPECT_EQ(describe(sample()),
            "writing rootfs2, 12.0 MiB of 31.5 MiB, 2 bad blocks skipped, 1:23 left");
}

TEST(DisplayTest, LeavesOutWhatIsNotKnown) {
  MeterReading reading;
  reading.stage = "erasing";
  reading.partition = "kernel";
  EXPECT_EQ(describe(reading), "erasing kernel");
}

TEST(DisplayTest, TellsHours) {
  MeterReading reading = sample();
  reading.seconds_left = 2 * 3600 + 5 * 60 + 9;
  EXPECT_NE(describe(reading).find("2:05:09 left"), std::string::npos);
}

TEST(DisplayTest, ShowsNamesWithoutControlCharacters) {
  MeterReading reading = sample();
  reading.partition = "ker\x1bnel";
  EXPECT_EQ(describe(reading).find('\x1b'), std::string::npos);
}

TEST(DisplayTest, DrawsABarThatFitsTheWidth) {
  EXPECT_EQ(bar(sample(), 200),
            "[##########--------------]  45 %  writing rootfs2, 12.0 MiB of 31.5 MiB, 2 bad blocks "
            "skipped, 1:23 left");
  EXPECT_EQ(bar(sample(), 40).size(), 40U);
}

TEST(DisplayTest, PrintsALineForEachStepAndEachTenth) {
  const std::string out = support::printed([] {
    Display display(Display::Style::kLines);
    MeterReading reading = sample();
    for (int percent = 45; percent <= 62; ++percent) {
      reading.percent = percent;
      display.show(reading);
    }
    reading.stage = "checking";
    display.show(reading);
  });
  const std::string rest = " rootfs2, 12.0 MiB of 31.5 MiB, 2 bad blocks skipped, 1:23 left\n";
  EXPECT_EQ(out, " 45 %  writing" + rest + " 50 %  writing" + rest + " 60 %  writing" + rest +
                     " 62 %  checking" + rest);
}

TEST(DisplayTest, IsSilentWhenTold) {
  EXPECT_EQ(support::printed([] { Display(Display::Style::kSilent).show(sample()); }), "");
}

TEST(DisplayTest, EndsTheBarsLine) {
  const std::string out = support::printed([] {
    Display display(Display::Style::kBar);
    display.show(sample());
    display.show(sample());
  });
  EXPECT_EQ(out, "\r" + bar(sample(), 79) + "\n");
}

}  // namespace
}  // namespace zozale::tool
