// SPDX-License-Identifier: Apache-2.0
//
// Descriptors of the device's files and nodes.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <mutex>

#include "sim/device_state.h"
#include "sim/process.h"
#include "sim/real.h"

namespace sim {

OpenFile* g_open_files[kMaxDescriptors];

namespace {

// Several threads may use descriptors of files; the device itself is for one thread.
std::mutex& table_lock() {
  static auto* const lock = new std::mutex;
  return *lock;
}

Struck meet(Op op, const OpenFile& file) {
  ++g_device->state().counts.at(static_cast<std::size_t>(op));
  return g_device->faults().meet(op, file.partition, file.path);
}

void note_file(Op op, const OpenFile& file, const Details& details, std::int64_t result) {
  note(op, file.path, file.partition, details, result);
}

int real_open(const char* path, int flags, mode_t mode) {
  REAL(open64);
  return real_open64(path, flags, mode);
}

std::int64_t real_position(int fd) {
  REAL(lseek64);
  return real_lseek64(fd, 0, SEEK_CUR);
}

// The descriptor of a node is a real one, so that its number is nobody else's.
std::int64_t reserve_descriptor(int flags) {
  const int kept = flags & (O_ACCMODE | O_CLOEXEC | O_NONBLOCK);
  const int fd = real_open("/dev/null", kept, 0);
  if (fd >= static_cast<int>(kMaxDescriptors)) {
    REAL(close);
    real_close(fd);
    return -EMFILE;
  }
  return from_libc(fd);
}

std::int64_t check_node(const MappedPath& path, int flags) {
  if (path.kind == PathKind::nothing) {
    return -ENOENT;
  }
  if ((flags & O_DIRECTORY) != 0) {
    return -ENOTDIR;
  }
  if ((flags & (O_CREAT | O_EXCL)) == (O_CREAT | O_EXCL)) {
    return -EEXIST;
  }
  return path.read_only && (flags & O_ACCMODE) != O_RDONLY ? -EACCES : 0;
}

std::int64_t open_node(const MappedPath& path, int flags) {
  if (const std::int64_t refused = check_node(path, flags)) {
    return refused;
  }
  const std::int64_t fd = reserve_descriptor(flags);
  if (fd < 0) {
    return fd;
  }
  OpenFile file;
  file.path = path.path;
  file.partition = path.partition();
  file.number = path.number;
  file.node = true;
  if (path.kind == PathKind::mtd) {
    file.mtd = std::make_shared<MtdFile>(*g_device, path.number, flags & O_ACCMODE);
  }
  adopt(static_cast<int>(fd), file);
  return fd;
}

std::int64_t open_plain(const MappedPath& path, int flags, mode_t mode) {
  const std::int64_t fd = from_libc(real_open(path.host, flags, mode));
  if (fd >= 0) {
    OpenFile file;
    file.path = path.path;
    adopt(static_cast<int>(fd), file);
  }
  return fd;
}

// How much of a transfer a fault leaves.
std::size_t shortened(std::size_t count, const Struck& struck) {
  return std::min<std::size_t>(count, struck.bytes.value_or(0xFFFFFFFF));
}

std::uint64_t position_of(int fd, const OpenFile& file) {
  if (!recording()) {
    return 0;
  }
  return file.mtd ? file.mtd->position() : static_cast<std::uint64_t>(real_position(fd));
}

std::int64_t real_transfer(int fd, const Transfer& transfer, std::size_t count) {
  REAL(read);
  REAL(pread64);
  REAL(write);
  REAL(pwrite64);
  if (transfer.op == Op::read) {
    return transfer.offset ? real_pread64(fd, transfer.buffer, count, *transfer.offset)
                           : real_read(fd, transfer.buffer, count);
  }
  return transfer.offset ? real_pwrite64(fd, transfer.buffer, count, *transfer.offset)
                         : real_write(fd, transfer.buffer, count);
}

// A block node can be opened and closed; transfers are not simulated.
std::int64_t plain_transfer(int fd, const OpenFile& file, const Transfer& transfer) {
  const Struck struck = meet(transfer.op, file);
  if (struck.error != 0 || file.node) {
    return struck.error != 0 ? -struck.error : -EIO;
  }
  return from_libc(real_transfer(fd, transfer, shortened(transfer.count, struck)));
}

std::int64_t mtd_transfer(MtdFile& mtd, const Transfer& transfer) {
  if (transfer.op == Op::read) {
    return transfer.offset ? mtd.pread(transfer.buffer, transfer.count, *transfer.offset)
                           : mtd.read(transfer.buffer, transfer.count);
  }
  return transfer.offset ? mtd.pwrite(transfer.buffer, transfer.count, *transfer.offset)
                         : mtd.write(transfer.buffer, transfer.count);
}

std::int64_t plain_lseek(int fd, const OpenFile& file, std::int64_t offset, int whence) {
  if (const Struck struck = meet(Op::lseek, file)) {
    return -struck.error;
  }
  REAL(lseek64);
  return from_libc(real_lseek64(fd, offset, whence));
}

std::int64_t plain_fsync(int fd, const OpenFile& file) {
  if (const Struck struck = meet(Op::fsync, file)) {
    return -struck.error;
  }
  REAL(fsync);
  return from_libc(real_fsync(fd));
}

std::int64_t plain_ioctl(int fd, const OpenFile& file, unsigned long request, void* argument) {
  if (const Struck struck = meet(request_op(request), file)) {
    return -struck.error;
  }
  if (file.node) {
    return -ENOTTY;
  }
  REAL(ioctl);
  return from_libc(real_ioctl(fd, request, argument));
}

template <typename T>
T from_argument(const void* argument) {
  T value{};
  if (argument != nullptr) {
    std::memcpy(&value, argument, sizeof value);
  }
  return value;
}

// Where a request reaches, for the record.
void describe_request(Op op, const void* argument, Details& details) {
  struct Range32 {
    std::uint32_t start, length;
  };
  struct Range64 {
    std::uint64_t start, length;
  };
  if (op == Op::memerase) {
    const auto range = from_argument<Range32>(argument);
    details.offset = range.start;
    details.length = range.length;
  } else if (op == Op::memerase64) {
    const auto range = from_argument<Range64>(argument);
    details.offset = range.start;
    details.length = range.length;
  } else if (op == Op::memgetbadblock) {
    details.offset = from_argument<std::uint64_t>(argument);
  } else if (op == Op::protect_lift || op == Op::protect_restore) {
    details.offset = reinterpret_cast<std::uintptr_t>(argument);
  }
}

}  // namespace

// --- The table. ---------------------------------------------------------------------------------

void adopt(int fd, const OpenFile& file) {
  if (static_cast<unsigned>(fd) >= kMaxDescriptors) {
    return;
  }
  auto* entry = new OpenFile(file);
  const std::lock_guard<std::mutex> locked(table_lock());
  delete g_open_files[fd];
  g_open_files[fd] = entry;
}

void forget(int fd) {
  if (open_file(fd) == nullptr) {
    return;
  }
  const std::lock_guard<std::mutex> locked(table_lock());
  delete g_open_files[fd];
  g_open_files[fd] = nullptr;
}

void forget_all() {
  for (std::size_t fd = 0; fd < kMaxDescriptors; ++fd) {
    forget(static_cast<int>(fd));
  }
}

// --- The calls. ---------------------------------------------------------------------------------

std::int64_t process_open(const MappedPath& path, int flags, mode_t mode) {
  const InSimulator in_simulator;
  const Struck struck = meet_path(Op::open, path);
  std::int64_t fd = -struck.error;
  if (struck.error == 0) {
    fd = path.kind == PathKind::file ? open_plain(path, flags, mode) : open_node(path, flags);
  }
  Details details;
  details.fd = static_cast<int>(fd < 0 ? -1 : fd);
  details.flags = flags;
  note(Op::open, path, details, fd);
  return fd;
}

// A close that fails has closed all the same.
std::int64_t process_close(int fd, const OpenFile& open) {
  const InSimulator in_simulator;
  const OpenFile file = open;
  const std::int64_t failed = file.mtd ? file.mtd->close() : -meet(Op::close, file).error;
  forget(fd);
  REAL(close);
  std::int64_t result = from_libc(real_close(fd));
  result = failed != 0 ? failed : result;
  Details details;
  details.fd = fd;
  note_file(Op::close, file, details, result);
  return result;
}

std::int64_t process_transfer(int fd, const OpenFile& file, const Transfer& transfer) {
  const InSimulator in_simulator;
  Details details;
  details.fd = fd;
  details.offset =
      transfer.offset ? static_cast<std::uint64_t>(*transfer.offset) : position_of(fd, file);
  details.length = transfer.count;
  const std::int64_t result =
      file.mtd ? mtd_transfer(*file.mtd, transfer) : plain_transfer(fd, file, transfer);
  note_file(transfer.op, file, details, result);
  return result;
}

std::int64_t process_lseek(int fd, const OpenFile& file, std::int64_t offset, int whence) {
  const InSimulator in_simulator;
  const std::int64_t result =
      file.mtd ? file.mtd->lseek(offset, whence) : plain_lseek(fd, file, offset, whence);
  Details details;
  details.fd = fd;
  details.flags = whence;
  details.offset = static_cast<std::uint64_t>(offset);
  note_file(Op::lseek, file, details, result);
  return result;
}

std::int64_t process_fsync(int fd, const OpenFile& file) {
  const InSimulator in_simulator;
  const std::int64_t result = file.mtd ? file.mtd->fsync() : plain_fsync(fd, file);
  Details details;
  details.fd = fd;
  note_file(Op::fsync, file, details, result);
  return result;
}

std::int64_t process_ioctl(int fd, const OpenFile& file, unsigned long request, void* argument) {
  const InSimulator in_simulator;
  const Op op = request_op(request);
  const std::int64_t result =
      file.mtd ? file.mtd->request(request, argument) : plain_ioctl(fd, file, request, argument);
  if (recording() && (op != Op::memgetbadblock || g_records_queries)) {
    Details details;
    details.fd = fd;
    details.request = request & 0xFFFFFFFFUL;
    describe_request(op, argument, details);
    note_file(op, file, details, result);
  }
  return result;
}

}  // namespace sim
