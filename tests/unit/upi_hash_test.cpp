// SPDX-License-Identifier: Apache-2.0
//
// Digests of file ranges.
#include "upi_hash.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "expected_lines.h"
#include "tests/support/device_test.h"
#include "tests/support/package_file.h"

namespace {

using sim::Op;
using support::logged;
using support::sha512;
using namespace unit;

const std::string kPath = "/cache/image";

class FileHashTest : public support::DeviceTest {
 protected:
  FileHashTest() { put(support::pattern(10000)); }
  void TearDown() override {
    EXPECT_EQ(::close(fd_), 0) << "a function closed the descriptor that it was given";
    DeviceTest::TearDown();
  }

  // Replaces the open file.
  void put(const sim::Bytes& content) {
    device().write_file(kPath, content);
    if (fd_ >= 0) {
      ::close(fd_);
    }
    fd_ = ::open(kPath.c_str(), O_RDONLY);
    content_ = content;
  }
  sim::Bytes range(std::size_t offset, std::size_t len) const {
    const auto start = content_.begin() + static_cast<std::ptrdiff_t>(offset);
    return sim::Bytes(start, start + static_cast<std::ptrdiff_t>(len));
  }
  Lines hash(const std::function<int(unsigned char*)>& call) {
    digest_.fill(0x55);
    return logged([&] { result_ = call(digest_.data()); });
  }
  Lines hash_range(unsigned offset, unsigned len, unsigned read_size) {
    return hash([&](unsigned char* digest) {
      return get_hash_SHA512_from_fd(fd_, offset, len, read_size, digest);
    });
  }
  void expect_digest_of(const sim::Bytes& data) const {
    EXPECT_EQ(result_, 0);
    EXPECT_EQ(sim::Bytes(digest_.begin(), digest_.begin() + 64), sha512(data));
    EXPECT_EQ(digest_[64], 0x55);
  }
  // The lengths that the reads of a call asked for.
  std::vector<std::uint64_t> read_sizes(const std::function<void()>& call) const {
    const sim::Recording recording;
    call();
    std::vector<std::uint64_t> sizes;
    for (const sim::Call& read : recording.calls(Op::read, kPath)) {
      sizes.push_back(read.length);
    }
    return sizes;
  }

  int fd_ = -1;
  int result_ = -2;
  sim::Bytes content_;
  std::array<unsigned char, 65> digest_{};
};

// --- get_hash_SHA512_from_fd() ------------------------------------------------------------------

TEST_F(FileHashTest, HashesTheRange) {
  EXPECT_TRUE(hash_range(0, 10000, 0).empty());
  expect_digest_of(content_);
  hash_range(100, 5000, 0);
  expect_digest_of(range(100, 5000));
  hash_range(9999, 1, 0);
  expect_digest_of(range(9999, 1));
}

TEST_F(FileHashTest, SeeksFirstWhereverTheFileStands) {
  ::lseek(fd_, 77, SEEK_SET);
  const sim::Recording recording;
  hash_range(256, 100, 0);
  expect_digest_of(range(256, 100));
  const auto seeks = recording.calls(Op::lseek, kPath);
  ASSERT_EQ(seeks.size(), 1U);
  EXPECT_EQ(seeks[0].offset, 256U);
  EXPECT_EQ(seeks[0].flags, SEEK_SET);
}

TEST_F(FileHashTest, LeavesTheDescriptorOpenBehindTheRange) {
  hash_range(256, 100, 0);
  EXPECT_EQ(::lseek(fd_, 0, SEEK_CUR), 356);
}

TEST_F(FileHashTest, ReadsInPiecesOfTheGivenSize) {
  const auto sizes = [&](unsigned len, unsigned read_size) {
    return read_sizes([&] {
      hash_range(0, len, read_size);
      expect_digest_of(range(0, len));
    });
  };
  using Sizes = std::vector<std::uint64_t>;
  EXPECT_EQ(sizes(250, 100), (Sizes{100, 100, 50}));
  EXPECT_EQ(sizes(3, 1), (Sizes{1, 1, 1}));
  EXPECT_EQ(sizes(5000, 4095), (Sizes{4095, 905}));
  for (const unsigned whole : {0U, 4096U, 4097U, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_EQ(sizes(10000, whole), (Sizes{4096, 4096, 1808})) << whole;
  }
  EXPECT_EQ(sizes(4096, 0), (Sizes{4096}));
}

TEST_F(FileHashTest, TakesTheFilesSizeForALengthOfZero) {
  const sim::Recording recording;
  hash_range(0, 0, 0);
  expect_digest_of(content_);
  EXPECT_EQ(recording.calls(Op::stat, kPath).size(), 1U);
}

TEST_F(FileHashTest, AsksForTheFilesSizeOnlyForALengthOfZero) {
  const sim::Recording recording;
  hash_range(0, 10, 0);
  EXPECT_TRUE(recording.calls(Op::stat, kPath).empty());
}

TEST_F(FileHashTest, HashesAnEmptyFile) {
  put({});
  const auto sizes = read_sizes([&] { hash_range(0, 0, 0); });
  expect_digest_of({});
  EXPECT_TRUE(sizes.empty());
}

TEST_F(FileHashTest, GoesOnBehindAShortRead) {
  device().faults().add({Op::read, kPath, 1, 0, false, 1000});
  const auto sizes = read_sizes([&] { hash_range(0, 10000, 0); });
  expect_digest_of(content_);
  EXPECT_EQ(sizes, (std::vector<std::uint64_t>{4096, 4096, 4096, 808}));
}

// The end of the file does not end the reading; here an error does at last.
TEST_F(FileHashTest, KeepsReadingPastTheEndOfTheFile) {
  put(support::pattern(100));
  device().faults().add({Op::read, kPath, 50, EIO});
  const auto sizes = read_sizes([&] { hash_range(0, 200, 0); });
  EXPECT_EQ(result_, -1);
  ASSERT_EQ(sizes.size(), 50U);
  EXPECT_EQ(sizes[0], 200U);
  EXPECT_EQ(sizes[1], 100U);
  EXPECT_EQ(sizes[49], 100U);
}

// A length of 0 is the size of the whole file, whatever the offset.
TEST_F(FileHashTest, ReadsTheFilesSizeFromTheOffsetOn) {
  put(support::pattern(100));
  device().faults().add({Op::read, kPath, 4, EIO});
  const auto sizes = read_sizes([&] { hash_range(40, 0, 0); });
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(sizes, (std::vector<std::uint64_t>{100, 40, 40, 40}));
}

TEST_F(FileHashTest, CountsOffsetsPast2GiB) {
  put({});
  std::filesystem::resize_file(device().host_path(kPath), 0x80000000U + 20);
  const sim::Recording recording;
  hash_range(0x80000000, 20, 0);
  expect_digest_of(sim::Bytes(20, 0));
  EXPECT_EQ(recording.calls(Op::lseek, kPath).at(0).offset, 0x80000000U);
}

TEST_F(FileHashTest, ReportsASizeThatCannotBeRead) {
  device().faults().add({Op::stat, kPath, 1, EOVERFLOW});
  const Lines lines = hash_range(0, 0, 0);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines, said_by("get_hash_SHA512_from_fd",
                           {"Stat fd[" + std::to_string(fd_) + "] error:[" +
                            std::to_string(EOVERFLOW) + "]Value too large for defined data type"}));
}

TEST_F(FileHashTest, ReportsADescriptorThatIsNone) {
  const Lines lines =
      hash([](unsigned char* digest) { return get_hash_SHA512_from_fd(-1, 0, 0, 0, digest); });
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines,
            said_by("get_hash_SHA512_from_fd", {"Stat fd[-1] error:[9]Bad file descriptor"}));
}

TEST_F(FileHashTest, ReportsASeekThatFails) {
  device().faults().add({Op::lseek, kPath, 1, ESPIPE});
  const auto sizes = read_sizes([&] {
    const Lines lines = hash_range(5, 10, 0);
    EXPECT_EQ(lines, said_by("get_hash_SHA512_from_fd",
                             {"Lseek failed with return value: -1, error:" + shown_error(ESPIPE)}));
  });
  EXPECT_EQ(result_, -1);
  EXPECT_TRUE(sizes.empty());
}

TEST_F(FileHashTest, ReportsAReadThatFails) {
  device().faults().add({Op::read, kPath, 2, EIO});
  const auto sizes = read_sizes([&] {
    const Lines lines = hash_range(0, 10000, 0);
    EXPECT_EQ(lines, said_by("get_hash_SHA512_from_fd",
                             {"Get file content failed, error: " + shown_error(EIO) + "!"}));
  });
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(sizes.size(), 2U);
}

// Nothing is retried, an interrupted read neither.
TEST_F(FileHashTest, GivesUpAtAnInterruptedRead) {
  device().faults().add({Op::read, kPath, 1, EINTR});
  const Lines lines = hash_range(0, 10, 0);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines.at(0).message, "Get file content failed, error: " + shown_error(EINTR) + "!");
}

TEST_F(FileHashTest, NeedsNoMemory) {
  device().faults().add({Op::malloc, "libzozale.so", 1, ENOMEM, true});
  const sim::AllocationWatch watch;
  hash_range(0, 10000, 0);
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(device().faults().struck(), 0U);
}

// --- get_hash_from_fd() -------------------------------------------------------------------------

TEST_F(FileHashTest, SelectorsHaveTheirValues) {
  EXPECT_EQ(HASH_TYPE_SHA_512, 0);
  EXPECT_EQ(HASH_TYPE_SHA_256, 1);
}

TEST_F(FileHashTest, IgnoresTypeAndReadSize) {
  for (const int type : {0, 1, -1, 99}) {
    const auto sizes = read_sizes([&] {
      hash([&](unsigned char* digest) {
        return get_hash_from_fd(type, fd_, 100, 5000, 10, digest);
      });
      expect_digest_of(range(100, 5000));
    });
    EXPECT_EQ(sizes, (std::vector<std::uint64_t>{4096, 904}));
  }
}

TEST_F(FileHashTest, HashesTheWholeFileForALengthOfZero) {
  hash([&](unsigned char* digest) { return get_hash_from_fd(0, fd_, 0, 0, 0, digest); });
  expect_digest_of(content_);
}

TEST_F(FileHashTest, PassesAFailureOn) {
  device().faults().add({Op::read, kPath, 1, EIO});
  const Lines lines =
      hash([&](unsigned char* digest) { return get_hash_from_fd(0, fd_, 0, 100, 0, digest); });
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines, said_by("get_hash_SHA512_from_fd",
                           {"Get file content failed, error: " + shown_error(EIO) + "!"}));
}

// --- Files by their path ------------------------------------------------------------------------

class PathHashTest : public FileHashTest {
 protected:
  Lines hash_segment(const std::string& path, unsigned offset, unsigned len, int type = 0) {
    return hash([&](unsigned char* digest) {
      return get_hash_from_file_path_segment(type, path.c_str(), offset, len, digest);
    });
  }
};

TEST_F(PathHashTest, HashesASegment) {
  for (const int type : {0, 1}) {
    EXPECT_TRUE(hash_segment(kPath, 256, 4200, type).empty());
    expect_digest_of(range(256, 4200));
  }
}

TEST_F(PathHashTest, HashesAWholeFile) {
  for (const int type : {0, 1}) {
    const Lines lines = hash([&](unsigned char* digest) {
      return get_hash_from_file_path_all(type, kPath.c_str(), digest);
    });
    EXPECT_TRUE(lines.empty());
    expect_digest_of(content_);
  }
}

TEST_F(PathHashTest, OpensForReadingAndCloses) {
  const sim::Recording recording;
  const auto sizes = [&] {
    hash_segment(kPath, 0, 0);
    std::vector<std::uint64_t> lengths;
    for (const sim::Call& read : recording.calls(Op::read, kPath)) {
      lengths.push_back(read.length);
    }
    return lengths;
  }();
  EXPECT_EQ(sizes, (std::vector<std::uint64_t>{4096, 4096, 1808}));
  const auto opens = recording.calls(Op::open, kPath);
  ASSERT_EQ(opens.size(), 1U);
  EXPECT_EQ(opens[0].flags & (O_ACCMODE | O_CREAT | O_TRUNC | O_APPEND), O_RDONLY);
  const auto closes = recording.calls(Op::close, kPath);
  ASSERT_EQ(closes.size(), 1U);
  EXPECT_EQ(closes[0].fd, opens[0].fd);
}

TEST_F(PathHashTest, ReportsAFileThatCannotBeOpened) {
  const Lines expected =
      said_by("get_hash_from_file_path_segment",
              {"Open file[/cache/none] return -1, error: " + shown_error(ENOENT)});
  EXPECT_EQ(hash_segment("/cache/none", 0, 0), expected);
  EXPECT_EQ(result_, -1);
  const Lines whole = hash(
      [](unsigned char* digest) { return get_hash_from_file_path_all(0, "/cache/none", digest); });
  EXPECT_EQ(whole, expected);
  EXPECT_EQ(result_, -1);
}

TEST_F(PathHashTest, KeepsItsResultWhenTheFileCannotBeClosed) {
  device().faults().add({Op::close, kPath, 1, EIO});
  const Lines lines = hash_segment(kPath, 0, 100);
  expect_digest_of(range(0, 100));
  EXPECT_EQ(lines, said_by("get_hash_from_file_path_segment",
                           {"Close file[/cache/image] return 0, error: " + shown_error(EIO)}));
}

TEST_F(PathHashTest, ClosesBehindAFailureAndReportsBoth) {
  device().faults().add({Op::read, kPath, 1, EIO});
  device().faults().add({Op::close, kPath, 1, ENOSPC});
  const Lines lines = hash_segment(kPath, 0, 100);
  EXPECT_EQ(result_, -1);
  EXPECT_EQ(lines,
            said_by("get_hash_SHA512_from_fd",
                    {"Get file content failed, error: " + shown_error(EIO) + "!"}) +
                said_by("get_hash_from_file_path_segment",
                        {"Close file[/cache/image] return -1, error: " + shown_error(ENOSPC)}));
}

}  // namespace
