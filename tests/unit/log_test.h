// SPDX-License-Identifier: Apache-2.0
//
// What the tests of the log share: a device with a work folder and a closed log.
#ifndef TESTS_UNIT_LOG_TEST_H
#define TESTS_UNIT_LOG_TEST_H

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include "tests/support/device_test.h"
#include "upi_log.h"

namespace unit {

constexpr char kLog[] = "/cache/ovu_fota_ab/upi_ab.log";
constexpr std::size_t kTrailer = 3;  // " \n "

class LogTest : public support::DeviceTest {
 protected:
  void SetUp() override {
    static_cast<void>(support::printed([] { upi_close_logfile(); }));
    remove_folder("/cache/ovu_fota_ab");
    std::filesystem::create_directory(device().host_path("/cache/ovu_fota_ab"));
  }

  void remove_folder(const std::string& path) {
    std::filesystem::remove_all(device().host_path(path));
  }
  // Returns what the call prints.
  static std::string append(std::string info, std::string file = kLog) {
    return support::printed([&] { upi_fwrite(file.data(), info.data()); });
  }
  // A log of `size` bytes that another run left behind.
  void put_log(std::size_t size) { device().write_file(kLog, std::string(size, 'x')); }
  std::size_t size_of(const std::string& path) { return device().read_file(path).size(); }
  // Adds a fault that does nothing but lets each flush of the log be seen.
  void watch_flushes() { device().faults().add({sim::Op::stream_write, kLog, 1000000}); }
  void fail(sim::Op op, const std::string& where, int error, std::uint64_t at = 1) {
    device().faults().add({op, where, at, error});
  }
  void fail_always(sim::Op op, const std::string& where, int error) {
    device().faults().add({op, where, 1, error, true});
  }
};

}  // namespace unit

#endif
