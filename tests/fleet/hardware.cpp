// SPDX-License-Identifier: Apache-2.0
#include "hardware.h"

#include <algorithm>

#include "tests/support/package_file.h"

namespace fleet {
namespace {

constexpr std::uint32_t kSmallestBlock = 1024;
constexpr std::uint32_t kLargestBlock = 8192;
constexpr std::uint32_t kImageGrain = 64;  // bytes that an image has in its last page, at least

std::uint32_t below(cuts::Random& random, std::uint32_t end) {
  return static_cast<std::uint32_t>(random.below(end));
}

void make_geometry(sim::Geometry& geometry, cuts::Random& random) {
  geometry.page_size = 256U << below(random, 4);
  geometry.pages_per_block = 1;
  while (geometry.block_size() < kSmallestBlock ||
         (geometry.block_size() < kLargestBlock && below(random, 2) == 0)) {
    geometry.pages_per_block *= 2;
  }
}

// `used` blocks, and as many more as are bad or will be.
sim::PartitionLayout make_partition(const std::string& name, std::uint32_t used,
                                    std::uint32_t dying, cuts::Random& random) {
  const std::uint32_t bad = below(random, 4);
  sim::PartitionLayout partition{name, used + dying + bad + below(random, 3), {}};
  while (partition.bad.size() < bad) {
    const std::uint32_t block = below(random, partition.blocks);
    if (std::count(partition.bad.begin(), partition.bad.end(), block) == 0) {
      partition.bad.push_back(block);
    }
  }
  return partition;
}

void add_partition(Hardware& hardware, const std::string& name, std::uint32_t used,
                   cuts::Random& random) {
  hardware.dying.push_back(below(random, 3));
  hardware.layout.partitions.push_back(make_partition(name, used, hardware.dying.back(), random));
}

void add_room(Hardware& hardware, const Room& room, cuts::Random& random) {
  hardware.rooms.push_back(room);
  add_partition(hardware, room.name, room.image_blocks, random);
  add_partition(hardware, room.name + "2", room.image_blocks, random);
}

bool holds_zero(const sim::Bytes& digest) {
  return std::count(digest.begin(), digest.end(), 0) != 0;
}

cuts::Image make_image(const Room& room, std::uint32_t block_size, cuts::Random& random) {
  for (;;) {
    const std::uint32_t blocks = below(random, room.image_blocks);
    const std::uint32_t rest = kImageGrain * (1 + below(random, block_size / kImageGrain));
    const auto seed = static_cast<std::uint32_t>(random.below(UINT32_MAX));
    cuts::Image image = cuts::make_image(room.name, blocks * block_size + rest, seed);
    sim::Bytes on_flash = image.data;
    on_flash.resize(std::size_t{blocks + 1} * block_size, 0xFF);
    if (!holds_zero(image.digest) && !holds_zero(support::sha512(on_flash))) {
      return image;
    }
  }
}

}  // namespace

Hardware make_hardware(cuts::Random& random) {
  constexpr std::uint32_t kFlagsUsed = 3;
  Hardware hardware;
  sim::Layout& layout = hardware.layout;
  layout = sim::test_layout();
  layout.partitions.clear();
  make_geometry(layout.geometry, random);
  add_partition(hardware, "flags", kFlagsUsed + below(random, 6), random);
  add_room(hardware, {"kernel", 1 + below(random, 3)}, random);
  add_room(hardware, {"rootfs", 2 + below(random, 5)}, random);
  add_room(hardware, {"oemdata", 1 + below(random, 2)}, random);
  return hardware;
}

void set_wear(sim::Device& device, const Hardware& hardware, cuts::Random& random) {
  constexpr std::uint32_t kMostErases = 12;
  for (std::uint32_t number = 0; number < device.partition_count(); ++number) {
    sim::Partition partition = device.partition(number);
    for (std::uint32_t left = hardware.dying.at(number); left > 0; --left) {
      const std::uint32_t block = below(random, partition.blocks());
      const auto defect = below(random, 2) == 0 ? sim::EraseDefect::turns_bad_fails
                                                : sim::EraseDefect::turns_bad_passes;
      if (!partition.is_bad(block)) {
        partition.set_erase_defect(block, defect, 1 + below(random, kMostErases));
      }
    }
  }
}

std::uint64_t count_bad(sim::Device& device) {
  std::uint64_t bad = 0;
  for (std::uint32_t number = 0; number < device.partition_count(); ++number) {
    const sim::Partition partition = device.partition(number);
    bad += partition.blocks() - partition.good_blocks();
  }
  return bad;
}

cuts::Release make_release(const Hardware& hardware, const cuts::Release& before,
                           cuts::Random& random) {
  constexpr std::uint64_t kUnchanged = 4;
  cuts::Release release;
  for (std::size_t i = 0; i < hardware.rooms.size(); ++i) {
    release.push_back(
        !before.empty() && random.once_in(kUnchanged)
            ? before.at(i)
            : make_image(hardware.rooms[i], hardware.layout.geometry.block_size(), random));
  }
  return release;
}

}  // namespace fleet
