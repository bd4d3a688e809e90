// SPDX-License-Identifier: Apache-2.0
//
// The reader of the partition table file against what a device makes of the same bytes.
#include "common/partition_table.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>

#include "common/error.h"
#include "common/partition_name.h"
#include "support.h"

namespace package_test {
namespace {

using zozale::parse_partition_table;
using zozale::TableReading;

std::string example() {
  return table_text({"kernel", "rootfs"}, {"oemdata"});
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return text.replace(at, from.size(), to);
}

// Expects that the table is refused with exactly one error, and returns it as "field: value: text".
std::string refusal(const std::string& text) {
  const TableReading reading = parse_partition_table(text);
  EXPECT_FALSE(reading.table.has_value());
  EXPECT_EQ(errors(reading.findings).size(), 1U);
  for (const zozale::Finding& finding : reading.findings) {
    if (finding.severity == zozale::Severity::kError) {
      return finding.field + ": " + finding.value + ": " + finding.text;
    }
  }
  return "";
}

TEST(PartitionTable, IsReadAsItStands) {
  const TableReading reading = parse_partition_table(
      "[Head]\nmagic=SUPI\nplat=-256\nplat_partition_num=1\noem_partition_num=2\n"
      "[Platform_Partition_Info]\nname=kernel\nsystem_type=3\npartition_type=0\n"
      "[Oem_Partition_Info]\nname=a\nsystem_type=-4\npartition_type=0\n"
      "name=b\nsystem_type=+5\npartition_type=0\n");
  ASSERT_TRUE(reading.table);
  EXPECT_THAT(reading.findings, IsEmpty());
  EXPECT_EQ(reading.table->plat, -256);
  ASSERT_EQ(reading.table->platform.size(), 1U);
  EXPECT_EQ(reading.table->platform[0].name, "kernel");
  EXPECT_EQ(reading.table->platform[0].system_type, 3);
  ASSERT_EQ(reading.table->oem.size(), 2U);
  EXPECT_EQ(reading.table->oem[0].system_type, -4);
  EXPECT_EQ(reading.table->oem[1].name, "b");
  EXPECT_EQ(reading.table->oem[1].system_type, 5);
}

TEST(PartitionTable, AllowsAnyWhiteSpaceBetweenItems) {
  std::string text = example();
  for (size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 6) {
    text.replace(at, 1, "\r\n\t \n\v");
  }
  EXPECT_TRUE(parse_partition_table(text).table);
  text.erase(std::remove_if(text.begin(), text.end(), isspace), text.end());
  EXPECT_FALSE(parse_partition_table(text).table) << "names run on without white space";
  EXPECT_TRUE(parse_partition_table(replaced(example(), "plat=0\n", "plat=0")).table);
  EXPECT_TRUE(parse_partition_table(replaced(example(), "plat=0", "plat= 0")).table);
  EXPECT_FALSE(parse_partition_table(replaced(example(), "plat=0", "plat =0")).table);
  EXPECT_FALSE(parse_partition_table("\n" + example()).table);
}

TEST(PartitionTable, TakesOnlyAPlatThatEndsTheMagic) {
  EXPECT_EQ(refusal(replaced(example(), "plat=0", "plat=1")),
            "plat: 1: its lowest byte must be 0, since a device reads the magic on into it; use 0 "
            "or a multiple of 256; a device refuses the table with \"magic len invalid\"");
  EXPECT_TRUE(parse_partition_table(replaced(example(), "plat=0", "plat=256")).table);
  EXPECT_FALSE(parse_partition_table(replaced(example(), "plat=0", "plat=257")).table);
  EXPECT_TRUE(parse_partition_table(replaced(example(), "plat=0", "plat=-2147483648")).table);
  EXPECT_FALSE(parse_partition_table(replaced(example(), "plat=0", "plat=-1")).table);
}

TEST(PartitionTable, TakesOnlyItsMagic) {
  EXPECT_EQ(refusal(replaced(example(), "SUPI", "SUPX")),
            "magic: \"SUPX\": it must be \"SUPI\"; a device refuses the table with \"fail system "
            "partition info magic word invalid: SUPX\"");
  EXPECT_THAT(refusal(replaced(example(), "SUPI", "SUP")), HasSubstr("\"magic len invalid\""));
  EXPECT_EQ(refusal(replaced(example(), "SUPI", "SUPIX")),
            "line 2: \"magic=SUPIX\": \"plat=\" and a number of 32 bits is expected here; a device "
            "refuses the table with \"Read [Head Info] fail\"");
}

TEST(PartitionTable, TakesSevenEntriesOfEachList) {
  const std::vector<std::string> seven = {"a", "b", "c", "d", "e", "f", "g"};
  const std::vector<std::string> other = {"h", "i", "j", "k", "l", "m", "n"};
  const TableReading reading = parse_partition_table(table_text(seven, other));
  ASSERT_TRUE(reading.table);
  EXPECT_EQ(reading.table->platform.size(), 7U);
  EXPECT_EQ(reading.table->oem.size(), 7U);
  EXPECT_TRUE(parse_partition_table(table_text({}, {})).table);
}

TEST(PartitionTable, RefusesOtherCounts) {
  for (const char* count : {"8", "-1", "2147483647", "-2147483648"}) {
    EXPECT_EQ(refusal(replaced(example(), "plat_partition_num=2",
                               std::string("plat_partition_num=") + count)),
              std::string("plat_partition_num: ") + count +
                  ": 0 to 7 are allowed; a device refuses the table with "
                  "\"plat_partition_num invalid\"");
    EXPECT_THAT(refusal(replaced(example(), "oem_partition_num=1",
                                 std::string("oem_partition_num=") + count)),
                HasSubstr("\"oem_partition_num invalid\""));
  }
}

TEST(PartitionTable, RefusesNumbersBeyond32Bits) {
  EXPECT_THAT(refusal(replaced(example(), "plat=0", "plat=4294967296")),
              StartsWith("line 3: \"plat=4294967296\": \"plat=\" and a number of 32 bits"));
  EXPECT_FALSE(
      parse_partition_table(replaced(example(), "plat=0", "plat=" + std::string(300, '9'))).table);
  EXPECT_FALSE(
      parse_partition_table(replaced(example(), "plat=0", "plat=-" + std::string(300, '9'))).table);
}

TEST(PartitionTable, NamesTheMissingItem) {
  EXPECT_EQ(refusal(""),
            "line 1: end of file: \"[Head]\" is expected here; a device refuses the table with "
            "\"Read [Head] fail\"");
  EXPECT_THAT(refusal("[Head]"), HasSubstr("\"Read [Head Info] fail\""));
  EXPECT_THAT(refusal("[Hea"), HasSubstr("\"Read [Head] fail\""));
  const std::string text = example();
  const size_t platform = text.find("[Platform");
  EXPECT_THAT(refusal(text.substr(0, platform)),
              HasSubstr("\"Read [Platform_Partition_Info] fail\""));
  const size_t second = text.find("name=rootfs");
  EXPECT_THAT(refusal(text.substr(0, second)), HasSubstr("\"Read Platform_Partition_Info fail\""));
  EXPECT_EQ(refusal(text.substr(0, second) + text.substr(text.find("[Oem"))),
            "line 10: \"[Oem_Partition_Info]\": \"name=\" and a text is expected here; a device "
            "refuses the table with \"Read Platform_Partition_Info fail\"");
  EXPECT_THAT(refusal(text.substr(0, text.find("[Oem"))),
              HasSubstr("\"Read [Oem_Partition_Info] fail\""));
  EXPECT_THAT(refusal(text.substr(0, text.find("name=oemdata"))),
              HasSubstr("\"Read Oem_Partition_Info fail\""));
}

TEST(PartitionTable, NoticesAMisspeltSectionAsLateAsADevice) {
  const std::string text = replaced(example(), "[Platform_Partition_Info]", "[Platform_Partition]");
  EXPECT_THAT(refusal(text), HasSubstr("\"Read Platform_Partition_Info fail\""));
  EXPECT_THAT(warnings(parse_partition_table(text).findings),
              ElementsAre("line 6: \"[Platform_Partition]\""));

  const TableReading unnoticed =
      parse_partition_table(replaced(table_text({}, {}), "[Oem_Partition_Info]", "[Oem]"));
  EXPECT_TRUE(unnoticed.table);
  ASSERT_EQ(unnoticed.findings.size(), 2U);
  EXPECT_EQ(zozale::to_line(unnoticed.findings[0]),
            "warning: line 7: \"[Oem]\": \"[Oem_Partition_Info]\" is expected here");
  EXPECT_EQ(zozale::to_line(unnoticed.findings[1]),
            "warning: line 7: \"[Oem]\": a device ignores what follows the last entry that the "
            "head announces");
}

TEST(PartitionTable, ReadsNamesOf31CharactersAndNoMore) {
  const TableReading longest = parse_partition_table(table_text({std::string(31, 'n')}, {}));
  ASSERT_TRUE(longest.table);
  EXPECT_EQ(longest.table->platform[0].name, std::string(31, 'n'));
  EXPECT_THAT(refusal(table_text({std::string(32, 'n')}, {})),
              HasSubstr("\"Read Platform_Partition_Info fail\""));
}

TEST(PartitionTable, RefusesNamesThatAreCutOnADevice) {
  EXPECT_THAT(parse_partition_table(table_text({std::string(29, 'n')}, {})).findings, IsEmpty());
  for (const size_t length : {30U, 31U}) {
    const std::string name(length, 'n');
    const TableReading reading = parse_partition_table(table_text({"a"}, {name}));
    EXPECT_THAT(errors(reading.findings), ElementsAre("oem[0].name: \"" + name + "\""));
    EXPECT_THAT(text_of(reading.findings, "oem[0].name"), HasSubstr("RUNNING"));
  }
}

TEST(PartitionTable, RefusesNamesThatMeet) {
  const TableReading repeated = parse_partition_table(table_text({"kernel"}, {"a", "kernel"}));
  EXPECT_THAT(errors(repeated.findings), ElementsAre("oem[1].name: \"kernel\""));
  EXPECT_THAT(text_of(repeated.findings, "oem[1].name"), StartsWith("platform[0].name has the"));
  const TableReading twins = parse_partition_table(table_text({"kernel2", "kernel"}, {}));
  EXPECT_THAT(errors(twins.findings), ElementsAre("platform[0].name: \"kernel2\""));
  EXPECT_THAT(text_of(twins.findings, "platform[0].name"),
              HasSubstr("system B's partition of \"kernel\" (platform[1].name)"));
}

TEST(PartitionTable, WarnsOfPartitionsThatCannotBeWritten) {
  const TableReading reading =
      parse_partition_table(replaced(example(), "partition_type=0", "partition_type=2"));
  ASSERT_TRUE(reading.table);
  EXPECT_EQ(reading.table->platform[0].partition_type, 2);
  EXPECT_THAT(errors(reading.findings), IsEmpty());
  EXPECT_THAT(warnings(reading.findings), ElementsAre("platform[0].partition_type: 2"));
}

TEST(PartitionTable, WarnsOfWhatIsIgnored) {
  const TableReading reading = parse_partition_table(example() + "name=more\n");
  EXPECT_TRUE(reading.table);
  EXPECT_THAT(warnings(reading.findings), ElementsAre("line 17: \"name=more\""));
}

TEST(PartitionTable, ShortensLongLinesInMessages) {
  EXPECT_LT(refusal("[Head]\nmagic=SUPI" + std::string(100000, 'x')).size(), 300U);
}

class PartitionTableFile : public FolderTest {};

TEST_F(PartitionTableFile, IsReadFromDisk) {
  EXPECT_TRUE(zozale::read_partition_table(write("table.conf", example())).table);
  EXPECT_THROW(zozale::read_partition_table(path("none")), zozale::Error);
}

// A device's reader, written with the C library's own scanning.
struct CFile {
  explicit CFile(const std::string& text)
      : stream(fmemopen(const_cast<char*>(text.data()), text.size(), "rb"), &fclose) {}
  FILE* get() const { return stream.get(); }
  std::unique_ptr<FILE, int (*)(FILE*)> stream;
};

struct DeviceEntry {
  char name[32];
  int system_type;
  int partition_type;
};

bool scan_entries(FILE* file, std::vector<DeviceEntry>& entries, int count) {
  for (int i = 0; i < count; ++i) {
    DeviceEntry& entry = entries.emplace_back();
    if (fscanf(file, "name=%31s\nsystem_type=%d\npartition_type=%d\n", entry.name,
               &entry.system_type, &entry.partition_type) < 3) {
      return false;
    }
  }
  return true;
}

bool device_reads(const std::string& text, std::vector<DeviceEntry>& entries) {
  const CFile file(text);
  struct {
    char magic[4];
    int plat;
    int counts[2];
  } head = {};
  std::array<char, 5> magic{};
  if (file.get() == nullptr || fscanf(file.get(), "[Head]\n") != 0 ||
      fscanf(file.get(), "magic=%4s\nplat=%d\nplat_partition_num=%d\noem_partition_num=%d\n",
             magic.data(), &head.plat, &head.counts[0], &head.counts[1]) < 4) {
    return false;
  }
  memcpy(head.magic, magic.data(), 4);
  if (strnlen(reinterpret_cast<const char*>(&head), sizeof(head)) != 4 ||
      memcmp(head.magic, "SUPI", 4) != 0 || static_cast<unsigned>(head.counts[0]) > 7 ||
      static_cast<unsigned>(head.counts[1]) > 7) {
    return false;
  }
  return fscanf(file.get(), "[Platform_Partition_Info]\n") == 0 &&
         scan_entries(file.get(), entries, head.counts[0]) &&
         fscanf(file.get(), "[Oem_Partition_Info]\n") == 0 &&
         scan_entries(file.get(), entries, head.counts[1]);
}

void expect_same_as_device(const std::string& text) {
  std::vector<DeviceEntry> device;
  const bool taken = device_reads(text, device);
  const TableReading reading = parse_partition_table(text);
  ASSERT_EQ(reading.table.has_value(), taken) << text;
  if (!taken) {
    EXPECT_TRUE(zozale::has_errors(reading.findings)) << text;
    return;
  }
  std::vector<zozale::TableEntry> ours = reading.table->platform;
  ours.insert(ours.end(), reading.table->oem.begin(), reading.table->oem.end());
  ASSERT_EQ(ours.size(), device.size()) << text;
  for (size_t i = 0; i < ours.size(); ++i) {
    EXPECT_EQ(ours[i].name, device[i].name) << text;
    EXPECT_EQ(ours[i].system_type, device[i].system_type) << text;
    EXPECT_EQ(ours[i].partition_type, device[i].partition_type) << text;
  }
}

// Changes a few characters, most of them where white space or a number is.
std::string mutated(std::string text, std::mt19937& random) {
  static const std::string kCharacters = " \t\r\n\v=[]_-+0123789abnmS";
  const size_t changes = 1 + random() % 3;
  for (size_t i = 0; i < changes && !text.empty(); ++i) {
    const size_t at = random() % text.size();
    const std::string character(1, kCharacters[random() % kCharacters.size()]);
    switch (random() % 4) {
      case 0:
        text.replace(at, 1, character);
        break;
      case 1:
        text.insert(at, character);
        break;
      case 2:
        text.erase(at, 1 + random() % 4);
        break;
      default:
        text.resize(at + (random() % 8 == 0 ? 0 : text.size() - at));
        break;
    }
  }
  return text;
}

TEST(PartitionTable, IsTakenAndRefusedAsByADevice) {
  const std::vector<std::string> sources = {example(), table_text({}, {}), table_text({}, {"oem"}),
                                            replaced(example(), "plat=0", "plat=256")};
  std::mt19937 random = seeded(20240607);
  size_t taken = 0;
  for (int i = 0; i < 40000; ++i) {
    const std::string text = mutated(sources[random() % sources.size()], random);
    expect_same_as_device(text);
    taken += parse_partition_table(text).table ? 1U : 0U;
    if (HasFatalFailure() || HasNonfatalFailure()) {
      FAIL() << "change " << i;
    }
  }
  EXPECT_GT(taken, 1000U);
  EXPECT_LT(taken, 39000U);
}

TEST(PartitionNames, FitTheirFieldAndEveryTable) {
  EXPECT_FALSE(zozale::partition_name_fault("kernel"));
  EXPECT_FALSE(zozale::partition_name_fault(std::string(29, 'k')));
  EXPECT_THAT(*zozale::partition_name_fault(std::string(30, 'k')),
              StartsWith("the name has 30 characters, at most 29 are allowed"));
  EXPECT_THAT(*zozale::partition_name_fault(""), StartsWith("the name is empty"));
  for (const char bad : {' ', '\t', '\n', '\x01', '"', '\x7f', '\x80', '\xff', '\0'}) {
    EXPECT_THAT(*zozale::partition_name_fault(std::string("ke") + bad + "rnel"),
                HasSubstr("at position 3"));
  }
}

TEST(PartitionNames, OfExtraFilesMayBeLonger) {
  EXPECT_FALSE(zozale::extra_name_fault(std::string(31, 'k')));
  EXPECT_FALSE(zozale::extra_name_fault("release notes \"1\""));
  EXPECT_THAT(*zozale::extra_name_fault(std::string(32, 'k')),
              StartsWith("the name has 32 characters, at most 31 are allowed"));
  EXPECT_THAT(*zozale::extra_name_fault(""), StartsWith("the name is empty"));
  EXPECT_THAT(*zozale::extra_name_fault("a\nb"), HasSubstr("\"\\x0a\" at position 2"));
  EXPECT_THAT(*zozale::extra_name_fault(std::string("a\0b", 3)), HasSubstr("at position 2"));
}

}  // namespace
}  // namespace package_test
