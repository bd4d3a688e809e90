// SPDX-License-Identifier: Apache-2.0
//
// Loading a package: which partitions it may carry.
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "package_test.h"
#include "upi_public.h"

namespace {

using sim::Op;
using support::logged;
using support::PackageFile;
using namespace unit;

const std::string kTable = "/etc_ro/systemPartitionInfo.conf";

// The test device's table: platform kernel and rootfs, OEM oemdata.
class UpgradeTypeTest : public PackageTest {
 protected:
  Lines load_names(std::int32_t type, const std::vector<std::string>& names) {
    PackageFile package;
    package.upgrade_type = type;
    for (const std::string& name : names) {
      package.partitions.push_back({name, support::pattern(10)});
    }
    return loader_lines(load(package));
  }
  void expect_good(std::int32_t type, const std::vector<std::string>& names) {
    load_names(type, names);
    expect_loaded();
    deinit_upgrade_package_info();
  }
  void expect_bad(std::int32_t type, const std::vector<std::string>& names,
                  const std::string& why) {
    EXPECT_EQ(load_names(type, names), invalid(why));
    expect_refused();
  }
  static Lines invalid(const std::string& why) {
    return magic_is_good() + said_by("is_upgrade_type_valid", {why}) +
           init_says({"Upgrade type invalid", kFail});
  }
};

// --- Type 0: every partition of a system ---------------------------------------------------------

TEST_F(UpgradeTypeTest, TakesEveryPartitionInTheTablesOrder) {
  expect_good(0, {"kernel", "rootfs", "oemdata"});
}

TEST_F(UpgradeTypeTest, RefusesAnotherNumberOfPartitions) {
  const std::string why =
      "upgrade_type: 0, upgrade package partition num is different from system partition num";
  expect_bad(0, {"kernel"}, why);
  expect_bad(0, {"kernel", "rootfs"}, why);
  expect_bad(0, {"kernel", "rootfs", "oemdata", "oemdata"}, why);
}

TEST_F(UpgradeTypeTest, RefusesAnotherOrder) {
  const auto why = [](const std::string& entry, const std::string& system) {
    return "upgrade_type: 0, upgrade package partition [" + entry +
           "] is different from system partition [" + system + "]";
  };
  expect_bad(0, {"rootfs", "kernel", "oemdata"}, why("rootfs", "kernel"));
  expect_bad(0, {"kernel", "oemdata", "rootfs"}, why("oemdata", "rootfs"));
  expect_bad(0, {"kernel", "rootfs", "kernel"}, why("kernel", "oemdata"));
  expect_bad(0, {"kernel", "rootfs", "oemdata2"}, why("oemdata2", "oemdata"));
  expect_bad(0, {"kerne", "rootfs", "oemdata"}, why("kerne", "kernel"));
  expect_bad(0, {"", "rootfs", "oemdata"}, why("", "kernel"));
}

// --- Types 1 and 2: some partitions of a list ---------------------------------------------------

TEST_F(UpgradeTypeTest, TakesPlatformPartitionsInAnyOrder) {
  expect_good(1, {"kernel"});
  expect_good(1, {"rootfs", "kernel"});
  expect_good(1, {"rootfs", "rootfs", "kernel", "kernel"});
}

TEST_F(UpgradeTypeTest, RefusesOthersThanPlatformPartitions) {
  expect_bad(1, {"kernel", "oemdata"},
             "upgrade_type: 1, upgrade package partition [oemdata] do not exist");
  expect_bad(1, {"nope", "kernel", "oemdata"},
             "upgrade_type: 1, upgrade package partition [nope] do not exist");
  expect_bad(1, {"kernel2"}, "upgrade_type: 1, upgrade package partition [kernel2] do not exist");
}

TEST_F(UpgradeTypeTest, TakesOemPartitionsAlone) {
  expect_good(2, {"oemdata"});
  expect_good(2, {"oemdata", "oemdata"});
  expect_bad(2, {"oemdata", "kernel"},
             "upgrade_type: 2, upgrade package partition [kernel] do not exist");
}

TEST_F(UpgradeTypeTest, RefusesEveryEntryOfAnEmptyList) {
  sim::Layout layout = sim::test_layout();
  layout.platform.clear();
  layout.oem.clear();
  use(layout);
  expect_bad(1, {"kernel"}, "upgrade_type: 1, upgrade package partition [kernel] do not exist");
  expect_bad(2, {"oemdata"}, "upgrade_type: 2, upgrade package partition [oemdata] do not exist");
}

TEST_F(UpgradeTypeTest, TakesASystemWithOneKindOfPartitionsOnly) {
  sim::Layout layout = sim::test_layout();
  layout.oem.clear();
  use(layout);
  expect_good(0, {"kernel", "rootfs"});
  layout.oem = {{"oemdata"}};
  layout.platform.clear();
  use(layout);
  expect_good(0, {"oemdata"});
}

TEST_F(UpgradeTypeTest, RefusesAnyOtherType) {
  for (const std::int32_t type : {3, 9, -1, INT_MAX, INT_MIN}) {
    expect_bad(type, {"kernel", "rootfs", "oemdata"}, "upgrade type is unkown");
  }
}

// --- Names that fill their field ----------------------------------------------------------------

// A table name has at most 31 characters, so a package name of 32 is none of the table's.
TEST_F(UpgradeTypeTest, ComparesAll32BytesOfAName) {
  const std::string n31(31, 'n');
  sim::Layout layout = sim::test_layout();
  layout.platform = {{n31}};
  layout.oem.clear();
  layout.partitions.push_back({n31, 1, {}});
  use(layout);
  expect_good(1, {n31});
  expect_good(0, {n31});
  // A length of 10, and the name runs on into it.
  expect_bad(1, {n31 + "n"},
             "upgrade_type: 1, upgrade package partition [" + n31 + "n\n] do not exist");
  expect_bad(0, {n31 + "n"},
             "upgrade_type: 0, upgrade package partition [" + n31 +
                 "n\n] is different from system partition [" + n31 + "]");
}

// --- The system's table -------------------------------------------------------------------------

TEST_F(UpgradeTypeTest, RefusesWithoutTheSystemsTable) {
  device().remove_file(kTable);
  const Lines lines = load_names(1, {"kernel"});
  EXPECT_EQ(without(lines, {"upi_init_system_partition_info"}),
            invalid("init system partition info fail"));
  EXPECT_EQ(only(lines, {"upi_init_system_partition_info"}),
            said_by("upi_init_system_partition_info", {"fail to open file (" + kTable + ")"}));
  expect_refused();
}

// The table's own reader refuses it before the package could be let through.
TEST_F(UpgradeTypeTest, RefusesATableOfEightPartitions) {
  sim::Layout layout = sim::test_layout();
  layout.platform.assign(7, {"kernel"});
  device().write_file(kTable, sim::table_text(layout));
  expect_good(1, {"kernel"});
  layout.platform.assign(8, {"kernel"});
  device().write_file(kTable, sim::table_text(layout));
  const Lines lines = load_names(1, {"kernel"});
  EXPECT_EQ(without(lines, {"upi_init_system_partition_info"}),
            invalid("init system partition info fail"));
  EXPECT_EQ(only(lines, {"upi_init_system_partition_info"}),
            said_by("upi_init_system_partition_info", {"plat_partition_num invalid"}));
  expect_refused();
}

TEST_F(UpgradeTypeTest, TakesTablesOfSevenPartitions) {
  for (std::size_t count = 1; count <= 7; ++count) {
    sim::Layout layout = sim::test_layout();
    layout.platform.assign(count, {"kernel"});
    layout.oem.assign(count, {"oemdata"});
    device().write_file(kTable, sim::table_text(layout));
    std::vector<std::string> names(count, "kernel");
    names.resize(2 * count, "oemdata");
    expect_good(0, names);
  }
}

TEST_F(UpgradeTypeTest, ReadsTheTableOncePerLoad) {
  const sim::Recording recording;
  expect_good(1, {"kernel", "rootfs"});
  EXPECT_EQ(recording.calls(Op::fopen, kTable).size(), 1U);
  EXPECT_EQ(recording.calls(Op::fclose, kTable).size(), 1U);
}

TEST_F(UpgradeTypeTest, ReportsAFileThatCannotBeClosedEither) {
  device().faults().add({Op::close, kPath, 1, EIO});
  EXPECT_EQ(
      load_names(9, {"kernel"}),
      magic_is_good() + said_by("is_upgrade_type_valid", {"upgrade type is unkown"}) +
          init_says({"Upgrade type invalid",
                     "Close upgrade package file [" + kPath + "] error, error: " + shown_error(EIO),
                     kFail}));
  expect_refused();
}

TEST_F(UpgradeTypeTest, ClosesTheFileOnce) {
  const sim::Recording recording;
  load_names(9, {"kernel"});
  EXPECT_EQ(recording.calls(Op::close, kPath).size(), 1U);
  expect_refused();
}

// --- The search in a list -----------------------------------------------------------------------

TEST_F(UpgradeTypeTest, SearchesTheWholeList) {
  partition_head_info_t entry{};
  std::strcpy(entry.name, "kernel");
  const platform_partition_info_t list[] = {{"a", 0, 0}, {"b", 0, 0}, {"kernel", 0, 0}};
  EXPECT_EQ(is_partition_exist_system(&entry, list, 3), 0);
  EXPECT_NE(is_partition_exist_system(&entry, list, 2), 0);
  EXPECT_NE(is_partition_exist_system(&entry, nullptr, 0), 0);
}

TEST_F(UpgradeTypeTest, SearchComparesNoMoreThan32Bytes) {
  partition_head_info_t entry{};
  platform_partition_info_t list[1] = {};
  std::memset(entry.name, 'n', sizeof entry.name);
  std::memset(list[0].name, 'n', sizeof list[0].name);
  entry.len = 0x41414141;
  list[0].system_type = 0x42424242;
  EXPECT_EQ(is_partition_exist_system(&entry, list, 1), 0);
  list[0].name[31] = 'm';
  EXPECT_NE(is_partition_exist_system(&entry, list, 1), 0);
}

}  // namespace
