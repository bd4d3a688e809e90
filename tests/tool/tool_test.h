// SPDX-License-Identifier: Apache-2.0
//
// The built zozale, run as a program on a simulated device by zozale-sim.
#ifndef TESTS_TOOL_TOOL_TEST_H
#define TESTS_TOOL_TOOL_TEST_H

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "sim/boot_loader.h"
#include "sim/device.h"
#include "tests/support/device_test.h"
#include "tests/support/package_file.h"

namespace tool {

using Arguments = std::vector<std::string>;

// How a run of a program ended and what it printed.
struct Ended {
  int status = -1;  // exit status; 128 and the signal when a signal ended it
  std::string out;
  std::string err;

  bool says(const std::string& text) const;  // on standard output
  bool complains(const std::string& text) const;
  // Standard output as one JSON document; fails the test when it is none.
  nlohmann::json json() const;
};
std::ostream& operator<<(std::ostream& out, const Ended& run);

// What a run may change on the device: every byte of flash, the store and every file but the log.
struct DeviceContent {
  sim::Bytes flash;
  std::vector<std::pair<std::string, std::string>> store;
  std::vector<std::pair<std::string, std::string>> files;
  bool operator==(const DeviceContent& that) const {
    return flash == that.flash && store == that.store && files == that.files;
  }
};

// A device in a folder, sim::test_layout() unless use() says otherwise, with a factory's boot flag
// record, system A running and each system's partitions holding content of their own.
class ToolTest : public ::testing::Test {
 protected:
  ToolTest();

  // Replaces the device by one of another layout, in the same state.
  void use(const sim::Layout& layout);
  sim::Device& device() { return *device_; }

  // Runs zozale. `input` is its standard input.
  Ended zozale(const Arguments& arguments, const std::string& input = "");
  // The same on a terminal; what is printed, on whatever stream, is in `out`.
  Ended zozale_on_terminal(const Arguments& arguments, const std::string& typed = "");
  // Any program on the device.
  Ended run_on_device(const Arguments& command, const std::string& input = "");

  void put_package(const support::PackageFile& package);
  void put_package(const sim::Bytes& bytes);
  void write_flags(const std::function<void(sim::BootRecord&)>& change = {});
  void run_system(sim::System system) { device().set_running(system); }
  // Makes system B's partitions, or A's while B runs, equal to the running system's.
  void copy_running_system();

  std::string target_name(const std::string& name) const;
  std::string running_name(const std::string& name) const;
  // Erases of all partitions, "flags" apart.
  std::uint64_t erases_of_systems();
  std::uint64_t erases() const;
  // The copy of the record that counts.
  sim::BootRecord record();

  DeviceContent content(bool with_log = true);
  // Runs zozale and expects that flash, store and files, the log too, stay as they are.
  Ended zozale_untouched(const Arguments& arguments);

 private:
  void fill_partition(const std::string& name, std::uint32_t seed);

  support::TempFolder folder_;
  std::unique_ptr<sim::Device> device_;
  int devices_ = 0;
};

// The same test with either system running.
class EitherSystem : public ToolTest, public ::testing::WithParamInterface<sim::System> {
 protected:
  EitherSystem() { run_system(GetParam()); }
};
std::string system_name(const ::testing::TestParamInfo<sim::System>& info);

// Bytes in an image that does not fill its last block.
constexpr std::size_t kImageSize = 5000;

}  // namespace tool

#endif
