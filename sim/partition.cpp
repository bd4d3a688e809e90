// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <stdexcept>

#include "sim/device_state.h"

namespace sim {
namespace {

PartitionState& state_of(Device& device, std::uint32_t number) {
  return device.state().partitions.at(number);
}

std::uint32_t chip_block(Device& device, std::uint32_t number, std::uint32_t block) {
  const PartitionState& partition = state_of(device, number);
  if (block >= partition.blocks) {
    throw std::out_of_range("partition \"" + std::string(partition.name) + "\" has no block " +
                            std::to_string(block));
  }
  return partition.first_block + block;
}

std::uint64_t chip_page(Device& device, std::uint32_t number, std::uint32_t block,
                        std::uint32_t page) {
  const std::uint32_t pages = device.nand().geometry().pages_per_block;
  if (page >= pages) {
    throw std::out_of_range("a block has no page " + std::to_string(page));
  }
  return std::uint64_t{chip_block(device, number, block)} * pages + page;
}

std::uint64_t chip_offset(Device& device, std::uint32_t number) {
  return std::uint64_t{state_of(device, number).first_block} *
         device.nand().geometry().block_size();
}

}  // namespace

std::string Partition::name() const {
  return state_of(*device_, number_).name;
}
std::string Partition::node() const {
  return "/dev/mtd" + std::to_string(number_);
}
std::uint32_t Partition::blocks() const {
  return state_of(*device_, number_).blocks;
}
std::uint32_t Partition::block_size() const {
  return device_->nand().geometry().block_size();
}
std::uint64_t Partition::size() const {
  return std::uint64_t{blocks()} * block_size();
}

std::uint32_t Partition::good_blocks() const {
  std::uint32_t good = 0;
  for (std::uint32_t i = 0; i < blocks(); ++i) {
    good += is_bad(i) ? 0U : 1U;
  }
  return good;
}

Bytes Partition::block(std::uint32_t block) const {
  Bytes bytes(block_size());
  const std::uint64_t at = std::uint64_t{chip_block(*device_, number_, block)} * block_size();
  device_->nand().peek(at, bytes.data(), bytes.size());
  return bytes;
}

Bytes Partition::raw() const {
  Bytes bytes(static_cast<std::size_t>(size()));
  device_->nand().peek(chip_offset(*device_, number_), bytes.data(), bytes.size());
  return bytes;
}

Bytes Partition::good() const {
  Bytes bytes;
  for (std::uint32_t i = 0; i < blocks(); ++i) {
    if (!is_bad(i)) {
      const Bytes part = block(i);
      bytes.insert(bytes.end(), part.begin(), part.end());
    }
  }
  return bytes;
}

void Partition::flash(const Bytes& data) {
  const std::uint64_t room = std::uint64_t{good_blocks()} * block_size();
  if (data.size() > room) {
    throw std::runtime_error("partition \"" + name() + "\" has good blocks for " +
                             std::to_string(room) + " bytes, not for " +
                             std::to_string(data.size()));
  }
  std::size_t done = 0;
  for (std::uint32_t i = 0; i < blocks(); ++i) {
    if (is_bad(i)) {
      continue;
    }
    Bytes content(block_size(), 0xFF);
    const std::size_t part = std::min<std::size_t>(content.size(), data.size() - done);
    std::copy_n(data.begin() + static_cast<std::ptrdiff_t>(done), part, content.begin());
    poke(std::uint64_t{i} * block_size(), content);
    done += part;
  }
}

void Partition::flash(std::string_view data) {
  flash(Bytes(data.begin(), data.end()));
}

void Partition::poke(std::uint64_t offset, const Bytes& data) {
  if (offset > size() || data.size() > size() - offset) {
    throw std::out_of_range("partition \"" + name() + "\" ends before the bytes to be set");
  }
  device_->nand().poke(chip_offset(*device_, number_) + offset, data.data(), data.size());
}

void Partition::wipe() {
  const Bytes erased(block_size(), 0xFF);
  for (std::uint32_t i = 0; i < blocks(); ++i) {
    poke(std::uint64_t{i} * block_size(), erased);
  }
}

bool Partition::is_bad(std::uint32_t block) const {
  return device_->nand().is_bad(chip_block(*device_, number_, block));
}

void Partition::set_bad(std::uint32_t block, bool bad) {
  device_->nand().set_bad(chip_block(*device_, number_, block), bad);
}

void Partition::set_erase_defect(std::uint32_t block, EraseDefect defect, std::uint32_t nth) {
  device_->nand().set_erase_defect(chip_block(*device_, number_, block), defect, nth);
}

void Partition::set_page_defects(std::uint32_t block, std::uint32_t page, std::uint8_t defects) {
  device_->nand().set_page_defects(chip_page(*device_, number_, block, page), defects);
}

void Partition::set_page_unstable(std::uint32_t block, std::uint32_t page) {
  device_->nand().set_page_unstable(chip_page(*device_, number_, block, page));
}

std::uint32_t Partition::erase_count(std::uint32_t block) const {
  return device_->nand().erase_count(chip_block(*device_, number_, block));
}

std::uint32_t Partition::program_count(std::uint32_t block, std::uint32_t page) const {
  return device_->nand().program_count(chip_page(*device_, number_, block, page));
}

std::uint64_t Partition::total_erases() const {
  std::uint64_t sum = 0;
  for (std::uint32_t i = 0; i < blocks(); ++i) {
    sum += erase_count(i);
  }
  return sum;
}

std::uint64_t Partition::count(Op op) const {
  return state_of(*device_, number_).counts.at(static_cast<std::size_t>(op));
}

bool Partition::write_protected() const {
  return state_of(*device_, number_).lifted == 0;
}
void Partition::set_write_protected(bool on) {
  state_of(*device_, number_).lifted = on ? 0 : 1;
}

void Partition::set_reported_info(const std::optional<MtdInfo>& info) {
  PartitionState& state = state_of(*device_, number_);
  state.reports = info ? 1 : 0;
  state.reported = info.value_or(MtdInfo{});
}

MtdInfo Partition::reported_info() const {
  const PartitionState& state = state_of(*device_, number_);
  if (state.reports != 0) {
    return state.reported;
  }
  const Geometry& geometry = device_->nand().geometry();
  return {static_cast<std::uint32_t>(size()), geometry.block_size(), geometry.page_size,
          geometry.oob_size};
}

}  // namespace sim
