// SPDX-License-Identifier: Apache-2.0
//
// Work files: folders, existence, length, reading.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/device_test.h"
#include "upi_log.h"
#include "upi_public.h"

namespace {

using support::logged;
using support::LogLine;
using Lines = std::vector<LogLine>;

class FilesTest : public support::DeviceTest {
 protected:
  // With the log open, a diagnostic asks nothing of the device but its own writes.
  void SetUp() override {
    char path[] = UPI_LOG_PATH;
    char text[] = "begin";
    static_cast<void>(support::printed([&] {
      upi_close_logfile();
      upi_fwrite(path, text);
    }));
  }

  bool is_folder(const std::string& path) {
    return std::filesystem::is_directory(device().host_path(path));
  }
  void fail(sim::Op op, const std::string& where, int error, std::uint64_t at = 1) {
    device().faults().add({op, where, at, error});
  }
  // Paths and modes of the mkdir() calls that `body` makes.
  template <typename Body>
  std::vector<std::pair<std::string, int>> made(Body body) {
    const sim::Recording recording;
    body();
    std::vector<std::pair<std::string, int>> out;
    for (const sim::Call& call : recording.calls(sim::Op::mkdir)) {
      out.emplace_back(call.path, call.flags);
    }
    return out;
  }
};

using Made = std::vector<std::pair<std::string, int>>;

// A path of `length` characters below /cache whose folders are missing.
std::string path_of(std::size_t length) {
  std::string path = "/cache";
  while (path.size() < length) {
    path += "/" + std::string(49, 'p');
  }
  path.resize(length);
  return path;
}

TEST_F(FilesTest, FixedPaths) {
  EXPECT_STREQ(get_log_root_path(), "/cache/ovu_fota_ab/");
  EXPECT_STREQ(get_temp_path(), "/cache/ovu_fota_ab/upgrade_temp/");
}

// --- upi_create_folder --------------------------------------------------------------------------

TEST_F(FilesTest, CreateFolderMakesOneFolder) {
  int result = -7;
  Made folders;
  const Lines lines =
      logged([&] { folders = made([&] { result = upi_create_folder("/cache/new"); }); });
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(lines.empty());
  EXPECT_EQ(folders, (Made{{"/cache/new", 0777}}));
  EXPECT_TRUE(is_folder("/cache/new"));
}

TEST_F(FilesTest, CreateFolderThatIsThereSucceeds) {
  Lines lines;
  const Made folders =
      made([&] { lines = logged([] { EXPECT_EQ(upi_create_folder("/cache/ovu_fota_ab/"), 0); }); });
  EXPECT_EQ(folders.size(), 1U);
  EXPECT_TRUE(lines.empty());
}

TEST_F(FilesTest, CreateFolderTellsAnyOtherFailure) {
  fail(sim::Op::mkdir, "/cache/new", EACCES);
  Lines lines;
  const Made folders =
      made([&] { lines = logged([] { EXPECT_EQ(upi_create_folder("/cache/new"), -1); }); });
  EXPECT_EQ(folders.size(), 1U);
  EXPECT_EQ(lines, (Lines{{"upi_create_folder", "Create folder problem value: -1, errno: 13"}}));
}

TEST_F(FilesTest, CreateFolderBelowAFileFails) {
  device().write_file("/cache/file", "content");
  const Lines lines = logged([] { EXPECT_EQ(upi_create_folder("/cache/file/new"), -1); });
  EXPECT_EQ(lines, (Lines{{"upi_create_folder", "Create folder problem value: -1, errno: 20"}}));
}

TEST_F(FilesTest, CreateFolderMakesMissingAncestors) {
  int result = -7;
  Lines lines;
  const Made folders =
      made([&] { lines = logged([&] { result = upi_create_folder("/cache/a/b/c"); }); });
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(lines.empty());
  EXPECT_TRUE(is_folder("/cache/a/b/c"));
  EXPECT_EQ(folders, (Made{{"/cache/a/b/c", 0777},
                           {"/cache/a/b", 0777},
                           {"/cache/a", 0777},
                           {"/cache/a/b", 0777},
                           {"/cache/a/b/c", 0777}}));
}

// Making the ancestors of a path with a trailing slash makes the path too.
TEST_F(FilesTest, CreateFolderWithTrailingSlashAndMissingAncestorsFindsItMade) {
  const Lines lines = logged([] { EXPECT_EQ(upi_create_folder("/cache/a/b/"), -1); });
  EXPECT_EQ(lines, (Lines{{"upi_create_folder", "Create folder problem value: -1, errno: 17"}}));
  EXPECT_TRUE(is_folder("/cache/a/b"));
  EXPECT_EQ(upi_create_folder("/cache/a/b/"), 0);
}

TEST_F(FilesTest, CreateFolderTellsAncestorsThatCannotBeMade) {
  fail(sim::Op::mkdir, "/cache/a", EROFS);
  const Lines lines = logged([] { EXPECT_EQ(upi_create_folder("/cache/a/b"), -1); });
  EXPECT_EQ(lines, (Lines{{"RecursiveFolderCreater", "mkdir ret:-1, error:Read-only file system"},
                          {"upi_create_folder", "Create folder problem value: -1, errno: 30"}}));
  EXPECT_FALSE(is_folder("/cache/a"));
}

// A log that fails in its own way between the failure and the message about it changes nothing.
TEST_F(FilesTest, CreateFolderTellsItsOwnErrorWhateverHappensToTheLog) {
  static_cast<void>(support::printed([] { upi_close_logfile(); }));
  device().faults().add({sim::Op::fopen, UPI_LOG_PATH, 1, EMFILE, true});
  fail(sim::Op::mkdir, "/cache/a", EROFS);
  const std::string console =
      support::printed([] { EXPECT_EQ(upi_create_folder("/cache/a/b"), -1); });
  EXPECT_NE(console.find("]: Create folder problem value: -1, errno: 30\n"), std::string::npos)
      << console;
}

TEST_F(FilesTest, CreateFolderTellsTheErrorOfTheLastAttempt) {
  fail(sim::Op::mkdir, "/cache/a/b", ENOSPC, 2);
  const Lines lines = logged([] { EXPECT_EQ(upi_create_folder("/cache/a/b"), -1); });
  EXPECT_EQ(lines, (Lines{{"upi_create_folder", "Create folder problem value: -1, errno: 28"}}));
}

TEST_F(FilesTest, CreateFolderWithTooLongAPathFails) {
  const std::string path = path_of(256);
  const Lines lines = logged([&] { EXPECT_EQ(upi_create_folder(path.c_str()), -1); });
  EXPECT_EQ(lines, (Lines{{"upi_create_folder", "Create folder problem value: -1, errno: 2"}}));
}

// The log may be what needs the folder: its failure must not come round again.
TEST_F(FilesTest, CreateFolderFailsWithoutRecursionWhenTheLogNeedsTheSameFolder) {
  static_cast<void>(support::printed([] { upi_close_logfile(); }));
  std::filesystem::remove_all(device().host_path("/cache/ovu_fota_ab"));
  device().faults().add({sim::Op::mkdir, "", 1, EACCES, true});
  const Lines lines = logged([] { EXPECT_EQ(upi_create_folder("/cache/ovu_fota_ab/"), -1); });
  ASSERT_GE(lines.size(), 1U);
  EXPECT_LE(lines.size(), 2U);
  for (const LogLine& line : lines) {
    EXPECT_EQ(line.function, "upi_create_folder");
    EXPECT_EQ(line.message.substr(0, 42), "Create folder problem value: -1, errno: 13");
  }
}

// --- RecursiveFolderCreater ---------------------------------------------------------------------

TEST_F(FilesTest, RecursiveCreaterMakesTheParentsOnly) {
  int result = -7;
  Lines lines;
  const Made folders =
      made([&] { lines = logged([&] { result = RecursiveFolderCreater("/cache/a/b/c", 0750); }); });
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(lines.empty());
  EXPECT_EQ(folders, (Made{{"/cache/a/b", 0750}, {"/cache/a", 0750}, {"/cache/a/b", 0750}}));
  EXPECT_TRUE(is_folder("/cache/a/b"));
  EXPECT_FALSE(is_folder("/cache/a/b/c"));
}

TEST_F(FilesTest, RecursiveCreaterMakesAllWithATrailingSlash) {
  EXPECT_EQ(RecursiveFolderCreater("/cache/a/b/c/", 0777), 0);
  EXPECT_TRUE(is_folder("/cache/a/b/c"));
}

TEST_F(FilesTest, RecursiveCreaterTakesWhatIsThere) {
  const Lines lines = logged([] {
    EXPECT_EQ(RecursiveFolderCreater("/cache/any", 0777), 0);
    EXPECT_EQ(RecursiveFolderCreater("/cache/", 0777), 0);
  });
  EXPECT_TRUE(lines.empty());
}

TEST_F(FilesTest, RecursiveCreaterRefusesLengthsOutOfRange) {
  const Made folders = made([&] {
    EXPECT_EQ(RecursiveFolderCreater("", 0777), -1);
    EXPECT_EQ(RecursiveFolderCreater(path_of(256).c_str(), 0777), -1);
    EXPECT_EQ(RecursiveFolderCreater(path_of(2000).c_str(), 0777), -1);
  });
  EXPECT_TRUE(folders.empty());
}

TEST_F(FilesTest, RecursiveCreaterTakesTheLongestPath) {
  const std::string path = path_of(255);
  EXPECT_EQ(RecursiveFolderCreater(path.c_str(), 0777), 0);
  EXPECT_TRUE(is_folder(path.substr(0, path.rfind('/'))));
  EXPECT_FALSE(is_folder(path));
}

TEST_F(FilesTest, RecursiveCreaterTakesTheLongestPathWithATrailingSlash) {
  const std::string path = path_of(254) + "/";
  ASSERT_EQ(path.size(), 255U);
  EXPECT_EQ(RecursiveFolderCreater(path.c_str(), 0777), 0);
  EXPECT_TRUE(is_folder(path));
}

TEST_F(FilesTest, RecursiveCreaterNeedsASlash) {
  const Lines lines = logged([] { EXPECT_EQ(RecursiveFolderCreater("name", 0777), -1); });
  EXPECT_TRUE(lines.empty());
}

TEST_F(FilesTest, RecursiveCreaterFindsNoParentOfTheRoot) {
  EXPECT_EQ(RecursiveFolderCreater("/", 0777), -1);
  EXPECT_EQ(RecursiveFolderCreater("/nothing-of-that-name", 0777), -1);
}

TEST_F(FilesTest, RecursiveCreaterTellsAFailure) {
  fail(sim::Op::mkdir, "/cache/a", EACCES);
  const Lines lines = logged([] { EXPECT_EQ(RecursiveFolderCreater("/cache/a/b", 0777), -1); });
  EXPECT_EQ(lines, (Lines{{"RecursiveFolderCreater", "mkdir ret:-1, error:Permission denied"}}));
}

TEST_F(FilesTest, RecursiveCreaterHandsTheFailureOfAnAncestorUp) {
  fail(sim::Op::mkdir, "/cache/a", EACCES);
  const Lines lines = logged([] { EXPECT_EQ(RecursiveFolderCreater("/cache/a/b/c", 0777), -1); });
  EXPECT_EQ(lines, (Lines{{"RecursiveFolderCreater", "mkdir ret:-1, error:Permission denied"}}));
  EXPECT_FALSE(is_folder("/cache/a"));
}

TEST_F(FilesTest, RecursiveCreaterHandsTheSecondAttemptsResultUp) {
  fail(sim::Op::mkdir, "/cache/a/b", EACCES, 2);
  const Lines lines = logged([] { EXPECT_EQ(RecursiveFolderCreater("/cache/a/b/c", 0777), -1); });
  EXPECT_TRUE(lines.empty());
  EXPECT_TRUE(is_folder("/cache/a"));
}

// --- upi_delete_folder --------------------------------------------------------------------------

TEST_F(FilesTest, DeleteRemovesAFile) {
  device().write_file("/cache/file", "content");
  const Lines lines = logged([] { EXPECT_EQ(upi_delete_folder("/cache/file"), 0); });
  EXPECT_FALSE(device().has_file("/cache/file"));
  EXPECT_TRUE(lines.empty());
}

TEST_F(FilesTest, DeleteOfWhatIsNotThereSucceeds) {
  const Lines lines = logged([] { EXPECT_EQ(upi_delete_folder("/cache/none"), 0); });
  EXPECT_TRUE(lines.empty());
}

TEST_F(FilesTest, DeleteRemovesNoFolder) {
  std::filesystem::create_directory(device().host_path("/cache/folder"));
  const Lines lines = logged([] { EXPECT_EQ(upi_delete_folder("/cache/folder"), -1); });
  EXPECT_TRUE(is_folder("/cache/folder"));
  EXPECT_TRUE(lines.empty());
}

TEST_F(FilesTest, DeleteThatFailsTellsNothing) {
  device().write_file("/cache/file", "content");
  fail(sim::Op::unlink, "/cache/file", EACCES);
  const Lines lines = logged([] { EXPECT_EQ(upi_delete_folder("/cache/file"), -1); });
  EXPECT_TRUE(device().has_file("/cache/file"));
  EXPECT_TRUE(lines.empty());
}

// --- upi_check_file_existence, get_file_length_from_fd ------------------------------------------

TEST_F(FilesTest, ExistingFileIsFoundSilently) {
  device().write_file("/cache/file", "content");
  const sim::Recording recording;
  const Lines lines = logged([] { EXPECT_EQ(upi_check_file_existence("/cache/file"), 0); });
  EXPECT_TRUE(lines.empty());
  ASSERT_EQ(recording.calls(sim::Op::access).size(), 1U);
  EXPECT_EQ(recording.calls(sim::Op::access)[0].flags, R_OK);
}

TEST_F(FilesTest, MissingFileIsTold) {
  const Lines lines = logged([] { EXPECT_EQ(upi_check_file_existence("/cache/none"), -1); });
  EXPECT_EQ(lines, (Lines{{"upi_check_file_existence", "/cache/none not exist"}}));
}

TEST_F(FilesTest, UnreadableFileCountsAsMissing) {
  device().write_file("/cache/file", "content");
  fail(sim::Op::access, "/cache/file", EACCES);
  const Lines lines = logged([] { EXPECT_EQ(upi_check_file_existence("/cache/file"), -1); });
  EXPECT_EQ(lines, (Lines{{"upi_check_file_existence", "/cache/file not exist"}}));
}

// An open descriptor of a file with this content.
class OpenFile {
 public:
  OpenFile(sim::Device& device, const std::string& content) {
    device.write_file("/cache/data", content);
    fd_ = open("/cache/data", O_RDONLY | O_CLOEXEC);
  }
  ~OpenFile() { close(fd_); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  int fd() const { return fd_; }

 private:
  int fd_ = -1;
};

TEST_F(FilesTest, LengthIsTheFilesSizeWhereverItStands) {
  const OpenFile file(device(), std::string(5000, 'x'));
  ASSERT_EQ(lseek(file.fd(), 100, SEEK_SET), 100);
  const Lines lines = logged([&] { EXPECT_EQ(get_file_length_from_fd(file.fd()), 5000); });
  EXPECT_TRUE(lines.empty());
  EXPECT_EQ(lseek(file.fd(), 0, SEEK_CUR), 100);
}

TEST_F(FilesTest, LengthOfAnEmptyFileIsZero) {
  const OpenFile file(device(), "");
  EXPECT_EQ(get_file_length_from_fd(file.fd()), 0);
}

TEST_F(FilesTest, LengthOfNoDescriptorFails) {
  const Lines lines = logged([] { EXPECT_EQ(get_file_length_from_fd(-1), -1); });
  EXPECT_EQ(lines, (Lines{{"get_file_length_from_fd", "stat  error:-1 Bad file descriptor"}}));
}

TEST_F(FilesTest, LengthThatCannotBeAskedForFails) {
  const OpenFile file(device(), "content");
  fail(sim::Op::stat, "/cache/data", EIO);
  const Lines lines = logged([&] { EXPECT_EQ(get_file_length_from_fd(file.fd()), -1); });
  EXPECT_EQ(lines, (Lines{{"get_file_length_from_fd",
                           "stat  error:" + std::to_string(file.fd()) + " Input/output error"}}));
}

// --- upi_readn ----------------------------------------------------------------------------------

const LogLine kReading{"upi_readn", "Read data from file by fd!"};
const LogLine kReadToTheEnd{"upi_readn", "Read data to the file end!"};

TEST_F(FilesTest, ReadnReadsWhatWasAskedFor) {
  const OpenFile file(device(), "0123456789");
  char buffer[] = "......";
  const Lines lines = logged([&] { EXPECT_EQ(upi_readn(file.fd(), buffer, 4), 4); });
  EXPECT_STREQ(buffer, "0123..");
  EXPECT_EQ(lines, (Lines{kReading}));
  EXPECT_EQ(upi_readn(file.fd(), buffer, 2), 2);
  EXPECT_STREQ(buffer, "4523..");
}

TEST_F(FilesTest, ReadnStopsAtTheCountWithoutLookingForTheEnd) {
  const OpenFile file(device(), "0123");
  char buffer[4];
  const sim::Recording recording;
  const Lines lines = logged([&] { EXPECT_EQ(upi_readn(file.fd(), buffer, 4), 4); });
  EXPECT_EQ(recording.calls(sim::Op::read, "/cache/data").size(), 1U);
  EXPECT_EQ(lines, (Lines{kReading}));
}

TEST_F(FilesTest, ReadnOfNothingReadsNothing) {
  const OpenFile file(device(), "0123");
  const sim::Recording recording;
  const Lines lines = logged([&] { EXPECT_EQ(upi_readn(file.fd(), nullptr, 0), 0); });
  EXPECT_TRUE(recording.calls(sim::Op::read).empty());
  EXPECT_EQ(lines, (Lines{kReading}));
}

TEST_F(FilesTest, ReadnReturnsLessAtTheEndOfTheFile) {
  const OpenFile file(device(), "0123");
  char buffer[] = "......";
  const Lines lines = logged([&] { EXPECT_EQ(upi_readn(file.fd(), buffer, 6), 4); });
  EXPECT_STREQ(buffer, "0123..");
  EXPECT_EQ(lines, (Lines{kReading, kReadToTheEnd}));
  EXPECT_EQ(upi_readn(file.fd(), buffer, 6), 0);
}

TEST_F(FilesTest, ReadnGoesOnAfterShortReads) {
  const OpenFile file(device(), "0123456789");
  device().faults().add({sim::Op::read, "/cache/data", 1, 0, true, 3});
  char buffer[] = "..........";
  const sim::Recording recording;
  const Lines lines = logged([&] { EXPECT_EQ(upi_readn(file.fd(), buffer, 10), 10); });
  EXPECT_STREQ(buffer, "0123456789");
  EXPECT_EQ(lines, (Lines{kReading}));
  std::vector<std::uint64_t> lengths;
  for (const sim::Call& call : recording.calls(sim::Op::read, "/cache/data")) {
    lengths.push_back(call.length);
  }
  EXPECT_EQ(lengths, (std::vector<std::uint64_t>{10, 7, 4, 1}));
}

TEST_F(FilesTest, ReadnRetriesAnInterruptedReadWithoutLoss) {
  const OpenFile file(device(), "0123456789");
  fail(sim::Op::read, "/cache/data", EINTR);
  device().faults().add({sim::Op::read, "/cache/data", 2, 0, false, 4});
  fail(sim::Op::read, "/cache/data", EINTR, 3);
  char buffer[] = "..........";
  const sim::Recording recording;
  const Lines lines = logged([&] { EXPECT_EQ(upi_readn(file.fd(), buffer, 10), 10); });
  EXPECT_STREQ(buffer, "0123456789");
  EXPECT_EQ(lines, (Lines{kReading}));
  EXPECT_EQ(recording.calls(sim::Op::read, "/cache/data").size(), 4U);
}

TEST_F(FilesTest, ReadnTellsAFailure) {
  const OpenFile file(device(), "0123456789");
  fail(sim::Op::read, "/cache/data", EIO);
  char buffer[10];
  const Lines lines = logged([&] { EXPECT_EQ(upi_readn(file.fd(), buffer, 10), -1); });
  EXPECT_EQ(
      lines,
      (Lines{kReading, {"upi_readn", "Read data from file error, error: 5[Input/output error]"}}));
}

TEST_F(FilesTest, ReadnCountsNothingWhenALaterReadFails) {
  const OpenFile file(device(), "0123456789");
  device().faults().add({sim::Op::read, "/cache/data", 1, 0, false, 4});
  fail(sim::Op::read, "/cache/data", EIO, 2);
  char buffer[10];
  EXPECT_EQ(upi_readn(file.fd(), buffer, 10), -1);
}

TEST_F(FilesTest, ReadnOfNoDescriptorFails) {
  char buffer[10];
  const Lines lines = logged([&] { EXPECT_EQ(upi_readn(-1, buffer, 10), -1); });
  EXPECT_EQ(
      lines,
      (Lines{kReading, {"upi_readn", "Read data from file error, error: 9[Bad file descriptor]"}}));
}

}  // namespace
