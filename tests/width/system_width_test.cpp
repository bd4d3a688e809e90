// SPDX-License-Identifier: Apache-2.0
//
// Installing and synchronising partitions that reach past 2 GiB. Their good blocks end there;
// erasing covers all of them.
#include "tests/support/package_file.h"
#include "upi_sync_system.h"
#include "vemk_fota_ab_upgrade.h"
#include "wide_test.h"

namespace {

using sim::Op;
using support::logged;
using support::pattern;

class SystemWidthTest : public WideTest {
 protected:
  void use_system(sim::System running, const std::vector<std::uint32_t>& bad,
                  const std::string& also = {}) {
    use_wide(bad, also);
    partition("kernel").set_write_protected(true);
    write_flags();
    device().set_running(running);
  }
  int install(const sim::Bytes& image) {
    support::PackageFile package;
    package.upgrade_type = 1;
    package.partitions.push_back({"kernel", image});
    device().write_file(support::kPackagePath, package.bytes());
    int result = 1;
    log_ = logged([&] { result = vemk_dual_upgrade(nullptr); });
    return result;
  }
  int sync() {
    int result = 1;
    log_ = logged([&] { result = vemk_dual_sync_system(); });
    return result;
  }
  bool said(const std::string& function, const std::string& message) const {
    return support::has_line(log_, {function, message});
  }

  std::vector<support::LogLine> log_;
};

TEST_F(SystemWidthTest, InstallsIntoTheLastGoodBlockBelowTwoGigabytes) {
  use_system(sim::System::b, blocks_up_to(kLowBlock));
  const sim::Bytes image = pattern(100000);
  EXPECT_EQ(install(image), 0);
  sim::Bytes expected = image;
  expected.resize(kBlock, 0xFF);
  EXPECT_EQ(partition("kernel").block(kLowBlock), expected);
  // All good blocks are erased, up to the partition's end; then the one that is written.
  EXPECT_EQ(partition("kernel").erase_count(kLowBlock), 2U);
  EXPECT_EQ(partition("kernel").erase_count(kHighBlock), 1U);
  EXPECT_EQ(partition("kernel").erase_count(kBlocks - 1), 1U);
}

TEST_F(SystemWidthTest, AnImageThatReachesTwoGigabytesDoesNotFit) {
  use_system(sim::System::b, blocks_up_to(kLowBlock));
  // Spares the look at what is there already: it asks about each block before each 1024 bytes.
  device().faults().add({Op::read, "kernel"});
  EXPECT_EQ(install(pattern(kBlock + 1)), -1);
  EXPECT_TRUE(
      said("VEMK_WriteBlock", "Start address[-4194304] out of partition total size[-4194304]!"));
  EXPECT_TRUE(said("upgrade_image", "Image write partition data failed"));
  EXPECT_EQ(partition("kernel").block(kLowBlock), pattern(kBlock));
  EXPECT_EQ(partition("kernel").erase_count(kHighBlock), 1U);
}

TEST_F(SystemWidthTest, TheReaderOfASynchronisationEndsAtTwoGigabytes) {
  use_wide();
  OpenWide kernel("kernel");
  sim::Bytes block(kBlock);
  int result = 1;
  log_ = logged(
      [&] { result = read_image(kernel.info(), block.data(), as_int(kHigh), as_int(kBlock)); });
  EXPECT_EQ(result, -2);
  EXPECT_EQ(log_.back().message,
            "Start address (-4194304) or new start address (0) out of partition total size "
            "(-4194304)!");
  static_cast<void>(logged(
      [&] { result = read_image(kernel.info(), block.data(), as_int(kLow), as_int(kBlock)); }));
  EXPECT_EQ(result, 0);
}

// The running system's only good block below 2 GiB holds data; what lies above is not read.
TEST_F(SystemWidthTest, SynchronisesWhatLiesBelowTwoGigabytes) {
  use_system(sim::System::a, blocks_up_to(kLowBlock), "kernel2");
  const sim::Bytes content = pattern(kBlock);
  partition("kernel").poke(kLow, content);
  partition("kernel").poke(kHigh, pattern(kBlock, 2));
  partition("kernel2").poke(kTotal - kBlock, pattern(kBlock, 3));
  EXPECT_EQ(sync(), 0);
  EXPECT_TRUE(said("partition_hash", "Out of Image"));
  EXPECT_TRUE(said("sync_partition", "Out of Image"));
  EXPECT_EQ(partition("kernel2").block(0), content);
  EXPECT_EQ(partition("kernel2").block(1), sim::Bytes(kBlock, 0xFF));
  EXPECT_EQ(partition("kernel2").block(kBlocks - 1), sim::Bytes(kBlock, 0xFF));
  EXPECT_EQ(partition("kernel2").count(Op::memerase64), kBlocks);
}

TEST_F(SystemWidthTest, ErasingTheLargestPartitionOfASynchronisationEnds) {
  use_system(sim::System::a, {}, "kernel2");
  partition("kernel").poke(0, pattern(1000));
  partition("kernel2").set_reported_info(sim::MtdInfo{0xFFFFFFFF, kBlock, 16384, 512});
  EXPECT_EQ(sync(), 0);
  EXPECT_TRUE(said("erase_partition", "Mtd, not erasing bad block at 0xffc00000"));
  EXPECT_EQ(partition("kernel2").count(Op::memerase64), kBlocks);
  sim::Bytes expected = pattern(1000);
  expected.resize(kBlock, 0xFF);
  EXPECT_EQ(partition("kernel2").block(0), expected);
}

}  // namespace
