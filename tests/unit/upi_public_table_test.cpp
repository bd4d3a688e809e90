// SPDX-License-Identifier: Apache-2.0
//
// The system partition table file.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/device_test.h"
#include "upi_public.h"

namespace {

using support::logged;
using support::LogLine;
using Lines = std::vector<LogLine>;

constexpr char kTable[] = "/etc_ro/systemPartitionInfo.conf";

LogLine said(const std::string& message) {
  return {"upi_init_system_partition_info", message};
}
LogLine shown(const std::string& message) {
  return {"show_system_partition_info", message};
}

std::string entry(const std::string& name, int system_type = 0, int partition_type = 0) {
  return "name=" + name + "\nsystem_type=" + std::to_string(system_type) +
         "\npartition_type=" + std::to_string(partition_type) + "\n";
}

std::string head(const std::string& platform_count, const std::string& oem_count,
                 const std::string& plat = "0", const std::string& magic = "SUPI") {
  return "[Head]\nmagic=" + magic + "\nplat=" + plat + "\nplat_partition_num=" + platform_count +
         "\noem_partition_num=" + oem_count + "\n";
}

const std::string kPlatform = "[Platform_Partition_Info]\n";
const std::string kOem = "[Oem_Partition_Info]\n";

std::string table(const std::string& plat = "0", const std::string& magic = "SUPI") {
  return head("2", "1", plat, magic) + kPlatform + entry("kernel") + entry("rootfs", 1) + kOem +
         entry("oemdata", 0, 2);
}

// `count` entries named after `prefix`.
std::string entries(const std::string& prefix, int count) {
  std::string out;
  for (int i = 0; i < count; ++i) {
    out += entry(prefix + std::to_string(i), i, i % 3);
  }
  return out;
}

std::string table_of(int platform, int oem) {
  return head(std::to_string(platform), std::to_string(oem)) + kPlatform +
         entries("plat", platform) + kOem + entries("oem", oem);
}

std::string one_platform_entry(const std::string& name) {
  return head("1", "0") + kPlatform + entry(name) + kOem;
}

std::string one_oem_entry(const std::string& name) {
  return head("0", "1") + kPlatform + kOem + entry(name);
}

class TableTest : public support::DeviceTest {
 protected:
  ~TableTest() override { upi_deinit_system_partition_info(record_); }

  // Reads the table file with this content into a fresh record.
  int read(const std::string& content) {
    device().write_file(kTable, content);
    return read();
  }
  int read() {
    upi_deinit_system_partition_info(record_);
    record_ = static_cast<system_upgrade_partition_info_t*>(std::calloc(1, sizeof *record_));
    int result = -7;
    lines_ = logged([&] { result = upi_init_system_partition_info(record_); });
    return result;
  }
  // Expects that the file is refused with this one line.
  void refused(const std::string& content, const std::string& message) {
    EXPECT_EQ(read(content), -1) << content;
    EXPECT_EQ(lines_, (Lines{said(message)})) << content;
  }
  const Lines& lines() const { return lines_; }
  const system_upgrade_partition_info_t& record() const { return *record_; }

 private:
  system_upgrade_partition_info_t* record_ = nullptr;
  Lines lines_;
};

TEST(TableRecord, HasItsLayout) {
  EXPECT_EQ(offsetof(system_partition_info_head_t, magic), 0U);
  EXPECT_EQ(offsetof(system_partition_info_head_t, plat), 4U);
  EXPECT_EQ(offsetof(system_partition_info_head_t, plat_partition_num), 8U);
  EXPECT_EQ(offsetof(system_partition_info_head_t, oem_partition_num), 12U);
  EXPECT_EQ(offsetof(platform_partition_info_t, name), 0U);
  EXPECT_EQ(offsetof(platform_partition_info_t, system_type), 32U);
  EXPECT_EQ(offsetof(platform_partition_info_t, partition_type), 36U);
  EXPECT_EQ(offsetof(oem_partition_info_t, name), 0U);
  EXPECT_EQ(offsetof(oem_partition_info_t, system_type), 32U);
  EXPECT_EQ(offsetof(oem_partition_info_t, partition_type), 36U);
  EXPECT_EQ(offsetof(system_upgrade_partition_info_t, system_partition_info_head), 0U);
  EXPECT_EQ(offsetof(system_upgrade_partition_info_t, platform_partition_info), 16U);
  EXPECT_EQ(offsetof(system_upgrade_partition_info_t, oem_partition_info), 16U + sizeof(void*));
}

// --- Tables that are accepted. ------------------------------------------------------------------

TEST_F(TableTest, ReadsTheWholeTable) {
  ASSERT_EQ(read(table()), 0);
  EXPECT_EQ(std::string(record().system_partition_info_head.magic, 4), "SUPI");
  EXPECT_EQ(record().system_partition_info_head.plat, 0);
  EXPECT_EQ(record().system_partition_info_head.plat_partition_num, 2);
  EXPECT_EQ(record().system_partition_info_head.oem_partition_num, 1);
  EXPECT_STREQ(record().platform_partition_info[0].name, "kernel");
  EXPECT_EQ(record().platform_partition_info[0].system_type, 0);
  EXPECT_EQ(record().platform_partition_info[0].partition_type, 0);
  EXPECT_STREQ(record().platform_partition_info[1].name, "rootfs");
  EXPECT_EQ(record().platform_partition_info[1].system_type, 1);
  EXPECT_STREQ(record().oem_partition_info[0].name, "oemdata");
  EXPECT_EQ(record().oem_partition_info[0].partition_type, 2);
}

TEST_F(TableTest, ShowsTheWholeTable) {
  ASSERT_EQ(read(table()), 0);
  EXPECT_EQ(lines(),
            (Lines{shown("Show System Partition Info:"),
                   shown("------- system partition info: Head -------"), shown("magic: SUPI"),
                   shown("plat: 0"), shown("plat_partition_num: 2"), shown("oem_partition_num: 1"),
                   shown("------- system partition info: Platform Partition Info -------"),
                   shown("name: kernel"), shown("system_type: 0"), shown("partition_type: 0"),
                   shown("name: rootfs"), shown("system_type: 1"), shown("partition_type: 0"),
                   shown("------- system partition info: Oem Partition Info -------"),
                   shown("name: oemdata"), shown("system_type: 0"), shown("partition_type: 2")}));
}

TEST_F(TableTest, ShowsNullLists) {
  system_upgrade_partition_info_t bare{};
  bare.system_partition_info_head = {{'S', 'U', 'P', 'I'}, 512, 0, 0};
  EXPECT_EQ(
      logged([&] { show_system_partition_info(&bare); }),
      (Lines{shown("Show System Partition Info:"),
             shown("------- system partition info: Head -------"), shown("magic: SUPI"),
             shown("plat: 512"), shown("plat_partition_num: 0"), shown("oem_partition_num: 0"),
             shown("------- platform partition info is NULL -------"),
             shown("------- oem partition info is NULL -------")}));
}

// A magic that fills its field is shown with the bytes behind it, as a string is.
TEST_F(TableTest, ShowsAMagicWithWhatFollowsIt) {
  system_upgrade_partition_info_t bare{};
  bare.system_partition_info_head = {{'S', 'U', 'P', 'I'}, 0x4241, 0, 0};
  EXPECT_EQ(logged([&] { show_system_partition_info(&bare); }).at(2), shown("magic: SUPIAB"));
}

TEST_F(TableTest, TakesEveryCountUpTo7) {
  for (int platform = 0; platform <= 7; ++platform) {
    for (const int oem : {0, 1, 7}) {
      ASSERT_EQ(read(table_of(platform, oem)), 0) << platform << ' ' << oem;
      EXPECT_EQ(record().system_partition_info_head.plat_partition_num, platform);
      EXPECT_EQ(record().system_partition_info_head.oem_partition_num, oem);
      for (int i = 0; i < platform; ++i) {
        EXPECT_EQ(record().platform_partition_info[i].name, "plat" + std::to_string(i));
        EXPECT_EQ(record().platform_partition_info[i].system_type, i);
        EXPECT_EQ(record().platform_partition_info[i].partition_type, i % 3);
      }
      for (int i = 0; i < oem; ++i) {
        EXPECT_EQ(record().oem_partition_info[i].name, "oem" + std::to_string(i));
      }
    }
  }
}

TEST_F(TableTest, TakesAnyPlatWhoseLowestByteIsZero) {
  for (const char* const plat : {"256", "65536", "-256", "+512"}) {
    ASSERT_EQ(read(table(plat)), 0) << plat;
    EXPECT_EQ(record().system_partition_info_head.plat, std::atoi(plat));
  }
}

TEST_F(TableTest, TakesWhiteSpaceBetweenItems) {
  std::string content;
  for (const char c : table()) {
    content += c == '\n' ? " \r\n\n\t " : std::string(1, c);
  }
  EXPECT_EQ(read(content), 0);
  EXPECT_STREQ(record().oem_partition_info[0].name, "oemdata");
}

TEST_F(TableTest, TakesItemsWithoutAnythingBetweenThem) {
  EXPECT_EQ(read("[Head]magic=SUPI plat=0plat_partition_num=1oem_partition_num=0"
                 "[Platform_Partition_Info]name=kernel system_type=0partition_type=0"
                 "[Oem_Partition_Info]"),
            0);
  EXPECT_STREQ(record().platform_partition_info[0].name, "kernel");
}

TEST_F(TableTest, IgnoresWhatFollowsTheLastEntry) {
  EXPECT_EQ(read(table() + "name=more\n[Anything]\n"), 0);
  EXPECT_EQ(record().system_partition_info_head.oem_partition_num, 1);
}

TEST_F(TableTest, TakesNamesOf31Characters) {
  const std::string name(31, 'n');
  ASSERT_EQ(read(head("1", "1") + kPlatform + entry(name) + kOem + entry(name)), 0);
  EXPECT_EQ(record().platform_partition_info[0].name, name);
  EXPECT_EQ(record().oem_partition_info[0].name, name);
}

TEST_F(TableTest, TakesAnyPartitionType) {
  ASSERT_EQ(read(head("1", "0") + kPlatform + entry("kernel", -5, 9) + kOem), 0);
  EXPECT_EQ(record().platform_partition_info[0].system_type, -5);
  EXPECT_EQ(record().platform_partition_info[0].partition_type, 9);
}

// A section line is not compared: only what stands where an item should be is noticed.
TEST_F(TableTest, TakesMissingSectionLines) {
  EXPECT_EQ(read("magic=SUPI\nplat=0\nplat_partition_num=1\noem_partition_num=1\n" +
                 entry("kernel") + entry("oemdata")),
            0);
  EXPECT_STREQ(record().platform_partition_info[0].name, "kernel");
  EXPECT_STREQ(record().oem_partition_info[0].name, "oemdata");
}

TEST_F(TableTest, TakesAMisspeltSectionLineBeforeEmptyLists) {
  EXPECT_EQ(read(head("0", "0") + "[Platform_Partition]\n" + kOem), 0);
}

// --- The file. ----------------------------------------------------------------------------------

TEST_F(TableTest, NullRecordIsRefusedBeforeTheFileIsOpened) {
  const sim::Recording recording;
  const Lines lines = logged([] { EXPECT_EQ(upi_init_system_partition_info(nullptr), -1); });
  EXPECT_EQ(lines, (Lines{said("system partition info is NULL")}));
  EXPECT_TRUE(recording.calls(sim::Op::fopen, kTable).empty());
}

TEST_F(TableTest, MissingFileIsTold) {
  device().remove_file(kTable);
  EXPECT_EQ(read(), -1);
  EXPECT_EQ(lines(), (Lines{said("fail to open file (/etc_ro/systemPartitionInfo.conf)")}));
}

TEST_F(TableTest, FileIsOpenedOnceAndClosed) {
  device().write_file(kTable, table());
  const sim::Recording recording;
  EXPECT_EQ(read(), 0);
  const auto opened = recording.calls(sim::Op::fopen, kTable);
  ASSERT_EQ(opened.size(), 1U);
  EXPECT_EQ(opened[0].text, "rb");
  EXPECT_EQ(recording.calls(sim::Op::fclose, kTable).size(), 1U);
}

TEST_F(TableTest, FailingCloseFailsAGoodTable) {
  device().write_file(kTable, table());
  device().faults().add({sim::Op::fclose, kTable, 1, EIO});
  EXPECT_EQ(read(), -1);
  ASSERT_EQ(lines().size(), 18U);
  EXPECT_EQ(lines().at(16), shown("partition_type: 2"));
  EXPECT_EQ(lines().back(),
            said("close system partition info file fail, errno=5 [Input/output error]"));
  EXPECT_STREQ(record().oem_partition_info[0].name, "oemdata");
}

TEST_F(TableTest, FailingCloseIsToldAfterAnotherFailureToo) {
  device().faults().add({sim::Op::fclose, kTable, 1, EIO});
  EXPECT_EQ(read(""), -1);
  EXPECT_EQ(lines(),
            (Lines{said("Read [Head] fail"),
                   said("close system partition info file fail, errno=5 [Input/output error]")}));
}

TEST_F(TableTest, FailureClosesTheFile) {
  const sim::Recording recording;
  read(table("1"));
  EXPECT_EQ(recording.calls(sim::Op::fclose, kTable).size(), 1U);
}

TEST_F(TableTest, ReadErrorCountsAsTheEndOfTheInput) {
  device().faults().add({sim::Op::stream_read, kTable, 1, EIO, true});
  refused(table(), "Read [Head] fail");
}

// --- Head. --------------------------------------------------------------------------------------

TEST_F(TableTest, EmptyFileHasNoHead) {
  refused("", "Read [Head] fail");
}

TEST_F(TableTest, HeadLineAloneHasNoHeadInfo) {
  refused("[Head]", "Read [Head Info] fail");
  refused("[Head]\n", "Read [Head Info] fail");
}

TEST_F(TableTest, HeadInfoMustBeComplete) {
  const std::string whole = head("2", "1");
  const char* const keys[] = {"magic", "plat=", "plat_partition_num", "oem_partition_num"};
  for (const char* const key : keys) {
    refused(whole.substr(0, whole.find(key)), "Read [Head Info] fail");
  }
  refused("[Head]\nplat=0\nmagic=SUPI\nplat_partition_num=0\noem_partition_num=0\n",
          "Read [Head Info] fail");
  refused(head("x", "1"), "Read [Head Info] fail");
}

TEST_F(TableTest, MisspeltHeadLineIsNoticedByTheHeadInfo) {
  std::string content = table();
  content.replace(0, 6, "[Haed]");
  refused(content, "Read [Head Info] fail");
  content.replace(0, 6, "[head]");
  refused(content, "Read [Head Info] fail");
}

TEST_F(TableTest, NothingMayStandBeforeTheHeadLine) {
  refused("\n" + table(), "Read [Head Info] fail");
  refused("# a comment\n" + table(), "Read [Head Info] fail");
}

TEST_F(TableTest, BlankBeforeTheEqualsSignIsRefused) {
  std::string content = table();
  content.replace(content.find("magic="), 6, "magic =");
  refused(content, "Read [Head Info] fail");
}

TEST_F(TableTest, MagicAndPlatTogetherMustMakeFourCharacters) {
  refused(table("1"), "magic len invalid");
  refused(table("255"), "magic len invalid");
  refused(table("257"), "magic len invalid");
  refused(table("-1"), "magic len invalid");
  refused(table("0", "SUP"), "magic len invalid");
  refused(table("0", "S"), "magic len invalid");
  refused(table("16843009"), "magic len invalid");
}

TEST_F(TableTest, NumbersAreDecimal) {
  refused(table("0400"), "magic len invalid");
  refused(table("0x100"), "Read [Head Info] fail");
  ASSERT_EQ(read(table("00256")), 0);
  EXPECT_EQ(record().system_partition_info_head.plat, 256);
}

TEST_F(TableTest, LongMagicStopsTheHead) {
  refused(table("0", "SUPIX"), "Read [Head Info] fail");
}

TEST_F(TableTest, OtherMagicIsTold) {
  refused(table("0", "SUPX"), "fail system partition info magic word invalid: SUPX");
  refused(table("256", "supi"), "fail system partition info magic word invalid: supi");
}

TEST_F(TableTest, CountsAbove7AndBelow0AreRefused) {
  const std::string rest = kPlatform + entries("plat", 8) + kOem + entries("oem", 8);
  for (const char* const count : {"8", "-1", "2147483647", "-2147483648"}) {
    refused(head(count, "1") + rest, "plat_partition_num invalid");
    refused(head("1", count) + rest, "oem_partition_num invalid");
    refused(head(count, count) + rest, "plat_partition_num invalid");
  }
}

TEST_F(TableTest, MagicIsLookedAtBeforeTheCounts) {
  refused(head("8", "8", "0", "SUPX"), "fail system partition info magic word invalid: SUPX");
  refused(head("8", "8", "1"), "magic len invalid");
}

// --- Sections. ----------------------------------------------------------------------------------

TEST_F(TableTest, InputThatEndsBeforeASectionLineIsTold) {
  refused(head("0", "0"), "Read [Platform_Partition_Info] fail");
  refused(head("0", "0") + kPlatform, "Read [Oem_Partition_Info] fail");
  refused(head("1", "0") + kPlatform + entry("kernel"), "Read [Oem_Partition_Info] fail");
}

TEST_F(TableTest, MisspeltPlatformLineIsNoticedByTheEntries) {
  refused(head("1", "0") + "[Platform_Partition]\n" + entry("kernel") + kOem,
          "Read Platform_Partition_Info fail");
}

TEST_F(TableTest, MisspeltPlatformLineWithoutEntriesIsNoticedByTheOemEntries) {
  refused(head("0", "1") + "[Platform_Partition]\n" + kOem + entry("oemdata"),
          "Read Oem_Partition_Info fail");
}

TEST_F(TableTest, MisspeltOemLineIsNoticedByTheEntries) {
  refused(head("0", "1") + kPlatform + "[OEM_Partition_Info]\n" + entry("oemdata"),
          "Read Oem_Partition_Info fail");
}

TEST_F(TableTest, FewerEntriesThanAnnouncedAreRefused) {
  refused(head("3", "1") + kPlatform + entries("plat", 2) + kOem + entries("oem", 1),
          "Read Platform_Partition_Info fail");
  refused(head("2", "2") + kPlatform + entries("plat", 2) + kOem + entries("oem", 1),
          "Read Oem_Partition_Info fail");
}

// The section line is looked for where the surplus entry stands, and passed over.
TEST_F(TableTest, SurplusPlatformEntryIsTakenForAnOemEntry) {
  const std::string rest = kPlatform + entries("plat", 2) + kOem + entries("oem", 2);
  ASSERT_EQ(read(head("1", "1") + rest), 0);
  EXPECT_STREQ(record().oem_partition_info[0].name, "plat1");
  refused(head("1", "2") + rest, "Read Oem_Partition_Info fail");
}

TEST_F(TableTest, IncompleteEntriesAreRefused) {
  refused(head("1", "0") + kPlatform + "name=kernel\nsystem_type=0\n" + kOem,
          "Read Platform_Partition_Info fail");
  refused(head("1", "0") + kPlatform + "name=kernel\npartition_type=0\nsystem_type=0\n" + kOem,
          "Read Platform_Partition_Info fail");
  refused(head("0", "1") + kPlatform + kOem + "name=oemdata\nsystem_type=x\n",
          "Read Oem_Partition_Info fail");
  refused(head("1", "0") + kPlatform + "name =kernel\nsystem_type=0\npartition_type=0\n" + kOem,
          "Read Platform_Partition_Info fail");
}

TEST_F(TableTest, NamesOf32CharactersAreRefused) {
  for (const std::size_t length : {std::size_t{32}, std::size_t{33}, std::size_t{500}}) {
    const std::string name(length, 'n');
    refused(one_platform_entry(name), "Read Platform_Partition_Info fail");
    refused(one_oem_entry(name), "Read Oem_Partition_Info fail");
  }
}

// --- Memory. ------------------------------------------------------------------------------------

TEST_F(TableTest, NoMemoryForThePlatformListIsTold) {
  device().write_file(kTable, table());
  device().faults().add({sim::Op::malloc, "libzozale.so", 1, ENOMEM});
  const sim::AllocationWatch watch;
  EXPECT_EQ(read(), -1);
  EXPECT_EQ(lines(), (Lines{said("malloc platform_partition_info fail")}));
  EXPECT_EQ(record().platform_partition_info, nullptr);
}

TEST_F(TableTest, NoMemoryForTheOemListIsTold) {
  device().write_file(kTable, table());
  device().faults().add({sim::Op::malloc, "libzozale.so", 2, ENOMEM});
  const sim::AllocationWatch watch;
  EXPECT_EQ(read(), -1);
  EXPECT_EQ(lines(), (Lines{said("malloc oem_partition_info fail")}));
  EXPECT_NE(record().platform_partition_info, nullptr);
  EXPECT_EQ(record().oem_partition_info, nullptr);
}

TEST_F(TableTest, DeinitTakesNullAndBareRecords) {
  upi_deinit_system_partition_info(nullptr);
  upi_deinit_system_partition_info(static_cast<system_upgrade_partition_info_t*>(
      std::calloc(1, sizeof(system_upgrade_partition_info_t))));
}

}  // namespace
