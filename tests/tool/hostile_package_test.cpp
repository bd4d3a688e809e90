// SPDX-License-Identifier: Apache-2.0
//
// Every field of a package at its extremes, by accident and with digests that hold again, and a
// file that ends at, before or behind the beginning of each of its parts: nothing is erased, and
// the package is called bad.
#include <algorithm>
#include <cstring>
#include <limits>

#include "tool_test.h"

namespace tool {
namespace {

constexpr std::size_t kImage = 64;
constexpr std::size_t kPartitions = 3;

// Offsets of the head's and of an entry's 32-bit fields.
constexpr std::size_t kUpgradeType = 16;
constexpr std::size_t kPartitionNum = 20;
constexpr std::size_t kExtraNum = 24;
constexpr std::size_t kLen = 32;
constexpr std::size_t kOffset = 36;
constexpr std::size_t kPartitionType = 40;
constexpr std::size_t kZipped = 44;

std::size_t entry_at(std::size_t index) {
  return support::kPackageHeadSize + index * support::kPartitionEntrySize;
}
std::size_t image_at(std::size_t index) {
  return entry_at(kPartitions) + index * kImage;
}

std::int32_t word_at(const sim::Bytes& bytes, std::size_t offset) {
  std::int32_t value = 0;
  std::memcpy(&value, bytes.data() + offset, sizeof(value));
  return value;
}

std::vector<std::int32_t> extremes(std::int32_t value, std::size_t file_size) {
  constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
  constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();
  const auto size = static_cast<std::int32_t>(file_size);
  std::vector<std::int32_t> all = {0,
                                   1,
                                   2,
                                   3,
                                   49,
                                   50,
                                   -1,
                                   kMin,
                                   kMin + 1,
                                   kMax - 1,
                                   kMax,
                                   size - 1,
                                   size,
                                   size + 1,
                                   value ^ 1,
                                   value ^ 0x100,
                                   value ^ 0x10000,
                                   value ^ kMin};
  all.push_back(value + 1);
  all.push_back(value - 1);
  std::sort(all.begin(), all.end());
  all.erase(std::unique(all.begin(), all.end()), all.end());
  all.erase(std::remove(all.begin(), all.end(), value), all.end());
  return all;
}

enum class Digest { kLeft, kRenewed };

class HostilePackageTest : public ToolTest {
 protected:
  // Installs and expects what a bad package deserves. Returns what was said.
  std::string expect_refused(const sim::Bytes& package) {
    put_package(package);
    const std::uint64_t before = erase_requests();
    const sim::Bytes flash = content().flash;
    const Ended run = zozale({"install"});
    EXPECT_EQ(run.status, 3) << run;
    EXPECT_EQ(erase_requests(), before) << run;
    EXPECT_TRUE(content().flash == flash) << run;
    EXPECT_TRUE(run.complains("the package is ") ||
                run.complains("the library refuses the package"))
        << run;
    EXPECT_TRUE(run.complains("next:     fetch the package")) << run;
    ++refused_;
    return run.err;
  }

  void expect_refused_word(std::size_t offset, std::int32_t value, Digest digest) {
    SCOPED_TRACE("word at " + std::to_string(offset) + ": " + std::to_string(value) +
                 (digest == Digest::kRenewed ? ", digest renewed" : ""));
    sim::Bytes package = good_;
    std::memcpy(package.data() + offset, &value, sizeof(value));
    finish(package, digest);
    expect_refused(package);
  }

  void expect_refused_at_extremes(std::size_t offset, Digest digest) {
    for (const std::int32_t value : extremes(word_at(good_, offset), good_.size())) {
      expect_refused_word(offset, value, digest);
    }
  }

  void expect_refused_in_every_entry(std::size_t field) {
    for (std::size_t i = 0; i < kPartitions; ++i) {
      expect_refused_at_extremes(entry_at(i) + field, Digest::kRenewed);
    }
    expect_refused_at_extremes(entry_at(1) + field, Digest::kLeft);
    EXPECT_GE(refused_, 60U);
  }

  void expect_refused_bytes(std::size_t offset, const sim::Bytes& bytes, Digest digest) {
    SCOPED_TRACE(std::to_string(bytes.size()) + " bytes at " + std::to_string(offset));
    sim::Bytes package = good_;
    std::copy(bytes.begin(), bytes.end(), package.begin() + static_cast<std::ptrdiff_t>(offset));
    finish(package, digest);
    expect_refused(package);
  }

  void expect_refused_flip(std::size_t offset, Digest digest) {
    expect_refused_bytes(offset, {static_cast<std::uint8_t>(good_[offset] ^ 0xFF)}, digest);
  }

  // Installs a package that differs where nothing depends on it: the same images get written.
  void expect_installed(std::size_t offset, std::int32_t value) {
    SCOPED_TRACE("word at " + std::to_string(offset) + ": " + std::to_string(value));
    sim::Bytes package = good_;
    std::memcpy(package.data() + offset, &value, sizeof(value));
    if (offset >= support::kPackageHeadSize) {
      support::renew_content_digest(package);
    }
    put_package(package);
    const Ended run = zozale({"install"});
    EXPECT_EQ(run.status, 0) << run;
    for (std::size_t i = 0; i < kPartitions; ++i) {
      expect_image(i);
    }
  }

  std::uint64_t erase_requests() {
    return device().count(sim::Op::memerase) + device().count(sim::Op::memerase64) +
           device().count(sim::Op::block_erase);
  }

  static void finish(sim::Bytes& package, Digest digest) {
    if (digest == Digest::kRenewed) {
      support::renew_content_digest(package);
    }
  }

  void expect_image(std::size_t index) {
    const support::PackageFile package = support::system_package(kImage);
    const support::PackageEntry& entry = package.partitions[index];
    sim::Bytes content = device().partition(target_name(entry.name)).good();
    content.resize(kImage);
    EXPECT_TRUE(content == entry.data) << entry.name;
  }

  const sim::Bytes good_ = support::system_package(kImage).bytes();
  std::size_t refused_ = 0;
};

TEST_F(HostilePackageTest, AHeadThatMeansSomethingElse) {
  expect_refused_at_extremes(kUpgradeType, Digest::kLeft);
  expect_refused_at_extremes(kPartitionNum, Digest::kLeft);
  for (const std::int32_t count : extremes(0, good_.size())) {
    if (count > 2) {  // the table of so many does not fit the file
      expect_refused_word(kExtraNum, count, Digest::kLeft);
    }
  }
  for (std::size_t byte = 0; byte < 4; ++byte) {
    expect_refused_flip(byte, Digest::kLeft);
  }
  for (std::size_t byte = 0; byte < 64; byte += 9) {
    expect_refused_flip(support::kHeadHashOffset + byte, Digest::kLeft);
  }
  EXPECT_GT(refused_, 50U);
}

TEST_F(HostilePackageTest, LengthsOfAnEntry) {
  expect_refused_in_every_entry(kLen);
}

TEST_F(HostilePackageTest, OffsetsOfAnEntry) {
  expect_refused_in_every_entry(kOffset);
}

TEST_F(HostilePackageTest, TypesOfAnEntry) {
  expect_refused_in_every_entry(kPartitionType);
}

TEST_F(HostilePackageTest, PackedBitsOfAnEntry) {
  expect_refused_at_extremes(entry_at(1) + kZipped, Digest::kLeft);
  EXPECT_GE(refused_, 15U);
}

TEST_F(HostilePackageTest, NamesOfAnEntry) {
  const std::string kNames[] = {"",
                                "k",
                                "Kernel",
                                "kernel2",
                                "flags",
                                "rootfs",
                                std::string(29, 'n'),
                                std::string(30, 'n'),
                                "%s%n%d",
                                "../../x",
                                std::string(31, 'n'),
                                std::string(32, 'n'),
                                "a b",
                                "\"",
                                "\x1B[31m",
                                "\xFF\xFE"};
  for (const std::string& name : kNames) {
    sim::Bytes field(32);
    std::copy(name.begin(), name.end(), field.begin());
    for (const Digest digest : {Digest::kLeft, Digest::kRenewed}) {
      SCOPED_TRACE("name \"" + name + "\"");
      expect_refused_bytes(entry_at(0), field, digest);
    }
  }
  EXPECT_EQ(refused_, 32U);
}

TEST_F(HostilePackageTest, DigestsAndImages) {
  for (const Digest digest : {Digest::kLeft, Digest::kRenewed}) {
    for (std::size_t i = 0; i < kPartitions; ++i) {
      for (const std::size_t byte : {0U, 31U, 63U}) {
        expect_refused_flip(entry_at(i) + support::kPartitionHashOffset + byte, digest);
        expect_refused_flip(image_at(i) + byte, digest);
      }
    }
  }
  EXPECT_EQ(refused_, 36U);
}

TEST_F(HostilePackageTest, AFileThatEndsEarly) {
  std::vector<std::size_t> ends = {0, 1, 3, 4, 5, 36, kImage};
  for (std::size_t i = 0; i <= kPartitions; ++i) {
    for (const std::size_t boundary : {entry_at(i), image_at(i)}) {
      ends.insert(ends.end(), {boundary - 1, boundary, boundary + 1});
    }
  }
  for (const std::size_t end : ends) {
    if (end < good_.size()) {
      SCOPED_TRACE("the first " + std::to_string(end) + " bytes");
      sim::Bytes package(good_.begin(), good_.begin() + static_cast<std::ptrdiff_t>(end));
      expect_refused(package);
      if (end > support::kPackageHeadSize) {
        support::renew_content_digest(package);
        expect_refused(package);
      }
    }
  }
  EXPECT_GT(refused_, 30U);
}

TEST_F(HostilePackageTest, AFileWithMoreBehindIt) {
  sim::Bytes package = good_;
  package.push_back(0);
  expect_refused(package);
}

TEST_F(HostilePackageTest, AHeadWithoutPartitions) {
  sim::Bytes package = good_;
  package[kPartitionNum] = 0;
  EXPECT_NE(expect_refused(package).find("it carries no partition"), std::string::npos);
  std::memset(package.data() + kPartitionNum, 0xFF, 4);
  EXPECT_NE(expect_refused(package).find("it carries no partition"), std::string::npos);
}

// Version, platform, package type, hash type and block size; an entry's "zipped".
TEST_F(HostilePackageTest, FieldsThatNothingDependsOn) {
  for (const std::size_t field : {4U, 8U, 12U, 28U, 32U, 36U, 100U, 228U}) {
    for (const std::int32_t value : {std::numeric_limits<std::int32_t>::min(), -1, 1}) {
      expect_installed(field, value);
    }
  }
  expect_installed(entry_at(2) + kZipped, 1);
  expect_installed(kExtraNum, -1);
}

}  // namespace
}  // namespace tool
