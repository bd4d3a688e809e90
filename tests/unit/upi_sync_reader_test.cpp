// SPDX-License-Identifier: Apache-2.0
//
// The reader of the synchronisation: where it differs from that of the upgrade, and where not.
#include <cerrno>

#include "opened_partition.h"
#include "upgrade_test.h"
#include "upi_sync_system.h"

namespace {

using sim::Op;
using support::pattern;
using Lines = std::vector<support::LogLine>;

constexpr std::size_t kBlock = 2048;
constexpr int kSize = 8 * 2048;

class ReaderTest : public UpgradeTest {
 protected:
  ReaderTest() {
    partition("kernel").set_bad(0);
    partition("kernel").set_bad(3);
    partition("kernel").flash(content_);
    opened_ = std::make_unique<unit::OpenedPartition>(partition("kernel"));
  }
  // The device looks for what was left open before the members are gone.
  void TearDown() override {
    opened_.reset();
    UpgradeTest::TearDown();
  }

  LibraryRun read(int start, int size) {
    buffer_.assign(kSize, 0);
    return run_library([&] { return read_image(opened_->info(), buffer_.data(), start, size); });
  }
  sim::Bytes got(std::size_t size) const {
    return {buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(size)};
  }
  static sim::Bytes part(const sim::Bytes& bytes, std::size_t start, std::size_t size) {
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(start);
    return {first, first + static_cast<std::ptrdiff_t>(size)};
  }
  static void expect_out_of_range(const LibraryRun& run, int start, int end) {
    EXPECT_EQ(run.result, -2);
    EXPECT_EQ(run.log.back(),
              (support::LogLine{"read_image", "Start address (" + std::to_string(start) +
                                                  ") or new start address (" + std::to_string(end) +
                                                  ") out of partition total size (16384)!"}));
    EXPECT_TRUE(run.made(Op::read).empty());
    EXPECT_TRUE(run.made(Op::lseek).empty());
  }

  const sim::Bytes content_ = pattern(6 * kBlock, 3);
  std::unique_ptr<unit::OpenedPartition> opened_;
  sim::Bytes buffer_;
};

TEST_F(ReaderTest, ReadsGoodBlocksOnly) {
  for (std::uint32_t block = 0; block < 6; ++block) {
    EXPECT_EQ(read(static_cast<int>(block * kBlock), kBlock).result, 0);
    EXPECT_EQ(got(kBlock), part(content_, block * kBlock, kBlock)) << block;
  }
}

TEST_F(ReaderTest, KeepsTheOffsetInABlock) {
  const LibraryRun run = read(kBlock + 100, 50);
  EXPECT_EQ(run.result, 0);
  EXPECT_EQ(got(50), part(content_, kBlock + 100, 50));
  ASSERT_EQ(run.made(Op::read).size(), 1U);
  EXPECT_EQ(run.made(Op::read)[0].offset, 2 * kBlock + 100);
  EXPECT_EQ(run.made(Op::lseek)[0].flags, SEEK_SET);
}

TEST_F(ReaderTest, TellsOfTheEndByAResultOfItsOwn) {
  expect_out_of_range(read(6 * kBlock, kBlock), kSize, kSize + 2048);
  expect_out_of_range(read(6 * kBlock + 7, 1), kSize + 7, kSize + 8);
  expect_out_of_range(read(5 * kBlock + 5, kBlock), 7 * 2048 + 5, kSize + 5);
}

TEST_F(ReaderTest, ReadsUpToTheLastByte) {
  EXPECT_EQ(read(6 * kBlock - 10, 10).result, 0);
  EXPECT_EQ(got(10), part(content_, 6 * kBlock - 10, 10));
}

TEST_F(ReaderTest, RefusesNullPointers) {
  unsigned char byte = 0;
  const LibraryRun no_info = run_library([&] { return read_image(nullptr, &byte, 0, 1); });
  EXPECT_EQ(no_info.result, -1);
  ASSERT_EQ(no_info.log.size(), 1U);
  EXPECT_EQ(no_info.log[0].function, "read_image");
  EXPECT_EQ(no_info.log[0].message.find("Input error, mtd_info:(nil) , buffer:0x"), 0U);
  const LibraryRun neither = run_library([] { return read_image(nullptr, nullptr, 0, 1); });
  EXPECT_EQ(neither.result, -1);
  EXPECT_EQ(neither.log, (Lines{{"read_image", "Input error, mtd_info:(nil) , buffer:(nil)"}}));
  const LibraryRun no_buffer =
      run_library([&] { return read_image(opened_->info(), nullptr, 0, 1); });
  EXPECT_EQ(no_buffer.result, -1);
}

TEST_F(ReaderTest, FailsWithTheSeek) {
  device().faults().add({Op::lseek, "kernel", 1, EINVAL});
  const LibraryRun run = read(kBlock, 10);
  EXPECT_EQ(run.result, -1);
  EXPECT_EQ(run.log.back(),
            (support::LogLine{"read_image", "Lseek error, error:22[Invalid argument]"}));
}

TEST_F(ReaderTest, FailsWithTheRead) {
  device().faults().add({Op::read, "kernel", 1, EIO});
  const LibraryRun run = read(0, 10);
  EXPECT_EQ(run.result, -1);
  EXPECT_TRUE(run.said_in_order(
      {{"read_image", "Read len (-1) < need len (10)!"}, {"read_image", "VEMK_ReadImage fail"}}));
}

TEST_F(ReaderTest, FailsWithAShortRead) {
  sim::Fault fault{Op::read, "kernel"};
  fault.bytes = 512;
  device().faults().add(fault);
  const LibraryRun run = read(0, kBlock);
  EXPECT_EQ(run.result, -1);
  EXPECT_TRUE(run.said_in_order({{"read_image", "Read len (512) < need len (2048)!"},
                                 {"read_image", "VEMK_ReadImage fail"}}));
}

}  // namespace
