// SPDX-License-Identifier: Apache-2.0
//
// A test on a simulated device of its own.
#ifndef TESTS_SUPPORT_DEVICE_TEST_H
#define TESTS_SUPPORT_DEVICE_TEST_H

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sim/attach.h"
#include "sim/boot_loader.h"
#include "sim/device.h"
#include "tests/support/captured.h"

namespace support {

// A folder that is removed, with all in it, at the end.
class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// How a child process that was put through `body` ended.
struct ChildEnd {
  bool power_cut = false;  // by the power cut that was set
  bool exited = false;     // by returning from `body`, or by exit()
  int status = 0;          // exit status, when exited; else the signal that ended it
};
// Forks, runs `body` in the child and waits for its end. The device is shared: what the child
// programs stays. Standard output of the child goes nowhere.
ChildEnd in_child(const std::function<int()>& body);

// Makes sim::test_layout() anew for every test, in memory, attached, system A running, write
// protected, /cache and /etc_ro in place, "flags" erased. Ends with checks: nothing of the device
// is left open, no rule of NAND was broken.
class DeviceTest : public ::testing::Test {
 protected:
  DeviceTest();
  ~DeviceTest() override;
  void TearDown() override;

  // Replaces the device by one of another layout, attached.
  void use(const sim::Layout& layout, sim::Storage storage = sim::Storage::memory);

  sim::Device& device() { return *device_; }
  sim::Partition partition(const std::string& name) { return device_->partition(name); }

  // Switch off the final checks of a test that provokes what they look for. The log file's stream
  // may always stay open.
  void allow_open_descriptors() { check_descriptors_ = false; }
  void allow_rule_breaks() { check_rules_ = false; }

  // Writes factory_record(), changed by `change`, into both copies.
  void write_flags(const std::function<void(sim::BootRecord&)>& change = {});

 private:
  TempFolder folder_;
  std::unique_ptr<sim::Device> device_;
  int devices_ = 0;
  bool check_descriptors_ = true;
  bool check_rules_ = true;
};

// Bytes that differ from place to place and from seed to seed.
sim::Bytes pattern(std::size_t length, std::uint32_t seed = 1);
std::string text(const sim::Bytes& bytes);
sim::Bytes bytes(std::string_view text);

}  // namespace support

#endif
