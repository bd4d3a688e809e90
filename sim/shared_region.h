// SPDX-License-Identifier: Apache-2.0
//
// Zero-filled memory that several processes share: a file of the device folder, or anonymous and
// shared with children of fork().
#ifndef SIM_SHARED_REGION_H
#define SIM_SHARED_REGION_H

#include <cstddef>
#include <cstdint>
#include <filesystem>

namespace sim {

enum class FileUse : std::uint8_t { create, open };

class SharedRegion {
 public:
  // Throws std::runtime_error; an existing file must have exactly `size` bytes.
  static SharedRegion file(const std::filesystem::path& path, std::size_t size, FileUse use);
  static SharedRegion memory(std::size_t size);

  SharedRegion(SharedRegion&& that) noexcept;
  SharedRegion& operator=(SharedRegion&& that) noexcept;
  ~SharedRegion();

  std::uint8_t* data() const { return data_; }
  std::size_t size() const { return size_; }
  // What lies at a byte offset, which must suit the alignment of T.
  template <typename T>
  T* at(std::size_t offset) const {
    return static_cast<T*>(static_cast<void*>(data_ + offset));
  }

 private:
  SharedRegion(std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
};

// The same for more bytes than a 32-bit process can map at a time: reached by copying.
class SharedBytes {
 public:
  static SharedBytes file(const std::filesystem::path& path, std::uint64_t size, FileUse use);
  static SharedBytes memory(std::uint64_t size);

  SharedBytes(SharedBytes&& that) noexcept;
  SharedBytes& operator=(SharedBytes&& that) noexcept;
  ~SharedBytes();

  void read(std::uint64_t offset, void* buffer, std::size_t length) const;
  void write(std::uint64_t offset, const void* buffer, std::size_t length);

 private:
  SharedBytes(int fd, std::uint8_t* data, std::uint64_t size) : fd_(fd), data_(data), size_(size) {}
  static SharedBytes over(int fd, std::uint64_t size);
  int fd_ = -1;                   // kept only when the whole is too large to be mapped
  std::uint8_t* data_ = nullptr;  // the whole, when it is mapped
  std::uint64_t size_ = 0;
};

}  // namespace sim

#endif
