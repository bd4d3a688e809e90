// SPDX-License-Identifier: Apache-2.0
#include "tool_test.h"

namespace tool {
namespace {

using StatusTest = ToolTest;
using StatusOfEither = EitherSystem;

TEST_P(StatusOfEither, TellsRunningSystemAndUpgradeTarget) {
  const char running = sim::letter(GetParam());
  const char target = sim::letter(sim::other(GetParam()));

  const Ended run = zozale({"status"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_TRUE(run.says(std::string("Running system:   ") + running + "\n")) << run;
  EXPECT_TRUE(run.says(std::string("Upgrade target:   ") + target + "\n")) << run;
}

INSTANTIATE_TEST_SUITE_P(Either, StatusOfEither, ::testing::Values(sim::System::a, sim::System::b),
                         system_name);

TEST_F(StatusTest, TellsBothSystemsInWords) {
  write_flags([](sim::BootRecord& flags) {
    flags.set_boot_to(sim::System::b);
    flags.set_fota_status(1);
    flags.set_status(sim::System::a, sim::kStatusSuccessful);
    flags.set_status(sim::System::b, sim::kStatusBootable);
    flags.set_attempts(sim::System::b, 2);
  });

  const Ended run = zozale({"status"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_TRUE(run.says("Boots next:       B\n")) << run;
  EXPECT_TRUE(run.says("System A:         successful, boot attempts: 0\n")) << run;
  EXPECT_TRUE(run.says("System B:         bootable, boot attempts: 2\n")) << run;
  EXPECT_TRUE(run.says("Fota status:      1, a switch waits for 'zozale acknowledge'\n")) << run;
}

TEST_F(StatusTest, HasAWordForAStatusThatNobodyDefined) {
  write_flags([](sim::BootRecord& flags) { flags.set_status(sim::System::b, 0x1234); });

  const Ended run = zozale({"status"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_TRUE(run.says("System B:         unknown, boot attempts: 0\n")) << run;
  EXPECT_FALSE(run.says("4660")) << run;
}

TEST_F(StatusTest, KeepsAStoreThatWasNeverWrittenApartFromZero) {
  const nlohmann::json before = zozale({"status", "--json"}).json();
  EXPECT_TRUE(before["upgrade"]["status"].is_null());
  EXPECT_TRUE(before["sync"]["status"].is_null());

  device().store().put("fota_ab_upgrade_status", "0");
  device().store().put("fota_ab_aa_sync_status", "0");
  const nlohmann::json after = zozale({"status", "--json"}).json();
  EXPECT_EQ(after["upgrade"]["status"], "verifying");
  EXPECT_EQ(after["sync"]["status"], "synchronised");
}

TEST_F(StatusTest, TellsTheSameAsJson) {
  device().store().put("fota_ab_upgrade_status", "3");
  device().store().put("fota_ab_upgrade_total_size", "15000");
  device().store().put("fota_ab_upgrade_updated_size", "5000");
  device().store().put("fota_ab_aa_sync_status", "-1");

  const Ended run = zozale({"status", "--json"});

  const nlohmann::json expected = {
      {"schema", "zozale/1"},
      {"command", "status"},
      {"running", "A"},
      {"upgrade_target", "B"},
      {"boot_target", "A"},
      {"systems",
       {{"A", {{"status", "bootable"}, {"attempts", 0}}},
        {"B", {{"status", "bootable"}, {"attempts", 0}}}}},
      {"fota_status", 0},
      {"upgrade", {{"status", "installing"}, {"total_bytes", 15000}, {"done_bytes", 5000}}},
      {"sync", {{"status", "synchronisation failed"}}},
      {"warnings", nlohmann::json::array()},
      {"exit", 0}};
  EXPECT_EQ(run.json(), expected);
  EXPECT_EQ(run.err, "");
}

TEST_F(StatusTest, FailsWhenTheRunningSystemIsUnknownAndTellsTheRest) {
  device().write_file("/proc/cmdline", "console=ttyS0 rootwait\n");

  const Ended run = zozale({"status"});

  EXPECT_EQ(run.status, 4) << run;
  EXPECT_TRUE(run.says("Running system:   unknown\n")) << run;
  EXPECT_TRUE(run.says("Boots next:       A\n")) << run;
  EXPECT_TRUE(run.complains("the running system is unknown")) << run;
  EXPECT_TRUE(run.complains("system=system_a or system=system_b")) << run;
}

TEST_F(StatusTest, FailsWithoutARecordAndTellsTheRest) {
  device().partition("flags").wipe();

  const Ended run = zozale({"status", "--json"});

  EXPECT_EQ(run.status, 4) << run;
  const nlohmann::json told = run.json();
  EXPECT_EQ(told["running"], "A");
  EXPECT_TRUE(told["systems"].is_null());
  EXPECT_EQ(told["exit"], 4);
  EXPECT_EQ(told["error"]["what"], "the flags partition holds no valid boot flag record");
}

TEST_F(StatusTest, FailsWhenTheRecordCannotBeRead) {
  // The library reads it first; what zozale reads itself is not struck.
  device().faults().add({sim::Op::read, "flags", 1, EIO, false, std::nullopt});

  const Ended run = zozale({"status"});

  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(run.complains("upi_get_boot_flags_content: Read len (-1) < need len (292)!")) << run;
  EXPECT_TRUE(run.complains("/cache/ovu_fota_ab/upi_ab.log")) << run;
}

}  // namespace
}  // namespace tool
