// SPDX-License-Identifier: Apache-2.0
#include "sim/flash.h"

#include <cerrno>
#include <string>

#include "sim/device_state.h"
#include "sim/power.h"

namespace sim {
namespace {

// Counts the operation; an errno value when it is not to be carried out.
int begin(Device& device, std::uint32_t partition, Op op) {
  if (device.power() == Power::cut) {
    return EIO;
  }
  PartitionState& state = device.state().partitions.at(partition);
  ++state.counts.at(static_cast<std::size_t>(op));
  return device.faults().meet(op, state.name, "/dev/mtd" + std::to_string(partition)).error;
}

void cut_erase(Nand& nand, std::uint32_t block, const PowerCut& cut) {
  const std::uint32_t pages = nand.geometry().pages_per_block;
  const std::uint32_t wanted = cut.page.value_or(pages);
  switch (cut.kind) {
    case CutKind::before:
      break;
    case CutKind::after:
      nand.erase(block);
      break;
    case CutKind::torn:
      nand.erase_torn(block, wanted < pages ? wanted : pages / 2);
      break;
    case CutKind::unstable:
      nand.erase_unstable(block);
      break;
  }
}

void cut_program(Nand& nand, std::uint64_t page, const std::uint8_t* data, const PowerCut& cut) {
  const std::uint32_t size = nand.geometry().page_size;
  const std::uint32_t wanted = cut.byte.value_or(size);
  switch (cut.kind) {
    case CutKind::before:
      break;
    case CutKind::after:
      nand.program(page, data);
      break;
    case CutKind::torn:
      nand.program_torn(page, data, wanted < size ? wanted : size / 2);
      break;
    case CutKind::unstable:
      nand.program_unstable(page, data);
      break;
  }
}

}  // namespace

int flash_erase(Device& device, std::uint32_t partition, std::uint32_t block) {
  if (const int error = begin(device, partition, Op::block_erase)) {
    return error;
  }
  const std::uint32_t on_chip = device.state().partitions.at(partition).first_block + block;
  if (const auto cut = device.faults().meet_flash_operation()) {
    cut_erase(device.nand(), on_chip, *cut);
    lose_power(device);
    return EIO;
  }
  return device.nand().erase(on_chip);
}

int flash_program(Device& device, std::uint32_t partition, std::uint64_t page,
                  const std::uint8_t* data) {
  if (const int error = begin(device, partition, Op::page_program)) {
    return error;
  }
  const std::uint64_t on_chip = std::uint64_t{device.state().partitions.at(partition).first_block} *
                                    device.nand().geometry().pages_per_block +
                                page;
  if (const auto cut = device.faults().meet_flash_operation()) {
    cut_program(device.nand(), on_chip, data, *cut);
    lose_power(device);
    return EIO;
  }
  return device.nand().program(on_chip, data);
}

}  // namespace sim
