// SPDX-License-Identifier: Apache-2.0
#include "zozale/capture.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "common/error.h"

namespace zozale::tool {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kTick(200);
constexpr size_t kPipeChunk = 65536;

Descriptor duplicate_of_standard_output() {
  const int fd = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (fd < 0) {
    throw system_error("duplicate", "standard output", errno);
  }
  return Descriptor(fd);
}

}  // namespace

Capture::Pipe Capture::make_pipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw system_error("make", "pipe", errno);
  }
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

Capture::Capture(OnLine on_line, OnTick on_tick)
    : on_line_(std::move(on_line)),
      on_tick_(std::move(on_tick)),
      standard_output_(duplicate_of_standard_output()),
      lines_(make_pipe()),
      stop_(make_pipe()) {
  fcntl(lines_.read.get(), F_SETFL, O_NONBLOCK);
  try {
    reader_ = std::thread([this] { read_until_told_to_stop(); });
  } catch (const std::system_error& error) {
    throw system_error("start", "thread", error.code().value());
  }
  fflush(stdout);
  dup2(lines_.write.get(), STDOUT_FILENO);
}

// The end is told by a pipe of its own: a child process of the library may hold the other one open.
Capture::~Capture() {
  fflush(stdout);
  dup2(standard_output_.get(), STDOUT_FILENO);
  const char stop = 0;
  while (write(stop_.write.get(), &stop, 1) < 0 && errno == EINTR) {
  }
  reader_.join();
}

void Capture::read_until_told_to_stop() {
  std::array<pollfd, 2> inputs = {
      pollfd{lines_.read.get(), POLLIN, 0},
      pollfd{stop_.read.get(), POLLIN, 0},
  };
  auto last_tick = Clock::now();
  while (inputs[1].revents == 0) {
    poll(inputs.data(), inputs.size(), static_cast<int>(kTick.count()));
    take_some();
    if (Clock::now() - last_tick >= kTick) {
      on_tick_();
      last_tick = Clock::now();
    }
  }
  while (take_some()) {
  }
  if (!rest_.empty()) {
    on_line_(rest_);
  }
}

bool Capture::take_some() {
  std::array<char, kPipeChunk> chunk;
  const ssize_t count = read(lines_.read.get(), chunk.data(), chunk.size());
  if (count <= 0) {
    return count < 0 && errno == EINTR;
  }
  rest_.append(chunk.data(), static_cast<size_t>(count));
  hand_on_lines();
  return true;
}

void Capture::hand_on_lines() {
  size_t start = 0;
  for (size_t end = rest_.find('\n'); end != std::string::npos; end = rest_.find('\n', start)) {
    on_line_(std::string_view(rest_).substr(start, end - start));
    start = end + 1;
  }
  rest_.erase(0, start);
}

void prepare_standard_streams() {
  int fd = open("/dev/null", O_RDWR);
  while (fd >= 0 && fd <= STDERR_FILENO) {
    fd = dup(fd);
  }
  if (fd > STDERR_FILENO) {
    close(fd);
  }
  setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  // A reader that goes away must not end an operation half-way.
  std::signal(SIGPIPE, SIG_IGN);
}

}  // namespace zozale::tool
