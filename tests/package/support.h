// SPDX-License-Identifier: Apache-2.0
//
// What the package tests share: a folder, the tool as a process, and packages made byte by byte
// without the code under test.
#ifndef TESTS_PACKAGE_SUPPORT_H
#define TESTS_PACKAGE_SUPPORT_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "common/error.h"
#include "common/finding.h"
#include "common/sha512.h"
#include "upi_upgrade_package.h"

namespace package_test {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

std::string read_bytes(const std::filesystem::path& path);

// A test with a folder of its own, removed at its end.
class FolderTest : public ::testing::Test {
 protected:
  FolderTest();
  ~FolderTest() override;

  std::string path(const std::string& name) const { return (folder_ / name).string(); }
  // Writes a file, its folders too, and returns its path.
  std::string write(const std::string& name, const std::string& bytes) const;
  // A file of `size` bytes that takes no room.
  std::string write_sparse(const std::string& name, uint64_t size) const;
  // Paths of all files below the folder, relative to it, sorted.
  std::vector<std::string> files() const;
  const std::filesystem::path& folder() const { return folder_; }

 private:
  std::filesystem::path folder_;
};

struct RunResult {
  int exit_code = -1;  // 128 and the signal's number when a signal ended it
  std::string out;
  std::string err;
};

// Runs zozale-package in the folder, without input.
RunResult run_tool(const std::filesystem::path& folder, const std::vector<std::string>& arguments);

// A package, open to every change that a test wants. The entries' ranges, digests and the counts
// are filled in by layout(), the content digest by bytes().
class RawPackage {
 public:
  RawPackage();
  RawPackage& partition(const std::string& name, const std::string& image);
  RawPackage& extra(const std::string& name, const std::string& content);
  RawPackage& layout();
  // Head with the digest over all that follows, tables and payload.
  std::string bytes() const;
  // The same with the head's digest as it stands.
  std::string bytes_unsealed() const;

  upgrade_package_head_info_t head{};
  std::vector<partition_head_info_t> partitions;
  std::vector<extra_head_info_t> extras;
  std::string payload;

 private:
  std::vector<std::string> images_;
  std::vector<std::string> contents_;
};

zozale::Digest sha512(const std::string& bytes);

// Random numbers that are the same in every run.
std::mt19937 seeded(uint32_t seed);

// `size` bytes of a fixed pattern that `seed` chooses.
std::string pattern(size_t size, uint32_t seed);

// pattern() bytes of the given size whose digest holds a zero byte, or holds none.
std::string image_with_zero_byte(size_t size);
std::string image_without_zero_byte(size_t size);

// The partition table file of a device with these partitions.
std::string table_text(const std::vector<std::string>& platform,
                       const std::vector<std::string>& oem);

// "field: value" of each finding of the severity, in order.
std::vector<std::string> fields(const zozale::Findings& findings, zozale::Severity severity);
std::vector<std::string> errors(const zozale::Findings& findings);
std::vector<std::string> warnings(const zozale::Findings& findings);

// The Error that `body` throws, as its exit code, a blank and its message.
template <typename Body>
std::string error_of(const Body& body) {
  try {
    body();
  } catch (const zozale::Error& error) {
    return std::to_string(error.code()) + " " + error.what();
  }
  return "no error";
}

// The text of the only finding about the field; a failed expectation when there is not just one.
std::string text_of(const zozale::Findings& findings, const std::string& field);

}  // namespace package_test

#endif
