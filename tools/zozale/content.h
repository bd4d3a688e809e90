// SPDX-License-Identifier: Apache-2.0
//
// What a partition holds, seen as an upgrade and a synchronisation see it. Reads flash only: no
// log, no store.
#ifndef ZOZALE_TOOL_CONTENT_H
#define ZOZALE_TOOL_CONTENT_H

#include <cstdint>
#include <optional>

#include "common/sha512.h"
#include "zozale/mtd.h"

namespace zozale::tool {

// SHA-512 of the first `len` bytes in the good blocks; nothing when they cannot be read.
std::optional<Digest> image_digest(const Flash& flash, uint64_t len);

// Whether the good blocks behind the first `len` bytes, and the rest of the block in which these
// end, are erased; nothing when they cannot be read.
std::optional<bool> is_erased_behind(const Flash& flash, uint64_t len);

// True when the library takes the two for equal: it compares up to a zero byte that both have.
bool equal_for_library(Digest one, Digest two);

// What a synchronisation sees of a partition: the blocks before its first erased one.
struct Content {
  uint32_t blocks = 0;
  Digest digest{};
  // Physical index of the first block with data behind the first erased block, which no
  // synchronisation copies.
  std::optional<uint32_t> hidden_block;
};
// Nothing when the partition cannot be read. `look_behind` asks for hidden_block.
std::optional<Content> read_content(const Flash& flash, bool look_behind);

}  // namespace zozale::tool

#endif
