// SPDX-License-Identifier: Apache-2.0
//
// Loading a package: the file, its head, its tables, and releasing it.
#include "upi_upgrade_package.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "descriptor_squatter.h"
#include "package_test.h"
#include "upi_sync_system.h"
#include "vemk_fota_ab_upgrade.h"

namespace {

using sim::Op;
using support::logged;
using support::PackageFile;
using namespace unit;

PackageFile empty_package() {
  return {};
}

class LoadTest : public PackageTest {};

// --- The file -----------------------------------------------------------------------------------

TEST_F(LoadTest, RefusesANullPath) {
  EXPECT_EQ(load(nullptr),
            init_says({kBegin, "Input para invalid, upgrade package file path is invalid:(nil)"}));
  expect_refused();
}

TEST_F(LoadTest, ReportsAFileThatCannotBeOpened) {
  EXPECT_EQ(load(), init_says({kBegin, "Open upgrade package file[" + kPath +
                                           "] error, error:" + shown_error(ENOENT)}));
  expect_refused();
  EXPECT_EQ(g_upgrade_package_fd, -1);

  put(empty_package());
  device().faults().add({Op::open, kPath, 1, EMFILE});
  EXPECT_EQ(load().back().message,
            "Open upgrade package file[" + kPath + "] error, error:" + shown_error(EMFILE));
  expect_refused();
}

TEST_F(LoadTest, OpensAnyPathForReading) {
  device().write_file("/cache/other", empty_package().bytes());
  const sim::Recording recording;
  load("/cache/other");
  EXPECT_EQ(result_, 0);
  const auto opens = recording.calls(Op::open, "/cache/other");
  ASSERT_EQ(opens.size(), 1U);
  EXPECT_EQ(opens[0].flags & (O_ACCMODE | O_CREAT | O_TRUNC | O_APPEND), O_RDONLY);
  EXPECT_EQ(opens[0].fd, g_upgrade_package_fd);
  EXPECT_EQ(opens[0].fd, get_upgrade_package_file_fd());
}

TEST_F(LoadTest, RefusesAFileShorterThanTheHead) {
  sim::Bytes bytes = empty_package().bytes();
  bytes.pop_back();
  put(bytes);
  EXPECT_EQ(load(), init_says({kBegin}) +
                        said_by("is_upgrade_package_file_valid",
                                {"Upgrade package file is too short [255], less than upgrade "
                                 "package head info [256]!"}));
  expect_refused();

  put(sim::Bytes{});
  EXPECT_EQ(load().back().message,
            "Upgrade package file is too short [0], less than upgrade package head info [256]!");
  expect_refused();
}

TEST_F(LoadTest, LoadsAHeadAlone) {
  load(empty_package());
  expect_loaded();
  EXPECT_EQ(get_upgrade_package_info()->upgrade_package_file_size, 256U);
  EXPECT_EQ(get_partition_head_info(), nullptr);
  EXPECT_EQ(get_extra_head_info(), nullptr);
}

TEST_F(LoadTest, ReportsASizeThatCannotBeRead) {
  put(empty_package());
  device().faults().add({Op::stat, kPath, 1, EIO});
  const Lines lines = load();
  EXPECT_EQ(lines,
            init_says({kBegin}) + said_by("is_upgrade_package_file_valid",
                                          {"Stat fd[" + std::to_string(g_upgrade_package_fd) +
                                           "] error: " + shown_error(EIO)}));
  expect_refused();
}

// --- The magic ----------------------------------------------------------------------------------

TEST_F(LoadTest, RefusesAnotherMagic) {
  const auto refused = [&](const std::string& magic, const std::string& shown) {
    PackageFile package;
    package.magic = magic;
    EXPECT_EQ(loader_lines(load(package)),
              init_says({kBegin}) + said_by("is_upgrade_package_file_valid",
                                            {"Upgrade package magic word invalid:" + shown + "!"}));
    expect_refused();
  };
  refused("FOTB", "FOTB");
  refused("fota", "fota");
  refused(std::string("FO\0A", 4), "FO");
  refused(std::string("FOT\0", 4), "FOT");
  refused(std::string("\0OTA", 4), "");
  refused("\xFF\xFE\xFD\xFC", "\xFF\xFE\xFD\xFC");
}

TEST_F(LoadTest, ReportsAMagicThatCannotBeRead) {
  put(empty_package());
  device().faults().add({Op::read, kPath, 1, EIO});
  EXPECT_EQ(loader_lines(load()),
            init_says({kBegin}) +
                said_by("is_upgrade_package_file_valid",
                        {"Get upgrade package magic word fail, get len:-1 is too short!"}));
  expect_refused();
}

TEST_F(LoadTest, ReportsAMagicThatIsCutShort) {
  put(empty_package());
  device().faults().add({Op::read, kPath, 1, 0, false, 3});
  device().faults().add({Op::read, kPath, 2, 0, false, 0});
  EXPECT_EQ(load().back().message, "Get upgrade package magic word fail, get len:3 is too short!");
  expect_refused();
}

TEST_F(LoadTest, ReportsAFileThatCannotBeClosedEither) {
  PackageFile package;
  package.magic = "FOTB";
  put(package);
  device().faults().add({Op::close, kPath, 1, EIO});
  const Lines lines = load();
  EXPECT_EQ(lines.back(), init_says({"Close upgrade package file [" + kPath +
                                     "] error, error: " + shown_error(EIO)})[0]);
  expect_refused();
}

// --- The head -----------------------------------------------------------------------------------

TEST_F(LoadTest, ReadsMagicHeadAndTablesInPieces) {
  PackageFile package = support::system_package();
  package.extras = package_with_extras(2).extras;
  put(package);
  const sim::Recording recording;
  load();
  expect_loaded();
  std::vector<std::uint64_t> sizes;
  std::vector<std::uint64_t> offsets;
  for (const sim::Call& read : recording.calls(Op::read, kPath)) {
    sizes.push_back(read.length);
    offsets.push_back(read.offset);
  }
  EXPECT_EQ(sizes, (std::vector<std::uint64_t>{4, 256, 3 * 128, 2 * 120}));
  EXPECT_EQ(offsets, (std::vector<std::uint64_t>{0, 0, 256, 256 + 3 * 128}));
  const auto seeks = recording.calls(Op::lseek, kPath);
  ASSERT_EQ(seeks.size(), 1U);
  EXPECT_EQ(seeks[0].offset, 0U);
  EXPECT_EQ(seeks[0].flags, SEEK_SET);
  EXPECT_TRUE(recording.calls(Op::close, kPath).empty());
}

TEST_F(LoadTest, FailsWhenThePathCannotBeAskedForItsSize) {
  put(empty_package());
  device().faults().add({Op::stat, kPath, 2, EACCES});
  EXPECT_EQ(
      loader_lines(load()),
      magic_is_good() +
          init_says({"Stat file [" + kPath + "] error, error: " + shown_error(EACCES), kFail}));
  expect_abandoned();
}

TEST_F(LoadTest, FailsWhenTheFileCannotBeRewound) {
  put(empty_package());
  device().faults().add({Op::lseek, kPath, 1, ESPIPE});
  EXPECT_EQ(
      loader_lines(load()),
      magic_is_good() +
          init_says({"Lseek file [" + kPath + "] error, error:" + shown_error(ESPIPE), kFail}));
  expect_abandoned();
}

TEST_F(LoadTest, FailsWhenTheHeadCannotBeRead) {
  put(empty_package());
  device().faults().add({Op::read, kPath, 2, EIO});
  const Lines lines = load();
  EXPECT_EQ(loader_lines(lines),
            magic_is_good() +
                init_says({"Read upgrade package file head info fail, get length:-1, error: " +
                               shown_error(EIO),
                           kFail}));
  EXPECT_EQ(only(lines, {"upi_readn"}).back().message,
            "Read data from file error, error: " + shown_error(EIO));
  expect_abandoned();
}

TEST_F(LoadTest, FailsWhenTheHeadIsCutShort) {
  put(empty_package());
  device().faults().add({Op::read, kPath, 2, 0, false, 100});
  device().faults().add({Op::read, kPath, 3, 0, false, 0});
  EXPECT_EQ(loader_lines(load()),
            magic_is_good() +
                init_says({"Read upgrade package file head info fail, get length:100, error: " +
                               shown_error(0),
                           kFail}));
  expect_abandoned();
}

TEST_F(LoadTest, ReadsThroughInterruptions) {
  put(support::system_package());
  for (const std::uint64_t at : {1U, 3U, 5U}) {
    device().faults().add({Op::read, kPath, at, EINTR});
  }
  load();
  expect_loaded();
  EXPECT_EQ(device().faults().struck(), 3U);
}

// --- Descriptors that are closed -----------------------------------------------------------------

// A number that was closed may be somebody else's a moment later.
TEST_F(LoadTest, ClosesNoDescriptorTwice) {
  DescriptorSquatter squatter;
  PackageFile package = support::system_package();
  load();
  load(package);
  deinit_upgrade_package_info();
  package.upgrade_type = 3;
  load(package);
  expect_refused();
  package.magic = "FOTB";
  load(package);
  expect_refused();
  EXPECT_TRUE(squatter.lost().empty());
  EXPECT_GT(squatter.taken(), 0U);
}

// --- Release ------------------------------------------------------------------------------------

class ReleaseTest : public PackageTest {
 protected:
  Lines release() {
    return logged([] { deinit_upgrade_package_info(); });
  }
};

TEST_F(ReleaseTest, ClosesTheFileOnce) {
  load(support::system_package());
  const int fd = g_upgrade_package_fd;
  const sim::Recording recording;
  EXPECT_TRUE(release().empty());
  EXPECT_EQ(get_upgrade_package_info(), nullptr);
  EXPECT_EQ(g_upgrade_package_info, nullptr);
  EXPECT_EQ(recording.calls(Op::close, kPath).size(), 1U);
  EXPECT_TRUE(held().empty());
  EXPECT_EQ(g_upgrade_package_fd, fd);
}

TEST_F(ReleaseTest, DoesNothingWithoutAPackage) {
  EXPECT_TRUE(release().empty());
  load(support::system_package());
  release();
  // The number that the package's descriptor had goes to somebody else.
  const int fd = ::dup2(STDERR_FILENO, g_upgrade_package_fd);
  EXPECT_TRUE(release().empty());
  EXPECT_EQ(::close(fd), 0);
}

TEST_F(ReleaseTest, ReportsAFileThatCannotBeClosed) {
  load(support::system_package());
  device().faults().add({Op::close, kPath, 1, EIO});
  EXPECT_EQ(release(), said_by("deinit_upgrade_package_info",
                               {"Close upgrade package file error, error:Input/output error"}));
  EXPECT_EQ(get_upgrade_package_info(), nullptr);
}

TEST_F(ReleaseTest, LeavesDescriptorZeroOpen) {
  load();  // fails, and the log's stream has its descriptor
  put(support::system_package());
  const int standard_input = ::dup(0);
  logged([] {
    ::close(0);
    init_upgrade_package_info(kPath.c_str());
  });
  EXPECT_EQ(get_upgrade_package_file_fd(), 0);
  release();
  EXPECT_EQ(held(), std::vector<int>{0});
  ::close(0);
  ::dup2(standard_input, 0);
  ::close(standard_input);
}

// Callers release first; who does not keeps the earlier package and its descriptor.
TEST_F(ReleaseTest, ASecondLoadReplacesTheFirst) {
  load(support::system_package());
  upgrade_package_info_t* const first = get_upgrade_package_info();
  load(support::system_package());
  EXPECT_NE(get_upgrade_package_info(), first);
  EXPECT_EQ(held(),
            (std::vector<int>{first->upgrade_package_file_desc, get_upgrade_package_file_fd()}));
  EXPECT_EQ(get_upgrade_package_file_fd(), g_upgrade_package_fd);
  release();
  EXPECT_EQ(held(), std::vector<int>{first->upgrade_package_file_desc});
  g_upgrade_package_info = first;
  release();
  EXPECT_TRUE(held().empty());
}

TEST_F(ReleaseTest, LoadsAgainAfterARelease) {
  for (int round = 0; round < 3; ++round) {
    load(support::system_package());
    expect_loaded();
    release();
    EXPECT_TRUE(held().empty());
  }
}

// --- The upgrade type of the package at its fixed path ------------------------------------------

class UpgradeTypeQueryTest : public PackageTest {
 protected:
  int query(int (*function)()) {
    int type = -2;
    lines_ = logged([&] { type = function(); });
    EXPECT_EQ(get_upgrade_package_info(), nullptr);
    EXPECT_TRUE(held().empty());
    return type;
  }
  Lines lines_;
};

TEST_F(UpgradeTypeQueryTest, LoadsAsksAndReleases) {
  PackageFile package = platform_package(2);
  put(package);
  EXPECT_EQ(query(upi_get_upgrade_type), 1);
  EXPECT_EQ(query(vemk_dual_get_upgrade_type), 1);
  put(support::system_package());
  EXPECT_EQ(query(vemk_dual_get_upgrade_type), 0);
}

TEST_F(UpgradeTypeQueryTest, PassesAnyTypeOfAPackageWithoutPartitionsOn) {
  for (const std::int32_t type : {9, -1, INT_MAX, INT_MIN}) {
    PackageFile package;
    package.upgrade_type = type;
    put(package);
    EXPECT_EQ(query(upi_get_upgrade_type), type);
    EXPECT_EQ(query(vemk_dual_get_upgrade_type), type);
  }
}

TEST_F(UpgradeTypeQueryTest, FailsWithoutAPackage) {
  for (const auto function : {upi_get_upgrade_type, vemk_dual_get_upgrade_type}) {
    EXPECT_EQ(query(function), -1);
    EXPECT_EQ(lines_, init_says({kBegin, "Open upgrade package file[" + kPath +
                                             "] error, error:" + shown_error(ENOENT)}) +
                          said_by("upi_get_upgrade_type", {"Init upgrade package info fail"}));
  }
}

}  // namespace
