// SPDX-License-Identifier: Apache-2.0
#include "zozale/meter.h"

#include <gtest/gtest.h>

namespace zozale::tool {
namespace {

class MeterTest : public ::testing::Test {
 protected:
  double now_ = 0.0;
  Meter meter_{[this] { return now_; }};
};

TEST_F(MeterTest, StartsAtNothing) {
  EXPECT_EQ(meter_.reading().percent, 0);
  EXPECT_EQ(meter_.reading().seconds_left, 0);
}

TEST_F(MeterTest, WeighsWritingMoreThanReading) {
  meter_.plan(Work::kRead, 100);
  meter_.plan(Work::kWrite, 100);
  meter_.begin_step(Work::kRead, "checking", "kernel", 100);
  meter_.end_step();
  EXPECT_EQ(meter_.reading().percent, 40);
}

TEST_F(MeterTest, NeverCountsBackwardsOrBeyondAStep) {
  meter_.plan(Work::kRead, 200);
  meter_.begin_step(Work::kRead, "checking", "kernel", 100);
  meter_.reach(60);
  meter_.reach(10);
  EXPECT_EQ(meter_.reading().bytes_done, 60U);
  meter_.reach(1000);
  EXPECT_EQ(meter_.reading().bytes_done, 100U);
  EXPECT_EQ(meter_.reading().percent, 50);
}

TEST_F(MeterTest, IsFullOnlyWhenFinished) {
  meter_.plan(Work::kWrite, 10);
  meter_.begin_step(Work::kWrite, "writing", "kernel", 10);
  meter_.end_step();
  EXPECT_EQ(meter_.reading().percent, 99);
  meter_.finish();
  EXPECT_EQ(meter_.reading().percent, 100);
  EXPECT_EQ(meter_.reading().stage, "done");
}

TEST_F(MeterTest, CountsSkippedWorkAsDone) {
  meter_.plan(Work::kWrite, 100);
  meter_.skip(Work::kWrite, 50);
  EXPECT_EQ(meter_.reading().percent, 50);
}

TEST_F(MeterTest, KnowsNoTimeLeftBeforeItHasSeenThatKindOfWork) {
  meter_.plan(Work::kRead, 100);
  meter_.plan(Work::kWrite, 100);
  meter_.begin_step(Work::kRead, "checking", "kernel", 100);
  now_ = 5.0;
  meter_.end_step();
  EXPECT_FALSE(meter_.reading().seconds_left);
}

TEST_F(MeterTest, TellsTheTimeLeftByThePaceOfEachKind) {
  meter_.plan(Work::kRead, 200);
  meter_.plan(Work::kWrite, 100);
  meter_.begin_step(Work::kRead, "checking", "kernel", 100);
  now_ = 10.0;
  meter_.begin_step(Work::kWrite, "writing", "kernel", 100);
  now_ = 14.0;
  meter_.reach(20);
  // 80 bytes to write at 5 bytes a second, 100 to read at 10.
  EXPECT_EQ(meter_.reading().seconds_left, 26);
}

TEST_F(MeterTest, CountsTheTimeOfErasingForWriting) {
  meter_.plan(Work::kWrite, 100);
  meter_.begin_step(Work::kWrite, "erasing", "kernel", 0);
  now_ = 10.0;
  meter_.begin_step(Work::kWrite, "writing", "kernel", 100);
  now_ = 20.0;
  meter_.reach(50);
  EXPECT_EQ(meter_.reading().seconds_left, 20);
}

TEST_F(MeterTest, CountsBadBlocksOfOnePartition) {
  meter_.skip_bad_block();
  meter_.skip_bad_block();
  EXPECT_EQ(meter_.reading().bad_blocks_skipped, 2U);
  meter_.forget_bad_blocks();
  EXPECT_EQ(meter_.reading().bad_blocks_skipped, 0U);
}

}  // namespace
}  // namespace zozale::tool
