// SPDX-License-Identifier: Apache-2.0
#include "common/file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "common/error.h"
#include "common/text.h"

namespace zozale {
namespace {

constexpr size_t kChunk = 256UL * 1024;

// Non-blocking, so that a named pipe is refused instead of waited for.
int open_for_reading(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    throw system_error("open", path, errno);
  }
  return fd;
}

struct stat status_of_regular_file(int fd, const std::string& path) {
  struct stat status {};
  if (fstat(fd, &status) != 0) {
    throw system_error("read", path, errno);
  }
  if (!S_ISREG(status.st_mode)) {
    throw Error(kExitFailed, "cannot read " + in_quotes(path) + ": it is not a regular file");
  }
  return status;
}

void read_fully(int fd, const std::string& path, uint64_t offset, void* buffer, size_t len) {
  auto* to = static_cast<uint8_t*>(buffer);
  while (len > 0) {
    const ssize_t count = pread(fd, to, len, static_cast<off_t>(offset));
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      throw system_error("read", path, errno);
    }
    if (count == 0) {
      throw Error(kExitFailed, "cannot read " + in_quotes(path) + ": it ends at byte " +
                                   std::to_string(offset) + "; it was cut while it was read");
    }
    to += count;
    offset += static_cast<uint64_t>(count);
    len -= static_cast<size_t>(count);
  }
}

bool same_time(const timespec& one, const timespec& two) {
  return one.tv_sec == two.tv_sec && one.tv_nsec == two.tv_nsec;
}

// The mode that open() would give a new file; mkstemp() gives 0600.
mode_t mode_of_new_files() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// Turns the template into the temporary file's path.
int make_temporary(std::string& path_template, const std::string& path) {
  const int fd = mkostemp(path_template.data(), O_CLOEXEC);
  if (fd < 0) {
    throw system_error("create", path, errno);
  }
  return fd;
}

}  // namespace

Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(fd_, other.fd_);
  return *this;
}

Descriptor::~Descriptor() {
  if (fd_ >= 0) {
    close(fd_);
  }
}

void for_each_chunk(const ByteSource& source, uint64_t offset, uint64_t len,
                    const std::function<void(const uint8_t*, size_t)>& use) {
  std::vector<uint8_t> buffer(static_cast<size_t>(std::min<uint64_t>(len, kChunk)));
  while (len > 0) {
    const size_t count = static_cast<size_t>(std::min<uint64_t>(len, buffer.size()));
    source.read_at(offset, buffer.data(), count);
    use(buffer.data(), count);
    offset += count;
    len -= count;
  }
}

void MemorySource::read_at(uint64_t offset, void* buffer, size_t len) const {
  if (offset > len_ || len > len_ - offset) {
    throw Error(kExitFailed, "read past the end of " + human_size(len_));
  }
  if (len > 0) {
    memcpy(buffer, bytes_ + offset, len);
  }
}

InputFile::InputFile(const std::string& path)
    : path_(path), fd_(open_for_reading(path)), status_(status_of_regular_file(fd_.get(), path)) {}

void InputFile::read_at(uint64_t offset, void* buffer, size_t len) const {
  read_fully(fd_.get(), path_, offset, buffer, len);
}

bool InputFile::is_same_file(const std::string& path) const {
  struct stat other {};
  return stat(path.c_str(), &other) == 0 && other.st_dev == status_.st_dev &&
         other.st_ino == status_.st_ino;
}

bool InputFile::is_unchanged() const {
  struct stat now {};
  return stat(path_.c_str(), &now) == 0 && now.st_dev == status_.st_dev &&
         now.st_ino == status_.st_ino && now.st_size == status_.st_size &&
         same_time(now.st_mtim, status_.st_mtim) && same_time(now.st_ctim, status_.st_ctim);
}

OutputFile::OutputFile(const std::string& path, Existing existing)
    : path_(path), temporary_path_(path + ".XXXXXX"), fd_(-1) {
  require_replaceable(path, existing);
  fd_ = Descriptor(make_temporary(temporary_path_, path));
}

OutputFile::~OutputFile() {
  if (!committed_ && fd_.get() >= 0) {
    unlink(temporary_path_.c_str());
  }
}

void OutputFile::read_at(uint64_t offset, void* buffer, size_t len) const {
  read_fully(fd_.get(), temporary_path_, offset, buffer, len);
}

void OutputFile::write_at(uint64_t offset, const void* bytes, size_t len) {
  const auto* from = static_cast<const uint8_t*>(bytes);
  while (len > 0) {
    const ssize_t count = pwrite(fd_.get(), from, len, static_cast<off_t>(offset));
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      throw system_error("write", path_, count < 0 ? errno : ENOSPC);
    }
    from += count;
    offset += static_cast<uint64_t>(count);
    len -= static_cast<size_t>(count);
    size_ = offset > size_ ? offset : size_;
  }
}

void OutputFile::commit() {
  if (fchmod(fd_.get(), mode_of_new_files()) != 0 || fsync(fd_.get()) != 0) {
    throw system_error("write", path_, errno);
  }
  if (rename(temporary_path_.c_str(), path_.c_str()) != 0) {
    throw system_error("create", path_, errno);
  }
  committed_ = true;
}

void require_replaceable(const std::string& path, OutputFile::Existing existing) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    return;
  }
  if (existing == OutputFile::Existing::kRefuse) {
    throw Error(kExitFailed, in_quotes(path) + " exists; give --force to replace it");
  }
  if (!S_ISREG(status.st_mode)) {
    throw Error(kExitFailed, "cannot replace " + in_quotes(path) + ": it is not a regular file");
  }
}

std::string read_text_file(const std::string& path, size_t limit) {
  const InputFile file(path);
  if (file.size() > limit) {
    throw Error(kExitFailed, "cannot read " + in_quotes(path) + ": it has " +
                                 human_size(file.size()) + ", at most " + human_size(limit) +
                                 " are read");
  }
  std::string text(static_cast<size_t>(file.size()), '\0');
  file.read_at(0, text.data(), text.size());
  return text;
}

}  // namespace zozale
