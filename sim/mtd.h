// SPDX-License-Identifier: Apache-2.0
//
// The kernel's MTD character device on a partition of the simulated device.
//
// Answers, and counts, as Linux does; results are those of a system call inside the kernel: 0 or
// more, or a negated errno value.
#ifndef SIM_MTD_H
#define SIM_MTD_H

#include <sys/types.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "sim/device.h"

namespace sim {

// The platform's flash driver adds two requests that lift and restore write protection.
constexpr unsigned long kRequestProtectLift = 0x80044D18;
constexpr unsigned long kRequestProtectRestore = 0x80044D19;
// Requests of <mtd/mtd-abi.h>, spelled out so that they are the same in every build.
constexpr unsigned long kRequestGetInfo = 0x80204D01;
constexpr unsigned long kRequestErase = 0x40084D02;
constexpr unsigned long kRequestGetBadBlock = 0x40084D0B;
constexpr unsigned long kRequestErase64 = 0x40104D14;

// The operation that a request number stands for.
Op request_op(unsigned long request);

// One open file description: what open() makes and dup() shares.
class MtdFile {
 public:
  // `access` is O_RDONLY, O_WRONLY or O_RDWR.
  MtdFile(Device& device, std::uint32_t number, int access);

  std::int64_t read(void* buffer, std::size_t count);
  std::int64_t pread(void* buffer, std::size_t count, std::int64_t offset);
  std::int64_t write(const void* buffer, std::size_t count);
  std::int64_t pwrite(const void* buffer, std::size_t count, std::int64_t offset);
  std::int64_t lseek(std::int64_t offset, int whence);
  std::int64_t fsync();
  std::int64_t close();
  // Any request; MEMGETBADBLOCK too, but see bad_block().
  std::int64_t request(unsigned long number, void* argument);

  // MEMGETBADBLOCK without a detour, for the callers that ask millions of times. False: something
  // is out of the ordinary (a fault is held, a bad argument); ask request().
  bool bad_block(const void* argument, int& answer) {
    std::uint64_t offset = 0;
    if (argument == nullptr || *odd_queries_ != 0) {
      return false;
    }
    std::memcpy(&offset, argument, sizeof offset);
    if (offset >= size_) {
      return false;
    }
    ++*queries_;
    answer = bad_[static_cast<std::size_t>(offset >> block_shift_) * bad_stride_] != 0 ? 1 : 0;
    return true;
  }

  std::uint64_t position() const { return position_; }
  std::uint32_t number() const { return number_; }
  const std::string& partition() const { return name_; }

 private:
  std::int64_t read_at(void* buffer, std::size_t count, std::int64_t& offset);
  std::int64_t write_at(const void* buffer, std::size_t count, std::int64_t& offset);
  std::int64_t program(const std::uint8_t* data, std::size_t count, std::uint64_t offset);
  std::int64_t get_info(void* argument);
  std::int64_t get_bad_block(const void* argument);
  std::int64_t erase(std::uint64_t start, std::uint64_t length);
  std::int64_t erase_block(std::uint32_t block);
  std::int64_t erase32(const void* argument);
  std::int64_t erase64(const void* argument);
  std::int64_t protect(bool on);
  std::int64_t dispatch(Op op, void* argument);
  bool can_read() const;
  bool can_write() const;
  // Counts the operation on this partition and lets a fault meet it.
  Struck meet(Op op);

  Device* device_;
  std::uint32_t number_;
  int access_;
  std::string name_;
  std::string node_;
  std::uint64_t position_ = 0;
  // What bad_block() looks at.
  std::uint64_t size_ = 0;
  unsigned block_shift_ = 0;
  const std::uint8_t* bad_ = nullptr;
  std::size_t bad_stride_ = 0;
  std::uint64_t* queries_ = nullptr;
  const std::uint32_t* odd_queries_ = nullptr;
};

}  // namespace sim

#endif
