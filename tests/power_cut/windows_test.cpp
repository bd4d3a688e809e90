// SPDX-License-Identifier: Apache-2.0
//
// What a power cut or a fault can leave behind that running the operation again does not mend by
// itself. Each test is a row of docs/reliability.md.
#include <functional>

#include "tests/unit/upgrade_test.h"

namespace {

using sim::CutKind;
using sim::System;

// Flash operations of one change of the record on this device: per copy an erase and four pages.
constexpr std::uint64_t kMainErased = 1;
constexpr std::uint64_t kMainProgram = 2;
constexpr std::uint64_t kRecordChange = 10;

constexpr std::uint8_t kLastByte = 0xFE;

class Windows : public UpgradeTest {
 protected:
  // Both systems are complete; the package brings other images.
  Windows() {
    fill_systems();
    put_package(package());
  }

  static support::PackageFile package() { return support::system_package(5000); }

  static int mark_target_unbootable() {
    return vemk_dual_set_system_status(DUAL_SYSTEM2, DUALSYSTEM_STATUS_UNBOOTABLE);
  }
  static int upgrade_once() { return vemk_dual_upgrade(nullptr); }

  void lose_power(std::uint64_t at, CutKind kind, const std::function<int()>& call,
                  std::optional<std::uint32_t> byte = std::nullopt) {
    device().faults().set_power_cut({at, kind, byte, std::nullopt});
    EXPECT_TRUE(support::in_child(call).power_cut);
    device().faults().clear();
  }

  // How many flash operations a call makes; the device stays as it was.
  std::uint64_t flash_operations_of(const std::function<int()>& call) {
    const sim::Device::Snapshot before = device().snapshot();
    device().clear_counts();
    support::in_child(call);
    const std::uint64_t made = device().flash_operations();
    device().restore(before);
    return made;
  }

  bool record_is_left() { return sim::read_records(device()).chosen() != nullptr; }
  bool both_copies_are_valid() {
    const sim::RecordCopies copies = sim::read_records(device());
    return copies.main.valid() && copies.backup.valid();
  }
  std::string stored(const std::string& name) { return device().store().get(name).value_or(""); }

  // A cut in the next change loses the record; a start in between mends it.
  void expect_one_copy_until_a_start() {
    EXPECT_TRUE(record_is_left());
    EXPECT_FALSE(both_copies_are_valid());
    const sim::Device::Snapshot one_copy = device().snapshot();
    lose_power(kMainErased, CutKind::after, mark_target_unbootable);
    EXPECT_FALSE(record_is_left());

    device().restore(one_copy);
    sim::boot(device());
    EXPECT_TRUE(both_copies_are_valid());
    EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_UNBOOTABLE);
  }

  // Leaves the OEM's partition of the target half written.
  void break_target() {
    lose_power(flash_operations_of(upgrade_once) - kRecordChange - 5, CutKind::torn, upgrade_once);
    EXPECT_EQ(sim::boot(device()).started, System::a);
    EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_UNBOOTABLE);
    EXPECT_FALSE(oemdata_is_complete());
  }
  // An upgrade of the kernel loses its power at the last page of it; one bit of that is in doubt,
  // so half of the checks find it right.
  void leave_a_bit_in_doubt() {
    sim::Bytes image = support::pattern(2048 + 1);
    image.back() = kLastByte;
    put_package(platform_package({{"kernel", image}}));
    const std::uint64_t last_page = kRecordChange + 8 + 5 + 2;
    lose_power(last_page, CutKind::unstable, upgrade_once);
    sim::boot(device());
  }
  // How often the byte of that bit reads wrong, of so many reads.
  int wrong_reads_of_the_bit(int reads) {
    const std::uint64_t place = std::uint64_t{10 + 8 + 1} * 2048;  // on the chip
    int wrong = 0;
    for (int i = 0; i < reads; ++i) {
      std::uint8_t byte = 0;
      device().nand().read(place, &byte, 1);
      wrong += byte != kLastByte ? 1 : 0;
    }
    return wrong;
  }

  bool oemdata_is_complete() {
    const sim::Bytes image = package().partitions.at(2).data;
    const sim::Bytes found = target_of("oemdata").good();
    return std::equal(image.begin(), image.end(), found.begin());
  }
};

// --- The status in the store. ---

TEST_F(Windows, TheStoreTellsOfSuccessBeforeTheTargetIsBootable) {
  lose_power(flash_operations_of(upgrade_once) - kRecordChange + 1, CutKind::before, upgrade_once);
  EXPECT_EQ(stored("fota_ab_upgrade_status"), std::to_string(UPGRADE_STATUS_UPDATE_SUCCESS));
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_UNBOOTABLE);
  EXPECT_EQ(sim::boot(device()).started, System::a);

  const std::uint64_t erases = target_of("rootfs").total_erases();
  EXPECT_EQ(upgrade().result, 0);
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_BOOTABLE);
  EXPECT_EQ(target_of("rootfs").total_erases(), erases) << "every image was in place";
}

TEST_F(Windows, TheStoreTellsOfASynchronisationBeforeTheTargetIsBootable) {
  const auto sync_once = [] { return vemk_dual_sync_system(); };
  lose_power(flash_operations_of(sync_once) - kRecordChange + 1, CutKind::before, sync_once);
  EXPECT_EQ(stored("fota_ab_aa_sync_status"), std::to_string(SYNC_STATUS_SUCCESS));
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_UNBOOTABLE);
  EXPECT_EQ(sim::boot(device()).started, System::a);
  EXPECT_EQ(sync().result, 0);
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_BOOTABLE);
}

TEST_F(Windows, AStatusOfARunThatLostItsPowerStays) {
  lose_power(30, CutKind::after, upgrade_once);
  EXPECT_EQ(sim::boot(device()).started, System::a);
  EXPECT_EQ(stored("fota_ab_upgrade_status"), std::to_string(UPGRADE_STATUS_UPDATING));
  lose_power(30, CutKind::after, [] { return vemk_dual_sync_system(); });
  EXPECT_EQ(sim::boot(device()).started, System::a);
  EXPECT_EQ(stored("fota_ab_aa_sync_status"), std::to_string(SYNC_STATUS_SYNCING));
}

TEST_F(Windows, AnUpgradeThatCannotBeginLeavesAnIntactTargetUnbootable) {
  device().write_file(support::kPackagePath, "not a package");
  EXPECT_EQ(upgrade().result, 0);
  EXPECT_EQ(stored("fota_ab_upgrade_status"), std::to_string(UPGRADE_STATUS_UPDATE_FAIL));
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_UNBOOTABLE);
  EXPECT_EQ(target_of("kernel").total_erases(), 0U);
}

// --- One copy of the record only. ---

TEST_F(Windows, TheOnlyGoodBlockOfFlagsIsErasedBeforeItIsWritten) {
  sim::Layout layout = sim::test_layout();
  layout.partitions[0].bad = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  layout.running = System::b;
  use(layout);
  write_flags([](sim::BootRecord& record) { record.set_boot_to(System::b); });
  EXPECT_EQ(sim::next_boot(device()).started, System::b);
  lose_power(kMainErased, CutKind::after, mark_target_unbootable);
  EXPECT_FALSE(record_is_left());
  EXPECT_EQ(sim::boot(device()).started, System::a) << "whatever A holds";
}

TEST_F(Windows, TheOnlyGoodBlockBehindABadOneIsNeverWritten) {
  sim::Layout layout = sim::test_layout();
  layout.partitions[0].bad = {0, 2, 3, 4, 5, 6, 7, 8, 9};
  use(layout);
  write_flags();
  EXPECT_EQ(run_library(mark_target_unbootable).result, 0);
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_BOOTABLE) << "nothing was written";
}

TEST_F(Windows, TheOnlyValidCopyIsErasedWhenItIsTheMainOne) {
  partition("flags").poke(2048, sim::Bytes(2048, 0xFF));
  const sim::Device::Snapshot one_copy = device().snapshot();
  lose_power(kMainErased, CutKind::after, mark_target_unbootable);
  EXPECT_FALSE(record_is_left());

  device().restore(one_copy);
  EXPECT_EQ(sim::boot(device()).started, System::a);
  EXPECT_TRUE(both_copies_are_valid()) << "a start repairs the copy";
  lose_power(kMainErased, CutKind::after, mark_target_unbootable);
  EXPECT_TRUE(record_is_left());
}

TEST_F(Windows, AFlagsBlockThatFailsItsEraseLeavesOneCopyUntilTheNextStart) {
  partition("flags").set_erase_defect(0, sim::EraseDefect::turns_bad_fails);
  EXPECT_EQ(run_library(mark_target_unbootable).result, 0);
  expect_one_copy_until_a_start();
}

// The main copy goes with its block; the next block to be written holds the only one left.
TEST_F(Windows, AFlagsBlockThatTurnsBadInAnInitialisationTakesTheRecordWithIt) {
  constexpr std::uint64_t kBackupErased = 2;
  const auto initialise = [] { return vemk_init_flag_partition(); };
  const sim::Device::Snapshot valid = device().snapshot();
  for (const auto defect :
       {sim::EraseDefect::turns_bad_fails, sim::EraseDefect::turns_bad_passes}) {
    device().restore(valid);
    partition("flags").set_erase_defect(0, defect);
    const sim::Device::Snapshot dying = device().snapshot();
    lose_power(kBackupErased, CutKind::before, initialise);
    EXPECT_TRUE(record_is_left());
    device().restore(dying);
    lose_power(kBackupErased, CutKind::after, initialise);
    EXPECT_FALSE(record_is_left());
    EXPECT_EQ(sim::boot(device()).started, System::a) << "whatever A holds";
    EXPECT_EQ(run_library(initialise).result, 0);
    EXPECT_TRUE(both_copies_are_valid());
  }
}

TEST_F(Windows, ACopyThatCannotBeWrittenIsMissingUntilTheNextStart) {
  device().faults().add({sim::Op::write, "flags", 2, EIO});
  EXPECT_EQ(run_library(mark_target_unbootable).result, 0);
  expect_one_copy_until_a_start();
}

TEST_F(Windows, AWornMainBlockThatIsNotMarkedBadStopsEveryChange) {
  partition("flags").set_erase_defect(0, sim::EraseDefect::worn);
  EXPECT_EQ(run_library(mark_target_unbootable).result, -1);
  EXPECT_EQ(upgrade().result, -1);
  EXPECT_EQ(stored("fota_ab_upgrade_status"), std::to_string(UPGRADE_STATUS_UPDATE_FAIL));
  EXPECT_EQ(target_of("kernel").total_erases(), 0U);
  EXPECT_EQ(sim::boot(device()).started, System::a);
  EXPECT_EQ(run_library(mark_target_unbootable).result, -1) << "a start does not mend it";
  EXPECT_TRUE(record_is_left());
}

TEST_F(Windows, AWornBackupBlockThatIsNotMarkedBadLeavesOneCopyForGood) {
  partition("flags").set_erase_defect(1, sim::EraseDefect::worn);
  EXPECT_EQ(run_library(mark_target_unbootable).result, 0);
  EXPECT_EQ(sim::boot(device()).started, System::a);
  EXPECT_FALSE(both_copies_are_valid()) << "a start does not mend it";
  lose_power(kMainErased, CutKind::after, mark_target_unbootable);
  EXPECT_FALSE(record_is_left());
}

TEST_F(Windows, AStaleBackupCountsWhenTheMainCopyIsLost) {
  device().faults().add({sim::Op::block_erase, "flags", 2, EIO});
  EXPECT_EQ(run_library(mark_target_unbootable).result, 0);
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_UNBOOTABLE);
  lose_power(kMainErased, CutKind::after, mark_target_unbootable);
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_BOOTABLE) << "as the stale copy says";
  EXPECT_EQ(sim::boot(device()).started, System::a) << "the boot target all the same";
}

// --- A torn copy of the record. ---

// Too short a record for the readers: its second magic word is missing.
constexpr std::uint32_t kBehindTheFirstMagic = 20;

TEST_F(Windows, ATornMainCopyIsTakenByTheSettersUnlessAStartRepairsIt) {
  lose_power(kMainProgram, CutKind::torn, mark_target_unbootable, kBehindTheFirstMagic);
  const sim::Device::Snapshot torn = device().snapshot();
  device().power_on(System::a);
  EXPECT_EQ(run_library(mark_target_unbootable).result, 0);
  EXPECT_FALSE(record_is_left()) << "the torn record is in both copies now";

  device().restore(torn);
  sim::boot(device());
  EXPECT_EQ(run_library(mark_target_unbootable).result, 0);
  EXPECT_TRUE(both_copies_are_valid());
}

TEST_F(Windows, ARecordTornBehindItsSecondMagicLosesItsTexts) {
  constexpr std::size_t kTextOffset = 36;
  constexpr std::uint32_t kInTheText = 64;
  write_flags([](sim::BootRecord& record) {
    std::fill(record.bytes.begin() + kTextOffset, record.bytes.end(), std::uint8_t{'t'});
  });
  lose_power(kMainProgram, CutKind::torn, mark_target_unbootable, kInTheText);
  EXPECT_EQ(sim::boot(device()).started, System::a);
  const sim::BootRecord record = sim::read_records(device()).main.record;
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_UNBOOTABLE) << "what decides is whole";
  EXPECT_EQ(record.bytes.at(kInTheText - 1), 't');
  EXPECT_EQ(record.bytes.at(kInTheText), 0xFF);
  EXPECT_EQ(sim::read_records(device()).backup.record.bytes, record.bytes);
}

// --- No record at all. ---

TEST_F(Windows, WithoutAValidRecordAIsStartedWhateverItHolds) {
  run_system(System::b);
  partition("rootfs").wipe();
  partition("flags").wipe();
  EXPECT_EQ(sim::boot(device()).started, System::a);
}

TEST_F(Windows, AHostMakesALostRecordAnew) {
  break_target();
  partition("flags").wipe();
  EXPECT_EQ(sim::boot(device()).started, System::a);
  EXPECT_EQ(upgrade().result, -1) << "nothing is done without a record";
  EXPECT_EQ(run_library([] { return vemk_init_flag_partition(); }).result, 0);
  EXPECT_EQ(run_library(mark_target_unbootable).result, 0);
  EXPECT_EQ(sim::boot(device()).started, System::a);
  EXPECT_EQ(upgrade().result, 0);
  EXPECT_TRUE(oemdata_is_complete());
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_BOOTABLE);
}

TEST_F(Windows, AFirstInitialisationThatLostItsPowerIsRunAgain) {
  partition("flags").wipe();
  const auto initialise = [] { return vemk_init_flag_partition(); };
  lose_power(kMainProgram, CutKind::torn, initialise, kBehindTheFirstMagic);
  EXPECT_EQ(sim::boot(device()).started, System::a);
  EXPECT_FALSE(record_is_left());
  EXPECT_EQ(run_library(initialise).result, 0);
  EXPECT_TRUE(both_copies_are_valid());
}

TEST_F(Windows, AnInitialisationMarksAnIncompleteSystemBootable) {
  break_target();
  EXPECT_EQ(run_library([] { return vemk_init_flag_partition(); }).result, 0);
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_BOOTABLE);
  EXPECT_FALSE(oemdata_is_complete());
}

// --- What the checks of an image do not see. ---

TEST_F(Windows, AnUnstablePageCanPassTheCheckAndReadWrongLater) {
  leave_a_bit_in_doubt();
  const std::uint64_t erases = target_of("kernel").total_erases();
  const sim::Device::Snapshot cut = device().snapshot();
  int runs = 0;
  do {
    device().restore(cut);
    wrong_reads_of_the_bit(runs);
    EXPECT_EQ(support::in_child(upgrade_once).status, 0);
  } while (target_of("kernel").total_erases() != erases && ++runs < 64);
  EXPECT_EQ(target_of("kernel").total_erases(), erases) << "it passed as finished";
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_BOOTABLE);
  const int wrong = wrong_reads_of_the_bit(64);
  EXPECT_GT(wrong, 0);
  EXPECT_LT(wrong, 64);
}

TEST_F(Windows, ASynchronisationBeforeTheNextRunErasesAnUnstablePage) {
  leave_a_bit_in_doubt();
  const sim::Device::Snapshot cut = device().snapshot();
  for (int shaken = 0; shaken < 16; ++shaken) {
    device().restore(cut);
    wrong_reads_of_the_bit(shaken);
    EXPECT_EQ(sync().result, 0);
    EXPECT_EQ(upgrade().result, 0);
    EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_BOOTABLE);
    EXPECT_EQ(wrong_reads_of_the_bit(64), 0);
  }
}

TEST_F(Windows, APackageOfOtherPartitionsMakesABrokenTargetBootable) {
  break_target();
  put_package(platform_package({{"kernel", support::pattern(3000, 7)}}));
  EXPECT_EQ(upgrade().result, 0);
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_BOOTABLE);
  EXPECT_FALSE(oemdata_is_complete());
}

TEST_F(Windows, AnErasedBlockInTheSourceEndsTheCopy) {
  sim::Bytes with_hole = support::pattern(3 * std::size_t{2048});
  std::fill_n(with_hole.begin() + 2048, 2048, std::uint8_t{0xFF});
  partition("kernel").flash(with_hole);
  EXPECT_EQ(sync().result, 0);
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_BOOTABLE);
  expect_image(partition("kernel2"), sim::Bytes(with_hole.begin(), with_hole.begin() + 2048));
}

TEST_F(Windows, AFailedBadBlockQueryCanMakeAnErasedTargetCountAsEqual) {
  partition("kernel").flash(support::pattern(1000));
  partition("kernel2").wipe();
  device().faults().add({sim::Op::memgetbadblock, "kernel", 1, EIO});
  EXPECT_EQ(sync().result, 0);
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_BOOTABLE);
  expect_image(partition("kernel2"), {});
  EXPECT_EQ(sync().result, 0);
  expect_image(partition("kernel2"), support::pattern(1000));
}

TEST_F(Windows, AWornBlockThatIsNotMarkedBadStopsEveryUpgrade) {
  allow_rule_breaks();
  target_of("rootfs").set_erase_defect(1, sim::EraseDefect::worn);
  for (int attempt = 1; attempt <= 2; ++attempt) {
    EXPECT_EQ(upgrade().result, -1);
    EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_UNBOOTABLE);
    EXPECT_EQ(sim::boot(device()).started, System::a);
  }
  target_of("rootfs").set_bad(1);
  EXPECT_EQ(upgrade().result, 0) << "once the driver has marked it";
}

// --- The next start. ---

TEST_F(Windows, ATargetThatIsTheBootTargetStartsWithoutASwitch) {
  write_flags([](sim::BootRecord& record) {
    record.set_boot_to(System::b);
    record.set_status(System::b, sim::kStatusUnbootable);
  });
  EXPECT_EQ(sim::boot(device()).started, System::a);
  EXPECT_EQ(upgrade().result, 0);
  EXPECT_EQ(sim::boot(device()).started, System::b);
}

}  // namespace
