// SPDX-License-Identifier: Apache-2.0
#include "sim/shared_region.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

namespace sim {
namespace {

// Up to here a chip is mapped as a whole; a quarter of what a pointer reaches.
constexpr std::uint64_t kMostMapped = std::numeric_limits<std::size_t>::max() / 4;

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

void check_size(int fd, const std::filesystem::path& path, std::uint64_t size) {
  struct stat64 info {};
  if (fstat64(fd, &info) != 0) {
    fail(path.string());
  }
  if (static_cast<std::uint64_t>(info.st_size) != size) {
    throw std::runtime_error(path.string() + ": " + std::to_string(info.st_size) +
                             " bytes found, " + std::to_string(size) +
                             " expected; was the device made by another version?");
  }
}

int open_sized(const std::filesystem::path& path, std::uint64_t size, FileUse use) {
  const int create = use == FileUse::create ? O_CREAT | O_EXCL : 0;
  const int fd = open64(path.c_str(), O_RDWR | O_CLOEXEC | create, 0666);
  if (fd < 0) {
    fail(path.string());
  }
  if (use == FileUse::create && ftruncate64(fd, static_cast<off64_t>(size)) != 0) {
    fail(path.string());
  }
  check_size(fd, path, size);
  return fd;
}

std::uint8_t* map(int fd, std::size_t size) {
  const int kind = fd < 0 ? MAP_ANONYMOUS : 0;
  void* data = mmap(nullptr, size == 0 ? 1 : size, PROT_READ | PROT_WRITE,
                    MAP_SHARED | MAP_NORESERVE | kind, fd, 0);
  if (data == MAP_FAILED) {
    fail("mapping " + std::to_string(size) + " bytes of the simulated device");
  }
  return static_cast<std::uint8_t*>(data);
}

void unmap(std::uint8_t* data, std::size_t size) {
  if (data != nullptr) {
    munmap(data, size == 0 ? 1 : size);
  }
}

}  // namespace

SharedRegion SharedRegion::file(const std::filesystem::path& path, std::size_t size, FileUse use) {
  const int fd = open_sized(path, size, use);
  SharedRegion region(map(fd, size), size);
  ::close(fd);
  return region;
}

SharedRegion SharedRegion::memory(std::size_t size) {
  return {map(-1, size), size};
}

SharedRegion::SharedRegion(SharedRegion&& that) noexcept
    : data_(std::exchange(that.data_, nullptr)), size_(that.size_) {}

SharedRegion& SharedRegion::operator=(SharedRegion&& that) noexcept {
  std::swap(data_, that.data_);
  std::swap(size_, that.size_);
  return *this;
}

SharedRegion::~SharedRegion() {
  unmap(data_, size_);
}

SharedBytes SharedBytes::over(int fd, std::uint64_t size) {
  if (size > kMostMapped) {
    return {fd, nullptr, size};
  }
  SharedBytes bytes(-1, map(fd, static_cast<std::size_t>(size)), size);
  if (fd >= 0) {
    ::close(fd);
  }
  return bytes;
}

SharedBytes SharedBytes::file(const std::filesystem::path& path, std::uint64_t size, FileUse use) {
  return over(open_sized(path, size, use), size);
}

SharedBytes SharedBytes::memory(std::uint64_t size) {
  if (size <= kMostMapped) {
    return over(-1, size);
  }
  const int fd = memfd_create("zozale-sim-chip", MFD_CLOEXEC);
  if (fd < 0 || ftruncate64(fd, static_cast<off64_t>(size)) != 0) {
    fail("memory of the simulated chip");
  }
  return over(fd, size);
}

SharedBytes::SharedBytes(SharedBytes&& that) noexcept
    : fd_(std::exchange(that.fd_, -1)),
      data_(std::exchange(that.data_, nullptr)),
      size_(that.size_) {}

SharedBytes& SharedBytes::operator=(SharedBytes&& that) noexcept {
  std::swap(fd_, that.fd_);
  std::swap(data_, that.data_);
  std::swap(size_, that.size_);
  return *this;
}

SharedBytes::~SharedBytes() {
  unmap(data_, static_cast<std::size_t>(size_));
  if (fd_ >= 0) {
    ::close(fd_);
  }
}

void SharedBytes::read(std::uint64_t offset, void* buffer, std::size_t length) const {
  if (data_ != nullptr) {
    std::memcpy(buffer, data_ + offset, length);
  } else if (pread64(fd_, buffer, length, static_cast<off64_t>(offset)) !=
             static_cast<ssize_t>(length)) {
    fail("reading the simulated chip");
  }
}

void SharedBytes::write(std::uint64_t offset, const void* buffer, std::size_t length) {
  if (data_ != nullptr) {
    std::memcpy(data_ + offset, buffer, length);
  } else if (pwrite64(fd_, buffer, length, static_cast<off64_t>(offset)) !=
             static_cast<ssize_t>(length)) {
    fail("writing the simulated chip");
  }
}

}  // namespace sim
