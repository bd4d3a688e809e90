// SPDX-License-Identifier: Apache-2.0
//
// What check_package() finds in packages that no create made.
#include "check.h"

#include <cstring>
#include <limits>

#include "support.h"

namespace package_test {
namespace {

using zozale::Findings;

Findings check_bytes(const std::string& bytes, const zozale::PartitionTable* table = nullptr) {
  const zozale::MemorySource source(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  return zozale::check_package(source, table);
}

// Two partitions and an extra file; no digest of theirs holds a zero byte.
RawPackage good_package() {
  RawPackage package;
  package.partition("kernel", image_without_zero_byte(1000));
  package.partition("rootfs", image_without_zero_byte(2000));
  package.extra("notes", "read me");
  package.layout();
  return package;
}

// Changes the version until the content digest holds no zero byte.
std::string sealed(RawPackage& package) {
  package.payload += '\0';
  for (uint8_t nonce = 0;; ++nonce) {
    package.payload.back() = static_cast<char>(nonce);
    std::string bytes = package.bytes();
    if (!zozale::has_zero_byte(sha512(bytes.substr(256)))) {
      return bytes;
    }
  }
}

Findings check_sealed(RawPackage package) {
  return check_bytes(sealed(package));
}

TEST(Check, FindsNothingInAGoodPackage) {
  EXPECT_THAT(check_sealed(good_package()), IsEmpty());
}

TEST(Check, RefusesWhatIsNoPackage) {
  EXPECT_THAT(errors(check_bytes("")), ElementsAre("file size: 0 bytes"));
  std::string head(255, '\0');
  memcpy(head.data(), "FOTA", 4);
  EXPECT_THAT(errors(check_bytes(head)), ElementsAre("file size: 255 bytes"));
  EXPECT_THAT(errors(check_bytes(std::string(256, 'F'))), ElementsAre("head.magic_word: \"FFFF\""));
  head.push_back('\0');
  memcpy(head.data(), "FO\0A", 4);
  EXPECT_THAT(errors(check_bytes(head)), ElementsAre("head.magic_word: \"FO\\x00A\""));
}

TEST(Check, RefusesAHeadAlone) {
  const Findings findings = check_bytes(RawPackage().bytes());
  EXPECT_THAT(errors(findings), ElementsAre("file size: 256 bytes"));
  EXPECT_THAT(text_of(findings, "file size"), HasSubstr("for ever"));
  EXPECT_THAT(warnings(findings), ElementsAre("partitions: 0"));
}

TEST(Check, RefusesMoreThanFortyNineEntries) {
  for (const int32_t count : {50, std::numeric_limits<int32_t>::max()}) {
    RawPackage package = good_package();
    package.head.partition_num = count;
    EXPECT_THAT(errors(check_sealed(package)),
                ElementsAre("head.partition_num: " + std::to_string(count)));
    package = good_package();
    package.head.extra_num = count;
    EXPECT_THAT(errors(check_sealed(package)),
                ElementsAre("head.extra_num: " + std::to_string(count)));
  }
}

TEST(Check, TakesFortyNineOfEach) {
  RawPackage package;
  for (int i = 0; i < 49; ++i) {
    package.partition("p" + std::to_string(100 + i), "image");
    package.extra("p" + std::to_string(100 + i), "extra");
  }
  package.layout();
  EXPECT_THAT(errors(check_sealed(package)), IsEmpty());
}

TEST(Check, TakesCountsBelowOneForNone) {
  RawPackage package;
  package.extra("notes", "read me").layout();
  package.head.upgrade_type = 9;
  EXPECT_THAT(errors(check_sealed(package)), IsEmpty());
  EXPECT_THAT(warnings(check_sealed(package)), ElementsAre("partitions: 0"));
  package.head.partition_num = std::numeric_limits<int32_t>::min();
  EXPECT_THAT(errors(check_sealed(package)), IsEmpty());
  EXPECT_THAT(warnings(check_sealed(package)),
              ElementsAre("head.partition_num: -2147483648", "partitions: 0"));
}

TEST(Check, WarnsOfNegativeCounts) {
  RawPackage package;
  package.partition("kernel", image_without_zero_byte(9)).layout();
  package.head.extra_num = -1;
  const Findings findings = check_sealed(package);
  EXPECT_THAT(errors(findings), IsEmpty());
  EXPECT_EQ(text_of(findings, "head.extra_num"), "a device takes it for 0");
}

TEST(Check, RefusesUnknownTypes) {
  for (const int32_t type : {3, -1}) {
    RawPackage package = good_package();
    package.head.upgrade_type = type;
    EXPECT_THAT(errors(check_sealed(package)),
                ElementsAre("head.upgrade_type: " + std::to_string(type)));
  }
}

TEST(Check, RefusesEmptyAndNegativeLengths) {
  for (const int32_t len : {0, -1, std::numeric_limits<int32_t>::min()}) {
    RawPackage package = good_package();
    package.partitions[1].len = len;
    package.extras[0].len = len;
    const Findings findings = check_sealed(package);
    EXPECT_THAT(errors(findings), ElementsAre("partition[1].len: " + std::to_string(len),
                                              "extra[0].len: " + std::to_string(len)));
    EXPECT_THAT(text_of(findings, "partition[1].len"), HasSubstr("for ever"));
  }
}

TEST(Check, RefusesNegativeOffsets) {
  for (const int32_t offset : {-1, std::numeric_limits<int32_t>::min()}) {
    RawPackage package = good_package();
    package.partitions[0].offset = offset;
    EXPECT_THAT(errors(check_sealed(package)),
                ElementsAre("partition[0].offset: " + std::to_string(offset)));
  }
}

TEST(Check, RefusesRangesPastTheEndOfTheFile) {
  RawPackage package = good_package();
  const size_t size = sealed(package).size();
  package = good_package();
  package.partitions[1].len = static_cast<int32_t>(size) - package.partitions[1].offset + 1;
  const Findings findings = check_sealed(package);
  EXPECT_THAT(errors(findings),
              ElementsAre("partition[1].len: " + std::to_string(package.partitions[1].len)));
  EXPECT_EQ(text_of(findings, "partition[1].len"),
            "with its offset " + std::to_string(package.partitions[1].offset) +
                " the entry ends at byte " + std::to_string(size + 1) + ", the file at byte " +
                std::to_string(size) + ": a device would hash past the end of the file for ever");
}

TEST(Check, RefusesTheLargestRange) {
  RawPackage package = good_package();
  package.partitions[0].offset = std::numeric_limits<int32_t>::max();
  package.partitions[0].len = std::numeric_limits<int32_t>::max();
  const Findings findings = check_sealed(package);
  EXPECT_THAT(errors(findings), ElementsAre("partition[0].len: 2147483647"));
  EXPECT_THAT(findings[0].text, HasSubstr("ends at byte 4294967294"));
}

TEST(Check, RefusesNames) {
  const auto errors_of = [](const std::string& name) {
    RawPackage package;
    package.partition(name, image_without_zero_byte(100)).layout();
    return check_sealed(package);
  };
  EXPECT_THAT(errors_of(std::string(29, 'n')), IsEmpty());
  EXPECT_THAT(text_of(errors_of(""), "partition[0].name"), StartsWith("the name is empty"));
  for (const size_t length : {30U, 31U}) {
    EXPECT_THAT(text_of(errors_of(std::string(length, 'n')), "partition[0].name"),
                HasSubstr("RUNNING"));
  }
  EXPECT_EQ(text_of(errors_of(std::string(32, 'n')), "partition[0].name"),
            "it fills its field without a terminator: a device reads on into the bytes behind it");
  EXPECT_THAT(text_of(errors_of("a b"), "partition[0].name"), HasSubstr("at position 2"));
  EXPECT_THAT(text_of(errors_of("../a\x1b[2J"), "partition[0].name"), HasSubstr("\"\\x1b\""));
}

TEST(Check, RefusesNamesOfExtraFiles) {
  RawPackage package = good_package();
  package.extra("", "x").extra(std::string(32, 'e'), "x").extra(std::string(31, 'e'), "x");
  package.payload.clear();
  package.layout();
  EXPECT_THAT(
      errors(check_sealed(package)),
      ElementsAre("extra[1].name: \"\"", "extra[2].name: \"" + std::string(32, 'e') + "\""));
}

TEST(Check, RefusesNamesThatMeet) {
  RawPackage package;
  package.partition("kernel", "1").partition("kernel2", "2").partition("kernel", "3");
  package.extra("a", "4").extra("a", "5").layout();
  EXPECT_THAT(errors(check_sealed(package)),
              ElementsAre("partition[2].name: \"kernel\"", "extra[1].name: \"a\"",
                          "partition[1].name: \"kernel2\""));
}

TEST(Check, RefusesPartitionsThatCannotBeUpgraded) {
  for (const int32_t type : {1, 2, 3, -1}) {
    RawPackage package = good_package();
    package.partitions[1].partition_type = type;
    EXPECT_THAT(errors(check_sealed(package)),
                ElementsAre("partition[1].partition_type: " + std::to_string(type)));
  }
}

TEST(Check, WarnsOfWhatADeviceIgnores) {
  RawPackage package = good_package();
  package.head.hash_type = 1;
  package.partitions[0].zipped = 1;
  memset(package.head.version_src, 'v', 64);
  memset(package.head.version_dst, 'v', 64);
  const Findings findings = check_sealed(package);
  EXPECT_THAT(errors(findings), IsEmpty());
  EXPECT_THAT(
      warnings(findings),
      ElementsAre("head.hash_type: 1", "head.version_src: \"" + std::string(64, 'v') + "\"",
                  "head.version_dst: \"" + std::string(64, 'v') + "\"", "partition[0].zipped: 1"));
}

TEST(Check, WarnsOfOverlaps) {
  RawPackage package = good_package();
  package.partitions[1] = package.partitions[0];
  memcpy(package.partitions[1].name, "rootfs", 7);
  const Findings findings = check_sealed(package);
  EXPECT_THAT(errors(findings), IsEmpty());
  EXPECT_THAT(warnings(findings),
              ElementsAre("partition[1].offset: " + std::to_string(package.partitions[0].offset)));
  EXPECT_EQ(text_of(findings, "partition[1].offset"),
            "the entry overlaps partition[0], which ends at byte " +
                std::to_string(package.partitions[0].offset + 1000));
}

TEST(Check, WarnsOfEntriesWithinTheTables) {
  RawPackage package = good_package();
  package.extras[0].offset = 0;
  const Findings findings = check_sealed(package);
  EXPECT_THAT(text_of(findings, "extra[0].offset"),
              HasSubstr("overlaps the head and the tables, which ends at byte 632"));
}

TEST(Check, LeavesNeighboursAlone) {
  RawPackage package = good_package();
  EXPECT_EQ(package.partitions[0].offset + package.partitions[0].len, package.partitions[1].offset);
  std::swap(package.partitions[0], package.partitions[1]);
  EXPECT_THAT(check_sealed(package), IsEmpty());
}

TEST(Check, WarnsWhenTheSumOfAllLengthsOverflows) {
  RawPackage package = good_package();
  package.partitions[0].len = std::numeric_limits<int32_t>::max();
  EXPECT_THAT(warnings(check_sealed(package)),
              ::testing::Contains("partitions: 2.0 GiB (2147485647 bytes)"));
}

TEST(Check, RefusesADigestThatDiffers) {
  RawPackage package = good_package();
  package.payload[5] ^= 1;
  const std::string image = image_without_zero_byte(1000);
  const Findings findings = check_sealed(package);
  EXPECT_THAT(errors(findings), ElementsAre("partition[0].hash: " + zozale::hex(sha512(image))));
  EXPECT_THAT(text_of(findings, "partition[0].hash"), StartsWith("the digest of the bytes is "));
}

TEST(Check, RefusesTheDigestOfAnExtraFileToo) {
  RawPackage package = good_package();
  package.extras[0].hash[63] ^= 1U;
  EXPECT_THAT(fields(check_sealed(package), zozale::Severity::kError), ::testing::SizeIs(1));
}

TEST(Check, RefusesAContentDigestThatDiffers) {
  RawPackage package = good_package();
  std::string bytes = sealed(package);
  bytes.back() = static_cast<char>(bytes.back() ^ 1);
  const Findings findings = check_bytes(bytes);
  EXPECT_THAT(errors(findings), ElementsAre(StartsWith("head.hash: ")));
}

// A device would not see this damage: it stops at the zero byte.
TEST(Check, ComparesDigestsToTheirEnd) {
  RawPackage package;
  package.partition("kernel", image_with_zero_byte(100)).layout();
  package.partitions[0].hash[63] ^= 1U;
  EXPECT_THAT(errors(check_sealed(package)), ElementsAre(StartsWith("partition[0].hash: ")));
}

TEST(Check, WarnsOfDigestsWithAZeroByte) {
  const std::string image = image_with_zero_byte(100);
  RawPackage package;
  package.partition("kernel", image).extra("notes", image).layout();
  const Findings findings = check_sealed(package);
  EXPECT_THAT(warnings(findings), ElementsAre("partition[0].hash: " + zozale::hex(sha512(image))));
  EXPECT_EQ(text_of(findings, "partition[0].hash"),
            "the digest holds a zero byte, so a device compares only the first " +
                std::to_string(zozale::compared_bytes(sha512(image))) +
                " of 64 bytes and may miss damage; make the package again without "
                "--allow-zero-bytes");
}

TEST(Check, WarnsOfAContentDigestWithAZeroByte) {
  for (uint32_t seed = 0;; ++seed) {
    RawPackage package;
    package.partition("kernel", image_without_zero_byte(100)).layout();
    package.payload += pattern(4, seed);
    const std::string bytes = package.bytes();
    if (zozale::has_zero_byte(sha512(bytes.substr(256)))) {
      EXPECT_THAT(fields(check_bytes(bytes), zozale::Severity::kWarning),
                  ElementsAre(StartsWith("head.hash: ")));
      return;
    }
  }
}

TEST(Check, ComparesNamesWithATable) {
  const zozale::PartitionTable table =
      zozale::parse_partition_table(table_text({"kernel", "rootfs"}, {"oem"})).table.value();
  RawPackage package = good_package();
  package.head.upgrade_type = 1;
  EXPECT_THAT(check_bytes(sealed(package), &table), IsEmpty());
  package = good_package();
  EXPECT_THAT(errors(check_bytes(sealed(package), &table)), ElementsAre("partitions: 2"));
  package = good_package();
  package.head.upgrade_type = 2;
  EXPECT_THAT(errors(check_bytes(sealed(package), &table)),
              ElementsAre("partition[0].name: \"kernel\"", "partition[1].name: \"rootfs\""));
}

TEST(Check, PassesOverTheTableWithoutPartitions) {
  const zozale::PartitionTable table =
      zozale::parse_partition_table(table_text({"kernel"}, {})).table.value();
  RawPackage package;
  package.extra("notes", "x").layout();
  EXPECT_THAT(errors(check_bytes(sealed(package), &table)), IsEmpty());
}

// Ninety-eight entries that each claim two gibibytes of a small file.
TEST(Check, HashesNothingThatIsNotThere) {
  RawPackage package;
  for (int i = 0; i < 49; ++i) {
    package.partition("p" + std::to_string(100 + i), "x").extra("e" + std::to_string(i), "x");
  }
  package.layout();
  for (partition_head_info_t& entry : package.partitions) {
    entry.len = std::numeric_limits<int32_t>::max();
    entry.offset = 0;
  }
  for (extra_head_info_t& entry : package.extras) {
    entry.len = std::numeric_limits<int32_t>::max();
    entry.offset = 1;
  }
  const std::vector<std::string> found = errors(check_sealed(package));
  EXPECT_EQ(found.size(), 98U);
}

class CheckFile : public FolderTest {};

TEST_F(CheckFile, RefusesWhatADeviceCannotCount) {
  RawPackage package = good_package();
  const std::string name = write("a", sealed(package));
  std::filesystem::resize_file(name, 0x100000000);
  const Findings findings = zozale::check_package(zozale::InputFile(name), nullptr);
  EXPECT_THAT(errors(findings), ElementsAre("file size: 4.0 GiB (4294967296 bytes)"));
}

TEST_F(CheckFile, RefusesAnImageBehindTheLastByteThatADeviceReaches) {
  RawPackage package = good_package();
  package.partitions[1].offset = std::numeric_limits<int32_t>::max();
  package.partitions[1].len = 2;
  const std::string name = write("a", package.bytes());
  std::filesystem::resize_file(name, 0x100000000);
  EXPECT_THAT(errors(zozale::check_package(zozale::InputFile(name), nullptr)),
              ElementsAre("file size: 4.0 GiB (4294967296 bytes)", "partition[1].len: 2"));
}

}  // namespace
}  // namespace package_test
