// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "sim/boot_table.h"
#include "tool_test.h"

namespace tool {
namespace {

class DoctorTest : public ToolTest {
 protected:
  // Runs the doctor, which must not change a byte, and keeps what it tells.
  Ended examine(int status) {
    Ended run = zozale_untouched({"doctor", "--json"});
    EXPECT_EQ(run.status, status) << run;
    told_ = run.json();
    EXPECT_EQ(told_["fit"], status == 0);
    return run;
  }

  nlohmann::json& told() { return told_; }

  // A finding of that severity and area, whose text holds `text`, and which says what to do.
  bool finds(const std::string& severity, const std::string& area, const std::string& text) {
    return std::any_of(told_["findings"].begin(), told_["findings"].end(),
                       [&](const nlohmann::json& finding) {
                         return finding["severity"] == severity && finding["area"] == area &&
                                finding["text"].get<std::string>().find(text) != std::string::npos;
                       });
  }

 private:
  nlohmann::json told_;
};

TEST_F(DoctorTest, FindsAFitDeviceFit) {
  const Ended run = examine(0);

  EXPECT_EQ(told()["running"], "A");
  EXPECT_EQ(told()["partitions"].size(), 6U);
  EXPECT_TRUE(finds("ok", "boot flag record", "the main copy counts")) << run;
  const Ended text = zozale({"doctor"});
  EXPECT_TRUE(text.says("The device is fit: 0 errors, 0 warnings.\n")) << text;
}

TEST_F(DoctorTest, EveryErrorAndWarningSaysWhatToDo) {
  device().write_file("/proc/cmdline", "quiet\n");
  device().partition("flags").wipe();
  device().remove_file("/etc_ro/systemPartitionInfo.conf");

  const Ended run = examine(4);

  for (const nlohmann::json& finding : told()["findings"]) {
    if (finding["severity"] == "error" || finding["severity"] == "warning") {
      EXPECT_NE(finding["next"], "") << finding;
    }
  }
}

TEST_F(DoctorTest, MapsBadBlocksOfBothSystems) {
  device().partition("kernel").set_bad(2);
  device().partition("rootfs2").set_bad(0);
  device().partition("rootfs2").set_bad(7);

  const Ended run = examine(0);

  EXPECT_EQ(told()["partitions"][0]["bad_blocks"], nlohmann::json::array({2}));
  EXPECT_EQ(told()["partitions"][3]["mtd"], "rootfs2");
  EXPECT_EQ(told()["partitions"][3]["bad_blocks"], nlohmann::json::array({0, 7}));
  EXPECT_TRUE(finds("ok", "partitions", "rootfs2 (mtd4): 8 blocks of 2.0 KiB, bad: 0, 7")) << run;
}

TEST_F(DoctorTest, MissesAPartitionOfEitherSystem) {
  for (const std::string missing : {"kernel", "kernel2"}) {
    sim::Layout layout = sim::test_layout();
    for (sim::PartitionLayout& partition : layout.partitions) {
      partition.name = partition.name == missing ? "other" : partition.name;
    }
    device().write_file("/proc/mtd", sim::mtd_text(layout));

    const Ended run = examine(4);

    EXPECT_TRUE(finds("error", "partitions", "the partition " + missing + " is missing")) << run;
  }
}

TEST_F(DoctorTest, ReadsThePartitionTableFileAsTheLibraryDoes) {
  sim::Layout layout = sim::test_layout();
  layout.plat = 1;
  device().write_file("/etc_ro/systemPartitionInfo.conf", sim::table_text(layout));

  const Ended run = examine(4);

  EXPECT_TRUE(finds("error", "partitions", "the partition table file is unfit: plat")) << run;
}

TEST_F(DoctorTest, WarnsOfAnEntryThatCannotBeUpgraded) {
  sim::Layout layout = sim::test_layout();
  layout.oem[0].partition_type = 1;
  device().write_file("/etc_ro/systemPartitionInfo.conf", sim::table_text(layout));

  const Ended run = examine(0);

  EXPECT_TRUE(finds("warning", "partitions", "oem[0].partition_type")) << run;
}

TEST_F(DoctorTest, WarnsOfARepeatedName) {
  sim::Layout layout = sim::test_layout();
  layout.partitions.push_back({"kernel", 8, {}});
  device().write_file("/proc/mtd", sim::mtd_text(layout));

  const Ended run = examine(0);

  EXPECT_TRUE(finds("warning", "partitions", "mtd7 has the name \"kernel\" of mtd1")) << run;
}

TEST_F(DoctorTest, DecodesBothCopies) {
  write_flags([](sim::BootRecord& flags) {
    flags.set_boot_to(sim::System::b);
    flags.set_fota_status(1);
    flags.set_status(sim::System::a, sim::kStatusSuccessful);
    flags.set_attempts(sim::System::b, 2);
  });
  device().partition("flags").set_bad(0);
  write_flags([](sim::BootRecord& flags) { flags.set_boot_to(sim::System::b); });

  const Ended run = examine(0);

  const nlohmann::json& record = told()["record"];
  EXPECT_EQ(record["good_blocks"], 9);
  EXPECT_EQ(record["main"]["block"], 1);
  EXPECT_EQ(record["backup"]["block"], 2);
  EXPECT_EQ(record["main"]["boot_target"], "B");
  EXPECT_EQ(record["main"]["systems"]["A"]["status"], "bootable");
  EXPECT_EQ(record["main"]["arrangement"], "A and B");
  EXPECT_EQ(record["counts"], "main");
  EXPECT_TRUE(finds("note", "boot flag record", "system A runs, system B boots next")) << run;
}

TEST_F(DoctorTest, TellsThatTheBackupCounts) {
  device().partition("flags").poke(0, support::bytes("XXXX"));

  const Ended run = examine(0);

  EXPECT_EQ(told()["record"]["counts"], "backup");
  EXPECT_TRUE(finds("warning", "boot flag record", "main copy in block 0 is not valid")) << run;
  EXPECT_TRUE(finds("ok", "boot flag record", "the backup copy counts")) << run;
}

TEST_F(DoctorTest, SeesThatTheNextChangeWouldSpreadADamagedCopy) {
  device().partition("flags").poke(28, support::bytes("XXXX"));

  const Ended run = examine(4);

  EXPECT_EQ(told()["record"]["counts"], "backup");
  EXPECT_EQ(told()["record"]["rewritten"], "main");
  EXPECT_TRUE(finds("error", "boot flag record", "would start from the damaged main copy")) << run;
}

TEST_F(DoctorTest, SeesCopiesThatDiffer) {
  sim::BootRecord other = sim::factory_record();
  other.set_boot_to(sim::System::b);
  device().partition("flags").poke(device().partition("flags").block_size(),
                                   sim::Bytes(other.bytes.begin(), other.bytes.end()));

  const Ended run = examine(0);

  EXPECT_TRUE(finds("warning", "boot flag record", "the copies differ")) << run;
}

TEST_F(DoctorTest, SeesALoneGoodBlock) {
  sim::Layout layout = sim::test_layout();
  layout.partitions.front().bad = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  use(layout);

  const Ended run = examine(4);

  EXPECT_TRUE(finds("error", "boot flag record", "flags has 1 good of 10 blocks")) << run;
}

// What the doctor foretells is what the boot loader of the simulated device then does.
TEST_F(DoctorTest, ForetellsTheBootLoader) {
  const std::vector<std::int32_t> statuses = {sim::kStatusSuccessful, sim::kStatusBootable,
                                              sim::kStatusUnbootable, 0x1234};
  for (const sim::System wanted : {sim::System::a, sim::System::b}) {
    for (const std::int32_t own : statuses) {
      for (const std::int32_t others : statuses) {
        if (own == sim::kStatusUnbootable && others == sim::kStatusUnbootable) {
          continue;  // the boot loader's own choice, as the doctor says
        }
        write_flags([&](sim::BootRecord& flags) {
          flags.set_boot_to(wanted);
          flags.set_status(wanted, own);
          flags.set_status(sim::other(wanted), others);
        });
        const Ended run = examine(0);
        const char started = sim::letter(sim::boot(device()).started);
        const std::string forecast = told()["record"]["boot_loader"];
        EXPECT_NE(forecast.find(std::string("starts system ") + started), std::string::npos)
            << forecast << "; started " << started;
        run_system(sim::System::a);
      }
    }
  }
}

TEST_F(DoctorTest, SeesThatNoSystemMayBoot) {
  write_flags([](sim::BootRecord& flags) {
    flags.set_status(sim::System::a, sim::kStatusUnbootable);
    flags.set_status(sim::System::b, sim::kStatusUnbootable);
  });

  const Ended run = examine(4);

  EXPECT_TRUE(finds("error", "boot flag record", "what it starts is its own choice")) << run;
}

TEST_F(DoctorTest, TellsTheStoresValues) {
  device().store().put("fota_ab_upgrade_status", "3");
  device().store().put("fota_ab_upgrade_total_size", "4096");

  const Ended run = examine(0);

  EXPECT_EQ(told()["store"]["upgrade_status"], 3);
  EXPECT_EQ(told()["store"]["upgrade_total_bytes"], 4096);
  EXPECT_TRUE(told()["store"]["upgrade_done_bytes"].is_null());
  EXPECT_TRUE(finds("note", "store", "upgrade: installing")) << run;
}

TEST_F(DoctorTest, SeesAWorkFolderThatIsNone) {
  device().remove_file("/cache/ovu_fota_ab");
  device().write_file("/cache/ovu_fota_ab", "a file");

  const Ended run = examine(4);

  EXPECT_TRUE(finds("error", "work folder", "is not a folder")) << run;
}

TEST_F(DoctorTest, TellsTheLogsSizeAndTheFreeSpace) {
  device().write_file("/cache/ovu_fota_ab/upi_ab.log", std::string(1500, 'x'));

  examine(0);

  EXPECT_EQ(told()["work"]["log_bytes"], 1500);
  EXPECT_GT(told()["work"]["free_bytes"], 0);
}

TEST_F(DoctorTest, LooksAtThePackage) {
  put_package(support::system_package());
  examine(0);
  EXPECT_EQ(told()["package"]["type"], "every system partition");

  put_package(support::bytes("nonsense"));
  const Ended run = examine(0);
  EXPECT_TRUE(finds("warning", "package", "the package is bad")) << run;
}

TEST_F(DoctorTest, NeedsNothingToStart) {
  device().write_file("/proc/mtd", "");
  device().write_file("/proc/cmdline", "");
  device().remove_file("/etc_ro/systemPartitionInfo.conf");

  examine(4);
  EXPECT_TRUE(finds("error", "running system", "does not tell the running system"));
  EXPECT_TRUE(finds("error", "boot flag record", "the partition flags is missing"));
}

}  // namespace
}  // namespace tool
