// SPDX-License-Identifier: Apache-2.0
//
// Transfers, positions and requests on descriptors.
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <limits>

#include "sim/interpose.h"

// The end of a fortified program that reads past its buffer.
extern "C" [[noreturn]] void __chk_fail();

namespace {

using sim::Errno;
using sim::Op;
using sim::open_file;
using sim::OpenFile;

ssize_t give(const Errno& outcome, std::int64_t result) {
  return static_cast<ssize_t>(outcome.give(result));
}

std::int64_t transfer(int fd, const OpenFile& file, Op op, const void* buffer, std::size_t count,
                      std::optional<std::int64_t> offset = std::nullopt) {
  return sim::process_transfer(fd, file, {op, const_cast<void*>(buffer), count, offset});
}

// A position that the caller's type cannot hold.
std::int64_t held_by_off_t(std::int64_t position) {
  return position > std::numeric_limits<off_t>::max() ? -EOVERFLOW : position;
}

// A device without vectored transfers gets the parts one by one, as the kernel does it.
template <typename Transfer>
std::int64_t each_part(const iovec* parts, int count, Transfer transfer) {
  std::int64_t sum = 0;
  for (int i = 0; i < count; ++i) {
    const std::int64_t done = transfer(parts[i].iov_base, parts[i].iov_len);
    if (done < 0) {
      return sum > 0 ? sum : done;
    }
    sum += done;
    if (static_cast<std::size_t>(done) < parts[i].iov_len) {
      break;
    }
  }
  return sum;
}

}  // namespace

SIM_API ssize_t read(int fd, void* buffer, std::size_t count) {
  const OpenFile* file = open_file(fd);
  if (file == nullptr) {
    REAL(read);
    return real_read(fd, buffer, count);
  }
  const Errno outcome;
  return give(outcome, transfer(fd, *file, Op::read, buffer, count));
}

SIM_API ssize_t __read_chk(int fd, void* buffer, std::size_t count, std::size_t room) {
  if (count > room) {
    __chk_fail();
  }
  return read(fd, buffer, count);
}

SIM_API ssize_t pread(int fd, void* buffer, std::size_t count, off_t offset) {
  const OpenFile* file = open_file(fd);
  if (file == nullptr) {
    REAL(pread);
    return real_pread(fd, buffer, count, offset);
  }
  const Errno outcome;
  return give(outcome, transfer(fd, *file, Op::read, buffer, count, offset));
}

SIM_API ssize_t pread64(int fd, void* buffer, std::size_t count, off64_t offset) {
  const OpenFile* file = open_file(fd);
  if (file == nullptr) {
    REAL(pread64);
    return real_pread64(fd, buffer, count, offset);
  }
  const Errno outcome;
  return give(outcome, transfer(fd, *file, Op::read, buffer, count, offset));
}

SIM_API ssize_t __pread_chk(int fd, void* buffer, std::size_t count, off_t offset,
                            std::size_t room) {
  if (count > room) {
    __chk_fail();
  }
  return pread(fd, buffer, count, offset);
}

SIM_API ssize_t __pread64_chk(int fd, void* buffer, std::size_t count, off64_t offset,
                              std::size_t room) {
  if (count > room) {
    __chk_fail();
  }
  return pread64(fd, buffer, count, offset);
}

SIM_API ssize_t write(int fd, const void* buffer, std::size_t count) {
  const OpenFile* file = open_file(fd);
  if (file == nullptr) {
    REAL(write);
    return real_write(fd, buffer, count);
  }
  const Errno outcome;
  return give(outcome, transfer(fd, *file, Op::write, buffer, count));
}

SIM_API ssize_t pwrite(int fd, const void* buffer, std::size_t count, off_t offset) {
  const OpenFile* file = open_file(fd);
  if (file == nullptr) {
    REAL(pwrite);
    return real_pwrite(fd, buffer, count, offset);
  }
  const Errno outcome;
  return give(outcome, transfer(fd, *file, Op::write, buffer, count, offset));
}

SIM_API ssize_t pwrite64(int fd, const void* buffer, std::size_t count, off64_t offset) {
  const OpenFile* file = open_file(fd);
  if (file == nullptr) {
    REAL(pwrite64);
    return real_pwrite64(fd, buffer, count, offset);
  }
  const Errno outcome;
  return give(outcome, transfer(fd, *file, Op::write, buffer, count, offset));
}

SIM_API ssize_t readv(int fd, const iovec* parts, int count) {
  const OpenFile* file = open_file(fd);
  if (file == nullptr) {
    REAL(readv);
    return real_readv(fd, parts, count);
  }
  const Errno outcome;
  return give(outcome, each_part(parts, count, [fd, file](void* data, std::size_t length) {
                return transfer(fd, *file, Op::read, data, length);
              }));
}

SIM_API ssize_t writev(int fd, const iovec* parts, int count) {
  const OpenFile* file = open_file(fd);
  if (file == nullptr) {
    REAL(writev);
    return real_writev(fd, parts, count);
  }
  const Errno outcome;
  return give(outcome, each_part(parts, count, [fd, file](const void* data, std::size_t length) {
                return transfer(fd, *file, Op::write, data, length);
              }));
}

SIM_API off_t lseek(int fd, off_t offset, int whence) noexcept {
  const OpenFile* file = open_file(fd);
  if (file == nullptr) {
    REAL(lseek);
    return real_lseek(fd, offset, whence);
  }
  const Errno outcome;
  return static_cast<off_t>(
      outcome.give(held_by_off_t(sim::process_lseek(fd, *file, offset, whence))));
}

SIM_API off64_t lseek64(int fd, off64_t offset, int whence) noexcept {
  const OpenFile* file = open_file(fd);
  if (file == nullptr) {
    REAL(lseek64);
    return real_lseek64(fd, offset, whence);
  }
  const Errno outcome;
  return outcome.give(sim::process_lseek(fd, *file, offset, whence));
}

// The bad-block query comes millions of times: nothing but the answer is worked out for it.
SIM_API int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  const OpenFile* file = open_file(fd);
  if (file == nullptr && fd < 0) {
    // As the kernel does; an emulator may look at the request first, and not know it.
    errno = EBADF;
    return -1;
  }
  if (file == nullptr) {
    REAL(ioctl);
    return real_ioctl(fd, request, argument);
  }
  int answer = 0;
  if (static_cast<std::uint32_t>(request) == sim::kRequestGetBadBlock && file->mtd &&
      !sim::g_records_queries && file->mtd->bad_block(argument, answer)) {
    return answer;
  }
  const Errno outcome;
  return static_cast<int>(outcome.give(sim::process_ioctl(fd, *file, request, argument)));
}

SIM_API int fsync(int fd) {
  const OpenFile* file = open_file(fd);
  if (file == nullptr) {
    REAL(fsync);
    return real_fsync(fd);
  }
  const Errno outcome;
  return static_cast<int>(outcome.give(sim::process_fsync(fd, *file)));
}

SIM_API int fdatasync(int fd) {
  const OpenFile* file = open_file(fd);
  if (file == nullptr) {
    REAL(fdatasync);
    return real_fdatasync(fd);
  }
  const Errno outcome;
  return static_cast<int>(outcome.give(sim::process_fsync(fd, *file)));
}

// NAND cannot be mapped into memory.
SIM_API void* mmap(void* address, std::size_t length, int protection, int flags, int fd,
                   off_t offset) noexcept {
  const OpenFile* file = (flags & MAP_ANONYMOUS) != 0 ? nullptr : open_file(fd);
  if (file != nullptr && file->node) {
    errno = ENODEV;
    return MAP_FAILED;
  }
  REAL(mmap);
  return real_mmap(address, length, protection, flags, fd, offset);
}

SIM_API void* mmap64(void* address, std::size_t length, int protection, int flags, int fd,
                     off64_t offset) noexcept {
  const OpenFile* file = (flags & MAP_ANONYMOUS) != 0 ? nullptr : open_file(fd);
  if (file != nullptr && file->node) {
    errno = ENODEV;
    return MAP_FAILED;
  }
  REAL(mmap64);
  return real_mmap64(address, length, protection, flags, fd, offset);
}
