// SPDX-License-Identifier: Apache-2.0
#include "sim/mtd.h"

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "sim/device_state.h"
#include "sim/flash.h"

namespace sim {
namespace {

static_assert(kRequestGetInfo == MEMGETINFO && sizeof(mtd_info_user) == 32);
static_assert(kRequestErase == MEMERASE && sizeof(erase_info_user) == 8);
static_assert(kRequestErase64 == MEMERASE64 && sizeof(erase_info_user64) == 16);
// The kernel's own number carries the size of its loff_t, which is 8 on every platform.
static_assert(kRequestGetBadBlock == _IOW('M', 11, std::int64_t));

// No buffer is that long: the kernel refuses it before it asks the driver.
bool past_memory(std::size_t count) {
  return count > static_cast<std::size_t>(std::numeric_limits<ssize_t>::max());
}

unsigned shift_of(std::uint32_t power_of_two) {
  unsigned shift = 0;
  while ((1U << shift) < power_of_two) {
    ++shift;
  }
  return shift;
}

}  // namespace

Op request_op(unsigned long request) {
  switch (request & 0xFFFFFFFFUL) {
    case kRequestGetInfo:
      return Op::memgetinfo;
    case kRequestErase:
      return Op::memerase;
    case kRequestErase64:
      return Op::memerase64;
    case kRequestGetBadBlock:
      return Op::memgetbadblock;
    case kRequestProtectLift:
      return Op::protect_lift;
    case kRequestProtectRestore:
      return Op::protect_restore;
    default:
      return Op::other_request;
  }
}

MtdFile::MtdFile(Device& device, std::uint32_t number, int access)
    : device_(&device), number_(number), access_(access) {
  const Partition partition = device.partition(number);
  name_ = partition.name();
  node_ = partition.node();
  size_ = partition.size();
  block_shift_ = shift_of(partition.block_size());
  bad_stride_ = Nand::bad_stride();
  PartitionState& state = device.state().partitions.at(number);
  bad_ = device.nand().bad_map() + bad_stride_ * state.first_block;
  constexpr auto kQuery = static_cast<std::size_t>(Op::memgetbadblock);
  queries_ = &state.counts.at(kQuery);
  odd_queries_ = &device.state().faults.of_kind.at(kQuery);
}

bool MtdFile::can_read() const {
  return access_ != O_WRONLY;
}
bool MtdFile::can_write() const {
  return access_ != O_RDONLY;
}

Struck MtdFile::meet(Op op) {
  ++device_->state().partitions.at(number_).counts.at(static_cast<std::size_t>(op));
  return device_->faults().meet(op, name_, node_);
}

// --- Reading. -----------------------------------------------------------------------------------

std::int64_t MtdFile::read(void* buffer, std::size_t count) {
  auto offset = static_cast<std::int64_t>(position_);
  const std::int64_t result = read_at(buffer, count, offset);
  position_ = static_cast<std::uint64_t>(offset);
  return result;
}

std::int64_t MtdFile::pread(void* buffer, std::size_t count, std::int64_t offset) {
  return offset < 0 ? -EINVAL : read_at(buffer, count, offset);
}

std::int64_t MtdFile::read_at(void* buffer, std::size_t count, std::int64_t& offset) {
  const Struck struck = meet(Op::read);
  if (struck.error != 0) {
    return -struck.error;
  }
  if (!can_read()) {
    return -EBADF;
  }
  if (past_memory(count)) {
    return -EFAULT;
  }
  const auto from = static_cast<std::uint64_t>(offset);
  const std::uint64_t rest = from < size_ ? size_ - from : 0;
  std::uint64_t length = std::min<std::uint64_t>(count, rest);
  length = std::min<std::uint64_t>(length, struck.bytes.value_or(0xFFFFFFFF));
  if (length == 0) {
    return 0;
  }
  if (buffer == nullptr) {
    return -EFAULT;
  }
  const PartitionState& state = device_->state().partitions.at(number_);
  const std::uint64_t start = std::uint64_t{state.first_block} << block_shift_;
  device_->nand().read(start + from, buffer, static_cast<std::size_t>(length));
  offset += static_cast<std::int64_t>(length);
  return static_cast<std::int64_t>(length);
}

// --- Writing. -----------------------------------------------------------------------------------

std::int64_t MtdFile::write(const void* buffer, std::size_t count) {
  auto offset = static_cast<std::int64_t>(position_);
  const std::int64_t result = write_at(buffer, count, offset);
  position_ = static_cast<std::uint64_t>(offset);
  return result;
}

std::int64_t MtdFile::pwrite(const void* buffer, std::size_t count, std::int64_t offset) {
  return offset < 0 ? -EINVAL : write_at(buffer, count, offset);
}

std::int64_t MtdFile::write_at(const void* buffer, std::size_t count, std::int64_t& offset) {
  const Struck struck = meet(Op::write);
  if (struck.error != 0) {
    return -struck.error;
  }
  if (!can_write()) {
    return -EBADF;
  }
  if (past_memory(count)) {
    return -EFAULT;
  }
  const auto from = static_cast<std::uint64_t>(offset);
  if (from >= size_) {
    return -ENOSPC;
  }
  std::uint64_t length = std::min<std::uint64_t>(count, size_ - from);
  length = std::min<std::uint64_t>(length, struck.bytes.value_or(0xFFFFFFFF));
  if (length == 0) {
    return 0;
  }
  if (buffer == nullptr) {
    return -EFAULT;
  }
  const std::int64_t result =
      program(static_cast<const std::uint8_t*>(buffer), static_cast<std::size_t>(length), from);
  offset += std::max<std::int64_t>(result, 0);
  return result;
}

// A page that fails ends the write without telling how far it came.
std::int64_t MtdFile::program(const std::uint8_t* data, std::size_t count, std::uint64_t offset) {
  const std::uint32_t page_size = device_->nand().geometry().page_size;
  if (device_->state().partitions.at(number_).lifted == 0) {
    return -EROFS;
  }
  if (offset % page_size != 0 || count % page_size != 0) {
    return -EINVAL;
  }
  for (std::size_t done = 0; done < count; done += page_size) {
    const int error = flash_program(*device_, number_, (offset + done) / page_size, data + done);
    if (error != 0) {
      return -error;
    }
  }
  return static_cast<std::int64_t>(count);
}

// --- Position and life. -------------------------------------------------------------------------

std::int64_t MtdFile::lseek(std::int64_t offset, int whence) {
  if (const Struck struck = meet(Op::lseek)) {
    return -struck.error;
  }
  std::int64_t base = 0;
  if (whence == SEEK_CUR) {
    base = static_cast<std::int64_t>(position_);
  } else if (whence == SEEK_END) {
    base = static_cast<std::int64_t>(size_);
  } else if (whence != SEEK_SET) {
    return -EINVAL;
  }
  std::int64_t target = 0;
  if (__builtin_add_overflow(base, offset, &target) || target < 0 ||
      static_cast<std::uint64_t>(target) > size_) {
    return -EINVAL;
  }
  position_ = static_cast<std::uint64_t>(target);
  return target;
}

std::int64_t MtdFile::fsync() {
  const Struck struck = meet(Op::fsync);
  return struck.error != 0 ? -struck.error : -EINVAL;
}

std::int64_t MtdFile::close() {
  return -meet(Op::close).error;
}

// --- Requests. ----------------------------------------------------------------------------------

std::int64_t MtdFile::request(unsigned long number, void* argument) {
  const Op op = request_op(number);
  if (const Struck struck = meet(op)) {
    return -struck.error;
  }
  return dispatch(op, argument);
}

std::int64_t MtdFile::dispatch(Op op, void* argument) {
  switch (op) {
    case Op::memgetinfo:
      return get_info(argument);
    case Op::memgetbadblock:
      return get_bad_block(argument);
    case Op::memerase:
      return erase32(argument);
    case Op::memerase64:
      return erase64(argument);
    case Op::protect_lift:
      return protect(false);
    case Op::protect_restore:
      return protect(true);
    default:
      return -ENOTTY;
  }
}

std::int64_t MtdFile::get_info(void* argument) {
  if (argument == nullptr) {
    return -EFAULT;
  }
  const MtdInfo info = device_->partition(number_).reported_info();
  mtd_info_user reply{};
  reply.type = MTD_NANDFLASH;
  reply.flags = MTD_CAP_NANDFLASH;
  reply.size = info.size;
  reply.erasesize = info.erase_size;
  reply.writesize = info.write_size;
  reply.oobsize = info.oob_size;
  std::memcpy(argument, &reply, sizeof reply);
  return 0;
}

std::int64_t MtdFile::get_bad_block(const void* argument) {
  if (argument == nullptr) {
    return -EFAULT;
  }
  std::int64_t offset = 0;
  std::memcpy(&offset, argument, sizeof offset);
  if (offset < 0 || static_cast<std::uint64_t>(offset) >= size_) {
    return -EINVAL;
  }
  const auto block = static_cast<std::uint32_t>(static_cast<std::uint64_t>(offset) >> block_shift_);
  return device_->partition(number_).is_bad(block) ? 1 : 0;
}

std::int64_t MtdFile::erase32(const void* argument) {
  if (!can_write()) {
    return -EPERM;
  }
  if (argument == nullptr) {
    return -EFAULT;
  }
  erase_info_user range{};
  std::memcpy(&range, argument, sizeof range);
  return erase(range.start, range.length);
}

std::int64_t MtdFile::erase64(const void* argument) {
  if (!can_write()) {
    return -EPERM;
  }
  if (argument == nullptr) {
    return -EFAULT;
  }
  erase_info_user64 range{};
  std::memcpy(&range, argument, sizeof range);
  return erase(range.start, range.length);
}

// Blocks before the first bad one of a range are erased, as the kernel does.
std::int64_t MtdFile::erase(std::uint64_t start, std::uint64_t length) {
  if (start >= size_ || length > size_ - start) {
    return -EINVAL;
  }
  if (length == 0) {
    return 0;
  }
  if (device_->state().partitions.at(number_).lifted == 0) {
    return -EROFS;
  }
  const std::uint64_t block_size = std::uint64_t{1} << block_shift_;
  if (start % block_size != 0 || length % block_size != 0) {
    return -EINVAL;
  }
  for (std::uint64_t at = start; at < start + length; at += block_size) {
    const std::int64_t result = erase_block(static_cast<std::uint32_t>(at >> block_shift_));
    if (result != 0) {
      return result;
    }
  }
  return 0;
}

std::int64_t MtdFile::erase_block(std::uint32_t block) {
  if (device_->partition(number_).is_bad(block)) {
    return -EIO;
  }
  return -flash_erase(*device_, number_, block);
}

std::int64_t MtdFile::protect(bool on) {
  device_->state().partitions.at(number_).lifted = on ? 0 : 1;
  return 0;
}

}  // namespace sim
