// SPDX-License-Identifier: Apache-2.0
//
// How far this process has read or written a file, as the kernel tells it: the library says nothing
// while it hashes or copies.
#ifndef ZOZALE_TOOL_POSITION_H
#define ZOZALE_TOOL_POSITION_H

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

namespace zozale::tool {

// Which file a path leads to.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;  // 0: no file

  static FileIdentity of(const std::string& path);
};

// File position of the descriptor that was opened last on the file, which is only looked at.
// Nothing when the process has none open, or the kernel does not tell.
std::optional<uint64_t> position_in(const FileIdentity& file);

}  // namespace zozale::tool

#endif
