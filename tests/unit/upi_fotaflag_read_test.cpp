// SPDX-License-Identifier: Apache-2.0
//
// Reading the boot flag record.
#include <cerrno>
#include <cstddef>
#include <cstring>

#include "tests/unit/flags_test.h"
#include "upi_fotaflag_partition.h"

namespace unit {
namespace {

using support::logged;

constexpr unsigned char kUntouched = 0x5A;

LogLine content_said(const std::string& message) {
  return {"upi_get_boot_flags_content", message};
}
LogLine info_said(const std::string& message) {
  return {"get_info_from_img_boot_flag", message};
}

// Both copies and their indexes, untouched before a call.
struct Copies {
  T_FOTA_FLAG_INFO main;
  T_FOTA_FLAG_INFO backup;
  int main_index = 77;
  int backup_index = 88;

  Copies() {
    std::memset(&main, kUntouched, sizeof main);
    std::memset(&backup, kUntouched, sizeof backup);
  }
  int read() { return upi_get_boot_flags_content(&main, &main_index, &backup, &backup_index); }
};

bool holds(const T_FOTA_FLAG_INFO& info, const sim::BootRecord& record) {
  return std::memcmp(&info, record.bytes.data(), sizeof info) == 0;
}

bool untouched(const T_FOTA_FLAG_INFO& info) {
  T_FOTA_FLAG_INFO clean;
  std::memset(&clean, kUntouched, sizeof clean);
  return std::memcmp(&info, &clean, sizeof info) == 0;
}

class ReadTest : public FlagsTest {
 protected:
  // Expects that reading both copies fails, saying these lines after the lookup.
  void expect_content_fails(const Lines& lines, const Requests& requests) {
    Copies copies;
    int result = 0;
    Lines said;
    const Requests made = requests_of([&] { said = logged([&] { result = copies.read(); }); });
    EXPECT_EQ(result, -1);
    EXPECT_EQ(said, found_flags() + lines);
    EXPECT_EQ(made, requests);
  }
};

TEST(BootFlagRecord, HasItsLayout) {
  EXPECT_EQ(sizeof(T_BOOT_FOTA_FLAG), 28U);
  EXPECT_EQ(sizeof(T_FOTA_FLAG_INFO), 292U);
  EXPECT_EQ(offsetof(T_FOTA_FLAG_INFO, boot_flag.magic), 0U);
  EXPECT_EQ(offsetof(T_FOTA_FLAG_INFO, boot_flag.boot_to), 4U);
  EXPECT_EQ(offsetof(T_FOTA_FLAG_INFO, boot_flag.fota_status), 8U);
  EXPECT_EQ(offsetof(T_FOTA_FLAG_INFO, boot_flag.system.status), 12U);
  EXPECT_EQ(offsetof(T_FOTA_FLAG_INFO, boot_flag.system.try_cnt), 16U);
  EXPECT_EQ(offsetof(T_FOTA_FLAG_INFO, boot_flag.system2.status), 20U);
  EXPECT_EQ(offsetof(T_FOTA_FLAG_INFO, boot_flag.system2.try_cnt), 24U);
  EXPECT_EQ(offsetof(T_FOTA_FLAG_INFO, boot_env.magic), 28U);
  EXPECT_EQ(offsetof(T_FOTA_FLAG_INFO, boot_env.dualsys_type), 32U);
  EXPECT_EQ(offsetof(T_FOTA_FLAG_INFO, boot_env.system_boot_env), 36U);
  EXPECT_EQ(offsetof(T_FOTA_FLAG_INFO, boot_env.system2_boot_env), 164U);
}

TEST(BootFlagRecord, HasItsValues) {
  EXPECT_EQ(FOTA_FLAG_MAGIC, 0x464C4147U);
  EXPECT_EQ(DUAL_SYSTEM, 34650);
  EXPECT_EQ(DUAL_SYSTEM2, 39019);
  EXPECT_EQ(DUALSYSTEM_RECOVERY, 30069);
  EXPECT_EQ(DUALSYSTEM_AA, 43690);
  EXPECT_EQ(DUALSYSTEM_AB, 43947);
  EXPECT_EQ(DUALSYSTEM_STATUS_BOOTABLE, 45227);
  EXPECT_EQ(DUALSYSTEM_STATUS_SUCCESSFUL, 23759);
  EXPECT_EQ(DUALSYSTEM_STATUS_UNBOOTABLE, 47806);
}

// --- Both copies. -------------------------------------------------------------------------------

TEST_F(ReadTest, ContentIsBothCopiesAndTheirBlocks) {
  put(0, sample_record(1));
  put(1, sample_record(2));
  put(2, sample_record(3));
  Copies copies;
  Lines lines;
  const Requests requests =
      requests_of([&] { lines = logged([&] { EXPECT_EQ(copies.read(), 0); }); });
  EXPECT_TRUE(holds(copies.main, sample_record(1)));
  EXPECT_TRUE(holds(copies.backup, sample_record(2)));
  EXPECT_EQ(copies.main_index, 0);
  EXPECT_EQ(copies.backup_index, 1);
  EXPECT_EQ(lines, found_flags());
  EXPECT_EQ(requests, read_both());
}

TEST_F(ReadTest, ContentIsNotJudged) {
  Copies copies;
  EXPECT_EQ(copies.read(), 0);
  sim::BootRecord erased;
  erased.bytes.fill(0xFF);
  EXPECT_TRUE(holds(copies.main, erased));
  EXPECT_TRUE(holds(copies.backup, erased));
}

TEST_F(ReadTest, ContentSkipsBadBlocks) {
  const struct {
    std::vector<std::uint32_t> bad;
    std::uint32_t main;
    std::uint32_t backup;
  } cases[] = {{{0}, 1, 2},       {{1}, 0, 2},          {{0, 1}, 2, 3},
               {{1, 2, 3}, 0, 4}, {{0, 2, 3, 5}, 1, 4}, {{0, 1, 2, 3, 4, 5, 6, 7}, 8, 9}};
  for (const auto& each : cases) {
    use_flags(10, each.bad);
    put(each.main, sample_record(1));
    put(each.backup, sample_record(2));
    Copies copies;
    Lines expected = found_flags();
    for (const std::uint32_t block : each.bad) {
      if (block < each.backup) {
        expected.push_back(
            content_said("Fotaflag block [" + std::to_string(block) + "] is bad, errno no:*"));
      }
    }
    EXPECT_EQ(settled_log([&] { EXPECT_EQ(copies.read(), 0); }), expected);
    EXPECT_TRUE(holds(copies.main, sample_record(1)));
    EXPECT_TRUE(holds(copies.backup, sample_record(2)));
    EXPECT_EQ(copies.main_index, static_cast<int>(each.main));
    EXPECT_EQ(copies.backup_index, static_cast<int>(each.backup));
  }
}

TEST_F(ReadTest, ContentSkipsABlockThatCannotBeAskedAbout) {
  put(1, sample_record(1));
  put(2, sample_record(2));
  fail(sim::Op::memgetbadblock, EIO);
  Copies copies;
  Lines lines;
  const Requests requests =
      requests_of([&] { lines = logged([&] { EXPECT_EQ(copies.read(), 0); }); });
  EXPECT_EQ(lines, found_flags() + content_said("Fotaflag block [0] is bad, errno no:5["
                                                "Input/output error]"));
  EXPECT_EQ(requests, kOpened + "bad? 0 E5" + reading(1) + reading(2) + "close");
  EXPECT_EQ(copies.main_index, 1);
  EXPECT_EQ(copies.backup_index, 2);
}

TEST_F(ReadTest, ContentOfOneGoodBlockIsTheMainCopyAlone) {
  use_flags(4, {0, 1, 3});
  put(2, sample_record(1));
  Copies copies;
  EXPECT_EQ(copies.read(), 0);
  EXPECT_TRUE(holds(copies.main, sample_record(1)));
  EXPECT_EQ(copies.main_index, 2);
  EXPECT_TRUE(untouched(copies.backup));
  EXPECT_EQ(copies.backup_index, 88);
}

TEST_F(ReadTest, ContentOfNoGoodBlockIsNothing) {
  use_flags(3, {0, 1, 2});
  Copies copies;
  const Requests requests = requests_of([&] { EXPECT_EQ(copies.read(), 0); });
  EXPECT_TRUE(untouched(copies.main));
  EXPECT_TRUE(untouched(copies.backup));
  EXPECT_EQ(copies.main_index, 77);
  EXPECT_EQ(copies.backup_index, 88);
  EXPECT_EQ(requests, kOpened + "bad? 0 yes" + "bad? 2048 yes" + "bad? 4096 yes" + "close");
}

TEST_F(ReadTest, ContentOfLessThanABlockIsNothing) {
  for (const std::uint32_t size : {0U, 1U, kBlock - 1}) {
    flags().set_reported_info(sim::MtdInfo{size, kBlock, 512, 16});
    Copies copies;
    const Requests requests = requests_of([&] { EXPECT_EQ(copies.read(), 0); });
    EXPECT_EQ(requests, kOpened + "close");
    EXPECT_TRUE(untouched(copies.main));
  }
}

TEST_F(ReadTest, ContentOfNoGeometryIsNothing) {
  for (const sim::MtdInfo& info :
       {sim::MtdInfo{0, 0, 0, 0}, sim::MtdInfo{10 * kBlock, 0, 512, 16}}) {
    flags().set_reported_info(info);
    Copies copies;
    const Requests requests = requests_of([&] { copies.read(); });
    EXPECT_EQ(requests, kOpened + "close");
    EXPECT_TRUE(untouched(copies.main));
    EXPECT_TRUE(untouched(copies.backup));
  }
}

// What the end of the last block cuts off is not there to be read.
TEST_F(ReadTest, ContentOfBlocksSmallerThanARecordFails) {
  flags().set_reported_info(sim::MtdInfo{256, 256, 64, 16});
  put(0, sample_record(1));
  Copies copies;
  copies.read();
  EXPECT_TRUE(untouched(copies.backup));
}

TEST_F(ReadTest, ContentIsReadFromWhereverTheKernelPutsFlags) {
  sim::Layout layout = sim::test_layout();
  std::rotate(layout.partitions.begin(), layout.partitions.begin() + 1, layout.partitions.end());
  use(layout);
  put(0, sample_record(1));
  Copies copies;
  EXPECT_EQ(logged([&] { EXPECT_EQ(copies.read(), 0); }), found_flags("/dev/mtd6"));
  EXPECT_TRUE(holds(copies.main, sample_record(1)));
}

// --- Failures of reading both copies. -----------------------------------------------------------

TEST_F(ReadTest, ContentNeedsAFlagsPartition) {
  sim::Layout layout = sim::test_layout();
  layout.partitions.at(0).name = "flags2";
  use(layout);
  Copies copies;
  Lines lines;
  const sim::Recording recording;
  lines = logged([&] { EXPECT_EQ(copies.read(), -1); });
  EXPECT_EQ(lines.back(), content_said("partition[flags] name is not find"));
  EXPECT_TRUE(recording.calls(sim::Op::open).empty());
}

TEST_F(ReadTest, ContentTellsAFailingOpen) {
  fail(sim::Op::open, EACCES);
  expect_content_fails({content_said("Open flash error: 13[Permission denied]")},
                       {"open 1002 E13"});
}

TEST_F(ReadTest, ContentTellsAFailingGeometry) {
  fail(sim::Op::memgetinfo, ENOTTY);
  expect_content_fails({content_said("get flash info error: 25[Inappropriate ioctl for device]")},
                       {"open 1002", "getinfo E25", "close"});
}

TEST_F(ReadTest, ContentTellsAFailingSeek) {
  fail(sim::Op::lseek, EINVAL);
  expect_content_fails({content_said("Lseek error: 22[Invalid argument]")},
                       kOpened + "bad? 0" + "seek 0 E22" + "close");
}

TEST_F(ReadTest, ContentTellsAFailingSeekToTheBackup) {
  fail(sim::Op::lseek, EINVAL, 2);
  expect_content_fails({content_said("Lseek error: 22[Invalid argument]")},
                       kOpened + reading(0) + "bad? 2048" + "seek 2048 E22" + "close");
}

TEST_F(ReadTest, ContentTellsAFailingRead) {
  fail(sim::Op::read, EIO);
  expect_content_fails({content_said("Read len (-1) < need len (292)!")},
                       kOpened + "bad? 0" + "seek 0" + "read 292@0 E5" + "close");
}

TEST_F(ReadTest, ContentTellsAShortRead) {
  shorten(sim::Op::read, 291);
  expect_content_fails({content_said("Read len (291) < need len (292)!")},
                       kOpened + reading(0) + "close");
}

TEST_F(ReadTest, ContentFailsWhenTheBackupAloneCannotBeRead) {
  put(0, sample_record(1));
  shorten(sim::Op::read, 0, 2);
  expect_content_fails({content_said("Read len (0) < need len (292)!")},
                       kOpened + reading(0) + reading(1) + "close");
}

TEST_F(ReadTest, ContentDoesNotMindAFailingClose) {
  put(0, sample_record(1));
  fail(sim::Op::close, EIO);
  Copies copies;
  EXPECT_EQ(copies.read(), 0);
  EXPECT_TRUE(holds(copies.main, sample_record(1)));
}

// --- The valid copy. ----------------------------------------------------------------------------

// The nine fields that readers get; the texts stay the caller's.
void expect_fields(const T_FOTA_FLAG_INFO& info, const sim::BootRecord& record) {
  T_FOTA_FLAG_INFO expected;
  std::memset(&expected, kUntouched, sizeof expected);
  std::memcpy(&expected, record.bytes.data(), kEnvA);
  EXPECT_EQ(std::memcmp(&info, &expected, sizeof info), 0);
}

class InfoTest : public ReadTest {
 protected:
  T_FOTA_FLAG_INFO info_;
  InfoTest() { std::memset(&info_, kUntouched, sizeof info_); }
};

TEST_F(InfoTest, MainCopyWinsWhenBothAreValid) {
  put(0, sample_record(1));
  put(1, sample_record(2));
  EXPECT_EQ(logged([&] { EXPECT_EQ(get_info_from_img_boot_flag(&info_), 0); }), found_flags());
  expect_fields(info_, sample_record(1));
}

TEST_F(InfoTest, BackupCopyIsTakenWhenMainIsInvalid) {
  const sim::BootRecord invalid[] = {with(sample_record(1), kMagic, 0),
                                     with(sample_record(1), kEnvMagic, 0),
                                     with(sample_record(1), kMagic, 0x464C4148),
                                     with(with(sample_record(1), kMagic, 0), kEnvMagic, 0)};
  for (const sim::BootRecord& main : invalid) {
    put(0, main);
    put(1, sample_record(2));
    std::memset(&info_, kUntouched, sizeof info_);
    EXPECT_EQ(logged([&] { EXPECT_EQ(get_info_from_img_boot_flag(&info_), 0); }), found_flags());
    expect_fields(info_, sample_record(2));
    EXPECT_EQ(record_at(0).bytes, main.bytes) << "no copy is repaired";
  }
}

TEST_F(InfoTest, MainCopyIsTakenWhenBackupIsInvalid) {
  put(0, sample_record(1));
  EXPECT_EQ(get_info_from_img_boot_flag(&info_), 0);
  expect_fields(info_, sample_record(1));
}

TEST_F(InfoTest, MainCopyAloneIsEnough) {
  use_flags(2, {0});
  put(1, sample_record(1));
  EXPECT_EQ(get_info_from_img_boot_flag(&info_), 0);
  expect_fields(info_, sample_record(1));
}

TEST_F(InfoTest, ErasedPartitionHasNoValidCopy) {
  EXPECT_EQ(logged([&] { EXPECT_EQ(get_info_from_img_boot_flag(&info_), -1); }),
            found_flags() + info_said("Do not find valid flag info!"));
}

TEST_F(InfoTest, TwoInvalidCopiesAreNone) {
  put(0, with(sample_record(1), kEnvMagic, 7));
  put(1, with(sample_record(2), kMagic, 7));
  put(2, sample_record(3));
  EXPECT_EQ(logged([&] { EXPECT_EQ(get_info_from_img_boot_flag(&info_), -1); }),
            found_flags() + info_said("Do not find valid flag info!"));
}

// Leaves the magic all over the stack that the next call uses.
__attribute__((noinline)) void litter_stack() {
  volatile std::uint32_t words[4096];
  for (volatile std::uint32_t& word : words) {
    word = FOTA_FLAG_MAGIC;
  }
}

// What lies about in memory must not pass for a copy that could not be read.
TEST_F(InfoTest, CopyThatIsNotThereIsNeverValid) {
  put(0, with(sample_record(1), kMagic, 7));
  flags().set_reported_info(sim::MtdInfo{kBlock, kBlock, 512, 16});
  litter_stack();
  EXPECT_EQ(get_info_from_img_boot_flag(&info_), -1);
  flags().set_reported_info(sim::MtdInfo{0, kBlock, 512, 16});
  litter_stack();
  EXPECT_EQ(get_info_from_img_boot_flag(&info_), -1);
  litter_stack();
  EXPECT_EQ(upi_get_system_boot_to(), -1);
}

TEST_F(InfoTest, FailedReadingIsTold) {
  put(0, sample_record(1));
  put(1, sample_record(2));
  fail(sim::Op::memgetinfo, EIO);
  EXPECT_EQ(logged([&] { EXPECT_EQ(get_info_from_img_boot_flag(&info_), -1); }),
            found_flags() + content_said("get flash info error: 5[Input/output error]") +
                info_said("Get boot flags content fail!"));
}

TEST_F(InfoTest, ReadersWriteNothing) {
  put(0, sample_record(1));
  EXPECT_EQ(get_info_from_img_boot_flag(&info_), 0);
  EXPECT_EQ(flags().count(sim::Op::write), 0U);
  EXPECT_EQ(flags().count(sim::Op::memerase), 0U);
  EXPECT_EQ(flags().count(sim::Op::protect_lift), 0U);
  EXPECT_TRUE(flags().write_protected());
}

// --- The readers on top. ------------------------------------------------------------------------

const Lines kNothingValid = found_flags() + info_said("Do not find valid flag info!");

TEST_F(InfoTest, SystemInfoIsTheNineFields) {
  put(0, sample_record(1));
  put(1, sample_record(2));
  Lines lines;
  const Requests requests =
      requests_of([&] { lines = logged([&] { EXPECT_EQ(upi_get_system_info(&info_), 0); }); });
  expect_fields(info_, sample_record(1));
  EXPECT_EQ(lines, found_flags());
  EXPECT_EQ(requests, read_both());
}

TEST_F(InfoTest, SystemInfoNeedsAValidCopy) {
  EXPECT_EQ(logged([&] { EXPECT_EQ(upi_get_system_info(&info_), -1); }),
            kNothingValid + line("upi_get_system_info", "get flag info fail~"));
}

TEST_F(InfoTest, BootTargetIsTheRecords) {
  put(0, sample_record(1));
  EXPECT_EQ(logged([] { EXPECT_EQ(upi_get_system_boot_to(), 39019); }), found_flags());
  put(0, with(sample_record(1), kBootTo, 12345));
  EXPECT_EQ(upi_get_system_boot_to(), 12345);
}

TEST_F(InfoTest, BootTargetNeedsAValidCopy) {
  EXPECT_EQ(logged([] { EXPECT_EQ(upi_get_system_boot_to(), -1); }),
            kNothingValid + line("upi_get_system_boot_to", "get flag info fail~"));
}

TEST_F(InfoTest, FotaStatusIsTheRecords) {
  put(0, sample_record(1));
  EXPECT_EQ(logged([] { EXPECT_EQ(upi_get_system_fota_status(), 101); }), found_flags());
}

TEST_F(InfoTest, FotaStatusNeedsAValidCopy) {
  EXPECT_EQ(logged([] { EXPECT_EQ(upi_get_system_fota_status(), -1); }),
            kNothingValid + line("upi_get_system_fota_status", "get flag info fail~"));
}

TEST_F(InfoTest, AllOnesReadAsAFailure) {
  put(0, with(with(sample_record(1), kBootTo, 0xFFFFFFFF), kFotaStatus, 0xFFFFFFFF));
  EXPECT_EQ(logged([] { EXPECT_EQ(upi_get_system_boot_to(), -1); }), found_flags());
  EXPECT_EQ(logged([] { EXPECT_EQ(upi_get_system_fota_status(), -1); }), found_flags());
}

TEST_F(InfoTest, BootFlagIsTheFirstPartOfTheRecord) {
  put(0, sample_record(1));
  T_BOOT_FOTA_FLAG flag{};
  EXPECT_EQ(logged([&] { EXPECT_EQ(upi_get_boot_flag(&flag), 0); }), found_flags());
  EXPECT_EQ(std::memcmp(&flag, sample_record(1).bytes.data(), sizeof flag), 0);
}

TEST_F(InfoTest, BootFlagNeedsAValidCopy) {
  T_BOOT_FOTA_FLAG flag{};
  EXPECT_EQ(logged([&] { EXPECT_EQ(upi_get_boot_flag(&flag), -1); }),
            kNothingValid + line("upi_get_boot_flag", "get flag info fail~"));
}

TEST_F(InfoTest, BootFlagRefusesNullWithoutTouchingTheFlash) {
  put(0, sample_record(1));
  const sim::Recording recording;
  EXPECT_EQ(logged([] { EXPECT_EQ(upi_get_boot_flag(nullptr), -1); }),
            (Lines{{"upi_get_boot_flag", "Input invalid paramter, null point"}}));
  EXPECT_TRUE(recording.calls(sim::Op::open).empty());
}

TEST_F(InfoTest, EveryCallReadsAfresh) {
  put(0, sample_record(1));
  EXPECT_EQ(upi_get_system_fota_status(), 101);
  put(0, sample_record(2));
  EXPECT_EQ(upi_get_system_fota_status(), 102);
}

}  // namespace
}  // namespace unit
