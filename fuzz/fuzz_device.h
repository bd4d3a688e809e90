// SPDX-License-Identifier: Apache-2.0
//
// The simulated device that a fuzz target runs the library on. One per process, made at its first
// use and put back as it was before each input, so that no input sees what another one left.
#ifndef FUZZ_FUZZ_DEVICE_H
#define FUZZ_FUZZ_DEVICE_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "sim/boot_loader.h"
#include "sim/device.h"

namespace fuzz {

constexpr const char* kPackagePath = "/cache/ovu_fota_ab/upgrade.package";

class FuzzDevice {
 public:
  // The device of this process, attached: partitions of 6 blocks of 1 KiB, filled; a valid boot
  // flag record; system A runs. Standard output goes nowhere from then on: the library's log is
  // written to its file, which rotates as it does on a device.
  static FuzzDevice& get();

  FuzzDevice(const FuzzDevice&) = delete;
  FuzzDevice& operator=(const FuzzDevice&) = delete;
  ~FuzzDevice();

  // As it was when it was made: flash, write protection, counters, store. Files stay.
  void reset();

  sim::Device& sim() { return device_; }
  sim::Partition partition(const char* name) { return device_.partition(name); }

  // Replaces a file of the device.
  void put(std::string_view path, const void* bytes, std::size_t size);
  void put(std::string_view path, std::string_view text) { put(path, text.data(), text.size()); }
  // Lets "/proc/cmdline" name a system.
  void run(sim::System system);

  // What the configuration store holds; a value is handed out as it is, with its zero bytes.
  std::map<std::string, std::string, std::less<>>& store() { return store_; }

  // Closes what the last calls left open on the package; anything else that is open, but for the
  // log, is a finding.
  void close_package();

 private:
  FuzzDevice();

  std::filesystem::path folder_;
  sim::Device device_;
  sim::Device::Snapshot made_;
  sim::System running_ = sim::System::a;
  std::map<std::string, std::string, std::less<>> store_;
};

// Block n is bad when bit n is set.
void set_bad_blocks(sim::Partition partition, unsigned bits);

// Lets the driver tell a geometry that cannot be, one of seven; false for 0, the truth.
bool lie_about(sim::Partition partition, unsigned which);

// A package of the device's three partitions that every check passes.
std::string good_package();

}  // namespace fuzz

#endif
