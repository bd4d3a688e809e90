// SPDX-License-Identifier: Apache-2.0
//
// What an upgrade leaves on flash, in both directions.
#include "upi_update.h"

#include <numeric>
#include <tuple>

#include "sim/nand.h"
#include "upgrade_test.h"

namespace {

using sim::System;
using support::pattern;

constexpr std::size_t kBlock = 2048;  // of sim::test_layout()

class UpdateTest : public UpgradeTest {};

// --- Lengths, in both directions, on every kind of bad blocks. ---

using BadBlocks = std::vector<std::uint32_t>;

class UpdateImageTest
    : public UpdateTest,
      public ::testing::WithParamInterface<std::tuple<System, std::size_t, BadBlocks>> {
 protected:
  void SetUp() override {
    const auto& [running, length, bad] = GetParam();
    sim::Layout layout = sim::test_layout();
    layout.running = running;
    for (sim::PartitionLayout& part : layout.partitions) {
      if (part.name == "kernel" || part.name == "kernel2") {
        part.bad = bad;
      }
    }
    use_layout(layout);
    fill_systems();
  }
};

TEST_P(UpdateImageTest, StandsInTheGoodBlocksAndTheRestIsErased) {
  const sim::Bytes image = pattern(std::get<1>(GetParam()), 7);
  const sim::Bytes running_kernel = running_of("kernel").raw();
  const sim::Bytes other_partition = target_of("rootfs").raw();
  put_package(platform_package({{"kernel", image}}));

  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, 0);
  expect_image(target_of("kernel"), image);
  EXPECT_EQ(running_of("kernel").raw(), running_kernel);
  EXPECT_EQ(target_of("rootfs").raw(), other_partition);
  expect_flags(DUALSYSTEM_STATUS_BOOTABLE);
}

INSTANTIATE_TEST_SUITE_P(
    Lengths, UpdateImageTest,
    ::testing::Combine(::testing::Values(System::a, System::b),
                       ::testing::Values(std::size_t{1}, kBlock - 1, kBlock, kBlock + 1,
                                         3 * kBlock - 1, 3 * kBlock, 3 * kBlock + 1, 5 * kBlock),
                       ::testing::Values(BadBlocks{}, BadBlocks{0}, BadBlocks{3}, BadBlocks{7},
                                         BadBlocks{2, 3, 4}, BadBlocks{0, 1, 2})));

TEST_F(UpdateTest, FillsAPartitionToItsLastGoodBlock) {
  target_of("kernel").set_bad(7);
  fill_systems();
  const sim::Bytes image = pattern(7 * kBlock, 7);
  put_package(platform_package({{"kernel", image}}));

  EXPECT_EQ(upgrade().result, 0);
  expect_image(target_of("kernel"), image);
}

TEST_F(UpdateTest, FailsWhenTheImageNeedsOneGoodBlockMoreThanThereIs) {
  target_of("kernel").set_bad(2);
  put_package(platform_package({{"kernel", pattern(7 * kBlock + 1, 7)}}));

  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, -1);
  EXPECT_TRUE(
      run.said("VEMK_WriteBlock", "Start address[16384] out of partition total size[16384]!"));
  EXPECT_TRUE(run.said("write_mtd_partition_data", "Write data to mtd fail!"));
  EXPECT_TRUE(run.said("upgrade_image", "Image write partition data failed"));
  EXPECT_TRUE(run.said("upgrade_partitions", "Update partition [kernel] fail!"));
  expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
}

TEST_F(UpdateTest, WritesEveryPartitionOfThePackageInItsOrder) {
  fill_systems();
  support::PackageFile package = support::system_package(3000);
  put_package(package);

  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, 0);
  for (const support::PackageEntry& entry : package.partitions) {
    expect_image(target_of(entry.name), entry.data);
  }
  EXPECT_LT(run.first(sim::Op::memerase64, "kernel2"), run.first(sim::Op::memerase64, "rootfs2"));
  EXPECT_LT(run.first(sim::Op::memerase64, "rootfs2"), run.first(sim::Op::memerase64, "oemdata2"));
}

TEST_F(UpdateTest, WritesAPackedImageAsItIsStored) {
  const sim::Bytes image = pattern(900, 7);
  support::PackageEntry entry{"kernel", image};
  entry.zipped = 1;
  put_package(platform_package({entry}));

  EXPECT_EQ(upgrade().result, 0);
  expect_image(target_of("kernel"), image);
}

TEST_F(UpdateTest, TakesAnImageFromWhereItsEntrySays) {
  const sim::Bytes image = pattern(2 * kBlock + 5, 7);
  support::PackageEntry entry{"kernel", {}};
  entry.len = static_cast<std::int32_t>(image.size());
  entry.hash = support::sha512(image);
  support::PackageFile package = platform_package({entry});
  package.tail = pattern(77, 8);
  package.partitions[0].offset =
      static_cast<std::int32_t>(package.payload_offset() + package.tail.size());
  package.tail.insert(package.tail.end(), image.begin(), image.end());
  put_package(package);

  EXPECT_EQ(upgrade().result, 0);
  expect_image(target_of("kernel"), image);
}

TEST_F(UpdateTest, WorksOnBlocksSmallerThanItsReads) {
  use_layout(sim::test_layout(128, 4, 16));
  fill_systems();
  const sim::Bytes image = pattern(5 * 512 + 3, 7);
  put_package(platform_package({{"kernel", image}}));

  EXPECT_EQ(upgrade().result, 0);
  expect_image(target_of("kernel"), image);
}

// --- Running it again. ---

TEST_F(UpdateTest, ASecondRunErasesNothing) {
  put_package(support::system_package(3 * kBlock));
  ASSERT_EQ(upgrade().result, 0);
  const std::uint64_t erases = target_of("rootfs").total_erases();

  z_upgrade_status_info_t status{};
  z_upgrade_flush_status_t sink{&status, nullptr};
  const LibraryRun run = upgrade(&sink);

  EXPECT_EQ(run.result, 0);
  for (const char* name : {"kernel", "rootfs", "oemdata"}) {
    EXPECT_TRUE(
        run.said("upgrade_image", std::string("Partition [") + name + "] already updated!"));
    EXPECT_TRUE(run.made(sim::Op::memerase64, target_name(name)).empty());
    EXPECT_TRUE(run.made(sim::Op::memerase, target_name(name)).empty());
    EXPECT_TRUE(run.made(sim::Op::write, target_name(name)).empty());
  }
  EXPECT_EQ(target_of("rootfs").total_erases(), erases);
  EXPECT_EQ(status.upgraded_size, static_cast<int>(9 * kBlock));
  EXPECT_EQ(status.upgrade_status, UPGRADE_STATUS_UPDATE_SUCCESS);
  expect_flags(DUALSYSTEM_STATUS_BOOTABLE);
}

TEST_F(UpdateTest, DataBehindAnImageThatIsThereIsLeftAlone) {
  const sim::Bytes image = pattern(700, 7);
  target_of("kernel").flash(filled_up(image, kBlock));
  target_of("kernel").poke(5 * kBlock, pattern(100, 9));
  const sim::Bytes before = target_of("kernel").raw();
  put_package(platform_package({{"kernel", image}}));

  EXPECT_EQ(upgrade().result, 0);
  EXPECT_EQ(target_of("kernel").raw(), before);
}

TEST_F(UpdateTest, APartitionWithOneWrongByteIsWrittenAnew) {
  const sim::Bytes image = pattern(2 * kBlock, 7);
  sim::Bytes damaged = image;
  damaged[kBlock + 3] = static_cast<std::uint8_t>(damaged[kBlock + 3] ^ 1U);
  target_of("kernel").flash(damaged);
  put_package(platform_package({{"kernel", image}}));

  EXPECT_EQ(upgrade().result, 0);
  expect_image(target_of("kernel"), image);
}

TEST_F(UpdateTest, AFailedRunIsResumedWithThePartitionThatFailed) {
  fill_systems();
  const support::PackageFile package = support::system_package(2 * kBlock + 1);
  put_package(package);
  device().faults().add({sim::Op::memerase, target_name("rootfs"), 2});
  ASSERT_EQ(upgrade().result, -1);
  expect_image(target_of("kernel"), package.partitions[0].data);
  const std::uint64_t kernel_erases = target_of("kernel").total_erases();
  const sim::Bytes oemdata = target_of("oemdata").raw();
  EXPECT_EQ(oemdata, pattern(8 * kBlock, 1000 + target_of("oemdata").number()));

  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, 0);
  EXPECT_TRUE(run.said("upgrade_image", "Partition [kernel] already updated!"));
  EXPECT_EQ(target_of("kernel").total_erases(), kernel_erases);
  for (const support::PackageEntry& entry : package.partitions) {
    expect_image(target_of(entry.name), entry.data);
  }
  expect_flags(DUALSYSTEM_STATUS_BOOTABLE);
}

// --- Odd packages. ---

TEST_F(UpdateTest, APackageWithoutPartitionsMakesTheTargetBootable) {
  write_flags(
      [](sim::BootRecord& record) { record.set_status(System::b, DUALSYSTEM_STATUS_SUCCESSFUL); });
  support::PackageFile package;
  package.upgrade_type = 9;
  package.tail = pattern(10);
  for (const std::int32_t count : {0, -1}) {
    package.partition_num = count;
    put_package(package);
    const LibraryRun run = upgrade();
    EXPECT_EQ(run.result, 0);
    EXPECT_TRUE(run.said("upgrade_partitions", "Partition num:" + std::to_string(count)));
    EXPECT_TRUE(run.messages_of("upgrade_partition").empty());
    expect_flags(DUALSYSTEM_STATUS_BOOTABLE);
  }
}

TEST_F(UpdateTest, APackageOfTheMostEntriesIsInstalledEntryByEntry) {
  const sim::Bytes image = pattern(100, 7);
  put_package(platform_package(std::vector<support::PackageEntry>(49, {"kernel", image})));
  z_upgrade_status_info_t status{};
  z_upgrade_flush_status_t sink{&status, nullptr};

  const LibraryRun run = upgrade(&sink);

  EXPECT_EQ(run.result, 0);
  EXPECT_EQ(status.upgraded_size, 4900);
  const support::LogLine there = {"upgrade_image", "Partition [kernel] already updated!"};
  EXPECT_EQ(support::count_line(run.log, there), 48U);
  expect_image(target_of("kernel"), image);
}

TEST_F(UpdateTest, ExtraFilesAreNotInstalled) {
  fill_systems();
  const sim::Bytes rootfs = target_of("rootfs").raw();
  support::PackageFile package = platform_package({{"kernel", pattern(100, 7)}});
  package.extras = {{"rootfs", pattern(200, 8)}};
  put_package(package);

  EXPECT_EQ(upgrade().result, 0);
  expect_image(target_of("kernel"), package.partitions[0].data);
  EXPECT_EQ(target_of("rootfs").raw(), rootfs);
}

TEST_F(UpdateTest, AnEmptyImageOfTheRightDigestCountsAsThere) {
  fill_systems();
  const sim::Bytes before = target_of("kernel").raw();
  put_package(platform_package({{"kernel", {}}}));

  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, 0);
  EXPECT_TRUE(run.said("upgrade_image", "Partition [kernel] already updated!"));
  EXPECT_EQ(target_of("kernel").raw(), before);
}

TEST_F(UpdateTest, AnEmptyImageOfAnotherDigestErasesAndFails) {
  fill_systems();
  support::PackageEntry entry{"kernel", {}};
  entry.hash = support::sha512(pattern(3));
  put_package(platform_package({entry}));

  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, -1);
  EXPECT_TRUE(run.said("upgrade_image", "Image data check hash failed"));
  expect_image(target_of("kernel"), {});
}

// Digests are compared up to a zero byte that both hold, so half a digest can be enough.
TEST_F(UpdateTest, ADigestCountsUpToItsFirstZeroByte) {
  const sim::Bytes image = support::with_zero_in_digest(pattern(kBlock + 1, 7));
  support::PackageEntry entry{"kernel", image};
  entry.hash = support::changed_behind_zero(support::sha512(image));
  put_package(platform_package({entry}));

  EXPECT_EQ(upgrade().result, 0);
  expect_image(target_of("kernel"), image);
}

// Images are looked up by name: of two entries with one name, the first one's bytes are written.
TEST_F(UpdateTest, TheSecondOfTwoEntriesWithOneNameGetsTheFirstOnesBytes) {
  const sim::Bytes first = pattern(kBlock, 7);
  put_package(platform_package({{"kernel", first}, {"kernel", pattern(kBlock, 8)}}));

  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, -1);
  EXPECT_TRUE(run.said("upgrade_image", "Image data check hash failed"));
  expect_image(target_of("kernel"), first);
  expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
}

}  // namespace
