// SPDX-License-Identifier: Apache-2.0
//
// Streams of the device's files.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "sim/process.h"
#include "sim/real.h"

namespace sim {
namespace {

struct Stream {
  FILE* stream;
  std::string path;
};

std::vector<Stream>& streams() {
  static auto* const open = new std::vector<Stream>;
  return *open;
}

std::vector<Stream>::iterator find_stream(const FILE* stream) {
  return std::find_if(streams().begin(), streams().end(),
                      [stream](const Stream& open) { return open.stream == stream; });
}

// --- A stream over a descriptor of ours, for files whose transfers are to fail and for nodes. ---

struct Cookie {
  int fd;
  std::string path;
};

Struck meet_stream(Op op, const Cookie& cookie) {
  return meet_plain(op, cookie.path);
}

ssize_t cookie_read(void* opaque, char* buffer, std::size_t size) {
  const InSimulator in_simulator;
  const auto& cookie = *static_cast<Cookie*>(opaque);
  const Errno result;
  const Struck struck = meet_stream(Op::stream_read, cookie);
  if (struck.error != 0) {
    return static_cast<ssize_t>(result.give(-struck.error));
  }
  const std::size_t count = std::min<std::size_t>(size, struck.bytes.value_or(0xFFFFFFFF));
  return static_cast<ssize_t>(result.give(
      process_transfer(cookie.fd, *open_file(cookie.fd), {Op::read, buffer, count, std::nullopt})));
}

// A failing write of a stream tells of no byte, not of -1.
ssize_t cookie_write(void* opaque, const char* buffer, std::size_t size) {
  const InSimulator in_simulator;
  const auto& cookie = *static_cast<Cookie*>(opaque);
  const Errno result;
  const Struck struck = meet_stream(Op::stream_write, cookie);
  const std::int64_t written =
      struck.error != 0
          ? -struck.error
          : process_transfer(cookie.fd, *open_file(cookie.fd),
                             {Op::write, const_cast<char*>(buffer), size, std::nullopt});
  return static_cast<ssize_t>(std::max<std::int64_t>(result.give(written), 0));
}

int cookie_seek(void* opaque, off64_t* offset, int whence) {
  const InSimulator in_simulator;
  const auto& cookie = *static_cast<Cookie*>(opaque);
  const Errno result;
  const std::int64_t position =
      result.give(process_lseek(cookie.fd, *open_file(cookie.fd), *offset, whence));
  if (position < 0) {
    return -1;
  }
  *offset = position;
  return 0;
}

int cookie_close(void* opaque) {
  const InSimulator in_simulator;
  const std::unique_ptr<Cookie> cookie(static_cast<Cookie*>(opaque));
  const Errno result;
  return static_cast<int>(result.give(process_close(cookie->fd, *open_file(cookie->fd))));
}

int open_flags(const char* mode) {
  const std::string_view text = mode;
  const bool update = text.find('+') != std::string_view::npos;
  const int close_on_exec = text.find('e') != std::string_view::npos ? O_CLOEXEC : 0;
  switch (text.empty() ? '\0' : text.front()) {
    case 'r':
      return close_on_exec | (update ? O_RDWR : O_RDONLY);
    case 'w':
      return close_on_exec | O_CREAT | O_TRUNC | (update ? O_RDWR : O_WRONLY);
    case 'a':
      return close_on_exec | O_CREAT | O_APPEND | (update ? O_RDWR : O_WRONLY);
    default:
      return -1;
  }
}

FILE* open_cookie(const MappedPath& path, const char* mode) {
  const InSimulator in_simulator;
  const int flags = open_flags(mode);
  const std::int64_t fd = flags < 0 ? -EINVAL : process_open(path, flags, 0666);
  if (fd < 0) {
    errno = static_cast<int>(-fd);
    return nullptr;
  }
  const cookie_io_functions_t calls = {cookie_read, cookie_write, cookie_seek, cookie_close};
  return fopencookie(new Cookie{static_cast<int>(fd), path.path}, mode, calls);
}

bool needs_cookie(const MappedPath& path) {
  return path.kind != PathKind::file || g_device->faults().any(Op::stream_read, path.path) ||
         g_device->faults().any(Op::stream_write, path.path);
}

// The stream's own memory is the program's, not the simulator's.
FILE* open_stream(const MappedPath& path, const char* mode) {
  REAL(fopen64);
  FILE* stream = needs_cookie(path) ? open_cookie(path, mode) : real_fopen64(path.host, mode);
  const InSimulator in_simulator;
  if (stream != nullptr) {
    streams().push_back({stream, path.path});
  }
  return stream;
}

}  // namespace

FILE* process_fopen(const MappedPath& path, const char* mode) {
  const Errno result;
  const Struck struck = meet_path(Op::fopen, path);
  FILE* stream = nullptr;
  if (struck.error == 0) {
    stream = open_stream(path, mode);
  } else {
    errno = struck.error;
  }
  const std::int64_t outcome = stream != nullptr ? 0 : -errno;
  Details details;
  details.text = mode;
  note(Op::fopen, path, details, outcome);
  result.give(outcome);
  return stream;
}

bool is_stream(FILE* stream) {
  return g_device != nullptr && find_stream(stream) != streams().end();
}

int process_fclose(FILE* stream) {
  const Errno result;
  const auto found = find_stream(stream);
  const std::string path = std::move(found->path);
  streams().erase(found);
  const Struck struck = meet_plain(Op::fclose, path);
  REAL(fclose);
  std::int64_t outcome = from_libc(real_fclose(stream));
  outcome = struck.error != 0 ? -struck.error : outcome;
  note(Op::fclose, path, {}, {}, outcome);
  return static_cast<int>(result.give(outcome));
}

void forget_streams() {
  streams().clear();
}

std::vector<OpenDescriptor> open_descriptors() {
  const InSimulator in_simulator;
  std::vector<OpenDescriptor> open;
  for (int fd = 0; fd < static_cast<int>(kMaxDescriptors); ++fd) {
    if (const OpenFile* file = open_file(fd)) {
      open.push_back({fd, file->path, false});
    }
  }
  for (const Stream& stream : streams()) {
    open.push_back({fileno(stream.stream), stream.path, true});
  }
  return open;
}

}  // namespace sim
