// SPDX-License-Identifier: Apache-2.0
#include "sim/nand.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <type_traits>

#include "sim/shared_region.h"

namespace sim {
namespace {

// Zero-filled memory is a chip fresh from the factory.
struct BlockState {
  std::uint8_t bad;
  std::uint8_t unclean;  // the last erase failed or was cut off
  std::uint8_t defect;   // EraseDefect
  std::uint8_t reserved;
  std::uint32_t defect_in;  // erases until the defect shows; 0: it shows
  std::uint32_t erases;
  std::uint32_t first_free;  // the page after the last programmed one
};

struct PageState {
  std::uint8_t programmed;  // its bytes are stored; otherwise it reads as 0xFF
  std::uint8_t unstable;    // its mask of unstable bits is stored
  std::uint8_t defects;     // sum of PageDefect
  std::uint8_t reserved;
  std::uint32_t programs;
};

struct ChipState {
  RuleBreaks broken;
  std::uint64_t noise;
};

std::size_t meta_size(const Geometry& geometry) {
  return sizeof(ChipState) + sizeof(BlockState) * geometry.blocks +
         sizeof(PageState) * static_cast<std::size_t>(geometry.pages());
}

bool all_erased(const Bytes& bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0xFF; });
}

std::uint64_t next_noise(std::uint64_t& state) {
  state += 0x9E3779B97F4A7C15U;
  std::uint64_t mixed = state;
  mixed = (mixed ^ (mixed >> 30U)) * 0xBF58476D1CE4E5B9U;
  mixed = (mixed ^ (mixed >> 27U)) * 0x94D049BB133111EBU;
  return mixed ^ (mixed >> 31U);
}

}  // namespace

struct Nand::Memory {
  Geometry geometry;
  SharedRegion meta;
  SharedBytes data;      // stored bytes of programmed pages
  SharedBytes unstable;  // masks of the unstable pages' unstable bits

  ChipState& chip() const { return *meta.at<ChipState>(0); }
  BlockState* blocks() const { return meta.at<BlockState>(sizeof(ChipState)); }
  PageState* pages() const {
    return meta.at<PageState>(sizeof(ChipState) + sizeof(BlockState) * geometry.blocks);
  }

  std::uint32_t block_of(std::uint64_t page) const {
    return static_cast<std::uint32_t>(page / geometry.pages_per_block);
  }
  std::uint32_t page_in_block(std::uint64_t page) const {
    return static_cast<std::uint32_t>(page % geometry.pages_per_block);
  }
  std::uint64_t first_page(std::uint32_t block) const {
    return std::uint64_t{block} * geometry.pages_per_block;
  }
  std::uint64_t offset_of(std::uint64_t page) const { return page * geometry.page_size; }

  Bytes page_bytes(std::uint64_t page) const;
  Bytes page_mask(std::uint64_t page) const;
  void store_page(std::uint64_t page, const Bytes& bytes);
  void store_mask(std::uint64_t page, const Bytes& mask);
  void clear_page(std::uint64_t page);
  void find_first_free(std::uint32_t block);
  void forget_pages(std::uint32_t block, std::uint32_t count);

  void note_program(std::uint64_t page);
  void read_page(std::uint64_t page, std::uint32_t from, std::uint8_t* buffer, std::size_t length);
  void shake(std::uint64_t page, std::uint32_t from, std::uint8_t* buffer, std::size_t length);
  void garble(std::uint64_t page, std::uint32_t from, std::uint8_t* buffer,
              std::size_t length) const;
  bool defect_shows(BlockState& block) const;
};

Bytes Nand::Memory::page_bytes(std::uint64_t page) const {
  Bytes bytes(geometry.page_size, 0xFF);
  if (pages()[page].programmed != 0) {
    data.read(offset_of(page), bytes.data(), bytes.size());
  }
  return bytes;
}

Bytes Nand::Memory::page_mask(std::uint64_t page) const {
  Bytes mask(geometry.page_size, 0);
  if (pages()[page].unstable != 0) {
    unstable.read(offset_of(page), mask.data(), mask.size());
  }
  return mask;
}

void Nand::Memory::store_page(std::uint64_t page, const Bytes& bytes) {
  data.write(offset_of(page), bytes.data(), bytes.size());
  pages()[page].programmed = 1;
  BlockState& block = blocks()[block_of(page)];
  block.first_free = std::max(block.first_free, page_in_block(page) + 1);
}

void Nand::Memory::store_mask(std::uint64_t page, const Bytes& mask) {
  unstable.write(offset_of(page), mask.data(), mask.size());
  pages()[page].unstable = 1;
}

void Nand::Memory::clear_page(std::uint64_t page) {
  pages()[page].programmed = 0;
  pages()[page].unstable = 0;
}

void Nand::Memory::find_first_free(std::uint32_t block) {
  std::uint32_t free = geometry.pages_per_block;
  while (free > 0 && pages()[first_page(block) + free - 1].programmed == 0) {
    --free;
  }
  blocks()[block].first_free = free;
}

void Nand::Memory::forget_pages(std::uint32_t block, std::uint32_t count) {
  for (std::uint32_t i = 0; i < count; ++i) {
    clear_page(first_page(block) + i);
  }
  find_first_free(block);
}

void Nand::Memory::note_program(std::uint64_t page) {
  const BlockState& block = blocks()[block_of(page)];
  RuleBreaks& broken = chip().broken;
  broken.bad_block_programmed += block.bad != 0 ? 1 : 0;
  broken.block_not_erased += block.unclean != 0 ? 1 : 0;
  if (pages()[page].programmed != 0) {
    ++broken.page_programmed_twice;
  } else if (page_in_block(page) < block.first_free) {
    ++broken.page_out_of_order;
  }
  ++pages()[page].programs;
}

void Nand::Memory::read_page(std::uint64_t page, std::uint32_t from, std::uint8_t* buffer,
                             std::size_t length) {
  const PageState& state = pages()[page];
  if (state.programmed == 0) {
    std::memset(buffer, 0xFF, length);
  } else {
    data.read(offset_of(page) + from, buffer, length);
  }
  if (state.unstable != 0) {
    shake(page, from, buffer, length);
  }
  if ((state.defects & kPageMisread) != 0) {
    garble(page, from, buffer, length);
  }
  if ((state.defects & kPageUnreadable) != 0) {
    std::generate_n(buffer, length,
                    [this] { return static_cast<std::uint8_t>(next_noise(chip().noise)); });
  }
}

void Nand::Memory::shake(std::uint64_t page, std::uint32_t from, std::uint8_t* buffer,
                         std::size_t length) {
  const Bytes mask = page_mask(page);
  for (std::size_t i = 0; i < length; ++i) {
    const auto noise = static_cast<std::uint8_t>(next_noise(chip().noise));
    const std::uint8_t bits = mask[from + i];
    buffer[i] = static_cast<std::uint8_t>((buffer[i] & ~bits) | (noise & bits));
  }
}

// One bit in every sixteenth byte is wrong: more than any correction mends, and always the same.
void Nand::Memory::garble(std::uint64_t page, std::uint32_t from, std::uint8_t* buffer,
                          std::size_t length) const {
  for (std::size_t i = 0; i < length; ++i) {
    const std::uint64_t place = from + i;
    if (place % 16 == 0) {
      buffer[i] ^= static_cast<std::uint8_t>(1U << ((page + place / 16) % 8));
    }
  }
}

// Counts down to the erase at which a defect shows.
bool Nand::Memory::defect_shows(BlockState& block) const {
  if (block.defect == static_cast<std::uint8_t>(EraseDefect::none)) {
    return false;
  }
  block.defect_in -= block.defect_in > 0 ? 1 : 0;
  return block.defect_in == 0;
}

Nand::Nand(std::unique_ptr<Memory> memory) : memory_(std::move(memory)) {}
Nand::Nand(Nand&&) noexcept = default;
Nand& Nand::operator=(Nand&&) noexcept = default;
Nand::~Nand() = default;

Nand Nand::create(const std::filesystem::path& folder, const Geometry& geometry) {
  std::filesystem::create_directories(folder);
  return Nand(std::make_unique<Memory>(Memory{
      geometry, SharedRegion::file(folder / "wear.bin", meta_size(geometry), FileUse::create),
      SharedBytes::file(folder / "data.bin", geometry.size(), FileUse::create),
      SharedBytes::file(folder / "unstable.bin", geometry.size(), FileUse::create)}));
}

Nand Nand::open(const std::filesystem::path& folder, const Geometry& geometry) {
  return Nand(std::make_unique<Memory>(
      Memory{geometry, SharedRegion::file(folder / "wear.bin", meta_size(geometry), FileUse::open),
             SharedBytes::file(folder / "data.bin", geometry.size(), FileUse::open),
             SharedBytes::file(folder / "unstable.bin", geometry.size(), FileUse::open)}));
}

Nand Nand::in_memory(const Geometry& geometry) {
  return Nand(std::make_unique<Memory>(Memory{geometry, SharedRegion::memory(meta_size(geometry)),
                                              SharedBytes::memory(geometry.size()),
                                              SharedBytes::memory(geometry.size())}));
}

const Geometry& Nand::geometry() const {
  return memory_->geometry;
}

void Nand::read(std::uint64_t offset, void* buffer, std::size_t length) {
  auto* out = static_cast<std::uint8_t*>(buffer);
  const std::uint32_t page_size = geometry().page_size;
  std::uint32_t counted = geometry().blocks;  // the bad block that was counted last
  while (length > 0) {
    const std::uint64_t page = offset / page_size;
    const auto from = static_cast<std::uint32_t>(offset % page_size);
    const std::size_t part = std::min<std::size_t>(length, page_size - from);
    const std::uint32_t block = memory_->block_of(page);
    if (is_bad(block) && block != counted) {
      ++memory_->chip().broken.bad_block_read;
      counted = block;
    }
    memory_->read_page(page, from, out, part);
    out += part;
    offset += part;
    length -= part;
  }
}

int Nand::program(std::uint64_t page, const std::uint8_t* data) {
  memory_->note_program(page);
  Bytes bytes = memory_->page_bytes(page);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] &= data[i];
  }
  memory_->store_page(page, bytes);
  return (memory_->pages()[page].defects & kPageFailsProgram) != 0 ? EIO : 0;
}

int Nand::erase(std::uint32_t block) {
  BlockState& state = memory_->blocks()[block];
  memory_->chip().broken.bad_block_erased += state.bad != 0 ? 1 : 0;
  memory_->forget_pages(block, geometry().pages_per_block);
  state.unclean = 0;
  if (memory_->defect_shows(state)) {
    const auto defect = static_cast<EraseDefect>(state.defect);
    state.bad = defect == EraseDefect::worn ? state.bad : 1;
    if (defect != EraseDefect::turns_bad_passes) {
      state.unclean = 1;
      return EIO;
    }
  }
  ++state.erases;
  return 0;
}

bool Nand::is_bad(std::uint32_t block) const {
  return memory_->blocks()[block].bad != 0;
}

void Nand::program_torn(std::uint64_t page, const std::uint8_t* data, std::uint32_t bytes) {
  memory_->note_program(page);
  Bytes stored = memory_->page_bytes(page);
  for (std::uint32_t i = 0; i < std::min(bytes, geometry().page_size); ++i) {
    stored[i] &= data[i];
  }
  memory_->store_page(page, stored);
}

void Nand::program_unstable(std::uint64_t page, const std::uint8_t* data) {
  memory_->note_program(page);
  const Bytes stored = memory_->page_bytes(page);
  Bytes mask = memory_->page_mask(page);
  for (std::size_t i = 0; i < stored.size(); ++i) {
    mask[i] |= static_cast<std::uint8_t>(stored[i] & ~data[i]);
  }
  memory_->store_page(page, stored);
  memory_->store_mask(page, mask);
}

void Nand::erase_torn(std::uint32_t block, std::uint32_t pages) {
  memory_->forget_pages(block, std::min(pages, geometry().pages_per_block));
  memory_->blocks()[block].unclean = 1;
}

void Nand::erase_unstable(std::uint32_t block) {
  for (std::uint32_t i = 0; i < geometry().pages_per_block; ++i) {
    const std::uint64_t page = memory_->first_page(block) + i;
    if (!is_programmed(page)) {
      continue;
    }
    const Bytes stored = memory_->page_bytes(page);
    Bytes mask = memory_->page_mask(page);
    for (std::size_t k = 0; k < stored.size(); ++k) {
      mask[k] |= static_cast<std::uint8_t>(~stored[k]);
    }
    memory_->store_mask(page, mask);
  }
  memory_->blocks()[block].unclean = 1;
}

void Nand::set_bad(std::uint32_t block, bool bad) {
  memory_->blocks()[block].bad = bad ? 1 : 0;
}

void Nand::set_erase_defect(std::uint32_t block, EraseDefect defect, std::uint32_t nth) {
  memory_->blocks()[block].defect = static_cast<std::uint8_t>(defect);
  memory_->blocks()[block].defect_in = nth;
}

void Nand::set_page_defects(std::uint64_t page, std::uint8_t defects) {
  memory_->pages()[page].defects = defects;
}

void Nand::set_page_unstable(std::uint64_t page) {
  Bytes mask(geometry().page_size);
  for (std::size_t i = 0; i < mask.size(); ++i) {
    mask[i] = static_cast<std::uint8_t>(1U << (i % 8));
  }
  memory_->store_mask(page, mask);
}

void Nand::poke(std::uint64_t offset, const void* data, std::size_t length) {
  const auto* in = static_cast<const std::uint8_t*>(data);
  const std::uint32_t page_size = geometry().page_size;
  while (length > 0) {
    const std::uint64_t page = offset / page_size;
    const auto from = static_cast<std::uint32_t>(offset % page_size);
    const std::size_t part = std::min<std::size_t>(length, page_size - from);
    Bytes bytes = memory_->page_bytes(page);
    std::memcpy(bytes.data() + from, in, part);
    memory_->clear_page(page);
    if (!all_erased(bytes)) {
      memory_->store_page(page, bytes);
    }
    memory_->find_first_free(memory_->block_of(page));
    in += part;
    offset += part;
    length -= part;
  }
}

void Nand::peek(std::uint64_t offset, void* buffer, std::size_t length) const {
  auto* out = static_cast<std::uint8_t*>(buffer);
  const std::uint32_t page_size = geometry().page_size;
  while (length > 0) {
    const std::uint64_t page = offset / page_size;
    const auto from = static_cast<std::uint32_t>(offset % page_size);
    const std::size_t part = std::min<std::size_t>(length, page_size - from);
    if (is_programmed(page)) {
      memory_->data.read(offset, out, part);
    } else {
      std::memset(out, 0xFF, part);
    }
    out += part;
    offset += part;
    length -= part;
  }
}

std::uint32_t Nand::erase_count(std::uint32_t block) const {
  return memory_->blocks()[block].erases;
}

std::uint32_t Nand::program_count(std::uint64_t page) const {
  return memory_->pages()[page].programs;
}

bool Nand::is_programmed(std::uint64_t page) const {
  return memory_->pages()[page].programmed != 0;
}

const RuleBreaks& Nand::rule_breaks() const {
  return memory_->chip().broken;
}
void Nand::clear_rule_breaks() {
  memory_->chip().broken = {};
}

// The state of blocks and pages, then the bytes of each programmed page and the mask of each
// unstable one, in order.
Bytes Nand::snapshot() const {
  Bytes out(memory_->meta.data(), memory_->meta.data() + memory_->meta.size());
  const auto append = [&out](const Bytes& bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
  };
  for (std::uint64_t page = 0; page < geometry().pages(); ++page) {
    if (memory_->pages()[page].programmed != 0) {
      append(memory_->page_bytes(page));
    }
    if (memory_->pages()[page].unstable != 0) {
      append(memory_->page_mask(page));
    }
  }
  return out;
}

void Nand::restore(const Bytes& snapshot) {
  const std::size_t meta = memory_->meta.size();
  if (snapshot.size() < meta) {
    throw std::invalid_argument("snapshot of another chip");
  }
  std::memcpy(memory_->meta.data(), snapshot.data(), meta);
  std::size_t at = meta;
  const std::uint32_t page_size = geometry().page_size;
  for (std::uint64_t page = 0; page < geometry().pages(); ++page) {
    if (memory_->pages()[page].programmed != 0) {
      memory_->data.write(memory_->offset_of(page), snapshot.data() + at, page_size);
      at += page_size;
    }
    if (memory_->pages()[page].unstable != 0) {
      memory_->unstable.write(memory_->offset_of(page), snapshot.data() + at, page_size);
      at += page_size;
    }
  }
}

const std::uint8_t* Nand::bad_map() const {
  return &memory_->blocks()->bad;
}
std::size_t Nand::bad_stride() {
  return sizeof(BlockState);
}

static_assert(std::is_trivially_copyable_v<BlockState> && std::is_trivially_copyable_v<PageState>);
static_assert(offsetof(BlockState, bad) == 0);

}  // namespace sim
