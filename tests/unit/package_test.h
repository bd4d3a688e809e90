// SPDX-License-Identifier: Apache-2.0
//
// A device with an upgrade package on it, and the loader's own words.
#ifndef TESTS_UNIT_PACKAGE_TEST_H
#define TESTS_UNIT_PACKAGE_TEST_H

#include <algorithm>
#include <string>
#include <vector>

#include "expected_lines.h"
#include "sim/attach.h"
#include "tests/support/device_test.h"
#include "tests/support/package_file.h"
#include "upi_upgrade_package.h"

namespace unit {

const std::string kPath(support::kPackagePath);

const std::string kBegin = "<<<<<<<<<<<Init upgrade package info>>>>>>>>>>>>";
const std::string kSuccess = "<<<<<<<<<<<Init upgrade package info success>>>>>>>>>>>>";
const std::string kFail = "<<<<<<<<<<<Init upgrade package info fail>>>>>>>>>>>>";
const std::string kMagicGood = "Upgrade package magic word check success!";
const std::string kNoExtra = "There is no extra file in upgrade package file!";

class PackageTest : public support::DeviceTest {
 protected:
  void TearDown() override {
    deinit_upgrade_package_info();
    DeviceTest::TearDown();
  }

  void put(const sim::Bytes& package) { device().write_file(kPath, package); }
  void put(const support::PackageFile& package) { put(package.bytes()); }
  Lines load(const char* path = kPath.c_str()) {
    return support::logged([&] {
      errno = 0;
      result_ = init_upgrade_package_info(path);
    });
  }
  Lines load(const support::PackageFile& package) {
    put(package);
    return load();
  }

  // Descriptors on the package that the process holds.
  static std::vector<int> held() {
    std::vector<int> fds;
    for (const sim::OpenDescriptor& open : sim::open_descriptors()) {
      if (open.path == kPath) {
        fds.push_back(open.fd);
      }
    }
    return fds;
  }
  // Loading failed before there was a package: nothing is left.
  void expect_refused() const {
    EXPECT_EQ(result_, -1);
    EXPECT_EQ(get_upgrade_package_info(), nullptr);
    EXPECT_TRUE(held().empty());
  }
  // Loading failed later: the descriptor is left open, and only its number is known.
  void expect_abandoned() const {
    EXPECT_EQ(result_, -1);
    EXPECT_EQ(get_upgrade_package_info(), nullptr);
    EXPECT_EQ(held(), std::vector<int>{g_upgrade_package_fd});
    deinit_upgrade_package_info();
    EXPECT_EQ(held(), std::vector<int>{g_upgrade_package_fd});
    close(g_upgrade_package_fd);
  }
  void expect_loaded() const {
    EXPECT_EQ(result_, 0);
    ASSERT_NE(get_upgrade_package_info(), nullptr);
    EXPECT_EQ(held(), std::vector<int>{get_upgrade_package_file_fd()});
  }

  int result_ = -2;
};

// What the loader says, without the readers' and the table's own words.
inline Lines loader_lines(const Lines& lines) {
  return without(lines, {"upi_readn", "show_system_partition_info"});
}

inline Lines init_says(std::initializer_list<std::string> messages) {
  return said_by("init_upgrade_package_info", messages);
}

inline Lines magic_is_good() {
  return init_says({kBegin}) + said_by("is_upgrade_package_file_valid", {kMagicGood});
}

// A package of platform partitions, "kernel" and "rootfs" in turn.
inline support::PackageFile platform_package(std::size_t entries) {
  support::PackageFile package;
  package.upgrade_type = 1;
  for (std::size_t i = 0; i < entries; ++i) {
    package.partitions.push_back({i % 2 == 0 ? "kernel" : "rootfs", support::pattern(10)});
  }
  return package;
}

// A package of nothing but extra files: "extra0", "extra1" ...
inline support::PackageFile package_with_extras(std::size_t entries) {
  support::PackageFile package;
  for (std::size_t i = 0; i < entries; ++i) {
    package.extras.push_back({"extra" + std::to_string(i), support::pattern(5)});
  }
  return package;
}

}  // namespace unit

#endif
