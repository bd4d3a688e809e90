// SPDX-License-Identifier: Apache-2.0
//
// The stat() family, in its widths and in the forms that older programs were linked against.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "sim/device_state.h"
#include "sim/interpose.h"

namespace {

using sim::Errno;
using sim::MappedPath;
using sim::Op;
using sim::PathKind;

// Device numbers of the kernel's MTD nodes; two minor numbers for each character device.
constexpr unsigned kMtdMajor = 90;
constexpr unsigned kMtdBlockMajor = 31;

template <typename Stat>
int describe_node(bool character, std::uint32_t number, bool read_only, Stat* info) {
  std::memset(info, 0, sizeof *info);
  info->st_mode = (character ? S_IFCHR : S_IFBLK) | 0600U;
  info->st_rdev = character ? makedev(kMtdMajor, number * 2 + (read_only ? 1U : 0U))
                            : makedev(kMtdBlockMajor, number);
  info->st_nlink = 1;
  info->st_blksize = 4096;
  return 0;
}

template <typename Stat, typename RealStat>
int stat_path(const char* path, Stat* info, RealStat real) {
  const int result = sim::on_path(Op::stat, path, 0, real);
  const MappedPath mapped(path);
  const bool node = mapped.kind == PathKind::mtd || mapped.kind == PathKind::block;
  if (result == 0 && node) {
    describe_node(mapped.kind == PathKind::mtd, mapped.number, mapped.read_only, info);
  }
  return result;
}

template <typename Stat, typename RealStat>
int stat_descriptor(int fd, Stat* info, RealStat real) {
  const sim::OpenFile* file = sim::open_file(fd);
  if (file == nullptr) {
    return real();
  }
  const sim::InSimulator in_simulator;
  const Errno outcome;
  ++sim::g_device->state().counts.at(static_cast<std::size_t>(Op::stat));
  const sim::Struck struck = sim::g_device->faults().meet(Op::stat, file->partition, file->path);
  std::int64_t result = -struck.error;
  if (result == 0) {
    result = file->node ? describe_node(file->mtd != nullptr, file->number, false, info)
                        : sim::from_libc(real());
  }
  sim::Details details;
  details.fd = fd;
  sim::note(Op::stat, file->path, file->partition, details, result);
  return static_cast<int>(outcome.give(result));
}

}  // namespace

SIM_API int stat(const char* path, struct stat* info) noexcept {
  REAL(stat);
  return stat_path(path, info, [info](const char* real) { return real_stat(real, info); });
}

SIM_API int stat64(const char* path, struct stat64* info) noexcept {
  REAL(stat64);
  return stat_path(path, info, [info](const char* real) { return real_stat64(real, info); });
}

SIM_API int lstat(const char* path, struct stat* info) noexcept {
  REAL(lstat);
  return stat_path(path, info, [info](const char* real) { return real_lstat(real, info); });
}

SIM_API int lstat64(const char* path, struct stat64* info) noexcept {
  REAL(lstat64);
  return stat_path(path, info, [info](const char* real) { return real_lstat64(real, info); });
}

SIM_API int fstat(int fd, struct stat* info) noexcept {
  REAL(fstat);
  return stat_descriptor(fd, info, [fd, info] { return real_fstat(fd, info); });
}

SIM_API int fstat64(int fd, struct stat64* info) noexcept {
  REAL(fstat64);
  return stat_descriptor(fd, info, [fd, info] { return real_fstat64(fd, info); });
}

SIM_API int fstatat(int folder, const char* path, struct stat* info, int flags) noexcept {
  REAL(fstatat);
  if ((flags & AT_EMPTY_PATH) != 0 && sim::is_empty_path(path)) {
    return stat_descriptor(folder, info, [=] { return real_fstatat(folder, path, info, flags); });
  }
  return stat_path(path, info,
                   [=](const char* real) { return real_fstatat(folder, real, info, flags); });
}

SIM_API int fstatat64(int folder, const char* path, struct stat64* info, int flags) noexcept {
  REAL(fstatat64);
  if ((flags & AT_EMPTY_PATH) != 0 && sim::is_empty_path(path)) {
    return stat_descriptor(folder, info, [=] { return real_fstatat64(folder, path, info, flags); });
  }
  return stat_path(path, info,
                   [=](const char* real) { return real_fstatat64(folder, real, info, flags); });
}

// Before glibc 2.33 these were what stat() and its like compiled to; the version is always the one
// of the structure above.
SIM_API int __xstat(int version, const char* path, struct stat* info) {
  static_cast<void>(version);
  return stat(path, info);
}
SIM_API int __xstat64(int version, const char* path, struct stat64* info) {
  static_cast<void>(version);
  return stat64(path, info);
}
SIM_API int __lxstat(int version, const char* path, struct stat* info) {
  static_cast<void>(version);
  return lstat(path, info);
}
SIM_API int __lxstat64(int version, const char* path, struct stat64* info) {
  static_cast<void>(version);
  return lstat64(path, info);
}
SIM_API int __fxstat(int version, int fd, struct stat* info) {
  static_cast<void>(version);
  return fstat(fd, info);
}
SIM_API int __fxstat64(int version, int fd, struct stat64* info) {
  static_cast<void>(version);
  return fstat64(fd, info);
}
SIM_API int __fxstatat(int version, int folder, const char* path, struct stat* info, int flags) {
  static_cast<void>(version);
  return fstatat(folder, path, info, flags);
}
SIM_API int __fxstatat64(int version, int folder, const char* path, struct stat64* info,
                         int flags) {
  static_cast<void>(version);
  return fstatat64(folder, path, info, flags);
}

namespace {

void describe_node(const MappedPath& path, struct statx* info) {
  std::memset(info, 0, sizeof *info);
  const bool character = path.kind == PathKind::mtd;
  info->stx_mask = STATX_TYPE | STATX_MODE | STATX_NLINK;
  info->stx_mode = static_cast<std::uint16_t>((character ? S_IFCHR : S_IFBLK) | 0600U);
  info->stx_nlink = 1;
  info->stx_rdev_major = character ? kMtdMajor : kMtdBlockMajor;
  info->stx_rdev_minor = character ? path.number * 2 + (path.read_only ? 1U : 0U) : path.number;
}

}  // namespace

SIM_API int statx(int folder, const char* path, int flags, unsigned mask,
                  struct statx* info) noexcept {
  REAL(statx);
  const int result = sim::on_path(Op::stat, path, flags, [=](const char* real) {
    return real_statx(folder, real, flags, mask, info);
  });
  const MappedPath mapped(path);
  if (result == 0 && (mapped.kind == PathKind::mtd || mapped.kind == PathKind::block)) {
    describe_node(mapped, info);
  }
  return result;
}
