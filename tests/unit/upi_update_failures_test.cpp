// SPDX-License-Identifier: Apache-2.0
//
// What fails while a partition is written, one thing at a time.
#include <cerrno>

#include "descriptor_squatter.h"
#include "upgrade_test.h"
#include "upi_update.h"

namespace {

using sim::Op;
using support::pattern;
using Lines = std::vector<support::LogLine>;
using Messages = std::vector<std::string>;

constexpr std::size_t kBlock = 2048;
constexpr const char* kPackage = "/cache/ovu_fota_ab/upgrade.package";
constexpr const char* kPartition = "kernel2";

// A fault in the update of the first of two partitions, and what is said of it, in order.
struct Failure {
  std::string name;
  sim::Fault fault;
  Lines said;
};

std::ostream& operator<<(std::ostream& out, const Failure& failure) {
  return out << failure.name;
}

class UpdateFailureTest : public UpgradeTest {
 protected:
  UpdateFailureTest() {
    fill_systems();
    rootfs_ = partition("rootfs2").raw();
    put_package(platform_package({{"kernel", pattern(2 * kBlock + 1, 7)}, {"rootfs", pattern(9)}}));
  }

  void expect_failed_partition(const LibraryRun& run) {
    EXPECT_EQ(run.result, -1);
    EXPECT_TRUE(
        run.said("upgrade_partition", "<<<<<<<<<<<end  Upgrade kernel, result :-1>>>>>>>>>>>>"));
    EXPECT_EQ(run.messages_of("upgrade_partitions").back(), "Update partition [kernel] fail!");
    EXPECT_EQ(run.messages_of("upi_update").back(), "upi_update func end!");
    EXPECT_TRUE(run.said("upi_update", "<<<<<<<<<<<<Fail  Upgrade >>>>>>>>>>>>>"));
    EXPECT_EQ(run.store.back().second, std::to_string(UPGRADE_STATUS_UPDATE_FAIL));
    EXPECT_EQ(partition("rootfs2").raw(), rootfs_);
    expect_flags(DUALSYSTEM_STATUS_UNBOOTABLE);
  }

 private:
  sim::Bytes rootfs_;
};

class UpdateFaultTest : public UpdateFailureTest, public ::testing::WithParamInterface<Failure> {};

TEST_P(UpdateFaultTest, FailsThePartitionAndLeavesNothingOpen) {
  const sim::AllocationWatch watch;
  device().faults().add(GetParam().fault);
  DescriptorSquatter squatter;

  const LibraryRun run = upgrade();

  EXPECT_EQ(device().faults().struck(), 1U);
  EXPECT_TRUE(run.said_in_order(GetParam().said)) << ::testing::PrintToString(run.log);
  expect_failed_partition(run);
  EXPECT_TRUE(partition(kPartition).write_protected());
  EXPECT_GT(squatter.taken(), 0U);
  EXPECT_TRUE(squatter.lost().empty());
}

const support::LogLine kNoInfo = {"init_partition_device_data",
                                  "Failed to get update info, kernel2!"};
const support::LogLine kNoInit = {"upgrade_partition",
                                  "Init device data error! partition name:kernel"};
const support::LogLine kBeginDeInit = {"de_init_partition_device_data",
                                       "de_init_partition_device_data func begin!"};
// The protection cannot be restored without a descriptor; one that was closed already is not used.
const support::LogLine kNoDescriptor = {
    "de_init_partition_device_data",
    "Failed to disable mtd writeable!  error:9[Bad file descriptor]"};
const support::LogLine kEndDeInit = {"de_init_partition_device_data",
                                     "de_init_partition_device_data func end!"};
const support::LogLine kNoErase = {"upgrade_image", "Failed to erase mtd partition kernel"};
const support::LogLine kNoData = {"upgrade_image",
                                  "read partition data failed, current read len:-1!"};
const support::LogLine kNoWrite = {"upgrade_image", "Image write partition data failed"};
const support::LogLine kNoBlock = {"write_mtd_partition_data", "Write data to mtd fail!"};
const support::LogLine kNoMatch = {"upgrade_image", "Image data check hash failed"};

// The second chunk's; the package's head and table were read and sought before.
constexpr std::uint64_t kSecondRead = 5;
constexpr std::uint64_t kSecondSeek = 3;
// In pieces of 1024 bytes, a seek for each.
constexpr std::uint64_t kReadsOfTheImage = 5;

const std::vector<Failure> kFailures = {
    {"Open",
     {Op::open, kPartition, 1, EACCES},
     {{"get_partition_mtd_info", "Open flash error:13[Permission denied]"},
      kNoInfo,
      kNoInit,
      kBeginDeInit,
      kNoDescriptor,
      kEndDeInit}},
    {"Geometry",
     {Op::memgetinfo, kPartition, 1, EIO},
     {{"get_partition_mtd_info", "Get flash info error:5[Input/output error]"},
      kNoInfo,
      kNoInit,
      kBeginDeInit,
      kNoDescriptor,
      kEndDeInit}},
    {"LiftingTheProtection",
     {Op::protect_lift, kPartition, 1, EPERM},
     {{"init_partition_device_data",
       "Failed to enable mtd writeable!  error:1[Operation not permitted]"},
      kNoInit,
      kBeginDeInit,
      kEndDeInit}},
    {"OpenForTheErase",
     {Op::open, kPartition, 2, EMFILE},
     {{"mtd_erase_partition", "Open partition [kernel] error, error:24[Too many open files]"},
      kNoErase,
      kBeginDeInit,
      kEndDeInit}},
    {"GeometryForTheErase",
     {Op::memgetinfo, kPartition, 2, EIO},
     {{"mtd_erase_partition", "Get partition [kernel] info error:5[Input/output error]"},
      kNoErase,
      kBeginDeInit,
      kEndDeInit}},
    {"SeekInThePackage",
     {Op::lseek, kPackage, kSecondSeek, EINVAL},
     {{"read_upgrade_package_partition_data", "Seek to file fail! error:22[Invalid argument]"},
      kNoData}},
    {"ReadOfThePackage",
     {Op::read, kPackage, kSecondRead, EIO},
     {{"upi_readn", "Read data from file error, error: 5[Input/output error]"},
      {"read_upgrade_package_partition_data", "Get upgrade package data fail, get len:-1"},
      kNoData}},
    {"EraseOfABlock",
     {Op::memerase, kPartition, 2, EIO},
     {{"VEMK_WriteBlock", "Ioctl [MEMERASE] error, error: 5[Input/output error]"},
      kNoBlock,
      kNoWrite,
      kBeginDeInit,
      kEndDeInit}},
    {"WriteOfABlock",
     {Op::write, kPartition, 3, EIO},
     {{"VEMK_WriteBlock",
       "Write flash error, write len[-1] != blocksize[2048], error: 5[Input/output error]"},
      kNoBlock,
      kNoWrite}},
    {"ShortWriteOfABlock",
     {Op::write, kPartition, 3, 0, false, 512},
     {kNoBlock, kNoWrite, kBeginDeInit, kEndDeInit}},
    {"SeekToABlock",
     {Op::lseek, kPartition, kReadsOfTheImage + 1, EINVAL},
     {{"VEMK_WriteBlock", "Lseek error, error: 22[Invalid argument]"}, kNoBlock, kNoWrite}},
    {"ReadBack",
     {Op::read, kPartition, kReadsOfTheImage + 2, EIO},
     {{"VEMK_ReadImage", "Read len (-1) < need len (1024)!"},
      {"VEMK_ReadImage", "VEMK_ReadImage fail"},
      {"check_image_hash", "Read image content fail!"},
      kNoMatch}},
};

INSTANTIATE_TEST_SUITE_P(Of, UpdateFaultTest, ::testing::ValuesIn(kFailures),
                         [](const auto& failure) { return failure.param.name; });

// --- Failures that a fault alone does not make. ---

TEST_F(UpdateFailureTest, OfTheBufferSkipsTheHashAndTheErase) {
  allow_open_descriptors();  // a package that could not be loaded keeps its descriptor
  const LibraryRun run = run_out_of_memory([] { return vemk_dual_upgrade(nullptr); },
                                           {"upgrade_image", "Malloc for image data fail"});
  expect_failed_partition(run);
  EXPECT_EQ(run.messages_of("upgrade_image"),
            (Messages{"upgrade_image func begin!", "Malloc for image data fail"}));
  EXPECT_TRUE(run.made(Op::memerase64).empty());
  EXPECT_TRUE(partition(kPartition).write_protected());
}

TEST_F(UpdateFailureTest, OfATailBlockIsAFailedWrite) {
  allow_open_descriptors();
  const LibraryRun run =
      run_out_of_memory([] { return vemk_dual_upgrade(nullptr); },
                        {"write_mtd_partition_data", "Malloc for the lash block fail!"});
  expect_failed_partition(run);
  EXPECT_TRUE(run.said("upgrade_image", "Image write partition data failed"));
  EXPECT_FALSE(run.said("write_mtd_partition_data", "Write data to mtd fail!"));
}

TEST_F(UpdateFailureTest, AShortReadOfThePackageIsReadOn) {
  sim::Fault fault{Op::read, kPackage, kSecondRead};
  fault.bytes = 100;
  device().faults().add(fault);
  EXPECT_EQ(upgrade().result, 0);
  expect_image(partition(kPartition), pattern(2 * kBlock + 1, 7));
}

TEST_F(UpdateFailureTest, AnImageThatRunsPastTheFileFails) {
  support::PackageFile package = platform_package({{"kernel", pattern(kBlock + 10, 7)}});
  package.partitions[0].len = static_cast<std::int32_t>(kBlock + 11);
  put_package(package);

  const LibraryRun run = upgrade();

  expect_failed_partition(run);
  EXPECT_TRUE(run.said_in_order(
      {{"upi_readn", "Read data to the file end!"},
       {"read_upgrade_package_partition_data", "Get upgrade package data fail, get len:10"},
       kNoData}));
}

TEST_F(UpdateFailureTest, ANegativeOffsetFails) {
  support::PackageFile package = platform_package({{"kernel", pattern(10, 7)}});
  package.partitions[0].offset = -1;
  put_package(package);

  const LibraryRun run = upgrade();

  expect_failed_partition(run);
  EXPECT_TRUE(run.said_in_order(
      {{"read_upgrade_package_partition_data", "Seek to file fail! error:22[Invalid argument]"},
       kNoData}));
}

TEST_F(UpdateFailureTest, APartitionWithoutAGoodBlockFails) {
  for (std::uint32_t block = 0; block < 8; ++block) {
    partition(kPartition).set_bad(block);
  }
  const LibraryRun run = upgrade();
  expect_failed_partition(run);
  EXPECT_TRUE(run.said_in_order({kNoBlock, kNoWrite}));
  EXPECT_TRUE(run.made(Op::memerase64).empty());
}

TEST_F(UpdateFailureTest, APartitionWithoutBlocksFails) {
  sim::Layout layout = sim::test_layout();
  layout.partitions[2].blocks = 0;
  use_layout(layout);
  fill_systems();
  put_package(platform_package({{"kernel", pattern(1)}}));
  const LibraryRun run = upgrade();
  expect_failed_partition(run);
  EXPECT_TRUE(run.said_in_order(
      {{"VEMK_WriteBlock", "Start address[0] out of partition total size[0]!"}, kNoWrite}));
}

TEST_F(UpdateFailureTest, AKindThatCannotBeUpdatedFails) {
  for (const int kind : {1, 2}) {
    support::PackageEntry entry{"kernel", pattern(10, 7)};
    entry.partition_type = kind;
    put_package(platform_package({entry}));
    DescriptorSquatter squatter;

    const LibraryRun run = upgrade();

    expect_failed_partition(run);
    EXPECT_TRUE(run.said_in_order(
        {{"get_partition_mtd_info",
          "Partition [kernel2] type:" + std::to_string(kind) + ", could not update!"},
         kNoInfo,
         kNoInit,
         kBeginDeInit,
         kNoDescriptor,
         kEndDeInit}));
    EXPECT_TRUE(run.made(Op::protect_lift).size() == 4) << "the flags partition's only";
    EXPECT_TRUE(squatter.lost().empty());
  }
}

TEST_F(UpdateFailureTest, AnUnknownKindFailsBeforeAnythingIsOpened) {
  for (const int kind : {3, -1}) {
    support::PackageEntry entry{"kernel", pattern(10, 7)};
    entry.partition_type = kind;
    put_package(platform_package({entry}));
    const LibraryRun run = upgrade();

    expect_failed_partition(run);
    EXPECT_TRUE(run.said_in_order(
        {{"get_partition_mtd_info", "partition_type =" + std::to_string(kind)}, kNoInfo, kNoInit}));
    EXPECT_TRUE(run.made(Op::open, kPartition).empty());
  }
}

TEST_F(UpdateFailureTest, AWornBlockFailsWhenTheImageNeedsIt) {
  partition(kPartition).set_erase_defect(1, sim::EraseDefect::worn);
  const LibraryRun run = upgrade();

  expect_failed_partition(run);
  EXPECT_TRUE(run.said_in_order(
      {{"mtd_erase_partition", "Mtd, erasing failure at 0x800, error:5[Input/output error]"},
       {"mtd_erase_partition", "mtd_erase_partition func end!"},
       {"VEMK_WriteBlock", "Ioctl [MEMERASE] error, error: 5[Input/output error]"},
       kNoWrite}));
}

TEST_F(UpdateFailureTest, AWornBlockBehindTheImageDoesNotMatter) {
  partition(kPartition).set_erase_defect(7, sim::EraseDefect::worn);
  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, 0);
  EXPECT_TRUE(run.said("mtd_erase_partition",
                       "Mtd, erasing failure at 0x3800, error:5[Input/output error]"));
  expect_flags(DUALSYSTEM_STATUS_BOOTABLE);
}

TEST_F(UpdateFailureTest, ABlockThatTurnsBadWhileItIsErasedIsSkipped) {
  for (const sim::EraseDefect defect :
       {sim::EraseDefect::turns_bad_passes, sim::EraseDefect::turns_bad_fails}) {
    partition(kPartition).set_bad(1, false);
    partition(kPartition).set_erase_defect(1, defect);
    put_package(
        platform_package({{"kernel", pattern(3 * kBlock, 7 + static_cast<unsigned>(defect))}}));
    EXPECT_EQ(upgrade().result, 0);
    EXPECT_TRUE(partition(kPartition).is_bad(1));
    expect_image(partition(kPartition), pattern(3 * kBlock, 7 + static_cast<unsigned>(defect)));
  }
}

TEST_F(UpdateFailureTest, APageThatFailsToProgramFails) {
  partition(kPartition).set_page_defects(1, 2, sim::kPageFailsProgram);
  const LibraryRun run = upgrade();

  expect_failed_partition(run);
  EXPECT_TRUE(run.said_in_order(
      {{"VEMK_WriteBlock",
        "Write flash error, write len[-1] != blocksize[2048], error: 5[Input/output error]"},
       kNoBlock,
       kNoWrite}));
}

TEST_F(UpdateFailureTest, APageThatReadsWrongIsFoundByTheDigest) {
  partition(kPartition).set_page_defects(0, 3, sim::kPageUnreadable);
  const LibraryRun run = upgrade();

  expect_failed_partition(run);
  EXPECT_TRUE(run.said("upgrade_image", "Image data check hash failed"));
}

TEST_F(UpdateFailureTest, ToRestoreTheProtectionIsOnlyLogged) {
  device().faults().add({Op::protect_restore, kPartition, 1, EIO});
  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, 0);
  EXPECT_EQ(run.messages_of("de_init_partition_device_data")[1],
            "Failed to disable mtd writeable!  error:5[Input/output error]");
  EXPECT_FALSE(partition(kPartition).write_protected());
  expect_flags(DUALSYSTEM_STATUS_BOOTABLE);
}

TEST_F(UpdateFailureTest, ToCloseTheNodeDoesNotMatter) {
  device().faults().add({Op::close, kPartition, 2, EIO});
  EXPECT_EQ(upgrade().result, 0);
  EXPECT_EQ(device().faults().struck(), 1U);
  expect_flags(DUALSYSTEM_STATUS_BOOTABLE);
}

TEST_F(UpdateFailureTest, AGeometryOfZeroHarmsNothing) {
  sim::Partition kernel = partition(kPartition);
  const sim::MtdInfo truth = kernel.reported_info();
  const sim::Bytes before = kernel.raw();
  for (const sim::MtdInfo& lie :
       {sim::MtdInfo{truth.size, 0, 0, 0}, sim::MtdInfo{0, truth.erase_size, truth.write_size, 0},
        sim::MtdInfo{0, 0, 0, 0}}) {
    kernel.set_reported_info(lie);
    expect_failed_partition(upgrade());
    EXPECT_EQ(kernel.raw(), before);
  }
  kernel.set_reported_info({{truth.size, truth.erase_size, 0, 0}});
  EXPECT_EQ(upgrade().result, 0) << "pages are not the library's business";
}

}  // namespace
