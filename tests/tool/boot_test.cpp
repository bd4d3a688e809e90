// SPDX-License-Identifier: Apache-2.0
//
// switch, mark, acknowledge, init-flags.
#include "tool_test.h"

namespace tool {
namespace {

using BootTest = ToolTest;

TEST_F(BootTest, SwitchChoosesTheSystemThatBootsNext) {
  const Ended run = zozale({"switch", "B"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(run.out, "System B boots next.\n");
  EXPECT_EQ(record().boot_to(), sim::kBootToB);
  EXPECT_EQ(record().fota_status(), 1U);
  EXPECT_EQ(device().power(), sim::Power::on);
}

TEST_F(BootTest, SwitchTakesALowerCaseName) {
  EXPECT_EQ(zozale({"switch", "b"}).status, 0);
  EXPECT_EQ(record().boot_to(), sim::kBootToB);
}

TEST_F(BootTest, SwitchToTheCurrentTargetWritesNothingAndSaysSo) {
  const std::uint64_t before = erases();

  const Ended run = zozale({"switch", "A"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(run.out, "System A boots next already; nothing was written.\n");
  EXPECT_EQ(erases(), before);
}

TEST_F(BootTest, SwitchRebootsWhenAsked) {
  const Ended run = zozale({"switch", "B", "--reboot"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(device().power(), sim::Power::rebooting);
  EXPECT_EQ(sim::boot(device()).started, sim::System::b);
}

TEST_F(BootTest, SwitchToTheCurrentTargetRebootsAllTheSame) {
  EXPECT_EQ(zozale({"switch", "A", "--reboot"}).status, 0);
  EXPECT_EQ(device().power(), sim::Power::rebooting);
}

TEST_F(BootTest, SwitchWarnsOfASystemThatWillNotBoot) {
  write_flags(
      [](sim::BootRecord& flags) { flags.set_status(sim::System::b, sim::kStatusUnbootable); });

  const Ended run = zozale({"switch", "B"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_TRUE(run.complains("warning: system B is marked unbootable")) << run;
}

TEST_F(BootTest, MarkRecordsEveryStatusOfEitherSystem) {
  const std::vector<std::pair<std::string, std::int32_t>> words = {
      {"successful", sim::kStatusSuccessful},
      {"unbootable", sim::kStatusUnbootable},
      {"bootable", sim::kStatusBootable}};
  for (const sim::System system : {sim::System::a, sim::System::b}) {
    for (const auto& [word, status] : words) {
      const Ended run = zozale({"mark", std::string(1, sim::letter(system)), word});
      EXPECT_EQ(run.status, 0) << run;
      EXPECT_EQ(record().status(system), status) << word;
    }
  }
}

TEST_F(BootTest, MarkWritesNothingWhenItIsSoAlready) {
  const std::uint64_t before = erases();

  const Ended run = zozale({"mark", "B", "bootable", "--json"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(run.json()["nothing_to_do"], true);
  EXPECT_EQ(erases(), before);
}

TEST_F(BootTest, MarkMakesCopiesEqualThatDiffer) {
  sim::BootRecord old = sim::factory_record();
  old.set_status(sim::System::b, sim::kStatusUnbootable);
  device().partition("flags").poke(device().partition("flags").block_size(),
                                   sim::Bytes(old.bytes.begin(), old.bytes.end()));

  EXPECT_EQ(zozale({"mark", "B", "bootable"}).status, 0);

  const sim::RecordCopies copies = sim::read_records(device());
  EXPECT_EQ(copies.main.record.bytes, copies.backup.record.bytes);
}

TEST_F(BootTest, MarkWarnsBeforeTheRunningSystemIsGivenUp) {
  const Ended run = zozale({"mark", "A", "unbootable"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_TRUE(run.complains("warning: system A is running")) << run;
  EXPECT_FALSE(zozale({"mark", "B", "unbootable"}).complains("warning"));
}

TEST_F(BootTest, AcknowledgeClearsTheFotaStatus) {
  write_flags([](sim::BootRecord& flags) { flags.set_fota_status(1); });

  const Ended run = zozale({"acknowledge"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(record().fota_status(), 0U);
  EXPECT_EQ(zozale({"acknowledge"}).out,
            "The fota status is clear already; nothing was written.\n");
}

TEST_F(BootTest, SettersNeedAValidRecord) {
  device().partition("flags").wipe();

  for (const Arguments& command :
       std::vector<Arguments>{{"switch", "B"}, {"mark", "A", "bootable"}, {"acknowledge"}}) {
    const Ended run = zozale_untouched(command);
    EXPECT_EQ(run.status, 4) << run;
    EXPECT_TRUE(run.complains("no valid boot flag record")) << run;
    EXPECT_TRUE(run.complains("zozale init-flags")) << run;
  }
}

// The library's setters look at the first magic word alone: they would take this main copy and
// write it over the good backup.
TEST_F(BootTest, SettersDoNotSpreadAHalfDamagedMainCopy) {
  device().partition("flags").poke(28, support::bytes("XXXX"));

  const Ended run = zozale_untouched({"switch", "B"});

  EXPECT_EQ(run.status, 4) << run;
  EXPECT_TRUE(run.complains("would spread to both copies")) << run;
}

TEST_F(BootTest, ASetterThatTheLibraryFailsTellsWhyAndWhereTheLogIs) {
  device().faults().add({sim::Op::memerase, "flags", 1, EIO, true, std::nullopt});

  const Ended run = zozale({"switch", "B"});

  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(run.complains("switching to system B failed")) << run;
  EXPECT_TRUE(run.complains("upi_write_fota_flag_img_content: Ioctl [MEMERASE] block: 0 error"))
      << run;
  EXPECT_TRUE(run.complains("log file: /cache/ovu_fota_ab/upi_ab.log")) << run;
}

// With a lone good block that is not block 0 the library takes every block for one of the copies
// that must stay, writes nothing and reports success.
TEST_F(BootTest, AChangeThatWasNotWrittenIsAFailure) {
  sim::Layout layout = sim::test_layout();
  layout.partitions.front().bad = {0, 2, 3, 4, 5, 6, 7, 8, 9};
  use(layout);
  const sim::BootRecord fresh = sim::factory_record();
  device().partition("flags").poke(device().partition("flags").block_size(),
                                   sim::Bytes(fresh.bytes.begin(), fresh.bytes.end()));

  const Ended run = zozale({"switch", "B"});

  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(run.complains("switching to system B failed")) << run;
}

TEST_F(BootTest, InitFlagsWritesAFreshRecordWithoutAskingWhenThereIsNone) {
  device().partition("flags").wipe();

  const Ended run = zozale({"init-flags"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(record().bytes, sim::factory_record().bytes);
}

TEST_F(BootTest, InitFlagsRefusesToOverwriteAValidRecordUnasked) {
  const Ended run = zozale_untouched({"init-flags"});

  EXPECT_EQ(run.status, 2) << run;
  EXPECT_TRUE(run.complains("--force")) << run;
}

TEST_F(BootTest, InitFlagsOverwritesAValidRecordByForce) {
  write_flags([](sim::BootRecord& flags) { flags.set_boot_to(sim::System::b); });

  const Ended run = zozale({"init-flags", "--force", "--json"});

  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(run.json()["overwritten"], true);
  EXPECT_EQ(record().boot_to(), sim::kBootToA);
}

TEST_F(BootTest, InitFlagsAsksOnATerminal) {
  write_flags([](sim::BootRecord& flags) { flags.set_boot_to(sim::System::b); });

  const Ended refused = zozale_on_terminal({"init-flags"}, "n\n");
  EXPECT_EQ(refused.status, 1) << refused;
  EXPECT_TRUE(refused.says("Overwrite it? [y/N]")) << refused;
  EXPECT_EQ(record().boot_to(), sim::kBootToB);

  const Ended agreed = zozale_on_terminal({"init-flags"}, "y\n");
  EXPECT_EQ(agreed.status, 0) << agreed;
  EXPECT_EQ(record().boot_to(), sim::kBootToA);
}

TEST_F(BootTest, InitFlagsFailsWithFewerThanTwoGoodBlocks) {
  sim::Layout layout = sim::test_layout();
  layout.partitions.front().bad = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  use(layout);

  const Ended run = zozale({"init-flags", "--force"});

  EXPECT_EQ(run.status, 1) << run;
  EXPECT_TRUE(run.complains("Init system status fail, alread write block :1")) << run;
}

TEST_F(BootTest, AMissingFlagsPartitionIsAnUnfitDevice) {
  sim::Layout layout = sim::test_layout();
  layout.partitions.front().name = "flogs";
  device().write_file("/proc/mtd", sim::mtd_text(layout));

  for (const Arguments& command : std::vector<Arguments>{
           {"switch", "B"}, {"mark", "A", "bootable"}, {"acknowledge"}, {"init-flags"}}) {
    const Ended run = zozale(command);
    EXPECT_EQ(run.status, 4) << run;
    EXPECT_TRUE(run.complains("the partition flags is missing")) << run;
  }
}

}  // namespace
}  // namespace tool
