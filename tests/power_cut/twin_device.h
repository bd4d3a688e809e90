// SPDX-License-Identifier: Apache-2.0
//
// A device whose two systems hold known releases, looked at without the library's help.
#ifndef TESTS_POWER_CUT_TWIN_DEVICE_H
#define TESTS_POWER_CUT_TWIN_DEVICE_H

#include <cstdint>
#include <string>
#include <vector>

#include "sim/boot_loader.h"
#include "sim/device.h"
#include "tests/support/device_test.h"

namespace cuts {

// What a partition of a system is to begin with.
struct Image {
  std::string name;  // system A's partition
  sim::Bytes data;
  sim::Bytes digest;
};
Image make_image(const std::string& name, std::size_t length, std::uint32_t seed);

// The images of a whole system.
using Release = std::vector<Image>;

class TwinDevice {
 public:
  // In memory, attached to this process; the record is not written yet.
  explicit TwinDevice(const sim::Layout& layout);
  ~TwinDevice();
  TwinDevice(const TwinDevice&) = delete;
  TwinDevice& operator=(const TwinDevice&) = delete;

  sim::Device& device() { return device_; }
  sim::Partition partition_of(sim::System system, const std::string& name);

  // As a factory does it.
  void flash(sim::System system, const Release& release);
  void put_package(const Release& release);

  // Whether the good blocks begin with the image, read as the chip gives it: noise and all.
  bool holds(sim::System system, const Image& image);
  bool holds(sim::System system, const Release& release);

  // A value of the configuration store, as it is saved; -1000 when it is not.
  int stored(const std::string& name) const;

  // The library's log is no matter here; it would only grow.
  void remove_log() { device_.remove_file("/cache/ovu_fota_ab/upi_ab.log"); }

 private:
  sim::Bytes read(const sim::Partition& partition, std::size_t length);

  support::TempFolder folder_;
  sim::Device device_;
};

}  // namespace cuts

#endif
