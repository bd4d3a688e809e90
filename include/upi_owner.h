// SPDX-License-Identifier: Apache-2.0
//
// Owners of a descriptor and of a heap buffer, released by scope. For use where nothing is to be
// said when releasing fails.
#ifndef UPI_OWNER_H
#define UPI_OWNER_H

#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace upi {

class OwnedFd {
 public:
  explicit OwnedFd(int fd) : fd_(fd) {}
  ~OwnedFd() {
    if (fd_ >= 0) {
      close(fd_);
    }
  }
  OwnedFd(const OwnedFd&) = delete;
  OwnedFd& operator=(const OwnedFd&) = delete;

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  // Gives the descriptor up to a caller who closes it by name.
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

 private:
  int fd_;
};

class Buffer {
 public:
  // Contents are undefined. A buffer of no bytes counts as one that could not be allocated.
  explicit Buffer(size_t size)
      : data_(size == 0 ? nullptr : static_cast<unsigned char*>(malloc(size))), size_(size) {}
  ~Buffer() { free(data_); }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  unsigned char* get() const { return data_; }
  explicit operator bool() const { return data_ != nullptr; }
  size_t size() const { return size_; }
  void fill(int byte) { memset(data_, byte, size_); }

 private:
  unsigned char* data_;
  size_t size_;
};

}  // namespace upi

#endif
