// SPDX-License-Identifier: Apache-2.0
//
// The whole log of an upgrade, line by line.
#include <string>

#include "expected_log.h"
#include "fake_clock.h"
#include "upgrade_test.h"
#include "upi_update.h"

namespace {

using sim::System;
using support::pattern;

constexpr std::size_t kBlock = 2048;
const std::string kRule(47, '-');

class UpdateLogTest : public UpgradeTest, public ::testing::WithParamInterface<System> {
 protected:
  void SetUp() override {
    run_system(GetParam());
    device().remove_file("/cache/ovu_fota_ab/upgrade_temp");
  }

  // Statuses of A and B while the target has `status`.
  ExpectedLog& set_target_status(ExpectedLog& log, int status) {
    const bool a = target() == System::a;
    return log.upi_set_system_status(target_code(), status, a ? status : DUALSYSTEM_STATUS_BOOTABLE,
                                     a ? DUALSYSTEM_STATUS_BOOTABLE : status);
  }

  void prepare_update(ExpectedLog& log, const support::PackageFile& package) {
    const char* const self = "prepare_update";
    log.begin(self).say(self, "<<<<<<<<<<<begin  prepare_update>>>>>>>>>>>>");
    log.upi_get_current_system();
    log.begin("prepare_path");
    log.say("upi_check_file_existence", "/cache/ovu_fota_ab/upgrade_temp/ not exist");
    log.end("prepare_path");
    log.init_upgrade_package_info(package);
    set_target_status(log, DUALSYSTEM_STATUS_UNBOOTABLE);
    log.say(self, "<<<<<<<<<<<end  prepare_update, result:0>>>>>>>>>>>>").end(self);
  }

  static void unprepare_update(ExpectedLog& log) {
    log.begin("unprepare_update").begin("unprepare_path").end("unprepare_path");
    log.end("unprepare_update");
  }

  void init_partition_device_data(ExpectedLog& log, const std::string& name) {
    const char* const self = "init_partition_device_data";
    log.begin(self);
    log.say(self, "partition name:" + name + ", real name:" + target_name(name));
    log.get_partition_mtd_info(target_name(name));
    log.writes_to(log.last_fd()).end(self);
  }

  static void copy_chunk(ExpectedLog& log, std::size_t length) {
    const char* const self = "read_upgrade_package_partition_data";
    const std::string count = std::to_string(length);
    log.begin(self).say("upi_readn", "Read data from file by fd!");
    log.say(self, "Need len:" + count + ", real read len:" + count).end(self);
    log.write_mtd_partition_data();
  }

  void upgrade_image(ExpectedLog& log, const support::PackageEntry& entry) {
    log.begin("upgrade_image").check_image_hash();
    log.mtd_erase_partition(target_number(), entry.name);
    for (std::size_t done = 0; done < entry.data.size(); done += kBlock) {
      copy_chunk(log, std::min<std::size_t>(kBlock, entry.data.size() - done));
    }
    log.check_image_hash().end("upgrade_image");
  }

  static void image_is_there(ExpectedLog& log, const std::string& name) {
    log.begin("upgrade_image").check_image_hash();
    log.say("upgrade_image", "Partition [" + name + "] already updated!").end("upgrade_image");
  }

  void upgrade_partition(ExpectedLog& log, const support::PackageEntry& entry, bool there) {
    log.begin("upgrade_partition");
    init_partition_device_data(log, entry.name);
    if (there) {
      image_is_there(log, entry.name);
    } else {
      upgrade_image(log, entry);
    }
    log.begin("de_init_partition_device_data").end("de_init_partition_device_data");
    log.say("upgrade_partition",
            "<<<<<<<<<<<end  Upgrade " + entry.name + ", result :0>>>>>>>>>>>>");
    log.end("upgrade_partition");
  }

  void check_partitions(ExpectedLog& log, const support::PackageFile& package) {
    for (const support::PackageEntry& entry : package.partitions) {
      log.say("upgrade_partitions", kRule);
      log.say("upgrade_partitions", "Check parition:" + entry.name);
      log.is_partition_exist(target_number(), entry.name);
    }
  }

  void upgrade_partitions(ExpectedLog& log, const support::PackageFile& package,
                          const std::string& there) {
    const char* const self = "upgrade_partitions";
    const char* const updating = "UPGRADE_STATUS_UPDATING";
    log.begin(self).upi_flush_upgrade_status(3, updating, 6148, -1);
    log.say(self, "Partition num:3");
    check_partitions(log, package);
    int done = 0;
    for (const support::PackageEntry& entry : package.partitions) {
      log.say(self, kRule).say(self, "Update parition:" + entry.name);
      upgrade_partition(log, entry, entry.name == there);
      done += static_cast<int>(entry.data.size());
      log.upi_flush_upgrade_status(3, updating, -1, done);
      log.say(self, "-------------- Update parition [" + entry.name + "] Takes 0s --------------");
      log.say(self, kRule + "\n");
    }
    log.end(self);
  }

  void whole_upgrade(ExpectedLog& log, const support::PackageFile& package,
                     const std::string& there) {
    const char* const self = "upi_update";
    log.begin(self).upi_flush_upgrade_status(3, "UPGRADE_STATUS_UPDATING", 0, 0);
    log.say(self, "<<<<<<<<<<<begin  Upgrade>>>>>>>>>>>>");
    prepare_update(log, package);
    log.say(self, "Target system is system:" + std::to_string(target_number()));
    upgrade_partitions(log, package, there);
    log.say(self, "-------------- Upgrade Takes 0s --------------");
    log.say(self, "<<<<<<<<<<<<Success  Upgrade>>>>>>>>>>>>>");
    unprepare_update(log);
    log.upi_flush_upgrade_status(4, "UPGRADE_STATUS_UPDATE_SUCCESS", -1, -1);
    log.begin("set_boot_to_status");
    set_target_status(log, DUALSYSTEM_STATUS_BOOTABLE);
    log.end("set_boot_to_status").end(self);
  }
};

TEST_P(UpdateLogTest, OfAWholeUpgrade) {
  support::PackageFile package = support::system_package();
  package.partitions[0].data = pattern(2 * kBlock + 1, 7);
  package.partitions[1].data = pattern(kBlock, 8);
  package.partitions[2].data = pattern(3, 9);
  put_package(package);
  target_of("rootfs").flash(package.partitions[1].data);

  const LibraryRun run = upgrade();

  EXPECT_EQ(run.result, 0);
  ExpectedLog log(device(), run);
  whole_upgrade(log, package, "rootfs");
  EXPECT_EQ(run.log, log.lines());
  EXPECT_TRUE(log.all_opens_taken());
}

INSTANTIATE_TEST_SUITE_P(Running, UpdateLogTest, ::testing::Values(System::a, System::b));

// The log file gets the same diagnostics as the console.
TEST_P(UpdateLogTest, OnTheConsoleIsTheOneInTheFile) {
  upi_close_logfile();
  put_package(support::system_package(10));
  const LibraryRun run = upgrade();
  upi_close_logfile();

  EXPECT_EQ(support::log_file(device()), run.log);
}

class UpdateTimeTest : public UpgradeTest {};

constexpr std::uint64_t kSecond = 1000000;

TEST_F(UpdateTimeTest, IsToldInWholeSeconds) {
  put_package(platform_package({{"kernel", pattern(1)}, {"rootfs", pattern(2)}}));
  // Start; start and end of both partitions; end.
  FakeClock clock(
      {5 * kSecond, 6 * kSecond, 8 * kSecond - 1, 10 * kSecond, 13 * kSecond, 25 * kSecond - 1});
  const LibraryRun run = upgrade();

  EXPECT_EQ(clock.readings(), 6U);
  EXPECT_TRUE(run.said("upgrade_partitions",
                       "-------------- Update parition [kernel] Takes 1s --------------"));
  EXPECT_TRUE(run.said("upgrade_partitions",
                       "-------------- Update parition [rootfs] Takes 3s --------------"));
  EXPECT_TRUE(run.said("upi_update", "-------------- Upgrade Takes 19s --------------"));
}

TEST_F(UpdateTimeTest, OutlivesTheWrapOfTheMicrosecondCount) {
  put_package(platform_package({{"kernel", pattern(1)}}));
  const std::uint64_t wrap = std::uint64_t{1} << 32;
  FakeClock clock({wrap - kSecond, wrap - 1, wrap + 2 * kSecond, wrap + 3 * kSecond});
  const LibraryRun run = upgrade();

  EXPECT_TRUE(run.said("upgrade_partitions",
                       "-------------- Update parition [kernel] Takes 2s --------------"));
  EXPECT_TRUE(run.said("upi_update", "-------------- Upgrade Takes 4s --------------"));
}

// An endings' seconds are not told: the time ends with the success banner.
TEST_F(UpdateTimeTest, IsNotToldOfAFailure) {
  const LibraryRun run = upgrade();
  for (const std::string& message : run.messages_of("upi_update")) {
    EXPECT_EQ(message.find("Takes"), std::string::npos) << message;
  }
}

}  // namespace
