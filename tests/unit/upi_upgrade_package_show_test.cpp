// SPDX-License-Identifier: Apache-2.0
//
// What a loaded package tells: the log's listing, the members, the look-ups by name.
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "package_test.h"

namespace {

using support::logged;
using support::PackageFile;
using support::sha512;
using support::shown_digest;
using namespace unit;

const std::string kRule(28, '-');
constexpr const char* kHead = "show_upgrade_package_head_info";

sim::Bytes head_hash(const PackageFile& package) {
  const sim::Bytes bytes = package.bytes();
  return sim::Bytes(bytes.begin() + 164, bytes.begin() + 228);
}

Lines digest_line(const std::string& title, const sim::Bytes& digest) {
  return said_by("show_hash_hex", {title + ":" + shown_digest(digest)});
}

// Every field different, and different from its default.
PackageFile full_package() {
  PackageFile package = support::system_package();
  package.version = 7;
  package.plat = -2;
  package.package_type = 3;
  package.hash_type = 5;
  package.block_size = 131072;
  package.version_src = "from";
  package.version_dst = "to";
  package.partitions[0].partition_type = 1;
  package.partitions[1].zipped = 1;
  package.partitions[2].len = -5;
  package.partitions[2].offset = INT_MIN;
  package.extras = {{"readme", support::pattern(20, 50)}, {"notes", support::pattern(30, 51)}};
  return package;
}

class ShowTest : public PackageTest {};

// --- The whole load -----------------------------------------------------------------------------

Lines expected_head(const PackageFile& package) {
  return said_by(kHead,
                 {"magic:FOTA\x07", "upgrade package version:7", "upgrade package plat:-2",
                  "upgrade package type:3", "upgrade type:0", "upgrade package partition num:3",
                  "upgrade package extra file num:2", "upgrade package hash type:5",
                  "upgrade package block size:131072", "upgrad package version_dst:to"}) +
         digest_line("upgrade package content hash:", head_hash(package));
}

Lines expected_partition(const PackageFile& package, std::size_t index,
                         std::initializer_list<std::string> fields) {
  return said_by("show_partition_info", {kRule}) + said_by("show_partition_info", fields) +
         digest_line("hash:", sha512(package.partitions.at(index).data));
}

Lines expected_partitions(const PackageFile& package) {
  return said_by("show_partition_info", {kRule, "There is/are [3] partition(s)\xA3\xA1\n"}) +
         expected_partition(package, 0,
                            {"partition name:kernel", "partition len:1000", "partition offset:880",
                             "partition partition_type:1", "partition zipped:0"}) +
         expected_partition(package, 1,
                            {"partition name:rootfs", "partition len:1000", "partition offset:1880",
                             "partition partition_type:0", "partition zipped:1"}) +
         expected_partition(
             package, 2,
             {"partition name:oemdata", "partition len:-5", "partition offset:-2147483648",
              "partition partition_type:0", "partition zipped:0"}) +
         said_by("show_partition_info", {kRule});
}

// The digest that is shown with an extra file is the head's.
Lines expected_extras(const PackageFile& package) {
  const auto digest = digest_line("Extra file hash:", head_hash(package));
  return said_by("show_extra_info", {"Extra file number:2", kRule, "Extra file name:readme",
                                     "Extra file len:20", "Extra file offset:3880"}) +
         digest +
         said_by("show_extra_info",
                 {kRule, "Extra file name:notes", "Extra file len:30", "Extra file offset:3900"}) +
         digest + said_by("show_extra_info", {kRule});
}

Lines reading() {
  return said_by("upi_readn", {"Read data from file by fd!"});
}

Lines expected_table() {
  return said_by("show_system_partition_info",
                 {"Show System Partition Info:", "------- system partition info: Head -------",
                  "magic: SUPI", "plat: 0", "plat_partition_num: 2", "oem_partition_num: 1",
                  "------- system partition info: Platform Partition Info -------", "name: kernel",
                  "system_type: 0", "partition_type: 0", "name: rootfs", "system_type: 0",
                  "partition_type: 0", "------- system partition info: Oem Partition Info -------",
                  "name: oemdata", "system_type: 0", "partition_type: 0"});
}

TEST_F(ShowTest, ALoadTellsEverythingInOrder) {
  const PackageFile package = full_package();
  const Lines lines = load(package);
  expect_loaded();
  EXPECT_EQ(lines, init_says({kBegin}) + reading() +
                       said_by("is_upgrade_package_file_valid", {kMagicGood}) + reading() +
                       reading() + expected_table() + reading() + expected_head(package) +
                       expected_partitions(package) + expected_extras(package) +
                       init_says({kSuccess}));
}

TEST_F(ShowTest, ThePartsCanBeShownAgain) {
  const PackageFile package = full_package();
  load(package);
  EXPECT_EQ(logged(show_upgrade_package_head_info), expected_head(package));
  EXPECT_EQ(logged(show_partition_info), expected_partitions(package));
  EXPECT_EQ(logged(show_extra_info), expected_extras(package));
  EXPECT_EQ(logged(show_upgrade_package_info),
            expected_head(package) + expected_partitions(package) + expected_extras(package));
}

TEST_F(ShowTest, TablesThatAreEmptyAreShownToo) {
  PackageFile package;
  package.partition_num = -1;
  package.extra_num = 0;
  load(package);
  EXPECT_EQ(
      logged(show_partition_info),
      said_by("show_partition_info", {kRule, "There is/are [-1] partition(s)\xA3\xA1\n", kRule}));
  EXPECT_EQ(logged(show_extra_info), said_by("show_extra_info", {"Extra file number:0", kRule}));
}

// --- Text that fills its field runs on, but never out of its table ------------------------------

TEST_F(ShowTest, TheMagicRunsOnIntoTheNumbersBehindIt) {
  PackageFile package;
  package.version = 0x44434241;
  package.plat = 0x45;
  load(package);
  EXPECT_EQ(logged(show_upgrade_package_head_info)[0].message, "magic:FOTAABCDE");
  EXPECT_EQ(get_upgrade_package_version(), 0x44434241);
}

TEST_F(ShowTest, AVersionRunsOnIntoTheDigest) {
  PackageFile package;
  package.version_dst = std::string(64, 'v');
  sim::Bytes hash(64, 'h');
  hash[10] = 0;
  package.hash = hash;
  load(package);
  EXPECT_EQ(logged(show_upgrade_package_head_info)[9].message,
            "upgrad package version_dst:" + std::string(64, 'v') + std::string(10, 'h'));
}

TEST_F(ShowTest, TextEndsWithTheHead) {
  PackageFile package;
  package.version = package.plat = package.package_type = package.upgrade_type = -1;
  package.partition_num = package.extra_num = -1;
  package.hash_type = package.block_size = -1;
  package.version_src = package.version_dst = std::string(64, 'v');
  package.hash = sim::Bytes(64, 'h');
  package.reserve = sim::Bytes(28, 'r');
  load(package);
  expect_loaded();
  const Lines lines = logged(show_upgrade_package_head_info);
  const std::string versions(128, 'v');
  const std::string tail = std::string(64, 'h') + std::string(28, 'r');
  EXPECT_EQ(lines[0].message, "magic:FOTA" + std::string(32, '\xFF') + versions + tail);
  EXPECT_EQ(lines[9].message, "upgrad package version_dst:" + std::string(64, 'v') + tail);
}

// Two partition entries without a single zero byte.
sim::Bytes entries_without_zero() {
  PackageFile package;
  package.upgrade_type = 1;
  package.partitions = {{std::string(32, 'a')}, {std::string(32, 'b')}};
  sim::Bytes bytes = package.bytes();
  for (std::size_t i = 256; i < bytes.size(); ++i) {
    bytes[i] = bytes[i] == 0 ? '.' : bytes[i];
  }
  for (std::size_t entry : {256U, 384U}) {
    std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(entry + 32), 96, '.');
  }
  return bytes;
}

TEST_F(ShowTest, ANameRunsOnToTheEndOfTheTable) {
  put(entries_without_zero());
  const std::string first = std::string(32, 'a') + std::string(96, '.');
  const std::string second = std::string(32, 'b') + std::string(96, '.');
  const Lines lines = loader_lines(load());
  expect_refused();
  EXPECT_EQ(lines.at(2).message,
            "upgrade_type: 1, upgrade package partition [" + first + second + "] do not exist");
}

// The loader does not let such names pass, so they are put in behind its back.
TEST_F(ShowTest, NamesEndWithTheirTable) {
  load(platform_package(2));
  expect_loaded();
  const sim::Bytes bytes = entries_without_zero();
  std::memcpy(get_partition_head_info(), bytes.data() + 256, 256);
  const std::string first = std::string(32, 'a') + std::string(96, '.');
  const std::string second = std::string(32, 'b') + std::string(96, '.');
  const Lines lines = only(logged(show_partition_info), {"show_partition_info"});
  EXPECT_EQ(lines.at(3).message, "partition name:" + first + second);
  EXPECT_EQ(lines.at(9).message, "partition name:" + second);

  EXPECT_EQ(get_partition_head_info_by_name((first + second).c_str()), get_partition_head_info());
  EXPECT_EQ(get_partition_head_info_by_name(second.c_str()), get_partition_head_info() + 1);
  EXPECT_EQ(get_partition_head_info_by_name(first.c_str()), nullptr);
  EXPECT_EQ(get_partition_head_info_by_name((first + second + "x").c_str()), nullptr);
  EXPECT_EQ(get_partition_head_info_by_name((second + "x").c_str()), nullptr);
}

TEST_F(ShowTest, NamesOfExtraFilesEndWithTheirTable) {
  sim::Bytes bytes = package_with_extras(1).bytes();
  std::fill_n(bytes.begin() + 256, 120, 'e');
  put(bytes);
  load();
  expect_loaded();
  const std::string name(120, 'e');
  EXPECT_EQ(only(logged(show_extra_info), {"show_extra_info"}).at(2).message,
            "Extra file name:" + name);
  EXPECT_EQ(get_extra_head_info_by_name(name.c_str()), get_extra_head_info());
  EXPECT_EQ(get_extra_head_info_by_name((name + "e").c_str()), nullptr);
  EXPECT_EQ(get_extra_head_info_by_name(name.substr(0, 32).c_str()), nullptr);
}

// --- Members ------------------------------------------------------------------------------------

TEST_F(ShowTest, MembersAreTheFilesFields) {
  const PackageFile package = full_package();
  load(package);
  upgrade_package_info_t* loaded = get_upgrade_package_info();
  EXPECT_EQ(loaded, g_upgrade_package_info);
  EXPECT_EQ(get_upgrade_package_version(), 7);
  EXPECT_EQ(get_upgrade_type(), 0);
  EXPECT_EQ(get_partition_num(), 3);
  EXPECT_EQ(get_extra_num(), 2);
  EXPECT_EQ(get_upgrade_package_file_fd(), g_upgrade_package_fd);
  EXPECT_EQ(loaded->upgrade_package_file_size, package.bytes().size());
  EXPECT_EQ(get_partition_head_info(), loaded->partition_info);
  EXPECT_EQ(get_extra_head_info(), loaded->extra_info);
  const sim::Bytes hash = head_hash(package);
  EXPECT_EQ(std::memcmp(get_upgrade_package_hash(), hash.data(), 64), 0);
}

TEST_F(ShowTest, TablesAreTheFilesBytes) {
  const sim::Bytes bytes = full_package().bytes();
  load(full_package());
  EXPECT_EQ(std::memcmp(get_upgrade_package_info()->head, bytes.data(), 256), 0);
  EXPECT_EQ(std::memcmp(get_partition_head_info(), bytes.data() + 256, 3 * 128), 0);
  EXPECT_EQ(std::memcmp(get_extra_head_info(), bytes.data() + 256 + 3 * 128, 2 * 120), 0);
  EXPECT_EQ(get_partition_head_info()[1].zipped, 1);
  EXPECT_EQ(get_partition_head_info()[2].offset, INT_MIN);
}

TEST_F(ShowTest, LengthsAreSummedUpModulo32Bits) {
  PackageFile package = support::system_package();
  load(package);
  EXPECT_EQ(get_total_partition_length(), 3000);
  deinit_upgrade_package_info();

  package.partitions[0].len = INT_MAX;
  package.partitions[1].len = INT_MAX;
  package.partitions[2].len = 5;
  load(package);
  EXPECT_EQ(get_total_partition_length(), 3);
  deinit_upgrade_package_info();

  package.partitions[1].len = 1;
  package.partitions[2].len = 0;
  load(package);
  EXPECT_EQ(get_total_partition_length(), INT_MIN);
}

TEST_F(ShowTest, APackageWithoutPartitionsHasNoLength) {
  for (const std::int32_t count : {0, -1}) {
    PackageFile package;
    package.partition_num = count;
    load(package);
    EXPECT_EQ(get_total_partition_length(), 0);
    deinit_upgrade_package_info();
  }
}

// --- Look-ups by name ---------------------------------------------------------------------------

class LookupTest : public PackageTest {
 protected:
  template <typename Entry>
  Lines find(Entry* (*function)(const char*), const char* name) {
    return logged([&] { found_ = function(name); });
  }
  const void* found_ = this;
};

TEST_F(LookupTest, FindsTheFirstEntryOfTheName) {
  load(platform_package(4));
  EXPECT_TRUE(find(get_partition_head_info_by_name, "rootfs").empty());
  EXPECT_EQ(found_, get_partition_head_info() + 1);
  EXPECT_TRUE(find(get_partition_head_info_by_name, "rootfs2").empty());
  EXPECT_EQ(found_, nullptr);
  find(get_partition_head_info_by_name, "root");
  EXPECT_EQ(found_, nullptr);
  find(get_partition_head_info_by_name, "");
  EXPECT_EQ(found_, nullptr);
}

TEST_F(LookupTest, FindsExtraFiles) {
  load(package_with_extras(3));
  EXPECT_TRUE(find(get_extra_head_info_by_name, "extra2").empty());
  EXPECT_EQ(found_, get_extra_head_info() + 2);
  EXPECT_TRUE(find(get_extra_head_info_by_name, "extra").empty());
  EXPECT_EQ(found_, nullptr);
}

// A name of 32 bytes has no terminator: as a string it goes on with the length behind it.
TEST_F(LookupTest, ComparesNamesThatFillTheirFieldAsTheyRunOn) {
  PackageFile package;
  package.extras = {{std::string(32, 'n'), support::pattern(5)}};
  package.extras[0].len = 0x4241;
  load(package);
  find(get_extra_head_info_by_name, std::string(32, 'n').c_str());
  EXPECT_EQ(found_, nullptr);
  find(get_extra_head_info_by_name, (std::string(32, 'n') + "AB").c_str());
  EXPECT_EQ(found_, get_extra_head_info());
}

TEST_F(LookupTest, FindsNothingForANameThatGoesOnBehind32Bytes) {
  PackageFile package;
  package.extras = {{std::string(32, 'n'), {}}};
  load(package);
  find(get_extra_head_info_by_name, std::string(32, 'n').c_str());
  EXPECT_EQ(found_, get_extra_head_info());
  find(get_extra_head_info_by_name, std::string(33, 'n').c_str());
  EXPECT_EQ(found_, nullptr);

  deinit_upgrade_package_info();
  load(platform_package(1));
  std::memset(get_partition_head_info()[0].name, 'n', 32);
  get_partition_head_info()[0].len = 0;
  find(get_partition_head_info_by_name, std::string(33, 'n').c_str());
  EXPECT_EQ(found_, nullptr);
  find(get_partition_head_info_by_name, std::string(32, 'n').c_str());
  EXPECT_EQ(found_, get_partition_head_info());
}

TEST_F(LookupTest, RefusesANullName) {
  load(support::system_package());
  EXPECT_EQ(find(get_partition_head_info_by_name, nullptr),
            said_by("get_partition_head_info_by_name",
                    {"Input parameter is invalid, partition name is null!"}));
  EXPECT_EQ(found_, nullptr);
  EXPECT_EQ(find(get_extra_head_info_by_name, nullptr),
            said_by("get_extra_head_info_by_name", {"Input para invalid, null point!"}));
  EXPECT_EQ(found_, nullptr);
}

TEST_F(LookupTest, RefusesWithoutAPackageOrWithoutEntries) {
  const auto expect_invalid = [&] {
    EXPECT_EQ(
        find(get_partition_head_info_by_name, "kernel"),
        said_by("get_partition_head_info_by_name", {"Invalid upgrade package partition info! "}));
    EXPECT_EQ(found_, nullptr);
    EXPECT_EQ(find(get_extra_head_info_by_name, "extra0"),
              said_by("get_extra_head_info_by_name", {"Invalid upgrade package partition info!"}));
    EXPECT_EQ(found_, nullptr);
  };
  expect_invalid();
  load(PackageFile{});
  expect_invalid();

  upgrade_package_info_t headless{};
  upgrade_package_info_t* const loaded = g_upgrade_package_info;
  g_upgrade_package_info = &headless;
  expect_invalid();
  g_upgrade_package_info = loaded;
}

TEST_F(LookupTest, SaysNothingOfANegativeCount) {
  PackageFile package;
  package.partition_num = package.extra_num = -1;
  load(package);
  EXPECT_TRUE(find(get_partition_head_info_by_name, "kernel").empty());
  EXPECT_EQ(found_, nullptr);
  found_ = this;
  EXPECT_TRUE(find(get_extra_head_info_by_name, "extra0").empty());
  EXPECT_EQ(found_, nullptr);
}

}  // namespace
