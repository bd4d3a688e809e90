// SPDX-License-Identifier: Apache-2.0
#include "bare_device.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#define ANSWER extern "C" __attribute__((visibility("default")))

namespace {

const char* g_folder;
std::array<char, 512> g_path;
std::array<char, 512> g_second_path;
std::array<unsigned char, kEraseBlock> g_erased;

bool is_on_device(const char* path) {
  constexpr std::array<const char*, 4> kFolders = {"/cache", "/etc_ro", "/proc/", "/dev/mtd"};
  return std::any_of(kFolders.begin(), kFolders.end(), [path](const char* folder) {
    return strncmp(path, folder, strlen(folder)) == 0;
  });
}

const char* mapped(const char* path, std::array<char, 512>& to = g_path) {
  if (g_folder == nullptr || !is_on_device(path)) {
    return path;
  }
  const std::size_t folder = strlen(g_folder);
  memcpy(to.data(), g_folder, folder);
  strncpy(&to[folder], path, to.size() - folder - 1);
  return to.data();
}

FILE* open_stream(const char* path, const char* mode) {
  using Open = FILE* (*)(const char*, const char*);
  static const Open open = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "fopen64"));
  return open(mapped(path), mode);
}

int get_info(int fd, void* argument) {
  const off_t size = lseek(fd, 0, SEEK_END);
  auto* info = static_cast<mtd_info_user*>(argument);
  *info = {};
  info->size = static_cast<std::uint32_t>(size);
  info->erasesize = kEraseBlock;
  info->writesize = 2048;
  info->oobsize = 64;
  return 0;
}

int erase(int fd, std::uint64_t start) {
  return pwrite(fd, g_erased.data(), g_erased.size(), static_cast<off_t>(start)) > 0 ? 0 : -1;
}

}  // namespace

void use_bare_device(const char* folder) {
  g_folder = folder;
  g_erased.fill(0xFF);
}

ANSWER int open(const char* path, int flags, ...) {
  return openat(AT_FDCWD, mapped(path), flags, 0666);
}
ANSWER int open64(const char* path, int flags, ...) {
  return openat(AT_FDCWD, mapped(path), flags, 0666);
}
ANSWER FILE* fopen(const char* path, const char* mode) {
  return open_stream(path, mode);
}
ANSWER FILE* fopen64(const char* path, const char* mode) {
  return open_stream(path, mode);
}
ANSWER int access(const char* path, int mode) noexcept {
  return faccessat(AT_FDCWD, mapped(path), mode, 0);
}
ANSWER int stat(const char* path, struct stat* status) noexcept {
  return fstatat(AT_FDCWD, mapped(path), status, 0);
}
ANSWER int stat64(const char* path, struct stat64* status) noexcept {
  return fstatat64(AT_FDCWD, mapped(path), status, 0);
}
ANSWER int mkdir(const char* path, mode_t mode) noexcept {
  return mkdirat(AT_FDCWD, mapped(path), mode);
}
ANSWER int unlink(const char* path) noexcept {
  return unlinkat(AT_FDCWD, mapped(path), 0);
}
ANSWER int remove(const char* path) noexcept {
  return unlinkat(AT_FDCWD, mapped(path), 0);
}
ANSWER int rename(const char* from, const char* to) noexcept {
  return renameat(AT_FDCWD, mapped(from), AT_FDCWD, mapped(to, g_second_path));
}
ANSWER int system(const char* /*command*/) {
  return 0;
}

ANSWER int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  switch (request) {
    case MEMGETINFO:
      return get_info(fd, argument);
    case MEMERASE:
      return erase(fd, static_cast<erase_info_user*>(argument)->start);
    case MEMERASE64:
      return erase(fd, static_cast<erase_info_user64*>(argument)->start);
    default:
      return 0;
  }
}

// A store that forgets: what it keeps is the platform's to account for.
ANSWER int sc_cfg_set(const char* /*name*/, const char* /*value*/) {
  return 0;
}
ANSWER int sc_cfg_save() {
  return 0;
}
ANSWER int sc_cfg_get(const char* /*name*/, char* /*value*/, int /*size*/) {
  return 0;
}
