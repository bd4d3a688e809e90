// SPDX-License-Identifier: Apache-2.0
//
// Devices as they come: no two have the same flash.
#ifndef TESTS_FLEET_HARDWARE_H
#define TESTS_FLEET_HARDWARE_H

#include <cstdint>
#include <string>
#include <vector>

#include "sim/device.h"
#include "tests/power_cut/random.h"
#include "tests/power_cut/twin_device.h"

namespace fleet {

// A partition of both systems.
struct Room {
  std::string name;
  std::uint32_t image_blocks;  // the most that an image takes
};

struct Hardware {
  sim::Layout layout;
  std::vector<Room> rooms;
  std::vector<std::uint32_t> dying;  // by partition number: blocks that will turn bad in use
};

Hardware make_hardware(cuts::Random& random);

// Sets the blocks that turn bad at one of their next erases, good ones only; to be called on a
// filled device. The driver marks them bad, whether that erase fails or not.
void set_wear(sim::Device& device, const Hardware& hardware, cuts::Random& random);

// Bad blocks over all partitions.
std::uint64_t count_bad(sim::Device& device);

// A release that fits, some of its images those of `before`. As a package tool sees to it, no
// digest holds a zero byte, behind which nothing is compared; and no image ends with a page of a
// few bits, which could pass a check by chance while they are unstable.
cuts::Release make_release(const Hardware& hardware, const cuts::Release& before,
                           cuts::Random& random);

}  // namespace fleet

#endif
