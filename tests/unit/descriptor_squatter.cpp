// SPDX-License-Identifier: Apache-2.0
#include "descriptor_squatter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

namespace {

DescriptorSquatter* g_squatter = nullptr;

// For how many diagnostics a number is kept, two readings of the clock for each.
constexpr std::size_t kHeld = 64;

// Past the simulated device's open(), which counts and records.
int open_null() {
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, "/dev/null", O_RDONLY | O_CLOEXEC));
}

bool is_null(int fd) {
  struct stat null {};
  struct stat found {};
  return stat("/dev/null", &null) == 0 && fstat(fd, &found) == 0 && S_ISCHR(found.st_mode) != 0 &&
         found.st_rdev == null.st_rdev;
}

}  // namespace

DescriptorSquatter::DescriptorSquatter() {
  g_squatter = this;
}

DescriptorSquatter::~DescriptorSquatter() {
  g_squatter = nullptr;
  lost();
}

void DescriptorSquatter::take() {
  const int fd = open_null();
  if (fd < 0) {
    return;
  }
  ++taken_;
  const auto twice = std::find(held_.begin(), held_.end(), fd);
  if (twice != held_.end()) {
    lost_.push_back(fd);
    held_.erase(twice);
  }
  held_.push_back(fd);
  if (held_.size() > kHeld) {
    give_back();
  }
}

void DescriptorSquatter::give_back() {
  const int fd = held_.front();
  held_.pop_front();
  if (is_null(fd)) {
    syscall(SYS_close, fd);
  } else {
    lost_.push_back(fd);
  }
}

std::vector<int> DescriptorSquatter::lost() {
  while (!held_.empty()) {
    give_back();
  }
  return lost_;
}

// The library finds this one before the C library's. It reads the clock for every diagnostic.
extern "C" int gettimeofday(timeval* time, void* /*zone*/) noexcept {
  if (g_squatter != nullptr) {
    g_squatter->take();
  }
  timespec now{};
  const long result = syscall(SYS_clock_gettime, CLOCK_REALTIME, &now);
  time->tv_sec = now.tv_sec;
  time->tv_usec = now.tv_nsec / 1000;
  return static_cast<int>(result);
}
