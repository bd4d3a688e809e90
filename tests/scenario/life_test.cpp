// SPDX-License-Identifier: Apache-2.0
//
// Whole lives of a device: releases that arrive one after another, and what goes wrong with them.
#include "device_life.h"

namespace {

using sim::System;

class LifeTest : public DeviceLife {
 protected:
  LifeTest() { leave_factory(); }
};

TEST_F(LifeTest, GoesOnReleaseByRelease) {
  for (std::uint32_t number = 1; number <= 6; ++number) {
    SCOPED_TRACE("release " + std::to_string(number));
    const System before = device().running();
    const Images old = installed_;
    whole_upgrade(release(number));
    EXPECT_NE(device().running(), before);
    expect_system(device().running(), release(number));
    expect_system(before, old);

    synchronise();
    expect_system(before, release(number));
    reboot();
  }
}

// The second system is the way back: it can be switched to without an upgrade.
TEST_F(LifeTest, GoesBackToTheOldReleaseAndForthAgain) {
  whole_upgrade(release(1));
  switch_over();
  expect_system(device().running(), release(0));
  mark_successful();
  switch_over();
  expect_system(device().running(), release(1));
}

TEST_F(LifeTest, SynchronisesInBothDirections) {
  whole_upgrade(release(1));
  EXPECT_EQ(device().running(), System::b);
  synchronise();
  switch_over();
  mark_successful();
  reboot();
  EXPECT_EQ(device().running(), System::a);
  partition("rootfs2").poke(std::uint64_t{3} * 2048, support::pattern(2048, 99));
  synchronise();
  expect_system(System::a, release(1));
  expect_system(System::b, release(1));
}

TEST_F(LifeTest, OutlivesBlocksThatTurnBadInUse) {
  for (std::uint32_t number = 1; number <= 6; ++number) {
    SCOPED_TRACE("release " + std::to_string(number));
    target_of("kernel").set_erase_defect(4 + number, sim::EraseDefect::turns_bad_fails);
    target_of("oemdata").set_erase_defect(number, sim::EraseDefect::turns_bad_passes);
    whole_upgrade(release(number));
    expect_system(device().running(), release(number));
    synchronise();
    expect_system(target(), release(number));
  }
  EXPECT_LT(partition("kernel").good_blocks(), 15U) << "no block turned bad";
  EXPECT_LT(partition("oemdata2").good_blocks(), 15U) << "no block turned bad";
}

TEST_F(LifeTest, OutlivesAFlagsBlockThatTurnsBad) {
  partition("flags").set_erase_defect(1, sim::EraseDefect::turns_bad_fails, 2);
  partition("flags").set_erase_defect(2, sim::EraseDefect::turns_bad_passes, 6);
  for (std::uint32_t number = 1; number <= 3; ++number) {
    whole_upgrade(release(number));
    expect_system(device().running(), release(number));
  }
  EXPECT_TRUE(partition("flags").is_bad(1));
  EXPECT_TRUE(partition("flags").is_bad(2));
}

// --- A package that is no good. ---

TEST_F(LifeTest, ADamagedPackageIsRefusedAndNothingIsErased) {
  sim::Bytes package = package_of(release(1)).bytes();
  const std::uint64_t operations = device().flash_operations();
  for (const std::size_t place : {std::size_t{300}, std::size_t{700}, package.size() - 1}) {
    package[place] = static_cast<std::uint8_t>(package[place] ^ 0x10U);
    device().write_file(support::kPackagePath, package);
    EXPECT_EQ(run_library([] { return vemk_dual_verify(); }).result, -1);
    EXPECT_EQ(upgrade_status(), UPGRADE_STATUS_VERIFY_FAIL);
    package[place] = static_cast<std::uint8_t>(package[place] ^ 0x10U);
  }
  EXPECT_EQ(device().flash_operations(), operations);
  reboot();
  device().write_file(support::kPackagePath, package);
  verify();
}

TEST_F(LifeTest, AnImageThatIsNotWhatItsDigestSaysIsNeverBooted) {
  whole_upgrade(release(1));
  synchronise();
  support::PackageFile package = package_of(release(2));
  package.partitions[1].hash = support::sha512({});
  put_package(package);
  EXPECT_EQ(upgrade().result, -1);
  EXPECT_EQ(upgrade_status(), UPGRADE_STATUS_UPDATE_FAIL);
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_UNBOOTABLE);

  // A client that switches all the same stays where it is.
  const int wanted = target_code();
  EXPECT_EQ(run_library([&] { return vemk_dual_set_boot_to_system(wanted, 1); }).result, 0);
  EXPECT_EQ(sim::boot(device()).started, System::b);
  expect_system(System::b, release(1));

  // Synchronising makes the target whole again.
  synchronise();
  expect_system(System::a, release(1));
}

// --- A new system that does not come up. ---

TEST_F(LifeTest, ASystemThatNeverComesUpIsGivenUp) {
  receive(release(1));
  verify();
  install();
  EXPECT_EQ(run_library([] { return vemk_dual_set_boot_to_system(DUAL_SYSTEM2, 1); }).result, 0);

  const sim::BootHistory history = sim::boot_until_up(device(), {System::b});

  EXPECT_TRUE(history.up);
  EXPECT_EQ(history.boots.size(), 4U) << "three attempts, then the fall-back";
  EXPECT_EQ(run_library([] { return vemk_dual_get_current_system(); }).result, DUAL_SYSTEM);
  EXPECT_EQ(run_library([] { return vemk_dual_get_boot_to_system(); }).result, DUAL_SYSTEM);
  expect_system(System::a, release(0));
  mark_successful();
  reboot();

  // The next release comes up.
  whole_upgrade(release(2));
  EXPECT_EQ(device().running(), System::b);
  expect_system(System::b, release(2));
}

// --- Interrupted work. ---

TEST_F(LifeTest, AnUpgradeThatLostItsPowerIsResumed) {
  receive(release(1));
  verify();
  std::uint64_t kernel_erases = 0;
  device().faults().set_power_cut({60, sim::CutKind::torn, std::nullopt, std::nullopt});
  EXPECT_TRUE(support::in_child([] { return vemk_dual_upgrade(nullptr); }).power_cut);
  expect_image(partition("kernel2"), release(1).at("kernel"));
  EXPECT_FALSE(holds(System::b, release(1)));
  kernel_erases = erases_of(System::b, "kernel");

  EXPECT_EQ(sim::boot(device()).started, System::a);
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_UNBOOTABLE);
  install();
  EXPECT_EQ(erases_of(System::b, "kernel"), kernel_erases) << "it was finished";
  switch_over();
  expect_system(System::b, release(1));
}

TEST_F(LifeTest, ASynchronisationThatLostItsPowerIsResumed) {
  whole_upgrade(release(1));
  device().faults().set_power_cut({90, sim::CutKind::unstable, std::nullopt, std::nullopt});
  EXPECT_TRUE(support::in_child([] { return vemk_dual_sync_system(); }).power_cut);
  expect_image(partition("kernel"), release(1).at("kernel"));
  const std::uint64_t kernel_erases = erases_of(System::a, "kernel");

  EXPECT_EQ(sim::boot(device()).started, System::b);
  EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_UNBOOTABLE);
  EXPECT_EQ(sync_status(), SYNC_STATUS_SYNCING) << "as it was when the power went";
  synchronise();
  EXPECT_EQ(erases_of(System::a, "kernel"), kernel_erases) << "it was finished";
  expect_system(System::a, release(1));
}

// An upgrade that gave up resumes in the same process too.
TEST_F(LifeTest, AnUpgradeThatFailedOverAndOverGetsThereInTheEnd) {
  receive(release(1));
  verify();
  int runs = 0;
  for (std::uint64_t at = 1; at < 40; at += 3) {
    device().faults().add({sim::Op::write, "rootfs2", at % 12 + 1, EIO});
    EXPECT_EQ(upgrade().result, -1);
    EXPECT_EQ(target_status(), DUALSYSTEM_STATUS_UNBOOTABLE);
    ++runs;
  }
  const std::uint64_t kernel_erases = erases_of(System::b, "kernel");
  install();
  EXPECT_EQ(runs, 13);
  EXPECT_EQ(erases_of(System::b, "kernel"), kernel_erases);
  switch_over();
  expect_system(System::b, release(1));
}

// A release that changes one partition leaves the others alone.
TEST_F(LifeTest, WhatIsThereAlreadyIsNotWrittenAgain) {
  whole_upgrade(release(1));
  synchronise();
  Images next = release(1);
  next["oemdata"] = support::pattern(5000, 77);
  const std::uint64_t kernel = erases_of(System::a, "kernel");
  const std::uint64_t rootfs = erases_of(System::a, "rootfs");
  whole_upgrade(next);
  EXPECT_EQ(device().running(), System::a);
  EXPECT_EQ(erases_of(System::a, "kernel"), kernel);
  EXPECT_EQ(erases_of(System::a, "rootfs"), rootfs);
  expect_system(System::a, next);
}

}  // namespace
