// SPDX-License-Identifier: Apache-2.0
#include "shapes.h"

#include <stdexcept>

namespace cuts {
namespace {

using Blocks = std::vector<std::uint32_t>;

Blocks none(std::uint32_t /*blocks*/, std::uint32_t /*partition*/) {
  return {};
}
Blocks first(std::uint32_t /*blocks*/, std::uint32_t /*partition*/) {
  return {0};
}
Blocks middle(std::uint32_t blocks, std::uint32_t /*partition*/) {
  return {blocks / 2};
}
Blocks last(std::uint32_t blocks, std::uint32_t /*partition*/) {
  return {blocks - 1};
}
Blocks row(std::uint32_t /*blocks*/, std::uint32_t /*partition*/) {
  return {1, 2, 3};
}
// Two in each partition, other ones in each.
Blocks scattered(std::uint32_t blocks, std::uint32_t partition) {
  const std::uint32_t one = partition % blocks;
  return {one, (one + 1 + partition % 3) % blocks};
}

template <typename Named>
const Named& find_named(const std::vector<Named>& all, const std::string& name,
                        const std::string& kind) {
  std::string known;
  for (const Named& candidate : all) {
    if (name == candidate.name) {
      return candidate;
    }
    known += std::string(" ") + candidate.name;
  }
  throw std::runtime_error(kind + ": found \"" + name + "\", expected one of:" + known);
}

}  // namespace

const std::vector<Shape>& shapes() {
  static const std::vector<Shape> kShapes = {
      {"256x4", 256, 4, 10, 8, 11, 7},    {"1024x1", 1024, 1, 6, 9, 12, 8},
      {"512x4", 512, 4, 8, 8, 11, 7},     {"1024x2", 1024, 2, 5, 8, 12, 7},
      {"2048x2", 2048, 2, 12, 10, 11, 8}, {"2048x4", 2048, 4, 7, 8, 11, 7},
      {"512x16", 512, 16, 9, 8, 11, 7},   {"4096x4", 4096, 4, 6, 8, 11, 7},
  };
  return kShapes;
}

const std::vector<BadMap>& bad_maps() {
  static const std::vector<BadMap> kMaps = {
      {"none", none}, {"first", first},         {"middle", middle},    {"last", last},
      {"row", row},   {"scattered", scattered}, {"dying", none, true},
  };
  return kMaps;
}

const Shape& shape_named(const std::string& name) {
  return find_named(shapes(), name, "geometry");
}
const BadMap& bad_map_named(const std::string& name) {
  return find_named(bad_maps(), name, "bad blocks");
}

sim::Layout layout_of(const Shape& shape, const BadMap& map) {
  sim::Layout layout = sim::test_layout(shape.page_size, shape.pages_per_block);
  const std::vector<std::uint32_t> blocks = {shape.flags,  shape.kernel, shape.kernel,
                                             shape.rootfs, shape.rootfs, shape.oemdata,
                                             shape.oemdata};
  for (std::uint32_t number = 0; number < blocks.size(); ++number) {
    sim::PartitionLayout& partition = layout.partitions.at(number);
    partition.blocks = blocks[number];
    partition.bad = map.bad(partition.blocks, number);
  }
  return layout;
}

// A block of "flags" that fails its erase costs a copy of the record until the next start; that
// case has tests of its own.
void set_dying_blocks(sim::Device& device) {
  for (std::uint32_t number = 0; number < device.partition_count(); ++number) {
    sim::Partition partition = device.partition(number);
    const bool flags = partition.name() == "flags";
    partition.set_erase_defect(
        0, flags ? sim::EraseDefect::turns_bad_passes : sim::EraseDefect::turns_bad_fails);
    partition.set_erase_defect(2, sim::EraseDefect::turns_bad_passes, flags ? 2 : 1);
  }
}

Release release_for(const Shape& shape, std::uint32_t number) {
  const std::uint32_t block = shape.page_size * shape.pages_per_block;
  const std::uint32_t seed = 10 * number;
  return {
      make_image("kernel", 2 * block + 13 + 100 * std::size_t{number}, seed + 1),
      make_image("rootfs", std::size_t{5 + number % 2} * block - 7 * std::size_t{number}, seed + 2),
      make_image("oemdata", block + std::size_t{number % 3} * (block / 2), seed + 3)};
}

}  // namespace cuts
