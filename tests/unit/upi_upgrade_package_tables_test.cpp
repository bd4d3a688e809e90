// SPDX-License-Identifier: Apache-2.0
//
// Loading a package: its tables, and the memory that it takes.
#include <cerrno>
#include <climits>
#include <string>

#include "package_test.h"

namespace {

using sim::Op;
using support::PackageFile;
using namespace unit;

class LoadTablesTest : public PackageTest {};

// --- The partition table ------------------------------------------------------------------------

TEST_F(LoadTablesTest, TakesAtMost49Partitions) {
  load(platform_package(49));
  expect_loaded();
  EXPECT_EQ(get_partition_num(), 49);
  EXPECT_STREQ(get_partition_head_info()[48].name, "kernel");
}

TEST_F(LoadTablesTest, RefusesTooManyPartitions) {
  for (const std::int32_t count : {50, INT_MAX}) {
    PackageFile package = platform_package(50);
    package.partition_num = count;
    EXPECT_EQ(loader_lines(load(package)),
              magic_is_good() + init_says({"There is/are [" + std::to_string(count) +
                                               "] partition(s) in upgrade package!",
                                           kFail}));
    expect_abandoned();
  }
}

// Without partitions nothing tells what upgrade_type could mean, so any is taken.
TEST_F(LoadTablesTest, LoadsAPackageWithoutPartitionsWhateverItsType) {
  for (const std::int32_t count : {0, -1, INT_MIN}) {
    PackageFile package = package_with_extras(1);
    package.partition_num = count;
    package.upgrade_type = 9;
    const sim::Recording recording;
    const Lines lines = loader_lines(load(package));
    expect_loaded();
    EXPECT_EQ(lines.at(2), init_says({"There is " + std::to_string(count) +
                                      " partitionin upgrade package!"})[0]);
    EXPECT_EQ(get_upgrade_type(), 9);
    EXPECT_EQ(get_partition_head_info(), nullptr);
    EXPECT_STREQ(get_extra_head_info()[0].name, "extra0");
    EXPECT_EQ(recording.calls(Op::read, kPath).at(2).offset, 256U);
    EXPECT_TRUE(recording.calls(Op::fopen, "/etc_ro/systemPartitionInfo.conf").empty());
    deinit_upgrade_package_info();
  }
}

TEST_F(LoadTablesTest, FailsWhenThePartitionTableIsCutShort) {
  sim::Bytes bytes = platform_package(3).bytes();
  bytes.resize(256 + 3 * 128 - 1);
  put(bytes);
  EXPECT_EQ(
      loader_lines(load()),
      magic_is_good() +
          init_says({"Read upgrade package file partition info fail, get length:383, error: " +
                         shown_error(0),
                     kFail}));
  expect_abandoned();
}

TEST_F(LoadTablesTest, FailsWhenThePartitionTableCannotBeRead) {
  put(platform_package(3));
  device().faults().add({Op::read, kPath, 3, EIO});
  EXPECT_EQ(loader_lines(load()),
            magic_is_good() +
                init_says({"Read upgrade package file partition info fail, get length:-1, error: " +
                               shown_error(EIO),
                           kFail}));
  expect_abandoned();
}

// --- The extra-file table -----------------------------------------------------------------------

TEST_F(LoadTablesTest, TakesAtMost49ExtraFiles) {
  load(package_with_extras(49));
  expect_loaded();
  EXPECT_EQ(get_extra_num(), 49);
  EXPECT_STREQ(get_extra_head_info()[48].name, "extra48");
}

TEST_F(LoadTablesTest, RefusesTooManyExtraFiles) {
  for (const std::int32_t count : {50, INT_MAX}) {
    PackageFile package = support::system_package();
    package.extra_num = count;
    const Lines lines = loader_lines(load(package));
    EXPECT_EQ(lines, magic_is_good() + init_says({"There is/are [" + std::to_string(count) +
                                                      "] extra file(s) in upgrade package!",
                                                  kFail}));
    expect_abandoned();
  }
}

TEST_F(LoadTablesTest, LoadsAPackageWithoutExtraFiles) {
  for (const std::int32_t count : {0, -1, INT_MIN}) {
    PackageFile package = support::system_package();
    package.extra_num = count;
    const Lines lines = loader_lines(load(package));
    expect_loaded();
    EXPECT_EQ(lines.at(2), init_says({kNoExtra})[0]);
    EXPECT_EQ(get_extra_num(), count);
    EXPECT_EQ(get_extra_head_info(), nullptr);
    deinit_upgrade_package_info();
  }
}

TEST_F(LoadTablesTest, FailsWhenTheExtraTableIsCutShort) {
  sim::Bytes bytes = package_with_extras(2).bytes();
  bytes.resize(256 + 2 * 120 - 1);
  put(bytes);
  EXPECT_EQ(loader_lines(load()),
            magic_is_good() +
                init_says({"There is 0 partitionin upgrade package!",
                           "Read upgrade package file head info fail, get length:239, error: " +
                               shown_error(0),
                           kFail}));
  expect_abandoned();
}

TEST_F(LoadTablesTest, FailsWhenTheExtraTableCannotBeRead) {
  PackageFile package = support::system_package();
  package.extras = package_with_extras(2).extras;
  put(package);
  device().faults().add({Op::read, kPath, 4, EIO});
  EXPECT_EQ(loader_lines(load()),
            magic_is_good() +
                init_says({"Read upgrade package file head info fail, get length:-1, error: " +
                               shown_error(EIO),
                           kFail}));
  expect_abandoned();
}

// --- Memory -------------------------------------------------------------------------------------

class LoadMemoryTest : public PackageTest {
 protected:
  // Loads a package with both tables while the library's n-th allocation fails.
  Lines load_without_memory(std::uint64_t nth) {
    PackageFile package = support::system_package();
    package.extras = package_with_extras(2).extras;
    put(package);
    device().faults().add({Op::malloc, "libzozale.so", nth, ENOMEM});
    const sim::AllocationWatch watch;
    return loader_lines(load());
  }
};

TEST_F(LoadMemoryTest, FailsWithoutMemoryForTheRecord) {
  EXPECT_EQ(load_without_memory(1),
            magic_is_good() + init_says({"Malloc for upgrade package info struct fail!"}));
  expect_refused();
}

TEST_F(LoadMemoryTest, FailsWithoutMemoryForTheRecordAndReportsTheClose) {
  device().faults().add({Op::close, kPath, 1, EIO});
  EXPECT_EQ(load_without_memory(1),
            magic_is_good() + init_says({"Malloc for upgrade package info struct fail!",
                                         "Close upgrade package file [" + kPath +
                                             "] error,  error: " + shown_error(EIO)}));
  expect_refused();
}

TEST_F(LoadMemoryTest, FailsWithoutMemoryForTheHead) {
  EXPECT_EQ(
      load_without_memory(2),
      magic_is_good() + init_says({"Malloc upgrade package head info failed, size:256!", kFail}));
  expect_abandoned();
}

TEST_F(LoadMemoryTest, FailsWithoutMemoryForThePartitionTable) {
  EXPECT_EQ(load_without_memory(3),
            magic_is_good() +
                init_says({"Malloc for upgrade package partition head info failed, malloc size: "
                           "[partition_num * every partition size]:[3 * 384]",
                           kFail}));
  expect_abandoned();
}

TEST_F(LoadMemoryTest, FailsWithoutMemoryForTheSystemsTable) {
  EXPECT_EQ(load_without_memory(4),
            magic_is_good() +
                said_by("is_upgrade_type_valid", {"system_partition_info malloc fail"}) +
                init_says({"Upgrade type invalid", kFail}));
  expect_refused();
}

// Allocations 5 and 6 are the system table's two lists, tested with that table's reader.
TEST_F(LoadMemoryTest, FailsWithoutMemoryForTheExtraTable) {
  EXPECT_EQ(load_without_memory(7),
            magic_is_good() +
                init_says({"Malloc for upgrade package extra info failed, [exta_num * every extra "
                           "need size]:[2 * 240] ",
                           kFail}));
  expect_abandoned();
}

TEST_F(LoadMemoryTest, NeedsNoMoreThanItsParts) {
  load_without_memory(8);
  expect_loaded();
  EXPECT_EQ(device().faults().struck(), 0U);
}

}  // namespace
