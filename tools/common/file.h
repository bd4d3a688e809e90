// SPDX-License-Identifier: Apache-2.0
//
// Files: sources of bytes that are read at a position, and files that appear whole or not at all.
#ifndef ZOZALE_TOOLS_COMMON_FILE_H
#define ZOZALE_TOOLS_COMMON_FILE_H

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace zozale {

// Owns a descriptor.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept;
  Descriptor& operator=(Descriptor&& other) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor();

  int get() const { return fd_; }

 private:
  int fd_;
};

// Bytes of a known number, read at any position.
class ByteSource {
 public:
  ByteSource() = default;
  ByteSource(const ByteSource&) = default;
  ByteSource& operator=(const ByteSource&) = default;
  ByteSource(ByteSource&&) = default;
  ByteSource& operator=(ByteSource&&) = default;
  virtual ~ByteSource() = default;

  virtual uint64_t size() const = 0;
  // Reads exactly `len` bytes, all of which must lie within size(). Throws Error when they cannot
  // be read.
  virtual void read_at(uint64_t offset, void* buffer, size_t len) const = 0;
};

// Hands [offset, offset + len) of the source to `use`, chunk by chunk in order. Throws Error when
// it cannot be read, and what `use` throws.
void for_each_chunk(const ByteSource& source, uint64_t offset, uint64_t len,
                    const std::function<void(const uint8_t*, size_t)>& use);

// Bytes in memory, which must outlive this.
class MemorySource : public ByteSource {
 public:
  MemorySource(const uint8_t* bytes, size_t len) : bytes_(bytes), len_(len) {}
  uint64_t size() const override { return len_; }
  void read_at(uint64_t offset, void* buffer, size_t len) const override;

 private:
  const uint8_t* bytes_;
  size_t len_;
};

// A regular file, open for reading.
class InputFile : public ByteSource {
 public:
  // Throws Error when the file cannot be opened or is anything but a regular file; never blocks.
  explicit InputFile(const std::string& path);

  uint64_t size() const override { return static_cast<uint64_t>(status_.st_size); }
  void read_at(uint64_t offset, void* buffer, size_t len) const override;
  const std::string& path() const { return path_; }
  // True when `path` leads to this very file.
  bool is_same_file(const std::string& path) const;
  // False when path() leads to another file by now, or this one was written to since it was opened,
  // as far as its size and its times tell.
  bool is_unchanged() const;

 private:
  std::string path_;
  Descriptor fd_;
  struct stat status_;
};

// A file in the making: a temporary file beside `path` until commit() gives it its name. Without a
// commit nothing is left of it, and what stood at `path` stays.
class OutputFile : public ByteSource {
 public:
  enum class Existing { kReplace, kRefuse };

  // Throws Error when the file cannot be made, when something stands at `path` that is not a
  // regular file, or anything at all with kRefuse.
  OutputFile(const std::string& path, Existing existing);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  OutputFile(OutputFile&&) = delete;
  OutputFile& operator=(OutputFile&&) = delete;
  ~OutputFile() override;

  uint64_t size() const override { return size_; }
  void read_at(uint64_t offset, void* buffer, size_t len) const override;
  void write_at(uint64_t offset, const void* bytes, size_t len);
  // Appends at size().
  void append(const void* bytes, size_t len) { write_at(size_, bytes, len); }
  void commit();

 private:
  std::string path_;
  std::string temporary_path_;
  Descriptor fd_;
  uint64_t size_ = 0;
  bool committed_ = false;
};

// Throws Error when something stands at `path` that OutputFile would not replace.
void require_replaceable(const std::string& path, OutputFile::Existing existing);

// The whole of a regular file of at most `limit` bytes. Throws Error.
std::string read_text_file(const std::string& path, size_t limit);

}  // namespace zozale

#endif
