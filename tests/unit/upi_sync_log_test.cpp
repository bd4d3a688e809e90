// SPDX-License-Identifier: Apache-2.0
//
// The whole log of a synchronisation, line by line.
#include "expected_log.h"
#include "fake_clock.h"
#include "upgrade_test.h"
#include "upi_sync_system.h"

namespace {

using sim::System;
using support::pattern;

constexpr std::size_t kBlock = 2048;
const std::string kRule(50, '-');
const std::string kEraseRule(25, '-');
constexpr const char* kContentEnd = "Read image content end";

class SyncLogTest : public UpgradeTest, public ::testing::WithParamInterface<System> {
 protected:
  void SetUp() override { run_system(GetParam()); }

  std::string dst(const std::string& name) { return target_name(name); }
  std::string src(const std::string& name) { return mtd_name(device().running(), name); }

  void set_target_status(ExpectedLog& log, int status) {
    const bool a = target() == System::a;
    log.upi_set_system_status(target_code(), status, a ? status : DUALSYSTEM_STATUS_BOOTABLE,
                              a ? DUALSYSTEM_STATUS_BOOTABLE : status);
  }

  void partition_hash(ExpectedLog& log, const std::string& name, const sim::Bytes& content) {
    log.get_partition_mtd_info(name);
    if (content.size() < partition(name).size()) {
      log.say("partition_hash", kContentEnd);
    }
  }

  // The contents in whole blocks.
  void partition_hash_cmp(ExpectedLog& log, const std::string& name, const sim::Bytes& dst_content,
                          const sim::Bytes& src_content) {
    const char* const self = "partition_hash_cmp";
    partition_hash(log, dst(name), dst_content);
    partition_hash(log, src(name), src_content);
    const std::string both =
        "dst_partition_hash [" + dst(name) + "] and src_partition_hash [" + src(name) + "] is ";
    if (dst_content == src_content) {
      log.say(self, both + "the same");
      return;
    }
    log.say("show_hash_hex",
            "dst_partition hash::" + support::shown_digest(support::sha512(dst_content)));
    log.say("show_hash_hex",
            "src_partition hash::" + support::shown_digest(support::sha512(src_content)));
    log.say(self, both + "different");
  }

  void erase_partition(ExpectedLog& log, const std::string& name) {
    const char* const self = "erase_partition";
    log.say(self, kEraseRule).begin(self).mtd_find(dst(name));
    log.open_fd(dst(name));
    log.end(self).say(self, kEraseRule);
  }

  void sync_partition(ExpectedLog& log, const std::string& name, const sim::Bytes& dst_content,
                      const sim::Bytes& src_content) {
    const char* const self = "sync_partition";
    partition_hash_cmp(log, name, dst_content, src_content);
    if (dst_content == src_content) {
      log.say(self, "dst partition [" + dst(name) + "] is the same as src partition [" + src(name) +
                        "], do not sync");
      return;
    }
    log.get_partition_mtd_info(src(name)).get_partition_mtd_info(dst(name));
    erase_partition(log, name);
    if (src_content.size() < partition(src(name)).size()) {
      log.say(self, kContentEnd);
    }
    partition_hash_cmp(log, name, src_content, src_content);
  }

  void begin_partition(ExpectedLog& log, const std::string& name, const char* start) {
    log.is_partition_exist(target_number(), name);
    log.say("sync_system", kRule);
    log.say("sync_system", std::string(start) + " Parition [" + dst(name) + "] Start");
  }

  void end_partition(ExpectedLog& log, const std::string& name) {
    const char* const self = "sync_system";
    log.say(self, "-------------- Sync parition [" + dst(name) + "] Takes 0s --------------");
    log.say(self, "Sync Target Partition [" + dst(name) + "] Success").say(self, kRule);
  }

  void begin_sync(ExpectedLog& log) {
    log.say("upi_sync_system", "<<<<<<<<<<<<<<< Start Sync >>>>>>>>>>>>>>>");
    log.upi_get_current_system();
    set_target_status(log, DUALSYSTEM_STATUS_UNBOOTABLE);
    log.init_system_partition_info();
  }

  void end_sync(ExpectedLog& log) {
    set_target_status(log, DUALSYSTEM_STATUS_BOOTABLE);
    log.say("upi_sync_system", "-------------- Sync Takes 0s --------------");
    log.say("upi_sync_system", "<<<<<<<<<<<<<<< Sync Success >>>>>>>>>>>>>>>");
  }
};

TEST_P(SyncLogTest, OfAWholeSynchronisation) {
  const sim::Bytes old_kernel = pattern(kBlock, 6);
  const sim::Bytes kernel = pattern(3 * kBlock, 7);
  const sim::Bytes rootfs = pattern(2 * kBlock, 8);
  const sim::Bytes oemdata = pattern(8 * kBlock, 9);
  target_of("kernel").flash(old_kernel);
  running_of("kernel").flash(kernel);
  target_of("rootfs").flash(rootfs);
  running_of("rootfs").flash(rootfs);
  running_of("oemdata").flash(oemdata);

  const LibraryRun run = sync();

  EXPECT_EQ(run.result, 0);
  ExpectedLog log(device(), run);
  begin_sync(log);
  begin_partition(log, "kernel", "Sync Targrt");
  sync_partition(log, "kernel", old_kernel, kernel);
  end_partition(log, "kernel");
  begin_partition(log, "rootfs", "Sync Targrt");
  sync_partition(log, "rootfs", rootfs, rootfs);
  end_partition(log, "rootfs");
  begin_partition(log, "oemdata", "Sync Target");
  sync_partition(log, "oemdata", {}, oemdata);
  end_partition(log, "oemdata");
  end_sync(log);
  EXPECT_EQ(run.log, log.lines());
  EXPECT_TRUE(log.all_opens_taken());
}

INSTANTIATE_TEST_SUITE_P(Running, SyncLogTest, ::testing::Values(System::a, System::b));

class SyncTimeTest : public UpgradeTest {};

TEST_F(SyncTimeTest, IsToldInWholeSeconds) {
  running_of("kernel").flash(pattern(10));
  const std::uint64_t second = 1000000;
  // Start; start and end of the three partitions; end.
  FakeClock clock({second, 2 * second, 4 * second, 5 * second, 6 * second - 1, 7 * second,
                   17 * second, 61 * second + 5});
  const LibraryRun run = sync();

  EXPECT_EQ(clock.readings(), 8U);
  EXPECT_TRUE(run.said_in_order(
      {{"sync_system", "-------------- Sync parition [kernel2] Takes 2s --------------"},
       {"sync_system", "-------------- Sync parition [rootfs2] Takes 0s --------------"},
       {"sync_system", "-------------- Sync parition [oemdata2] Takes 10s --------------"},
       {"upi_sync_system", "-------------- Sync Takes 60s --------------"}}));
}

}  // namespace
