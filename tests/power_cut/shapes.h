// SPDX-License-Identifier: Apache-2.0
//
// The flash that power cuts are tried on: geometries, and where its bad blocks are.
#ifndef TESTS_POWER_CUT_SHAPES_H
#define TESTS_POWER_CUT_SHAPES_H

#include <cstdint>
#include <string>
#include <vector>

#include "sim/device.h"
#include "twin_device.h"

namespace cuts {

// Small, so that an operation takes a millisecond, and unlike each other: the record over several
// pages, in half of a page, in a small part of one; blocks of one page and of many. No block is
// smaller than 1024 bytes: the library reads so much at a time, past the end of the block.
struct Shape {
  const char* name;  // page size and pages per block
  std::uint32_t page_size;
  std::uint32_t pages_per_block;
  std::uint32_t flags;  // blocks of the partitions
  std::uint32_t kernel;
  std::uint32_t rootfs;
  std::uint32_t oemdata;
};
const std::vector<Shape>& shapes();

// Bad blocks of every partition, the flags' too.
struct BadMap {
  const char* name;
  std::vector<std::uint32_t> (*bad)(std::uint32_t blocks, std::uint32_t partition);
  bool dying = false;  // others turn bad while they are erased
};
const std::vector<BadMap>& bad_maps();

// By name; throws std::runtime_error that names what there is.
const Shape& shape_named(const std::string& name);
const BadMap& bad_map_named(const std::string& name);

sim::Layout layout_of(const Shape& shape, const BadMap& map);
// What turns bad in use; to be set once the device is filled.
void set_dying_blocks(sim::Device& device);

// Images for a shape: number by number different in content and length, and room is left for three
// bad blocks and for two that turn bad.
Release release_for(const Shape& shape, std::uint32_t number);

}  // namespace cuts

#endif
