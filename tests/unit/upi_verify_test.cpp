// SPDX-License-Identifier: Apache-2.0
#include "upi_verify.h"

#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "fake_clock.h"
#include "library_run.h"
#include "package_test.h"
#include "vemk_fota_ab_upgrade.h"

namespace {

using sim::Op;
using support::PackageFile;
using support::sha512;
using support::shown_digest;
using namespace unit;

using Store = std::vector<std::pair<std::string, std::string>>;
const Store kVerified = {{"fota_ab_upgrade_status", "0"}, {"fota_ab_upgrade_status", "1"}};
const Store kRefused = {{"fota_ab_upgrade_status", "0"}, {"fota_ab_upgrade_status", "2"}};

const Lines kStart =
    said_by("upi_verify", {"<<<<<<<<<<start verifying upgrade package>>>>>>>>>>>"});
const Lines kEnd = said_by("upi_verify", {"-------------- Verify Takes 0s --------------",
                                          "<<<<<<<<<<verify upgrade package Success>>>>>>>>>>>"});
const Lines kFailed = said_by("upi_verify", {"<<<<<<<<<<verify upgrade package Failed>>>>>>>>>>>"});
const Lines kContentGood =
    said_by("verify_upgrade_package_hash", {"Verify upgrade package hash success!"});

Lines digest_line(const std::string& title, const sim::Bytes& digest) {
  return said_by("show_hash_hex", {title + ":" + shown_digest(digest)});
}

Lines image_begin(const std::string& name) {
  return said_by("verify_partition_info",
                 {"--------verify partition package info:" + name + "---------------"});
}
Lines image_fail(const std::string& name) {
  return said_by("verify_partition_info",
                 {"--------verify partition [" + name + "] package info fail-----------\n"});
}
Lines image_good(const std::string& name) {
  return image_begin(name) +
         said_by("verify_partition_package", {"Verify upgrade package hash success!"}) +
         said_by("verify_partition_info",
                 {"--------verify partition [" + name + "] package info end-----------\n"});
}
Lines all_images_good() {
  return image_good("kernel") + image_good("rootfs") + image_good("oemdata");
}

Lines target_begin(const std::string& name) {
  return said_by("verify_partition_info",
                 {"--------verify partition [" + name + "] mtd info---------------"});
}
Lines target_good(const std::string& name, const std::string& mtd_name) {
  return target_begin(name) +
         said_by("is_partition_exist",
                 {"is_partition_exist func begin!", "Mtd :[" + mtd_name + "] exist, size:16384",
                  "is_partition_exist func end!"}) +
         said_by("verify_partition_info",
                 {"--------verify partition [" + name + "] mtd info end-----------\n"});
}

// A package to verify on a device on which system A runs.
class VerifyTest : public PackageTest {
 protected:
  // The verification's own words: what the loader says is tested with the loader.
  Lines verify_package() {
    run_ = run_library(upi_verify);
    EXPECT_EQ(get_upgrade_package_info(), nullptr);
    EXPECT_EQ(run_.saves, run_.store.size());
    std::size_t loader_ends = 0;
    for (std::size_t i = 0; i < run_.log.size(); ++i) {
      loader_ends = run_.log[i].function == "init_upgrade_package_info" ? i + 1 : loader_ends;
    }
    const auto end_of_load = run_.log.begin() + static_cast<std::ptrdiff_t>(loader_ends);
    return without(Lines(run_.log.begin(), run_.log.begin() + (run_.log.empty() ? 0 : 1)) +
                       Lines(end_of_load, run_.log.end()),
                   {"upi_get_current_system"});
  }
  Lines verify_package(const PackageFile& package) {
    put(package);
    return verify_package();
  }
  void expect_verified(const Lines& lines, const Lines& expected) {
    EXPECT_EQ(run_.result, 0);
    EXPECT_EQ(run_.store, kVerified);
    EXPECT_EQ(lines, kStart + expected + kEnd);
    EXPECT_TRUE(held().empty());
  }
  void expect_refused(const Lines& lines, const Lines& expected) {
    EXPECT_EQ(run_.result, -1);
    EXPECT_EQ(run_.store, kRefused);
    EXPECT_EQ(lines, kStart + expected + kFailed);
    EXPECT_TRUE(held().empty());
  }
  LibraryRun run_;
};

// --- Success ------------------------------------------------------------------------------------

TEST_F(VerifyTest, ChecksContentThenImagesThenTheTarget) {
  const Lines lines = verify_package(support::system_package());
  expect_verified(lines, kContentGood + all_images_good() + target_good("kernel", "kernel2") +
                             target_good("rootfs", "rootfs2") + target_good("oemdata", "oemdata2"));
}

TEST_F(VerifyTest, LooksForTheFirstSystemWhenTheSecondRuns) {
  device().set_running(sim::System::b);
  const Lines lines = verify_package(support::system_package());
  expect_verified(lines, kContentGood + all_images_good() + target_good("kernel", "kernel") +
                             target_good("rootfs", "rootfs") + target_good("oemdata", "oemdata"));
}

TEST_F(VerifyTest, WritesNothingToFlashAndOpensNoPartition) {
  const std::string before = support::text(support::system_package().bytes());
  verify_package(support::system_package());
  for (const sim::Call& call : run_.calls) {
    EXPECT_TRUE(call.partition.empty()) << sim::op_name(call.op) << " on " << call.partition;
  }
  EXPECT_EQ(device().flash_operations(), 0U);
  EXPECT_EQ(device().read_file(kPath), before);
}

TEST_F(VerifyTest, ClosesThePackageOnce) {
  verify_package(support::system_package());
  EXPECT_EQ(run_.made(Op::open, kPath).size(), 1U);
  EXPECT_EQ(run_.made(Op::close, kPath).size(), 1U);
}

TEST_F(VerifyTest, ReadsIn4096Bytes) {
  verify_package(support::system_package(5000));
  std::vector<std::uint64_t> sizes;
  for (const sim::Call& read : run_.made(Op::read, kPath)) {
    sizes.push_back(read.length);
  }
  // Magic, head, table; the content of 3 x 128 + 15,000 bytes; three images.
  EXPECT_EQ(sizes, (std::vector<std::uint64_t>{4, 256, 384, 4096, 4096, 4096, 3096, 4096, 904, 4096,
                                               904, 4096, 904}));
}

TEST_F(VerifyTest, TellsTheSecondsThatItTook) {
  put(support::system_package());
  const auto seconds_line = [&](std::uint64_t start, std::uint64_t end) {
    const FakeClock clock({start, end});
    const Lines lines = only(verify_package(), {"upi_verify"});
    EXPECT_EQ(clock.readings(), 2U);
    return lines.at(1).message;
  };
  EXPECT_EQ(seconds_line(5999999, 7999998), "-------------- Verify Takes 1s --------------");
  EXPECT_EQ(seconds_line(0, 71000000), "-------------- Verify Takes 71s --------------");
  // The count of microseconds starts again at 2^32 and its difference is still right.
  EXPECT_EQ(seconds_line(4294000000, 4297000000), "-------------- Verify Takes 3s --------------");
  EXPECT_EQ(seconds_line(1000000, 0), "-------------- Verify Takes 4293s --------------");
}

TEST_F(VerifyTest, TakesAPackageWithoutPartitions) {
  for (const std::int32_t count : {0, -1, INT_MIN}) {
    PackageFile package;
    package.partition_num = count;
    package.upgrade_type = 9;
    package.tail = support::pattern(100);
    expect_verified(verify_package(package), kContentGood);
  }
}

TEST_F(VerifyTest, ExportedFunctionTellsTheSame) {
  put(support::system_package());
  EXPECT_EQ(run_library(vemk_dual_verify).result, 0);
  EXPECT_EQ(device().store().get("fota_ab_upgrade_status"), "1");
  device().remove_file(kPath);
  EXPECT_EQ(run_library(vemk_dual_verify).result, -1);
  EXPECT_EQ(device().store().get("fota_ab_upgrade_status"), "2");
}

// --- Loading ------------------------------------------------------------------------------------

TEST_F(VerifyTest, RefusesWithoutAPackage) {
  const Lines lines = verify_package();
  expect_refused(lines, said_by("upi_verify", {"Init upgrade package info fail"}));
  EXPECT_EQ(run_.log.at(1).message, kBegin);
}

TEST_F(VerifyTest, LeavesTheDescriptorOfAnAbandonedLoadOpen) {
  PackageFile package = support::system_package();
  package.extra_num = 50;
  put(package);
  const Lines lines = verify_package();
  EXPECT_EQ(run_.result, -1);
  EXPECT_EQ(run_.store, kRefused);
  EXPECT_EQ(lines, kStart + said_by("upi_verify", {"Init upgrade package info fail"}) + kFailed);
  EXPECT_EQ(held(), std::vector<int>{g_upgrade_package_fd});
  close(g_upgrade_package_fd);
}

TEST_F(VerifyTest, NeedsALoadedPackage) {
  const LibraryRun run = run_library(verify);
  EXPECT_EQ(run.result, -1);
  EXPECT_EQ(run.log, said_by("verify", {"Get upgrade package info fail!"}));
  EXPECT_TRUE(run.store.empty());
}

// --- The content digest -------------------------------------------------------------------------

class VerifyContentTest : public VerifyTest {
 protected:
  // Verifies bytes whose content digest does not match.
  void expect_shown(const sim::Bytes& package) {
    put(package);
    const sim::Bytes kept(package.begin() + 164, package.begin() + 228);
    const sim::Bytes counted = sha512(sim::Bytes(package.begin() + 256, package.end()));
    const Lines lines = verify_package();
    expect_refused(lines,
                   digest_line("Verify upgrade package hash, get from delta:", kept) +
                       digest_line("Verify upgrade package hash, count from delta:", counted));
  }
};

TEST_F(VerifyContentTest, ShowsBothDigestsOfAChangedFile) {
  const sim::Bytes good = support::system_package().bytes();
  // The first name, a digest of an entry, the first image's first byte, the last byte of all.
  for (const std::size_t at :
       {std::size_t{300}, std::size_t{256 + 64}, std::size_t{256 + 384}, good.size() - 1}) {
    sim::Bytes bytes = good;
    bytes[at] = static_cast<std::uint8_t>(bytes[at] ^ 1);
    expect_shown(bytes);
  }
}

TEST_F(VerifyContentTest, ShowsBothDigestsOfAFileThatWasCutOrGrew) {
  sim::Bytes bytes = support::system_package().bytes();
  bytes.push_back(0);
  expect_shown(bytes);
  bytes.resize(bytes.size() - 2);
  expect_shown(bytes);
}

TEST_F(VerifyContentTest, DoesNotCoverTheHead) {
  sim::Bytes bytes = support::system_package().bytes();
  bytes[4] = 99;
  bytes[40] = 'x';
  bytes[255] = 1;
  put(bytes);
  verify_package();
  EXPECT_EQ(run_.result, 0);
}

TEST_F(VerifyContentTest, EndsBeforeTheTargetIsAskedFor) {
  device().write_file("/proc/cmdline", "rootwait\n");
  sim::Bytes bytes = support::system_package().bytes();
  bytes.back() = static_cast<std::uint8_t>(bytes.back() ^ 1);
  expect_shown(bytes);
  EXPECT_TRUE(run_.made(Op::fopen, "/proc/cmdline").empty());
}

TEST_F(VerifyContentTest, ComparesUpToACommonZeroByte) {
  PackageFile package = support::system_package();
  sim::Bytes bytes = package.bytes();
  const sim::Bytes content =
      support::with_zero_in_digest(sim::Bytes(bytes.begin() + 256, bytes.end()));
  package.tail =
      sim::Bytes(content.begin() + static_cast<std::ptrdiff_t>(bytes.size()) - 256, content.end());
  package.hash = support::changed_behind_zero(sha512(content));
  ASSERT_NE(*package.hash, sha512(content));
  verify_package(package);
  EXPECT_EQ(run_.result, 0);
}

TEST_F(VerifyContentTest, ReportsAFileThatCannotBeRead) {
  put(support::system_package());
  device().faults().add({Op::read, kPath, 4, EIO});
  const Lines lines = verify_package();
  expect_refused(lines,
                 said_by("get_hash_SHA512_from_fd",
                         {"Get file content failed, error: " + shown_error(EIO) + "!"}) +
                     said_by("verify_upgrade_package_hash", {"Get upgrade package hash fail"}));
}

TEST_F(VerifyContentTest, ReportsAFileThatCannotBeSoughtIn) {
  put(support::system_package());
  device().faults().add({Op::lseek, kPath, 2, ESPIPE});
  const Lines lines = verify_package();
  expect_refused(lines,
                 said_by("get_hash_SHA512_from_fd", {"Lseek failed with return value: -1, "
                                                     "error:" +
                                                     shown_error(ESPIPE)}) +
                     said_by("verify_upgrade_package_hash", {"Get upgrade package hash fail"}));
}

// Without a byte behind the head the length is 0, which stands for the whole file: the reading
// never comes to its end. An error ends it here.
TEST_F(VerifyContentTest, NeverEndsWithAHeadAlone) {
  put(PackageFile{});
  device().faults().add({Op::read, kPath, 40, EIO});
  verify_package();
  EXPECT_EQ(run_.result, -1);
  EXPECT_EQ(run_.made(Op::read, kPath).size(), 40U);
}

// --- The images ---------------------------------------------------------------------------------

class VerifyImagesTest : public VerifyTest {};

TEST_F(VerifyImagesTest, RefusesAnImageThatIsNotItsEntrys) {
  PackageFile package = support::system_package();
  const sim::Bytes wrong = sha512(support::pattern(1));
  package.partitions[1].hash = wrong;
  const Lines lines = verify_package(package);
  expect_refused(
      lines,
      kContentGood + image_good("kernel") + image_begin("rootfs") +
          digest_line("Verify upgrade package partition hash, get from delta head info: ", wrong) +
          digest_line(
              "Verify upgrade package partition hash, count from delta partiontion content: ",
              sha512(package.partitions[1].data)) +
          image_fail("rootfs"));
}

TEST_F(VerifyImagesTest, FindsImagesWhereverTheyLie) {
  PackageFile package = support::system_package();
  package.tail = support::pattern(500, 9);
  const std::size_t tail = package.bytes().size() - 500;
  package.partitions[0].offset = static_cast<std::int32_t>(tail + 100);
  package.partitions[0].len = 300;
  package.partitions[0].hash =
      sha512(sim::Bytes(package.tail.begin() + 100, package.tail.begin() + 400));
  package.partitions[2].offset = package.partitions[0].offset;
  package.partitions[2].len = 300;
  package.partitions[2].hash = package.partitions[0].hash;
  verify_package(package);
  EXPECT_EQ(run_.result, 0);
}

TEST_F(VerifyImagesTest, ComparesUpToACommonZeroByte) {
  PackageFile package = support::system_package();
  package.partitions[2].data = support::with_zero_in_digest(support::pattern(100));
  package.partitions[2].hash = support::changed_behind_zero(sha512(package.partitions[2].data));
  verify_package(package);
  EXPECT_EQ(run_.result, 0);
}

TEST_F(VerifyImagesTest, DoesNotCheckExtraFiles) {
  PackageFile package = support::system_package();
  package.extras = {{"notes", support::pattern(10)}};
  package.extras[0].hash = sim::Bytes(64, 1);
  verify_package(package);
  EXPECT_EQ(run_.result, 0);
}

TEST_F(VerifyImagesTest, ReportsAnImageThatCannotBeRead) {
  put(support::system_package());
  // Magic, head, table, content, the first image.
  device().faults().add({Op::read, kPath, 6, EIO});
  const Lines lines = verify_package();
  expect_refused(lines, kContentGood + image_good("kernel") + image_begin("rootfs") +
                            said_by("get_hash_SHA512_from_fd",
                                    {"Get file content failed, error: " + shown_error(EIO) + "!"}) +
                            said_by("verify_partition_package",
                                    {"Get partition [rootfs] hash from pacakge file fail!"}) +
                            image_fail("rootfs"));
}

TEST_F(VerifyImagesTest, NeverEndsWithARangePastTheFilesEnd) {
  PackageFile package = support::system_package();
  package.partitions[0].len = 100000;
  put(package);
  device().faults().add({Op::read, kPath, 60, EIO});
  verify_package();
  EXPECT_EQ(run_.result, -1);
  EXPECT_EQ(run_.made(Op::read, kPath).size(), 60U);
}

TEST_F(VerifyImagesTest, NeverEndsWithAnImageOfNoBytes) {
  PackageFile package = support::system_package();
  package.partitions[0].len = 0;
  put(package);
  device().faults().add({Op::read, kPath, 60, EIO});
  verify_package();
  EXPECT_EQ(run_.result, -1);
  EXPECT_EQ(run_.made(Op::read, kPath).size(), 60U);
}

TEST_F(VerifyImagesTest, CountsOffsetsPast2GiB) {
  PackageFile package = support::system_package();
  package.partitions[0].offset = INT_MIN;
  put(package);
  device().faults().add({Op::read, kPath, 5, EIO});
  verify_package();
  EXPECT_EQ(run_.made(Op::lseek, kPath).at(2).offset, 0x80000000U);
}

// --- The target ---------------------------------------------------------------------------------

class VerifyTargetTest : public VerifyTest {
 protected:
  // A device that lacks one partition of system B.
  void use_without(const std::string& name) {
    std::string table = device().read_file("/proc/mtd");
    const std::size_t at = table.find("\"" + name + "\"");
    table.replace(at + 1, name.size(), "gone");
    device().write_file("/proc/mtd", table);
  }
};

TEST_F(VerifyTargetTest, RefusesAPartitionThatTheTargetLacks) {
  use_without("rootfs2");
  put(support::system_package());
  const Lines lines = without(verify_package(), {"is_partition_exist"});
  expect_refused(lines,
                 kContentGood + all_images_good() +
                     without(target_good("kernel", "kernel2"), {"is_partition_exist"}) +
                     target_begin("rootfs") +
                     said_by("verify_partition_mtd", {"There is no [rootfs] partition!"}) +
                     said_by("verify_partition_info",
                             {"--------verify partition [rootfs] mtd info fail-----------\n"}));
}

TEST_F(VerifyTargetTest, ChecksEveryImageBeforeTheTarget) {
  use_without("kernel2");
  PackageFile package = support::system_package();
  package.partitions[2].hash = sim::Bytes(64, 1);
  put(package);
  const Lines lines = verify_package();
  EXPECT_EQ(lines.back(), kFailed[0]);
  EXPECT_EQ(*(lines.end() - 2), image_fail("oemdata")[0]);
  EXPECT_TRUE(only(run_.log, {"verify_partition_mtd", "is_partition_exist"}).empty());
}

TEST_F(VerifyTargetTest, SaysNothingOfAnUnknownTarget) {
  device().write_file("/proc/cmdline", "console=ttyS0 rootwait\n");
  put(support::system_package());
  const Lines lines = without(verify_package(), {"upi_get_target_upgrade_system"});
  expect_refused(lines, kContentGood);
  // The images were not looked at.
  EXPECT_EQ(run_.made(Op::read, kPath).size(), 4U);
}

TEST_F(VerifyTargetTest, RefusesAnUnknownTargetOfAPackageWithoutPartitionsToo) {
  device().write_file("/proc/cmdline", "rootwait\n");
  PackageFile package;
  package.tail = support::pattern(10);
  const Lines lines = without(verify_package(package), {"upi_get_target_upgrade_system"});
  expect_refused(lines, kContentGood);
}

// No loaded package lacks its table; one that a host made up may.
TEST_F(VerifyTargetTest, RefusesAPackageThatLacksItsTable) {
  upgrade_package_head_info_t head{};
  head.partition_num = 1;
  upgrade_package_info_t made_up{&head, nullptr, nullptr, -1, 0};
  g_upgrade_package_info = &made_up;
  const LibraryRun run = run_library(verify_partition_info);
  g_upgrade_package_info = nullptr;
  EXPECT_EQ(run.result, -1);
  EXPECT_EQ(run.log.back(),
            said_by("verify_partition_info", {"Partition index [0] info is null!"})[0]);
}

TEST_F(VerifyTargetTest, AsksAboutOnePartition) {
  partition_head_info_t entry{};
  std::strcpy(entry.name, "kernel");
  EXPECT_EQ(run_library([&] { return verify_partition_mtd(2, &entry); }).result, 0);
  std::strcpy(entry.name, "boot");
  const LibraryRun run = run_library([&] { return verify_partition_mtd(1, &entry); });
  EXPECT_EQ(run.result, -1);
  EXPECT_EQ(run.log.back(), said_by("verify_partition_mtd", {"There is no [boot] partition!"})[0]);
}

// Names without a terminator end with the table that holds them.
TEST_F(VerifyTargetTest, NamesEndWithTheirTable) {
  load(platform_package(1));
  partition_head_info_t* entry = get_partition_head_info();
  std::memset(entry, 'n', sizeof *entry);
  const LibraryRun run = run_library([&] { return verify_partition_mtd(2, entry); });
  EXPECT_EQ(run.result, -1);
  EXPECT_EQ(run.log.back().message, "There is no [" + std::string(128, 'n') + "] partition!");
}

}  // namespace
