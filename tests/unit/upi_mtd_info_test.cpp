// SPDX-License-Identifier: Apache-2.0
//
// Opening a partition and reading its geometry: get_partition_mtd_info() and
// get_partition_update_info().
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>

#include "expected_lines.h"
#include "tests/support/device_test.h"
#include "upi_mtd.h"

namespace {

using sim::Op;
using support::logged;
using namespace unit;

constexpr std::uint32_t kUntouched = 0x55555555;

bool geometry_untouched(const partition_mtd_info_t& info) {
  return info.mtd_totalsize == kUntouched && info.mtd_pageperblock == kUntouched &&
         info.mtd_blocksize == kUntouched && info.mtd_pagesize == kUntouched &&
         info.mtd_oobsize == kUntouched;
}

// What mtd_find() says of a partition of the test device.
Lines found(const std::string& name, int type, const std::string& path) {
  return said_by("mtd_find", {"partition name:" + name + ", type:" + std::to_string(type),
                              "o_mtd_path=[" + path + "]"});
}

Lines not_found(const std::string& name, int error) {
  return said_by("mtd_find", {"partition name:" + name + ", type:0",
                              "Get info from mtd error:" + shown_error(error)});
}

// kernel2 of the test device: 8 blocks of 4 pages of 512 bytes.
Lines geometry_lines(const std::string& speaker, int fd) {
  return said_by(speaker, {"Mtd info:", "Mtd Blocksize:2048:", "Mtd oobsize:16:",
                           "Mtd pageperblock:4:", "Mtd pagesize:512:", "Mtd totalsize:16384:",
                           "mtd partition file description:" + std::to_string(fd)});
}

std::string bytes_of(const device_data_t& data) {
  return {reinterpret_cast<const char*>(&data), sizeof data};
}

class MtdInfoTest : public support::DeviceTest {
 protected:
  MtdInfoTest() {
    memset(&info_, 0x55, sizeof info_);
    memset(&data_, 0x55, sizeof data_);
  }
  Lines open_partition(const char* name, int type) {
    return logged([&] { result_ = get_partition_mtd_info(name, type, &info_); });
  }
  Lines open_for_update(const char* name, int type, int target = 1) {
    data_.partition_type = type;
    return logged([&] { result_ = get_partition_update_info(target, name, &data_); });
  }
  partition_mtd_info_t& update_info() { return data_.mtd_info; }

  int result_ = -2;
  partition_mtd_info_t info_;
  device_data_t data_;
};

// --- get_partition_mtd_info() -------------------------------------------------------------------

TEST_F(MtdInfoTest, FillsTheGeometry) {
  open_partition("kernel2", DEVICE_MTD);
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(info_.mtd_totalsize, 16384U);
  EXPECT_EQ(info_.mtd_pageperblock, 4U);
  EXPECT_EQ(info_.mtd_blocksize, 2048U);
  EXPECT_EQ(info_.mtd_pagesize, 512U);
  EXPECT_EQ(info_.mtd_oobsize, 16U);
  EXPECT_EQ(close(info_.parti_file_desc), 0);
}

TEST_F(MtdInfoTest, ShowsTheGeometry) {
  const Lines lines = open_partition("kernel2", DEVICE_MTD);
  EXPECT_EQ(lines, found("kernel2", 0, "/dev/mtd2") +
                       geometry_lines("get_partition_mtd_info", info_.parti_file_desc));
  EXPECT_EQ(close(info_.parti_file_desc), 0);
}

TEST_F(MtdInfoTest, OpensTheNodeForSynchronousWritesAndLeavesItOpen) {
  const sim::Recording recording;
  open_partition("kernel2", DEVICE_MTD);
  const auto opens = recording.calls(Op::open, "kernel2");
  ASSERT_EQ(opens.size(), 1U);
  EXPECT_EQ(opens[0].path, "/dev/mtd2");
  EXPECT_EQ(opens[0].flags, 0x1002);
  EXPECT_EQ(opens[0].fd, info_.parti_file_desc);
  EXPECT_EQ(recording.calls(Op::memgetinfo, "kernel2").size(), 1U);
  EXPECT_TRUE(recording.calls(Op::close, "kernel2").empty());
  EXPECT_EQ(close(info_.parti_file_desc), 0);
}

TEST_F(MtdInfoTest, TakesTheNameAsItStands) {
  const Lines lines = open_partition("kernel", DEVICE_MTD);
  EXPECT_EQ(lines.at(1).message, "o_mtd_path=[/dev/mtd1]");
  EXPECT_EQ(close(info_.parti_file_desc), 0);
}

TEST_F(MtdInfoTest, DividesBlockByPage) {
  partition("kernel").set_reported_info(sim::MtdInfo{0x00A00000, 128 * 1024, 2048, 64});
  open_partition("kernel", DEVICE_MTD);
  EXPECT_EQ(info_.mtd_pageperblock, 64U);
  EXPECT_EQ(close(info_.parti_file_desc), 0);

  partition("kernel").set_reported_info(sim::MtdInfo{4000, 1000, 300, 0});
  open_partition("kernel", DEVICE_MTD);
  EXPECT_EQ(info_.mtd_pageperblock, 3U);
  EXPECT_EQ(close(info_.parti_file_desc), 0);
}

TEST_F(MtdInfoTest, KeepsAndShowsSizesPast2GiB) {
  partition("kernel").set_reported_info(
      sim::MtdInfo{0xFFFFF800, 0x80000000, 0x80000000, 0xC0000000});
  const Lines lines = open_partition("kernel", DEVICE_MTD);
  EXPECT_EQ(info_.mtd_totalsize, 0xFFFFF800U);
  EXPECT_EQ(info_.mtd_blocksize, 0x80000000U);
  EXPECT_EQ(info_.mtd_pageperblock, 1U);
  EXPECT_EQ(only(lines, {"get_partition_mtd_info"}),
            said_by("get_partition_mtd_info",
                    {"Mtd info:", "Mtd Blocksize:-2147483648:", "Mtd oobsize:-1073741824:",
                     "Mtd pageperblock:1:", "Mtd pagesize:-2147483648:", "Mtd totalsize:-2048:",
                     "mtd partition file description:" + std::to_string(info_.parti_file_desc)}));
  EXPECT_EQ(close(info_.parti_file_desc), 0);
}

TEST_F(MtdInfoTest, DoesNotDivideByAPageSizeOfZero) {
  partition("kernel").set_reported_info(sim::MtdInfo{16384, 2048, 0, 0});
  open_partition("kernel", DEVICE_MTD);
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(info_.mtd_pageperblock, 0U);
  EXPECT_EQ(close(info_.parti_file_desc), 0);
}

TEST_F(MtdInfoTest, RefusesANullName) {
  const sim::Recording recording;
  const Lines lines = open_partition(nullptr, DEVICE_UNKNOWN);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines, said_by("get_partition_mtd_info", {"partition name =null"}));
  EXPECT_TRUE(recording.calls(Op::fopen, "/proc/mtd").empty());
}

TEST_F(MtdInfoTest, RefusesATypeThatIsNoKindOfNode) {
  for (const int type : {-1, 3, INT_MIN, INT_MAX}) {
    const Lines lines = open_partition("kernel", type);
    EXPECT_EQ(result_, -1);
    EXPECT_EQ(lines,
              said_by("get_partition_mtd_info", {"partition_type =" + std::to_string(type)}));
  }
  EXPECT_EQ(info_.parti_file_desc, static_cast<int>(kUntouched));
}

TEST_F(MtdInfoTest, ReportsAPartitionThatIsNotListed) {
  errno = 0;
  const Lines lines = open_partition("boot", DEVICE_MTD);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines, not_found("boot", 0) +
                       said_by("get_partition_mtd_info", {"Partition [boot] not found!"}));
}

TEST_F(MtdInfoTest, ReportsANodeThatCannotBeOpened) {
  device().faults().add({Op::open, "kernel2", 1, EACCES});
  const Lines lines = open_partition("kernel2", DEVICE_MTD);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines,
            found("kernel2", 0, "/dev/mtd2") +
                said_by("get_partition_mtd_info", {"Open flash error:" + shown_error(EACCES)}));
  EXPECT_EQ(info_.parti_file_desc, static_cast<int>(kUntouched));
  EXPECT_TRUE(geometry_untouched(info_));
}

TEST_F(MtdInfoTest, RefusesOtherKindsAfterItOpenedAndClosedTheirNode) {
  const std::string nodes[] = {"/dev/mtd2", "/dev/zftl2", "/dev/mtdblock2"};
  for (const int type : {1, 2}) {
    const sim::Recording recording;
    const Lines lines = open_partition("kernel2", type);
    EXPECT_EQ(result_, -1);
    EXPECT_EQ(lines, found("kernel2", type, nodes[type]) +
                         said_by("get_partition_mtd_info",
                                 {"Partition [kernel2] type:" + std::to_string(type) +
                                  ", could not update!"}));
    const auto opens = recording.calls(Op::open, nodes[type]);
    ASSERT_EQ(opens.size(), 1U);
    EXPECT_EQ(opens[0].flags, 0x1002);
    EXPECT_EQ(recording.calls(Op::close, nodes[type]).size(), 1U);
    EXPECT_EQ(info_.parti_file_desc, opens[0].fd);
    EXPECT_TRUE(geometry_untouched(info_));
  }
}

TEST_F(MtdInfoTest, ReportsANodeOfAnotherKindThatCannotBeClosed) {
  device().faults().add({Op::close, "/dev/zftl2", 1, EIO});
  const Lines lines = open_partition("kernel2", DEVICE_ZFTL);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(only(lines, {"get_partition_mtd_info"}),
            said_by("get_partition_mtd_info", {"Partition [kernel2] type:1, could not update!",
                                               "Close file error, error:Input/output error"}));
}

TEST_F(MtdInfoTest, ReportsAGeometryThatCannotBeRead) {
  device().faults().add({Op::memgetinfo, "kernel2", 1, ENODEV});
  const sim::Recording recording;
  const Lines lines = open_partition("kernel2", DEVICE_MTD);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines,
            found("kernel2", 0, "/dev/mtd2") +
                said_by("get_partition_mtd_info", {"Get flash info error:" + shown_error(ENODEV)}));
  EXPECT_EQ(recording.calls(Op::close, "kernel2").size(), 1U);
  EXPECT_TRUE(geometry_untouched(info_));
}

TEST_F(MtdInfoTest, ReportsANodeThatCannotBeClosedEither) {
  device().faults().add({Op::memgetinfo, "kernel2", 1, ENODEV});
  device().faults().add({Op::close, "kernel2", 1, EIO});
  const Lines lines = open_partition("kernel2", DEVICE_MTD);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(only(lines, {"get_partition_mtd_info"}),
            said_by("get_partition_mtd_info", {"Get flash info error:" + shown_error(ENODEV),
                                               "Close file error, error:Input/output error"}));
}

// --- get_partition_update_info() ----------------------------------------------------------------

TEST_F(MtdInfoTest, UpdateInfoFillsTheGeometryOfTheWorkRecord) {
  const Lines lines = open_for_update("kernel2", DEVICE_MTD);
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(update_info().mtd_totalsize, 16384U);
  EXPECT_EQ(update_info().mtd_pageperblock, 4U);
  EXPECT_EQ(update_info().mtd_blocksize, 2048U);
  EXPECT_EQ(update_info().mtd_pagesize, 512U);
  EXPECT_EQ(update_info().mtd_oobsize, 16U);
  EXPECT_EQ(lines, found("kernel2", 0, "/dev/mtd2") +
                       geometry_lines("get_partition_update_info", update_info().parti_file_desc));
  EXPECT_EQ(close(update_info().parti_file_desc), 0);
}

TEST_F(MtdInfoTest, UpdateInfoChangesNothingElseOfTheWorkRecord) {
  device_data_t before = data_;
  open_for_update("kernel2", DEVICE_MTD);
  EXPECT_EQ(close(update_info().parti_file_desc), 0);
  data_.mtd_info = before.mtd_info;
  before.partition_type = DEVICE_MTD;
  EXPECT_EQ(bytes_of(data_), bytes_of(before));
}

TEST_F(MtdInfoTest, UpdateInfoDoesNotUseItsTarget) {
  for (const int target : {1, 2, -1}) {
    const sim::Recording recording;
    open_for_update("kernel", DEVICE_MTD, target);
    EXPECT_EQ(result_, 0);
    const auto opens = recording.calls(Op::open, "/dev/mtd1");
    ASSERT_EQ(opens.size(), 1U) << target;
    EXPECT_EQ(opens[0].flags, 0x1002);
    EXPECT_EQ(close(update_info().parti_file_desc), 0);
  }
}

TEST_F(MtdInfoTest, UpdateInfoOpensOtherKindsWithoutTheirGeometry) {
  const std::string nodes[] = {"/dev/mtd2", "/dev/zftl2", "/dev/mtdblock2"};
  for (const int type : {1, 2}) {
    const sim::Recording recording;
    const Lines lines = open_for_update("kernel2", type);
    EXPECT_EQ(result_, 0);
    EXPECT_EQ(lines, found("kernel2", type, nodes[type]));
    const auto opens = recording.calls(Op::open, nodes[type]);
    ASSERT_EQ(opens.size(), 1U);
    EXPECT_EQ(opens[0].flags, 0x1002);
    EXPECT_EQ(update_info().parti_file_desc, opens[0].fd);
    EXPECT_TRUE(recording.calls(Op::memgetinfo).empty());
    EXPECT_TRUE(recording.calls(Op::close, nodes[type]).empty());
    EXPECT_TRUE(geometry_untouched(update_info()));
    EXPECT_EQ(close(update_info().parti_file_desc), 0);
  }
}

TEST_F(MtdInfoTest, UpdateInfoRefusesANullName) {
  const Lines lines = open_for_update(nullptr, 9);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines, said_by("get_partition_update_info", {"partition name =null"}));
}

TEST_F(MtdInfoTest, UpdateInfoRefusesATypeThatIsNoKindOfNode) {
  for (const int type : {-1, 3, INT_MIN, INT_MAX}) {
    const Lines lines = open_for_update("kernel", type);
    EXPECT_EQ(result_, -1);
    EXPECT_EQ(lines,
              said_by("get_partition_update_info", {"partition_type =" + std::to_string(type)}));
  }
}

TEST_F(MtdInfoTest, UpdateInfoReportsAPartitionThatIsNotListed) {
  errno = 0;
  const Lines lines = open_for_update("boot", DEVICE_MTD);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines, not_found("boot", 0) +
                       said_by("get_partition_update_info", {"partition name is not find"}));
}

TEST_F(MtdInfoTest, UpdateInfoReportsANodeThatCannotBeOpened) {
  device().faults().add({Op::open, "kernel2", 1, ENXIO});
  const Lines lines = open_for_update("kernel2", DEVICE_MTD);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines.back().message, "Open flash error:" + shown_error(ENXIO));
  EXPECT_EQ(lines.back().function, "get_partition_update_info");
  EXPECT_EQ(update_info().parti_file_desc, static_cast<int>(kUntouched));
}

TEST_F(MtdInfoTest, UpdateInfoReportsAGeometryThatCannotBeRead) {
  device().faults().add({Op::memgetinfo, "kernel2", 1, ENODEV});
  const sim::Recording recording;
  const Lines lines = open_for_update("kernel2", DEVICE_MTD);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines, found("kernel2", 0, "/dev/mtd2") +
                       said_by("get_partition_update_info",
                               {"Get flash info error:" + shown_error(ENODEV)}));
  EXPECT_EQ(recording.calls(Op::close, "kernel2").size(), 1U);
  EXPECT_TRUE(geometry_untouched(update_info()));
}

TEST_F(MtdInfoTest, UpdateInfoReportsANodeThatCannotBeClosedEither) {
  device().faults().add({Op::memgetinfo, "kernel2", 1, ENODEV});
  device().faults().add({Op::close, "kernel2", 1, EIO});
  const Lines lines = open_for_update("kernel2", DEVICE_MTD);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(only(lines, {"get_partition_update_info"}),
            said_by("get_partition_update_info", {"Get flash info error:" + shown_error(ENODEV),
                                                  "Close file error, error:" + shown_error(EIO)}));
}

TEST_F(MtdInfoTest, UpdateInfoDoesNotDivideByAPageSizeOfZero) {
  partition("kernel").set_reported_info(sim::MtdInfo{16384, 2048, 0, 0});
  open_for_update("kernel", DEVICE_MTD);
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(update_info().mtd_pageperblock, 0U);
  EXPECT_EQ(close(update_info().parti_file_desc), 0);
}

}  // namespace
