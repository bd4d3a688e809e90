// SPDX-License-Identifier: Apache-2.0
//
// Finding a partition in the kernel's table: mtd_find() and is_partition_exist().
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <string>

#include "expected_lines.h"
#include "tests/support/device_test.h"
#include "upi_mtd.h"

namespace {

using sim::Op;
using support::logged;
using namespace unit;

const std::string kHeading = "dev:    size   erasesize  name\n";
const std::string kKernel5 = "mtd5: 00a00000 00020000 \"kernel\"\n";
constexpr auto kNoSuchKind = static_cast<device_type_t>(3);

class MtdTableTest : public support::DeviceTest {
 protected:
  void table(const std::string& text) { device().write_file("/proc/mtd", text); }
  // The node that mtd_find() names, or "none".
  std::string find(const std::string& name, device_type_t kind = DEVICE_MTD) {
    char path[kMtdPathSize];
    memset(path, 0xAA, sizeof path);
    logged([&] { result_ = mtd_find(name.c_str(), path, kind, sizeof path); });
    return result_ == 0 ? path : "none";
  }
  bool exists(int target, std::string name) {
    logged([&] { result_ = is_partition_exist(target, name.data()); });
    EXPECT_TRUE(result_ == 0 || result_ == -1) << result_;
    return result_ == 0;
  }
  int result_ = -2;
};

// --- mtd_find() ---------------------------------------------------------------------------------

class MtdFindTest : public MtdTableTest {};

TEST_F(MtdFindTest, NamesTheNodeOfTheKind) {
  table(kHeading + kKernel5);
  EXPECT_EQ(find("kernel", DEVICE_MTD), "/dev/mtd5");
  EXPECT_EQ(find("kernel", DEVICE_ZFTL), "/dev/zftl5");
  EXPECT_EQ(find("kernel", DEVICE_MTD_BLOCK), "/dev/mtdblock5");
}

TEST_F(MtdFindTest, SaysWhatItLooksForAndWhatItFound) {
  table(kHeading + kKernel5);
  char path[kMtdPathSize] = {};
  const Lines lines = logged([&] { mtd_find("kernel", path, DEVICE_MTD_BLOCK, sizeof path); });
  EXPECT_EQ(lines,
            said_by("mtd_find", {"partition name:kernel, type:2", "o_mtd_path=[/dev/mtdblock5]"}));
}

TEST_F(MtdFindTest, ReadsTheTableOnceAndClosesIt) {
  table(kHeading + kKernel5);
  const sim::Recording recording;
  find("kernel");
  const auto opens = recording.calls(Op::fopen, "/proc/mtd");
  ASSERT_EQ(opens.size(), 1U);
  EXPECT_EQ(opens[0].text, "r");
  EXPECT_EQ(recording.calls(Op::fclose, "/proc/mtd").size(), 1U);
}

TEST_F(MtdFindTest, ReadsTheTableAnewEachTime) {
  table(kHeading + kKernel5);
  EXPECT_EQ(find("kernel"), "/dev/mtd5");
  table(kHeading + "mtd6: 00a00000 00020000 \"kernel\"\n");
  EXPECT_EQ(find("kernel"), "/dev/mtd6");
}

TEST_F(MtdFindTest, ClearsTheWholeBuffer) {
  table(kHeading + kKernel5);
  char path[64];
  memset(path, 0x55, sizeof path);
  logged([&] { result_ = mtd_find("kernel", path, DEVICE_MTD, 60); });
  EXPECT_EQ(std::string(path, 64), std::string("/dev/mtd5") + std::string(51, '\0') + "UUUU");
}

TEST_F(MtdFindTest, CutsThePathToTheBuffer) {
  table(kHeading + kKernel5);
  char path[16];
  memset(path, 0x55, sizeof path);
  const Lines lines = logged([&] { result_ = mtd_find("kernel", path, DEVICE_MTD, 5); });
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(std::string(path, 6), std::string("/dev\0U", 6));
  EXPECT_EQ(lines.back().message, "o_mtd_path=[/dev]");
}

TEST_F(MtdFindTest, FillsABufferOfOneByteWithItsTerminator) {
  table(kHeading + kKernel5);
  char path[2] = {'U', 'U'};
  logged([&] { result_ = mtd_find("kernel", path, DEVICE_MTD, 1); });
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(std::string(path, 2), std::string("\0U", 2));
}

TEST_F(MtdFindTest, RefusesALengthOfZeroBeforeItOpensTheTable) {
  const sim::Recording recording;
  char path[] = "as it was";
  const Lines lines = logged([&] { result_ = mtd_find("kernel", path, kNoSuchKind, 0); });
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines, said_by("mtd_find", {"Input para invalid, o_mtd_path_len is NULL!"}));
  EXPECT_STREQ(path, "as it was");
  EXPECT_TRUE(recording.calls(Op::fopen, "/proc/mtd").empty());
}

TEST_F(MtdFindTest, RefusesAnUnknownKindOnlyOfAListedPartition) {
  table(kHeading + kKernel5);
  char path[kMtdPathSize];
  memset(path, 0x55, sizeof path);
  const Lines found = logged([&] { result_ = mtd_find("kernel", path, kNoSuchKind, sizeof path); });
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(found, said_by("mtd_find", {"partition name:kernel, type:3", "unknown device type 3"}));
  EXPECT_EQ(std::string(path, sizeof path), std::string(sizeof path, '\0'));

  errno = 0;
  const Lines missing = logged([&] { result_ = mtd_find("boot", path, kNoSuchKind, sizeof path); });
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(missing, said_by("mtd_find", {"partition name:boot, type:3",
                                          "Get info from mtd error:" + shown_error(0)}));
}

TEST_F(MtdFindTest, RefusesEveryKindThatIsNotOne) {
  table(kHeading + kKernel5);
  for (const int kind : {-1, 3, 4, INT_MAX, INT_MIN}) {
    char path[kMtdPathSize];
    const Lines lines = logged(
        [&] { result_ = mtd_find("kernel", path, static_cast<device_type_t>(kind), sizeof path); });
    EXPECT_EQ(result_, -1) << kind;
    EXPECT_EQ(lines.back().message, "unknown device type " + std::to_string(kind));
  }
}

TEST_F(MtdFindTest, ReportsATableThatCannotBeOpened) {
  device().faults().add({Op::fopen, "/proc/mtd", 1, EMFILE});
  char path[] = "as it was";
  const Lines lines = logged([&] { result_ = mtd_find("kernel", path, DEVICE_MTD, 10); });
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines, said_by("mtd_find", {"open file /proc/mtd error:" + shown_error(EMFILE)}));
  EXPECT_STREQ(path, "as it was");
}

TEST_F(MtdFindTest, ReportsATableThatIsMissing) {
  device().remove_file("/proc/mtd");
  char path[kMtdPathSize];
  const Lines lines = logged([&] { result_ = mtd_find("kernel", path, DEVICE_MTD, sizeof path); });
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines, said_by("mtd_find", {"open file /proc/mtd error:" + shown_error(ENOENT)}));
}

TEST_F(MtdFindTest, LeavesTheBufferAloneWhenTheNameIsNotListed) {
  table(kHeading + kKernel5);
  char path[] = "as it was";
  logged([&] { result_ = mtd_find("boot", path, DEVICE_MTD, 10); });
  EXPECT_EQ(result_, -1);
  EXPECT_STREQ(path, "as it was");
}

// errno at the end of the table is whatever it was before: nothing has failed.
TEST_F(MtdFindTest, ShowsAStaleErrorAtTheEndOfTheTable) {
  table(kHeading);
  char path[kMtdPathSize];
  const Lines lines = logged([&] {
    errno = EDOM;
    result_ = mtd_find("kernel", path, DEVICE_MTD, sizeof path);
  });
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines.back().message, "Get info from mtd error:" + shown_error(EDOM));
}

TEST_F(MtdFindTest, TakesAReadErrorForTheEndOfTheTable) {
  table(kHeading + kKernel5);
  device().faults().add({Op::stream_read, "/proc/mtd", 1, EIO});
  char path[kMtdPathSize];
  const Lines lines = logged([&] { result_ = mtd_find("kernel", path, DEVICE_MTD, sizeof path); });
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines, said_by("mtd_find", {"partition name:kernel, type:0",
                                        "Get info from mtd error:" + shown_error(EIO)}));
}

TEST_F(MtdFindTest, DoesNotMindATableThatCannotBeClosed) {
  table(kHeading + kKernel5);
  device().faults().add({Op::fclose, "/proc/mtd", 1, EIO});
  EXPECT_EQ(find("kernel"), "/dev/mtd5");
  EXPECT_EQ(device().faults().struck(), 1U);
}

// --- The table's lines --------------------------------------------------------------------------

TEST_F(MtdFindTest, ComparesWholeNames) {
  table(kHeading +
        "mtd0: 00020000 00020000 \"bootloader\"\n"
        "mtd1: 00020000 00020000 \"kernel2\"\n"
        "mtd2: 00020000 00020000 \"my data\"\n");
  EXPECT_EQ(find("boot"), "none");
  EXPECT_EQ(find("bootloader2"), "none");
  EXPECT_EQ(find("kernel"), "none");
  EXPECT_EQ(find("Kernel2"), "none");
  EXPECT_EQ(find(""), "none");
  EXPECT_EQ(find("my data"), "/dev/mtd2");
  EXPECT_EQ(find("my"), "none");
}

TEST_F(MtdFindTest, TakesTheFirstOfTwoEntries) {
  table(kHeading +
        "mtd7: 00020000 00020000 \"kernel\"\n"
        "mtd3: 00020000 00020000 \"kernel\"\n");
  EXPECT_EQ(find("kernel"), "/dev/mtd7");
}

TEST_F(MtdFindTest, NeedsNoHeadingAndNoLastLineFeed) {
  table("mtd4: 00020000 00020000 \"kernel\"");
  EXPECT_EQ(find("kernel"), "/dev/mtd4");
}

TEST_F(MtdFindTest, ReadsNumbersOfAnyLength) {
  table(kHeading + "mtd123: a00000 20000 \"kernel\"\nmtd007: 1 1 \"rootfs\"\n");
  EXPECT_EQ(find("kernel"), "/dev/mtd123");
  EXPECT_EQ(find("rootfs"), "/dev/mtd7");
}

TEST_F(MtdFindTest, PassesOverLinesWithoutAllFourValues) {
  for (const char* line :
       {"\n", "mtd: 00020000 00020000 \"kernel\"\n", "mtd1 00020000 00020000 \"kernel\"\n",
        "mtd1: 00020000 \"kernel\"\n", "mtd1: 00020000 00020000 kernel\n",
        "mtd1: xyz 00020000 \"kernel\"\n", " mtd1: 00020000 00020000 \"kernel\"\n",
        "MTD1: 00020000 00020000 \"kernel\"\n", "mtd1: 00020000 00020000 \"\"\n",
        "mtd1: 00020000 00020000\n", "#mtd1: 00020000 00020000 \"kernel\"\n"}) {
    std::string text = kHeading;
    text += line;
    text += kKernel5;
    table(text);
    EXPECT_EQ(find("kernel"), "/dev/mtd5") << line;
    EXPECT_EQ(find(""), "none") << line;
  }
}

TEST_F(MtdFindTest, EndsANameAtItsClosingQuote) {
  table(
      "mtd1: 00020000 00020000 \"kernel\n"
      "mtd2: 00020000 00020000 \"kernel\"2\"\n");
  EXPECT_EQ(find("kernel"), "/dev/mtd2");
  EXPECT_EQ(find("kernel\n"), "/dev/mtd1");
}

TEST_F(MtdFindTest, ReadsAtMost63CharactersOfAName) {
  const std::string name(63, 'n');
  table(kHeading + "mtd1: 00020000 00020000 \"" + name + "more\"\n");
  EXPECT_EQ(find(name), "/dev/mtd1");
  EXPECT_EQ(find(name + "more"), "none");
  EXPECT_EQ(find(name.substr(0, 62)), "none");
}

// A longer line is read in pieces of 127 characters; a piece counts as a line of its own.
TEST_F(MtdFindTest, ReadsAtMost127CharactersAtOnce) {
  table(std::string(127, 'x') + kKernel5);
  EXPECT_EQ(find("kernel"), "/dev/mtd5");
  table(std::string(126, 'x') + kKernel5);
  EXPECT_EQ(find("kernel"), "none");
  table(std::string(128, 'x') + kKernel5);
  EXPECT_EQ(find("kernel"), "none");
}

TEST_F(MtdFindTest, CutsALineInItsName) {
  const std::string head = "mtd1:" + std::string(100, ' ') + "20000 20000 \"";
  const std::string kept(127 - head.size(), 'n');
  table(head + kept + "rest\"\n" + kKernel5);
  EXPECT_EQ(find(kept), "/dev/mtd1");
  EXPECT_EQ(find(kept + "rest"), "none");
  EXPECT_EQ(find("kernel"), "/dev/mtd5");
}

TEST_F(MtdFindTest, FindsNothingInAnEmptyTable) {
  table("");
  EXPECT_EQ(find("kernel"), "none");
}

// --- is_partition_exist() -----------------------------------------------------------------------

class PartitionExistsTest : public MtdTableTest {};

TEST_F(PartitionExistsTest, LooksForTheNameOfTheTargetSystem) {
  table(kHeading + kKernel5);
  EXPECT_TRUE(exists(1, "kernel"));
  EXPECT_FALSE(exists(2, "kernel"));
  table(kHeading + "mtd6: 00a00000 00020000 \"kernel2\"\n");
  EXPECT_FALSE(exists(1, "kernel"));
  EXPECT_TRUE(exists(2, "kernel"));
}

TEST_F(PartitionExistsTest, TakesEveryOtherTargetForTheFirstSystem) {
  table(kHeading + kKernel5);
  for (const int target : {0, 1, -1, 3, 22, INT_MAX, INT_MIN}) {
    EXPECT_TRUE(exists(target, "kernel")) << target;
  }
}

TEST_F(PartitionExistsTest, FramesItsFinding) {
  table(kHeading + "mtd6: 00a00000 00020000 \"kernel2\"\n");
  char name[] = "kernel";
  const Lines lines = logged([&] { result_ = is_partition_exist(2, name); });
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(lines, said_by("is_partition_exist",
                           {"is_partition_exist func begin!", "Mtd :[kernel2] exist, size:10485760",
                            "is_partition_exist func end!"}));
}

TEST_F(PartitionExistsTest, ShowsTheSizeAsASignedNumber) {
  table("mtd0: 80000000 1 \"big\"\nmtd1: ffffffff 1 \"full\"\nmtd2: 00FF 1 \"upper\"\n");
  const auto size_line = [](std::string name) {
    return logged([&] { is_partition_exist(1, name.data()); }).at(1).message;
  };
  EXPECT_EQ(size_line("big"), "Mtd :[big] exist, size:-2147483648");
  EXPECT_EQ(size_line("full"), "Mtd :[full] exist, size:-1");
  EXPECT_EQ(size_line("upper"), "Mtd :[upper] exist, size:255");
}

TEST_F(PartitionExistsTest, DoesNotSayItEndsWhenNothingIsFound) {
  table(kHeading + kKernel5);
  char name[] = "boot";
  const Lines lines = logged([&] {
    errno = 0;
    result_ = is_partition_exist(1, name);
  });
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines, said_by("is_partition_exist", {"is_partition_exist func begin!",
                                                  "Get info from mtd error:" + shown_error(0)}));
}

TEST_F(PartitionExistsTest, ReportsATableThatCannotBeOpened) {
  device().faults().add({Op::fopen, "/proc/mtd", 1, EACCES});
  char name[] = "kernel";
  const Lines lines = logged([&] { result_ = is_partition_exist(1, name); });
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines, said_by("is_partition_exist", {"is_partition_exist func begin!",
                                                  "Fopen file error:" + shown_error(EACCES)}));
}

TEST_F(PartitionExistsTest, ReportsATableThatCannotBeRead) {
  device().faults().add({Op::stream_read, "/proc/mtd", 1, EIO});
  char name[] = "kernel";
  const Lines lines = logged([&] { result_ = is_partition_exist(1, name); });
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines.back().message, "Get info from mtd error:" + shown_error(EIO));
}

// A name keeps 30 characters, the digit of system B included: a table name of 30 characters
// loses its digit and means the other system's partition.
TEST_F(PartitionExistsTest, CutsNamesTo30Characters) {
  const std::string n29(29, 'n');
  const std::string n30(30, 'n');
  table("mtd1: 1000 1000 \"" + n29 + "2\"\nmtd2: 1000 1000 \"" + n30 + "\"\n");
  EXPECT_TRUE(exists(2, n29));
  EXPECT_FALSE(exists(1, n29));
  EXPECT_TRUE(exists(1, n30));
  EXPECT_TRUE(exists(2, n30));
  EXPECT_TRUE(exists(1, n30 + "x"));
  EXPECT_TRUE(exists(2, n30 + "xy"));
  EXPECT_TRUE(exists(2, n30 + std::string(100, 'z')));
}

TEST_F(PartitionExistsTest, NeverFindsALongNameThatIsListedInFull) {
  const std::string n31(31, 'n');
  table("mtd1: 1000 1000 \"" + n31 + "\"\nmtd2: 1000 1000 \"" + n31 + "2\"\n");
  EXPECT_FALSE(exists(1, n31));
  EXPECT_FALSE(exists(2, n31));
}

// The names of a package's table fill their 32 bytes without a terminator.
TEST_F(PartitionExistsTest, NeedsNoTerminatorBehind32Characters) {
  const auto name = std::make_unique<char[]>(32);
  memset(name.get(), 'n', 32);
  table("mtd1: 1000 1000 \"" + std::string(30, 'n') + "\"\n");
  for (const int target : {1, 2}) {
    logged([&] { result_ = is_partition_exist(target, name.get()); });
    EXPECT_EQ(result_, 0) << target;
  }
}

}  // namespace
