// SPDX-License-Identifier: Apache-2.0
#include "zozale/content.h"

#include <algorithm>
#include <vector>

#include "upi_public.h"

namespace zozale::tool {
namespace {

bool is_erased(const std::vector<uint8_t>& block) {
  return std::all_of(block.begin(), block.end(), [](uint8_t byte) { return byte == 0xFF; });
}

// Physical index of the first good block from `index` on that is not erased.
std::optional<uint32_t> first_written(const Flash& flash, uint32_t index,
                                      std::vector<uint8_t>& block) {
  for (; index < flash.good_blocks(); ++index) {
    if (flash.read_good(index, block.data(), block.size()) && !is_erased(block)) {
      return flash.physical(index);
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<Digest> image_digest(const Flash& flash, uint64_t len) {
  if (flash.blocks_for(len) > flash.good_blocks()) {
    return std::nullopt;
  }
  Sha512 hash;
  std::vector<uint8_t> block(flash.block_size());
  for (uint32_t index = 0; len > 0; ++index) {
    const auto count = static_cast<size_t>(std::min<uint64_t>(len, block.size()));
    if (!flash.read_good(index, block.data(), count)) {
      return std::nullopt;
    }
    hash.update(block.data(), count);
    len -= count;
  }
  return hash.digest();
}

std::optional<bool> is_erased_behind(const Flash& flash, uint64_t len) {
  std::vector<uint8_t> block(flash.block_size());
  auto index = static_cast<uint32_t>(len / block.size());
  auto used = static_cast<size_t>(len % block.size());
  for (; index < flash.good_blocks(); ++index) {
    if (!flash.read_good(index, block.data(), block.size())) {
      return std::nullopt;
    }
    std::fill_n(block.begin(), used, 0xFF);
    if (!is_erased(block)) {
      return false;
    }
    used = 0;
  }
  return true;
}

bool equal_for_library(Digest one, Digest two) {
  return hash_compare(reinterpret_cast<char*>(one.data()), reinterpret_cast<char*>(two.data()),
                      HASH_SHA512) == 0;
}

std::optional<Content> read_content(const Flash& flash, bool look_behind) {
  Content content;
  Sha512 hash;
  std::vector<uint8_t> block(flash.block_size());
  for (; content.blocks < flash.good_blocks(); ++content.blocks) {
    if (!flash.read_good(content.blocks, block.data(), block.size())) {
      return std::nullopt;
    }
    if (is_erased(block)) {
      break;
    }
    hash.update(block.data(), block.size());
  }
  content.digest = hash.digest();
  if (look_behind) {
    content.hidden_block = first_written(flash, content.blocks, block);
  }
  return content;
}

}  // namespace zozale::tool
