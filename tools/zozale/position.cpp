// SPDX-License-Identifier: Apache-2.0
#include "zozale/position.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace zozale::tool {
namespace {

constexpr const char* kDescriptors = "/proc/self/fd/";

bool is_open_on(int fd, const FileIdentity& file) {
  const FileIdentity opened = FileIdentity::of(kDescriptors + std::to_string(fd));
  return opened.inode != 0 && opened.inode == file.inode && opened.device == file.device;
}

// The highest number is the one that was opened last, for all that is known.
int last_descriptor_on(const FileIdentity& file) {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(kDescriptors), &closedir);
  int last = -1;
  for (const dirent* entry = folder ? readdir(folder.get()) : nullptr; entry != nullptr;
       entry = readdir(folder.get())) {
    const int fd = std::atoi(entry->d_name);
    if (fd > last && is_open_on(fd, file)) {
      last = fd;
    }
  }
  return last;
}

}  // namespace

FileIdentity FileIdentity::of(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return {};
  }
  return {status.st_dev, status.st_ino};
}

std::optional<uint64_t> position_in(const FileIdentity& file) {
  const int fd = last_descriptor_on(file);
  if (fd < 0) {
    return std::nullopt;
  }
  const std::string info = "/proc/self/fdinfo/" + std::to_string(fd);
  const std::unique_ptr<FILE, int (*)(FILE*)> text(fopen(info.c_str(), "re"), &fclose);
  uint64_t position = 0;
  const bool told = text && fscanf(text.get(), "pos: %" SCNu64, &position) == 1;
  return told ? std::optional<uint64_t>(position) : std::nullopt;
}

}  // namespace zozale::tool
