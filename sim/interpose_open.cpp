// SPDX-License-Identifier: Apache-2.0
//
// Opening, closing and duplicating descriptors.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>

#include "sim/interpose.h"

namespace {

using sim::Errno;
using sim::MappedPath;

bool has_mode(int flags) {
  return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

mode_t mode_argument(int flags, va_list arguments) {
  return has_mode(flags) ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
}

// Runs `real` for foreign paths.
template <typename RealOpen>
int open_path(const char* path, int flags, mode_t mode, RealOpen real) {
  const MappedPath mapped(path);
  if (mapped.foreign()) {
    const int fd = real(mapped.passed, flags, mode);
    sim::forget(fd);  // a number that was closed behind our back
    return fd;
  }
  const Errno outcome;
  return static_cast<int>(outcome.give(sim::process_open(mapped, flags, mode)));
}

int open_as_open(const char* path, int flags, mode_t mode) {
  REAL(open);
  return open_path(path, flags, mode, real_open);
}

int open_as_open64(const char* path, int flags, mode_t mode) {
  REAL(open64);
  return open_path(path, flags, mode, real_open64);
}

int open_as_openat(int folder, const char* path, int flags, mode_t mode) {
  REAL(openat);
  return open_path(path, flags, mode, [folder](const char* real, int how, mode_t rights) {
    return real_openat(folder, real, how, rights);
  });
}

int open_as_openat64(int folder, const char* path, int flags, mode_t mode) {
  REAL(openat64);
  return open_path(path, flags, mode, [folder](const char* real, int how, mode_t rights) {
    return real_openat64(folder, real, how, rights);
  });
}

// Gives a new number the meaning of an old one.
int duplicated(int old_number, int new_number) {
  if (new_number < 0 || new_number == old_number) {
    return new_number;
  }
  sim::forget(new_number);
  if (const sim::OpenFile* file = sim::open_file(old_number)) {
    const sim::InSimulator in_simulator;
    sim::adopt(new_number, *file);
  }
  return new_number;
}

void forget_range(std::size_t first, std::size_t last) {
  for (std::size_t fd = first; fd <= last && fd < sim::kMaxDescriptors; ++fd) {
    sim::forget(static_cast<int>(fd));
  }
}

bool duplicates(int command) {
  return command == F_DUPFD || command == F_DUPFD_CLOEXEC;
}

}  // namespace

SIM_API int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_argument(flags, arguments);
  va_end(arguments);
  return open_as_open(path, flags, mode);
}

SIM_API int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_argument(flags, arguments);
  va_end(arguments);
  return open_as_open64(path, flags, mode);
}

SIM_API int openat(int folder, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_argument(flags, arguments);
  va_end(arguments);
  return open_as_openat(folder, path, flags, mode);
}

SIM_API int openat64(int folder, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_argument(flags, arguments);
  va_end(arguments);
  return open_as_openat64(folder, path, flags, mode);
}

// What a fortified program calls instead when it hands over no mode.
SIM_API int __open_2(const char* path, int flags) {
  return open_as_open(path, flags, 0);
}
SIM_API int __open64_2(const char* path, int flags) {
  return open_as_open64(path, flags, 0);
}
SIM_API int __openat_2(int folder, const char* path, int flags) {
  return open_as_openat(folder, path, flags, 0);
}
SIM_API int __openat64_2(int folder, const char* path, int flags) {
  return open_as_openat64(folder, path, flags, 0);
}

SIM_API int creat(const char* path, mode_t mode) {
  return open_as_open(path, O_CREAT | O_WRONLY | O_TRUNC, mode);
}

SIM_API int creat64(const char* path, mode_t mode) {
  return open_as_open64(path, O_CREAT | O_WRONLY | O_TRUNC, mode);
}

SIM_API int close(int fd) {
  const sim::OpenFile* file = sim::open_file(fd);
  if (file == nullptr) {
    REAL(close);
    return real_close(fd);
  }
  const Errno outcome;
  return static_cast<int>(outcome.give(sim::process_close(fd, *file)));
}

SIM_API int close_range(unsigned first, unsigned last, int flags) noexcept {
  REAL(close_range);
  const int result = real_close_range(first, last, flags);
  if (result == 0 && flags == 0) {
    forget_range(first, last);
  }
  return result;
}

SIM_API void closefrom(int first) noexcept {
  REAL(closefrom);
  real_closefrom(first);
  forget_range(static_cast<unsigned>(std::max(first, 0)), sim::kMaxDescriptors);
}

SIM_API int dup(int fd) noexcept {
  REAL(dup);
  return duplicated(fd, real_dup(fd));
}

SIM_API int dup2(int fd, int wanted) noexcept {
  REAL(dup2);
  return duplicated(fd, real_dup2(fd, wanted));
}

SIM_API int dup3(int fd, int wanted, int flags) noexcept {
  REAL(dup3);
  return duplicated(fd, real_dup3(fd, wanted, flags));
}

// The third argument, if there is one, is a word: an int, a long or a pointer.
SIM_API int fcntl(int fd, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  REAL(fcntl);
  const int result = real_fcntl(fd, command, argument);
  return duplicates(command) ? duplicated(fd, result) : result;
}

SIM_API int fcntl64(int fd, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  REAL(fcntl64);
  const int result = real_fcntl64(fd, command, argument);
  return duplicates(command) ? duplicated(fd, result) : result;
}
