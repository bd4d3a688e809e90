// SPDX-License-Identifier: Apache-2.0
//
// Changing the boot flag record: boot target, fota_status, status of a system.
#include <cerrno>
#include <climits>

#include "tests/unit/flags_test.h"
#include "upi_fotaflag_partition.h"

namespace unit {
namespace {

constexpr std::uint32_t kA = 0x875A;
constexpr std::uint32_t kB = 0x986B;
constexpr int kBootable = 0xB0AB;
constexpr int kSuccessful = 0x5CCF;
constexpr int kUnbootable = 0xBABE;

class SettersTest : public FlagsTest {
 protected:
  // Puts these copies into the first two blocks.
  void put_both(const sim::BootRecord& main, const sim::BootRecord& backup) {
    put(0, main);
    put(1, backup);
  }
  void put_both(const sim::BootRecord& record) { put_both(record, record); }
  // Calls a setter, and notes what was said and asked.
  template <typename Setter>
  int call(Setter setter) {
    int result = -7;
    requests_ = requests_of([&] { lines_ = settled_log([&] { result = setter(); }); });
    return result;
  }
  void expect_both(const sim::BootRecord& record) {
    expect_copy(0, record);
    expect_copy(1, record);
  }
  // Expects that the last call did not touch the flash at all.
  void expect_no_request() { EXPECT_EQ(requests_, Requests{}); }
  // Expects that the last call read both copies and wrote none.
  void expect_only_read() { EXPECT_EQ(requests_, read_both()); }
  void expect_rewritten() {
    EXPECT_EQ(requests_, read_both() + rewrite_both());
    EXPECT_TRUE(flags().write_protected());
  }
  const Lines& lines() const { return lines_; }
  const Requests& requests() const { return requests_; }

 private:
  Lines lines_;
  Requests requests_;
};

// --- The boot target. ---------------------------------------------------------------------------

LogLine target_said(const std::string& message) {
  return {"upi_set_system_boot_to", message};
}

class TargetTest : public SettersTest {
 protected:
  int set(int boot_to, int status = -1) {
    return call([=] { return upi_set_system_boot_to(boot_to, status); });
  }
};

TEST_F(TargetTest, ChangeSetsFotaStatus) {
  const sim::BootRecord record = with(sample_record(1), kFotaStatus, 0);
  put_both(with(record, kBootTo, kA));
  EXPECT_EQ(set(kB), 0);
  expect_both(with(with(record, kBootTo, kB), kFotaStatus, 1));
  EXPECT_EQ(lines(), found_flags() + target_said("Set boot to 39019, current flag is :34650~") +
                         rewritten() + target_said("Set system boot to success"));
  expect_rewritten();
}

TEST_F(TargetTest, SameTargetLeavesFotaStatusAndIsWrittenAllTheSame) {
  put_both(sample_record(1));
  EXPECT_EQ(set(kB), 0);
  expect_both(sample_record(1));
  EXPECT_EQ(lines(), found_flags() + rewritten() + target_said("Set system boot to success"));
  expect_rewritten();
}

TEST_F(TargetTest, StatusGoesToTheNamedSystem) {
  for (const int status : {kBootable, kSuccessful, kUnbootable}) {
    put_both(sample_record(1));
    EXPECT_EQ(set(kB, status), 0);
    expect_both(with(sample_record(1), kStatusB, static_cast<std::uint32_t>(status)));
    put_both(with(sample_record(1), kBootTo, kA));
    EXPECT_EQ(set(kA, status), 0);
    expect_both(
        with(with(sample_record(1), kBootTo, kA), kStatusA, static_cast<std::uint32_t>(status)));
  }
}

TEST_F(TargetTest, OtherStatusesAreIgnored) {
  for (const int status : {5, 0, -1, kBootable + 1, INT_MAX, INT_MIN}) {
    put_both(with(sample_record(1), kBootTo, kA));
    EXPECT_EQ(set(kB, status), 0);
    expect_both(with(with(sample_record(1), kBootTo, kB), kFotaStatus, 1));
    EXPECT_EQ(lines().back(), target_said("Set system boot to success"));
  }
}

TEST_F(TargetTest, OtherTargetsAreRefusedBeforeTheFlashIsTouched) {
  put_both(sample_record(1));
  for (const int target : {1, 2, 0, -1, 0x875B, INT_MIN}) {
    EXPECT_EQ(set(target, kBootable), -1);
    EXPECT_EQ(lines(), (Lines{target_said("Invalid boot_to :" + std::to_string(target))}));
    expect_no_request();
  }
  expect_both(sample_record(1));
}

TEST_F(TargetTest, BackupIsTakenWhenMainHasNoMagic) {
  put_both(with(sample_record(1), kMagic, 7), sample_record(2));
  EXPECT_EQ(set(kB), 0);
  expect_both(sample_record(2));
}

// The comparison looks at the main copy also when the backup is the one that is changed.
TEST_F(TargetTest, MainCopysTargetDecidesOnFotaStatus) {
  put_both(with(with(sample_record(1), kMagic, 7), kBootTo, kA), sample_record(2));
  EXPECT_EQ(set(kB), 0);
  expect_both(with(sample_record(2), kFotaStatus, 1));
  EXPECT_TRUE(
      support::has_line(lines(), target_said("Set boot to 39019, current flag is :34650~")));

  put_both(with(with(sample_record(1), kMagic, 7), kBootTo, kA), sample_record(2));
  EXPECT_EQ(set(kA), 0);
  expect_both(with(sample_record(2), kBootTo, kA));
}

TEST_F(TargetTest, ErasedMainIsShownAsMinusOne) {
  put(1, sample_record(2));
  EXPECT_EQ(set(kB), 0);
  EXPECT_TRUE(support::has_line(lines(), target_said("Set boot to 39019, current flag is :-1~")));
  expect_both(with(sample_record(2), kFotaStatus, 1));
}

TEST_F(TargetTest, EnvironmentMagicDoesNotMatter) {
  put_both(with(sample_record(1), kEnvMagic, 7), sample_record(2));
  EXPECT_EQ(set(kB), 0);
  expect_both(with(sample_record(1), kEnvMagic, 7));
}

TEST_F(TargetTest, NeedsACopyWithTheMagic) {
  put_both(with(sample_record(1), kMagic, 7), with(sample_record(2), kMagic, 7));
  EXPECT_EQ(set(kB), -1);
  EXPECT_EQ(lines(), found_flags() + target_said("Get boot flag invalid"));
  expect_only_read();
}

TEST_F(TargetTest, FailedReadingIsTold) {
  put_both(sample_record(1));
  fail(sim::Op::memgetinfo, EIO);
  EXPECT_EQ(set(kB), -1);
  EXPECT_EQ(lines(),
            found_flags() +
                line("upi_get_boot_flags_content", "get flash info error: 5[Input/output error]") +
                target_said("Get boot flags content fail"));
  expect_both(sample_record(1));
}

TEST_F(TargetTest, FailedWritingIsTold) {
  put_both(sample_record(1));
  fail_always(sim::Op::protect_lift, EIO);
  EXPECT_EQ(set(kB), -1);
  EXPECT_EQ(lines().back(), target_said("Set boot flag fail!"));
  EXPECT_EQ(lines().at(lines().size() - 2), writing("upi_set_boot_flags_content func end!"));
  expect_both(sample_record(1));
}

TEST_F(TargetTest, OneWrittenCopyIsSuccess) {
  put_both(with(sample_record(1), kBootTo, kA));
  fail(sim::Op::memerase, EIO, 2);
  EXPECT_EQ(set(kB), 0);
  EXPECT_EQ(lines().back(), target_said("Set system boot to success"));
  expect_copy(0, with(with(sample_record(1), kBootTo, kB), kFotaStatus, 1));
  expect_copy(1, with(sample_record(1), kBootTo, kA));
}

TEST_F(TargetTest, CopiesStayInTheirBlocksBehindABadOne) {
  use_flags(10, {0});
  put(1, sample_record(1));
  put(2, sample_record(2));
  EXPECT_EQ(set(kB), 0);
  expect_copy(1, sample_record(1));
  expect_copy(2, sample_record(1));
  expect_erased(3);
  EXPECT_EQ(requests(), kOpened + "bad? 0 yes" + reading(1) + reading(2) + "close" + kOpened +
                            "lift" + "bad? 0 yes" + writing_block(1) + "lift" + "bad? 0 yes" +
                            writing_block(2) + "close");
}

TEST_F(TargetTest, OneGoodBlockHoldsTheMainCopyAlone) {
  for (const std::uint32_t good : {0U, 2U}) {
    use_flags(3, good == 0 ? std::vector<std::uint32_t>{1, 2} : std::vector<std::uint32_t>{0, 1});
    put(good, with(sample_record(1), kBootTo, kA));
    EXPECT_EQ(set(kB), 0);
    expect_copy(good, with(with(sample_record(1), kBootTo, kB), kFotaStatus, 1));
  }
}

// A backup that was not found is taken to be in block 1: both copies keep off the other's block.
TEST_F(TargetTest, OneGoodBlockThatIsTheSecondIsNeverRewritten) {
  use_flags(3, {0, 2});
  put(1, with(sample_record(1), kBootTo, kA));
  EXPECT_EQ(set(kB), 0);
  EXPECT_EQ(lines().back(), target_said("Set system boot to success"));
  expect_copy(1, with(sample_record(1), kBootTo, kA));
  EXPECT_EQ(flags().count(sim::Op::memerase), 0U);
}

TEST_F(TargetTest, BlocksSmallerThanARecordAreNotOverrun) {
  sim::Layout layout = flags_layout(10);
  layout.geometry.page_size = 64;
  layout.geometry.pages_per_block = 4;
  use(layout);
  const sim::BootRecord record = sample_record(1);
  flags().flash(sim::Bytes(record.bytes.begin(), record.bytes.end()));
  const sim::Bytes before = flags().raw();
  set(kB);
  const sim::Bytes after = flags().raw();
  EXPECT_TRUE(std::equal(before.begin() + 512, before.end(), after.begin() + 512));
}

// --- fota_status. -------------------------------------------------------------------------------

LogLine fota_said(const std::string& message) {
  return {"upi_set_system_fota_stauts", message};
}

LogLine already(const std::string& status) {
  return fota_said("Set fota_status " + status + ", current fota_status is :" + status + "~");
}

class FotaTest : public SettersTest {
 protected:
  int set(int status) {
    return call([=] { return upi_set_system_fota_stauts(status); });
  }
  static sim::BootRecord record(std::uint32_t seed, std::uint32_t fota_status) {
    return with(sample_record(seed), kFotaStatus, fota_status);
  }
};

TEST_F(FotaTest, ChangeIsWrittenToBothCopies) {
  for (const std::uint32_t status : {0U, 1U}) {
    put_both(record(1, 1 - status));
    EXPECT_EQ(set(static_cast<int>(status)), 0);
    expect_both(record(1, status));
    EXPECT_EQ(lines(), found_flags() + rewritten() + fota_said("Set system boot to success"));
    expect_rewritten();
  }
}

TEST_F(FotaTest, ValueThatBothCopiesHoldIsNotWritten) {
  for (const std::uint32_t status : {0U, 1U}) {
    put_both(record(1, status), record(2, status));
    EXPECT_EQ(set(static_cast<int>(status)), 0);
    EXPECT_EQ(lines(), found_flags() + already(std::to_string(status)));
    expect_only_read();
    expect_copy(0, record(1, status));
    expect_copy(1, record(2, status));
  }
}

TEST_F(FotaTest, ValueThatOneCopyLacksIsWritten) {
  put_both(record(1, 1), record(2, 0));
  EXPECT_EQ(set(1), 0);
  expect_both(record(1, 1));
  put_both(record(1, 0), record(2, 1));
  EXPECT_EQ(set(1), 0);
  expect_both(record(1, 1));
}

TEST_F(FotaTest, InvalidCopyCountsWhenValuesAreCompared) {
  put_both(with(record(1, 1), kMagic, 7), record(2, 1));
  EXPECT_EQ(set(1), 0);
  expect_only_read();
  put_both(with(record(1, 0), kMagic, 7), record(2, 1));
  EXPECT_EQ(set(1), 0);
  expect_both(record(2, 1));
}

TEST_F(FotaTest, OtherValuesAreRefusedBeforeTheFlashIsTouched) {
  put_both(record(1, 1));
  for (const int status : {2, -1, 100, INT_MAX, INT_MIN}) {
    EXPECT_EQ(set(status), -1);
    EXPECT_EQ(lines(), (Lines{fota_said("Invalid status :" + std::to_string(status))}));
    expect_no_request();
  }
}

TEST_F(FotaTest, NeedsACopyWithTheMagic) {
  EXPECT_EQ(set(1), -1);
  EXPECT_EQ(lines(), found_flags() + fota_said("Get boot flag invalid"));
  expect_only_read();
}

TEST_F(FotaTest, FailedReadingIsTold) {
  put_both(record(1, 0));
  fail(sim::Op::open, EACCES);
  EXPECT_EQ(set(1), -1);
  EXPECT_EQ(lines(),
            found_flags() +
                line("upi_get_boot_flags_content", "Open flash error: 13[Permission denied]") +
                fota_said("Get boot flags content fail"));
}

TEST_F(FotaTest, FailedWritingIsTold) {
  put_both(record(1, 0));
  fail(sim::Op::memgetinfo, EIO, 2);
  EXPECT_EQ(set(1), -1);
  EXPECT_EQ(lines(), found_flags() + writing("upi_set_boot_flags_content func begin!") +
                         found_flags() + writing("Get flash info error: 5[Input/output error]") +
                         fota_said("Set boot flag fail!"));
  expect_both(record(1, 0));
}

// --- Status of a system. ------------------------------------------------------------------------

LogLine status_said(const std::string& message) {
  return {"upi_set_system_status", message};
}

class StatusTest : public SettersTest {
 protected:
  int set(int system, int status) {
    return call([=] { return upi_set_system_status(system, status); });
  }
};

TEST_F(StatusTest, GoesToSystemA) {
  put_both(sample_record(1));
  EXPECT_EQ(set(kA, kUnbootable), 0);
  expect_both(with(sample_record(1), kStatusA, kUnbootable));
  EXPECT_EQ(lines(), found_flags() + status_said("Set 34650 system status to 47806") +
                         status_said("Current status:system1:47806 system2:401") + rewritten() +
                         status_said("Set system status success"));
  expect_rewritten();
}

TEST_F(StatusTest, GoesToSystemB) {
  put_both(sample_record(1));
  EXPECT_EQ(set(kB, kSuccessful), 0);
  expect_both(with(sample_record(1), kStatusB, kSuccessful));
  EXPECT_EQ(lines(), found_flags() + status_said("Set 39019 system status to 23759") +
                         status_said("Current status:system1:201 system2:23759") + rewritten() +
                         status_said("Set system status success"));
}

TEST_F(StatusTest, TakesTheThreeStatusesInAnyOrder) {
  const int statuses[] = {kBootable, kSuccessful, kUnbootable};
  put_both(sample_record(1));
  for (const int from : statuses) {
    for (const int to : statuses) {
      EXPECT_EQ(set(kA, from), 0);
      EXPECT_EQ(set(kA, to), 0);
      expect_both(with(sample_record(1), kStatusA, static_cast<std::uint32_t>(to)));
    }
  }
}

TEST_F(StatusTest, SameStatusIsWrittenAllTheSame) {
  put_both(with(sample_record(1), kStatusA, kBootable));
  EXPECT_EQ(set(kA, kBootable), 0);
  expect_rewritten();
}

TEST_F(StatusTest, OtherSystemsAreRefusedBeforeTheFlashIsTouched) {
  put_both(sample_record(1));
  for (const int system : {1, 2, 0, -1, INT_MIN}) {
    EXPECT_EQ(set(system, 5), -1);
    EXPECT_EQ(lines(), (Lines{status_said("Invalid system :" + std::to_string(system))}));
    expect_no_request();
  }
}

TEST_F(StatusTest, OtherStatusesAreRefusedBeforeTheFlashIsTouched) {
  put_both(sample_record(1));
  for (const int status : {5, 0, -1, INT_MAX}) {
    EXPECT_EQ(set(kB, status), -1);
    EXPECT_EQ(lines(), (Lines{status_said("Invalide status:" + std::to_string(status) +
                                          ", valid is:bootable(45227), successful(23759), "
                                          "unbootable(47806)")}));
    expect_no_request();
  }
}

TEST_F(StatusTest, BackupIsTakenWhenMainHasNoMagic) {
  put_both(with(sample_record(1), kMagic, 7), sample_record(2));
  EXPECT_EQ(set(kA, kBootable), 0);
  expect_both(with(sample_record(2), kStatusA, kBootable));
}

TEST_F(StatusTest, NeedsACopyWithTheMagic) {
  EXPECT_EQ(set(kA, kBootable), -1);
  EXPECT_EQ(lines(), found_flags() + status_said("Get boot flag invalid"));
  expect_only_read();
}

TEST_F(StatusTest, NeedsAGoodBlock) {
  use_flags(2, {0, 1});
  EXPECT_EQ(set(kA, kBootable), -1);
  EXPECT_EQ(lines().back(), status_said("Get boot flag invalid"));
}

TEST_F(StatusTest, FailedReadingIsTold) {
  put_both(sample_record(1));
  fail(sim::Op::lseek, EINVAL);
  EXPECT_EQ(set(kA, kBootable), -1);
  EXPECT_EQ(lines(), found_flags() +
                         line("upi_get_boot_flags_content", "Lseek error: 22[Invalid argument]") +
                         status_said("get boot flags content fail~"));
}

TEST_F(StatusTest, FailedWritingIsTold) {
  put_both(sample_record(1));
  fail_always(sim::Op::memerase, EIO);
  EXPECT_EQ(set(kA, kBootable), -1);
  EXPECT_EQ(lines().back(), status_said("Set boot flag fail!"));
  expect_both(sample_record(1));
  EXPECT_FALSE(flags().write_protected());
}

TEST_F(StatusTest, MainMovesOnWhenItsBlockTurnsBad) {
  put_both(sample_record(1));
  flags().set_erase_defect(0, sim::EraseDefect::turns_bad_passes);
  EXPECT_EQ(set(kA, kBootable), 0);
  expect_copy(1, with(sample_record(1), kStatusA, kBootable));
  expect_copy(2, with(sample_record(1), kStatusA, kBootable));
  EXPECT_EQ(upi_get_system_boot_to(), 39019);
}

TEST_F(StatusTest, EveryReadingFailureLeavesTheFlashAlone) {
  const sim::Op steps[] = {sim::Op::open, sim::Op::memgetinfo, sim::Op::lseek, sim::Op::read};
  for (const sim::Op step : steps) {
    use_flags(10);
    put_both(sample_record(1));
    fail(step, EIO);
    EXPECT_EQ(set(kA, kBootable), -1) << sim::op_name(step);
    expect_both(sample_record(1));
    EXPECT_EQ(flags().count(sim::Op::protect_lift), 0U);
    EXPECT_EQ(flags().count(sim::Op::memerase), 0U);
  }
}

}  // namespace
}  // namespace unit
